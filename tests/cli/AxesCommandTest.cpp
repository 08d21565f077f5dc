#include "support/Conversions.h"
#include "support/DebugGeometry.h"
#include "support/Pictures.h"
#include "support/ToolJson.h"

#include <gmock/gmock.h>

#include <osg/MatrixTransform>
#include <osg/Program>
#include <osgDB/ReadFile>

#include <set>

using namespace testing_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const osg::Vec3 origin;
const char* const endings[] = {".ive", ".osg", ".osgb", ".osgt", ".osgx"};

/** The one geometry of a file that `axes` has written. */
osg::ref_ptr<osg::Geometry> loadLines(const std::string& file) {
    return findAll<osg::Geometry>(load(file)).at(0);
}

}  // namespace

TEST(AxesCommand, WritesAxesOfLength1AndTellsSo) {
    const TemporaryDirectory folder;

    const ToolResult result = runTool({"axes", folder / "axes.ive"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, (folder / "axes.ive") + ": axes of length 1, x red, y green, z blue\n");
    EXPECT_THAT(verticesOf(*loadLines(folder / "axes.ive")),
                ElementsAre(osg::Vec3(1, 0, 0), origin, osg::Vec3(0, 1, 0), origin, osg::Vec3(0, 0, 1), origin));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("axes.ive"));
}

TEST(AxesCommand, KeepsControlCharactersOfTheNameFromTheTerminal) {
    const TemporaryDirectory folder;

    EXPECT_EQ(runTool({"axes", folder / "ax\033es.ive"}).output,
              (folder / "ax?es.ive") + ": axes of length 1, x red, y green, z blue\n");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("ax\033es.ive"));
}

TEST(AxesCommand, WritesTheSameInEveryFormat) {
    const TemporaryDirectory folder;

    for (const std::string ending : endings) {
        const std::string file = folder / ("axes" + ending);
        const ToolResult result = runTool({"axes", file, "--size", "2.5"});
        ASSERT_EQ(result.status, 0) << ending << result.errors;
        EXPECT_EQ(result.errors, "") << ending;
        const osg::ref_ptr<osg::Geometry> lines = loadLines(file);
        EXPECT_EQ(verticesOf(*lines), (std::vector<osg::Vec3>{{2.5f, 0, 0}, {}, {0, 2.5f, 0}, {}, {0, 0, 2.5f}, {}}))
            << ending;
        const osg::Vec4 r(1, 0, 0, 1), g(0, 1, 0, 1), b(0, 0, 1, 1);
        EXPECT_THAT(colorsOf(*lines), ElementsAre(r, r, g, g, b, b)) << ending;
        EXPECT_THAT(indicesOf(*lines, GL_LINES), ElementsAre(0, 1, 2, 3, 4, 5)) << ending;
        EXPECT_THAT(normalsOf(*lines), ElementsAre(osg::Vec3(0, 0, 1))) << ending;
        EXPECT_EQ(lines->getNormalArray()->getBinding(), osg::Array::BIND_OVERALL) << ending;
        EXPECT_TRUE(attributeOf<osg::Program>(*lines->getStateSet())) << ending;
    }
}

TEST(AxesCommand, LooksTheSameFromEveryFormat) {
    const TemporaryDirectory folder;
    ShownPictures shown("axes_command");
    std::vector<osg::ref_ptr<osg::Image>> pictures;

    for (const std::string ending : endings) {
        const std::string file = folder / ("axes" + ending);
        runTool({"axes", file});
        ASSERT_EQ(runTool({"render", file, "-o", folder / (ending + ".png"), "--size", "100x100"}).status, 0) << ending;
        pictures.push_back(shown.add(osgDB::readRefImageFile(folder / (ending + ".png"))));
        EXPECT_EQ(differenceOf(*pictures.back(), *pictures.front()).pixels, 0) << ending;
    }
    std::set<Rgb> colors;
    forEachPixel(*pictures.front(), [&](int x, int y) { colors.insert(pixelAt(*pictures.front(), x, y)); });
    EXPECT_EQ(colors, (std::set<Rgb>{red, green, blue, background}));
}

TEST(AxesCommand, NeverReplacesAnOutputUnlessTold) {
    const TemporaryDirectory folder;
    writeBytes(folder / "axes.ive", "precious");

    EXPECT_EQ(onlyLineOf({"axes", folder / "axes.ive"}, 4),
              "sceneutils: " + (folder / "axes.ive: exists already; pass --overwrite to replace it\n"));
    EXPECT_EQ(readBytes(folder / "axes.ive"), "precious");
    EXPECT_EQ(runTool({"axes", folder / "axes.ive", "--overwrite"}).status, 0);
    EXPECT_EQ(verticesOf(*loadLines(folder / "axes.ive")).size(), 6u);
}

TEST(AxesCommand, RefusesSizesThatAreNone) {
    const TemporaryDirectory folder;

    for (const char* size : {"0", "-1", "nan", "inf", "-inf", "1e39", "1e-60"}) {
        EXPECT_EQ(onlyLineOf({"axes", folder / "axes.ive", "--size=" + std::string(size)}, 1),
                  "sceneutils: --size: a size is a number greater than 0\n")
            << size;
    }
    EXPECT_THAT(onlyLineOf({"axes", folder / "axes.ive", "--size", "long"}, 1), HasSubstr("--size"));
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST(AxesCommand, RefusesFormatsThatCannotHoldIt) {
    const TemporaryDirectory folder;

    for (const char* name : {"axes.obj", "axes.xyz", "axes"}) {
        EXPECT_EQ(onlyLineOf({"axes", folder / name}, 1),
                  "sceneutils: " + (folder / name) +
                      ": the output's name must end in .ive, .osg, .osgb, .osgt or .osgx; no other format keeps "
                      "coloured lines\n");
    }
    EXPECT_THAT(onlyLineOf({"axes"}, 1), HasSubstr("OUT"));
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST(AxesCommand, LeavesNothingBehindWhenItFails) {
    const TemporaryDirectory folder;
    ToolSettings settings;
    settings.fileSizeLimit = 100;
    settings.diesOfFileSize = true;

    const ToolResult result = runTool({"axes", folder / "axes.ive"}, settings);

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}
