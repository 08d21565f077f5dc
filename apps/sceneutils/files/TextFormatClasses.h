#pragma once

#include <osg/Node>

#include <string>

namespace veltrane::sceneutils::tool {

/**
 * Whether .osg files hold nodes, drawables and state attributes of all classes in a graph. OpenSceneGraph's writer
 * leaves out the others without a word.
 * @return the first class that they do not hold, for example "osgSim::Sector"; empty: they hold all
 */
std::string classUnknownToTextFormat(osg::Node& graph);

}  // namespace veltrane::sceneutils::tool
