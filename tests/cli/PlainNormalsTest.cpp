#include "support/DebugGeometry.h"

#include <files/PlainNormals.h>

#include <gmock/gmock.h>

using namespace testing_support;
using testing::ElementsAre;
using veltrane::sceneutils::tool::bindNormalsOverall;

namespace {

constexpr auto perPrimitive = static_cast<osg::Array::Binding>(3);

const osg::Vec3 up(0, 0, 1);
const osg::Vec3 right(1, 0, 0);

osg::ref_ptr<osg::Geometry> makeGeometry(std::initializer_list<osg::Vec3> normals, osg::Array::Binding binding) {
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setNormalArray(new osg::Vec3Array(normals.begin(), normals.end()), binding);
    bindNormalsOverall(*geometry);
    return geometry;
}

}  // namespace

TEST(BindNormalsOverall, LeavesOneNormalOfManyThatAreTheSame) {
    const auto geometry = makeGeometry({up, up, up}, perPrimitive);

    EXPECT_THAT(normalsOf(*geometry), ElementsAre(up));
    EXPECT_EQ(geometry->getNormalArray()->getBinding(), osg::Array::BIND_OVERALL);
}

TEST(BindNormalsOverall, LeavesNormalsThatDiffer) {
    const auto geometry = makeGeometry({up, right, up}, perPrimitive);

    EXPECT_THAT(normalsOf(*geometry), ElementsAre(up, right, up));
    EXPECT_EQ(geometry->getNormalArray()->getBinding(), perPrimitive);
}

TEST(BindNormalsOverall, LeavesNormalsThatAreBoundOtherwise) {
    const auto geometry = makeGeometry({up, up}, osg::Array::BIND_PER_VERTEX);

    EXPECT_THAT(normalsOf(*geometry), ElementsAre(up, up));
    EXPECT_EQ(geometry->getNormalArray()->getBinding(), osg::Array::BIND_PER_VERTEX);
}

TEST(BindNormalsOverall, TakesAwayNormalsWhereThereAreNone) {
    EXPECT_FALSE(makeGeometry({}, perPrimitive)->getNormalArray());
}

TEST(BindNormalsOverall, ReachesHiddenGenerators) {
    const auto generator = makeGenerator();
    generator->addLine(up, right, osg::Vec4f(1, 1, 1, 1));
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(generator);
    generator->setNodeMask(0);
    generator->checkPointsGeometry();

    bindNormalsOverall(*root);

    EXPECT_EQ(geometryOf(*generator).getNormalArray()->getBinding(), osg::Array::BIND_OVERALL);
    EXPECT_FALSE(geometryOf(*generator, 1).getNormalArray());
}
