#include "MergeGuards.h"

#include <osg/Billboard>
#include <osg/Camera>
#include <osg/Geometry>
#include <osg/LOD>
#include <osg/NodeVisitor>
#include <osg/PositionAttitudeTransform>
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

/** What drawables must have in common to be fused: the mask, and the types of all arrays; 0 for one that is not there.
 */
using DrawableKind = std::vector<unsigned int>;

DrawableKind kindOf(const osg::Drawable& drawable) {
    DrawableKind kind = {drawable.getNodeMask()};
    const osg::Geometry* geometry = drawable.asGeometry();
    if (!geometry) return kind;

    const auto addType = [&kind](const osg::Array* array) {
        kind.push_back(array ? static_cast<unsigned int>(array->getType()) : 0u);
    };
    addType(geometry->getVertexArray());
    addType(geometry->getNormalArray());
    addType(geometry->getColorArray());
    addType(geometry->getSecondaryColorArray());
    addType(geometry->getFogCoordArray());
    kind.push_back(geometry->getNumTexCoordArrays());
    for (unsigned int i = 0; i < geometry->getNumTexCoordArrays(); ++i) addType(geometry->getTexCoordArray(i));
    for (unsigned int i = 0; i < geometry->getNumVertexAttribArrays(); ++i) addType(geometry->getVertexAttribArray(i));
    return kind;
}

/** Those that are not of the kind of the group's first one. */
void addUnlikeDrawables(osg::Group& group, std::map<osg::Drawable*, DrawableKind>& others) {
    DrawableKind first;
    for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
        osg::Drawable* drawable = group.getChild(i)->asDrawable();
        if (!drawable) continue;
        DrawableKind kind = kindOf(*drawable);
        if (first.empty()) first = kind;
        if (kind != first) others.emplace(drawable, std::move(kind));
    }
}

bool hasOneValueButNone(const osg::Array* array) {
    return array && array->getBinding() == osg::Array::BIND_OVERALL && array->getNumElements() == 0;
}

bool isIncomplete(const osg::Geometry& geometry) {
    return hasOneValueButNone(geometry.getNormalArray()) || hasOneValueButNone(geometry.getColorArray());
}

/** Whether the optimizer makes the transform one that does nothing when it has flattened it and has to keep it. */
bool canBeMadeIdentity(const osg::Transform& transform) {
    if (transform.asMatrixTransform()) return true;
    const osg::PositionAttitudeTransform* placed = transform.asPositionAttitudeTransform();
    return placed && placed->getScale() == osg::Vec3d(1.0, 1.0, 1.0);
}

bool doesMoreThanHold(const osg::Group& group) {
    if (group.getNodeMask() != anyMask || dynamic_cast<const osg::Camera*>(&group)) return true;
    const osg::Transform* transform = group.asTransform();
    return transform && transform->getReferenceFrame() != osg::Transform::RELATIVE_RF;
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
    osg::Transform* own = node.asTransform();
    if (own && own->getDataVariance() == osg::Object::STATIC && !canBeMadeIdentity(*own)) _transforms.emplace_back(own);
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

void keepEffectiveNodes(osg::Node& root, osgUtil::Optimizer& optimizer) {
    forEachGroup(root, [&optimizer](osg::Group& group) {
        if (doesMoreThanHold(group)) forbid(optimizer, group, osgUtil::Optimizer::REMOVE_REDUNDANT_NODES);
    });
}

void keepIncompleteGeometries(osg::Node& root, osgUtil::Optimizer& optimizer) {
    forEachGroup(root, [&optimizer](osg::Group& group) {
        for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
            const osg::Geometry* geometry = group.getChild(i)->asGeometry();
            if (geometry && isIncomplete(*geometry)) forbid(optimizer, *geometry, osgUtil::Optimizer::MERGE_GEOMETRY);
        }
    });
}

void keepChosenChildren(osg::Node& root, osgUtil::Optimizer& optimizer) {
    forEachGroup(root, [&optimizer](osg::Group& group) {
        if (showsSomeChildren(group)) forbid(optimizer, group, osgUtil::Optimizer::MERGE_GEOMETRY);
    });
}

UnlikeDrawablesApart::UnlikeDrawablesApart(osg::Node& root) {
    std::map<osg::Drawable*, DrawableKind> others;
    forEachGroup(root, [&others](osg::Group& group) { addUnlikeDrawables(group, others); });
    std::map<std::pair<DrawableKind, osg::StateSet*>, osg::ref_ptr<osg::StateSet>> apart;
    for (const auto& [drawable, kind] : others) {
        _drawables.push_back({drawable, drawable->getStateSet()});
        osg::ref_ptr<osg::StateSet>& stateSet = apart[{kind, drawable->getStateSet()}];
        if (!stateSet) stateSet = new osg::StateSet;
        drawable->setStateSet(stateSet);
    }
}

UnlikeDrawablesApart::~UnlikeDrawablesApart() {
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
