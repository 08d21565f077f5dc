#pragma once

#include "support/Graphs.h"

#include <osg/Group>
#include <osg/PointSprite>
#include <osg/Program>
#include <osg/StateSet>
#include <osg/Uniform>
#include <osgText/Text>

#include <map>
#include <string>
#include <vector>

/** Small builders for graphs to be shaded, and what can be seen in them afterwards. */
namespace testing_support {

inline osg::ref_ptr<osg::StateSet> makeTexturedState(const std::vector<unsigned int>& units) {
    osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    for (const unsigned int unit : units) state->setTextureAttribute(unit, makeTexture());
    return state;
}

inline void addInt(osg::StateSet& state, const std::string& name, int value,
                   osg::StateAttribute::OverrideValue override = osg::StateAttribute::ON) {
    state.addUniform(new osg::Uniform(name.c_str(), value), override);
}

inline void addSun(osg::StateSet& state) {
    state.addUniform(new osg::Uniform("SunAmbient", osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f)));
}

/** A group with that state set and that child; either may be null. */
inline osg::ref_ptr<osg::Group> makeGroup(osg::StateSet* state, osg::Node* child = nullptr) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->setStateSet(state);
    if (child) group->addChild(child);
    return group;
}

/** A square with that state set. */
inline osg::ref_ptr<osg::Geometry> makeSquareWith(osg::StateSet* state) {
    osg::ref_ptr<osg::Geometry> square = makeSquare();
    square->setStateSet(state);
    return square;
}

/** A text with a state set of its own instead of the one that all texts of its font share. */
inline osg::ref_ptr<osgText::Text> makeText(osg::StateSet* state) {
    osg::ref_ptr<osgText::Text> text = new osgText::Text;
    text->setStateSet(state);
    return text;
}

inline const osg::Program* programOf(const osg::StateSet& state) {
    return dynamic_cast<const osg::Program*>(state.getAttribute(osg::StateAttribute::PROGRAM));
}

/** The name of the program there; "(none)" without one. */
inline std::string programName(const osg::StateSet* state) {
    const osg::Program* program = state ? programOf(*state) : nullptr;
    return program ? program->getName() : "(none)";
}

inline std::string sourceOf(const osg::Program& program, osg::Shader::Type type) {
    for (unsigned int i = 0; i < program.getNumShaders(); ++i) {
        if (program.getShader(i)->getType() == type) return program.getShader(i)->getShaderSource();
    }
    return "(no shader of that type)";
}

/** The int uniforms there, with their values. */
inline std::map<std::string, int> intUniforms(const osg::StateSet& state) {
    std::map<std::string, int> values;
    for (const auto& [name, entry] : state.getUniformList()) {
        int value = 0;
        if (entry.first->getType() == osg::Uniform::INT && entry.first->get(value)) values[name] = value;
    }
    return values;
}

/** Everything that shading changes on a state set: its program, its uniforms, and how they override. */
struct ShadedState {
    explicit ShadedState(const osg::StateSet& state)
        : program(programOf(state)), uniforms(state.getUniformList()), modes(state.getModeList()) {}

    bool operator==(const ShadedState& other) const {
        return program == other.program && uniforms == other.uniforms && modes == other.modes;
    }

    osg::ref_ptr<const osg::Program> program;
    osg::StateSet::UniformList uniforms;
    osg::StateSet::ModeList modes;
};

}  // namespace testing_support
