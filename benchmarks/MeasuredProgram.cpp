#include "MeasuredProgram.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::benchmarks {

namespace {

constexpr int cannotBeStarted = 127;
constexpr std::size_t mostBytesQuoted = 2000;
constexpr double kibibytesPerMebibyte = 1024.0;

double toSeconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

int openForOutput(const fs::path& output) {
    const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0) throw std::system_error(errno, std::generic_category(), output.string());
    return file;
}

[[noreturn]] void become(Command command, int output) {
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    for (std::string& variable : command.environment) putenv(variable.data());

    std::vector<char*> argv;
    for (std::string& word : command.words) argv.push_back(word.data());
    argv.push_back(nullptr);
    execv(argv.front(), argv.data());
    _exit(cannotBeStarted);
}

std::runtime_error failureOf(const Command& command, int status, const fs::path& output) {
    std::string text;
    for (const std::string& word : command.words) text += word + " ";
    text += WIFEXITED(status) ? "ended with status " + std::to_string(WEXITSTATUS(status))
                              : "was ended by signal " + std::to_string(WTERMSIG(status));
    const std::string printed = contentOf(output);
    if (printed.empty()) return std::runtime_error(text);
    return std::runtime_error(text + ":\n" +
                              printed.substr(printed.size() - std::min(printed.size(), mostBytesQuoted)));
}

}  // namespace

ProgramCost measureProgram(const Command& command, const fs::path& output) {
    using Clock = std::chrono::steady_clock;
    const int file = openForOutput(output);
    syncfs(file);

    const Clock::time_point start = Clock::now();
    const pid_t child = fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) become(command, file);
    int status = 0;
    rusage usage{};
    while (wait4(child, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    const std::chrono::duration<double> seconds = Clock::now() - start;
    close(file);
    if (status != 0) throw failureOf(command, status, output);

    ProgramCost cost;
    cost.seconds = seconds.count();
    cost.processorSeconds = toSeconds(usage.ru_utime) + toSeconds(usage.ru_stime);
    cost.peakMebibytes = static_cast<double>(usage.ru_maxrss) / kibibytesPerMebibyte;
    return cost;
}

std::string contentOf(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace veltrane::sceneutils::benchmarks
