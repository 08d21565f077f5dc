#include "FreshProcess.h"

#include "Floor.h"

#include <osg/Notify>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::benchmarks {

namespace {

double toSeconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

double processorTimeOf(int who) {
    rusage usage{};
    getrusage(who, &usage);
    return toSeconds(usage.ru_utime) + toSeconds(usage.ru_stime);
}

/** Of this process and its children that have ended. */
double processorTimeOfAll() {
    return processorTimeOf(RUSAGE_SELF) + processorTimeOf(RUSAGE_CHILDREN);
}

/** Of the largest process. Not what wait4() tells: that counts what this process was before it became this program. */
double peakMebibytes() {
    constexpr double kibibytesPerMebibyte = 1024.0;
    rusage children{};
    getrusage(RUSAGE_CHILDREN, &children);
    double own = 0.0;
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmHWM:") status >> own;
    }
    return std::max(own, static_cast<double>(children.ru_maxrss)) / kibibytesPerMebibyte;
}

std::function<void()> prepare(Way way, const fs::path& master) {
    if (way == Way::Library) return [master] { convertWithLibrary(master); };
    if (way == Way::Tool) return [master] { convertWithTool(master); };
    return [master, floor = std::make_shared<Floor>()] { floor->convert(master); };
}

/** Holds back what the conversions tell of their progress. */
class SilentStandardError {
public:
    SilentStandardError() : _buffer(std::cerr.rdbuf(nullptr)) {}
    ~SilentStandardError() { std::cerr.rdbuf(_buffer); }
    SilentStandardError(const SilentStandardError&) = delete;
    SilentStandardError& operator=(const SilentStandardError&) = delete;

private:
    std::streambuf* _buffer;
};

Cost parseCost(const std::string& line) {
    Cost cost;
    std::istringstream in(line);
    in >> cost.seconds >> cost.processorSeconds >> cost.peakMebibytes;
    for (double& step : cost.steps) in >> step;
    return cost;
}

std::string readToTheEnd(int fileDescriptor) {
    std::string text;
    char buffer[1024];
    for (ssize_t got; (got = read(fileDescriptor, buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(got));
    }
    return text;
}

[[noreturn]] void becomeThisProgram(const std::vector<std::string>& arguments, int output) {
    std::vector<char*> argv;
    std::string name = "conversion_benchmark";
    argv.push_back(name.data());
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    dup2(output, STDOUT_FILENO);
    execv("/proc/self/exe", argv.data());
    _exit(127);
}

}  // namespace

double Cost::rest() const {
    return processorSeconds - std::accumulate(steps.begin(), steps.end(), 0.0);
}

void convertAndPrintCost(Way way, const fs::path& master) {
    using Clock = std::chrono::steady_clock;
    osg::setNotifyLevel(osg::ALWAYS);
    const SilentStandardError silence;
    const std::function<void()> convert = prepare(way, master);
    startStepClock();

    const double processorStart = processorTimeOfAll();
    const Clock::time_point start = Clock::now();
    convert();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const double processorSeconds = processorTimeOfAll() - processorStart;

    std::cout << seconds << " " << processorSeconds << " " << peakMebibytes();
    for (const double step : stepTimes()) std::cout << " " << step;
    std::cout << "\n";
}

Cost runInFreshProcess(const std::vector<std::string>& arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    const pid_t child = fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) becomeThisProgram(arguments, ends[1]);

    close(ends[1]);
    const Cost cost = parseCost(readToTheEnd(ends[0]));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) throw std::runtime_error("a process that was to be measured failed");
    return cost;
}

}  // namespace veltrane::sceneutils::benchmarks
