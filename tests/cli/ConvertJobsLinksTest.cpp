#include "convert/ConversionPlan.h"
#include "support/FlightRecords.h"
#include "support/JobConversions.h"
#include "support/TexturedModels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/** master.flt refers to sub/a.flt, which shows sub/t.png; what lies in "theirs" is not the conversion's. */
void writeDatabase(const TemporaryDirectory& folder) {
    writeGrey(folder / "in/sub/t.png", 100);
    writeFlight(folder / "in/master.flt", 20, {"sub/a.flt"});
    writeFlight(folder / "in/sub/a.flt", *makeTextured("t.png"));
    writeBytes(folder / "theirs/victim", "theirs");
    fs::create_directories(folder / "out");
}

/** All but the output folder, with the kinds and targets of what is neither file nor folder. */
std::map<std::string, std::string> surroundings(const TemporaryDirectory& folder) {
    std::map<std::string, std::string> all;
    for (auto entry = fs::recursive_directory_iterator(folder.path()); entry != fs::recursive_directory_iterator();
         ++entry) {
        const std::string name = entry->path().lexically_relative(folder.path()).string();
        if (name == "out") {
            entry.disable_recursion_pending();
            continue;
        }
        struct stat status = {};
        lstat(entry->path().c_str(), &status);
        const bool isFolder = entry->is_directory() && !entry->is_symlink();
        const std::string time =
            isFolder ? "" : std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
        all[name] = time + " " + (entry->is_symlink() ? "-> " + fs::read_symlink(entry->path()).string() : "") +
                    (entry->is_regular_file() ? readBytes(entry->path()) : "");
    }
    return all;
}

/** Runs with and without --overwrite, and expects that neither changes anything outside the output folder. */
std::vector<ToolResult> runsThatTouchNothingElse(const TemporaryDirectory& folder) {
    const auto before = surroundings(folder);
    std::vector<ToolResult> results;
    for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--overwrite"}}) {
        results.push_back(convertInJobs(folder.path(), more));
        EXPECT_EQ(surroundings(folder), before);
    }
    return results;
}

/** Has a link lie in the output folder that leads to `target` in the folder of the test. */
std::vector<ToolResult> runsWithLink(const std::string& name, const std::string& target) {
    const TemporaryDirectory folder;
    writeDatabase(folder);
    const auto expected = undisturbedOutputs(folder.path());
    fs::create_directories(fs::path(folder / "out") / fs::path(name).parent_path());
    fs::create_symlink(folder / target, folder / ("out/" + name));
    const auto results = runsThatTouchNothingElse(folder);
    std::error_code error;
    fs::remove(folder / ("out/" + name), error);
    convertInJobs(folder.path(), {"--overwrite"});
    expectPlainRunCompletes(folder.path(), expected);
    return results;
}

void expectRefused(const ToolResult& result, const std::string& ending) {
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errorLines(), ElementsAre(EndsWith(ending)));
}

int numberOfANewProcess() {
    const int process = fork();
    if (process == 0) _exit(0);
    waitpid(process, nullptr, 0);
    return process;
}

void expectNoControlCharacters(const ToolResult& result) {
    for (const std::string& text : {result.output, result.errors}) {
        for (const char c : text) EXPECT_TRUE(c == '\n' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f));
        EXPECT_EQ(text.find("\xc2\x9b"), std::string::npos);
    }
}

}  // namespace

TEST(ConvertJobsLinks, AreNotFollowedAtThePlaceOfATile) {
    const auto results = runsWithLink("sub/a.ive", "theirs/victim");
    expectRefused(results[0], "/out/sub/a.ive: exists already; pass --overwrite to replace it");
    EXPECT_EQ(results[1].status, 0);
}

TEST(ConvertJobsLinks, AreNotFollowedAtThePlaceOfTheMaster) {
    const auto results = runsWithLink("m.ive", "theirs/new");
    expectRefused(results[0], "/out/m.ive: exists already; pass --overwrite to replace it");
    EXPECT_EQ(results[1].status, 0);
}

TEST(ConvertJobsLinks, AreNotFollowedAtThePlaceOfATexture) {
    const auto results = runsWithLink("sub/t.png", "theirs/victim");
    EXPECT_EQ(results[0].status, 5);
    EXPECT_THAT(results[0].errorLines(),
                ElementsAre(EndsWith("/out/sub/t.png: exists already; pass --overwrite to replace it")));
    EXPECT_EQ(results[1].status, 0);
}

TEST(ConvertJobsLinks, AreNotFollowedAtThePlaceOfAFolder) {
    for (const ToolResult& result : runsWithLink("sub", "theirs")) expectRefused(result, "/out over a link");
}

TEST(ConvertJobsLinks, AreNotFollowedFromTheOutputToTheInputs) {
    for (const ToolResult& result : runsWithLink("sub", "in/sub")) expectRefused(result, "/out over a link");
}

TEST(ConvertJobsLinks, AreNotFollowedAtThePlaceOfATexturesFolder) {
    const TemporaryDirectory folder;
    writeDatabase(folder);
    writeGrey(folder / "in/pictures/p.png", 50);
    writeFlight(folder / "in/sub/a.flt", *makeTextured("../pictures/p.png"));
    const auto expected = undisturbedOutputs(folder.path());
    fs::create_directories(folder / "out");
    fs::create_directory_symlink(folder / "theirs", folder / "out/pictures");
    for (const ToolResult& result : runsThatTouchNothingElse(folder)) {
        EXPECT_EQ(result.status, 5);
        EXPECT_THAT(result.errorLines(), ElementsAre(HasSubstr("/out/pictures: leads out of ")));
    }
    fs::remove(folder / "out/pictures");
    expectPlainRunCompletes(folder.path(), expected);
}

TEST(ConvertJobsLinks, AreNotFollowedAtThePlaceOfTheState) {
    for (const std::string name : {".sceneutils", ".sceneutils/m.ive"}) {
        for (const ToolResult& result : runsWithLink(name, "theirs"))
            expectRefused(result, "/out/" + name + ": is a link; remove it, nothing is written where it leads");
    }
}

TEST(ConvertJobsLinks, AreNotFollowedAtThePlacesOfFilesOfTheState) {
    const std::string state = ".sceneutils/m.ive/";
    for (const ToolResult& result : runsWithLink(state + "lock", "theirs/victim"))
        expectRefused(result, "/lock: cannot be written: Too many levels of symbolic links");
    for (const std::string name : {".ninja_log", ".ninja_deps", "build.ninja"}) {
        for (const ToolResult& result : runsWithLink(state + name, "theirs/victim")) EXPECT_EQ(result.status, 0);
    }
}

TEST(ConvertJobsLinks, AreNotFollowedAtThePlacesOfWhatIsRememberedOfAFile) {
    const TemporaryDirectory folder;
    writeDatabase(folder);
    convertInJobs(folder.path());
    const fs::path state = folder / "out/.sceneutils/m.ive";
    for (const std::string& name : namesIn(state)) {
        const std::string ending = fs::path(name).extension().string();
        if (ending != ".job" && ending != ".result" && ending != ".sphere" && ending != ".bound" && ending != ".intent")
            continue;
        fs::remove(state / name);
        fs::create_symlink(folder / "theirs/victim", state / name);
    }
    runsThatTouchNothingElse(folder);
}

TEST(ConvertJobsLinks, MayLeadAboutInTheOutputFolder) {
    const TemporaryDirectory folder;
    writeDatabase(folder);
    fs::create_directories(folder / "out/elsewhere");
    fs::create_directory_symlink("elsewhere", folder / "out/sub");

    EXPECT_EQ(convertInJobs(folder.path()).status, 0);
    EXPECT_TRUE(fs::is_regular_file(folder / "out/elsewhere/a.ive"));
}

TEST(ConvertJobsLinks, MayBeTheOutputFolderItself) {
    const TemporaryDirectory folder;
    writeDatabase(folder);
    const auto expected = undisturbedOutputs(folder.path());
    fs::create_directories(folder / "disk");
    fs::create_directory_symlink("disk", folder / "out");

    EXPECT_EQ(convertInJobs(folder.path()).status, 0);
    expectSameOutputs(outputsIn(folder / "disk"), expected);
}

TEST(ConvertJobsLinks, AmongTheInputsLeadToWhatIsReadOnly) {
    const TemporaryDirectory folder;
    writeDatabase(folder);
    writeGrey(folder / "theirs/t.png", 7);
    writeFlight(folder / "theirs/a.flt", *makeTextured("t.png"));
    fs::remove_all(folder / "in/sub");
    fs::create_directory_symlink(folder / "theirs", folder / "in/sub");
    fs::create_directory_symlink(folder / "in", folder / "in/loop");
    writeFlight(folder / "in/master.flt", 20, {"sub/a.flt", "loop/loop/sub/a.flt", "loop/master.flt"});

    const auto results = runsThatTouchNothingElse(folder);

    EXPECT_EQ(results[0].status, 0) << results[0].errors;
    EXPECT_EQ(outputsIn(folder / "out").size(), 3u);
    EXPECT_TRUE(fs::exists(folder / "out/_parent/theirs/a.ive"));
    EXPECT_TRUE(fs::exists(folder / "out/_parent/theirs/t.png"));
}

TEST(ConvertJobsNames, OfAnyKindStayBelowTheOutputFolder) {
    const TemporaryDirectory folder;
    writeDatabase(folder);
    writeGrey(folder / "theirs/t.png", 7);
    writeFlight(folder / "theirs/a.flt", *makeTextured("../theirs/t.png"));
    writeFlight(folder / "theirs/deep/b.flt", *makeTextured(folder / "theirs/t.png"));
    FlightRecords master;
    master.push()
        .references({folder / "theirs/a.flt", "../theirs/deep/b.flt", "sub/../sub/./a.flt", "sub\\..\\sub\\a.flt",
                     "../../../../../../../../../../etc/passwd.flt", "/dev/null.flt", "..", "/", "..flt", "~/x.flt"})
        .pop();
    master.write(folder / "in/master.flt");

    for (const ToolResult& result : runsThatTouchNothingElse(folder)) {
        EXPECT_EQ(result.status, 5);
        expectNoControlCharacters(result);
    }
    EXPECT_TRUE(fs::exists(folder / "out/_parent/theirs/a.ive"));
    EXPECT_TRUE(fs::exists(folder / "out/_parent/theirs/deep/b.ive"));
    EXPECT_TRUE(fs::exists(folder / "out/_parent/theirs/t.png"));
}

TEST(ConvertJobsNames, OfTheStateAreNotForTheDatabase) {
    const TemporaryDirectory folder;
    writeDatabase(folder);
    writeGrey(folder / "in/.sceneutils/m.ive/t.png", 60);
    writeFlight(folder / "in/.sceneutils/m.ive/x.flt", *makeTextured("t.png"));
    writeFlight(folder / "in/master.flt", 20, {".sceneutils/m.ive/x.flt", "sub/a.flt"});

    EXPECT_EQ(convertInJobs(folder.path()).status, 0);

    EXPECT_THAT(pagedFiles(load(folder / "out/m.ive")), ElementsAre("_sceneutils/m.ive/x.ive", "sub/a.ive"));
    EXPECT_TRUE(fs::exists(folder / "out/_sceneutils/m.ive/t.png"));
    EXPECT_FALSE(fs::exists(folder / "out/.sceneutils/m.ive/t.png"));
}

TEST(ConvertJobsNames, OfOutputsAreNotForTextures) {
    const TemporaryDirectory folder;
    writeBytes(folder / "in/A.ive", "a picture");
    writeFlight(folder / "in/a.flt", 3);
    FlightRecords().texture("A.ive").push().reference("a.flt").pop().write(folder / "in/master.flt");
    veltrane::sceneutils::tool::ConversionOptions options;
    options.input = folder / "in/master.flt";
    options.output = folder / "out/m.ive";
    options.recurse = true;

    const auto plan = veltrane::sceneutils::tool::planConversion(options);

    ASSERT_EQ(plan.displacedTextures.size(), 1u);
    EXPECT_EQ(plan.displacedTextures.front().first.string(), folder / "in/A.ive");
    EXPECT_EQ(plan.displacedTextures.front().second.string(), folder / "out/A-2.ive");
}

TEST(ConvertJobsNames, WithControlCharactersDoNotReachTheTerminal) {
    const TemporaryDirectory folder;
    std::vector<std::string> names = {"\x1b[2J",
                                      "a\nb",
                                      "\r",
                                      "\x7f",
                                      "\xc2\x9b"
                                      "1m",
                                      "\x01",
                                      "it's \"$out\" | : -x"};
    std::vector<std::string> references;
    for (const std::string& name : names) {
        references.push_back(name + ".flt");
        references.push_back("missing" + name + ".flt");
        writeFlight(fs::path(folder / "in") / (name + ".flt"), *makeTextured("gone" + name + ".png"));
    }
    FlightRecords master;
    master.push().references(references).pop().write(folder / "in/master.flt");
    fs::create_directories(folder / "out");

    const auto results = runsThatTouchNothingElse(folder);

    EXPECT_EQ(results[0].status, 5);
    EXPECT_EQ(results[0].errorLines().size(), 2 * names.size()) << results[0].errors;
    expectNoControlCharacters(results[0]);
    expectNoControlCharacters(convertInJobs(folder.path(), {"--dry-run"}));
}

TEST(ConvertJobsNames, OfThePlacesOfUnfinishedFilesAreNotFollowed) {
    const TemporaryDirectory folder;
    writeDatabase(folder);
    const int begin = numberOfANewProcess();
    for (int number = begin; number < begin + 1000; ++number)
        fs::create_symlink(folder / "theirs/victim", folder / ("out/.m.ive.part-" + std::to_string(number)));
    const auto before = surroundings(folder);

    runTool({"convert", folder / "in/master.flt", folder / "out/m.ive", "--recurse", "--jobs", "1"});

    EXPECT_EQ(surroundings(folder), before);
    EXPECT_TRUE(fs::is_regular_file(folder / "out/m.ive"));
}

TEST(ConvertJobsNames, AsLongAsThePathsOfTheSystemAreTakenOrNamed) {
    const TemporaryDirectory folder;
    std::string deep = "in";
    while ((folder / deep).size() < 3700) deep += "/" + std::string(180, 'd');
    writeFlight(folder / "in/master.flt", 20, {});
    writeFlight(folder / (deep + "/master.flt"), 20, {"a.flt"});
    writeFlight(folder / (deep + "/a.flt"), 3);
    for (const std::string& out : {std::string("out/m.ive"), std::string("other/") + std::string(251, 'm') + ".ive"}) {
        ToolSettings settings;
        settings.workingDirectory = folder.path();
        const ToolResult result = runTool({"convert", deep + "/master.flt", out, "--recurse", "--jobs", "2"}, settings);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_TRUE(fs::exists(folder / out));
    }
    const ToolResult tooLong =
        runTool({"convert", folder / "in/master.flt",
                 folder / deep + "/" + std::string(250, 'x') + "/" + std::string(250, 'y') + "/m.ive", "--jobs", "1"});
    EXPECT_EQ(tooLong.status, 4);
    EXPECT_EQ(tooLong.errorLines().size(), 1u) << tooLong.errors.substr(0, 300);
}
