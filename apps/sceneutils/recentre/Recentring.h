#pragma once

#include <osg/Node>
#include <osg/Vec3d>
#include <osg/ref_ptr>

#include <stdexcept>
#include <string>

namespace veltrane::sceneutils::tool {

struct RecentreOptions {
    double minDistance = 0.0;  ///< how far the graph has to lie from the origin, in graph units
    bool asGraph = false;      ///< whether that is asked of its centre, and not of its farthest geode
};

/** What became of a graph. */
struct Recentring {
    osg::ref_ptr<osg::Node> graph;  ///< below a transform that puts it back, if it was moved
    std::string reasonNotMoved;     ///< empty: it was moved
    osg::Vec3d offset;              ///< the place of the graph's centre, by which it was moved
    double farthestVertexBefore = 0.0;
    double farthestVertexNow = 0.0;
    double largestDifference = 0.0;       ///< between where something was in the world and where it is
    unsigned int replacedTransforms = 0;  ///< position-attitude transforms that became matrix transforms
};

/** Says why a graph cannot be recentred. */
class RecentreError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/**
 * Moves a graph to the origin by BubbleUpTransform and hangs it below a transform that puts it back, so that everything
 * is where it was. A graph that is not moved is left as it is.
 * @throws RecentreError if something would come apart; then the graph may have been changed
 */
Recentring recentre(const osg::ref_ptr<osg::Node>& graph, const RecentreOptions& options);

/** The largest distance of a vertex from the origin, as it is in its array, without the transforms above. */
double farthestVertex(osg::Node& graph);

}  // namespace veltrane::sceneutils::tool
