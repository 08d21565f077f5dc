#pragma once

#include <osg/BoundingBox>
#include <osg/Node>
#include <osg/Vec3d>
#include <osg/Vec4>

#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** A line of a markup in the coordinates of the graph's root. */
struct FigureLine {
    osg::Vec3d from;
    osg::Vec3d to;
    osg::Vec4 color;
};

/** One box or square of a markup with its spokes. */
struct Figure {
    std::vector<FigureLine> lines;
    std::string label;  ///< what it stands for; may be empty
    osg::BoundingBoxd box;

    /** Half of its longest side; infinite if it is not finite. */
    double reach() const;
};

/** The boxes around the LODs of a graph that markLods() has marked: a box for each place where an LOD is seen. */
std::vector<Figure> figuresAroundLods(osg::Node& graph);

/** The squares and boxes of chains. */
std::vector<Figure> figuresOfChains(osg::Node& chains);

}  // namespace veltrane::sceneutils::tool
