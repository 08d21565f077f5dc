#pragma once

#include "ProgramList.h"
#include "ProgramOrigin.h"

#include <nlohmann/json.hpp>

#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** Why a program cannot be used, and what asked for it. */
struct FailedProgram {
    std::string log;    ///< the driver's
    std::string place;  ///< placeOf()
    std::vector<std::string> state;
};

/** What came of a run. */
struct ShaderReport {
    std::string input;
    std::string output;  ///< empty: none was asked for
    bool written = false;
    ShaderSettings settings;
    std::vector<ListedProgram> programs;
    std::map<std::string, std::vector<std::string>> savedFiles;  ///< by the name in the list
    bool checked = false;
    std::string driver;                             ///< that checked the programs
    std::map<std::string, FailedProgram> failures;  ///< by the name in the list
};

/** A line for each program and one for all of them. */
void writeTable(std::ostream& out, const ShaderReport& report);

/** What is wrong with each program that failed, and what asked for it. */
void writeFailures(std::ostream& out, const ShaderReport& report);

nlohmann::json asJson(const ShaderReport& report);

}  // namespace veltrane::sceneutils::tool
