#include "DatabaseConversion.h"

#include "../files/WholeFile.h"
#include "FileConversion.h"

#include <osgDB/FileNameUtils>

#include <chrono>
#include <set>
#include <system_error>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

using Clock = std::chrono::steady_clock;

std::string encode(const nlohmann::json& message) {
    const std::vector<std::uint8_t> bytes = nlohmann::json::to_cbor(message);
    return {bytes.begin(), bytes.end()};
}

nlohmann::json encodeSphere(const std::optional<osg::BoundingSphere>& sphere) {
    if (!sphere) return nullptr;
    return {sphere->center().x(), sphere->center().y(), sphere->center().z(), sphere->radius()};
}

std::optional<osg::BoundingSphere> decodeSphere(const nlohmann::json& json) {
    if (json.is_null()) return std::nullopt;
    return osg::BoundingSphere(osg::Vec3(json[0], json[1], json[2]), json[3]);
}

std::set<std::string> extensionsOf(const ConversionPlan& plan) {
    std::set<std::string> extensions = {"ive"};
    for (const StoredPath& input : plan.inputs) extensions.insert(osgDB::getLowerCaseFileExtension(input.string()));
    return extensions;
}

}  // namespace

DatabaseConversion::DatabaseConversion(const ConversionPlan& plan, Listener onResult)
    : _plan(plan), _onResult(std::move(onResult)), _states(plan.files.size()) {}

ConversionReport DatabaseConversion::run() {
    const Clock::time_point start = Clock::now();
    for (std::size_t i = 0; i < _plan.files.size(); ++i) {
        if (_plan.files[i].problem.empty()) continue;
        FileResult result;
        result.file = i;
        result.problem = _plan.files[i].problem;
        finish(result, std::nullopt);
    }
    loadPlugIns(extensionsOf(_plan));
    convertInChild(0, nullptr);
    _report.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return std::move(_report);
}

std::optional<osg::BoundingSphere> DatabaseConversion::obtain(std::size_t file, osg::Referenced* palettes) {
    const FileState& state = _states[file];
    if (state.activeGraph) return state.activeGraph->getBound();
    if (!state.isFinished) convertInChild(file, palettes);
    return state.sphere;
}

void DatabaseConversion::convertInChild(std::size_t file, osg::Referenced* palettes) {
    FileResult result;
    result.file = file;
    try {
        const ChildEnd end = runInChild(
            _plan.options.secondsPerFile,
            [&](const MessageSender& parent) {
                _parent = &parent;
                convert(file, palettes);
            },
            [&](const std::string& message) { receive(message); });
        if (_states[file].isFinished) return;
        const std::string& lastPhase = _states[file].phase;
        result.problem = whyItEnded(end, lastPhase.empty() ? phase::reading : lastPhase, _plan.options.secondsPerFile);
        const std::string& output = _states[file].output;
        if (!output.empty()) {
            std::error_code ignored;
            fs::remove(WholeFile::temporaryPath(output, end.pid), ignored);
            result.problem = output + ": " + result.problem;
            result.isOutputProblem = true;
        }
    } catch (const std::system_error& error) {
        result.problem = error.what();
    }
    finish(result, std::nullopt);
}

// In a process of its own.
void DatabaseConversion::convert(std::size_t file, osg::Referenced* palettes) {
    FileConversionEvents events;
    events.onPhase = [&](const std::string& phase, const std::string& output) { enterPhase(file, phase, output); };
    events.afterReading = [&](const osg::Node* graph) { _states[file].activeGraph = graph; };
    const auto obtainReference = [&](std::size_t reference, osg::Referenced* itsPalettes) {
        return obtain(_plan.files[file].references[reference].target, itsPalettes);
    };
    FileOutcome outcome;
    try {
        outcome =
            convertFile(jobOf(_plan, file), palettes, _texturesPlaced, obtainReference, events, _plan.options.verbose);
    } catch (const std::exception& error) {
        outcome.result.problem = error.what();
    }
    outcome.result.file = file;
    finish(outcome.result, outcome.sphere);
}

void DatabaseConversion::finish(const FileResult& result, const std::optional<osg::BoundingSphere>& sphere) {
    FileState& state = _states[result.file];
    state.isFinished = true;
    state.sphere = sphere;
    _texturesPlaced.insert(result.texturesPlaced.begin(), result.texturesPlaced.end());

    if (_parent) {
        _parent->send(encode({{"result", result}, {"sphere", encodeSphere(sphere)}}));
        return;
    }
    _report.files.push_back(result);
    if (_onResult) _onResult(result);
}

void DatabaseConversion::enterPhase(std::size_t file, const std::string& phase, const std::string& output) {
    _states[file].phase = phase;
    _states[file].output = output;
    if (_parent) _parent->send(encode({{"file", file}, {"phase", phase}, {"output", output}}));
}

void DatabaseConversion::receive(const std::string& message) {
    const nlohmann::json json = nlohmann::json::from_cbor(message);
    if (json.contains("phase")) {
        enterPhase(json["file"], json["phase"], json["output"].get<std::string>());
    } else {
        finish(json["result"].get<FileResult>(), decodeSphere(json["sphere"]));
    }
}

}  // namespace veltrane::sceneutils::tool
