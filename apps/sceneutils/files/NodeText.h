#pragma once

#include <osg/Node>

#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** The node's class with its library: "osgSim::DOFTransform". */
std::string classOf(const osg::Node& node);

/** What stands for the nodes in a path: their names; of a node without one, its class in brackets: "<Group>". */
std::vector<std::string> namesAlong(const osg::NodePath& path);

/** The names with '/' between them, fit for a terminal. */
std::string asText(const osg::NodePath& path);
std::string asText(const std::vector<std::string>& names);

}  // namespace veltrane::sceneutils::tool
