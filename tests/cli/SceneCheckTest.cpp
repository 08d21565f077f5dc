#include "optimize/SceneCheck.h"
#include "support/OptimizedScenes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <osg/AutoTransform>
#include <osg/Billboard>
#include <osg/Camera>
#include <osg/ClipNode>
#include <osg/LightSource>
#include <osg/Material>
#include <osg/PagedLOD>
#include <osg/ProxyNode>
#include <osg/Switch>
#include <osgSim/LightPointNode>

#include <limits>

using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using testing::HasSubstr;

namespace {

using Check = SceneDifference::Check;

/** Two squares; the second one in two levels of detail, below a static transform. */
osg::ref_ptr<osg::Group> makeScene() {
    const osg::ref_ptr<osg::LOD> lod = lodOf(squareAt(0), 0.0f, 100.0f);
    lod->addChild(squareAt(0), 100.0f, 1000.0f);
    lod->setCenter(osg::Vec3());
    return groupOf({squareAt(0), staticTransform(osg::Matrixd::translate(20, 0, 0), lod)});
}

osg::Geometry& firstGeometry(osg::Group& scene) {
    return *scene.getChild(0)->asGeode()->getDrawable(0)->asGeometry();
}

osg::LOD& lodIn(osg::Group& scene) {
    return static_cast<osg::LOD&>(*scene.getChild(1)->asGroup()->getChild(0));
}

std::vector<SceneDifference> compare(const osg::Node& before, const osg::Node& after) {
    return SceneCheck(before).compareWith(after);
}

/** What is found after a change of the scene; exactly one difference. */
template <typename Change>
SceneDifference differenceAfter(Change change) {
    const osg::ref_ptr<osg::Group> scene = makeScene();
    const osg::ref_ptr<osg::Group> changed = deepCopy(*scene);
    change(*changed);
    const auto differences = compare(*scene, *changed);
    EXPECT_EQ(differences.size(), 1u);
    return differences.empty() ? SceneDifference() : differences.front();
}

template <typename Change>
void expectNoDifferenceAfter(Change change) {
    const osg::ref_ptr<osg::Group> scene = makeScene();
    const osg::ref_ptr<osg::Group> changed = deepCopy(*scene);
    change(*changed);
    const auto differences = compare(*scene, *changed);
    EXPECT_TRUE(differences.empty()) << differences.front().text;
}

osg::ref_ptr<osg::DrawElementsUByte> indices(std::initializer_list<GLubyte> list) {
    const osg::ref_ptr<osg::DrawElementsUByte> triangles = new osg::DrawElementsUByte(GL_TRIANGLES);
    for (const GLubyte index : list) triangles->push_back(index);
    return triangles;
}

osg::ref_ptr<osg::Material> redMaterial() {
    const osg::ref_ptr<osg::Material> material = new osg::Material;
    material->setDiffuse(osg::Material::FRONT, osg::Vec4(1, 0, 0, 1));
    return material;
}

}  // namespace

TEST(SceneCheck, FindsNoDifferenceInACopy) {
    expectNoDifferenceAfter([](osg::Group&) {});
}

TEST(SceneCheck, FindsTrianglesThatAreGoneAndNamesTheFirst) {
    const SceneDifference difference = differenceAfter([](osg::Group& scene) { scene.removeChild(0u); });

    EXPECT_EQ(difference.check, Check::Position);
    EXPECT_EQ(difference.count, 2u);
    EXPECT_THAT(difference.text,
                HasSubstr("2 primitives are no longer where they were, the first a triangle at 0,1,0, seen from a "));
}

TEST(SceneCheck, FindsTrianglesThatAreNew) {
    const SceneDifference difference = differenceAfter([](osg::Group& scene) { scene.addChild(squareAt(5)); });

    EXPECT_EQ(difference.check, Check::Position);
    EXPECT_EQ(difference.count, 2u);
    EXPECT_THAT(difference.text, HasSubstr("2 primitives are where there were none, the first a triangle at 5,1,0"));
}

TEST(SceneCheck, FindsAVertexThatMovedByMoreThanTheTolerance) {
    const osg::ref_ptr<osg::Group> scene = makeScene();
    const osg::ref_ptr<osg::Group> changed = deepCopy(*scene);
    auto& vertices = static_cast<osg::Vec3Array&>(*firstGeometry(*changed).getVertexArray());
    vertices[0].x() += 2e-4f;  // the first of the square, which both of its triangles have

    SceneCheck check(*scene);
    const auto differences = check.compareWith(*changed);

    ASSERT_EQ(differences.size(), 2u);
    EXPECT_EQ(differences[0].check, Check::Position);
    EXPECT_LT(check.tolerance(), 2e-5);
}

TEST(SceneCheck, TakesTheToleranceFromTheLargestNumberThatWasAddedUp) {
    SceneCheck check(*staticTransform(osg::Matrixd::translate(1 << 20, 0, 0), squareAt(3)));
    const auto differences =
        check.compareWith(*staticTransform(osg::Matrixd::translate((1 << 20) + 0.25, 0, 0), squareAt(3)));

    EXPECT_TRUE(differences.empty());
    EXPECT_DOUBLE_EQ(check.tolerance(), 8.0 * ((1 << 20) + 4.0) / (1 << 24));
    EXPECT_DOUBLE_EQ(check.largestDisplacement(), 0.25);
}

TEST(SceneCheck, DoesNotMixUpWhatLiesCloserThanTheTolerance) {
    const osg::ref_ptr<osg::Group> far = groupOf({});
    for (int i = 0; i < 100; ++i) far->addChild(squareAt(0.3f * static_cast<float>(i)));
    const osg::ref_ptr<osg::MatrixTransform> place = staticTransform(osg::Matrixd::translate(1 << 22, 0, 0), far);
    SceneCheck check(*place);
    for (unsigned int i = 0; i < 100; ++i) far->addChild(far->getChild(99 - i));
    far->removeChildren(0, 100);

    EXPECT_TRUE(check.compareWith(*place).empty());
    EXPECT_GT(check.tolerance(), 2.0);
    EXPECT_EQ(check.largestDisplacement(), 0.0);
}

TEST(SceneCheck, HasATightToleranceBesideWhatIsFarAway) {
    const osg::ref_ptr<osg::Geode> near = squareAt(0);
    const osg::ref_ptr<osg::Group> scene = groupOf({near, squareAt(1e9f)});
    SceneCheck check(*scene);
    static_cast<osg::Vec3Array&>(*near->getDrawable(0)->asGeometry()->getVertexArray())[1].x() += 1e-4f;

    const auto differences = check.compareWith(*scene);

    ASSERT_EQ(differences.size(), 2u);
    EXPECT_EQ(differences[0].check, Check::Position);
}

TEST(SceneCheck, ComparesTheOtherCornersOfATriangleWithOneThatIsNoNumber) {
    const osg::ref_ptr<osg::Geode> square = squareAt(0);
    auto& vertices = static_cast<osg::Vec3Array&>(*square->getDrawable(0)->asGeometry()->getVertexArray());
    vertices[1].x() = std::numeric_limits<float>::quiet_NaN();
    SceneCheck check(*square);
    EXPECT_TRUE(check.compareWith(*square).empty());
    EXPECT_TRUE(check.compareWith(*staticTransform(osg::Matrixd(), square)).empty());

    vertices[0].y() += 1.0f;

    EXPECT_FALSE(check.compareWith(*square).empty());
}

TEST(SceneCheck, LeavesOutTrianglesWhoseCornersFallTogetherInTheWorld) {
    const osg::ref_ptr<osg::Group> flat = staticTransform(osg::Matrixd::scale(0, 0, 0), squareAt(0));

    EXPECT_EQ(SceneCheck(*flat).primitives(), 0u);
    EXPECT_TRUE(compare(*flat, *groupOf({})).empty());
}

TEST(SceneCheck, FindsNodesThatAreGoneWhoseKindDoesSomething) {
    for (const osg::ref_ptr<osg::Group>& node : std::vector<osg::ref_ptr<osg::Group>>{
             new osg::LightSource, new osg::ClipNode, new osg::AutoTransform, new osg::Camera}) {
        node->addChild(squareAt(0));
        const osg::ref_ptr<osg::Group> scene = groupOf({node});
        SceneCheck check(*scene);
        EXPECT_TRUE(check.compareWith(*scene).empty());

        const auto differences = check.compareWith(*squareAt(0));

        ASSERT_EQ(differences.size(), 1u) << node->className();
        EXPECT_THAT(differences[0].text, HasSubstr("1 primitive is no longer where it was, the first an object at "));
    }
}

TEST(SceneCheck, FindsOtherRangesAndTellsTheDistance) {
    const SceneDifference difference =
        differenceAfter([](osg::Group& scene) { lodIn(scene).setRange(1, 100.0f, 300.0f); });

    EXPECT_EQ(difference.check, Check::Visibility);
    EXPECT_EQ(difference.count, 2u);
    EXPECT_THAT(difference.text, HasSubstr("2 primitives are seen from other distances, the first a triangle at "
                                           "20,1,0, seen from a distance of "));
    EXPECT_THAT(difference.text, HasSubstr(" before and not now"));
}

TEST(SceneCheck, FindsALevelThatIsSeenFromNearerToo) {
    const SceneDifference difference =
        differenceAfter([](osg::Group& scene) { lodIn(scene).setRange(1, 0.0f, 1000.0f); });

    EXPECT_EQ(difference.check, Check::Visibility);
    EXPECT_THAT(difference.text, HasSubstr(" now and not before"));
}

TEST(SceneCheck, FindsASwitchThatIsTurnedOff) {
    const osg::ref_ptr<osg::Switch> choice = new osg::Switch;
    choice->addChild(squareAt(0), true);
    SceneCheck check(*choice);
    choice->setValue(0, false);

    const auto differences = check.compareWith(*choice);

    ASSERT_EQ(differences.size(), 1u);
    EXPECT_EQ(differences[0].check, Check::Visibility);
}

TEST(SceneCheck, FindsAHiddenNodeThatIsShown) {
    const osg::ref_ptr<osg::Geode> square = squareAt(0);
    square->setNodeMask(0);
    SceneCheck check(*square);
    square->setNodeMask(~0u);

    const auto differences = check.compareWith(*square);

    ASSERT_EQ(differences.size(), 1u);
    EXPECT_EQ(differences[0].check, Check::Visibility);
    EXPECT_THAT(differences[0].text, HasSubstr(" now and not before"));
}

TEST(SceneCheck, FindsAMaskThatIsLost) {
    const osg::ref_ptr<osg::Geode> square = squareAt(0);
    square->setNodeMask(2);
    SceneCheck check(*square);
    square->setNodeMask(~0u);

    const auto differences = check.compareWith(*square);

    ASSERT_EQ(differences.size(), 1u);
    EXPECT_EQ(differences[0].check, Check::State);
    EXPECT_THAT(differences[0].text, HasSubstr("(node mask 2)"));
}

TEST(SceneCheck, FindsACallbackThatIsLost) {
    const osg::ref_ptr<osg::Geode> square = squareAt(0);
    square->setUpdateCallback(new osg::NodeCallback);
    SceneCheck check(*square);
    square->setUpdateCallback(nullptr);

    EXPECT_THAT(check.compareWith(*square).at(0).text, HasSubstr("other state (a callback)"));
}

TEST(SceneCheck, FindsAModeThatIsLostAndNamesIt) {
    const osg::ref_ptr<osg::Group> scene = makeScene();
    scene->getChild(0)->setStateSet(stateWithMode(GL_BLEND, osg::StateAttribute::ON));
    const osg::ref_ptr<osg::Group> changed = deepCopy(*scene);
    changed->getChild(0)->setStateSet(nullptr);

    const auto differences = compare(*scene, *changed);

    ASSERT_EQ(differences.size(), 1u);
    EXPECT_EQ(differences[0].check, Check::State);
    EXPECT_EQ(differences[0].count, 2u);
    EXPECT_THAT(differences[0].text, HasSubstr("drawn with other state (mode 3042), the first a triangle at 0,1,0"));
}

TEST(SceneCheck, ComparesAttributesByTheirContent) {
    const osg::ref_ptr<osg::Geode> square = squareAt(0);
    square->getOrCreateStateSet()->setAttribute(redMaterial());
    SceneCheck check(*square);

    square->getOrCreateStateSet()->setAttribute(redMaterial());
    EXPECT_TRUE(check.compareWith(*square).empty());
    static_cast<osg::Material*>(square->getStateSet()->getAttribute(osg::StateAttribute::MATERIAL))
        ->setDiffuse(osg::Material::FRONT, osg::Vec4(0, 1, 0, 1));
    EXPECT_THAT(check.compareWith(*square).at(0).text, HasSubstr("(Material)"));
}

TEST(SceneCheck, FindsAnotherTextureFileUniformAndRenderBin) {
    const osg::ref_ptr<osg::Geode> square = squareAt(0);
    osg::StateSet& state = *square->getOrCreateStateSet();
    state.setTextureAttribute(0, makeTexture("a.png"));
    state.addUniform(new osg::Uniform("depth", 1.0f));
    SceneCheck check(*square);

    state.setTextureAttribute(0, makeTexture("b.png"));
    EXPECT_THAT(check.compareWith(*square).at(0).text, HasSubstr("(Texture2D of unit 0)"));
    state.setTextureAttribute(0, makeTexture("a.png"));
    EXPECT_TRUE(check.compareWith(*square).empty());
    state.getUniform("depth")->set(2.0f);
    EXPECT_THAT(check.compareWith(*square).at(0).text, HasSubstr("(uniform depth)"));
    state.getUniform("depth")->set(1.0f);
    state.setRenderBinDetails(10, "DepthSortedBin");
    EXPECT_THAT(check.compareWith(*square).at(0).text, HasSubstr("(render bin)"));
}

TEST(SceneCheck, FindsOtherDefinesTextureModesAndBinNumbers) {
    const osg::ref_ptr<osg::Geode> square = squareAt(0);
    osg::StateSet& state = *square->getOrCreateStateSet();
    state.setRenderBinDetails(1, "RenderBin");
    SceneCheck check(*square);

    state.setDefine("FOG");
    EXPECT_THAT(check.compareWith(*square).at(0).text, HasSubstr("(define FOG)"));
    state.removeDefine("FOG");
    state.setTextureMode(1, GL_TEXTURE_2D, osg::StateAttribute::ON);
    EXPECT_THAT(check.compareWith(*square).at(0).text, HasSubstr("(texture mode 3553 of unit 1)"));
    state.removeTextureMode(1, GL_TEXTURE_2D);
    EXPECT_TRUE(check.compareWith(*square).empty());
    state.setRenderBinDetails(2, "RenderBin");
    EXPECT_THAT(check.compareWith(*square).at(0).text, HasSubstr("(render bin)"));
}

TEST(SceneCheck, FindsARenderBinThatComesToLieInAnotherOne) {
    const osg::ref_ptr<osg::Group> scene = groupOf({squareAt(0)});
    scene->getChild(0)->getOrCreateStateSet()->setRenderBinDetails(1, "RenderBin");
    SceneCheck plain(*scene);
    scene->getOrCreateStateSet()->setRenderBinDetails(2, "RenderBin");
    EXPECT_EQ(plain.compareWith(*scene).at(0).check, Check::State);

    scene->getStateSet()->setRenderBinDetails(2, "RenderBin", osg::StateSet::OVERRIDE_RENDERBIN_DETAILS);
    SceneCheck overridden(*scene);
    scene->getChild(0)->setStateSet(nullptr);
    EXPECT_TRUE(overridden.compareWith(*scene).empty());
}

TEST(SceneCheck, FindsChildrenOfASwitchThatChangedPlaces) {
    const osg::ref_ptr<osg::Switch> choice = new osg::Switch;
    for (const float x : {0.0f, 5.0f}) choice->addChild(squareAt(x), true);
    SceneCheck check(*choice);
    choice->insertChild(0, choice->getChild(1), true);
    choice->removeChildren(2, 1);

    EXPECT_EQ(check.compareWith(*choice).at(0).check, Check::State);
}

TEST(SceneCheck, FindsLightsReferencesAndTilesThatAreOthers) {
    const osg::ref_ptr<osgSim::LightPointNode> lights = new osgSim::LightPointNode;
    lights->addLightPoint(osgSim::LightPoint(osg::Vec3(1, 1, 1), osg::Vec4(1, 1, 1, 1)));
    const osg::ref_ptr<osg::ProxyNode> proxy = new osg::ProxyNode;
    proxy->setFileName(0, "a.osgt");
    const osg::ref_ptr<osg::PagedLOD> paged = new osg::PagedLOD;
    paged->setFileName(0, "b.osgt");
    paged->setRange(0, 0.0f, 1e6f);
    const osg::ref_ptr<osg::Group> scene = groupOf({lights, proxy, paged});
    SceneCheck check(*scene);
    EXPECT_TRUE(check.compareWith(*scene).empty());

    lights->getLightPoint(0)._position.x() += 1.0f;
    EXPECT_EQ(check.compareWith(*scene).at(0).count, 1u);
    proxy->setFileName(0, "c.osgt");
    EXPECT_EQ(check.compareWith(*scene).at(0).count, 2u);
    paged->setFileName(0, "d.osgt");
    EXPECT_EQ(check.compareWith(*scene).at(0).count, 3u);
}

TEST(SceneCheck, PlacesWhatIsBelowAnAbsoluteTransformByThatAlone) {
    const osg::ref_ptr<osg::MatrixTransform> absolute = staticTransform(osg::Matrixd::translate(0, 5, 0), squareAt(0));
    absolute->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    const osg::ref_ptr<osg::MatrixTransform> above = staticTransform(osg::Matrixd::translate(9, 0, 0), absolute);
    SceneCheck check(*above);

    above->setMatrix(osg::Matrixd::translate(7, 0, 0));
    EXPECT_TRUE(check.compareWith(*above).empty());
    absolute->setReferenceFrame(osg::Transform::RELATIVE_RF);
    EXPECT_FALSE(check.compareWith(*above).empty());
}

TEST(SceneCheck, FindsABillboardWhoseDrawableMoved) {
    const osg::ref_ptr<osg::Billboard> trees = new osg::Billboard;
    trees->addDrawable(makeSquare(), osg::Vec3(3, 0, 0));
    SceneCheck check(*trees);

    trees->setPosition(0, osg::Vec3(4, 0, 0));

    EXPECT_EQ(check.compareWith(*trees).at(0).check, Check::Position);
}

TEST(SceneCheck, GivesEachTriangleTheToleranceOfItsOwnPlace) {
    const osg::ref_ptr<osg::Group> scene = groupOf({squareAt(0), squareAt(1e4f)});
    SceneCheck check(*scene);
    const float moves[] = {1.5e-6f, 1.0f};  // three times its tolerance, and so far that it has to be searched widely
    for (unsigned int i = 0; i < 2; ++i) {
        osg::Geometry& geometry = *scene->getChild(i)->asGeode()->getDrawable(0)->asGeometry();
        for (osg::Vec3& vertex : static_cast<osg::Vec3Array&>(*geometry.getVertexArray())) vertex.z() += moves[i];
    }

    EXPECT_EQ(check.compareWith(*scene).at(0).count, 4u);
}

TEST(SceneCheck, HeedsOverrideAndProtected) {
    using osg::StateAttribute;
    const osg::ref_ptr<osg::Group> scene = makeScene();
    scene->setStateSet(stateWithMode(GL_BLEND, StateAttribute::ON | StateAttribute::OVERRIDE));
    SceneCheck check(*scene);

    scene->getChild(0)->setStateSet(stateWithMode(GL_BLEND, StateAttribute::OFF));
    EXPECT_TRUE(check.compareWith(*scene).empty());
    scene->getChild(0)->setStateSet(stateWithMode(GL_BLEND, StateAttribute::OFF | StateAttribute::PROTECTED));
    EXPECT_EQ(check.compareWith(*scene).at(0).check, Check::State);
}

TEST(SceneCheck, DoesNotMindStateThatMovedToTheChildren) {
    const osg::ref_ptr<osg::Group> scene = makeScene();
    scene->setStateSet(stateWithMode(GL_BLEND, osg::StateAttribute::ON));
    SceneCheck check(*scene);

    for (unsigned int i = 0; i < 2; ++i) scene->getChild(i)->setStateSet(scene->getStateSet());
    scene->setStateSet(nullptr);

    EXPECT_TRUE(check.compareWith(*scene).empty());
}

TEST(SceneCheck, DoesNotMindAProgramThatIsMeantToGo) {
    const osg::ref_ptr<osg::Geode> square = squareAt(0);
    osg::StateSet& state = *square->getOrCreateStateSet();
    state.setAttribute(new osg::Program);
    SceneCheck meant(*square, {&state});
    SceneCheck other(*square);

    state.removeAttribute(osg::StateAttribute::PROGRAM);

    EXPECT_TRUE(meant.compareWith(*square).empty());
    EXPECT_EQ(other.compareWith(*square).at(0).check, Check::State);
}

TEST(SceneCheck, ComparesQuadsFansAndPolygonsAsTriangles) {
    const osg::ref_ptr<osg::Geode> square = squareAt(0);
    osg::Geometry& geometry = *square->getDrawable(0)->asGeometry();
    SceneCheck check(*square);

    for (const GLenum mode : {GL_QUADS, GL_TRIANGLE_FAN, GL_POLYGON}) {
        geometry.setPrimitiveSet(0, new osg::DrawArrays(mode, 0, 4));
        EXPECT_TRUE(check.compareWith(*square).empty()) << mode;
    }
    geometry.setPrimitiveSet(0, indices({1, 2, 0, 3, 0, 2}));
    EXPECT_TRUE(check.compareWith(*square).empty());
    geometry.setPrimitiveSet(0, new osg::DrawArrays(GL_QUADS, 1, 3));
    EXPECT_EQ(check.compareWith(*square).at(0).count, 2u);
}

TEST(SceneCheck, ComparesStripsAsTriangles) {
    for (const GLenum mode : {GL_TRIANGLE_STRIP, GL_QUAD_STRIP}) {
        const osg::ref_ptr<osg::Geode> square = squareAt(0);
        osg::Geometry& geometry = *square->getDrawable(0)->asGeometry();
        auto& vertices = static_cast<osg::Vec3Array&>(*geometry.getVertexArray());
        geometry.setPrimitiveSet(0, new osg::DrawArrays(mode, 0, 4));
        SceneCheck check(*square);

        std::swap(vertices[2], vertices[3]);
        const bool isQuad = mode == GL_QUAD_STRIP;
        geometry.setPrimitiveSet(0, isQuad ? indices({0, 1, 2, 0, 2, 3}) : indices({0, 1, 3, 1, 2, 3}));
        EXPECT_TRUE(check.compareWith(*square).empty()) << mode;
    }
}

TEST(SceneCheck, FindsATriangleThatIsTurnedRound) {
    const osg::ref_ptr<osg::Geode> square = squareAt(0);
    osg::Geometry& geometry = *square->getDrawable(0)->asGeometry();
    SceneCheck check(*square);

    geometry.setPrimitiveSet(0, indices({0, 1, 2, 0, 3, 2}));

    const auto differences = check.compareWith(*square);
    ASSERT_EQ(differences.size(), 2u);
    EXPECT_EQ(differences[0].count, 1u);
    EXPECT_EQ(differences[1].count, 1u);
}

TEST(SceneCheck, FindsLinesAndPoints) {
    for (const GLenum mode : {GL_POINTS, GL_LINES, GL_LINE_STRIP, GL_LINE_LOOP}) {
        const osg::ref_ptr<osg::Geode> square = squareAt(0);
        osg::Geometry& geometry = *square->getDrawable(0)->asGeometry();
        geometry.setPrimitiveSet(0, new osg::DrawArrays(mode, 0, 4));
        SceneCheck check(*square);
        EXPECT_TRUE(check.compareWith(*square).empty());

        geometry.setPrimitiveSet(0, new osg::DrawArrays(mode, 0, 2));
        EXPECT_EQ(check.compareWith(*square).at(0).check, Check::Position) << mode;
    }
}

TEST(SceneCheck, DoesNotMindTransformsThatArePutIntoTheVertices) {
    const osg::Matrixd matrix = osg::Matrixd::rotate(0.3, osg::Vec3(1, 2, 3)) * osg::Matrixd::translate(7, 8, 900);
    const osg::ref_ptr<osg::Geode> moved = squareAt(2);
    auto& vertices = static_cast<osg::Vec3Array&>(*moved->getDrawable(0)->asGeometry()->getVertexArray());
    for (osg::Vec3& vertex : vertices) vertex = osg::Vec3(osg::Vec3d(vertex) * matrix);

    SceneCheck check(*staticTransform(matrix, squareAt(2)));

    EXPECT_TRUE(check.compareWith(*moved).empty());
    EXPECT_GT(check.largestDisplacement(), 0.0);
}

TEST(SceneCheck, LooksFromBetweenTheRangesThatOccurAndFromBeyondThem) {
    const osg::ref_ptr<osg::Group> scene = makeScene();
    const SceneCheck check(*scene);
    const osg::Vec3d centre(20, 0, 0);

    std::set<int> levels;
    for (const Eye& eye : check.eyes()) {
        const double distance = (eye.place - centre).length();
        levels.insert(distance < 100 ? 0 : distance < 1000 ? 1 : 2);
    }

    EXPECT_EQ(levels, std::set<int>({0, 1, 2}));
    EXPECT_EQ(check.eyes().size(), 6u);
}

TEST(SceneCheck, SeesNoDifferenceBetweenTwoEmptyGraphs) {
    EXPECT_TRUE(compare(*groupOf({}), *groupOf({})).empty());
}
