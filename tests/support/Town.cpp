#include "support/Town.h"

#include "support/ShadedScenes.h"

#include <osg/BlendFunc>
#include <osg/Depth>
#include <osg/LOD>
#include <osg/Math>
#include <osg/MatrixTransform>
#include <osg/Sequence>
#include <osg/Switch>

#include <array>
#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace testing_support {

namespace {

constexpr int pondBin = 5;   // before the panes
constexpr int paneBin = 10;  // that of OpenSceneGraph's transparent parts
constexpr int blocksPerQuarter = 2;
constexpr int treesPerGrove = 6;

const osg::Vec4 white(1, 1, 1, 1);
const osg::Vec4 brown(0.45f, 0.3f, 0.15f, 1);
const osg::Vec4 leafGreen(0.2f, 0.5f, 0.2f, 1);
const osg::Vec4 red4(0.8f, 0.1f, 0.1f, 1);
const osg::Vec4 yellow(0.9f, 0.8f, 0.2f, 1);
const osg::Vec4 grey(0.6f, 0.6f, 0.65f, 1);
const osg::Vec4 paneColor(0.5f, 0.8f, 1.0f, 0.4f);
const std::array<osg::Vec4, 3> roofColors = {osg::Vec4(0.7f, 0.25f, 0.2f, 1), osg::Vec4(0.4f, 0.4f, 0.45f, 1),
                                             osg::Vec4(0.55f, 0.35f, 0.2f, 1)};

/** Triangles with a normal, a colour and texture coordinates at each vertex. */
class Shape {
public:
    Shape& quad(const osg::Vec3& corner, const osg::Vec3& right, const osg::Vec3& up, const osg::Vec4& color) {
        osg::Vec3 normal = right ^ up;
        normal.normalize();
        const auto first = static_cast<unsigned int>(_vertices->size());
        add(corner, normal, color, {0, 0});
        add(corner + right, normal, color, {1, 0});
        add(corner + right + up, normal, color, {1, 1});
        add(corner + up, normal, color, {0, 1});
        for (const unsigned int index : {0u, 1u, 2u, 0u, 2u, 3u}) _triangles->push_back(first + index);
        return *this;
    }

    /** Without a floor. */
    Shape& box(const osg::Vec3& corner, const osg::Vec3& size, const osg::Vec4& color, bool hasLid = true) {
        const osg::Vec3 x(size.x(), 0, 0);
        const osg::Vec3 y(0, size.y(), 0);
        const osg::Vec3 z(0, 0, size.z());
        quad(corner, x, z, color).quad(corner + x, y, z, color);
        quad(corner + x + y, -x, z, color).quad(corner + y, -y, z, color);
        if (hasLid) quad(corner + z, x, y, color);
        return *this;
    }

    /** A cone without a floor; four sides make a roof. */
    Shape& cone(const osg::Vec3& foot, float radius, float height, int sides, const osg::Vec4& color) {
        const float step = 2.0f * osg::PIf / static_cast<float>(sides);
        for (int i = 0; i < sides; ++i) {
            const float from = step * (static_cast<float>(i) + 0.5f);
            const osg::Vec3 left = foot + osg::Vec3(std::cos(from), std::sin(from), 0) * radius;
            const osg::Vec3 right = foot + osg::Vec3(std::cos(from + step), std::sin(from + step), 0) * radius;
            triangle(left, right, foot + osg::Vec3(0, 0, height), color);
        }
        return *this;
    }

    osg::ref_ptr<osg::Geode> geode(osg::StateSet* state = nullptr) const {
        const osg::ref_ptr<osg::Geode> geode = makeGeode(drawable());
        geode->setStateSet(state);
        return geode;
    }

    osg::ref_ptr<osg::Geometry> drawable() const {
        osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
        geometry->setVertexArray(_vertices);
        geometry->setNormalArray(_normals);
        geometry->setColorArray(_colors);
        geometry->setTexCoordArray(0, _coordinates);
        geometry->addPrimitiveSet(_triangles);
        return geometry;
    }

private:
    void triangle(const osg::Vec3& a, const osg::Vec3& b, const osg::Vec3& c, const osg::Vec4& color) {
        osg::Vec3 normal = (b - a) ^ (c - a);
        normal.normalize();
        for (const osg::Vec3& corner : {a, b, c}) {
            _triangles->push_back(static_cast<unsigned int>(_vertices->size()));
            add(corner, normal, color, {0, 0});
        }
    }

    void add(const osg::Vec3& vertex, const osg::Vec3& normal, const osg::Vec4& color, const osg::Vec2& coordinate) {
        _vertices->push_back(vertex);
        _normals->push_back(normal);
        _colors->push_back(color);
        _coordinates->push_back(coordinate);
    }

    osg::ref_ptr<osg::Vec3Array> _vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> _normals = new osg::Vec3Array(osg::Array::BIND_PER_VERTEX);
    osg::ref_ptr<osg::Vec4Array> _colors = new osg::Vec4Array(osg::Array::BIND_PER_VERTEX);
    osg::ref_ptr<osg::Vec2Array> _coordinates = new osg::Vec2Array(osg::Array::BIND_PER_VERTEX);
    osg::ref_ptr<osg::DrawElementsUInt> _triangles = new osg::DrawElementsUInt(GL_TRIANGLES);
};

osg::ref_ptr<osg::StateSet> makeTextured(const osg::Vec4& light, const osg::Vec4& dark, int stripes) {
    osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    const auto paint = [=](const osg::Vec2& p) {
        const auto row = static_cast<int>(p.y() * static_cast<float>(stripes));
        const auto column = static_cast<int>(p.x() * static_cast<float>(stripes));
        return (row + column) % 2 == 0 ? light : dark;
    };
    state->setTextureAttributeAndModes(0, makePainted(paint));
    return state;
}

osg::ref_ptr<osg::StateSet> makePondState() {
    const osg::ref_ptr<osg::StateSet> state =
        makeTextured(osg::Vec4(0.5f, 0.7f, 1.0f, 0.8f), osg::Vec4(0.2f, 0.4f, 0.8f, 0.5f), 4);
    state->setMode(GL_BLEND, osg::StateAttribute::ON);
    state->setRenderBinDetails(pondBin, "DepthSortedBin");
    return state;
}

osg::ref_ptr<osg::StateSet> makePaneState() {
    osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->setAttributeAndModes(new osg::BlendFunc);
    state->setAttribute(new osg::Depth(osg::Depth::LESS, 0.0, 1.0, false));
    state->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    state->setRenderBinDetails(paneBin, "DepthSortedBin");
    return state;
}

class Builder {
public:
    explicit Builder(const TownSettings& settings) : _settings(settings), _random(settings.seed) {
        for (const osg::Vec4& roof : roofColors) _houses.push_back(makeHouse(roof));
    }

    osg::ref_ptr<osg::Group> build() {
        const osg::ref_ptr<osg::Group> town = makeNamed("town");
        const osg::ref_ptr<osg::Material> material = new osg::Material;
        material->setColorMode(osg::Material::AMBIENT_AND_DIFFUSE);
        town->getOrCreateStateSet()->setAttribute(material);
        town->getOrCreateStateSet()->setMode(GL_NORMALIZE, osg::StateAttribute::ON);
        for (int y = 0; y < _settings.blocksPerSide; y += blocksPerQuarter) {
            for (int x = 0; x < _settings.blocksPerSide; x += blocksPerQuarter) town->addChild(makeQuarter(x, y));
        }
        return town;
    }

private:
    // Not a distribution of the standard library: those differ from library to library.
    int below(int count) { return static_cast<int>(_random() % static_cast<unsigned int>(count)); }

    osg::ref_ptr<osg::Group> makeNamed(const std::string& name) {
        osg::ref_ptr<osg::Group> group = new osg::Group;
        group->setName(name);
        group->addDescription(name + ", number " + std::to_string(++_named));
        return group;
    }

    static osg::ref_ptr<osg::MatrixTransform> place(const osg::ref_ptr<osg::Node>& model, const osg::Matrixd& matrix) {
        osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(matrix);
        transform->setDataVariance(osg::Object::STATIC);
        transform->addChild(model);
        return transform;
    }

    osg::ref_ptr<osg::Group> makeHouse(const osg::Vec4& roofColor) {
        const osg::ref_ptr<osg::Group> house = makeNamed("house");
        house->addChild(Shape().box(osg::Vec3(-5, -5, 0), osg::Vec3(10, 10, 6), white, false).geode(_facade));
        house->addChild(Shape().cone(osg::Vec3(0, 0, 6), 5 * std::sqrt(2.0f), 4, 4, roofColor).geode());
        const osg::ref_ptr<osg::Geometry> pane =
            Shape().quad(osg::Vec3(-3, -7, 0), osg::Vec3(6, 0, 0), osg::Vec3(0, 0, 3), paneColor).drawable();
        pane->setStateSet(_panes);
        house->addChild(makeGeode(pane));
        return house;
    }

    osg::ref_ptr<osg::LOD> makeTree() {
        osg::ref_ptr<osg::LOD> tree = new osg::LOD;
        tree->setName("tree");
        const osg::Vec3 crown(0, 0, 2);
        Shape fine, coarse;
        fine.box(osg::Vec3(-0.4f, -0.4f, 0), osg::Vec3(0.8f, 0.8f, 2.5f), brown).cone(crown, 2.5f, 7, 12, leafGreen);
        coarse.box(osg::Vec3(-0.4f, -0.4f, 0), osg::Vec3(0.8f, 0.8f, 2.5f), brown).cone(crown, 2.5f, 7, 8, leafGreen);
        tree->addChild(fine.geode(), 0.0f, townTreeSwitch);
        tree->addChild(coarse.geode(), townTreeSwitch, townTreeEnd);
        return tree;
    }

    osg::ref_ptr<osg::Node> makePlacedHouse(const osg::Vec3d& at) {
        const osg::ref_ptr<osg::Node> house = _houses[static_cast<std::size_t>(below(3))];
        const double turn = osg::DegreesToRadians(static_cast<double>(below(360)));
        const osg::ref_ptr<osg::Node> placed =
            place(house, osg::Matrixd::rotate(turn, osg::Z_AXIS) * osg::Matrixd::translate(at));
        if (below(2) == 0) return placed;
        const osg::ref_ptr<osg::LOD> always = new osg::LOD;
        always->addChild(placed, 0.0f, 20000.0f);
        return always;
    }

    /** Trees side by side, of one size so that their ranges stay the same. */
    osg::ref_ptr<osg::Group> makeGrove(const osg::Vec3d& corner) {
        const osg::ref_ptr<osg::Group> grove = makeNamed("grove");
        for (int i = 0; i < treesPerGrove; ++i) {
            const osg::Vec3d at = corner + osg::Vec3d(i % 3 * 6 + below(2), i / 3 * 8 + below(3), 0);
            grove->addChild(place(_tree, osg::Matrixd::translate(at)));
        }
        return grove;
    }

    osg::ref_ptr<osg::Group> makeBenches(const osg::Vec3& corner) {
        const osg::ref_ptr<osg::Group> benches = makeNamed("benches");
        for (int i = 0; i < 2; ++i) {
            const osg::Vec3 at = corner + osg::Vec3(0, static_cast<float>(4 * i), 0);
            benches->addChild(Shape().box(at, osg::Vec3(3, 1, 0.8f), brown).geode());
        }
        return benches;
    }

    static osg::ref_ptr<osg::Switch> makeGate(const osg::Vec3& corner, bool isOpen) {
        osg::ref_ptr<osg::Switch> gate = new osg::Switch;
        gate->setName("gate");
        gate->addChild(Shape().box(corner, osg::Vec3(6, 0.5f, 1.5f), red4).geode(), !isOpen);
        gate->addChild(Shape().box(corner, osg::Vec3(0.5f, 0.5f, 6), red4).geode(), isOpen);
        return gate;
    }

    /** It shows its first light as long as the time stands still. */
    static osg::ref_ptr<osg::Sequence> makeLamp(const osg::Vec3& foot) {
        osg::ref_ptr<osg::Sequence> lamp = new osg::Sequence;
        lamp->addChild(Shape().box(foot, osg::Vec3(1, 1, 12), yellow).geode(), 1.0);
        lamp->addChild(Shape().box(foot, osg::Vec3(1, 1, 12), grey).geode(), 1.0);
        lamp->setInterval(osg::Sequence::LOOP, 0, -1);
        lamp->setDuration(1.0f, -1);
        lamp->setMode(osg::Sequence::START);
        return lamp;
    }

    osg::ref_ptr<osg::Group> makeWindmill(const osg::Vec3& foot) {
        const osg::ref_ptr<osg::Group> windmill = makeNamed("windmill");
        windmill->addChild(Shape().cone(foot, 3, 18, 10, white).geode());
        const osg::ref_ptr<osg::MatrixTransform> rotor = new osg::MatrixTransform(
            osg::Matrixd::rotate(0.3, osg::Y_AXIS) * osg::Matrixd::translate(foot + osg::Vec3(0, -3, 15)));
        rotor->setDataVariance(osg::Object::DYNAMIC);
        const osg::Vec3 wide(14, 0, 0), high(0, 0, 14), thin(1, 0, 0), low(0, 0, 1);
        rotor->addChild(Shape().quad((wide + low) * -0.5f, wide, low, grey).geode());
        rotor->addChild(Shape().quad((thin + high) * -0.5f + osg::Vec3(0, -0.5f, 0), thin, high, grey).geode());
        windmill->addChild(rotor);
        return windmill;
    }

    osg::ref_ptr<osg::Group> makeBlock(int column, int row) {
        const osg::ref_ptr<osg::Group> block = makeNamed("block");
        const osg::Vec3 corner = osg::Vec3(static_cast<float>(column), static_cast<float>(row), 0) * townBlock;
        const osg::Vec3 east(townBlock, 0, 0), north(0, townBlock, 0);
        block->addChild(Shape().quad(corner, east, north, white).geode(_grass));
        for (const auto& [x, y] : {std::pair(12, 12), std::pair(48, 14), std::pair(14, 46)})
            block->addChild(makePlacedHouse(osg::Vec3d(corner) + osg::Vec3d(x, y, 0)));
        block->addChild(makeGrove(osg::Vec3d(corner) + osg::Vec3d(38, 38, 0)));
        block->addChild(makeBenches(corner + osg::Vec3(30, 20, 0)));
        block->addChild(makeGate(corner + osg::Vec3(28, 2, 0), (row + column) % 2 == 0));
        const osg::Vec3 pond = corner + osg::Vec3(25, 32, 1);
        block->addChild(Shape().quad(pond, osg::Vec3(9, 0, 0), osg::Vec3(0, 12, 0), white).geode(_water));
        return block;
    }

    osg::ref_ptr<osg::Group> makeQuarter(int column, int row) {
        const osg::ref_ptr<osg::Group> quarter = makeNamed("quarter");
        for (int y = row; y < std::min(row + blocksPerQuarter, _settings.blocksPerSide); ++y) {
            for (int x = column; x < std::min(column + blocksPerQuarter, _settings.blocksPerSide); ++x)
                quarter->addChild(makeBlock(x, y));
        }
        const osg::Vec3 corner = osg::Vec3(static_cast<float>(column), static_cast<float>(row), 0) * townBlock;
        quarter->addChild(makeLamp(corner + osg::Vec3(30, 29, 0)));
        quarter->addChild(makeWindmill(corner + osg::Vec3(28, 52, 0)));
        return quarter;
    }

    TownSettings _settings;
    std::mt19937 _random;
    int _named = 0;
    osg::ref_ptr<osg::StateSet> _facade = makeTextured(white, osg::Vec4(0.6f, 0.5f, 0.4f, 1), 6);
    osg::ref_ptr<osg::StateSet> _grass =
        makeTextured(osg::Vec4(0.45f, 0.65f, 0.35f, 1), osg::Vec4(0.4f, 0.6f, 0.3f, 1), 8);
    osg::ref_ptr<osg::StateSet> _water = makePondState();
    osg::ref_ptr<osg::StateSet> _panes = makePaneState();
    std::vector<osg::ref_ptr<osg::Group>> _houses;
    osg::ref_ptr<osg::LOD> _tree = makeTree();
};

}  // namespace

osg::ref_ptr<osg::Group> makeTown(const TownSettings& settings) {
    return Builder(settings).build();
}

}  // namespace testing_support
