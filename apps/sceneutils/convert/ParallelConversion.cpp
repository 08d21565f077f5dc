#include "ParallelConversion.h"

#include "../files/PlainText.h"
#include "../files/WholeFile.h"
#include "FinishedRun.h"
#include "StateLock.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* wasEnded = "was not converted: its process, or that of a file that it refers to, was ended";
constexpr const char* messagePrefixes[] = {"sceneutils: ", "ninja: error: ", "ninja: fatal: ", "srun: error: "};

bool isForTheUser(const std::string& line) {
    return std::any_of(std::begin(messagePrefixes), std::end(messagePrefixes),
                       [&](const std::string& prefix) { return line.compare(0, prefix.size(), prefix) == 0; });
}

/** What /proc says of a process behind its name: the state comes first. Empty if there is none. */
std::istringstream stateOfProcess(const std::string& pid) {
    std::ifstream file("/proc/" + pid + "/stat");
    std::string stat;
    std::getline(file, stat);  // empty if the process has ended meanwhile
    return std::istringstream(stat.substr(std::min(stat.rfind(')') + 1, stat.size())));
}

double secondsSinceBoot(long ticks) {
    return static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// One that has ended, and whose parent has not noticed yet, does nothing any more. One that is younger than the file
// has only got the number of the one that wrote it.
bool isAtWork(const std::string& pid, const fs::path& file) {
    constexpr int fieldsBeforeStart = 18;
    constexpr double tolerance = 1.0;
    std::istringstream stat = stateOfProcess(pid);
    std::string field;
    if (!(stat >> field) || field == "Z" || field == "X") return false;
    for (int i = 0; i < fieldsBeforeStart; ++i) stat >> field;
    long start = 0;
    struct stat status = {};
    if (!(stat >> start) || lstat(file.c_str(), &status) != 0) return true;

    timespec now = {};
    timespec sinceBoot = {};
    clock_gettime(CLOCK_REALTIME, &now);
    clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    const auto age = static_cast<double>(now.tv_sec - status.st_ctim.tv_sec);
    return secondsSinceBoot(start) <= static_cast<double>(sinceBoot.tv_sec) - age + tolerance;
}

FileResult disturbed(const std::string& problem) {
    FileResult result;
    result.problem = problem;
    result.wasDisturbed = true;
    return result;
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
    // Of all modes: the run that was interrupted may have had another one.
    TextureFolders folders = textureFoldersOf(plan);
    for (const TextureMode mode : {TextureMode::Relative, TextureMode::Copy}) {
        folders.mode = mode;
        for (const StoredPath& input : plan.inputs) add(usualPlace(folders, input));
    }
    for (const auto& [source, place] : plan.displacedTextures) add(place);
    return names;
}

}  // namespace

ParallelConversion::ParallelConversion(const ConversionPlan& plan, const ScheduleSettings& settings)
    : _plan(plan),
      _settings(settings),
      _state(stateFolderOf(plan.files.front().output)),
      _lastUse(StateLock::lastUseOf(_state.path())),
      _jobs(plan, _state) {}

std::size_t ParallelConversion::filesToDo() const {
    return static_cast<std::size_t>(
        std::count_if(_jobs.jobs().begin(), _jobs.jobs().end(),
                      [](const PlannedJob& planned) { return planned.mayFollow || !planned.reason.empty(); }));
}

void writeOutlook(std::ostream& out, const Outlook& outlook) {
    const std::size_t files = outlook.toDo + outlook.maybe + outlook.upToDate + outlook.impossible;
    out << plural(files, "file", "files") << ", " << outlook.toDo << " to convert, " << outlook.maybe
        << " more if bounding spheres change, " << outlook.upToDate << " up to date, " << outlook.impossible
        << " that cannot be converted\n";
}

void ParallelConversion::explain(std::ostream& out) const {
    Outlook outlook;
    for (std::size_t i = 0; i < _plan.files.size(); ++i) {
        const PlannedJob* planned = _jobs.jobOfFile(i);
        std::string reason = planned ? planned->reason : "cannot be converted: " + _plan.files[i].problem;
        if (!planned) {
            ++outlook.impossible;
        } else if (!reason.empty()) {
            ++outlook.toDo;
        } else if (planned->mayFollow) {
            ++outlook.maybe;
            reason = "only if the bounding sphere of a file that it refers to changes";
        } else {
            ++outlook.upToDate;
        }
        if (!reason.empty()) out << withoutControlCharacters(_plan.files[i].name + ": " + reason) << "\n";
    }
    writeOutlook(out, outlook);
}

// What the state says may have changed until it was locked.
JobScheduler ParallelConversion::scheduled(const StateLock& lock) {
    if (lock.wasLeftInAHurry()) removeLeftovers();
    if (lock.lastUse() != _lastUse) _jobs = JobPlan(_plan, _state);
    if (!_jobs.areUpToDate()) FinishedRun::forget(_state);
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
    const auto onDone = [&](const JobId& id) {
        const PlannedJob& job = *planned.at(id);
        if (noteResult(job)) finish(resultOf(job));
    };
    const auto onMessage = [&](const std::string& line) {
        if (noteFailure(line)) return;
        if (_settings.job.isVerbose || isForTheUser(line)) std::cerr << withoutControlCharacters(line) << "\n";
    };
    const bool allEndedWell = _jobs.areUpToDate() || scheduler.run(onDone, onMessage);

    ConversionReport report;
    for (const PlannedJob& job : _jobs.jobs()) {
        if (results.count(job.file) != 0) continue;
        if (!knownResult(job)) noteResult(job);
        FileResult result = resultOf(job);
        // What a run before has made of it does not count if it was to be done again.
        const bool isDone = allEndedWell || isUpToDate(job);
        if (result.problem.empty() && !isDone) {
            result = disturbed(wasEnded);
            result.file = job.file;
        }
        const bool isNews = !result.problem.empty();
        if (isNews) {
            finish(result);
        } else {
            results[job.file] = result;
        }
    }
    countTextures(results);
    for (const auto& [file, result] : results) report.files.push_back(result);
    report.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (allEndedWell) {
        if (report.filesFailed() == 0) remember(report);
        lock.leaveInOrder();
    } else {
        removeLeftovers();
    }
    return report;
}

/** Whether the job was done in this run: a batch has others, too. */
bool ParallelConversion::noteResult(const PlannedJob& planned) {
    auto result = _state.result(planned.id);
    if (!result || result->job != identityOf(planned.job)) return false;
    const bool isNew = !planned.reason.empty() || result->spheres != planned.result->spheres;
    _results[planned.id] = std::move(*result);
    return isNew;
}

const StoredResult* ParallelConversion::knownResult(const PlannedJob& planned) const {
    const auto known = _results.find(planned.id);
    if (known != _results.end()) return &known->second;
    return planned.reason.empty() ? &*planned.result : nullptr;
}

/** Each once, for the first file of the plan that uses it: which run or job has copied it is of no interest. */
void ParallelConversion::countTextures(std::map<std::size_t, FileResult>& results) const {
    std::set<std::string> counted;
    for (const PlannedJob& planned : _jobs.jobs()) {
        const StoredResult* known = knownResult(planned);
        if (!known) continue;
        std::uintmax_t& bytes = results.at(planned.file).textureBytesOut;
        bytes = 0;
        for (const auto& [place, stamp] : known->textures) bytes += counted.insert(place).second ? stamp.size : 0;
    }
}

void ParallelConversion::remember(const ConversionReport& report) const {
    FinishedRun run(_plan, report);
    for (const PlannedJob& planned : _jobs.jobs()) run.add(planned, *knownResult(planned));
    run.write(_state);
}

FileResult ParallelConversion::resultOf(const PlannedJob& planned) const {
    const StoredResult* known = knownResult(planned);
    FileResult result = known ? known->result : disturbed(wasEnded);
    const auto failure = _failures.find(planned.id);
    if (failure != _failures.end()) result = disturbed(failure->second);
    result.file = planned.file;
    return result;
}

bool ParallelConversion::isUpToDate(const PlannedJob& planned) const {
    const auto result = _state.result(planned.id);
    return result && tool::isUpToDate(_state, planned.id, planned.job, *result);
}

bool ParallelConversion::noteFailure(const std::string& line) {
    const std::size_t length = std::strlen(jobFailedPrefix);
    const std::size_t blank = line.find(' ', length);
    if (line.compare(0, length, jobFailedPrefix) != 0 || blank == std::string::npos) return false;
    _failures[line.substr(length, blank - length)] = line.substr(blank + 1);
    return true;
}

// Only what this conversion can have begun, and no process is at work on any more.
void ParallelConversion::removeLeftovers() const {
    for (const auto& [folder, names] : unfinishedNames(_plan)) {
        if (!staysBelow(_plan.outputFolder, folder)) continue;
        std::vector<fs::path> leftovers;
        std::error_code error;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
            const std::string name = entry.path().filename().string();
            const std::size_t pid = name.find_last_not_of("0123456789") + 1;
            if (names.count(name.substr(0, pid)) != 0 && !isAtWork(name.substr(pid), entry.path()))
                leftovers.push_back(entry.path());
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
