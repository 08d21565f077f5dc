#include <sceneutils/OptimizeBatches.h>

#include "support/Graphs.h"
#include "support/OsgMessages.h"
#include "support/PointModels.h"
#include "support/RandomBatchGraph.h"

#include <gmock/gmock.h>

#include <osg/Billboard>
#include <osg/Camera>
#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/PositionAttitudeTransform>
#include <osg/Program>
#include <osg/Sequence>
#include <osg/Switch>
#include <osgSim/DOFTransform>
#include <osgSim/MultiSwitch>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using veltrane::sceneutils::OptimizeBatches;

namespace {

static_assert(!std::is_polymorphic_v<OptimizeBatches>);
static_assert(std::is_copy_constructible_v<OptimizeBatches> && std::is_copy_assignable_v<OptimizeBatches>);

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

osg::ref_ptr<osg::Group> makeGroup(const std::vector<osg::ref_ptr<osg::Node>>& children = {}) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (const osg::ref_ptr<osg::Node>& child : children) group->addChild(child);
    return group;
}

osg::ref_ptr<osg::MatrixTransform> makeStaticShift(double x, const osg::ref_ptr<osg::Node>& child) {
    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(osg::Matrixd::translate(x, 0, 0));
    transform->setDataVariance(osg::Object::STATIC);
    transform->addChild(child);
    return transform;
}

/** A pair of points whose state keeps it from being merged with others. */
osg::ref_ptr<osg::Geode> makeOwnStatePair(float x) {
    const osg::ref_ptr<osg::Geode> geode = makePairGeode(osg::Vec3(x, 0, 0));
    geode->getOrCreateStateSet()->setRenderBinDetails(static_cast<int>(x), "RenderBin");
    return geode;
}

void optimize(osg::Node* root, double radius = 0.0) {
    OptimizeBatches optimizer;
    optimizer.setUnspatializeRadius(radius);
    optimizer.process(root);
}

/** What hangs in a graph: the numbers of nodes and drawables, and each vertex in the root's coordinates. */
class Content : public osg::NodeVisitor {
public:
    explicit Content(osg::Node& root) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { root.accept(*this); }

    void apply(osg::Node& node) override {
        ++nodes;
        traverse(node);
    }
    void apply(osg::Geometry& geometry) override {
        ++drawables;
        const osg::Matrixd toWorld = osg::computeLocalToWorld(getNodePath());
        for (const osg::Vec3& point : pointsOf(&geometry)) {
            const osg::Vec3d placed = osg::Vec3d(point) * toWorld;
            points.emplace(placed.x(), placed.y(), placed.z());
        }
    }

    int nodes = 0;
    int drawables = 0;
    std::multiset<std::tuple<double, double, double>> points;
};

struct MakeStatic : osg::NodeVisitor {
    MakeStatic() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
    void apply(osg::Node& node) override {
        node.setDataVariance(osg::Object::STATIC);
        traverse(node);
    }
};

osg::ref_ptr<osg::Group> makeRandomStaticGraph(unsigned int seed, unsigned int sharedPercent) {
    const osg::ref_ptr<osg::Group> root = makeRandomBatchGraph({seed, 20 + seed % 30, sharedPercent});
    MakeStatic makeStatic;
    root->accept(makeStatic);
    return root;
}

/** Quarters of houses, each under a static transform, and if wanted with trees of two levels of detail. */
osg::ref_ptr<osg::Group> makeTown(bool withTrees) {
    const osg::ref_ptr<osg::Group> town = makeGroup();
    for (int quarter = 0; quarter < 10; ++quarter) {
        const osg::ref_ptr<osg::Group> houses = makeGroup();
        for (int house = 0; house < 5; ++house)
            houses->addChild(
                makeStaticShift(house * 10.0, makePairGeode(osg::Vec3(0, static_cast<float>(quarter), 0))));
        const osg::ref_ptr<osg::LOD> tree = new osg::LOD;
        tree->addChild(makePairGeode(osg::Vec3()), 0.0f, 100.0f);
        tree->addChild(makePairGeode(osg::Vec3()), 100.0f, 1000.0f);
        if (withTrees) houses->addChild(tree);
        town->addChild(houses);
    }
    return town;
}

/** The steps that were reported, by their first words. */
std::vector<std::string> stepsIn(const OsgMessages& messages) {
    std::vector<std::string> steps;
    std::istringstream lines(messages.text());
    const std::string doing = "Optimizer::optimize() doing ";
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("Shared node", 0) == 0 || line.rfind("Stats", 0) == 0) steps.push_back(line);
        if (line.rfind(doing, 0) == 0) steps.push_back(line.substr(doing.size()));
    }
    return steps;
}

/** A parent of two points below which nothing may be fused. */
template <typename Parent>
class ParentOfChosenChildren : public testing::Test {};

using ParentsOfChosenChildren = testing::Types<osg::LOD, osg::Switch, osg::Sequence, osgSim::MultiSwitch>;
TYPED_TEST_SUITE(ParentOfChosenChildren, ParentsOfChosenChildren);

}  // namespace

TEST(OptimizeBatches, StartsWithZeros) {
    const OptimizeBatches optimizer;

    EXPECT_EQ(optimizer.getMaxTransformMagnitudeToFlatten(), 0.0);
    EXPECT_EQ(optimizer.getUnspatializeRadius(), 0.0);
}

TEST(OptimizeBatches, ReturnsTheNumbersAsTheyWereGiven) {
    OptimizeBatches optimizer;
    optimizer.setMaxTransformMagnitudeToFlatten(-3.0);
    optimizer.setUnspatializeRadius(7.5);

    EXPECT_EQ(optimizer.getMaxTransformMagnitudeToFlatten(), -3.0);
    EXPECT_EQ(optimizer.getUnspatializeRadius(), 7.5);
}

TEST(OptimizeBatches, RunsItsStepsOneByOneInOrder) {
    const osg::ref_ptr<osg::Group> root = makeGroup();
    const OsgMessages messages(osg::INFO);

    optimize(root, 1.0);

    EXPECT_THAT(stepsIn(messages), ElementsAre("Shared node 0", "Stats before:", "FLATTEN_STATIC_TRANSFORMS",
                                               "Stats after:", "Stats before:", "REMOVE_REDUNDANT_NODES",
                                               "Stats after:", "Stats before:", "MERGE_GEODES",
                                               "Stats after:", "Stats before:", "MERGE_GEOMETRY", "Stats after:"));
}

TEST(OptimizeBatches, SaysNothingBelowTheSeverityInfo) {
    const osg::ref_ptr<osg::Group> root = makeRandomStaticGraph(3, 20);
    const OsgMessages messages(osg::NOTICE);

    optimize(root, 30.0);

    EXPECT_EQ(messages.text(), "");
}

TEST(OptimizeBatches, FlattensLODsThatNeverSwitchFromZeroToTwentyThousand) {
    for (const auto& [minRange, maxRange, isFlattened] :
         {std::tuple(0.0f, 20000.0f, true), std::tuple(0.0f, std::nextafter(20000.0f, 0.0f), false),
          std::tuple(std::nextafter(0.0f, 1.0f), 20000.0f, false)}) {
        const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
        lod->addChild(makePairGeode(osg::Vec3()), minRange, maxRange);
        const osg::ref_ptr<osg::Group> root = makeGroup({lod});
        optimize(root);
        EXPECT_EQ(root->getChild(0) != lod, isFlattened) << minRange << " " << maxRange;
    }
}

TEST(OptimizeBatches, FlattensLODsBeforeItStripsNames) {
    const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->setName("name");
    lod->addChild(makePairGeode(osg::Vec3()), 0.0f, 20000.0f);
    const osg::ref_ptr<osg::Group> root = makeGroup({lod});

    optimize(root);

    EXPECT_EQ(lod->getNumParents(), 0u);
    EXPECT_EQ(lod->getName(), "name");
}

TEST(OptimizeBatches, StripsNamesBeforeItCopiesWhatIsShared) {
    static std::string nameAtTheCopy;
    struct Model : osg::Geode {
        osg::Object* clone(const osg::CopyOp& copyop) const override {
            nameAtTheCopy = getName();
            return osg::Geode::clone(copyop);
        }
    };
    nameAtTheCopy = "not copied";
    const osg::ref_ptr<osg::Geode> model = new Model;
    model->setName("name");

    optimize(makeGroup({makeGroup({model}), makeGroup({model})}));

    EXPECT_EQ(nameAtTheCopy, "");
}

TEST(OptimizeBatches, StripsNamesBeforeItRemovesRedundantGroups) {
    const osg::ref_ptr<osg::Group> named = makeGroup({makePairGeode(osg::Vec3())});
    named->setName("name");
    named->addDescription("description");
    const osg::ref_ptr<osg::Group> root = makeGroup({named});

    optimize(root);

    EXPECT_NE(root->getChild(0), named);
}

TEST(OptimizeBatches, PreservesNamesInEveryRun) {
    OptimizeBatches optimizer;
    optimizer.preserveNames({"kept"});
    for (int run = 0; run < 2; ++run) {
        const osg::ref_ptr<osg::Group> kept = makeGroup({makePairGeode(osg::Vec3())});
        kept->setName("kept");
        const osg::ref_ptr<osg::Group> root = makeGroup({kept});
        optimizer.process(root);
        optimizer.process(root);
        ASSERT_EQ(root->getChild(0), kept);
        EXPECT_EQ(kept->getName(), "kept");
    }
}

TEST(OptimizeBatches, ReplacesTheNamesToBePreserved) {
    OptimizeBatches optimizer;
    optimizer.preserveNames({"first"});
    optimizer.preserveNames({"second"});
    const osg::ref_ptr<osg::Group> first = makeGroup(), second = makeGroup();
    first->setName("first");
    second->setName("second");
    first->addChild(second);

    optimizer.process(first);

    EXPECT_EQ(first->getName(), "");
    EXPECT_EQ(second->getName(), "second");
}

TEST(OptimizeBatches, MovesSharedModelsToEachOfTheirPlaces) {
    const osg::ref_ptr<osg::Geode> model = makePairGeode(osg::Vec3());
    const osg::ref_ptr<osg::Group> root = makeGroup({makeStaticShift(10.0, model), makeStaticShift(20.0, model)});

    optimize(root);

    ASSERT_EQ(Content(*root).drawables, 1);
    const auto* geode = root->getChild(0)->asGeode();
    EXPECT_THAT(pointsOf(geode), testing::UnorderedElementsAre(osg::Vec3(9, 0, 0), osg::Vec3(11, 0, 0),
                                                               osg::Vec3(19, 0, 0), osg::Vec3(21, 0, 0)));
}

TEST(OptimizeBatches, FlattensStaticTransformsAtAnyDistance) {
    for (const double limit : {0.0, 1.0, 1e9}) {
        const osg::ref_ptr<osg::Group> root = makeGroup({makeStaticShift(1e6, makePairGeode(osg::Vec3()))});
        OptimizeBatches optimizer;
        optimizer.setMaxTransformMagnitudeToFlatten(limit);
        optimizer.process(root);
        ASSERT_NE(root->getChild(0)->asGeode(), nullptr) << limit;
        EXPECT_EQ(pointsOf(root->getChild(0)->asGeode()), pairAt(osg::Vec3(1e6f, 0, 0)));
    }
}

// Many, as whether a drawable's address is before or behind its LOD's once decided about the centre.
TEST(OptimizeBatches, MovesTheCentreOfAnLODOnceWithItsModel) {
    const osg::ref_ptr<osg::Group> root = makeGroup();
    std::vector<osg::ref_ptr<osg::LOD>> trees;
    for (int i = 0; i < 50; ++i) {
        const osg::ref_ptr<osg::Geode> modelMadeFirst = makePairGeode(osg::Vec3(1, 0, 0));
        trees.push_back(new osg::LOD);
        trees.back()->addChild(i % 2 == 0 ? modelMadeFirst : makePairGeode(osg::Vec3(1, 0, 0)), 0.0f, 100.0f);
        root->addChild(makeStaticShift(40.0, trees.back()));
    }
    optimize(root);
    for (const osg::ref_ptr<osg::LOD>& tree : trees) {
        ASSERT_EQ(tree->getNumParents(), 1u);
        EXPECT_EQ(tree->getCenter(), osg::Vec3(41, 0, 0));
        EXPECT_EQ(tree->getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
        EXPECT_EQ(tree->getBound().center(), osg::Vec3(41, 0, 0));
    }
}

TEST(OptimizeBatches, LetsAnLODThatStaysFollowItsBound) {
    const osg::ref_ptr<osg::LOD> tree = new osg::LOD;
    tree->setCenter(osg::Vec3(9, 9, 9));
    tree->setRadius(2.0f);
    tree->setCenterMode(osg::LOD::USE_BOUNDING_SPHERE_CENTER);
    tree->addChild(makePairGeode(osg::Vec3(1, 0, 0)), 0.0f, 100.0f);
    optimize(makeGroup({tree, makePairGeode(osg::Vec3())}));
    EXPECT_EQ(tree->getCenterMode(), osg::LOD::USE_BOUNDING_SPHERE_CENTER);
    EXPECT_EQ(tree->getCenter(), osg::Vec3(1, 0, 0));
    tree->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    EXPECT_EQ(tree->getCenter(), osg::Vec3(9, 9, 9));
}

TEST(OptimizeBatches, MovesTheCentreThatAnLODWasGiven) {
    const osg::ref_ptr<osg::LOD> tree = new osg::LOD;
    tree->setCenter(osg::Vec3(9, 9, 9));
    tree->addChild(makePairGeode(osg::Vec3(1, 0, 0)), 0.0f, 100.0f);
    optimize(makeGroup({makeStaticShift(40.0, tree), makePairGeode(osg::Vec3())}));
    EXPECT_EQ(tree->getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
    EXPECT_EQ(tree->getCenter(), osg::Vec3(49, 9, 9));
}

TEST(OptimizeBatches, DissolvesSmallGroupsOnlyIfTheRadiusIsPositive) {
    for (const double radius : {0.0, -5.0, notANumber}) {
        const osg::ref_ptr<osg::Group> small = makeGroup({makeOwnStatePair(1), makeOwnStatePair(2)});
        const osg::ref_ptr<osg::Group> root = makeGroup({small, makeOwnStatePair(3)});
        optimize(root, radius);
        EXPECT_EQ(small->getNumParents(), 1u) << radius;
    }
    const osg::ref_ptr<osg::Group> small = makeGroup({makeOwnStatePair(1), makeOwnStatePair(2)});
    const osg::ref_ptr<osg::Group> root = makeGroup({small, makeOwnStatePair(3)});
    optimize(root, 2.0);
    EXPECT_EQ(small->getNumParents(), 0u);
    EXPECT_EQ(root->getNumChildren(), 3u);
}

TEST(OptimizeBatches, KeepsGroupsWithoutABoundUnlessTheRadiusIsPositive) {
    for (const auto& [radius, places] : {std::pair(0.0, 1u), std::pair(-0.5, 1u), std::pair(1e-9, 0u)}) {
        const osg::ref_ptr<osg::Group> boundless = makeGroup({new osg::Node, new osg::Node});
        const osg::ref_ptr<osg::Group> root = makeGroup({boundless, new osg::Node});
        optimize(root, radius);
        EXPECT_EQ(boundless->getNumParents(), places) << radius;
    }
}

TEST(OptimizeBatches, RemovesRedundantGroupsBeforeItDissolvesSmallOnes) {
    const osg::ref_ptr<osg::Switch> alone = new osg::Switch, other = new osg::Switch;
    for (const auto& each : {alone, other}) each->addChild(makePairGeode(osg::Vec3()));
    const osg::ref_ptr<osg::Group> root = makeGroup({makeGroup({alone}), other});

    optimize(root, 10.0);

    ASSERT_EQ(root->getNumChildren(), 2u);
    EXPECT_EQ(root->getChild(0), alone);  // dissolving its group would have put it last
}

TEST(OptimizeBatches, MergesTheLODsOfDissolvedGroups) {
    const auto makeArea = [](float x) {
        const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
        lod->addChild(makePairGeode(osg::Vec3(x, 0, 0)), 0.0f, 100.0f);
        return makeGroup({makeGroup({lod}), makeOwnStatePair(x)});
    };
    const osg::ref_ptr<osg::Group> root = makeGroup({makeArea(1), makeArea(2)});

    optimize(root, 10.0);

    ASSERT_EQ(root->getNumChildren(), 3u);
    EXPECT_EQ(Content(*root).drawables, 3);
}

TEST(OptimizeBatches, MergesGeodesThenTheirGeometries) {
    const osg::ref_ptr<osg::Group> root = makeGroup({makePairGeode(osg::Vec3()), makePairGeode(osg::Vec3(5, 0, 0))});

    optimize(root);

    ASSERT_EQ(root->getNumChildren(), 1u);
    ASSERT_EQ(root->getChild(0)->asGeode()->getNumDrawables(), 1u);
    EXPECT_EQ(pointsOf(root->getChild(0)->asGeode()).size(), 4u);
}

TEST(OptimizeBatches, MergesAndMovesDrawablesDirectlyBelowGroups) {
    const osg::ref_ptr<osg::Geometry> shared = makePair(osg::Vec3());
    const osg::ref_ptr<osg::Group> root =
        makeGroup({shared, makeStaticShift(10.0, shared), makePair(osg::Vec3(5, 0, 0))});

    optimize(root, 100.0);

    ASSERT_EQ(root->getNumChildren(), 1u);
    EXPECT_THAT(pointsOf(root->getChild(0)->asDrawable()),
                testing::UnorderedElementsAre(osg::Vec3(-1, 0, 0), osg::Vec3(1, 0, 0), osg::Vec3(9, 0, 0),
                                              osg::Vec3(11, 0, 0), osg::Vec3(4, 0, 0), osg::Vec3(6, 0, 0)));
}

TEST(OptimizeBatches, MergesDrawablesThatHadUserData) {
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    for (float x : {0.0f, 5.0f}) {
        geode->addDrawable(makePair(osg::Vec3(x, 0, 0)));
        geode->getDrawable(geode->getNumDrawables() - 1)->setUserData(new osg::Referenced);
    }

    optimize(geode);

    EXPECT_EQ(geode->getNumDrawables(), 1u);
}

TEST(OptimizeBatches, MergesOnlyDrawablesOfTheSameMask) {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    for (const osg::Node::NodeMask mask : {1u, 0u, 1u, 4u, 0u}) {
        const osg::ref_ptr<osg::Geometry> pair = makePair(osg::Vec3(static_cast<float>(mask), 0, 0));
        pair->setNodeMask(mask);
        pair->setStateSet(state);
        geode->addDrawable(pair);
    }

    optimize(geode);

    std::map<osg::Node::NodeMask, std::size_t> pointsByMask;
    for (unsigned int i = 0; i < geode->getNumDrawables(); ++i) {
        pointsByMask[geode->getDrawable(i)->getNodeMask()] += pointsOf(geode->getDrawable(i)->asGeometry()).size();
        EXPECT_EQ(geode->getDrawable(i)->getStateSet(), state);
    }
    EXPECT_EQ(geode->getNumDrawables(), 3u);
    EXPECT_EQ(pointsByMask, (std::map<osg::Node::NodeMask, std::size_t>{{0, 4}, {1, 4}, {4, 2}}));
}

TEST(OptimizeBatches, MergesOnlyDrawablesOfTheSameStateAmongThoseOfAnotherMask) {
    const osg::ref_ptr<osg::StateSet> states[] = {new osg::StateSet, new osg::StateSet};
    states[1]->setMode(GL_BLEND, osg::StateAttribute::ON);
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(makePair(osg::Vec3()));
    for (const std::size_t state : {0u, 1u, 0u, 1u}) {
        geode->addDrawable(makePair(osg::Vec3(static_cast<float>(state), 0, 0)));
        geode->getDrawable(geode->getNumDrawables() - 1)->setNodeMask(4);
        geode->getDrawable(geode->getNumDrawables() - 1)->setStateSet(states[state]);
    }

    optimize(geode);

    ASSERT_EQ(geode->getNumDrawables(), 3u);
    std::map<const osg::StateSet*, std::size_t> pointsByState;
    for (unsigned int i = 0; i < 3; ++i)
        pointsByState[geode->getDrawable(i)->getStateSet()] += pointsOf(geode->getDrawable(i)->asGeometry()).size();
    EXPECT_EQ(pointsByState,
              (std::map<const osg::StateSet*, std::size_t>{{nullptr, 2}, {states[0], 4}, {states[1], 4}}));
}

TEST(OptimizeBatches, MergesDrawablesOfTheSameMaskWhateverItIs) {
    const osg::ref_ptr<osg::Group> group = makeGroup({makePair(osg::Vec3()), makePair(osg::Vec3(5, 0, 0))});
    for (unsigned int i = 0; i < 2; ++i) group->getChild(i)->setNodeMask(4);

    optimize(group);

    ASSERT_EQ(group->getNumChildren(), 1u);
    EXPECT_EQ(group->getChild(0)->getNodeMask(), 4u);
}

TEST(OptimizeBatches, MergesOnlyDrawablesWithArraysOfTheSameTypes) {
    const osg::ref_ptr<osg::Geode> geode = makeGeode(makePair(osg::Vec3()));
    const osg::ref_ptr<osg::Geometry> flat = makePair(osg::Vec3()), deep = makePair(osg::Vec3());
    flat->setVertexArray(new osg::Vec2Array(2));
    deep->setTexCoordArray(0, new osg::Vec3Array(2));
    const osg::ref_ptr<osg::Geometry> alsoDeep = osg::clone(deep.get(), osg::CopyOp::DEEP_COPY_ALL);
    const osg::ref_ptr<osg::Geometry> empty = new osg::Geometry;
    for (const auto& geometry : {flat, deep, alsoDeep, empty}) geode->addDrawable(geometry);

    optimize(geode);

    ASSERT_EQ(geode->getNumDrawables(), 4u);
    EXPECT_EQ(flat->getVertexArray()->getNumElements(), 2u);
    EXPECT_EQ(deep->getVertexArray()->getNumElements() + alsoDeep->getVertexArray()->getNumElements(), 6u);
    EXPECT_EQ(empty->getVertexArray(), nullptr);
}

TEST(OptimizeBatches, LeavesGeometriesAloneWhoseOneNormalOrColorIsMissing) {
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    for (int i = 0; i < 4; ++i) {
        const osg::ref_ptr<osg::Geometry> pair = makePair(osg::Vec3());
        if (i < 2) pair->setNormalArray(new osg::Vec3Array, osg::Array::BIND_OVERALL);
        if (i > 1) pair->setColorArray(new osg::Vec4Array, osg::Array::BIND_OVERALL);
        geode->addDrawable(pair);
    }

    optimize(geode);

    EXPECT_EQ(geode->getNumDrawables(), 4u);
}

TEST(OptimizeBatches, KeepsGroupsOfOneChildWithANodeMask) {
    const osg::ref_ptr<osg::Group> root =
        makeGroup({makeGroup({makeOwnStatePair(1.0f)}), makeStaticShift(1.0, makeOwnStatePair(2.0f))});
    root->getChild(0)->setNodeMask(0);
    root->getChild(1)->setNodeMask(4);

    optimize(root);

    EXPECT_EQ(root->getChild(0)->getNodeMask(), 0u);
    EXPECT_EQ(root->getChild(1)->getNodeMask(), 4u);
}

TEST(OptimizeBatches, KeepsCamerasAndTransformsThatLeaveOutWhatIsAboveThem) {
    const osg::ref_ptr<osg::MatrixTransform> absolute = makeStaticShift(0.0, makeOwnStatePair(1.0f));
    absolute->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setDataVariance(osg::Object::STATIC);
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->addChild(makeOwnStatePair(2.0f));
    const osg::ref_ptr<osg::Group> root = makeGroup({absolute, camera});

    optimize(root);

    EXPECT_EQ(root->getChild(0), absolute);
    EXPECT_EQ(root->getChild(1), camera);
}

TYPED_TEST(ParentOfChosenChildren, KeepsItsDrawablesApart) {
    const osg::ref_ptr<TypeParam> parent = new TypeParam;
    const std::vector<osg::ref_ptr<osg::Node>> children = {makePair(osg::Vec3()), makePair(osg::Vec3(5, 0, 0))};
    for (const osg::ref_ptr<osg::Node>& child : children) parent->addChild(child);
    parent->setNodeMask(0);  // the optimizer merges what is hidden, too
    if (auto* lod = dynamic_cast<osg::LOD*>(parent.get())) lod->setRangeList({{0.0f, 10.0f}, {10.0f, 20.0f}});
    const osg::ref_ptr<osg::Group> root = makeGroup({parent});

    optimize(root, 100.0);

    ASSERT_EQ(parent->getNumChildren(), 2u);
    for (unsigned int i = 0; i < 2; ++i) EXPECT_EQ(parent->getChild(i), children[i]);
    if (auto* lod = dynamic_cast<osg::LOD*>(parent.get())) {
        EXPECT_THAT(lod->getRangeList(), ElementsAre(std::pair(0.0f, 10.0f), std::pair(10.0f, 20.0f)));
    }
}

TYPED_TEST(ParentOfChosenChildren, KeepsItsGeodesApartAndMergesWhatTheyHold) {
    const osg::ref_ptr<TypeParam> parent = new TypeParam;
    for (float x : {0.0f, 50.0f}) {
        const osg::ref_ptr<osg::Geode> geode = makePairGeode(osg::Vec3(x, 0, 0));
        geode->addDrawable(makePair(osg::Vec3(x + 5, 0, 0)));
        parent->addChild(geode);
    }
    optimize(makeGroup({parent}), 100.0);

    ASSERT_EQ(parent->getNumChildren(), 2u);
    for (unsigned int i = 0; i < 2; ++i) EXPECT_EQ(parent->getChild(i)->asGeode()->getNumDrawables(), 1u);
}

TEST(OptimizeBatches, KeepsWhatAGeodeHoldsBesideDrawables) {
    const osg::ref_ptr<osg::Geode> mixed = makePairGeode(osg::Vec3());
    const osg::ref_ptr<osg::Group> model = makeGroup({makePair(osg::Vec3(7, 0, 0)), makeOwnStatePair(8)});
    mixed->addChild(model);
    const osg::ref_ptr<osg::StateSet> state = mixed->getOrCreateStateSet();
    const osg::ref_ptr<osg::Geode> other = makePairGeode(osg::Vec3(5, 0, 0));
    other->setStateSet(state);
    const osg::ref_ptr<osg::Group> root = makeGroup({other, mixed});

    optimize(root);

    EXPECT_EQ(Content(*root).points.size(), 8u);
    EXPECT_EQ(mixed->getStateSet(), state);
}

TEST(OptimizeBatches, KeepsWhatSeveralGeodesHoldBesideDrawables) {
    const osg::ref_ptr<osg::Group> root = makeGroup();
    for (float x : {0.0f, 50.0f}) {
        const osg::ref_ptr<osg::Geode> mixed = makePairGeode(osg::Vec3(x, 0, 0));
        mixed->addChild(makeOwnStatePair(x + 5));
        root->addChild(mixed);
    }
    optimize(root);

    EXPECT_EQ(Content(*root).points.size(), 8u);
}

TEST(OptimizeBatches, LeavesAStaticTransformAboveTheNodeThatHangsInNoGraph) {
    const osg::ref_ptr<osg::Geode> geode = makePairGeode(osg::Vec3(1, 0, 0));
    const osg::ref_ptr<osg::Group> node = makeGroup({geode, makeStaticShift(7.0, makeOwnStatePair(2.0f))});
    const osg::ref_ptr<osg::MatrixTransform> above = makeStaticShift(100.0, makeGroup({node}));
    optimize(node);
    EXPECT_EQ(above->getMatrix(), osg::Matrixd::translate(100, 0, 0));
    EXPECT_EQ(above->getDataVariance(), osg::Object::STATIC);
    EXPECT_FLOAT_EQ(geode->getBoundingBox().center().x(), 1.0f);
    EXPECT_FLOAT_EQ(node->getBound().center().x(), above->getBound().center().x() - 100.0f);
}

TEST(OptimizeBatches, MovesNothingBelowAStaticRootThatCannotBeMadeToDoNothing) {
    const osg::ref_ptr<osgSim::DOFTransform> joint = new osgSim::DOFTransform;
    joint->setCurrentTranslate(osg::Vec3(10, 0, 0));
    joint->setCurrentScale(osg::Vec3(1, 1, 1));
    const osg::ref_ptr<osg::PositionAttitudeTransform> scaled = new osg::PositionAttitudeTransform;
    scaled->setScale(osg::Vec3d(2, 2, 2));
    for (const osg::ref_ptr<osg::Transform>& root :
         {osg::ref_ptr<osg::Transform>(joint), osg::ref_ptr<osg::Transform>(scaled)}) {
        root->setDataVariance(osg::Object::STATIC);
        root->addChild(makePairGeode(osg::Vec3(1, 2, 3)));
        const auto points = Content(*root).points;

        optimize(root);

        EXPECT_EQ(Content(*root).points, points);
        EXPECT_EQ(root->getDataVariance(), osg::Object::STATIC);
    }
}

TEST(OptimizeBatches, FlattensAStaticRootThatCanBeMadeToDoNothing) {
    const osg::ref_ptr<osg::PositionAttitudeTransform> root = new osg::PositionAttitudeTransform;
    root->setPosition(osg::Vec3d(10, 0, 0));
    root->setDataVariance(osg::Object::STATIC);
    root->addChild(makePairGeode(osg::Vec3(1, 2, 3)));
    const auto points = Content(*root).points;

    optimize(root);

    EXPECT_EQ(Content(*root).points, points);
    EXPECT_EQ(root->getPosition(), osg::Vec3d());
}

TEST(OptimizeBatches, LeavesABillboardInPlaceThatHoldsMoreThanDrawables) {
    const osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addDrawable(makePair(osg::Vec3()), osg::Vec3(1, 0, 0));
    billboard->addChild(makePairGeode(osg::Vec3()));
    billboard->getPositionList().push_back(osg::Vec3(2, 0, 0));
    const osg::ref_ptr<osg::Group> root = makeGroup({makeStaticShift(10.0, billboard)});

    optimize(root);

    EXPECT_NE(root->getChild(0)->asTransform(), nullptr);
    EXPECT_EQ(billboard->getPosition(0), osg::Vec3(1, 0, 0));
}

TEST(OptimizeBatches, LeavesABillboardInPlaceThatLacksPositions) {
    const osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addChild(makePair(osg::Vec3()));
    const osg::ref_ptr<osg::Group> root = makeGroup({makeStaticShift(10.0, billboard)});

    optimize(root);

    EXPECT_NE(root->getChild(0)->asTransform(), nullptr);
    EXPECT_EQ(pointsOf(billboard->getDrawable(0)), pairAt(osg::Vec3()));
}

TEST(OptimizeBatches, MovesBillboardsWithAllTheirPositions) {
    const osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addDrawable(makePair(osg::Vec3()), osg::Vec3(1, 0, 0));
    const osg::ref_ptr<osg::Group> root = makeGroup({makeStaticShift(10.0, billboard)});

    optimize(root);

    EXPECT_EQ(root->getChild(0), billboard);
    EXPECT_EQ(billboard->getPosition(0), osg::Vec3(11, 0, 0));
}

TEST(OptimizeBatches, SurvivesARootThatIsReplacedInTheGraphAbove) {
    osg::Group* root = new osg::Group;
    const osg::ref_ptr<osg::Group> above = makeGroup({root});
    root->addChild(makeGroup({makePairGeode(osg::Vec3()), makePairGeode(osg::Vec3(5, 0, 0))}));

    optimize(root);

    EXPECT_EQ(Content(*above).points.size(), 4u);
}

TEST(OptimizeBatches, SurvivesARootThatIsRemovedOrDissolvedIntoTheGraphAbove) {
    const osg::ref_ptr<osg::Group> above = makeGroup({new osg::Group, makePairGeode(osg::Vec3())});
    optimize(above->getChild(0));
    EXPECT_EQ(Content(*above).points.size(), 2u);

    above->addChild(makeGroup({makeOwnStatePair(1), makeOwnStatePair(2)}));
    optimize(above->getChild(1), 100.0);
    EXPECT_EQ(Content(*above).points.size(), 6u);
}

TEST(OptimizeBatches, GivesBackARootThatNobodyHolds) {
    for (osg::Group* root : std::vector<osg::Group*>{new osg::Group, new osg::LOD, new osg::MatrixTransform}) {
        root->addChild(makeGroup({makeGroup()}));
        optimize(root, 100.0);
        ASSERT_EQ(root->referenceCount(), 0);
        const osg::ref_ptr<osg::Group> deletesIt = root;
    }
}

TEST(OptimizeBatches, TakesADrawableOrGeodeForARoot) {
    const osg::ref_ptr<osg::Geometry> drawable = makePair(osg::Vec3());
    optimize(drawable, 100.0);
    EXPECT_EQ(pointsOf(drawable), pairAt(osg::Vec3()));
}

TEST(OptimizeBatches, IgnoresANullNode) {
    optimize(nullptr);
}

TEST(OptimizeBatches, KeepsEveryVertexInItsPlace) {
    for (unsigned int seed = 0; seed < 500; ++seed) {
        const osg::ref_ptr<osg::Group> root = makeRandomStaticGraph(seed, seed % 4 * 8);
        const auto before = Content(*root).points;

        optimize(root, seed % 3 * 40.0);

        ASSERT_EQ(Content(*root).points, before) << "seed " << seed;
    }
}

TEST(OptimizeBatches, ChangesNoCountsInASecondRun) {
    for (const double radius : {100.0, 1000.0}) {
        const osg::ref_ptr<osg::Group> root = makeTown(false);
        optimize(root, radius);
        const Content once(*root);
        optimize(root, radius);
        const Content twice(*root);
        EXPECT_EQ(twice.nodes, once.nodes);
        EXPECT_EQ(twice.drawables, once.drawables);
    }
}

TEST(OptimizeBatches, LeavesNoDrawablesToMergeForASecondRun) {
    const osg::ref_ptr<osg::Group> root = makeTown(true);
    optimize(root, 1000.0);
    EXPECT_EQ(Content(*root).drawables, 3);  // one without levels of detail, one for each level
    optimize(root, 1000.0);
    EXPECT_EQ(Content(*root).drawables, 3);
}

TEST(OptimizeBatches, NeverMakesMoreDrawablesInASecondRun) {
    for (unsigned int seed = 0; seed < 300; ++seed) {
        const osg::ref_ptr<osg::Group> root = makeRandomStaticGraph(seed, 10);
        optimize(root, seed % 2 * 1000.0);
        const int once = Content(*root).drawables;
        optimize(root, seed % 2 * 1000.0);
        ASSERT_LE(Content(*root).drawables, once) << "seed " << seed;
    }
}

TEST(OptimizeBatches, CopiesEverySetting) {
    OptimizeBatches original;
    original.setMaxTransformMagnitudeToFlatten(3.0);
    original.setUnspatializeRadius(7.0);
    original.preserveNames({"kept"});

    OptimizeBatches copy(original);
    OptimizeBatches assigned;
    OptimizeBatches& result = assigned = original;
    original.preserveNames({});

    EXPECT_EQ(&result, &assigned);
    for (OptimizeBatches* each : {&copy, &assigned}) {
        EXPECT_EQ(each->getMaxTransformMagnitudeToFlatten(), 3.0);
        EXPECT_EQ(each->getUnspatializeRadius(), 7.0);
        const osg::ref_ptr<osg::Group> node = makeGroup();
        node->setName("kept");
        each->process(node);
        EXPECT_EQ(node->getName(), "kept");
    }
}

namespace {

/** Notes the steps that it is told of. */
struct StepNotes : OptimizeBatches::StepListener {
    void beginStep(OptimizeBatches::Step step, osg::Node& root) override {
        begun.push_back(step);
        roots.insert(&root);
    }
    void endStep(OptimizeBatches::Step step, osg::Node& root) override {
        ended.push_back(step);
        EXPECT_EQ(begun, ended);
        roots.insert(&root);
    }

    std::vector<OptimizeBatches::Step> begun;
    std::vector<OptimizeBatches::Step> ended;
    std::set<osg::Node*> roots;
};

}  // namespace

TEST(OptimizeBatches, TellsAListenerEachStepInItsOrder) {
    using Step = OptimizeBatches::Step;
    const std::vector<Step> all = {Step::FlattenUselessLODs,   Step::RemoveNames,
                                   Step::CopySharedSubgraphs,  Step::FlattenStaticTransforms,
                                   Step::RemoveRedundantNodes, Step::UnspatializeSmallAreas,
                                   Step::MergeGeodes,          Step::MergeGeometry};
    const osg::ref_ptr<osg::Group> town = makeTown(true);
    StepNotes notes;
    OptimizeBatches optimizer;
    optimizer.setUnspatializeRadius(1.0);
    optimizer.setStepListener(&notes);

    optimizer.process(town);

    EXPECT_EQ(notes.begun, all);
    EXPECT_EQ(notes.ended, all);
    EXPECT_EQ(notes.roots, std::set<osg::Node*>({town.get()}));
}

TEST(OptimizeBatches, DoesNotTellOfStepsThatDoNotRun) {
    StepNotes notes;
    OptimizeBatches optimizer;
    optimizer.setStepListener(&notes);

    optimizer.process(nullptr);
    EXPECT_TRUE(notes.begun.empty());
    optimizer.process(makeTown(false));
    EXPECT_EQ(std::count(notes.begun.begin(), notes.begun.end(), OptimizeBatches::Step::UnspatializeSmallAreas), 0);
    EXPECT_EQ(notes.begun.size(), 7u);
}

TEST(OptimizeBatches, HasNoListenerUnlessOneIsSetAndCopiesTellTheSame) {
    StepNotes notes;
    OptimizeBatches optimizer;
    EXPECT_EQ(optimizer.getStepListener(), nullptr);
    optimizer.setStepListener(&notes);
    const OptimizeBatches copy(optimizer);
    OptimizeBatches assigned;
    assigned = optimizer;

    EXPECT_EQ(copy.getStepListener(), &notes);
    EXPECT_EQ(assigned.getStepListener(), &notes);
}

TEST(OptimizeBatches, DoesTheSameWithAListener) {
    const osg::ref_ptr<osg::Group> alone = makeRandomStaticGraph(7, 20);
    const osg::ref_ptr<osg::Group> watched = makeRandomStaticGraph(7, 20);
    StepNotes notes;
    OptimizeBatches optimizer;
    optimizer.setUnspatializeRadius(50.0);
    optimizer.process(alone);
    optimizer.setStepListener(&notes);
    optimizer.process(watched);

    EXPECT_EQ(Content(*alone).points, Content(*watched).points);
    EXPECT_EQ(Content(*alone).nodes, Content(*watched).nodes);
    EXPECT_EQ(Content(*alone).drawables, Content(*watched).drawables);
}
