#include <sceneutils/FindNodeVisitor.h>
#include <sceneutils/SceneUtils.h>

#include "support/Graphs.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/PositionAttitudeTransform>
#include <osg/Switch>

#include <string>
#include <type_traits>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using veltrane::sceneutils::findNamedPAT;
using veltrane::sceneutils::FindNodeVisitor;

namespace {

static_assert(std::is_base_of_v<osg::NodeVisitor, FindNodeVisitor>);
static_assert(std::has_virtual_destructor_v<FindNodeVisitor>);
static_assert(std::is_copy_constructible_v<FindNodeVisitor> && std::is_copy_assignable_v<FindNodeVisitor>);

template <typename NodeType>
osg::ref_ptr<NodeType> make(const std::string& name) {
    osg::ref_ptr<NodeType> node = new NodeType;
    node->setName(name);
    return node;
}

std::vector<osg::Node*> find(osg::Node& root, const std::string& name) {
    FindNodeVisitor finder(name);
    root.accept(finder);
    return finder.getNodeList();
}

}  // namespace

TEST(FindNodeVisitor, TraversesAllChildren) {
    EXPECT_EQ(FindNodeVisitor().getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    EXPECT_EQ(FindNodeVisitor("name").getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
}

TEST(FindNodeVisitor, KeepsTheMasksThatVisitorsHave) {
    for (const FindNodeVisitor& finder : {FindNodeVisitor(), FindNodeVisitor("name")}) {
        EXPECT_EQ(finder.getNodeMaskOverride(), 0u);
        EXPECT_EQ(finder.getTraversalMask(), 0xffffffffu);
    }
}

TEST(FindNodeVisitor, HasFoundNothingBeforeAVisit) {
    EXPECT_EQ(FindNodeVisitor("name").getFirst(), nullptr);
    EXPECT_THAT(FindNodeVisitor("name").getNodeList(), IsEmpty());
}

TEST(FindNodeVisitor, FindsNothingInAGraphWithoutTheName) {
    auto root = make<osg::Group>("root");
    root->addChild(make<osg::Node>("child"));
    FindNodeVisitor finder("other");

    root->accept(finder);

    EXPECT_EQ(finder.getFirst(), nullptr);
    EXPECT_THAT(finder.getNodeList(), IsEmpty());
}

TEST(FindNodeVisitor, FindsTheRoot) {
    auto root = make<osg::Node>("root");

    EXPECT_THAT(find(*root, "root"), ElementsAre(root.get()));
}

TEST(FindNodeVisitor, FindsNodesInTheOrderOfTheTraversal) {
    auto root = make<osg::Group>("name");
    auto left = make<osg::Group>("left");
    auto right = make<osg::Group>("name");
    auto belowLeft = make<osg::Node>("name");
    auto belowRight = make<osg::Node>("name");
    root->addChild(left);
    root->addChild(right);
    left->addChild(belowLeft);
    right->addChild(belowRight);

    EXPECT_THAT(find(*root, "name"), ElementsAre(root.get(), belowLeft.get(), right.get(), belowRight.get()));
}

TEST(FindNodeVisitor, GivesTheNodeMetFirst) {
    auto root = make<osg::Group>("root");
    auto first = make<osg::Node>("name");
    root->addChild(first);
    root->addChild(make<osg::Node>("name"));
    FindNodeVisitor finder("name");

    root->accept(finder);

    EXPECT_EQ(finder.getFirst(), first);
    EXPECT_EQ(finder.getNodeList().size(), 2u);
}

TEST(FindNodeVisitor, ComparesWholeNamesInTheirLetterCase) {
    auto root = make<osg::Group>("");
    for (const char* name : {"Turret", "turre", "turrets", " turret", "turret "}) {
        root->addChild(make<osg::Node>(name));
    }
    root->addChild(make<osg::Node>(std::string("turret\0", 7)));
    EXPECT_THAT(find(*root, "turret"), IsEmpty());

    auto turret = make<osg::Node>("turret");
    root->addChild(turret);

    EXPECT_THAT(find(*root, "turret"), ElementsAre(turret.get()));
}

TEST(FindNodeVisitor, FindsASharedNodeOncePerPath) {
    auto shared = make<osg::Node>("name");
    auto other = make<osg::Group>("other");
    other->addChild(shared);
    auto root = make<osg::Group>("root");
    root->addChild(shared);
    root->addChild(other);
    root->addChild(other);

    EXPECT_THAT(find(*root, "name"), ElementsAre(shared.get(), shared.get(), shared.get()));
}

TEST(FindNodeVisitor, FindsUnnamedNodesByTheEmptyName) {
    auto root = make<osg::Group>("");
    auto unnamed = make<osg::Node>("");
    root->addChild(make<osg::Node>("named"));
    root->addChild(unnamed);
    FindNodeVisitor finder;

    root->accept(finder);

    EXPECT_THAT(finder.getNodeList(), ElementsAre(root.get(), unnamed.get()));
    EXPECT_EQ(find(*root, ""), finder.getNodeList());
}

TEST(FindNodeVisitor, FindsNodesOfAllKinds) {
    auto root = make<osg::Switch>("name");
    auto transform = make<osg::MatrixTransform>("name");
    auto lod = make<osg::LOD>("name");
    auto geode = make<osg::Geode>("name");
    root->addChild(transform);
    root->addChild(lod);
    lod->addChild(geode);

    EXPECT_THAT(find(*root, "name"), ElementsAre(root.get(), transform.get(), lod.get(), geode.get()));
}

TEST(FindNodeVisitor, FindsDrawablesInAGeodeAndBelowAGroup) {
    const osg::ref_ptr<osg::Geometry> square = makeSquare();
    square->setName("square");
    auto root = make<osg::Group>("root");
    root->addChild(makeGeode(square));
    root->addChild(square);

    EXPECT_THAT(find(*root, "square"), ElementsAre(square.get(), square.get()));
}

TEST(FindNodeVisitor, SearchesWhatIsSwitchedOffOrOutOfRange) {
    auto off = make<osg::Node>("name");
    auto never = make<osg::Node>("name");
    auto root = make<osg::Group>("root");
    auto choice = make<osg::Switch>("switch");
    auto lod = make<osg::LOD>("lod");
    choice->addChild(off, false);
    lod->addChild(never, 0.0f, 0.0f);
    root->addChild(choice);
    root->addChild(lod);

    EXPECT_THAT(find(*root, "name"), ElementsAre(off.get(), never.get()));
}

TEST(FindNodeVisitor, DoesNotSearchBelowANodeThatTheMasksExclude) {
    auto root = make<osg::Group>("root");
    auto hidden = make<osg::Group>("name");
    hidden->addChild(make<osg::Node>("name"));
    hidden->setNodeMask(2);
    root->addChild(hidden);
    FindNodeVisitor finder("name");
    finder.setTraversalMask(1);

    root->accept(finder);

    EXPECT_THAT(finder.getNodeList(), IsEmpty());
}

TEST(FindNodeVisitor, AddsToItsListWhenItIsUsedAgain) {
    auto node = make<osg::Node>("name");
    auto other = make<osg::Node>("name");
    FindNodeVisitor finder("name");

    node->accept(finder);
    other->accept(finder);
    node->accept(finder);

    EXPECT_THAT(finder.getNodeList(), ElementsAre(node.get(), other.get(), node.get()));
}

TEST(FindNodeVisitor, ForgetsWhatItFoundWhenTheNameIsSet) {
    auto root = make<osg::Group>("old");
    auto child = make<osg::Node>("new");
    root->addChild(child);
    FindNodeVisitor finder("old");
    root->accept(finder);

    finder.setNameToFind("new");
    EXPECT_EQ(finder.getFirst(), nullptr);
    EXPECT_THAT(finder.getNodeList(), IsEmpty());

    root->accept(finder);
    EXPECT_THAT(finder.getNodeList(), ElementsAre(child.get()));
}

TEST(FindNodeVisitor, ForgetsWhatItFoundWhenTheSameNameIsSet) {
    auto node = make<osg::Node>("name");
    FindNodeVisitor finder("name");
    node->accept(finder);

    finder.setNameToFind("name");

    EXPECT_THAT(finder.getNodeList(), IsEmpty());
    node->accept(finder);
    EXPECT_EQ(finder.getFirst(), node);
}

TEST(FindNodeVisitor, LetsItsListBeChanged) {
    auto node = make<osg::Node>("name");
    FindNodeVisitor finder("name");
    node->accept(finder);

    finder.getNodeList().clear();

    EXPECT_EQ(finder.getFirst(), nullptr);
}

TEST(FindNodeVisitor, HoldsNoReferences) {
    auto node = make<osg::Node>("name");
    FindNodeVisitor finder("name");

    node->accept(finder);

    EXPECT_EQ(finder.getFirst(), node);
    EXPECT_EQ(node->referenceCount(), 1);
}

TEST(FindNodeVisitor, CopyConstructionCopiesSettingsNameAndList) {
    auto node = make<osg::Node>("name");
    auto later = make<osg::Node>("name");
    FindNodeVisitor original("name");
    node->accept(original);

    FindNodeVisitor copy(original);

    EXPECT_THAT(copy.getNodeList(), ElementsAre(node.get()));
    later->accept(copy);
    EXPECT_THAT(copy.getNodeList(), ElementsAre(node.get(), later.get()));
    EXPECT_THAT(original.getNodeList(), ElementsAre(node.get()));
    changeEverySetting(original);
    expectEqualSettings(FindNodeVisitor(original), original);
}

TEST(FindNodeVisitor, AssignmentCopiesSettingsNameAndList) {
    auto node = make<osg::Node>("name");
    FindNodeVisitor original("name");
    node->accept(original);
    FindNodeVisitor copy("other");

    FindNodeVisitor& result = copy = original;

    EXPECT_EQ(&result, &copy);
    EXPECT_THAT(copy.getNodeList(), ElementsAre(node.get()));
    node->accept(copy);
    EXPECT_THAT(copy.getNodeList(), ElementsAre(node.get(), node.get()));
    changeEverySetting(original);
    copy = original;
    expectEqualSettings(copy, original);
}

TEST(FindNodeVisitor, AssignmentToItselfChangesNothing) {
    auto node = make<osg::Node>("name");
    FindNodeVisitor finder("name");
    node->accept(finder);
    const FindNodeVisitor& self = finder;

    finder = self;
    node->accept(finder);

    EXPECT_THAT(finder.getNodeList(), ElementsAre(node.get(), node.get()));
}

TEST(FindNamedPAT, FindsNothingWithoutAGraph) {
    EXPECT_EQ(findNamedPAT(nullptr, "turret"), nullptr);
}

TEST(FindNamedPAT, FindsTheRootAndWhatIsBelowIt) {
    auto root = make<osg::PositionAttitudeTransform>("tank");
    auto turret = make<osg::PositionAttitudeTransform>("turret");
    auto between = make<osg::Group>("hull");
    root->addChild(between);
    between->addChild(turret);

    EXPECT_EQ(findNamedPAT(root, "tank"), root);
    EXPECT_EQ(findNamedPAT(root, "turret"), turret);
    EXPECT_EQ(findNamedPAT(root, "gun"), nullptr);
    EXPECT_EQ(findNamedPAT(root, "Turret"), nullptr);
}

TEST(FindNamedPAT, FindsTheFirstOfSeveral) {
    auto root = make<osg::Group>("root");
    auto first = make<osg::PositionAttitudeTransform>("turret");
    root->addChild(first);
    root->addChild(make<osg::PositionAttitudeTransform>("turret"));

    EXPECT_EQ(findNamedPAT(root, "turret"), first);
}

TEST(FindNamedPAT, LooksAtTheFirstNodeOfTheNameOnly) {
    auto root = make<osg::Group>("root");
    root->addChild(make<osg::Group>("turret"));
    root->addChild(make<osg::PositionAttitudeTransform>("turret"));

    EXPECT_EQ(findNamedPAT(root, "turret"), nullptr);
}

TEST(FindNamedPAT, TakesNoOtherTransform) {
    auto root = make<osg::MatrixTransform>("turret");

    EXPECT_EQ(findNamedPAT(root, "turret"), nullptr);
}

TEST(FindNamedPAT, TakesDerivedTransforms) {
    class OwnTransform : public osg::PositionAttitudeTransform {};
    auto root = make<OwnTransform>("turret");

    EXPECT_EQ(findNamedPAT(root, "turret"), root);
}

TEST(FindNamedPAT, AddsNoReferenceAndReleasesNone) {
    osg::Group* root = new osg::Group;  // held by nobody
    osg::PositionAttitudeTransform* turret = new osg::PositionAttitudeTransform;
    turret->setName("turret");
    root->addChild(turret);

    EXPECT_EQ(findNamedPAT(root, "turret"), turret);

    EXPECT_EQ(root->referenceCount(), 0);
    EXPECT_EQ(turret->referenceCount(), 1);
    const osg::ref_ptr<osg::Group> released = root;
}
