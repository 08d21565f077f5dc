#include "Optimization.h"

#include "../info/GraphInfo.h"
#include "OptimizationGuard.h"
#include "StrippedPrograms.h"

#include <sceneutils/OptimizeBatches.h>

#include <osg/Geometry>
#include <osg/Group>

#include <algorithm>
#include <chrono>
#include <map>
#include <tuple>
#include <unordered_set>

namespace veltrane::sceneutils::tool {

namespace {

using Step = OptimizeBatches::Step;

constexpr unsigned int mostRounds = 10;

const char* nameOf(Step step) {
    switch (step) {
        case Step::FlattenUselessLODs:
            return "flatten useless LODs";
        case Step::RemoveNames:
            return "remove names";
        case Step::CopySharedSubgraphs:
            return "copy shared subgraphs";
        case Step::FlattenStaticTransforms:
            return "flatten static transforms";
        case Step::RemoveRedundantNodes:
            return "remove redundant nodes";
        case Step::UnspatializeSmallAreas:
            return "dissolve small groups";
        case Step::MergeGeodes:
            return "merge geodes";
        case Step::MergeGeometry:
            break;
    }
    return "merge geometries";
}

/** Sums up how long what has a name took. */
class Stopwatch {
public:
    void begin() { _begin = std::chrono::steady_clock::now(); }
    void end(const std::string& step) {
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - _begin).count();
        const auto known = std::find_if(times.begin(), times.end(), [&](const StepTime& t) { return t.step == step; });
        if (known != times.end()) {
            known->seconds += seconds;
        } else {
            times.push_back({step, seconds});
        }
    }

    std::vector<StepTime> times;

private:
    std::chrono::steady_clock::time_point _begin;
};

/** Times the steps, what the guard does about them included. */
class TimedGuard : public OptimizeBatches::StepListener {
public:
    TimedGuard(OptimizationGuard& guard, Stopwatch& watch) : _guard(guard), _watch(watch) {}

    void beginStep(Step step, osg::Node& root) override {
        _watch.begin();
        _guard.beginStep(step, root);
    }
    void endStep(Step step, osg::Node& root) override {
        _guard.endStep(step, root);
        _watch.end(nameOf(step));
    }

private:
    OptimizationGuard& _guard;
    Stopwatch& _watch;
};

/** How often nodes of a name hang in a graph. */
class NameCount {
public:
    NameCount(const osg::Node& root, const std::set<std::string>& names) : _names(names) { visit(root); }

    std::map<std::string, std::uint64_t> counts;

private:
    void visit(const osg::Node& node) {
        if (_names.count(node.getName()) != 0) ++counts[node.getName()];
        const osg::Group* group = node.asGroup();
        for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) visit(*group->getChild(i));
    }

    const std::set<std::string>& _names;
};

class NodeCount {
public:
    explicit NodeCount(const osg::Node& root) { visit(root); }

    std::uint64_t groups = 0;
    std::uint64_t primitiveSets = 0;

private:
    void visit(const osg::Node& node) {
        if (!_seen.insert(&node).second) return;
        const osg::Group* group = node.asGroup();
        if (group && !node.asGeode()) ++groups;
        if (const osg::Geometry* geometry = node.asGeometry()) primitiveSets += geometry->getNumPrimitiveSets();
        for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) visit(*group->getChild(i));
    }

    std::unordered_set<const osg::Node*> _seen;
};

/** The group above the graph is needed only if it holds more, or a drawable, which cannot be a file's root. */
osg::ref_ptr<osg::Node> withoutNeedlessRoot(osg::Group& root) {
    if (root.getNumChildren() != 1 || root.getChild(0)->asDrawable()) return &root;
    const osg::ref_ptr<osg::Node> only = root.getChild(0);
    root.removeChildren(0, 1);
    return only;
}

void tellNames(const std::map<std::string, std::uint64_t>& before, const std::map<std::string, std::uint64_t>& after,
               const std::set<std::string>& names, Optimization& result) {
    for (const std::string& name : names) {
        const auto had = before.find(name);
        const auto has = after.find(name);
        if (had == before.end()) {
            result.unknownNames.push_back(name);
        } else if (has == after.end() || has->second < had->second) {
            result.lostNames.push_back({name, had->second, has == after.end() ? 0 : has->second});
        }
    }
}

void runRounds(osg::Group& root, const OptimizationOptions& options, OptimizationGuard& guard, Stopwatch& watch,
               Optimization& result) {
    TimedGuard timed(guard, watch);
    OptimizeBatches batches;
    batches.preserveNames(options.keptNames);
    batches.setUnspatializeRadius(options.unspatializeRadius);
    batches.setStepListener(&timed);
    SceneCounts counts;
    do {
        counts = result.after;
        batches.process(&root);
        ++result.rounds;
        result.after = countIn(root);
    } while (!(result.after == counts) && result.rounds < mostRounds);
}

}  // namespace

bool SceneCounts::operator==(const SceneCounts& other) const {
    const auto all = [](const SceneCounts& c) {
        return std::tie(c.groups, c.lods, c.geodes, c.drawables, c.primitiveSets, c.vertices, c.triangles, c.stateSets,
                        c.programs, c.bytes);
    };
    return all(*this) == all(other);
}

SceneCounts countIn(osg::Node& root) {
    const GraphInfo info = inspect(root, {});
    const NodeCount nodes(root);
    SceneCounts counts;
    counts.groups = nodes.groups;
    counts.lods = info.lods.size();
    counts.geodes = info.geodes;
    counts.drawables = info.drawables;
    counts.primitiveSets = nodes.primitiveSets;
    counts.vertices = info.vertices;
    counts.triangles = info.triangles;
    counts.stateSets = info.stateSets;
    for (const auto& [name, count] : info.programs) counts.programs += count;
    counts.bytes = info.arrayBytes + info.indexBytes + info.imageBytes;
    return counts;
}

Optimization optimize(const osg::ref_ptr<osg::Node>& graph, const OptimizationOptions& options) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;  // the graph's own root takes part in everything
    root->addChild(graph);
    Optimization result;
    Stopwatch watch;
    result.before = countIn(*graph);
    const auto namesBefore = NameCount(*root, options.keptNames).counts;

    OptimizationGuard guard(options.keptNames, options.unspatializeRadius);
    OptimizationGuard::fixCentres(*root);
    const auto losesProgram = stateSetsThatLoseTheirProgram(*root, options.keptNames);
    watch.begin();
    SceneCheck check(*root, losesProgram);
    watch.end("remember the scene");

    if (options.flattenWithin) {
        watch.begin();
        guard.flattenWithin(*options.flattenWithin, *root);
        watch.end("flatten within");
    }
    runRounds(*root, options, guard, watch, result);

    watch.begin();
    result.differences = check.compareWith(*root);
    watch.end("compare the scene");
    tellNames(namesBefore, NameCount(*root, options.keptNames).counts, options.keptNames, result);
    result.graph = withoutNeedlessRoot(*root);
    result.after = countIn(*result.graph);
    result.steps = watch.times;
    for (const Eye& eye : check.eyes()) result.distances.push_back(eye.distance);
    result.primitives = check.primitives();
    result.tolerance = check.tolerance();
    result.largestDisplacement = check.largestDisplacement();
    return result;
}

}  // namespace veltrane::sceneutils::tool
