#include "support/LiteralShaderWalk.h"

#include "support/ExpectedShaders.h"

#include <osg/Geode>
#include <osg/Material>
#include <osg/PointSprite>
#include <osg/Texture>
#include <osgText/Text>

#include <iostream>

namespace testing_support {

namespace {

using veltrane::sceneutils::ShaderFeatures;

bool readInt(const osg::Uniform& uniform, int& value) {
    return osg::Uniform::getGlApiType(uniform.getType()) == osg::Uniform::INT && uniform.get(value);
}

int readUnit(const osg::Uniform* uniform, bool reports) {
    int unit = -1;
    if (!uniform || readInt(*uniform, unit)) return unit;
    if (reports) {
        std::cerr << "Unable to get the texture unit\n"
                  << "type = " << osg::Uniform::getTypename(uniform->getType()) << "\n"
                  << "get num internal = " << uniform->getInternalArrayNumElements() << "\n";
    }
    return -1;
}

void fixColors(osg::Material& material) {
    constexpr auto face = osg::Material::FRONT_AND_BACK;
    const osg::Vec4 black(0.0f, 0.0f, 0.0f, 1.0f);
    const osg::Vec4 white(1.0f, 1.0f, 1.0f, 1.0f);
    switch (material.getColorMode()) {
        case osg::Material::AMBIENT:
            if (material.getDiffuse(face) == black) material.setDiffuse(face, white);
            break;
        case osg::Material::DIFFUSE:
            if (material.getAmbient(face) == black) material.setAmbient(face, white);
            break;
        case osg::Material::OFF:
            if (material.getAmbient(face) == black) material.setAmbient(face, white);
            if (material.getDiffuse(face) == black) material.setDiffuse(face, white);
            break;
        default:
            break;
    }
}

void findUnits(ShaderFeatures& features, const osg::StateSet& accumulated) {
    for (unsigned int unit = 0; unit < accumulated.getNumTextureAttributeLists(); ++unit) {
        const int number = static_cast<int>(unit);
        const auto* texture = accumulated.getTextureAttribute(unit, osg::StateAttribute::TEXTURE);
        if (dynamic_cast<const osg::Texture*>(texture) && number != features.normalMapUnit &&
            number != features.specMapUnit) {
            features.textureUnits.push_back(number);
        }
        const auto* sprite = accumulated.getTextureAttribute(unit, osg::StateAttribute::POINTSPRITE);
        if (dynamic_cast<const osg::PointSprite*>(sprite)) features.pointSprite = true;
    }
}

}  // namespace

LiteralShaderWalk::LiteralShaderWalk(int shadowTexUnit)
    : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _shadowTexUnit(shadowTexUnit) {}

void LiteralShaderWalk::process(osg::Node* node, osg::Group* parent, bool shadow, bool lighting, bool normalMapping,
                                bool fog) {
    const int remembered = _shadowTexUnit;
    if (!shadow) _shadowTexUnit = -1;
    _lighting = lighting;
    _normalMapping = normalMapping;
    _fog = fog;

    osg::ref_ptr<osg::StateSet> start = new osg::StateSet;
    if (parent) {
        const osg::NodePathList paths = parent->getParentalNodePaths();
        for (osg::Node* ancestor : paths.front()) {
            if (ancestor->getStateSet()) start->merge(*ancestor->getStateSet());
        }
    }
    _stateSetStack.push_back(start);
    node->accept(*this);
    _stateSetStack.pop_back();

    osg::StateSet* rootState = node->getOrCreateStateSet();
    applyStateSet(rootState, rootState, nullptr);
    _shadowTexUnit = remembered;
}

void LiteralShaderWalk::apply(osg::Node& node) {
    const osg::ref_ptr<osg::StateSet> accumulated = new osg::StateSet;
    if (!_stateSetStack.empty()) accumulated->merge(*_stateSetStack.back());
    if (node.getStateSet()) {
        accumulated->merge(*node.getStateSet());
        applyStateSet(node.getStateSet(), accumulated, node.asDrawable());
    }

    osg::Geode* geode = node.asGeode();
    if (!geode) {
        _stateSetStack.push_back(accumulated);
        traverse(node);
        _stateSetStack.pop_back();
        return;
    }
    for (unsigned int i = 0; i < geode->getNumDrawables(); ++i) {
        osg::Drawable* drawable = geode->getDrawable(i);
        if (!drawable || !drawable->getStateSet()) continue;
        const osg::ref_ptr<osg::StateSet> withDrawable = new osg::StateSet;
        withDrawable->merge(*accumulated);
        withDrawable->merge(*drawable->getStateSet());
        applyStateSet(drawable->getStateSet(), withDrawable, drawable);
    }
}

void LiteralShaderWalk::applyStateSet(osg::StateSet* own, osg::StateSet* accumulated, osg::Drawable* drawable) {
    if (onClassification) onClassification(own, accumulated, drawable);

    auto* material = dynamic_cast<osg::Material*>(accumulated->getAttribute(osg::StateAttribute::MATERIAL));
    if (material) fixColors(*material);

    ShaderFeatures features;
    features.lighting = _lighting;
    features.normalMapping = _normalMapping;
    features.shadowUnit = _shadowTexUnit;
    features.fog = _fog;
    features.sunUniforms = accumulated->getUniform("SunAmbient") != nullptr;
    features.normalMapUnit = readUnit(own->getUniform("NormalMapTex"), true);
    features.specMapUnit = readUnit(own->getUniform("SpecMapTex"), true);
    features.overlayUnit = readUnit(accumulated->getUniform("OverlayTex"), false);
    features.text = dynamic_cast<osgText::Text*>(drawable) != nullptr;
    if (features.text) features.textureUnits.push_back(0);
    if (!features.text) findUnits(features, *accumulated);
    features.name = expectedProgramName(features);

    auto* present = dynamic_cast<osg::Program*>(own->getAttribute(osg::StateAttribute::PROGRAM));
    if (present && present->getName() == features.name) return;

    osg::Program* program = getOrCreateProgram(features);
    for (const int unit : features.textureUnits) {
        own->addUniform(new osg::Uniform(("BaseTexture" + std::to_string(unit)).c_str(), unit),
                        osg::StateAttribute::ON);
    }
    own->setAttribute(program);
    if (_shadowTexUnit != -1)
        own->addUniform(new osg::Uniform("ShadowMapTex", _shadowTexUnit), osg::StateAttribute::ON);
}

osg::Program* LiteralShaderWalk::getOrCreateProgram(const ShaderFeatures& features) {
    if (onProgramRequest) onProgramRequest(features);
    osg::ref_ptr<osg::Program>& program = _programs[features.name];
    if (program) return program;

    const RunSettings run{_lighting, _normalMapping, _fog, _shadowTexUnit};
    program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, expectedFragmentText(features, run)));
    program->addShader(new osg::Shader(osg::Shader::VERTEX, expectedVertexText(features, run)));
    program->setName(features.name);
    return program;
}

}  // namespace testing_support
