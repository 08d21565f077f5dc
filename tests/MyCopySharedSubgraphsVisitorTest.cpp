#include <sceneutils/MyCopySharedSubgraphsVisitor.h>

#include "support/OsgMessages.h"
#include "support/PointModels.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/MatrixTransform>

#include <type_traits>
#include <vector>

using namespace testing_support;
using veltrane::sceneutils::MyCopySharedSubgraphsVisitor;

namespace {

static_assert(std::is_base_of_v<osgUtil::BaseOptimizerVisitor, MyCopySharedSubgraphsVisitor>);
static_assert(std::has_virtual_destructor_v<MyCopySharedSubgraphsVisitor>);
static_assert(std::is_copy_constructible_v<MyCopySharedSubgraphsVisitor>);
static_assert(std::is_copy_assignable_v<MyCopySharedSubgraphsVisitor>);

osg::ref_ptr<osg::Group> makeGroup(const std::vector<osg::Node*>& children) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (osg::Node* child : children) group->addChild(child);
    return group;
}

void copyShared(osg::Node& root, osgUtil::Optimizer* optimizer = nullptr) {
    MyCopySharedSubgraphsVisitor visitor(optimizer);
    root.accept(visitor);
    visitor.copySharedNodes();
}

/** A graph in which a node hangs below each of some groups. */
struct SharedBelow {
    SharedBelow(osg::Node* node, unsigned int places) : root(new osg::Group) {
        for (unsigned int i = 0; i < places; ++i) root->addChild(makeGroup({node}));
    }
    osg::Node* at(unsigned int place) const { return root->getChild(place)->asGroup()->getChild(0); }

    osg::ref_ptr<osg::Group> root;
};

}  // namespace

TEST(MyCopySharedSubgraphsVisitor, VisitsAllChildrenWhateverTheirMasks) {
    const MyCopySharedSubgraphsVisitor visitor(nullptr);

    EXPECT_EQ(visitor.getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    EXPECT_EQ(visitor.getNodeMaskOverride(), 0xffffffffu);
}

TEST(MyCopySharedSubgraphsVisitor, CopiesForEveryParentButTheFirst) {
    const osg::ref_ptr<osg::Node> node = makePairGeode(osg::Vec3());
    const SharedBelow graph(node, 3);

    copyShared(*graph.root);

    EXPECT_EQ(graph.at(0), node);
    EXPECT_NE(graph.at(1), node);
    EXPECT_NE(graph.at(2), node);
    EXPECT_NE(graph.at(1), graph.at(2));
    for (unsigned int i = 0; i < 3; ++i) EXPECT_EQ(graph.at(i)->getNumParents(), 1u);
}

TEST(MyCopySharedSubgraphsVisitor, NeverCopiesANodeWithOneParent) {
    const osg::ref_ptr<osg::Node> node = new osg::Group;
    const SharedBelow graph(node, 1);

    copyShared(*graph.root);

    EXPECT_EQ(graph.at(0), node);
}

TEST(MyCopySharedSubgraphsVisitor, KeepsThePlacesAmongTheSiblings) {
    const osg::ref_ptr<osg::Group> shared = new osg::Group, a = new osg::Group, b = new osg::Group;
    const auto root = makeGroup({a, shared, b, shared});
    shared->setName("shared");

    copyShared(*root);

    ASSERT_EQ(root->getNumChildren(), 4u);
    EXPECT_EQ(root->getChild(0), a);
    EXPECT_EQ(root->getChild(2), b);
    EXPECT_EQ(root->getChild(1)->getName(), "shared");
    EXPECT_EQ(root->getChild(3), shared);  // replaced is the first of several places below one parent
    EXPECT_NE(root->getChild(1), shared);
}

TEST(MyCopySharedSubgraphsVisitor, KeepsThePlacesAmongManySiblings) {
    const auto first = makeGroup({}), second = makeGroup({});
    for (int i = 0; i < 100; ++i) {
        const osg::ref_ptr<osg::Node> shared = new osg::Group;
        shared->setName(std::to_string(i));
        first->addChild(shared);
        second->insertChild(0, shared);
    }
    copyShared(*makeGroup({first, second}));

    for (unsigned int i = 0; i < 100; ++i) {
        EXPECT_EQ(first->getChild(i)->getName(), std::to_string(i));
        EXPECT_EQ(second->getChild(99 - i)->getName(), std::to_string(i));
        EXPECT_NE(first->getChild(i), second->getChild(99 - i));
    }
}

TEST(MyCopySharedSubgraphsVisitor, CopiesDownToArraysAndPrimitiveSetsButNotState) {
    const osg::ref_ptr<osg::Geode> geode = makePairGeode(osg::Vec3());
    osg::StateSet* state = geode->getDrawable(0)->getOrCreateStateSet();
    const SharedBelow graph(geode, 2);

    copyShared(*graph.root);

    const osg::Geometry* original = geode->getDrawable(0)->asGeometry();
    const osg::Geometry* copy = graph.at(1)->asGeode()->getDrawable(0)->asGeometry();
    EXPECT_NE(copy, original);
    EXPECT_NE(copy->getVertexArray(), original->getVertexArray());
    EXPECT_NE(copy->getPrimitiveSet(0), original->getPrimitiveSet(0));
    EXPECT_EQ(pointsOf(copy), pointsOf(original));
    EXPECT_EQ(copy->getStateSet(), state);
}

TEST(MyCopySharedSubgraphsVisitor, SharesUserDataAndCallbacksWithTheCopies) {
    const osg::ref_ptr<osg::Group> node = new osg::Group;
    const osg::ref_ptr<osg::NodeCallback> callback = new osg::NodeCallback;
    node->setUpdateCallback(callback);
    node->setUserData(new osg::Group);
    const SharedBelow graph(node, 2);

    copyShared(*graph.root);

    EXPECT_EQ(graph.at(1)->getUpdateCallback(), callback);
    EXPECT_EQ(graph.at(1)->getUserDataContainer(), node->getUserDataContainer());
}

TEST(MyCopySharedSubgraphsVisitor, KeepsTheKindOfANode) {
    const osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(osg::Matrixd::translate(1, 2, 3));
    const SharedBelow graph(transform, 2);

    copyShared(*graph.root);

    const auto* copy = dynamic_cast<osg::MatrixTransform*>(graph.at(1));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->getMatrix(), transform->getMatrix());
}

TEST(MyCopySharedSubgraphsVisitor, CopiesSharedDrawables) {
    const osg::ref_ptr<osg::Geometry> drawable = makePair(osg::Vec3());
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(drawable);
    const auto root = makeGroup({geode, drawable});

    copyShared(*root);

    EXPECT_EQ(geode->getDrawable(0), drawable);
    ASSERT_NE(root->getChild(1)->asGeometry(), nullptr);
    EXPECT_NE(root->getChild(1), drawable);
}

TEST(MyCopySharedSubgraphsVisitor, CopiesWhatIsSharedWithinSharedSubgraphs) {
    const osg::ref_ptr<osg::Geode> leaf = makePairGeode(osg::Vec3());
    const auto inner = makeGroup({leaf}), outer = makeGroup({inner, leaf});
    const auto root = makeGroup({outer, makeGroup({outer}), makeGroup({inner})});

    copyShared(*root);

    int leaves = 0;
    struct Counter : osg::NodeVisitor {
        explicit Counter(int& count) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _count(count) {}
        void apply(osg::Node& node) override {
            EXPECT_LE(node.getNumParents(), 1u);
            _count += node.asGeometry() ? 1 : 0;
            traverse(node);
        }
        int& _count;
    } counter(leaves);
    root->accept(counter);
    EXPECT_EQ(leaves, 5);
}

TEST(MyCopySharedSubgraphsVisitor, CopiesHiddenAndEmptyNodes) {
    const osg::ref_ptr<osg::Group> node = new osg::Group;
    node->setNodeMask(0);
    const SharedBelow graph(node, 2);

    copyShared(*graph.root);

    EXPECT_NE(graph.at(1), node);
}

TEST(MyCopySharedSubgraphsVisitor, CarriesEventCallbacksOver) {
    struct Callback : osg::NodeCallback {};
    const osg::ref_ptr<osg::Geode> geode = makePairGeode(osg::Vec3());
    const osg::ref_ptr<osg::NodeCallback> onGeode = new Callback, onDrawable = new Callback;
    geode->setEventCallback(onGeode);
    geode->getDrawable(0)->setEventCallback(onDrawable);
    const SharedBelow graph(geode, 2);

    copyShared(*graph.root);

    EXPECT_EQ(graph.at(1)->getEventCallback(), onGeode);
    EXPECT_EQ(graph.at(1)->asGeode()->getDrawable(0)->getEventCallback(), onDrawable);
    EXPECT_EQ(graph.root->getNumChildrenRequiringEventTraversal(), 2u);
}

TEST(MyCopySharedSubgraphsVisitor, LeavesNodesAloneThatTheOptimizerMayNotCopy) {
    const osg::ref_ptr<osg::Node> node = new osg::Group;
    const SharedBelow graph(node, 2);
    osgUtil::Optimizer optimizer;
    optimizer.setPermissibleOptimizationsForObject(node,
                                                   ~static_cast<unsigned int>(osgUtil::Optimizer::COPY_SHARED_NODES));

    copyShared(*graph.root, &optimizer);
    EXPECT_EQ(graph.at(1), node);

    optimizer.setPermissibleOptimizationsForObject(node, osgUtil::Optimizer::COPY_SHARED_NODES);
    copyShared(*graph.root, &optimizer);
    EXPECT_NE(graph.at(1), node);
}

TEST(MyCopySharedSubgraphsVisitor, ReportsEachSharedNodeAtTheSeverityInfo) {
    const SharedBelow graph(new osg::Group, 3);
    const OsgMessages messages(osg::INFO);

    copyShared(*graph.root);

    EXPECT_EQ(messages.textOf(osg::INFO), "Shared node 1\n   No parents 3\n");
    EXPECT_EQ(messages.text(), messages.textOf(osg::INFO));
}

TEST(MyCopySharedSubgraphsVisitor, ReportsThatNothingIsShared) {
    const OsgMessages messages(osg::INFO);

    copyShared(*makeGroup({}));

    EXPECT_EQ(messages.textOf(osg::INFO), "Shared node 0\n");
}

TEST(MyCopySharedSubgraphsVisitor, IsSilentBelowTheSeverityInfo) {
    const SharedBelow graph(new osg::Group, 3);
    const OsgMessages messages(osg::NOTICE);

    copyShared(*graph.root);

    EXPECT_EQ(messages.text(), "");
}

TEST(MyCopySharedSubgraphsVisitor, CopiesEverySettingAndTheNodes) {
    const osg::ref_ptr<osg::Node> node = new osg::Group;
    const SharedBelow graph(node, 3);
    MyCopySharedSubgraphsVisitor original(nullptr);
    graph.root->accept(original);
    changeEverySetting(original);

    MyCopySharedSubgraphsVisitor copy(original);
    MyCopySharedSubgraphsVisitor assigned(nullptr);
    const MyCopySharedSubgraphsVisitor& result = assigned = original;

    expectEqualSettings(copy, original);
    expectEqualSettings(assigned, original);
    EXPECT_EQ(&result, &assigned);
    copy.copySharedNodes();
    EXPECT_EQ(node->getNumParents(), 1u);
    const osg::ref_ptr<osg::Group> another = makeGroup({node});
    assigned.copySharedNodes();
    EXPECT_EQ(node->getNumParents(), 1u);
}
