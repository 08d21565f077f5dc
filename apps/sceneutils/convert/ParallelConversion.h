#pragma once

#include "ConversionReport.h"
#include "JobPlan.h"
#include "JobScheduler.h"

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>

namespace veltrane::sceneutils::tool {

class StateLock;

/** What a run would do with the files of a plan. */
struct Outlook {
    std::size_t upToDate = 0;
    std::size_t toDo = 0;
    std::size_t maybe = 0;  ///< up to date unless bounding spheres change
    std::size_t impossible = 0;
};

/** The one line for people. */
void writeOutlook(std::ostream& out, const Outlook& outlook);

/**
 * Carries out a plan in jobs that run side by side, each in a process of its own that knows nothing of the others, and
 * does only what was not done by an earlier run.
 */
class ParallelConversion {
public:
    using Listener = std::function<void(const FileResult&)>;

    /** @throws CommandError if an output may not be written */
    ParallelConversion(const ConversionPlan& plan, const ScheduleSettings& settings);

    /** How many files there are to do, as far as that can be told; those that were done before are not among them. */
    std::size_t filesToDo() const;

    /** Says what run() would do and why, a line for each file. */
    void explain(std::ostream& out) const;

    /** Puts the jobs into the state for a later run, and converts nothing. @param alsoWrite called meanwhile */
    void prepare(const std::function<void()>& alsoWrite);

    /**
     * @param onResult called for each file as soon as it is done or has failed
     * @return what is known of all files, those included that were done before
     */
    ConversionReport run(const Listener& onResult);

private:
    JobScheduler scheduled(const StateLock& lock);
    void removeLeftovers() const;
    void remember(const ConversionReport& report) const;
    void countTextures(std::map<std::size_t, FileResult>& results) const;
    bool noteResult(const PlannedJob& planned);
    /** Null: the job was to be done, and has not left a result. */
    const StoredResult* knownResult(const PlannedJob& planned) const;
    FileResult resultOf(const PlannedJob& planned) const;
    bool isUpToDate(const PlannedJob& planned) const;
    /** Whether that is what the line is about. */
    bool noteFailure(const std::string& line);

    const ConversionPlan& _plan;
    ScheduleSettings _settings;
    StateFolder _state;
    std::optional<FileStamp> _lastUse;  ///< of the state, before it was looked at
    JobPlan _jobs;
    std::map<JobId, StoredResult> _results;  ///< of jobs that this run has to do with
    std::map<JobId, std::string> _failures;  ///< of jobs that could not leave their result in the state
};

}  // namespace veltrane::sceneutils::tool
