#include "support/StateDescription.h"

#include <osg/Material>
#include <osg/Program>
#include <osg/Uniform>

#include <sstream>

namespace testing_support {

namespace {

void describe(std::ostream& out, const osg::Vec4& v) {
    out << "(" << v.x() << " " << v.y() << " " << v.z() << " " << v.w() << ")";
}

void describe(std::ostream& out, const osg::Material& material) {
    out << " color mode " << material.getColorMode();
    for (const auto face : {osg::Material::FRONT, osg::Material::BACK}) {
        describe(out, material.getAmbient(face));
        describe(out, material.getDiffuse(face));
        describe(out, material.getSpecular(face));
        describe(out, material.getEmission(face));
    }
}

void describe(std::ostream& out, const osg::Program& program) {
    out << " '" << program.getName() << "'";
    for (unsigned int i = 0; i < program.getNumShaders(); ++i) {
        const osg::Shader& shader = *program.getShader(i);
        out << " " << shader.getTypename() << " " << std::hash<std::string>()(shader.getShaderSource());
    }
}

void describe(std::ostream& out, const osg::Uniform& uniform) {
    out << osg::Uniform::getTypename(uniform.getType()) << "[" << uniform.getNumElements() << "] "
        << uniform.getNameID();
    if (uniform.getIntArray()) {
        for (const int value : *uniform.getIntArray()) out << " " << value;
    }
    if (uniform.getFloatArray()) {
        for (const float value : *uniform.getFloatArray()) out << " " << value;
    }
}

void describe(std::ostream& out, const osg::StateSet::ModeList& modes) {
    for (const auto& [mode, value] : modes) out << "mode " << mode << " = " << value << "\n";
}

}  // namespace

std::string StateDescription::numberOf(const osg::Referenced* object) {
    if (!object) return "0";
    return std::to_string(_numbers.emplace(object, _numbers.size() + 1).first->second);
}

std::string StateDescription::contentOf(const osg::StateSet::AttributeList& attributes) {
    std::ostringstream out;
    for (const auto& [key, entry] : attributes) {
        out << "attribute " << key.first << "." << key.second << " = #" << numberOf(entry.first) << " strength "
            << entry.second;
        if (const auto* material = dynamic_cast<const osg::Material*>(entry.first.get())) describe(out, *material);
        if (const auto* program = dynamic_cast<const osg::Program*>(entry.first.get())) describe(out, *program);
        out << "\n";
    }
    return out.str();
}

std::string StateDescription::of(const osg::StateSet& state) {
    return "state set #" + numberOf(&state) + "\n" + contentOf(state);
}

std::string StateDescription::contentOf(const osg::StateSet& state) {
    std::ostringstream out;
    out << "bin " << state.getBinNumber() << " " << state.getBinName() << "\n";
    describe(out, state.getModeList());
    out << contentOf(state.getAttributeList());
    for (const auto& modes : state.getTextureModeList()) describe(out << "unit\n", modes);
    for (const auto& attributes : state.getTextureAttributeList()) out << "unit\n" << contentOf(attributes);
    for (const auto& [name, entry] : state.getUniformList()) {
        out << "uniform " << name << " = #" << numberOf(entry.first) << " strength " << entry.second << " ";
        describe(out, *entry.first);
        out << "\n";
    }
    return out.str();
}

std::string StateDescription::parentsIn(const osg::StateSet::AttributeList& attributes) {
    std::string text;
    for (const auto& [key, entry] : attributes) {
        text += "parents of #" + numberOf(entry.first);
        for (const osg::StateSet* parent : entry.first->getParents()) text += " " + numberOf(parent);
        text += "\n";
    }
    return text;
}

std::string StateDescription::parentsIn(const osg::StateSet& state) {
    std::string text = parentsIn(state.getAttributeList());
    for (const auto& attributes : state.getTextureAttributeList()) text += parentsIn(attributes);
    for (const auto& [name, entry] : state.getUniformList()) {
        text += "parents of #" + numberOf(entry.first);
        for (unsigned int i = 0; i < entry.first->getNumParents(); ++i)
            text += " " + numberOf(entry.first->getParent(i));
        text += "\n";
    }
    return text;
}

}  // namespace testing_support
