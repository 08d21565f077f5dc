#pragma once

#include "Command.h"

#include <memory>

namespace veltrane::sceneutils::tool {

/** The whole command line with all commands, to be parsed, or to be described in manual pages. What it runs puts the
 * status that it ends with into `result`, which has to live as long. */
std::unique_ptr<CLI::App> makeCommandLine(ExitStatus& result);

}  // namespace veltrane::sceneutils::tool
