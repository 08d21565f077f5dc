#include <offscreen/SceneRenderer.h>

#include "support/Graphs.h"
#include "support/OsgMessages.h"
#include "support/Pictures.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osg/Program>
#include <osg/ShapeDrawable>
#include <osgDB/ReadFile>
#include <osgDB/ReaderWriter>
#include <osgDB/Registry>
#include <osgDB/WriteFile>
#include <osgText/Text>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing_support::background;
using testing_support::blue;
using testing_support::centerOf;
using testing_support::countColors;
using testing_support::differenceOf;
using testing_support::green;
using testing_support::makeGeode;
using testing_support::OsgMessages;
using testing_support::partOtherThan;
using testing_support::pixelAt;
using testing_support::red;
using testing_support::Rgb;
using testing_support::ShownPictures;
using testing_support::TemporaryDirectory;
using veltrane::sceneutils::offscreen::OffscreenContext;
using veltrane::sceneutils::offscreen::OffscreenError;
using veltrane::sceneutils::offscreen::SceneRenderer;

constexpr int size = 64;

/** A flat square around the origin, not lit. */
osg::ref_ptr<osg::Geode> makePlate(const Rgb& color, float side = 20.0f, const osg::Vec3& center = osg::Vec3()) {
    const osg::Vec3 corner = center - osg::Vec3(side, side, 0.0f) / 2.0f;
    osg::ref_ptr<osg::Geometry> square =
        osg::createTexturedQuadGeometry(corner, osg::Vec3(side, 0, 0), osg::Vec3(0, side, 0));
    const auto part = [&](std::size_t i) { return static_cast<float>(color[i]) / 255.0f; };
    osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array(osg::Array::BIND_OVERALL);
    colors->push_back(osg::Vec4(part(0), part(1), part(2), 1.0f));
    square->setColorArray(colors);
    osg::ref_ptr<osg::Geode> plate = makeGeode(square);
    plate->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return plate;
}

/** Shows that plate from far away; from nearer than that the tile of that name. */
osg::ref_ptr<osg::PagedLOD> makePaged(const Rgb& color, const std::string& tile, float distance = 100.0f) {
    osg::ref_ptr<osg::PagedLOD> paged = new osg::PagedLOD;
    paged->setCenter(osg::Vec3());
    paged->setRadius(20.0f);
    paged->addChild(makePlate(color), distance, 1e30f);
    paged->setFileName(1, tile);
    paged->setRange(1, 0.0f, distance);
    return paged;
}

/** A red plate far away, a green one nearer, a blue one near: three files, the last two of them tiles. */
class PagedDatabase {
public:
    PagedDatabase() {
        osgDB::writeNodeFile(*makePaged(red, "green.ive"), _directory / "red.ive");
        osgDB::writeNodeFile(*makePaged(green, "blue.ive", 50.0f), _directory / "green.ive");
        osgDB::writeNodeFile(*makePlate(blue), _directory / "blue.ive");
    }

    osg::ref_ptr<osg::Node> read() const { return osgDB::readRefNodeFile(_directory / "red.ive"); }
    std::string operator/(const std::string& name) const { return _directory / name; }

private:
    TemporaryDirectory _directory;
};

/** A reader for files of the ending ".thrown" that ends as some do on damaged files. */
class ThrowingReader : public osgDB::ReaderWriter {
public:
    ThrowingReader() {
        supportsExtension("thrown", "throws");
        osgDB::Registry::instance()->addReaderWriter(this);
    }

    ReadResult readNode(const std::string&, const osgDB::Options*) const override {
        throw std::length_error("damaged");
    }
};

void lookDown(SceneRenderer& renderer, double height) {
    renderer.setView(osg::Vec3d(0.0, 0.0, height), osg::Vec3d());
}

/** Gives tiles the time to be read that are not to be read. */
void expectToStay(const Rgb& color, SceneRenderer& renderer) {
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(centerOf(*renderer.drawPicture()), color);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

std::string reasonAgainst(int width, int height) {
    try {
        SceneRenderer renderer(width, height);
    } catch (const OffscreenError& error) {
        return error.what();
    }
    return "(none)";
}

}  // namespace

TEST(OffscreenContext, TellsItsDriverAndVersion) {
    const osg::ref_ptr<OffscreenContext> context = new OffscreenContext(8, 8);

    EXPECT_TRUE(context->valid());
    EXPECT_TRUE(context->isRealized());
    EXPECT_NE(context->driver(), "");
    EXPECT_GE(std::stod(context->version()), 3.0);
}

TEST(OffscreenContext, TakesAnIdThatNoneHadBefore) {
    const auto nextId = [] {
        const osg::ref_ptr<OffscreenContext> context = new OffscreenContext(8, 8);
        return context->getState()->getContextID();
    };

    const unsigned int first = nextId();

    EXPECT_EQ(nextId(), first + 1);
    EXPECT_EQ(nextId(), first + 2);
}

TEST(OffscreenContext, IsOfNoUseOnceClosed) {
    const osg::ref_ptr<OffscreenContext> context = new OffscreenContext(8, 8);

    context->close();

    EXPECT_FALSE(context->valid());
    EXPECT_FALSE(context->makeCurrent());
    EXPECT_FALSE(context->releaseContext());
}

TEST(OffscreenContext, SaysWhatSizeIsImpossible) {
    const std::string start = "no driver can draw without a window system: no picture of ";

    EXPECT_EQ(reasonAgainst(100000, 100000), start + "100000x100000 pixels");
    EXPECT_EQ(reasonAgainst(100000, 1), start + "100000x1 pixels");
    EXPECT_EQ(reasonAgainst(1, 100000), start + "1x100000 pixels");
    EXPECT_EQ(reasonAgainst(0, 1), "no picture of 0x1 pixels");
    EXPECT_EQ(reasonAgainst(1, 0), "no picture of 1x0 pixels");
    EXPECT_EQ(reasonAgainst(-1, 1), "no picture of -1x1 pixels");
}

TEST(SceneRenderer, WorksOnAfterAnImpossibleSize) {
    EXPECT_NE(reasonAgainst(100000, 100000), "(none)");
    SceneRenderer renderer(size, size);
    renderer.setScene(makePlate(red));

    EXPECT_NE(reasonAgainst(100000, 100000), "(none)");

    EXPECT_EQ(centerOf(*renderer.drawPicture()), red);
}

TEST(SceneRenderer, DrawsPicturesOfTheWantedSize) {
    for (const auto& [width, height] : {std::pair(8, 8), std::pair(37, 5), std::pair(5, 37), std::pair(2048, 1024)}) {
        SceneRenderer renderer(width, height);
        renderer.setScene(makePlate(red));

        const osg::ref_ptr<osg::Image> picture = renderer.drawPicture();

        EXPECT_EQ(picture->s(), width);
        EXPECT_EQ(picture->t(), height);
        EXPECT_EQ(picture->getPixelFormat(), static_cast<GLenum>(GL_RGBA));
        EXPECT_EQ(picture->getDataType(), static_cast<GLenum>(GL_UNSIGNED_BYTE));
        EXPECT_EQ(centerOf(*picture), red);
    }
}

TEST(SceneRenderer, DrawsAPictureOfOnePixel) {
    SceneRenderer renderer(1, 1);

    const osg::ref_ptr<osg::Image> picture = renderer.drawPicture();

    EXPECT_EQ(picture->s() * picture->t(), 1);
    EXPECT_EQ(centerOf(*picture), background);
}

TEST(SceneRenderer, DrawsNothingButTheBackgroundWithoutAScene) {
    SceneRenderer renderer(size, size);
    EXPECT_EQ(partOtherThan(background, *renderer.drawPicture()), 0.0);

    renderer.setScene(new osg::Group);
    EXPECT_EQ(partOtherThan(background, *renderer.drawPicture()), 0.0);

    renderer.setScene(makePlate(red));
    EXPECT_GT(partOtherThan(background, *renderer.drawPicture()), 0.1);

    renderer.setScene(nullptr);
    EXPECT_EQ(partOtherThan(background, *renderer.drawPicture()), 0.0);
    EXPECT_THAT(renderer.loadTiles(), IsEmpty());
}

TEST(SceneRenderer, ClearsWithTheCamerasColor) {
    SceneRenderer renderer(size, size);
    renderer.viewer().getCamera()->setClearColor(osg::Vec4(0.0f, 1.0f, 0.0f, 1.0f));

    EXPECT_EQ(partOtherThan(green, *renderer.drawPicture()), 0.0);
}

TEST(SceneRenderer, DrawsWhereTheProjectionSays) {
    SceneRenderer renderer(300, 100);
    renderer.setScene(makePlate(red, 2.0f, osg::Vec3(1.0f, 1.0f, 0.0f)));
    // 30 degrees over 100 pixels: at that height a pixel is 0.1 units wide.
    const double height = 5.0 / std::tan(osg::DegreesToRadians(SceneRenderer::fieldOfView / 2.0));
    lookDown(renderer, height);

    const osg::ref_ptr<osg::Image> picture = renderer.drawPicture();

    int drawn = 0;
    testing_support::forEachPixel(*picture, [&](int x, int y) {
        const bool isInside = x >= 150 && x < 170 && y >= 50 && y < 70;
        EXPECT_EQ(pixelAt(*picture, x, y), isInside ? red : background) << x << ", " << y;
        drawn += isInside ? 1 : 0;
    });
    EXPECT_EQ(drawn, 400);
}

TEST(SceneRenderer, LooksStraightDownWithNorthUp) {
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(makePlate(red, 2.0f, osg::Vec3(0.0f, 4.0f, 0.0f)));    // north
    scene->addChild(makePlate(green, 2.0f, osg::Vec3(4.0f, 0.0f, 0.0f)));  // east
    scene->addChild(makePlate(blue, 2.0f, osg::Vec3(0.0f, -4.0f, 0.0f)));  // south
    SceneRenderer renderer(100, 100);
    renderer.setScene(scene);
    lookDown(renderer, 5.0 / std::tan(osg::DegreesToRadians(SceneRenderer::fieldOfView / 2.0)));

    const osg::ref_ptr<osg::Image> picture = renderer.drawPicture();

    EXPECT_EQ(pixelAt(*picture, 50, 90), red);
    EXPECT_EQ(pixelAt(*picture, 90, 50), green);
    EXPECT_EQ(pixelAt(*picture, 50, 10), blue);
    EXPECT_EQ(pixelAt(*picture, 10, 50), background);
}

TEST(SceneRenderer, LooksFromTheSideWithZUp) {
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    const osg::ref_ptr<osg::ShapeDrawable> ball = new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(0, 0, 3), 1.0f));
    ball->setColor(osg::Vec4(1, 0, 0, 1));
    scene->addChild(makeGeode(ball));
    scene->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    SceneRenderer renderer(100, 100);
    renderer.setScene(scene);
    renderer.setView(osg::Vec3d(0, -5.0 / std::tan(osg::DegreesToRadians(15.0)), 0), osg::Vec3d());

    const osg::ref_ptr<osg::Image> picture = renderer.drawPicture();

    EXPECT_EQ(pixelAt(*picture, 50, 80), red);
    EXPECT_EQ(pixelAt(*picture, 50, 20), background);
}

/** How far from the middle of the picture the box reaches: 1 is its edge. */
double reachOf(SceneRenderer& renderer, const osg::BoundingBox& box) {
    const osg::Camera& camera = *renderer.viewer().getCamera();
    double reach = 0.0;
    for (unsigned int i = 0; i < 8; ++i) {
        const osg::Vec3d seen = osg::Vec3d(box.corner(i)) * camera.getViewMatrix() * camera.getProjectionMatrix();
        reach = std::max({reach, std::abs(seen.x()), std::abs(seen.y())});
    }
    return reach;
}

TEST(SceneRenderer, FillsThePictureWithTheBoundingBoxInTheHomeView) {
    const osg::Vec3 corner(1000.0f, -2000.0f, 300.0f);
    for (const osg::Vec3& extent :
         {osg::Vec3(7, 7, 7), osg::Vec3(100, 1, 1), osg::Vec3(1, 100, 1), osg::Vec3(1, 1, 90)}) {
        const osg::ref_ptr<osg::MatrixTransform> scene = new osg::MatrixTransform(osg::Matrix::translate(corner));
        scene->addChild(
            makeGeode(new osg::ShapeDrawable(new osg::Box(extent / 2.0f, extent.x(), extent.y(), extent.z()))));
        for (const auto& [width, height] : {std::pair(200, 200), std::pair(300, 100), std::pair(100, 300)}) {
            SceneRenderer renderer(width, height);
            renderer.setScene(scene);

            const double reach = reachOf(renderer, osg::BoundingBox(corner, corner + extent));

            EXPECT_LT(reach, 1.0) << extent.x() << " " << extent.y() << " " << width;
            EXPECT_GT(reach, 0.9) << extent.x() << " " << extent.y() << " " << width;
        }
    }
}

TEST(SceneRenderer, SeesTilesThatAreNotLoadedInTheHomeView) {
    const osg::ref_ptr<osg::PagedLOD> paged = new osg::PagedLOD;
    paged->setCenter(osg::Vec3(500.0f, 0.0f, 0.0f));
    paged->setRadius(10.0f);
    paged->setFileName(0, "tile.osgb");
    paged->setRange(0, 0.0f, 1e6f);
    SceneRenderer renderer(size, size);
    renderer.setScene(paged);

    const double reach = reachOf(renderer, osg::BoundingBox(490, -10, -10, 510, 10, 10));

    EXPECT_LT(reach, 1.0);
    EXPECT_GT(reach, 0.9);
}

TEST(SceneRenderer, LooksFromTheSouthInTheHomeView) {
    SceneRenderer renderer(size, size);
    renderer.setScene(makePlate(red));
    osg::Vec3d eye, target, up;
    renderer.viewer().getCamera()->getViewMatrixAsLookAt(eye, target, up);
    const double distance = eye.length();

    EXPECT_NEAR(eye.x(), 0.0, 1e-6);
    EXPECT_NEAR(eye.y(), -distance * std::sqrt(0.75), 1e-4);
    EXPECT_NEAR(eye.z(), distance / 2.0, 1e-4);
    EXPECT_NEAR((target - eye) * eye / distance, -1.0, 1e-6);  // at the centre
}

TEST(SceneRenderer, PutsTheSunInTheSouthWestAndLightsWithIt) {
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(makeGeode(new osg::ShapeDrawable(new osg::Box(osg::Vec3(), 10.0f))));
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    renderer.setSunlight();
    const auto brightnessFrom = [&](const osg::Vec3d& eye) {
        renderer.setView(eye, osg::Vec3d());
        return pixelAt(*renderer.drawPicture(), size / 2, size / 2)[0];
    };

    const int south = brightnessFrom(osg::Vec3d(0, -30, 0));
    const int west = brightnessFrom(osg::Vec3d(-30, 0, 0));
    const int above = brightnessFrom(osg::Vec3d(0, 0, 30));
    const int north = brightnessFrom(osg::Vec3d(0, 30, 0));

    EXPECT_GT(above, south);
    EXPECT_GT(south, west);
    EXPECT_GT(west, north);
    EXPECT_EQ(north, brightnessFrom(osg::Vec3d(30, 0, 0)));
}

TEST(SceneRenderer, KeepsTheViewOfAnythingWithoutExtent) {
    SceneRenderer renderer(size, size);
    EXPECT_FALSE(renderer.setHomeView());
    renderer.setScene(makePlate(red));
    EXPECT_TRUE(renderer.setHomeView());
    const osg::Matrixd view = renderer.viewer().getCamera()->getViewMatrix();

    renderer.setScene(new osg::Group);

    EXPECT_FALSE(renderer.setHomeView());
    EXPECT_EQ(renderer.viewer().getCamera()->getViewMatrix(), view);
}

TEST(SceneRenderer, KeepsTheViewOfAnythingThatGoesOnForEver) {
    SceneRenderer renderer(size, size);
    renderer.setScene(makePlate(red));
    const osg::Matrixd view = renderer.viewer().getCamera()->getViewMatrix();
    const osg::ref_ptr<osg::PagedLOD> endless = new osg::PagedLOD;
    endless->setCenter(osg::Vec3());
    endless->setRadius(std::numeric_limits<float>::infinity());

    renderer.setScene(endless);

    EXPECT_FALSE(renderer.setHomeView());
    EXPECT_EQ(renderer.viewer().getCamera()->getViewMatrix(), view);
}

TEST(SceneRenderer, DrawsTheSamePictureEachTime) {
    const osg::ref_ptr<osg::Node> scene = makeGeode(new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(), 1.0f)));
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    const osg::ref_ptr<osg::Image> first = renderer.drawPicture();

    const osg::ref_ptr<osg::Image> second = renderer.drawPicture();
    SceneRenderer other(size, size);
    other.setScene(scene);

    EXPECT_GT(countColors(*first), 10u);
    EXPECT_EQ(differenceOf(*first, *second).pixels, 0);
    EXPECT_EQ(differenceOf(*first, *other.drawPicture()).pixels, 0);
}

TEST(SceneRenderer, WorksOneAfterAnother) {
    const osg::ref_ptr<osg::Node> scene = makePlate(red);
    for (int i = 0; i < 10; ++i) {
        SceneRenderer renderer(size + i, size);
        renderer.setScene(scene);
        lookDown(renderer, 10.0);

        EXPECT_EQ(partOtherThan(red, *renderer.drawPicture()), 0.0) << i;
    }
}

TEST(SceneRenderer, WorksBesideAnotherOne) {
    const osg::ref_ptr<osg::Node> shared = makePlate(green);
    SceneRenderer left(size, size);
    SceneRenderer right(2 * size, size);
    left.setScene(makePlate(red));
    right.setScene(makePlate(blue));

    EXPECT_EQ(centerOf(*left.drawPicture()), red);
    EXPECT_EQ(centerOf(*right.drawPicture()), blue);
    EXPECT_EQ(centerOf(*left.drawPicture()), red);
    left.setScene(shared);
    right.setScene(shared);
    EXPECT_EQ(centerOf(*left.drawPicture()), green);
    EXPECT_EQ(centerOf(*right.drawPicture()), green);
    EXPECT_EQ(right.drawPicture()->s(), 2 * size);
}

TEST(SceneRenderer, WorksOnAfterTheOtherOneEnds) {
    const osg::ref_ptr<osg::Node> scene = makePlate(green);
    SceneRenderer stays(size, size);
    stays.setScene(scene);
    auto goes = std::make_unique<SceneRenderer>(size, size);
    goes->setScene(scene);
    EXPECT_EQ(centerOf(*goes->drawPicture()), green);

    goes.reset();

    EXPECT_EQ(centerOf(*stays.drawPicture()), green);
}

TEST(SceneRenderer, DrawsTheSameProgramInOneRendererAfterAnother) {
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, "void main() { gl_FragColor = vec4(0, 0, 1, 1); }"));
    for (int i = 0; i < 5; ++i) {
        const osg::ref_ptr<osg::Node> scene = makePlate(red);
        scene->getOrCreateStateSet()->setAttribute(program);
        SceneRenderer renderer(size, size);
        renderer.setScene(scene);

        EXPECT_EQ(centerOf(*renderer.drawPicture()), blue) << i;
    }
}

TEST(SceneRenderer, DrawsTextWithTheSameFontInOneRendererAfterAnother) {
    ShownPictures shown("offscreen-text");
    for (int i = 0; i < 3; ++i) {
        const osg::ref_ptr<osgText::Text> text = new osgText::Text;
        text->setText("Label " + std::to_string(i));
        SceneRenderer renderer(2 * size, size);
        renderer.setScene(makeGeode(text));
        lookDown(renderer, 250.0);
        renderer.setView(text->getBound().center() + osg::Vec3(0, 0, 250), text->getBound().center());

        const double part = partOtherThan(background, *shown.add(renderer.drawPicture()));

        EXPECT_GT(part, 0.02) << i;
        EXPECT_LT(part, 0.5) << i;
    }
}

TEST(SceneRenderer, LoadsNoTileUntilAskedTo) {
    const PagedDatabase database;
    SceneRenderer renderer(size, size);
    renderer.setScene(database.read());
    lookDown(renderer, 20.0);

    expectToStay(red, renderer);
}

TEST(SceneRenderer, LoadsTilesOverAllLevelsThatTheViewShows) {
    const PagedDatabase database;
    SceneRenderer renderer(size, size);
    renderer.setScene(database.read());
    const auto colorFrom = [&](double height) {
        lookDown(renderer, height);
        EXPECT_THAT(renderer.loadTiles(), IsEmpty());
        return centerOf(*renderer.drawPicture());
    };

    EXPECT_EQ(colorFrom(200.0), red);
    EXPECT_EQ(colorFrom(70.0), green);
    EXPECT_EQ(colorFrom(20.0), blue);
    EXPECT_EQ(colorFrom(200.0), red);
    EXPECT_EQ(colorFrom(20.0), blue);
}

TEST(SceneRenderer, LoadsNoMoreTilesOnceItIsDone) {
    const PagedDatabase database;
    SceneRenderer renderer(size, size);
    renderer.setScene(database.read());
    lookDown(renderer, 70.0);
    renderer.loadTiles();

    lookDown(renderer, 20.0);

    expectToStay(green, renderer);
}

TEST(SceneRenderer, LoadsTheTilesOfOneGraphForEachOfTwoRenderers) {
    const PagedDatabase database;
    const osg::ref_ptr<osg::Node> scene = database.read();
    SceneRenderer left(size, size);
    SceneRenderer right(size, size);
    left.setScene(scene);
    right.setScene(scene);
    lookDown(left, 70.0);
    lookDown(right, 20.0);

    EXPECT_THAT(left.loadTiles(), IsEmpty());
    EXPECT_EQ(centerOf(*left.drawPicture()), green);
    EXPECT_THAT(right.loadTiles(), IsEmpty());
    EXPECT_EQ(centerOf(*right.drawPicture()), blue);
    EXPECT_EQ(centerOf(*left.drawPicture()), green);
}

TEST(SceneRenderer, ReportsAMissingTileOnce) {
    const PagedDatabase database;
    std::filesystem::remove(database / "blue.ive");
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(database.read());
    scene->addChild(database.read());
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    lookDown(renderer, 20.0);
    const OsgMessages osgMessages;

    const std::vector<std::string> failures = renderer.loadTiles();

    EXPECT_THAT(failures, ElementsAre(database / "blue.ive"));
    EXPECT_EQ(centerOf(*renderer.drawPicture()), green);
}

TEST(SceneRenderer, ReportsOnlyWhatFailedInThisView) {
    const PagedDatabase database;
    std::filesystem::remove(database / "blue.ive");
    SceneRenderer renderer(size, size);
    renderer.setScene(database.read());
    lookDown(renderer, 20.0);
    const OsgMessages osgMessages;
    EXPECT_THAT(renderer.loadTiles(), ElementsAre(database / "blue.ive"));
    EXPECT_THAT(renderer.loadTiles(), ElementsAre(database / "blue.ive"));

    lookDown(renderer, 70.0);

    EXPECT_THAT(renderer.loadTiles(), IsEmpty());
}

TEST(SceneRenderer, LoadsNoTileBelowItself) {
    const PagedDatabase database;
    osgDB::writeNodeFile(
        *makePaged(green,
                   "../" + std::filesystem::path(database / "").parent_path().filename().string() + "/green.ive"),
        database / "green.ive");
    SceneRenderer renderer(size, size);
    renderer.setScene(database.read());
    lookDown(renderer, 20.0);

    EXPECT_THAT(renderer.loadTiles(), IsEmpty());

    EXPECT_EQ(centerOf(*renderer.drawPicture()), green);
    ASSERT_EQ(renderer.tilesBelowThemselves().size(), 1u);
    EXPECT_EQ(std::filesystem::canonical(renderer.tilesBelowThemselves().front()),
              std::filesystem::canonical(database / "green.ive"));
    lookDown(renderer, 2000.0);
    renderer.loadTiles();
    EXPECT_THAT(renderer.tilesBelowThemselves(), IsEmpty());
}

TEST(SceneRenderer, LoadsATileThatWasMissingBefore) {
    const PagedDatabase database;
    std::filesystem::rename(database / "blue.ive", database / "away.ive");
    SceneRenderer renderer(size, size);
    renderer.setScene(database.read());
    lookDown(renderer, 20.0);
    const OsgMessages osgMessages;
    EXPECT_THAT(renderer.loadTiles(), ElementsAre(database / "blue.ive"));

    std::filesystem::rename(database / "away.ive", database / "blue.ive");

    EXPECT_THAT(renderer.loadTiles(), IsEmpty());
    EXPECT_EQ(centerOf(*renderer.drawPicture()), blue);
}

TEST(SceneRenderer, ReportsAnEmptyTile) {
    const PagedDatabase database;
    std::ofstream(database / "blue.ive", std::ios::trunc).close();
    SceneRenderer renderer(size, size);
    renderer.setScene(database.read());
    lookDown(renderer, 20.0);
    const OsgMessages osgMessages;

    EXPECT_THAT(renderer.loadTiles(), ElementsAre(database / "blue.ive"));
    EXPECT_EQ(centerOf(*renderer.drawPicture()), green);
}

TEST(SceneRenderer, ReportsATileWhoseReaderThrows) {
    const osg::ref_ptr<ThrowingReader> reader = new ThrowingReader;
    const osg::ref_ptr<osg::Node> scene = makePaged(red, "tile.thrown");
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    lookDown(renderer, 20.0);
    const OsgMessages osgMessages;

    const std::vector<std::string> failures = renderer.loadTiles();

    osgDB::Registry::instance()->removeReaderWriter(reader);
    EXPECT_THAT(failures, ElementsAre("tile.thrown"));
    EXPECT_EQ(osgMessages.text(), "Error in reading file tile.thrown : read error (damaged)\n");
    EXPECT_EQ(centerOf(*renderer.drawPicture()), red);
}

TEST(SceneRenderer, ReadsTilesThroughTheApplicationsCallback) {
    struct Renaming : osgDB::ReadFileCallback {
        explicit Renaming(std::string file) : path(std::move(file)) {}
        osgDB::ReaderWriter::ReadResult readNode(const std::string& name, const osgDB::Options* options) override {
            return osgDB::ReadFileCallback::readNode(name == "renamed" ? path : name, options);
        }
        std::string path;
    };
    const PagedDatabase database;
    const osg::ref_ptr<osg::PagedLOD> scene = makePaged(red, "renamed");
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    lookDown(renderer, 20.0);

    osgDB::Registry::instance()->setReadFileCallback(new Renaming(database / "blue.ive"));
    EXPECT_THAT(renderer.loadTiles(), IsEmpty());
    osgDB::Registry::instance()->setReadFileCallback(nullptr);
    EXPECT_EQ(centerOf(*renderer.drawPicture()), blue);
}

TEST(SceneRenderer, ReadsTilesThroughTheCallbackOfTheirOwnOptions) {
    struct Coloring : osgDB::ReadFileCallback {
        osgDB::ReaderWriter::ReadResult readNode(const std::string&, const osgDB::Options*) override {
            return makePlate(blue).get();
        }
    };
    const osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    options->setReadFileCallback(new Coloring);
    const osg::ref_ptr<osg::PagedLOD> scene = makePaged(red, "any");
    scene->setDatabaseOptions(options);
    SceneRenderer renderer(size, size);
    renderer.setScene(scene);
    lookDown(renderer, 20.0);

    EXPECT_THAT(renderer.loadTiles(), IsEmpty());

    EXPECT_EQ(centerOf(*renderer.drawPicture()), blue);
}
