#include "optimize/Optimization.h"
#include "optimize/StateMove.h"
#include "support/FindNodes.h"
#include "support/OptimizedScenes.h"
#include "support/RandomBatchGraph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <osg/AutoTransform>
#include <osg/Billboard>
#include <osg/ShapeDrawable>
#include <osgSim/LightPointNode>

using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr auto on = osg::StateAttribute::ON;
constexpr auto off = osg::StateAttribute::OFF;
constexpr auto overriding = osg::StateAttribute::OVERRIDE;
constexpr auto protectedFrom = osg::StateAttribute::PROTECTED;

OptimizationOptions withRadius(double radius) {
    OptimizationOptions options;
    options.unspatializeRadius = radius;
    return options;
}

/** Optimises a graph, which has to show the same afterwards. */
Optimization optimizeSafely(const osg::ref_ptr<osg::Node>& graph, const OptimizationOptions& options = {}) {
    Optimization result = optimize(graph, options);
    for (const SceneDifference& difference : result.differences) ADD_FAILURE() << difference.text;
    return result;
}

/** A wide group with a small one in it, which a radius of 5 dissolves, and a square. */
osg::ref_ptr<osg::Group> makeWideScene(osg::Group& small) {
    return groupOf({&small, squareAt(1000)});
}

osg::ref_ptr<osg::Group> makeSmallGroup() {
    return groupOf({squareAt(0), squareAt(2)});
}

GLenum modeAbove(const osg::Node& node, GLenum mode) {
    const osg::StateSet* stateSet = node.getStateSet();
    return stateSet ? static_cast<GLenum>(stateSet->getMode(mode)) : static_cast<GLenum>(osg::StateAttribute::INHERIT);
}

osg::ref_ptr<osg::Group> makeStaticRandomGraph(unsigned int seed) {
    const osg::ref_ptr<osg::Group> graph = makeRandomBatchGraph({seed, 40, 20});
    for (const auto& node : findAll<osg::Node>(graph)) node->setDataVariance(osg::Object::STATIC);
    return graph;
}

}  // namespace

TEST(OptimizedScene, HasFewerGeodesAndDrawables) {
    const Optimization result = optimizeSafely(makeWideScene(*makeSmallGroup()), withRadius(5.0));

    EXPECT_EQ(result.before.groups, 2u);
    EXPECT_EQ(result.before.geodes, 3u);
    EXPECT_EQ(result.before.drawables, 3u);
    EXPECT_EQ(result.before.primitiveSets, 3u);
    EXPECT_EQ(result.before.triangles, 6u);
    EXPECT_EQ(result.before.vertices, 12u);
    EXPECT_EQ(result.after.groups, 0u);
    EXPECT_EQ(result.after.geodes, 1u);
    EXPECT_EQ(result.after.drawables, 1u);
    EXPECT_EQ(result.after.primitiveSets, 1u);
    EXPECT_EQ(result.after.triangles, 6u);
}

TEST(OptimizedScene, KeepsTheStateOfADissolvedGroup) {
    const osg::ref_ptr<osg::Group> small = makeSmallGroup();
    small->setStateSet(stateWithMode(GL_BLEND, on));

    const Optimization result = optimizeSafely(makeWideScene(*small), withRadius(5.0));

    const auto geodes = findAll<osg::Geode>(result.graph);
    ASSERT_EQ(geodes.size(), 2u);
    EXPECT_EQ(result.after.groups, 1u);
    EXPECT_EQ((modeAbove(*geodes[0], GL_BLEND) == on) + (modeAbove(*geodes[1], GL_BLEND) == on), 1);
}

TEST(OptimizedScene, GivesSharedChildrenTheStateOfOneWayOnly) {
    const osg::ref_ptr<osg::Geode> shared = squareAt(0);
    const osg::ref_ptr<osg::Group> blended = groupOf({shared, squareAt(2)});
    blended->setStateSet(stateWithMode(GL_BLEND, on));

    const Optimization result =
        optimizeSafely(groupOf({blended, groupOf({shared, squareAt(4)}), squareAt(1000)}), withRadius(9.0));

    EXPECT_EQ(result.after.geodes, 2u);
}

TEST(OptimizedScene, KeepsMaskedGroupsAndThoseWithCallbacks) {
    for (const int kind : {0, 1, 2, 3, 4, 5}) {
        const osg::ref_ptr<osg::Group> small = makeSmallGroup();
        if (kind == 0) small->setNodeMask(4);
        if (kind == 1) small->setUpdateCallback(new osg::NodeCallback);
        if (kind == 2) small->setEventCallback(new osg::NodeCallback);
        if (kind == 3) small->setCullCallback(new osg::NodeCallback);
        if (kind == 4) small->setCullingActive(false);
        if (kind == 5) small->setDataVariance(osg::Object::DYNAMIC);

        const Optimization result = optimizeSafely(makeWideScene(*small), withRadius(5.0));

        ASSERT_EQ(small->getNumParents(), 1u) << kind;
        EXPECT_EQ(small->getParent(0), result.graph) << kind;
        EXPECT_EQ(small->getNumChildren(), 1u) << kind;
    }
}

TEST(OptimizedScene, KeepsTheStateOfAnLodThatGoes) {
    const osg::ref_ptr<osg::LOD> lod = lodOf(squareAt(0), 0.0f, 1e9f);
    lod->setStateSet(stateWithMode(GL_BLEND, on));

    const Optimization result = optimizeSafely(groupOf({lod, squareAt(50)}));

    EXPECT_EQ(result.before.lods, 1u);
    EXPECT_EQ(result.after.lods, 0u);
}

TEST(OptimizedScene, KeepsAnLodWhoseRangeOrMaskOrCallbackCounts) {
    for (const int kind : {0, 1, 2, 3}) {
        const osg::ref_ptr<osg::LOD> lod = lodOf(squareAt(0), 0.0f, kind == 0 ? 20000.0f : 1e9f);
        if (kind == 1) lod->setNodeMask(4);
        if (kind == 2) lod->setUpdateCallback(new osg::NodeCallback);
        if (kind == 3) lod->setRangeMode(osg::LOD::PIXEL_SIZE_ON_SCREEN);

        const Optimization result = optimizeSafely(groupOf({lod, squareAt(50)}));

        EXPECT_EQ(result.after.lods, 1u) << kind;
        EXPECT_EQ(lod->getNumChildren(), 1u) << kind;
        EXPECT_EQ(lod->getNumRanges(), 1u) << kind;
    }
}

TEST(OptimizedScene, RemovesAnLodInTheReachOfAnotherOne) {
    const osg::ref_ptr<osg::LOD> outer = lodOf(groupOf({lodOf(squareAt(0), 0.0f, 1000.0f)}), 0.0f, 500.0f);
    const osg::ref_ptr<osg::LOD> kept = lodOf(groupOf({lodOf(squareAt(0), 0.0f, 400.0f)}), 0.0f, 500.0f);

    EXPECT_EQ(optimizeSafely(groupOf({outer, squareAt(9)})).after.lods, 1u);
    EXPECT_EQ(optimizeSafely(groupOf({kept, squareAt(9)})).after.lods, 2u);
}

TEST(OptimizedScene, DoesNotMergeLodsWhichWouldSwitchElsewhere) {
    const osg::ref_ptr<osg::LOD> one = lodOf(squareAt(0), 0.0f, 100.0f);
    const osg::ref_ptr<osg::LOD> other = lodOf(squareAt(400), 0.0f, 100.0f);

    EXPECT_EQ(optimizeSafely(groupOf({groupOf({one, other}), squareAt(2000)}), withRadius(900.0)).after.lods, 2u);
}

TEST(OptimizedScene, LodsKeepTheCentresOfTheirBounds) {
    const osg::ref_ptr<osg::LOD> lod = lodOf(groupOf({squareAt(0), squareAt(0.5f), squareAt(40)}), 0.0f, 100.0f);
    const osg::Vec3 centre = lod->getCenter();

    optimizeSafely(groupOf({lod, squareAt(50)}));

    EXPECT_EQ(lod->getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
    EXPECT_EQ(lod->getCenter(), centre);
}

TEST(OptimizedScene, KeepsNamedNodesOfEveryKind) {
    OptimizationOptions options = withRadius(5.0);
    options.keptNames = {"group", "empty", "geode", "drawable", "lod", "transform"};
    const osg::ref_ptr<osg::Group> small = makeSmallGroup();
    const osg::ref_ptr<osg::Group> empty = new osg::Group;
    const osg::ref_ptr<osg::Geode> geode = squareAt(3);
    const osg::ref_ptr<osg::Geode> holder = makeGeode(makeSquare());
    holder->addDrawable(makeSquare());
    const osg::ref_ptr<osg::LOD> lod = lodOf(squareAt(0), 0.0f, 1e9f);
    const osg::ref_ptr<osg::MatrixTransform> transform = staticTransform(osg::Matrixd::translate(1, 0, 0), squareAt(4));
    small->setName("group");
    empty->setName("empty");
    geode->setName("geode");
    holder->getDrawable(1)->setName("drawable");
    lod->setName("lod");
    transform->setName("transform");

    const Optimization result =
        optimizeSafely(groupOf({small, empty, squareAt(0), geode, holder, lod, transform, squareAt(1000)}), options);

    EXPECT_THAT(result.unknownNames, IsEmpty());
    EXPECT_THAT(result.lostNames, IsEmpty());
    EXPECT_EQ(findAll<osg::MatrixTransform>(result.graph).size(), 1u);
    for (const auto& node : findAll<osg::Node>(result.graph)) {
        EXPECT_EQ(node->getCullCallback(), nullptr);
        EXPECT_EQ(node->getNumParents(), node == result.graph ? 0u : 1u);
        EXPECT_NE(node->getDataVariance(), osg::Object::DYNAMIC);
    }
}

TEST(OptimizedScene, TellsNamesThatDoNotOccur) {
    OptimizationOptions options;
    options.keptNames = {"gate", "door"};
    const osg::ref_ptr<osg::Geode> gate = squareAt(0);
    gate->setName("gate");

    EXPECT_THAT(optimizeSafely(groupOf({gate, squareAt(9)}), options).unknownNames, ElementsAre("door"));
}

TEST(OptimizedScene, KeepsMaskedDrawablesApart) {
    const osg::ref_ptr<osg::Geode> geode = squareAt(0);
    geode->addDrawable(makeSquare(osg::Vec3(2, 0, 0)));
    geode->addDrawable(makeSquare(osg::Vec3(4, 0, 0)));
    geode->getDrawable(1)->setNodeMask(4);

    EXPECT_EQ(optimizeSafely(geode).after.drawables, 2u);
}

TEST(OptimizedScene, KeepsGeometriesApartThatAreMoreThanArrays) {
    for (const int kind : {0, 1, 2, 3}) {
        const osg::ref_ptr<osg::Geode> geode = squareAt(0);
        geode->addDrawable(makeSquare(osg::Vec3(2, 0, 0)));
        osg::Geometry& other = *geode->getDrawable(1)->asGeometry();
        if (kind == 0) other.getPrimitiveSet(0)->setNumInstances(3);
        if (kind == 1) other.setDrawCallback(new osg::Drawable::DrawCallback);
        if (kind == 2) other.setInitialBound(osg::BoundingBox(0, 0, 0, 9, 9, 9));
        if (kind == 3) other.setComputeBoundingBoxCallback(new osg::Drawable::ComputeBoundingBoxCallback);

        EXPECT_EQ(optimizeSafely(geode).after.drawables, 2u) << kind;
    }
}

TEST(OptimizedScene, KeepsASmallGroupWhoseRenderBinHoldsAnother) {
    const osg::ref_ptr<osg::Group> small = makeSmallGroup();
    small->getOrCreateStateSet()->setRenderBinDetails(1, "RenderBin");
    small->getChild(0)->getOrCreateStateSet()->setRenderBinDetails(2, "RenderBin");

    EXPECT_EQ(optimizeSafely(makeWideScene(*small), withRadius(5.0)).after.groups, 2u);
}

TEST(OptimizedScene, KeepsGeodesApartThatAreNeverCulled) {
    const osg::ref_ptr<osg::Geode> sky = squareAt(0);
    sky->setCullingActive(false);

    EXPECT_EQ(optimizeSafely(groupOf({squareAt(3), sky, squareAt(9)})).after.geodes, 2u);
    EXPECT_FALSE(sky->getCullingActive());
}

TEST(OptimizedScene, KeepsGeodesWithCallbacksApart) {
    const osg::ref_ptr<osg::Geode> blinking = squareAt(0);
    blinking->setCullCallback(new osg::NodeCallback);
    const osg::ref_ptr<osg::StateSet> state = stateWithMode(GL_BLEND, on);
    blinking->setStateSet(state);
    const osg::ref_ptr<osg::Geode> plain = squareAt(3);
    plain->setStateSet(state);

    EXPECT_EQ(optimizeSafely(groupOf({plain, blinking, squareAt(9)})).after.geodes, 3u);
    EXPECT_EQ(blinking->getStateSet(), state);
}

TEST(OptimizedScene, LosesProgramsThatAreMeantToGo) {
    const osg::ref_ptr<osg::Geode> square = squareAt(0);
    square->getOrCreateStateSet()->setAttribute(new osg::Program);

    const Optimization result = optimizeSafely(square);

    EXPECT_EQ(result.before.programs, 1u);
    EXPECT_EQ(result.after.programs, 0u);
}

TEST(OptimizedScene, KeepsProgramsOfKeptNames) {
    OptimizationOptions options;
    options.keptNames = {"water"};
    const osg::ref_ptr<osg::Geode> square = squareAt(0);
    square->setName("water");
    square->getOrCreateStateSet()->setAttribute(new osg::Program);

    EXPECT_EQ(optimizeSafely(square, options).after.programs, 1u);
}

TEST(OptimizedScene, FlattensTransformsUpToTheDistance) {
    OptimizationOptions options;
    options.flattenWithin = 10.0;
    const osg::ref_ptr<osg::Geode> shared = squareAt(0);
    const auto makeScene = [&] {
        return groupOf({staticTransform(osg::Matrixd::translate(10, 0, 0), shared),
                        staticTransform(osg::Matrixd::translate(0, 3, 0), shared)});
    };

    const Optimization result = optimizeSafely(makeScene(), options);

    EXPECT_EQ(result.after.groups, 0u);
    EXPECT_EQ(result.after.drawables, 1u);
    EXPECT_EQ(result.steps.at(1).step, "flatten within");
}

TEST(OptimizedScene, LeavesTransformsAboveWhatCannotGoAlong) {
    const osg::Matrixd turned = osg::Matrixd::rotate(1.0, osg::Vec3(0, 0, 1)) * osg::Matrixd::translate(1, 2, 3);
    const osg::ref_ptr<osg::MatrixTransform> moving = new osg::MatrixTransform(osg::Matrixd::translate(5, 0, 0));
    moving->setDataVariance(osg::Object::DYNAMIC);
    moving->addChild(squareAt(0));
    const osg::ref_ptr<osgSim::LightPointNode> lights = new osgSim::LightPointNode;
    lights->addLightPoint(osgSim::LightPoint(osg::Vec3(1, 1, 1), osg::Vec4(1, 1, 1, 1)));
    const osg::ref_ptr<osg::Billboard> tree = new osg::Billboard;
    tree->addDrawable(makeSquare(), osg::Vec3(3, 0, 0));
    const osg::ref_ptr<osg::Geode> sphere = makeGeode(new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(), 1.0f)));
    const osg::ref_ptr<osg::LOD> lod = lodOf(squareAt(0), 0.0f, 100.0f);
    OptimizationOptions within;
    within.flattenWithin = 100.0;

    for (const osg::ref_ptr<osg::Node>& node : {osg::ref_ptr<osg::Node>(moving), osg::ref_ptr<osg::Node>(lights),
                                                osg::ref_ptr<osg::Node>(tree), osg::ref_ptr<osg::Node>(sphere)}) {
        for (const OptimizationOptions& options : {OptimizationOptions(), within}) {
            const osg::ref_ptr<osg::MatrixTransform> transform = staticTransform(turned, node);
            const Optimization result = optimizeSafely(groupOf({transform, squareAt(0)}), options);
            EXPECT_EQ(transform->getNumParents(), 1u);
            EXPECT_EQ(transform->getDataVariance(), osg::Object::STATIC);
            EXPECT_EQ(transform->getUserDataContainer(), nullptr);
        }
    }
    optimizeSafely(groupOf({staticTransform(osg::Matrixd::scale(2, 2, 2) * turned, lod), squareAt(0)}), within);
}

TEST(OptimizedScene, KeepsStaticTransformsThatAreMoreThanTheirMatrix) {
    const osg::ref_ptr<osg::AutoTransform> turning = new osg::AutoTransform;
    turning->setDataVariance(osg::Object::STATIC);
    turning->setAutoRotateMode(osg::AutoTransform::ROTATE_TO_SCREEN);
    turning->addChild(squareAt(0));

    const Optimization result = optimizeSafely(groupOf({turning, squareAt(9)}), withRadius(5.0));

    EXPECT_EQ(findAll<osg::AutoTransform>(result.graph).size(), 1u);
    EXPECT_EQ(turning->getCullCallback(), nullptr);
}

TEST(OptimizedScene, FlattensTransformsThatMakeAPointOfEverything) {
    const osg::ref_ptr<osg::Node> point = staticTransform(osg::Matrixd::scale(0, 0, 0), squareAt(0));

    EXPECT_EQ(optimizeSafely(groupOf({point, squareAt(9)})).after.groups, 0u);
}

TEST(OptimizedScene, KeepsWhatLiesClosePutFarAway) {
    const osg::ref_ptr<osg::Group> houses = groupOf({});
    for (int i = 0; i < 100; ++i) houses->addChild(squareAt(0.3f * static_cast<float>(i)));
    const osg::ref_ptr<osg::MatrixTransform> place = staticTransform(osg::Matrixd::translate(4e6, 1e6, 4.8e6), houses);
    place->setDataVariance(osg::Object::DYNAMIC);

    EXPECT_EQ(optimizeSafely(groupOf({place})).after.drawables, 1u);
}

TEST(OptimizedScene, ASecondRunChangesNoCount) {
    for (unsigned int seed = 0; seed < 25; ++seed) {
        for (const bool flattens : {false, true}) {
            OptimizationOptions options = withRadius(seed % 3 == 0 ? 0.0 : 20.0 * seed);
            if (flattens) options.flattenWithin = 50.0;
            const Optimization first = optimizeSafely(makeStaticRandomGraph(seed), options);
            const Optimization second = optimizeSafely(first.graph, options);

            EXPECT_TRUE(second.before == first.after) << seed;
            EXPECT_TRUE(second.after == second.before) << seed;
        }
    }
}

TEST(StateMove, HeedsOverrideAndProtected) {
    using Value = osg::StateAttribute::GLModeValue;
    struct Case {
        Value above, below, merged;
    };
    const std::vector<Case> cases = {
        {on, off, off},
        {on | overriding, off, on | overriding},
        {on | overriding, off | protectedFrom, off | protectedFrom},
        {on | protectedFrom, off, off | protectedFrom},  // as it prevails over an override above both of them
    };
    for (const Case& each : cases) {
        const osg::ref_ptr<osg::Group> group = makeSmallGroup();
        group->setStateSet(stateWithMode(GL_BLEND, each.above));
        group->getChild(0)->setStateSet(stateWithMode(GL_BLEND, each.below));
        ASSERT_TRUE(StateMove::isPossible(*group));

        StateMove().moveToChildren(*group);

        EXPECT_EQ(group->getStateSet(), nullptr);
        EXPECT_EQ(group->getChild(0)->getStateSet()->getMode(GL_BLEND), each.merged);
        EXPECT_EQ(group->getChild(1)->getStateSet()->getMode(GL_BLEND), each.above);
    }
}

TEST(StateMove, GivesChildrenOfTheSameStateTheSameOneAgain) {
    const osg::ref_ptr<osg::StateSet> below = stateWithMode(GL_LIGHTING, on);
    const osg::ref_ptr<osg::Group> group = makeSmallGroup();
    group->setStateSet(stateWithMode(GL_BLEND, on));
    for (unsigned int i = 0; i < 2; ++i) group->getChild(i)->setStateSet(below);

    StateMove().moveToChildren(*group);

    EXPECT_EQ(group->getChild(0)->getStateSet(), group->getChild(1)->getStateSet());
    EXPECT_EQ(modeAbove(*group->getChild(0), GL_BLEND), on);
    EXPECT_EQ(below->getModeList().size(), 1u);
}

TEST(StateMove, IsNotPossibleForSharedChildrenNestedBinsAndCallbacks) {
    const osg::ref_ptr<osg::Group> group = makeSmallGroup();
    osg::StateSet& own = *group->getOrCreateStateSet();
    osg::StateSet& below = *group->getChild(0)->getOrCreateStateSet();
    EXPECT_TRUE(StateMove::isPossible(*group));
    own.setRenderBinDetails(1, "RenderBin");
    EXPECT_TRUE(StateMove::isPossible(*group));
    below.setRenderBinDetails(2, "RenderBin");
    EXPECT_FALSE(StateMove::isPossible(*group));
    own.setRenderBinToInherit();
    EXPECT_TRUE(StateMove::isPossible(*group));
    own.setUpdateCallback(new osg::StateSet::Callback);
    EXPECT_FALSE(StateMove::isPossible(*group));
    own.setUpdateCallback(nullptr);
    below.setEventCallback(new osg::StateSet::Callback);
    EXPECT_FALSE(StateMove::isPossible(*group));
    below.setEventCallback(nullptr);
    const osg::ref_ptr<osg::Group> second = groupOf({group->getChild(1)});
    EXPECT_FALSE(StateMove::isPossible(*group));
}
