#include "support/Conversions.h"
#include "support/ReferenceDatabases.h"
#include "support/ToolJson.h"

#include <gmock/gmock.h>

using namespace testing_support;
using nlohmann::json;
using testing::HasSubstr;

namespace {

ToolResult validateIn(const TemporaryDirectory& folder, std::vector<std::string> arguments) {
    ToolSettings settings;
    settings.workingDirectory = folder.path();
    arguments.insert(arguments.begin(), "validate");
    return runTool(arguments, settings);
}

json jsonIn(const TemporaryDirectory& folder, std::vector<std::string> arguments) {
    arguments.emplace_back("--json");
    return json::parse(validateIn(folder, arguments).output, nullptr, false);
}

}  // namespace

TEST(ValidateCommand, FindsNothingInASoundDatabase) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {"a.flt"}}, {"db/a.flt", {}}});
    const ToolResult result = validateIn(folder, {"db/master.flt"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "2 files, 0 errors, 0 warnings\n");
    EXPECT_EQ(result.errors, "");
}

TEST(ValidateCommand, EndsWith2IfThereIsAnError) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {"gone.flt", "cut.flt"}}});
    saveBytes(folder / "db/cut.flt", fileWith({}).bytes().substr(0, 328));
    const ToolResult result = validateIn(folder, {"db/master.flt"});

    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output,
              "error: db/master.flt: 'gone.flt' at byte 328: no such file\n"
              "error: db/cut.flt: truncated: ends after 328 bytes (named by db/master.flt)\n"
              "2 files, 2 errors, 0 warnings\n");
    EXPECT_EQ(result.errors, "");
}

TEST(ValidateCommand, EndsWith0IfThereAreOnlyWarnings) {
    const TemporaryDirectory folder;
    fileWith({}).append(std::string(8, '\0')).write(folder / "a.flt");
    const ToolResult result = validateIn(folder, {"a.flt"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output,
              "warning: a.flt: padded with 8 bytes of zeros from byte 332 on\n"
              "1 file, 0 errors, 1 warning\n");
}

TEST(ValidateCommand, TellsWhatSeveralFilesShareOnce) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"a.flt", {"c.flt"}}, {"b.flt", {"c.flt"}}, {"c.flt", {"gone.flt"}}});
    const ToolResult result = validateIn(folder, {"a.flt", "b.flt", "a.flt"});

    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output,
              "error: c.flt: 'gone.flt' at byte 328: no such file\n"
              "3 files, 1 error, 0 warnings\n");
}

TEST(ValidateCommand, GoesOnAfterAFileThatIsNotThere) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"a.flt", {"gone.flt"}}});
    saveBytes(folder / "text.flt", "text");
    const ToolResult result = validateIn(folder, {"gone\n.flt", "text.flt", "a.flt", "gone\n.flt"});

    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output,
              "error: gone\\n.flt: no such file\n"
              "error: text.flt: not an OpenFlight file\n"
              "error: a.flt: 'gone.flt' at byte 328: no such file\n"
              "2 files, 3 errors, 0 warnings\n");
}

TEST(ValidateCommand, NamesFilesAsTheyWereNamed) {
    const TemporaryDirectory folder;
    writeDatabase(
        folder,
        {{"db/sub/m.flt", {"t/a.flt", "../b.flt"}}, {"db/sub/t/a.flt", {"gone.flt"}}, {"db/b.flt", {"gone.flt"}}});
    std::filesystem::create_directory_symlink("db", folder / "linked");
    std::filesystem::create_symlink("sub/m.flt", folder / "db/m.flt");
    const std::string missing = ": 'gone.flt' at byte 328: no such file\n";
    const std::string real = realPath(folder, "db/");

    EXPECT_THAT(validateIn(folder, {"linked/sub/m.flt", "--root", "db"}).output,
                HasSubstr("error: linked/sub/t/a.flt" + missing + "error: " + real + "b.flt" + missing));
    EXPECT_THAT(validateIn(folder, {"linked/m.flt", "--root", "db"}).output,
                HasSubstr("error: " + real + "sub/t/a.flt" + missing));
}

TEST(ValidateCommand, StaysInTheFoldersThatAreAllowed) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/a.flt", {"../b/b.flt"}}, {"b/b.flt", {}}});
    EXPECT_EQ(validateIn(folder, {"db/a.flt"}).output,
              "error: db/a.flt: '../b/b.flt' at byte 328: leads out of the root to " + realPath(folder, "b/b.flt") +
                  "; --allow-outside DIR allows it\n1 file, 1 error, 0 warnings\n");
    EXPECT_EQ(validateIn(folder, {"--allow-outside", "b", "db/a.flt"}).status, 0);
    EXPECT_EQ(validateIn(folder, {"--root", ".", "db/a.flt"}).output, "2 files, 0 errors, 0 warnings\n");
    EXPECT_EQ(validateIn(folder, {"--root", "b", "db/a.flt"}).status, 1);
    EXPECT_EQ(validateIn(folder, {"--root", "gone", "db/a.flt"}).errors, "sceneutils: --root: gone is not a folder\n");
}

TEST(ValidateCommand, WritesJson) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"a.flt", {"gone.flt"}}});
    const json missing = {
        {"kind", "missing"},     {"severity", "error"},     {"file", realPath(folder, "a.flt")},
        {"offset", 328},         {"reference", "gone.flt"}, {"message", "'gone.flt' at byte 328: no such file"},
        {"files", json::array()}};
    const json unreadable = {{"kind", "unreadable"},  {"severity", "error"},  {"file", "none.flt"},
                             {"offset", nullptr},     {"reference", nullptr}, {"message", "no such file"},
                             {"files", json::array()}};
    EXPECT_EQ(jsonIn(folder, {"a.flt", "none.flt"}), json({{"version", 1},
                                                           {"command", "validate"},
                                                           {"inputs", {"a.flt", "none.flt"}},
                                                           {"options", {{"root", ""}, {"allowOutside", json::array()}}},
                                                           {"totals", {{"files", 1}, {"errors", 2}, {"warnings", 0}}},
                                                           {"findings", {missing, unreadable}}}));
    EXPECT_EQ(validateIn(folder, {"a.flt", "--json"}).status, 2);
}

TEST(ValidateCommand, TellsEveryKindByItsName) {
    const TemporaryDirectory folder;
    writeDatabase(
        folder, {{"db/m.flt", {"x/t.flt", "gone.flt", "t.flt<n>", "../o.flt", "p.ive", "$.flt", "d.flt", "f.flt", "x"}},
                 {"db/x/t.flt", {"../m.flt"}},
                 {"db/t.flt", {}},
                 {"db/p.ive", {}},
                 {"db/$.flt", {}},
                 {"o.flt", {}}});
    fileWith({}).append("junk").write(folder / "db/d.flt");
    saveBytes(folder / "db/f.flt", "text");
    const json report = jsonIn(folder, {"db/m.flt"});
    std::multiset<std::string> kinds;
    for (const json& finding : report["findings"]) kinds.insert(finding["kind"].get<std::string>());
    EXPECT_EQ(kinds, (std::multiset<std::string>{"missing", "missing", "node", "outside", "other", "name", "record",
                                                 "damaged", "cycle", "duplicate"}));
}

TEST(ValidateCommand, TellsFilesThatAreTooFarAway) {
    const TemporaryDirectory folder;
    for (int i = 0; i < 102; ++i)
        fileWith({std::to_string(i + 1) + ".flt"}).write(folder / (std::to_string(i) + ".flt"));
    EXPECT_EQ(validateIn(folder, {"0.flt"}).output,
              "error: 101.flt: referred to over more than 100 levels (named by 100.flt)\n"
              "102 files, 1 error, 0 warnings\n");
    EXPECT_EQ(jsonIn(folder, {"0.flt"})["findings"][0]["kind"], "tooDeep");
}

TEST(ValidateCommand, TakesAnyFile) {
    const TemporaryDirectory folder;
    fileWith({}).write(folder / "model");
    EXPECT_EQ(validateIn(folder, {"model"}).status, 0);
    EXPECT_EQ(validateIn(folder, {}).status, 1);
}

TEST(ValidateCommand, HelpListsEveryOption) {
    const ToolResult result = runTool({"validate", "--help"});
    EXPECT_EQ(result.status, 0);
    for (const char* word : {"FILE", "--root", "--allow-outside", "--json", "(that of each FILE)"})
        EXPECT_THAT(result.output, HasSubstr(word));
}
