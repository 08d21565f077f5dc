#include "ProgramCheck.h"

#include <osg/NodeVisitor>
#include <osg/Notify>
#include <osg/Shader>
#include <osg/State>
#include <osg/StateSet>

#include <set>

namespace veltrane::sceneutils::offscreen {

namespace {

/** Keeps back what OpenSceneGraph has to tell for the length of a scope. */
class Silence {
public:
    Silence() : _level(osg::getNotifyLevel()) { osg::setNotifyLevel(osg::ALWAYS); }
    ~Silence() { osg::setNotifyLevel(_level); }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    osg::NotifySeverity _level;
};

class ProgramCollector : public osg::NodeVisitor {
public:
    ProgramCollector() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    using osg::NodeVisitor::apply;

    void apply(osg::Node& node) override {
        if (node.getStateSet()) note(*node.getStateSet());
        traverse(node);
    }

    std::vector<osg::ref_ptr<const osg::Program>> programs;

private:
    void note(const osg::StateSet& state) {
        const auto* program = dynamic_cast<const osg::Program*>(state.getAttribute(osg::StateAttribute::PROGRAM));
        if (program && _known.insert(program).second) programs.push_back(program);
    }

    std::set<const osg::Program*> _known;
};

std::string withNewlineAtTheEnd(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\0')) text.pop_back();
    return text + "\n";
}

std::string logOf(const osg::Shader& shader, osg::State& state) {
    const std::string type = std::string(shader.getTypename()) + " shader";
    const osg::Shader::PerContextShader* compiled = shader.getPCS(state);
    if (!compiled) return type + " is not supported by the driver\n";
    if (compiled->isCompiled()) return {};
    std::string log;
    if (!compiled->getInfoLog(log) || log.empty()) log = "no reason is given";
    return type + " does not compile:\n" + withNewlineAtTheEnd(log);
}

/** What is wrong with a program that has been compiled; empty: nothing. */
std::string logOf(const osg::Program& program, osg::State& state) {
    const osg::Program::PerContextProgram* linked = program.getPCP(state);
    if (linked->isLinked()) return {};
    std::string log;
    for (unsigned int i = 0; i < program.getNumShaders(); ++i) log += logOf(*program.getShader(i), state);
    if (!log.empty()) return log;
    // Only now: what a driver says of linking shaders that did not compile helps nobody.
    if (!linked->getInfoLog(log) || log.empty()) log = "no reason is given";
    return "program does not link:\n" + withNewlineAtTheEnd(log);
}

}  // namespace

std::vector<ProgramFailure> checkPrograms(OffscreenContext& context,
                                          const std::vector<osg::ref_ptr<const osg::Program>>& programs) {
    context.makeCurrent();
    osg::State& state = *context.getState();
    const Silence silence;

    std::vector<ProgramFailure> failures;
    for (const osg::ref_ptr<const osg::Program>& program : programs) {
        if (program->getNumShaders() == 0) continue;
        program->compileGLObjects(state);
        const std::string log = logOf(*program, state);
        if (!log.empty()) failures.push_back({program, program->getName(), log});
    }
    return failures;
}

std::vector<ProgramFailure> checkPrograms(OffscreenContext& context, osg::Node& graph) {
    return checkPrograms(context, findPrograms(graph));
}

std::vector<osg::ref_ptr<const osg::Program>> findPrograms(osg::Node& graph) {
    ProgramCollector collector;
    graph.accept(collector);
    return collector.programs;
}

}  // namespace veltrane::sceneutils::offscreen
