#include <sceneutils/TransformAccumulator.h>

#include <gmock/gmock.h>

#include <osg/Camera>
#include <osg/FrameStamp>
#include <osg/MatrixTransform>
#include <osg/PositionAttitudeTransform>
#include <osgUtil/UpdateVisitor>

#include <ostream>
#include <type_traits>
#include <vector>

// Found by GoogleTest beside the type.
namespace osg {

void PrintTo(const Matrixd& matrix, std::ostream* out) {
    for (int i = 0; i < 16; ++i) *out << matrix.ptr()[i] << (i % 4 == 3 ? "; " : " ");
}

}  // namespace osg

using testing::ElementsAre;
using testing::IsEmpty;
using veltrane::sceneutils::TransformAccumulator;
using veltrane::sceneutils::UpdateAccumlatedMatrix;

namespace {

static_assert(!std::is_polymorphic_v<TransformAccumulator>);
static_assert(std::is_copy_constructible_v<TransformAccumulator> && std::is_copy_assignable_v<TransformAccumulator>);
static_assert(std::is_same_v<decltype(TransformAccumulator::_parent), osg::ref_ptr<osg::Group>>);
static_assert(std::is_same_v<decltype(TransformAccumulator::_attachGroup), osg::Group*>);
static_assert(std::is_same_v<decltype(TransformAccumulator::_child), osg::Node*>);
static_assert(std::is_same_v<decltype(TransformAccumulator::_callback), UpdateAccumlatedMatrix*>);
static_assert(std::is_base_of_v<osg::NodeCallback, UpdateAccumlatedMatrix>);
static_assert(std::is_copy_constructible_v<UpdateAccumlatedMatrix>);
static_assert(std::is_copy_assignable_v<UpdateAccumlatedMatrix>);

/** Keeps the attach point alive while it hangs nowhere. */
struct HeldAccumulator : TransformAccumulator {
    osg::ref_ptr<osg::Group> attachPoint = _attachGroup;
};

void update(osg::Node& root) {
    const osg::ref_ptr<osgUtil::UpdateVisitor> visitor = new osgUtil::UpdateVisitor;
    visitor->setFrameStamp(new osg::FrameStamp);
    root.accept(*visitor);
}

osg::ref_ptr<osg::MatrixTransform> makeTransform(const osg::Matrixd& matrix, osg::Node* child) {
    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(matrix);
    transform->addChild(child);
    return transform;
}

std::vector<osg::Node*> childrenOf(const osg::Group& group) {
    std::vector<osg::Node*> children;
    for (unsigned int i = 0; i < group.getNumChildren(); ++i)
        children.push_back(const_cast<osg::Node*>(group.getChild(i)));
    return children;
}

/** Counts its calls, and notes what was recorded above it by then. */
struct CallCounter : osg::NodeCallback {
    explicit CallCounter(const TransformAccumulator* watchedAccumulator = nullptr) : watched(watchedAccumulator) {}
    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override {
        ++calls;
        if (watched) seen = watched->getMatrix();
        traverse(node, visitor);
    }
    const TransformAccumulator* watched;
    osg::Matrixd seen;
    int calls = 0;
};

}  // namespace

TEST(TransformAccumulator, MakesAnAttachPointWithCallbackAndChild) {
    const HeldAccumulator accumulator;

    EXPECT_EQ(accumulator._parent, nullptr);
    EXPECT_STREQ(accumulator._attachGroup->className(), "Group");
    EXPECT_STREQ(accumulator._child->className(), "Node");
    EXPECT_THAT(childrenOf(*accumulator._attachGroup), ElementsAre(accumulator._child));
    EXPECT_EQ(accumulator._attachGroup->getUpdateCallback(), accumulator._callback);
    EXPECT_EQ(accumulator._child->getUpdateCallback(), nullptr);
    EXPECT_EQ(accumulator._attachGroup->getNumParents(), 0u);
}

TEST(TransformAccumulator, LeavesItsObjectsToTheGraph) {
    const HeldAccumulator accumulator;

    EXPECT_EQ(accumulator._attachGroup->referenceCount(), 1) << "the one of this test";
    EXPECT_EQ(accumulator._child->referenceCount(), 1);
    EXPECT_EQ(accumulator._callback->referenceCount(), 1);
}

TEST(TransformAccumulator, LeavesItsObjectsAliveWhenItIsDestroyed) {
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    {
        TransformAccumulator accumulator;
        accumulator.attachToGroup(scene);
        accumulator._parent = scene;
    }

    EXPECT_EQ(scene->referenceCount(), 1);
    ASSERT_EQ(scene->getNumChildren(), 1u);
    const osg::Group* attachPoint = scene->getChild(0)->asGroup();
    EXPECT_EQ(attachPoint->getNumChildren(), 1u);
    EXPECT_NE(attachPoint->getUpdateCallback(), nullptr);
}

TEST(TransformAccumulator, HasTheIdentityBeforeTheFirstUpdateTraversal) {
    HeldAccumulator accumulator;
    const auto scene = makeTransform(osg::Matrixd::translate(10, 0, 0), new osg::Group);

    accumulator.attachToGroup(scene);

    EXPECT_EQ(accumulator.getMatrix(), osg::Matrixd());
}

TEST(TransformAccumulator, RecordsTheWorldToLocalMatrixInAnUpdateTraversal) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    const auto scene = makeTransform(osg::Matrixd::translate(10, 0, 0), group);
    accumulator.attachToGroup(group);

    update(*scene);

    EXPECT_EQ(accumulator.getMatrix(), osg::Matrixd::translate(-10, 0, 0));
}

TEST(TransformAccumulator, RecordsTheInverseOfAllTransformsAboveIt) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::PositionAttitudeTransform> inner = new osg::PositionAttitudeTransform;
    inner->setPosition(osg::Vec3d(1, 2, 3));
    const auto scene = makeTransform(osg::Matrixd::scale(2, 2, 2), inner);
    accumulator.attachToGroup(inner);

    update(*scene);

    EXPECT_EQ(accumulator.getMatrix(), osg::Matrixd::scale(0.5, 0.5, 0.5) * osg::Matrixd::translate(-1, -2, -3));
}

TEST(TransformAccumulator, FollowsTheLastUpdateTraversal) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    const auto scene = makeTransform(osg::Matrixd::translate(10, 0, 0), group);
    accumulator.attachToGroup(group);
    update(*scene);

    scene->setMatrix(osg::Matrixd::translate(0, 20, 0));
    EXPECT_EQ(accumulator.getMatrix(), osg::Matrixd::translate(-10, 0, 0));
    update(*scene);

    EXPECT_EQ(accumulator.getMatrix(), osg::Matrixd::translate(0, -20, 0));
}

TEST(TransformAccumulator, RecordsTheLastOfSeveralPaths) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    accumulator.attachToGroup(group);
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(makeTransform(osg::Matrixd::translate(10, 0, 0), group));
    scene->addChild(makeTransform(osg::Matrixd::translate(0, 20, 0), group));

    update(*scene);

    EXPECT_EQ(accumulator.getMatrix(), osg::Matrixd::translate(0, -20, 0));
}

TEST(TransformAccumulator, RecordsThePathFromWhereTheTraversalBegan) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    const auto part = makeTransform(osg::Matrixd::translate(10, 0, 0), group);
    const auto scene = makeTransform(osg::Matrixd::translate(0, 20, 0), part);
    accumulator.attachToGroup(group);

    update(*part);

    EXPECT_EQ(accumulator.getMatrix(), osg::Matrixd::translate(-10, 0, 0));
}

TEST(TransformAccumulator, LeavesOutAbsoluteCamerasAndWhatIsAboveThem) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->setViewMatrix(osg::Matrixd::translate(0, 0, 30));
    camera->addChild(makeTransform(osg::Matrixd::translate(10, 0, 0), group));
    const auto scene = makeTransform(osg::Matrixd::translate(0, 20, 0), camera);
    accumulator.attachToGroup(group);

    update(*scene);

    EXPECT_EQ(accumulator.getMatrix(), osg::Matrixd::translate(-10, 0, 0));
}

TEST(TransformAccumulator, LeavesOutACameraAtTheRoot) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setReferenceFrame(osg::Transform::RELATIVE_RF);
    camera->setViewMatrix(osg::Matrixd::translate(0, 0, 30));
    accumulator.attachToGroup(camera);

    update(*camera);

    EXPECT_EQ(accumulator.getMatrix(), osg::Matrixd());
}

TEST(TransformAccumulator, CountsTheTransformOfARelativeCamera) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setReferenceFrame(osg::Transform::RELATIVE_RF);
    camera->setViewMatrix(osg::Matrixd::translate(0, 0, 30));
    const auto scene = makeTransform(osg::Matrixd::translate(10, 0, 0), camera);
    accumulator.attachToGroup(camera);

    update(*scene);

    EXPECT_EQ(accumulator.getMatrix(), osg::Matrixd::translate(-10, 0, -30));
}

TEST(TransformAccumulator, ReadsTheCallbacksMatrix) {
    const HeldAccumulator accumulator;

    accumulator._callback->_matrix = osg::Matrixd::translate(1, 2, 3);

    EXPECT_EQ(accumulator.getMatrix(), osg::Matrixd::translate(1, 2, 3));
}

TEST(TransformAccumulator, CallsTheChildsCallbackAfterItHasRecorded) {
    TransformAccumulator accumulator;
    const auto scene = makeTransform(osg::Matrixd::translate(10, 0, 0), new osg::Group);
    accumulator.attachToGroup(scene);
    const osg::ref_ptr<CallCounter> callback = new CallCounter(&accumulator);

    accumulator.addUpdateCallbackToChild(callback);
    update(*scene);

    EXPECT_EQ(accumulator._child->getUpdateCallback(), callback);
    EXPECT_EQ(callback->calls, 1);
    EXPECT_EQ(callback->seen, osg::Matrixd::translate(-10, 0, 0));
}

TEST(TransformAccumulator, ReplacesTheChildsCallback) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    accumulator.attachToGroup(scene);
    const osg::ref_ptr<CallCounter> former = new CallCounter;
    const osg::ref_ptr<CallCounter> callback = new CallCounter;

    accumulator.addUpdateCallbackToChild(former);
    accumulator.addUpdateCallbackToChild(callback);
    update(*scene);

    EXPECT_EQ(former->calls, 0);
    EXPECT_EQ(former->referenceCount(), 1);
    EXPECT_EQ(callback->calls, 1);
    accumulator.addUpdateCallbackToChild(nullptr);
    EXPECT_EQ(accumulator._child->getUpdateCallback(), nullptr);
}

TEST(TransformAccumulator, IsAttachedWithoutAParent) {
    HeldAccumulator accumulator;
    const osg::ref_ptr<osg::Group> first = new osg::Group;
    const osg::ref_ptr<osg::Group> second = new osg::Group;
    first->addChild(new osg::Node);

    EXPECT_TRUE(accumulator.attachToGroup(first));
    EXPECT_EQ(first->getChild(1), accumulator._attachGroup) << "behind the others";
    EXPECT_EQ(accumulator._parent, nullptr);

    EXPECT_TRUE(accumulator.attachToGroup(second));
    EXPECT_EQ(first->getNumChildren(), 2u) << "it stays where it was";
    EXPECT_THAT(childrenOf(*second), ElementsAre(accumulator._attachGroup));
}

TEST(TransformAccumulator, IsMovedAwayFromItsParent) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::Group> parent = new osg::Group;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    const osg::ref_ptr<osg::Node> sibling = new osg::Node;
    accumulator.attachToGroup(parent);
    parent->addChild(sibling);
    accumulator._parent = parent;

    EXPECT_TRUE(accumulator.attachToGroup(group));

    EXPECT_THAT(childrenOf(*parent), ElementsAre(sibling.get()));
    EXPECT_THAT(childrenOf(*group), ElementsAre(accumulator._attachGroup));
    EXPECT_EQ(accumulator._attachGroup->referenceCount(), 1);
    EXPECT_EQ(accumulator._parent, parent) << "set by the caller only";
}

TEST(TransformAccumulator, StaysWhereItIsWhenItHasLeftItsParent) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::Group> parent = new osg::Group;
    const osg::ref_ptr<osg::Group> second = new osg::Group;
    const osg::ref_ptr<osg::Group> third = new osg::Group;
    accumulator.attachToGroup(parent);
    accumulator._parent = parent;
    accumulator.attachToGroup(second);

    EXPECT_FALSE(accumulator.attachToGroup(third));
    EXPECT_THAT(childrenOf(*third), IsEmpty());

    accumulator._parent = second;
    EXPECT_TRUE(accumulator.attachToGroup(third));
    EXPECT_THAT(childrenOf(*second), IsEmpty());
    EXPECT_THAT(childrenOf(*third), ElementsAre(accumulator._attachGroup));
}

TEST(TransformAccumulator, IsNotAttachedWhenItsParentHasNoChildren) {
    HeldAccumulator accumulator;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    accumulator._parent = new osg::Group;

    EXPECT_FALSE(accumulator.attachToGroup(group));

    EXPECT_THAT(childrenOf(*group), IsEmpty());
}

TEST(TransformAccumulator, IsNotAttachedWhenItsParentDoesNotHoldIt) {
    HeldAccumulator accumulator;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    accumulator._parent = new osg::Group;
    accumulator._parent->addChild(new osg::Node);

    EXPECT_FALSE(accumulator.attachToGroup(group));

    EXPECT_THAT(childrenOf(*group), IsEmpty());
    EXPECT_EQ(accumulator._parent->getNumChildren(), 1u);
}

TEST(TransformAccumulator, SurvivesNotBeingFoundWhileNobodyHoldsIt) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    accumulator._parent = new osg::Group;
    accumulator._parent->addChild(new osg::Node);

    EXPECT_FALSE(accumulator.attachToGroup(group));

    EXPECT_EQ(accumulator._attachGroup->referenceCount(), 0);
    accumulator._parent = nullptr;
    EXPECT_TRUE(accumulator.attachToGroup(group));
}

TEST(TransformAccumulator, MayBeMovedToTheParentItIsTakenFrom) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<osg::Group> parent = new osg::Group;
    const osg::ref_ptr<osg::Node> sibling = new osg::Node;
    accumulator.attachToGroup(parent);
    parent->addChild(sibling);
    accumulator._parent = parent;

    EXPECT_TRUE(accumulator.attachToGroup(parent));

    EXPECT_THAT(childrenOf(*parent), ElementsAre(sibling.get(), accumulator._attachGroup));
}

namespace {

/** Which children are left of a parent with these, "A" being the attach point; moves it to another group. */
std::string childrenLeft(const std::string& children) {
    HeldAccumulator accumulator;
    const osg::ref_ptr<osg::Group> parent = new osg::Group;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    for (const char child : children) parent->addChild(child == 'A' ? accumulator._attachGroup : new osg::Node);
    accumulator._parent = parent;

    const bool isAttached = accumulator.attachToGroup(group);

    std::string left;
    for (const osg::Node* child : childrenOf(*parent)) left += child == accumulator._attachGroup ? 'A' : 'x';
    const std::size_t places = group->getNumChildren();
    return left + (isAttached ? ", attached" : ", not attached") + " at " + std::to_string(places);
}

}  // namespace

TEST(TransformAccumulator, PassesOverTheChildBehindOneThatItTakesAway) {
    EXPECT_EQ(childrenLeft("A"), ", attached at 1");
    EXPECT_EQ(childrenLeft("xAx"), "xx, attached at 1");
    EXPECT_EQ(childrenLeft("AAx"), "Ax, attached at 1");
    EXPECT_EQ(childrenLeft("AA"), "A, attached at 1");
    EXPECT_EQ(childrenLeft("xA"), "x, attached at 1");
    EXPECT_EQ(childrenLeft("AxA"), "x, attached at 1");
    EXPECT_EQ(childrenLeft("AAAA"), "AA, attached at 1");
    EXPECT_EQ(childrenLeft("xx"), "xx, not attached at 0");
}

TEST(TransformAccumulator, CopiesShareOneAttachPoint) {
    TransformAccumulator original;
    const auto scene = makeTransform(osg::Matrixd::translate(10, 0, 0), new osg::Group);
    original.attachToGroup(scene);
    original._parent = scene;

    const TransformAccumulator copy(original);
    update(*scene);

    EXPECT_EQ(copy._parent, scene);
    EXPECT_EQ(copy._attachGroup, original._attachGroup);
    EXPECT_EQ(copy._child, original._child);
    EXPECT_EQ(copy._callback, original._callback);
    EXPECT_EQ(scene->referenceCount(), 3);
    EXPECT_EQ(original._attachGroup->referenceCount(), 1);
    EXPECT_EQ(copy.getMatrix(), osg::Matrixd::translate(-10, 0, 0));
    EXPECT_EQ(original.getMatrix(), copy.getMatrix());
}

TEST(TransformAccumulator, AssignmentReleasesTheFormerParent) {
    const HeldAccumulator original;
    HeldAccumulator target;
    const osg::ref_ptr<osg::Group> former = new osg::Group;
    target._parent = former;
    TransformAccumulator& assigned = target;

    TransformAccumulator& result = assigned = original;

    EXPECT_EQ(&result, &assigned);
    EXPECT_EQ(assigned._parent, nullptr);
    EXPECT_EQ(former->referenceCount(), 1);
    EXPECT_EQ(assigned._attachGroup, original._attachGroup);
    EXPECT_EQ(assigned._child, original._child);
    EXPECT_EQ(assigned._callback, original._callback);
}

TEST(TransformAccumulator, AssignmentHoldsTheNewParent) {
    HeldAccumulator original;
    HeldAccumulator target;
    const osg::ref_ptr<osg::Group> parent = new osg::Group;
    original._parent = parent;

    static_cast<TransformAccumulator&>(target) = original;
    EXPECT_EQ(parent->referenceCount(), 3);

    static_cast<TransformAccumulator&>(target) = original;
    EXPECT_EQ(parent->referenceCount(), 3);
    original._parent = nullptr;
    EXPECT_EQ(target._parent, parent);
}

TEST(UpdateAccumlatedMatrix, BeginsWithTheIdentity) {
    const osg::ref_ptr<UpdateAccumlatedMatrix> callback = new UpdateAccumlatedMatrix;

    EXPECT_EQ(callback->_matrix, osg::Matrixd());
}

TEST(UpdateAccumlatedMatrix, CallsItselfANodeCallback) {
    const osg::ref_ptr<UpdateAccumlatedMatrix> callback = new UpdateAccumlatedMatrix;
    const osg::ref_ptr<osg::NodeCallback> plain = new osg::NodeCallback;

    EXPECT_STREQ(callback->libraryName(), "osg");
    EXPECT_STREQ(callback->className(), "NodeCallback");
    EXPECT_TRUE(callback->isSameKindAs(plain));
}

TEST(UpdateAccumlatedMatrix, RecordsOnAnyNode) {
    const osg::ref_ptr<UpdateAccumlatedMatrix> callback = new UpdateAccumlatedMatrix;
    const auto transform = makeTransform(osg::Matrixd::translate(10, 0, 0), new osg::Node);
    transform->setUpdateCallback(callback);

    update(*transform);

    EXPECT_EQ(callback->_matrix, osg::Matrixd::translate(-10, 0, 0)) << "the node itself is part of its path";
}

TEST(UpdateAccumlatedMatrix, GoesOnToTheNestedCallbacksAndTheChildren) {
    HeldAccumulator accumulator;
    const osg::ref_ptr<CallCounter> nested = new CallCounter;
    const osg::ref_ptr<CallCounter> below = new CallCounter;
    accumulator._attachGroup->addUpdateCallback(nested);
    accumulator.addUpdateCallbackToChild(below);

    update(*accumulator._attachGroup);

    EXPECT_EQ(accumulator._attachGroup->getUpdateCallback(), accumulator._callback);
    EXPECT_EQ(nested->calls, 1);
    EXPECT_EQ(below->calls, 1);
}

TEST(UpdateAccumlatedMatrix, CopiesHaveTheMatrixAndTheNestedCallback) {
    const osg::ref_ptr<osg::NodeCallback> nested = new osg::NodeCallback;
    const osg::ref_ptr<UpdateAccumlatedMatrix> original = new UpdateAccumlatedMatrix;
    original->_matrix = osg::Matrixd::translate(1, 2, 3);
    original->setNestedCallback(nested);

    const osg::ref_ptr<UpdateAccumlatedMatrix> copy = new UpdateAccumlatedMatrix(*original);
    const osg::ref_ptr<UpdateAccumlatedMatrix> assigned = new UpdateAccumlatedMatrix;
    UpdateAccumlatedMatrix& result = *assigned = *original;

    EXPECT_EQ(&result, assigned);
    for (const auto& either : {copy, assigned}) {
        EXPECT_EQ(either->_matrix, osg::Matrixd::translate(1, 2, 3));
        EXPECT_EQ(either->getNestedCallback(), nested);
    }
    EXPECT_EQ(nested->referenceCount(), 4);
}
