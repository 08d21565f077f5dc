#pragma once

#include "ReferenceGraph.h"

#include <filesystem>
#include <ostream>

namespace veltrane::sceneutils::tool {

/** Writes the plan as JSON: the same bytes for the same database, wherever it is planned from. */
void writePlan(std::ostream& out, const ReferenceGraph& graph, const std::filesystem::path& master);

/** One line of totals, without its end. */
std::string summaryOf(const ReferenceGraph& graph);

}  // namespace veltrane::sceneutils::tool
