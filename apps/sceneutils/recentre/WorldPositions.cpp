#include "WorldPositions.h"

#include "NodeNames.h"

#include <osg/Array>
#include <osg/Billboard>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/LOD>
#include <osg/Transform>
#include <osgSim/LightPointNode>

#include <algorithm>
#include <cmath>
#include <set>
#include <sstream>

namespace veltrane::sceneutils::tool {

namespace {

constexpr int shownDigits = 13;
const double singleRounding = std::ldexp(1.0, -24);
const double doubleRounding = std::ldexp(1.0, -45);

/** Positions in a node's own coordinates. */
struct Points {
    std::vector<osg::Vec3d> values;
    std::vector<bool> areSingle;  ///< whether they are kept in single precision

    void add(const osg::Vec3d& value, bool isSingle) {
        values.push_back(value);
        areSingle.push_back(isSingle);
    }
    template <typename ArrayType>
    bool addArray(const osg::Array* array, bool isSingle) {
        const auto* typed = dynamic_cast<const ArrayType*>(array);
        if (!typed) return false;
        for (const auto& value : *typed) add(value, isSingle);
        return true;
    }
    void addArray(const osg::Array* array) {
        if (!addArray<osg::Vec3Array>(array, true)) addArray<osg::Vec3dArray>(array, false);
    }
};

Points pointsOf(const osg::Node& node) {
    Points points;
    if (const osg::Geometry* geometry = node.asGeometry()) {
        points.addArray(geometry->getVertexArray());
        points.addArray(geometry->getVertexAttribArray(osg::Drawable::VERTICES));
    }
    if (const auto* lights = dynamic_cast<const osgSim::LightPointNode*>(&node)) {
        for (const osgSim::LightPoint& light : lights->getLightPointList()) points.add(light._position, true);
    }
    if (const auto* billboard = dynamic_cast<const osg::Billboard*>(&node)) {
        for (const osg::Vec3& position : billboard->getPositionList()) points.add(position, true);
    }
    if (const auto* lod = dynamic_cast<const osg::LOD*>(&node)) points.add(lod->getCenter(), true);
    return points;
}

osg::LOD::RangeList rangesOf(const osg::Node& node) {
    const auto* lod = dynamic_cast<const osg::LOD*>(&node);
    return lod ? lod->getRangeList() : osg::LOD::RangeList();
}

/** What leads from the coordinates below a node to those above it. */
struct Step {
    osg::Matrixd matrix;
    bool isAbsolute = false;

    osg::Matrixd below(const osg::Matrixd& above) const { return isAbsolute ? matrix : matrix * above; }
};

Step stepOf(const osg::Node& node) {
    Step step;
    if (const osg::Transform* transform = node.asTransform()) {
        transform->computeLocalToWorldMatrix(step.matrix, nullptr);
        step.isAbsolute = transform->getReferenceFrame() != osg::Transform::RELATIVE_RF;
    }
    // The drawables of a billboard turn about its positions: their own coordinates have to stay what they were.
    if (dynamic_cast<const osg::Billboard*>(&node)) step.isAbsolute = true;
    return step;
}

osg::Vec3d amountsOf(const osg::Vec3d& vector) {
    return {std::abs(vector.x()), std::abs(vector.y()), std::abs(vector.z())};
}

osg::Matrixd amountsOf(osg::Matrixd matrix) {
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column) matrix(row, column) = std::abs(matrix(row, column));
    return matrix;
}

/** The part that turns and scales. */
osg::Vec3d withoutTranslation(const osg::Vec3d& vector, const osg::Matrixd& matrix) {
    return osg::Matrixd::transform3x3(vector, matrix);
}

}  // namespace

/** A node as it was. */
struct WorldPositions::Remembered {
    Points points;
    osg::LOD::RangeList ranges;
    Step step;
    std::vector<const Remembered*> children;
};

/** Goes down the graph as it was and the graph as it is, side by side. */
class WorldPositions::Comparer {
public:
    void compare(const Remembered& before, const osg::Node& now, const osg::Matrixd& aboveBefore,
                 const osg::Matrixd& aboveNow, const osg::Matrixd& amountsAbove) {
        if (isKnown(now, aboveBefore, aboveNow)) return;
        _path.push_back(const_cast<osg::Node*>(&now));
        comparePoints(before, now, aboveBefore, aboveNow, amountsAbove);
        if (before.ranges != rangesOf(now)) displace("has other ranges");

        const Step step = stepOf(now);
        const Step amounts = {amountsOf(step.matrix), step.isAbsolute};
        const osg::Group* group = now.asGroup();
        if ((group ? group->getNumChildren() : 0) != before.children.size()) {
            displace("has other children");
        } else {
            for (unsigned int i = 0; i < before.children.size(); ++i)
                compare(*before.children[i], *group->getChild(i), before.step.below(aboveBefore), step.below(aboveNow),
                        amounts.below(amountsAbove));
        }
        _path.pop_back();
    }

    Comparison result;

private:
    using Key = std::pair<const osg::Node*, std::vector<double>>;

    /** Shared nodes may be reached by very many paths that differ in nothing. */
    bool isKnown(const osg::Node& now, const osg::Matrixd& aboveBefore, const osg::Matrixd& aboveNow) {
        if (now.getNumParents() < 2) return false;
        Key key(&now, std::vector<double>(aboveBefore.ptr(), aboveBefore.ptr() + 16));
        key.second.insert(key.second.end(), aboveNow.ptr(), aboveNow.ptr() + 16);
        return !_known.insert(key).second;
    }

    void comparePoints(const Remembered& before, const osg::Node& now, const osg::Matrixd& aboveBefore,
                       const osg::Matrixd& aboveNow, const osg::Matrixd& amountsAbove) {
        const Points points = pointsOf(now);
        if (points.values.size() != before.points.values.size()) return displace("has other vertices");
        for (std::size_t i = 0; i < points.values.size(); ++i) {
            const osg::Vec3d& old = before.points.values[i];
            const osg::Vec3d& current = points.values[i];
            const bool isRounded = points.areSingle[i] && old != current;
            compare(old * aboveBefore, current * aboveNow, roundingOf(current, isRounded, amountsAbove));
        }
    }

    static osg::Vec3d roundingOf(const osg::Vec3d& point, bool isRounded, const osg::Matrixd& amountsAbove) {
        const osg::Vec3d amounts = amountsOf(point);
        osg::Vec3d rounding = amounts * amountsAbove * doubleRounding;
        if (isRounded) rounding += withoutTranslation(amounts, amountsAbove) * singleRounding;
        return rounding;
    }

    void compare(const osg::Vec3d& before, const osg::Vec3d& now, const osg::Vec3d& rounding) {
        const osg::Vec3d difference = amountsOf(now - before);
        result.largestDifference = std::max(result.largestDifference, difference.length());
        for (int i = 0; i < 3; ++i) {
            if (difference[i] <= rounding[i]) continue;  // a coordinate that is no number is not within
            std::ostringstream text;
            text.precision(shownDigits);
            text << "was at " << before.x() << "," << before.y() << "," << before.z() << " and would be at " << now.x()
                 << "," << now.y() << "," << now.z();
            return displace(text.str());
        }
    }

    void displace(const std::string& what) {
        if (!result.displacement) result.displacement = nameOf(_path) + " " + what;
    }

    osg::NodePath _path;
    std::set<Key> _known;
};

WorldPositions::WorldPositions(const osg::Node& root) : _root(remember(root)) {}

WorldPositions::~WorldPositions() = default;

const WorldPositions::Remembered* WorldPositions::remember(const osg::Node& node) {
    const auto [place, isNew] = _nodes.emplace(&node, nullptr);
    if (!isNew) return place->second.get();
    place->second = std::make_unique<Remembered>(Remembered{pointsOf(node), rangesOf(node), stepOf(node), {}});
    Remembered& remembered = *place->second;
    const osg::Group* group = node.asGroup();
    for (unsigned int i = 0; group && i < group->getNumChildren(); ++i)
        remembered.children.push_back(remember(*group->getChild(i)));
    return &remembered;
}

WorldPositions::Comparison WorldPositions::compareWith(const osg::Node& root, const osg::Matrixd& place) const {
    Comparer comparer;
    comparer.compare(*_root, root, osg::Matrixd(), place, amountsOf(place));
    return comparer.result;
}

}  // namespace veltrane::sceneutils::tool
