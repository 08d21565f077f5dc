#include "support/Conversions.h"
#include "support/Graphs.h"
#include "support/LODDrawings.h"
#include "support/Pictures.h"
#include "support/ToolJson.h"
#include "support/Town.h"

#include <markup/PictureLayout.h>

#include <gmock/gmock.h>

#include <osg/MatrixTransform>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <limits>

using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr Rgb yellow{255, 255, 0};
constexpr Rgb cyan{0, 255, 255};
constexpr Rgb magenta{255, 0, 255};
constexpr Rgb orange{255, 128, 0};
constexpr Rgb white{255, 255, 255};
constexpr Rgb black{0, 0, 0};

osg::ref_ptr<osg::LOD> makeHouse(const std::vector<float>& ends, float radius = 8.0f) {
    const osg::ref_ptr<osg::LOD> house = makeLOD("house", osg::Vec3(), radius);
    float begin = 0.0f;
    for (const float end : ends) {
        const osg::ref_ptr<osg::Geode> level = makeGround(10.0f);
        level->setName("level");
        house->addChild(level, begin, end);
        begin = end;
    }
    return house;
}

/** A graph in a file, and the picture that `markup` makes of it. */
class Scene {
public:
    explicit Scene(const osg::ref_ptr<osg::Node>& root) {
        const osg::ref_ptr<osg::Group> world = new osg::Group;
        world->addChild(root);
        osgDB::writeNodeFile(*world, in());
    }

    std::string in() const { return _folder / "in.osgb"; }
    std::string out() const { return _folder / "out.osgb"; }
    std::string picture() const { return _folder / "out.png"; }
    const TemporaryDirectory& folder() const { return _folder; }

    ToolResult run(const std::vector<std::string>& options = {}, const ToolSettings& settings = {}) const {
        std::vector<std::string> arguments = {"markup", in(), out(), "--picture", picture(), "--overwrite"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return runTool(arguments, settings);
    }

    osg::ref_ptr<osg::Image> draw(const std::vector<std::string>& options = {}) const {
        const ToolResult result = run(options);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.errors, "");
        const osg::ref_ptr<osg::Image> drawn = osgDB::readRefImageFile(picture());
        return drawn ? drawn.get() : new osg::Image;
    }

private:
    TemporaryDirectory _folder;
};

/** The columns and rows that a colour has in a part of a picture. */
struct Extent {
    int left = std::numeric_limits<int>::max();
    int right = -1;
    int bottom = std::numeric_limits<int>::max();
    int top = -1;
    int pixels = 0;

    int width() const { return right - left; }
    int height() const { return top - bottom; }
};

Extent extentOf(const osg::Image& picture, const Rgb& color, int fromColumn, int toColumn, int fromRow, int toRow) {
    Extent extent;
    for (int y = fromRow; y < toRow; ++y) {
        for (int x = fromColumn; x < toColumn; ++x) {
            if (pixelAt(picture, x, y) != color) continue;
            extent.left = std::min(extent.left, x);
            extent.right = std::max(extent.right, x);
            extent.bottom = std::min(extent.bottom, y);
            extent.top = std::max(extent.top, y);
            ++extent.pixels;
        }
    }
    return extent;
}

constexpr int legendHeight = 70;  // at most, in these tests

Extent inTheLeftPanel(const osg::Image& picture, const Rgb& color) {
    return extentOf(picture, color, 0, picture.s() / 2, legendHeight, picture.t());
}

Extent inTheRightPanel(const osg::Image& picture, const Rgb& color) {
    return extentOf(picture, color, picture.s() / 2, picture.s(), legendHeight, picture.t());
}

Extent inTheLegend(const osg::Image& picture, const Rgb& color) {
    return extentOf(picture, color, 0, picture.s(), 0, legendHeight);
}

bool isDark(const Rgb& color) {
    return color[0] < 100 && color[1] < 100 && color[2] < 100;
}

/** How many pixels of the legend are as dark as its letters. */
int inkIn(const osg::Image& picture) {
    int count = 0;
    for (int y = 0; y < legendHeight; ++y) {
        for (int x = 0; x < picture.s(); ++x) count += isDark(pixelAt(picture, x, y));
    }
    return count;
}

/** The length of the scale in pixels: the longest black run of the lowest rows. */
int scaleLength(const osg::Image& picture) {
    int longest = 0;
    for (int y = 0; y < legendHeight; ++y) {
        int run = 0;
        for (int x = 0; x < picture.s(); ++x) {
            run = pixelAt(picture, x, y) == black ? run + 1 : 0;
            longest = std::max(longest, run);
        }
    }
    return longest;
}

Figure makeFigure(const osg::Vec3d& center, double half) {
    const osg::Vec3d diagonal(half, half, half);
    return {{}, "", osg::BoundingBoxd(center - diagonal, center + diagonal)};
}

std::vector<double> reachesOf(const PictureContent& content) {
    std::vector<double> reaches;
    for (const Figure& figure : content.figures) reaches.push_back(figure.reach());
    return reaches;
}

/** Around the origin, with a radius of 5. */
const osg::BoundingBoxd sceneOfRadius5({-3.0, -4.0, 0.0}, {3.0, 4.0, 0.0});

PictureArea boxAt(double x, double y, double width, double height) {
    return {{x, y}, {x + width, y + height}};
}

}  // namespace

TEST(MarkupPicture, ShowsTheBoxesOfAnLodFromAboveAndFromTheSide) {
    ShownPictures shown("markup_house");
    const Scene scene(makeHouse({50.0f, 25.0f}));

    const auto picture = shown.add(scene.draw());

    EXPECT_EQ(picture->s(), 1600);
    EXPECT_EQ(picture->t(), 900);
    for (const auto& panel : {inTheLeftPanel(*picture, green), inTheRightPanel(*picture, green)}) {
        EXPECT_NEAR(panel.width(), panel.height(), 2);
        EXPECT_GT(panel.width(), 600);
    }
    const double range = inTheLeftPanel(*picture, green).width();
    EXPECT_NEAR(inTheLeftPanel(*picture, testing_support::red).width() / range, 8.0 / 50.0, 0.01);
    for (const Rgb& color : {testing_support::red, green, blue}) EXPECT_GT(inTheLegend(*picture, color).pixels, 50);
    for (const Rgb& color : {yellow, cyan, magenta, orange, white}) EXPECT_EQ(inTheLegend(*picture, color).pixels, 0);
}

TEST(MarkupPicture, TellsItsSizeAndWritesTheGraphToo) {
    const Scene scene(makeHouse({50.0f}));

    const ToolResult result = scene.run({"--size", "400x500"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output,
              scene.out() + ": 1 LOD and 0 paged LODs marked\n" + scene.picture() + ": 400x500 pixels\n");
    EXPECT_EQ(osgDB::readRefImageFile(scene.picture())->t(), 500);
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb", "out.osgb", "out.png"));
}

TEST(MarkupPicture, WritesTheSameGraphAsWithoutAPicture) {
    const Scene scene(makeTown());
    ASSERT_EQ(scene.run().status, 0);
    const osg::ref_ptr<osg::Node> withPicture = load(scene.out());

    runTool({"markup", scene.in(), scene.out(), "--overwrite"});

    EXPECT_EQ(GraphText(*withPicture).text(), textOf(scene.out()));
}

TEST(MarkupPicture, HasAScaleOfARoundLength) {
    const Scene scene(makeHouse({50.0f}));

    const auto picture = scene.draw();

    // The box is 100 units wide; its lines are two pixels wide.
    const double pixelsPerUnit = (inTheLeftPanel(*picture, green).width() - 1) / 100.0;
    EXPECT_NEAR(scaleLength(*picture), 20.0 * pixelsPerUnit, 2.0);
}

TEST(MarkupPicture, ShowsWherePagedLodsSwitchAndLoadsTheirTiles) {
    ShownPictures shown("markup_paged");
    const osg::ref_ptr<osg::PagedLOD> paged = makeLOD<osg::PagedLOD>("", osg::Vec3(), 20.0f);
    paged->setFileName(0, "tile.osgb");
    paged->setRange(0, 0.0f, 60.0f);
    const Scene scene(paged);
    osgDB::writeNodeFile(*makeGround(30.0f), scene.folder() / "tile.osgb");

    const auto withTile = shown.add(scene.draw());
    const auto withoutTile = shown.add(scene.draw({"--no-paging"}));

    for (const Rgb& color : {yellow, cyan, magenta}) EXPECT_GT(inTheLegend(*withTile, color).pixels, 50);
    EXPECT_GT(differenceOf(*withTile, *withoutTile).pixels, 1000);
    EXPECT_EQ(findAll<osg::PagedLOD>(load(scene.out())).at(0)->getNumChildren(), 0u);
}

TEST(MarkupPicture, TellsTilesThatAreMissingAndWritesTheRest) {
    const osg::ref_ptr<osg::PagedLOD> paged = makeLOD<osg::PagedLOD>("", osg::Vec3(), 20.0f);
    paged->setFileName(0, "tile.osgb");
    paged->setRange(0, 0.0f, 60.0f);
    const Scene scene(paged);

    const ToolResult result = scene.run();

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errors,
              "sceneutils: " + scene.in() + ": tile " + (scene.folder() / "tile.osgb") + " cannot be read\n");
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb", "out.osgb", "out.png"));
}

TEST(MarkupPicture, ShowsAnLodWithoutARadiusInWhite) {
    const auto picture = Scene(makeHouse({30.0f}, -1.0f)).draw();

    const double range = inTheLeftPanel(*picture, green).width();
    EXPECT_NEAR(inTheLeftPanel(*picture, white).width() / range, 5.0 / 30.0, 0.01);
    EXPECT_GT(inTheLegend(*picture, white).pixels, 50);
}

TEST(MarkupPicture, ShowsTheChainToANode) {
    ShownPictures shown("markup_chain");
    const osg::ref_ptr<osg::MatrixTransform> moved = new osg::MatrixTransform(osg::Matrix::translate(40.0, 0.0, 0.0));
    moved->addChild(makeHouse({50.0f}));

    const auto picture = shown.add(Scene(moved).draw({"--path", "level"}));

    for (const Rgb& color : {testing_support::red, green, blue, orange}) {
        EXPECT_GT(inTheLegend(*picture, color).pixels, 50);
        EXPECT_GT(inTheLeftPanel(*picture, color).pixels, 50);
    }
    EXPECT_LT(inTheRightPanel(*picture, green).height(), 10);
}

TEST(MarkupPicture, StaysReadableInATown) {
    ShownPictures shown("markup_town");

    const auto picture = shown.add(Scene(makeTown()).draw());

    EXPECT_GT(inTheLeftPanel(*picture, green).pixels, 1000);
}

TEST(MarkupPicture, LeavesOutBoxesThatWouldMakeTheSceneADot) {
    ShownPictures shown("markup_far");
    const Scene scene(makeHouse({50.0f, 1e9f}));

    const auto far = shown.add(scene.draw());
    const auto near = shown.add(Scene(makeHouse({50.0f})).draw());
    const auto nearer = shown.add(scene.draw({"--reach", "3"}));

    EXPECT_EQ(inTheLeftPanel(*far, green).width(), inTheLeftPanel(*near, green).width());
    EXPECT_GT(inkIn(*far), inkIn(*near) + 100);  // the note that something is left out
    EXPECT_EQ(inTheLegend(*nearer, green).pixels, 0);
    EXPECT_GT(inTheLeftPanel(*nearer, testing_support::red).width(), 600);
}

TEST(MarkupPicture, WritesNothingWithoutADriver) {
    const Scene scene(makeHouse({50.0f}));
    ToolSettings settings;
    settings.environment = {{"__EGL_VENDOR_LIBRARY_FILENAMES", "/dev/null"}};

    const ToolResult result = scene.run({}, settings);

    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "");
    ASSERT_EQ(result.errorLines().size(), 1u) << result.errors;
    EXPECT_THAT(result.errors, StartsWith("sceneutils: cannot draw: no driver can draw without a window system"));
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb"));
}

TEST(MarkupPicture, WritesNothingWhenThereIsNothingToSee) {
    const Scene scene(new osg::Group);

    const ToolResult result = scene.run();

    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.errors, "sceneutils: " + scene.in() + ": nothing in it has a finite extent\n");
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb"));
}

TEST(MarkupPicture, RefusesSizesThatAreTooSmallForALegend) {
    const Scene scene(makeHouse({50.0f}));

    for (const char* size : {"399x400", "400x399", "400x16385", "400"}) {
        EXPECT_EQ(onlyLineOf({"markup", scene.in(), scene.out(), "--picture", scene.picture(), "--size", size}, 1),
                  "sceneutils: --size: '" + std::string(size) + "' is no WIDTHxHEIGHT, each 400 to 16384 pixels\n");
    }
}

TEST(PictureLayout, LeavesOutWhatReachesFurtherThanSoManyRadiiOfTheScene) {
    const std::vector<Figure> figures = {makeFigure({}, 1.0), makeFigure({100.0, 0.0, 0.0}, 50.0), makeFigure({}, 50.1),
                                         makeFigure({}, 70.0), makeFigure({}, std::numeric_limits<double>::infinity())};

    const PictureContent content = selectFigures(figures, sceneOfRadius5, 10.0);

    EXPECT_THAT(reachesOf(content), ElementsAre(1.0, 50.0));
    EXPECT_EQ(content.leftOut, 3u);
    EXPECT_EQ(content.smallestLeftOut, figures[2].reach());
    EXPECT_EQ(content.box._min, osg::Vec3d(-3.0, -50.0, -50.0));
    EXPECT_EQ(content.box._max, osg::Vec3d(150.0, 50.0, 50.0));
}

TEST(PictureLayout, MeasuresByTheSmallestFigureIfTheSceneHasNoExtent) {
    const std::vector<Figure> figures = {makeFigure({}, 0.0), makeFigure({}, 5.0), makeFigure({}, 50.0),
                                         makeFigure({}, 51.0)};

    EXPECT_THAT(reachesOf(selectFigures(figures, {}, 10.0)), ElementsAre(0.0, 5.0, 50.0));
    EXPECT_FALSE(selectFigures({}, {}, 10.0).box.valid());
}

TEST(PictureLayout, RoundsLengthsDownTo1Or2Or5) {
    EXPECT_EQ(roundLength(1.0), 1.0);
    EXPECT_EQ(roundLength(1.99), 1.0);
    EXPECT_EQ(roundLength(2.0), 2.0);
    EXPECT_EQ(roundLength(4.99), 2.0);
    EXPECT_EQ(roundLength(57.0), 50.0);
    EXPECT_EQ(roundLength(9999.0), 5000.0);
    EXPECT_DOUBLE_EQ(roundLength(0.03), 0.02);
}

TEST(PictureLayout, PutsLabelsWhereTheyHideNoOther) {
    const PictureArea panel = boxAt(0, 0, 500, 500);
    const std::vector<BoxLabel> labels = {
        {"one", boxAt(100, 100, 200, 200)}, {"two", boxAt(100, 100, 210, 200)}, {"two", boxAt(100, 100, 210, 200)}};

    const std::vector<PlacedLabel> placed = placeLabels(labels, panel);

    ASSERT_EQ(placed.size(), 2u);
    EXPECT_EQ(placed[0].text, "two");  // of the larger box
    EXPECT_EQ(placed[0].area.low, osg::Vec2d(100.0, 282.0));
    EXPECT_EQ(placed[0].area.high, osg::Vec2d(130.0, 300.0));
    EXPECT_EQ(placed[1].text, "one");
    EXPECT_FALSE(placed[1].area.overlaps(placed[0].area));
}

TEST(PictureLayout, KeepsLabelsInThePanelAndLeavesOutWhatFindsNoRoom) {
    const PictureArea panel = boxAt(0, 0, 100, 20);
    std::vector<BoxLabel> labels;
    for (const char* text : {"a", "b", "c", "d", "e", "f", "g", "h", "i"})
        labels.push_back({text, boxAt(0, 0, 100, 20)});

    const std::vector<PlacedLabel> placed = placeLabels(labels, panel);

    EXPECT_EQ(placed.size(), 2u);  // on the left and on the right
    for (const PlacedLabel& label : placed) EXPECT_TRUE(panel.contains(label.area));
}

TEST(PictureLayout, WritesOneTextAtThreeBoxes) {
    std::vector<BoxLabel> labels;
    for (int i = 0; i < 9; ++i) labels.push_back({"tree", boxAt(50.0 * i, 0, 50, 50)});

    EXPECT_EQ(placeLabels(labels, boxAt(0, 0, 500, 500)).size(), 3u);
}
