#include "GraphChecks.h"
#include "Promise.h"
#include "ToolSteps.h"

#include <sceneutils/BubbleUpTransform.h>
#include <sceneutils/FlattenUselessLODs.h>
#include <sceneutils/MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor.h>
#include <sceneutils/OptimizeBatches.h>

#include <osg/AutoTransform>
#include <osg/Billboard>
#include <osg/Camera>
#include <osg/Geometry>
#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/Transform>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace fuzzing {

namespace {

using namespace veltrane::sceneutils;
using What = Place::What;

constexpr float greatest = 1e12f;  // a squared distance that no tame graph reaches

/** Some places of a graph, sorted: tools may change the order. */
std::vector<Place> sortedPlaces(osg::Node& root, const std::set<What>& kinds, bool withMasks = true) {
    std::vector<Place> result;
    for (Place place : placesOf(root)) {
        if (kinds.count(place.what) == 0) continue;
        if (!withMasks) place.mask = ~0u;
        result.push_back(place);
    }
    std::sort(result.begin(), result.end());
    return result;
}

template <typename Predicate>
bool anyNode(osg::Node& root, Predicate predicate) {
    const std::vector<osg::Node*> nodes = nodesOf(root);
    return std::any_of(nodes.begin(), nodes.end(), [&](osg::Node* node) { return predicate(*node); });
}

bool isMixedGeode(const osg::Node& node) {
    const osg::Geode* geode = node.asGeode();
    for (unsigned int i = 0; geode && i < geode->getNumChildren(); ++i)
        if (!geode->getChild(i)->asDrawable()) return true;
    return false;
}

bool isOddBillboard(const osg::Node& node) {
    const auto* billboard = dynamic_cast<const osg::Billboard*>(&node);
    return billboard && billboard->getPositionList().size() != billboard->getNumChildren();
}

bool hasDoubleVertices(const osg::Node& node) {
    const osg::Geometry* geometry = node.asGeometry();
    return geometry && dynamic_cast<const osg::Vec3dArray*>(geometry->getVertexArray());
}

bool isAbsolute(const osg::Node& node) {
    const osg::Transform* transform = node.asTransform();
    return transform && transform->getReferenceFrame() != osg::Transform::RELATIVE_RF;
}

/** Looks for what hangs below matrix transforms and elsewhere too, or is an own array of several. */
class SharingBelowTransforms {
public:
    bool isThere(osg::Node& root) {
        visit(root, 0);
        return _found;
    }

private:
    /** @param kind of place: 0 free, 1 below a transform, 2 in a billboard */
    void visit(osg::Node& node, int kind) {
        note(&node, kind);
        if (const osg::Geometry* geometry = node.asGeometry())
            if (geometry->getVertexArray()) note(geometry->getVertexArray(), kind);
        if (node.asTransform()) kind = 1;
        if (kind == 0 && dynamic_cast<const osg::Billboard*>(&node)) kind = 2;
        osg::Group* group = node.asGroup();
        for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) visit(*group->getChild(i), kind);
    }
    void note(const osg::Referenced* object, int kind) {
        const int known = _kinds.emplace(object, kind).first->second;
        _found = _found || known != kind;
    }

    std::map<const osg::Referenced*, int> _kinds;
    bool _found = false;
};

/** Whether a graph is of a kind that can be moved to the origin and back without anything but rounding. */
bool canBubbleUp(osg::Node& root) {
    const bool hasOthers = anyNode(root, [](const osg::Node& node) {
        return isMixedGeode(node) || isOddBillboard(node) || isAbsolute(node) ||
               (node.asTransform() && !node.asTransform()->asMatrixTransform());
    });
    return !hasOthers && !SharingBelowTransforms().isThere(root);
}

void expectSamePlaces(const std::vector<Place>& before, const std::vector<Place>& after, What what) {
    promise(before.size() == after.size(), "places are lost");
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (before[i].what != what) continue;
        promise((before[i].point - after[i].point).length() < 0.01, "something has moved in the world");
    }
}

void expectSamePlaces(const std::vector<Place>& before, const std::vector<Place>& after) {
    promiseNoneLost(before, after);
    promise(before.size() == after.size(), "there are new places");
}

bool isToBeFlattened(const osg::Transform& transform, double limit) {
    osg::Vec3d translation;
    if (const auto* matrixTransform = transform.asMatrixTransform())
        translation = matrixTransform->getMatrix().getTrans();
    if (const auto* placed = transform.asPositionAttitudeTransform()) translation = placed->getPosition();
    return transform.getDataVariance() == osg::Object::STATIC && !(translation.length2() > limit);
}

/** Whether a transform that stays hangs below one that goes: what is below both takes up the matrix of that one. */
bool keepsBelowFlattened(const osg::Node& node, double limit, bool isRoot = true, bool isBelow = false) {
    if (const osg::Transform* transform = node.asTransform()) {
        const bool isKept = isRoot || !isToBeFlattened(*transform, limit);
        if (isBelow && isKept) return true;
        isBelow = isBelow || !isKept;
    }
    const osg::Group* group = node.asGroup();
    for (unsigned int i = 0; group && i < group->getNumChildren(); ++i)
        if (keepsBelowFlattened(*group->getChild(i), limit, false, isBelow)) return true;
    return false;
}

struct OpenFlatten : FlattenUselessLODs {
    using FlattenUselessLODs::_uselessLODs;
    using FlattenUselessLODs::FlattenUselessLODs;
};

std::size_t countLODs(osg::Node& root) {
    const std::vector<osg::Node*> nodes = nodesOf(root);
    return static_cast<std::size_t>(std::count_if(
        nodes.begin(), nodes.end(), [](const osg::Node* node) { return dynamic_cast<const osg::LOD*>(node); }));
}

}  // namespace

void bubbleUp(Scene& scene) {
    const osg::ref_ptr<osg::Node> node = &scene.chooseRoot();
    if (!node->asGroup()) return;
    const double distance = scene.choices.one({0.0, 10.0, -10.0, 1e9});
    const bool ofGeodes = scene.choices.chance(50);
    // OpenSceneGraph's bounds of what is empty may be no numbers; such a model is moved to nowhere.
    const bool hasBounds = !anyNode(*scene.top, [](const osg::Node& each) {
        return !(each.getBound().center().length2() < greatest) || std::isnan(each.getBound().radius());
    });
    const bool isExact = !scene.isWild && hasBounds && canBubbleUp(*node);
    const std::vector<Place> before = placesOf(*node);
    const std::string description = describe(*scene.top);

    BubbleUpTransform visitor;
    const osg::ref_ptr<osg::Group> placed = ofGeodes ? visitor.createTransformForGeodes(node->asGroup(), distance)
                                                     : visitor.createTransformForGraph(node->asGroup(), distance);

    promise(placed->getNumChildren() == 1 && placed->getChild(0) == node, "the transform does not hold the graph");
    if (!scene.isWild && hasBounds && distance == 1e9) {
        promise(placed->asTransform()->asMatrixTransform()->getMatrix().isIdentity(), "a transform without distance");
        promiseSame(description, describe(*scene.top), "a graph that is near enough has changed");
    }
    if (isExact) {
        expectSamePlaces(before, placesOf(*placed), What::Vertex);
        expectSamePlaces(before, placesOf(*placed), What::Billboard);
    }
    placed->removeChildren(0, 1);
    // Numbers are not whole any more.
    if (describe(*scene.top) != description) scene.isWild = true;
}

void flattenTransforms(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    const double limit = scene.choices.one({1e9, 100.0, 0.0, 1.0, -1.0, std::nan("")});
    // What OpenSceneGraph's own flattening cannot move, or only for somebody who looks at it.
    const bool isExact =
        !scene.isWild && !keepsBelowFlattened(root, limit) && !anyNode(*scene.top, [](const osg::Node& node) {
            return isMixedGeode(node) || isOddBillboard(node) || isAbsolute(node) || hasDoubleVertices(node);
        });
    const std::set<What> moved = {What::Vertex, What::Billboard};
    const std::vector<Place> before = sortedPlaces(*scene.top, moved);

    MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor::process(&root, limit);

    if (isExact) expectSamePlaces(before, sortedPlaces(*scene.top, moved));
}

void flattenUselessLODs(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    const auto range = scene.choices.one<osg::LOD::MinMaxPair>(
        {{0.0f, 20000.0f}, {0.0f, 20000.0f}, {0.0f, 100.0f}, {std::nanf(""), 1.0f}, {500.0f, 100.0f}});
    OpenFlatten finder(range.first, range.second);
    root.accept(finder);
    std::vector<std::pair<osg::ref_ptr<osg::Node>, osg::ref_ptr<osg::LOD>>> useless(finder._uselessLODs.begin(),
                                                                                    finder._uselessLODs.end());
    const std::set<What> all = {What::Vertex, What::Billboard, What::Light, What::Text};
    const std::vector<Place> before = sortedPlaces(*scene.top, all, false);
    const std::size_t lods = countLODs(*scene.top);

    FlattenUselessLODs::process(&root, range.first, range.second);

    for (const auto& [parent, lod] : useless)
        promise(!parent->asGroup()->containsNode(lod), "a useless LOD is left in its place");
    promise(countLODs(*scene.top) <= lods && (!useless.empty() || countLODs(*scene.top) == lods), "LODs come or go");
    if (!scene.isWild) expectSamePlaces(before, sortedPlaces(*scene.top, all, false));
}

void optimizeBatches(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    OptimizeBatches optimizer;
    const double radius = scene.choices.one({0.0, 10.0, 100.0, 1e9, -1.0, std::nan("")});
    optimizer.setUnspatializeRadius(radius);
    if (scene.choices.chance(30)) optimizer.preserveNames({"kept", "a"});
    const bool losesChildren =
        radius > 0 && anyNode(*scene.top, [](const osg::Node& node) {
            const auto* lod = dynamic_cast<const osg::LOD*>(&node);
            return lod && lod->getNumChildren() > lod->getNumRanges();  // those without a range, when LODs are merged
        });
    const std::set<What> all = {What::Vertex, What::Billboard, What::Light, What::Text};
    const bool withMasks = !(radius > 0);  // small groups are dissolved whatever they hide
    const std::vector<Place> before = sortedPlaces(*scene.top, all, withMasks);

    optimizer.process(&root);

    if (!scene.isWild && !losesChildren) expectSamePlaces(before, sortedPlaces(*scene.top, all, withMasks));
    scene.isMerged = true;
}

}  // namespace fuzzing
