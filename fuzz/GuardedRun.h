#pragma once

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace testing_support {

/** What became of a piece of work that ran in a process of its own. */
struct GuardedResult {
    std::string outcome;    ///< what the work returned; empty: it did not come to its end
    std::string culprit;    ///< of a crash or a hang: the module, like "libosg.so", in whose code it happened
    bool inReader = false;  ///< whether it happened in, or on behalf of, OSG's OpenFlight plug-in
    bool hung = false;
};

namespace guarded {

inline int reportTo = -1;

/** Modules that crash only because their callers let them. */
inline bool isNeutral(const std::string& module) {
    for (const char* name : {"libc.so", "libc-", "libstdc++", "libgcc", "ld-linux", "libasan", "libubsan", "libm.so",
                             "linux-vdso", "libpthread"}) {
        if (module.compare(0, std::strlen(name), name) == 0) return true;
    }
    return false;
}

inline std::string moduleOf(void* address) {
    Dl_info info = {};
    if (dladdr(address, &info) == 0 || !info.dli_fname) return "unknown";
    const std::string path = info.dli_fname;
    return path.substr(path.rfind('/') + 1);
}

/** Not fit for a signal handler in earnest; but here it is for a process that is lost anyway, and that is watched. */
[[noreturn]] inline void reportCrash(int signal) {
    std::signal(signal, SIG_DFL);
    void* frames[512];
    const int count = backtrace(frames, 512);
    std::string culprit;
    bool inReader = false;
    // The first frames are this function, and what the kernel put below it.
    for (int i = 2; i < count; ++i) {
        const std::string module = moduleOf(frames[i]);
        if (culprit.empty() && !isNeutral(module)) culprit = module;
        inReader = inReader || module.find("osgdb_openflight") != std::string::npos;
    }
    const std::string report =
        std::string(signal == SIGALRM ? "H" : "C") + (inReader ? "r" : "-") + (culprit.empty() ? "unknown" : culprit);
    if (write(reportTo, report.data(), report.size()) < 0) _exit(98);
    _exit(99);
}

inline void watchForCrashes() {
    static std::array<char, 1 << 16> otherStack;  // the usual one may have overflowed
    stack_t stack = {};
    stack.ss_sp = otherStack.data();
    stack.ss_size = otherStack.size();
    sigaltstack(&stack, nullptr);
    struct sigaction action = {};
    action.sa_handler = reportCrash;
    action.sa_flags = SA_ONSTACK | SA_NODEFER;
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGALRM}) sigaction(signal, &action, nullptr);
    void* loadsTheLibraryThatBacktraceNeeds[1];
    backtrace(loadsTheLibraryThatBacktraceNeeds, 1);
}

[[noreturn]] inline void work(const std::function<std::string()>& task, unsigned int seconds) {
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
#ifndef __SANITIZE_ADDRESS__
    const rlimit memory = {4ul << 30, 4ul << 30};
    setrlimit(RLIMIT_AS, &memory);
#endif
    const rlimit noCoreFile = {0, 0};
    setrlimit(RLIMIT_CORE, &noCoreFile);
    watchForCrashes();
    alarm(seconds);
    std::string report;
    try {
        report = "." + task();
    } catch (...) {
        report = ".threw";
    }
    alarm(0);
    if (write(reportTo, report.data(), report.size()) < 0) _exit(98);
    _exit(0);
}

}  // namespace guarded

/** Runs the task in a copy of this process, which is given so many seconds of time. */
inline GuardedResult runGuarded(const std::function<std::string()>& task, unsigned int seconds) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("no process");
    if (child == 0) {
        guarded::reportTo = ends[1];
        guarded::work(task, seconds);
    }
    close(ends[1]);

    pollfd polled = {ends[0], POLLIN, 0};
    const bool reported = poll(&polled, 1, static_cast<int>(1000 * (seconds + 5))) > 0;
    char text[512];
    const ssize_t size = reported ? read(ends[0], text, sizeof text) : 0;
    if (!reported) kill(child, SIGKILL);
    close(ends[0]);
    waitpid(child, nullptr, 0);

    GuardedResult result;
    const std::string report(text, size > 0 ? static_cast<std::size_t>(size) : 0);
    result.hung = !reported || report[0] == 'H';
    if (report.empty()) {
        result.culprit = "unknown";
    } else if (report[0] == '.') {
        result.outcome = report.substr(1);
    } else {
        result.inReader = report[1] == 'r';
        result.culprit = report.substr(2);
    }
    return result;
}

}  // namespace testing_support
