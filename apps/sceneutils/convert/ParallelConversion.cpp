#include "ParallelConversion.h"

#include "../files/PlainText.h"
#include "../files/WholeFile.h"
#include "StateLock.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <set>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* stateFolderName = ".sceneutils";
constexpr const char* messagePrefixes[] = {"sceneutils: ", "ninja: error: ", "ninja: fatal: ", "srun: error: "};

bool isForTheUser(const std::string& line) {
    return std::any_of(std::begin(messagePrefixes), std::end(messagePrefixes),
                       [&](const std::string& prefix) { return line.compare(0, prefix.size(), prefix) == 0; });
}

// One that has ended, and whose parent has not noticed yet, does nothing any more.
bool isAlive(const std::string& pid) {
    std::ifstream file("/proc/" + pid + "/stat");
    const std::string stat{std::istreambuf_iterator<char>(file), {}};
    const std::size_t state = stat.rfind(')') + 2;
    return state < stat.size() && stat[state] != 'Z' && stat[state] != 'X';
}

/** The names of unfinished files, but for the process ids at their ends, by folder. */
std::map<fs::path, std::set<std::string>> unfinishedNames(const ConversionPlan& plan) {
    std::map<fs::path, std::set<std::string>> names;
    const auto add = [&](const fs::path& output) {
        const std::string name = WholeFile::temporaryPath(output, 0).filename().string();
        names[output.parent_path()].insert(name.substr(0, name.size() - 1));
    };
    for (const PlannedFile& file : plan.files) {
        if (!file.output.empty()) add(file.output);
    }
    for (const StoredPath& input : plan.inputs) add(mirroredPath(plan.inputFolder, plan.outputFolder, input));
    for (const auto& [source, place] : plan.displacedTextures) add(place);
    return names;
}

}  // namespace

fs::path stateFolderOf(const ConversionPlan& plan) {
    return stateFolderOf(plan.files.front().output);
}

fs::path stateFolderOf(const fs::path& output) {
    return output.parent_path() / stateFolderName / output.filename();
}

ParallelConversion::ParallelConversion(const ConversionPlan& plan, const ScheduleSettings& settings)
    : _plan(plan),
      _settings(settings),
      _state(stateFolderOf(plan)),
      _lastUse(StateLock::lastUseOf(_state.path())),
      _jobs(plan, _state) {}

std::size_t ParallelConversion::filesToDo() const {
    return static_cast<std::size_t>(
        std::count_if(_jobs.jobs().begin(), _jobs.jobs().end(),
                      [](const PlannedJob& planned) { return planned.mayFollow || !planned.reason.empty(); }));
}

void ParallelConversion::explain(std::ostream& out) const {
    std::size_t toDo = 0;
    std::size_t maybe = 0;
    std::size_t impossible = 0;
    for (std::size_t i = 0; i < _plan.files.size(); ++i) {
        const PlannedJob* planned = _jobs.jobOfFile(i);
        std::string reason = planned ? planned->reason : "cannot be converted: " + _plan.files[i].problem;
        if (!planned) {
            ++impossible;
        } else if (!reason.empty()) {
            ++toDo;
        } else if (planned->mayFollow) {
            ++maybe;
            reason = "only if the bounding sphere of a file that it refers to changes";
        }
        if (!reason.empty()) out << withoutControlCharacters(_plan.files[i].name + ": " + reason) << "\n";
    }
    out << plural(_plan.files.size(), "file", "files") << ", " << toDo << " to convert, " << maybe
        << " more if bounding spheres change, " << _plan.files.size() - toDo - maybe - impossible << " up to date, "
        << impossible << " that cannot be converted\n";
}

// What the state says may have changed until it was locked.
JobScheduler ParallelConversion::scheduled(const StateLock& lock) {
    if (lock.wasLeftInAHurry()) removeLeftovers();
    if (lock.lastUse() != _lastUse) _jobs = JobPlan(_plan, _state);
    _jobs.write(_state);
    JobScheduler scheduler(_jobs, _state, _settings);
    scheduler.write();
    return scheduler;
}

void ParallelConversion::prepare(const std::function<void()>& alsoWrite) {
    StateLock lock(_state.path());
    scheduled(lock);
    alsoWrite();
    lock.leaveInOrder();
}

ConversionReport ParallelConversion::run(const Listener& onResult) {
    const Clock::time_point start = Clock::now();
    StateLock lock(_state.path());
    const JobScheduler scheduler = scheduled(lock);

    std::map<std::size_t, FileResult> results;
    const auto finish = [&](const FileResult& result) {
        if (onResult) onResult(result);
        results[result.file] = result;
    };
    for (std::size_t i = 0; i < _plan.files.size(); ++i) {
        if (_plan.files[i].problem.empty()) continue;
        FileResult result;
        result.file = i;
        result.problem = _plan.files[i].problem;
        finish(result);
    }

    std::map<JobId, const PlannedJob*> planned;
    for (const PlannedJob& job : _jobs.jobs()) planned[job.id] = &job;
    const bool allEndedWell = scheduler.run(
        [&](const JobId& id) {
            const auto result = _state.result(id);
            const PlannedJob& job = *planned.at(id);
            if (result && result->job == identityOf(job.job)) finish(resultOf(job));
        },
        [&](const std::string& line) {
            if (_settings.job.isVerbose || isForTheUser(line)) std::cerr << withoutControlCharacters(line) << "\n";
        });

    ConversionReport report;
    for (const PlannedJob& job : _jobs.jobs()) {
        if (results.count(job.file) != 0) continue;
        FileResult result = resultOf(job);
        const bool isNews = !result.problem.empty();
        if (isNews) {
            finish(result);
        } else {
            results[job.file] = result;
        }
    }
    for (const auto& [file, result] : results) report.files.push_back(result);
    report.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (allEndedWell) {
        lock.leaveInOrder();
    } else {
        removeLeftovers();
    }
    return report;
}

FileResult ParallelConversion::resultOf(const PlannedJob& planned) const {
    FileResult result;
    const auto stored = _state.result(planned.id);
    if (stored && stored->job == identityOf(planned.job)) {
        result = stored->result;
    } else {
        result.problem = "was not converted: its process, or that of a file that it refers to, was ended";
    }
    result.file = planned.file;
    return result;
}

// Only what this conversion can have begun, and no process is at work on any more.
void ParallelConversion::removeLeftovers() const {
    for (const auto& [folder, names] : unfinishedNames(_plan)) {
        std::vector<fs::path> leftovers;
        std::error_code error;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
            const std::string name = entry.path().filename().string();
            const std::size_t pid = name.find_last_not_of("0123456789") + 1;
            if (names.count(name.substr(0, pid)) != 0 && !isAlive(name.substr(pid))) leftovers.push_back(entry.path());
        }
        for (const fs::path& leftover : leftovers) fs::remove(leftover, error);
    }
    std::error_code error;
    std::vector<fs::path> leftovers;
    for (const fs::directory_entry& entry : fs::directory_iterator(_state.path(), error)) {
        const std::string name = entry.path().filename().string();
        if (name.find(".part-") != std::string::npos) leftovers.push_back(entry.path());
    }
    for (const fs::path& leftover : leftovers) fs::remove(leftover, error);
}

}  // namespace veltrane::sceneutils::tool
