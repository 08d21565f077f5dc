#include "Progress.h"

#include "../files/PlainText.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

#include <unistd.h>

namespace veltrane::sceneutils::tool {

namespace {

constexpr std::chrono::seconds betweenPlainLines{10};

void tell(const std::string& problem) {
    std::cerr << "sceneutils: " << withoutControlCharacters(problem) << "\n";
}

}  // namespace

Progress::Progress(const ConversionPlan& plan, std::size_t total, Lines lines)
    : _plan(plan), _total(total), _lines(lines), _isTerminal(isatty(STDERR_FILENO) != 0) {}

void Progress::show(const FileResult& result) {
    ++_done;
    clearLine();
    const PlannedFile& file = _plan.files[result.file];
    if (!result.problem.empty()) {
        ++_failed;
        tell(failure(file, result));
    }
    for (const std::string& texture : result.texturesMissing) {
        if (!_missingTextures.insert(texture).second) continue;
        tell(file.name + ": texture " + texture + " is missing or unreadable");
    }
    showState(file);
}

std::string Progress::failure(const PlannedFile& file, const FileResult& result) const {
    // A problem with an output names the output.
    if (result.isOutputProblem) return result.problem;
    const std::string namedBy = file.namedBy == noFile ? "" : " (named by " + _plan.files[file.namedBy].name + ")";
    return file.name + namedBy + ": " + result.problem;
}

// "[12/100] 3.4 files/s, 26 s left, 1 failed"
std::string Progress::state() const {
    const std::size_t total = std::max(_total, _done);
    const double seconds = std::chrono::duration<double>(Clock::now() - _start).count();
    const double rate = seconds > 0.0 ? static_cast<double>(_done) / seconds : 0.0;
    char numbers[128];
    std::snprintf(numbers, sizeof numbers, "[%zu/%zu] %.1f files/s, %.0f s left, %zu failed", _done, total, rate,
                  rate > 0.0 ? static_cast<double>(total - _done) / rate : 0.0, _failed);
    return numbers;
}

void Progress::showState(const PlannedFile& file) {
    if (_isTerminal) {
        std::cerr << state() << ": " << withoutControlCharacters(file.name) << std::flush;
        return;
    }
    if (_lines == Lines::OnTerminal || Clock::now() - _lastLine < betweenPlainLines) return;
    _lastLine = Clock::now();
    std::cerr << state() << "\n";
}

void Progress::clearLine() const {
    if (_isTerminal) std::cerr << "\r\033[K";
}

}  // namespace veltrane::sceneutils::tool
