#pragma once

#include <osg/Node>

#include <string>

namespace veltrane::sceneutils::tool {

/**
 * What to call a node in a message: its name and its class; without a name its class and the nearest name above it.
 * @param path from the graph's root to the node, which is its last one
 */
std::string nameOf(const osg::NodePath& path);

}  // namespace veltrane::sceneutils::tool
