#include "support/GraphCounts.h"
#include "support/Graphs.h"
#include "support/PointModels.h"
#include "support/RandomBatchGraph.h"
#include "support/Town.h"

#include <sceneutils/FlattenUselessLODs.h>
#include <sceneutils/OptimizeBatches.h>

#include <gmock/gmock.h>

#include <osg/LOD>
#include <osg/Transform>

#include <typeinfo>
#include <utility>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using testing::Pair;
using veltrane::sceneutils::FlattenUselessLODs;
using veltrane::sceneutils::OptimizeBatches;

namespace {

constexpr double smallRadius = 60.0;
constexpr double largeRadius = 1e9;

void optimize(const osg::ref_ptr<osg::Group>& root, double radius) {
    OptimizeBatches optimizer;
    optimizer.setUnspatializeRadius(radius);
    optimizer.process(root);
}

osg::ref_ptr<osg::Group> makeRandomGraph(unsigned int seed) {
    return makeRandomBatchGraph({seed, 2 + seed % 30, seed % 4 * 8});
}

osg::ref_ptr<osg::Group> makeGroup(const std::vector<osg::ref_ptr<osg::Node>>& children) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (const osg::ref_ptr<osg::Node>& child : children) group->addChild(child);
    return group;
}

osg::ref_ptr<osg::Node> makePoint(float x) {
    return makeGeode(makePoints({osg::Vec3(x, 0, 0)}));
}

bool isPlainGroup(const osg::Node& node) {
    return typeid(node) == typeid(osg::Group);
}

/** Looks for groups that another run would take away: of one child, or small ones in groups and transforms. */
class RemovableGroupFinder : public osg::NodeVisitor {
public:
    explicit RemovableGroupFinder(double radius) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _radius(radius) {}

    void apply(osg::Group& group) override {
        if (isPlainGroup(group) && group.getNumParents() == 1) {
            const osg::Group& parent = *group.getParent(0);
            const bool isSmall = group.getBound().radius() < _radius;
            if (isSmall && (parent.asTransform() || isPlainGroup(parent))) found = true;
            if (group.getNumChildren() == 1 && !group.getStateSet()) found = true;
        }
        traverse(group);
    }

    bool found = false;

private:
    double _radius;
};

bool hasRemovableGroups(const osg::ref_ptr<osg::Group>& graph, double radius) {
    RemovableGroupFinder finder(radius);
    graph->accept(finder);
    return finder.found;
}

bool hasUselessLODs(const osg::ref_ptr<osg::Group>& graph) {
    const osg::ref_ptr<osg::Group> copy = osg::clone(graph.get(), osg::CopyOp::DEEP_COPY_NODES);
    FlattenUselessLODs::process(copy, 0.0f, 20000.0f);
    return countsOf(*copy).lods != countsOf(*graph).lods;
}

int runsUntilNothingChanges(const osg::ref_ptr<osg::Group>& graph, double radius) {
    int runs = 0;
    for (GraphCounts before; !(before == countsOf(*graph)); ++runs) {
        before = countsOf(*graph);
        optimize(graph, radius);
    }
    return runs - 1;
}

/** At each radius. */
class OptimizeBatchesTwice : public testing::TestWithParam<double> {};

}  // namespace

TEST_P(OptimizeBatchesTwice, KeepsVerticesTrianglesAndStatesAndMakesNothingNew) {
    for (unsigned int seed = 0; seed < 500; ++seed) {
        SCOPED_TRACE(seed);
        const osg::ref_ptr<osg::Group> graph = seed == 0 ? makeTown() : makeRandomGraph(seed);
        optimize(graph, GetParam());
        const GraphCounts once = countsOf(*graph);
        optimize(graph, GetParam());
        const GraphCounts twice = countsOf(*graph);
        ASSERT_EQ(twice.vertices, once.vertices);
        ASSERT_EQ(twice.triangles, once.triangles);
        ASSERT_EQ(twice.stateSets, once.stateSets);
        ASSERT_LE(twice.groups, once.groups);
        ASSERT_LE(twice.lods, once.lods);
        ASSERT_LE(twice.geodes, once.geodes);
        ASSERT_LE(twice.drawables, once.drawables);
        ASSERT_LE(twice.primitiveSets, once.primitiveSets);
    }
}

TEST_P(OptimizeBatchesTwice, ChangesCountsIfAndOnlyIfTheFirstRunLeftGroupsOrLODsToBeRemoved) {
    for (unsigned int seed = 0; seed < 500; ++seed) {
        const osg::ref_ptr<osg::Group> graph = makeRandomGraph(seed);
        optimize(graph, GetParam());
        const bool isChanging = hasRemovableGroups(graph, GetParam()) || hasUselessLODs(graph);
        const GraphCounts once = countsOf(*graph);
        optimize(graph, GetParam());
        ASSERT_EQ(!(countsOf(*graph) == once), isChanging) << "seed " << seed << ": " << once;
    }
}

TEST_P(OptimizeBatchesTwice, ComesToAnEnd) {
    for (unsigned int seed = 0; seed < 500; ++seed) {
        const osg::ref_ptr<osg::Group> graph = makeRandomGraph(seed);
        ASSERT_LE(runsUntilNothingChanges(graph, GetParam()), 4) << "seed " << seed;
    }
}

INSTANTIATE_TEST_SUITE_P(Radii, OptimizeBatchesTwice, testing::Values(0.0, 20.0, smallRadius, largeRadius));

TEST(OptimizeBatchesAgain, RemovesAGroupWhoseGeodesBecameOne) {
    const osg::ref_ptr<osg::Group> root = makeGroup({makeGroup({makePoint(1), makePoint(2)}), makePoint(3)});
    optimize(root, 0.0);
    EXPECT_EQ(root->getNumChildren(), 2u);
    EXPECT_EQ(countsOf(*root).drawables, 2);
    optimize(root, 0.0);
    EXPECT_EQ(root->getNumChildren(), 1u);
    EXPECT_EQ(countsOf(*root).drawables, 1);
}

TEST(OptimizeBatchesAgain, RemovesOneOfGroupsInsideEachOtherInEachRun) {
    osg::ref_ptr<osg::Group> graph = makeGroup({makePoint(1), makePoint(2)});
    for (int groups = 2; groups <= 6; ++groups) {
        graph = makeGroup({graph, makePoint(static_cast<float>(groups + 1))});
        const osg::ref_ptr<osg::Group> copy = osg::clone(graph.get(), osg::CopyOp::DEEP_COPY_ALL);
        EXPECT_EQ(runsUntilNothingChanges(copy, 0.0), groups);
        EXPECT_EQ(countsOf(*copy).drawables, 1);
    }
}

TEST(OptimizeBatchesAgain, RemovesAnLODThatAWiderUselessOneHeld) {
    const osg::ref_ptr<osg::LOD> inner = new osg::LOD, outer = new osg::LOD;
    inner->addChild(makePoint(1), 0.0f, 20000.0f);
    outer->addChild(inner, -1.0f, 30000.0f);
    const osg::ref_ptr<osg::Group> root = makeGroup({outer});
    optimize(root, 0.0);
    EXPECT_EQ(countsOf(*root).lods, 1);
    optimize(root, 0.0);
    EXPECT_EQ(countsOf(*root).lods, 0);
}

// What goes in the second run: groups around what became one geode, and what can be merged or dissolved thereby.
TEST(OptimizeBatchesAgain, TakesLittleFromATown) {
    const auto countsAfterEachRun = [](double radius) {
        const osg::ref_ptr<osg::Group> town = makeTown();
        std::vector<std::pair<int, int>> groupsAndDrawables;
        for (int run = 0; run < 4; ++run) {
            optimize(town, radius);
            groupsAndDrawables.emplace_back(countsOf(*town).groups, countsOf(*town).drawables);
        }
        return groupsAndDrawables;
    };
    EXPECT_THAT(countsAfterEachRun(0.0),
                ElementsAre(Pair(1378, 981), Pair(1342, 981), Pair(1342, 981), Pair(1342, 981)));
    EXPECT_THAT(countsAfterEachRun(smallRadius),
                ElementsAre(Pair(289, 189), Pair(253, 171), Pair(235, 171), Pair(235, 171)));
    EXPECT_THAT(countsAfterEachRun(largeRadius),
                ElementsAre(Pair(172, 116), Pair(170, 116), Pair(170, 116), Pair(170, 116)));
}
