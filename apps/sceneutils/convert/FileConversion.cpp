#include "FileConversion.h"

#include "ObjectOrder.h"

#include <sceneutils/CreatePagedLODVisitor.h>

#include <osg/Notify>
#include <osgDB/ReadFile>
#include <osgDB/Registry>

#include <chrono>
#include <csignal>
#include <cstring>
#include <iostream>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

using Clock = std::chrono::steady_clock;

/** The library's progress lines and OSG's notices are of use to somebody who looks for a fault; else they only bury
 * ours. */
void silenceLibraries() {
    std::cerr.rdbuf(nullptr);
    osg::setNotifyLevel(osg::ALWAYS);
}

// As the library reads.
osg::ref_ptr<osg::Node> readOnly() {
    const osg::ref_ptr<osgDB::Options> options = new osgDB::Options("keepExternalReferences=yes;preserveFace=yes");
    options->setObjectCacheHint(osgDB::Options::CACHE_NONE);
    return osgDB::readRefNodeFile(FileAccess::ownName, options.get());
}

osg::ref_ptr<osg::Node> convertByLibrary(const ConversionJob& job) {
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setConvertExRefsToIVE(job.convertsReferences);
    visitor.setMaxRange(job.maxRange);
    visitor.setDoSmooth(job.smooths);
    return visitor.convert(FileAccess::ownName, job.output.string());
}

std::string problemOf(const ConversionJob& job, const FileResult& result, const osg::Node* graph) {
    if (!graph && result.problem.empty()) return "cannot be read as OpenFlight";
    if (result.problem.empty() && !job.output.empty() && !result.written)
        return "could not be processed (out of memory?)";
    return result.problem;
}

}  // namespace

FileOutcome convertFile(const ConversionJob& job, osg::Referenced* palettes,
                        const std::map<std::string, std::string>& texturesPlaced, const FileAccess::Obtain& obtain,
                        const FileConversionEvents& events, bool isVerbose) {
    const Clock::time_point start = Clock::now();
    const auto enterPhase = [&](const char* name, const std::string& output = {}) {
        if (events.onPhase) events.onPhase(name, output);
    };
    orderObjectsByAge();
    if (!isVerbose) silenceLibraries();
    enterPhase(phase::reading);

    std::chrono::duration<double> spentOnReferences{0};
    const osg::ref_ptr<FileAccess> access =
        new FileAccess(job, palettes, texturesPlaced, [&](std::size_t reference, osg::Referenced* itsPalettes) {
            const Clock::time_point asked = Clock::now();
            auto sphere = obtain(reference, itsPalettes);
            spentOnReferences += Clock::now() - asked;
            return sphere;
        });
    access->afterReading = [&] {
        if (events.afterReading) events.afterReading(access->graph());
        enterPhase(phase::processing);
    };
    access->beforeWriting = [&](const fs::path& output) { enterPhase(phase::writing, output.string()); };
    if (events.onAccess) events.onAccess(*access);
    access->install();

    const osg::ref_ptr<osg::Node> graph = job.output.empty() ? readOnly() : convertByLibrary(job);
    FileAccess::uninstall();
    FileOutcome outcome;
    outcome.result = access->result();
    outcome.result.problem = problemOf(job, outcome.result, graph);
    if (outcome.result.problem.empty()) outcome.sphere = graph->getBound();
    outcome.result.seconds = std::chrono::duration<double>(Clock::now() - start - spentOnReferences).count();
    return outcome;
}

void loadPlugIns(const std::set<std::string>& extensions) {
    for (const std::string& extension : extensions) {
        osgDB::Registry::instance()->getReaderWriterForExtension(extension);
    }
}

std::string whyItEnded(const ChildEnd& end, const std::string& lastPhase, const ChildLimits& limits) {
    const std::string when = " while being " + lastPhase;
    if (end.tookTooLong) return "took more than " + std::to_string(limits.seconds) + " s" + when;
    if (end.neededMoreMemory && limits.memoryBytes == 0) return "ran out of memory" + when;
    if (end.neededMoreMemory) {
        return "needed more than " + std::to_string(limits.memoryBytes / bytesPerMiB) + " MiB of memory" + when;
    }
    if (end.signal == SIGXCPU) {
        return "took more than " + std::to_string(limits.processorSeconds) + " s of processor time" + when;
    }
    if (end.signal == 0) return "failed" + when;
    const std::string culprit = lastPhase == phase::reading ? "crashed OpenSceneGraph's reader" : "crashed";
    return culprit + when + " (" + strsignal(end.signal) + ")";
}

}  // namespace veltrane::sceneutils::tool
