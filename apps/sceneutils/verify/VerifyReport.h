#pragma once

#include "DatabaseCheck.h"

#include <nlohmann/json.hpp>

#include <ostream>
#include <string>

namespace veltrane::sceneutils::tool {

/**
 * Writes a line for each finding, file by file.
 * @param linesPerKind after so many of a kind there is only a count
 * @param whereAllAre what the count says of the others, "(report.json has all)"
 */
void writeFindings(std::ostream& out, const VerifiedDatabase& database, const std::string& master,
                   std::size_t linesPerKind, const std::string& whereAllAre);

/** The one line for people, with its end. */
void writeSummary(std::ostream& out, const VerifiedDatabase& database);

/** The same for programs. Its field "version" grows when a field changes its meaning or goes. */
nlohmann::json asJson(const VerifiedDatabase& database, const VerifySettings& settings);

}  // namespace veltrane::sceneutils::tool
