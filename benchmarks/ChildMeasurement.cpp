#include "ChildMeasurement.h"

#include <cerrno>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

namespace veltrane::sceneutils::benchmarks {

namespace {

constexpr double bytesPerMebibyte = 1024.0 * 1024.0;
constexpr double kibibytesPerMebibyte = 1024.0;

[[noreturn]] void measureAndEnd(const std::function<std::vector<double>()>& measure, int output) {
    try {
        const std::vector<double> numbers = measure();
        const auto bytes = static_cast<ssize_t>(numbers.size() * sizeof(double));
        _exit(write(output, numbers.data(), static_cast<std::size_t>(bytes)) == bytes ? 0 : 1);
    } catch (const std::exception& error) {
        std::cerr << error.what() << std::endl;
        _exit(1);
    }
}

std::vector<double> readNumbers(int input) {
    std::vector<double> numbers;
    for (double number = 0.0; read(input, &number, sizeof number) == sizeof number;) numbers.push_back(number);
    return numbers;
}

double allocatedMebibytes() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd) / bytesPerMebibyte;
}

double statusMebibytes(const std::string& key) {
    std::ifstream status("/proc/self/status");
    double kibibytes = 0.0;
    for (std::string word; status >> word;) {
        if (word == key + ":") status >> kibibytes;
    }
    return kibibytes / kibibytesPerMebibyte;
}

void forgetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

}  // namespace

std::vector<double> measureInChild(const std::function<std::vector<double>()>& measure) {
    int ends[2];
    if (pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    const pid_t child = fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) measureAndEnd(measure, ends[1]);

    close(ends[1]);
    std::vector<double> numbers = readNumbers(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) throw std::runtime_error("a process that was to be measured failed");
    return numbers;
}

MemoryWatch::MemoryWatch() {
    malloc_trim(0);
    forgetPeak();
    _allocated = allocatedMebibytes();
    _resident = statusMebibytes("VmRSS");
}

double MemoryWatch::kept() const {
    return allocatedMebibytes() - _allocated;
}

double MemoryWatch::peak() const {
    return statusMebibytes("VmHWM") - _resident;
}

double MemoryWatch::resident() const {
    return statusMebibytes("VmRSS") - _resident;
}

}  // namespace veltrane::sceneutils::benchmarks
