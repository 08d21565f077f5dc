#pragma once

#include "Optimization.h"

#include <nlohmann/json.hpp>

#include <ostream>
#include <string>

namespace veltrane::sceneutils::tool {

/** What the command was told and what came of it. */
struct OptimizeReport {
    std::string input;
    std::string output;
    bool dryRun = false;
    bool overwrite = false;
    OptimizationOptions options;
    Optimization result;
    bool written = false;
};

/** The counts before and after, then the time of each step. */
void writeTable(std::ostream& out, const OptimizeReport& report);

nlohmann::json asJson(const OptimizeReport& report);

}  // namespace veltrane::sceneutils::tool
