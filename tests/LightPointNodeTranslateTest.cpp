#include <sceneutils/LightPointNodeTranslate.h>

#include "support/LightPoints.h"
#include "support/LogRecords.h"
#include "support/StandardError.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/MatrixTransform>
#include <osg/Switch>

#include <type_traits>

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using veltrane::sceneutils::LightPointNodeTranslate;

namespace {

static_assert(std::is_base_of_v<osg::NodeVisitor, LightPointNodeTranslate>);
static_assert(std::has_virtual_destructor_v<LightPointNodeTranslate>);
static_assert(std::is_copy_constructible_v<LightPointNodeTranslate>);
static_assert(std::is_copy_assignable_v<LightPointNodeTranslate>);

const osg::Vec3 shift(10, 20, 30);

void translateLights(osg::Node& node) {
    LightPointNodeTranslate visitor;
    visitor.setTranslation(shift);
    node.accept(visitor);
}

}  // namespace

TEST(LightPointNodeTranslate, VisitsAllChildrenThatAreNotHidden) {
    const LightPointNodeTranslate visitor;

    EXPECT_EQ(visitor.getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    EXPECT_EQ(visitor.getNodeMaskOverride(), 0u);
}

TEST(LightPointNodeTranslate, MovesEveryLightPoint) {
    const auto lights = makeLights({osg::Vec3(1, 2, 3), osg::Vec3(-1, -2, -3)});

    translateLights(*lights);

    EXPECT_THAT(positionsOf(lights), ElementsAre(osg::Vec3(11, 22, 33), osg::Vec3(9, 18, 27)));
}

TEST(LightPointNodeTranslate, MovesNothingUnlessTold) {
    const auto lights = makeLights({osg::Vec3(1, 2, 3)});
    LightPointNodeTranslate visitor;

    lights->accept(visitor);

    EXPECT_THAT(positionsOf(lights), ElementsAre(osg::Vec3(1, 2, 3)));
}

TEST(LightPointNodeTranslate, MovesTheBoundsAlong) {
    const auto lights = makeLights({osg::Vec3(1, 2, 3)});
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(lights);
    ASSERT_EQ(root->getBound().center(), osg::Vec3(1, 2, 3));

    translateLights(*root);

    EXPECT_EQ(lights->getBound().center(), osg::Vec3(11, 22, 33));
    EXPECT_EQ(root->getBound().center(), osg::Vec3(11, 22, 33));
}

TEST(LightPointNodeTranslate, ReachesLightsBelowTransformsAndInactiveChildren) {
    const auto below = makeLights({osg::Vec3()}), inactive = makeLights({osg::Vec3()});
    osg::ref_ptr<osg::MatrixTransform> root = new osg::MatrixTransform(osg::Matrixd::scale(2, 2, 2));
    osg::ref_ptr<osg::Switch> choice = new osg::Switch;
    root->addChild(below);
    root->addChild(choice);
    choice->addChild(inactive, false);

    translateLights(*root);

    EXPECT_THAT(positionsOf(below), ElementsAre(shift));
    EXPECT_THAT(positionsOf(inactive), ElementsAre(shift));
}

TEST(LightPointNodeTranslate, LeavesHiddenLightsAlone) {
    const auto lights = makeLights({osg::Vec3(1, 2, 3)});
    lights->setNodeMask(0);

    translateLights(*lights);

    EXPECT_THAT(positionsOf(lights), ElementsAre(osg::Vec3(1, 2, 3)));
}

TEST(LightPointNodeTranslate, MovesSharedLightsOnce) {
    const auto lights = makeLights({osg::Vec3(1, 2, 3)});
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(lights);
    root->addChild(lights);

    translateLights(*root);

    EXPECT_THAT(positionsOf(lights), ElementsAre(osg::Vec3(11, 22, 33)));
}

TEST(LightPointNodeTranslate, TakesLightsOfADerivedClassToo) {
    struct RunwayLights : osgSim::LightPointNode {};
    osg::ref_ptr<RunwayLights> lights = new RunwayLights;
    lights->addLightPoint(osgSim::LightPoint(osg::Vec3(1, 2, 3), osg::Vec4()));

    translateLights(*lights);

    EXPECT_THAT(positionsOf(lights), ElementsAre(osg::Vec3(11, 22, 33)));
}

TEST(LightPointNodeTranslate, RemembersANodeWithoutLightsAndDoesNotLogIt) {
    const auto lights = makeLights({});
    LightPointNodeTranslate visitor;
    visitor.setTranslation(shift);
    const LogRecords records("sceneutils");
    lights->accept(visitor);

    lights->addLightPoint(osgSim::LightPoint(osg::Vec3(1, 2, 3), osg::Vec4()));
    lights->accept(visitor);

    EXPECT_THAT(positionsOf(lights), ElementsAre(osg::Vec3(1, 2, 3)));
    EXPECT_THAT(records.texts(), IsEmpty());
}

TEST(LightPointNodeTranslate, TraversesEveryNodeAlsoOnesThatItHasSeen) {
    struct CountingLights : osgSim::LightPointNode {
        void traverse(osg::NodeVisitor&) override { ++traversals; }
        int traversals = 0;
    };
    osg::ref_ptr<CountingLights> empty = new CountingLights, full = new CountingLights;
    full->addLightPoint(osgSim::LightPoint());
    LightPointNodeTranslate visitor;

    for (int i = 0; i < 2; ++i) {
        empty->accept(visitor);
        full->accept(visitor);
    }

    EXPECT_EQ(empty->traversals, 2);
    EXPECT_EQ(full->traversals, 2);
}

TEST(LightPointNodeTranslate, LogsEachLightPointWithoutItsHeight) {
    const auto lights = makeLights({osg::Vec3(1, 2, 3), osg::Vec3(0.5f, -1234567.0f, 0)});
    const LogRecords records("sceneutils");

    translateLights(*lights);

    EXPECT_THAT(records.texts(),
                ElementsAre("sceneutils 600 sceneutils/BubbleUpTransform:87: Transforming light from 1 2 to 11 22",
                            "sceneutils 600 sceneutils/BubbleUpTransform:87: "
                            "Transforming light from 0.5 -1.23457e+06 to 10.5 -1.23455e+06"));
}

TEST(LightPointNodeTranslate, WritesNothingToStandardErrorUnlessLoggingIsSetUp) {
    const auto lights = makeLights({osg::Vec3(1, 2, 3)});
    const StandardError standardError;

    translateLights(*lights);

    EXPECT_EQ(standardError.text(), "");
}

TEST(LightPointNodeTranslate, CopyConstructionCopiesTheTranslationAndWhatWasVisited) {
    const auto seen = makeLights({osg::Vec3()}), fresh = makeLights({osg::Vec3()});
    LightPointNodeTranslate original;
    original.setTranslation(shift);
    seen->accept(original);
    changeEverySetting(original);

    LightPointNodeTranslate copy(original);

    expectEqualSettings(copy, original);
    copy.setNodeMaskOverride(~0u);
    seen->accept(copy);
    fresh->accept(copy);
    EXPECT_THAT(positionsOf(seen), ElementsAre(shift));
    EXPECT_THAT(positionsOf(fresh), ElementsAre(shift));
}

TEST(LightPointNodeTranslate, AssignmentCopiesTheTranslationAndWhatWasVisited) {
    const auto seen = makeLights({osg::Vec3()}), fresh = makeLights({osg::Vec3()});
    LightPointNodeTranslate original, assigned;
    original.setTranslation(shift);
    seen->accept(original);
    fresh->accept(assigned);
    changeEverySetting(original);

    const LightPointNodeTranslate& result = assigned = original;

    expectEqualSettings(assigned, original);
    EXPECT_EQ(&result, &assigned);
    assigned.setNodeMaskOverride(~0u);
    seen->accept(assigned);
    fresh->accept(assigned);
    EXPECT_THAT(positionsOf(seen), ElementsAre(shift));
    EXPECT_THAT(positionsOf(fresh), ElementsAre(shift));
}
