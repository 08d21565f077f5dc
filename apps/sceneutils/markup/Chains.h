#pragma once

#include <osg/Group>
#include <osg/ref_ptr>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What LODMarkup makes of the ways to nodes. */
struct Chains {
    osg::ref_ptr<osg::Group> graph;  ///< the chains of all nodes
    std::size_t count = 0;
    std::string description;  ///< what LODMarkup tells of the ways
    /** What LODMarkup writes into the working directory; by the names of the files. */
    std::map<std::string, osg::ref_ptr<osg::Node>> files;
};

/** Writes no files and nothing to standard error. @param nodes at least one, of a graph that is changed as LODMarkup
 * does */
Chains makeChains(const std::vector<osg::Node*>& nodes);

}  // namespace veltrane::sceneutils::tool
