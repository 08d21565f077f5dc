#include "support/DebugGeometry.h"
#include "support/Pictures.h"

#include <offscreen/SceneRenderer.h>
#include <sceneutils/SceneUtils.h>
#include <sceneutils/ShaderGenerator.h>

#include <gmock/gmock.h>

#include <osg/DisplaySettings>
#include <osg/GLObjects>
#include <osg/Light>
#include <osg/LightSource>
#include <osg/Point>

#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

using namespace testing_support;
using veltrane::sceneutils::createCoordinateSystemGeometry;
using veltrane::sceneutils::ShaderGenerator;
using veltrane::sceneutils::SimpleGeometryGenerator;
using veltrane::sceneutils::offscreen::SceneRenderer;

namespace {

using Generator = osg::ref_ptr<SimpleGeometryGenerator>;

constexpr int pixels = 101;  // an odd number: there is one in the middle
constexpr double eyeDistance = 10.0;

const osg::Vec4f redColor(1, 0, 0, 1);
const osg::Vec4f greenColor(0, 1, 0, 1);
const osg::Vec4f blueColor(0, 0, 1, 1);

/** How wide a pixel is at the place that is looked at. */
const double pixel = 2.0 * eyeDistance * std::tan(SceneRenderer::fieldOfView / 2.0 * std::acos(-1.0) / 180.0) / pixels;

/** The place in the plane z = 0 that is seen in the middle of a pixel. */
osg::Vec3f placeOf(int x, int y) {
    return {static_cast<float>((x - pixels / 2) * pixel), static_cast<float>((y - pixels / 2) * pixel), 0.0f};
}

/** Looks at the plane z = 0 from above. */
class Studio {
public:
    explicit Studio(bool isLit = false) : _renderer(pixels, pixels) {
        _scene->getOrCreateStateSet()->setMode(GL_LIGHTING, isLit);
        _renderer.setScene(_scene);
        lookAt(osg::Vec3d());
    }
    ~Studio() {
        // OpenSceneGraph crashes at the end of the program when vertex array objects outlive their context.
        _scene->removeChildren(0, _scene->getNumChildren());
        _renderer.waitForDriver();
        osg::flushAllDeletedGLObjects(_renderer.viewer().getCamera()->getGraphicsContext()->getState()->getContextID());
    }
    Studio(const Studio&) = delete;
    Studio& operator=(const Studio&) = delete;

    void lookAt(const osg::Vec3d& place) { _renderer.setView(place + osg::Vec3d(0, 0, eyeDistance), place); }

    osg::Group& scene() { return *_scene; }

    osg::ref_ptr<osg::Image> draw() { return _renderer.drawPicture(GL_RGBA); }

    /** A picture with nothing else in it. */
    osg::ref_ptr<osg::Image> draw(osg::Node* node) {
        _scene->removeChildren(0, _scene->getNumChildren());
        _scene->addChild(node);
        return draw();
    }

private:
    osg::ref_ptr<osg::Group> _scene = new osg::Group;
    SceneRenderer _renderer;
};

Rgb rgbOf(const osg::Vec4f& color) {
    Rgb rgb;
    for (std::size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = static_cast<int>(std::lround(color[static_cast<int>(i)] * 255.0f));
    return rgb;
}

osg::ref_ptr<osg::Vec3Array> makeSquareLoop(int from, int to) {
    osg::ref_ptr<osg::Vec3Array> points = new osg::Vec3Array;
    for (const auto& [x, y] : {std::pair(from, from), std::pair(to, from), std::pair(to, to), std::pair(from, to)})
        points->push_back(placeOf(x, y));
    return points;
}

/** A triangle whose middle is that of the picture. */
void addMiddleTriangle(SimpleGeometryGenerator& generator, const osg::Vec4f& color) {
    generator.addTriangle(placeOf(20, 20), placeOf(80, 20), placeOf(50, 80), color);
}

int countOf(const Rgb& color, const osg::Image& picture) {
    int count = 0;
    forEachPixel(picture, [&](int x, int y) { count += pixelAt(picture, x, y) == color; });
    return count;
}

/** Pixels of that colour in the column in the middle. */
int heightOf(const Rgb& color, const osg::Image& picture) {
    int count = 0;
    for (int y = 0; y < picture.t(); ++y) count += pixelAt(picture, picture.s() / 2, y) == color;
    return count;
}

/** What leaves OpenGL with another normal: it is opaque, and so drawn first. */
osg::ref_ptr<osg::Geometry> makeOtherNormals() {
    const osg::ref_ptr<osg::Geometry> square = osg::createTexturedQuadGeometry(
        placeOf(0, 0), osg::Vec3(static_cast<float>(5 * pixel), 0, 0), osg::Vec3(0, static_cast<float>(5 * pixel), 0));
    const osg::Vec3 normal(-1, 0, 0);
    square->setNormalArray(new osg::Vec3Array(1, &normal), osg::Array::BIND_OVERALL);
    return square;
}

/** A light from above and from the right. */
void lightScene(osg::Group& scene) {
    const osg::ref_ptr<osg::LightSource> source = new osg::LightSource;
    source->getLight()->setPosition(osg::Vec4(1, 0, 1, 0));
    source->getLight()->setDiffuse(osg::Vec4(1, 1, 1, 1));
    scene.addChild(source);
}

/** The same lines, triangles and points with a normal for each vertex, as any other program draws them. */
osg::ref_ptr<osg::Geode> makePlainCopy(SimpleGeometryGenerator& generator) {
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    for (unsigned int i = 0; i < geodeOf(generator).getNumDrawables(); ++i) {
        const osg::Geometry& original = geometryOf(generator, i);
        const osg::ref_ptr<osg::Geometry> copy = new osg::Geometry(original, osg::CopyOp::DEEP_COPY_ALL);
        const osg::ref_ptr<osg::Vec3Array> normals =
            new osg::Vec3Array(osg::Array::BIND_PER_VERTEX, copy->getVertexArray()->getNumElements());
        for (osg::Vec3& normal : *normals) normal.set(0, 0, 1);
        copy->setNormalArray(normals);
        geode->addDrawable(copy);
    }
    return geode;
}

/** One of everything. */
void addSample(SimpleGeometryGenerator& generator, const osg::Vec3f& place) {
    generator.setLineThinkness(3.0f);
    const auto at = [&](float x, float y) { return place + osg::Vec3f(x, y, 0); };
    generator.addTriangle(at(-2, -2), at(-0.5f, -2), at(-2, -0.5f), redColor);
    generator.addLine(at(0.5f, -2), at(2, -0.75f), greenColor);
    osg::ref_ptr<osg::Vec3Array> points = new osg::Vec3Array;
    for (const auto& point : {at(-2, 0.5f), at(-0.5f, 0.5f), at(-1.25f, 2)}) points->push_back(point);
    generator.addLoop(points, blueColor);
    generator.addBoundingBox(osg::BoundingBox(at(0.5f, 0.5f) - osg::Vec3f(0, 0, 1), at(2, 2)),
                             generator.createColor(62));
}

}  // namespace

TEST(SimpleGeometryGeneratorPictures, ShowsALine) {
    ShownPictures shown("debug_line");
    const auto generator = makeGenerator();
    generator->addLine(placeOf(20, 50), placeOf(80, 50), redColor);

    const auto picture = shown.add(Studio().draw(generator));

    EXPECT_EQ(centerOf(*picture), red);
    EXPECT_NEAR(countOf(red, *picture), 60, 1);
    EXPECT_EQ(heightOf(red, *picture), 1);
    EXPECT_EQ(countColors(*picture), 2u);
}

TEST(SimpleGeometryGeneratorPictures, ShowsAClosedLoop) {
    ShownPictures shown("debug_loop");
    const auto generator = makeGenerator();
    generator->addLoop(makeSquareLoop(20, 80), placeOf(50, 55), greenColor);

    const auto picture = shown.add(Studio().draw(generator));

    for (const auto& [x, y] : {std::pair(50, 25), std::pair(50, 85), std::pair(20, 55), std::pair(80, 55)})
        EXPECT_EQ(pixelAt(*picture, x, y), green) << x << ", " << y;
    EXPECT_EQ(centerOf(*picture), background);
    EXPECT_NEAR(countOf(green, *picture), 240, 4);
}

TEST(SimpleGeometryGeneratorPictures, ShowsAFilledTriangle) {
    ShownPictures shown("debug_triangle");
    const auto generator = makeGenerator();
    addMiddleTriangle(*generator, blueColor);

    const auto picture = shown.add(Studio().draw(generator));

    EXPECT_EQ(centerOf(*picture), blue);
    EXPECT_NEAR(countOf(blue, *picture), 1800, 40);
}

TEST(SimpleGeometryGeneratorPictures, BlendsWhatIsHalfTransparent) {
    ShownPictures shown("debug_blend");
    const auto generator = makeGenerator();
    addMiddleTriangle(*generator, osg::Vec4f(1, 0, 0, 0.5f));

    const auto picture = shown.add(Studio().draw(generator));

    const Rgb middle = centerOf(*picture);
    EXPECT_NEAR(middle[0], (255 + background[0]) / 2, 1);
    EXPECT_NEAR(middle[1], background[1] / 2, 1);
    EXPECT_NEAR(middle[2], background[2] / 2, 1);
}

TEST(SimpleGeometryGeneratorPictures, ShowsTheTwelveEdgesOfABox) {
    ShownPictures shown("debug_box");
    const auto generator = makeGenerator();
    const osg::Vec3f near = placeOf(80, 80);
    generator->addBoundingBox(osg::BoundingBox(-near - osg::Vec3f(0, 0, 10), near), redColor);

    const auto picture = shown.add(Studio().draw(generator));

    // The far square, twice as far away, looks half as large; four edges lead there.
    for (const int distance : {30, 15}) {
        for (const auto& [x, y] :
             {std::pair(distance, 0), std::pair(-distance, 0), std::pair(0, distance), std::pair(0, -distance)})
            EXPECT_EQ(pixelAt(*picture, 50 + x, 50 + y), red) << x << ", " << y;
    }
    for (const auto& [x, y] : {std::pair(22, 22), std::pair(-22, 22), std::pair(22, -22), std::pair(-22, -22)})
        EXPECT_EQ(pixelAt(*picture, 50 + x, 50 + y), red) << x << ", " << y;
    EXPECT_EQ(centerOf(*picture), background);
}

TEST(SimpleGeometryGeneratorPictures, ShowsMarkersOnRequestUntilCleared) {
    ShownPictures shown("debug_markers");
    Studio studio;
    const auto generator = makeGenerator();
    const osg::Vec4f unseen(1, 0, 0, 0);  // markers do not blend

    addMiddleTriangle(*generator, unseen);
    EXPECT_EQ(countOf(red, *shown.add(studio.draw(generator))), 0);
    generator->checkPointsGeometry();
    const auto marked = shown.add(studio.draw());
    EXPECT_EQ(countOf(red, *marked), 3);
    for (const auto& [x, y] : {std::pair(20, 20), std::pair(80, 20), std::pair(50, 80)})
        EXPECT_EQ(pixelAt(*marked, x, y), red);
    generator->addLine(placeOf(10, 90), placeOf(90, 90), unseen);
    EXPECT_EQ(countOf(red, *shown.add(studio.draw())), 5) << "those of what is added later too";
    generator->addLoop(makeSquareLoop(5, 95), unseen);
    EXPECT_EQ(countOf(red, *studio.draw()), 5) << "loops have none";
    generator->clear();
    addMiddleTriangle(*generator, unseen);
    EXPECT_EQ(countOf(red, *shown.add(studio.draw())), 0);
}

TEST(SimpleGeometryGeneratorPictures, ShowsEachColorOfThePalette) {
    ShownPictures shown("debug_palette");
    const auto generator = makeGenerator();
    const auto cornerOf = [](unsigned int i) { return std::pair(10 + 10 * int(i % 8), 10 + 10 * int(i / 8)); };
    for (unsigned int i = 0; i < 64; ++i) {
        const auto [x, y] = cornerOf(i);
        generator->addTriangle(placeOf(x, y), placeOf(x + 8, y), placeOf(x, y + 8), generator->createColor(i));
    }

    const auto picture = shown.add(Studio().draw(generator));

    for (unsigned int i = 0; i < 64; ++i) {
        const auto [x, y] = cornerOf(i);
        const Rgb expected = rgbOf(generator->createColor(i));
        const Rgb seen = pixelAt(*picture, x + 2, y + 2);
        for (std::size_t j = 0; j < 3; ++j) EXPECT_NEAR(seen[j], expected[j], 1) << "colour " << i;
    }
}

TEST(SimpleGeometryGeneratorPictures, DrawsTrianglesAsLinesAndFilledAgain) {
    ShownPictures shown("debug_wireframe");
    Studio studio;
    const auto generator = makeGenerator();
    addMiddleTriangle(*generator, redColor);
    const auto filled = shown.add(studio.draw(generator));

    generator->setWireframeEnabled(true);
    const auto wire = shown.add(studio.draw());
    generator->setWireframeEnabled(false);
    const auto again = shown.add(studio.draw());

    EXPECT_EQ(centerOf(*wire), background);
    EXPECT_EQ(pixelAt(*wire, 50, 20), red);
    EXPECT_NEAR(countOf(red, *wire), 180, 5);
    EXPECT_EQ(differenceOf(*again, *filled).pixels, 0);
}

TEST(SimpleGeometryGeneratorPictures, DrawsLinesAsWideAsTold) {
    ShownPictures shown("debug_width");
    Studio studio;
    const auto generator = makeGenerator();
    generator->addLine(placeOf(20, 50), placeOf(80, 50), redColor);
    EXPECT_EQ(heightOf(red, *shown.add(studio.draw(generator))), 1);

    for (const int width : {3, 7, 1}) {
        generator->setLineThinkness(static_cast<float>(width));
        EXPECT_EQ(heightOf(red, *shown.add(studio.draw())), width);
    }
}

TEST(SimpleGeometryGeneratorPictures, IsLitAsGeometryWithThatNormalIs) {
    ShownPictures shown("debug_lit");
    const auto generator = makeGenerator();
    addSample(*generator, osg::Vec3f());
    generator->checkPointsGeometry();
    attributeOf<osg::Point>(*markersOf(*generator).getStateSet())->setMinSize(4.0f);

    std::vector<osg::ref_ptr<osg::Image>> pictures;
    for (const osg::ref_ptr<osg::Node>& node :
         std::vector<osg::ref_ptr<osg::Node>>{generator, makePlainCopy(*generator)}) {
        Studio studio(true);
        lightScene(studio.scene());
        studio.scene().addChild(makeOtherNormals());
        studio.scene().addChild(node);
        pictures.push_back(shown.add(studio.draw()));
    }

    EXPECT_EQ(differenceOf(*pictures[0], *pictures[1]).pixels, 0) << differenceOf(*pictures[0], *pictures[1]);
    EXPECT_GT(pixelAt(*pictures[0], 20, 20)[0], 150) << "turned to the light";
}

TEST(SimpleGeometryGeneratorPictures, IsLitRightByGeneratedProgramsToo) {
    ShownPictures shown("debug_lit_program");
    const auto generator = makeGenerator();
    addMiddleTriangle(*generator, redColor);
    const osg::ref_ptr<osg::Geode> plain = makePlainCopy(*generator);

    std::vector<osg::ref_ptr<osg::Image>> pictures;
    for (const osg::ref_ptr<osg::Node>& node : std::vector<osg::ref_ptr<osg::Node>>{generator, plain}) {
        ShaderGenerator::instance()->process(node, false, true, false, false);
        Studio studio(true);
        lightScene(studio.scene());
        studio.scene().addChild(makeOtherNormals());
        studio.scene().addChild(node);
        pictures.push_back(shown.add(studio.draw()));
    }

    EXPECT_EQ(differenceOf(*pictures[0], *pictures[1]).pixels, 0) << differenceOf(*pictures[0], *pictures[1]);
    EXPECT_NE(centerOf(*pictures[0]), background);
}

TEST(SimpleGeometryGeneratorPictures, LooksTheSameAfterRecentringAtTenKilometres) {
    ShownPictures shown("debug_recentred");
    const osg::Vec3f place(10000, 0, 0);
    const auto generator = makeGenerator();
    addSample(*generator, place);
    generator->checkPointsGeometry();
    const auto atOrigin = makeGenerator();
    addSample(*atOrigin, osg::Vec3f());
    atOrigin->checkPointsGeometry();

    Studio studio;
    const auto expected = shown.add(studio.draw(atOrigin));
    studio.lookAt(place);
    const auto before = shown.add(studio.draw(generator));
    generator->bubbleUpTransform();
    const auto after = shown.add(studio.draw());

    EXPECT_EQ(generator->getMatrix().getTrans().x(), 10000.0);
    EXPECT_GT(countColors(*expected), 4u);
    EXPECT_LE(differenceOf(*after, *expected).largest, 1) << differenceOf(*after, *expected);
    EXPECT_LE(differenceOf(*after, *before).largest, 1) << differenceOf(*after, *before);
}

TEST(SimpleGeometryGeneratorPictures, LitAfterRecentringAsBefore) {
    const osg::Vec3f place(10000, 0, 0);
    const auto generator = makeGenerator();
    addSample(*generator, place);
    Studio studio(true);
    studio.lookAt(place);

    const auto before = studio.draw(generator);
    generator->bubbleUpTransform();
    const auto after = studio.draw();

    EXPECT_GT(countColors(*before), 1u);
    EXPECT_LE(differenceOf(*after, *before).largest, 1) << differenceOf(*after, *before);
}

TEST(SimpleGeometryGeneratorPictures, ShowsTheAxesOfACoordinateSystem) {
    ShownPictures shown("debug_axes");
    const osg::ref_ptr<osg::Group> axes = createCoordinateSystemGeometry(placeOf(90, 50).x());
    axes->setCullingActive(true);

    const auto picture = shown.add(Studio().draw(axes));

    EXPECT_EQ(pixelAt(*picture, 70, 50), red);
    EXPECT_EQ(pixelAt(*picture, 50, 70), green);
    EXPECT_EQ(pixelAt(*picture, 70, 70), background);
    EXPECT_EQ(
        countOf(red, *picture) + countOf(green, *picture) + countOf(blue, *picture) + countOf(background, *picture),
        pixels * pixels);
}

/** What a user may do between two frames, again and again. */
class SimpleGeometryGeneratorHistory : public testing::TestWithParam<osg::DisplaySettings::VertexBufferHint> {
protected:
    SimpleGeometryGeneratorHistory() : _own(osg::DisplaySettings::instance()->getVertexBufferHint()) {
        osg::DisplaySettings::instance()->setVertexBufferHint(GetParam());
    }
    ~SimpleGeometryGeneratorHistory() override { osg::DisplaySettings::instance()->setVertexBufferHint(_own); }

private:
    osg::DisplaySettings::VertexBufferHint _own;
};

INSTANTIATE_TEST_SUITE_P(, SimpleGeometryGeneratorHistory,
                         testing::Values(osg::DisplaySettings::NO_PREFERENCE,
                                         osg::DisplaySettings::VERTEX_ARRAY_OBJECT),
                         [](const auto& hint) {
                             return hint.param == osg::DisplaySettings::NO_PREFERENCE ? "Buffers" : "ArrayObjects";
                         });

TEST_P(SimpleGeometryGeneratorHistory, ShowsWhatIsAddedAfterAFrame) {
    Studio studio;
    const auto generator = makeGenerator();
    EXPECT_EQ(countColors(*studio.draw(generator)), 1u);

    addMiddleTriangle(*generator, redColor);
    EXPECT_EQ(centerOf(*studio.draw()), red);
    generator->addLine(placeOf(10, 90), placeOf(90, 90), greenColor);
    EXPECT_EQ(pixelAt(*studio.draw(), 50, 90), green);
    generator->addLoop(makeSquareLoop(5, 95), blueColor);
    EXPECT_EQ(pixelAt(*studio.draw(), 50, 5), blue);
    generator->addLine(placeOf(10, 85), placeOf(90, 85), greenColor);
    const auto picture = studio.draw();
    EXPECT_EQ(pixelAt(*picture, 50, 85), green);
    EXPECT_EQ(centerOf(*picture), red);
}

TEST_P(SimpleGeometryGeneratorHistory, DrawsAgainAfterClear) {
    Studio studio;
    const auto generator = makeGenerator();
    addMiddleTriangle(*generator, redColor);
    studio.draw(generator);

    generator->clear();
    EXPECT_EQ(countColors(*studio.draw()), 1u);
    generator->addLine(placeOf(20, 50), placeOf(80, 50), greenColor);
    const auto picture = studio.draw();

    EXPECT_EQ(centerOf(*picture), green);
    EXPECT_EQ(countColors(*picture), 2u);
}

namespace {

using Action = std::function<void(SimpleGeometryGenerator&)>;

/** Makes the same index lists, in the same order: which comes first outlasts a clear(), and is drawn first. */
Action sameLists(SimpleGeometryGenerator& generator) {
    std::vector<GLenum> modes;
    for (const auto& primitives : linesOf(generator).getPrimitiveSetList()) modes.push_back(primitives->getMode());
    return [modes](SimpleGeometryGenerator& other) {
        for (const GLenum mode : modes) mode == GL_LINES ? other.checkLines() : other.checkTriangles();
    };
}

/** Does one of the things that a user may do, and tells whether it was a clear(). */
class RandomUser {
public:
    explicit RandomUser(unsigned int seed) : _random(seed) {}

    Action next(bool& isClear) {
        const int kind = number(0, 99);
        const osg::Vec4f color(fraction(), fraction(), fraction(), kind % 2 == 0 ? 1.0f : 0.5f);
        const osg::Vec3f a = place(), b = place(), c = place();
        isClear = kind >= 90;
        if (kind < 30) return [=](auto& generator) { generator.addLine(a, b, color); };
        if (kind < 50) return [=](auto& generator) { generator.addTriangle(a, b, c, color); };
        if (kind < 60) return [=](auto& generator) { generator.addBoundingBox(osg::BoundingBox(a, a + b), color); };
        if (kind < 65) return [](auto& generator) { generator.checkLines(); };
        if (kind < 70) return [](auto& generator) { generator.checkPointsGeometry(); };
        if (kind < 90) return loop(color);
        return [](auto& generator) { generator.clear(); };
    }

    int number(int from, int to) { return std::uniform_int_distribution<int>(from, to)(_random); }

private:
    Action loop(const osg::Vec4f& color) {
        const osg::ref_ptr<osg::Vec3Array> points = new osg::Vec3Array;
        for (int i = number(0, 40); i > 0; --i) points->push_back(place());
        return [=](auto& generator) { generator.addLoop(points, color); };
    }

    float fraction() { return static_cast<float>(number(0, 255)) / 255.0f; }
    osg::Vec3f place() { return placeOf(number(0, pixels), number(0, pixels)); }

    std::mt19937 _random;
};

}  // namespace

TEST_P(SimpleGeometryGeneratorHistory, LooksAsIfMadeInOneGoWhateverTheOrderOfAddingClearingAndDrawing) {
    Studio studio, otherStudio;
    for (unsigned int seed = 0; seed < 20; ++seed) {
        RandomUser user(seed);
        const auto generator = makeGenerator();
        std::vector<Action> sinceClear;
        studio.draw(generator);
        for (int frame = 0; frame < 8; ++frame) {
            for (int i = user.number(0, 6); i > 0; --i) {
                bool isClear = false;
                const Action action = user.next(isClear);
                if (isClear && !sinceClear.empty()) sinceClear = {sameLists(*generator)};
                action(*generator);
                sinceClear.push_back(action);
            }
            const auto inOneGo = makeGenerator();
            for (const auto& action : sinceClear) action(*inOneGo);
            const PictureDifference difference = differenceOf(*studio.draw(), *otherStudio.draw(inOneGo));
            EXPECT_EQ(difference.pixels, 0) << "seed " << seed << ", frame " << frame << ": " << difference;
        }
    }
}

TEST_P(SimpleGeometryGeneratorHistory, CopiesMayAddAndClearInAnyOrder) {
    Studio studio;
    for (unsigned int seed = 0; seed < 20; ++seed) {
        RandomUser user(seed);
        std::vector<Generator> generators{makeGenerator()};
        studio.draw(generators[0]);
        for (int step = 0; step < 30; ++step) {
            if (user.number(0, 9) == 0) generators.push_back(new SimpleGeometryGenerator(*generators.back()));
            bool isClear = false;
            user.next(isClear)(*generators[static_cast<std::size_t>(user.number(0, int(generators.size()) - 1))]);
            studio.draw(generators[static_cast<std::size_t>(user.number(0, int(generators.size()) - 1))]);
        }
        for (const Generator& generator : generators) generator->clear();
        EXPECT_EQ(countColors(*studio.draw(generators[0])), 1u);
    }
}
