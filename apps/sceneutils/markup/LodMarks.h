#pragma once

#include <osg/Node>
#include <osg/ref_ptr>

#include <cstddef>

namespace veltrane::sceneutils::tool {

/** How many LODs were marked. */
struct LodCounts {
    std::size_t plain = 0;
    std::size_t paged = 0;
};

/**
 * Draws boxes around every LOD of a graph as LODMarkup does, but around each once however many ways lead to it, in all
 * the places where it hangs; also around the root and around hidden ones.
 * @param graph has another root afterwards if the root is an LOD
 */
LodCounts markLods(osg::ref_ptr<osg::Node>& graph);

}  // namespace veltrane::sceneutils::tool
