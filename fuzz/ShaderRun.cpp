#include "ShaderRun.h"

#include "ByteChoices.h"
#include "GraphChecks.h"
#include "Promise.h"
#include "StateFromBytes.h"
#include "support/LiteralShaderWalk.h"
#include "support/StandardError.h"
#include "support/StateDescription.h"

#include <offscreen/ProgramCheck.h>
#include <sceneutils/ShaderGenerator.h>

#include <osg/GLObjects>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/Switch>
#include <osgText/Text>

#include <algorithm>
#include <map>
#include <string>
#include <utility>

namespace fuzzing {

namespace {

using testing_support::LiteralShaderWalk;
using testing_support::StandardError;
using testing_support::StateDescription;
using veltrane::sceneutils::ShaderFeatures;
using veltrane::sceneutils::ShaderGenerator;
using veltrane::sceneutils::offscreen::checkPrograms;
using veltrane::sceneutils::offscreen::OffscreenContext;

constexpr int textureCoordinates = 8;  // OpenGL has as many sets of them
constexpr unsigned int deepest = 4;

/** How programs are generated. */
struct Settings {
    explicit Settings(ByteChoices& choices)
        : shadowUnit(choices.one({-1, -1, 0, 3, 7, 8})),
          shadow(choices.chance(50)),
          lighting(choices.chance(60)),
          normalMapping(choices.chance(60)),
          fog(choices.chance(40)) {}

    int shadowUnit;
    bool shadow;
    bool lighting;
    bool normalMapping;
    bool fog;
};

/** The same bytes make the same again, of other objects. */
class ShadedGraph {
public:
    explicit ShadedGraph(ByteChoices& choices) : _choices(choices), _states(choices) {
        for (unsigned int i = _choices.below(3); i > 0; --i) addAbove();
        root = makeNode(0);
        if (parent && _choices.chance(50)) parent->addChild(root);
    }

    const std::vector<osg::ref_ptr<osg::StateSet>>& states() const { return _states.states(); }

    osg::ref_ptr<osg::Node> root;
    osg::ref_ptr<osg::Group> parent;  ///< where the graph is said to hang; may be null

private:
    void addAbove() {
        const osg::ref_ptr<osg::Group> group = new osg::Group;
        if (_choices.chance(80)) group->setStateSet(_states.make());
        if (parent) parent->addChild(group);
        _above.push_back(group);  // groups do not hold their parents
        parent = group;
    }

    osg::ref_ptr<osg::Node> makeNode(unsigned int depth) {
        if (depth > 0 && !_nodes.empty() && _choices.chance(10)) return _choices.one(_nodes);
        const unsigned int kind = _choices.below(10);
        osg::ref_ptr<osg::Node> node;
        if (kind > 8) {
            node = makeDrawable();
        } else if (kind > 5 || depth >= deepest) {
            node = makeGeode(depth);
        } else {
            node = makeGroup(kind, depth);
        }
        if (!node->asDrawable() && _choices.chance(75)) node->setStateSet(_states.make());
        if (_choices.chance(4)) node->setNodeMask(0);
        _nodes.push_back(node);
        return node;
    }

    osg::ref_ptr<osg::Node> makeGroup(unsigned int kind, unsigned int depth) {
        osg::ref_ptr<osg::Group> group = new osg::Group;
        if (kind == 3) group = new osg::MatrixTransform;
        if (kind == 4) group = new osg::Switch;
        if (kind == 5) group = new osg::LOD;
        for (unsigned int i = _choices.below(4); i > 0; --i) group->addChild(makeNode(depth + 1));
        return group;
    }

    osg::ref_ptr<osg::Node> makeGeode(unsigned int depth) {
        osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        for (unsigned int i = _choices.below(4); i > 0; --i) geode->addChild(makeDrawable());
        if (depth < deepest && _choices.chance(10)) geode->addChild(makeNode(depth + 1));
        return geode;
    }

    osg::ref_ptr<osg::Node> makeDrawable() {
        osg::ref_ptr<osg::Drawable> drawable = new osg::Geometry;
        if (_choices.chance(20)) drawable = new osgText::Text;
        // Never the state set that a text brings along: all texts of all graphs share that one.
        drawable->setStateSet(_choices.chance(80) ? _states.make() : nullptr);
        return drawable;
    }

    ByteChoices& _choices;
    StateFromBytes _states;
    std::vector<osg::ref_ptr<osg::Node>> _nodes;
    std::vector<osg::ref_ptr<osg::Group>> _above;
};

/** Notes what programs are asked for. Works as the one generator that applications have, with a cache of its own. */
class NotingGenerator : public ShaderGenerator {
public:
    explicit NotingGenerator(int shadowUnit) : ShaderGenerator(shadowUnit, false) {}
    ~NotingGenerator() override = default;

    osg::Program* getOrCreateProgram(const ShaderFeatures& features) override {
        osg::Program* program = ShaderGenerator::getOrCreateProgram(features);
        promise(program->getName() == features.name, "a program of another name");
        const auto [known, isNew] = programs.emplace(features.name, program);
        promise(known->second == program, "two programs for one name");
        if (isNew) firstRequests.push_back(features);
        return program;
    }

    std::map<std::string, osg::ref_ptr<osg::Program>> programs;
    std::vector<ShaderFeatures> firstRequests;  ///< one for each program, that which decided its text
};

std::string describeStatesOf(const ShadedGraph& graph) {
    StateDescription description{};
    std::string text;
    for (const osg::ref_ptr<osg::StateSet>& state : graph.states()) text += description.of(*state) + "\n";
    if (graph.root->getStateSet()) text += description.of(*graph.root->getStateSet());
    return text;
}

bool hasNoCoordinates(int unit) {
    return unit < 0 || unit >= textureCoordinates;
}

/** The three kinds of programs that cannot be used, as ShaderGenerator's users are told. */
bool mustFail(const ShaderFeatures& features) {
    const std::vector<int>& units = features.textureUnits;
    if (features.pointSprite) return std::find(units.begin(), units.end(), 0) == units.end();

    const bool hasNormalMap = features.normalMapping && features.normalMapUnit != -1;
    if (hasNormalMap && features.lighting && features.sunUniforms) return true;
    if (hasNormalMap && hasNoCoordinates(features.normalMapUnit)) return true;
    for (const int unit : {features.specMapUnit, features.shadowUnit, features.overlayUnit})
        if (unit != -1 && hasNoCoordinates(unit)) return true;
    return std::any_of(units.begin(), units.end(), hasNoCoordinates);
}

std::string warningsOf(const osg::Program& program, osg::State& state) {
    std::string warnings, log;
    if (program.getPCP(state)->getInfoLog(log)) warnings += log;
    for (unsigned int i = 0; i < program.getNumShaders(); ++i)
        if (program.getShader(i)->getPCS(state)->getInfoLog(log)) warnings += log;
    return warnings;
}

/** Compiles texts that the driver has not seen yet, as few of them differ. */
class Driver {
public:
    explicit Driver(OffscreenContext& context) : _context(context) {}

    /** What is wrong with a program; empty: nothing, not even a warning. */
    const std::string& verdictOn(const osg::Program& program) {
        const auto [known, isNew] = verdicts().emplace(textsOf(program), std::string());
        if (!isNew) return known->second;
        const auto failures = checkPrograms(_context, {&program});
        known->second = failures.empty() ? warningsOf(program, *_context.getState()) : failures.front().log;
        program.releaseGLObjects(_context.getState());
        osg::flushAllDeletedGLObjects(_context.getState()->getContextID());
        return known->second;
    }

private:
    using Texts = std::pair<std::string, std::string>;

    static Texts textsOf(const osg::Program& program) {
        return {program.getShader(0)->getShaderSource(), program.getShader(1)->getShaderSource()};
    }
    static std::map<Texts, std::string>& verdicts() {
        static std::map<Texts, std::string> known;
        return known;
    }

    OffscreenContext& _context;
};

void checkTexts(const NotingGenerator& generator, OffscreenContext& context) {
    Driver driver(context);
    for (const ShaderFeatures& features : generator.firstRequests) {
        const std::string& verdict = driver.verdictOn(*generator.programs.at(features.name));
        if (mustFail(features)) {
            promise(!verdict.empty(), features.name + " can be used");
        } else {
            promise(verdict.empty(), features.name + " cannot be used: " + verdict);
        }
    }
}

/** Has one graph shaded by the library, another one like it step by step, and tells what both reported. */
class TwoWays {
public:
    TwoWays(const std::uint8_t* data, std::size_t size)
        : _choices(data, size),
          _choicesAgain(data, size),
          _settings(_choices),
          _settingsAgain(_choicesAgain),
          _graph(_choices),
          _same(_choicesAgain),
          generator(_settings.shadowUnit) {}

    void run() {
        _hadPrograms = hasGeneratedPrograms();
        _hadRootState = _graph.root->getStateSet() != nullptr;
        const std::string reports = shade();
        promiseSame(shadeStepByStep(), reports, "other reports than step by step");
        const std::string once = describeStatesOf(_graph);
        promiseSame(describeStatesOf(_same), once, "other states than step by step");

        // Where one state set hangs in several places, one run may leave a program alone that was there, and replace
        // it. A root without state gets some in the end, which the next run meets with all that is above.
        if (_hadPrograms || !_hadRootState) shade();
        const std::string values = describeStates(*_graph.root);
        const std::size_t programs = generator.programs.size();
        promiseSame(reports, shade(), "other reports in the second run");
        promiseSame(values, describeStates(*_graph.root), "the second run changes something");
        promise(generator.programs.size() == programs, "the second run makes programs");
    }

private:
    std::string shade() {
        const StandardError errors;
        generator.process(_graph.root, _graph.parent, _settings.shadow, _settings.lighting, _settings.normalMapping,
                          _settings.fog);
        return errors.text();
    }

    bool hasGeneratedPrograms() const {
        const auto& states = _graph.states();
        return std::any_of(states.begin(), states.end(), [](const osg::ref_ptr<osg::StateSet>& state) {
            const auto* program = state->getAttribute(osg::StateAttribute::PROGRAM);
            return program && program->getName().find("shader_t") == 0;
        });
    }

    std::string shadeStepByStep() {
        const StandardError errors;
        LiteralShaderWalk walk(_settings.shadowUnit);
        walk.process(_same.root, _same.parent, _settings.shadow, _settings.lighting, _settings.normalMapping,
                     _settings.fog);
        return errors.text();
    }

    ByteChoices _choices;
    ByteChoices _choicesAgain;
    Settings _settings;
    Settings _settingsAgain;
    ShadedGraph _graph;
    ShadedGraph _same;
    bool _hadPrograms = false;
    bool _hadRootState = false;

public:
    NotingGenerator generator;
};

}  // namespace

void runShaders(const std::uint8_t* data, std::size_t size, OffscreenContext& context) {
    TwoWays twoWays(data, size);
    twoWays.run();
    checkTexts(twoWays.generator, context);
}

}  // namespace fuzzing
