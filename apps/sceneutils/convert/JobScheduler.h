#pragma once

#include "JobPlan.h"
#include "JobRunner.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

constexpr unsigned int mostJobs = 1024;  ///< at a time

/** The file of the program that runs. @throws CommandError with NotSupported if it cannot be found */
std::filesystem::path ownProgram();

/** How the jobs of a conversion are run. */
struct ScheduleSettings {
    unsigned int jobs = 1;  ///< at a time
    std::string launcher;   ///< what the shell puts in front of every job's command; may be empty
    JobSettings job;
};

/**
 * Has Ninja run the jobs of a plan: those whose files in the state are newer than their spheres, and those that refer
 * to one whose sphere has become another one. No name of a user's file gets into what Ninja or the shell reads.
 */
class JobScheduler {
public:
    /** Jobs that are run by one process, one after the other: to start a process takes as long as a small file. */
    using Batch = std::vector<JobId>;

    JobScheduler(const JobPlan& plan, const StateFolder& state, const ScheduleSettings& settings);

    /** Puts what Ninja is to do into the state. @throws OutputError */
    void write() const;

    /**
     * What write() has put there.
     *
     * @param onDone called for each job whose process has ended well, whatever came of its file
     * @param onMessage called for each line that a job or Ninja wrote
     * @return whether the processes of all jobs ended well
     * @throws CommandError with NotSupported if Ninja is not there, with DonePartly if it is ended, OutputError
     */
    bool run(const std::function<void(const JobId&)>& onDone,
             const std::function<void(const std::string&)>& onMessage) const;

    const std::vector<Batch>& batches() const { return _batches; }

private:
    std::string buildFile(const JobPlan& plan) const;
    std::string command() const;
    void removeLinks() const;

    StateFolder _state;
    ScheduleSettings _settings;
    std::vector<Batch> _batches;
    std::string _buildFile;
};

}  // namespace veltrane::sceneutils::tool
