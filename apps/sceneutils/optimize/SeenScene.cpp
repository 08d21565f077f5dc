#include "SeenScene.h"

#include "../files/NodeText.h"
#include "NodeTraits.h"

#include <osg/Billboard>
#include <osg/Geometry>
#include <osg/LOD>
#include <osg/PagedLOD>
#include <osg/ProxyNode>
#include <osg/Sequence>
#include <osg/Switch>
#include <osg/Transform>
#include <osgSim/LightPointNode>
#include <osgSim/MultiSwitch>

#include <algorithm>
#include <cmath>
#include <functional>
#include <typeinfo>

namespace veltrane::sceneutils::tool {

namespace {

/** Hands over the triangles, lines and points of a drawable, each corner as it stands in the arrays. */
class PrimitiveReader : public osg::PrimitiveFunctor {
public:
    using Take = std::function<void(const osg::Vec3d* corners, unsigned int count)>;

    explicit PrimitiveReader(Take take) : _take(std::move(take)) {}

    void setVertexArray(unsigned int count, const osg::Vec2* array) override {
        set(count, array, [](const osg::Vec2& v) { return osg::Vec3d(v.x(), v.y(), 0.0); });
    }
    void setVertexArray(unsigned int count, const osg::Vec3* array) override {
        set(count, array, [](const osg::Vec3& v) { return osg::Vec3d(v); });
    }
    void setVertexArray(unsigned int count, const osg::Vec4* array) override {
        set(count, array, [](const osg::Vec4& v) { return osg::Vec3d(v.x(), v.y(), v.z()); });
    }
    void setVertexArray(unsigned int count, const osg::Vec2d* array) override {
        set(count, array, [](const osg::Vec2d& v) { return osg::Vec3d(v.x(), v.y(), 0.0); });
    }
    void setVertexArray(unsigned int count, const osg::Vec3d* array) override {
        set(count, array, [](const osg::Vec3d& v) { return v; });
    }
    void setVertexArray(unsigned int count, const osg::Vec4d* array) override {
        set(count, array, [](const osg::Vec4d& v) { return osg::Vec3d(v.x(), v.y(), v.z()); });
    }
    void drawArrays(GLenum mode, GLint first, GLsizei count) override {
        read(mode, count, [first](GLsizei i) { return static_cast<std::size_t>(first) + static_cast<std::size_t>(i); });
    }
    void drawElements(GLenum mode, GLsizei count, const GLubyte* indices) override {
        readIndexed(mode, count, indices);
    }
    void drawElements(GLenum mode, GLsizei count, const GLushort* indices) override {
        readIndexed(mode, count, indices);
    }
    void drawElements(GLenum mode, GLsizei count, const GLuint* indices) override { readIndexed(mode, count, indices); }

    osg::Vec3d amounts;  ///< the largest of each coordinate

private:
    template <typename Vector, typename Convert>
    void set(unsigned int count, const Vector* array, Convert convert) {
        _vertices.clear();
        for (unsigned int i = 0; i < count; ++i) _vertices.push_back(convert(array[i]));
        for (const osg::Vec3d& vertex : _vertices)
            for (int i = 0; i < 3; ++i) amounts[i] = std::max(amounts[i], std::abs(vertex[i]));
    }

    template <typename Index>
    void readIndexed(GLenum mode, GLsizei count, const Index* indices) {
        read(mode, count, [indices](GLsizei i) { return static_cast<std::size_t>(indices[i]); });
    }

    template <typename IndexOf>
    void read(GLenum mode, GLsizei count, IndexOf indexOf) {
        const auto at = [&](GLsizei i) { return indexOf(i); };
        switch (mode) {
            case GL_TRIANGLES:
                for (GLsizei i = 2; i < count; i += 3) take({at(i - 2), at(i - 1), at(i)});
                break;
            case GL_TRIANGLE_STRIP:
                for (GLsizei i = 2; i < count; ++i)
                    i % 2 == 0 ? take({at(i - 2), at(i - 1), at(i)}) : take({at(i - 1), at(i - 2), at(i)});
                break;
            case GL_TRIANGLE_FAN:
            case GL_POLYGON:
                for (GLsizei i = 2; i < count; ++i) take({at(0), at(i - 1), at(i)});
                break;
            case GL_QUADS:
                for (GLsizei i = 3; i < count; i += 4) takeQuad(at(i - 3), at(i - 2), at(i - 1), at(i));
                break;
            case GL_QUAD_STRIP:
                for (GLsizei i = 3; i < count; i += 2) takeQuad(at(i - 3), at(i - 2), at(i), at(i - 1));
                break;
            case GL_LINES:
                for (GLsizei i = 1; i < count; i += 2) take({at(i - 1), at(i)});
                break;
            case GL_LINE_STRIP:
            case GL_LINE_LOOP:
                for (GLsizei i = 1; i < count; ++i) take({at(i - 1), at(i)});
                if (mode == GL_LINE_LOOP && count > 1) take({at(count - 1), at(0)});
                break;
            default:  // points, and what only shaders make primitives of
                for (GLsizei i = 0; i < count; ++i) take({at(i)});
        }
    }

    void takeQuad(std::size_t a, std::size_t b, std::size_t c, std::size_t d) {
        take({a, b, c});
        take({a, c, d});
    }

    void take(std::initializer_list<std::size_t> indices) {
        osg::Vec3d corners[3];
        unsigned int count = 0;
        for (const std::size_t index : indices) {
            if (index >= _vertices.size()) return;
            corners[count++] = _vertices[index];
        }
        _take(corners, count);
    }

    Take _take;
    std::vector<osg::Vec3d> _vertices;
};

/** The centre of a bound depends on how the graph is put together: the origin stands for it. */
template <typename PlaceHolder>
osg::Vec3d ownCentreOf(const PlaceHolder& node) {
    return node.getCenterMode() == PlaceHolder::USE_BOUNDING_SPHERE_CENTER ? osg::Vec3d()
                                                                           : osg::Vec3d(node.getCenter());
}

template <typename... Kinds>
bool isAny(const osg::Node& node) {
    return (dynamic_cast<const Kinds*>(&node) || ...);
}

/** Whether a node does more than its children, its state and its place say: a light source, a camera, a transform that
 * turns to the eye, clip planes, ... */
bool isOfItsOwnKind(const osg::Node& node) {
    const osg::Group* group = node.asGroup();
    return group && typeid(node) != typeid(osg::Group) && !isPlainTransform(node) && !group->asGeode() &&
           !isAny<osg::LOD, osg::ProxyNode, osg::Switch, osg::Sequence, osgSim::MultiSwitch>(node);
}

osg::Matrixd amountsOf(osg::Matrixd matrix) {
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column) matrix(row, column) = std::abs(matrix(row, column));
    return matrix;
}

}  // namespace

class SeenScene::Collection {
public:
    Collection(SeenScene& scene, const std::vector<Eye>& eyes, StateContents& contents,
               const std::set<const osg::StateSet*>& withoutProgram)
        : _scene(scene), _eyes(eyes), _contents(contents), _states(contents, withoutProgram) {}

    void run(const osg::Node& root) {
        const std::uint32_t all = _eyes.size() < 32 ? (1u << _eyes.size()) - 1u : ~0u;
        visit(root, {osg::Matrixd(), osg::Matrixd(), EffectiveStates::atRoot, all});
    }

private:
    struct Place {
        osg::Matrixd matrix;
        osg::Matrixd amounts;
        EffectiveStates::Id state;
        std::uint32_t eyes;
    };

    void visit(const osg::Node& node, Place place) {
        place.state = _states.below(place.state, node);
        if (node.getNodeMask() == 0) place.eyes = 0;
        if (const osg::Transform* transform = node.asTransform()) enter(*transform, place);
        if (isOfItsOwnKind(node)) takeMarker(classOf(node), osg::Vec3d(), place, place.eyes);
        if (const osg::Drawable* drawable = node.asDrawable()) takeDrawable(*drawable, place);
        if (const auto* lights = dynamic_cast<const osgSim::LightPointNode*>(&node)) takeLights(*lights, place);
        if (const auto* proxy = dynamic_cast<const osg::ProxyNode*>(&node)) takeReferences(*proxy, place);
        if (const osg::Group* group = node.asGroup()) visitChildren(*group, place);
    }

    static void enter(const osg::Transform& transform, Place& place) {
        osg::Matrixd own;
        transform.computeLocalToWorldMatrix(own, nullptr);
        const bool isRelative = transform.getReferenceFrame() == osg::Transform::RELATIVE_RF;
        place.amounts = isRelative ? amountsOf(own) * place.amounts : amountsOf(own);
        place.matrix = isRelative ? own * place.matrix : own;
    }

    void visitChildren(const osg::Group& group, const Place& place) {
        if (const auto* lod = dynamic_cast<const osg::LOD*>(&group)) return visitLevels(*lod, place);
        if (const auto* billboard = dynamic_cast<const osg::Billboard*>(&group))
            return takeBillboard(*billboard, place);
        const auto* choice = dynamic_cast<const osg::Switch*>(&group);
        const bool chooses =
            choice || dynamic_cast<const osg::Sequence*>(&group) || dynamic_cast<const osgSim::MultiSwitch*>(&group);
        for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
            Place below = place;
            if (chooses) below.state = _states.belowChoice(place.state, i);
            if (choice && !choice->getValue(i)) below.eyes = 0;
            visit(*group.getChild(i), below);
        }
    }

    void visitLevels(const osg::LOD& lod, const Place& place) {
        const auto* paged = dynamic_cast<const osg::PagedLOD*>(&lod);
        const unsigned int children = lod.getNumChildren();
        std::vector<std::uint32_t> eyes(std::max(children, lod.getNumRanges()), 0);
        for (unsigned int i = 0; i < lod.getNumRanges(); ++i) eyes[i] = eyesWithin(lod, i, place);
        for (unsigned int i = children; paged && i < lod.getNumRanges(); ++i) {
            if (i >= paged->getNumFileNames() || paged->getFileName(i).empty()) continue;
            takeMarker("tile " + paged->getFileName(i), ownCentreOf(*paged), place, eyes[i]);
            if (children > 0) eyes[children - 1] |= eyes[i];  // stands in until the tile is there
        }
        for (unsigned int i = 0; i < children; ++i) {
            Place below = place;
            below.eyes = eyes[i];
            visit(*lod.getChild(i), below);
        }
    }

    std::uint32_t eyesWithin(const osg::LOD& lod, unsigned int range, const Place& place) const {
        if (lod.getRangeMode() != osg::LOD::DISTANCE_FROM_EYE_POINT) return place.eyes;
        const osg::Matrixd toLocal = osg::Matrixd::inverse(place.matrix);
        const osg::Vec3d centre(lod.getCenter());
        std::uint32_t eyes = 0;
        for (std::size_t i = 0; i < _eyes.size(); ++i) {
            const auto distance = static_cast<float>((_eyes[i].place * toLocal - centre).length());
            if (lod.getMinRange(range) <= distance && distance < lod.getMaxRange(range)) eyes |= 1u << i;
        }
        return eyes & place.eyes;
    }

    /** The drawables turn to the eye: each eye sees other triangles. */
    void takeBillboard(const osg::Billboard& billboard, const Place& place) {
        for (unsigned int i = 0; i < billboard.getNumChildren(); ++i) {
            if (i >= billboard.getPositionList().size()) {
                visit(*billboard.getChild(i), place);
                continue;
            }
            for (std::size_t eye = 0; eye < std::max<std::size_t>(_eyes.size(), 1); ++eye) {
                const std::uint32_t bit = 1u << eye;
                const bool standsForAll = place.eyes == 0 && eye == 0;  // what nobody sees is listed once
                if ((place.eyes & bit) == 0 && !standsForAll) continue;
                Place turned = place;
                turned.eyes = place.eyes & bit;
                turn(billboard, i, eye, turned);
                visit(*billboard.getChild(i), turned);
            }
        }
    }

    void turn(const osg::Billboard& billboard, unsigned int child, std::size_t eye, Place& place) const {
        const osg::Vec3d world = eye < _eyes.size() ? _eyes[eye].place : osg::Vec3d();
        osg::Matrixd own;
        billboard.computeMatrix(own, osg::Vec3(world * osg::Matrixd::inverse(place.matrix)),
                                billboard.getPosition(child));
        place.matrix = own * place.matrix;
        place.amounts = amountsOf(own) * place.amounts;
    }

    void takeDrawable(const osg::Drawable& drawable, const Place& place) {
        bool hasPrimitives = false;
        PrimitiveReader reader([&](const osg::Vec3d* local, unsigned int count) {
            add(local, count, 0, place, place.eyes);
            hasPrimitives = true;
        });
        if (drawable.supports(reader)) drawable.accept(reader);
        _scene.largestAmount = std::max(_scene.largestAmount, amountOf(reader.amounts, place));
        if (!hasPrimitives && !drawable.asGeometry())
            takeMarker(classOf(drawable), drawable.getBoundingBox().center(), place, place.eyes);
    }

    void takeLights(const osgSim::LightPointNode& lights, const Place& place) {
        for (const osgSim::LightPoint& light : lights.getLightPointList())
            takeMarker("light", light._position, place, place.eyes);
    }

    void takeReferences(const osg::ProxyNode& proxy, const Place& place) {
        for (unsigned int i = 0; i < proxy.getNumFileNames(); ++i)
            takeMarker("reference " + proxy.getFileName(i), ownCentreOf(proxy), place, place.eyes);
    }

    void takeMarker(const std::string& what, const osg::Vec3d& point, const Place& place, std::uint32_t eyes) {
        _scene.largestAmount = std::max(_scene.largestAmount, amountOf(point, place));
        add(&point, 1, 1 + static_cast<std::uint32_t>(_contents.numberOf(what)), place, eyes);
    }

    void add(const osg::Vec3d* local, unsigned int count, std::uint32_t what, const Place& place, std::uint32_t eyes) {
        SeenPrimitive primitive;
        primitive.eyes = eyes;
        primitive.state = static_cast<std::uint32_t>(_states.contentOf(place.state));
        primitive.what = what;
        primitive.first = static_cast<std::uint32_t>(_scene.corners.size());
        primitive.corners = count;
        osg::Vec3d corners[3];
        for (unsigned int i = 0; i < count; ++i) {
            corners[i] = local[i] * place.matrix;
            primitive.amount = std::max(primitive.amount, amountOf(local[i], place));
        }
        if (count == 3 && (corners[0] == corners[1] || corners[1] == corners[2] || corners[2] == corners[0])) return;
        _scene.corners.insert(_scene.corners.end(), corners, corners + count);
        _scene.primitives.push_back(primitive);
    }

    /** Of the coordinates that are numbers. */
    static double amountOf(const osg::Vec3d& local, const Place& place) {
        const osg::Vec3d sizes(std::abs(local.x()), std::abs(local.y()), std::abs(local.z()));
        const osg::Vec3d amounts = sizes * place.amounts;
        double largest = 0.0;
        for (int i = 0; i < 3; ++i)
            if (std::isfinite(amounts[i])) largest = std::max(largest, amounts[i]);
        return largest;
    }

    SeenScene& _scene;
    const std::vector<Eye>& _eyes;
    StateContents& _contents;
    EffectiveStates _states;
};

SeenScene::SeenScene(const osg::Node& root, const std::vector<Eye>& eyes, StateContents& contents,
                     const std::set<const osg::StateSet*>& withoutProgram) {
    Collection(*this, eyes, contents, withoutProgram).run(root);
}

}  // namespace veltrane::sceneutils::tool
