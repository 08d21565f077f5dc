#include "OptimizationGuard.h"

#include "LodRanges.h"
#include "NodeTraits.h"
#include "TransformsThatStay.h"

#include <sceneutils/MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/LOD>
#include <osg/UserDataContainer>

#include <typeinfo>
#include <unordered_set>

namespace veltrane::sceneutils::tool {

namespace {

using Step = OptimizeBatches::Step;

/** Calls a function for each node, once, hidden ones too; before their children. */
template <typename Function>
class EachNode {
public:
    EachNode(osg::Node& root, Function function) : _function(function) { visit(root); }

private:
    void visit(osg::Node& node) {
        if (!_seen.insert(&node).second) return;
        _function(node);
        osg::Group* group = node.asGroup();
        for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) visit(*group->getChild(i));
    }

    Function _function;
    std::unordered_set<const osg::Node*> _seen;
};

/** Marks a transform that is not static for a while. Copies of the node have it too, since user data is not copied. */
class StaysMark : public osg::DefaultUserDataContainer {
public:
    explicit StaysMark(osg::UserDataContainer* before) : own(before) {}

    osg::ref_ptr<osg::UserDataContainer> own;
};

bool isPlainGroup(const osg::Node& node) {
    return typeid(node) == typeid(osg::Group);
}

/** Whether UnspatializeSmallAreas dissolves it. */
bool willBeDissolved(const osg::Group& group, double radius) {
    if (!isPlainGroup(group) || group.getNumParents() != 1) return false;
    const osg::Group& parent = *group.getParent(0);
    return (parent.asTransform() || isPlainGroup(parent)) && radius > static_cast<double>(group.getBound().radius());
}

bool hasInstances(const osg::Geometry& geometry) {
    for (unsigned int i = 0; i < geometry.getNumPrimitiveSets(); ++i)
        if (geometry.getPrimitiveSet(i)->getNumInstances() > 0) return true;
    return false;
}

bool isMoreThanArrays(const osg::Geometry& geometry) {
    return typeid(geometry) != typeid(osg::Geometry) || hasMoreThanChildren(geometry) || geometry.getDrawCallback() ||
           geometry.getComputeBoundingBoxCallback() || geometry.getInitialBound().valid() || hasInstances(geometry);
}

}  // namespace

OptimizationGuard::OptimizationGuard(const std::set<std::string>& keptNames, double radius)
    : _keptNames(keptNames), _radius(radius) {}

void OptimizationGuard::beginStep(Step step, osg::Node& root) {
    switch (step) {
        case Step::FlattenUselessLODs:
            return keepLods(root);
        case Step::FlattenStaticTransforms:
            return keepTransforms(root);
        case Step::RemoveRedundantNodes:
            return keepNodes(root);
        case Step::UnspatializeSmallAreas:
            return keepGroups(root);
        case Step::MergeGeodes:
            return keepGeodes(root);
        case Step::MergeGeometry:
            return keepGeometries(root);
        case Step::RemoveNames:
        case Step::CopySharedSubgraphs:
            return;
    }
}

void OptimizationGuard::endStep(Step, osg::Node&) {
    for (const auto& undo : _undo) undo();
    _undo.clear();
}

/** A second child keeps an LOD from being taken for useless. One that goes leaves its state to a group above it. */
void OptimizationGuard::keepLods(osg::Node& root) {
    const SingleLods lods = singleLodsIn(root, [this](const osg::LOD& lod) { return isKept(lod); });
    for (osg::LOD* lod : lods.withEffect) {
        lod->addChild(new osg::Group);
        _undo.emplace_back([held = osg::ref_ptr<osg::LOD>(lod)] { held->removeChildren(1, 1); });
    }
    for (osg::LOD* lod : lods.withoutEffect) {
        if (!lod->getStateSet() || lod == &root) continue;
        const osg::ref_ptr<osg::LOD> held = lod;
        const osg::ref_ptr<osg::Group> above = new osg::Group;
        above->setStateSet(lod->getStateSet());
        lod->setStateSet(nullptr);
        for (osg::Group* parent : osg::Node::ParentList(lod->getParents())) parent->replaceChild(lod, above);
        above->addChild(lod);
    }
}

void OptimizationGuard::keepTransforms(osg::Node& root) {
    FlatteningRules rules;
    rules.keeps = hasMoreThanChildren;
    for (osg::Transform* transform : transformsThatStay(root, rules))
        setForThisStep(*transform, osg::Object::UNSPECIFIED);
}

/** A callback keeps a node from being removed, even if it is empty. */
void OptimizationGuard::keepNodes(osg::Node& root) {
    EachNode(root, [this](osg::Node& node) {
        const bool turnsOrLimits = node.asTransform() && !isPlainTransform(node);
        if ((!hasMoreThanChildren(node) && !turnsOrLimits) || node.getCullCallback()) return;
        node.setCullCallback(new osg::NodeCallback);
        _undo.emplace_back([held = osg::ref_ptr<osg::Node>(&node)] { held->setCullCallback(nullptr); });
    });
}

/** A second parent keeps groups from being dissolved and LODs from being merged. */
void OptimizationGuard::keepGroups(osg::Node& root) {
    _secondParent = new osg::Group;
    StateMove stateMove;
    const auto keep = [this](osg::Node& node) { _secondParent->addChild(&node); };
    // NOLINTNEXTLINE(bugprone-unused-raii): its work is done when it is made
    EachNode(root, [&](osg::Node& node) {
        osg::Group* group = node.asGroup();
        if (typeid(node) == typeid(osg::LOD) && node.getNumParents() == 1) keep(node);
        if (!group || group == &root || !willBeDissolved(*group, _radius)) return;
        if (hasMoreThanChildren(*group) || !StateMove::isPossible(*group)) return keep(*group);
        stateMove.moveToChildren(*group);
    });
    _undo.emplace_back([this] {
        _secondParent->removeChildren(0, _secondParent->getNumChildren());
        _secondParent = nullptr;
    });
}

/** Geodes of other state sets are not merged. */
void OptimizationGuard::keepGeodes(osg::Node& root) {
    EachNode(root, [this](osg::Node& node) {
        if (!node.asGeode()) return;
        const bool isPlain =
            node.getName().empty() && !node.getUserDataContainer() && !hasCallbacks(node) && node.getCullingActive();
        if (isPlain) return;
        const osg::ref_ptr<osg::StateSet> own = node.getStateSet();
        node.setStateSet(new osg::StateSet);
        _undo.emplace_back([held = osg::ref_ptr<osg::Node>(&node), own] { held->setStateSet(own); });
    });
}

/** What is dynamic is not merged. */
void OptimizationGuard::keepGeometries(osg::Node& root) {
    EachNode(root, [this](osg::Node& node) {
        const osg::Geometry* geometry = node.asGeometry();
        if (geometry && isMoreThanArrays(*geometry)) setForThisStep(node, osg::Object::DYNAMIC);
    });
}

void OptimizationGuard::setForThisStep(osg::Node& node, osg::Object::DataVariance variance) {
    const osg::Object::DataVariance own = node.getDataVariance();
    node.setDataVariance(variance);
    _undo.emplace_back([held = osg::ref_ptr<osg::Node>(&node), own] { held->setDataVariance(own); });
}

/** Before names are removed. */
bool OptimizationGuard::isKept(const osg::Node& node) const {
    return _keptNames.count(node.getName()) != 0 || node.getDataVariance() == osg::Object::DYNAMIC ||
           hasCallbacks(node) || node.getNodeMask() != anyNodeMask || !node.getCullingActive();
}

void OptimizationGuard::flattenWithin(double distance, osg::Node& root) const {
    FlatteningRules rules;
    rules.longestTranslation = distance;
    rules.scalesRanges = false;
    rules.keeps = [this](const osg::Node& node) { return isKept(node); };
    for (osg::Transform* transform : transformsThatStay(root, rules)) {
        transform->setUserDataContainer(new StaysMark(transform->getUserDataContainer()));
        transform->setDataVariance(osg::Object::UNSPECIFIED);
    }
    MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor::process(&root, distance * distance);
    EachNode(root, [](osg::Node& node) {
        const osg::ref_ptr<StaysMark> mark = dynamic_cast<StaysMark*>(node.getUserDataContainer());
        if (!mark) return;
        node.setUserDataContainer(mark->own);
        node.setDataVariance(osg::Object::STATIC);
    });
}

void OptimizationGuard::fixCentres(osg::Node& root) {
    EachNode(root, [](osg::Node& node) {
        if (typeid(node) != typeid(osg::LOD)) return;
        auto& lod = static_cast<osg::LOD&>(node);
        if (lod.getCenterMode() != osg::LOD::USE_BOUNDING_SPHERE_CENTER || !lod.getBound().valid()) return;
        lod.setRadius(-1.0f);  // which such an LOD ignores: its bound stays that of its children
        lod.setCenter(lod.getCenter());
        lod.setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    });
}

}  // namespace veltrane::sceneutils::tool
