#pragma once

#include "GraphInfo.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What became of one file of a database. */
struct FileInfo {
    std::string file;     ///< its path, as the way from the first file leads to it
    std::string namedBy;  ///< the file that names it; empty for the first
    std::string problem;  ///< why it could not be read, the file named; empty: it was
    GraphInfo graph;
};

/**
 * Reads a graph without the files that it refers to; with `recurse` then those too, level by level, each real file
 * once. What cannot be read is handed to `tell` as well.
 * @throws CommandError if the first file cannot be read
 */
std::vector<FileInfo> inspectDatabase(const std::filesystem::path& path, bool recurse,
                                      const std::function<void(const FileInfo&)>& tell);

}  // namespace veltrane::sceneutils::tool
