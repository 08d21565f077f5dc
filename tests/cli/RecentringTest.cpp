#include "recentre/Recentring.h"

#include "recentre/WorldPositions.h"
#include "support/Graphs.h"
#include "support/LightPoints.h"

#include <gmock/gmock.h>

#include <osg/AnimationPath>
#include <osg/AutoTransform>
#include <osg/Billboard>
#include <osg/Camera>
#include <osg/ClipNode>
#include <osg/ClusterCullingCallback>
#include <osg/CoordinateSystemNode>
#include <osg/LOD>
#include <osg/LightSource>
#include <osg/MatrixTransform>
#include <osg/OccluderNode>
#include <osg/PagedLOD>
#include <osg/PositionAttitudeTransform>
#include <osg/ProxyNode>
#include <osg/Sequence>
#include <osg/ShapeDrawable>
#include <osg/Switch>
#include <osg/TexGen>
#include <osg/TexGenNode>
#include <osg/io_utils>
#include <osgSim/DOFTransform>
#include <osgSim/Impostor>
#include <osgText/Text>

#include <algorithm>

using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using testing::ElementsAre;

namespace {

const osg::Vec3 farAway(100000.0f, 2000.0f, 30.0f);

osg::ref_ptr<osg::Geode> makeFarGeode() {
    return makeGeode(makeSquare(farAway));
}

osg::ref_ptr<osg::Group> makeGroup(const std::vector<osg::ref_ptr<osg::Node>>& children) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (const osg::ref_ptr<osg::Node>& child : children) group->addChild(child);
    return group;
}

osg::ref_ptr<osg::Group> below(osg::ref_ptr<osg::Group> parent, const osg::ref_ptr<osg::Node>& child = makeFarGeode()) {
    parent->addChild(child);
    return parent;
}

osg::ref_ptr<osg::MatrixTransform> makeFarTransform() {
    return new osg::MatrixTransform(osg::Matrixd::translate(farAway));
}

const osg::Vec3Array& verticesOf(osg::Node& geode) {
    const osg::Geometry& geometry = *geode.asGroup()->getChild(0)->asGeometry();
    return dynamic_cast<const osg::Vec3Array&>(*geometry.getVertexArray());
}

osg::Vec3d placeOf(const Recentring& done) {
    return done.graph->asTransform()->asMatrixTransform()->getMatrix().getTrans();
}

std::string refusal(const osg::ref_ptr<osg::Node>& node, bool asGraph = false) {
    try {
        recentre(makeGroup({makeFarGeode(), node}), {0.0, asGraph});
    } catch (const RecentreError& error) {
        return error.what();
    }
    return "";
}

template <typename Node>
osg::ref_ptr<Node> named(Node* node) {
    node->setName("n");
    return node;
}

const char* const ofAClass = " is of a class that cannot be moved; put it below a matrix transform";

osg::ref_ptr<osgSim::LightPointNode> makeFarLights() {
    return makeLights({farAway, farAway + osg::Vec3(1, 0, 0)});
}

}  // namespace

TEST(Recentring, MovesTheVerticesAndPutsThemBackByATransform) {
    const osg::ref_ptr<osg::Geode> geode = makeFarGeode();

    const Recentring done = recentre(geode, {});

    EXPECT_EQ(done.reasonNotMoved, "");
    EXPECT_EQ(done.offset, osg::Vec3d(100000.5, 2000.5, 30.0));
    EXPECT_EQ(placeOf(done), done.offset);
    EXPECT_EQ(done.graph->asGroup()->getChild(0), geode);
    EXPECT_THAT(verticesOf(*geode), ElementsAre(osg::Vec3(-0.5f, 0.5f, 0), osg::Vec3(-0.5f, -0.5f, 0),
                                                osg::Vec3(0.5f, -0.5f, 0), osg::Vec3(0.5f, 0.5f, 0)));
    EXPECT_EQ(done.farthestVertexNow, std::sqrt(0.5));
    EXPECT_DOUBLE_EQ(done.farthestVertexBefore, osg::Vec3d(100001, 2001, 30).length());
    EXPECT_EQ(done.largestDifference, 0.0);
    EXPECT_EQ(done.replacedTransforms, 0u);
}

TEST(Recentring, TheTransformIsSafeFromOptimisersThatFlattenStaticOnes) {
    EXPECT_EQ(recentre(makeFarGeode(), {}).graph->getDataVariance(), osg::Object::DYNAMIC);
}

TEST(Recentring, TakesAGraphThatIsNoGroup) {
    const osg::ref_ptr<osg::Geometry> square = makeSquare(farAway);

    const Recentring done = recentre(square, {});

    EXPECT_NEAR(done.offset.x(), 100000.5, 0.01);
    EXPECT_EQ(done.graph->asGroup()->getChild(0)->asGroup()->getChild(0), square);
}

TEST(Recentring, MeasuresVerticesOfAllKindsWithoutTheTransformsAboveThem) {
    const osg::ref_ptr<osg::Geometry> exact = makeSquare();
    exact->setVertexArray(new osg::Vec3dArray(4, std::vector<osg::Vec3d>(4, osg::Vec3d(0, 0, -7)).data()));
    const osg::ref_ptr<osg::Geode> hidden = makeGeode(makeSquare(osg::Vec3(2, 3, 0)));
    hidden->setNodeMask(0);
    const osg::ref_ptr<osg::Group> empty = new osg::Group;

    EXPECT_EQ(farthestVertex(*makeGroup({below(makeFarTransform(), hidden)})), 5.0);
    EXPECT_EQ(farthestVertex(*makeGroup({makeGeode(exact), hidden})), 7.0);
    EXPECT_EQ(farthestVertex(*empty), 0.0);
}

TEST(Recentring, TheDistanceIsThatOfTheFarthestGeodeAndEqualityMoves) {
    const auto isMoved = [](double minDistance) {
        const osg::ref_ptr<osg::Group> pair = makeGroup(
            {makeGeode(makeSquare(osg::Vec3(-900.5f, -0.5f, 0))), makeGeode(makeSquare(osg::Vec3(999.5f, -0.5f, 0)))});
        return recentre(pair, {minDistance, false}).reasonNotMoved;
    };

    EXPECT_EQ(isMoved(1000.0), "");
    EXPECT_EQ(isMoved(1000.5), "all geodes lie nearer to the origin than 1000.5");
}

TEST(Recentring, AsAGraphTheDistanceIsThatOfItsCentre) {
    const auto isMoved = [](double minDistance) {
        const osg::ref_ptr<osg::Group> pair = makeGroup(
            {makeGeode(makeSquare(osg::Vec3(-0.5f, -0.5f, 0))), makeGeode(makeSquare(osg::Vec3(999.5f, -0.5f, 0)))});
        return recentre(pair, {minDistance, true}).reasonNotMoved;
    };

    EXPECT_EQ(isMoved(499.0), "");
    EXPECT_EQ(isMoved(501.0), "its centre lies nearer to the origin than 501");
}

TEST(Recentring, AGraphThatIsNotMovedIsLeftAsItIsWhateverIsInIt) {
    const osg::ref_ptr<osg::PositionAttitudeTransform> pat = new osg::PositionAttitudeTransform;
    const osg::ref_ptr<osg::Group> graph =
        makeGroup({makeFarGeode(), below(pat), below(new osgSim::DOFTransform), makeFarLights()});
    graph->setNodeMask(5);

    const Recentring done = recentre(graph, {200000.0, false});

    EXPECT_EQ(done.reasonNotMoved, "all geodes lie nearer to the origin than 200000");
    EXPECT_EQ(done.graph, graph);
    EXPECT_EQ(done.offset, osg::Vec3d());
    EXPECT_EQ(graph->getChild(1), pat);
    EXPECT_EQ(graph->getNodeMask(), 5u);
    EXPECT_EQ(verticesOf(*graph->getChild(0))[1], farAway);
    EXPECT_EQ(positionsOf(dynamic_cast<osgSim::LightPointNode*>(graph->getChild(3)))[0], farAway);
    EXPECT_EQ(done.farthestVertexNow, done.farthestVertexBefore);
}

TEST(Recentring, SaysThatThereIsNothingToMove) {
    EXPECT_EQ(recentre(new osg::Group, {}).reasonNotMoved, "nothing in it has an extent");
    EXPECT_EQ(recentre(makeGeode(makeSquare(osg::Vec3(-0.5f, -0.5f, 0))), {}).reasonNotMoved,
              "its centre lies at the origin");
}

TEST(Recentring, ReplacesAPositionAttitudeTransformByAMatrixTransformOfTheSameEffect) {
    const osg::ref_ptr<osg::PositionAttitudeTransform> pat = new osg::PositionAttitudeTransform;
    pat->setPosition(farAway);
    pat->setAttitude(osg::Quat(1.0, osg::Vec3d(1, 2, 3)));
    pat->setScale(osg::Vec3d(1, 2, 3));
    pat->setPivotPoint(osg::Vec3d(4, 5, 6));
    osg::Matrixd matrix;
    pat->computeLocalToWorldMatrix(matrix, nullptr);

    const Recentring done = recentre(makeGroup({below(pat, makeGeode(makeSquare()))}), {});

    EXPECT_EQ(done.replacedTransforms, 1u);
    const auto* replacement =
        dynamic_cast<osg::MatrixTransform*>(done.graph->asGroup()->getChild(0)->asGroup()->getChild(0));
    ASSERT_TRUE(replacement);
    EXPECT_EQ(replacement->getMatrix(), matrix * osg::Matrixd::translate(-done.offset));
    EXPECT_EQ(verticesOf(*const_cast<osg::Node*>(replacement->getChild(0)))[1], osg::Vec3());
}

TEST(Recentring, AReplacedTransformKeepsAllThatItHasAndAllItsParents) {
    const osg::ref_ptr<osg::PositionAttitudeTransform> pat = named(new osg::PositionAttitudeTransform);
    const osg::ref_ptr<osg::NodeCallback> culling = new osg::NodeCallback;
    const osg::ref_ptr<osg::Node> data = new osg::Node;
    pat->setNodeMask(6);
    pat->setDataVariance(osg::Object::STATIC);
    pat->setStateSet(new osg::StateSet);
    pat->setCullCallback(culling);
    pat->setUserData(data);
    pat->addDescription("a door");
    pat->setCullingActive(false);
    below(below(pat), makeGeode(makeSquare(farAway)));
    const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->addChild(pat, 3.0f, 400.0f);
    const osg::ref_ptr<osg::Switch> off = new osg::Switch;
    off->addChild(pat, false);
    const osg::ref_ptr<osg::StateSet> state = pat->getStateSet();

    const Recentring done = recentre(makeGroup({lod, off, makeGroup({pat, pat})}), {});

    osg::Node* replacement = lod->getChild(0);
    ASSERT_TRUE(replacement->asTransform()->asMatrixTransform());
    EXPECT_EQ(off->getChild(0), replacement);
    EXPECT_EQ(replacement->getNumParents(), 4u);
    EXPECT_EQ(pat->getNumParents(), 0u);
    EXPECT_EQ(replacement->getName(), "n");
    EXPECT_EQ(replacement->getNodeMask(), 6u);
    EXPECT_EQ(replacement->getDataVariance(), osg::Object::STATIC);
    EXPECT_EQ(replacement->getStateSet(), state);
    EXPECT_EQ(replacement->getCullCallback(), culling);
    EXPECT_EQ(replacement->getUserData(), data);
    EXPECT_THAT(replacement->getDescriptions(), ElementsAre("a door"));
    EXPECT_FALSE(replacement->getCullingActive());
    EXPECT_EQ(replacement->asGroup()->getNumChildren(), 2u);
    EXPECT_EQ(lod->getMaxRange(0), 400.0f);
    EXPECT_FALSE(off->getValue(0));
}

TEST(Recentring, ReplacesATransformThatIsTheRootItself) {
    const osg::ref_ptr<osg::PositionAttitudeTransform> root = new osg::PositionAttitudeTransform;

    const Recentring done = recentre(below(root), {});

    EXPECT_TRUE(done.graph->asGroup()->getChild(0)->asTransform()->asMatrixTransform());
}

TEST(Recentring, LeavesWhatHangsBelowAMatrixTransformAsItIs) {
    const osg::ref_ptr<osg::PositionAttitudeTransform> pat = new osg::PositionAttitudeTransform;
    const osg::ref_ptr<osg::PagedLOD> paged = new osg::PagedLOD;
    paged->setFileName(0, "tile.ive");
    const osg::ref_ptr<osg::Geode> text = makeGeode(new osgText::Text);
    const osg::ref_ptr<osgSim::LightPointNode> lights = makeFarLights();
    const osg::ref_ptr<osg::Group> carried = makeFarTransform();
    for (osg::Node* node : {pat->asGroup(), paged->asGroup(), text->asGroup()}) carried->addChild(node);
    below(below(carried, lights), below(new osgSim::DOFTransform));

    for (const bool asGraph : {false, true}) {
        const Recentring done = recentre(makeGroup({carried, makeFarGeode()}), {0.0, asGraph});
        EXPECT_EQ(done.reasonNotMoved, "");
        EXPECT_EQ(done.replacedTransforms, 0u);
        EXPECT_EQ(carried->getChild(0), pat);
        EXPECT_EQ(positionsOf(lights)[0], farAway);
        EXPECT_EQ(lights->getNodeMask(), ~0u);
    }
}

TEST(Recentring, MovesLightPointsAlsoHiddenOnes) {
    const osg::ref_ptr<osgSim::LightPointNode> lights = makeFarLights();
    const osg::ref_ptr<osgSim::LightPointNode> below = makeFarLights();
    const osg::ref_ptr<osg::Group> hidden = makeGroup({below});
    lights->setNodeMask(0);
    hidden->setNodeMask(0);

    const Recentring done = recentre(makeGroup({makeFarGeode(), lights, hidden}), {});

    EXPECT_EQ(positionsOf(lights)[0], osg::Vec3(osg::Vec3d(farAway) - done.offset));
    EXPECT_EQ(positionsOf(below)[0], osg::Vec3(osg::Vec3d(farAway) - done.offset));
    EXPECT_EQ(lights->getNodeMask(), 0u);
    EXPECT_EQ(hidden->getNodeMask(), 0u);
}

TEST(Recentring, NormalsStayAsTheyAreIfTheyHaveNoUnitLengthToo) {
    const osg::ref_ptr<osg::Geometry> square = makeSquare(farAway);
    const osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    normals->push_back(osg::Vec3(0, 0, 3));
    square->setNormalArray(normals, osg::Array::BIND_OVERALL);
    const osg::ref_ptr<osg::Vec3Array> attributes = new osg::Vec3Array(4);
    std::fill(attributes->begin(), attributes->end(), farAway);
    square->setVertexAttribArray(osg::Drawable::NORMALS, attributes);

    recentre(makeGeode(square), {});

    EXPECT_THAT(*normals, ElementsAre(osg::Vec3(0, 0, 3)));
    EXPECT_EQ(attributes->front(), farAway);
}

TEST(Recentring, LODsSwitchAtThePlaceWhereTheyDid) {
    const osg::ref_ptr<osg::LOD> own = new osg::LOD, of = new osg::LOD, both = new osg::LOD;
    own->setCenter(farAway);
    own->setRadius(7.0f);
    of->setRadius(7.0f);
    both->setCenter(farAway);
    both->setCenterMode(osg::LOD::UNION_OF_BOUNDING_SPHERE_AND_USER_DEFINED);
    for (osg::LOD* lod : {own.get(), of.get(), both.get()}) lod->addChild(makeFarGeode(), 5.0f, 50.0f);
    const osg::Vec3d boundCentre = of->getCenter();
    const float boundRadius = of->getBound().radius();

    const osg::Vec3d offset = recentre(makeGroup({own, of, both}), {}).offset;

    EXPECT_EQ(own->getCenter(), osg::Vec3(osg::Vec3d(farAway) - offset));
    EXPECT_EQ(own->getBound().radius(), 7.0f);
    EXPECT_EQ(of->getCenter(), osg::Vec3(boundCentre - offset));
    EXPECT_EQ(of->getBound().radius(), boundRadius);
    EXPECT_EQ(both->getCenter(), osg::Vec3(osg::Vec3d(farAway) - offset));
    EXPECT_EQ(both->getCenterMode(), osg::LOD::UNION_OF_BOUNDING_SPHERE_AND_USER_DEFINED);
    EXPECT_EQ(of->getRangeList(), (osg::LOD::RangeList{{5.0f, 50.0f}}));
}

TEST(Recentring, LODsThatShareAChildAreMovedOnceEach) {
    const osg::ref_ptr<osg::Geode> shared = makeFarGeode();
    const osg::ref_ptr<osg::LOD> one = new osg::LOD, other = new osg::LOD;
    one->addChild(shared, 0.0f, 10.0f);
    other->addChild(shared, 0.0f, 20.0f);

    recentre(makeGroup({one, other}), {});

    EXPECT_EQ(one->getCenter(), osg::Vec3());
    EXPECT_EQ(other->getCenter(), osg::Vec3());
}

TEST(Recentring, MovesBoundsThatWereSetByHand) {
    const osg::ref_ptr<osg::PositionAttitudeTransform> pat = named(new osg::PositionAttitudeTransform);
    pat->setInitialBound(osg::BoundingSphere(farAway, 9.0f));
    const osg::ref_ptr<osg::Geode> geode = makeFarGeode();
    geode->setInitialBound(osg::BoundingSphere(farAway, 9.0f));
    geode->getDrawable(0)->setInitialBound(osg::BoundingBox(farAway, farAway + osg::Vec3(1, 1, 1)));
    const osg::ref_ptr<osg::Group> group = makeGroup({geode, below(pat)});

    const osg::Vec3d offset = recentre(group, {}).offset;

    EXPECT_EQ(geode->getInitialBound().center(), osg::Vec3(osg::Vec3d(farAway) - offset));
    EXPECT_EQ(group->getChild(1)->getInitialBound().center(), osg::Vec3(osg::Vec3d(farAway) - offset));
    EXPECT_EQ(geode->getInitialBound().radius(), 9.0f);
    EXPECT_EQ(group->getChild(1)->getInitialBound().radius(), 9.0f);
    EXPECT_EQ(geode->getDrawable(0)->getInitialBound()._min, osg::Vec3(osg::Vec3d(farAway) - offset));
}

TEST(Recentring, MovesWhatHasNoPlaceOfItsOwnAlong) {
    const osg::ref_ptr<osg::LightSource> sun = new osg::LightSource;
    sun->getLight()->setPosition(osg::Vec4(0, 0, 1, 0));
    const osg::ref_ptr<osg::LightSource> lamp = new osg::LightSource;
    lamp->getLight()->setPosition(osg::Vec4(0, 0, 1, 1));
    lamp->setReferenceFrame(osg::LightSource::ABSOLUTE_RF);
    const osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addDrawable(new osg::ShapeDrawable(new osg::Sphere), farAway);

    EXPECT_EQ(refusal(below(sun)), "");
    EXPECT_EQ(refusal(below(lamp)), "");
    EXPECT_EQ(refusal(billboard), "");
    EXPECT_EQ(refusal(below(new osg::Sequence)), "");
    EXPECT_EQ(refusal(below(new osg::PagedLOD)), "");
    EXPECT_EQ(refusal(below(new osg::ProxyNode)), "");
    EXPECT_EQ(refusal(new osg::Node), "");
    EXPECT_EQ(refusal(makeLights({}), true), "");
}

TEST(Recentring, RefusesNodesOfClassesThatItCannotMove) {
    const osg::ref_ptr<osg::ShapeDrawable> shape = new osg::ShapeDrawable(new osg::Sphere(farAway, 1.0f));

    EXPECT_EQ(refusal(below(named(new osgSim::DOFTransform))), std::string("'n' (osgSim::DOFTransform)") + ofAClass);
    EXPECT_EQ(refusal(below(named(new osg::AutoTransform))), std::string("'n' (osg::AutoTransform)") + ofAClass);
    EXPECT_EQ(refusal(below(named(new osg::Camera))), std::string("'n' (osg::Camera)") + ofAClass);
    EXPECT_EQ(refusal(named(new osg::ClipNode)), std::string("'n' (osg::ClipNode)") + ofAClass);
    EXPECT_EQ(refusal(named(new osg::TexGenNode)), std::string("'n' (osg::TexGenNode)") + ofAClass);
    EXPECT_EQ(refusal(named(new osg::OccluderNode)), std::string("'n' (osg::OccluderNode)") + ofAClass);
    EXPECT_EQ(refusal(named(new osgSim::Impostor)), std::string("'n' (osgSim::Impostor)") + ofAClass);
    EXPECT_EQ(refusal(named(new osg::CoordinateSystemNode)), std::string("'n' (osg::CoordinateSystemNode)") + ofAClass);
    EXPECT_EQ(refusal(makeGeode(named(new osgText::Text))), std::string("'n' (osgText::Text)") + ofAClass);
    EXPECT_EQ(refusal(makeGeode(named(shape.get()))), std::string("'n' (osg::ShapeDrawable)") + ofAClass);
}

TEST(Recentring, RefusesTransformsThatDoNotFollow) {
    for (const osg::ref_ptr<osg::Transform>& transform :
         {osg::ref_ptr<osg::Transform>(new osg::Transform), osg::ref_ptr<osg::Transform>(new osg::MatrixTransform),
          osg::ref_ptr<osg::Transform>(new osg::PositionAttitudeTransform)}) {
        const std::string name = std::string("'n' (osg::") + transform->className() + ")";
        named(transform.get())->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
        EXPECT_EQ(refusal(below(transform)), name + " has an absolute reference frame");
    }
    osg::Matrixd perspective;
    perspective(2, 3) = -1.0;
    EXPECT_EQ(refusal(named(new osg::MatrixTransform(perspective))),
              "'n' (osg::MatrixTransform) is no affine transform");
}

TEST(Recentring, RefusesWhatMovesByItself) {
    const osg::ref_ptr<osg::MatrixTransform> animated = named(makeFarTransform().release());
    animated->setUpdateCallback(new osg::AnimationPathCallback);
    const osg::ref_ptr<osg::Geode> geode = named(makeFarGeode().release());
    geode->setEventCallback(new osg::NodeCallback);
    const osg::ref_ptr<osg::Group> culled = named(makeGroup({makeFarGeode()}).release());
    culled->setCullCallback(new osg::NodeCallback);
    culled->addCullCallback(new osg::ClusterCullingCallback(farAway, osg::Vec3(0, 0, 1), 0.5f));

    EXPECT_EQ(refusal(animated), "'n' (osg::MatrixTransform) has an update or event callback, which may move it");
    EXPECT_EQ(refusal(geode), "'n' (osg::Geode) has an update or event callback, which may move it");
    EXPECT_EQ(refusal(culled), "'n' (osg::Group) is culled by a place of its own, which is not moved");
}

TEST(Recentring, RefusesWhatLiesInOtherFiles) {
    const osg::ref_ptr<osg::PagedLOD> paged = named(new osg::PagedLOD);
    paged->addChild(makeFarGeode(), 0.0f, 100.0f, "tile.ive");
    const osg::ref_ptr<osg::ProxyNode> proxy = named(new osg::ProxyNode);
    proxy->setFileName(0, "town.flt");

    EXPECT_EQ(refusal(paged), "'n' (osg::PagedLOD) pages in files, which are not moved");
    EXPECT_EQ(refusal(proxy), "'n' (osg::ProxyNode) refers to a file that is not loaded");
}

TEST(Recentring, RefusesStateWithAPlaceOfItsOwn) {
    const osg::ref_ptr<osg::TexGen> texGen = new osg::TexGen;
    const osg::ref_ptr<osg::Geode> geode = named(makeFarGeode().release());
    geode->getOrCreateStateSet()->setTextureAttribute(1, texGen);
    const osg::ref_ptr<osg::Geometry> square = named(makeSquare(farAway).release());
    square->getOrCreateStateSet()->setAttribute(new osg::ClipPlane);
    const osg::ref_ptr<osg::LightSource> lamp = named(new osg::LightSource);
    lamp->getLight()->setPosition(osg::Vec4(0, 0, 1, 1));

    EXPECT_EQ(refusal(geode), "'n' (osg::Geode) has state with a place of its own, which is not moved (osg::TexGen)");
    texGen->setMode(osg::TexGen::SPHERE_MAP);
    EXPECT_EQ(refusal(geode), "");
    EXPECT_EQ(refusal(makeGeode(square)),
              "'n' (osg::Geometry) has state with a place of its own, which is not moved (osg::ClipPlane)");
    EXPECT_EQ(refusal(lamp), "'n' (osg::LightSource) shines from a place, which is not moved");
}

TEST(Recentring, RefusesLightPointsThatTheGraphVariantLeaves) {
    EXPECT_EQ(refusal(named(makeFarLights().release()), true),
              "'n' (osgSim::LightPointNode) has light points, which are not moved with --graph");
}

TEST(Recentring, RefusesArraysAndChildrenThatTheLibraryPassesOver) {
    const osg::ref_ptr<osg::Geometry> flat = named(makeSquare().release());
    flat->setVertexArray(new osg::Vec2Array(4));
    const osg::ref_ptr<osg::Geode> geode = named(makeFarGeode().release());
    geode->addChild(new osg::Group);

    EXPECT_EQ(refusal(makeGeode(flat)), "'n' (osg::Geometry) has vertices that are no Vec3Array or Vec3dArray");
    EXPECT_EQ(refusal(geode), "'n' (osg::Geode) has a child that is no drawable");
}

TEST(Recentring, RefusesWhatIsSharedByPlacesThatMoveDifferently) {
    const osg::ref_ptr<osg::Geode> geode = named(makeFarGeode().release());
    const osg::ref_ptr<osg::Geometry> square = named(makeSquare(farAway).release());
    const osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addDrawable(square, farAway);
    const osg::ref_ptr<osg::Group> bounded = named(new osg::Group);
    bounded->setInitialBound(osg::BoundingSphere(farAway, 1.0f));
    const std::string shared = " is shared by a place below a transform and one that is not";

    EXPECT_EQ(refusal(makeGroup({geode, below(makeFarTransform(), geode)})), "'n' (osg::Geode)" + shared);
    EXPECT_EQ(refusal(makeGroup({below(makeFarTransform(), geode), geode})), "'n' (osg::Geode)" + shared);
    EXPECT_EQ(refusal(makeGroup({billboard, makeGeode(square)})), "'n' (osg::Geometry)" + shared);
    EXPECT_EQ(refusal(makeGroup({bounded, below(makeFarTransform(), bounded)})), "'n' (osg::Group)" + shared);
    EXPECT_EQ(refusal(makeGroup({geode, makeGroup({geode})})), "");
}

TEST(Recentring, RefusesArraysThatAreSharedByWhatMovesDifferently) {
    const osg::ref_ptr<osg::Geometry> square = named(makeSquare(farAway).release());
    const osg::ref_ptr<osg::Geometry> other = makeSquare();
    other->setVertexArray(square->getVertexArray());
    const osg::ref_ptr<osg::Geometry> textured = named(makeSquare(farAway).release());
    textured->setTexCoordArray(1, textured->getVertexArray());
    const std::string shared = "'n' (osg::Geometry) shares an array with something that is not moved likewise";

    EXPECT_EQ(refusal(makeGroup({makeGeode(square), below(makeFarTransform(), makeGeode(other))})), shared);
    EXPECT_EQ(refusal(makeGeode(textured)), shared);
    EXPECT_EQ(refusal(makeGroup({makeGeode(square), makeGeode(other)})), "");
}

TEST(Recentring, SaysWhereANodeWithoutANameHangsAndHowManyMoreThereAre) {
    const osg::ref_ptr<osg::Group> house =
        named(makeGroup({makeGroup({new osg::ClipNode}), new osg::ClipNode}).release());

    EXPECT_EQ(refusal(house), std::string("osg::ClipNode without a name below 'n'") + ofAClass + " (and 1 more)");
    EXPECT_EQ(refusal(new osg::ClipNode), std::string("osg::ClipNode without a name") + ofAClass);
}

TEST(Recentring, RefusesCoordinatesThatAreNoNumbers) {
    const osg::ref_ptr<osg::Geometry> square = named(makeSquare(farAway).release());
    dynamic_cast<osg::Vec3Array&>(*square->getVertexArray())[2].x() = std::numeric_limits<float>::quiet_NaN();

    EXPECT_THAT(refusal(makeGeode(square)), testing::StartsWith("'n' (osg::Geometry) was at nan,"));
}

TEST(WorldPositions, FindsWhatIsElsewhereByMoreThanRounding) {
    const osg::ref_ptr<osg::Geode> geode = named(makeFarGeode().release());
    const WorldPositions before(*geode);
    auto& vertices = const_cast<osg::Vec3Array&>(verticesOf(*geode));

    EXPECT_FALSE(before.compareWith(*geode, osg::Matrixd()).displacement);
    vertices[1].x() = std::nextafter(vertices[1].x(), 1e9f);
    const WorldPositions::Comparison found = before.compareWith(*geode, osg::Matrixd());

    EXPECT_EQ(found.largestDifference, 0.0078125);
    EXPECT_EQ(found.displacement.value_or(""),
              "osg::Geometry without a name below 'n' was at 100000,2000,30 and would be at 100000.0078125,2000,30");
}

TEST(WorldPositions, ADifferenceOfOneRoundingIsNone) {
    const osg::ref_ptr<osg::Geometry> square = makeSquare(osg::Vec3(0.1f, 0, 0));
    const WorldPositions before(*square);
    auto& vertices = dynamic_cast<osg::Vec3Array&>(*square->getVertexArray());
    for (osg::Vec3& vertex : vertices) vertex = osg::Vec3d(vertex) - osg::Vec3d(1000, 0, 0);

    EXPECT_FALSE(before.compareWith(*square, osg::Matrixd::translate(1000, 0, 0)).displacement);
    EXPECT_TRUE(before.compareWith(*square, osg::Matrixd::translate(1000.0001, 0, 0)).displacement);
}

TEST(WorldPositions, FindsOtherRangesVerticesAndChildren) {
    const osg::ref_ptr<osg::LOD> lod = named(new osg::LOD);
    const osg::ref_ptr<osg::Geometry> square = named(makeSquare().release());
    lod->addChild(square, 1.0f, 2.0f);
    const WorldPositions before(*lod);
    const auto found = [&] { return before.compareWith(*lod, osg::Matrixd()).displacement.value_or(""); };

    lod->setRange(0, 1.0f, 3.0f);
    EXPECT_EQ(found(), "'n' (osg::LOD) has other ranges");
    lod->setRange(0, 1.0f, 2.0f);
    dynamic_cast<osg::Vec3Array&>(*square->getVertexArray()).pop_back();
    EXPECT_EQ(found(), "'n' (osg::Geometry) has other vertices");
    lod->setRangeList({});
    lod->addChild(new osg::Node);
    lod->setRangeList({{1.0f, 2.0f}});
    lod->setCenter(lod->getCenter());
    EXPECT_THAT(found(), testing::EndsWith("has other children"));
}
