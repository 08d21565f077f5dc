#include "ProgramOrigin.h"

#include "../files/PlainText.h"

#include <osg/Drawable>
#include <osg/PointSprite>
#include <osg/StateSet>
#include <osg/Texture>
#include <osg/Uniform>
#include <osgText/Text>

namespace veltrane::sceneutils::tool {

namespace {

osg::ref_ptr<osg::StateSet> stateInForce(const osg::NodePath& path) {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    for (const osg::Node* node : path) {
        if (node->getStateSet()) state->merge(*node->getStateSet());
    }
    return state;
}

std::string texturedUnits(const osg::StateSet& state) {
    std::string units;
    for (unsigned int unit = 0; unit < state.getNumTextureAttributeLists(); ++unit) {
        if (!state.getTextureAttribute(unit, osg::StateAttribute::TEXTURE)) continue;
        units += (units.empty() ? "" : ", ") + std::to_string(unit);
    }
    return units;
}

bool hasPointSprite(const osg::StateSet& state) {
    for (unsigned int unit = 0; unit < state.getNumTextureAttributeLists(); ++unit) {
        if (state.getTextureAttribute(unit, osg::StateAttribute::POINTSPRITE)) return true;
    }
    return false;
}

void addUnit(std::vector<std::string>& parts, const osg::StateSet& state, const char* name) {
    const osg::Uniform* uniform = state.getUniform(name);
    int unit = 0;
    const bool isInt = uniform && osg::Uniform::getGlApiType(uniform->getType()) == osg::Uniform::INT;
    if (isInt && uniform->get(unit)) parts.push_back(std::string(name) + " " + std::to_string(unit));
}

void addSettings(std::vector<std::string>& parts, const ShaderSettings& settings) {
    if (settings.shadowUnit >= 0) parts.push_back("shadow map on unit " + std::to_string(settings.shadowUnit));
    if (settings.lighting) parts.push_back("lighting");
    if (settings.normalMapping) parts.push_back("normal mapping");
    if (settings.fog) parts.push_back("fog");
}

}  // namespace

std::string placeOf(const ListedProgram& program) {
    std::string place;
    for (const osg::Node* node : program.user) {
        const std::string name = node->getName().empty() ? std::string("(") + node->className() + ")" : node->getName();
        place += (place.empty() ? "" : "/") + name;
    }
    return withoutControlCharacters(place);
}

std::vector<std::string> stateBehind(const ListedProgram& program, const ShaderSettings& settings) {
    const osg::ref_ptr<osg::StateSet> state = stateInForce(program.user);
    const osg::Node& user = *program.user.back();
    std::vector<std::string> parts;
    if (dynamic_cast<const osgText::Text*>(&user)) parts.push_back("text");
    const std::string units = texturedUnits(*state);
    parts.push_back(units.empty() ? "no textures" : "textures on units " + units);
    addUnit(parts, *user.getStateSet(), "NormalMapTex");
    addUnit(parts, *user.getStateSet(), "SpecMapTex");
    addUnit(parts, *state, "OverlayTex");
    if (state->getUniform("SunAmbient")) parts.push_back("SunAmbient");
    if (hasPointSprite(*state)) parts.push_back("point sprite");
    if (state->getAttribute(osg::StateAttribute::MATERIAL)) parts.push_back("material");
    if (program.kept < program.stateSets) addSettings(parts, settings);
    return parts;
}

}  // namespace veltrane::sceneutils::tool
