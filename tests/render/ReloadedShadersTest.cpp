#include <sceneutils/SceneUtils.h>

#include <offscreen/SceneRenderer.h>

#include "support/Graphs.h"
#include "support/OpenShaderGenerator.h"
#include "support/OsgMessages.h"
#include "support/Pictures.h"
#include "support/ShaderGraphs.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <string>

/** What is seen after the files of shaders were edited while an application draws. */
namespace {

using testing_support::blue;
using testing_support::centerOf;
using testing_support::green;
using testing_support::makeGeode;
using testing_support::makeSquare;
using testing_support::OpenShaderGenerator;
using testing_support::OsgMessages;
using testing_support::red;
using testing_support::ShownPictures;
using testing_support::StandardError;
using testing_support::TemporaryDirectory;
using testing_support::WorkingDirectory;
using veltrane::sceneutils::loadShader;
using veltrane::sceneutils::reloadShader;
using veltrane::sceneutils::offscreen::SceneRenderer;

constexpr int size = 32;

/** A red square, not lit. */
osg::ref_ptr<osg::Geode> makeRedSquare() {
    const osg::ref_ptr<osg::Geometry> square = makeSquare();
    osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array(osg::Array::BIND_OVERALL);
    colors->push_back(osg::Vec4(1, 0, 0, 1));
    square->setColorArray(colors);
    osg::ref_ptr<osg::Geode> geode = makeGeode(square);
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return geode;
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

/** A fragment shader that gives everything that colour. */
std::string painting(const std::string& color) {
    return "#version 130\nvoid main(void) { gl_FragColor = vec4(" + color + ", 1); }\n";
}

const std::string paintingGreen = painting("0, 1, 0");
const std::string paintingBlue = painting("0, 0, 1");

/** Moves everything out of the picture. */
const std::string movingAway = "#version 130\nvoid main(void) { gl_Position = vec4(9, 9, 9, 1); }\n";

}  // namespace

TEST(ReloadedShaders, ShowInTheNextFrame) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    const osg::ref_ptr<osg::Node> scene = makeRedSquare();
    OpenShaderGenerator generator;
    generator.setSavingShaders(true);
    generator.process(scene, false, false, false, false);
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    ShownPictures shown("reloaded-shaders");
    EXPECT_EQ(centerOf(*shown.add(renderer.drawPicture())), red);

    writeFile("shader_t.frag", paintingGreen);
    EXPECT_EQ(centerOf(*shown.add(renderer.drawPicture())), red);
    generator.reloadSavedShaders();
    EXPECT_EQ(centerOf(*shown.add(renderer.drawPicture())), green);

    writeFile("shader_t.frag", paintingBlue);
    generator.reloadSavedShaders();
    EXPECT_EQ(centerOf(*shown.add(renderer.drawPicture())), blue);
}

TEST(ReloadedShaders, ShowEditedVertexShadersToo) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    const osg::ref_ptr<osg::Node> scene = makeRedSquare();
    OpenShaderGenerator generator;
    generator.setSavingShaders(true);
    generator.process(scene, false, false, false, false);
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    EXPECT_EQ(centerOf(*renderer.drawPicture()), red);

    writeFile("shader_t.vert", movingAway);
    generator.reloadSavedShaders();

    EXPECT_EQ(centerOf(*renderer.drawPicture()), testing_support::background);
}

TEST(ReloadedShaders, ShowInEveryRendererThatDrawsWithThem) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    const osg::ref_ptr<osg::Node> scene = makeRedSquare();
    const osg::ref_ptr<osg::Node> another = makeRedSquare();
    OpenShaderGenerator generator;
    generator.setSavingShaders(true);
    generator.process(scene, false, false, false, false);
    generator.process(another, false, false, false, false);
    SceneRenderer left(size, size);
    SceneRenderer right(size, size);
    left.setScene(scene);
    right.setScene(another);
    EXPECT_EQ(centerOf(*left.drawPicture()), red);
    EXPECT_EQ(centerOf(*right.drawPicture()), red);

    writeFile("shader_t.frag", paintingGreen);
    generator.reloadSavedShaders();

    EXPECT_EQ(centerOf(*left.drawPicture()), green);
    EXPECT_EQ(centerOf(*right.drawPicture()), green);
}

TEST(ReloadedShaders, ShowTheFixedFunctionsWhileAnEditDoesNotCompile) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    const osg::ref_ptr<osg::Node> scene = makeRedSquare();
    OpenShaderGenerator generator;
    generator.setSavingShaders(true);
    generator.process(scene, false, false, false, false);
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    writeFile("shader_t.frag", paintingGreen);
    generator.reloadSavedShaders();
    EXPECT_EQ(centerOf(*renderer.drawPicture()), green);
    const OsgMessages osgMessages;

    writeFile("shader_t.frag", "void main(void) { mistake }");
    generator.reloadSavedShaders();
    EXPECT_EQ(centerOf(*renderer.drawPicture()), red);
    EXPECT_NE(osgMessages.text(), "");

    writeFile("shader_t.frag", paintingBlue);
    generator.reloadSavedShaders();
    EXPECT_EQ(centerOf(*renderer.drawPicture()), blue);
}

TEST(ReloadedShaders, ShowTheTextAsItWasWhereTheFileIsGone) {
    const TemporaryDirectory directory;
    const WorkingDirectory here(directory.path());
    const osg::ref_ptr<osg::Node> scene = makeRedSquare();
    OpenShaderGenerator generator;
    generator.setSavingShaders(true);
    generator.process(scene, false, false, false, false);
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    writeFile("shader_t.frag", paintingGreen);
    generator.reloadSavedShaders();
    EXPECT_EQ(centerOf(*renderer.drawPicture()), green);
    const OsgMessages osgMessages;
    const StandardError standardError;

    std::filesystem::remove("shader_t.frag");
    generator.reloadSavedShaders();

    EXPECT_EQ(centerOf(*renderer.drawPicture()), green);
    EXPECT_EQ(standardError.text(), "Error reading shader_t.frag\n");
}

TEST(LoadedShader, IsDrawnWith) {
    const TemporaryDirectory directory;
    writeFile(directory / "paint.frag", paintingGreen);
    const osg::ref_ptr<osg::Node> scene = makeRedSquare();
    scene->getOrCreateStateSet()->setAttribute(loadShader(directory / "paint.frag", osg::Shader::FRAGMENT));
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);

    EXPECT_EQ(centerOf(*renderer.drawPicture()), green);
}

TEST(LoadedShader, ShowsInTheNextFrameWhenReloaded) {
    const TemporaryDirectory directory;
    writeFile(directory / "paint.frag", paintingGreen);
    const osg::ref_ptr<osg::Program> program = loadShader(directory / "paint.frag", osg::Shader::FRAGMENT);
    const osg::ref_ptr<osg::Node> scene = makeRedSquare();
    scene->getOrCreateStateSet()->setAttribute(program);
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    EXPECT_EQ(centerOf(*renderer.drawPicture()), green);

    writeFile(directory / "paint.frag", paintingBlue);
    EXPECT_EQ(centerOf(*renderer.drawPicture()), green);
    reloadShader(directory / "paint.frag", osg::Shader::FRAGMENT, program);

    EXPECT_EQ(centerOf(*renderer.drawPicture()), blue);
}

TEST(LoadedShader, LeavesThePictureAsItWasWhereTheFileIsGone) {
    const TemporaryDirectory directory;
    writeFile(directory / "paint.frag", paintingGreen);
    const osg::ref_ptr<osg::Program> program = loadShader(directory / "paint.frag", osg::Shader::FRAGMENT);
    const osg::ref_ptr<osg::Node> scene = makeRedSquare();
    scene->getOrCreateStateSet()->setAttribute(program);
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    EXPECT_EQ(centerOf(*renderer.drawPicture()), green);

    reloadShader(directory / "gone.frag", osg::Shader::FRAGMENT, program);

    EXPECT_EQ(centerOf(*renderer.drawPicture()), green);
}

TEST(LoadedShader, DrawsByFixedFunctionsWhereTheFileIsMissing) {
    const osg::ref_ptr<osg::Node> scene = makeRedSquare();
    scene->getOrCreateStateSet()->setAttribute(loadShader("missing.frag", osg::Shader::FRAGMENT));
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);

    EXPECT_EQ(centerOf(*renderer.drawPicture()), red);
}

TEST(LoadedShader, TakesThePlaceOfAllShadersOfTheProgram) {
    const TemporaryDirectory directory;
    writeFile(directory / "paint.frag", paintingGreen);
    writeFile(directory / "away.vert", movingAway);
    const osg::ref_ptr<osg::Program> program = loadShader(directory / "away.vert", osg::Shader::VERTEX);
    const osg::ref_ptr<osg::Node> scene = makeRedSquare();
    scene->getOrCreateStateSet()->setAttribute(program);
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    EXPECT_EQ(centerOf(*renderer.drawPicture()), testing_support::background);

    reloadShader(directory / "paint.frag", osg::Shader::FRAGMENT, program);

    EXPECT_EQ(centerOf(*renderer.drawPicture()), green);
}
