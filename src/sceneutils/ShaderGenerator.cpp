#include <sceneutils/ShaderGenerator.h>

#include "ShaderFeatureTable.h"
#include "ShaderFile.h"
#include "ShaderState.h"
#include "ShaderText.h"

#include <OpenThreads/ScopedLock>
#include <osg/Geode>
#include <osg/Material>
#include <osg/Shader>
#include <osg/Uniform>
#include <osgText/Text>

#include <fstream>
#include <iostream>
#include <utility>

namespace veltrane::sceneutils {

namespace {

constexpr int noUnit = -1;
constexpr int textTextureUnit = 0;
constexpr std::size_t usualTextureUnits = 8;

const std::string normalMapName = "NormalMapTex";
const std::string specMapName = "SpecMapTex";

const osg::Vec4 black(0.0f, 0.0f, 0.0f, 1.0f);
const osg::Vec4 white(1.0f, 1.0f, 1.0f, 1.0f);

/** Gives a member another value for the length of a scope. */
template <typename T>
class ScopedValue {
public:
    explicit ScopedValue(T& variable) : _variable(variable), _remembered(variable) {}
    ~ScopedValue() { _variable = _remembered; }
    ScopedValue(const ScopedValue&) = delete;
    ScopedValue& operator=(const ScopedValue&) = delete;

private:
    T& _variable;
    T _remembered;
};

/** Takes off a stack what is pushed in a scope, also when a callback of the graph throws in it. */
template <typename T>
class ScopedDepth {
public:
    explicit ScopedDepth(std::vector<T>& stack) : _stack(stack), _depth(stack.size()) {}
    ~ScopedDepth() {
        while (_stack.size() > _depth) _stack.pop_back();
    }
    ScopedDepth(const ScopedDepth&) = delete;
    ScopedDepth& operator=(const ScopedDepth&) = delete;

private:
    std::vector<T>& _stack;
    std::size_t _depth;
};

osg::ref_ptr<osg::StateSet> inheritedState(const osg::Group* parent) {
    osg::ref_ptr<osg::StateSet> inherited = new osg::StateSet;
    if (!parent) return inherited;

    const osg::NodePathList paths = parent->getParentalNodePaths();
    if (paths.empty()) return inherited;
    for (const osg::Node* ancestor : paths.front()) {
        if (ancestor->getStateSet()) inherited->merge(*ancestor->getStateSet());
    }
    return inherited;
}

// Asked for its type first, because osg::Uniform::get() writes a warning of its own when the types do not match.
bool readInt(const osg::Uniform& uniform, int& value) {
    return osg::Uniform::getGlApiType(uniform.getType()) == osg::Uniform::INT && uniform.get(value);
}

int readUnitOrReport(const osg::Uniform* uniform) {
    if (!uniform) return noUnit;

    int unit = noUnit;
    if (readInt(*uniform, unit)) return unit;
    std::cerr << "Unable to get the texture unit\n";
    std::cerr << "type = " << osg::Uniform::getTypename(uniform->getType()) << "\n";
    std::cerr << "get num internal = " << uniform->getInternalArrayNumElements() << "\n";
    return noUnit;
}

int readUnit(const osg::Uniform* uniform) {
    int unit = noUnit;
    if (!uniform || !readInt(*uniform, unit)) return noUnit;
    return unit;
}

// A colour that the colour mode leaves to the material is often left black there, where nobody saw it. The programs
// multiply with it, and the surface would be black.
void whitenColorsLeftToTheMaterial(osg::Material& material) {
    constexpr auto face = osg::Material::FRONT_AND_BACK;
    const auto mode = material.getColorMode();
    const bool ambientCounts = mode == osg::Material::DIFFUSE || mode == osg::Material::OFF;
    const bool diffuseCounts = mode == osg::Material::AMBIENT || mode == osg::Material::OFF;

    if (ambientCounts && material.getAmbient(face) == black) material.setAmbient(face, white);
    if (diffuseCounts && material.getDiffuse(face) == black) material.setDiffuse(face, white);
}

std::string composeName(const ShaderFeatures& features) {
    std::string name = "shader_t";
    const auto appendUnit = [&name](const char* label, int unit) {
        if (unit != noUnit) name += label + std::to_string(unit);
    };
    const auto appendFlag = [&name](const char* label, bool isSet) {
        if (isSet) name += label;
    };

    for (int unit : features.textureUnits) name += std::to_string(unit);
    if (features.normalMapping) appendUnit("_nm", features.normalMapUnit);
    appendUnit("_sm", features.specMapUnit);
    appendUnit("_shadow", features.shadowUnit);
    appendUnit("_overlay", features.overlayUnit);
    appendFlag("_lighting", features.lighting);
    appendFlag("_fog", features.fog);
    appendFlag("_text", features.text);
    appendFlag("_ps", features.pointSprite);
    return name;
}

ShaderFeatures makeFeatures(const ShaderFeatureKey& key) {
    ShaderFeatures features;
    features.textureUnits = key.textureUnits.members();
    features.normalMapUnit = key.normalMapUnit;
    features.specMapUnit = key.specMapUnit;
    features.overlayUnit = key.overlayUnit;
    features.sunUniforms = key.sunUniforms;
    features.lighting = key.lighting;
    features.shadowUnit = key.shadowUnit;
    features.normalMapping = key.normalMapping;
    features.fog = key.fog;
    features.text = key.text;
    features.pointSprite = key.pointSprite;
    features.name = composeName(features);
    return features;
}

std::string composeSamplerName(int unit) {
    return "BaseTexture" + std::to_string(unit);
}

std::vector<std::string> composeUsualSamplerNames() {
    std::vector<std::string> names;
    for (std::size_t unit = 0; unit < usualTextureUnits; ++unit) {
        names.push_back(composeSamplerName(static_cast<int>(unit)));
    }
    return names;
}

osg::Uniform* makeSampler(int unit) {
    static const std::vector<std::string> usualNames = composeUsualSamplerNames();
    const auto index = static_cast<std::size_t>(unit);
    if (index < usualNames.size()) return new osg::Uniform(usualNames[index].c_str(), unit);
    return new osg::Uniform(composeSamplerName(unit).c_str(), unit);
}

void appendTextureCoordinate(std::string& out, int unit) {
    const std::string u = std::to_string(unit);
    out += "gl_TexCoord[" + u + "] = gl_MultiTexCoord" + u + ";\n";
}

void appendEyePlanes(std::string& out, int unit) {
    const std::string u = std::to_string(unit);
    out += "gl_TexCoord[" + u + "].s = dot(ecPosition4,gl_EyePlaneS[" + u + "]);\n";
    out += "gl_TexCoord[" + u + "].t = dot(ecPosition4,gl_EyePlaneT[" + u + "]);\n";
    out += "gl_TexCoord[" + u + "].p = dot(ecPosition4,gl_EyePlaneR[" + u + "]);\n";
    out += "gl_TexCoord[" + u + "].q = dot(ecPosition4,gl_EyePlaneQ[" + u + "]);\n";
}

void appendProjectedTexture(std::string& out, int unit) {
    appendTextureCoordinate(out, unit);
    appendEyePlanes(out, unit);
}

void appendTextSampling(std::string& out, int unit) {
    const std::string u = std::to_string(unit);
    out += "vec4 textureColor = texture2D( BaseTexture" + u + ", gl_TexCoord[" + u + "].xy );\n";
    out += "color.rgb = color.rgb + textureColor.rgb;\n";
    out += "color.a = color.a * textureColor.a;\n";
}

void appendTextureSampling(std::string& out, int unit) {
    const std::string u = std::to_string(unit);
    out += "color *=  texture2D( BaseTexture" + u + ", gl_TexCoord[" + u + "].xy );\n";
}

osg::ref_ptr<osg::Shader> makeShader(osg::Shader::Type type, const std::string& source) {
    osg::ref_ptr<osg::Shader> shader = new osg::Shader(type);
    shader->setShaderSource(source);
    return shader;
}

const char* fileEnding(osg::Shader::Type type) {
    if (type == osg::Shader::VERTEX) return ".vert";
    if (type == osg::Shader::FRAGMENT) return ".frag";
    return "";
}

void save(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

}  // namespace

ShaderGenerator* ShaderGenerator::instance() {
    static auto* const generator = new ShaderGenerator(noUnit, false);
    return generator;
}

ShaderGenerator::ShaderGenerator(int shadowTexUnit, bool overridesApplyStateSet)
    : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN),
      _shadowTexUnit(shadowTexUnit),
      _overridesApplyStateSet(overridesApplyStateSet),
      _features(std::make_unique<ShaderFeatureTable>()) {}

ShaderGenerator::~ShaderGenerator() = default;

void ShaderGenerator::process(osg::Node* node, bool shadow, bool lighting, bool normalMapping, bool fog) {
    process(node, nullptr, shadow, lighting, normalMapping, fog);
}

void ShaderGenerator::process(osg::Node* node, osg::Group* parent, bool shadow, bool lighting, bool normalMapping,
                              bool fog) {
    if (!node) return;

    const OpenThreads::ScopedLock<OpenThreads::Mutex> lock(_mutex);
    const ScopedValue<int> restoredAtTheEnd(_shadowTexUnit);
    if (!shadow) _shadowTexUnit = noUnit;
    _lighting = lighting;
    _normalMapping = normalMapping;
    _fog = fog;
    _rootProcessed = false;

    walk(*node, inheritedState(parent));

    // Nothing ever sets the flag: the root is always classified by itself as well.
    if (!_rootProcessed) {
        osg::StateSet* rootState = node->getOrCreateStateSet();
        applyStateSet(rootState, rootState, nullptr);
    }
}

void ShaderGenerator::walk(osg::Node& node, osg::StateSet* inherited) {
    const ScopedDepth<osg::ref_ptr<osg::StateSet>> ofStateSets(_stateSetStack);
    const ScopedDepth<ShaderState> ofShaderStates(_shaderStateStack);
    _stateSetStack.push_back(inherited);
    _shaderStateStack.emplace_back().merge(*inherited);
    node.accept(*this);
}

void ShaderGenerator::setShadowTex(int unit) {
    _shadowTexUnit = unit;
}

void ShaderGenerator::setSavingShaders(bool saving) {
    _savingShaders = saving;
}

void ShaderGenerator::reloadSavedShaders() {
    if (!_savingShaders) return;

    for (const auto& [name, program] : _programs) {
        for (unsigned int i = 0; i < program->getNumShaders(); ++i) {
            osg::Shader& shader = *program->getShader(i);
            const std::string path = name + fileEnding(shader.getType());
            if (!loadShaderText(shader, path)) std::cerr << "Error reading " + path + "\n";
        }
    }
}

void ShaderGenerator::apply(osg::Node& node) {
    const bool hasState = node.getStateSet() != nullptr;
    // A drawable that hangs directly below a group arrives here as a node; it is classified as one in a geode would be.
    if (hasState) enter(*node.getStateSet(), node.asDrawable());

    if (osg::Geode* geode = node.asGeode()) {
        applyToDrawablesOf(*geode);
    } else {
        traverse(node);
    }
    if (hasState) leave();
}

void ShaderGenerator::applyToDrawablesOf(osg::Geode& geode) {
    for (unsigned int i = 0; i < geode.getNumDrawables(); ++i) {
        osg::Drawable* drawable = geode.getDrawable(i);
        if (!drawable || !drawable->getStateSet()) continue;

        enter(*drawable->getStateSet(), drawable);
        leave();
    }
}

void ShaderGenerator::enter(osg::StateSet& own, osg::Drawable* drawable) {
    if (_overridesApplyStateSet) {
        osg::ref_ptr<osg::StateSet> accumulated = accumulateAll(own);
        applyStateSet(&own, accumulated.get(), drawable);
        _stateSetStack.push_back(std::move(accumulated));
    } else {
        ShaderState accumulated = accumulate(own);
        assignProgram(own, accumulated, drawable);
        _shaderStateStack.push_back(std::move(accumulated));
    }
}

void ShaderGenerator::leave() {
    if (_overridesApplyStateSet) {
        _stateSetStack.pop_back();
    } else {
        _shaderStateStack.pop_back();
    }
}

osg::ref_ptr<osg::StateSet> ShaderGenerator::accumulateAll(const osg::StateSet& own) const {
    osg::ref_ptr<osg::StateSet> accumulated = new osg::StateSet;
    if (!_stateSetStack.empty()) accumulated->merge(*_stateSetStack.back());
    accumulated->merge(own);
    return accumulated;
}

ShaderState ShaderGenerator::accumulate(const osg::StateSet& own) const {
    ShaderState accumulated;
    if (!_shaderStateStack.empty()) accumulated = _shaderStateStack.back();
    accumulated.merge(own);
    return accumulated;
}

void ShaderGenerator::applyStateSet(osg::StateSet* own, osg::StateSet* accumulated, osg::Drawable* drawable) {
    ShaderState inForce;
    inForce.merge(*accumulated);
    assignProgram(*own, inForce, drawable);
}

void ShaderGenerator::assignProgram(osg::StateSet& own, const ShaderState& accumulated, const osg::Drawable* drawable) {
    if (accumulated.material()) whitenColorsLeftToTheMaterial(*accumulated.material());

    const ShaderFeatures& features = classify(own, accumulated, drawable);
    const auto* present = dynamic_cast<osg::Program*>(own.getAttribute(osg::StateAttribute::PROGRAM));
    if (present && present->getName() == features.name) return;

    osg::Program* program = getOrCreateProgram(features);
    for (int unit : features.textureUnits) own.addUniform(makeSampler(unit), osg::StateAttribute::ON);
    own.setAttribute(program);
    if (_shadowTexUnit != noUnit) {
        own.addUniform(new osg::Uniform("ShadowMapTex", _shadowTexUnit), osg::StateAttribute::ON);
    }
}

const ShaderFeatures& ShaderGenerator::classify(const osg::StateSet& own, const ShaderState& accumulated,
                                                const osg::Drawable* drawable) {
    ShaderFeatureKey key = {};
    key.lighting = _lighting;
    key.normalMapping = _normalMapping;
    key.shadowUnit = _shadowTexUnit;
    key.fog = _fog;
    // Normal and specular maps must be declared on the state set itself; overlay and sun colours may be inherited.
    key.sunUniforms = accumulated.hasSun();
    key.normalMapUnit = readUnitOrReport(own.getUniform(normalMapName));
    key.specMapUnit = readUnitOrReport(own.getUniform(specMapName));
    key.overlayUnit = readUnit(accumulated.overlay());

    if (dynamic_cast<const osgText::Text*>(drawable)) {
        key.textureUnits.set(textTextureUnit, true);
        key.text = true;
    } else {
        key.textureUnits = accumulated.texturedUnits();
        key.textureUnits.set(key.normalMapUnit, false);
        key.textureUnits.set(key.specMapUnit, false);
        key.pointSprite = accumulated.hasPointSprite();
    }
    return _features->find(key, makeFeatures);
}

osg::Program* ShaderGenerator::getOrCreateProgram(const ShaderFeatures& features) {
    const auto cached = _programs.find(features.name);
    if (cached != _programs.end()) return cached->second.get();

    std::string fragmentSource;
    createFragmentSource(fragmentSource, features);
    std::string vertexSource;
    createVertexSource(vertexSource, features);

    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->addShader(makeShader(osg::Shader::FRAGMENT, fragmentSource));
    program->addShader(makeShader(osg::Shader::VERTEX, vertexSource));
    program->setName(features.name);
    if (_savingShaders) {
        save(features.name + fileEnding(osg::Shader::VERTEX), vertexSource);
        save(features.name + fileEnding(osg::Shader::FRAGMENT), fragmentSource);
    }
    _programs[features.name] = program;
    return program.get();
}

bool ShaderGenerator::usesNormalMap(const ShaderFeatures& features) const {
    return _normalMapping && features.normalMapUnit != noUnit;
}

void ShaderGenerator::createVertexSource(std::string& out, const ShaderFeatures& features) {
    out += shadertext::header;
    if (features.pointSprite) {
        out += shadertext::pointSpriteVertexMain;
        return;
    }

    if (_lighting && usesNormalMap(features)) {
        out += shadertext::tangentSpaceOutputs;
        out += shadertext::tangentSpaceLightingFunctions;
    } else if (_lighting) {
        out += shadertext::lightingColorOutput;
        out += features.sunUniforms ? shadertext::sunColorDeclarations : shadertext::lightSourceColorDeclarations;
        out += shadertext::perVertexLightingFunctions;
    }

    out += shadertext::vertexMainHead;
    for (int unit : features.textureUnits) appendTextureCoordinate(out, unit);
    if (usesNormalMap(features)) appendTextureCoordinate(out, features.normalMapUnit);
    if (features.specMapUnit != noUnit) appendTextureCoordinate(out, features.specMapUnit);
    if (_shadowTexUnit != noUnit) appendProjectedTexture(out, _shadowTexUnit);
    if (features.overlayUnit != noUnit) appendProjectedTexture(out, features.overlayUnit);
    if (_lighting) out += shadertext::lightingCall;
    out += "}";
}

void ShaderGenerator::createFragmentSource(std::string& out, const ShaderFeatures& features) {
    out += shadertext::header;
    for (int unit : features.textureUnits) out += "uniform sampler2D BaseTexture" + std::to_string(unit) + ";\n";
    if (features.pointSprite) {
        out += shadertext::pointSpriteFragmentMain;
        return;
    }

    if (_lighting) {
        out += usesNormalMap(features) ? shadertext::normalMapInputs : shadertext::lightingColorInput;
        if (features.sunUniforms) out += shadertext::sunUniformDeclarations;
    }
    if (features.specMapUnit != noUnit) out += shadertext::specularMapSampler;
    if (_shadowTexUnit != noUnit) out += shadertext::shadowSampler;
    if (features.overlayUnit != noUnit) out += shadertext::overlayDeclarations;

    if (_lighting && usesNormalMap(features)) {
        out += shadertext::normalMappedLightFunctionHeadBeforeUnit;
        out += std::to_string(features.normalMapUnit);
        out += shadertext::normalMappedLightFunctionHeadAfterUnit;
        // With sun colours nothing declares the colours that the body names; such a program does not compile.
        if (!features.sunUniforms) out += shadertext::lightSourceColorDeclarations;
        out += shadertext::normalMappedLightFunctionBody;
    } else if (_lighting) {
        out += shadertext::vertexColorLightFunction;
    }
    if (_fog) out += shadertext::fogFunction;

    out += shadertext::fragmentMainHead;
    const bool startsWhite = !features.text && !features.textureUnits.empty();
    out += startsWhite ? "vec4 color = vec4(1,1,1,1);\n" : "vec4 color = gl_Color;\n";
    if (features.text) {
        appendTextSampling(out, features.textureUnits.front());
    } else {
        for (int unit : features.textureUnits) appendTextureSampling(out, unit);
    }
    if (_lighting) out += "color *= calculateLightColor(vec4(1,1,1,1));\n";
    if (features.overlayUnit != noUnit) {
        out += "    vec4 overlay_color = shadow2DProj(OverlayTex, gl_TexCoord[" + std::to_string(features.overlayUnit) +
               "]);\n";
    }
    if (_shadowTexUnit != noUnit) {
        out += "color *= .9 + shadow2DProj(ShadowMapTex, gl_TexCoord[" + std::to_string(_shadowTexUnit) + "]);\n";
    }
    if (_fog) out += "color = fog(color);";
    out += "gl_FragColor = color;}\n";
}

}  // namespace veltrane::sceneutils
