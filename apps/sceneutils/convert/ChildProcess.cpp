#include "ChildProcess.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <new>
#include <system_error>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace veltrane::sceneutils::tool {

namespace {

using MessageSize = std::uint64_t;

// What a signal handler reads; 0: a free place.
constexpr std::size_t mostChildrenNoted = 1024;
constexpr double secondsPerMicrosecond = 1e-6;
volatile pid_t runningChildren[mostChildrenNoted] = {};

void replaceRunningChild(pid_t noted, pid_t replacement) {
    for (volatile pid_t& child : runningChildren) {
        if (child != noted) continue;
        child = replacement;
        return;
    }
}

/** Holds back the signals that end the tool, so that they meet `runningChildren` as they are. */
class EndingSignalsHeldBack {
public:
    EndingSignalsHeldBack() {
        sigset_t ending;
        sigemptyset(&ending);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ending, signal);
        sigprocmask(SIG_BLOCK, &ending, &_own);
    }
    ~EndingSignalsHeldBack() { sigprocmask(SIG_SETMASK, &_own, nullptr); }
    EndingSignalsHeldBack(const EndingSignalsHeldBack&) = delete;
    EndingSignalsHeldBack& operator=(const EndingSignalsHeldBack&) = delete;

private:
    sigset_t _own = {};
};

pid_t forkChild() {
    const EndingSignalsHeldBack heldBack;
    const pid_t child = fork();
    if (child > 0) replaceRunningChild(0, child);
    if (child == 0) {
        for (volatile pid_t& sibling : runningChildren) sibling = 0;
    }
    return child;
}

// Returns the status that waitpid() gives.
int reap(pid_t child) {
    // The child may be waited for, but must not be signalled, once it is reaped: its number may then be another's.
    siginfo_t info;
    while (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
    }
    const EndingSignalsHeldBack heldBack;
    int status = 0;
    waitpid(child, &status, 0);
    replaceRunningChild(child, 0);
    return status;
}

bool writeAll(int fileDescriptor, const char* data, std::size_t size) {
    while (size > 0) {
        ssize_t written = send(fileDescriptor, data, size, MSG_NOSIGNAL);
        if (written < 0 && errno == ENOTSOCK) written = write(fileDescriptor, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

using Clock = std::chrono::steady_clock;

// No message has these sizes. The first is what a child says when its memory is used up, with nothing allocated.
constexpr MessageSize memoryIsUsedUp = std::numeric_limits<MessageSize>::max();
constexpr MessageSize startsAnew = memoryIsUsedUp - 1;

/** Thrown when a child is not worth waiting for any more. */
struct TimeIsOver {};
struct MemoryIsUsedUp {};

/** When to stop waiting for a child. */
class Deadline {
public:
    explicit Deadline(unsigned int seconds) : _seconds(seconds) { startAnew(); }

    void startAnew() { _time = Clock::now() + _seconds; }

    void waitForInput(int fileDescriptor) const {
        if (_seconds.count() == 0) return;
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(_time - Clock::now()).count();
            if (left < 0) throw TimeIsOver();
            pollfd waiting = {fileDescriptor, POLLIN, 0};
            if (poll(&waiting, 1, static_cast<int>(std::min<long long>(left + 1, longestWait))) > 0) return;
        }
    }

private:
    static constexpr long long longestWait = 60'000;

    std::chrono::seconds _seconds;
    Clock::time_point _time;
};

bool readAll(int fileDescriptor, char* data, std::size_t size, const Deadline& deadline) {
    while (size > 0) {
        deadline.waitForInput(fileDescriptor);
        const ssize_t got = read(fileDescriptor, data, size);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        data += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

// False at the end of the messages; a message that its sender could not finish is dropped.
bool receiveMessage(int fileDescriptor, std::string& message, Deadline& deadline) {
    MessageSize size = 0;
    do {
        if (!readAll(fileDescriptor, reinterpret_cast<char*>(&size), sizeof size, deadline)) return false;
        if (size == startsAnew) deadline.startAnew();
    } while (size == startsAnew);
    if (size == memoryIsUsedUp) throw MemoryIsUsedUp();
    message.resize(size);
    return readAll(fileDescriptor, message.data(), message.size(), deadline);
}

int childsPipeEnd = -1;

void tellThatMemoryIsUsedUp() {
    writeAll(childsPipeEnd, reinterpret_cast<const char*>(&memoryIsUsedUp), sizeof memoryIsUsedUp);
    _exit(1);
}

// There may be no more of it without a limit, too. Going on after that, OpenSceneGraph would leave something out.
void limitMemory(std::uint64_t bytes, int pipeEnd) {
    const rlimit data = {bytes, bytes};
    if (bytes != 0 && canLimitMemory()) setrlimit(RLIMIT_DATA, &data);
    childsPipeEnd = pipeEnd;
    std::set_new_handler(tellThatMemoryIsUsedUp);
}

// A child that ignores the signal is ended when it has used the time of all its pieces of work.
void limitProcessorTime(const ChildLimits& limits) {
    rlimit limit = {};
    limit.rlim_cur = limits.processorSeconds;
    limit.rlim_max = rlim_t{limits.processorSeconds} * limits.piecesOfWork + 1;
    setrlimit(RLIMIT_CPU, &limit);
}

// Beyond what the child has used already.
void allowMoreProcessorTime(unsigned int seconds) {
    rusage used = {};
    rlimit limit = {};
    getrusage(RUSAGE_SELF, &used);
    getrlimit(RLIMIT_CPU, &limit);
    const auto secondsOf = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * secondsPerMicrosecond;
    };
    const auto usedSeconds = static_cast<rlim_t>(std::ceil(secondsOf(used.ru_utime) + secondsOf(used.ru_stime)));
    limit.rlim_cur = std::min(limit.rlim_max, usedSeconds + seconds);
    setrlimit(RLIMIT_CPU, &limit);
}

[[noreturn]] void beChild(pid_t parent, const std::function<void()>& work) {
    dieWith(parent);
    const rlimit noCoreFile = {0, 0};
    setrlimit(RLIMIT_CORE, &noCoreFile);
    std::signal(SIGPIPE, SIG_IGN);
    std::set_new_handler([] { _exit(1); });
    int status = 0;
    try {
        work();
    } catch (...) {
        status = 1;
    }
    std::cout.flush();
    std::fflush(nullptr);
    // Not exit(): what the parent registered to happen at its end is the parent's.
    _exit(status);
}

[[noreturn]] void throwError(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

void dieWith(int parent) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(1);
}

void MessageSender::send(const std::string& message) const {
    const MessageSize size = message.size();
    std::string framed(sizeof size, '\0');
    std::memcpy(framed.data(), &size, sizeof size);
    framed += message;
    writeAll(_fileDescriptor, framed.data(), framed.size());
}

void MessageSender::startAnew() const {
    allowMoreProcessorTime(_processorSeconds);
    writeAll(_fileDescriptor, reinterpret_cast<const char*>(&startsAnew), sizeof startsAnew);
}

namespace {

/** A pipe from a child. */
class Pipe {
public:
    Pipe() {
        if (pipe(_ends) != 0) throwError("cannot make a pipe");
    }
    ~Pipe() {
        close(_ends[0]);
        closeWriting();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int reading() const { return _ends[0]; }
    int writing() const { return _ends[1]; }
    void closeReading() {
        close(_ends[0]);
        _ends[0] = -1;
    }
    void closeWriting() {
        if (_ends[1] >= 0) close(_ends[1]);
        _ends[1] = -1;
    }

private:
    int _ends[2] = {-1, -1};
};

ChildEnd endOf(pid_t child) {
    const int status = reap(child);
    ChildEnd end;
    end.pid = child;
    if (WIFSIGNALED(status)) end.signal = WTERMSIG(status);
    if (WIFEXITED(status)) end.exitStatus = WEXITSTATUS(status);
    return end;
}

pid_t forkOrThrow() {
    // Whatever is buffered now would otherwise be written by both processes.
    std::cout.flush();
    std::fflush(nullptr);
    const pid_t child = forkChild();
    if (child < 0) throwError("cannot start a process");
    return child;
}

[[noreturn]] void beProgram(pid_t parent, const std::vector<std::string>& arguments, int pipeEnd,
                            const char* pidVariable) {
    dieWith(parent);
    if (pidVariable) setenv(pidVariable, std::to_string(getpid()).c_str(), 1);
    dup2(pipeEnd, STDOUT_FILENO);
    dup2(pipeEnd, STDERR_FILENO);
    close(pipeEnd);
    std::vector<char*> words;
    for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    execvp(words.front(), words.data());
    _exit(127);
}

void readLines(int fileDescriptor, const std::function<void(const std::string&)>& onLine) {
    std::string rest;
    char buffer[4096];
    for (;;) {
        const ssize_t got = read(fileDescriptor, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        rest.append(buffer, static_cast<std::size_t>(got));
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = rest.find('\n', begin)) != std::string::npos; begin = end + 1)
            onLine(rest.substr(begin, end - begin));
        rest.erase(0, begin);
    }
    if (!rest.empty()) onLine(rest);
}

}  // namespace

ChildEnd runInChild(const ChildLimits& limits, const std::function<void(const MessageSender&)>& work,
                    const std::function<void(const std::string&)>& receive) {
    Pipe pipe;
    Deadline deadline(limits.seconds);
    const pid_t parent = getpid();
    const pid_t child = forkOrThrow();
    if (child == 0) {
        pipe.closeReading();
        beChild(parent, [&] {
            limitProcessorTime(limits);
            limitMemory(limits.memoryBytes, pipe.writing());
            work(MessageSender(pipe.writing(), limits.processorSeconds));
        });
    }

    pipe.closeWriting();
    bool tookTooLong = false;
    bool neededMoreMemory = false;
    try {
        std::string message;
        while (receiveMessage(pipe.reading(), message, deadline)) receive(message);
    } catch (const TimeIsOver&) {
        tookTooLong = true;
        kill(child, SIGKILL);
    } catch (const MemoryIsUsedUp&) {
        neededMoreMemory = true;
    } catch (...) {
        kill(child, SIGKILL);
        reap(child);
        throw;
    }
    ChildEnd end = endOf(child);
    end.tookTooLong = tookTooLong;
    end.neededMoreMemory = neededMoreMemory;
    return end;
}

ChildEnd runProgram(const std::vector<std::string>& arguments, const std::function<void(const std::string&)>& onLine,
                    const char* pidVariable) {
    Pipe pipe;
    const pid_t parent = getpid();
    const pid_t child = forkOrThrow();
    if (child == 0) {
        pipe.closeReading();
        beProgram(parent, arguments, pipe.writing(), pidVariable);
    }
    pipe.closeWriting();
    try {
        readLines(pipe.reading(), onLine);
    } catch (...) {
        kill(child, SIGTERM);
        reap(child);
        throw;
    }
    return endOf(child);
}

int startChild(const std::function<void()>& work) {
    const pid_t parent = getpid();
    const pid_t child = forkOrThrow();
    if (child == 0) beChild(parent, work);
    return child;
}

ChildEnd waitForChild(int pid) {
    return endOf(pid);
}

bool receiveMessage(int fileDescriptor, std::string& message) {
    Deadline none(0);
    return receiveMessage(fileDescriptor, message, none);
}

void endRunningChildren() {
    for (const volatile pid_t& child : runningChildren) {
        if (child != 0) kill(child, SIGTERM);
    }
    for (volatile pid_t& child : runningChildren) {
        if (child == 0) continue;
        while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
        }
        child = 0;
    }
}

}  // namespace veltrane::sceneutils::tool
