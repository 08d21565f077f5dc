#include "Command.h"

#include "convert/ChildProcess.h"
#include "convert/JobRunner.h"
#include "convert/StateLock.h"
#include "files/Interruption.h"
#include "files/PlainText.h"
#include "files/WholeFile.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdint>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

namespace veltrane::sceneutils::tool {

namespace {

struct JobArguments {
    std::string state;
    std::vector<JobId> jobs;
    JobSettings settings;
    std::uint64_t memory = 0;  // MiB
    int parent = 0;            // 0: whoever it is
};

ExitStatus runJobs(const JobArguments& arguments) {
    endCleanlyOnSignals();
    // Nobody would know of what is done after its parent's end.
    dieWith(arguments.parent > 0 ? arguments.parent : getppid());
    const JobLock lock(arguments.state);
    JobSettings settings = arguments.settings;
    settings.limits.memoryBytes = arguments.memory * bytesPerMiB;
    ExitStatus status = ExitStatus::Done;
    JobRunner(StateFolder(arguments.state), settings)
        .run(arguments.jobs, [&](const JobId& id, const std::string& reason) {
            std::cerr << jobFailedPrefix << id << " " << withoutControlCharacters(reason) << "\n";
            status = ExitStatus::OutputNotWritten;
        });
    return status;
}

}  // namespace

// Not for people: what `convert --jobs` has Ninja run.
void addConvertJobCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("convert-job", "Do jobs of a conversion");
    command->group("");
    const auto arguments = std::make_shared<JobArguments>();
    JobSettings& settings = arguments->settings;
    command->add_option("STATE", arguments->state, "The folder that holds the jobs")->required();
    command->add_option("JOBS", arguments->jobs, "Their names")->required();
    command->add_option("--time-limit", settings.limits.processorSeconds, "Processor time for each, in seconds");
    command->add_option("--job-timeout", settings.limits.seconds, "Time by the clock for each, in seconds");
    command->add_option("--job-memory", arguments->memory, "Memory for each, in MiB");
    command->add_option("--parent", arguments->parent, "The process that starts this one and must not end before it");
    command->add_flag("--overwrite", settings.mayOverwrite, "Replace outputs that are not the job's own");
    command->add_flag("--verbose", settings.isVerbose, "Show the messages of the library and of OpenSceneGraph");
    command->callback([arguments, &result] { result = runJobs(*arguments); });
}

}  // namespace veltrane::sceneutils::tool
