#include <sceneutils/StateSetVisitor.h>

#include "support/Graphs.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/AutoTransform>
#include <osg/Billboard>
#include <osg/Camera>
#include <osg/ClipNode>
#include <osg/CoordinateSystemNode>
#include <osg/LOD>
#include <osg/LightSource>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osg/PositionAttitudeTransform>
#include <osg/Projection>
#include <osg/ProxyNode>
#include <osg/Sequence>
#include <osg/ShapeDrawable>
#include <osg/Switch>
#include <osg/TexGenNode>
#include <osgSim/MultiSwitch>
#include <osgText/Text>

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using veltrane::sceneutils::StateSetVisitor;

namespace {

static_assert(std::is_base_of_v<osg::NodeVisitor, StateSetVisitor>);
static_assert(std::is_abstract_v<StateSetVisitor>);
static_assert(std::has_virtual_destructor_v<StateSetVisitor>);
static_assert(std::is_copy_assignable_v<StateSetVisitor>);

/** Writes down the names of the state sets in the order of the visits. */
class Recorder : public StateSetVisitor {
public:
    using StateSetVisitor::apply;
    void apply(osg::StateSet& stateSet) override {
        names.push_back(stateSet.getName());
        if (onVisit) onVisit(stateSet);
    }

    std::vector<std::string> names;
    std::function<void(osg::StateSet&)> onVisit;
};

static_assert(std::is_copy_constructible_v<Recorder> && std::is_copy_assignable_v<Recorder>);

template <typename NodeType>
osg::ref_ptr<NodeType> named(const std::string& stateSetName, osg::ref_ptr<NodeType> node) {
    node->getOrCreateStateSet()->setName(stateSetName);
    return node;
}

template <typename NodeType>
osg::ref_ptr<NodeType> make(const std::string& stateSetName) {
    return named(stateSetName, osg::ref_ptr<NodeType>(new NodeType));
}

std::vector<std::string> visit(osg::Node& node) {
    Recorder recorder;
    node.accept(recorder);
    return recorder.names;
}

}  // namespace

TEST(StateSetVisitor, WalksTheGraphItself) {
    EXPECT_EQ(Recorder().getTraversalMode(), osg::NodeVisitor::TRAVERSE_NONE);
}

TEST(StateSetVisitor, VisitsTheStateSetOfAPlainNode) {
    EXPECT_THAT(visit(*make<osg::Node>("node")), ElementsAre("node"));
}

TEST(StateSetVisitor, VisitsNothingInAGraphWithoutStateSets) {
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(new osg::Node);
    root->addChild(makeGeode(makeSquare()));

    EXPECT_THAT(visit(*root), IsEmpty());
}

TEST(StateSetVisitor, GoesDepthFirstWithTheParentsStateSetBeforeTheChildren) {
    auto root = make<osg::Group>("root");
    auto left = make<osg::Group>("left");
    left->addChild(make<osg::Node>("left.0"));
    left->addChild(make<osg::Node>("left.1"));
    root->addChild(left);
    root->addChild(make<osg::Node>("right"));

    EXPECT_THAT(visit(*root), ElementsAre("root", "left", "left.0", "left.1", "right"));
}

TEST(StateSetVisitor, VisitsAGeodeBeforeItsDrawablesInIndexOrder) {
    auto geode = make<osg::Geode>("geode");
    geode->addDrawable(named("first", makeSquare()));
    geode->addDrawable(makeSquare());
    geode->addDrawable(make<osg::ShapeDrawable>("third"));

    EXPECT_THAT(visit(*geode), ElementsAre("geode", "first", "third"));
}

TEST(StateSetVisitor, TreatsABillboardAsAGeode) {
    auto billboard = make<osg::Billboard>("billboard");
    billboard->addDrawable(named("drawable", makeSquare()), osg::Vec3(1, 2, 3));

    EXPECT_THAT(visit(*billboard), ElementsAre("billboard", "drawable"));
}

TEST(StateSetVisitor, PassesOverAGeodesChildThatIsNotADrawable) {
    auto geode = make<osg::Geode>("geode");
    auto group = make<osg::Group>("no drawable");
    group->addChild(make<osg::Node>("below it"));
    geode->addChild(group);
    geode->addDrawable(named("drawable", makeSquare()));
    ASSERT_EQ(geode->getDrawable(0), nullptr);

    EXPECT_THAT(visit(*geode), ElementsAre("geode", "drawable"));
}

TEST(StateSetVisitor, VisitsADrawableThatHangsDirectlyBelowAGroup) {
    auto root = make<osg::Group>("root");
    root->addChild(named("square", makeSquare()));
    root->addChild(make<osgText::Text>("text"));

    EXPECT_THAT(visit(*root), ElementsAre("root", "square", "text"));
}

TEST(StateSetVisitor, DoesNotLetTheDrawablesOfAGeodeAcceptIt) {
    class DrawableCounter : public Recorder {
    public:
        using Recorder::apply;
        void apply(osg::Drawable&) override { ++drawables; }
        int drawables = 0;
    };
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makeGeode(named("in a geode", makeSquare())));
    root->addChild(named("below a group", makeSquare()));

    DrawableCounter counter;
    root->accept(counter);

    EXPECT_EQ(counter.drawables, 1);
    EXPECT_THAT(counter.names, ElementsAre("in a geode"));
}

TEST(StateSetVisitor, VisitsASharedStateSetOncePerPath) {
    auto root = make<osg::Group>("shared");
    osg::ref_ptr<osg::Geode> geode = makeGeode(makeSquare());
    geode->setStateSet(root->getStateSet());
    geode->getDrawable(0)->setStateSet(root->getStateSet());
    root->addChild(geode);

    EXPECT_THAT(visit(*root), ElementsAre("shared", "shared", "shared"));
}

TEST(StateSetVisitor, VisitsASharedSubgraphOncePerPath) {
    auto shared = make<osg::Group>("shared");
    shared->addChild(make<osg::Node>("below"));
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::Group> other = new osg::Group;
    root->addChild(shared);
    root->addChild(shared);
    root->addChild(other);
    other->addChild(shared);

    EXPECT_THAT(visit(*root), ElementsAre("shared", "below", "shared", "below", "shared", "below"));
}

TEST(StateSetVisitor, ReachesChildrenThatAreAddedDuringTheVisit) {
    auto root = make<osg::Group>("root");
    root->addChild(make<osg::Node>("last"));
    Recorder recorder;
    recorder.onVisit = [&](osg::StateSet& stateSet) {
        if (stateSet.getName() == "last") root->addChild(make<osg::Node>("added to the last"));
        if (stateSet.getName() == "root") root->addChild(make<osg::Node>("added to the root"));
    };

    root->accept(recorder);

    EXPECT_THAT(recorder.names, ElementsAre("root", "last", "added to the root", "added to the last"));
}

TEST(StateSetVisitor, ReachesDrawablesThatAreAddedDuringTheVisit) {
    osg::ref_ptr<osg::Geode> geode = makeGeode(named("last", makeSquare()));
    Recorder recorder;
    recorder.onVisit = [&](osg::StateSet& stateSet) {
        if (stateSet.getName() == "last") geode->addDrawable(named("added", makeSquare()));
    };

    geode->accept(recorder);

    EXPECT_THAT(recorder.names, ElementsAre("last", "added"));
}

TEST(StateSetVisitor, StopsAtTheChildrenThatAreLeftWhenSomeAreRemovedDuringTheVisit) {
    auto root = make<osg::Group>("root");
    for (const char* name : {"first", "second", "third"}) root->addChild(make<osg::Node>(name));
    Recorder recorder;
    recorder.onVisit = [&](osg::StateSet& stateSet) {
        if (stateSet.getName() == "first") root->removeChildren(1, 2);
    };

    root->accept(recorder);

    EXPECT_THAT(recorder.names, ElementsAre("root", "first"));
}

TEST(StateSetVisitor, VisitsTheInactiveChildrenOfASwitch) {
    auto node = make<osg::Switch>("switch");
    node->addChild(make<osg::Node>("off"), false);
    node->addChild(make<osg::Node>("on"), true);

    EXPECT_THAT(visit(*node), ElementsAre("switch", "off", "on"));
}

TEST(StateSetVisitor, VisitsEveryLevelOfDetail) {
    auto lod = make<osg::LOD>("lod");
    lod->addChild(make<osg::Node>("near"), 0.0f, 10.0f);
    lod->addChild(make<osg::Node>("far"), 10.0f, 1000.0f);
    lod->addChild(make<osg::Node>("never"), 0.0f, 0.0f);

    EXPECT_THAT(visit(*lod), ElementsAre("lod", "near", "far", "never"));
}

template <typename NodeType>
class StateSetVisitorOnGroups : public testing::Test {};

using GroupTypes =
    testing::Types<osg::Group, osg::Transform, osg::MatrixTransform, osg::PositionAttitudeTransform, osg::AutoTransform,
                   osg::CoordinateSystemNode, osg::LOD, osg::PagedLOD, osg::ProxyNode, osg::Switch, osg::Sequence,
                   osgSim::MultiSwitch, osg::Projection, osg::ClipNode, osg::TexGenNode, osg::LightSource, osg::Camera>;
TYPED_TEST_SUITE(StateSetVisitorOnGroups, GroupTypes);

TYPED_TEST(StateSetVisitorOnGroups, VisitsTheNodeAndAllItsChildren) {
    osg::ref_ptr<TypeParam> node = new TypeParam;
    osg::ref_ptr<osg::StateSet> own = new osg::StateSet;
    own->setName("own");
    node->setStateSet(own);
    node->addChild(make<osg::Node>("first"));
    node->addChild(make<osg::Node>("second"));

    EXPECT_THAT(visit(*node), ElementsAre("own", "first", "second"));
}

TEST(StateSetVisitor, LeavesOutASubgraphThatTheMasksExclude) {
    auto root = make<osg::Group>("root");
    auto hidden = make<osg::Group>("hidden");
    hidden->addChild(make<osg::Node>("below hidden"));
    hidden->setNodeMask(0);
    root->addChild(hidden);
    root->addChild(make<osg::Node>("shown"));

    EXPECT_THAT(visit(*root), ElementsAre("root", "shown"));
}

TEST(StateSetVisitor, VisitsMaskedNodesWhenTheMaskIsOverridden) {
    auto root = make<osg::Group>("root");
    root->setNodeMask(0);
    Recorder recorder;
    recorder.setNodeMaskOverride(~0u);

    root->accept(recorder);

    EXPECT_THAT(recorder.names, ElementsAre("root"));
}

TEST(StateSetVisitor, VisitsTheDrawablesOfAGeodeWhateverTheirMasks) {
    osg::ref_ptr<osg::Geode> geode = makeGeode(named("hidden drawable", makeSquare()));
    geode->getDrawable(0)->setNodeMask(0);

    EXPECT_THAT(visit(*geode), ElementsAre("hidden drawable"));
}

TEST(StateSetVisitor, MayBeUsedAgain) {
    auto node = make<osg::Group>("node");
    Recorder recorder;

    node->accept(recorder);
    node->accept(recorder);

    EXPECT_THAT(recorder.names, ElementsAre("node", "node"));
}

TEST(StateSetVisitor, CopyConstructionCopiesEverySetting) {
    Recorder original;
    changeEverySetting(original);

    const Recorder copy(original);

    expectEqualSettings(copy, original);
}

TEST(StateSetVisitor, AssignmentCopiesEverySetting) {
    Recorder original;
    changeEverySetting(original);
    Recorder copy;

    StateSetVisitor& result = static_cast<StateSetVisitor&>(copy) = original;

    expectEqualSettings(copy, original);
    EXPECT_EQ(&result, &copy);
}

TEST(StateSetVisitor, MayBeHeldByAReferenceToItsBase) {
    auto node = make<osg::Node>("node");
    osg::ref_ptr<Recorder> recorder = new Recorder;
    const osg::ref_ptr<osg::NodeVisitor> visitor = recorder;

    node->accept(*visitor);

    EXPECT_EQ(visitor->referenceCount(), 2);
    EXPECT_THAT(recorder->names, ElementsAre("node"));
}
