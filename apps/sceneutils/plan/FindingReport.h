#pragma once

#include "ReferenceGraph.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>

namespace veltrane::sceneutils::tool {

/** Tells what a walk over a database has found, in the words of whoever named the master file. */
class FindingReport {
public:
    /** @param master as it was named on the command line */
    FindingReport(const ReferenceGraph& graph, const std::filesystem::path& master);

    /** "error: db/tiles/a.flt: 'b.flt' at byte 328: no such file", always one line. */
    std::string lineOf(const Finding& finding) const;
    nlohmann::json asJson(const Finding& finding) const;

private:
    std::string shownPath(std::size_t file) const;
    std::string namedBy(const Finding& finding) const;

    const ReferenceGraph& _graph;
    std::string _realFolder;        ///< of the master
    std::filesystem::path _folder;  ///< the same as it was named
};

/** "missing", "tooDeep": how reports call a kind of finding. */
const char* nameOf(FindingKind kind);

/** "error" or "warning" */
const char* nameOf(Severity severity);

}  // namespace veltrane::sceneutils::tool
