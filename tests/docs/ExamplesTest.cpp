#include "docs/Examples.h"
#include "support/FlightModels.h"
#include "support/Graphs.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"

#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osgDB/ReadFile>

#include <gmock/gmock.h>

using namespace testing_support;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

template <typename T>
T* as(osg::Node* node) {
    return dynamic_cast<T*>(node);
}

osg::ref_ptr<osg::Group> groupOf(osg::Node* child) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(child);
    return group;
}

osg::ref_ptr<osg::LOD> lodOf(osg::Node* child, float maxRange) {
    osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->addChild(child, 0.0f, maxRange);
    return lod;
}

osg::ref_ptr<osg::MatrixTransform> staticMove(osg::Node* child, double x) {
    osg::ref_ptr<osg::MatrixTransform> move = new osg::MatrixTransform(osg::Matrix::translate(x, 0, 0));
    move->setDataVariance(osg::Object::STATIC);
    move->addChild(child);
    return move;
}

osg::ref_ptr<osg::Geode> texturedSquare(osg::Texture2D* texture) {
    osg::ref_ptr<osg::Geode> geode = makeGeode(makeSquare());
    geode->getOrCreateStateSet()->setTextureAttributeAndModes(0, texture);
    return geode;
}

TEST(ExampleOfThePage, BubbleUpTransform) {
    const osg::ref_ptr<osg::Group> town = groupOf(makeGeode(makeSquare(osg::Vec3(600000, 0, 0))));
    const osg::ref_ptr<osg::Group> world = new osg::Group;

    addTown(world, town);

    auto* const placed = as<osg::MatrixTransform>(world->getChild(0));
    ASSERT_TRUE(placed);
    EXPECT_EQ(placed->getMatrix().getTrans(), osg::Vec3d(600000.5, 0.5, 0));
    EXPECT_EQ(town->getBound().center(), osg::Vec3());
}

TEST(ExampleOfThePage, CalculateBoundingBox) {
    const osg::ref_ptr<osg::Geode> wall =
        makeGeode(osg::createTexturedQuadGeometry(osg::Vec3(0, 0, 1), osg::Vec3(5, 0, 0), osg::Vec3(0, 0, 3)));

    EXPECT_EQ(heightOf(*wall), 3.0f);
    EXPECT_EQ(heightOf(*osg::ref_ptr<osg::Group>(new osg::Group)), 0.0f);
}

TEST(ExampleOfThePage, ChangeTextureExtension) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Texture2D> texture = makeTexture("wall.rgb");
    const StandardError errors;

    EXPECT_TRUE(writeForDds(texturedSquare(texture), folder / "house.osgt"));

    EXPECT_THAT(readBytes(folder / "house.osgt"), HasSubstr("\"wall.dds\""));
    EXPECT_EQ(errors.text(), "Changing wall.rgb to wall.dds\n");
}

TEST(ExampleOfThePage, CreatePagedLODVisitor) {
    const TemporaryDirectory folder;
    writeFlight(folder.path() / "world.flt", 100.0f, {"tile.flt"});
    writeFlight(folder.path() / "tile.flt", 10.0f);
    const WorkingDirectory inFolder(folder.path());
    const StandardError errors;

    ASSERT_TRUE(convertWorld());

    EXPECT_TRUE(osgDB::readRefNodeFile("world.ive"));
    EXPECT_TRUE(osgDB::readRefNodeFile("tile.ive"));
}

TEST(ExampleOfThePage, FindNodeVisitor) {
    const osg::ref_ptr<osg::Group> car = new osg::Group;
    for (const char* name : {"wheel", "door", "wheel"}) {
        car->addChild(new osg::Group);
        car->getChild(car->getNumChildren() - 1)->setName(name);
    }

    hideWheels(car);

    EXPECT_EQ(car->getChild(0)->getNodeMask(), 0u);
    EXPECT_EQ(car->getChild(1)->getNodeMask(), ~0u);
    EXPECT_EQ(car->getChild(2)->getNodeMask(), 0u);
}

TEST(ExampleOfThePage, FlattenUselessLODs) {
    const osg::ref_ptr<osg::Group> model = groupOf(lodOf(makeGround(1.0f), 20000.0f));
    model->addChild(lodOf(makeGround(1.0f), 19999.0f));

    prepare(model);

    EXPECT_FALSE(as<osg::LOD>(model->getChild(0)));
    EXPECT_TRUE(as<osg::LOD>(model->getChild(1)));
}

TEST(ExampleOfThePage, ForceTextureFilter) {
    const osg::ref_ptr<osg::Texture2D> texture = makeTexture();
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);

    useMipmaps(texturedSquare(texture));

    EXPECT_EQ(texture->getFilter(osg::Texture::MIN_FILTER), osg::Texture::LINEAR_MIPMAP_LINEAR);
}

TEST(ExampleOfThePage, LODMarkup) {
    const TemporaryDirectory folder;
    const WorkingDirectory inFolder(folder.path());  // where markupPath() writes its files
    const osg::ref_ptr<osg::Geode> roof = makeGround(1.0f);
    roof->setName("roof");
    const osg::ref_ptr<osg::LOD> lod = lodOf(roof, 100.0f);
    const osg::ref_ptr<osg::Group> scene = groupOf(lod);
    const StandardError errors;

    const osg::ref_ptr<osg::Group> shown = makeVisible(scene, roof);

    EXPECT_EQ(shown->getNumChildren(), 2u);
    EXPECT_FALSE(scene->containsNode(lod)) << "the group with the boxes took its place";
    EXPECT_THAT(errors.text(), HasSubstr("num paths = 1\n"));
    EXPECT_TRUE(std::filesystem::exists("lodmarkup.osg"));
}

TEST(ExampleOfThePage, MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor) {
    const osg::ref_ptr<osg::Group> model = groupOf(staticMove(makeGround(1.0f), 1000.0));
    model->addChild(staticMove(makeGround(1.0f), 1001.0));

    flattenNearTransforms(model);

    EXPECT_FALSE(as<osg::MatrixTransform>(model->getChild(0)));
    EXPECT_TRUE(as<osg::MatrixTransform>(model->getChild(1)));
}

TEST(ExampleOfThePage, OpenFlightLODCreator) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> model = makeModel(10.0f);
    model->addDescription("LOD_Transition_Range 300");
    writeFlight(folder.path() / "village.flt", *groupOf(model));

    const osg::ref_ptr<osg::Group> village = loadVillage(folder / "village.flt");

    auto* const root = as<osg::Group>(village->getChild(0));
    ASSERT_TRUE(root && root->getNumChildren() == 1);
    auto* const lod = as<osg::LOD>(root->getChild(0));
    ASSERT_TRUE(lod);
    EXPECT_EQ(lod->getMaxRange(0), 1500.0f);
}

TEST(ExampleOfThePage, OptimizeBatches) {
    const osg::ref_ptr<osg::Group> town = groupOf(makeGeode(makeSquare()));
    town->addChild(makeGeode(makeSquare(osg::Vec3(500, 0, 0))));
    const osg::ref_ptr<osg::Group> above = groupOf(town);

    makeCheapToDraw(town);

    ASSERT_EQ(town->getNumChildren(), 1u);
    auto* const geode = as<osg::Geode>(town->getChild(0));
    ASSERT_TRUE(geode);
    EXPECT_EQ(geode->getNumDrawables(), 1u);
}

TEST(ExampleOfThePage, RemoveNamesAndDescriptions) {
    const osg::ref_ptr<osg::Group> house = new osg::Group;
    house->setName("house");
    const osg::ref_ptr<osg::Group> door = new osg::Group;
    door->setName("door");
    house->addChild(door);

    keepDoorsAndWindowsOnly(house);

    EXPECT_EQ(house->getName(), "");
    EXPECT_EQ(door->getName(), "door");
}

TEST(ExampleOfThePage, SceneUtils) {
    const TemporaryDirectory folder;
    const WorkingDirectory inFolder(folder.path());
    const osg::ref_ptr<osg::Group> lake = new osg::Group;
    writeBytes("shaders/water.frag", "first");

    const osg::ref_ptr<osg::Program> water = shadeWater(lake);
    EXPECT_EQ(lake->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM), water);
    EXPECT_EQ(water->getShader(0)->getShaderSource(), "first");

    writeBytes("shaders/water.frag", "second");
    shadeWaterAgain(water);
    EXPECT_EQ(water->getShader(0)->getShaderSource(), "second");
}

TEST(ExampleOfThePage, ShaderGenerator) {
    const osg::ref_ptr<osg::Group> town = new osg::Group;
    town->getOrCreateStateSet()->setTextureAttributeAndModes(1, makeTexture());
    const osg::ref_ptr<osg::Group> house = groupOf(texturedSquare(makeTexture()));

    shadeHouse(house, town);

    const osg::StateAttribute* program = house->getChild(0)->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM);
    ASSERT_TRUE(program);
    EXPECT_EQ(program->getName(), "shader_t01_lighting_fog");
}

TEST(ExampleOfThePage, SimpleGeometryGenerator) {
    const auto marks = showView(osg::BoundingBox(1, 1, 1, 3, 3, 3), osg::Vec3f(-5, 0, 0));

    const osg::BoundingSphere bound = marks->getBound();

    EXPECT_EQ(bound.center(), osg::Vec3(-1, 1.5f, 1.5f)) << "the middle of what box and line cover";
}

TEST(ExampleOfThePage, StateSetVisitor) {
    const osg::ref_ptr<osg::Geode> glass = texturedSquare(makeTexture());

    drawLate(glass);

    EXPECT_EQ(glass->getStateSet()->getRenderingHint(), osg::StateSet::TRANSPARENT_BIN);
}

TEST(ExampleOfThePage, TextureVisitor) {
    const osg::ref_ptr<osg::Group> model = groupOf(texturedSquare(makeTexture("wall.png")));
    model->addChild(texturedSquare(makeTexture("roof.png")));

    EXPECT_THAT(imagesOf(model), ElementsAre("roof.png", "wall.png"));
}

TEST(ExampleOfThePage, TransformAccumulator) {
    const osg::ref_ptr<osg::Group> turret = new osg::Group;
    const osg::ref_ptr<osg::MatrixTransform> tank = staticMove(turret, 10.0);

    EXPECT_EQ(placeOf(turret, tank), osg::Vec3d(10, 0, 0));
}

}  // namespace
