#pragma once

#include "SceneCheck.h"

#include <osg/Node>
#include <osg/ref_ptr>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

struct OptimizationOptions {
    std::set<std::string> keptNames;
    double unspatializeRadius = 0.0;      ///< 0: no groups are dissolved
    std::optional<double> flattenWithin;  ///< none: transforms are only flattened by OptimizeBatches itself
};

/** How much is in a graph; each thing counts once. */
struct SceneCounts {
    std::uint64_t groups = 0;  ///< of all kinds but geodes
    std::uint64_t lods = 0;    ///< groups too
    std::uint64_t geodes = 0;
    std::uint64_t drawables = 0;
    std::uint64_t primitiveSets = 0;
    std::uint64_t vertices = 0;
    std::uint64_t triangles = 0;
    std::uint64_t stateSets = 0;
    std::uint64_t programs = 0;
    std::uint64_t bytes = 0;  ///< of arrays, indices and images

    bool operator==(const SceneCounts& other) const;
};

SceneCounts countIn(osg::Node& root);

struct StepTime {
    std::string step;
    double seconds = 0.0;
};

/** A name whose nodes are not all there any more. */
struct LostName {
    std::string name;
    std::uint64_t before = 0;  ///< in all places where they hang
    std::uint64_t after = 0;
};

/** What came of a run. */
struct Optimization {
    osg::ref_ptr<osg::Node> graph;
    SceneCounts before;
    SceneCounts after;
    unsigned int rounds = 0;
    std::vector<StepTime> steps;            ///< in their order, over all rounds
    std::vector<std::string> unknownNames;  ///< asked to be kept, but not there
    std::vector<LostName> lostNames;
    std::vector<SceneDifference> differences;
    std::vector<double> distances;  ///< of the eyes from the graph's centre
    std::uint64_t primitives = 0;   ///< that were compared
    double tolerance = 0.0;
    double largestDisplacement = 0.0;
};

/** Changes the graph in place, round after round until nothing changes any more. */
Optimization optimize(const osg::ref_ptr<osg::Node>& graph, const OptimizationOptions& options);

}  // namespace veltrane::sceneutils::tool
