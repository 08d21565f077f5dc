// Loaded in front of the C library (LD_PRELOAD): notes what a program does to the disk, and lets it fail.
//
//   SCENEUTILS_TEST_LOG    a file to which a line is appended for each "sync PATH" and "rename FROM|TO"
//   SCENEUTILS_TEST_FULL   writes to files with this in their names fail: the disk is full
//   SCENEUTILS_TEST_BROKEN bringing files with this in their names to the disk fails
//   SCENEUTILS_TEST_UNREADABLE  reading files with this in their names fails
//   SCENEUTILS_TEST_BADSECTOR   reading them as streams does, which the tool's own look at OpenFlight files is not
//   SCENEUTILS_TEST_KILL   who is about to give a file a name with this in it is killed
//   SCENEUTILS_TEST_ONCE   a folder that is made when a disk is full or somebody killed; once it is there, nobody is
//   SCENEUTILS_TEST_SLEEP  whoever converts and opens a file with this in its name waits for ever

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

template <typename Function>
Function original(Function, const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

std::string linkAt(const std::string& path) {
    char target[8192];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length < 0 ? std::string() : std::string(target, static_cast<std::size_t>(length));
}

std::string pathOf(int file) {
    return linkAt("/proc/self/fd/" + std::to_string(file));
}

bool isMeant(const char* variable, const std::string& path) {
    const char* part = std::getenv(variable);
    return part && path.find(part) != std::string::npos;
}

void note(const std::string& line) {
    const char* log = std::getenv("SCENEUTILS_TEST_LOG");
    if (!log) return;
    const int file = open(log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    static const auto writeReally = original(&write, "write");
    if (writeReally(file, (line + "\n").c_str(), line.size() + 1) < 0) std::abort();
    close(file);
}

/** Whether what may happen only once has not happened yet, which from now on it has. */
bool happensNow() {
    const char* mark = std::getenv("SCENEUTILS_TEST_ONCE");
    return !mark || mkdir(mark, 0777) == 0;
}

bool isFull(int file) {
    if (!std::getenv("SCENEUTILS_TEST_FULL") || !isMeant("SCENEUTILS_TEST_FULL", pathOf(file))) return false;
    if (!happensNow()) return false;
    errno = ENOSPC;
    return true;
}

bool isUnreadable(int file, const char* variable) {
    if (!std::getenv(variable) || !isMeant(variable, pathOf(file))) return false;
    errno = EIO;
    return true;
}

bool isBroken(int file) {
    const std::string path = pathOf(file);
    note("sync " + path);
    if (!isMeant("SCENEUTILS_TEST_BROKEN", path)) return false;
    errno = EIO;
    return true;
}

void noteRename(const char* from, const char* to) {
    note(std::string("rename ") + from + "|" + to);
    if (isMeant("SCENEUTILS_TEST_KILL", to) && happensNow()) raise(SIGKILL);
}

bool isAtWork() {
    const int file = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
    char words[4096] = "";
    const ssize_t length = read(file, words, sizeof words);
    close(file);
    return length > 0 && std::string(words, static_cast<std::size_t>(length)).find("convert-job") != std::string::npos;
}

void sleepIfMeant(const char* path) {
    if (isMeant("SCENEUTILS_TEST_SLEEP", path) && isAtWork()) pause();
}

}  // namespace

extern "C" {

ssize_t write(int file, const void* bytes, size_t count) {
    static const auto really = original(&write, "write");
    return isFull(file) ? -1 : really(file, bytes, count);
}

ssize_t writev(int file, const iovec* parts, int count) {
    static const auto really = original(&writev, "writev");
    return isFull(file) ? -1 : really(file, parts, count);
}

ssize_t pwrite(int file, const void* bytes, size_t count, off_t offset) {
    static const auto really = original(&pwrite, "pwrite");
    return isFull(file) ? -1 : really(file, bytes, count, offset);
}

ssize_t pread(int file, void* bytes, size_t count, off_t offset) {
    static const auto really = original(&pread, "pread");
    return isUnreadable(file, "SCENEUTILS_TEST_UNREADABLE") ? -1 : really(file, bytes, count, offset);
}

ssize_t read(int file, void* bytes, size_t count) {
    static const auto really = original(&read, "read");
    return isUnreadable(file, "SCENEUTILS_TEST_BADSECTOR") ? -1 : really(file, bytes, count);
}

int fsync(int file) {
    static const auto really = original(&fsync, "fsync");
    return isBroken(file) ? -1 : really(file);
}

int fdatasync(int file) {
    static const auto really = original(&fdatasync, "fdatasync");
    return isBroken(file) ? -1 : really(file);
}

int rename(const char* from, const char* to) noexcept {
    static const auto really = original(&rename, "rename");
    noteRename(from, to);
    return really(from, to);
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned int flags) noexcept {
    static const auto really = original(&renameat2, "renameat2");
    noteRename(from, to);
    return really(fromFolder, from, toFolder, to, flags);
}

FILE* fopen(const char* path, const char* mode) {
    static const auto really = original(&fopen, "fopen");
    sleepIfMeant(path);
    return really(path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
    static const auto really = original(&fopen64, "fopen64");
    sleepIfMeant(path);
    return really(path, mode);
}

}  // extern "C"
