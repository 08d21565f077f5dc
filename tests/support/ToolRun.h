#pragma once

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace testing_support {

/** How a program ended and what it wrote. */
struct ToolResult {
    std::string output;  ///< on standard output
    std::string errors;  ///< on standard error
    int status = -1;     ///< with which it ended by itself; -1: it did not
    int signal = 0;      ///< what ended it; 0: it ended by itself
    bool timedOut = false;
    bool leftProcesses = false;  ///< whether a process that it had started was still there when it ended

    std::vector<std::string> errorLines() const {
        std::vector<std::string> lines;
        std::istringstream stream(errors);
        for (std::string line; std::getline(stream, line);) lines.push_back(line);
        return lines;
    }
};

struct ToolSettings {
    std::filesystem::path workingDirectory;  ///< empty: the caller's
    std::optional<rlim_t> fileSizeLimit;     ///< in bytes; a longer write fails
    bool diesOfFileSize = false;             ///< whether the signal that comes with such a failure is heeded
    std::vector<std::pair<std::string, std::string>> environment;  ///< set in addition
    std::chrono::seconds timeout{120};
};

/** A program at work, in a process group of its own so that nothing that it starts escapes. */
class ToolProcess {
public:
    ToolProcess(const std::string& program, const std::vector<std::string>& arguments, const ToolSettings& settings)
        : _deadline(std::chrono::steady_clock::now() + settings.timeout) {
        int output[2];
        int errors[2];
        if (pipe2(output, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        _pid = fork();
        if (_pid < 0) throw std::runtime_error("no process");
        if (_pid == 0) {
            dup2(output[1], STDOUT_FILENO);
            dup2(errors[1], STDERR_FILENO);
            execute(program, arguments, settings);
        }
        setpgid(_pid, _pid);
        close(output[1]);
        close(errors[1]);
        _streams[0].fileDescriptor = output[0];
        _streams[1].fileDescriptor = errors[0];
    }
    ~ToolProcess() {
        kill(-_pid, SIGKILL);
        if (!_isReaped) waitpid(_pid, nullptr, 0);
        for (const Stream& stream : _streams) close(stream.fileDescriptor);
    }
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    int id() const { return _pid; }

    void send(int signal) const { kill(_pid, signal); }

    bool isRunning() const {
        siginfo_t info = {};
        return waitid(P_PID, static_cast<id_t>(_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
    }

    ToolResult wait() {
        ToolResult result;
        while (isRunning() && !result.timedOut) {
            drain(20);
            result.timedOut = std::chrono::steady_clock::now() > _deadline;
        }
        if (result.timedOut) kill(-_pid, SIGKILL);
        int status = 0;
        waitpid(_pid, &status, 0);
        _isReaped = true;
        result.leftProcesses = !result.timedOut && kill(-_pid, 0) == 0;
        if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
        if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
        while (drain(0)) {
        }
        result.output = _streams[0].text;
        result.errors = _streams[1].text;
        return result;
    }

private:
    struct Stream {
        int fileDescriptor = -1;
        std::string text;
        bool isOpen = true;
    };

    [[noreturn]] static void execute(const std::string& program, const std::vector<std::string>& arguments,
                                     const ToolSettings& settings) {
        setpgid(0, 0);
        if (!settings.workingDirectory.empty() && chdir(settings.workingDirectory.c_str()) != 0) _exit(127);
        if (settings.fileSizeLimit) {
            const rlimit limit = {*settings.fileSizeLimit, *settings.fileSizeLimit};
            setrlimit(RLIMIT_FSIZE, &limit);
            std::signal(SIGXFSZ, settings.diesOfFileSize ? SIG_DFL : SIG_IGN);
        }
        for (const auto& [name, value] : settings.environment) setenv(name.c_str(), value.c_str(), 1);
        std::vector<char*> argv = {const_cast<char*>(program.c_str())};
        for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }

    /** Takes what is there to read, waiting at most so many milliseconds for it; false if there was nothing. */
    bool drain(int milliseconds) {
        bool gotSome = false;
        pollfd polled[2];
        for (int i = 0; i < 2; ++i) polled[i] = {_streams[i].isOpen ? _streams[i].fileDescriptor : -1, POLLIN, 0};
        poll(polled, 2, milliseconds);
        for (int i = 0; i < 2; ++i) {
            if ((polled[i].revents & (POLLIN | POLLHUP)) == 0) continue;
            char buffer[4096];
            const ssize_t got = read(_streams[i].fileDescriptor, buffer, sizeof buffer);
            _streams[i].isOpen = got > 0;
            if (got > 0) _streams[i].text.append(buffer, static_cast<std::size_t>(got));
            gotSome = gotSome || got > 0;
        }
        return gotSome;
    }

    std::chrono::steady_clock::time_point _deadline;
    pid_t _pid = -1;
    bool _isReaped = false;
    Stream _streams[2];
};

}  // namespace testing_support
