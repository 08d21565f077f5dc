#include "support/Conversions.h"
#include "support/OptimizedScenes.h"
#include "support/ToolJson.h"

#include <gmock/gmock.h>

#include <osgDB/WriteFile>

using namespace testing_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/** A scene in a file, and what `optimize` makes of it. */
class Scene {
public:
    explicit Scene(const osg::ref_ptr<osg::Group>& graph, const std::string& input = "in.osgb",
                   const std::string& output = "out.osgt")
        : _in(_folder / input), _out(_folder / output) {
        osgDB::writeNodeFile(*graph, _in);
    }
    Scene() : Scene(makeTown()) {}

    const std::string& in() const { return _in; }
    const std::string& out() const { return _out; }
    const TemporaryDirectory& folder() const { return _folder; }
    osg::ref_ptr<osg::Node> result() const { return load(_out); }

    std::vector<std::string> command(const std::vector<std::string>& options = {}) const {
        std::vector<std::string> arguments = {"optimize", _in, _out};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return arguments;
    }
    ToolResult run(const std::vector<std::string>& options = {}) const { return runTool(command(options)); }

    /** Three houses, two of them in a small group with a state of its own, and a gate. */
    static osg::ref_ptr<osg::Group> makeTown() {
        const osg::ref_ptr<osg::Group> quarter = groupOf({squareAt(0), squareAt(2)});
        quarter->setStateSet(stateWithMode(GL_BLEND, osg::StateAttribute::ON));
        const osg::ref_ptr<osg::Geode> gate = squareAt(1000);
        gate->setName("gate");
        return groupOf({quarter, gate, squareAt(2000)});
    }

private:
    TemporaryDirectory _folder;
    std::string _in;
    std::string _out;
};

std::set<std::string> keysOf(const nlohmann::json& json) {
    std::set<std::string> keys;
    for (const auto& [key, value] : json.items()) keys.insert(key);
    return keys;
}

std::vector<std::string> stepsOf(const nlohmann::json& report) {
    std::vector<std::string> steps;
    for (const auto& step : report["steps"]) {
        EXPECT_GE(step["seconds"].get<double>(), 0.0);
        steps.push_back(step["step"]);
    }
    return steps;
}

}  // namespace

TEST(OptimizeCommand, PrintsWhatChangedAndTheTimeOfEachStep) {
    const Scene scene;

    const ToolResult result = scene.run({"--unspatialize-radius", "10"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, StartsWith("                                before       after\n"
                                          "groups                               2           1\n"
                                          "LODs                                 0           0\n"
                                          "geodes                               4           2\n"
                                          "drawables                            4           2\n"
                                          "primitive sets                       4           2\n"));
    EXPECT_THAT(result.output, HasSubstr("\n\nstep                           seconds\nremember the scene "));
    EXPECT_EQ(findAll<osg::Geode>(scene.result()).size(), 2u);
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb", "out.osgt"));
}

TEST(OptimizeCommand, ReportsAsJson) {
    const Scene scene;

    const nlohmann::json report = jsonOf(scene.command({"--keep-names", "gate", "--unspatialize-radius", "10"}));

    EXPECT_THAT(keysOf(report), ElementsAre("after", "before", "check", "command", "input", "names", "options",
                                            "output", "rounds", "steps", "version", "written"));
    EXPECT_THAT(keysOf(report["before"]), ElementsAre("bytes", "drawables", "geodes", "groups", "lods", "primitiveSets",
                                                      "programs", "stateSets", "triangles", "vertices"));
    EXPECT_THAT(keysOf(report["check"]),
                ElementsAre("differences", "distances", "largestDisplacement", "primitives", "tolerance"));
    EXPECT_EQ(report["options"], nlohmann::json({{"keepNames", {"gate"}},
                                                 {"unspatializeRadius", 10.0},
                                                 {"flattenWithin", nullptr},
                                                 {"dryRun", false},
                                                 {"overwrite", false}}));
    EXPECT_EQ(report["names"],
              nlohmann::json({{"unknown", nlohmann::json::array()}, {"lost", nlohmann::json::array()}}));
    EXPECT_EQ(report["version"], 1);
    EXPECT_EQ(report["command"], "optimize");
    EXPECT_EQ(report["written"], true);
    EXPECT_EQ(report["after"]["geodes"], 3);
    EXPECT_EQ(report["check"]["primitives"], 8);
}

TEST(OptimizeCommand, RunsTheStepsInTheirOrder) {
    const Scene scene;

    EXPECT_THAT(stepsOf(jsonOf(scene.command({"--unspatialize-radius", "10", "--flatten-within", "5"}))),
                ElementsAre("remember the scene", "flatten within", "flatten useless LODs", "remove names",
                            "copy shared subgraphs", "flatten static transforms", "remove redundant nodes",
                            "dissolve small groups", "merge geodes", "merge geometries", "compare the scene"));
    EXPECT_THAT(stepsOf(jsonOf(scene.command({"--overwrite"}))),
                ElementsAre("remember the scene", "flatten useless LODs", "remove names", "copy shared subgraphs",
                            "flatten static transforms", "remove redundant nodes", "merge geodes", "merge geometries",
                            "compare the scene"));
}

TEST(OptimizeCommand, WritesTheReportToAFile) {
    const Scene scene;
    const std::string path = scene.folder() / "report.json";

    const nlohmann::json printed = jsonOf(scene.command({"--report", path}));

    EXPECT_EQ(nlohmann::json::parse(readBytes(path), nullptr, false), printed);
}

TEST(OptimizeCommand, WritesNothingInADryRun) {
    const Scene scene;

    const nlohmann::json report =
        jsonOf(scene.command({"--dry-run", "--unspatialize-radius", "10", "--report", scene.folder() / "r.json"}));

    EXPECT_EQ(report["written"], false);
    EXPECT_EQ(report["options"]["dryRun"], true);
    EXPECT_EQ(report["after"]["geodes"], 2);
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb"));
}

TEST(OptimizeCommand, KeepsNamesAndTellsThoseThatDoNotOccur) {
    const Scene scene;

    const ToolResult result = scene.run({"--keep-names", "gate", "door", "wall"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "sceneutils: " + scene.in() + ": no node is called 'door'\n" +
                                 "sceneutils: " + scene.in() + ": no node is called 'wall'\n");
    const auto geodes = findAll<osg::Geode>(scene.result());
    EXPECT_EQ(std::count_if(geodes.begin(), geodes.end(), [](const auto& geode) { return geode->getName() == "gate"; }),
              1);
}

TEST(OptimizeCommand, ReadsNamesFromAFile) {
    const Scene scene;
    const std::string names = scene.folder() / "names.txt";
    writeBytes(names, "gate\r\n\nno such node\n");

    EXPECT_EQ(scene.run({"--keep-names-file", names}).errors,
              "sceneutils: " + scene.in() + ": no node is called 'no such node'\n");
    EXPECT_EQ(findAll<osg::Geode>(scene.result()).size(), 3u);
}

TEST(OptimizeCommand, KeepsStateInEveryNativeFormat) {
    for (const std::string ending : {"ive", "osgb", "osgt"}) {
        const Scene scene(Scene::makeTown(), "in." + ending, "out." + ending);
        ASSERT_EQ(scene.run({"--unspatialize-radius", "10"}).errors, "");

        int blended = 0;
        for (const auto& stateSet : findStateSets(scene.result()))
            blended += stateSet->getMode(GL_BLEND) == osg::StateAttribute::ON ? 1 : 0;
        EXPECT_EQ(blended, 1) << ending;
    }
}

TEST(OptimizeCommand, FlattensTransformsUpToTheDistance) {
    const osg::ref_ptr<osg::Geode> shared = squareAt(0);
    const Scene scene(groupOf({staticTransform(osg::Matrixd::translate(3, 4, 0), shared),
                               staticTransform(osg::Matrixd::translate(0, 0, 0), shared), squareAt(9)}));

    const nlohmann::json report = jsonOf(scene.command({"--flatten-within", "5"}));

    EXPECT_EQ(report["options"]["flattenWithin"], 5.0);
    EXPECT_EQ(report["after"]["drawables"], 1);
}

TEST(OptimizeCommand, ChangesNothingInItsOwnOutput) {
    const Scene scene;
    const std::vector<std::string> options = {"--unspatialize-radius", "10", "--flatten-within", "100"};
    const nlohmann::json first = jsonOf(scene.command(options));

    std::vector<std::string> again = {"optimize", scene.out(), scene.folder() / "again.osgt"};
    again.insert(again.end(), options.begin(), options.end());
    const nlohmann::json second = jsonOf(again);

    EXPECT_EQ(second["before"], first["after"]);
    EXPECT_EQ(second["after"], first["after"]);
}

TEST(OptimizeCommand, WritesNothingAndNamesTheDifferenceIfTheSceneWouldChange) {
    const osg::Matrixd smallAndFar = osg::Matrixd::scale(0.1, 0.1, 0.1) * osg::Matrixd::translate(1 << 24, 0, 0);
    const Scene scene(groupOf({staticTransform(smallAndFar, squareAt(0)), squareAt(0)}));
    writeBytes(scene.out(), "mine");

    EXPECT_EQ(onlyLineOf(scene.command({"--overwrite", "--report", scene.folder() / "report.json"}), 3),
              "sceneutils: " + scene.in() +
                  ": cannot be optimised without a change: 2 primitives are no longer where they were, the first a "
                  "triangle at 16777216,0.1,0, seen from a distance of 3607101.44\n");

    EXPECT_EQ(readBytes(scene.out()), "mine");
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb", "out.osgt"));
}

TEST(OptimizeCommand, RefusesWrongOptionsInOneLine) {
    const Scene scene;
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--unspatialize-radius", "-1"}, "--unspatialize-radius: a radius is 0 or more"},
        {{"--unspatialize-radius", "nan"}, "--unspatialize-radius: a radius is 0 or more"},
        {{"--flatten-within", "-0.5"}, "--flatten-within: a distance is 0 or more"},
        {{"--flatten-within", "nan"}, "--flatten-within: a distance is 0 or more"},
        {{"--keep-names", ""}, "--keep-names: a name is empty"},
        {{"--keep-names", "a", "--keep-names-file", "b"}, "--keep-names excludes --keep-names-file (see --help)"},
        {{"--report", scene.out()}, scene.out() + ": is the output and the report"},
    };
    for (const auto& [options, message] : cases)
        EXPECT_EQ(onlyLineOf(scene.command(options), 1), "sceneutils: " + message + "\n");
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb"));
}

TEST(OptimizeCommand, RefusesFormatsThatDropState) {
    const Scene scene(Scene::makeTown(), "in.osgb", "out.obj");

    EXPECT_EQ(onlyLineOf(scene.command(), 1), "sceneutils: " + scene.out() +
                                                  ": the output's name must end in .ive, .osg, .osgb, .osgt or .osgx; "
                                                  "no other format keeps all of a graph's state\n");
}

TEST(OptimizeCommand, TellsUnreadableFilesInOneLine) {
    const Scene scene;
    const std::string names = scene.folder() / "none.txt";

    EXPECT_EQ(onlyLineOf(scene.command({"--keep-names-file", names}), 2),
              "sceneutils: " + names + ": cannot be read\n");
    EXPECT_EQ(onlyLineOf(scene.command({"--keep-names-file", scene.folder().path().string()}), 2),
              "sceneutils: " + scene.folder().path().string() + ": cannot be read\n");
    EXPECT_THAT(onlyLineOf({"optimize", scene.folder() / "none.osgb", scene.out()}, 2),
                HasSubstr((scene.folder() / "none.osgb") + ": "));
}

TEST(OptimizeCommand, NeverWritesOverAnInputNorUntoldOverAFile) {
    const Scene scene;
    const std::string before = readBytes(scene.in());

    onlyLineOf({"optimize", scene.in(), scene.in(), "--overwrite"}, 4);
    onlyLineOf({"optimize", scene.in(), scene.in(), "--dry-run"}, 4);
    onlyLineOf(scene.command({"--report", scene.in(), "--overwrite"}), 4);
    EXPECT_EQ(readBytes(scene.in()), before);

    const std::string names = scene.folder() / "names.osgt";
    writeBytes(names, "gate\n");
    onlyLineOf({"optimize", scene.in(), names, "--keep-names-file", names, "--overwrite"}, 4);
    onlyLineOf(scene.command({"--report", names, "--keep-names-file", names, "--overwrite"}), 4);
    EXPECT_EQ(readBytes(names), "gate\n");

    writeBytes(scene.out(), "mine");
    EXPECT_EQ(onlyLineOf(scene.command(), 4),
              "sceneutils: " + scene.out() + ": exists already; pass --overwrite to replace it\n");
    EXPECT_EQ(readBytes(scene.out()), "mine");
    EXPECT_EQ(scene.run({"--dry-run"}).status, 0);
    EXPECT_EQ(scene.run({"--overwrite"}).status, 0);
}

TEST(OptimizeCommand, HelpListsEveryOption) {
    const ToolResult result = runTool({"optimize", "--help"});

    EXPECT_EQ(result.status, 0);
    for (const char* word : {"IN", "OUT", "--keep-names NAME...", "--keep-names-file FILE", "--unspatialize-radius",
                             "--flatten-within", "--report FILE", "--json", "--dry-run", "--overwrite"})
        EXPECT_THAT(result.output, HasSubstr(word));
}
