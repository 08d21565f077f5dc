#include "GraphFromBytes.h"

#include "StateFromBytes.h"

#include <sceneutils/SimpleGeometryGenerator.h>

#include <osg/AutoTransform>
#include <osg/Billboard>
#include <osg/Camera>
#include <osg/CameraView>
#include <osg/ClipNode>
#include <osg/CoordinateSystemNode>
#include <osg/Geometry>
#include <osg/LOD>
#include <osg/LightSource>
#include <osg/MatrixTransform>
#include <osg/OccluderNode>
#include <osg/PagedLOD>
#include <osg/PositionAttitudeTransform>
#include <osg/Projection>
#include <osg/ProxyNode>
#include <osg/Sequence>
#include <osg/ShapeDrawable>
#include <osg/Switch>
#include <osg/TexGenNode>
#include <osg/ValueObject>
#include <osgSim/DOFTransform>
#include <osgSim/LightPointNode>
#include <osgSim/MultiSwitch>
#include <osgText/Text>

#include <limits>
#include <map>
#include <string>
#include <vector>

namespace fuzzing {

namespace {

constexpr unsigned int mostNodes = 30;
constexpr unsigned int mostFurtherPlaces = 6;
constexpr std::size_t mostPaths = 300;  // a few shared nodes inside each other make very many

/** A callback that does nothing but be there. */
class Idle : public osg::NodeCallback {
public:
    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override { traverse(node, visitor); }
};

std::size_t countPaths(osg::Node& node) {
    std::size_t count = 1;
    const osg::Group* group = node.asGroup();
    for (unsigned int i = 0; group && i < group->getNumChildren() && count <= mostPaths; ++i)
        count += countPaths(*const_cast<osg::Node*>(group->getChild(i)));
    return count;
}

class Builder {
public:
    Builder(ByteChoices& choices, bool isWild, bool isFromFile)
        : _choices(choices), _isWild(isWild), _isFromFile(isFromFile), _states(choices) {}

    osg::ref_ptr<osg::Group> build() {
        const osg::ref_ptr<osg::Group> top = new osg::Group;
        _nodes = {top};
        for (unsigned int i = 1 + _choices.below(mostNodes); i > 0 && !_choices.areUsedUp(); --i) {
            const osg::ref_ptr<osg::Node> node = makeNode();
            hang(*groupBefore(_nodes.size()), *node);
            _nodes.push_back(node);
        }
        for (unsigned int i = _choices.below(mostFurtherPlaces + 1); i > 0; --i) addFurtherPlace(*top);
        return top;
    }

private:
    // ---- Numbers
    float number() {
        constexpr float infinity = std::numeric_limits<float>::infinity();
        if (_isWild && _choices.chance(15))
            return _choices.one({std::numeric_limits<float>::quiet_NaN(), infinity, -infinity, 1e38f, -1e20f, 1e-40f,
                                 std::numeric_limits<float>::max(), 0.1f, 1e7f});
        return _choices.one({0.0f, 1.0f, -1.0f, 2.0f, -3.0f, 8.0f, 16.0f, -30.0f, 64.0f});
    }
    double scale() {
        if (_isWild && _choices.chance(15)) return _choices.one({0.0, 1e-30, 1e30, 0.3});
        return _choices.one({1.0, 1.0, 1.0, 2.0, -1.0});
    }
    osg::Vec3 point() {
        const float x = number(), y = number(), z = number();
        return {x, y, z};
    }
    osg::Vec3d scales() {
        if (_choices.chance(50)) return {1, 1, 1};
        const double x = scale(), y = scale(), z = scale();
        return {x, y, z};
    }
    osg::Quat attitude() {
        return _choices.one<osg::Quat>({{0, 0, 0, 1}, {0, 0, 1, 0}, {1, 0, 0, 0}});  // none, and half turns
    }
    osg::Matrixd matrix() {
        if (_choices.chance(15)) return {};
        const osg::Matrixd quarterTurn(0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1);
        osg::Matrixd result = osg::Matrixd::scale(scales());
        if (_choices.chance(40)) result = result * quarterTurn;
        return result * osg::Matrixd::translate(point());
    }

    // ---- What every node may have
    void decorate(osg::Node& node) {
        if (_choices.chance(30))
            node.setName(_choices.one<std::string>({"", "a", "b", "kept", "new lod", "..", "a/b", "%s%n", "two\nlines",
                                                    "\xff\xfe", std::string(300, 'x')}));
        if (_choices.chance(20)) describe(node);
        if (_choices.chance(35)) node.setStateSet(_states.make());
        if (_choices.chance(8)) node.setNodeMask(_choices.one({0u, 1u, 0xf0u}));
        if (_choices.chance(30))
            node.setDataVariance(_choices.one({osg::Object::STATIC, osg::Object::DYNAMIC, osg::Object::STATIC}));
        if (_choices.chance(5)) node.setUpdateCallback(new Idle);
        if (_choices.chance(5)) node.setCullCallback(new Idle);
        if (_choices.chance(5)) node.setEventCallback(new Idle);
        if (_choices.chance(10)) addUserData(node);
        if (_choices.chance(5)) node.setCullingActive(false);
        if (_isWild && _choices.chance(5)) node.setInitialBound(osg::BoundingSphere(point(), number()));
    }
    void describe(osg::Node& node) {
        for (unsigned int i = 1 + _choices.below(3); i > 0; --i)
            node.addDescription(_choices.one<std::string>(
                {"LOD_Transition_Range 100", "LOD_Transition_Range 12.5 text", "LOD_Transition_Range",
                 "LOD_Transition_Range abc", "lod_transition_range 5", "", "a note", "LOD_Transition_RangeX 4",
                 "LOD_Transition_Range nan", "LOD_Transition_Range -3", "LOD_Transition_Range 1e39"}));
    }
    void addUserData(osg::Node& node) {
        osg::UserDataContainer* const known = _nodes.empty() ? nullptr : _choices.one(_nodes)->getUserDataContainer();
        if (known && _choices.chance(40)) return node.setUserDataContainer(known);  // as shallow copies do
        if (_choices.chance(50)) node.setUserValue("number", 7);
        if (_choices.chance(50)) node.setUserValue("short", static_cast<short>(7));
        if (_choices.chance(50)) node.setUserValue("yes", true);
        if (_choices.chance(50)) node.setUserData(new osg::Referenced);
        if (_choices.chance(30)) node.getOrCreateUserDataContainer()->addUserObject(new osg::Group);
    }

    // ---- Drawables
    osg::ref_ptr<osg::Array> makeVertices(unsigned int count) {
        if (!_arrays.empty() && _choices.chance(10)) return _choices.one(_arrays);
        osg::ref_ptr<osg::Array> result;
        if (_choices.chance(10)) {
            osg::ref_ptr<osg::Vec3dArray> exact = new osg::Vec3dArray;
            for (unsigned int i = 0; i < count; ++i) exact->push_back(point());
            result = exact;
        } else if (_choices.chance(5)) {
            osg::ref_ptr<osg::Vec2Array> flat = new osg::Vec2Array;
            for (unsigned int i = 0; i < count; ++i) flat->push_back(osg::Vec2(number(), 0));
            result = flat;
        } else {
            osg::ref_ptr<osg::Vec3Array> usual = new osg::Vec3Array;
            for (unsigned int i = 0; i < count; ++i) usual->push_back(point());
            result = usual;
        }
        _arrays.push_back(result);
        return result;
    }
    /** Indices are never beyond the vertices: nothing in OpenSceneGraph could stand that, not even its bounds. */
    osg::ref_ptr<osg::PrimitiveSet> makePrimitives(unsigned int vertices) {
        const auto mode =
            _choices.one<GLenum>({GL_TRIANGLES, GL_TRIANGLES, GL_POINTS, GL_LINES, GL_TRIANGLE_STRIP, GL_POLYGON});
        const unsigned int count = _choices.below(vertices + 1);
        const auto index = [&] { return _choices.below(vertices); };
        switch (_choices.below(6)) {
            case 1: {
                osg::ref_ptr<osg::DrawElementsUShort> elements = new osg::DrawElementsUShort(mode);
                for (unsigned int i = 0; i < count; ++i) elements->push_back(static_cast<GLushort>(index()));
                return elements;
            }
            case 2: {
                osg::ref_ptr<osg::DrawElementsUInt> elements = new osg::DrawElementsUInt(mode);
                for (unsigned int i = 0; i < count; ++i) elements->push_back(index());
                return elements;
            }
            case 3: {
                osg::ref_ptr<osg::DrawElementsUByte> elements = new osg::DrawElementsUByte(mode);
                for (unsigned int i = 0; i < count; ++i) elements->push_back(static_cast<GLubyte>(index()));
                return elements;
            }
            case 4: {
                osg::ref_ptr<osg::DrawArrayLengths> lengths = new osg::DrawArrayLengths(mode);
                lengths->push_back(static_cast<GLsizei>(count));
                return lengths;
            }
            default:
                return new osg::DrawArrays(mode, 0, static_cast<GLsizei>(count));
        }
    }
    osg::Array::Binding binding() {
        return _choices.one({osg::Array::BIND_PER_VERTEX, osg::Array::BIND_PER_VERTEX, osg::Array::BIND_OVERALL,
                             osg::Array::BIND_OFF, osg::Array::BIND_PER_PRIMITIVE_SET, osg::Array::BIND_UNDEFINED});
    }
    /** As many as there are vertices, or fewer, or none. */
    unsigned int lengthBeside(unsigned int vertices) {
        return _choices.chance(70) ? vertices : _choices.below(vertices + 1);
    }
    osg::ref_ptr<osg::Drawable> makeGeometryAsFromFile() {
        osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
        osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
        for (int i = 0; i < 3; ++i) vertices->push_back(point());
        geometry->setVertexArray(vertices);
        if (_choices.chance(50)) geometry->setNormalArray(new osg::Vec3Array(3), osg::Array::BIND_PER_VERTEX);
        if (_choices.chance(50)) geometry->setColorArray(new osg::Vec4Array(1), osg::Array::BIND_OVERALL);
        if (_choices.chance(50)) geometry->setTexCoordArray(0, new osg::Vec2Array(3));
        geometry->addPrimitiveSet(makePrimitives(3));
        return geometry;
    }
    osg::ref_ptr<osg::Drawable> makeGeometry() {
        if (_isFromFile) return makeGeometryAsFromFile();
        osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
        if (_choices.chance(5)) return geometry;
        const unsigned int wanted = _choices.one({3u, 3u, 4u, 0u, 1u, 6u});
        const osg::ref_ptr<osg::Array> vertices = makeVertices(wanted);
        const unsigned int count = vertices->getNumElements();
        geometry->setVertexArray(vertices);
        if (_choices.chance(40)) geometry->setNormalArray(new osg::Vec3Array(lengthBeside(count)), binding());
        if (_choices.chance(40)) geometry->setColorArray(new osg::Vec4Array(lengthBeside(count)), binding());
        if (_choices.chance(40))
            geometry->setTexCoordArray(_choices.one({0u, 0u, 1u, 7u}), new osg::Vec2Array(lengthBeside(count)));
        if (_choices.chance(5)) geometry->setVertexAttribArray(_choices.below(4), vertices);
        for (unsigned int i = _choices.one({1u, 1u, 2u, 0u}); i > 0; --i)
            geometry->addPrimitiveSet(makePrimitives(count));
        return geometry;
    }
    osg::ref_ptr<osg::Drawable> makeShape() {
        switch (_choices.below(3)) {
            case 0:
                return new osg::ShapeDrawable(new osg::Box(point(), 2.0f));
            case 1:
                return new osg::ShapeDrawable(new osg::Box(point(), 2.0f), new osg::TessellationHints);
            default:
                return new osg::ShapeDrawable;
        }
    }
    osg::ref_ptr<osg::Drawable> makeText() {
        osg::ref_ptr<osgText::Text> text = new osgText::Text;
        text->setPosition(point());
        if (_choices.chance(50)) text->setText("ab");
        if (_choices.chance(20)) text->setAutoRotateToScreen(true);
        // Not the one that it brings along: all texts of all graphs share that.
        text->setStateSet(_choices.chance(50) ? _states.make() : nullptr);
        return text;
    }
    osg::ref_ptr<osg::Drawable> makeDrawable() {
        if (!_drawables.empty() && _choices.chance(12)) return _choices.one(_drawables);
        osg::ref_ptr<osg::Drawable> drawable;
        const unsigned int kind = _choices.below(12);
        if (kind == 10 && !_isFromFile) drawable = makeShape();
        if (kind == 11) drawable = makeText();
        if (!drawable) drawable = makeGeometry();
        const bool isText = kind == 11;
        const osg::ref_ptr<osg::StateSet> own = drawable->getStateSet();
        decorate(*drawable);
        if (isText) drawable->setStateSet(own);
        if (_choices.chance(10)) drawable->setUseDisplayList(false);
        if (_choices.chance(10)) drawable->setUseVertexBufferObjects(true);
        _drawables.push_back(drawable);
        return drawable;
    }

    // ---- Nodes
    osg::ref_ptr<osg::Node> makeNode() {
        osg::ref_ptr<osg::Node> node = makeKind(_choices.below(36));
        if (!node->asDrawable()) decorate(*node);
        if (osg::Transform* transform = node->asTransform()) {
            if (_choices.chance(50)) transform->setDataVariance(osg::Object::STATIC);
            if (_choices.chance(7))
                transform->setReferenceFrame(
                    _choices.one({osg::Transform::ABSOLUTE_RF, osg::Transform::ABSOLUTE_RF_INHERIT_VIEWPOINT}));
        }
        return node;
    }
    osg::ref_ptr<osg::Node> makeKind(unsigned int kind) {
        switch (kind) {
            case 0:
            case 1:
            case 2:
                return new osg::Group;
            case 3:
            case 4:
                return makeTransform();
            case 5:
            case 6:
                return makeLOD(*new osg::LOD);
            case 7:
                return makePagedLOD();
            case 8:
                return makeProxy();
            case 9:
                return new osg::Switch;
            case 10:
                return new osg::Sequence;
            case 11:
                return makePlacement();
            case 12:
                return makeAutoTransform();
            case 13:
                return makeJoint();
            case 14:
                return makeMultiSwitch();
            case 15:
                return new osg::LightSource;
            case 16:
                return makeLights();
            case 17:
                return makeBillboard();
            case 18:
                return new osg::ClipNode;
            case 19:
                return makeCameraView();
            case 20:
                return makeCamera();
            case 21:
                return new osg::Projection(osg::Matrixd::identity());
            case 22:
                return makeCoordinateSystem();
            case 23:
                return makeOccluder();
            case 24:
                return new osg::TexGenNode;
            case 25:
                return new osg::Node;
            case 26:
                return new osg::Transform;
            case 27:
                return _isFromFile ? makeGeode() : makeGenerator();
            case 28:
            case 29:
                return makeDrawable();
            default:
                return makeGeode();
        }
    }
    osg::ref_ptr<osg::Node> makeGeode() {
        osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        for (unsigned int i = _choices.one({1u, 1u, 2u, 3u, 0u}); i > 0; --i) geode->addDrawable(makeDrawable());
        return geode;
    }
    osg::ref_ptr<osg::Node> makeTransform() { return new osg::MatrixTransform(matrix()); }
    osg::ref_ptr<osg::Node> makePlacement() {
        osg::ref_ptr<osg::PositionAttitudeTransform> transform = new osg::PositionAttitudeTransform;
        transform->setPosition(point());
        transform->setAttitude(attitude());
        transform->setScale(scales());
        if (_choices.chance(30)) transform->setPivotPoint(point());
        return transform;
    }
    osg::ref_ptr<osg::Node> makeAutoTransform() {
        osg::ref_ptr<osg::AutoTransform> transform = new osg::AutoTransform;
        transform->setPosition(point());
        transform->setRotation(attitude());
        transform->setScale(scales());
        if (_choices.chance(40)) transform->setAutoRotateMode(osg::AutoTransform::ROTATE_TO_SCREEN);
        if (_choices.chance(20)) transform->setAutoScaleToScreen(true);
        return transform;
    }
    osg::ref_ptr<osg::Node> makeJoint() {
        osg::ref_ptr<osgSim::DOFTransform> joint = new osgSim::DOFTransform;
        joint->setCurrentTranslate(point());
        if (_choices.chance(30)) joint->setPutMatrix(osg::Matrixd::translate(point()));
        joint->setCurrentScale(scales());  // that of a new one is 0
        return joint;
    }
    osg::ref_ptr<osg::Node> makeLOD(osg::LOD& lod) {
        if (_choices.chance(20)) lod.setRangeMode(osg::LOD::PIXEL_SIZE_ON_SCREEN);
        if (_choices.chance(30)) lod.setCenter(point());
        if (_choices.chance(20)) lod.setRadius(_choices.one({5.0f, 0.0f, 100.0f, -2.0f}));
        if (_choices.chance(20)) lod.setCenterMode(osg::LOD::UNION_OF_BOUNDING_SPHERE_AND_USER_DEFINED);
        return &lod;
    }
    osg::ref_ptr<osg::Node> makePagedLOD() {
        osg::ref_ptr<osg::PagedLOD> lod = new osg::PagedLOD;
        makeLOD(*lod);
        for (unsigned int i = _choices.below(3); i > 0; --i) lod->setFileName(i - 1, "tile.ive");
        return lod;
    }
    osg::ref_ptr<osg::Node> makeProxy() {
        osg::ref_ptr<osg::ProxyNode> proxy = new osg::ProxyNode;
        for (unsigned int i = _choices.one({1u, 1u, 0u, 2u}); i > 0; --i)
            proxy->setFileName(i - 1, _choices.one<std::string>({"tile.flt", "a.flt.flt", "x.flt2", "tile.osg", "",
                                                                 "missing.flt", "folder/tile.flt"}));
        if (_choices.chance(20)) proxy->setCenter(point());
        return proxy;
    }
    osg::ref_ptr<osg::Node> makeMultiSwitch() {
        osg::ref_ptr<osgSim::MultiSwitch> choices = new osgSim::MultiSwitch;
        if (_choices.chance(50)) choices->setActiveSwitchSet(_choices.below(3));
        return choices;
    }
    osg::ref_ptr<osg::Node> makeLights() {
        osg::ref_ptr<osgSim::LightPointNode> lights = new osgSim::LightPointNode;
        for (unsigned int i = _choices.below(3); i > 0; --i)
            lights->addLightPoint(osgSim::LightPoint(point(), osg::Vec4(1, 1, 0, 1)));
        return lights;
    }
    osg::ref_ptr<osg::Node> makeBillboard() {
        osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
        if (_choices.chance(30)) billboard->setMode(osg::Billboard::POINT_ROT_EYE);
        if (_choices.chance(30)) billboard->setAxis(point());
        if (_choices.chance(30)) billboard->setNormal(point());
        for (unsigned int i = _choices.below(3); i > 0; --i) billboard->addDrawable(makeDrawable(), point());
        return billboard;
    }
    osg::ref_ptr<osg::Node> makeCameraView() {
        osg::ref_ptr<osg::CameraView> view = new osg::CameraView;
        view->setPosition(point());
        view->setAttitude(attitude());
        return view;
    }
    osg::ref_ptr<osg::Node> makeCamera() {
        osg::ref_ptr<osg::Camera> camera = new osg::Camera;
        if (_choices.chance(80)) camera->setReferenceFrame(osg::Transform::RELATIVE_RF);
        camera->setViewMatrix(matrix());
        return camera;
    }
    osg::ref_ptr<osg::Node> makeCoordinateSystem() {
        osg::ref_ptr<osg::CoordinateSystemNode> system = new osg::CoordinateSystemNode("WKT", "");
        if (_choices.chance(50)) system->setEllipsoidModel(new osg::EllipsoidModel);
        return system;
    }
    osg::ref_ptr<osg::Node> makeOccluder() {
        osg::ref_ptr<osg::OccluderNode> node = new osg::OccluderNode;
        if (_choices.chance(50)) node->setOccluder(new osg::ConvexPlanarOccluder);
        return node;
    }
    osg::ref_ptr<osg::Node> makeGenerator() {
        osg::ref_ptr<veltrane::sceneutils::SimpleGeometryGenerator> generator =
            new veltrane::sceneutils::SimpleGeometryGenerator;
        if (_choices.chance(70)) generator->addLine(point(), point(), generator->createColor(_choices.below(64)));
        if (_choices.chance(30)) generator->addTriangle(point(), point(), point(), osg::Vec4(1, 0, 0, 1));
        if (_choices.chance(30)) generator->checkPointsGeometry();
        return generator;
    }

    // ---- The graph
    /** Nodes hang below earlier ones only, so there are no cycles. */
    osg::Group* groupBefore(std::size_t end) {
        for (unsigned int tries = 4; tries > 0; --tries) {
            osg::Group* group = _nodes[_choices.below(static_cast<unsigned int>(end))]->asGroup();
            if (group) return group;
        }
        return _nodes.front()->asGroup();
    }
    void hang(osg::Group& parent, osg::Node& child) {
        auto* billboard = dynamic_cast<osg::Billboard*>(&parent);
        if (billboard && child.asDrawable()) {
            // Never without a position: OpenSceneGraph's bound reads it, there or not.
            billboard->addDrawable(child.asDrawable(), point());
        } else if (_choices.chance(15)) {
            parent.addChild(&child);  // what each kind makes of it: no range, no position, its default
        } else if (auto* lod = dynamic_cast<osg::LOD*>(&parent)) {
            hangInLOD(*lod, child);
        } else if (auto* choice = dynamic_cast<osg::Switch*>(&parent)) {
            choice->addChild(&child, _choices.chance(50));
        } else if (auto* choices = dynamic_cast<osgSim::MultiSwitch*>(&parent)) {
            choices->addChild(&child);
            choices->setValue(_choices.below(2), choices->getNumChildren() - 1, _choices.chance(50));
        } else if (auto* sequence = dynamic_cast<osg::Sequence*>(&parent)) {
            sequence->addChild(&child, 0.5);
        } else {
            parent.addChild(&child);
        }
    }
    void hangInLOD(osg::LOD& lod, osg::Node& child) {
        const auto range = _choices.one<osg::LOD::MinMaxPair>(
            {{0, 20000}, {0, 20000}, {-1, 30000}, {0, 100}, {100, 1000}, {50, 1000}, {1000, 0}});
        lod.addChild(&child, range.first, _isWild && _choices.chance(10) ? number() : range.second);
        if (_choices.chance(7)) lod.setRange(lod.getNumChildren(), 0.0f, 10.0f);  // of a child that there is not
    }
    void addFurtherPlace(osg::Group& top) {
        if (_nodes.size() < 3) return;
        const unsigned int index = 2 + _choices.below(static_cast<unsigned int>(_nodes.size()) - 2);
        osg::Group* parent = groupBefore(index);
        hang(*parent, *_nodes[index]);
        if (countPaths(top) > mostPaths) parent->removeChildren(parent->getNumChildren() - 1, 1);
    }

    ByteChoices& _choices;
    bool _isWild;
    bool _isFromFile;
    StateFromBytes _states;
    std::vector<osg::ref_ptr<osg::Node>> _nodes;
    std::vector<osg::ref_ptr<osg::Drawable>> _drawables;
    std::vector<osg::ref_ptr<osg::Array>> _arrays;
};

}  // namespace

GraphFromBytes::GraphFromBytes(ByteChoices& choices, Geometries geometries)
    : isWild(geometries == Geometries::Any && choices.chance(30)) {
    top = Builder(choices, isWild, geometries == Geometries::AsFromFiles).build();
}

}  // namespace fuzzing
