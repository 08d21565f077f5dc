#include "support/Conversions.h"
#include "support/Graphs.h"

#include <gmock/gmock.h>

#include <osg/Geometry>
#include <osg/Image>
#include <osg/MatrixTransform>
#include <osg/Program>
#include <osg/Texture2D>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

namespace fs = std::filesystem;

using namespace testing_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

const osg::Vec4 backgroundColor(51.0f / 255.0f, 51.0f / 255.0f, 102.0f / 255.0f, 1.0f);

osg::ref_ptr<osg::Image> readPicture(const std::string& path) {
    return osgDB::readRefImageFile(path);
}

osg::Vec4 colorAt(const osg::Image& picture, double x, double y) {
    return picture.getColor(static_cast<int>(x * picture.s()), static_cast<int>(y * picture.t()));
}

bool isBackground(const osg::Vec4& color) {
    return (osg::Vec3(color.r(), color.g(), color.b()) -
            osg::Vec3(backgroundColor.r(), backgroundColor.g(), backgroundColor.b()))
               .length() < 0.01f;
}

/** A square of that size in the xy plane around the origin, in one colour without light. */
osg::ref_ptr<osg::Geode> makeColoredSquare(float size, const osg::Vec4& color) {
    const osg::ref_ptr<osg::Geometry> square = osg::createTexturedQuadGeometry(
        osg::Vec3(-size / 2, -size / 2, 0), osg::Vec3(size, 0, 0), osg::Vec3(0, size, 0));
    const osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array(1, &color);
    square->setColorArray(colors, osg::Array::BIND_OVERALL);
    square->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return makeGeode(square);
}

const osg::Vec4 red(1, 0, 0, 1);
const osg::Vec4 green(0, 1, 0, 1);

/** A file that shows a red square, and those that a test adds. */
class Scene {
public:
    Scene() { osgDB::writeNodeFile(*makeColoredSquare(10.0f, red), file()); }

    std::string file() const { return _folder / "scene.osgb"; }
    std::string picture() const { return _folder / "picture.png"; }
    const TemporaryDirectory& folder() const { return _folder; }

    ToolResult render(const std::vector<std::string>& options) const {
        std::vector<std::string> arguments = {"render", file(), "-o", picture()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return runTool(arguments);
    }

private:
    TemporaryDirectory _folder;
};

std::string onlyLine(const ToolResult& result) {
    EXPECT_EQ(result.errorLines().size(), 1u) << result.errors;
    return result.errors;
}

/** A paged database: a near tile of that colour that hangs in a far one. */
void writePaged(const std::string& path, const std::string& tile) {
    const osg::ref_ptr<osg::PagedLOD> paged = new osg::PagedLOD;
    paged->setCenter(osg::Vec3());
    paged->setRadius(10.0f);
    paged->setFileName(0, tile);
    paged->setRange(0, 0.0f, 1e6f);
    osgDB::writeNodeFile(*paged, path);
}

}  // namespace

TEST(RenderCommand, DrawsAPictureOf1024By768PixelsFromTheSouth) {
    const Scene scene;

    const ToolResult result = scene.render({});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, MatchesRegex(".*/picture.png: 1024x768 pixels, seen from 0,-[0-9.]+,[0-9.]+\n"));
    const osg::ref_ptr<osg::Image> picture = readPicture(scene.picture());
    EXPECT_EQ(picture->s(), 1024);
    EXPECT_EQ(picture->t(), 768);
    EXPECT_EQ(colorAt(*picture, 0.5, 0.5), red);
    EXPECT_TRUE(isBackground(colorAt(*picture, 0.01, 0.99)));
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("picture.png", "scene.osgb"));
}

TEST(RenderCommand, HomeIsTheDefaultView) {
    const Scene scene;
    scene.render({});
    const std::string byDefault = readBytes(scene.picture());

    scene.render({"--home", "--overwrite"});

    EXPECT_EQ(readBytes(scene.picture()), byDefault);
}

TEST(RenderCommand, LooksFromTheEyeToTheGivenPoint) {
    const Scene scene;

    const ToolResult result = scene.render({"--size", "80x40", "--eye", "-20,0,20", "--look-at", "-20,0,0"});

    EXPECT_EQ(result.output, scene.picture() + ": 80x40 pixels, seen from -20,0,20\n");
    const osg::ref_ptr<osg::Image> picture = readPicture(scene.picture());
    EXPECT_EQ(picture->s(), 80);
    EXPECT_EQ(picture->t(), 40);
    EXPECT_TRUE(isBackground(colorAt(*picture, 0.5, 0.5)));
}

TEST(RenderCommand, WritesOtherPictureFormats) {
    const Scene scene;
    for (const char* name : {"p.jpg", "p.bmp", "p.tga", "p.rgb", "p.tif"}) {
        const ToolResult result = runTool({"render", scene.file(), "-o", scene.folder() / name, "--size", "8x8"});
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(readPicture(scene.folder() / name)->s(), 8) << name;
    }
}

TEST(RenderCommand, LoadsTilesBeforeThePictureIsTaken) {
    const Scene scene;
    osgDB::writeNodeFile(*makeColoredSquare(10.0f, green), scene.folder() / "tile.osgb");
    writePaged(scene.file(), "tile.osgb");

    EXPECT_EQ(scene.render({}).status, 0);
    EXPECT_EQ(colorAt(*readPicture(scene.picture()), 0.5, 0.5), green);

    EXPECT_EQ(scene.render({"--no-paging", "--overwrite"}).status, 0);
    EXPECT_TRUE(isBackground(colorAt(*readPicture(scene.picture()), 0.5, 0.5)));
}

TEST(RenderCommand, TellsTilesThatCannotBeReadAndDrawsTheRest) {
    const Scene scene;
    writePaged(scene.file(), "gone.osgb");

    const ToolResult result = scene.render({});

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(onlyLine(result),
              "sceneutils: " + scene.file() + ": tile " + (scene.folder() / "gone.osgb cannot be read\n"));
    EXPECT_TRUE(fs::exists(scene.picture()));
}

TEST(RenderCommand, DrawsATileThatRefersToItselfOnce) {
    const Scene scene;
    writePaged(scene.file(), "scene.osgb");

    const ToolResult result = scene.render({"--size", "8x8"});

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(onlyLine(result),
              "sceneutils: " + scene.file() + ": tile " + scene.file() + " refers to itself; it is drawn once\n");
    EXPECT_TRUE(fs::exists(scene.picture()));
}

TEST(RenderCommand, TellsATileWhoseNameHasALineBreakInOneLine) {
    const Scene scene;
    writePaged(scene.file(), "a\nb.ive");

    const ToolResult result = scene.render({"--size", "8x8"});

    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.errors, HasSubstr("/a?b.ive cannot be read\n"));
}

TEST(RenderCommand, FixedFunctionLeavesOutThePrograms) {
    const Scene scene;
    const osg::ref_ptr<osg::Geode> square = makeColoredSquare(10.0f, red);
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, "void main() { gl_FragColor = vec4(0, 1, 0, 1); }"));
    square->getOrCreateStateSet()->setAttribute(program);
    osgDB::writeNodeFile(*square, scene.file());

    scene.render({});
    EXPECT_EQ(colorAt(*readPicture(scene.picture()), 0.5, 0.5), green);

    scene.render({"--fixed-function", "--overwrite"});
    EXPECT_EQ(colorAt(*readPicture(scene.picture()), 0.5, 0.5), red);
}

// The generated programs compute light whatever the mode says, so that it shows whether they are there.
TEST(RenderCommand, ShadersGivesTheGraphAndItsTilesGeneratedPrograms) {
    const Scene scene;
    osgDB::writeNodeFile(*makeColoredSquare(10.0f, green), scene.folder() / "tile.osgb");
    writePaged(scene.folder() / "paged.osgb", "tile.osgb");
    for (const std::string& file : {scene.file(), scene.folder() / "paged.osgb"}) {
        runTool({"render", file, "-o", scene.folder() / "plain.png", "--overwrite"});
        runTool({"render", file, "-o", scene.folder() / "shaded.png", "--overwrite", "--shaders"});

        EXPECT_NE(colorAt(*readPicture(scene.folder() / "plain.png"), 0.5, 0.5),
                  colorAt(*readPicture(scene.folder() / "shaded.png"), 0.5, 0.5))
            << file;
    }
}

TEST(RenderCommand, ShadersGivesEachTileTheProgramsOfItsOwnState) {
    const Scene scene;
    const osg::ref_ptr<osg::Image> grey = new osg::Image;
    grey->allocateImage(1, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE);
    grey->setColor(osg::Vec4(0.5f, 0.5f, 0.5f, 1), 0);
    const osg::ref_ptr<osg::Geode> tile = makeColoredSquare(10.0f, green);
    tile->getOrCreateStateSet()->setTextureAttributeAndModes(0, new osg::Texture2D(grey));
    osgDB::writeNodeFile(*tile, scene.folder() / "tile.osgb");
    writePaged(scene.file(), "tile.osgb");

    EXPECT_EQ(scene.render({"--shaders"}).status, 0);

    // The program of the file around it would leave out the texture.
    EXPECT_LT(colorAt(*readPicture(scene.picture()), 0.5, 0.5).g(), 0.6f);
}

TEST(RenderCommand, TellsWhatTheDriverSaysOfAProgramThatDoesNotCompile) {
    const Scene scene;
    const osg::ref_ptr<osg::Geode> square = makeColoredSquare(10.0f, red);
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, "void main() { gl_FragColor = nonsense; }"));
    square->getOrCreateStateSet()->setAttribute(program);
    osgDB::writeNodeFile(*square, scene.file());
    for (const std::vector<std::string>& options : {std::vector<std::string>{}, {"--no-paging", "--overwrite"}}) {
        const ToolResult result = scene.render(options);

        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(result.errors, HasSubstr("`nonsense' undeclared"));
        for (const std::string& line : result.errorLines()) EXPECT_THAT(line, StartsWith("sceneutils: "));
    }
}

TEST(RenderCommand, TellsTheTimesOfFrames) {
    const Scene scene;

    const ToolResult result = runTool({"render", scene.file(), "--time-frames", "5", "--size", "16x16"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, MatchesRegex("ms of 5 frames: median, fastest, slowest\n"
                                            "frame +[0-9.]+ +[0-9.]+ +[0-9.]+\n"
                                            "cull +[0-9.]+ +[0-9.]+ +[0-9.]+\n"
                                            "draw +[0-9.]+ +[0-9.]+ +[0-9.]+\n"));
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("scene.osgb"));
}

TEST(RenderCommand, VerboseTellsTheDriverAndItsVersion) {
    const Scene scene;

    EXPECT_THAT(onlyLine(scene.render({"--verbose"})),
                MatchesRegex("sceneutils: driver .+, OpenGL [0-9]+\\.[0-9].*\n"));
}

TEST(RenderCommand, RefusesWhatItCannotDo) {
    const Scene scene;
    const auto refusal = [&](const std::vector<std::string>& options) {
        const ToolResult result = scene.render(options);
        EXPECT_EQ(result.status, 1);
        return onlyLine(result);
    };

    EXPECT_EQ(refusal({"--size", "0x5"}), "sceneutils: --size: '0x5' is no WIDTHxHEIGHT, each 1 to 16384 pixels\n");
    EXPECT_EQ(refusal({"--size", "5x16385"}),
              "sceneutils: --size: '5x16385' is no WIDTHxHEIGHT, each 1 to 16384 pixels\n");
    EXPECT_EQ(refusal({"--size", "5x5x5"}), "sceneutils: --size: '5x5x5' is no WIDTHxHEIGHT, each 1 to 16384 pixels\n");
    EXPECT_EQ(refusal({"--eye", "1,2,3"}), "sceneutils: --eye and --look-at belong together\n");
    EXPECT_EQ(refusal({"--look-at", "1,2,3"}), "sceneutils: --eye and --look-at belong together\n");
    EXPECT_EQ(refusal({"--eye", "1,2", "--look-at", "1,2,3"}), "sceneutils: --eye: '1,2' is no X,Y,Z\n");
    EXPECT_EQ(refusal({"--eye", "1,2,3", "--look-at", "1,2,x"}), "sceneutils: --look-at: '1,2,x' is no X,Y,Z\n");
    EXPECT_EQ(refusal({"--eye", "1,2,3", "--look-at", "1,2,3"}),
              "sceneutils: --eye and --look-at are the same point\n");
    EXPECT_THAT(refusal({"--home", "--eye", "1,2,3"}), HasSubstr("--eye"));
    EXPECT_THAT(refusal({"--fixed-function", "--shaders"}), HasSubstr("--fixed-function"));
    EXPECT_THAT(refusal({"--time-frames", "0"}), HasSubstr("--time-frames"));
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("scene.osgb"));
}

TEST(RenderCommand, WantsAPictureOrFramesToTime) {
    const Scene scene;
    const ToolResult result = runTool({"render", scene.file()});

    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(onlyLine(result), "sceneutils: say where the picture shall go with -o, or pass --time-frames\n");
}

TEST(RenderCommand, RefusesAnEmptyGraphWithoutAViewAndDrawsItWithOne) {
    const Scene scene;
    osgDB::writeNodeFile(*osg::ref_ptr<osg::Group>(new osg::Group), scene.file());

    const ToolResult refused = scene.render({});
    EXPECT_EQ(refused.status, 3);
    EXPECT_EQ(onlyLine(refused),
              "sceneutils: " + scene.file() +
                  ": nothing in it has a finite extent; say where to look with --eye and --look-at\n");

    EXPECT_EQ(scene.render({"--eye", "0,-1,0", "--look-at", "0,0,0"}).status, 0);
    EXPECT_TRUE(isBackground(colorAt(*readPicture(scene.picture()), 0.5, 0.5)));
}

TEST(RenderCommand, RefusesPointsThatGiveNoDirection) {
    const Scene scene;
    const std::string problem = "sceneutils: --eye and --look-at are too far apart or too close together\n";

    const ToolResult far = scene.render({"--eye", "1e300,0,0", "--look-at", "-1e300,0,0"});
    EXPECT_EQ(far.status, 1);
    EXPECT_EQ(onlyLine(far), problem);
    EXPECT_EQ(onlyLine(scene.render({"--eye", "1e-320,0,0", "--look-at", "0,0,0"})), problem);
    EXPECT_EQ(onlyLine(scene.render({"--eye", "nan,0,0", "--look-at", "0,0,0"})),
              "sceneutils: --eye: 'nan,0,0' is no X,Y,Z\n");
    EXPECT_EQ(onlyLine(scene.render({"--eye", "", "--look-at", ""})), "sceneutils: --eye: '' is no X,Y,Z\n");
    EXPECT_FALSE(fs::exists(scene.picture()));
}

TEST(RenderCommand, NeverReplacesItsInput) {
    const Scene scene;
    const std::string before = readBytes(scene.file());
    fs::create_symlink("scene.osgb", scene.folder() / "link.osgb");

    for (const char* name : {"scene.osgb", "link.osgb", "missing/../scene.osgb"}) {
        const std::string picture = scene.folder() / name;
        const ToolResult result = runTool({"render", scene.file(), "-o", picture, "--overwrite"});
        EXPECT_EQ(result.status, 4);
        EXPECT_EQ(onlyLine(result), "sceneutils: " + picture + ": is one of the inputs; choose another name\n");
    }

    EXPECT_EQ(readBytes(scene.file()), before);
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("link.osgb", "scene.osgb"));
}

TEST(RenderCommand, NeverReplacesAPictureUnlessTold) {
    const Scene scene;
    writeBytes(scene.picture(), "precious");

    const ToolResult result = scene.render({});

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(onlyLine(result),
              "sceneutils: " + scene.picture() + ": exists already; pass --overwrite to replace it\n");
    EXPECT_EQ(readBytes(scene.picture()), "precious");
    EXPECT_EQ(scene.render({"--overwrite"}).status, 0);
}

TEST(RenderCommand, SaysThatTheInputCannotBeRead) {
    const Scene scene;
    fs::remove(scene.file());

    const ToolResult result = scene.render({});

    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(onlyLine(result), "sceneutils: " + scene.file() + ": no such file\n");
    EXPECT_EQ(onlyLine(runTool({"render", "a\nb.osgb", "-o", scene.picture()})),
              "sceneutils: a?b.osgb: no such file\n");
}

TEST(RenderCommand, SaysInOneLineThatThereIsNoDriver) {
    const Scene scene;
    ToolSettings settings;
    settings.environment = {{"__EGL_VENDOR_LIBRARY_FILENAMES", "/dev/null"}};

    const ToolResult result = runTool({"render", scene.file(), "-o", scene.picture()}, settings);

    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(onlyLine(result), StartsWith("sceneutils: cannot draw: no driver can draw without a window system"));
    EXPECT_FALSE(fs::exists(scene.picture()));
}

TEST(RenderCommand, HelpListsEveryOptionWithItsDefault) {
    const ToolResult result = runTool({"render", "--help"});

    EXPECT_EQ(result.status, 0);
    for (const char* word :
         {"FILE", "-o,--output", "--size", "1024x768", "--eye", "--look-at", "--home", "--fixed-function", "--shaders",
          "--time-frames", "--no-paging", "--overwrite", "--verbose"})
        EXPECT_THAT(result.output, HasSubstr(word));
}
