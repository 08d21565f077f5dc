#include "ByteSource.h"

#include "FlightFileError.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

// Before the file is opened: to open a device can do something.
void checkIsRegularFile(const fs::path& path) {
    std::error_code error;
    const auto status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found) throw FlightFileError("no such file");
    if (error) throw FlightFileError(error.message());
    if (fs::is_directory(status)) throw FlightFileError("is a folder");
    if (!fs::is_regular_file(status)) throw FlightFileError("is not a regular file");
}

}  // namespace

FileBytes::FileBytes(const fs::path& path) {
    checkIsRegularFile(path);
    // Not waiting, because the name may stand for a pipe by now.
    // NOLINTNEXTLINE(cppcoreguidelines-prefer-member-initializer): it is to be opened only after the check above
    _descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (_descriptor < 0) throw FlightFileError(std::strerror(errno));

    struct stat status = {};
    if (fstat(_descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        _size = static_cast<std::uint64_t>(status.st_size);
        return;
    }
    close(_descriptor);
    throw FlightFileError("is not a regular file");
}

FileBytes::~FileBytes() {
    close(_descriptor);
}

std::size_t FileBytes::read(std::uint64_t offset, char* to, std::size_t count) {
    std::size_t got = 0;
    while (got < count) {
        const ssize_t more = pread(_descriptor, to + got, count - got, static_cast<off_t>(offset + got));
        if (more < 0 && errno == EINTR) continue;
        if (more < 0) throw FlightFileError(std::strerror(errno));
        if (more == 0) break;
        got += static_cast<std::size_t>(more);
    }
    return got;
}

std::size_t MemoryBytes::read(std::uint64_t offset, char* to, std::size_t count) {
    if (offset >= _bytes.size()) return 0;
    return _bytes.copy(to, count, static_cast<std::size_t>(offset));
}

}  // namespace veltrane::sceneutils::tool
