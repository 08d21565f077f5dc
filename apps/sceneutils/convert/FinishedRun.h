#pragma once

#include "../files/FileFinder.h"
#include "ConversionReport.h"
#include "JobPlan.h"

#include <map>
#include <optional>
#include <string>

namespace veltrane::sceneutils::tool {

/**
 * A run in jobs after which everything was up to date, and all that it has looked at. While that stays as it was, the
 * same run has nothing to do, which is found out without a look into any file of the database: a glance at the times of
 * twenty thousand files takes a fraction of a second, and to plan their conversion many.
 */
class FinishedRun {
public:
    FinishedRun(const ConversionPlan& plan, const ConversionReport& report);

    /** Adds what has come of a job of the plan; all must be added. */
    void add(const PlannedJob& planned, const StoredResult& result);

    /** Remembers the run, or does not if that cannot be written: it only saves time. */
    void write(const StateFolder& state) const;

    static void forget(const StateFolder& state);

    /** What the run counted, if this one was asked for the same and everything is as it was then. */
    static std::optional<ConversionTotals> unchanged(const ConversionOptions& options);

private:
    std::map<std::string, std::int64_t> folders() const;

    const ConversionPlan& _plan;
    ConversionTotals _totals;
    std::map<std::string, std::optional<FileStamp>> _files;
    FileFinder _finder;
    bool _isCertain = true;  ///< nothing was seen to change meanwhile
};

}  // namespace veltrane::sceneutils::tool
