#include "MergeGuards.h"

#include <osg/Billboard>
#include <osg/LOD>
#include <osg/NodeVisitor>
#include <osg/Sequence>
#include <osg/Switch>
#include <osgSim/MultiSwitch>

#include <map>
#include <set>
#include <utility>
#include <vector>

namespace veltrane::sceneutils {

namespace {

constexpr osg::Node::NodeMask anyMask = ~0u;

/** Calls a function for each group of a graph, hidden ones too. */
template <typename Function>
class GroupVisitor : public osg::NodeVisitor {
public:
    explicit GroupVisitor(Function function) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _function(function) {
        setNodeMaskOverride(anyMask);
    }

    using osg::NodeVisitor::apply;
    void apply(osg::Group& group) override {
        _function(group);
        traverse(group);
    }

private:
    Function _function;
};

template <typename Function>
void forEachGroup(osg::Node& root, Function function) {
    GroupVisitor<Function> visitor(function);
    root.accept(visitor);
}

void forbid(osgUtil::Optimizer& optimizer, const osg::Node& node, unsigned int operation) {
    optimizer.setPermissibleOptimizationsForObject(&node,
                                                   optimizer.getPermissibleOptimizationsForObject(&node) & ~operation);
}

bool holdsDrawablesOnly(const osg::Geode& geode) {
    for (unsigned int i = 0; i < geode.getNumChildren(); ++i)
        if (!geode.getDrawable(i)) return false;
    return true;
}

bool showsSomeChildren(const osg::Group& group) {
    return dynamic_cast<const osg::LOD*>(&group) || dynamic_cast<const osg::Switch*>(&group) ||
           dynamic_cast<const osg::Sequence*>(&group) || dynamic_cast<const osgSim::MultiSwitch*>(&group);
}

/** Those whose mask is not that of the group's first one. */
void addDrawablesOfOtherMasks(osg::Group& group, std::set<osg::Drawable*>& others) {
    const osg::Drawable* first = nullptr;
    for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
        osg::Drawable* drawable = group.getChild(i)->asDrawable();
        if (!drawable) continue;
        if (!first) first = drawable;
        if (drawable->getNodeMask() != first->getNodeMask()) others.insert(drawable);
    }
}

}  // namespace

void keepIncompleteBillboards(osg::Node& root, osgUtil::Optimizer& optimizer) {
    forEachGroup(root, [&optimizer](osg::Group& group) {
        const auto* billboard = dynamic_cast<const osg::Billboard*>(&group);
        if (!billboard) return;
        if (billboard->getPositionList().size() < billboard->getNumChildren() || !holdsDrawablesOnly(*billboard))
            forbid(optimizer, *billboard, osgUtil::Optimizer::FLATTEN_STATIC_TRANSFORMS);
    });
}

RootTransformsKept::RootTransformsKept(osg::Node& node) {
    std::set<osg::Node*> seen;
    std::vector<osg::Node*> toClimb{&node};
    while (!toClimb.empty()) {
        osg::Node* below = toClimb.back();
        toClimb.pop_back();
        for (osg::Group* above : below->getParents()) {
            if (!seen.insert(above).second) continue;
            toClimb.push_back(above);
            osg::Transform* transform = above->asTransform();
            if (transform && transform->getNumParents() == 0 && transform->getDataVariance() == osg::Object::STATIC)
                _transforms.emplace_back(transform);
        }
    }
    for (const auto& transform : _transforms) transform->setDataVariance(osg::Object::UNSPECIFIED);
}

RootTransformsKept::~RootTransformsKept() {
    for (const auto& transform : _transforms) transform->setDataVariance(osg::Object::STATIC);
}

LODCentersFixed::LODCentersFixed(osg::Node& root) {
    std::set<osg::LOD*> lods;
    forEachGroup(root, [&lods](osg::Group& group) {
        auto* lod = dynamic_cast<osg::LOD*>(&group);
        if (lod && lod->getCenterMode() == osg::LOD::USE_BOUNDING_SPHERE_CENTER) lods.insert(lod);
    });
    for (osg::LOD* lod : lods) _lods.push_back({lod, lod->getBound().center(), {}});
    for (Fixed& each : _lods) {
        each.lod->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
        each.ownCenter = each.lod->getCenter();
        each.lod->setCenter(each.boundCenter);
    }
}

LODCentersFixed::~LODCentersFixed() {
    for (const Fixed& each : _lods) {
        if (each.lod->getCenter() != each.boundCenter) continue;
        each.lod->setCenter(each.ownCenter);
        each.lod->setCenterMode(osg::LOD::USE_BOUNDING_SPHERE_CENTER);
    }
}

void keepChosenChildren(osg::Node& root, osgUtil::Optimizer& optimizer) {
    forEachGroup(root, [&optimizer](osg::Group& group) {
        if (showsSomeChildren(group)) forbid(optimizer, group, osgUtil::Optimizer::MERGE_GEOMETRY);
    });
}

DrawableMasksApart::DrawableMasksApart(osg::Node& root) {
    std::set<osg::Drawable*> others;
    forEachGroup(root, [&others](osg::Group& group) { addDrawablesOfOtherMasks(group, others); });
    std::map<std::pair<osg::Node::NodeMask, osg::StateSet*>, osg::ref_ptr<osg::StateSet>> apart;
    for (osg::Drawable* drawable : others) {
        _drawables.push_back({drawable, drawable->getStateSet()});
        osg::ref_ptr<osg::StateSet>& stateSet = apart[{drawable->getNodeMask(), drawable->getStateSet()}];
        if (!stateSet) stateSet = new osg::StateSet;
        drawable->setStateSet(stateSet);
    }
}

DrawableMasksApart::~DrawableMasksApart() {
    for (const SetApart& each : _drawables) each.drawable->setStateSet(each.ownStateSet);
}

MixedGeodesApart::MixedGeodesApart(osg::Node& root) {
    std::set<osg::Geode*> mixed;
    forEachGroup(root, [&mixed](osg::Group& group) {
        osg::Geode* geode = group.asGeode();
        if (geode && !holdsDrawablesOnly(*geode)) mixed.insert(geode);
    });
    for (osg::Geode* geode : mixed) {
        _geodes.push_back({geode, geode->getStateSet()});
        geode->setStateSet(new osg::StateSet);
    }
}

MixedGeodesApart::~MixedGeodesApart() {
    for (const SetApart& each : _geodes) each.geode->setStateSet(each.ownStateSet);
}

}  // namespace veltrane::sceneutils
