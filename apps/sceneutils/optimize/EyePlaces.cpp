#include "EyePlaces.h"

#include <osg/Group>
#include <osg/LOD>
#include <osg/Matrixd>
#include <osg/Transform>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <utility>

namespace veltrane::sceneutils::tool {

namespace {

constexpr double farthestSeen = 20000.0;  // what OptimizeBatches takes LODs to be seen from
constexpr std::size_t mostBorders = 11;
constexpr int tries = 8;
constexpr double nudge = 1.037;  // no ratio that occurs in ranges
constexpr double smallestMargin = 1e-5;

const osg::Vec3d& direction(std::size_t number) {
    static const osg::Vec3d directions[] = {osg::Vec3d(0.31, -0.87, 0.38), osg::Vec3d(-0.73, 0.21, 0.65),
                                            osg::Vec3d(0.59, 0.64, 0.49)};
    return directions[number % 3];
}

/** An LOD on one way down. */
struct LodPlace {
    const osg::LOD* lod;
    osg::Matrixd worldToLocal;
    osg::Vec3d centre;  ///< in the world
    double scale;       ///< lengths in the world of one unit of the ranges

    double margin(const osg::Vec3d& eye) const {
        const double distance = (eye * worldToLocal - osg::Vec3d(lod->getCenter())).length();
        double margin = std::numeric_limits<double>::max();
        for (const auto& [minimum, maximum] : lod->getRangeList()) {
            for (const double border : {static_cast<double>(minimum), static_cast<double>(maximum)}) {
                const double size = std::max({distance, std::abs(border), std::numeric_limits<double>::min()});
                if (std::isfinite(border)) margin = std::min(margin, std::abs(distance - border) / size);
            }
        }
        return margin;
    }
};

class LodPlaces {
public:
    explicit LodPlaces(const osg::Node& root) { visit(root, osg::Matrixd()); }

    std::vector<LodPlace> places;

private:
    void visit(const osg::Node& node, const osg::Matrixd& above) {
        osg::Matrixd matrix = above;
        if (const osg::Transform* transform = node.asTransform()) transform->computeLocalToWorldMatrix(matrix, nullptr);
        const auto* lod = dynamic_cast<const osg::LOD*>(&node);
        if (lod && lod->getRangeMode() == osg::LOD::DISTANCE_FROM_EYE_POINT) {
            osg::Matrixd inverse;
            if (inverse.invert(matrix))
                places.push_back({lod, inverse, osg::Vec3d(lod->getCenter()) * matrix, matrix.getScale().x()});
        }
        const osg::Group* group = node.asGroup();
        for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) visit(*group->getChild(i), matrix);
    }
};

/** The borders of ranges, each with the first LOD that has it; the same number from all sizes if there are many. */
std::vector<std::pair<double, const LodPlace*>> bordersOf(const std::vector<LodPlace>& places) {
    std::map<double, const LodPlace*> all;
    for (const LodPlace& place : places) {
        for (const auto& [minimum, maximum] : place.lod->getRangeList()) {
            for (const double border : {static_cast<double>(minimum), static_cast<double>(maximum)})
                if (border >= 0.0 && std::isfinite(border)) all.emplace(border * place.scale, &place);
        }
    }
    std::vector<std::pair<double, const LodPlace*>> borders(all.begin(), all.end());
    if (borders.size() <= mostBorders) return borders;
    std::vector<std::pair<double, const LodPlace*>> some;
    for (std::size_t i = 0; i < mostBorders; ++i) some.push_back(borders[i * (borders.size() - 1) / (mostBorders - 1)]);
    return some;
}

class Choice {
public:
    explicit Choice(const osg::Node& root) : _region(eyeRegion(root)), _lods(root) {}

    /** As far from `origin` as is said, or nearly so. */
    void add(const osg::Vec3d& origin, double distance) {
        const osg::Vec3d& way = direction(eyes.size());
        osg::Vec3d best;
        double bestMargin = -1.0;
        for (int i = 0; i < tries && bestMargin < smallestMargin; ++i, distance /= nudge) {
            const osg::Vec3d place = inRegion(origin + way * (distance / way.length()));
            double margin = std::numeric_limits<double>::max();
            for (const LodPlace& lod : _lods.places) margin = std::min(margin, lod.margin(place));
            if (margin > bestMargin) {
                best = place;
                bestMargin = margin;
            }
        }
        if (bestMargin >= smallestMargin && eyes.size() < mostEyes)
            eyes.push_back({best, (best - _region.center()).length()});
    }

    const std::vector<LodPlace>& lods() const { return _lods.places; }

    std::vector<Eye> eyes;

private:
    osg::Vec3d inRegion(const osg::Vec3d& place) const {
        osg::Vec3d fromCentre = place - _region.center();
        if (fromCentre.length() <= _region.radius()) return place;
        fromCentre.normalize();
        return _region.center() + fromCentre * _region.radius();
    }

    osg::BoundingSphered _region;
    LodPlaces _lods;
};

}  // namespace

osg::BoundingSphered eyeRegion(const osg::Node& root) {
    const osg::BoundingSphere& bound = root.getBound();
    if (!bound.valid() || !std::isfinite(bound.radius())) return {osg::Vec3d(), farthestSeen};
    return {osg::Vec3d(bound.center()), std::max(farthestSeen, static_cast<double>(bound.radius()))};
}

std::vector<Eye> chooseEyes(const osg::Node& root) {
    Choice choice(root);
    const osg::BoundingSphere& bound = root.getBound();
    const double radius = bound.valid() && std::isfinite(bound.radius()) ? static_cast<double>(bound.radius()) : 1.0;
    const osg::Vec3d centre = eyeRegion(root).center();
    for (const double factor : {0.43, 1.7, 5.3}) choice.add(centre, std::max(radius, 1e-3) * factor);

    const auto borders = bordersOf(choice.lods());
    for (std::size_t i = 0; i + 1 < borders.size(); ++i)
        choice.add(borders[i].second->centre, 0.5 * (borders[i].first + borders[i + 1].first));
    if (!borders.empty()) choice.add(borders.back().second->centre, borders.back().first * 1.2 + 1.0);
    return choice.eyes;
}

}  // namespace veltrane::sceneutils::tool
