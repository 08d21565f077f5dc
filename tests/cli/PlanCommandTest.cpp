#include "support/Conversions.h"
#include "support/ReferenceDatabases.h"
#include "support/ToolJson.h"

#include <gmock/gmock.h>

#include <csignal>

#include <unistd.h>

namespace fs = std::filesystem;
using namespace testing_support;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

ToolResult runIn(const TemporaryDirectory& folder, const std::vector<std::string>& arguments) {
    ToolSettings settings;
    settings.workingDirectory = folder.path();
    return runTool(arguments, settings);
}

/** Plans "db/master.flt" to "out". */
ToolResult planIn(const TemporaryDirectory& folder, std::vector<std::string> options = {}) {
    options.insert(options.begin(), {"plan", "db/master.flt", "-o", "out"});
    return runIn(folder, options);
}

json planOf(const TemporaryDirectory& folder, const std::string& name = "out/plan.json") {
    return json::parse(loadBytes(folder / name), nullptr, false);
}

}  // namespace

TEST(PlanCommand, WritesAPlanAndOneLineOfTotals) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {"a.flt", "b.flt"}}, {"db/a.flt", {"b.flt"}}, {"db/b.flt", {}}});
    const ToolResult result = planIn(folder);

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output,
              "3 files, 3 to convert, 3 references, 1 level, 1644 bytes, 0 errors, 0 warnings, plan: out/plan.json\n");
    EXPECT_THAT(namesIn(folder / "out"), ElementsAre("plan.json"));
}

TEST(PlanCommand, WritesTheseKeys) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {"A.flt", "gone.flt"}}, {"db/a.flt", {}}});
    planIn(folder);

    const std::string master = realPath(folder, "db/master.flt");
    const std::string tile = realPath(folder, "db/a.flt");
    const json references = json::array(
        {{{"name", "A.flt"}, {"offset", 328}, {"status", "followed"}, {"path", tile}, {"file", 1}},
         {{"name", "gone.flt"}, {"offset", 544}, {"status", "missing"}, {"path", nullptr}, {"file", nullptr}}});
    EXPECT_EQ(planOf(folder), json({{"version", 1},
                                    {"command", "plan"},
                                    {"input", master},
                                    {"options", {{"root", realPath(folder, "db")}, {"allowOutside", json::array()}}},
                                    {"totals",
                                     {{"files", 2},
                                      {"filesToConvert", 2},
                                      {"references", 2},
                                      {"bytes", 1096},
                                      {"levels", 1},
                                      {"errors", 1},
                                      {"warnings", 0}}},
                                    {"files",
                                     {{{"path", master},
                                       {"name", "master.flt"},
                                       {"bytes", 764},
                                       {"level", 0},
                                       {"namedBy", nullptr},
                                       {"order", 1},
                                       {"inCycle", false},
                                       {"references", references}},
                                      {{"path", tile},
                                       {"name", "a.flt"},
                                       {"bytes", 332},
                                       {"level", 1},
                                       {"namedBy", 0},
                                       {"order", 0},
                                       {"inCycle", false},
                                       {"references", json::array()}}}},
                                    {"findings", json::array({{{"kind", "missing"},
                                                               {"severity", "error"},
                                                               {"file", master},
                                                               {"offset", 544},
                                                               {"reference", "gone.flt"},
                                                               {"message", "'gone.flt' at byte 544: no such file"},
                                                               {"files", json::array()}}})}}));
}

TEST(PlanCommand, TellsFindingsAndEndsWith5IfThereAreErrors) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {"gone.flt", "sub/a.flt", "../b.flt"}}, {"b.flt", {}}});
    saveBytes(folder / "db/sub/a.flt", "text");
    const ToolResult result = planIn(folder);

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errors,
              "sceneutils: error: db/master.flt: 'gone.flt' at byte 328: no such file\n"
              "sceneutils: error: db/master.flt: '../b.flt' at byte 760: leads out of the root to " +
                  realPath(folder, "b.flt") +
                  "; --allow-outside DIR allows it\n"
                  "sceneutils: error: db/sub/a.flt: not an OpenFlight file (named by db/master.flt)\n");
    EXPECT_EQ(result.output,
              "2 files, 1 to convert, 3 references, 1 level, 984 bytes, 3 errors, 0 warnings, plan: out/plan.json\n");
    EXPECT_EQ(planOf(folder)["files"][1]["order"], nullptr);
}

TEST(PlanCommand, EndsWith0IfThereAreOnlyWarnings) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {"a/t.flt", "b/t.flt"}}, {"db/a/t.flt", {}}, {"db/b/t.flt", {}}});
    const ToolResult result = planIn(folder);

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "sceneutils: warning: db/a/t.flt: has the same name as b/t.flt\n");
    EXPECT_EQ(planOf(folder)["findings"][0]["files"],
              json({realPath(folder, "db/a/t.flt"), realPath(folder, "db/b/t.flt")}));
    EXPECT_EQ(planOf(folder)["findings"][0]["offset"], nullptr);
    EXPECT_EQ(planOf(folder)["findings"][0]["reference"], nullptr);
}

TEST(PlanCommand, MarksCycles) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {"a.flt", "b.flt"}}, {"db/a.flt", {"master.flt"}}, {"db/b.flt", {}}});
    const ToolResult result = planIn(folder);

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errors, "sceneutils: error: db/master.flt: refers to itself by way of a.flt (at byte 328)\n");
    const json plan = planOf(folder);
    EXPECT_EQ(plan["files"][0]["inCycle"], true);
    EXPECT_EQ(plan["files"][1]["inCycle"], true);
    EXPECT_EQ(plan["files"][2]["inCycle"], false);
    EXPECT_EQ(plan["findings"][0]["kind"], "cycle");
}

TEST(PlanCommand, TellsTwentyFindingsOfAKind) {
    std::vector<std::string> references;
    for (int i = 0; i < 23; ++i) references.push_back("gone" + std::to_string(i) + ".flt");
    const TemporaryDirectory folder;
    fileWith(references).append("junk").write(folder / "db/master.flt");
    const ToolResult result = planIn(folder);

    const std::vector<std::string> lines = result.errorLines();
    ASSERT_EQ(lines.size(), 22u);
    EXPECT_THAT(lines[19], HasSubstr("'gone19.flt'"));
    EXPECT_THAT(lines[20], HasSubstr("4 bytes from byte 5300 on"));
    EXPECT_EQ(lines[21], "sceneutils: 3 more findings of the kind \"missing\" (out/plan.json has all)");
    EXPECT_EQ(planOf(folder)["findings"].size(), 24u);
}

TEST(PlanCommand, MakesControlCharactersVisible) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {"\x1b[31m\r\n\t\x7f\xc2\x9b\xff\xe2\x80\xae.flt"}}});
    const std::string visible = "\\x1b[31m\\r\\n\\t\\x7f\\xc2\\x9b\\xff\\xe2\\x80\\xae.flt";
    EXPECT_EQ(planIn(folder).errors, "sceneutils: warning: db/master.flt: '" + visible +
                                         "' at byte 328: holds control characters or is not UTF-8\n"
                                         "sceneutils: error: db/master.flt: '" +
                                         visible + "' at byte 328: no such file\n");
    EXPECT_EQ(planOf(folder)["findings"][1]["message"], "'" + visible + "' at byte 328: no such file");
}

TEST(PlanCommand, LeavesLettersOfAnyLanguageAsTheyAre) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt",
                            {"Stra\xc3\x9f"
                             "e\xe2\x82\xac\xf0\x9f\x8f\xa0.flt"}}});
    EXPECT_EQ(planIn(folder).errors,
              "sceneutils: error: db/master.flt: 'Stra\xc3\x9f"
              "e\xe2\x82\xac\xf0\x9f\x8f\xa0.flt'"
              " at byte 328: no such file\n");
}

TEST(PlanCommand, WritesToAFileIfTheNameEndsInJson) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"master.flt", {}}});
    EXPECT_THAT(runIn(folder, {"plan", "master.flt", "-o", "new/p.json"}).output, HasSubstr("plan: new/p.json\n"));
    EXPECT_THAT(runIn(folder, {"plan", "master.flt", "-o", "new/folder"}).output,
                HasSubstr("plan: new/folder/plan.json\n"));
    fs::create_directory(folder / "odd.json");
    EXPECT_THAT(runIn(folder, {"plan", "master.flt", "-o", "odd.json"}).output,
                HasSubstr("plan: odd.json/plan.json\n"));
    EXPECT_THAT(namesIn(folder.path()),
                ElementsAre("master.flt", "new/folder/plan.json", "new/p.json", "odd.json/plan.json"));
}

TEST(PlanCommand, ReplacesAPlanOnlyIfAllowed) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {}}});
    saveBytes(folder / "out/plan.json", "old");

    const ToolResult refused = planIn(folder);
    EXPECT_EQ(refused.status, 4);
    EXPECT_EQ(refused.errors, "sceneutils: out/plan.json: exists already; pass --overwrite to replace it\n");
    EXPECT_EQ(loadBytes(folder / "out/plan.json"), "old");
    EXPECT_EQ(planIn(folder, {"--overwrite"}).status, 0);
    EXPECT_EQ(planOf(folder)["version"], 1);
}

TEST(PlanCommand, NeverReplacesAnInput) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"master.flt", {"a.flt"}}, {"a.json", {}}});
    fs::create_symlink("a.json", folder / "a.flt");
    const FolderState before = stateOf(folder.path());

    const ToolResult result = runIn(folder, {"plan", "master.flt", "-o", "a.json", "--overwrite"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.errors, "sceneutils: a.json: is one of the inputs; choose another name\n");
    EXPECT_EQ(runIn(folder, {"plan", "a.json", "-o", "a.json", "--overwrite"}).status, 4);
    EXPECT_EQ(stateOf(folder.path()), before);
}

TEST(PlanCommand, WritesNothingWithoutASoundMaster) {
    const TemporaryDirectory folder;
    EXPECT_EQ(planIn(folder).status, 2);
    EXPECT_EQ(planIn(folder).errors, "sceneutils: db/master.flt: no such file\n");
    saveBytes(folder / "db/master.flt", fileWith({"a.flt"}).bytes().substr(0, 400));
    EXPECT_EQ(planIn(folder).status, 2);
    EXPECT_EQ(planIn(folder).errors, "sceneutils: db/master.flt: truncated: ends inside the record at byte 328\n");
    EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST(PlanCommand, RefusesOptionsThatMakeNoSense) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {}}});
    EXPECT_EQ(runIn(folder, {"plan", "db/master.flt"}).status, 1);
    EXPECT_EQ(runIn(folder, {"plan", "db/master.flt", "-o", ""}).errors, "sceneutils: -o: the name is empty\n");
    EXPECT_EQ(planIn(folder, {"--root", "gone"}).errors, "sceneutils: --root: gone is not a folder\n");
    EXPECT_EQ(planIn(folder, {"--root", "gone"}).status, 1);
    EXPECT_EQ(planIn(folder, {"--allow-outside", "gone"}).errors,
              "sceneutils: --allow-outside: gone is not a folder\n");
}

TEST(PlanCommand, GoesWhereItIsAllowedTo) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {"../a/a.flt", "../b/b.flt"}}, {"a/a.flt", {}}, {"b/b.flt", {}}});
    EXPECT_EQ(planIn(folder).status, 5);
    EXPECT_EQ(planIn(folder, {"--allow-outside", "a", "--allow-outside", "b", "--overwrite"}).status, 0);
    EXPECT_EQ(planOf(folder)["options"]["allowOutside"], json({realPath(folder, "a"), realPath(folder, "b")}));
    EXPECT_EQ(planOf(folder)["files"][1]["name"], "../a/a.flt");
    EXPECT_EQ(planIn(folder, {"--root", ".", "--overwrite"}).status, 0);
    EXPECT_EQ(planOf(folder)["files"][1]["name"], "a/a.flt");
}

TEST(PlanCommand, WritesTheSameBytesWhateverTheOrderInFolders) {
    const std::vector<std::string> names = {"c.flt", "a.flt", "B.flt", "b.flt", "A.FLT", "d.flt"};
    std::set<std::string> plans;
    for (int run = 0; run < 3; ++run) {
        const TemporaryDirectory folder;
        const bool backwards = run == 1;
        for (std::size_t i = 0; i < names.size(); ++i)
            fileWith({}).write(folder / ("db/" + names[backwards ? names.size() - 1 - i : i]));
        fileWith({"B.FLT", "a.FLT", "C.flt", "D.flt", "b.flt"}).write(folder / "db/master.flt");
        planIn(folder);
        std::string plan = loadBytes(folder / "out/plan.json");
        const std::string path = realPath(folder);
        for (std::size_t at; (at = plan.find(path)) != std::string::npos;) plan.erase(at, path.size());
        plans.insert(plan);
    }
    EXPECT_EQ(plans.size(), 1u);
    EXPECT_THAT(*plans.begin(), HasSubstr("\"path\": \"/db/B.flt\""));
}

TEST(PlanCommand, HelpListsEveryOption) {
    const ToolResult result = runTool({"plan", "--help"});
    EXPECT_EQ(result.status, 0);
    for (const char* word : {"MASTER", "-o", "--root", "--allow-outside", "--overwrite", "(the master's)", "plan.json"})
        EXPECT_THAT(result.output, HasSubstr(word));
}

TEST(PlanCommand, CanBeInterrupted) {
    const TemporaryDirectory folder;
    fileWith({}).write(folder / "db/master.flt");
    fs::resize_file(folder / "db/master.flt", std::uintmax_t{64} << 30);  // zeros that take no space, but time
    ToolSettings settings;
    settings.workingDirectory = folder.path();
    ToolProcess process(SCENEUTILS_TOOL, {"plan", "db/master.flt", "-o", "out"}, settings);
    usleep(1000000);
    process.send(SIGINT);
    const ToolResult result = process.wait();

    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "sceneutils: interrupted\n");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("db/master.flt"));
}
