#include "support/Conversions.h"
#include "support/Graphs.h"
#include "support/LightPoints.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include <osg/MatrixTransform>
#include <osg/PositionAttitudeTransform>
#include <osg/io_utils>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>
#include <osgSim/DOFTransform>

namespace fs = std::filesystem;

using namespace testing_support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const osg::Vec3 farAway(399999.5f, 299999.5f, 0.0f);  // half a unit beside the centre of a unit square

/** A file with a unit square around (400000,300000,0), and the file that it is to become. */
class Town {
public:
    Town() { write(*makeGeode(makeSquare(farAway))); }

    void write(osg::Node& graph) const { osgDB::writeNodeFile(graph, input()); }
    std::string input() const { return _folder / "in.osgb"; }
    std::string output() const { return _folder / "out.osgb"; }
    const TemporaryDirectory& folder() const { return _folder; }

    ToolResult recentre(const std::vector<std::string>& options = {}) const {
        std::vector<std::string> arguments = {"recentre", input(), output()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return runTool(arguments);
    }

private:
    TemporaryDirectory _folder;
};

osg::ref_ptr<osg::Group> makeGroup(const std::vector<osg::ref_ptr<osg::Node>>& children) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (const osg::ref_ptr<osg::Node>& child : children) group->addChild(child);
    return group;
}

osg::Vec3 secondVertexIn(const std::string& path) {
    const auto geometries = findAll<osg::Geometry>(load(path));
    return dynamic_cast<const osg::Vec3Array&>(*geometries.front()->getVertexArray())[1];
}

const char* const movedText =
    "moved from 400000,300000,0 to the origin, below a transform that puts it back\n"
    "largest vertex distance from the origin: 500000.7 before, 0.707106781 now\n";

}  // namespace

TEST(RecentreCommand, MovesTheGraphAndSaysByWhatAndWhatItGains) {
    const Town town;

    const ToolResult result = town.recentre();

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, town.output() + ": " + movedText + "largest difference of a place in the world: 0\n");
    const osg::ref_ptr<osg::Node> graph = load(town.output());
    EXPECT_EQ(graph->asTransform()->asMatrixTransform()->getMatrix(), osg::Matrixd::translate(400000, 300000, 0));
    EXPECT_EQ(secondVertexIn(town.output()), osg::Vec3(-0.5f, -0.5f, 0.0f));
}

TEST(RecentreCommand, KeepsAllDigitsInEveryFormatThatHasTransforms) {
    const Town town;
    town.write(*makeGeode(makeSquare(osg::Vec3(123456.789f, -0.123456789f, 1e-7f))));
    for (const char* name : {"a.ive", "a.osgb", "a.osgt", "a.osgx", "a.osg"}) {
        runTool({"recentre", town.input(), town.folder() / name});
        const osg::ref_ptr<osg::Node> graph = load(town.folder() / name);
        const osg::Vec3d place = graph->asTransform()->asMatrixTransform()->getMatrix().getTrans();
        const osg::Vec3d expected(123457.2890625, double(0.376543224f), double(1e-7f));
        EXPECT_LT((place - expected).length(), 1e-9) << name;  // text is not read to the last digit
    }
}

TEST(RecentreCommand, SaysHowManyTransformsItReplaced) {
    const Town town;
    const osg::ref_ptr<osg::PositionAttitudeTransform> pat = new osg::PositionAttitudeTransform;
    pat->addChild(makeGeode(makeSquare()));
    town.write(*makeGroup({makeGeode(makeSquare(farAway)), pat}));

    const ToolResult result = town.recentre();

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("position-attitude transforms replaced by matrix transforms: 1\n"));
    EXPECT_TRUE(findAll<osg::PositionAttitudeTransform>(load(town.output())).empty());
}

TEST(RecentreCommand, ReportsAsJson) {
    const Town town;

    const ToolResult result = town.recentre({"--json", "--min-distance", "2.5"});

    EXPECT_EQ(result.status, 0);
    const nlohmann::json expected = {
        {"version", 1},
        {"command", "recentre"},
        {"input", town.input()},
        {"output", town.output()},
        {"options", {{"minDistance", 2.5}, {"graph", false}, {"overwrite", false}}},
        {"moved", true},
        {"offset", {400000.0, 300000.0, 0.0}},
        {"largestVertexDistance", {{"before", osg::Vec3d(400000.5, 300000.5, 0).length()}, {"now", std::sqrt(0.5)}}},
        {"replacedTransforms", 0},
        {"largestDifference", 0.0},
    };
    EXPECT_EQ(nlohmann::json::parse(result.output), expected);
}

TEST(RecentreCommand, WritesAGraphThatLiesNearTheOriginAsItIsAndSaysSo) {
    const Town town;
    const osg::ref_ptr<osgSim::DOFTransform> door = new osgSim::DOFTransform;
    door->addChild(makeGeode(makeSquare(farAway)));
    town.write(*door);

    const ToolResult result = town.recentre({"--min-distance", "600000"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, town.output() +
                                 ": not moved: all geodes lie nearer to the origin than 600000\n"
                                 "largest vertex distance from the origin: 500000.7 before, 500000.7 now\n");
    EXPECT_EQ(secondVertexIn(town.output()), farAway);
    EXPECT_TRUE(dynamic_cast<osgSim::DOFTransform*>(load(town.output()).get()));
}

TEST(RecentreCommand, TellsInJsonWhyAGraphIsNotMoved) {
    const Town town;

    const ToolResult result = town.recentre({"--json", "--graph", "--min-distance", "600000"});

    const nlohmann::json report = nlohmann::json::parse(result.output);
    EXPECT_EQ(report["moved"], false);
    EXPECT_EQ(report["reason"], "its centre lies nearer to the origin than 600000");
    EXPECT_EQ(report["options"]["graph"], true);
    EXPECT_EQ(report["offset"], nlohmann::json({0.0, 0.0, 0.0}));
}

TEST(RecentreCommand, MovesEveryGraphIfNoDistanceIsAskedFor) {
    const Town town;
    town.write(*makeGeode(makeSquare()));

    EXPECT_THAT(town.recentre().output, HasSubstr("moved from 0.5,0.5,0 to the origin,"));
}

TEST(RecentreCommand, AsAGraphItRefusesLightPoints) {
    const Town town;
    town.write(*makeGroup({makeGeode(makeSquare(farAway)), makeLights({farAway})}));

    EXPECT_EQ(town.recentre({"--graph"}).status, 3);
    EXPECT_FALSE(fs::exists(town.output()));
    EXPECT_EQ(town.recentre().status, 0);
    const osg::ref_ptr<osg::Node> graph = load(town.output());
    EXPECT_EQ(positionsOf(findAll<osgSim::LightPointNode>(graph).front()).front() + graph->getBound().center(),
              farAway);
}

TEST(RecentreCommand, NamesTheNodeThatCannotBeMovedAndWritesNothing) {
    const Town town;
    const osg::ref_ptr<osgSim::DOFTransform> door = new osgSim::DOFTransform;
    door->setName("door");
    town.write(*makeGroup({makeGeode(makeSquare(farAway)), door}));

    const ToolResult result = town.recentre();

    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "sceneutils: " + town.input() +
                                 ": cannot be recentred: 'door' (osgSim::DOFTransform) is of a class that cannot be "
                                 "moved; put it below a matrix transform\n");
    EXPECT_THAT(namesIn(town.folder().path()), ElementsAre("in.osgb"));
}

TEST(RecentreCommand, RefusesADatabaseWhosePartsAreMissing) {
    const Town town;
    const osg::ref_ptr<osg::ProxyNode> part = new osg::ProxyNode;
    part->setFileName(0, "gone.flt");
    town.write(*makeGroup({makeGeode(makeSquare(farAway)), part}));

    const ToolResult result = town.recentre();

    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.errors, HasSubstr("osg::ProxyNode without a name refers to a file that is not loaded\n"));
}

TEST(RecentreCommand, MovesOpenFlightModelsWithTheirReferences) {
    const Town town;
    writeFlight(town.folder() / "a.flt", 10.0f, {"b.flt"});
    osgDB::writeNodeFile(*makeGeode(makeSquare(farAway)), town.folder() / "b.flt");

    const ToolResult result = runTool({"recentre", town.folder() / "a.flt", town.folder() / "a.ive"});

    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("a.ive: moved from "));
    EXPECT_EQ(findAll<osg::Geometry>(load(town.folder() / "a.ive")).size(), 2u);
}

TEST(RecentreCommand, RefusesDistancesThatAreNone) {
    const Town town;
    for (const char* number : {"-1", "nan", "inf"}) {
        const ToolResult result = town.recentre({"--min-distance", number});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.errors, "sceneutils: --min-distance: a distance is 0 or more\n") << number;
    }
    EXPECT_EQ(town.recentre({"--min-distance", "far"}).status, 1);
    EXPECT_EQ(runTool({"recentre", town.input()}).status, 1);
    EXPECT_FALSE(fs::exists(town.output()));
}

TEST(RecentreCommand, NeverReplacesAnOutputUnlessTold) {
    const Town town;
    writeBytes(town.output(), "precious");

    const ToolResult result = town.recentre();

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.errors, "sceneutils: " + town.output() + ": exists already; pass --overwrite to replace it\n");
    EXPECT_EQ(readBytes(town.output()), "precious");
    const ToolResult replaced = town.recentre({"--overwrite", "--json"});
    EXPECT_EQ(replaced.status, 0);
    EXPECT_EQ(nlohmann::json::parse(replaced.output)["options"]["overwrite"], true);
}

TEST(RecentreCommand, NeverReplacesItsInputNorAFileThatWasReadWithIt) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.flt"});
    writeFlight(folder / "b.flt", 20.0f);
    osgDB::writeNodeFile(*makeGeode(makeSquare(farAway)), folder / "in.osgb");
    const FolderState before = stateOf(folder.path());

    const ToolResult onItself = runTool({"recentre", folder / "in.osgb", folder / "in.osgb", "--overwrite"});
    fs::create_symlink("b.flt", folder / "link.osgb");
    const ToolResult onItsPart = runTool({"recentre", folder / "a.flt", folder / "link.osgb", "--overwrite"});

    EXPECT_EQ(onItself.status, 4);
    EXPECT_EQ(onItself.errors, "sceneutils: " + (folder / "in.osgb: is one of the inputs; choose another name\n"));
    EXPECT_EQ(onItsPart.status, 4);
    EXPECT_EQ(onItsPart.errors, "sceneutils: " + (folder / "link.osgb: is one of the inputs; choose another name\n"));
    fs::remove(folder / "link.osgb");
    EXPECT_EQ(stateOf(folder.path()), before);
}

TEST(RecentreCommand, RefusesFormatsThatKeepNoTransforms) {
    const Town town;
    for (const char* name : {"out.obj", "out.stl", "out.flt", "out"}) {
        const std::string output = town.folder() / name;
        const ToolResult result = runTool({"recentre", town.input(), output});

        EXPECT_EQ(result.status, 1) << name;
        EXPECT_EQ(result.errors, "sceneutils: " + output +
                                     ": the output's name must end in .ive, .osg, .osgb, .osgt or .osgx; no other "
                                     "format keeps transforms\n");
    }
}

TEST(RecentreCommand, LeavesNothingBehindWhenTheDiskIsFull) {
    const Town town;
    ToolSettings settings;
    settings.fileSizeLimit = 100;
    settings.diesOfFileSize = true;

    const ToolResult result = runTool({"recentre", town.input(), town.output()}, settings);

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.errors, "sceneutils: " + town.output() + ": not all of it could be written: File too large\n");
    EXPECT_THAT(namesIn(town.folder().path()), ElementsAre("in.osgb"));
}

TEST(RecentreCommand, SaysThatTheInputCannotBeRead) {
    const Town town;
    fs::remove(town.input());

    const ToolResult result = town.recentre();

    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.errors, "sceneutils: " + town.input() + ": no such file\n");
}

TEST(RecentreCommand, HelpListsEveryOptionWithItsDefault) {
    const ToolResult result = runTool({"recentre", "--help"});

    EXPECT_EQ(result.status, 0);
    for (const char* word : {"IN", "OUT", "--min-distance FLOAT=0", "--graph", "--overwrite", "--json"})
        EXPECT_THAT(result.output, HasSubstr(word));
}
