#include "WholeFile.h"

#include <cerrno>
#include <climits>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr std::size_t longestNameKept = 200;

// A plain array, because a signal handler reads it.
char unfinishedFile[PATH_MAX] = "";

void rememberUnfinishedFile(const fs::path& path) {
    unfinishedFile[0] = '\0';
    const std::string name = path.string();
    if (name.size() < sizeof unfinishedFile) std::strcpy(unfinishedFile, name.c_str());
}

[[noreturn]] void fail(const fs::path& path, const std::string& reason) {
    throw OutputError(path.string() + ": " + reason);
}

// Atomic where the file system can do it; what appeared at `to` since it was checked stays.
bool renameWithoutOverwriting(const fs::path& from, const fs::path& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    if (access(to.c_str(), F_OK) == 0) {
        errno = EEXIST;
        return false;
    }
    return std::rename(from.c_str(), to.c_str()) == 0;
}

// What has a name after a power failure shall have its content too. A file system that cannot do it is no reason to
// stop.
bool bringToDisk(const fs::path& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    const bool isThere = fdatasync(file) == 0 || errno == EINVAL || errno == ENOSYS;
    const int reason = errno;
    close(file);
    errno = reason;
    return isThere;
}

// A new file, so that nothing that waits under its name, as a link that leads elsewhere, is written to.
bool makeAnew(const fs::path& path) {
    if (unlink(path.c_str()) != 0 && errno != ENOENT) return false;
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (file < 0) return false;
    close(file);
    return true;
}

}  // namespace

void checkOutputPath(const fs::path& path, bool mayOverwrite) {
    std::error_code error;
    fs::path above = path.parent_path();
    while (above.has_relative_path() && !fs::exists(above, error)) above = above.parent_path();
    if (above.has_relative_path() && !fs::is_directory(above, error)) fail(path, above.string() + " is not a folder");

    if (access(above.empty() ? "." : above.c_str(), W_OK) != 0)
        fail(path, std::string("cannot be written: ") + std::strerror(errno));

    const auto status = fs::symlink_status(path, error);
    if (fs::is_directory(path, error)) fail(path, "is a folder");
    if (fs::exists(status) && !fs::is_regular_file(status) && !fs::is_symlink(status))
        fail(path, "is neither a file nor a folder");
    if (fs::exists(status) && !mayOverwrite) fail(path, "exists already; pass --overwrite to replace it");
}

bool staysBelow(const fs::path& folder, const fs::path& path) {
    std::error_code error;
    const fs::path real = fs::weakly_canonical(path, error);
    if (error) return false;
    const fs::path relative = real.lexically_relative(folder);
    return !relative.empty() && *relative.begin() != "..";
}

void checkStaysBelow(const fs::path& folder, const fs::path& path) {
    if (!staysBelow(folder, path)) fail(path, "leads out of " + folder.string() + " over a link");
}

WholeFile::Buffer::int_type WholeFile::Buffer::overflow(int_type byte) {
    errno = 0;
    const int_type result = std::filebuf::overflow(byte);
    if (traits_type::eq_int_type(result, traits_type::eof())) noteError();
    return result;
}

std::streamsize WholeFile::Buffer::xsputn(const char* bytes, std::streamsize count) {
    errno = 0;
    const std::streamsize written = std::filebuf::xsputn(bytes, count);
    if (written < count) noteError();
    return written;
}

void WholeFile::Buffer::noteError() {
    if (_firstError == 0) _firstError = errno != 0 ? errno : EIO;
}

fs::path WholeFile::temporaryPath(const fs::path& path, int pid) {
    // Cut, because a name as long as the file system takes would not leave room for what is added.
    const std::string name = path.filename().string().substr(0, longestNameKept);
    return path.parent_path() / ("." + name + ".part-" + std::to_string(pid));
}

WholeFile::WholeFile(const fs::path& path, bool mayOverwrite)
    : _path(path), _temporaryPath(temporaryPath(path, getpid())), _mayOverwrite(mayOverwrite) {
    checkOutputPath(path, mayOverwrite);

    std::error_code error;
    if (path.has_parent_path()) fs::create_directories(path.parent_path(), error);
    if (error) fail(path.parent_path(), "cannot make the folder: " + error.message());

    rememberUnfinishedFile(_temporaryPath);
    errno = 0;
    const bool isMade = makeAnew(_temporaryPath);
    if (!isMade || !_buffer.open(_temporaryPath, std::ios::out | std::ios::binary | std::ios::trunc)) {
        const int reason = errno;
        if (!isMade) unfinishedFile[0] = '\0';
        removeUnfinishedFile();
        fail(path, std::string("cannot be written: ") + std::strerror(reason));
    }
}

WholeFile::~WholeFile() {
    _buffer.close();
    removeUnfinishedFile();
}

std::uintmax_t WholeFile::commit() {
    errno = 0;
    const bool isClosed = _buffer.close() != nullptr;
    // Who copies one stream into another is not told by it of a write that failed in the middle.
    if (!_stream || !isClosed || _buffer.firstError() != 0) {
        const int reason = _buffer.firstError() != 0 ? _buffer.firstError() : errno;
        fail(_path, "not all of it could be written" + (reason != 0 ? std::string(": ") + std::strerror(reason) : ""));
    }

    std::error_code error;
    const std::uintmax_t bytes = fs::file_size(_temporaryPath, error);
    if (error) fail(_path, "cannot be written: " + error.message());

    if (_timeFrom) fs::last_write_time(_temporaryPath, fs::last_write_time(*_timeFrom, error), error);
    if (_outlastsPowerFailures && !bringToDisk(_temporaryPath))
        fail(_path, std::string("not all of it could be written: ") + std::strerror(errno));
    if (beforeRenaming) beforeRenaming(_temporaryPath);
    const bool renamed = _mayOverwrite ? std::rename(_temporaryPath.c_str(), _path.c_str()) == 0
                                       : renameWithoutOverwriting(_temporaryPath, _path);
    if (!renamed) fail(_path, std::string("cannot be written: ") + std::strerror(errno));
    unfinishedFile[0] = '\0';
    return bytes;
}

void removeUnfinishedFile() {
    if (unfinishedFile[0] != '\0') unlink(unfinishedFile);
    unfinishedFile[0] = '\0';
}

}  // namespace veltrane::sceneutils::tool
