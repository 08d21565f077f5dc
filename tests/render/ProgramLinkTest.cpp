#include "support/OpenShaderGenerator.h"
#include "support/ShaderCombinations.h"

#include <offscreen/ProgramCheck.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

using namespace testing_support;
using veltrane::sceneutils::ShaderFeatures;
using veltrane::sceneutils::offscreen::checkPrograms;
using veltrane::sceneutils::offscreen::OffscreenContext;

namespace {

/** OpenGL has as many sets of texture coordinates. */
constexpr int textureCoordinates = 8;

using Texts = std::pair<std::string, std::string>;

/** The texts that the library makes for that combination. */
Texts textsOf(const Combination& combination, OpenShaderGenerator& generator) {
    const RunSettings& run = combination.run;
    generator.setShadowTex(run.shadowUnit);
    generator.process(osg::ref_ptr<osg::Node>(new osg::Node), true, run.lighting, run.normalMapping, run.fog);
    const ShaderFeatures record = expectedRecord(combination);
    return {generator.vertexText(record), generator.fragmentText(record)};
}

/** All combinations by the texts that come of them. */
std::map<Texts, std::vector<Combination>> combinationsByTexts() {
    OpenShaderGenerator generator;
    std::map<Texts, std::vector<Combination>> result;
    for (const Combination& combination : allCombinations())
        result[textsOf(combination, generator)].push_back(combination);
    return result;
}

osg::ref_ptr<const osg::Program> makeProgram(const Texts& texts) {
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::VERTEX, texts.first));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, texts.second));
    return program;
}

bool usesNormalMap(const Combination& c) {
    return c.run.normalMapping && c.normalMapUnit != -1;
}

bool isPointSprite(const Combination& c) {
    return expectedRecord(c).pointSprite;
}

bool hasNoSunColoursForItsNormalMap(const Combination& c) {
    return usesNormalMap(c) && c.run.lighting && c.sunUniforms && !isPointSprite(c);
}

bool hasAUnitWithoutTextureCoordinates(const Combination& c) {
    const std::vector<int> units = expectedRecord(c).textureUnits;
    return !isPointSprite(c) &&
           std::any_of(units.begin(), units.end(), [](int unit) { return unit >= textureCoordinates; });
}

bool isAPointSpriteWithoutTexture(const Combination& c) {
    const std::vector<int> units = expectedRecord(c).textureUnits;
    return isPointSprite(c) && std::find(units.begin(), units.end(), 0) == units.end();
}

bool mustFail(const Combination& c) {
    return hasNoSunColoursForItsNormalMap(c) || hasAUnitWithoutTextureCoordinates(c) || isAPointSpriteWithoutTexture(c);
}

}  // namespace

// Many combinations come to the same texts: 12,288 to 1,262 programs.
TEST(ProgramLink, FailsForThreeKindsOfCombinationsAndForNoOther) {
    const osg::ref_ptr<OffscreenContext> context = new OffscreenContext(1, 1);
    std::map<std::string, int> counts;
    for (const auto& [texts, combinations] : combinationsByTexts()) {
        const osg::ref_ptr<const osg::Program> program = makeProgram(texts);
        const bool fails = !checkPrograms(*context, {program}).empty();
        program->releaseGLObjects(context->getState());

        for (const Combination& combination : combinations) {
            EXPECT_EQ(fails, mustFail(combination)) << combination;
        }
        ++counts[fails ? "fail" : "link"];
    }
    EXPECT_EQ(counts, (std::map<std::string, int>{{"fail", 355}, {"link", 907}}));
}
