#include "DatabaseConversion.h"

#include "../files/WholeFile.h"
#include "FileAccess.h"

#include <sceneutils/CreatePagedLODVisitor.h>

#include <osg/Notify>
#include <osgDB/FileNameUtils>
#include <osgDB/ReadFile>
#include <osgDB/Registry>

#include <csignal>
#include <cstring>
#include <iostream>
#include <set>
#include <system_error>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

using Clock = std::chrono::steady_clock;

// What is being done to a file, for the message about a process that died of it.
constexpr const char* reading = "read";
constexpr const char* processing = "processed";
constexpr const char* writing = "written";

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

/** Loads OSG's plug-ins for the files that take part once for all processes, instead of once in each. */
void loadPlugIns(const ConversionPlan& plan) {
    std::set<std::string> extensions = {"ive"};
    for (const StoredPath& input : plan.inputs) extensions.insert(osgDB::getLowerCaseFileExtension(input.string()));
    for (const std::string& extension : extensions) {
        osgDB::Registry::instance()->getReaderWriterForExtension(extension);
    }
}

/** The library's progress lines and OSG's notices are of use to somebody who looks for a fault; else they only bury
 * ours. */
void silenceLibraries() {
    std::cerr.rdbuf(nullptr);
    osg::setNotifyLevel(osg::ALWAYS);
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
    loadPlugIns(_plan);
    convertInChild(0, nullptr);
    _report.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return std::move(_report);
}

std::optional<osg::BoundingSphere> DatabaseConversion::obtain(std::size_t file, osg::Referenced* palettes) {
    const FileState& state = _states[file];
    if (state.activeGraph) return state.activeGraph->getBound();
    if (!state.isFinished) {
        const Clock::time_point start = Clock::now();
        convertInChild(file, palettes);
        _spentOnReferences += Clock::now() - start;
    }
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
        result.problem = whyItEnded(file, end);
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

std::string DatabaseConversion::whyItEnded(std::size_t file, const ChildEnd& end) const {
    const std::string phase = "while being " + _states[file].phase;
    if (end.signal == SIGXCPU) {
        return "took more than " + std::to_string(_plan.options.secondsPerFile) + " s of processor time " + phase;
    }
    if (end.signal == 0) return "failed " + phase;
    const std::string culprit = _states[file].phase == reading ? "crashed OpenSceneGraph's reader" : "crashed";
    return culprit + " " + phase + " (" + strsignal(end.signal) + ")";
}

// In a process of its own.
void DatabaseConversion::convert(std::size_t file, osg::Referenced* palettes) {
    const Clock::time_point start = Clock::now();
    const PlannedFile& planned = _plan.files[file];
    const ConversionOptions& options = _plan.options;
    _spentOnReferences = {};
    if (!options.verbose) silenceLibraries();
    enterPhase(file, reading);

    osg::ref_ptr<FileAccess> access = new FileAccess(
        _plan, file, palettes, _texturesPlaced,
        [this](std::size_t reference, osg::Referenced* itsPalettes) { return obtain(reference, itsPalettes); });
    access->afterReading = [&] {
        _states[file].activeGraph = access->graph();
        enterPhase(file, processing);
    };
    access->beforeWriting = [&](const fs::path& output) { enterPhase(file, writing, output.string()); };
    access->onReaderOptions = [&](const osgDB::Options* readerOptions) { _readerOptions = readerOptions; };
    access->install();

    osg::ref_ptr<osg::Node> graph;
    if (planned.output.empty()) {
        graph = osgDB::readRefNodeFile(FileAccess::ownName, _readerOptions.get());
    } else {
        CreatePagedLODVisitor visitor(nullptr);
        visitor.setConvertExRefsToIVE(options.writesReferences());
        visitor.setMaxRange(planned.maxRange);
        visitor.setDoSmooth(options.smooth && (file == 0 || !options.recurse));
        graph = visitor.convert(FileAccess::ownName, planned.output.string());
    }

    FileResult result = access->result();
    if (!graph) {
        result.problem = "cannot be read as OpenFlight";
    } else if (result.problem.empty() && !planned.output.empty() && !result.written) {
        result.problem = "could not be processed (out of memory?)";
    }
    result.seconds = std::chrono::duration<double>(Clock::now() - start - _spentOnReferences).count();
    finish(result, result.problem.empty() ? std::optional(graph->getBound()) : std::nullopt);
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
