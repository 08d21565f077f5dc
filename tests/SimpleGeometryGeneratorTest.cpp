#include <sceneutils/SimpleGeometryGenerator.h>

#include "support/DebugGeometry.h"
#include "support/OsgMessages.h"
#include "support/StandardError.h"

#include <gmock/gmock.h>

#include <osg/LineWidth>
#include <osg/Point>
#include <osg/PolygonMode>
#include <osgDB/Registry>

#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

using namespace testing_support;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using veltrane::sceneutils::SimpleGeometryGenerator;

namespace {

static_assert(std::is_base_of_v<osg::MatrixTransform, SimpleGeometryGenerator>);
static_assert(!std::is_destructible_v<SimpleGeometryGenerator>, "only unref() ends it");
static_assert(!std::is_copy_assignable_v<SimpleGeometryGenerator>, "as no node is");

const osg::Vec4f red(1, 0, 0, 1);
const osg::Vec4f green(0, 1, 0, 0.5f);
const osg::Vec3 up(0, 0, 1);
const osg::Vec3 a(1, 2, 3);
const osg::Vec3 b(4, 5, 6);
const osg::Vec3 c(7, 8, 10);

constexpr unsigned int perPrimitive = 3;

osg::ref_ptr<osg::Vec3Array> makePoints(std::initializer_list<osg::Vec3> points) {
    return new osg::Vec3Array(points.begin(), points.end());
}

/** All that has to be marked when something is added, so that the next frame draws it. */
std::vector<unsigned int> modifiedCounts(SimpleGeometryGenerator& generator) {
    osg::Geometry& lines = linesOf(generator);
    osg::Geometry& markers = markersOf(generator);
    std::vector<unsigned int> counts{lines.getVertexArray()->getModifiedCount(),
                                     lines.getColorArray()->getModifiedCount(),
                                     lines.getNormalArray()->getModifiedCount()};
    for (osg::Geometry* geometry : {&lines, &markers}) {
        for (const auto& primitives : geometry->getPrimitiveSetList()) counts.push_back(primitives->getModifiedCount());
    }
    return counts;
}

/** What comes back from a file of that format; null if the format cannot hold it. */
osg::ref_ptr<osg::Node> writeAndRead(const osg::Node& node, const std::string& ending) {
    osgDB::ReaderWriter& format = *osgDB::Registry::instance()->getReaderWriterForExtension(ending);
    const osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    options->setPluginStringData("fileType", ending == "osgt" ? "Ascii" : ending == "osgx" ? "XML" : "Binary");
    std::stringstream file;
    if (!format.writeNode(node, file, options).success()) return nullptr;
    return format.readNode(file, options).getNode();
}

/** Stands where a polygon mode does and is none. */
class ForeignPolygonMode : public osg::StateAttribute {
public:
    ForeignPolygonMode() = default;
    ForeignPolygonMode(const ForeignPolygonMode& other, const osg::CopyOp& operation)
        : osg::StateAttribute(other, operation) {}

    META_StateAttribute(test, ForeignPolygonMode, POLYGONMODE)

        int compare(const osg::StateAttribute& other) const override {
        return this == &other ? 0 : 1;
    }
};

/** The ways to add something. */
struct Addition {
    const char* name;
    void (*add)(SimpleGeometryGenerator&);
};

void PrintTo(const Addition& addition, std::ostream* stream) {
    *stream << addition.name;
}

class SimpleGeometryGeneratorAddition : public testing::TestWithParam<Addition> {};

INSTANTIATE_TEST_SUITE_P(
    , SimpleGeometryGeneratorAddition,
    testing::Values(Addition{"Line", [](SimpleGeometryGenerator& g) { g.addLine(a, b, red); }},
                    Addition{"Loop",
                             [](SimpleGeometryGenerator& g) {
                                 g.addLoop(makePoints({a, b}), red);
                             }},
                    Addition{"Triangle", [](SimpleGeometryGenerator& g) { g.addTriangle(a, b, c, red); }},
                    Addition{"Box", [](SimpleGeometryGenerator& g) { g.addBoundingBox(osg::BoundingBox(a, b), red); }}),
    [](const auto& addition) { return addition.param.name; });

}  // namespace

TEST(SimpleGeometryGenerator, CallsItselfWhatItsBaseIsCalled) {
    const auto generator = makeGenerator();

    EXPECT_STREQ(generator->className(), "MatrixTransform");
    EXPECT_STREQ(generator->libraryName(), "osg");
    const osg::ref_ptr<osg::Object> clone = generator->clone(osg::CopyOp::SHALLOW_COPY);
    const osg::Object& cloned = *clone;
    EXPECT_EQ(typeid(cloned), typeid(osg::MatrixTransform));
}

TEST(SimpleGeometryGenerator, BeginsWithAnEmptyGeodeAndNothingElse) {
    const auto generator = makeGenerator();

    EXPECT_TRUE(generator->getMatrix().isIdentity());
    ASSERT_EQ(generator->getNumChildren(), 1u);
    const osg::Object& child = *generator->getChild(0);
    EXPECT_EQ(typeid(child), typeid(osg::Geode));
    EXPECT_EQ(geodeOf(*generator).getNumDrawables(), 0u);
    EXPECT_FALSE(generator->getStateSet());
    EXPECT_FALSE(generator->getWireframeEnabled());
}

TEST(SimpleGeometryGenerator, BeginsWithEmptyLists) {
    const auto generator = makeGenerator();

    osg::Geometry& lines = linesOf(*generator);
    EXPECT_THAT(verticesOf(lines), IsEmpty());
    EXPECT_THAT(colorsOf(lines), IsEmpty());
    EXPECT_THAT(normalsOf(lines), IsEmpty());
    EXPECT_EQ(lines.getNumPrimitiveSets(), 0u);
    osg::Geometry& markers = markersOf(*generator);
    ASSERT_EQ(markers.getNumPrimitiveSets(), 1u);
    EXPECT_THAT(indicesOf(markers, GL_POINTS), IsEmpty());
}

TEST(SimpleGeometryGenerator, DrawsLinesAndTrianglesFromBuffersWithANormalPerPrimitive) {
    const auto generator = makeGenerator();

    const osg::Geometry& lines = linesOf(*generator);
    EXPECT_STREQ(lines.className(), "Geometry");
    EXPECT_STREQ(lines.libraryName(), "osg");
    EXPECT_EQ(lines.getVertexArray()->getBinding(), osg::Array::BIND_PER_VERTEX);
    EXPECT_EQ(lines.getColorArray()->getBinding(), osg::Array::BIND_PER_VERTEX);
    EXPECT_EQ(static_cast<unsigned int>(lines.getNormalArray()->getBinding()), perPrimitive);
    EXPECT_FALSE(lines.containsDeprecatedData());
    EXPECT_FALSE(lines.getUseDisplayList());
    EXPECT_TRUE(lines.getUseVertexBufferObjects());
    EXPECT_TRUE(lines.getVertexArray()->getBufferObject());
    EXPECT_EQ(lines.getColorArray()->getBufferObject(), lines.getVertexArray()->getBufferObject());
}

TEST(SimpleGeometryGenerator, BlendsLinesAndTrianglesBehindWhatIsOpaque) {
    const auto generator = makeGenerator();

    const osg::StateSet& state = *linesOf(*generator).getStateSet();
    EXPECT_THAT(state.getModeList(), ElementsAre(std::make_pair(GL_BLEND, osg::StateAttribute::ON)));
    EXPECT_EQ(state.getRenderingHint(), osg::StateSet::TRANSPARENT_BIN);
    EXPECT_EQ(state.getAttributeList().size(), 1u);
    EXPECT_EQ(attributeOf<osg::LineWidth>(state)->getWidth(), 1.0f);
}

TEST(SimpleGeometryGenerator, DrawsMarkersFromTheSameArrays) {
    const auto generator = makeGenerator();

    const osg::Geometry& markers = markersOf(*generator);
    const osg::Geometry& lines = linesOf(*generator);
    EXPECT_STREQ(markers.className(), "Geometry");
    EXPECT_EQ(markers.getVertexArray(), geometryOf(*generator, 1).getVertexArray());
    EXPECT_EQ(markers.getVertexArray(), lines.getVertexArray());
    EXPECT_EQ(markers.getColorArray(), lines.getColorArray());
    EXPECT_FALSE(markers.getNormalArray());
    EXPECT_FALSE(markers.getUseDisplayList());
    EXPECT_TRUE(markers.getUseVertexBufferObjects());
}

TEST(SimpleGeometryGenerator, GivesMarkersASizeThatShrinksWithDistance) {
    const auto generator = makeGenerator();

    const osg::StateSet& state = *markersOf(*generator).getStateSet();
    EXPECT_TRUE(state.getModeList().empty());
    EXPECT_EQ(state.getRenderingHint(), osg::StateSet::DEFAULT_BIN);
    EXPECT_EQ(state.getAttributeList().size(), 1u);
    const osg::Point& point = *attributeOf<osg::Point>(state);
    EXPECT_EQ(point.getSize(), 0.1f);
    EXPECT_EQ(point.getDistanceAttenuation(), osg::Vec3(0, 0, 0.05f));
}

TEST(SimpleGeometryGenerator, AttachesLinesWithTheFirstOneAdded) {
    const auto generator = makeGenerator();

    generator->addLine(a, b, red);

    ASSERT_EQ(geodeOf(*generator).getNumDrawables(), 1u);
    osg::Geometry& lines = geometryOf(*generator);
    ASSERT_EQ(lines.getNumPrimitiveSets(), 1u);
    EXPECT_THAT(indicesOf(lines, GL_LINES), ElementsAre(0, 1));
    EXPECT_EQ(lines.getPrimitiveSet(0)->getNumInstances(), 0);
}

TEST(SimpleGeometryGenerator, ListsALineAndATriangle) {
    const auto generator = makeGenerator();

    generator->addLine(a, b, red);
    generator->addTriangle(c, b, a, green);

    osg::Geometry& lines = geometryOf(*generator);
    EXPECT_THAT(verticesOf(lines), ElementsAre(a, b, c, b, a));
    EXPECT_THAT(colorsOf(lines), ElementsAre(red, red, green, green, green));
    EXPECT_THAT(normalsOf(lines), ElementsAre(up, up));
    EXPECT_THAT(indicesOf(lines, GL_LINES), ElementsAre(0, 1));
    EXPECT_THAT(indicesOf(lines, GL_TRIANGLES), ElementsAre(2, 3, 4));
    EXPECT_THAT(indicesOf(markersOf(*generator), GL_POINTS), ElementsAre(0, 1, 2, 3, 4));
}

TEST(SimpleGeometryGenerator, ListsLinesAndTrianglesInTheOrderOfTheirFirstUse) {
    const auto generator = makeGenerator();

    generator->addTriangle(a, b, c, red);
    generator->addLine(a, b, red);
    generator->addTriangle(a, b, c, red);

    osg::Geometry& lines = geometryOf(*generator);
    ASSERT_EQ(lines.getNumPrimitiveSets(), 2u);
    EXPECT_EQ(lines.getPrimitiveSet(0)->getMode(), static_cast<GLenum>(GL_TRIANGLES));
    EXPECT_EQ(lines.getPrimitiveSet(1)->getMode(), static_cast<GLenum>(GL_LINES));
    EXPECT_THAT(indicesOf(lines, GL_TRIANGLES), ElementsAre(0, 1, 2, 5, 6, 7));
}

TEST(SimpleGeometryGenerator, ClosesALoopAndMovesItByTheOffset) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, green);

    generator->addLoop(makePoints({a, b, c, a}), osg::Vec3(0.5f, 1, 2), red);

    osg::Geometry& lines = geometryOf(*generator);
    EXPECT_THAT(indicesOf(lines, GL_LINES), ElementsAre(0, 1, 2, 3, 3, 4, 4, 5, 5, 2));
    EXPECT_THAT(verticesOf(lines), ElementsAre(a, b, osg::Vec3(1.5f, 3, 5), osg::Vec3(4.5f, 6, 8),
                                               osg::Vec3(7.5f, 9, 12), osg::Vec3(1.5f, 3, 5)));
    EXPECT_THAT(colorsOf(lines), ElementsAre(green, green, red, red, red, red));
    EXPECT_THAT(normalsOf(lines), ElementsAre(up, up, up, up, up));
}

TEST(SimpleGeometryGenerator, MakesNoMarkersOfLoops) {
    const auto generator = makeGenerator();

    generator->addLoop(makePoints({a, b, c}), red);
    generator->addLine(a, b, red);

    EXPECT_THAT(indicesOf(markersOf(*generator), GL_POINTS), ElementsAre(3, 4));
}

TEST(SimpleGeometryGenerator, LeavesALoopWithoutOffsetWhereItIs) {
    const auto generator = makeGenerator();

    generator->addLoop(makePoints({a, b}), red);

    EXPECT_THAT(verticesOf(geometryOf(*generator)), ElementsAre(a, b));
    EXPECT_THAT(indicesOf(geometryOf(*generator), GL_LINES), ElementsAre(0, 1, 1, 0));
    EXPECT_THAT(colorsOf(geometryOf(*generator)), ElementsAre(red, red));
}

TEST(SimpleGeometryGenerator, MovesALoopInSinglePrecision) {
    const auto generator = makeGenerator();
    const osg::Vec3 farAway(16777216.0f, 0.1f, 0);

    generator->addLoop(makePoints({farAway}), osg::Vec3(1, 0.2f, 0), red);

    EXPECT_THAT(verticesOf(geometryOf(*generator)), ElementsAre(osg::Vec3(16777216.0f, 0.1f + 0.2f, 0)));
}

TEST(SimpleGeometryGenerator, MakesALineWithoutLengthOfALoopOfOnePoint) {
    const auto generator = makeGenerator();

    generator->addLoop(makePoints({a}), red);

    EXPECT_THAT(indicesOf(geometryOf(*generator), GL_LINES), ElementsAre(0, 0));
    EXPECT_THAT(verticesOf(geometryOf(*generator)), ElementsAre(a));
    EXPECT_THAT(normalsOf(geometryOf(*generator)), ElementsAre(up));
}

TEST(SimpleGeometryGenerator, MakesAnEmptyListOfALoopOfNoPoints) {
    const auto generator = makeGenerator();

    generator->addLoop(makePoints({}), red);

    ASSERT_EQ(geodeOf(*generator).getNumDrawables(), 1u);
    EXPECT_THAT(indicesOf(geometryOf(*generator), GL_LINES), IsEmpty());
    EXPECT_THAT(verticesOf(geometryOf(*generator)), IsEmpty());
}

TEST(SimpleGeometryGenerator, TakesItsOwnVerticesAndColorsAsArguments) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    auto& vertices = dynamic_cast<osg::Vec3Array&>(*geometryOf(*generator).getVertexArray());
    auto& colors = dynamic_cast<osg::Vec4Array&>(*geometryOf(*generator).getColorArray());
    vertices.asVector().shrink_to_fit();
    colors.asVector().shrink_to_fit();

    generator->addTriangle(vertices[0], vertices[1], vertices[1], colors[0]);
    generator->addLoop(&vertices, colors[0]);

    EXPECT_THAT(vertices.asVector(), ElementsAre(a, b, a, b, b, a, b, a, b, b));
    EXPECT_THAT(colors.asVector(), Each(red));
}

TEST(SimpleGeometryGenerator, TakesItsOwnVertexAsTheOffsetOfALoop) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    auto& vertices = dynamic_cast<osg::Vec3Array&>(*geometryOf(*generator).getVertexArray());
    vertices.asVector().shrink_to_fit();

    generator->addLoop(makePoints({a, b, c}), vertices[0], red);

    EXPECT_THAT(vertices.asVector(), ElementsAre(a, b, a + a, b + a, c + a));
}

TEST(SimpleGeometryGenerator, TakesItsOwnColorForABox) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    auto& colors = dynamic_cast<osg::Vec4Array&>(*geometryOf(*generator).getColorArray());
    colors.asVector().shrink_to_fit();

    generator->addBoundingBox(osg::BoundingBox(a, b), colors[0]);

    EXPECT_THAT(colors.asVector(), testing::AllOf(testing::SizeIs(26), Each(red)));
}

TEST(SimpleGeometryGenerator, DrawsABoxAsTwelveLinesOfTheirOwnEnds) {
    const auto generator = makeGenerator();
    const float x0 = 1, y0 = 2, z0 = 3, x1 = 4, y1 = 6, z1 = 8;
    using V = osg::Vec3;

    generator->addBoundingBox(osg::BoundingBox(x0, y0, z0, x1, y1, z1), red);

    osg::Geometry& lines = geometryOf(*generator);
    const std::vector<osg::Vec3> expected{V(x0, y0, z0), V(x0, y1, z0), V(x0, y0, z0), V(x1, y0, z0), V(x0, y0, z1),
                                          V(x0, y1, z1), V(x0, y0, z1), V(x1, y0, z1), V(x1, y1, z0), V(x0, y1, z0),
                                          V(x1, y1, z0), V(x1, y0, z0), V(x1, y1, z1), V(x0, y1, z1), V(x1, y1, z1),
                                          V(x1, y0, z1), V(x0, y0, z0), V(x0, y0, z1), V(x1, y0, z0), V(x1, y0, z1),
                                          V(x0, y1, z0), V(x0, y1, z1), V(x1, y1, z0), V(x1, y1, z1)};
    EXPECT_EQ(verticesOf(lines), expected);
    EXPECT_THAT(normalsOf(lines), testing::AllOf(testing::SizeIs(12), Each(up)));
    EXPECT_THAT(colorsOf(lines), testing::AllOf(testing::SizeIs(24), Each(red)));
    EXPECT_THAT(indicesOf(lines, GL_LINES),
                ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23));
    EXPECT_EQ(indicesOf(markersOf(*generator), GL_POINTS), indicesOf(lines, GL_LINES));
}

TEST_P(SimpleGeometryGeneratorAddition, MarksAllThatTheNextFrameHasToLookAt) {
    const auto generator = makeGenerator();
    GetParam().add(*generator);
    const std::vector<unsigned int> before = modifiedCounts(*generator);

    GetParam().add(*generator);

    const std::vector<unsigned int> after = modifiedCounts(*generator);
    ASSERT_EQ(after.size(), before.size());
    for (std::size_t i = 0; i < after.size(); ++i) EXPECT_GT(after[i], before[i]) << "list " << i;
}

TEST_P(SimpleGeometryGeneratorAddition, GrowsTheBoundsThatWereKnown) {
    const auto generator = makeGenerator();
    generator->checkPointsGeometry();
    generator->checkGeometry();
    EXPECT_FALSE(generator->getBound().valid());
    EXPECT_FALSE(geometryOf(*generator, 0).getBoundingBox().valid());
    EXPECT_FALSE(geometryOf(*generator, 1).getBoundingBox().valid());

    GetParam().add(*generator);

    EXPECT_TRUE(generator->getBound().valid());
    EXPECT_TRUE(geometryOf(*generator, 1).getBoundingBox().valid());
    const bool hasMarkers = std::strcmp(GetParam().name, "Loop") != 0;
    EXPECT_EQ(geometryOf(*generator, 0).getBoundingBox().valid(), hasMarkers);
}

TEST_P(SimpleGeometryGeneratorAddition, AttachesOnce) {
    const auto generator = makeGenerator();

    GetParam().add(*generator);
    GetParam().add(*generator);

    EXPECT_EQ(geodeOf(*generator).getNumDrawables(), 1u);
    EXPECT_EQ(geometryOf(*generator).getNumPrimitiveSets(), 1u);
}

TEST(SimpleGeometryGenerator, ChecksAttachAndMakeListsOnce) {
    const auto generator = makeGenerator();

    generator->checkGeometry();
    EXPECT_EQ(geometryOf(*generator).getNumPrimitiveSets(), 0u);
    for (int i = 0; i < 2; ++i) {
        generator->checkLines();
        generator->checkTriangles();
        generator->checkPointsGeometry();
    }

    ASSERT_EQ(geodeOf(*generator).getNumDrawables(), 2u);
    EXPECT_EQ(geometryOf(*generator).getNumPrimitiveSets(), 2u);
    EXPECT_THAT(indicesOf(geometryOf(*generator), GL_LINES), IsEmpty());
    EXPECT_THAT(indicesOf(geometryOf(*generator), GL_TRIANGLES), IsEmpty());
    EXPECT_THAT(indicesOf(geometryOf(*generator, 1), GL_POINTS), IsEmpty());
}

TEST(SimpleGeometryGenerator, EachCheckAttachesByItself) {
    for (const auto check : {&SimpleGeometryGenerator::checkGeometry, &SimpleGeometryGenerator::checkLines,
                             &SimpleGeometryGenerator::checkTriangles, &SimpleGeometryGenerator::checkPointsGeometry}) {
        const auto generator = makeGenerator();
        (*generator.*check)();
        EXPECT_EQ(geodeOf(*generator).getNumDrawables(), 1u);
    }
}

TEST(SimpleGeometryGenerator, CheckGeometryForgetsTheBound) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    EXPECT_EQ(geometryOf(*generator).getBoundingBox(), osg::BoundingBox(a, b));
    dynamic_cast<osg::Vec3Array&>(*geometryOf(*generator).getVertexArray())[1] = c;

    generator->checkGeometry();

    EXPECT_EQ(geometryOf(*generator).getBoundingBox(), osg::BoundingBox(a, c));
}

TEST(SimpleGeometryGenerator, CheckPointsGeometryMarksNothing) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    osg::Geometry& markers = markersOf(*generator);
    EXPECT_EQ(markers.getBoundingBox(), osg::BoundingBox(a, b));
    dynamic_cast<osg::Vec3Array&>(*markers.getVertexArray())[1] = c;
    const std::vector<unsigned int> before = modifiedCounts(*generator);

    generator->checkPointsGeometry();

    EXPECT_EQ(markers.getBoundingBox(), osg::BoundingBox(a, b));
    EXPECT_EQ(modifiedCounts(*generator), before);
}

TEST(SimpleGeometryGenerator, HasAPaletteOfFourStepsPerChannel) {
    const auto generator = makeGenerator();
    const float steps[] = {0.0f, 0.33f, 0.66f, 0.99f};

    for (unsigned int i = 0; i < 64; ++i) {
        const osg::Vec4f color = generator->createColor(i);
        EXPECT_EQ(color, osg::Vec4f(steps[i / 16], steps[i / 4 % 4], steps[i % 4], 1.0f)) << i;
    }
    EXPECT_EQ(generator->createColor(1), osg::Vec4f(0, 0, 0.33f, 1));
    EXPECT_EQ(generator->createColor(63), osg::Vec4f(0.99f, 0.99f, 0.99f, 1));
}

TEST(SimpleGeometryGenerator, RepeatsThePaletteEvery64Colors) {
    const auto generator = makeGenerator();

    EXPECT_EQ(generator->createColor(64), osg::Vec4f(0, 0, 0, 1));
    EXPECT_EQ(generator->createColor(21), osg::Vec4f(0.33f, 0.33f, 0.33f, 1));
    EXPECT_EQ(generator->createColor(85), generator->createColor(21));
    EXPECT_EQ(generator->createColor(~0u), generator->createColor(63));
}

TEST(SimpleGeometryGenerator, SetsTheLineWidthInPlaceOfTheFirst) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    const osg::StateSet& state = *geometryOf(*generator).getStateSet();
    const osg::ref_ptr<osg::LineWidth> first = attributeOf<osg::LineWidth>(state);

    generator->setLineThinkness(2.5f);

    EXPECT_NE(attributeOf<osg::LineWidth>(state), first);
    EXPECT_EQ(attributeOf<osg::LineWidth>(state)->getWidth(), 2.5f);
    EXPECT_EQ(first->getWidth(), 1.0f);
    EXPECT_EQ(state.getAttributePair(osg::StateAttribute::LINEWIDTH)->second, 0u) << "neither override nor protected";
    EXPECT_EQ(state.getAttributeList().size(), 1u);
    EXPECT_EQ(state.getModeList().size(), 1u) << "blending";
}

TEST(SimpleGeometryGenerator, ReusesTheLineWidthAndKeepsItAlive) {
    const auto generator = makeGenerator();
    osg::StateSet& state = *linesOf(*generator).getStateSet();
    generator->setLineThinkness(2.0f);
    const osg::LineWidth* width = attributeOf<osg::LineWidth>(state);

    state.removeAttribute(osg::StateAttribute::LINEWIDTH);
    generator->setLineThinkness(3.0f);

    EXPECT_EQ(attributeOf<osg::LineWidth>(state), width);
    EXPECT_EQ(width->getWidth(), 3.0f);
}

TEST(SimpleGeometryGenerator, DrawsInWireframeAndFilledAgain) {
    const auto generator = makeGenerator();

    generator->setWireframeEnabled(true);
    EXPECT_TRUE(generator->getWireframeEnabled());
    const osg::PolygonMode* mode = attributeOf<osg::PolygonMode>(*generator->getStateSet());
    ASSERT_TRUE(mode);
    EXPECT_TRUE(mode->getFrontAndBack());
    EXPECT_EQ(mode->getMode(osg::PolygonMode::FRONT_AND_BACK), osg::PolygonMode::LINE);

    generator->setWireframeEnabled(false);
    EXPECT_FALSE(generator->getWireframeEnabled());
    EXPECT_EQ(attributeOf<osg::PolygonMode>(*generator->getStateSet()), mode);
    EXPECT_EQ(mode->getMode(osg::PolygonMode::FRONT_AND_BACK), osg::PolygonMode::FILL);
}

TEST(SimpleGeometryGenerator, MakesOnePolygonModeAndLeavesModesAlone) {
    const auto generator = makeGenerator();

    generator->setWireframeEnabled(true);
    const osg::PolygonMode* mode = attributeOf<osg::PolygonMode>(*generator->getStateSet());
    generator->setWireframeEnabled(true);

    const osg::StateSet& state = *generator->getStateSet();
    EXPECT_EQ(attributeOf<osg::PolygonMode>(state), mode);
    EXPECT_EQ(state.getAttributeList().size(), 1u);
    EXPECT_EQ(state.getAttributePair(osg::StateAttribute::POLYGONMODE)->second, osg::StateAttribute::OFF);
    EXPECT_TRUE(state.getModeList().empty());
}

TEST(SimpleGeometryGenerator, DoesNothingWhenWireframeIsAsItWas) {
    const auto generator = makeGenerator();

    generator->setWireframeEnabled(false);
    EXPECT_FALSE(generator->getStateSet());

    generator->setWireframeEnabled(true);
    generator->setStateSet(nullptr);
    generator->setWireframeEnabled(true);
    EXPECT_FALSE(generator->getStateSet());
}

TEST(SimpleGeometryGenerator, UsesThePolygonModeThatIsThere) {
    const auto generator = makeGenerator();
    const osg::ref_ptr<osg::PolygonMode> own = new osg::PolygonMode;
    generator->getOrCreateStateSet()->setAttribute(own, osg::StateAttribute::OVERRIDE);

    generator->setWireframeEnabled(true);

    EXPECT_EQ(attributeOf<osg::PolygonMode>(*generator->getStateSet()), own);
    EXPECT_EQ(own->getMode(osg::PolygonMode::FRONT_AND_BACK), osg::PolygonMode::LINE);
    EXPECT_EQ(generator->getStateSet()->getAttributePair(osg::StateAttribute::POLYGONMODE)->second,
              osg::StateAttribute::OVERRIDE);
}

TEST(SimpleGeometryGenerator, ReplacesAnAttributeInThePlaceOfAPolygonMode) {
    const auto generator = makeGenerator();
    generator->getOrCreateStateSet()->setAttribute(new ForeignPolygonMode);

    generator->setWireframeEnabled(true);

    const osg::PolygonMode* mode = attributeOf<osg::PolygonMode>(*generator->getStateSet());
    ASSERT_TRUE(mode);
    EXPECT_EQ(mode->getMode(osg::PolygonMode::FRONT_AND_BACK), osg::PolygonMode::LINE);
}

TEST(SimpleGeometryGenerator, ClearTakesAwayWhatWasAdded) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    generator->addTriangle(a, b, c, red);
    const osg::ref_ptr<osg::Geometry> markers = &markersOf(*generator);
    const osg::ref_ptr<osg::Geometry> lines = &geometryOf(*generator);

    generator->clear();

    ASSERT_EQ(generator->getNumChildren(), 1u);
    EXPECT_EQ(geodeOf(*generator).getNumDrawables(), 0u);
    EXPECT_THAT(verticesOf(*lines), IsEmpty());
    EXPECT_THAT(colorsOf(*lines), IsEmpty());
    EXPECT_THAT(normalsOf(*lines), IsEmpty());
    EXPECT_EQ(lines->getNumPrimitiveSets(), 2u);
    EXPECT_THAT(indicesOf(*lines, GL_LINES), IsEmpty());
    EXPECT_THAT(indicesOf(*lines, GL_TRIANGLES), IsEmpty());
    EXPECT_THAT(indicesOf(*markers, GL_POINTS), IsEmpty());
    EXPECT_FALSE(generator->getBound().valid());
}

TEST(SimpleGeometryGenerator, ClearDetachesBuffers) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    generator->addTriangle(a, b, c, red);
    const osg::ref_ptr<osg::Geometry> markers = &markersOf(*generator);
    const osg::ref_ptr<osg::Geometry> lines = &geometryOf(*generator);
    EXPECT_TRUE(primitivesOf(*lines, GL_LINES)->getBufferObject());

    generator->clear();

    EXPECT_FALSE(lines->getVertexArray()->getBufferObject());
    EXPECT_FALSE(lines->getColorArray()->getBufferObject());
    EXPECT_FALSE(lines->getNormalArray()->getBufferObject());
    EXPECT_FALSE(primitivesOf(*lines, GL_LINES)->getBufferObject());
    EXPECT_FALSE(primitivesOf(*lines, GL_TRIANGLES)->getBufferObject());
    EXPECT_FALSE(primitivesOf(*markers, GL_POINTS)->getBufferObject());
}

TEST(SimpleGeometryGenerator, GetsNewBuffersWhenItBeginsAnew) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    generator->addTriangle(a, b, c, red);

    generator->clear();
    generator->addLine(a, b, red);
    osg::Geometry& markers = markersOf(*generator);

    osg::Geometry& lines = geometryOf(*generator);
    const osg::BufferObject* buffer = lines.getVertexArray()->getBufferObject();
    EXPECT_TRUE(buffer);
    EXPECT_EQ(lines.getColorArray()->getBufferObject(), buffer);
    EXPECT_TRUE(primitivesOf(lines, GL_LINES)->getBufferObject());
    EXPECT_TRUE(primitivesOf(lines, GL_TRIANGLES)->getBufferObject());
    EXPECT_TRUE(primitivesOf(markers, GL_POINTS)->getBufferObject());
}

TEST(SimpleGeometryGenerator, ClearKeepsWireframeAndLineWidth) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    const osg::ref_ptr<osg::Geometry> lines = &geometryOf(*generator);
    generator->setWireframeEnabled(true);
    generator->setLineThinkness(3.0f);

    generator->clear();

    EXPECT_TRUE(generator->getWireframeEnabled());
    EXPECT_EQ(attributeOf<osg::PolygonMode>(*generator->getStateSet())->getMode(osg::PolygonMode::FRONT_AND_BACK),
              osg::PolygonMode::LINE);
    EXPECT_EQ(attributeOf<osg::LineWidth>(*lines->getStateSet())->getWidth(), 3.0f);
    EXPECT_EQ(lines->getStateSet()->getRenderingHint(), osg::StateSet::TRANSPARENT_BIN);
}

TEST(SimpleGeometryGenerator, ClearResetsTheMatrix) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    generator->setMatrix(osg::Matrixd::translate(1, 2, 3));

    generator->clear();
    generator->addLine(a, b, red);

    EXPECT_TRUE(generator->getMatrix().isIdentity());
    EXPECT_EQ(generator->getBound().center(), (a + b) / 2);
}

TEST(SimpleGeometryGenerator, ClearOfAnEmptyOneIsQuiet) {
    const auto generator = makeGenerator();
    const OsgMessages messages(osg::INFO);
    const StandardError error;

    generator->clear();
    generator->clear();

    EXPECT_EQ(geodeOf(*generator).getNumDrawables(), 0u);
    EXPECT_EQ(messages.text(), "");
    EXPECT_EQ(error.text(), "");
}

TEST(SimpleGeometryGenerator, BeginsAnewAfterClear) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    generator->addTriangle(a, b, c, red);
    generator->checkPointsGeometry();
    const osg::ref_ptr<osg::Geometry> lines = &geometryOf(*generator);
    const osg::ref_ptr<osg::DrawElementsUInt> list = primitivesOf(*lines, GL_LINES);

    generator->clear();
    generator->addLine(b, c, green);

    ASSERT_EQ(geodeOf(*generator).getNumDrawables(), 1u) << "markers are off";
    EXPECT_EQ(&geometryOf(*generator), lines);
    EXPECT_EQ(lines->getNumPrimitiveSets(), 2u);
    EXPECT_EQ(primitivesOf(*lines, GL_LINES), list);
    EXPECT_THAT(indicesOf(*lines, GL_LINES), ElementsAre(0, 1));
    EXPECT_THAT(verticesOf(*lines), ElementsAre(b, c));
    EXPECT_THAT(indicesOf(markersOf(*generator), GL_POINTS), ElementsAre(0, 1));
}

TEST(SimpleGeometryGenerator, ClearForgetsTheBoundOfMarkers) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    EXPECT_TRUE(markersOf(*generator).getBoundingBox().valid());

    generator->clear();
    generator->checkPointsGeometry();

    ASSERT_EQ(geodeOf(*generator).getNumDrawables(), 1u) << "markers are on again";
    EXPECT_FALSE(geometryOf(*generator).getBoundingBox().valid());
}

TEST(SimpleGeometryGenerator, LeavesWhatIsNearTheOriginThere) {
    const auto generator = makeGenerator();
    generator->addLine(osg::Vec3(999.9375f, 0, 0), osg::Vec3(1000, 0, 0), red);
    generator->setMatrix(osg::Matrixd::translate(1, 2, 3));

    generator->bubbleUpTransform();

    EXPECT_TRUE(generator->getMatrix().isIdentity()) << "what was there is replaced";
    EXPECT_THAT(verticesOf(geometryOf(*generator)), ElementsAre(osg::Vec3(999.9375f, 0, 0), osg::Vec3(1000, 0, 0)));
}

TEST(SimpleGeometryGenerator, MovesWhatIsFarAwayToTheOriginAndPutsItBackByItsMatrix) {
    const auto generator = makeGenerator();
    generator->addLine(osg::Vec3(999, 0, 0), osg::Vec3(1001, 0, 0), red);
    generator->setMatrix(osg::Matrixd::translate(5, 6, 7));

    generator->bubbleUpTransform();

    EXPECT_EQ(generator->getMatrix(), osg::Matrixd::translate(1000, 0, 0)) << "replaced, not combined";
    EXPECT_THAT(verticesOf(geometryOf(*generator)), ElementsAre(osg::Vec3(-1, 0, 0), osg::Vec3(1, 0, 0)));
    EXPECT_THAT(normalsOf(geometryOf(*generator)), ElementsAre(up));
    EXPECT_EQ(generator->getBound().center(), osg::Vec3(1000, 0, 0));
}

TEST(SimpleGeometryGenerator, MovesLinesAndMarkersOnce) {
    const auto generator = makeGenerator();
    generator->addLine(osg::Vec3(-1, 10000, 0), osg::Vec3(1, 10000, 0), red);
    generator->checkPointsGeometry();
    EXPECT_EQ(geometryOf(*generator, 1).getBoundingBox().center(), osg::Vec3(0, 10000, 0));
    const std::vector<unsigned int> before = modifiedCounts(*generator);

    generator->bubbleUpTransform();

    EXPECT_EQ(generator->getMatrix(), osg::Matrixd::translate(0, 10000, 0));
    EXPECT_THAT(verticesOf(geometryOf(*generator)), ElementsAre(osg::Vec3(-1, 0, 0), osg::Vec3(1, 0, 0)));
    EXPECT_EQ(geometryOf(*generator, 0).getBoundingBox().center(), osg::Vec3());
    EXPECT_EQ(geometryOf(*generator, 1).getBoundingBox().center(), osg::Vec3());
    EXPECT_GT(modifiedCounts(*generator)[0], before[0]) << "the next frame has to look at the vertices";
}

TEST(SimpleGeometryGenerator, ForgetsThePlaceWhenRecentredTwice) {
    const auto generator = makeGenerator();
    generator->addLine(osg::Vec3(1999, 0, 0), osg::Vec3(2001, 0, 0), red);

    generator->bubbleUpTransform();
    generator->bubbleUpTransform();

    EXPECT_TRUE(generator->getMatrix().isIdentity());
    EXPECT_THAT(verticesOf(geometryOf(*generator)), ElementsAre(osg::Vec3(-1, 0, 0), osg::Vec3(1, 0, 0)));
}

TEST(SimpleGeometryGenerator, HasNothingToRecentreWhenEmpty) {
    const auto generator = makeGenerator();
    generator->setMatrix(osg::Matrixd::translate(5000, 0, 0));

    generator->bubbleUpTransform();

    EXPECT_TRUE(generator->getMatrix().isIdentity());
}

TEST(SimpleGeometryGenerator, RecentresOnlyItsOwnGeode) {
    const auto generator = makeGenerator();
    generator->addLine(osg::Vec3(1999, 0, 0), osg::Vec3(2001, 0, 0), red);
    const auto child = makeGenerator();
    child->addLine(osg::Vec3(5999, 0, 0), osg::Vec3(6001, 0, 0), red);
    generator->addChild(child);

    generator->bubbleUpTransform();

    EXPECT_EQ(generator->getMatrix(), osg::Matrixd::translate(2000, 0, 0));
    EXPECT_THAT(verticesOf(geometryOf(*child)), ElementsAre(osg::Vec3(5999, 0, 0), osg::Vec3(6001, 0, 0)));
}

TEST(SimpleGeometryGenerator, CopiesDrawIntoTheSameLists) {
    const auto original = makeGenerator();
    original->addLine(a, b, red);

    const osg::ref_ptr<SimpleGeometryGenerator> copy = new SimpleGeometryGenerator(*original);
    copy->addLine(b, c, green);
    original->addTriangle(a, b, c, red);

    EXPECT_EQ(&geodeOf(*copy), &geodeOf(*original));
    ASSERT_EQ(geodeOf(*original).getNumDrawables(), 1u);
    EXPECT_EQ(geodeOf(*original).getNumParents(), 2u);
    EXPECT_THAT(verticesOf(geometryOf(*original)), ElementsAre(a, b, b, c, a, b, c));
    EXPECT_THAT(indicesOf(geometryOf(*original), GL_LINES), ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(indicesOf(markersOf(*copy), GL_POINTS), ElementsAre(0, 1, 2, 3, 4, 5, 6));
}

TEST(SimpleGeometryGenerator, CopiesHaveTheNodesSettings) {
    const auto original = makeGenerator();
    original->setName("marks");
    original->setMatrix(osg::Matrixd::translate(1, 2, 3));
    original->setWireframeEnabled(true);

    const osg::ref_ptr<SimpleGeometryGenerator> copy = new SimpleGeometryGenerator(*original);

    EXPECT_EQ(copy->getName(), "marks");
    EXPECT_EQ(copy->getMatrix(), osg::Matrixd::translate(1, 2, 3));
    EXPECT_TRUE(copy->getWireframeEnabled());
    EXPECT_EQ(copy->getStateSet(), original->getStateSet());
    copy->setWireframeEnabled(false);
    EXPECT_TRUE(original->getWireframeEnabled());
}

TEST(SimpleGeometryGenerator, CopiesShareTheLineWidthAndOutliveTheirOriginal) {
    auto original = makeGenerator();
    original->addLine(a, b, red);
    original->setLineThinkness(2.0f);
    const osg::ref_ptr<SimpleGeometryGenerator> copy = new SimpleGeometryGenerator(*original);
    osg::StateSet& state = *geometryOf(*copy).getStateSet();
    const osg::LineWidth* width = attributeOf<osg::LineWidth>(state);
    state.removeAttribute(osg::StateAttribute::LINEWIDTH);

    original = nullptr;
    copy->setLineThinkness(5.0f);

    EXPECT_EQ(attributeOf<osg::LineWidth>(state), width);
    EXPECT_EQ(width->getWidth(), 5.0f);
    EXPECT_EQ(geodeOf(*copy).getNumParents(), 1u);
}

TEST(SimpleGeometryGenerator, CopiesKnowWhatIsAttached) {
    const auto original = makeGenerator();
    original->addLine(a, b, red);
    original->checkPointsGeometry();

    const osg::ref_ptr<SimpleGeometryGenerator> copy = new SimpleGeometryGenerator(*original);
    copy->addLine(b, c, red);
    copy->checkPointsGeometry();
    EXPECT_EQ(geodeOf(*original).getNumDrawables(), 2u);

    copy->clear();
    EXPECT_EQ(geodeOf(*original).getNumDrawables(), 0u);
    original->addLine(a, b, red);
    EXPECT_EQ(geodeOf(*original).getNumDrawables(), 0u) << "it takes them for attached";
    original->clear();
    original->addLine(a, b, red);
    EXPECT_EQ(geodeOf(*original).getNumDrawables(), 1u);
}

TEST(SimpleGeometryGenerator, CopiesTakeForAttachedWhatTheirOriginalHadAttached) {
    const auto original = makeGenerator();
    original->addLine(a, b, red);
    original->checkPointsGeometry();
    const osg::ref_ptr<SimpleGeometryGenerator> copy = new SimpleGeometryGenerator(*original);

    original->clear();
    copy->checkPointsGeometry();
    copy->checkGeometry();

    EXPECT_EQ(geodeOf(*copy).getNumDrawables(), 0u);
}

TEST(SimpleGeometryGenerator, CopiesUseTheListsThatTheirOriginalHad) {
    const auto original = makeGenerator();
    original->addTriangle(a, b, c, red);
    original->addLine(a, b, red);

    const osg::ref_ptr<SimpleGeometryGenerator> copy = new SimpleGeometryGenerator(*original);
    copy->addTriangle(c, b, a, red);
    copy->addLine(b, a, red);

    EXPECT_EQ(geometryOf(*original).getNumPrimitiveSets(), 2u);
    EXPECT_THAT(indicesOf(geometryOf(*original), GL_TRIANGLES), ElementsAre(0, 1, 2, 5, 6, 7));
    EXPECT_THAT(indicesOf(geometryOf(*original), GL_LINES), ElementsAre(3, 4, 8, 9));
}

TEST(SimpleGeometryGenerator, CopiesOfAnEmptyOneAttachOnce) {
    const auto original = makeGenerator();
    const osg::ref_ptr<SimpleGeometryGenerator> copy = new SimpleGeometryGenerator(*original);

    for (const auto& either : {original, copy}) {
        either->addLine(a, b, red);
        either->checkPointsGeometry();
    }

    EXPECT_EQ(geodeOf(*original).getNumDrawables(), 2u);
    EXPECT_EQ(geometryOf(*original).getNumPrimitiveSets(), 2u) << "a list each";
}

TEST(SimpleGeometryGenerator, ClearLeavesNoIndicesWithoutVertices) {
    const auto original = makeGenerator();
    const osg::ref_ptr<SimpleGeometryGenerator> copy = new SimpleGeometryGenerator(*original);
    original->addLine(a, b, red);
    copy->addLine(b, c, red);
    const osg::ref_ptr<osg::Geometry> lines = &geometryOf(*original);

    copy->clear();

    for (const auto& list : lines->getPrimitiveSetList()) EXPECT_EQ(list->getNumIndices(), 0u);
}

TEST(SimpleGeometryGenerator, FreesAllItMade) {
    auto generator = makeGenerator();
    generator->addLine(a, b, red);
    generator->setLineThinkness(2.0f);
    const osg::ref_ptr<osg::Geode> geode = &geodeOf(*generator);
    const osg::ref_ptr<osg::Geometry> lines = &geometryOf(*generator);
    const osg::ref_ptr<osg::LineWidth> width = attributeOf<osg::LineWidth>(*lines->getStateSet());
    const osg::ref_ptr<osg::Array> vertices = lines->getVertexArray();

    generator = nullptr;

    EXPECT_EQ(geode->referenceCount(), 1);
    EXPECT_EQ(lines->referenceCount(), 2) << "this and the geode";
    EXPECT_EQ(width->referenceCount(), 2) << "this and the state set";
    EXPECT_EQ(vertices->referenceCount(), 2) << "this and the geometry";
}

TEST(SimpleGeometryGenerator, GeometriesStayWhatTheyAreWhenCopied) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    const osg::Geometry& lines = geometryOf(*generator);

    const osg::ref_ptr<osg::Object> copy = lines.clone(osg::CopyOp::DEEP_COPY_ALL);
    const osg::ref_ptr<osg::Object> empty = lines.cloneType();

    const osg::Object& original = lines;
    const osg::Object& copied = *copy;
    const osg::Object& emptied = *empty;
    EXPECT_EQ(typeid(copied), typeid(original)) << "lit, a plain geometry would have any normal";
    EXPECT_EQ(typeid(emptied), typeid(original));
    EXPECT_EQ(static_cast<unsigned int>(dynamic_cast<osg::Geometry&>(*copy).getNormalArray()->getBinding()),
              perPrimitive);
}

TEST(SimpleGeometryGenerator, SurvivesFilesOfTheseFormats) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    generator->addTriangle(a, b, c, green);
    generator->setMatrix(osg::Matrixd::translate(1, 2, 3));

    for (const char* ending : {"osg", "osgb", "osgt", "osgx"}) {
        const osg::ref_ptr<osg::Node> read = writeAndRead(*generator, ending);
        auto* transform = dynamic_cast<osg::MatrixTransform*>(read.get());
        ASSERT_TRUE(transform) << ending;
        EXPECT_EQ(transform->getMatrix(), osg::Matrixd::translate(1, 2, 3)) << ending;
        osg::Geometry& lines = geometryOf(*transform);
        EXPECT_THAT(verticesOf(lines), ElementsAre(a, b, a, b, c)) << ending;
        EXPECT_THAT(colorsOf(lines), ElementsAre(red, red, green, green, green)) << ending;
        EXPECT_THAT(indicesOf(lines, GL_LINES), ElementsAre(0, 1)) << ending;
        EXPECT_THAT(indicesOf(lines, GL_TRIANGLES), ElementsAre(2, 3, 4)) << ending;
        EXPECT_THAT(normalsOf(lines), Each(up)) << ending;
    }
}

TEST(SimpleGeometryGenerator, IsRefusedByTheIveWriter) {
    const auto generator = makeGenerator();
    generator->addLine(a, b, red);
    const OsgMessages messages;

    EXPECT_FALSE(writeAndRead(*generator, "ive"));
    linesOf(*generator).setNormalArray(new osg::Vec3Array(1, &up), osg::Array::BIND_OVERALL);
    EXPECT_TRUE(writeAndRead(*generator, "ive")) << "which is what its page says to do";
}
