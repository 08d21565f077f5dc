#include "JobRunner.h"

#include "../Command.h"
#include "../files/WholeFile.h"
#include "FileConversion.h"
#include "JobInputs.h"
#include "ObjectOrder.h"

#include <osgDB/FileNameUtils>

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

void JobRunner::run(const JobId& id) {
    const auto job = _state.job(id);
    if (!job) {
        throw CommandError(ExitStatus::InputUnreadable,
                           (_state.path() / StateFolder::jobName(id)).string() + ": is no job");
    }
    const auto before = _state.result(id);
    if (before && isUpToDate(_state, id, *job, *before)) return _state.writeSphere(id, before->sphere);

    if (before) loadPlugIns(extensionsIn(*before));
    StoredResult result = convertInChild(id, *job, before);
    result.job = identityOf(*job);
    result.spheres = spheresUsedBy(*job, _state);
    _state.writeResult(id, result);
    _state.writeSphere(id, result.sphere);
    loadPlugIns(extensionsIn(result));
}

StoredResult JobRunner::convertInChild(const JobId& id, const StoredJob& job,
                                       const std::optional<StoredResult>& before) const {
    StoredResult failed;
    if (before) {
        // Still the tool's own, though of an earlier run.
        failed.output = before->output;
        failed.own = before->own;
    }
    LastWords lastWords;
    try {
        const ChildEnd end = runInChild(
            _settings.limits,
            [&](const MessageSender& parent) {
                parent.send(resultMessage + encodeResult(convert(id, job, before, parent)));
            },
            [&](const std::string& message) { lastWords.hear(message); });
        if (lastWords.result && lastWords.result->result.problem.empty()) return *lastWords.result;
        failed.result = lastWords.result ? lastWords.result->result : failureOf(end, lastWords, _settings.limits);
    } catch (const std::system_error& error) {
        failed.result.problem = error.what();
    }
    return failed;
}

// In a process of its own.
StoredResult JobRunner::convert(const JobId& id, const StoredJob& job, const std::optional<StoredResult>& before,
                                const MessageSender& parent) const {
    orderObjectsByAge();
    StoredResult stored;
    std::set<std::string> looked;
    const auto noteLookup = [&](const fs::path& folder, const std::string& name, const fs::path& found) {
        if (looked.insert(folder.string() + "/" + name).second) stored.lookups.push_back(lookupOf(folder, name, found));
    };
    if (before) stored.own = before->own;
    // What an earlier run of this job has written may be written again.
    const auto isOwn = [&](const fs::path& path) {
        const auto stamp = stampOf(path);
        if (!stamp) return false;
        if (path == fs::path(job.conversion.output) && _state.isIntended(id, *stamp)) return true;
        if (!before) return false;
        if (path == fs::path(job.conversion.output)) return stamp == before->output;
        const auto texture = before->own.find(path.string());
        return texture != before->own.end() && stamp == texture->second;
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
