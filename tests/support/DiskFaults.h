#pragma once

#include "ToolRun.h"

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

/**
 * Has a program, and all that it starts, run with what DiskFaults.cpp makes of the disk.
 * @param faults its variables without "SCENEUTILS_TEST_", and what they are set to
 */
inline ToolSettings withDiskFaults(const std::vector<std::pair<std::string, std::string>>& faults) {
    ToolSettings settings;
    settings.environment = {{"LD_PRELOAD", DISK_FAULTS}};
#ifdef __SANITIZE_ADDRESS__
    const char* options = std::getenv("ASAN_OPTIONS");
    settings.environment.emplace_back("ASAN_OPTIONS",
                                      std::string(options ? options : "") + ":verify_asan_link_order=0");
#endif
    for (const auto& [name, value] : faults) settings.environment.emplace_back("SCENEUTILS_TEST_" + name, value);
    return settings;
}

}  // namespace testing_support
