// What becomes of each kind of node when a matrix is pushed into it.

#include <sceneutils/BubbleUpTransform.h>

#include "support/OpenBubbleUpTransform.h"
#include "support/PointModels.h"

#include <gmock/gmock.h>

#include <osg/AutoTransform>
#include <osg/CoordinateSystemNode>
#include <osg/ProxyNode>
#include <osg/Sequence>
#include <osg/Switch>
#include <osgSim/DOFTransform>
#include <osgSim/MultiSwitch>
#include <osgUtil/TransformAttributeFunctor>

#include <cmath>
#include <functional>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using veltrane::sceneutils::BubbleUpTransform;

namespace {

/** Scales by 2, 3 and 4, then moves by 10, 20 and 30. */
const osg::Matrixd scaleAndMove = osg::Matrixd::scale(2, 3, 4) * osg::Matrixd::translate(10, 20, 30);
const osg::Matrixd move = osg::Matrixd::translate(10, 20, 30);
const osg::Matrixd quarterTurn(0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1);  // takes the x axis to the y axis

/** A drawable that notes what happens to it. */
struct Probe : osg::Drawable {
    using osg::Drawable::accept;
    void accept(osg::NodeVisitor& visitor) override {
        ++visits;
        osg::Drawable::accept(visitor);
    }
    void accept(AttributeFunctor& functor) override {
        matrices.push_back(dynamic_cast<osgUtil::TransformAttributeFunctor&>(functor)._m);
        inverses.push_back(dynamic_cast<osgUtil::TransformAttributeFunctor&>(functor)._im);
        if (onTransform) onTransform();
    }
    osg::BoundingBox computeBoundingBox() const override {
        ++boundsComputed;
        return {0, 0, 0, 1, 1, 1};
    }
    void dirtyGLObjects() override { ++drawingsDropped; }

    std::vector<osg::Matrixd> matrices, inverses;
    std::function<void()> onTransform;
    int visits = 0;
    int drawingsDropped = 0;
    mutable int boundsComputed = 0;
};

/** The probe's part in a run: how often it was transformed, drawings were dropped and the bound is computed anew. */
std::vector<int> countsOf(Probe& probe) {
    const int before = probe.boundsComputed;
    probe.getBoundingBox();
    return {static_cast<int>(probe.matrices.size()), probe.drawingsDropped, probe.boundsComputed - before};
}

osg::ref_ptr<Probe> makeProbe() {
    osg::ref_ptr<Probe> probe = new Probe;
    probe->getBoundingBox();
    probe->drawingsDropped = 0;
    return probe;
}

osg::ref_ptr<osg::Geode> makeGeode(std::initializer_list<osg::ref_ptr<osg::Drawable>> drawables) {
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    for (const auto& drawable : drawables) geode->addDrawable(drawable);
    return geode;
}

osg::ref_ptr<osg::Billboard> makeBillboard(osg::Drawable* drawable, const osg::Vec3& position) {
    osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addDrawable(drawable, position);
    return billboard;
}

/** As close as single precision allows, after a normalisation. */
void expectNear(const osg::Vec3& actual, const osg::Vec3& expected) {
    EXPECT_LT((actual - expected).length(), 1e-6f) << actual << " instead of " << expected;
}

osg::ref_ptr<osg::LOD> makeLOD() {
    osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->addChild(makePairGeode(osg::Vec3(5, 6, 7)), 0.0f, 100.0f);
    lod->addChild(makePairGeode(osg::Vec3(5, 6, 7)), 100.0f, 500.5f);
    return lod;
}

}  // namespace

TEST(BubbleUpTransformOnGeodes, PutsTheWholeMatrixIntoTheVertices) {
    const auto points = makePoints({osg::Vec3(1, 1, 1), osg::Vec3(-1, 0, 2)});

    push(scaleAndMove, *makeGeode({points}));

    EXPECT_THAT(pointsOf(points), ElementsAre(osg::Vec3(12, 23, 34), osg::Vec3(8, 20, 38)));
}

TEST(BubbleUpTransformOnGeodes, KeepsNormalsUprightAndOfLengthOne) {
    const auto points = makePoints({osg::Vec3()});
    points->setNormalArray(makeArray<osg::Vec3Array>({osg::Vec3(4, 0, 3), osg::Vec3(0, 1, 0)}),
                           osg::Array::BIND_PER_VERTEX);

    push(osg::Matrixd::scale(2, 1, 1.5) * move, *makeGeode({points}));

    const Points normals = pointsOf(points->getNormalArray());
    expectNear(normals[0], osg::Vec3(1, 0, 1) * static_cast<float>(std::sqrt(0.5)));
    EXPECT_EQ(normals[1], osg::Vec3(0, 1, 0));
}

TEST(BubbleUpTransformOnGeodes, TakesArraysOfDoubles) {
    osg::ref_ptr<osg::Vec3dArray> positions = makeArray<osg::Vec3dArray>({osg::Vec3d(1e-9, 1, 1)});
    osg::ref_ptr<osg::Vec3dArray> normals = makeArray<osg::Vec3dArray>({osg::Vec3d(0, 5, 0)});
    const auto points = makePoints(positions);
    points->setNormalArray(normals);

    push(osg::Matrixd::translate(1, 2, 3), *makeGeode({points}));

    EXPECT_EQ((*positions)[0], osg::Vec3d(1e-9 + 1, 3, 4));
    EXPECT_EQ((*normals)[0], osg::Vec3d(0, 1, 0));
}

TEST(BubbleUpTransformOnGeodes, DividesByTheFourthCoordinate) {
    osg::Matrixd matrix;
    matrix(3, 3) = 2;
    const auto points = makePoints({osg::Vec3(2, 4, 6)});

    push(matrix, *makeGeode({points}));

    EXPECT_THAT(pointsOf(points), ElementsAre(osg::Vec3(1, 2, 3)));
}

TEST(BubbleUpTransformOnGeodes, LeavesOtherArraysAlone) {
    osg::ref_ptr<osg::Vec3Array> other = makeArray<osg::Vec3Array>({osg::Vec3(1, 2, 3)});
    const auto points = makePoints({osg::Vec3()});
    points->setColorArray(other, osg::Array::BIND_OVERALL);
    points->setSecondaryColorArray(other);
    points->setFogCoordArray(other);
    points->setTexCoordArray(0, other);
    points->setVertexAttribArray(5, other);

    push(scaleAndMove, *makeGeode({points}));

    EXPECT_THAT(pointsOf(other), ElementsAre(osg::Vec3(1, 2, 3)));
}

TEST(BubbleUpTransformOnGeodes, HandsEveryDrawableTheMatrixAndItsInverse) {
    const auto first = makeProbe(), second = makeProbe();

    push(scaleAndMove, *makeGeode({first, second}));

    EXPECT_THAT(first->matrices, ElementsAre(scaleAndMove));
    EXPECT_THAT(second->matrices, ElementsAre(scaleAndMove));
    EXPECT_THAT(second->inverses, ElementsAre(osg::Matrixd::inverse(scaleAndMove)));
}

TEST(BubbleUpTransformOnGeodes, PutsTheMatrixIntoWhatAnotherKindOfDrawableHandsOut) {
    struct OwnPoint : osg::Drawable {
        using osg::Drawable::accept;
        void accept(AttributeFunctor& functor) override { functor.apply(VERTICES, 1, &point); }
        osg::Vec3 point = osg::Vec3(1, 1, 1);
    };
    osg::ref_ptr<OwnPoint> drawable = new OwnPoint;

    push(scaleAndMove, *makeGeode({drawable}));

    EXPECT_EQ(drawable->point, osg::Vec3(12, 23, 34));
}

TEST(BubbleUpTransformOnGeodes, DropsWhatWasKeptOfTheDrawable) {
    const auto probe = makeProbe();
    const auto geode = makeGeode({probe});
    probe->drawingsDropped = 0;

    push(move, *geode);

    EXPECT_THAT(countsOf(*probe), ElementsAre(1, 1, 1));
    EXPECT_EQ(probe->visits, 0);
}

TEST(BubbleUpTransformOnGeodes, ReachesDrawablesThatAreAddedDuringTheVisit) {
    const auto first = makeProbe(), added = makeProbe();
    const auto geode = makeGeode({first});
    first->onTransform = [&] { geode->addDrawable(added); };

    push(move, *geode);

    EXPECT_THAT(added->matrices, ElementsAre(move));
}

TEST(BubbleUpTransformOnGeodes, PassesOverChildrenThatAreNoDrawables) {
    const auto below = makePairGeode(osg::Vec3()), geode = makePairGeode(osg::Vec3());
    const auto last = makeProbe();
    geode->addChild(below);
    geode->addChild(last);

    push(move, *geode);

    EXPECT_EQ(pointsOf(below), pairAt(osg::Vec3()));
    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3(10, 20, 30)));
    EXPECT_THAT(last->matrices, ElementsAre(move));
}

TEST(BubbleUpTransformOnGeodes, MovesTheBoundsAlong) {
    const auto geode = makePairGeode(osg::Vec3());
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(geode);
    ASSERT_EQ(root->getBound().center(), osg::Vec3());

    push(move, *root);

    EXPECT_EQ(geode->getDrawable(0)->getBoundingBox().center(), osg::Vec3(10, 20, 30));
    EXPECT_EQ(root->getBound().center(), osg::Vec3(10, 20, 30));
}

TEST(BubbleUpTransformOnGeodes, CopesWithAMatrixThatHasNoInverse) {
    const auto geode = makePairGeode(osg::Vec3());

    push(osg::Matrixd::scale(0, 0, 0) * move, *geode);

    EXPECT_THAT(pointsOf(geode), ElementsAre(osg::Vec3(10, 20, 30), osg::Vec3(10, 20, 30)));
}

TEST(BubbleUpTransformOnDrawables, TreatsOneBelowAGroupAsIfItStoodInAGeode) {
    const auto probe = makeProbe();
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(probe);
    root->addChild(makePair(osg::Vec3()));
    probe->drawingsDropped = 0;
    OpenBubbleUpTransform visitor(scaleAndMove);

    root->accept(visitor);

    EXPECT_THAT(probe->matrices, ElementsAre(scaleAndMove));
    EXPECT_THAT(countsOf(*probe), ElementsAre(1, 1, 1));
    EXPECT_THAT(pointsOf(root->getChild(1)->asDrawable()), ElementsAre(osg::Vec3(8, 20, 30), osg::Vec3(12, 20, 30)));
    EXPECT_THAT(visitor._visited, UnorderedElementsAre(probe.get(), root->getChild(1)));
}

TEST(BubbleUpTransformOnBillboards, PutsTheTranslationIntoThePositionsOnly) {
    const auto points = makePair(osg::Vec3());
    const auto billboard = makeBillboard(points, osg::Vec3(1, 2, 3));

    push(move, *billboard);

    EXPECT_EQ(billboard->getPosition(0), osg::Vec3(11, 22, 33));
    EXPECT_EQ(pointsOf(points), pairAt(osg::Vec3()));
}

TEST(BubbleUpTransformOnBillboards, PutsTheWholeMatrixIntoThePositionsAndTheRestIntoTheDrawables) {
    const auto probe = makeProbe();
    const auto points = makePoints({osg::Vec3(1, 1, 1)});
    const auto billboard = makeBillboard(points, osg::Vec3(1, 2, 3));
    billboard->addDrawable(probe, osg::Vec3());

    push(scaleAndMove, *billboard);

    EXPECT_THAT(billboard->getPositionList(), ElementsAre(osg::Vec3(12, 26, 42), osg::Vec3(10, 20, 30)));
    EXPECT_THAT(pointsOf(points), ElementsAre(osg::Vec3(2, 3, 4)));
    EXPECT_THAT(probe->matrices, ElementsAre(osg::Matrixd::scale(2, 3, 4)));
}

TEST(BubbleUpTransformOnBillboards, TurnsAxisAndNormal) {
    osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->setAxis(osg::X_AXIS);
    billboard->setNormal(osg::Y_AXIS);

    push(quarterTurn * move, *billboard);

    EXPECT_EQ(billboard->getAxis(), osg::Vec3(0, 1, 0));
    EXPECT_EQ(billboard->getNormal(), osg::Vec3(-1, 0, 0));
}

TEST(BubbleUpTransformOnBillboards, TreatsTheAxisAsANormal) {
    osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->setAxis(osg::Vec3(0.8f, 0.0f, 0.6f));
    billboard->setNormal(osg::Vec3(0.0f, 0.8f, 0.6f));

    push(osg::Matrixd::scale(2, 2, 1.5) * move, *billboard);

    const float component = static_cast<float>(std::sqrt(0.5));
    expectNear(billboard->getAxis(), osg::Vec3(component, 0, component));
    expectNear(billboard->getNormal(), osg::Vec3(0, component, component));
}

TEST(BubbleUpTransformOnBillboards, LeavesVectorsWithoutLengthAsTheyAre) {
    osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->setAxis(osg::Vec3());
    billboard->setNormal(osg::Vec3());

    push(scaleAndMove, *billboard);

    EXPECT_EQ(billboard->getAxis(), osg::Vec3());
    EXPECT_EQ(billboard->getNormal(), osg::Vec3());
}

TEST(BubbleUpTransformOnBillboards, DropsTheBoundsButNoDrawings) {
    const auto probe = makeProbe();
    const auto billboard = makeBillboard(probe, osg::Vec3());
    probe->drawingsDropped = 0;
    ASSERT_EQ(billboard->getBound().center(), osg::Vec3(0.5f, 0.5f, 0.5f));
    probe->getBoundingBox();

    push(move, *billboard);

    EXPECT_THAT(countsOf(*probe), ElementsAre(1, 0, 1));
    EXPECT_EQ(probe->visits, 0);
    EXPECT_EQ(billboard->getBound().center(), osg::Vec3(10.5f, 20.5f, 30.5f));
}

TEST(BubbleUpTransformOnBillboards, DropsTheBoundEvenWithoutDrawables) {
    struct CountingBillboard : osg::Billboard {
        osg::BoundingSphere computeBound() const override {
            ++computed;
            return osg::Billboard::computeBound();
        }
        mutable int computed = 0;
    };
    osg::ref_ptr<CountingBillboard> billboard = new CountingBillboard;
    billboard->getBound();

    push(move, *billboard);
    billboard->getBound();

    EXPECT_EQ(billboard->computed, 2);
}

TEST(BubbleUpTransformOnBillboards, ReachesDrawablesThatAreAddedDuringTheVisit) {
    const auto first = makeProbe(), added = makeProbe();
    const auto billboard = makeBillboard(first, osg::Vec3());
    first->onTransform = [&] { billboard->addDrawable(added, osg::Vec3(1, 1, 1)); };

    push(move, *billboard);

    EXPECT_EQ(billboard->getPosition(1), osg::Vec3(11, 21, 31));
    EXPECT_THAT(added->matrices, ElementsAre(osg::Matrixd()));
}

TEST(BubbleUpTransformOnBillboards, PassesOverChildrenThatAreNoDrawablesButMovesTheirPositions) {
    const auto below = makePairGeode(osg::Vec3());
    const auto last = makeProbe();
    osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addChild(below);
    billboard->addDrawable(last, osg::Vec3(1, 1, 1));

    push(scaleAndMove, *billboard);

    EXPECT_THAT(billboard->getPositionList(), ElementsAre(osg::Vec3(12, 23, 34), osg::Vec3(12, 23, 34)));
    EXPECT_EQ(pointsOf(below), pairAt(osg::Vec3()));
    EXPECT_THAT(last->matrices, ElementsAre(osg::Matrixd::scale(2, 3, 4)));
}

TEST(BubbleUpTransformOnBillboards, CopesWithDrawablesThatHaveNoPosition) {
    const auto probe = makeProbe();
    osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addChild(probe);

    push(scaleAndMove, *billboard);

    EXPECT_THAT(billboard->getPositionList(), IsEmpty());
    EXPECT_THAT(probe->matrices, ElementsAre(osg::Matrixd::scale(2, 3, 4)));
}

TEST(BubbleUpTransformOnMatrixTransforms, MultipliesTheMatrixFromTheRight) {
    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(quarterTurn);
    transform->getInverseMatrix();

    push(scaleAndMove, *transform);

    EXPECT_EQ(transform->getMatrix(), quarterTurn * scaleAndMove);
    EXPECT_NE(transform->getMatrix(), scaleAndMove * quarterTurn);
    EXPECT_EQ(transform->getInverseMatrix(), osg::Matrixd::inverse(quarterTurn * scaleAndMove));
}

TEST(BubbleUpTransformOnMatrixTransforms, LeavesWhatHangsBelowAlone) {
    const auto geode = makePairGeode(osg::Vec3());
    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform, inner = new osg::MatrixTransform;
    transform->addChild(inner);
    inner->addChild(geode);
    ASSERT_EQ(transform->getBound().center(), osg::Vec3());
    OpenBubbleUpTransform visitor(move);

    transform->accept(visitor);

    EXPECT_EQ(inner->getMatrix(), osg::Matrixd());
    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3()));
    EXPECT_THAT(visitor._visited, ElementsAre(transform.get()));
    EXPECT_EQ(transform->getBound().center(), osg::Vec3(10, 20, 30));
}

template <typename LODType>
class BubbleUpTransformOnLODs : public testing::Test {};

using LODTypes = testing::Types<osg::LOD, osg::PagedLOD>;
TYPED_TEST_SUITE(BubbleUpTransformOnLODs, LODTypes);

TYPED_TEST(BubbleUpTransformOnLODs, PushesTheMatrixIntoCentreRangesAndChildren) {
    const auto child = makePairGeode(osg::Vec3());
    osg::ref_ptr<TypeParam> lod = new TypeParam;
    lod->addChild(child, 3.0f, 100.0f);
    lod->setCenter(osg::Vec3(1, 2, 3));
    OpenBubbleUpTransform visitor(osg::Matrixd::scale(2, 2, 2) * move);

    lod->accept(visitor);

    EXPECT_EQ(lod->getCenter(), osg::Vec3(12, 24, 36));
    EXPECT_EQ(lod->getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
    EXPECT_THAT(lod->getRangeList(), ElementsAre(Pair(6.0f, 200.0f)));
    EXPECT_THAT(pointsOf(child), ElementsAre(osg::Vec3(8, 20, 30), osg::Vec3(12, 20, 30)));
    EXPECT_THAT(visitor._visited, UnorderedElementsAre(lod.get(), child.get()));
}

TEST(BubbleUpTransformOnLODs, LeavesRangesToTheBitForATranslation) {
    const auto lod = makeLOD();
    lod->setRange(1, 0.1f, 1e30f);

    push(osg::Matrixd::translate(0.1, 1e6, -7.7), *lod);

    EXPECT_THAT(lod->getRangeList(), ElementsAre(Pair(0.0f, 100.0f), Pair(0.1f, 1e30f)));
}

TEST(BubbleUpTransformOnLODs, ScalesRangesAsTheSpaceDiagonal) {
    const auto lod = makeLOD();
    const float scale = osg::Vec3f(2, 3, 4).length() / osg::Vec3f(1, 1, 1).length();

    push(scaleAndMove, *lod);

    EXPECT_THAT(lod->getRangeList(), ElementsAre(Pair(0.0f, 100.0f * scale), Pair(100.0f * scale, 500.5f * scale)));
}

TEST(BubbleUpTransformOnLODs, ScalesRangesThatBelongToNoChild) {
    osg::ref_ptr<osg::PagedLOD> lod = new osg::PagedLOD;
    lod->setRange(0, 1.0f, 2.0f);
    lod->setRange(1, 2.0f, 4.0f);

    push(osg::Matrixd::scale(3, 3, 3), *lod);

    EXPECT_THAT(lod->getRangeList(), ElementsAre(Pair(3.0f, 6.0f), Pair(6.0f, 12.0f)));
}

TEST(BubbleUpTransformOnLODs, GivesAnLODThatUsedItsBoundTheCentreThatThisHad) {
    const auto lod = makeLOD();
    ASSERT_EQ(lod->getCenterMode(), osg::LOD::USE_BOUNDING_SPHERE_CENTER);

    push(move, *lod);

    EXPECT_EQ(lod->getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
    EXPECT_EQ(lod->getCenter(), osg::Vec3(15, 26, 37));
}

TEST(BubbleUpTransformOnLODs, EndsTheUnionOfBoundAndCentre) {
    const auto lod = makeLOD();
    lod->setCenterMode(osg::LOD::UNION_OF_BOUNDING_SPHERE_AND_USER_DEFINED);
    lod->setCenter(osg::Vec3(1, 2, 3));

    push(move, *lod);

    EXPECT_EQ(lod->getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
    EXPECT_EQ(lod->getCenter(), osg::Vec3(11, 22, 33));
}

TEST(BubbleUpTransformOnLODs, MovesTheBoundAlong) {
    osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->setCenter(osg::Vec3(1, 2, 3));
    lod->setRadius(5.0f);
    ASSERT_EQ(lod->getBound().center(), osg::Vec3(1, 2, 3));

    push(move, *lod);

    EXPECT_EQ(lod->getBound().center(), osg::Vec3(11, 22, 33));
    EXPECT_EQ(lod->getBound().radius(), 5.0f);
}

TEST(BubbleUpTransformOnPositionAttitudeTransforms, LeavesOneThatWasNotVisitedAlone) {
    const auto geode = makePairGeode(osg::Vec3());
    osg::ref_ptr<osg::PositionAttitudeTransform> transform = new osg::PositionAttitudeTransform;
    transform->addChild(geode);
    OpenBubbleUpTransform visitor(move);

    transform->accept(visitor);
    transform->accept(visitor);

    EXPECT_EQ(transform->getPosition(), osg::Vec3d());
    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3()));
    EXPECT_THAT(visitor._visited, IsEmpty());
}

TEST(BubbleUpTransformOnPositionAttitudeTransforms, AddsTheTranslationToOneThatWasVisitedEachTime) {
    osg::ref_ptr<osg::PositionAttitudeTransform> transform = new osg::PositionAttitudeTransform;
    transform->setPosition(osg::Vec3d(1e-9, 2, 3));
    OpenBubbleUpTransform visitor(move);
    visitor._visited = {transform};

    transform->accept(visitor);
    EXPECT_EQ(transform->getPosition(), osg::Vec3d(10 + 1e-9, 22, 33));
    transform->accept(visitor);
    EXPECT_EQ(transform->getPosition(), osg::Vec3d(10 + 1e-9 + 10, 42, 63));
    EXPECT_THAT(visitor._visited, ElementsAre(transform.get()));
}

TEST(BubbleUpTransformOnPositionAttitudeTransforms, TakesTheTranslationOnly) {
    const auto geode = makePairGeode(osg::Vec3());
    osg::ref_ptr<osg::PositionAttitudeTransform> transform = new osg::PositionAttitudeTransform;
    transform->setScale(osg::Vec3d(5, 5, 5));
    transform->setPivotPoint(osg::Vec3d(1, 1, 1));
    transform->addChild(geode);
    transform->getBound();
    OpenBubbleUpTransform visitor(quarterTurn * scaleAndMove);
    visitor._visited = {transform};

    transform->accept(visitor);

    EXPECT_EQ(transform->getPosition(), osg::Vec3d(10, 20, 30));
    EXPECT_EQ(transform->getScale(), osg::Vec3d(5, 5, 5));
    EXPECT_EQ(transform->getPivotPoint(), osg::Vec3d(1, 1, 1));
    EXPECT_EQ(transform->getAttitude(), osg::Quat());
    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3()));
    EXPECT_EQ(transform->getBound().center(), osg::Vec3(5, 15, 25));
}

template <typename NodeType>
class BubbleUpTransformOnGroups : public testing::Test {};

using GroupTypes = testing::Types<osg::Group, osg::Switch, osg::Sequence, osg::Transform, osg::AutoTransform,
                                  osg::CoordinateSystemNode, osg::ProxyNode, osgSim::DOFTransform, osgSim::MultiSwitch>;
TYPED_TEST_SUITE(BubbleUpTransformOnGroups, GroupTypes);

TYPED_TEST(BubbleUpTransformOnGroups, OnlyGoesOnToTheChildren) {
    const auto first = makePairGeode(osg::Vec3()), last = makePairGeode(osg::Vec3(1, 1, 1));
    osg::ref_ptr<TypeParam> node = new TypeParam;
    node->addChild(first);
    node->addChild(last);
    OpenBubbleUpTransform visitor(move);

    node->accept(visitor);

    EXPECT_EQ(pointsOf(first), pairAt(osg::Vec3(10, 20, 30)));
    EXPECT_EQ(pointsOf(last), pairAt(osg::Vec3(11, 21, 31)));
    EXPECT_THAT(visitor._visited, UnorderedElementsAre(first.get(), last.get()));
}

TEST(BubbleUpTransformOnGroups, GoesOnToInactiveChildren) {
    const auto geode = makePairGeode(osg::Vec3());
    osg::ref_ptr<osg::Switch> choice = new osg::Switch;
    choice->addChild(geode, false);

    push(move, *choice);

    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3(10, 20, 30)));
}
