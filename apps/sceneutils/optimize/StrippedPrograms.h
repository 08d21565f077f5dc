#pragma once

#include <osg/Node>
#include <osg/StateSet>

#include <set>
#include <string>

namespace veltrane::sceneutils::tool {

/** The state sets that RemoveNamesAndDescriptions takes a shader program from, found out by trying. The graph is as it
 * was then. */
std::set<const osg::StateSet*> stateSetsThatLoseTheirProgram(osg::Node& root, const std::set<std::string>& keptNames);

}  // namespace veltrane::sceneutils::tool
