#pragma once

#include "ConversionReport.h"

#include <chrono>
#include <cstddef>
#include <set>
#include <string>

namespace veltrane::sceneutils::tool {

/** Tells on standard error what fails as soon as it does, and how far a conversion has come. */
class Progress {
public:
    enum class Lines {
        OnTerminal,  ///< one that is written again and again, and none elsewhere
        Always       ///< elsewhere plain ones, not too many
    };

    /** @param total how many files there are to do */
    Progress(const ConversionPlan& plan, std::size_t total, Lines lines);
    ~Progress() { clearLine(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(const FileResult& result);

private:
    using Clock = std::chrono::steady_clock;

    std::string failure(const PlannedFile& file, const FileResult& result) const;
    std::string state() const;
    void showState(const PlannedFile& file);
    void clearLine() const;

    const ConversionPlan& _plan;
    std::size_t _total;
    Lines _lines;
    bool _isTerminal;
    std::size_t _done = 0;
    std::size_t _failed = 0;
    Clock::time_point _start = Clock::now();
    Clock::time_point _lastLine = _start;
    std::set<std::string> _missingTextures;
};

}  // namespace veltrane::sceneutils::tool
