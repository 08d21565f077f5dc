#include "Recentring.h"

#include "GraphSurvey.h"
#include "TransformReplacement.h"
#include "WorldPositions.h"

#include <sceneutils/BubbleUpTransform.h>

#include <osg/Array>
#include <osg/Drawable>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/NodeVisitor>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

namespace veltrane::sceneutils::tool {

namespace {

constexpr osg::Node::NodeMask anyMask = ~0u;

std::string asText(double number) {
    std::ostringstream text;
    text << number;
    return text.str();
}

/** Sets node masks for the length of a scope. */
class NodeMasks {
public:
    NodeMasks() = default;
    ~NodeMasks() {
        for (auto mask = _own.rbegin(); mask != _own.rend(); ++mask) mask->first->setNodeMask(mask->second);
    }
    NodeMasks(const NodeMasks&) = delete;
    NodeMasks& operator=(const NodeMasks&) = delete;

    void set(osg::Node& node, osg::Node::NodeMask mask) {
        _own.emplace_back(&node, node.getNodeMask());
        node.setNodeMask(mask);
    }

private:
    std::vector<std::pair<osg::ref_ptr<osg::Node>, osg::Node::NodeMask>> _own;
};

/** Keeps arrays as they are for the length of a scope. */
class UnchangedArrays {
public:
    explicit UnchangedArrays(const std::vector<osg::ref_ptr<osg::Array>>& arrays) {
        for (const osg::ref_ptr<osg::Array>& array : std::set<osg::ref_ptr<osg::Array>>(arrays.begin(), arrays.end()))
            _kept.emplace_back(array, bytesOf(*array));
    }
    ~UnchangedArrays() {
        for (const auto& [array, bytes] : _kept) {
            if (!bytes.empty()) std::memcpy(const_cast<void*>(array->getDataPointer()), bytes.data(), bytes.size());
        }
    }
    UnchangedArrays(const UnchangedArrays&) = delete;
    UnchangedArrays& operator=(const UnchangedArrays&) = delete;

private:
    static std::vector<char> bytesOf(const osg::Array& array) {
        const char* begin = static_cast<const char*>(array.getDataPointer());
        return std::vector<char>(begin, begin + array.getTotalDataSize());
    }

    std::vector<std::pair<osg::ref_ptr<osg::Array>, std::vector<char>>> _kept;
};

/** The centres of LODs, to be moved exactly: the library takes those of loaded children after some were moved. */
class LODCenters {
public:
    explicit LODCenters(const std::vector<osg::ref_ptr<osg::LOD>>& lods) {
        for (const osg::ref_ptr<osg::LOD>& lod : lods) _own.push_back({lod, lod->getCenter(), lod->getCenterMode()});
    }

    void move(const osg::Vec3d& offset) const {
        for (const Own& own : _own) {
            own.lod->setCenter(osg::Vec3d(own.center) - offset);
            // What the bound was made of: a radius had no say where the children's bound was asked for.
            if (own.mode == osg::LOD::USE_BOUNDING_SPHERE_CENTER) own.lod->setRadius(-1.0f);
            if (own.mode == osg::LOD::UNION_OF_BOUNDING_SPHERE_AND_USER_DEFINED) own.lod->setCenterMode(own.mode);
            own.lod->dirtyBound();
        }
    }

private:
    struct Own {
        osg::ref_ptr<osg::LOD> lod;
        osg::Vec3 center;
        osg::LOD::CenterMode mode;
    };

    std::vector<Own> _own;
};

void moveInitialBound(osg::Node& node, const osg::Vec3d& offset) {
    if (osg::Drawable* drawable = node.asDrawable()) {
        const osg::BoundingBox& box = drawable->getInitialBound();
        drawable->setInitialBound({osg::Vec3d(box._min) - offset, osg::Vec3d(box._max) - offset});
    } else {
        const osg::BoundingSphere& sphere = node.getInitialBound();
        node.setInitialBound({osg::Vec3d(sphere.center()) - offset, sphere.radius()});
    }
}

/** What the library would move the graph by, if it would. Asks it with a visitor that may enter no node. */
std::optional<osg::Vec3d> findOffset(osg::Node& root, const RecentreOptions& options) {
    BubbleUpTransform asking;
    asking.setTraversalMask(0);
    asking.setNodeMaskOverride(0);
    NodeMasks masks;
    masks.set(root, 0);  // which keeps off what moves light points
    const osg::Matrixd none = osg::Matrixd::scale(0.0, 0.0, 0.0);
    osg::Matrixd matrix = none;
    if (options.asGraph) {
        asking.createMatrixForGraph(&root, options.minDistance, matrix);
    } else {
        asking.createMatrixForGeodes(&root, options.minDistance, matrix);
    }
    if (matrix == none) return std::nullopt;
    return matrix.getTrans();
}

/** Empty if the graph is to be moved. */
std::string whyNotMoved(osg::Node& root, const RecentreOptions& options) {
    if (!root.getBound().valid()) return "nothing in it has an extent";
    const std::optional<osg::Vec3d> offset = findOffset(root, options);
    if (offset) return *offset == osg::Vec3d() ? "its centre lies at the origin" : "";
    return (options.asGraph ? "its centre lies nearer to the origin than "
                            : "all geodes lie nearer to the origin than ") +
           asText(options.minDistance);
}

class VertexMeasurer : public osg::NodeVisitor {
public:
    VertexMeasurer() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(anyMask); }

    using osg::NodeVisitor::apply;

    void apply(osg::Node& node) override {
        if (_met.insert(&node).second) traverse(node);
    }
    void apply(osg::Geometry& geometry) override {
        if (!_met.insert(&geometry).second) return;
        measure(dynamic_cast<const osg::Vec3Array*>(geometry.getVertexArray()));
        measure(dynamic_cast<const osg::Vec3dArray*>(geometry.getVertexArray()));
    }

    double farthest2 = 0.0;

private:
    template <typename ArrayType>
    void measure(const ArrayType* vertices) {
        if (!vertices) return;
        for (const auto& vertex : *vertices) farthest2 = std::max(farthest2, osg::Vec3d(vertex).length2());
    }

    std::set<const osg::Node*> _met;
};

osg::ref_ptr<osg::Group> asGroup(const osg::ref_ptr<osg::Node>& node) {
    if (osg::Group* group = node->asGroup()) return group;
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(node);
    return group;
}

void refuseProblems(const GraphSurvey& survey) {
    if (survey.problems.empty()) return;
    const std::size_t others = survey.problems.size() - 1;
    throw RecentreError(survey.problems.front() + (others > 0 ? " (and " + std::to_string(others) + " more)" : ""));
}

osg::ref_ptr<osg::Group> moveByLibrary(const osg::ref_ptr<osg::Group>& root, const GraphSurvey& found,
                                       const RecentreOptions& options) {
    NodeMasks masks;
    for (const osg::ref_ptr<osg::Node>& node : found.hiddenNodes) masks.set(*node, anyMask);
    for (const auto& lights : found.carriedLightPoints) masks.set(*lights, 0);
    const UnchangedArrays normals(found.normals);
    BubbleUpTransform visitor;
    return options.asGraph ? visitor.createTransformForGraph(root, options.minDistance)
                           : visitor.createTransformForGeodes(root, options.minDistance);
}

/** Moves a graph in which all can be moved, and returns the transform above it that puts it back. */
osg::ref_ptr<osg::MatrixTransform> move(const osg::ref_ptr<osg::Group>& root, const GraphSurvey& found,
                                        const RecentreOptions& options) {
    const LODCenters lodCenters(found.lods);
    const osg::ref_ptr<osg::Group> group = moveByLibrary(root, found, options);
    osg::ref_ptr<osg::MatrixTransform> placed = group->asTransform()->asMatrixTransform();
    const osg::Vec3d offset = placed->getMatrix().getTrans();
    lodCenters.move(offset);
    for (const osg::ref_ptr<osg::Node>& node : found.nodesWithInitialBound) moveInitialBound(*node, offset);
    placed->setDataVariance(osg::Object::DYNAMIC);  // or optimisers put it back into the vertices
    return placed;
}

osg::ref_ptr<osg::Group> replaceTransforms(osg::ref_ptr<osg::Group> root, const GraphSurvey& survey) {
    for (const auto& transform : survey.positionAttitudeTransforms) {
        const osg::ref_ptr<osg::MatrixTransform> replacement = replaceByMatrixTransform(transform);
        if (root == transform) root = replacement;
    }
    return root;
}

}  // namespace

Recentring recentre(const osg::ref_ptr<osg::Node>& graph, const RecentreOptions& options) {
    const LightPoints lightPoints = options.asGraph ? LightPoints::Leave : LightPoints::Move;
    const osg::ref_ptr<osg::Group> root = asGroup(graph);
    Recentring result;
    result.graph = graph;
    result.farthestVertexBefore = result.farthestVertexNow = farthestVertex(*graph);
    result.reasonNotMoved = whyNotMoved(*root, options);
    if (!result.reasonNotMoved.empty()) return result;

    if (!root->getBound().center().valid()) throw RecentreError("the sphere around it is no number");
    const GraphSurvey found = survey(*root, lightPoints);
    refuseProblems(found);
    const WorldPositions before(*root);
    const osg::ref_ptr<osg::Group> movable = replaceTransforms(root, found);
    const osg::ref_ptr<osg::MatrixTransform> placed = move(movable, survey(*movable, lightPoints), options);

    const WorldPositions::Comparison comparison = before.compareWith(*movable, placed->getMatrix());
    if (comparison.displacement) throw RecentreError(*comparison.displacement);
    result.graph = placed;
    result.offset = placed->getMatrix().getTrans();
    result.largestDifference = comparison.largestDifference;
    result.farthestVertexNow = farthestVertex(*placed);
    result.replacedTransforms = static_cast<unsigned int>(found.positionAttitudeTransforms.size());
    return result;
}

double farthestVertex(osg::Node& graph) {
    VertexMeasurer measurer;
    graph.accept(measurer);
    return std::sqrt(measurer.farthest2);
}

}  // namespace veltrane::sceneutils::tool
