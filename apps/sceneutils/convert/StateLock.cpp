#include "StateLock.h"

#include "../Command.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* lockName = "lock";
constexpr const char* jobLockName = "jobs-at-work";
// The processes of a run that was killed need a moment to notice.
constexpr int attempts = 20;
constexpr std::chrono::milliseconds pause{100};

[[noreturn]] void fail(const fs::path& path, const std::string& reason) {
    throw CommandError(ExitStatus::OutputNotWritten, path.string() + ": " + reason);
}

bool lock(int file) {
    return flock(file, LOCK_EX | LOCK_NB) == 0;
}

bool waitForLock(int file) {
    for (int i = 0; i < attempts; ++i) {
        std::this_thread::sleep_for(pause);
        if (lock(file)) return true;
        if (errno != EWOULDBLOCK && errno != EINTR) return false;
    }
    return false;
}

constexpr mode_t byTheMask = 0666;

bool areJobsAtWork(const fs::path& folder) {
    const int file = open((folder / jobLockName).c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, byTheMask);
    if (file < 0) return false;
    const bool areNone = lock(file) || waitForLock(file);
    const bool areSome = !areNone && errno == EWOULDBLOCK;
    close(file);
    return areSome;
}

}  // namespace

JobLock::JobLock(const fs::path& folder)
    : _file(open((folder / jobLockName).c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC)) {
    if (_file >= 0) flock(_file, LOCK_SH);
}

JobLock::~JobLock() {
    if (_file >= 0) close(_file);
}

std::optional<FileStamp> StateLock::lastUseOf(const fs::path& folder) {
    return stampOf(folder / lockName);
}

StateLock::StateLock(const fs::path& folder) : _lastUse(lastUseOf(folder)) {
    std::error_code error;
    for (const fs::path& part : {folder.parent_path(), folder}) {
        if (fs::is_symlink(part, error)) fail(part, "is a link; remove it, nothing is written where it leads");
    }
    fs::create_directories(folder, error);
    if (error) fail(folder, "cannot make the folder: " + error.message());

    // Not closed on exec: who inherits the file inherits the lock.
    _file = open((folder / lockName).c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, byTheMask);
    if (_file < 0) fail(folder / lockName, std::string("cannot be written: ") + std::strerror(errno));
    if (!lock(_file)) {
        if (!waitForLock(_file)) {
            const std::string reason =
                errno == EWOULDBLOCK ? "another run is converting into it" : std::strerror(errno);
            close(_file);
            fail(folder, reason);
        }
        _lastUse = lastUseOf(folder);
    }
    if (areJobsAtWork(folder)) {
        close(_file);
        fail(folder, "jobs of an earlier run are still at work in it");
    }
    char mark = 0;
    _wasLeftInAHurry = pread(_file, &mark, 1, 0) == 1;
    // On the disk before anything else is: a power failure is one of the ends that leave unfinished files.
    if (pwrite(_file, "!", 1, 0) != 1 || (fdatasync(_file) != 0 && errno != EINVAL && errno != ENOSYS)) {
        const std::string reason = std::strerror(errno);
        close(_file);
        fail(folder / lockName, "cannot be written: " + reason);
    }
}

StateLock::~StateLock() {
    close(_file);
}

void StateLock::leaveInOrder() {
    if (ftruncate(_file, 0) != 0) return;  // the next run looks for unfinished files in vain
}

}  // namespace veltrane::sceneutils::tool
