#include "JobRunner.h"

#include "../Command.h"
#include "../files/WholeFile.h"
#include "FileConversion.h"
#include "JobInputs.h"
#include "ObjectOrder.h"

#include <osgDB/FileNameUtils>
#include <osgDB/Registry>

#include <set>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* attributesEnding = ".attr";

// What a child sends: one of these, and what belongs to it.
constexpr char phaseMessage = 'p';   // its name, a line feed, and the output that is begun
constexpr char resultMessage = 'r';  // encodeResult()

std::set<std::string> extensionsIn(const StoredResult& result) {
    std::set<std::string> extensions;
    for (const Lookup& lookup : result.lookups)
        extensions.insert(osgDB::getLowerCaseFileExtension(lookup.found.string()));
    return extensions;
}

Lookup lookupOf(const fs::path& folder, const std::string& name, const fs::path& found) {
    Lookup lookup;
    lookup.folder = folder;
    lookup.name = name;
    lookup.found = found;
    if (found.empty()) return lookup;
    lookup.stamp = stampOf(found);
    lookup.attributes = stampOf(found.string() + attributesEnding);
    return lookup;
}

/** What a process was doing when it was last heard of. */
struct LastWords {
    std::string phase = phase::reading;
    std::string output;
    std::optional<StoredResult> result;

    void hear(const std::string& message) {
        if (message.front() == resultMessage) {
            result = decodeResult(message.substr(1));
            return;
        }
        const std::size_t end = message.find('\n');
        phase = message.substr(1, end - 1);
        output = message.substr(end + 1);
    }
};

FileResult failureOf(const ChildEnd& end, const LastWords& lastWords, const ChildLimits& limits) {
    FileResult result;
    result.problem = whyItEnded(end, lastWords.phase, limits);
    if (lastWords.output.empty()) return result;

    std::error_code ignored;
    fs::remove(WholeFile::temporaryPath(lastWords.output, end.pid), ignored);
    result.problem = lastWords.output + ": " + result.problem;
    result.isOutputProblem = true;
    return result;
}

}  // namespace

JobRunner::JobRunner(StateFolder state, const JobSettings& settings) : _state(std::move(state)), _settings(settings) {
    loadPlugIns({"flt", "ive"});
}

void JobRunner::run(const std::vector<JobId>& ids, const FailureListener& onFailure) {
    std::vector<Task> tasks;
    for (const JobId& id : ids) {
        try {
            if (auto task = taskOf(id)) tasks.push_back(std::move(*task));
        } catch (const std::exception& error) {
            onFailure(id, error.what());
        }
    }
    for (std::size_t next = 0; next < tasks.size();) next = convertInChild(tasks, next, onFailure);
}

/** Nothing if the job is up to date. */
std::optional<JobRunner::Task> JobRunner::taskOf(const JobId& id) const {
    auto job = _state.job(id);
    if (!job) {
        throw CommandError(ExitStatus::InputUnreadable,
                           (_state.path() / StateFolder::jobName(id)).string() + ": is no job");
    }
    auto before = _state.result(id);
    if (before && isUpToDate(_state, id, *job, *before)) {
        _state.writeSphere(id, before->sphere);
        return std::nullopt;
    }
    if (before) loadPlugIns(extensionsIn(*before));
    return Task{id, std::move(*job), std::move(before)};
}

/** Returns the first task that is left to do. */
std::size_t JobRunner::convertInChild(const std::vector<Task>& tasks, std::size_t first,
                                      const FailureListener& onFailure) {
    std::size_t next = first;
    LastWords lastWords;
    ChildLimits limits = _settings.limits;
    limits.piecesOfWork = static_cast<unsigned int>(tasks.size() - first);
    try {
        const ChildEnd end = runInChild(
            limits, [&](const MessageSender& parent) { convertInTurn(tasks, first, parent); },
            [&](const std::string& message) {
                lastWords.hear(message);
                if (!lastWords.result) return;
                store(tasks[next], *lastWords.result);
                lastWords = {};
                ++next;
            });
        if (next == tasks.size()) return next;
        StoredResult failed;
        failed.result = failureOf(end, lastWords, _settings.limits);
        if (next > first) return next;

        if (tasks[first].before) failed.own = tasks[first].before->own;
        store(tasks[first], std::move(failed));
    } catch (const std::exception& error) {  // no process can be had, or the state cannot be written
        onFailure(tasks[next].id, error.what());
    }
    return next + 1;
}

// In a process of its own.
void JobRunner::convertInTurn(const std::vector<Task>& tasks, std::size_t first, const MessageSender& parent) const {
    for (std::size_t i = first; i < tasks.size(); ++i) {
        if (i != first) parent.startAnew();
        const StoredResult result = convertOrSayWhy(tasks[i], parent);
        const bool hasFailed = !result.result.problem.empty();
        if (!hasFailed || i == first) parent.send(resultMessage + encodeResult(result));
        if (hasFailed) return;
        osgDB::Registry::instance()->clearObjectCache();  // what one file has made of an image is not another's
    }
}

StoredResult JobRunner::convertOrSayWhy(const Task& task, const MessageSender& parent) const {
    try {
        return convert(task, parent);
    } catch (const std::exception& error) {
        StoredResult failed;
        failed.result.problem = error.what();
        if (task.before) failed.own = task.before->own;
        return failed;
    }
}

void JobRunner::store(const Task& task, StoredResult result) const {
    // What an earlier run has written is still the tool's own.
    if (!result.result.problem.empty()) result.output = task.before ? task.before->output : std::nullopt;
    result.job = identityOf(task.job);
    result.spheres = spheresUsedBy(task.job, _state);
    _state.writeResult(task.id, result);
    _state.writeSphere(task.id, result.sphere);
    loadPlugIns(extensionsIn(result));
}

StoredResult JobRunner::convert(const Task& task, const MessageSender& parent) const {
    const JobId& id = task.id;
    const StoredJob& job = task.job;
    const std::optional<StoredResult>& before = task.before;
    orderObjectsByAge();
    StoredResult stored;
    std::set<std::string> looked;
    const auto noteLookup = [&](const fs::path& folder, const std::string& name, const fs::path& found) {
        if (looked.insert(folder.string() + "/" + name).second) stored.lookups.push_back(lookupOf(folder, name, found));
    };
    if (before) stored.own = before->own;
    // What an earlier run has written may be written again: an output by its own job, a texture by all.
    const auto isOwn = [&](const fs::path& path) {
        const auto stamp = stampOf(path);
        if (!stamp) return false;
        if (path == fs::path(job.conversion.output) && _state.isIntended(id, *stamp)) return true;
        if (path == fs::path(job.conversion.output)) return before && stamp == before->output;
        const auto holds = [&](const std::map<std::string, FileStamp>& textures) {
            const auto texture = textures.find(path.string());
            return texture != textures.end() && stamp == texture->second;
        };
        return (before && holds(before->own)) || holds(_state.placedTextures());
    };

    const osg::Node* graph = nullptr;
    FileConversionEvents events;
    events.onPhase = [&](const std::string& phase, const std::string& output) {
        parent.send(phaseMessage + phase + "\n" + output);
    };
    events.afterReading = [&](const osg::Node* read) { graph = read; };
    events.onAccess = [&](FileAccess& access) {
        access.onLookup = noteLookup;
        access.mayReplace = [&](const fs::path& path) { return _settings.mayOverwrite || isOwn(path); };
        access.beforeCommitting = [&](const fs::path& temporary) {
            stored.output = stampOf(temporary);
            if (!stored.output) return;
            std::vector<FileStamp> intended = {*stored.output};
            const fs::path output = job.conversion.output;
            if (isOwn(output)) intended.push_back(stampOf(output).value_or(*stored.output));
            try {
                _state.writeIntent(id, intended);
            } catch (const OutputError& error) {
                throw OutputError(output.string() + ": cannot be written: " + error.what());
            }
        };
        access.afterPlacing = [&](const fs::path& place) {
            const auto stamp = stampOf(place);
            if (stamp) stored.textures[place.string()] = stored.own[place.string()] = *stamp;
        };
    };
    const auto obtain = [&](std::size_t reference, osg::Referenced*) -> std::optional<osg::BoundingSphere> {
        const SphereSource& source = job.spheres[reference];
        if (source.kind == SphereSource::Kind::Job) return _state.sphere(source.job);
        if (source.kind == SphereSource::Kind::None) return std::nullopt;
        return source.path.empty() ? graph->getBound() : boundAsRead(source.path);
    };
    const osg::ref_ptr<osg::Referenced> palettes = readPalettes(_state, job.palettes, noteLookup);
    const FileOutcome outcome = convertFile(job.conversion, palettes, {}, obtain, events, _settings.isVerbose);
    stored.result = outcome.result;
    stored.sphere = outcome.sphere;
    return stored;
}

}  // namespace veltrane::sceneutils::tool
