#pragma once

#include "ChildProcess.h"
#include "JobFiles.h"

#include <string>

namespace veltrane::sceneutils::tool {

/** Begins the line that says why a job has left no result; its name follows, a blank, and the reason. */
constexpr const char* jobFailedPrefix = "sceneutils-job-failed ";

/** What a job may do. Nothing of it changes what comes out of a job that succeeds. */
struct JobSettings {
    ChildLimits limits{600};
    bool mayOverwrite = false;  ///< what the job has not written itself
    bool isVerbose = false;
};

/** Does jobs of a conversion, each in a process of its own, and leaves what has come of them in the state. */
class JobRunner {
public:
    JobRunner(StateFolder state, const JobSettings& settings);

    /**
     * Does one job, unless it is up to date. A file that fails is a result like any other.
     * @throws CommandError if there is no such job, OutputError if the result cannot be written
     */
    void run(const JobId& id);

private:
    StoredResult convertInChild(const JobId& id, const StoredJob& job, const std::optional<StoredResult>& before) const;
    StoredResult convert(const JobId& id, const StoredJob& job, const std::optional<StoredResult>& before,
                         const MessageSender& parent) const;

    StateFolder _state;
    JobSettings _settings;
};

}  // namespace veltrane::sceneutils::tool
