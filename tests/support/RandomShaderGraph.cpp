#include "support/RandomShaderGraph.h"

#include <osg/Fog>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LOD>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/PointSprite>
#include <osg/Program>
#include <osg/Switch>
#include <osg/Texture1D>
#include <osg/Texture2D>
#include <osgText/Text3D>
#include <osgText/Text>

#include <random>
#include <string>

namespace testing_support {

namespace {

/** An attribute that stands where a texture, a point sprite or a material would, and is none. */
template <osg::StateAttribute::Type type, bool onUnit>
class Placeholder : public osg::StateAttribute {
public:
    Placeholder() = default;
    Placeholder(const Placeholder& other, const osg::CopyOp& copyop) : osg::StateAttribute(other, copyop) {}
    META_StateAttribute(test, Placeholder, type);
    bool isTextureAttribute() const override { return onUnit; }
    int compare(const osg::StateAttribute& other) const override { return this == &other ? 0 : 1; }
};

/** An attribute beside the one that counts, of the same type. */
template <typename Attribute>
class SecondMember : public Attribute {
public:
    unsigned int getMember() const override { return 1; }
};

/** Makes the parts of a graph by chance and remembers them, so that some are used again. */
class Builder {
public:
    Builder(RandomShaderGraph& graph, unsigned int seed) : _graph(graph), _random(seed) { makeAttributes(); }

    void build() {
        makeAbove();
        _graph.root = makeNode(0);
        if (_graph.parent && chance(50)) _graph.parent->addChild(_graph.root);
    }

private:
    // Not a distribution of the standard library: those differ from library to library.
    unsigned int below(std::size_t count) { return static_cast<unsigned int>(_random() % count); }
    bool chance(unsigned int percent) { return below(100) < percent; }

    template <typename T>
    T oneOf(const std::vector<T>& values) {
        return values[below(values.size())];
    }

    osg::StateAttribute::OverrideValue strength() {
        using osg::StateAttribute;
        return oneOf<unsigned int>({0, StateAttribute::ON, StateAttribute::ON, StateAttribute::OVERRIDE,
                                    StateAttribute::ON | StateAttribute::OVERRIDE, StateAttribute::PROTECTED,
                                    StateAttribute::ON | StateAttribute::OVERRIDE | StateAttribute::PROTECTED});
    }

    osg::Vec4 color() {
        return oneOf<osg::Vec4>({{0, 0, 0, 1}, {0, 0, 0, 1}, {0, 0, 0, 0}, {1, 0, 0, 1}, {1, 1, 1, 1}});
    }

    osg::ref_ptr<osg::Material> makeMaterial() {
        osg::ref_ptr<osg::Material> material = chance(10) ? new SecondMember<osg::Material> : new osg::Material;
        material->setColorMode(
            oneOf<osg::Material::ColorMode>({osg::Material::AMBIENT, osg::Material::DIFFUSE, osg::Material::OFF,
                                             osg::Material::SPECULAR, osg::Material::AMBIENT_AND_DIFFUSE}));
        material->setAmbient(osg::Material::FRONT_AND_BACK, color());
        material->setDiffuse(osg::Material::FRONT_AND_BACK, color());
        if (chance(10)) material->setDiffuse(osg::Material::BACK, color());
        return material;
    }

    osg::ref_ptr<osg::Program> makeProgram() {
        osg::ref_ptr<osg::Program> program = new osg::Program;
        program->setName(oneOf<std::string>({"", "shader_t", "shader_t0", "shader_t0_lighting", "shader_t_lighting_fog",
                                             "shader_t01_fog", "shader_t0_text", "other"}));
        return program;
    }

    void makeAttributes() {
        for (int i = 0; i < 4; ++i) _attributes.push_back(makeMaterial());
        for (int i = 0; i < 2; ++i) _attributes.push_back(makeProgram());
        _attributes.push_back(new Placeholder<osg::StateAttribute::MATERIAL, false>);
        _attributes.push_back(new osg::Fog);
        _onUnits = {new osg::Texture2D,
                    new osg::Texture2D,
                    new osg::Texture1D,
                    new osg::PointSprite,
                    new SecondMember<osg::Texture2D>,
                    new SecondMember<osg::PointSprite>,
                    new Placeholder<osg::StateAttribute::TEXTURE, true>,
                    new Placeholder<osg::StateAttribute::POINTSPRITE, true>};
    }

    osg::ref_ptr<osg::Uniform> makeUniform() {
        const auto name = oneOf<std::string>({"NormalMapTex", "SpecMapTex", "OverlayTex", "OverlayTex", "SunAmbient",
                                              "BaseTexture0", "BaseTexture1", "ShadowMapTex", "y0"});
        if (chance(10)) return new osg::Uniform(name.c_str(), 1.5f);
        if (chance(10)) return new osg::Uniform(name.c_str(), osg::Vec4(1, 2, 3, 4));
        if (chance(5)) return new osg::Uniform(osg::Uniform::INT, name, 2);
        const auto type = oneOf<osg::Uniform::Type>({osg::Uniform::INT, osg::Uniform::INT, osg::Uniform::SAMPLER_2D});
        osg::ref_ptr<osg::Uniform> uniform = new osg::Uniform(type, name);
        uniform->set(oneOf<int>({0, 0, 1, 1, 2, 3, 64, -1, -2}));
        return uniform;
    }

    void addUniform(osg::StateSet& state) {
        if (_uniforms.empty() || chance(70)) _uniforms.push_back(makeUniform());
        state.addUniform(oneOf(_uniforms), strength());
    }

    void addOnUnit(osg::StateSet& state) {
        const auto unit = oneOf<unsigned int>({0, 0, 0, 1, 1, 2, 3, 12, 63, 64, 70});
        state.setTextureAttribute(unit, chance(50) ? _onUnits.front() : oneOf(_onUnits), strength());
        if (chance(20)) state.setTextureMode(unit, GL_TEXTURE_2D, strength());
    }

    osg::StateSet* makeState() {
        if (!_graph.states.empty() && chance(20)) return oneOf(_graph.states);
        osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
        for (unsigned int i = below(3); i > 0; --i) addOnUnit(*state);
        for (unsigned int i = below(3); i > 0; --i) state->setAttribute(oneOf(_attributes), strength());
        for (unsigned int i = below(3); i > 0; --i) addUniform(*state);
        if (chance(20)) state->setMode(oneOf<unsigned int>({GL_LIGHTING, GL_FOG}), strength());
        if (chance(10)) state->setRenderBinDetails(static_cast<int>(below(20)), "DepthSortedBin");
        _graph.states.push_back(state);
        return state;
    }

    osg::ref_ptr<osg::Drawable> makeDrawable() {
        osg::ref_ptr<osg::Drawable> drawable;
        if (chance(25)) drawable = new osgText::Text;
        if (!drawable && chance(10)) drawable = new osgText::Text3D;
        if (!drawable) drawable = new osg::Geometry;
        // Never the state set that a text brings along: all texts of all graphs share that one.
        drawable->setStateSet(chance(70) ? makeState() : nullptr);
        return drawable;
    }

    osg::ref_ptr<osg::Geode> makeGeode(int depth) {
        osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        for (unsigned int i = below(4); i > 0; --i) {
            geode->addChild(chance(80) ? osg::ref_ptr<osg::Node>(makeDrawable()) : makeNode(depth + 1));
        }
        return geode;
    }

    osg::ref_ptr<osg::Group> makeInnerNode(int depth) {
        const unsigned int kind = below(6);
        osg::ref_ptr<osg::Group> group = new osg::Group;
        if (kind == 0) group = new osg::MatrixTransform;
        if (kind == 1) group = new osg::Switch;
        if (kind == 2) group = new osg::LOD;
        for (unsigned int i = below(depth == 0 ? 6 : 4); i > 0; --i) group->addChild(makeNode(depth + 1));
        if (kind == 1 && group->getNumChildren()) static_cast<osg::Switch*>(group.get())->setValue(0, false);
        return group;
    }

    osg::ref_ptr<osg::Node> makeNode(int depth) {
        if (depth > 0 && !_nodes.empty() && chance(10)) return oneOf(_nodes);

        osg::ref_ptr<osg::Node> node;
        if (chance(depth == 0 ? 3 : 15)) {
            node = makeDrawable();
        } else if (depth > 4 || chance(depth == 0 ? 5 : 30)) {
            node = makeGeode(depth);
        } else {
            node = makeInnerNode(depth);
        }
        if (!node->asDrawable() && chance(60)) node->setStateSet(makeState());
        if (chance(3)) node->setNodeMask(0);
        _nodes.push_back(node);
        return node;
    }

    void makeAbove() {
        for (unsigned int i = below(4); i > 0; --i) {
            osg::ref_ptr<osg::Group> group = new osg::Group;
            if (chance(70)) group->setStateSet(makeState());
            if (_graph.parent) _graph.parent->addChild(group);
            if (_graph.parent && chance(20)) oneOf(_graph.above)->addChild(group);
            _graph.above.push_back(group);
            _graph.parent = group;
        }
    }

    RandomShaderGraph& _graph;
    std::mt19937 _random;
    std::vector<osg::ref_ptr<osg::StateAttribute>> _attributes;
    std::vector<osg::ref_ptr<osg::StateAttribute>> _onUnits;
    std::vector<osg::ref_ptr<osg::Uniform>> _uniforms;
    std::vector<osg::ref_ptr<osg::Node>> _nodes;
};

}  // namespace

RandomShaderGraph::RandomShaderGraph(unsigned int seed) {
    Builder(*this, seed).build();
}

}  // namespace testing_support
