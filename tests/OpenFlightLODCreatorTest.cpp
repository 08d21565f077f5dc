#include <sceneutils/OpenFlightLODCreator.h>

#include "support/FlightFiles.h"
#include "support/Graphs.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/Billboard>
#include <osg/MatrixTransform>
#include <osg/Switch>
#include <osgDB/ReadFile>
#include <osgSim/MultiSwitch>

#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using veltrane::sceneutils::OpenFlightLODCreator;

namespace {

static_assert(std::is_base_of_v<osg::NodeVisitor, OpenFlightLODCreator>);
static_assert(std::has_virtual_destructor_v<OpenFlightLODCreator>);
static_assert(std::is_copy_constructible_v<OpenFlightLODCreator> && std::is_copy_assignable_v<OpenFlightLODCreator>);

constexpr const char* unreadable = "Error reading LOS_Transition_Range value\n";

template <typename NodeType = osg::Group>
osg::ref_ptr<NodeType> make(const std::string& name, const std::vector<std::string>& descriptions = {}) {
    osg::ref_ptr<NodeType> node = new NodeType;
    node->setName(name);
    for (const std::string& description : descriptions) node->addDescription(description);
    return node;
}

osg::ref_ptr<osg::Group> makeParent(osg::Node* child, const std::string& name = "root") {
    osg::ref_ptr<osg::Group> parent = make(name);
    parent->addChild(child);
    return parent;
}

void create(osg::Node& root) {
    OpenFlightLODCreator creator;
    creator.process(&root);
}

/** "root(LOD(tree 0-50), x)": the names, LODs by their kind and their ranges; drawables are left out. */
std::string describe(const osg::Node& node) {
    std::ostringstream text;
    const auto* lod = dynamic_cast<const osg::LOD*>(&node);
    text << (lod && node.getName().empty() ? "LOD" : node.getName());
    const osg::Group* group = node.asGeode() ? nullptr : node.asGroup();
    if (!group || group->getNumChildren() == 0) return text.str();

    text << "(";
    for (unsigned int i = 0; i < group->getNumChildren(); ++i) {
        text << (i > 0 ? ", " : "") << describe(*group->getChild(i));
        if (lod) text << " " << lod->getMinRange(i) << "-" << lod->getMaxRange(i);
    }
    text << ")";
    return text.str();
}

/** What becomes of a group with that description, what is left of the description, and what is reported. */
struct Outcome {
    std::string graph;
    std::string description;
    std::string report;
};

bool operator==(const Outcome& a, const Outcome& b) {
    return a.graph == b.graph && a.description == b.description && a.report == b.report;
}

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << outcome.graph << ", \"" << outcome.description << "\" left, reported: \"" << outcome.report << "\"";
}

Outcome outcomeOf(const std::string& description) {
    const auto group = make("group", {description});
    const auto root = makeParent(group);
    const StandardError standardError;
    create(*root);
    return {describe(*root), group->getDescription(0), standardError.text()};
}

Outcome lodUpTo(const std::string& farRange) {
    return {"root(LOD(group 0-" + farRange + "))", "", ""};
}

Outcome ignored(const std::string& description) {
    return {"root(group)", description, ""};
}

Outcome notRead(const std::string& description) {
    return {"root(group)", description, unreadable};
}

/** Makes a locale the global one for the length of a scope. */
class GlobalLocale {
public:
    explicit GlobalLocale(const std::locale& locale) : _own(std::locale::global(locale)) {}
    ~GlobalLocale() { std::locale::global(_own); }
    GlobalLocale(const GlobalLocale&) = delete;
    GlobalLocale& operator=(const GlobalLocale&) = delete;

private:
    std::locale _own;
};

struct DecimalComma : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

}  // namespace

TEST(OpenFlightLODCreator, WalksTheGraphItself) {
    EXPECT_EQ(OpenFlightLODCreator().getTraversalMode(), osg::NodeVisitor::TRAVERSE_NONE);
    EXPECT_EQ(OpenFlightLODCreator().getNodeMaskOverride(), 0u);
}

TEST(OpenFlightLODCreator, ShowsAHintedGroupUpToFiveTimesTheNumber) {
    const auto tree = make("tree", {"LOD_Transition_Range 12.5"});
    const auto root = makeParent(tree);

    create(*root);

    EXPECT_EQ(describe(*root), "root(LOD(tree 0-62.5))");
    ASSERT_EQ(tree->getNumParents(), 1u);
    const osg::Node* lod = root->getChild(0);
    EXPECT_STREQ(lod->className(), "LOD");
    EXPECT_EQ(lod->getName(), "");
    EXPECT_EQ(lod->referenceCount(), 1) << "it belongs to the graph";
    EXPECT_EQ(tree->getParent(0), lod);
}

TEST(OpenFlightLODCreator, LeavesAGraphWithoutHintsAlone) {
    const auto root = makeParent(make("a", {"a comment"}));
    root->addChild(make("b"));
    const StandardError standardError;

    create(*root);

    EXPECT_EQ(describe(*root), "root(a, b)");
    EXPECT_EQ(root->getChild(1)->getUserDataContainer(), nullptr);
    EXPECT_EQ(standardError.text(), "");
}

TEST(OpenFlightLODCreator, EmptiesTheDescriptionAndKeepsItsPlace) {
    const auto group = make("group", {"first", "LOD_Transition_Range 1", "", "last"});
    const auto root = makeParent(group);

    create(*root);

    EXPECT_THAT(group->getDescriptions(), ElementsAre("first", "", "", "last"));
    EXPECT_EQ(describe(*root), "root(LOD(group 0-5))");
}

TEST(OpenFlightLODCreator, ReadsTheFirstTwoWordsOfADescription) {
    EXPECT_EQ(outcomeOf("LOD_Transition_Range 10"), lodUpTo("50"));
    EXPECT_EQ(outcomeOf(" \t\nLOD_Transition_Range\t \n10"), lodUpTo("50"));
    EXPECT_EQ(outcomeOf("LOD_Transition_Range 10 and more text"), lodUpTo("50"));
    EXPECT_EQ(outcomeOf("LOD_Transition_Range 10 20"), lodUpTo("50"));
    EXPECT_EQ(outcomeOf("LOD_Transition_Range 10m"), lodUpTo("50"));
}

TEST(OpenFlightLODCreator, TakesAnyNumber) {
    EXPECT_EQ(outcomeOf("LOD_Transition_Range 0"), lodUpTo("0"));
    EXPECT_EQ(outcomeOf("LOD_Transition_Range -3"), lodUpTo("-15"));
    EXPECT_EQ(outcomeOf("LOD_Transition_Range +.5"), lodUpTo("2.5"));
    EXPECT_EQ(outcomeOf("LOD_Transition_Range 1e3"), lodUpTo("5000"));
    EXPECT_EQ(outcomeOf("LOD_Transition_Range 3e38"), lodUpTo("inf"));
}

TEST(OpenFlightLODCreator, IgnoresAndKeepsOtherDescriptions) {
    for (const char* description :
         {"", "   ", "tree", "lod_transition_range 10", "LOD_TRANSITION_RANGE 10", "LOD_Transition_RangeX 10",
          "LOD_Transition_Range: 10", "LOD_Transition_Range10", "XLOD_Transition_Range 10", "LOD_Transition_Rang 10",
          "the LOD_Transition_Range 10", "LOS_Transition_Range 10", "\"LOD_Transition_Range\" 10"}) {
        EXPECT_EQ(outcomeOf(description), ignored(description));
    }
}

TEST(OpenFlightLODCreator, ReportsAndKeepsAHintWithoutAReadableNumber) {
    for (const char* description :
         {"LOD_Transition_Range abc", "LOD_Transition_Range", "LOD_Transition_Range ", "LOD_Transition_Range = 10",
          "LOD_Transition_Range ,5", "LOD_Transition_Range nan", "LOD_Transition_Range inf"}) {
        EXPECT_EQ(outcomeOf(description), notRead(description));
    }
}

TEST(OpenFlightLODCreator, ReadsANumberOfSinglePrecision) {
    EXPECT_EQ(outcomeOf("LOD_Transition_Range 1e50"), notRead("LOD_Transition_Range 1e50"));

    const auto root = makeParent(make("group", {"LOD_Transition_Range 0.1"}));
    create(*root);

    EXPECT_EQ(static_cast<osg::LOD*>(root->getChild(0))->getMaxRange(0), 0.1f * 5.0f);
}

TEST(OpenFlightLODCreator, ReadsADecimalPointWhateverTheApplicationsLocale) {
    const GlobalLocale locale(std::locale(std::locale::classic(), new DecimalComma));

    EXPECT_EQ(outcomeOf("LOD_Transition_Range 12.5").report, "");
    const auto root = makeParent(make("group", {"LOD_Transition_Range 1234.5"}));
    create(*root);

    EXPECT_EQ(static_cast<osg::LOD*>(root->getChild(0))->getMaxRange(0), 6172.5f);
}

TEST(OpenFlightLODCreator, GoesOnBehindAHintThatItCannotRead) {
    const auto group = make("group", {"LOD_Transition_Range x", "LOD_Transition_Range y", "LOD_Transition_Range 2"});
    const auto root = makeParent(group);
    const StandardError standardError;

    create(*root);

    EXPECT_EQ(describe(*root), "root(LOD(group 0-10))");
    EXPECT_THAT(group->getDescriptions(), ElementsAre("LOD_Transition_Range x", "LOD_Transition_Range y", ""));
    EXPECT_EQ(standardError.text(), std::string(unreadable) + unreadable);
}

TEST(OpenFlightLODCreator, MakesAnLODForEachHintTheFirstOneOutermost) {
    const auto group = make("group", {"LOD_Transition_Range 10", "a comment", "LOD_Transition_Range 2"});
    const auto root = makeParent(group);
    create(*root);
    EXPECT_EQ(describe(*root), "root(LOD(LOD(group 0-10) 0-50))");
    EXPECT_THAT(group->getDescriptions(), ElementsAre("", "a comment", ""));

    group->setDescriptions({"LOD_Transition_Range 1", "LOD_Transition_Range 3", "LOD_Transition_Range 2"});
    create(*root);
    EXPECT_EQ(describe(*root), "root(LOD(LOD(LOD(LOD(LOD(group 0-10) 0-15) 0-5) 0-10) 0-50))");
}

TEST(OpenFlightLODCreator, AppendsTheLODBehindTheOtherChildren) {
    const auto root = makeParent(make("a"));
    for (const char* name : {"b", "c"}) root->addChild(make(name, {"LOD_Transition_Range 1"}));
    root->addChild(make("d"));

    create(*root);

    EXPECT_EQ(describe(*root), "root(a, d, LOD(b 0-5), LOD(c 0-5))");
}

TEST(OpenFlightLODCreator, FindsHintsAtEveryDepth) {
    const auto inner = make("inner", {"LOD_Transition_Range 1"});
    const auto outer = make("outer", {"LOD_Transition_Range 2"});
    outer->addChild(makeParent(inner, "between"));
    const auto root = makeParent(outer);

    create(*root);

    EXPECT_EQ(describe(*root), "root(LOD(outer(between(LOD(inner 0-5))) 0-10))");
}

TEST(OpenFlightLODCreator, FindsAHintOnAGroupWhoseParentIsHinted) {
    const auto inner = make("inner", {"LOD_Transition_Range 1"});
    const auto outer = make("outer", {"LOD_Transition_Range 2"});
    outer->addChild(inner);
    outer->addChild(make("sibling"));
    const auto root = makeParent(outer);

    create(*root);

    EXPECT_EQ(describe(*root), "root(LOD(outer(sibling, LOD(inner 0-5)) 0-10))");
}

TEST(OpenFlightLODCreator, HandsOnTheRangeThatTheGroupHadInAnLOD) {
    const auto lod = make<osg::LOD>("lod");
    lod->addChild(make("near", {"LOD_Transition_Range 1"}), 0, 100);
    lod->addChild(make("far"), 100, 2000);
    const auto root = makeParent(lod);

    create(*root);

    EXPECT_EQ(describe(*root), "root(lod(far 100-2000, LOD(near 0-5) 0-100))");
    EXPECT_EQ(lod->getNumRanges(), 2u);
}

TEST(OpenFlightLODCreator, HandsOnNoRangeWhereTheGroupHadNone) {
    const auto lod = make<osg::LOD>("lod");
    lod->addChild(make("only"), 10, 20);
    lod->osg::Group::insertChild(1, make("hinted", {"LOD_Transition_Range 1"}));
    ASSERT_EQ(lod->getNumRanges(), 1u);

    create(*makeParent(lod));

    EXPECT_EQ(describe(*lod), "lod(only 10-20, LOD(hinted 0-5) 20-20)") << "as osg::LOD appends";
}

TEST(OpenFlightLODCreator, GivesTheLODWhatASwitchGivesNewChildren) {
    const auto choice = make<osg::Switch>("switch");
    choice->addChild(make("hinted", {"LOD_Transition_Range 1"}), false);
    choice->addChild(make("off"), false);

    create(*makeParent(choice));

    EXPECT_EQ(describe(*choice), "switch(off, LOD(hinted 0-5))");
    EXPECT_FALSE(choice->getValue(0));
    EXPECT_TRUE(choice->getValue(1));
}

template <typename GroupType>
class OpenFlightLODCreatorOnGroups : public testing::Test {};

using GroupTypes = testing::Types<osg::Group, osg::Transform, osg::MatrixTransform, osg::Switch, osg::LOD,
                                  osg::ProxyNode, osgSim::MultiSwitch>;
TYPED_TEST_SUITE(OpenFlightLODCreatorOnGroups, GroupTypes);

TYPED_TEST(OpenFlightLODCreatorOnGroups, ReadsTheirHintsAndVisitsTheirChildren) {
    const auto group = make<TypeParam>("group", {"LOD_Transition_Range 1"});
    group->addChild(make("child", {"LOD_Transition_Range 2"}));
    const auto root = makeParent(group);

    create(*root);

    ASSERT_NE(root->getChild(0), group);
    EXPECT_EQ(describe(*root->getChild(0)->asGroup()).substr(0, 10), "LOD(group(");
    EXPECT_STREQ(group->getChild(0)->className(), "LOD");
}

TEST(OpenFlightLODCreator, LeavesHintedGeodesAndBillboardsUntouched) {
    const auto geode = make<osg::Geode>("geode", {"LOD_Transition_Range 1", "LOD_Transition_Range x"});
    const auto billboard = make<osg::Billboard>("billboard", {"LOD_Transition_Range 1"});
    geode->addChild(make("below", {"LOD_Transition_Range 1"}));
    const auto root = makeParent(geode);
    root->addChild(billboard);
    const StandardError standardError;

    create(*root);

    EXPECT_EQ(describe(*root), "root(geode, billboard)");
    EXPECT_THAT(geode->getDescriptions(), ElementsAre("LOD_Transition_Range 1", "LOD_Transition_Range x"));
    EXPECT_THAT(billboard->getDescriptions(), ElementsAre("LOD_Transition_Range 1"));
    EXPECT_EQ(geode->getChild(0)->getNumParents(), 1u);
    EXPECT_EQ(standardError.text(), "");
}

TEST(OpenFlightLODCreator, LeavesHintedLeavesUntouched) {
    const auto root = makeParent(make<osg::Node>("node", {"LOD_Transition_Range 1"}));
    const auto square = makeSquare();
    square->setName("square");
    square->addDescription("LOD_Transition_Range 1");
    root->addChild(square);

    create(*root);

    EXPECT_EQ(describe(*root), "root(node, square)");
    EXPECT_EQ(square->getDescription(0), "LOD_Transition_Range 1");
}

TEST(OpenFlightLODCreator, DoesNotLookAtWhatTheMasksExclude) {
    const auto hidden = make("hidden", {"LOD_Transition_Range 1"});
    hidden->setNodeMask(0);
    const auto root = makeParent(hidden);

    create(*root);

    EXPECT_EQ(describe(*root), "root(hidden)");
}

TEST(OpenFlightLODCreator, ReplacesASharedGroupInTheFirstOfItsPlaces) {
    const auto shared = make("shared", {"LOD_Transition_Range 1"});
    const auto root = makeParent(makeParent(shared, "a"));
    root->addChild(makeParent(shared, "b"));

    create(*root);

    EXPECT_EQ(describe(*root), "root(a(LOD(shared 0-5)), b(shared))");
}

TEST(OpenFlightLODCreator, KeepsTheHintOfAnotherNodeThatSharesTheDescriptions) {
    const auto group = make("group", {"LOD_Transition_Range 1"});
    const auto root = makeParent(group);
    const osg::ref_ptr<osg::Group> copy = new osg::Group(*group);  // a shallow copy
    root->addChild(copy);
    ASSERT_EQ(copy->getUserDataContainer(), group->getUserDataContainer());

    create(*root);

    EXPECT_EQ(describe(*root), "root(LOD(group 0-5), LOD(group 0-5))");
    EXPECT_EQ(group->getDescription(0), "");
    EXPECT_EQ(copy->getDescription(0), "");
}

TEST(OpenFlightLODCreator, KeepsTheUserData) {
    const osg::ref_ptr<osg::Group> userData = new osg::Group;
    const auto group = make("group", {"LOD_Transition_Range 1"});
    group->setUserData(userData);
    const osg::ref_ptr<osg::Group> copy = new osg::Group(*group);

    create(*makeParent(group));

    EXPECT_EQ(group->getUserData(), userData);
    EXPECT_EQ(copy->getUserData(), userData);
}

TEST(OpenFlightLODCreator, UsesUpAHintOnARootWithoutAnyEffect) {
    const auto root = make("root", {"LOD_Transition_Range 1", "LOD_Transition_Range 2"});
    root->addChild(make("child", {"LOD_Transition_Range 3"}));
    const StandardError standardError;

    create(*root);

    EXPECT_EQ(describe(*root), "root(LOD(child 0-15))");
    EXPECT_THAT(root->getDescriptions(), ElementsAre("", ""));
    EXPECT_EQ(root->getNumParents(), 0u);
    EXPECT_EQ(root->referenceCount(), 1) << "no LOD holds it";
    EXPECT_EQ(standardError.text(), "");
}

TEST(OpenFlightLODCreator, LeavesARootAliveThatNobodyHolds) {
    osg::Group* root = make("root", {"LOD_Transition_Range 1"}).release();

    create(*root);

    EXPECT_EQ(root->referenceCount(), 0);
    const osg::ref_ptr<osg::Group> released = root;
}

TEST(OpenFlightLODCreator, ReplacesAHintedStartBelowItsParent) {
    const auto start = make("start", {"LOD_Transition_Range 1"});
    const auto world = makeParent(start, "world");

    create(*start);

    EXPECT_EQ(describe(*world), "world(LOD(start 0-5))");
}

TEST(OpenFlightLODCreator, IgnoresANullNodeAndALeaf) {
    OpenFlightLODCreator().process(nullptr);
    create(*make<osg::Node>("node", {"LOD_Transition_Range 1"}));
    create(*make<osg::Geode>("geode", {"LOD_Transition_Range 1"}));
}

TEST(OpenFlightLODCreator, ChangesTheGraphOnlyWhenTheLODsAreAssigned) {
    const auto group = make("group", {"LOD_Transition_Range 1"});
    const auto root = makeParent(group);
    OpenFlightLODCreator creator;

    root->accept(creator);
    EXPECT_EQ(describe(*root), "root(group)");
    ASSERT_EQ(group->getNumParents(), 2u);
    EXPECT_EQ(group->getParent(0), root);
    EXPECT_EQ(describe(*group->getParent(1)), "LOD(group 0-5)");

    creator.assignLODs();
    EXPECT_EQ(describe(*root), "root(LOD(group 0-5))");
}

TEST(OpenFlightLODCreator, AssignsNothingASecondTime) {
    const auto root = makeParent(make("group", {"LOD_Transition_Range 1", "LOD_Transition_Range 2"}));
    OpenFlightLODCreator creator;
    creator.process(root);

    creator.process(root);
    creator.assignLODs();

    EXPECT_EQ(describe(*root), "root(LOD(LOD(group 0-10) 0-5))");
}

TEST(OpenFlightLODCreator, ReplacesASharedGroupInItsNextPlaceTheNextTime) {
    const auto shared = make("shared", {"LOD_Transition_Range 1"});
    const auto root = makeParent(makeParent(shared, "a"));
    root->addChild(makeParent(shared, "b"));
    OpenFlightLODCreator creator;
    creator.process(root);

    creator.assignLODs();

    EXPECT_EQ(describe(*root), "root(a(LOD(shared 0-5)), b(LOD(shared 0-5)))");
}

TEST(OpenFlightLODCreator, MayBeUsedAgainWhenTheFormerGraphIsGone) {
    OpenFlightLODCreator creator;
    creator.process(makeParent(make("gone", {"LOD_Transition_Range 1"})));
    const auto root = makeParent(make("group", {"LOD_Transition_Range 2"}));

    creator.process(root);

    EXPECT_EQ(describe(*root), "root(LOD(group 0-10))");
}

TEST(OpenFlightLODCreator, LeavesAnLODAloneThatWasTakenOutOfTheGraph) {
    const auto root = makeParent(make("group", {"LOD_Transition_Range 1"}));
    OpenFlightLODCreator creator;
    creator.process(root);
    const osg::ref_ptr<osg::Node> lod = root->getChild(0);
    root->removeChild(lod);

    creator.assignLODs();

    EXPECT_EQ(describe(*root), "root");
    EXPECT_EQ(describe(*lod), "LOD(group 0-5)");
}

TEST(OpenFlightLODCreator, PassesOverAnLODThatHasLostItsGroup) {
    const auto root = makeParent(make("group", {"LOD_Transition_Range 1"}));
    OpenFlightLODCreator creator;
    creator.process(root);
    root->getChild(0)->asGroup()->removeChildren(0, 1);

    creator.assignLODs();

    EXPECT_EQ(describe(*root), "root(LOD)");
}

TEST(OpenFlightLODCreator, HoldsNothing) {
    const auto group = make("group", {"LOD_Transition_Range 1"});
    const auto root = makeParent(group);
    OpenFlightLODCreator creator;

    creator.process(root);

    EXPECT_EQ(root->referenceCount(), 1);
    EXPECT_EQ(root->getChild(0)->referenceCount(), 1);
    EXPECT_EQ(group->referenceCount(), 2);
}

TEST(OpenFlightLODCreator, CopiesHaveTheCreatedLODs) {
    for (const bool isAssigned : {false, true}) {
        const auto root = makeParent(make("group", {"LOD_Transition_Range 1"}));
        OpenFlightLODCreator original;
        root->accept(original);
        OpenFlightLODCreator assigned;
        OpenFlightLODCreator& result = assigned = original;
        EXPECT_EQ(&result, &assigned);
        OpenFlightLODCreator copy(original);

        (isAssigned ? assigned : copy).assignLODs();
        EXPECT_EQ(describe(*root), "root(LOD(group 0-5))");

        original.assignLODs();
        EXPECT_EQ(describe(*root), "root(LOD(group 0-5))");
    }
}

TEST(OpenFlightLODCreator, CopiesHaveEverySetting) {
    OpenFlightLODCreator original;
    changeEverySetting(original);
    OpenFlightLODCreator assigned;

    assigned = original;
    const OpenFlightLODCreator& self = assigned;
    assigned = self;

    expectEqualSettings(assigned, original);
    expectEqualSettings(OpenFlightLODCreator(original), original);
}

namespace {

/** Writes a graph as an OpenFlight file and reads it back; the comments become descriptions. */
osg::ref_ptr<osg::Group> throughAFile(osg::Node& root) {
    const TemporaryDirectory folder;
    const std::string path = folder / "model.flt";
    writeFlightFile(root, path);
    const osg::ref_ptr<osg::Node> node = osgDB::readRefNodeFile(path);
    return node && node->asGroup() ? node->asGroup() : new osg::Group;
}

osg::ref_ptr<osg::Group> makeVisible(const osg::ref_ptr<osg::Group>& group) {
    group->addChild(makeGeode(makeRectangle(10)));
    return group;
}

template <class NodeType>
NodeType* childOf(const osg::Group& group, unsigned int index = 0) {
    return index < group.getNumChildren() ? dynamic_cast<NodeType*>(const_cast<osg::Node*>(group.getChild(index)))
                                          : nullptr;
}

}  // namespace

TEST(OpenFlightLODCreatorOnAFile, MakesAnLODOfAGroupsComment) {
    const auto root = make("db");
    root->addChild(makeVisible(make("tree", {"planted in 1998", "LOD_Transition_Range 300"})));
    root->addChild(makeVisible(make("house")));
    const auto model = throughAFile(*root);
    const auto tree = childOf<osg::Group>(*model);
    ASSERT_TRUE(tree);
    ASSERT_THAT(tree->getDescriptions(), ElementsAre("planted in 1998", "LOD_Transition_Range 300"));

    create(*model);

    EXPECT_EQ(describe(*model), "db(house(), LOD(tree() 0-1500))");
    EXPECT_THAT(tree->getDescriptions(), ElementsAre("planted in 1998", ""));
}

TEST(OpenFlightLODCreatorOnAFile, ReadsEveryLineOfAComment) {
    const auto root = make("db");
    root->addChild(makeVisible(make("tree", {"an oak\r\nLOD_Transition_Range 10\nLOD_Transition_Range 2"})));
    const auto model = throughAFile(*root);

    create(*model);

    EXPECT_EQ(describe(*model), "db(LOD(LOD(tree() 0-10) 0-50))");
}

TEST(OpenFlightLODCreatorOnAFile, ReportsACommentWithoutANumber) {
    const auto root = make("db");
    root->addChild(makeVisible(make("tree", {"LOD_Transition_Range three"})));
    const auto model = throughAFile(*root);
    const StandardError standardError;

    create(*model);

    EXPECT_EQ(describe(*model), "db(tree())");
    EXPECT_EQ(standardError.text(), unreadable);
}

TEST(OpenFlightLODCreatorOnAFile, LeavesTheCommentsOfFacesAlone) {
    const auto group = makeVisible(make("tree"));
    group->getChild(0)->addDescription("LOD_Transition_Range 300");
    const auto model = throughAFile(*makeParent(group, "db"));
    const auto tree = childOf<osg::Group>(*model);
    ASSERT_TRUE(tree);
    const auto face = childOf<osg::Geode>(*tree);
    ASSERT_TRUE(face);
    ASSERT_THAT(face->getDescriptions(), ElementsAre("LOD_Transition_Range 300"));

    create(*model);

    EXPECT_EQ(describe(*model), "db(tree())");
    EXPECT_THAT(face->getDescriptions(), ElementsAre("LOD_Transition_Range 300"));
}

TEST(OpenFlightLODCreatorOnAFile, HasNoPlaceForAnLODAboveTheHeader) {
    const auto root = make("db", {"LOD_Transition_Range 300"});
    root->addChild(makeVisible(make("tree")));
    const auto model = throughAFile(*root);
    ASSERT_THAT(model->getDescriptions(), ElementsAre("LOD_Transition_Range 300"));

    create(*model);

    EXPECT_EQ(describe(*model), "db(tree())");
    EXPECT_EQ(model->getNumParents(), 0u);
    EXPECT_THAT(model->getDescriptions(), ElementsAre(""));
}

TEST(OpenFlightLODCreatorOnAFile, ShowsTheWholeFileByTheHeadersCommentBelowAGroup) {
    const auto root = make("db", {"LOD_Transition_Range 300"});
    root->addChild(makeVisible(make("tree")));
    const auto model = throughAFile(*root);
    const auto world = makeParent(model, "world");

    create(*world);

    EXPECT_EQ(describe(*world), "world(LOD(db(tree()) 0-1500))");
}

TEST(OpenFlightLODCreatorOnAFile, KeepsTheRangesOfTheFilesOwnLODs) {
    const auto lod = make<osg::LOD>("lod");
    lod->addChild(makeVisible(make("tree", {"LOD_Transition_Range 300"})), 0, 2000);
    const auto model = throughAFile(*makeParent(lod, "db"));
    const std::string before = describe(*model);

    create(*model);

    EXPECT_EQ(before, "db(lod(LOD child0(tree()) 0-2000))");
    EXPECT_EQ(describe(*model), "db(lod(LOD child0(LOD(tree() 0-1500)) 0-2000))");
}
