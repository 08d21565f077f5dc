// What is reached on several ways is moved once, and what was moved is sent to the graphics card anew.

#include <sceneutils/BubbleUpTransform.h>

#include "support/OpenBubbleUpTransform.h"
#include "support/PointModels.h"

#include <gmock/gmock.h>

#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using testing::Pair;

namespace {

const osg::Vec3 shift(10, 20, 30);
const osg::Matrixd move = osg::Matrixd::translate(shift);

osg::ref_ptr<osg::Group> makeGroup(std::initializer_list<osg::ref_ptr<osg::Node>> children) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (const auto& child : children) group->addChild(child);
    return group;
}

osg::ref_ptr<osg::Geode> makeGeode(std::initializer_list<osg::ref_ptr<osg::Drawable>> drawables) {
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    for (const auto& drawable : drawables) geode->addDrawable(drawable);
    return geode;
}

osg::ref_ptr<osg::Vec3Array> makePairArray() {
    return makeArray<osg::Vec3Array>({-osg::X_AXIS, osg::X_AXIS});
}

/** A pair around the origin with a normal, a colour, texture coordinates and a vertex attribute. */
osg::ref_ptr<osg::Geometry> makeRichPair() {
    osg::ref_ptr<osg::Geometry> pair = makePair(osg::Vec3());
    pair->setNormalArray(makeArray<osg::Vec3Array>({osg::Z_AXIS}), osg::Array::BIND_OVERALL);
    pair->setColorArray(new osg::Vec4Array(1), osg::Array::BIND_OVERALL);
    pair->setTexCoordArray(0, new osg::Vec2Array(2));
    pair->setVertexAttribArray(6, new osg::Vec3Array(2));
    return pair;
}

/** How often each array of the geometry has been marked as changed. */
std::vector<unsigned int> changesOf(const osg::Geometry* geometry) {
    osg::Geometry::ArrayList arrays;
    geometry->getArrayList(arrays);
    std::vector<unsigned int> changes;
    for (const auto& array : arrays) changes.push_back(array->getModifiedCount());
    return changes;
}

}  // namespace

TEST(BubbleUpTransformSharing, MovesAGeodeBelowTwoParentsOnce) {
    const auto geode = makePairGeode(osg::Vec3());

    push(move, *makeGroup({makeGroup({geode}), makeGroup({geode})}));

    EXPECT_EQ(pointsOf(geode), pairAt(shift));
}

TEST(BubbleUpTransformSharing, MovesEveryKindOfNodeOnce) {
    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform;
    osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    osg::ref_ptr<osg::PagedLOD> pagedLOD = new osg::PagedLOD;
    osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    lod->setRange(0, 1.0f, 2.0f);
    pagedLOD->setRange(0, 1.0f, 2.0f);
    billboard->addDrawable(new osg::Geometry, osg::Vec3(1, 1, 1));
    const auto group = makeGroup({transform, lod, pagedLOD, billboard});

    push(osg::Matrixd::scale(2, 2, 2), *makeGroup({group, group}));

    EXPECT_EQ(transform->getMatrix(), osg::Matrixd::scale(2, 2, 2));
    EXPECT_THAT(lod->getRangeList(), ElementsAre(Pair(2.0f, 4.0f)));
    EXPECT_THAT(pagedLOD->getRangeList(), ElementsAre(Pair(2.0f, 4.0f)));
    EXPECT_EQ(billboard->getPosition(0), osg::Vec3(2, 2, 2));
}

TEST(BubbleUpTransformSharing, DoesNotGoOnBelowAnLODThatWasVisited) {
    osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    OpenBubbleUpTransform visitor(move);
    lod->accept(visitor);
    const auto late = makePairGeode(osg::Vec3());
    lod->addChild(late, 0.0f, 1.0f);

    lod->accept(visitor);

    EXPECT_EQ(pointsOf(late), pairAt(osg::Vec3()));
}

TEST(BubbleUpTransformSharing, MovesADrawableOnceHoweverManyParentsItHas) {
    const auto inGeodes = makePair(osg::Vec3()), belowGroups = makePair(osg::Vec3()), inBoth = makePair(osg::Vec3());

    push(move, *makeGroup({makeGeode({inGeodes, inBoth}), makeGeode({inGeodes}), makeGeode({inBoth}), inBoth,
                           makeGroup({belowGroups}), makeGroup({belowGroups})}));

    EXPECT_EQ(pointsOf(inGeodes), pairAt(shift));
    EXPECT_EQ(pointsOf(belowGroups), pairAt(shift));
    EXPECT_EQ(pointsOf(inBoth), pairAt(shift));
}

TEST(BubbleUpTransformSharing, MovesADrawableBelowAGroupOnceThoughItIsNamedTwice) {
    const auto pair = makePair(osg::Vec3());

    push(move, *makeGroup({pair, pair}));

    EXPECT_EQ(pointsOf(pair), pairAt(shift));
}

TEST(BubbleUpTransformSharing, ScalesADrawableOfManyBillboardPositionsOnce) {
    const auto pair = makePair(osg::Vec3());
    osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addDrawable(pair, osg::Vec3(1, 0, 0));
    billboard->addDrawable(pair, osg::Vec3(2, 0, 0));

    push(osg::Matrixd::scale(3, 3, 3), *billboard);

    EXPECT_THAT(pointsOf(pair), ElementsAre(osg::Vec3(-3, 0, 0), osg::Vec3(3, 0, 0)));
    EXPECT_THAT(billboard->getPositionList(), ElementsAre(osg::Vec3(3, 0, 0), osg::Vec3(6, 0, 0)));
}

TEST(BubbleUpTransformSharing, MovesAnArrayOfSeveralGeometriesOnce) {
    const auto positions = makePairArray();
    const auto lines = makePoints(positions), markers = makePoints(positions), elsewhere = makePoints(positions);
    const auto root = makeGroup({makeGeode({lines, markers}), elsewhere});
    ASSERT_EQ(root->getBound().center(), osg::Vec3());

    push(move, *root);

    EXPECT_EQ(pointsOf(positions), pairAt(shift));
    for (const auto& geometry : {lines, markers, elsewhere}) EXPECT_EQ(geometry->getBoundingBox().center(), shift);
    EXPECT_EQ(root->getBound().center(), shift);
}

TEST(BubbleUpTransformSharing, MovesAnArrayThatOnlyTwoGeometriesHoldOnce) {
    const auto first = makePair(osg::Vec3()), second = makePair(osg::Vec3());
    second->setVertexArray(first->getVertexArray());
    ASSERT_EQ(first->getVertexArray()->referenceCount(), 2);

    push(move, *makeGeode({first, second}));

    EXPECT_EQ(pointsOf(first), pairAt(shift));
}

TEST(BubbleUpTransformSharing, MovesTheOwnArrayOfAGeometryThatSharesAnother) {
    const osg::ref_ptr<osg::Vec3Array> normals = makeArray<osg::Vec3Array>({osg::Vec3(4, 0, 3)});
    const auto first = makePair(osg::Vec3()), second = makePair(osg::Vec3());
    first->setNormalArray(normals, osg::Array::BIND_OVERALL);
    second->setNormalArray(normals, osg::Array::BIND_OVERALL);

    push(osg::Matrixd::scale(4, 1, 3), *makeGeode({first, second}));

    EXPECT_EQ(pointsOf(first), pointsOf(second));
    EXPECT_THAT(pointsOf(second), ElementsAre(osg::Vec3(-4, 0, 0), osg::Vec3(4, 0, 0)));
    EXPECT_FLOAT_EQ((*normals)[0].x(), (*normals)[0].z());
}

TEST(BubbleUpTransformSharing, MovesPositionsThatAreAVertexAttributeOnce) {
    osg::ref_ptr<osg::Geometry> onlyAttribute = new osg::Geometry, both = new osg::Geometry;
    const auto positions = makePairArray(), ofBoth = makePairArray();
    onlyAttribute->setVertexAttribArray(0, positions);
    both->setVertexAttribArray(0, ofBoth);
    both->setVertexArray(ofBoth);

    push(move, *makeGeode({onlyAttribute, both}));

    EXPECT_EQ(pointsOf(positions), pairAt(shift));
    EXPECT_EQ(pointsOf(ofBoth), pairAt(shift));
}

TEST(BubbleUpTransformSharing, TakesTheThirdVertexAttributeForNormalsAsTheDrawableDoes) {
    const auto normals = makeArray<osg::Vec3Array>({osg::Vec3(0, 0, 2)});
    const auto first = makePair(osg::Vec3()), second = makePair(osg::Vec3());
    first->setVertexAttribArray(2, normals);
    second->setVertexAttribArray(2, normals);

    push(osg::Matrixd::scale(4, 1, 3), *makeGeode({first, second}));

    EXPECT_THAT(pointsOf(normals), ElementsAre(osg::Vec3(0, 0, 1)));
    EXPECT_EQ(normals->getModifiedCount(), 1u);
}

TEST(BubbleUpTransformSharing, MovesAnAttributeOfDoublesOnce) {
    const auto positions = makeArray<osg::Vec3dArray>({osg::Vec3d(1, 1, 1)});
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexAttribArray(0, positions);

    push(move, *makeGeode({geometry}));

    EXPECT_EQ((*positions)[0], osg::Vec3d(11, 21, 31));
}

TEST(BubbleUpTransformSharing, MovesPositionsThatAreTextureCoordinatesToo) {
    const auto positions = makePairArray();
    const auto pair = makePair(osg::Vec3());
    pair->setTexCoordArray(0, positions);
    pair->setVertexAttribArray(0, positions);

    push(move, *makeGeode({pair}));

    EXPECT_EQ(pointsOf(pair), pairAt(shift));
    EXPECT_EQ(pointsOf(positions), pairAt(shift));
}

TEST(BubbleUpTransformSharing, MovesAnArrayThatTheApplicationHoldsToo) {
    const auto positions = makePairArray();
    const std::vector<osg::ref_ptr<osg::Array>> held(5, positions);

    push(move, *makeGeode({makePoints(positions)}));

    EXPECT_EQ(pointsOf(positions), pairAt(shift));
}

TEST(BubbleUpTransformSharing, RemembersSharedArraysForItsWholeLife) {
    const auto positions = makePairArray();
    const auto first = makeGeode({makePoints(positions)}), second = makeGeode({makePoints(positions)});
    OpenBubbleUpTransform visitor(move);
    first->accept(visitor);
    OpenBubbleUpTransform copy(visitor), assigned;
    static_cast<veltrane::sceneutils::BubbleUpTransform&>(assigned) = visitor;

    second->accept(visitor);
    makeGeode({makePoints(positions)})->accept(copy);
    makeGeode({makePoints(positions)})->accept(assigned);

    EXPECT_EQ(pointsOf(positions), pairAt(shift));
}

TEST(BubbleUpTransformSharing, DoesNotKeepTheGraphAlive) {
    const auto geode = makePairGeode(osg::Vec3());
    OpenBubbleUpTransform visitor(move);

    geode->accept(visitor);

    EXPECT_EQ(geode->referenceCount(), 1);
    EXPECT_EQ(geode->getDrawable(0)->referenceCount(), 1);
    EXPECT_EQ(geode->getDrawable(0)->asGeometry()->getVertexArray()->referenceCount(), 1);
}

TEST(BubbleUpTransformSharing, SendsWhatWasMovedToTheGraphicsCardAnew) {
    const auto inGeode = makeRichPair(), inBillboard = makeRichPair(), belowGroup = makeRichPair();
    osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addDrawable(inBillboard);
    ASSERT_THAT(changesOf(inGeode), ElementsAre(0u, 0u, 0u, 0u, 0u));

    push(move, *makeGroup({makeGeode({inGeode}), billboard, belowGroup}));

    // Positions and normals, and not the colours, the texture coordinates and the attribute.
    for (const auto& geometry : {inGeode, inBillboard, belowGroup}) {
        EXPECT_THAT(changesOf(geometry), ElementsAre(1u, 1u, 0u, 0u, 0u));
    }
}
