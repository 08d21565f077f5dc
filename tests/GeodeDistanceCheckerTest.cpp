#include <sceneutils/GeodeDistanceChecker.h>

#include "support/PointModels.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/Billboard>
#include <osg/MatrixTransform>

#include <cmath>
#include <limits>
#include <type_traits>

using namespace testing_support;
using veltrane::sceneutils::GeodeDistanceChecker;

namespace {

static_assert(std::is_base_of_v<osg::NodeVisitor, GeodeDistanceChecker>);
static_assert(std::has_virtual_destructor_v<GeodeDistanceChecker>);
static_assert(std::is_copy_constructible_v<GeodeDistanceChecker>);
static_assert(std::is_copy_assignable_v<GeodeDistanceChecker>);

double measure(osg::Node& node) {
    GeodeDistanceChecker checker;
    node.accept(checker);
    return checker.maxDistance2();
}

/** Gives a node a bound of its own choice. */
struct FixedBound : osg::Node::ComputeBoundingSphereCallback {
    explicit FixedBound(const osg::Vec3& c) : centre(c) {}
    osg::BoundingSphere computeBound(const osg::Node&) const override { return {centre, 1.0f}; }
    osg::Vec3 centre;
};

osg::ref_ptr<osg::Geode> makeGeodeBoundAt(const osg::Vec3& centre) {
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->setComputeBoundingSphereCallback(new FixedBound(centre));
    return geode;
}

}  // namespace

TEST(GeodeDistanceChecker, VisitsAllChildrenWhateverTheirMasks) {
    const GeodeDistanceChecker checker;

    EXPECT_EQ(checker.getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    EXPECT_EQ(checker.getNodeMaskOverride(), 0xffffffffu);
}

TEST(GeodeDistanceChecker, StartsAtZero) {
    EXPECT_EQ(GeodeDistanceChecker().maxDistance2(), 0.0);
}

TEST(GeodeDistanceChecker, SquaresTheDistanceOfTheCentreOfTheBound) {
    EXPECT_EQ(measure(*makePairGeode(osg::Vec3(2, -3, 6))), 49.0);
}

TEST(GeodeDistanceChecker, KeepsTheLargestDistance) {
    osg::ref_ptr<osg::Group> root = new osg::Group;
    for (float x : {2.0f, -7.0f, 3.0f}) root->addChild(makePairGeode(osg::Vec3(x, 0, 0)));

    EXPECT_EQ(measure(*root), 49.0);
}

TEST(GeodeDistanceChecker, TakesCentresWithoutTheTransformsAbove) {
    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(osg::Matrixd::translate(100, 0, 0));
    transform->addChild(makePairGeode(osg::Vec3(2, 0, 0)));

    EXPECT_EQ(measure(*transform), 4.0);
}

TEST(GeodeDistanceChecker, SumsInSinglePrecision) {
    EXPECT_EQ(measure(*makePairGeode(osg::Vec3(4097, 0, 0))), 16785408.0);  // 4097 * 4097 is 16785409
}

TEST(GeodeDistanceChecker, TakesAnEmptyGeodeForOneAtTheOrigin) {
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;

    EXPECT_EQ(measure(*geode), 0.0);
}

TEST(GeodeDistanceChecker, ReplacesWhatIsNotGreater) {
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makePairGeode(osg::Vec3(3, 0, 0)));
    root->addChild(makeGeodeBoundAt(osg::Vec3(std::numeric_limits<float>::quiet_NaN(), 0, 0)));
    EXPECT_TRUE(std::isnan(measure(*root)));

    root->addChild(makePairGeode(osg::Vec3(2, 0, 0)));
    EXPECT_EQ(measure(*root), 4.0);
}

TEST(GeodeDistanceChecker, MeasuresBillboards) {
    osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addDrawable(makePair(osg::Vec3()), osg::Vec3(0, 5, 0));

    EXPECT_EQ(measure(*billboard), 25.0);
}

TEST(GeodeDistanceChecker, MeasuresADrawableBelowAGroupAsIfItStoodInAGeode) {
    const osg::ref_ptr<osg::Geometry> points = makePoints({osg::Vec3(0, 0, 0), osg::Vec3(6, 8, 0)});
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(points);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(points);

    EXPECT_EQ(measure(*root), 25.0);
    EXPECT_EQ(measure(*geode), 25.0);
}

TEST(GeodeDistanceChecker, TakesAnEmptyDrawableBelowAGroupForOneAtTheOrigin) {
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(new osg::Geometry);

    EXPECT_EQ(measure(*root), 0.0);
}

TEST(GeodeDistanceChecker, DoesNotMeasureTheDrawablesOfAGeodeOneByOne) {
    osg::ref_ptr<osg::Geode> geode = makePairGeode(osg::Vec3(-10, 0, 0));
    geode->addDrawable(makePair(osg::Vec3(10, 0, 0)));

    EXPECT_EQ(measure(*geode), 0.0);
}

TEST(GeodeDistanceChecker, MeasuresHiddenNodes) {
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makePairGeode(osg::Vec3(2, 0, 0)));
    root->setNodeMask(0);
    root->getChild(0)->setNodeMask(0);

    EXPECT_EQ(measure(*root), 4.0);
}

TEST(GeodeDistanceChecker, CopiesEverySettingAndTheDistance) {
    GeodeDistanceChecker original;
    makePairGeode(osg::Vec3(2, 0, 0))->accept(original);
    changeEverySetting(original);

    const GeodeDistanceChecker copy(original);
    GeodeDistanceChecker assigned;
    const GeodeDistanceChecker& result = assigned = original;

    expectEqualSettings(copy, original);
    expectEqualSettings(assigned, original);
    EXPECT_EQ(copy.maxDistance2(), 4.0);
    EXPECT_EQ(assigned.maxDistance2(), 4.0);
    EXPECT_EQ(&result, &assigned);
}
