#include <sceneutils/UnspatializeSmallAreas.h>

#include "support/GraphDescription.h"
#include "support/LiteralUnspatializing.h"
#include "support/PointModels.h"
#include "support/RandomBatchGraph.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/Billboard>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osg/PositionAttitudeTransform>
#include <osg/Switch>

#include <cmath>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using veltrane::sceneutils::LODMerger;
using veltrane::sceneutils::UnspatializeSmallAreas;

namespace {

static_assert(std::is_base_of_v<osg::NodeVisitor, UnspatializeSmallAreas>);
static_assert(std::has_virtual_destructor_v<UnspatializeSmallAreas>);
static_assert(std::is_copy_constructible_v<UnspatializeSmallAreas>);
static_assert(std::is_copy_assignable_v<UnspatializeSmallAreas>);

using Nodes = std::vector<osg::ref_ptr<osg::Node>>;

const osg::LOD::RangeList twoRanges = {{0.0f, 100.0f}, {100.0f, 1000.0f}};

template <typename GroupType = osg::Group>
osg::ref_ptr<GroupType> make(const Nodes& children = {}, const std::string& name = "") {
    osg::ref_ptr<GroupType> group = new GroupType;
    group->setName(name);
    for (const osg::ref_ptr<osg::Node>& child : children) group->addChild(child);
    return group;
}

osg::ref_ptr<osg::Node> makeLeaf(const std::string& name) {
    osg::ref_ptr<osg::Node> leaf = new osg::Node;
    leaf->setName(name);
    return leaf;
}

template <typename LODType = osg::LOD>
osg::ref_ptr<LODType> makeLOD(const Nodes& children, const osg::LOD::RangeList& ranges = twoRanges) {
    const osg::ref_ptr<LODType> lod = make<LODType>(children, "lod");
    lod->setRangeList(ranges);
    return lod;
}

/** An LOD of two levels, leaves called after it. */
osg::ref_ptr<osg::LOD> makeNamedLOD(const std::string& name, const osg::LOD::RangeList& ranges = twoRanges) {
    return makeLOD({makeLeaf(name + "1"), makeLeaf(name + "2")}, ranges);
}

/** A group whose bound has that radius. */
osg::ref_ptr<osg::Group> makeGroupOfRadius(float radius, const std::string& name = "") {
    return make({makePoints({osg::Vec3(-radius, 0, 0), osg::Vec3(radius, 0, 0)})}, name);
}

/** "(a, new lod(b))": the names, or else nothing, and what hangs below. */
std::string describe(const osg::Node& node) {
    std::string text = node.getName();
    const osg::Group* group = node.asGroup();
    if (!group) return text;
    text += "(";
    for (unsigned int i = 0; i < group->getNumChildren(); ++i)
        text += (i > 0 ? ", " : "") + describe(*group->getChild(i));
    return text + ")";
}

void unspatialize(osg::Node& root, double radius = 10.0) {
    UnspatializeSmallAreas::process(&root, radius);
}

/** Whether a small group below that parent is dissolved. */
bool isDissolvedBelow(const osg::ref_ptr<osg::Group>& parent) {
    const osg::ref_ptr<osg::Group> group = makeGroupOfRadius(5.0f);
    parent->addChild(group);
    unspatialize(*parent);
    return group->getNumParents() == 0;
}

/** One round over a group in which each of two levels of detail stands in a small group. */
osg::ref_ptr<osg::Group> dissolveOnce(const Nodes& children, double radius = 10.0) {
    const osg::ref_ptr<osg::Group> root = make(children);
    UnspatializeSmallAreas visitor(radius);
    root->accept(visitor);
    visitor.dissolveRecordedGroups();
    return root;
}

}  // namespace

TEST(UnspatializeSmallAreas, VisitsAllChildrenAndHonoursNodeMasks) {
    const UnspatializeSmallAreas visitor(1.0);

    EXPECT_EQ(visitor.getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    EXPECT_EQ(visitor.getNodeMaskOverride(), 0u);
}

TEST(UnspatializeSmallAreas, DissolvesAGroupOfASmallerRadius) {
    const auto group = makeGroupOfRadius(5.0f, "group");
    const auto root = make({group});

    unspatialize(*root, 10.0);

    ASSERT_EQ(root->getNumChildren(), 1u);
    EXPECT_NE(root->getChild(0)->asDrawable(), nullptr);
    EXPECT_EQ(group->getNumChildren(), 0u);
    EXPECT_EQ(group->getNumParents(), 0u);
}

TEST(UnspatializeSmallAreas, KeepsAGroupOfThatRadiusAndOfALargerOne) {
    for (const double radius : {5.0, 4.0, 0.0, -2.0, std::numeric_limits<double>::quiet_NaN()}) {
        const auto root = make({makeGroupOfRadius(5.0f, "group")});
        unspatialize(*root, radius);
        EXPECT_EQ(describe(*root), "(group())") << radius;
    }
}

TEST(UnspatializeSmallAreas, ComparesInDoublePrecision) {
    const auto root = make({makeGroupOfRadius(5.0f, "group")});
    unspatialize(*root, std::nextafter(5.0, 6.0));
    EXPECT_EQ(describe(*root), "()");
}

TEST(UnspatializeSmallAreas, TakesAGroupWithoutABoundForSmall) {
    const auto root = make({make({}, "empty"), make({makeLeaf("leaf")}, "group")});

    unspatialize(*root, -0.5);

    EXPECT_EQ(describe(*root), "(leaf)");
}

TEST(UnspatializeSmallAreas, DissolvesBelowTransformsAndPlainGroupsOnly) {
    struct DerivedGroup : osg::Group {};
    EXPECT_TRUE(isDissolvedBelow(make()));
    EXPECT_TRUE(isDissolvedBelow(make<osg::MatrixTransform>()));
    EXPECT_TRUE(isDissolvedBelow(make<osg::PositionAttitudeTransform>()));
    EXPECT_FALSE(isDissolvedBelow(make<osg::Switch>()));
    EXPECT_FALSE(isDissolvedBelow(make<osg::LOD>()));
    EXPECT_FALSE(isDissolvedBelow(make<osg::Geode>()));
    EXPECT_FALSE(isDissolvedBelow(new DerivedGroup));
}

TEST(UnspatializeSmallAreas, KeepsEveryOtherKindOfGroup) {
    struct DerivedGroup : osg::Group {};
    const Nodes kinds = {new osg::Switch, new osg::LOD, new osg::MatrixTransform, new osg::Geode, new DerivedGroup};
    const auto root = make(kinds);

    unspatialize(*root);

    ASSERT_EQ(root->getNumChildren(), kinds.size());
    for (unsigned int i = 0; i < kinds.size(); ++i) EXPECT_EQ(root->getChild(i), kinds[i]);
}

TEST(UnspatializeSmallAreas, KeepsAGroupWithTwoParents) {
    const auto shared = makeGroupOfRadius(5.0f, "shared");
    const auto root = make({make<osg::Switch>({shared}), make({shared}, "large")});
    root->getChild(1)->asGroup()->addChild(makeGroupOfRadius(20.0f, "large too"));

    unspatialize(*root);

    EXPECT_EQ(shared->getNumParents(), 2u);
}

TEST(UnspatializeSmallAreas, KeepsAGroupThatHangsTwiceBelowOneParent) {
    const auto twice = make({makeLeaf("leaf")}, "twice");
    const auto root = make({twice, twice});

    unspatialize(*root);

    EXPECT_EQ(describe(*root), "(twice(leaf), twice(leaf))");
}

TEST(UnspatializeSmallAreas, AppendsTheChildrenInTheirOrder) {
    const auto root = make({make({makeLeaf("a"), makeLeaf("b")}), makeLeaf("c"), make({makeLeaf("d")}), makeLeaf("e")});

    unspatialize(*root);

    EXPECT_EQ(describe(*root), "(c, e, a, b, d)");
}

TEST(UnspatializeSmallAreas, DissolvesInnerGroupsFirst) {
    const auto inner = make({makeLeaf("a"), makeLeaf("b")});
    const auto root = make({make({inner, makeLeaf("c")}), makeLeaf("d")});

    unspatialize(*root);

    EXPECT_EQ(describe(*root), "(d, c, a, b)");
    EXPECT_EQ(inner->getNumChildren(), 0u);
}

TEST(UnspatializeSmallAreas, DissolvesARootIntoTheGroupAboveIt) {
    const auto root = make({makeLeaf("a")});
    const auto above = make({root, makeLeaf("b")});

    unspatialize(*root);

    EXPECT_EQ(describe(*above), "(b, a)");
    EXPECT_EQ(describe(*root), "()");
}

TEST(UnspatializeSmallAreas, DissolvesARootOnceThatWasVisitedTwice) {
    const auto root = make({makeLeaf("a")});
    const auto above = make({root, makeLeaf("b")});
    UnspatializeSmallAreas visitor(10.0);
    root->accept(visitor);
    root->accept(visitor);

    visitor.dissolveRecordedGroups();

    EXPECT_EQ(describe(*above), "(b, a)");
}

TEST(UnspatializeSmallAreas, DissolvesAGroupIntoTheOneThatItsParentWasDissolvedInto) {
    const auto inner = make({makeLeaf("a")});
    const auto outer = make({inner});
    const auto above = make({outer, makeLeaf("b")});
    UnspatializeSmallAreas visitor(10.0);
    inner->setNodeMask(0);
    outer->accept(visitor);
    inner->setNodeMask(~0u);
    inner->accept(visitor);

    visitor.dissolveRecordedGroups();

    EXPECT_EQ(describe(*above), "(b, a)");
}

TEST(UnspatializeSmallAreas, MergesLODsOfTheSameRanges) {
    const auto root = make({makeNamedLOD("a"), makeLeaf("x"), makeNamedLOD("b")});

    unspatialize(*root);

    EXPECT_EQ(describe(*root), "(x, new lod((a1, b1), (a2, b2)))");
    EXPECT_EQ(dynamic_cast<osg::LOD&>(*root->getChild(1)).getRangeList(), twoRanges);
}

TEST(UnspatializeSmallAreas, KeepsLODsOfOtherRangesSeparate) {
    const auto other = makeNamedLOD("c", {{0.0f, 100.0f}, {100.0f, 999.0f}});
    const auto root = make({makeNamedLOD("a"), other, makeNamedLOD("b"), makeNamedLOD("d", {{0.0f, 100.0f}})});

    unspatialize(*root);

    EXPECT_EQ(describe(*root), "(lod(c1, c2), lod(d1, d2), new lod((a1, b1), (a2, b2)))");
}

TEST(UnspatializeSmallAreas, ComparesRangesExactly) {
    const float scaled = std::nextafter(100.0f, 200.0f);
    const auto root = make({makeNamedLOD("a", {{0.0f, 100.0f}}), makeNamedLOD("b", {{0.0f, scaled}})});

    unspatialize(*root);

    EXPECT_EQ(root->getNumChildren(), 2u);
    EXPECT_EQ(root->getChild(0)->getName(), "lod");
}

TEST(UnspatializeSmallAreas, NeverMergesLODsWhoseRangesAreNotNumbers) {
    const float notANumber = std::numeric_limits<float>::quiet_NaN();
    for (const auto& range : {std::pair(0.0f, notANumber), std::pair(notANumber, 1.0f)}) {
        const auto root = make({makeNamedLOD("a", {range}), makeNamedLOD("b", {range})});
        unspatialize(*root);
        EXPECT_EQ(describe(*root), "(lod(a1, a2), lod(b1, b2))");
    }
}

TEST(UnspatializeSmallAreas, AppendsMergedLODsInTheOrderOfTheirRanges) {
    const osg::LOD::RangeList near = {{0.0f, 1.0f}}, far = {{0.0f, 2.0f}}, farther = {{0.5f, 0.7f}};
    const auto root = make({makeNamedLOD("a", farther), makeNamedLOD("b", far), makeNamedLOD("c", near),
                            makeNamedLOD("d", near), makeNamedLOD("e", far), makeNamedLOD("f", farther)});

    unspatialize(*root);

    EXPECT_EQ(describe(*root), "(new lod((c1, d1)), new lod((b1, e1)), new lod((a1, f1)))");
}

TEST(UnspatializeSmallAreas, GivesAMergedLODTheBoundOfWhatItHolds) {
    const auto root = make({makeLOD({makePairGeode(osg::Vec3(-5, 0, 0))}, {{0.0f, 9.0f}}),
                            makeLOD({makePairGeode(osg::Vec3(3, 0, 0))}, {{0.0f, 9.0f}})});

    unspatialize(*root);

    auto& merged = dynamic_cast<osg::LOD&>(*root->getChild(0));
    EXPECT_EQ(merged.getName(), "new lod");
    EXPECT_EQ(merged.getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
    EXPECT_EQ(merged.getCenter(), osg::Vec3(-1, 0, 0));
    EXPECT_EQ(merged.getRadius(), 5.0f);
    EXPECT_EQ(merged.getBound().center(), osg::Vec3(-1, 0, 0));
    EXPECT_EQ(merged.getBound().radius(), 5.0f);
}

TEST(UnspatializeSmallAreas, GivesAMergedLODTheRangeModeOfTheFirst) {
    for (const auto mode : {osg::LOD::DISTANCE_FROM_EYE_POINT, osg::LOD::PIXEL_SIZE_ON_SCREEN}) {
        const auto first = makeNamedLOD("a"), second = makeNamedLOD("b");
        first->setRangeMode(mode);
        second->setRangeMode(mode == osg::LOD::PIXEL_SIZE_ON_SCREEN ? osg::LOD::DISTANCE_FROM_EYE_POINT
                                                                    : osg::LOD::PIXEL_SIZE_ON_SCREEN);
        const auto root = make({first, second});
        unspatialize(*root);
        EXPECT_EQ(dynamic_cast<osg::LOD&>(*root->getChild(0)).getRangeMode(), mode);
    }
}

TEST(UnspatializeSmallAreas, LeavesMergedLODsEmpty) {
    const auto lod = makeNamedLOD("a");
    const auto root = make({lod, makeNamedLOD("b")});

    unspatialize(*root);

    EXPECT_EQ(lod->getNumChildren(), 0u);
    EXPECT_EQ(lod->getNumParents(), 0u);
}

TEST(UnspatializeSmallAreas, MergesPlainLODsOfOneParentOnly) {
    struct DerivedLOD : osg::LOD {};
    const auto shared = makeNamedLOD("shared");
    const osg::ref_ptr<osg::LOD> derived = new DerivedLOD;
    derived->setRangeList(twoRanges);
    const auto root = make({makeNamedLOD("a"), shared, makeLOD<osg::PagedLOD>({}), derived});
    const auto elsewhere = make({shared});

    unspatialize(*root);

    EXPECT_EQ(describe(*root), "(lod(a1, a2), lod(shared1, shared2), lod(), ())");
}

TEST(UnspatializeSmallAreas, SkipsLevelsThatAnLODDoesNotHave) {
    const auto root = make({makeLOD({makeLeaf("a1")}), makeNamedLOD("b")});

    unspatialize(*root);

    EXPECT_EQ(describe(*root), "(new lod((a1, b1), (b2)))");
}

TEST(UnspatializeSmallAreas, DropsChildrenThatHaveNoRangeAndWereNeverShown) {
    const auto root =
        make({makeLOD({makeLeaf("a1"), makeLeaf("a2")}, {{0.0f, 1.0f}}), makeLOD({makeLeaf("b1")}, {{0.0f, 1.0f}})});

    unspatialize(*root);

    EXPECT_EQ(describe(*root), "(new lod((a1, b1)))");
}

TEST(UnspatializeSmallAreas, MergesTheLODsOfASmallGroupThatIsNotDissolved) {
    for (osg::Group* kind : {static_cast<osg::Group*>(new osg::Switch), static_cast<osg::Group*>(new osg::LOD)}) {
        const osg::ref_ptr<osg::Group> parent = kind;
        parent->addChild(make({makeNamedLOD("a"), makeNamedLOD("b")}, "group"));
        unspatialize(*parent);
        EXPECT_EQ(describe(*parent), "(group(new lod((a1, b1), (a2, b2))))");
    }
}

TEST(UnspatializeSmallAreas, MergesNoLODsInALargeGroupThatReceivesNothing) {
    const auto root = make({makeNamedLOD("a"), makeNamedLOD("b"), makeGroupOfRadius(20.0f)});

    unspatialize(*root);

    EXPECT_EQ(describe(*root), "(lod(a1, a2), lod(b1, b2), ())");
}

TEST(UnspatializeSmallAreas, MergesTheLODsOfAGroupOrTransformThatReceivesSome) {
    for (const osg::ref_ptr<osg::Group>& receiver : {make(), osg::ref_ptr<osg::Group>(new osg::MatrixTransform)}) {
        receiver->addChild(makeNamedLOD("a"));
        receiver->addChild(make({makeNamedLOD("b")}));
        receiver->addChild(makeGroupOfRadius(20.0f));
        unspatialize(*receiver);
        EXPECT_EQ(describe(*receiver), "((), new lod((a1, b1), (a2, b2)))");
    }
}

TEST(UnspatializeSmallAreas, MergesAgainAfterEachGroupSoThatTheFirstMergedNestDeepest) {
    const auto large = makeGroupOfRadius(20.0f);
    const auto root = dissolveOnce(
        {make({makeNamedLOD("a")}), make({makeNamedLOD("b")}), large, make({makeNamedLOD("c")}), makeNamedLOD("d")});

    EXPECT_EQ(describe(*root), "((), new lod((((d1, a1), b1), c1), (((d2, a2), b2), c2)))");
}

TEST(UnspatializeSmallAreas, DissolvesNewGroupsInASecondRound) {
    const auto root = make({make({makeNamedLOD("a")}), make({makeNamedLOD("b")}), make({makeNamedLOD("c")})});

    unspatialize(*root);

    EXPECT_EQ(describe(*root), "(new lod((c1, a1, b1), (c2, a2, b2)))");
}

TEST(UnspatializeSmallAreas, ForgetsTheGroupsThatWereDissolved) {
    const auto root = make({make({makeLeaf("a")}, "group")});
    UnspatializeSmallAreas visitor(10.0);
    root->accept(visitor);
    visitor.dissolveRecordedGroups();
    root->addChild(make({makeLeaf("b")}, "later"));

    visitor.dissolveRecordedGroups();

    EXPECT_EQ(describe(*root), "(a, later(b))");
}

TEST(UnspatializeSmallAreas, ChangesNoPlacesDuringTheVisit) {
    const auto root = make({make({makeLeaf("a")}, "group")});
    UnspatializeSmallAreas visitor(10.0);

    root->accept(visitor);

    EXPECT_EQ(describe(*root), "(group(a))");
}

TEST(UnspatializeSmallAreas, SurvivesGroupsThatVanishBetweenVisitAndDissolving) {
    const auto root = make({make({make({makeLeaf("a")})})});
    UnspatializeSmallAreas visitor(10.0);
    root->accept(visitor);
    root->removeChildren(0, 1);

    visitor.dissolveRecordedGroups();

    EXPECT_EQ(describe(*root), "()");
}

TEST(UnspatializeSmallAreas, LeavesHiddenGroupsAlone) {
    const auto hidden = make({makeLeaf("a")}, "hidden");
    hidden->setNodeMask(0);
    const auto root = make({hidden});

    unspatialize(*root);

    EXPECT_EQ(describe(*root), "(hidden(a))");
}

TEST(UnspatializeSmallAreas, GivesBackARootThatNobodyHolds) {
    osg::Group* root = new osg::Group;
    root->addChild(make({makeLeaf("a")}));

    unspatialize(*root);

    ASSERT_EQ(root->referenceCount(), 0);
    EXPECT_EQ(describe(*root), "(a)");
    const osg::ref_ptr<osg::Group> deletesIt = root;
}

TEST(UnspatializeSmallAreas, IgnoresANullNode) {
    UnspatializeSmallAreas::process(nullptr, 1.0);
}

TEST(UnspatializeSmallAreas, MakesTheGraphThatTheLiteralStepsMake) {
    int merged = 0;
    for (unsigned int seed = 0; seed < 2000; ++seed) {
        const BatchGraphSettings settings = {seed, 10 + seed % 70, seed % 5 * 8, 20 + seed % 3 * 15, seed % 2 == 1};
        const double radius = 10.0 * (1 + seed % 14);
        const osg::ref_ptr<osg::Group> ours = makeRandomBatchGraph(settings), literal = makeRandomBatchGraph(settings);
        const auto aboveOurs = make({makeNamedLOD("above"), ours}),
                   aboveLiteral = make({makeNamedLOD("above"), literal});

        unspatialize(*ours, radius);
        LiteralUnspatializing::process(*literal, radius);

        const std::string after = describeGraph(*aboveOurs);
        ASSERT_EQ(after, describeGraph(*aboveLiteral)) << "seed " << seed;
        merged += after.find("'new lod'") != std::string::npos ? 1 : 0;
    }
    EXPECT_GT(merged, 800);
}

TEST(UnspatializeSmallAreas, NestsMergedLODsAsFarAsTheLiteralStepsAndNoDeeperThanGraphsMayBe) {
    const unsigned int count = LODMerger::deepestNesting + 100;
    const auto root = make({makeGroupOfRadius(2000.0f)});
    for (unsigned int i = 0; i < count; ++i) {
        const osg::Vec3 centre(static_cast<float>(i), 0, 0);
        root->addChild(make({makeLOD({makePairGeode(centre)}, {{0.0f, 9.0f}})}));
    }

    unspatialize(*root, 2.0);

    ASSERT_EQ(root->getNumChildren(), 2u);
    const auto& merged = dynamic_cast<osg::LOD&>(*root->getChild(1));
    const osg::Group* level = merged.getChild(0)->asGroup();
    EXPECT_EQ(level->getNumChildren(), 101u);
    unsigned int depth = 0;
    for (; level && level->getNumChildren() > 1; level = level->getChild(0)->asGroup()) ++depth;
    EXPECT_GE(depth, LODMerger::deepestNesting - 10);
    EXPECT_NEAR(merged.getRadius(), static_cast<float>(count) / 2.0f, 2.0f);
}

TEST(UnspatializeSmallAreas, CopiesEverySettingRadiusAndRecordedGroups) {
    const auto root = make({make({makeLeaf("a")})});
    UnspatializeSmallAreas original(10.0);
    root->accept(original);
    changeEverySetting(original);

    UnspatializeSmallAreas copy(original);
    UnspatializeSmallAreas assigned(0.0);
    const UnspatializeSmallAreas& result = assigned = original;

    expectEqualSettings(copy, original);
    expectEqualSettings(assigned, original);
    EXPECT_EQ(&result, &assigned);
    copy.dissolveRecordedGroups();
    EXPECT_EQ(describe(*root), "(a)");
    root->addChild(make({makeLeaf("b")}));
    UnspatializeSmallAreas fresh(0.0);
    fresh = UnspatializeSmallAreas(10.0);
    root->accept(fresh);
    fresh.dissolveRecordedGroups();
    EXPECT_EQ(describe(*root), "(a, b)");
}
