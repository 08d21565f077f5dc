#include "LodRanges.h"

#include "EyePlaces.h"

#include <osg/Group>
#include <osg/PagedLOD>
#include <osg/Transform>

#include <algorithm>
#include <cmath>
#include <map>

namespace veltrane::sceneutils::tool {

namespace {

/** By how much a matrix lengthens a vector at most; of one that also stretches, a little more than that. */
double largestScale(const osg::Matrixd& matrix) {
    constexpr double rounding = 1e-9;
    osg::Vec3d rows[3];
    for (int row = 0; row < 3; ++row) rows[row] = {matrix(row, 0), matrix(row, 1), matrix(row, 2)};
    const double first = rows[0].length2();
    bool isSimilar = true;
    for (int row = 0; row < 3; ++row) {
        isSimilar = isSimilar && std::abs(rows[row].length2() - first) <= rounding * first &&
                    std::abs(rows[row] * rows[(row + 1) % 3]) <= rounding * first;
    }
    if (isSimilar) return std::sqrt(first) * (1.0 + rounding);
    return std::sqrt(first + rows[1].length2() + rows[2].length2());
}

bool hasFiles(const osg::LOD& lod) {
    const auto* paged = dynamic_cast<const osg::PagedLOD*>(&lod);
    for (unsigned int i = 0; paged && i < paged->getNumFileNames(); ++i)
        if (!paged->getFileName(i).empty()) return true;
    return false;
}

class Search {
public:
    explicit Search(const std::function<bool(const osg::LOD&)>& keeps) : _keeps(keeps) {}

    /** @param eyes where an eye may be that can see the node, in the world */
    void visit(osg::Node& node, const osg::Matrixd& above, const osg::BoundingSphered& eyes) {
        osg::Matrixd matrix = above;
        if (const osg::Transform* transform = node.asTransform()) transform->computeLocalToWorldMatrix(matrix, nullptr);
        if (auto* lod = dynamic_cast<osg::LOD*>(&node)) return visitLod(*lod, matrix, eyes);
        osg::Group* group = node.asGroup();
        for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) visit(*group->getChild(i), matrix, eyes);
    }

    SingleLods result() const {
        SingleLods lods;
        for (osg::LOD* lod : _order) (_hasEffect.at(lod) ? lods.withEffect : lods.withoutEffect).push_back(lod);
        return lods;
    }

private:
    void visitLod(osg::LOD& lod, const osg::Matrixd& matrix, const osg::BoundingSphered& eyes) {
        if (lod.getNumChildren() == 1 && lod.getNumRanges() == 1) {
            const auto [entry, isNew] = _hasEffect.emplace(&lod, false);
            if (isNew) _order.push_back(&lod);
            if (!showsAlways(lod, matrix, eyes)) entry->second = true;  // somewhere is enough
        }
        for (unsigned int i = 0; i < lod.getNumChildren(); ++i)
            visit(*lod.getChild(i), matrix, eyesFor(lod, i, matrix, eyes));
    }

    bool showsAlways(const osg::LOD& lod, const osg::Matrixd& matrix, const osg::BoundingSphered& eyes) const {
        if (_keeps(lod) || hasFiles(lod) || lod.getRangeMode() != osg::LOD::DISTANCE_FROM_EYE_POINT) return false;
        osg::Matrixd toLocal;
        if (!toLocal.invert(matrix)) return false;
        const osg::Vec3d centre = osg::Vec3d(lod.getCenter()) * matrix;
        const double farthest = (eyes.radius() + (centre - eyes.center()).length()) * largestScale(toLocal);
        return lod.getMinRange(0) <= 0.0f && static_cast<double>(lod.getMaxRange(0)) > farthest;
    }

    static osg::BoundingSphered eyesFor(const osg::LOD& lod, unsigned int child, const osg::Matrixd& matrix,
                                        const osg::BoundingSphered& eyes) {
        if (child >= lod.getNumRanges() || lod.getRangeMode() != osg::LOD::DISTANCE_FROM_EYE_POINT) return eyes;
        const double radius = static_cast<double>(lod.getMaxRange(child)) * largestScale(matrix);
        if (!(radius < eyes.radius())) return eyes;
        return {osg::Vec3d(lod.getCenter()) * matrix, radius};
    }

    const std::function<bool(const osg::LOD&)>& _keeps;
    std::map<osg::LOD*, bool> _hasEffect;
    std::vector<osg::LOD*> _order;
};

}  // namespace

SingleLods singleLodsIn(osg::Node& root, const std::function<bool(const osg::LOD&)>& keeps) {
    Search search(keeps);
    search.visit(root, osg::Matrixd(), eyeRegion(root));
    return search.result();
}

}  // namespace veltrane::sceneutils::tool
