#include <sceneutils/SceneUtils.h>
#include <sceneutils/ShaderGenerator.h>

#include "support/DebugGeometry.h"
#include "support/StandardError.h"

#include <gmock/gmock.h>

#include <osg/Program>

#include <cmath>
#include <limits>
#include <type_traits>

using namespace testing_support;
using testing::ElementsAre;
using veltrane::sceneutils::createCoordinateSystemGeometry;
using veltrane::sceneutils::ShaderGenerator;
using veltrane::sceneutils::SimpleGeometryGenerator;

namespace {

static_assert(std::is_same_v<decltype(createCoordinateSystemGeometry(1.0f)), osg::ref_ptr<osg::Group>>);

const osg::Vec4 red(1, 0, 0, 1);
const osg::Vec4 green(0, 1, 0, 1);
const osg::Vec4 blue(0, 0, 1, 1);
const osg::Vec3 origin;

}  // namespace

TEST(CreateCoordinateSystemGeometry, DrawsTheAxesFromTheirTipsToTheOrigin) {
    const osg::ref_ptr<osg::Group> axes = createCoordinateSystemGeometry(2.5f);

    ASSERT_EQ(geodeOf(*axes).getNumDrawables(), 1u);
    osg::Geometry& lines = geometryOf(*axes);
    EXPECT_THAT(verticesOf(lines), ElementsAre(osg::Vec3(2.5f, 0, 0), origin, osg::Vec3(0, 2.5f, 0), origin,
                                               osg::Vec3(0, 0, 2.5f), origin));
    EXPECT_THAT(colorsOf(lines), ElementsAre(red, red, green, green, blue, blue));
    EXPECT_EQ(lines.getNumPrimitiveSets(), 1u);
    EXPECT_THAT(indicesOf(lines, GL_LINES), ElementsAre(0, 1, 2, 3, 4, 5));
}

TEST(CreateCoordinateSystemGeometry, MakesAGeneratorToWhichMoreCanBeAdded) {
    const osg::ref_ptr<osg::Group> axes = createCoordinateSystemGeometry(1.0f);

    EXPECT_EQ(axes->referenceCount(), 1);
    EXPECT_EQ(axes->getNumParents(), 0u);
    auto* generator = dynamic_cast<SimpleGeometryGenerator*>(axes.get());
    ASSERT_TRUE(generator);
    generator->addLine(origin, osg::Vec3(1, 1, 1), red);
    EXPECT_EQ(verticesOf(geometryOf(*axes)).size(), 8u);
}

TEST(CreateCoordinateSystemGeometry, ShadesTheLinesInFogAlone) {
    const auto expected = makeGenerator();
    expected->addLine(origin, osg::Vec3(1, 0, 0), red);
    ShaderGenerator::instance()->process(expected, false, false, false, true);

    const osg::ref_ptr<osg::Group> axes = createCoordinateSystemGeometry(1.0f);

    const auto* program = attributeOf<osg::Program>(*geometryOf(*axes).getStateSet());
    ASSERT_TRUE(program);
    EXPECT_EQ(program, attributeOf<osg::Program>(*geometryOf(*expected).getStateSet())) << "programs are shared";
}

TEST(CreateCoordinateSystemGeometry, PointsTheOtherWayForNegativeSizes) {
    const osg::ref_ptr<osg::Group> axes = createCoordinateSystemGeometry(-2.0f);

    const std::vector<osg::Vec3> vertices = verticesOf(geometryOf(*axes));
    EXPECT_THAT(vertices,
                ElementsAre(osg::Vec3(-2, 0, 0), origin, osg::Vec3(0, -2, 0), origin, osg::Vec3(0, 0, -2), origin));
    EXPECT_TRUE(std::signbit(vertices[0].y())) << "the product of the size and 0";
    EXPECT_FALSE(std::signbit(vertices[1].x()));
}

TEST(CreateCoordinateSystemGeometry, TakesTheZerosFromTheSize) {
    const osg::ref_ptr<osg::Group> axes = createCoordinateSystemGeometry(std::numeric_limits<float>::infinity());

    const std::vector<osg::Vec3> vertices = verticesOf(geometryOf(*axes));
    for (const std::size_t tip : {0u, 2u, 4u}) {
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(std::isnan(vertices[tip][i]), i != static_cast<int>(tip) / 2) << tip << ", " << i;
        }
    }
    EXPECT_EQ(vertices[1], origin);
}

TEST(CreateCoordinateSystemGeometry, ReportsNothing) {
    const StandardError error;
    createCoordinateSystemGeometry(0.0f);
    EXPECT_EQ(error.text(), "");
}
