#include "support/Conversions.h"
#include "support/Graphs.h"
#include "support/ToolJson.h"

#include <gmock/gmock.h>

#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osg/PositionAttitudeTransform>
#include <osgDB/WriteFile>
#include <osgSim/DOFTransform>

using namespace testing_support;
using nlohmann::json;
using testing::HasSubstr;

namespace {

/** A file of a graph; what `find` says of it. */
class Scene {
public:
    explicit Scene(const osg::Node& graph) { osgDB::writeNodeFile(graph, file()); }

    std::string file() const { return _folder / "a.osgb"; }
    ToolResult find(const std::string& name, const std::vector<std::string>& options = {}) const {
        std::vector<std::string> arguments = {"find", file(), name};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return runTool(arguments);
    }
    ToolResult findType(const std::string& type) const { return find("turret", {"--type", type}); }

private:
    TemporaryDirectory _folder;
};

template <class NodeType>
osg::ref_ptr<NodeType> named(NodeType* node, const std::string& name, osg::Node* child = nullptr) {
    const osg::ref_ptr<NodeType> result = node;
    result->setName(name);
    if (child) result->addChild(child);
    return result;
}

osg::ref_ptr<osg::MatrixTransform> moved(const std::string& name, double x, osg::Node* child = nullptr) {
    return named(new osg::MatrixTransform(osg::Matrix::translate(x, 0, 0)), name, child);
}

/** A tank whose turret, a transform at x = 15, hangs below an unnamed group. */
osg::ref_ptr<osg::Group> makeTank() {
    const osg::ref_ptr<osg::Group> unnamed = new osg::Group;
    unnamed->addChild(moved("turret", 5.0));
    return moved("tank", 10.0, unnamed);
}

}  // namespace

TEST(FindCommand, TellsWayClassAndOriginOfATransform) {
    const ToolResult result = Scene(*makeTank()).find("turret");

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "tank/<Group>/turret  osg::MatrixTransform  at 15,0,0\n");
    EXPECT_EQ(result.errors, "");
}

TEST(FindCommand, TellsTheMiddleOfOtherNodesAndThatThereIsNone) {
    const osg::ref_ptr<osg::Group> tank = moved("tank", 10.0, named(new osg::Group, "hull", makeGround(2.0f)));
    tank->addChild(named(new osg::Group, "hull"));

    EXPECT_EQ(Scene(*tank).find("hull").output,
              "tank/hull  osg::Group  at 10,0,0\n"
              "tank/hull  osg::Group  nowhere: it has no extent\n");
}

TEST(FindCommand, TellsEveryWayToASharedNodeInTheOrderOfTheGraph) {
    const auto wheel = named(new osg::Group, "wheel", makeGround(2.0f));
    const auto car = named(new osg::Group, "car", moved("left", -1.0, wheel));
    car->addChild(moved("right", 1.0, wheel));

    EXPECT_EQ(Scene(*car).find("wheel").output,
              "car/left/wheel  osg::Group  at -1,0,0\n"
              "car/right/wheel  osg::Group  at 1,0,0\n");
}

TEST(FindCommand, FindsNodesThatAreHidden) {
    const auto tank = makeTank();
    tank->getChild(0)->setNodeMask(0);

    EXPECT_EQ(Scene(*tank).find("turret").status, 0);
}

TEST(FindCommand, FindsUnnamedNodes) {
    EXPECT_EQ(Scene(*makeTank()).find("").output, "tank/<Group>  osg::Group  nowhere: it has no extent\n");
}

TEST(FindCommand, WritesJson) {
    const Scene scene(*makeTank());

    EXPECT_EQ(jsonOf({"find", scene.file(), "turret", "--type", "Transform"}),
              json({{"version", 1},
                    {"command", "find"},
                    {"input", scene.file()},
                    {"options", {{"name", "turret"}, {"type", "Transform"}}},
                    {"filesNotLoaded", 0},
                    {"nodes", json::array({{{"path", {"tank", "<Group>", "turret"}},
                                            {"class", "osg::MatrixTransform"},
                                            {"position", {15.0, 0.0, 0.0}}}})}}));
}

TEST(FindCommand, SaysThatThereIsNone) {
    const Scene scene(*makeTank());

    EXPECT_EQ(onlyLineOf({"find", scene.file(), "Turret"}, 1),
              "sceneutils: " + scene.file() + ": there is no node called 'Turret'\n");
    EXPECT_EQ(onlyLineOf({"find", scene.file(), "turret", "--type", "LOD"}, 1),
              "sceneutils: " + scene.file() + ": there is no osg::LOD called 'turret'\n");
    EXPECT_EQ(runTool({"find", scene.file(), "Turret"}).output, "");
    EXPECT_EQ(jsonOf({"find", scene.file(), "Turret"}, 1)["nodes"], json::array());
}

TEST(FindCommand, SaysWhatItHasNotSearched) {
    const osg::ref_ptr<osg::PagedLOD> paged = new osg::PagedLOD;
    paged->setFileName(0, "tile.ive");
    paged->setFileName(1, "near.ive");

    EXPECT_THAT(Scene(*paged).find("turret").errors,
                HasSubstr("there is no node called 'turret'; not searched: 2 files that it refers to\n"));
}

TEST(FindCommand, AClassIsMeantWithThoseDerivedFromIt) {
    const Scene scene(*makeTank());
    for (const char* type : {"MatrixTransform", "osg::MatrixTransform", "Transform", "osg::Group", "Node"})
        EXPECT_EQ(scene.findType(type).status, 0) << type;
    for (const char* type : {"Geode", "PositionAttitudeTransform", "osgSim::DOFTransform", "DOFTransform"})
        EXPECT_EQ(scene.findType(type).status, 1) << type;
}

TEST(FindCommand, KnowsTheClassesOfOtherLibraries) {
    const Scene scene(*named(new osgSim::DOFTransform, "turret"));

    for (const char* type : {"DOFTransform", "osgSim::DOFTransform", "Transform"})
        EXPECT_EQ(scene.findType(type).output, "turret  osgSim::DOFTransform  at 0,0,0\n") << type;
    EXPECT_EQ(scene.findType("MatrixTransform").status, 1);
}

TEST(FindCommand, RefusesAClassThatDoesNotExist) {
    const Scene scene(*makeTank());
    for (const std::string type : {"Turret", "osg::DOFTransform", "Texture2D", "osg::Texture2D", "lod", "::"}) {
        EXPECT_EQ(onlyLineOf({"find", scene.file(), "turret", "--type", type}, 1),
                  "sceneutils: --type: OpenSceneGraph has no class of nodes called '" + type + "'\n");
    }
}

TEST(FindCommand, SearchesTheReferencesOfOpenFlightFiles) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.flt"});
    const osg::ref_ptr<osg::Group> model = makeModel(10.0f);
    model->addChild(named(new osg::Group, "engine", makeGround(1.0f)));
    writeFlight(folder / "b.flt", *model);

    EXPECT_THAT(runTool({"find", folder / "a.flt", "engine"}).output, HasSubstr("/engine  osg::Group  at 0,0,0\n"));
}

TEST(FindCommand, NeverWritesControlCharactersToATerminal) {
    EXPECT_EQ(Scene(*named(new osg::Group, "a\x1b[2J", moved("b", 1.0))).find("b").output,
              "a?[2J/b  osg::MatrixTransform  at 1,0,0\n");
}

TEST(FindCommand, SaysThatTheInputCannotBeRead) {
    const TemporaryDirectory folder;

    EXPECT_EQ(onlyLineOf({"find", folder / "a.ive", "x"}, 2), "sceneutils: " + (folder / "a.ive: no such file\n"));
    EXPECT_THAT(onlyLineOf({"find", folder / "a.ive"}, 1), HasSubstr("NAME"));
}
