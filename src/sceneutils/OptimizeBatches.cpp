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

OptimizeBatches::OptimizeBatches() = default;

OptimizeBatches::OptimizeBatches(const OptimizeBatches& other) = default;

OptimizeBatches& OptimizeBatches::operator=(const OptimizeBatches& other) = default;

OptimizeBatches::~OptimizeBatches() = default;

void OptimizeBatches::process(osg::Node* node) {
    if (!node) return;
    const HeldNode held(node);

    FlattenUselessLODs::process(node, nearestSeen, farthestSeen);
    node->accept(_nameRemover);
    osgUtil::Optimizer optimizer;
    copySharedSubgraphs(*node, optimizer);
    keepIncompleteBillboards(*node, optimizer);
    {
        const RootTransformsKept kept(*node);
        const LODCentersFixed fixed(*node);
        optimizer.optimize(node, osgUtil::Optimizer::FLATTEN_STATIC_TRANSFORMS);
    }
    optimizer.optimize(node, osgUtil::Optimizer::REMOVE_REDUNDANT_NODES);
    if (_unspatializeRadius > 0.0) UnspatializeSmallAreas::process(node, _unspatializeRadius);
    {
        const MixedGeodesApart apart(*node);
        optimizer.optimize(node, osgUtil::Optimizer::MERGE_GEODES);
    }
    keepChosenChildren(*node, optimizer);
    optimizer.optimize(node, osgUtil::Optimizer::MERGE_GEOMETRY);
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

}  // namespace veltrane::sceneutils
