#pragma once

#include "CommandWalk.h"

#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What stands in the head and foot of every page. */
struct ManualEdition {
    std::string version;
    std::string date;  ///< year-month-day
};

/** The page sceneutils(1), in the language of man(7). */
std::string manualPageOfTool(const CommandText& tool, const std::vector<CommandText>& commands,
                             const ManualEdition& edition);

/** The page sceneutils-COMMAND(1). */
std::string manualPageOfCommand(const CommandText& tool, const CommandText& command, const ManualEdition& edition);

}  // namespace veltrane::sceneutils::tool
