#include <sceneutils/OptimizeBatches.h>

#include <sceneutils/FlattenUselessLODs.h>

#include "HeldNode.h"
#include "MergeGuards.h"
#include "MyCopySharedSubgraphsVisitor.h"
#include "UnspatializeSmallAreas.h"

#include <osgUtil/Optimizer>

namespace veltrane::sceneutils {

namespace {

constexpr float nearestSeen = 0.0f;
constexpr float farthestSeen = 20000.0f;

void copySharedSubgraphs(osg::Node& node, osgUtil::Optimizer& optimizer) {
    MyCopySharedSubgraphsVisitor visitor(&optimizer);
    node.accept(visitor);
    visitor.copySharedNodes();
}

}  // namespace

OptimizeBatches::StepListener::~StepListener() = default;

OptimizeBatches::OptimizeBatches() = default;

OptimizeBatches::OptimizeBatches(const OptimizeBatches& other) = default;

OptimizeBatches& OptimizeBatches::operator=(const OptimizeBatches& other) = default;

OptimizeBatches::~OptimizeBatches() = default;

template <typename Work>
void OptimizeBatches::run(Step step, osg::Node& root, Work work) {
    if (_stepListener) _stepListener->beginStep(step, root);
    work();
    if (_stepListener) _stepListener->endStep(step, root);
}

void OptimizeBatches::process(osg::Node* node) {
    if (!node) return;
    const HeldNode held(node);

    osgUtil::Optimizer optimizer;
    run(Step::FlattenUselessLODs, *node, [&] { FlattenUselessLODs::process(node, nearestSeen, farthestSeen); });
    run(Step::RemoveNames, *node, [&] { node->accept(_nameRemover); });
    run(Step::CopySharedSubgraphs, *node, [&] { copySharedSubgraphs(*node, optimizer); });
    run(Step::FlattenStaticTransforms, *node, [&] {
        keepIncompleteBillboards(*node, optimizer);
        const RootTransformsKept kept(*node);
        const LODCentersFixed fixed(*node);
        optimizer.optimize(node, osgUtil::Optimizer::FLATTEN_STATIC_TRANSFORMS);
    });
    run(Step::RemoveRedundantNodes, *node, [&] {
        keepEffectiveNodes(*node, optimizer);
        optimizer.optimize(node, osgUtil::Optimizer::REMOVE_REDUNDANT_NODES);
    });
    if (_unspatializeRadius > 0.0) {
        run(Step::UnspatializeSmallAreas, *node, [&] { UnspatializeSmallAreas::process(node, _unspatializeRadius); });
    }
    run(Step::MergeGeodes, *node, [&] {
        const MixedGeodesApart apart(*node);
        optimizer.optimize(node, osgUtil::Optimizer::MERGE_GEODES);
    });
    run(Step::MergeGeometry, *node, [&] {
        keepChosenChildren(*node, optimizer);
        keepIncompleteGeometries(*node, optimizer);
        const UnlikeDrawablesApart apart(*node);
        optimizer.optimize(node, osgUtil::Optimizer::MERGE_GEOMETRY);
    });
}

void OptimizeBatches::preserveNames(const std::set<std::string>& names) {
    _nameRemover.preserveNames(names);
}

void OptimizeBatches::setMaxTransformMagnitudeToFlatten(double magnitude) {
    _maxTransformMagnitude = magnitude;
    _maxTransformMagnitude2 = magnitude * magnitude;
}

double OptimizeBatches::getMaxTransformMagnitudeToFlatten() const {
    return _maxTransformMagnitude;
}

void OptimizeBatches::setUnspatializeRadius(double radius) {
    _unspatializeRadius = radius;
}

double OptimizeBatches::getUnspatializeRadius() const {
    return _unspatializeRadius;
}

void OptimizeBatches::setStepListener(StepListener* listener) {
    _stepListener = listener;
}

OptimizeBatches::StepListener* OptimizeBatches::getStepListener() const {
    return _stepListener;
}

}  // namespace veltrane::sceneutils
