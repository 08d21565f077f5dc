#include "support/Conversions.h"
#include "support/Graphs.h"
#include "support/ToolJson.h"

#include <gmock/gmock.h>

#include <osg/Billboard>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osg/PositionAttitudeTransform>
#include <osgDB/WriteFile>
#include <osgSim/MultiSwitch>

using namespace testing_support;
using nlohmann::json;
using testing::HasSubstr;

namespace {

const osg::Matrix twice = osg::Matrix::scale(2, 2, 2);
const osg::Matrix aside = osg::Matrix::translate(10, 0, 0);

/** A group of that name with a square of 2 by 2 in it, so that the graph has an extent. */
osg::ref_ptr<osg::Group> makeWorld() {
    const osg::ref_ptr<osg::Group> world = new osg::Group;
    world->setName("world");
    world->addChild(makeGround(2.0f));
    return world;
}

template <class NodeType>
osg::ref_ptr<NodeType> named(NodeType* node, const std::string& name, osg::Node* child = nullptr) {
    const osg::ref_ptr<NodeType> result = node;
    result->setName(name);
    if (child) result->addChild(child);
    return result;
}

osg::ref_ptr<osg::MatrixTransform> transform(const osg::Matrix& matrix, const std::string& name, osg::Node* child) {
    return named(new osg::MatrixTransform(matrix), name, child);
}

osg::ref_ptr<osg::PositionAttitudeTransform> moved(const std::string& name, double x, osg::Node* child) {
    const auto result = named(new osg::PositionAttitudeTransform, name, child);
    result->setPosition(osg::Vec3d(x, 0, 0));
    return result;
}

/** Shows its only child, or does not. */
osg::ref_ptr<osgSim::MultiSwitch> multiSwitch(const std::string& name, osg::Node* child, bool isShown = true) {
    const auto result = named(new osgSim::MultiSwitch, name, child);
    result->setValue(0, 0, isShown);
    return result;
}

/** In the xy plane. */
osg::ref_ptr<osg::Geometry> makePlate(float size, float x = 0.0f, float y = 0.0f) {
    return osg::createTexturedQuadGeometry(osg::Vec3(x - size / 2, y - size / 2, 0), osg::Vec3(size, 0, 0),
                                           osg::Vec3(0, size, 0));
}

json boundsOf(const osg::Node& graph) {
    const TemporaryDirectory folder;
    osgDB::writeNodeFile(graph, folder / "a.osgb");
    return jsonOf({"bounds", folder / "a.osgb"});
}

/** The differences in a world with that besides its square. */
json differencesWith(osg::Node* node) {
    const osg::ref_ptr<osg::Group> world = makeWorld();
    world->addChild(node);
    return boundsOf(*world)["differences"];
}

json difference(const std::string& reason, const std::vector<std::vector<std::string>>& nodes) {
    return json::array({{{"reason", reason}, {"nodes", nodes}}});
}

json box(double x0, double x1) {
    return {{"min", {x0, -1.0, 0.0}}, {"max", {x1, 1.0, 0.0}}};
}

}  // namespace

TEST(BoundsCommand, TellsTheBoxTheSphereAndThatBothWaysAgree) {
    const json bounds = boundsOf(*transform(aside, "aside", makeGround(2.0f)));

    EXPECT_EQ(bounds["version"], 1);
    EXPECT_EQ(bounds["command"], "bounds");
    EXPECT_EQ(bounds["box"], box(9, 11));
    EXPECT_EQ(bounds["calculateBoundingBox"], box(9, 11));
    EXPECT_EQ(bounds["sphere"], json({{"center", {10.0, 0.0, 0.0}}, {"radius", 1.4142135}}));
    EXPECT_EQ(bounds["differences"], json::array());
    EXPECT_EQ(bounds["filesNotLoaded"], 0);
}

TEST(BoundsCommand, WritesText) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> world = makeWorld();
    world->addChild(moved("far", 10, makeGround(2.0f)));
    osgDB::writeNodeFile(*world, folder / "a.osgb");

    const ToolResult result = runTool({"bounds", folder / "a.osgb"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output,
              "box                   -1,-1,0 to 11,1,0\n"
              "sphere                radius 6.4142137 around 5,0,0\n"
              "CalculateBoundingBox  -1,-1,0 to 1,1,0\n"
              "CalculateBoundingBox gives another box because\n"
              "  a transform that is no MatrixTransform does not move what hangs below\n"
              "    world/far\n");
}

TEST(BoundsCommand, NamesNestedTransformsWhoseOrderMatters) {
    const auto inner = transform(aside, "inner", makeGround(2.0f));

    EXPECT_EQ(differencesWith(transform(twice, "outer", inner)),
              difference("nestedTransforms", {{"world", "outer", "inner"}}));
    EXPECT_EQ(differencesWith(transform(aside, "outer", inner)), json::array());
}

TEST(BoundsCommand, NamesTransformsThatAreNotFollowed) {
    EXPECT_EQ(differencesWith(moved("far", 10, makeGround(2.0f))),
              difference("transformNotFollowed", {{"world", "far"}}));
    EXPECT_EQ(differencesWith(moved("here", 0, makeGround(2.0f))), json::array());
    EXPECT_EQ(differencesWith(moved("inside", 0.5, makeGround(0.1f))), json::array());
}

TEST(BoundsCommand, NamesAbsoluteTransforms) {
    const auto absolute = transform(osg::Matrix(), "absolute", makeGround(2.0f));
    absolute->setReferenceFrame(osg::Transform::ABSOLUTE_RF);

    EXPECT_EQ(differencesWith(transform(aside, "outer", absolute)),
              difference("referenceFrame", {{"world", "outer", "absolute"}}));
    EXPECT_EQ(differencesWith(absolute), json::array());
}

TEST(BoundsCommand, NamesChildrenOfAMultiSwitch) {
    const auto wide = makeGround(20.0f);
    wide->setName("wide");

    EXPECT_EQ(differencesWith(multiSwitch("switch", wide)),
              difference("belowMultiSwitch", {{"world", "switch", "wide"}}));
    EXPECT_EQ(differencesWith(multiSwitch("switch", named(new osg::Group, "between", wide))), json::array());
    EXPECT_EQ(differencesWith(multiSwitch("switch", transform(aside, "far", makeGround(2.0f)))),
              difference("belowMultiSwitch", {{"world", "switch", "far"}}));
}

TEST(BoundsCommand, NamesMultiSwitchesThatHideSomething) {
    const auto off = named(new osg::Group, "off", makeGround(20.0f));

    EXPECT_EQ(differencesWith(multiSwitch("switch", off, false)),
              difference("notShownByMultiSwitch", {{"world", "switch"}}));
}

TEST(BoundsCommand, NamesBillboards) {
    const osg::ref_ptr<osg::Billboard> tree = new osg::Billboard;
    tree->setName("tree");
    tree->addDrawable(makePlate(20.0f));

    EXPECT_EQ(differencesWith(tree), difference("billboard", {{"world", "tree"}}));
}

TEST(BoundsCommand, NamesDrawablesOutsideGeodes) {
    const osg::ref_ptr<osg::Geometry> wide = makePlate(20.0f);
    wide->setName("wide");

    EXPECT_EQ(differencesWith(wide), difference("drawableOutsideGeode", {{"world", "wide"}}));
    EXPECT_EQ(differencesWith(makePlate(0.1f)), json::array());
}

TEST(BoundsCommand, NamesEmptyGeodesAndWhatElseIsDifferent) {
    const osg::ref_ptr<osg::Group> both = new osg::Group;
    both->addChild(named(new osg::Geode, "empty"));
    both->addChild(moved("far", 10, makeGround(2.0f)));

    const json differences = differencesWith(both);

    ASSERT_EQ(differences.size(), 2u);
    EXPECT_EQ(differences[0], difference("emptyGeode", {{"world", "<Group>", "empty"}})[0]);
    EXPECT_EQ(differences[1], difference("transformNotFollowed", {{"world", "<Group>", "far"}})[0]);
}

TEST(BoundsCommand, NamesGeodesWhoseDrawablesAreTurnedTogether) {
    const auto geode = named(new osg::Geode, "pair");
    geode->addDrawable(makePlate(1.0f, -20, -20));
    geode->addDrawable(makePlate(1.0f, 20, 20));

    EXPECT_EQ(differencesWith(transform(osg::Matrix::rotate(osg::PI_4, osg::Z_AXIS), "turned", geode)),
              difference("boxedTogether", {{"world", "turned", "pair"}}));
}

TEST(BoundsCommand, NamesWhatOnlyANodeMaskHides) {
    const auto geode = named(new osg::Geode, "geode");
    geode->addDrawable(makePlate(1.0f));
    geode->addDrawable(makePlate(20.0f));
    geode->getDrawable(1)->setNodeMask(0);
    const auto hidden = makeGround(20.0f);
    hidden->setNodeMask(0);

    EXPECT_EQ(differencesWith(geode), difference("masked", {{"world", "geode"}}));
    EXPECT_EQ(differencesWith(hidden), json::array());
}

TEST(BoundsCommand, NamesWhatIsHiddenBelowAMultiSwitch) {
    const auto hidden = named(new osg::Group, "hidden", makeGround(20.0f));
    hidden->setNodeMask(0);

    EXPECT_EQ(differencesWith(multiSwitch("switch", hidden)), difference("masked", {{"world", "switch", "hidden"}}));
}

TEST(BoundsCommand, DoesNotNameWhatBothLeaveOut) {
    const auto hidden = named(new osg::Group, "hidden", makeGround(50.0f));
    hidden->setNodeMask(0);
    const auto both = named(new osg::Group, "both", hidden);
    both->addChild(moved("far", 10, makeGround(2.0f)));

    EXPECT_EQ(differencesWith(both), difference("transformNotFollowed", {{"world", "both", "far"}}));
}

TEST(BoundsCommand, FollowsEveryWayToASharedNode) {
    const auto shared = named(new osg::Group, "shared", makeGround(2.0f));
    const osg::ref_ptr<osg::Group> both = named(new osg::Group, "both", transform(aside, "good", shared));
    both->addChild(moved("bad", -10, shared));

    EXPECT_EQ(differencesWith(both), difference("transformNotFollowed", {{"world", "both", "bad"}}));
}

TEST(BoundsCommand, ListsTenNodesForAReasonInTheText) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> world = makeWorld();
    for (int i = 10; i < 22; ++i) world->addChild(moved(std::to_string(i), i, makeGround(2.0f)));
    osgDB::writeNodeFile(*world, folder / "a.osgb");

    const std::string text = runTool({"bounds", folder / "a.osgb"}).output;

    EXPECT_THAT(text, HasSubstr("    world/19\n    and 2 more (--json lists all)\n"));
    EXPECT_EQ(jsonOf({"bounds", folder / "a.osgb"})["differences"][0]["nodes"].size(), 12u);
}

TEST(BoundsCommand, LoadsOpenFlightReferencesAndTellsTilesThatAreNotLoaded) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 2.0f, {"b.flt"});
    writeFlight(folder / "b.flt", 20.0f);
    const osg::ref_ptr<osg::PagedLOD> paged = new osg::PagedLOD;
    paged->setFileName(0, "tile.ive");
    osgDB::writeNodeFile(*paged, folder / "paged.osgb");

    EXPECT_EQ(jsonOf({"bounds", folder / "a.flt"})["box"]["max"], json({10.0, 10.0, 0.0}));
    EXPECT_EQ(jsonOf({"bounds", folder / "a.flt"})["filesNotLoaded"], 0);
    EXPECT_EQ(jsonOf({"bounds", folder / "paged.osgb"})["filesNotLoaded"], 1);
    EXPECT_THAT(runTool({"bounds", folder / "paged.osgb"}).output,
                HasSubstr("without               1 file not loaded\n"));
}

TEST(BoundsCommand, AGraphWithoutAnExtentHasNoBox) {
    const osg::ref_ptr<osg::Group> empty = new osg::Group;
    const json bounds = boundsOf(*empty);

    EXPECT_EQ(bounds["box"], nullptr);
    EXPECT_EQ(bounds["sphere"], nullptr);
    EXPECT_EQ(bounds["calculateBoundingBox"], nullptr);
    EXPECT_EQ(bounds["differences"], json::array());
}

TEST(BoundsCommand, SaysThatTheInputCannotBeRead) {
    const TemporaryDirectory folder;

    EXPECT_EQ(onlyLineOf({"bounds", folder / "a.ive"}, 2), "sceneutils: " + (folder / "a.ive: no such file\n"));
    EXPECT_THAT(onlyLineOf({"bounds"}, 1), HasSubstr("FILE"));
}
