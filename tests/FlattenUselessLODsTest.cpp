#include <sceneutils/FlattenUselessLODs.h>

#include "support/GraphDescription.h"
#include "support/LiteralUselessLODs.h"
#include "support/PointModels.h"
#include "support/RandomBatchGraph.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/PagedLOD>
#include <osg/Switch>

#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using namespace testing_support;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using veltrane::sceneutils::FlattenUselessLODs;

namespace {

static_assert(std::is_base_of_v<osg::NodeVisitor, FlattenUselessLODs>);
static_assert(std::has_virtual_destructor_v<FlattenUselessLODs>);
static_assert(std::is_copy_constructible_v<FlattenUselessLODs> && std::is_copy_assignable_v<FlattenUselessLODs>);
static_assert(!std::is_default_constructible_v<FlattenUselessLODs>);

constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

/** A visitor whose notes can be looked at. */
struct OpenFlattenUselessLODs : FlattenUselessLODs {
    using FlattenUselessLODs::_currentMaxRange;
    using FlattenUselessLODs::_currentMinRange;
    using FlattenUselessLODs::_uselessLODs;
    using FlattenUselessLODs::FlattenUselessLODs;
};

template <typename LODType = osg::LOD>
osg::ref_ptr<LODType> makeLOD(osg::Node* child, float minRange, float maxRange) {
    osg::ref_ptr<LODType> lod = new LODType;
    lod->setName("LOD");
    lod->addChild(child, minRange, maxRange);
    return lod;
}

osg::ref_ptr<osg::Group> makeGroup(const std::vector<osg::Node*>& children = {}) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (osg::Node* child : children) group->addChild(child);
    return group;
}

void flatten(osg::Node* root, float minRange = 0.0f, float maxRange = 20000.0f) {
    FlattenUselessLODs::process(root, minRange, maxRange);
}

/** Whether an LOD of that range below the root of a graph seen from 0 to 20000 is replaced. */
bool isReplaced(float minRange, float maxRange) {
    const auto lod = makeLOD(new osg::Group, minRange, maxRange);
    const auto root = makeGroup({lod});
    flatten(root);
    return root->getChild(0) != lod;
}

/** Whether an LOD of that range is replaced that hangs where another LOD shows it from 100 to 500. */
bool isReplacedBelowAnLOD(float minRange, float maxRange) {
    const auto lod = makeLOD(new osg::Group, minRange, maxRange);
    const auto between = makeGroup({lod});
    const auto above = makeLOD(between, 100.0f, 500.0f);
    const auto root = makeGroup({above});
    flatten(root);
    return between->getChild(0) != lod;
}

bool isUnder(const osg::Node& node, const osg::Node& root) {
    if (&node == &root) return true;
    for (unsigned int i = 0; i < node.getNumParents(); ++i)
        if (isUnder(*node.getParent(i), root)) return true;
    return false;
}

}  // namespace

TEST(FlattenUselessLODs, VisitsAllChildrenAndHonoursNodeMasks) {
    const FlattenUselessLODs visitor(0.0f, 1.0f);

    EXPECT_EQ(visitor.getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    EXPECT_EQ(visitor.getNodeMaskOverride(), 0u);
}

TEST(FlattenUselessLODs, StartsWithTheRangesGivenAndNoLODs) {
    const OpenFlattenUselessLODs visitor(2.0f, 3.0f);

    EXPECT_EQ(visitor._currentMinRange, 2.0f);
    EXPECT_EQ(visitor._currentMaxRange, 3.0f);
    EXPECT_THAT(visitor._uselessLODs, IsEmpty());
}

TEST(FlattenUselessLODs, ReplacesAnLODWhoseRangeContainsAllThatIsSeen) {
    EXPECT_TRUE(isReplaced(0.0f, 20000.0f));
    EXPECT_TRUE(isReplaced(-1.0f, 20001.0f));
}

TEST(FlattenUselessLODs, KeepsAnLODWhoseRangeIsNarrowerThanWhatIsSeen) {
    EXPECT_FALSE(isReplaced(0.0f, 19999.0f));
    EXPECT_FALSE(isReplaced(0.001f, 20000.0f));
    EXPECT_FALSE(isReplaced(1.0f, 19999.0f));
}

TEST(FlattenUselessLODs, KeepsAnLODWithoutANumberInItsRange) {
    EXPECT_FALSE(isReplaced(notANumber, 20000.0f));
    EXPECT_FALSE(isReplaced(0.0f, notANumber));
}

TEST(FlattenUselessLODs, KeepsEveryLODIfWhatIsSeenIsNotANumber) {
    for (const auto& [minRange, maxRange] : {std::pair(notANumber, 20000.0f), std::pair(0.0f, notANumber)}) {
        const auto lod = makeLOD(new osg::Group, -1.0f, 30000.0f);
        const auto root = makeGroup({lod});
        flatten(root, minRange, maxRange);
        EXPECT_EQ(root->getChild(0), lod);
    }
}

TEST(FlattenUselessLODs, JudgesByTheLODAboveInPlaceOfTheRangesGiven) {
    EXPECT_TRUE(isReplacedBelowAnLOD(50.0f, 1000.0f));
    EXPECT_TRUE(isReplacedBelowAnLOD(100.0f, 500.0f));
    EXPECT_FALSE(isReplacedBelowAnLOD(200.0f, 1000.0f));
    EXPECT_FALSE(isReplacedBelowAnLOD(50.0f, 400.0f));
}

TEST(FlattenUselessLODs, JudgesByTheNearestLODOnlyNotByAllThatAreAbove) {
    const auto inner = makeLOD(new osg::Group, 150.0f, 300.0f);
    const auto middle = makeLOD(inner, 100.0f, 500.0f);
    const auto outer = makeLOD(middle, 200.0f, 250.0f);  // with it, the inner one is seen from 200 to 250 only
    const auto root = makeGroup({outer});

    flatten(root);

    EXPECT_TRUE(isUnder(*inner, *root));
    EXPECT_FALSE(isUnder(*middle, *root));
}

TEST(FlattenUselessLODs, PutsANamelessPlainGroupWithTheChildIntoThePlace) {
    const auto child = makePairGeode(osg::Vec3());
    const auto lod = makeLOD(child, 0.0f, 20000.0f);
    lod->getOrCreateStateSet();
    const auto root = makeGroup({new osg::Group, lod, new osg::Group});

    flatten(root);

    ASSERT_EQ(root->getNumChildren(), 3u);
    osg::Group* group = root->getChild(1)->asGroup();
    EXPECT_STREQ(group->className(), "Group");
    EXPECT_EQ(group->getName(), "");
    EXPECT_EQ(group->getStateSet(), nullptr);
    ASSERT_EQ(group->getNumChildren(), 1u);
    EXPECT_EQ(group->getChild(0), child);
    EXPECT_EQ(child->getNumParents(), 1u);
}

TEST(FlattenUselessLODs, LeavesAReplacedLODEmpty) {
    const auto lod = makeLOD(new osg::Group, 0.0f, 20000.0f);
    const auto root = makeGroup({lod});

    flatten(root);

    EXPECT_EQ(lod->getNumParents(), 0u);
    EXPECT_EQ(lod->getNumChildren(), 0u);
    EXPECT_EQ(lod->getNumRanges(), 0u);
}

TEST(FlattenUselessLODs, KeepsAnLODWithOneRangeAndTwoChildren) {
    const auto lod = makeLOD(new osg::Group, 0.0f, 20000.0f);
    lod->addChild(new osg::Group);
    lod->setRangeList({{0.0f, 20000.0f}});
    const auto root = makeGroup({lod});

    flatten(root);

    EXPECT_EQ(root->getChild(0), lod);
}

TEST(FlattenUselessLODs, KeepsAnLODWithTwoRangesAndOneChild) {
    const auto lod = makeLOD(new osg::Group, 0.0f, 20000.0f);
    lod->setRange(1, 0.0f, 20000.0f);
    const auto root = makeGroup({lod});

    flatten(root);

    EXPECT_EQ(root->getChild(0), lod);
}

TEST(FlattenUselessLODs, KeepsAnLODWithoutRangesAndWhatHangsBelow) {
    const auto below = makeLOD(new osg::Group, 0.0f, 20000.0f);
    const auto lod = makeLOD(below, 0.0f, 20000.0f);
    lod->setRangeList({});
    const auto root = makeGroup({lod});

    flatten(root);

    EXPECT_EQ(root->getChild(0), lod);
    EXPECT_EQ(lod->getChild(0), below);
}

TEST(FlattenUselessLODs, VisitsEachChildWithItsOwnRange) {
    const auto near = makeLOD(new osg::Group, 0.0f, 100.0f);
    const auto far = makeLOD(new osg::Group, 0.0f, 100.0f);
    const auto lod = makeLOD(makeGroup({near}), 0.0f, 100.0f);
    lod->addChild(makeGroup({far}), 100.0f, 1000.0f);
    const auto root = makeGroup({lod});

    flatten(root);

    EXPECT_FALSE(isUnder(*near, *root));
    EXPECT_TRUE(isUnder(*far, *root));
}

TEST(FlattenUselessLODs, VisitsTheChildrenThatHaveRangesAndIgnoresFurtherRanges) {
    const auto first = makeLOD(new osg::Group, 0.0f, 20000.0f);
    const auto second = makeLOD(new osg::Group, 0.0f, 20000.0f);
    const auto lod = makeLOD(makeGroup({first}), 0.0f, 10.0f);
    lod->addChild(makeGroup({second}), 10.0f, 20.0f);
    lod->setRange(2, 20.0f, 30.0f);
    const auto root = makeGroup({lod});

    flatten(root);

    EXPECT_FALSE(isUnder(*first, *root));
    EXPECT_FALSE(isUnder(*second, *root));
    EXPECT_EQ(lod->getNumRanges(), 3u);
}

TEST(FlattenUselessLODs, DoesNotVisitChildrenWithoutARange) {
    const auto without = makeLOD(new osg::Group, 0.0f, 20000.0f);
    const auto lod = makeLOD(new osg::Group, 0.0f, 10.0f);
    lod->addChild(makeGroup({without}));
    lod->setRangeList({{0.0f, 10.0f}});
    const auto root = makeGroup({lod});

    flatten(root);

    EXPECT_TRUE(isUnder(*without, *root));
}

TEST(FlattenUselessLODs, JudgesTheNextSiblingByWhatIsSeenAboveAgain) {
    for (const unsigned int children : {1u, 2u}) {
        const auto before = makeLOD(new osg::Group, 0.0f, 10.0f);
        for (unsigned int i = 1; i < children; ++i) before->addChild(new osg::Group, 10.0f, 20.0f);
        const auto narrow = makeLOD(new osg::Group, 0.0f, 15.0f);
        const auto wide = makeLOD(new osg::Group, 0.0f, 20000.0f);
        const auto root = makeGroup({before, narrow, wide});

        flatten(root);

        EXPECT_EQ(root->getChild(1), narrow);
        EXPECT_NE(root->getChild(2), wide);
    }
}

TEST(FlattenUselessLODs, KeepsTheRootOfTheVisit) {
    const auto root = makeLOD(new osg::Group, 0.0f, 20000.0f);
    const auto above = makeGroup({root});

    flatten(root);

    EXPECT_EQ(above->getChild(0), root);
    EXPECT_EQ(root->getNumChildren(), 1u);
}

TEST(FlattenUselessLODs, KeepsAnLODBelowNoNodeOnThePath) {
    const auto lod = makeLOD(new osg::Group, 0.0f, 20000.0f);
    OpenFlattenUselessLODs visitor(0.0f, 20000.0f);
    visitor.pushOntoNodePath(nullptr);

    lod->accept(visitor);

    EXPECT_THAT(visitor._uselessLODs, IsEmpty());
}

TEST(FlattenUselessLODs, NotesAnLODWithTheNodeAboveItAndChangesNothingDuringTheVisit) {
    const auto lod = makeLOD(new osg::Group, 0.0f, 20000.0f);
    const auto left = makeGroup({lod, lod}), right = makeGroup({lod});
    const auto root = makeGroup({left, right});
    OpenFlattenUselessLODs visitor(0.0f, 20000.0f);

    root->accept(visitor);

    EXPECT_THAT(visitor._uselessLODs, UnorderedElementsAre(Pair(left.get(), lod.get()), Pair(right.get(), lod.get())));
    EXPECT_EQ(visitor._currentMinRange, 0.0f);
    EXPECT_EQ(visitor._currentMaxRange, 20000.0f);
    EXPECT_EQ(lod->getNumParents(), 3u);
}

TEST(FlattenUselessLODs, ReplacesPagedLODs) {
    const auto child = makeGroup();
    const auto lod = makeLOD<osg::PagedLOD>(child, 0.0f, 20000.0f);
    const auto root = makeGroup({lod});

    flatten(root);

    EXPECT_EQ(root->getChild(0), child->getParent(0));
    EXPECT_STREQ(root->getChild(0)->className(), "Group");
}

TEST(FlattenUselessLODs, KeepsEveryValueOfASwitch) {
    const auto lod = makeLOD(new osg::Group, 0.0f, 20000.0f);
    const osg::ref_ptr<osg::Switch> choice = new osg::Switch;
    choice->addChild(lod, false);
    choice->addChild(new osg::Group, true);

    flatten(choice);

    EXPECT_NE(choice->getChild(0), lod);
    EXPECT_FALSE(choice->getValue(0));
    EXPECT_TRUE(choice->getValue(1));
}

TEST(FlattenUselessLODs, LeavesHiddenNodesAlone) {
    const auto lod = makeLOD(new osg::Group, 0.0f, 20000.0f);
    lod->setNodeMask(0);
    const auto root = makeGroup({lod});

    flatten(root);

    EXPECT_EQ(root->getChild(0), lod);
}

TEST(FlattenUselessLODs, KeepsTheContentOfDirectlyNestedLODs) {
    for (std::size_t i = 0; i < 50; ++i) {  // whichever lies first in memory
        const std::vector<osg::ref_ptr<osg::LOD>> lods = {new osg::LOD, new osg::LOD, new osg::LOD};
        const auto child = makeGroup();
        lods[i % 3]->addChild(child, 0.0f, 20000.0f);
        lods[(i + 1) % 3]->addChild(lods[i % 3], 0.0f, 20000.0f);
        lods[(i + 2) % 3]->addChild(lods[(i + 1) % 3], 0.0f, 20000.0f);
        const auto root = makeGroup({lods[(i + 2) % 3]});

        flatten(root);

        const osg::Node* node = root->getChild(0);
        for (int level = 0; level < 3; ++level, node = node->asGroup()->getChild(0))
            ASSERT_STREQ(node->className(), "Group");
        EXPECT_EQ(node, child);
        EXPECT_EQ(child->getNumParents(), 1u);
    }
}

TEST(FlattenUselessLODs, PutsOneGroupIntoAllPlacesOfASharedLOD) {
    const auto child = makeGroup();
    const auto lod = makeLOD(child, 0.0f, 20000.0f);
    const auto left = makeGroup({lod}), right = makeGroup({new osg::Group, lod, lod});
    const auto root = makeGroup({left, right});

    flatten(root);

    ASSERT_EQ(child->getNumParents(), 1u);
    const osg::Node* group = child->getParent(0);
    EXPECT_EQ(left->getChild(0), group);
    EXPECT_EQ(right->getChild(1), group);
    EXPECT_EQ(right->getChild(2), group);
    EXPECT_EQ(lod->getNumChildren(), 0u);
}

TEST(FlattenUselessLODs, KeepsASharedLODWithItsChildWhereItCanSwitch) {
    const auto child = makeGroup();
    const auto lod = makeLOD(child, 0.0f, 100.0f);
    const auto narrow = makeLOD(lod, 10.0f, 100.0f), wide = makeLOD(lod, 10.0f, 1000.0f);
    const auto root = makeGroup({narrow, wide});

    flatten(root);

    EXPECT_STREQ(narrow->getChild(0)->className(), "Group");
    EXPECT_EQ(narrow->getChild(0)->asGroup()->getChild(0), child);
    EXPECT_EQ(wide->getChild(0), lod);
    EXPECT_EQ(lod->getChild(0), child);
    EXPECT_EQ(lod->getMaxRange(0), 100.0f);
}

TEST(FlattenUselessLODs, LeavesTheGraphsAboveAndBesideAlone) {
    const auto child = makeGroup();
    const auto lod = makeLOD(child, 0.0f, 20000.0f);
    const auto root = makeGroup({lod});
    const auto beside = makeGroup({lod});

    flatten(root);

    EXPECT_EQ(beside->getChild(0), lod);
    EXPECT_EQ(lod->getChild(0), child);
    EXPECT_EQ(root->getChild(0)->asGroup()->getChild(0), child);
}

TEST(FlattenUselessLODs, GivesBackARootThatNobodyHolds) {
    osg::Group* root = new osg::Group;
    root->addChild(makeLOD(new osg::Group, 0.0f, 20000.0f));

    flatten(root);

    ASSERT_EQ(root->referenceCount(), 0);
    EXPECT_STREQ(root->getChild(0)->className(), "Group");
    const osg::ref_ptr<osg::Group> deletesIt = root;
}

TEST(FlattenUselessLODs, IgnoresANullNode) {
    flatten(nullptr);
}

TEST(FlattenUselessLODs, ReplacesInASecondRunWhatAWiderLODAboveKept) {
    const auto inner = makeLOD(new osg::Group, 0.0f, 20000.0f);
    const auto root = makeGroup({makeLOD(inner, -1.0f, 30000.0f)});

    flatten(root);
    EXPECT_TRUE(isUnder(*inner, *root));
    flatten(root);
    EXPECT_FALSE(isUnder(*inner, *root));
}

TEST(FlattenUselessLODs, MakesTheGraphThatTheLiteralStepsMake) {
    int changed = 0;
    for (unsigned int seed = 0; seed < 2000; ++seed) {
        const BatchGraphSettings settings = {seed, 10 + seed % 50, seed % 4 * 10, 60, seed % 2 == 1};
        const osg::ref_ptr<osg::Group> ours = makeRandomBatchGraph(settings), literal = makeRandomBatchGraph(settings);
        const std::string before = describeGraph(*ours);
        ASSERT_EQ(before, describeGraph(*literal));

        flatten(ours);
        LiteralUselessLODs::process(*literal, 0.0f, 20000.0f);

        const std::string after = describeGraph(*ours);
        ASSERT_EQ(after, describeGraph(*literal)) << "seed " << seed;
        changed += after != before ? 1 : 0;
    }
    EXPECT_GT(changed, 1500);
}

TEST(FlattenUselessLODs, ReplacesManySiblingsEachInItsPlace) {
    const auto root = makeGroup();
    std::vector<osg::ref_ptr<osg::Node>> models;
    for (int i = 0; i < 1000; ++i) {
        models.push_back(makePairGeode(osg::Vec3(static_cast<float>(i), 0, 0)));
        root->addChild(i % 3 == 0 ? models.back() : osg::ref_ptr<osg::Node>(makeLOD(models.back(), 0.0f, 20000.0f)));
    }

    flatten(root);

    ASSERT_EQ(root->getNumChildren(), 1000u);
    for (unsigned int i = 0; i < 1000; ++i) {
        osg::Node* child = root->getChild(i);
        ASSERT_EQ(i % 3 == 0 ? child : child->asGroup()->getChild(0), models[i].get());
    }
}

TEST(FlattenUselessLODs, CopiesEverySettingAndWhatItHasNoted) {
    const auto root = makeGroup({makeLOD(new osg::Group, 0.0f, 9.0f)});
    OpenFlattenUselessLODs original(2.0f, 3.0f);
    root->accept(original);
    changeEverySetting(original);

    const OpenFlattenUselessLODs copy(original);
    OpenFlattenUselessLODs assigned(0.0f, 0.0f);
    const FlattenUselessLODs& result = assigned = original;

    for (const OpenFlattenUselessLODs* each : {&copy, static_cast<const OpenFlattenUselessLODs*>(&assigned)}) {
        expectEqualSettings(*each, original);
        EXPECT_EQ(each->_currentMinRange, 2.0f);
        EXPECT_EQ(each->_currentMaxRange, 3.0f);
        EXPECT_EQ(each->_uselessLODs, original._uselessLODs);
    }
    EXPECT_EQ(original._uselessLODs.size(), 1u);
    EXPECT_EQ(&result, &assigned);
}
