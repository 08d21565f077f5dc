#include "StateFromBytes.h"

#include <osg/BlendFunc>
#include <osg/Fog>
#include <osg/LightModel>
#include <osg/Material>
#include <osg/Point>
#include <osg/PointSprite>
#include <osg/PolygonMode>
#include <osg/Program>
#include <osg/TexEnv>
#include <osg/TexGen>
#include <osg/Texture1D>
#include <osg/Texture2D>
#include <osg/TextureCubeMap>
#include <osg/ValueObject>

#include <string>

namespace fuzzing {

osg::ref_ptr<osg::StateSet> StateFromBytes::make() {
    if (!_states.empty() && _choices.chance(25)) return _choices.one(_states);

    osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    for (unsigned int i = _choices.below(4); i > 0; --i) addOnUnit(*state);
    for (unsigned int i = _choices.below(3); i > 0; --i) {
        if (_attributes.empty() || _choices.chance(70)) _attributes.push_back(makeAttribute());
        state->setAttribute(_choices.one(_attributes), strength());
    }
    for (unsigned int i = _choices.below(3); i > 0; --i) {
        if (_uniforms.empty() || _choices.chance(70)) _uniforms.push_back(makeUniform());
        state->addUniform(_choices.one(_uniforms), strength());
    }
    for (unsigned int i = _choices.below(3); i > 0; --i)
        state->setMode(_choices.one<GLenum>({GL_LIGHTING, GL_FOG, GL_BLEND, GL_LIGHT0, GL_CULL_FACE, 0, 0xffff}),
                       strength());
    if (_choices.chance(15)) addOddities(*state);
    _states.push_back(state);
    return state;
}

osg::StateAttribute::OverrideValue StateFromBytes::strength() {
    using osg::StateAttribute;
    return _choices.one<unsigned int>({StateAttribute::ON, StateAttribute::ON, StateAttribute::OFF,
                                       StateAttribute::OVERRIDE, StateAttribute::ON | StateAttribute::OVERRIDE,
                                       StateAttribute::PROTECTED, StateAttribute::ON | StateAttribute::PROTECTED,
                                       StateAttribute::INHERIT,
                                       StateAttribute::ON | StateAttribute::OVERRIDE | StateAttribute::PROTECTED});
}

osg::ref_ptr<osg::Image> StateFromBytes::makeImage() {
    if (_choices.chance(20)) return nullptr;
    if (!_images.empty() && _choices.chance(25)) return _choices.one(_images);
    osg::ref_ptr<osg::Image> image = new osg::Image;
    if (_choices.chance(70)) image->allocateImage(1, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE);
    image->setFileName(_choices.one<std::string>({"a.rgb", "b.rgb", "wall_normal.rgb", "c.RGB", "no_extension", "",
                                                  ".rgb", "rgb", "folder.rgb/file", "ends_in_dot.", "two..rgb",
                                                  "folder\\d.rgb", "line\nbreak.rgb", "e.rgba", "\xff.rgb"}));
    _images.push_back(image);
    return image;
}

osg::ref_ptr<osg::StateAttribute> StateFromBytes::makeTexture() {
    switch (_choices.below(5)) {
        case 1:
            return new osg::Texture1D(makeImage().get());
        case 2: {
            osg::ref_ptr<osg::TextureCubeMap> cube = new osg::TextureCubeMap;
            for (unsigned int face = 0; face < 6; ++face) cube->setImage(face, makeImage());
            return cube;
        }
        default:
            return new osg::Texture2D(makeImage().get());
    }
}

osg::ref_ptr<osg::StateAttribute> StateFromBytes::makeOnUnit() {
    switch (_choices.below(10)) {
        case 7:
            return new osg::PointSprite;
        case 8:
            return new osg::TexGen;
        case 9:
            return new osg::TexEnv;
        default:
            return makeTexture();
    }
}

void StateFromBytes::addOnUnit(osg::StateSet& state) {
    const auto unit = _choices.one<unsigned int>({0, 0, 0, 0, 1, 1, 2, 3, 4, 7, 8, 12, 63, 64});
    if (_onUnits.empty() || _choices.chance(70)) _onUnits.push_back(makeOnUnit());
    state.setTextureAttribute(unit, _choices.one(_onUnits), strength());
    if (_choices.chance(30)) state.setTextureMode(unit, GL_TEXTURE_2D, strength());
}

osg::ref_ptr<osg::StateAttribute> StateFromBytes::makeMaterial() {
    osg::ref_ptr<osg::Material> material = new osg::Material;
    material->setColorMode(_choices.one<osg::Material::ColorMode>(
        {osg::Material::OFF, osg::Material::AMBIENT, osg::Material::DIFFUSE, osg::Material::SPECULAR,
         osg::Material::EMISSION, osg::Material::AMBIENT_AND_DIFFUSE}));
    const auto color = [this] {
        return _choices.one<osg::Vec4>({{0, 0, 0, 1}, {0, 0, 0, 1}, {0, 0, 0, 0}, {1, 0, 0, 1}, {1, 1, 1, 1}});
    };
    material->setAmbient(osg::Material::FRONT_AND_BACK, color());
    material->setDiffuse(osg::Material::FRONT_AND_BACK, color());
    if (_choices.chance(10)) material->setDiffuse(osg::Material::BACK, color());
    return material;
}

osg::ref_ptr<osg::StateAttribute> StateFromBytes::makeProgram() {
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName(_choices.one<std::string>(
        {"", "shader_t", "shader_t0", "shader_t0_lighting", "shader_t_lighting_fog", "shader_t0_text", "other"}));
    if (_choices.chance(50)) program->addShader(new osg::Shader(osg::Shader::VERTEX, "void main() {}"));
    return program;
}

osg::ref_ptr<osg::StateAttribute> StateFromBytes::makeAttribute() {
    switch (_choices.below(10)) {
        case 0:
            return new osg::Fog;
        case 1:
            return new osg::PolygonMode(osg::PolygonMode::FRONT_AND_BACK, osg::PolygonMode::LINE);
        case 2:
            return new osg::LightModel;
        case 3:
            return new osg::BlendFunc;
        case 4:
            return new osg::Point(3.0f);
        case 5:
        case 6:
            return makeProgram();
        default:
            return makeMaterial();
    }
}

osg::ref_ptr<osg::Uniform> StateFromBytes::makeUniform() {
    const auto name = _choices.one<std::string>({"NormalMapTex", "NormalMapTex", "SpecMapTex", "OverlayTex",
                                                 "SunAmbient", "BaseTexture0", "BaseTexture1", "ShadowMapTex", "y0"});
    if (_choices.chance(10)) return new osg::Uniform(name.c_str(), 1.5f);
    if (_choices.chance(10)) return new osg::Uniform(name.c_str(), osg::Vec4(1, 2, 3, 4));
    if (_choices.chance(5)) return new osg::Uniform(osg::Uniform::INT, name, 2);
    const auto type = _choices.one({osg::Uniform::INT, osg::Uniform::INT, osg::Uniform::SAMPLER_2D});
    osg::ref_ptr<osg::Uniform> uniform = new osg::Uniform(type, name);
    uniform->set(_choices.one<int>({0, 0, 1, 1, 2, 3, 7, 8, 64, -1, -2}));
    return uniform;
}

void StateFromBytes::addOddities(osg::StateSet& state) {
    if (_choices.chance(50)) state.setRenderBinDetails(static_cast<int>(_choices.below(20)), "DepthSortedBin");
    if (_choices.chance(30)) state.setName("state");
    if (_choices.chance(30)) state.setUserData(new osg::IntValueObject("number", 1));
    state.setDataVariance(_choices.one({osg::Object::UNSPECIFIED, osg::Object::STATIC, osg::Object::DYNAMIC}));
}

}  // namespace fuzzing
