#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

namespace veltrane::sceneutils::tool {

/** What tells whether a file is still the one that it was. */
struct FileStamp {
    std::uintmax_t size = 0;
    std::int64_t time = 0;  ///< of the last change, in nanoseconds

    friend bool operator==(const FileStamp& a, const FileStamp& b) { return a.size == b.size && a.time == b.time; }
    friend bool operator!=(const FileStamp& a, const FileStamp& b) { return !(a == b); }
};

/** Nothing if there is no such file. */
std::optional<FileStamp> stampOf(const std::filesystem::path& path);

}  // namespace veltrane::sceneutils::tool
