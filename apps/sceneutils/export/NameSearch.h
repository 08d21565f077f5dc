#pragma once

#include <osg/Node>

#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/**
 * The nodes of a name in the order of the graph, hidden ones and drawables too, each once with the first way to it.
 * @param input the file that the graph was read from
 * @throws CommandError with Usage if there is none; the line offers the names that come nearest
 */
std::vector<osg::NodePath> findByName(osg::Node& graph, const std::string& name, const std::string& input);

}  // namespace veltrane::sceneutils::tool
