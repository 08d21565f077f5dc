#pragma once

#include "../convert/ChildProcess.h"

#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What a driver makes of programs. */
struct ProgramTrial {
    std::string driver;             ///< empty: there is none
    std::string whyNot;             ///< why there is none
    std::vector<std::string> logs;  ///< one for each program; empty: it compiles and links
};

/**
 * Compiles and links programs in a process of its own, so that one that crashes the driver or keeps it busy costs only
 * itself.
 * @param contents as asContent() gives them
 * @param limits for each program
 */
ProgramTrial tryPrograms(const std::vector<std::string>& contents, const ChildLimits& limits);

}  // namespace veltrane::sceneutils::tool
