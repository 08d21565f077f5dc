#include <sceneutils/ShaderGenerator.h>

#include "support/ExpectedShaders.h"
#include "support/OpenShaderGenerator.h"
#include "support/ShaderCombinations.h"
#include "support/ShaderGraphs.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing_support::allCombinations;
using testing_support::Combination;
using testing_support::expectedFragmentText;
using testing_support::expectedRecord;
using testing_support::expectedUniforms;
using testing_support::expectedVertexText;
using testing_support::intUniforms;
using testing_support::makeGeode;
using testing_support::makeGroup;
using testing_support::makeSquareWith;
using testing_support::makeState;
using testing_support::makeText;
using testing_support::makeTexturedState;
using testing_support::OpenShaderGenerator;
using testing_support::programName;
using testing_support::programOf;
using testing_support::RunSettings;
using testing_support::sourceOf;
using veltrane::sceneutils::ShaderFeatures;

/** Gives a generator the settings of a run by making one on a node of no interest. */
void prepare(OpenShaderGenerator& generator, const RunSettings& run) {
    generator.setShadowTex(run.shadowUnit);
    generator.process(osg::ref_ptr<osg::Node>(new osg::Node), true, run.lighting, run.normalMapping, run.fog);
}

}  // namespace

TEST(ShaderText, ComposesBothTextsForEveryCombination) {
    OpenShaderGenerator generator;
    for (const Combination& combination : allCombinations()) {
        const ShaderFeatures record = expectedRecord(combination);
        prepare(generator, combination.run);

        ASSERT_EQ(generator.vertexText(record), expectedVertexText(record, combination.run)) << combination;
        ASSERT_EQ(generator.fragmentText(record), expectedFragmentText(record, combination.run)) << combination;
    }
}

TEST(ShaderText, GivesADrawableItsProgramForEveryCombination) {
    for (const Combination& combination : allCombinations()) {
        OpenShaderGenerator generator(combination.run.shadowUnit);
        const ShaderFeatures record = expectedRecord(combination);
        const osg::ref_ptr<osg::StateSet> state = makeState(combination);
        osg::ref_ptr<osg::Drawable> drawable = makeSquareWith(state);
        if (combination.text) drawable = makeText(state);

        generator.process(makeGeode(drawable).get(), true, combination.run.lighting, combination.run.normalMapping,
                          combination.run.fog);

        ASSERT_EQ(programName(state), record.name) << combination;
        const osg::Program& program = *programOf(*state);
        ASSERT_EQ(program.getNumShaders(), 2u) << combination;
        ASSERT_EQ(sourceOf(program, osg::Shader::VERTEX), expectedVertexText(record, combination.run)) << combination;
        ASSERT_EQ(sourceOf(program, osg::Shader::FRAGMENT), expectedFragmentText(record, combination.run))
            << combination;
        ASSERT_EQ(intUniforms(*state), expectedUniforms(combination)) << combination;
    }
}

TEST(ShaderText, GivesANodeItsProgramForEveryCombination) {
    for (const Combination& combination : allCombinations()) {
        if (combination.text) continue;
        OpenShaderGenerator generator(combination.run.shadowUnit);
        const ShaderFeatures record = expectedRecord(combination);
        const osg::ref_ptr<osg::StateSet> state = makeState(combination);

        generator.process(makeGroup(nullptr, makeGroup(state)).get(), true, combination.run.lighting,
                          combination.run.normalMapping, combination.run.fog);

        ASSERT_EQ(programName(state), record.name) << combination;
        ASSERT_EQ(intUniforms(*state), expectedUniforms(combination)) << combination;
    }
}

TEST(ShaderText, RecordsEveryFeatureOfAState) {
    Combination combination;
    combination.texturedUnits = {0, 1, 2, 4};
    combination.normalMapUnit = 1;
    combination.specMapUnit = 2;
    combination.overlayUnit = 4;
    combination.sunUniforms = combination.pointSprite = true;
    const osg::ref_ptr<osg::StateSet> state = makeState(combination);
    OpenShaderGenerator generator(5);

    generator.process(makeGroup(state).get(), true, true, true, true);

    ASSERT_EQ(generator.records.size(), 1u);
    const ShaderFeatures& record = generator.records.front();
    EXPECT_EQ(record.name, "shader_t04_nm1_sm2_shadow5_overlay4_lighting_fog_ps");
    EXPECT_THAT(record.textureUnits, ElementsAre(0, 4));
    EXPECT_THAT((std::vector<int>{record.normalMapUnit, record.specMapUnit, record.overlayUnit, record.shadowUnit}),
                ElementsAre(1, 2, 4, 5));
    EXPECT_THAT((std::vector<bool>{record.sunUniforms, record.lighting, record.normalMapping, record.fog, record.text,
                                   record.pointSprite}),
                ElementsAre(true, true, true, true, false, true));
}

TEST(ShaderText, ComposesTextsByTheRunAndNotByTheRecordsCopies) {
    ShaderFeatures record;
    record.normalMapUnit = 1;
    RunSettings run;
    run.lighting = run.normalMapping = run.fog = true;
    run.shadowUnit = 3;
    OpenShaderGenerator generator;
    prepare(generator, run);

    EXPECT_EQ(generator.vertexText(record), expectedVertexText(record, run));
    EXPECT_EQ(generator.fragmentText(record), expectedFragmentText(record, run));

    record.lighting = record.normalMapping = record.fog = true;
    record.shadowUnit = 3;
    prepare(generator, RunSettings());

    EXPECT_EQ(generator.vertexText(record), expectedVertexText(record, RunSettings()));
    EXPECT_EQ(generator.fragmentText(record), expectedFragmentText(record, RunSettings()));
}

TEST(ShaderText, AppendsToTheTextThatIsThere) {
    OpenShaderGenerator generator;
    std::string vertexText = "before;";
    std::string fragmentText = "before;";

    generator.createVertexSource(vertexText, ShaderFeatures());
    generator.createFragmentSource(fragmentText, ShaderFeatures());

    EXPECT_EQ(vertexText, "before;" + expectedVertexText(ShaderFeatures(), RunSettings()));
    EXPECT_EQ(fragmentText, "before;" + expectedFragmentText(ShaderFeatures(), RunSettings()));
}

TEST(ShaderText, WritesTheWholeTextOfAStateWithoutFeatures) {
    OpenShaderGenerator generator;
    const osg::ref_ptr<osg::Group> root = new osg::Group;

    generator.process(root, false, false, false, false);

    ASSERT_EQ(programName(root->getStateSet()), "shader_t");
    const osg::Program& program = *programOf(*root->getStateSet());
    EXPECT_EQ(sourceOf(program, osg::Shader::VERTEX),
              "#version 130\n"
              "#extension GL_ARB_compatibility : enable\n"
              "void main(void)\n"
              "{\n"
              "   vec4 ecPosition4 = gl_ModelViewMatrix * gl_Vertex;\n"
              "   vec3 ecPosition3 = ecPosition4.xyz / ecPosition4.w;\n"
              "   gl_Position = gl_ModelViewProjectionMatrix * gl_Vertex;\n"
              "   gl_FrontColor = gl_Color;\n"
              "}");
    EXPECT_EQ(sourceOf(program, osg::Shader::FRAGMENT),
              "#version 130\n"
              "#extension GL_ARB_compatibility : enable\n"
              "void main(void)\n"
              "{\n"
              "vec4 color = gl_Color;\n"
              "gl_FragColor = color;}\n");
}

TEST(ShaderText, EndsTheFragmentTextOfALitTextureInFogOnOneLine) {
    OpenShaderGenerator generator;
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0});

    generator.process(makeGroup(state).get(), false, true, false, true);

    ASSERT_EQ(programName(state), "shader_t0_lighting_fog");
    EXPECT_THAT(sourceOf(*programOf(*state), osg::Shader::FRAGMENT),
                testing::EndsWith("void main(void)\n"
                                  "{\n"
                                  "vec4 color = vec4(1,1,1,1);\n"
                                  "color *=  texture2D( BaseTexture0, gl_TexCoord[0].xy );\n"
                                  "color *= calculateLightColor(vec4(1,1,1,1));\n"
                                  "color = fog(color);gl_FragColor = color;}\n"));
}

TEST(ShaderText, AddsTheFragmentShaderFirst) {
    OpenShaderGenerator generator;
    const osg::ref_ptr<osg::Group> root = new osg::Group;

    generator.process(root, false, false, false, false);

    const osg::Program& program = *programOf(*root->getStateSet());
    ASSERT_EQ(program.getNumShaders(), 2u);
    EXPECT_EQ(program.getShader(0)->getType(), osg::Shader::FRAGMENT);
    EXPECT_EQ(program.getShader(1)->getType(), osg::Shader::VERTEX);
}
