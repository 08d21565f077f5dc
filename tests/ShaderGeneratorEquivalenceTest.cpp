#include <sceneutils/ShaderGenerator.h>

#include "support/LiteralShaderWalk.h"
#include "support/OsgMessages.h"
#include "support/RandomShaderGraph.h"
#include "support/ShaderGraphs.h"
#include "support/StandardError.h"
#include "support/StateDescription.h"

#include <gmock/gmock.h>

#include <map>
#include <random>
#include <string>
#include <vector>

/** Compares the shader generator with the plain walk that merges a state set at every node. */
namespace {

using testing::ElementsAre;
using testing::Pair;
using testing_support::intUniforms;
using testing_support::LiteralShaderWalk;
using testing_support::makeGroup;
using testing_support::makeTexturedState;
using testing_support::OsgMessages;
using testing_support::programName;
using testing_support::RandomShaderGraph;
using testing_support::StandardError;
using testing_support::StateDescription;
using veltrane::sceneutils::ShaderFeatures;
using veltrane::sceneutils::ShaderGenerator;

constexpr unsigned int graphCount = 3000;

/** What can be seen of the runs over one graph, in words. */
class Protocol {
public:
    explicit Protocol(const RandomShaderGraph& graph) : _graph(graph) {}

    void noteClassification(const osg::StateSet* own, const osg::StateSet* accumulated, const osg::Drawable* drawable) {
        _text += "classified for " + _description.numberOf(drawable) + "\n" + _description.of(*own) + "where\n";
        _text += own == accumulated ? "itself\n" : _description.contentOf(*accumulated);
    }

    void noteRequest(const ShaderFeatures& f) {
        _text += "wanted " + f.name + ", units";
        for (const int unit : f.textureUnits) _text += " " + std::to_string(unit);
        for (const int value : {f.normalMapUnit, f.specMapUnit, f.overlayUnit, f.shadowUnit}) {
            _text += ", " + std::to_string(value);
        }
        for (const bool flag : {f.sunUniforms, f.lighting, f.normalMapping, f.fog, f.text, f.pointSprite}) {
            _text += flag ? " yes" : " no";
        }
        _text += "; so far";
        for (const auto& state : _graph.states) {
            _text += " " + programName(state) + "/" + std::to_string(state->getUniformList().size());
        }
        _text += "\n";
    }

    void noteGraph() {
        if (_graph.root->getStateSet()) noteState(*_graph.root->getStateSet());
        for (const auto& state : _graph.states) noteState(*state);
    }

    void note(const std::string& text) { _text += text; }
    const std::string& text() const { return _text; }

private:
    void noteState(const osg::StateSet& state) { _text += _description.of(state) + _description.parentsIn(state); }

    const RandomShaderGraph& _graph;
    StateDescription _description;
    std::string _text;
};

/** Leaves applyStateSet() as it is, as the generator of the process does. */
class NotingGenerator : public ShaderGenerator {
public:
    NotingGenerator(Protocol& protocol, int shadowTexUnit)
        : ShaderGenerator(shadowTexUnit, false), _protocol(protocol) {}
    ~NotingGenerator() override = default;

private:
    osg::Program* getOrCreateProgram(const ShaderFeatures& features) override {
        _protocol.noteRequest(features);
        return ShaderGenerator::getOrCreateProgram(features);
    }

    Protocol& _protocol;
};

/** Looks at every state that is accumulated. */
class CuriousGenerator : public ShaderGenerator {
public:
    CuriousGenerator(Protocol& protocol, int shadowTexUnit) : ShaderGenerator(shadowTexUnit), _protocol(protocol) {}
    ~CuriousGenerator() override = default;

private:
    osg::Program* getOrCreateProgram(const ShaderFeatures& features) override {
        _protocol.noteRequest(features);
        return ShaderGenerator::getOrCreateProgram(features);
    }

    void applyStateSet(osg::StateSet* own, osg::StateSet* accumulated, osg::Drawable* drawable) override {
        _protocol.noteClassification(own, accumulated, drawable);
        ShaderGenerator::applyStateSet(own, accumulated, drawable);
    }

    Protocol& _protocol;
};

/** The plain walk, noting what a generator of the other type notes. */
class NotingLiteralWalk : public LiteralShaderWalk {
public:
    NotingLiteralWalk(Protocol& protocol, int shadowTexUnit) : LiteralShaderWalk(shadowTexUnit) {
        onProgramRequest = [&protocol](const ShaderFeatures& features) { protocol.noteRequest(features); };
    }
};

class CuriousLiteralWalk : public NotingLiteralWalk {
public:
    CuriousLiteralWalk(Protocol& protocol, int shadowTexUnit) : NotingLiteralWalk(protocol, shadowTexUnit) {
        onClassification = [&protocol](osg::StateSet* own, osg::StateSet* accumulated, osg::Drawable* drawable) {
            protocol.noteClassification(own, accumulated, drawable);
        };
    }
};

/** A few runs over the graph of that seed, with settings that the seed decides. */
template <typename Walk>
std::string protocolOf(unsigned int seed) {
    const RandomShaderGraph graph(seed);
    Protocol protocol(graph);
    std::mt19937 random(seed);
    const auto flag = [&random] { return random() % 2 == 0; };
    const osg::ref_ptr<Walk> walk = new Walk(protocol, flag() ? 3 : -1);
    const StandardError standardError;
    const OsgMessages osgMessages;
    for (int run = 0; run < 3; ++run) {
        const bool shadow = flag(), lighting = flag(), normalMapping = flag(), fog = flag();
        if (run == 2) walk->setShadowTex(static_cast<int>(random() % 3) - 1);
        if (random() % 8 == 0) {
            graph.root->accept(*walk);
        } else {
            walk->process(graph.root, graph.parent, shadow, lighting, normalMapping, fog);
            if (flag()) walk->process(graph.root, graph.parent, shadow, lighting, normalMapping, fog);
        }
        protocol.noteGraph();
    }
    protocol.note(standardError.text() + osgMessages.text());
    return protocol.text();
}

/** Notes how many state sets refer to a texture at the moment when it is traversed. */
class ParentCounter : public osg::Group {
public:
    explicit ParentCounter(const osg::StateAttribute* attribute) : _attribute(attribute) {}

    void traverse(osg::NodeVisitor& visitor) override {
        counts.push_back(_attribute->getNumParents());
        osg::Group::traverse(visitor);
    }

    std::vector<unsigned int> counts;

private:
    const osg::StateAttribute* _attribute;
};

/** A program that notes which uniforms a state set has when the program is first put there. */
class WatchfulProgram : public osg::Program {
public:
    explicit WatchfulProgram(const osg::StateSet& state) : _state(state) {}

    bool isTextureAttribute() const override {
        if (uniforms.empty()) uniforms = intUniforms(_state);
        return false;
    }

    mutable std::map<std::string, int> uniforms;

private:
    const osg::StateSet& _state;
};

/** Gives out a program of its own for everything. */
class OneProgramGenerator : public ShaderGenerator {
public:
    explicit OneProgramGenerator(osg::Program* program) : ShaderGenerator(5, false), _program(program) {}
    ~OneProgramGenerator() override = default;

private:
    osg::Program* getOrCreateProgram(const ShaderFeatures&) override { return _program; }

    osg::ref_ptr<osg::Program> _program;
};

}  // namespace

TEST(ShaderGeneratorEquivalence, DoesWhatMergingAStateSetAtEveryNodeDoes) {
    for (unsigned int seed = 0; seed < graphCount; ++seed) {
        ASSERT_EQ(protocolOf<NotingGenerator>(seed), protocolOf<NotingLiteralWalk>(seed)) << "seed " << seed;
    }
}

TEST(ShaderGeneratorEquivalence, HandsAllOfTheAccumulatedStateToAnOverriddenApplyStateSet) {
    for (unsigned int seed = 0; seed < graphCount / 6; ++seed) {
        ASSERT_EQ(protocolOf<CuriousGenerator>(seed), protocolOf<CuriousLiteralWalk>(seed)) << "seed " << seed;
    }
}

TEST(ShaderGeneratorEquivalence, EntersNothingInTheParentsOfWhatItPasses) {
    const osg::ref_ptr<osg::StateSet> above = makeTexturedState({0});
    const osg::ref_ptr<ParentCounter> counter =
        new ParentCounter(above->getTextureAttribute(0, osg::StateAttribute::TEXTURE));
    counter->setStateSet(new osg::StateSet);

    ShaderGenerator::instance()->process(makeGroup(nullptr, makeGroup(above, counter)), false, true, true, true);

    EXPECT_THAT(counter->counts, ElementsAre(1u));
    EXPECT_EQ(programName(counter->getStateSet()), "shader_t0_lighting_fog");
}

TEST(ShaderGeneratorEquivalence, PutsTheSamplersBeforeTheProgramAndTheShadowMapAfterIt) {
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0, 1});
    const osg::ref_ptr<WatchfulProgram> program = new WatchfulProgram(*state);
    OneProgramGenerator generator(program);

    makeGroup(state)->accept(generator);

    EXPECT_THAT(program->uniforms, ElementsAre(Pair("BaseTexture0", 0), Pair("BaseTexture1", 1)));
    EXPECT_THAT(intUniforms(*state),
                ElementsAre(Pair("BaseTexture0", 0), Pair("BaseTexture1", 1), Pair("ShadowMapTex", 5)));
}
