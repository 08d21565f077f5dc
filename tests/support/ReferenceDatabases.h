#pragma once

#include "FlightRecords.h"
#include "TemporaryDirectory.h"

#include "plan/ReferenceGraph.h"

#include <map>
#include <string>
#include <vector>

/** Databases of small OpenFlight files, and what a walk over their references finds. */
namespace testing_support {

/** A file with one level, in which it refers to those files. The first reference is at byte 328. */
inline FlightRecords fileWith(const std::vector<std::string>& references) {
    return FlightRecords().push().references(references).pop();
}

/** Files by name, each with what it refers to. */
using References = std::map<std::string, std::vector<std::string>>;

inline void writeDatabase(const TemporaryDirectory& folder, const References& database) {
    for (const auto& [name, references] : database) fileWith(references).write(folder / name);
}

/** Real, because folders for temporary files may be reached by a link. */
inline std::string realPath(const TemporaryDirectory& folder, const std::string& name = {}) {
    const std::string path = std::filesystem::canonical(folder.path()).string();
    return name.empty() ? path : path + "/" + name;
}

inline std::vector<std::string> fileNames(const veltrane::sceneutils::tool::ReferenceGraph& graph) {
    std::vector<std::string> names;
    for (const auto& file : graph.files) names.push_back(file.name);
    return names;
}

inline std::vector<std::string> namesInConversionOrder(const veltrane::sceneutils::tool::ReferenceGraph& graph) {
    std::vector<std::string> names;
    for (const std::size_t file : graph.conversionOrder()) names.push_back(graph.files[file].name);
    return names;
}

}  // namespace testing_support
