#pragma once

#include "CommandWalk.h"

#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** A script that completes commands, options and file names in bash. */
std::string bashCompletion(const CommandText& tool, const std::vector<CommandText>& commands);

/** The same for zsh. */
std::string zshCompletion(const CommandText& tool, const std::vector<CommandText>& commands);

}  // namespace veltrane::sceneutils::tool
