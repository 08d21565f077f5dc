#include <sceneutils/MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor.h>

#include "support/OsgMessages.h"
#include "support/PointModels.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/AutoTransform>
#include <osg/Billboard>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osg/PositionAttitudeTransform>
#include <osg/Switch>

#include <cmath>
#include <limits>
#include <type_traits>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using Flatten = veltrane::sceneutils::MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor;

namespace {

static_assert(std::is_base_of_v<osgUtil::Optimizer::FlattenStaticTransformsDuplicatingSharedSubgraphsVisitor, Flatten>);
static_assert(std::has_virtual_destructor_v<Flatten>);
static_assert(std::is_copy_constructible_v<Flatten> && std::is_copy_assignable_v<Flatten>);

constexpr double noLimit = std::numeric_limits<double>::infinity();
const osg::Vec3 shift(10, 0, 0);

/** A visitor that can be told that a transform above is being flattened. */
struct OpenFlatten : Flatten {
    using Flatten::_matrixStack;
    using Flatten::_operationType;
    using Flatten::_optimizer;
    using Flatten::Flatten;

    void pretendShiftAbove() { _matrixStack.push_back(osg::Matrixd::translate(shift)); }
};

struct EventCallback : osg::NodeCallback {};

osg::ref_ptr<osg::Group> makeGroup(const std::vector<osg::Node*>& children = {}) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (osg::Node* child : children) group->addChild(child);
    return group;
}

osg::ref_ptr<osg::MatrixTransform> makeShift(const osg::Vec3d& by, osg::Node* child,
                                             osg::Object::DataVariance variance = osg::Object::STATIC) {
    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(osg::Matrixd::translate(by));
    transform->setDataVariance(variance);
    if (child) transform->addChild(child);
    return transform;
}

/** Whether a transform below a root is flattened. */
bool isFlattened(osg::Transform* transform, double squaredLimit) {
    const auto root = makeGroup({transform});
    Flatten::process(root, squaredLimit);
    return !root->getChild(0)->asTransform();
}

bool isFlattened(const osg::Vec3d& translation, double squaredLimit) {
    return isFlattened(makeShift(translation, nullptr), squaredLimit);
}

/** Visits a node below parents under a transform that is being flattened. */
void visitBelowAShift(osg::Node& root, OpenFlatten& visitor) {
    visitor.pretendShiftAbove();
    root.accept(visitor);
}

void visitBelowAShift(osg::Node& root) {
    OpenFlatten visitor(noLimit);
    visitBelowAShift(root, visitor);
}

osg::ref_ptr<osg::LOD> makeLOD(osg::Node* child, const osg::Vec3& centre) {
    osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->addChild(child, 0.0f, 100.0f);
    lod->setCenter(centre);
    return lod;
}

}  // namespace

TEST(FlattenTransforms, VisitsAllChildrenWhateverTheirMasks) {
    const OpenFlatten visitor(1.0);

    EXPECT_EQ(visitor.getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    EXPECT_EQ(visitor.getNodeMaskOverride(), 0xffffffffu);
    EXPECT_EQ(visitor._optimizer, nullptr);
    EXPECT_TRUE(visitor._matrixStack.empty());
}

TEST(FlattenTransforms, FlattensTranslationsUpToTheLimitInclusively) {
    EXPECT_TRUE(isFlattened(osg::Vec3d(2, 3, 6), 49.0));
    EXPECT_TRUE(isFlattened(osg::Vec3d(0, 0, -1), 49.0));
    EXPECT_FALSE(isFlattened(osg::Vec3d(2, 3, 6), std::nextafter(49.0, 0.0)));
    EXPECT_FALSE(isFlattened(osg::Vec3d(std::nextafter(7.0, 8.0), 0, 0), 49.0));
}

TEST(FlattenTransforms, FlattensOnlyWhatStaysInPlaceWithTheLimitZero) {
    EXPECT_TRUE(isFlattened(osg::Vec3d(), 0.0));
    EXPECT_FALSE(isFlattened(osg::Vec3d(1e-9, 0, 0), 0.0));
    EXPECT_FALSE(isFlattened(osg::Vec3d(), -1.0));
}

TEST(FlattenTransforms, FlattensWhatIsNotANumber) {
    EXPECT_TRUE(isFlattened(osg::Vec3d(std::numeric_limits<double>::quiet_NaN(), 0, 0), 1.0));
}

TEST(FlattenTransforms, TakesThePositionOfAPositionAttitudeTransform) {
    for (const double limit : {25.0, 24.0}) {
        const osg::ref_ptr<osg::PositionAttitudeTransform> transform = new osg::PositionAttitudeTransform;
        transform->setDataVariance(osg::Object::STATIC);
        transform->setPosition(osg::Vec3d(3, 0, 4));
        transform->setPivotPoint(osg::Vec3d(100, 0, 0));
        EXPECT_EQ(isFlattened(transform, limit), limit == 25.0);
    }
}

TEST(FlattenTransforms, TakesOtherKindsForTransformsWithoutTranslation) {
    const osg::ref_ptr<osg::AutoTransform> transform = new osg::AutoTransform;
    transform->setDataVariance(osg::Object::STATIC);
    transform->setPosition(osg::Vec3d(1000, 0, 0));

    EXPECT_TRUE(isFlattened(transform, 0.0));
}

TEST(FlattenTransforms, KeepsTransformsThatAreNotStatic) {
    for (const auto variance : {osg::Object::DYNAMIC, osg::Object::UNSPECIFIED}) {
        const osg::ref_ptr<osg::Geode> geode = makePairGeode(osg::Vec3());
        const auto transform = makeShift(osg::Vec3d(), makeShift(shift, geode), variance);
        EXPECT_FALSE(isFlattened(transform, noLimit));
        EXPECT_EQ(pointsOf(transform->getChild(0)->asGroup()->getChild(0)->asGeode()), pairAt(shift));
    }
}

TEST(FlattenTransforms, KeepsTheRootOfTheVisit) {
    const auto transform = makeShift(shift, makePairGeode(osg::Vec3()));
    const auto above = makeGroup({transform});

    Flatten::process(transform, noLimit);

    EXPECT_EQ(above->getChild(0), transform);
}

TEST(FlattenTransforms, VisitsWhatHangsBelowTheRootOfTheVisit) {
    const auto transform = makeShift(shift, makeShift(shift, makePairGeode(osg::Vec3())));

    Flatten::process(transform, noLimit);

    const osg::Node* inner = transform->getChild(0);
    ASSERT_EQ(inner->asTransform(), nullptr);
    EXPECT_EQ(pointsOf(inner->asGroup()->getChild(0)->asGeode()), pairAt(shift));
}

TEST(FlattenTransforms, VisitsWhatHangsBelowAFarTransformAndFlattensItRelativeToThat) {
    const auto far = makeShift(osg::Vec3d(1000, 0, 0), makeShift(shift, makePairGeode(osg::Vec3())));
    const auto root = makeGroup({far});

    Flatten::process(root, 100.0);

    ASSERT_EQ(root->getChild(0), far);
    EXPECT_EQ(pointsOf(far->getChild(0)->asGroup()->getChild(0)->asGeode()), pairAt(shift));
}

TEST(FlattenTransforms, LeavesAFarTransformBelowAFlattenedOneInItsFrame) {
    const auto far = makeShift(osg::Vec3d(1000, 0, 0), makePairGeode(osg::Vec3()));
    const auto root = makeGroup({makeShift(shift, far)});

    Flatten::process(root, 100.0);

    const osg::Node* kept = root->getChild(0)->asGroup()->getChild(0);
    ASSERT_NE(kept->asTransform(), nullptr);
    EXPECT_EQ(pointsOf(kept->asGroup()->getChild(0)->asGeode()), pairAt(shift));
}

TEST(FlattenTransforms, AccumulatesNestedTransforms) {
    const osg::ref_ptr<osg::MatrixTransform> turned = new osg::MatrixTransform(
        osg::Matrixd(0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1));  // by 90 degrees about z
    turned->setDataVariance(osg::Object::STATIC);
    turned->addChild(makeShift(shift, makePairGeode(osg::Vec3())));
    const osg::ref_ptr<osg::Geode> beside = makePairGeode(osg::Vec3());
    const auto root = makeGroup({turned, beside});

    Flatten::process(root, noLimit);

    const osg::Group* inner = root->getChild(0)->asGroup()->getChild(0)->asGroup();
    EXPECT_THAT(pointsOf(inner->getChild(0)->asGeode()), ElementsAre(osg::Vec3(0, 9, 0), osg::Vec3(0, 11, 0)));
    EXPECT_EQ(pointsOf(beside), pairAt(osg::Vec3()));
}

TEST(FlattenTransforms, MovesEachNodeByTheTransformsAboveItOnly) {
    const auto middle = makeShift(shift * 2, makeShift(shift * 4, makePairGeode(osg::Vec3())));
    const auto outer = makeShift(shift, middle);
    outer->addChild(makePairGeode(osg::Vec3()));
    const auto root = makeGroup({outer});

    Flatten::process(root, noLimit);

    const auto below = [](const osg::Node* node, unsigned int index) { return node->asGroup()->getChild(index); };
    const osg::Node* flattened = root->getChild(0);
    EXPECT_EQ(pointsOf(below(flattened, 1)->asGeode()), pairAt(shift));
    EXPECT_EQ(pointsOf(below(below(below(flattened, 0), 0), 0)->asGeode()), pairAt(shift * 7));
}

TEST(FlattenTransforms, PutsAPlainGroupWithEverythingOfTheTransformIntoItsPlace) {
    const auto transform = makeShift(shift, makePairGeode(osg::Vec3()));
    const osg::ref_ptr<EventCallback> callback = new EventCallback;
    transform->setName("name");
    transform->setNodeMask(0xf0);
    transform->getOrCreateStateSet();
    transform->setEventCallback(callback);
    transform->setUpdateCallback(callback);
    const auto root = makeGroup({new osg::Group, transform, new osg::Group});

    Flatten::process(root, noLimit);

    osg::Node* group = root->getChild(1);
    EXPECT_STREQ(group->className(), "Group");
    EXPECT_EQ(group->getName(), "name");
    EXPECT_EQ(group->getNodeMask(), 0xf0u);
    EXPECT_EQ(group->getStateSet(), transform->getStateSet());
    EXPECT_EQ(group->getEventCallback(), callback);
    EXPECT_EQ(group->getUpdateCallback(), callback);
    EXPECT_EQ(root->getNumChildren(), 3u);
}

TEST(FlattenTransforms, CopiesArraysAndPrimitiveSetsBelowATransform) {
    const osg::ref_ptr<osg::Geode> geode = makePairGeode(osg::Vec3());
    const auto root = makeGroup({makeShift(shift, geode), makeShift(-shift, geode), geode});

    Flatten::process(root, noLimit);

    const auto at = [&root](unsigned int i) {
        return root->getChild(i)->asGroup()->getChild(0)->asGeode()->getDrawable(0)->asGeometry();
    };
    EXPECT_EQ(pointsOf(at(0)), pairAt(shift));
    EXPECT_EQ(pointsOf(at(1)), pairAt(-shift));
    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3()));
    EXPECT_NE(at(0)->getPrimitiveSet(0), at(1)->getPrimitiveSet(0));
}

TEST(FlattenTransforms, ReplacesASharedTransformInEachOfItsPlaces) {
    const auto transform = makeShift(shift, makePairGeode(osg::Vec3()));
    const auto left = makeGroup({transform}), right = makeGroup({transform});

    Flatten::process(makeGroup({left, right}), noLimit);

    EXPECT_EQ(pointsOf(left->getChild(0)->asGroup()->getChild(0)->asGeode()), pairAt(shift));
    EXPECT_EQ(pointsOf(right->getChild(0)->asGroup()->getChild(0)->asGeode()), pairAt(shift));
    EXPECT_EQ(transform->getNumParents(), 0u);
}

TEST(FlattenTransforms, KeepsThePlacesAmongManySiblings) {
    const auto root = makeGroup();
    for (int i = 0; i < 100; ++i) {
        const auto inner = makeShift(osg::Vec3d(1000.0 * (i % 3), 0, 0), nullptr);
        for (int j = 0; j < 20; ++j) inner->addChild(makeShift(osg::Vec3d(j, 0, 0), makePairGeode(osg::Vec3())));
        root->addChild(inner);
    }

    Flatten::process(root, 400.0);

    for (unsigned int i = 0; i < 100; ++i) {
        const osg::Group* inner = root->getChild(i)->asGroup();
        ASSERT_EQ(root->getChild(i)->asTransform() != nullptr, i % 3 != 0);
        for (unsigned int j = 0; j < 20; ++j)
            ASSERT_EQ(pointsOf(inner->getChild(j)->asGroup()->getChild(0)->asGeode()),
                      pairAt(osg::Vec3(static_cast<float>(j), 0, 0)));
    }
}

TEST(FlattenTransforms, DuplicatesAGroupThatIsSharedBelowAFlattenedTransform) {
    const auto shared = makeGroup({makePairGeode(osg::Vec3())});
    const auto root = makeGroup({makeShift(shift, makeGroup({shared})), shared});

    Flatten::process(root, noLimit);

    EXPECT_EQ(root->getChild(1), shared);
    EXPECT_EQ(shared->getNumParents(), 1u);
    EXPECT_EQ(pointsOf(shared->getChild(0)->asGeode()), pairAt(osg::Vec3()));
}

TEST(FlattenTransforms, LeavesAGroupSharedWithoutAFlattenedTransformAbove) {
    const auto shared = makeGroup({makePairGeode(osg::Vec3())});
    const auto far = makeShift(osg::Vec3d(1000, 0, 0), shared);
    const auto root = makeGroup({far, shared});

    Flatten::process(root, 1.0);

    EXPECT_EQ(far->getChild(0), shared);
    EXPECT_EQ(root->getChild(1), shared);
}

TEST(FlattenTransforms, CopiesASharedGroupOfItsKindButNotItsPrimitiveSets) {
    const osg::ref_ptr<osg::Switch> shared = new osg::Switch;
    const osg::ref_ptr<EventCallback> callback = new EventCallback;
    const osg::ref_ptr<osg::Geode> geode = makePairGeode(osg::Vec3());
    shared->addChild(geode, false);
    shared->setEventCallback(callback);
    const auto root = makeGroup({shared}), other = makeGroup({shared});

    visitBelowAShift(*root);

    const auto* copy = dynamic_cast<osg::Switch*>(root->getChild(0));
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, shared);
    EXPECT_EQ(other->getChild(0), shared);
    EXPECT_EQ(copy->getEventCallback(), callback);
    const osg::Geometry* moved = copy->getChild(0)->asGeode()->getDrawable(0)->asGeometry();
    EXPECT_EQ(pointsOf(moved), pairAt(shift));
    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3()));
    EXPECT_EQ(moved->getPrimitiveSet(0), geode->getDrawable(0)->asGeometry()->getPrimitiveSet(0));
}

TEST(FlattenTransforms, KeepsAGroupWithOneParentAndTheRoot) {
    const auto group = makeGroup({makePairGeode(osg::Vec3())});
    const auto root = makeGroup({group});
    const auto above = makeGroup({root}), beside = makeGroup({root});

    visitBelowAShift(*root);

    EXPECT_EQ(above->getChild(0), root);
    EXPECT_EQ(root->getChild(0), group);
    EXPECT_EQ(pointsOf(group->getChild(0)->asGeode()), pairAt(shift));
}

TEST(FlattenTransforms, FlattensTransformsBelowTheCopyOfASharedGroupOrLOD) {
    for (const osg::ref_ptr<osg::Group>& shared : {makeGroup(), osg::ref_ptr<osg::Group>(new osg::LOD)}) {
        const auto transform = makeShift(shift, makePairGeode(osg::Vec3()));
        shared->addChild(transform);
        const auto root = makeGroup({shared}), other = makeGroup({shared});

        visitBelowAShift(*root);

        const osg::Node* inner = root->getChild(0)->asGroup()->getChild(0);
        ASSERT_EQ(inner->asTransform(), nullptr);
        EXPECT_EQ(pointsOf(inner->asGroup()->getChild(0)->asGeode()), pairAt(shift * 2));
        EXPECT_EQ(shared->getChild(0), transform);
    }
}

TEST(FlattenTransforms, GivesCopiesOfLODsAndDrawablesTheirEventCallbacks) {
    for (const osg::ref_ptr<osg::Node>& shared :
         {osg::ref_ptr<osg::Node>(makeLOD(makePairGeode(osg::Vec3()), osg::Vec3())),
          osg::ref_ptr<osg::Node>(makePair(osg::Vec3()))}) {
        const osg::ref_ptr<EventCallback> callback = new EventCallback;
        shared->setEventCallback(callback);
        const auto root = makeGroup({shared}), other = makeGroup({shared});

        visitBelowAShift(*root);

        ASSERT_NE(root->getChild(0), shared);
        EXPECT_EQ(root->getChild(0)->getEventCallback(), callback);
    }
}

TEST(FlattenTransforms, MovesTheCentreOfAnLODAndMakesItUserDefined) {
    for (const auto mode : {osg::LOD::USE_BOUNDING_SPHERE_CENTER, osg::LOD::USER_DEFINED_CENTER,
                            osg::LOD::UNION_OF_BOUNDING_SPHERE_AND_USER_DEFINED}) {
        const auto lod = makeLOD(makePairGeode(osg::Vec3(1, 2, 3)), osg::Vec3(1, 2, 3));
        lod->setCenterMode(mode);
        visitBelowAShift(*makeGroup({lod}));
        EXPECT_EQ(lod->getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
        EXPECT_EQ(lod->getCenter(), osg::Vec3(11, 2, 3));
        EXPECT_EQ(pointsOf(lod->getChild(0)->asGeode()), pairAt(osg::Vec3(11, 2, 3)));
    }
}

TEST(FlattenTransforms, LeavesAnLODAloneWithoutAFlattenedTransformAbove) {
    const auto lod = makeLOD(makePairGeode(osg::Vec3()), osg::Vec3(1, 2, 3));
    lod->setCenterMode(osg::LOD::USE_BOUNDING_SPHERE_CENTER);
    const auto root = makeGroup({lod, makeGroup({lod})});

    Flatten::process(root, noLimit);

    EXPECT_EQ(root->getChild(0), lod);
    EXPECT_EQ(lod->getNumParents(), 2u);
    EXPECT_EQ(lod->getCenterMode(), osg::LOD::USE_BOUNDING_SPHERE_CENTER);
}

TEST(FlattenTransforms, UpdatesTheBoundOfAnLODWithACentreOfItsOwn) {
    const auto lod = makeLOD(new osg::Node, osg::Vec3());
    lod->setRadius(1.0f);
    const auto root = makeGroup({lod});
    root->getBound();

    visitBelowAShift(*root);

    EXPECT_EQ(root->getBound().center(), shift);
}

TEST(FlattenTransforms, CopiesASharedLODAsAPlainOne) {
    const osg::ref_ptr<osg::PagedLOD> lod = new osg::PagedLOD;
    const osg::ref_ptr<osg::Geode> geode = makePairGeode(osg::Vec3());
    lod->addChild(geode, 0.0f, 100.0f);
    lod->setCenter(osg::Vec3(1, 2, 3));
    const auto root = makeGroup({lod}), other = makeGroup({lod});

    visitBelowAShift(*root);

    const auto* copy = dynamic_cast<osg::LOD*>(root->getChild(0));
    EXPECT_STREQ(copy->className(), "LOD");
    EXPECT_EQ(copy->getCenter(), osg::Vec3(11, 2, 3));
    EXPECT_EQ(copy->getMaxRange(0), 100.0f);
    const osg::Geometry* moved = copy->getChild(0)->asGeode()->getDrawable(0)->asGeometry();
    EXPECT_EQ(pointsOf(moved), pairAt(shift));
    EXPECT_EQ(moved->getPrimitiveSet(0), geode->getDrawable(0)->asGeometry()->getPrimitiveSet(0));
    EXPECT_EQ(other->getChild(0), lod);
    EXPECT_EQ(lod->getCenter(), osg::Vec3(1, 2, 3));
}

TEST(FlattenTransforms, MovesTheCentreOfASharedLODThatItsBoundGaveOnce) {
    const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->addChild(makePairGeode(osg::Vec3(1, 2, 3)), 0.0f, 100.0f);
    const auto root = makeGroup({lod}), other = makeGroup({lod});

    visitBelowAShift(*root);

    const auto& copy = dynamic_cast<osg::LOD&>(*root->getChild(0));
    EXPECT_EQ(copy.getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
    EXPECT_EQ(copy.getCenter(), osg::Vec3(11, 2, 3));
    EXPECT_EQ(lod->getCenterMode(), osg::LOD::USE_BOUNDING_SPHERE_CENTER);
}

TEST(FlattenTransforms, MovesADrawableDirectlyBelowATransform) {
    const osg::ref_ptr<osg::Geometry> drawable = makePair(osg::Vec3());
    const auto root = makeGroup({makeShift(shift, drawable), drawable});

    Flatten::process(root, noLimit);

    EXPECT_EQ(pointsOf(root->getChild(0)->asGroup()->getChild(0)->asDrawable()), pairAt(shift));
    EXPECT_EQ(pointsOf(drawable), pairAt(osg::Vec3()));
}

TEST(FlattenTransforms, CopiesASharedDrawableDirectlyBelowAGroup) {
    const osg::ref_ptr<osg::Geometry> drawable = makePair(osg::Vec3());
    const auto root = makeGroup({drawable}), other = makeGroup({drawable});

    visitBelowAShift(*root);

    EXPECT_EQ(pointsOf(root->getChild(0)->asDrawable()), pairAt(shift));
    EXPECT_EQ(pointsOf(drawable), pairAt(osg::Vec3()));
    EXPECT_EQ(other->getChild(0), drawable);
}

TEST(FlattenTransforms, MovesGeodesThatHoldMoreThanDrawables) {
    const osg::ref_ptr<osg::Geode> geode = makePairGeode(osg::Vec3());
    geode->addChild(makePairGeode(osg::Vec3(5, 0, 0)));
    geode->addChild(new osg::Node);
    const auto root = makeGroup({makeShift(shift, geode)});

    Flatten::process(root, noLimit);

    const osg::Geode* moved = root->getChild(0)->asGroup()->getChild(0)->asGeode();
    EXPECT_EQ(pointsOf(moved), pairAt(shift));
    EXPECT_EQ(pointsOf(moved->getChild(1)->asGeode()), pairAt(osg::Vec3(15, 0, 0)));
}

TEST(FlattenTransforms, MovesBillboardsThatHaveAllTheirPositions) {
    const osg::ref_ptr<osg::Billboard> whole = new osg::Billboard, lacking = new osg::Billboard;
    whole->addDrawable(makePair(osg::Vec3()), osg::Vec3(1, 0, 0));
    lacking->addChild(makePair(osg::Vec3()));

    visitBelowAShift(*makeGroup({whole, lacking}));

    EXPECT_EQ(whole->getPosition(0), osg::Vec3(11, 0, 0));
    EXPECT_EQ(pointsOf(lacking->getDrawable(0)), pairAt(osg::Vec3()));
}

TEST(FlattenTransforms, LeavesABillboardInPlaceThatHoldsMoreThanDrawables) {
    const osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addDrawable(makePair(osg::Vec3()), osg::Vec3(1, 0, 0));
    billboard->addChild(makePairGeode(osg::Vec3()));
    billboard->getPositionList().push_back(osg::Vec3(2, 0, 0));

    visitBelowAShift(*makeGroup({billboard}));

    EXPECT_EQ(billboard->getPosition(0), osg::Vec3(1, 0, 0));
    EXPECT_EQ(pointsOf(billboard->getDrawable(0)), pairAt(osg::Vec3()));
}

TEST(FlattenTransforms, MarksMovedArraysAsChanged) {
    const osg::ref_ptr<osg::Geometry> below = makePair(osg::Vec3()), inGeode = makePair(osg::Vec3()),
                                      inBillboard = makePair(osg::Vec3());
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(inGeode);
    const osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addDrawable(inBillboard, osg::Vec3());
    for (const auto& geometry : {below, inGeode, inBillboard})
        geometry->setNormalArray(makeArray<osg::Vec3Array>({osg::X_AXIS, osg::X_AXIS}), osg::Array::BIND_PER_VERTEX);

    visitBelowAShift(*makeGroup({below, geode, billboard}));

    for (const auto& geometry : {below, inGeode, inBillboard}) {
        EXPECT_EQ(geometry->getVertexArray()->getModifiedCount(), 1u);
        EXPECT_EQ(geometry->getNormalArray()->getModifiedCount(), 1u);
    }
}

TEST(FlattenTransforms, ReportsATransformWithoutAGroupAbove) {
    const osg::ref_ptr<osg::Node> noGroup = new osg::Node;
    const osg::ref_ptr<osg::Geode> geode = makePairGeode(osg::Vec3());
    const auto transform = makeShift(shift, geode);
    OpenFlatten visitor(noLimit);
    visitor.pushOntoNodePath(noGroup);
    const OsgMessages messages;

    transform->accept(visitor);

    EXPECT_EQ(messages.textOf(osg::NOTICE), "No parent for this Group\n");
    EXPECT_EQ(messages.text(), messages.textOf(osg::NOTICE));
    EXPECT_TRUE(visitor._matrixStack.empty());
    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3()));
}

TEST(FlattenTransforms, ReportsASharedGroupOrLODWithoutAGroupAbove) {
    for (const auto& [shared, report] :
         {std::pair(makeGroup({makePairGeode(osg::Vec3())}), "No parent for this Group\n"),
          std::pair(osg::ref_ptr<osg::Group>(makeLOD(makePairGeode(osg::Vec3()), osg::Vec3())),
                    "No parent for this LOD\n")}) {
        const auto left = makeGroup({shared}), right = makeGroup({shared});
        const osg::ref_ptr<osg::Node> noGroup = new osg::Node;
        OpenFlatten visitor(noLimit);
        visitor.pushOntoNodePath(noGroup);
        const OsgMessages messages;
        visitBelowAShift(*shared, visitor);
        EXPECT_EQ(messages.textOf(osg::NOTICE), report);
        EXPECT_EQ(pointsOf(shared->getChild(0)->asGeode()), pairAt(osg::Vec3()));
        EXPECT_EQ(visitor._matrixStack.size(), 1u);
    }
}

TEST(FlattenTransforms, FlattensFarTransformsByTheUnlimitedOperation) {
    const auto transform = makeShift(osg::Vec3d(1000, 0, 0), makePairGeode(osg::Vec3()));
    const auto root = makeGroup({transform});
    Flatten visitor(0.0);
    visitor.pushOntoNodePath(root);
    visitor.pushOntoNodePath(transform);

    visitor.originalApply(*transform);

    EXPECT_EQ(root->getChild(0)->asTransform(), nullptr);
}

TEST(FlattenTransforms, GivesBackARootThatNobodyHoldsAndIgnoresNull) {
    osg::Group* root = new osg::Group;
    root->addChild(makeShift(shift, nullptr));

    Flatten::process(root, noLimit);
    Flatten::process(nullptr, noLimit);

    ASSERT_EQ(root->referenceCount(), 0);
    const osg::ref_ptr<osg::Group> deletesIt = root;
}

TEST(FlattenTransforms, ChangesNothingInASecondRun) {
    const auto root = makeGroup({makeShift(shift, makePairGeode(osg::Vec3()))});
    Flatten::process(root, noLimit);
    const osg::ref_ptr<osg::Node> once = root->getChild(0);

    Flatten::process(root, noLimit);

    EXPECT_EQ(root->getChild(0), once);
    EXPECT_EQ(pointsOf(once->asGroup()->getChild(0)->asGeode()), pairAt(shift));
}

TEST(FlattenTransforms, CopiesEverySettingStackAndLimit) {
    OpenFlatten original(100.0);
    original.pretendShiftAbove();
    changeEverySetting(original);

    const OpenFlatten copy(original);
    OpenFlatten assigned(0.0);
    const Flatten& result = assigned = original;

    for (const OpenFlatten* each : {&copy, static_cast<const OpenFlatten*>(&assigned)}) {
        expectEqualSettings(*each, original);
        EXPECT_EQ(each->_matrixStack, original._matrixStack);
        EXPECT_EQ(each->_operationType, original._operationType);
    }
    EXPECT_EQ(&result, &assigned);
    OpenFlatten again(0.0);
    again = OpenFlatten(100.0);
    const auto root = makeGroup({makeShift(shift, nullptr), makeShift(shift * 2, nullptr)});
    root->accept(again);
    EXPECT_EQ(root->getChild(0)->asTransform(), nullptr);
    EXPECT_NE(root->getChild(1)->asTransform(), nullptr);
}
