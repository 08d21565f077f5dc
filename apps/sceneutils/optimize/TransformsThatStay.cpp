#include "TransformsThatStay.h"

#include "NodeTraits.h"

#include <osg/Billboard>
#include <osg/Geometry>
#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/PositionAttitudeTransform>
#include <osg/Sequence>
#include <osg/Switch>
#include <osgSim/MultiSwitch>

#include <cmath>
#include <typeinfo>
#include <unordered_map>

namespace veltrane::sceneutils::tool {

namespace {

constexpr double nearlyOne = 1e-6;  // how far lengths and angles may be off for a matrix to count as a rotation

template <typename... Kinds>
bool isExactly(const osg::Node& node) {
    return ((typeid(node) == typeid(Kinds)) || ...);
}

bool isMovable(const osg::Node& node) {
    if (isExactly<osg::Geometry>(node)) {
        const osg::Array* vertices = node.asGeometry()->getVertexArray();
        return !vertices || vertices->getType() == osg::Array::Vec3ArrayType ||
               vertices->getType() == osg::Array::Vec3dArrayType;
    }
    return isExactly<osg::Group, osg::Geode, osg::LOD, osg::Switch, osg::Sequence, osgSim::MultiSwitch, osg::Billboard>(
        node);
}

/** What a matrix does besides moving. */
struct Linear {
    bool isIdentity = true;
    bool isSimilar = true;  ///< turns, and scales all directions alike
    double scale = 1.0;

    explicit Linear(const osg::Matrixd& matrix) {
        osg::Vec3d rows[3];
        for (int row = 0; row < 3; ++row) {
            for (int column = 0; column < 3; ++column) {
                rows[row][column] = matrix(row, column);
                isIdentity = isIdentity && matrix(row, column) == (row == column ? 1.0 : 0.0);
            }
        }
        scale = rows[0].length();
        for (int row = 0; row < 3; ++row) {
            const double angle = rows[row] * rows[(row + 1) % 3];
            isSimilar = isSimilar && std::abs(rows[row].length() - scale) <= nearlyOne * scale &&
                        std::abs(angle) <= nearlyOne * scale * scale;
        }
        for (int row = 0; row < 3; ++row) isSimilar = isSimilar && matrix(row, 3) == 0.0;
        isSimilar = isSimilar && matrix(3, 3) == 1.0;
        isIdentity = isIdentity && isSimilar;
    }
};

/** Goes up from the leaves. */
class Survey {
public:
    explicit Survey(const FlatteningRules& rules) : _rules(rules) {}

    /** What is below a transform and does not go along with it. */
    struct Below {
        bool isFixed = false;          ///< something that cannot be moved, or whose transform stays and turns
        bool staysTranslated = false;  ///< a transform that stays and only moves
        bool hasLod = false;
        bool hasBillboard = false;

        void add(const Below& other) {
            isFixed = isFixed || other.isFixed;
            staysTranslated = staysTranslated || other.staysTranslated;
            hasLod = hasLod || other.hasLod;
            hasBillboard = hasBillboard || other.hasBillboard;
        }
    };

    Below visit(osg::Node& node) {
        const auto found = _known.find(&node);
        if (found != _known.end()) return found->second;
        Below below;
        if (osg::Group* group = node.asGroup())
            for (unsigned int i = 0; i < group->getNumChildren(); ++i) below.add(visit(*group->getChild(i)));
        below.hasLod = below.hasLod || isExactly<osg::LOD>(node);
        below.hasBillboard = below.hasBillboard || isExactly<osg::Billboard>(node);
        if (osg::Transform* transform = node.asTransform()) {
            decide(*transform, below);
        } else {
            below.isFixed = below.isFixed || !isMovable(node);
        }
        return _known[&node] = below;
    }

    std::unordered_set<osg::Transform*> staying;

private:
    void decide(osg::Transform& transform, Below& below) {
        osg::Matrixd matrix;
        transform.computeLocalToWorldMatrix(matrix, nullptr);
        const Linear linear(matrix);
        if (mayGo(transform) && goesWith(linear, below)) return;
        if (transform.getDataVariance() == osg::Object::STATIC) staying.insert(&transform);
        below.isFixed = below.isFixed || !linear.isIdentity || !isKnownKind(transform);
        below.staysTranslated = true;
    }

    static bool isKnownKind(const osg::Transform& transform) {
        return isPlainTransform(transform) && transform.getReferenceFrame() == osg::Transform::RELATIVE_RF;
    }

    bool mayGo(osg::Transform& transform) const {
        if (transform.getDataVariance() != osg::Object::STATIC || !isKnownKind(transform)) return false;
        if (_rules.keeps(transform)) return false;
        const osg::MatrixTransform* matrix = transform.asMatrixTransform();
        const osg::Vec3d translation =
            matrix ? matrix->getMatrix().getTrans() : transform.asPositionAttitudeTransform()->getPosition();
        return !(translation.length() > _rules.longestTranslation);
    }

    bool goesWith(const Linear& linear, const Below& below) const {
        if (below.isFixed || (below.staysTranslated && !linear.isIdentity)) return false;
        if (below.hasBillboard && !linear.isIdentity) return false;
        const bool keepsRanges = _rules.scalesRanges || std::abs(linear.scale - 1.0) <= nearlyOne;
        return !below.hasLod || (linear.isSimilar && keepsRanges);
    }

    const FlatteningRules& _rules;
    std::unordered_map<osg::Node*, Below> _known;
};

}  // namespace

std::unordered_set<osg::Transform*> transformsThatStay(osg::Node& root, const FlatteningRules& rules) {
    Survey survey(rules);
    survey.visit(root);
    return std::move(survey.staying);
}

}  // namespace veltrane::sceneutils::tool
