#include "StepClock.h"

#include <sceneutils/ShaderGenerator.h>

#include <osgDB/ReaderWriter>
#include <osgDB/Registry>
#include <osgUtil/Optimizer>

#include <ctime>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include <dlfcn.h>
#include <sys/mman.h>

namespace veltrane::sceneutils::benchmarks {

namespace {

// In memory that the processes share. Only one of them works at a time: a parent waits for its child.
StepTimes* sharedTimes = nullptr;

// When the first optimisation and the shaders ended, until the step after them is over.
std::optional<double> optimizationEnd;
std::optional<double> shadingEnd;

void add(Step step, double seconds) {
    if (sharedTimes) (*sharedTimes)[static_cast<std::size_t>(step)] += seconds;
}

void addSince(std::optional<double>& start, Step step) {
    if (start) add(step, processorTime() - *start);
    start.reset();
}

/** Passes everything on to the plug-in whose place it takes. */
class TimedPlugin : public osgDB::ReaderWriter {
public:
    explicit TimedPlugin(osgDB::ReaderWriter* plugin) : _plugin(plugin) {
        _supportedExtensions = plugin->supportedExtensions();
        _supportedOptions = plugin->supportedOptions();
    }

    const char* className() const override { return _plugin->className(); }
    bool acceptsExtension(const std::string& extension) const override { return _plugin->acceptsExtension(extension); }

    ReadResult readNode(const std::string& name, const osgDB::Options* options) const override {
        const ScopedStep timed(Step::Reading);
        return _plugin->readNode(name, options);
    }
    WriteResult writeNode(const osg::Node& node, const std::string& name,
                          const osgDB::Options* options) const override {
        const ScopedStep timed(Step::Writing);
        return _plugin->writeNode(node, name, options);
    }
    WriteResult writeNode(const osg::Node& node, std::ostream& out, const osgDB::Options* options) const override {
        const ScopedStep timed(Step::Writing);
        return _plugin->writeNode(node, out, options);
    }

private:
    // Kept by the plug-in's library, which is gone before this is.
    osgDB::ReaderWriter* _plugin;
};

void timePlugin(const std::string& extension) {
    osgDB::Registry* registry = osgDB::Registry::instance();
    osgDB::ReaderWriter* const plugin = registry->getReaderWriterForExtension(extension);
    if (!plugin) throw std::runtime_error("OpenSceneGraph has no plug-in for ." + extension + " files");
    registry->addReaderWriter(new TimedPlugin(plugin));
    registry->removeReaderWriter(plugin);
}

/** The function of that mangled name in the library that would have been called without this program's. */
template <typename Function>
Function* functionBehind(const char* symbol) {
    void* const function = dlsym(RTLD_NEXT, symbol);
    if (!function) throw std::runtime_error(std::string("no library has ") + symbol);
    return reinterpret_cast<Function*>(function);
}

}  // namespace

double processorTime() {
    // Conversions have one thread. The clock of the whole process would be coarse where processor time is limited, as
    // it is in the tool's children.
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

void startStepClock() {
    void* const memory = mmap(nullptr, sizeof(StepTimes), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    for (const char* extension : {"flt", "ive"}) timePlugin(extension);
    optimizationEnd.reset();
    shadingEnd.reset();
    sharedTimes = new (memory) StepTimes{};
}

StepTimes stepTimes() {
    return *sharedTimes;
}

ScopedStep::~ScopedStep() {
    add(_step, processorTime() - _start);
}

}  // namespace veltrane::sceneutils::benchmarks

using veltrane::sceneutils::benchmarks::addSince;
using veltrane::sceneutils::benchmarks::functionBehind;
using veltrane::sceneutils::benchmarks::optimizationEnd;
using veltrane::sceneutils::benchmarks::processorTime;
using veltrane::sceneutils::benchmarks::ScopedStep;
using veltrane::sceneutils::benchmarks::shadingEnd;
using veltrane::sceneutils::benchmarks::Step;

void osgUtil::Optimizer::optimize(osg::Node* node, unsigned int options) {
    using Optimize = void(Optimizer*, osg::Node*, unsigned int);
    static auto* const optimizeBehind = functionBehind<Optimize>("_ZN7osgUtil9Optimizer8optimizeEPN3osg4NodeEj");

    addSince(shadingEnd, Step::Filtering);
    {
        const ScopedStep timed(Step::Optimizing);
        optimizeBehind(this, node, options);
    }
    optimizationEnd = processorTime();
}

namespace veltrane::sceneutils {

void ShaderGenerator::process(osg::Node* node, bool shadow, bool lighting, bool normalMapping, bool fog) {
    using Process = void(ShaderGenerator*, osg::Node*, bool, bool, bool, bool);
    static auto* const processBehind =
        functionBehind<Process>("_ZN8veltrane10sceneutils15ShaderGenerator7processEPN3osg4NodeEbbbb");

    addSince(optimizationEnd, Step::Smoothing);
    {
        const ScopedStep timed(Step::Shading);
        processBehind(this, node, shadow, lighting, normalMapping, fog);
    }
    shadingEnd = processorTime();
}

}  // namespace veltrane::sceneutils
