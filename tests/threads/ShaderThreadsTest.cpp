#include "AtOnce.h"
#include "support/ShaderCombinations.h"
#include "support/ShaderGraphs.h"

#include <sceneutils/SceneUtils.h>
#include <sceneutils/ShaderGenerator.h>

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

using namespace testing_support;
using veltrane::sceneutils::createCoordinateSystemGeometry;
using veltrane::sceneutils::ShaderGenerator;

namespace {

constexpr int shadowUnit = 5;
constexpr std::size_t combinationsPassedOver = 12;  // of every 13

/** With a cache of its own, and like the one of the process in all else. */
class OwnGenerator : public ShaderGenerator {
public:
    OwnGenerator() : ShaderGenerator(shadowUnit, false) {}
    ~OwnGenerator() override = default;
};

using Graphs = std::vector<osg::ref_ptr<osg::Geode>>;

/** Of sun colours, and of units whose numbers read the same, the first one classified decides the text. */
bool hasATextOfItsOwn(const Combination& combination) {
    return !combination.sunUniforms && combination.texturedUnits != std::vector<int>{0, 12};
}

std::vector<Combination> someCombinations() {
    const std::vector<Combination> all = allCombinations();
    std::vector<Combination> some;
    for (std::size_t i = 0; i < all.size(); i += combinationsPassedOver + 1) {
        if (hasATextOfItsOwn(all[i])) some.push_back(all[i]);
    }
    return some;
}

osg::ref_ptr<osg::Drawable> makeDrawable(const Combination& combination) {
    const osg::ref_ptr<osg::StateSet> state = makeState(combination);
    if (combination.text) return makeText(state);
    return makeSquareWith(state);
}

/** Two geodes of the same state for each combination. */
Graphs makeGraphs(const std::vector<Combination>& combinations) {
    Graphs graphs;
    for (const Combination& combination : combinations) {
        for (int i = 0; i < 2; ++i) graphs.push_back(makeGeode(makeDrawable(combination)));
    }
    return graphs;
}

/** Made by one thread: OpenSceneGraph does not let several make texts of one font. */
std::vector<Graphs> makeGraphsForThreads(const std::vector<Combination>& combinations) {
    std::vector<Graphs> ofThreads;
    for (unsigned int thread = 0; thread < threadCount; ++thread) ofThreads.push_back(makeGraphs(combinations));
    return ofThreads;
}

/** Begins at another graph in each thread, so that all of them ask for new programs all the time. */
void shade(ShaderGenerator& generator, const std::vector<Combination>& combinations, const Graphs& graphs,
           unsigned int thread) {
    for (std::size_t i = 0; i < graphs.size(); ++i) {
        const std::size_t place = (i + thread * graphs.size() / threadCount) % graphs.size();
        const RunSettings& run = combinations[place / 2].run;
        generator.process(graphs[place], run.shadowUnit != -1, run.lighting, run.normalMapping, run.fog);
    }
}

const osg::StateSet& stateOf(const osg::Geode& geode) {
    return *geode.getDrawable(0)->getStateSet();
}

/** What a graph got, in words: name, texts and uniforms of its drawable's state and of its root's. */
std::string describe(const osg::Geode& geode) {
    std::string text;
    for (const osg::StateSet* state : {&stateOf(geode), geode.getStateSet()}) {
        const osg::Program* program = programOf(*state);
        text += program->getName() + "\n" + sourceOf(*program, osg::Shader::VERTEX) + "\n" +
                sourceOf(*program, osg::Shader::FRAGMENT) + "\n";
        for (const auto& [name, value] : intUniforms(*state)) text += name + " " + std::to_string(value) + "\n";
    }
    return text;
}

using Programs = std::map<std::string, std::set<const osg::Program*>>;

void noteProgramsOf(const osg::Geode& geode, Programs& programs) {
    for (const osg::StateSet* state : {&stateOf(geode), geode.getStateSet()})
        programs[programName(state)].insert(programOf(*state));
}

}  // namespace

TEST(ShadersInThreads, HaveTheTextsThatOneThreadMakesAndAreSharedByAll) {
    const std::vector<Combination> combinations = someCombinations();
    const std::vector<Graphs> ofThreads = makeGraphsForThreads(combinations);
    OwnGenerator shared;
    atOnce([&](unsigned int thread) { shade(shared, combinations, ofThreads[thread], thread); });
    OwnGenerator alone;
    const Graphs expected = makeGraphs(combinations);
    shade(alone, combinations, expected, 0);

    Programs programs;
    Programs expectedPrograms;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        noteProgramsOf(*expected[i], expectedPrograms);
        for (const Graphs& graphs : ofThreads) {
            ASSERT_EQ(describe(*graphs[i]), describe(*expected[i])) << combinations[i / 2];
            noteProgramsOf(*graphs[i], programs);
        }
    }
    EXPECT_GT(programs.size(), 100u);
    EXPECT_EQ(programs.size(), expectedPrograms.size());
    for (const auto& [name, sameName] : programs) EXPECT_EQ(sameName.size(), 1u) << name;
}

TEST(ShadersInThreads, AreThoseOfOneGeneratorWhoeverAsksForItFirst) {
    std::vector<ShaderGenerator*> generators(threadCount);
    std::vector<osg::ref_ptr<osg::Group>> axes(threadCount);
    atOnce([&](unsigned int thread) {
        axes[thread] = createCoordinateSystemGeometry(1.0f);
        generators[thread] = ShaderGenerator::instance();
    });

    for (unsigned int thread = 0; thread < threadCount; ++thread) {
        EXPECT_EQ(generators[thread], generators[0]);
        EXPECT_EQ(programName(axes[thread]->getStateSet()), "shader_t_fog");
        EXPECT_EQ(programOf(*axes[thread]->getStateSet()), programOf(*axes[0]->getStateSet()));
    }
}

TEST(ShadersInThreads, OutliveTheGraphsThatOtherThreadsThrowAway) {
    const std::vector<Combination> combinations = someCombinations();
    std::vector<Graphs> ofThreads = makeGraphsForThreads(combinations);
    OwnGenerator shared;
    atOnce([&](unsigned int thread) {
        shade(shared, combinations, ofThreads[thread], thread);
        ofThreads[thread].clear();
    });

    const Graphs graphs = makeGraphs(combinations);
    shade(shared, combinations, graphs, 0);

    std::map<const osg::Program*, std::size_t> users;
    std::set<const osg::StateSet*> states;
    for (const auto& graph : graphs) states.insert({&stateOf(*graph), graph->getStateSet()});
    for (const osg::StateSet* state : states) ++users[programOf(*state)];
    for (const auto& [program, count] : users) EXPECT_EQ(program->getParents().size(), count) << program->getName();
}
