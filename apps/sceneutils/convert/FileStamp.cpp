#include "FileStamp.h"

#include <sys/stat.h>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

}  // namespace

std::optional<FileStamp> stampOf(const fs::path& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return FileStamp{static_cast<std::uintmax_t>(status.st_size),
                     status.st_mtim.tv_sec * nanosecondsPerSecond + status.st_mtim.tv_nsec};
}

}  // namespace veltrane::sceneutils::tool
