#include <sceneutils/ShaderGenerator.h>

#include "support/ExpectedShaders.h"
#include "support/OpenShaderGenerator.h"
#include "support/OsgMessages.h"
#include "support/ShaderCombinations.h"
#include "support/ShaderGraphs.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;
using testing_support::Combination;
using testing_support::expectedFragmentText;
using testing_support::expectedRecord;
using testing_support::expectedVertexText;
using testing_support::makeGroup;
using testing_support::makeTexturedState;
using testing_support::OpenShaderGenerator;
using testing_support::OsgMessages;
using testing_support::programName;
using testing_support::programOf;
using testing_support::RunSettings;
using testing_support::sourceOf;
using testing_support::StandardError;
using testing_support::TemporaryDirectory;
using testing_support::WorkingDirectory;
using veltrane::sceneutils::ShaderFeatures;
using veltrane::sceneutils::ShaderGenerator;

/** Runs with nothing switched on. */
void processPlain(ShaderGenerator& generator, osg::Node* node) {
    generator.process(node, false, false, false, false);
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return file ? content.str() : "(no file)";
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

}  // namespace

TEST(SavedShaders, SavesBothTextsOfNewProgramsToTheWorkingDirectory) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    writeFile("shader_t0_lighting.vert", std::string(100000, 'x'));
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(makeTexturedState({0})));
    OpenShaderGenerator generator;
    generator.setSavingShaders(true);

    generator.process(root, false, true, false, false);

    Combination combination;
    combination.texturedUnits = {0};
    combination.run.lighting = true;
    const ShaderFeatures record = expectedRecord(combination);
    EXPECT_EQ(contentOf("shader_t0_lighting.vert"), expectedVertexText(record, combination.run));
    EXPECT_EQ(contentOf("shader_t0_lighting.frag"), expectedFragmentText(record, combination.run));
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(".")) names.push_back(entry.path().filename());
    EXPECT_THAT(names, UnorderedElementsAre("shader_t0_lighting.vert", "shader_t0_lighting.frag",
                                            "shader_t_lighting.vert", "shader_t_lighting.frag"));
}

TEST(SavedShaders, SavesOnlyProgramsMadeWhileSavingIsOn) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    OpenShaderGenerator generator;
    const auto run = [&generator](unsigned int unit) {
        processPlain(generator, makeGroup(makeTexturedState({unit})).get());
    };

    run(0);
    generator.setSavingShaders(true);
    run(0);
    run(1);
    generator.setSavingShaders(false);
    run(2);

    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(".")) names.push_back(entry.path().filename());
    EXPECT_THAT(names, UnorderedElementsAre("shader_t1.vert", "shader_t1.frag"));
}

TEST(SavedShaders, SkipsAFileThatCannotBeWrittenSilently) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    std::filesystem::create_directory("shader_t.vert");
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    OpenShaderGenerator generator;
    generator.setSavingShaders(true);
    const StandardError standardError;
    const OsgMessages osgMessages;

    processPlain(generator, root);

    EXPECT_EQ(programName(root->getStateSet()), "shader_t");
    EXPECT_EQ(contentOf("shader_t.frag"), expectedFragmentText(ShaderFeatures(), RunSettings()));
    EXPECT_EQ(standardError.text() + osgMessages.text(), "");
}

TEST(SavedShaders, SharesProgramsThatCouldNotBeSaved) {
    const TemporaryDirectory directory;
    const std::filesystem::path gone = directory.path() / "gone";
    std::filesystem::create_directory(gone);
    const WorkingDirectory here(gone);
    std::filesystem::remove(gone);
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(new osg::StateSet));
    OpenShaderGenerator generator;
    generator.setSavingShaders(true);
    const StandardError standardError;

    processPlain(generator, root);

    EXPECT_EQ(standardError.text(), "");
    EXPECT_EQ(programName(root->getStateSet()), "shader_t");
    EXPECT_EQ(programOf(*root->getStateSet()), programOf(*root->getChild(0)->getStateSet()));
}

TEST(SavedShaders, BringsEditedTextsIntoTheSameShaders) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    OpenShaderGenerator generator;
    generator.setSavingShaders(true);
    processPlain(generator, root);
    const osg::Program& program = *programOf(*root->getStateSet());
    const std::vector<const osg::Shader*> shaders{program.getShader(0), program.getShader(1)};
    writeFile("shader_t.frag", "edited\r\n\ttext");
    const StandardError standardError;

    generator.reloadSavedShaders();

    EXPECT_EQ(standardError.text(), "");
    EXPECT_EQ(programOf(*root->getStateSet()), &program);
    EXPECT_THAT(shaders, ElementsAre(program.getShader(0), program.getShader(1)));
    EXPECT_EQ(program.getShader(0)->getShaderSource(), "edited\r\n\ttext");
    EXPECT_EQ(program.getShader(1)->getShaderSource(), expectedVertexText(ShaderFeatures(), RunSettings()));
}

TEST(SavedShaders, ReloadsNothingWhileSavingIsOff) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    OpenShaderGenerator generator;
    processPlain(generator, root);
    writeFile("shader_t.frag", "edited");
    const StandardError standardError;

    generator.reloadSavedShaders();

    EXPECT_EQ(sourceOf(*programOf(*root->getStateSet()), osg::Shader::FRAGMENT),
              expectedFragmentText(ShaderFeatures(), RunSettings()));
    EXPECT_EQ(standardError.text(), "");
}

TEST(SavedShaders, ReloadsProgramsThatWereNotSavedThemselves) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    OpenShaderGenerator generator;
    processPlain(generator, root);
    writeFile("shader_t.frag", "");
    writeFile("shader_t.vert", "edited");
    generator.setSavingShaders(true);

    generator.reloadSavedShaders();

    EXPECT_EQ(sourceOf(*programOf(*root->getStateSet()), osg::Shader::FRAGMENT), "");
    EXPECT_EQ(sourceOf(*programOf(*root->getStateSet()), osg::Shader::VERTEX), "edited");
}

TEST(SavedShaders, ReportsSavedFilesThatAreMissingInTheOrderOfTheNames) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    OpenShaderGenerator generator;
    for (const unsigned int unit : {2u, 10u, 0u}) processPlain(generator, makeGroup(makeTexturedState({unit})).get());
    generator.process(makeGroup(nullptr).get(), false, true, false, false);
    generator.setSavingShaders(true);
    const OsgMessages osgMessages;
    const StandardError standardError;

    generator.reloadSavedShaders();

    EXPECT_EQ(standardError.text(),
              "Error reading shader_t0.frag\nError reading shader_t0.vert\n"
              "Error reading shader_t10.frag\nError reading shader_t10.vert\n"
              "Error reading shader_t2.frag\nError reading shader_t2.vert\n"
              "Error reading shader_t_lighting.frag\nError reading shader_t_lighting.vert\n");
}

TEST(SavedShaders, KeepsTheSourceWhenAFolderStandsInTheFilesPlace) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    std::filesystem::create_directory("shader_t.frag");
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    OpenShaderGenerator generator;
    generator.setSavingShaders(true);
    processPlain(generator, root);
    writeFile("shader_t.vert", "edited");
    const OsgMessages osgMessages;
    const StandardError standardError;

    generator.reloadSavedShaders();

    EXPECT_EQ(standardError.text(), "Error reading shader_t.frag\n");
    EXPECT_EQ(sourceOf(*programOf(*root->getStateSet()), osg::Shader::FRAGMENT),
              expectedFragmentText(ShaderFeatures(), RunSettings()));
    EXPECT_EQ(sourceOf(*programOf(*root->getStateSet()), osg::Shader::VERTEX), "edited");
}

TEST(SavedShaders, ReloadsShadersOfOtherStagesFromTheBareName) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    OpenShaderGenerator generator;
    generator.setSavingShaders(true);
    processPlain(generator, root);
    osg::StateAttribute* const attribute = root->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM);
    osg::Program& program = *dynamic_cast<osg::Program*>(attribute);
    program.addShader(new osg::Shader(osg::Shader::GEOMETRY, "before"));
    program.setName("renamed");
    writeFile("shader_t", "edited");

    generator.reloadSavedShaders();

    EXPECT_EQ(sourceOf(program, osg::Shader::GEOMETRY), "edited");
}
