#include "ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <system_error>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace veltrane::sceneutils::tool {

namespace {

using MessageSize = std::uint64_t;

// What a signal handler reads.
volatile pid_t runningChild = 0;

/** Holds back the signals that end the tool, so that they meet `runningChild` as it is. */
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
    sigset_t _own;
};

pid_t forkChild() {
    const EndingSignalsHeldBack heldBack;
    const pid_t child = fork();
    runningChild = child > 0 ? child : 0;
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
    runningChild = 0;
    return status;
}

bool writeAll(int fileDescriptor, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = write(fileDescriptor, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

bool readAll(int fileDescriptor, char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t got = read(fileDescriptor, data, size);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        data += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

// False at the end of the messages; a message that its sender could not finish is dropped.
bool receiveMessage(int fileDescriptor, std::string& message) {
    MessageSize size = 0;
    if (!readAll(fileDescriptor, reinterpret_cast<char*>(&size), sizeof size)) return false;
    message.resize(size);
    return readAll(fileDescriptor, message.data(), message.size());
}

void limitChild(pid_t parent, unsigned int seconds) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(1);

    const rlimit noCoreFile = {0, 0};
    setrlimit(RLIMIT_CORE, &noCoreFile);
    const rlimit processorTime = {seconds, seconds + 1};
    setrlimit(RLIMIT_CPU, &processorTime);
    std::signal(SIGPIPE, SIG_IGN);
}

[[noreturn]] void beChild(pid_t parent, unsigned int seconds, int pipeEnd,
                          const std::function<void(const MessageSender&)>& work) {
    limitChild(parent, seconds);
    int status = 0;
    try {
        work(MessageSender(pipeEnd));
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

void MessageSender::send(const std::string& message) const {
    const MessageSize size = message.size();
    std::string framed(sizeof size, '\0');
    std::memcpy(framed.data(), &size, sizeof size);
    framed += message;
    writeAll(_fileDescriptor, framed.data(), framed.size());
}

ChildEnd runInChild(unsigned int seconds, const std::function<void(const MessageSender&)>& work,
                    const std::function<void(const std::string&)>& receive) {
    int ends[2];
    if (pipe(ends) != 0) throwError("cannot make a pipe");

    // Whatever is buffered now would otherwise be written by both processes.
    std::cout.flush();
    std::fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t child = forkChild();
    if (child < 0) {
        close(ends[0]);
        close(ends[1]);
        throwError("cannot start a process");
    }
    if (child == 0) {
        close(ends[0]);
        beChild(parent, seconds, ends[1], work);
    }

    close(ends[1]);
    try {
        std::string message;
        while (receiveMessage(ends[0], message)) receive(message);
    } catch (...) {
        close(ends[0]);
        kill(child, SIGKILL);
        reap(child);
        throw;
    }
    close(ends[0]);

    const int status = reap(child);
    ChildEnd end;
    end.pid = child;
    if (WIFSIGNALED(status)) end.signal = WTERMSIG(status);
    if (WIFEXITED(status)) end.exitStatus = WEXITSTATUS(status);
    return end;
}

void endRunningChild() {
    const pid_t child = runningChild;
    if (child == 0) return;
    kill(child, SIGTERM);
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    runningChild = 0;
}

}  // namespace veltrane::sceneutils::tool
