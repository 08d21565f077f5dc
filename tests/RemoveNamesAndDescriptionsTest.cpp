#include <sceneutils/RemoveNamesAndDescriptions.h>

#include "support/Graphs.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/Billboard>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/Sequence>
#include <osg/Switch>
#include <osg/ValueObject>
#include <osgSim/DOFTransform>
#include <osgSim/LightPointNode>
#include <osgSim/MultiSwitch>

#include <string>
#include <type_traits>

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using veltrane::sceneutils::RemoveNamesAndDescriptions;

namespace {

static_assert(std::is_base_of_v<osg::NodeVisitor, RemoveNamesAndDescriptions>);
static_assert(std::has_virtual_destructor_v<RemoveNamesAndDescriptions>);
static_assert(std::is_default_constructible_v<RemoveNamesAndDescriptions>);
static_assert(std::is_copy_constructible_v<RemoveNamesAndDescriptions>);
static_assert(std::is_copy_assignable_v<RemoveNamesAndDescriptions>);

/** A node with all that can be taken from it. */
template <typename NodeType = osg::Group>
osg::ref_ptr<NodeType> makeFull(const std::string& name = "name",
                                osg::Object::DataVariance variance = osg::Object::STATIC) {
    osg::ref_ptr<NodeType> node = new NodeType;
    node->setName(name);
    node->setDataVariance(variance);
    node->addDescription("description");
    node->setUserValue("key", 7);
    node->setUserData(new osg::Referenced);
    node->getOrCreateStateSet()->setAttributeAndModes(new osg::Program);
    return node;
}

osg::StateAttribute* programOf(osg::Node& node) {
    return node.getStateSet()->getAttribute(osg::StateAttribute::PROGRAM);
}

void expectStripped(osg::Node& node) {
    EXPECT_EQ(node.getName(), "");
    EXPECT_EQ(node.getUserDataContainer(), nullptr);
    EXPECT_EQ(node.getNumDescriptions(), 0u);
    EXPECT_EQ(node.getUserData(), nullptr);
    EXPECT_EQ(programOf(node), nullptr);
}

void expectFull(osg::Node& node, const std::string& name = "name") {
    EXPECT_EQ(node.getName(), name);
    EXPECT_THAT(node.getDescriptions(), ElementsAre("description"));
    EXPECT_NE(node.getUserData(), nullptr);
    EXPECT_NE(programOf(node), nullptr);
}

void strip(osg::Node& node, const std::set<std::string>& preserved = {}) {
    RemoveNamesAndDescriptions visitor;
    visitor.preserveNames(preserved);
    node.accept(visitor);
}

template <typename NodeType>
class KindFoundByName : public testing::Test {};

struct DerivedSequence : osg::Sequence {};
struct NodeAndLightPoint : osg::Group, osgSim::LightPoint {};

using KindsFoundByName = testing::Types<osgSim::MultiSwitch, osgSim::DOFTransform, osgSim::LightPointNode,
                                        osg::Sequence, DerivedSequence, NodeAndLightPoint>;
TYPED_TEST_SUITE(KindFoundByName, KindsFoundByName);

template <typename NodeType>
class OtherKind : public testing::Test {};

using OtherKinds =
    testing::Types<osg::Node, osg::Group, osg::Switch, osg::MatrixTransform, osg::Geode, osg::Billboard, osg::Geometry>;
TYPED_TEST_SUITE(OtherKind, OtherKinds);

}  // namespace

TEST(RemoveNamesAndDescriptions, VisitsAllChildrenAndHonoursNodeMasks) {
    const RemoveNamesAndDescriptions visitor;

    EXPECT_EQ(visitor.getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    EXPECT_EQ(visitor.getNodeMaskOverride(), 0u);
}

TYPED_TEST(OtherKind, IsStripped) {
    const auto node = makeFull<TypeParam>();

    strip(*node);

    expectStripped(*node);
}

TYPED_TEST(KindFoundByName, KeepsEverything) {
    const auto node = makeFull<TypeParam>();

    strip(*node);

    expectFull(*node);
}

TEST(RemoveNamesAndDescriptions, StripsWhatHangsBelowAKindFoundByName) {
    const auto sequence = makeFull<osg::Sequence>();
    const auto child = makeFull();
    sequence->addChild(child);

    strip(*sequence);

    expectStripped(*child);
}

TEST(RemoveNamesAndDescriptions, LeavesDynamicNodesAloneAndStripsWhatHangsBelow) {
    const auto node = makeFull("name", osg::Object::DYNAMIC);
    const auto child = makeFull();
    node->addChild(child);

    strip(*node);

    expectFull(*node);
    expectStripped(*child);
}

TEST(RemoveNamesAndDescriptions, StripsNodesOfUnspecifiedVariance) {
    const auto node = makeFull("name", osg::Object::UNSPECIFIED);

    strip(*node);

    expectStripped(*node);
}

TEST(RemoveNamesAndDescriptions, LeavesNodesOfPreservedNamesAloneAndStripsWhatHangsBelow) {
    const auto node = makeFull("kept");
    const auto child = makeFull("other");
    node->addChild(child);

    strip(*node, {"kept"});

    expectFull(*node, "kept");
    expectStripped(*child);
}

TEST(RemoveNamesAndDescriptions, ComparesNamesByteForByte) {
    for (const char* name : {"Kept", "kep", "keptt", " kept"}) {
        const auto node = makeFull(name);
        strip(*node, {"kept"});
        EXPECT_EQ(node->getName(), "");
    }
}

TEST(RemoveNamesAndDescriptions, StripsNamelessNodesUnlessTheEmptyNameIsPreserved) {
    const auto node = makeFull("");

    strip(*node, {""});
    expectFull(*node, "");
    strip(*node, {"name"});
    expectStripped(*node);
}

TEST(RemoveNamesAndDescriptions, ReplacesTheNamesToBePreserved) {
    const auto node = makeFull("first");
    RemoveNamesAndDescriptions visitor;
    visitor.preserveNames({"first"});
    visitor.preserveNames({"second"});

    node->accept(visitor);

    expectStripped(*node);
}

TEST(RemoveNamesAndDescriptions, KeepsACopyOfTheNames) {
    const auto node = makeFull("name");
    std::set<std::string> names = {"name"};
    RemoveNamesAndDescriptions visitor;
    visitor.preserveNames(names);
    names.clear();

    node->accept(visitor);

    expectFull(*node);
}

TEST(RemoveNamesAndDescriptions, PreservesNothingInProcess) {
    const auto root = makeFull();
    const auto child = makeFull("");
    root->addChild(child);

    RemoveNamesAndDescriptions::process(root);

    expectStripped(*root);
    expectStripped(*child);
}

TEST(RemoveNamesAndDescriptions, StripsTheDrawablesOfGeodesAndThoseBelowGroups) {
    const auto inGeode = makeFull<osg::Geometry>(), belowGroup = makeFull<osg::Geometry>();
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makeGeode(inGeode));
    root->addChild(belowGroup);

    RemoveNamesAndDescriptions::process(root);

    expectStripped(*inGeode);
    expectStripped(*belowGroup);
}

TEST(RemoveNamesAndDescriptions, KeepsTheOtherAttributesOfAStateSet) {
    const auto node = makeFull();
    osg::StateSet* stateSet = node->getStateSet();
    const osg::ref_ptr<osg::Material> material = new osg::Material;
    stateSet->setAttributeAndModes(material);
    stateSet->setMode(GL_BLEND, osg::StateAttribute::ON);
    stateSet->setTextureAttributeAndModes(0, makeTexture());
    stateSet->addUniform(new osg::Uniform("uniform", 1));

    RemoveNamesAndDescriptions::process(node);

    EXPECT_EQ(node->getStateSet(), stateSet);
    EXPECT_EQ(stateSet->getAttributeList().size(), 1u);
    EXPECT_EQ(stateSet->getAttribute(osg::StateAttribute::MATERIAL), material);
    EXPECT_EQ(stateSet->getMode(GL_BLEND), osg::StateAttribute::ON);
    EXPECT_EQ(stateSet->getTextureAttributeList().size(), 1u);
    EXPECT_NE(stateSet->getUniform("uniform"), nullptr);
}

TEST(RemoveNamesAndDescriptions, LeavesAnEmptiedStateSetInPlaceAndMakesNone) {
    const auto node = makeFull();
    const osg::ref_ptr<osg::Group> child = new osg::Group;
    node->addChild(child);

    RemoveNamesAndDescriptions::process(node);

    ASSERT_NE(node->getStateSet(), nullptr);
    EXPECT_TRUE(node->getStateSet()->getAttributeList().empty());
    EXPECT_EQ(child->getStateSet(), nullptr);
}

TEST(RemoveNamesAndDescriptions, KeepsTheDescriptionsOfAPreservedNodeThatSharesTheContainer) {
    const auto kept = makeFull("kept");
    const osg::ref_ptr<osg::Group> copy = osg::clone(kept.get());
    copy->setName("copy");
    kept->addChild(copy);

    strip(*kept, {"kept"});

    EXPECT_EQ(copy->getNumDescriptions(), 0u);
    EXPECT_THAT(kept->getDescriptions(), ElementsAre("description"));
}

TEST(RemoveNamesAndDescriptions, LeavesHiddenNodesAlone) {
    const auto root = makeFull(), child = makeFull();
    child->setNodeMask(0);
    root->addChild(child);

    RemoveNamesAndDescriptions::process(root);

    expectFull(*child);
}

TEST(RemoveNamesAndDescriptions, LeavesARootThatNobodyHoldsAlive) {
    osg::Group* root = new osg::Group;

    RemoveNamesAndDescriptions::process(root);

    ASSERT_EQ(root->referenceCount(), 0);
    const osg::ref_ptr<osg::Group> deletesIt = root;
}

TEST(RemoveNamesAndDescriptions, IgnoresANullNode) {
    RemoveNamesAndDescriptions::process(nullptr);
}

TEST(RemoveNamesAndDescriptions, CopiesEverySettingAndTheNames) {
    RemoveNamesAndDescriptions original;
    original.preserveNames({"name"});

    RemoveNamesAndDescriptions copy(original);
    RemoveNamesAndDescriptions assigned;
    const RemoveNamesAndDescriptions& result = assigned = original;

    for (RemoveNamesAndDescriptions* each : {&copy, &assigned}) {
        const auto node = makeFull();
        node->accept(*each);
        expectFull(*node);
        original.preserveNames({});
    }
    EXPECT_EQ(&result, &assigned);
    changeEverySetting(original);
    expectEqualSettings(RemoveNamesAndDescriptions(original), original);
    expectEqualSettings(assigned = original, original);
}
