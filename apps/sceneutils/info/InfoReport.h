#pragma once

#include "DatabaseInfo.h"

#include <nlohmann/json.hpp>

#include <ostream>

namespace veltrane::sceneutils::tool {

/** The table for people: the first file in full; of several files then a line for each and the totals. */
void writeInfo(std::ostream& out, const std::vector<FileInfo>& files);

/** The same for programs, and everything in full. Its field "version" grows when a field changes its meaning or goes.
 */
nlohmann::json infoAsJson(const std::vector<FileInfo>& files, bool recurse);

}  // namespace veltrane::sceneutils::tool
