// Loaded in front of the C library (LD_PRELOAD): counts the calls of one kind that the tool makes in all its processes,
// and lets one of them fail, or one and all after it.
//
//   SCENEUTILS_TEST_CALLS  which calls, how they fail, and since which one: "read once 17"
//     alloc   memory of any size; large: of 64 KiB or more. With no memory left.
//     map     memory that the tool takes from the system by itself
//     read, write, open, close, sync, rename, folder: of files and folders; fork, pipe
//     once    that one fails; ever: all since that one; short: all since that one do half of what they should (read,
//             write, on files and between processes)
//   SCENEUTILS_TEST_COUNT  a file of 8 bytes, in which the processes count together
//
// Counted from the begin of main(): what fails before that is the system's affair. Memory is left out in builds with
// sanitizers, whose runtimes allocate by themselves.

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

constexpr std::size_t largeSize = 64 << 10;
constexpr const char* tool = "sceneutils";

enum class Manner { Once, Ever, Short };

// Plain data, because they are looked at before anything is constructed.
bool isArmed = false;
char kind[16] = "";
Manner manner = Manner::Once;
std::uint64_t first = 0;
std::atomic<std::uint64_t>* counter = nullptr;

bool isKind(const char* name) {
    return isArmed && std::strcmp(kind, name) == 0;
}

/** Counts a call; whether it is one that has to fail, or to do half. */
bool isHit() {
    const std::uint64_t number = counter->fetch_add(1) + 1;
    return manner == Manner::Once ? number == first : number >= first;
}

bool fails(const char* name, int error) {
    if (!isKind(name) || manner == Manner::Short || !isHit()) return false;
    errno = error;
    return true;
}

std::size_t shortened(const char* name, std::size_t count) {
    if (!isKind(name) || manner != Manner::Short || count < 2 || !isHit()) return count;
    return count / 2;
}

bool isFile(int file) {
    struct stat status = {};
    const int before = errno;
    const bool isRegular = fstat(file, &status) == 0 && S_ISREG(status.st_mode);
    errno = before;
    return isRegular;
}

bool isOutOfMemory(std::size_t size) {
    return fails("alloc", ENOMEM) || (size >= largeSize && fails("large", ENOMEM));
}

// Attributes of textures, which OpenSceneGraph reads by itself: the tool has read them just before, and what has been
// read a moment ago does not come from the disk.
bool isReadFromMemory(int file) {
    char path[4096];
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
    const ssize_t length = readlink(link, path, sizeof path);
    constexpr char ending[] = ".attr";
    constexpr ssize_t endingLength = sizeof ending - 1;
    return length > endingLength && std::memcmp(path + length - endingLength, ending, endingLength) == 0;
}

bool failsToRead(int file) {
    return isKind("read") && manner != Manner::Short && isFile(file) &&
           !(manner == Manner::Once && isReadFromMemory(file)) && fails("read", EIO);
}

bool failsToWrite(int file) {
    return isKind("write") && manner != Manner::Short && isFile(file) && fails("write", ENOSPC);
}

template <typename Function>
Function original(Function, const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void arm() {
    const char* calls = std::getenv("SCENEUTILS_TEST_CALLS");
    const char* count = std::getenv("SCENEUTILS_TEST_COUNT");
    if (!calls || !count || std::strcmp(program_invocation_short_name, tool) != 0) return;
    char how[16] = "";
    unsigned long long number = 0;
    if (std::sscanf(calls, "%15s %15s %llu", kind, how, &number) != 3) std::abort();
    first = number;
    manner = std::strcmp(how, "short") == 0  ? Manner::Short
             : std::strcmp(how, "ever") == 0 ? Manner::Ever
                                             : Manner::Once;
    const int file = open(count, O_RDWR | O_CLOEXEC);
    void* shared = mmap(nullptr, sizeof *counter, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (shared == MAP_FAILED) std::abort();
    counter = static_cast<std::atomic<std::uint64_t>*>(shared);
    isArmed = true;
}

using Main = int (*)(int, char**, char**);
Main reallyMain = nullptr;

int armedMain(int count, char** words, char** environment) {
    arm();
    const int status = reallyMain(count, words, environment);
    isArmed = false;
    return status;
}

mode_t modeOf(int flags, va_list& more) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(more, mode_t) : 0;
}

}  // namespace

extern "C" {

int __libc_start_main(Main main, int count, char** words, void (*begin)(), void (*end)(), void (*loader)(),
                      void* stack) {
    reallyMain = main;
    using Start = int (*)(Main, int, char**, void (*)(), void (*)(), void (*)(), void*);
    const auto really = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "__libc_start_main"));
    return really(armedMain, count, words, begin, end, loader, stack);
}

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

void* malloc(size_t size) noexcept {
    return isOutOfMemory(size) ? nullptr : __libc_malloc(size);
}

void* calloc(size_t count, size_t size) noexcept {
    return isOutOfMemory(count * size) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size) noexcept {
    return isOutOfMemory(size) ? nullptr : __libc_realloc(memory, size);
}

void* aligned_alloc(size_t alignment, size_t size) noexcept {
    return isOutOfMemory(size) ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, size_t alignment, size_t size) noexcept {
    void* const got = isOutOfMemory(size) ? nullptr : __libc_memalign(alignment, size);
    if (!got) return ENOMEM;
    *memory = got;
    return 0;
}

ssize_t read(int file, void* bytes, size_t count) {
    static const auto really = original(&read, "read");
    return failsToRead(file) ? -1 : really(file, bytes, shortened("read", count));
}

ssize_t pread(int file, void* bytes, size_t count, off_t offset) {
    static const auto really = original(&pread, "pread");
    return failsToRead(file) ? -1 : really(file, bytes, shortened("read", count), offset);
}

ssize_t write(int file, const void* bytes, size_t count) {
    static const auto really = original(&write, "write");
    return failsToWrite(file) ? -1 : really(file, bytes, shortened("write", count));
}

ssize_t pwrite(int file, const void* bytes, size_t count, off_t offset) {
    static const auto really = original(&pwrite, "pwrite");
    return failsToWrite(file) ? -1 : really(file, bytes, shortened("write", count), offset);
}

ssize_t writev(int file, const iovec* parts, int count) {
    static const auto really = original(&writev, "writev");
    if (failsToWrite(file)) return -1;
    if (count == 0 || shortened("write", 2) == 2) return really(file, parts, count);
    return write(file, parts[0].iov_base, (parts[0].iov_len + 1) / 2);
}

ssize_t send(int file, const void* bytes, size_t count, int flags) {
    static const auto really = original(&send, "send");
    return really(file, bytes, shortened("write", count), flags);
}

int open(const char* path, int flags, ...) {
    static const auto really = reinterpret_cast<int (*)(const char*, int, mode_t)>(dlsym(RTLD_NEXT, "open"));
    va_list more;
    va_start(more, flags);
    const mode_t mode = modeOf(flags, more);
    va_end(more);
    return fails("open", EMFILE) ? -1 : really(path, flags, mode);
}

int openat(int folder, const char* path, int flags, ...) {
    static const auto really = reinterpret_cast<int (*)(int, const char*, int, mode_t)>(dlsym(RTLD_NEXT, "openat"));
    va_list more;
    va_start(more, flags);
    const mode_t mode = modeOf(flags, more);
    va_end(more);
    return fails("open", EMFILE) ? -1 : really(folder, path, flags, mode);
}

FILE* fopen(const char* path, const char* mode) {
    static const auto really = original(&fopen, "fopen");
    return fails("open", EMFILE) ? nullptr : really(path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
    static const auto really = original(&fopen64, "fopen64");
    return fails("open", EMFILE) ? nullptr : really(path, mode);
}

DIR* opendir(const char* path) {
    static const auto really = original(&opendir, "opendir");
    return fails("open", EMFILE) ? nullptr : really(path);
}

int close(int file) {
    static const auto really = original(&close, "close");
    const bool isToFail = isKind("close") && isFile(file) && isHit();
    const int result = really(file);
    if (!isToFail) return result;
    errno = EIO;
    return -1;
}

int fclose(FILE* file) {
    static const auto really = original(&fclose, "fclose");
    const bool isToFail = isKind("close") && isFile(fileno(file)) && isHit();
    const int result = really(file);
    if (!isToFail) return result;
    errno = EIO;
    return EOF;
}

int fsync(int file) {
    static const auto really = original(&fsync, "fsync");
    return fails("sync", EIO) ? -1 : really(file);
}

int fdatasync(int file) {
    static const auto really = original(&fdatasync, "fdatasync");
    return fails("sync", EIO) ? -1 : really(file);
}

int rename(const char* from, const char* to) noexcept {
    static const auto really = original(&rename, "rename");
    return fails("rename", EIO) ? -1 : really(from, to);
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned int flags) noexcept {
    static const auto really = original(&renameat2, "renameat2");
    return fails("rename", EIO) ? -1 : really(fromFolder, from, toFolder, to, flags);
}

int mkdir(const char* path, mode_t mode) noexcept {
    static const auto really = original(&mkdir, "mkdir");
    return fails("folder", ENOSPC) ? -1 : really(path, mode);
}

int mprotect(void* memory, size_t size, int protection) noexcept {
    static const auto really = original(&mprotect, "mprotect");
    return fails("map", ENOMEM) ? -1 : really(memory, size, protection);
}

pid_t fork() noexcept {
    static const auto really = original(&fork, "fork");
    return fails("fork", EAGAIN) ? -1 : really();
}

int pipe(int ends[2]) noexcept {
    static const auto really = original(&pipe, "pipe");
    return fails("pipe", EMFILE) ? -1 : really(ends);
}

}  // extern "C"
