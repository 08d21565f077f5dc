#pragma once

#include "ChildProcess.h"
#include "JobFiles.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** Begins the line that says why a job has left no result; its name follows, a blank, and the reason. */
constexpr const char* jobFailedPrefix = "sceneutils-job-failed ";

/** What a job may do. Nothing of it changes what comes out of a job that succeeds. */
struct JobSettings {
    ChildLimits limits{600};
    bool mayOverwrite = false;  ///< what the job has not written itself
    bool isVerbose = false;
};

/**
 * Does jobs of a conversion and leaves what has come of them in the state. Each has the limits to itself, and one that
 * crashes or runs away costs only itself.
 */
class JobRunner {
public:
    using FailureListener = std::function<void(const JobId& id, const std::string& reason)>;

    JobRunner(StateFolder state, const JobSettings& settings);

    /**
     * Does jobs that do not need each other, unless they are up to date. A file that fails is a result like any other.
     *
     * One process converts them in turn, because to make a process takes as long as to convert a small file. What it
     * leaves undone, because it crashes, meets a limit or only says that a file failed, is taken up by another
     * process: that a file failed counts only from a process that had no other before it.
     *
     * @param onFailure called for each job that has left no result, because it is not there or the state cannot be
     *        written
     */
    void run(const std::vector<JobId>& ids, const FailureListener& onFailure);

private:
    /** A job that is to be done. */
    struct Task {
        JobId id;
        StoredJob job;
        std::optional<StoredResult> before;
    };

    std::optional<Task> taskOf(const JobId& id) const;
    std::size_t convertInChild(const std::vector<Task>& tasks, std::size_t first, const FailureListener& onFailure);
    void convertInTurn(const std::vector<Task>& tasks, std::size_t first, const MessageSender& parent) const;
    StoredResult convertOrSayWhy(const Task& task, const MessageSender& parent) const;
    StoredResult convert(const Task& task, const MessageSender& parent) const;
    void store(const Task& task, StoredResult result) const;

    StateFolder _state;
    JobSettings _settings;
};

}  // namespace veltrane::sceneutils::tool
