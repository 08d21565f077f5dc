#include "JobScheduler.h"

#include "../Command.h"
#include "../files/ShellText.h"
#include "ChildProcess.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <set>
#include <utility>

#include <unistd.h>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr int cannotBeStarted = 127;
constexpr const char* ninjaPrograms[] = {"ninja", "ninja-build"};
constexpr const char* buildFileName = "build.ninja";
constexpr const char* ninjasOwnFiles[] = {".ninja_log", ".ninja_deps"};
constexpr const char* ninjaVariable = "SCENEUTILS_NINJA";
constexpr const char* commandVariable = "SCENEUTILS_CONVERT_JOB";
constexpr const char* failedPrefix = "FAILED: ";
constexpr const char* donePrefix = "sceneutils-batch-done ";
constexpr std::size_t noBatch = std::numeric_limits<std::size_t>::max();
constexpr std::size_t mostJobsOfBatch = 32;
constexpr std::uintmax_t mostBytesOfBatch = 1 << 20;
// So that no process is left with much when the others have finished.
constexpr std::size_t batchesPerProcess = 4;

std::string findOnPath(const std::string& program) {
    const char* variable = std::getenv("PATH");
    std::string folders = variable ? variable : "/usr/bin:/bin";
    for (std::size_t begin = 0; begin <= folders.size();) {
        const std::size_t end = std::min(folders.find(':', begin), folders.size());
        const fs::path candidate = fs::path(folders.substr(begin, end - begin)) / program;
        if (candidate.is_absolute() && access(candidate.c_str(), X_OK) == 0) return candidate.string();
        begin = end + 1;
    }
    return {};
}

std::string ninja() {
    for (const char* program : ninjaPrograms) {
        const std::string found = findOnPath(program);
        if (!found.empty()) return found;
    }
    throw CommandError(ExitStatus::NotSupported,
                       "--jobs needs Ninja, which is not installed (Debian package ninja-build)");
}

std::string joined(const std::vector<JobId>& jobs, const std::string& ending) {
    std::string result;
    for (const JobId& job : jobs) result += " " + job + ending;
    return result;
}

/** The batch that one of Ninja's lines is about; a number that no batch has if it is another line. */
std::size_t batchDoneBy(const std::string& line) {
    const std::size_t begin = std::string(donePrefix).size();
    std::size_t batch = 0;
    if (line.compare(0, begin, donePrefix) != 0) return noBatch;
    const auto [end, error] = std::from_chars(line.data() + begin, line.data() + line.size(), batch);
    return error == std::errc() && end == line.data() + line.size() ? batch : noBatch;
}

/** Puts the jobs of one level together as long as they stay small. */
class Batching {
public:
    explicit Batching(std::size_t mostJobs) : _mostJobs(mostJobs) {}

    void add(const PlannedJob& planned) {
        const std::uintmax_t bytes = planned.job.input ? planned.job.input->size : 0;
        const bool isFull =
            !batches.empty() && (batches.back().size() >= _mostJobs || _bytes + bytes > mostBytesOfBatch);
        if (batches.empty() || isFull) {
            batches.emplace_back();
            _bytes = 0;
        }
        batches.back().push_back(planned.id);
        _bytes += bytes;
    }

    std::vector<JobScheduler::Batch> batches;

private:
    std::size_t _mostJobs;
    std::uintmax_t _bytes = 0;
};

std::vector<JobScheduler::Batch> batchesOf(const JobPlan& plan, unsigned int processes) {
    std::map<unsigned int, std::vector<const PlannedJob*>> levels;
    for (const PlannedJob& planned : plan.jobs()) levels[planned.level].push_back(&planned);

    std::vector<JobScheduler::Batch> batches;
    for (const auto& [level, jobs] : levels) {
        Batching batching(std::clamp<std::size_t>(jobs.size() / (processes * batchesPerProcess), 1, mostJobsOfBatch));
        for (const PlannedJob* planned : jobs) batching.add(*planned);
        batches.insert(batches.end(), batching.batches.begin(), batching.batches.end());
    }
    return batches;
}

}  // namespace

fs::path ownProgram() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (error) throw CommandError(ExitStatus::NotSupported, "the tool's own program file cannot be found");
    return program;
}

JobScheduler::JobScheduler(const JobPlan& plan, const StateFolder& state, const ScheduleSettings& settings)
    : _state(state), _settings(settings), _batches(batchesOf(plan, settings.jobs)), _buildFile(buildFile(plan)) {}

// The command is no part of the file: neither another number of jobs nor another launcher makes anything out of date.
std::string JobScheduler::buildFile(const JobPlan& plan) const {
    std::map<JobId, const PlannedJob*> planned;
    for (const PlannedJob& job : plan.jobs()) planned[job.id] = &job;

    std::string text = "ninja_required_version = 1.5\n\nrule convert\n  command = eval \"exec $$" +
                       std::string(commandVariable) + "\" $jobs\n  description = $batch\n" +
                       "  restat = 1\n  generator = 1\n\n";
    for (std::size_t i = 0; i < _batches.size(); ++i) {
        const Batch& batch = _batches[i];
        std::set<JobId> needed;
        for (const JobId& id : batch) {
            for (const SphereSource& source : planned.at(id)->job.spheres) {
                if (source.kind == SphereSource::Kind::Job) needed.insert(source.job);
            }
        }
        text += "build" + joined(batch, ".sphere") + ": convert" + joined(batch, ".job") + " |" +
                joined({needed.begin(), needed.end()}, ".sphere") + "\n  jobs =" + joined(batch, "") +
                "\n  batch = " + std::to_string(i) + "\n";
    }
    return text;
}

std::string JobScheduler::command() const {
    const JobSettings& job = _settings.job;
    std::string text = _settings.launcher.empty() ? "" : _settings.launcher + " ";
    text +=
        shellQuoted(ownProgram().string()) + " convert-job --time-limit " + std::to_string(job.limits.processorSeconds);
    if (job.limits.seconds > 0) text += " --job-timeout " + std::to_string(job.limits.seconds);
    if (job.limits.memoryBytes > 0) text += " --job-memory " + std::to_string(job.limits.memoryBytes / bytesPerMiB);
    if (job.mayOverwrite) text += " --overwrite";
    if (job.isVerbose) text += " --verbose";
    // A launcher's processes are its own affair, and may be on another machine.
    if (_settings.launcher.empty()) text += std::string(" --parent \"$") + ninjaVariable + "\"";
    return text + " -- " + shellQuoted(_state.path().string());
}

void JobScheduler::write() const {
    _state.writeIfDifferent(buildFileName, _buildFile);
}

// Ninja appends to them.
void JobScheduler::removeLinks() const {
    for (const char* name : ninjasOwnFiles) {
        std::error_code error;
        const fs::path path = _state.path() / name;
        if (fs::is_symlink(path, error)) fs::remove(path, error);
    }
}

bool JobScheduler::run(const std::function<void(const JobId&)>& onDone,
                       const std::function<void(const std::string&)>& onMessage) const {
    const std::string program = ninja();
    setenv(commandVariable, command().c_str(), 1);
    setenv("NINJA_STATUS", donePrefix, 1);
    removeLinks();
    std::size_t ended = noBatch;
    const auto announce = [&](std::size_t batch) {
        if (batch >= _batches.size()) return;
        for (const JobId& id : _batches[batch]) onDone(id);
    };
    const ChildEnd end = runProgram(
        {program, "-C", _state.path().string(), "-f", buildFileName, "-j", std::to_string(_settings.jobs), "-k", "0"},
        [&](const std::string& line) {
            // Ninja says that a batch is done, and in the next line that it has failed.
            const bool hasFailed = line.compare(0, std::strlen(failedPrefix), failedPrefix) == 0;
            if (!hasFailed) announce(ended);
            ended = batchDoneBy(line);
            if (ended == noBatch) onMessage(line);
        },
        ninjaVariable);
    announce(ended);
    if (end.signal != 0) {
        throw CommandError(ExitStatus::DonePartly, std::string("Ninja was ended (") + strsignal(end.signal) +
                                                       ") before all was done; the same command goes on");
    }
    if (end.exitStatus == cannotBeStarted)
        throw CommandError(ExitStatus::NotSupported, program + ": cannot be started");
    return end.exitStatus == 0;
}

}  // namespace veltrane::sceneutils::tool
