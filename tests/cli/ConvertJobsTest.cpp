#include "convert/JobPlan.h"
#include "sample/SampleDatabase.h"
#include "support/JobConversions.h"
#include "support/TexturedModels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using veltrane::sceneutils::tool::ConversionOptions;
using veltrane::sceneutils::tool::JobPlan;
using veltrane::sceneutils::tool::planFiles;
using veltrane::sceneutils::tool::SampleOptions;
using veltrane::sceneutils::tool::stampOf;
using veltrane::sceneutils::tool::StateFolder;
using veltrane::sceneutils::tool::writeSampleDatabase;

namespace {

using Names = std::set<std::string>;

void writeSample(const fs::path& folder, unsigned int tiles, unsigned int levels, bool sameNames = false) {
    SampleOptions options;
    options.tiles = tiles;
    options.levels = levels;
    options.sameNames = sameNames;
    writeSampleDatabase(folder, options);
}

/** Files in a folder each that refer to one another in circles and to themselves, some by the same name. */
void writeCircles(const fs::path& folder) {
    writeFlight(folder / "master.flt", 20, {"west/tile.flt", "east/tile.flt", "master.flt"});
    writeFlight(folder / "west/tile.flt", 16, {"parts/house.flt", "../east/tile.flt", "tile.flt"});
    writeFlight(folder / "east/tile.flt", 12, {"parts/house.flt", "../west/tile.flt", "../master.flt"});
    writeFlight(folder / "west/parts/house.flt", 3, {"../tile.flt"});
    writeFlight(folder / "east/parts/house.flt", 5);
}

/** The outputs of `in` when it is converted without jobs. */
std::map<std::string, std::string> convertedInOrder(const fs::path& folder) {
    convertIn(folder, {"in/master.flt", "in-order/m.ive", "--recurse"});
    const auto outputs = contentOf(folder / "in-order");
    fs::remove_all(folder / "in-order");
    return outputs;
}

/** Expects that jobs make what a conversion in order makes, however many there are. */
void expectSameInJobs(const TemporaryDirectory& folder) {
    const auto expected = convertedInOrder(folder.path());
    for (const char* jobs : {"1", "8"}) {
        fs::remove_all(folder / "out");
        convertInJobs(folder.path(), {"--jobs", jobs});
        expectSameOutputs(outputsIn(folder / "out"), expected);
    }
}

/** master.flt refers to a.flt and b.flt, and a.flt to c.flt. */
void writeTree(const fs::path& folder) {
    writeFlight(folder / "in/master.flt", 20, {"a.flt", "b.flt"});
    writeFlight(folder / "in/a.flt", 16, {"c.flt"});
    writeFlight(folder / "in/b.flt", 12);
    writeFlight(folder / "in/c.flt", 8);
}

/** Converts, lets `change` happen, converts again with more arguments, and says which outputs were written again. */
Names writtenAfter(const TemporaryDirectory& folder, const std::function<void()>& change,
                   const std::vector<std::string>& more = {}) {
    EXPECT_EQ(convertInJobs(folder.path()).status, 0);
    change();
    const FolderState before = stateOf(folder / "out");
    EXPECT_EQ(convertInJobs(folder.path(), more).status, 0);
    const Names written = writtenSince(before, folder / "out");
    const auto outputs = outputsIn(folder / "out");
    fs::remove_all(folder / "out");
    convertInJobs(folder.path(), more);
    expectSameOutputs(outputs, outputsIn(folder / "out"));
    return written;
}

}  // namespace

TEST(ConvertJobs, MakeTheSameBytesHoweverManyThereAre) {
    const TemporaryDirectory folder;
    writeSample(folder / "in", 6, 4);

    expectSameInJobs(folder);
}

TEST(ConvertJobs, MakeTheSameBytesOfTilesThatAllHaveTheSameName) {
    const TemporaryDirectory folder;
    writeSample(folder / "in", 4, 3, true);

    expectSameInJobs(folder);
}

TEST(ConvertJobs, MakeTheSameBytesOfFilesThatReferToEachOther) {
    const TemporaryDirectory folder;
    writeCircles(folder / "in");

    expectSameInJobs(folder);
}

TEST(ConvertJobs, ConvertOnlyTheMasterOrOneLevelWhenAskedTo) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    for (const std::vector<std::string>& options : {std::vector<std::string>{}, {"--convert-references"}}) {
        std::vector<std::string> plain = {"convert", "in/master.flt", "plain/m.ive"};
        std::vector<std::string> inJobs = {"convert", "in/master.flt", "jobs/m.ive", "--jobs", "2"};
        plain.insert(plain.end(), options.begin(), options.end());
        inJobs.insert(inJobs.end(), options.begin(), options.end());
        ToolSettings settings;
        settings.workingDirectory = folder.path();

        EXPECT_EQ(countsIn(runTool(plain, settings)), countsIn(runTool(inJobs, settings)));

        expectSameOutputs(outputsIn(folder / "jobs"), outputsIn(folder / "plain"));
        fs::remove_all(folder / "jobs");
        fs::remove_all(folder / "plain");
    }
}

TEST(ConvertJobs, SayWhatTheyDid) {
    const TemporaryDirectory folder;
    writeTree(folder.path());

    const ToolResult first = convertInJobs(folder.path());
    const ToolResult second = convertInJobs(folder.path());

    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.errors, "");
    EXPECT_EQ(countsIn(first), "4 files read, 4 converted, 0 failed, 0 textures missing");
    EXPECT_THAT(first.output, EndsWith(" s\n"));
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(countsIn(second), countsIn(first));
    EXPECT_THAT(second.output, EndsWith(" s; 4 were up to date\n"));
}

TEST(ConvertJobs, ChangeNothingWhenThereIsNothingToDo) {
    const TemporaryDirectory folder;
    writeSample(folder / "in", 4, 2);
    convertInJobs(folder.path());
    const FolderState before = quietStateOf(folder / "out");
    convertInJobs(folder.path());
    EXPECT_EQ(quietStateOf(folder / "out"), before);

    // Only Ninja is told something else.
    convertInJobs(folder.path(), {"--jobs", "5"});
    convertInJobs(folder.path(), {"--jobs", "1", "--launcher", "nice -n 1", "--job-timeout", "100", "--overwrite"});

    FolderState after = quietStateOf(folder / "out");
    after[".sceneutils/m.ive/build.ninja"] = before.at(".sceneutils/m.ive/build.ninja");
    EXPECT_EQ(after, before);
}

TEST(ConvertJobs, ConvertAChangedFileAndThoseThatNeedItsNewSphere) {
    const TemporaryDirectory folder;
    writeTree(folder.path());

    EXPECT_EQ(writtenAfter(folder, [&] { writeFlight(folder / "in/b.flt", 13); }), Names({"b.ive", "m.ive"}));
}

TEST(ConvertJobs, LeaveAParentAloneIfTheSphereIsTheSame) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    const auto touch = [&] {
        fs::last_write_time(folder / "in/c.flt", fs::file_time_type::clock::now() + std::chrono::seconds(5));
    };

    EXPECT_EQ(writtenAfter(folder, touch), Names({"c.ive"}));
}

TEST(ConvertJobs, ConvertEverythingAgainForOtherOptions) {
    const TemporaryDirectory folder;
    writeTree(folder.path());

    EXPECT_EQ(writtenAfter(folder, [] {}, {"--max-range", "64"}), Names({"a.ive", "b.ive", "c.ive", "m.ive"}));
}

TEST(ConvertJobs, SmoothNothingAgainButTheMaster) {
    const TemporaryDirectory folder;
    writeTree(folder.path());

    EXPECT_EQ(writtenAfter(folder, [] {}, {"--no-smooth"}), Names({"m.ive"}));
}

TEST(ConvertJobs, BringBackAnOutputThatIsGone) {
    const TemporaryDirectory folder;
    writeTree(folder.path());

    EXPECT_EQ(writtenAfter(folder, [&] { fs::remove(folder / "out/a.ive"); }), Names({"a.ive"}));
}

TEST(ConvertJobs, ConvertWhatIsAddedAndLeaveTheRest) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    const auto addFirst = [&] {
        writeFlight(folder / "in/0.flt", 1);
        writeFlight(folder / "in/b.flt", 12, {"0.flt"});
    };

    EXPECT_EQ(writtenAfter(folder, addFirst), Names({"0.ive", "b.ive"}));
}

TEST(ConvertJobs, ForgetWhatIsNoLongerReferredTo) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    convertInJobs(folder.path());
    const std::size_t before = namesIn(folder / "out/.sceneutils").size();
    writeFlight(folder / "in/a.flt", 16);

    EXPECT_EQ(countsIn(convertInJobs(folder.path())), "3 files read, 3 converted, 0 failed, 0 textures missing");

    // Not whose the output is, which stays.
    EXPECT_EQ(namesIn(folder / "out/.sceneutils").size(), before - 3);
}

TEST(ConvertJobs, TakeOverTheOutputOfAFileThatIsReferredToAgain) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    convertInJobs(folder.path());
    writeFlight(folder / "in/a.flt", 16);
    convertInJobs(folder.path());

    writeTree(folder.path());
    writeFlight(folder / "in/c.flt", 9);
    const ToolResult result = convertInJobs(folder.path());

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_FLOAT_EQ(load(folder / "out/c.ive")->getBound().radius(), makeGround(9)->getBound().radius());
}

TEST(ConvertJobs, TakeOverTheOutputsInAFolderThatWasMoved) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    convertInJobs(folder.path());
    fs::create_directories(folder / "elsewhere");
    fs::rename(folder / "in", folder / "elsewhere/in");
    fs::rename(folder / "out", folder / "elsewhere/out");

    const ToolResult result = convertInJobs(folder / "elsewhere");

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
}

TEST(ConvertJobs, NoticeAnotherSphereOfAFileInACircle) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"a.flt"});
    writeFlight(folder / "in/a.flt", 16, {"b.flt"});
    writeFlight(folder / "in/b.flt", 12, {"a.flt"});

    EXPECT_EQ(writtenAfter(folder, [&] { writeFlight(folder / "in/a.flt", 99, {"b.flt"}); }),
              Names({"a.ive", "b.ive", "m.ive"}));
}

TEST(ConvertJobs, NoticeAFileThatChangesWhileTheyArePlanned) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    ConversionOptions options;
    options.input = folder / "in/b.flt";
    options.output = folder / "out/m.ive";
    const auto before = stampOf(options.input);
    const auto plan = planFiles(options);

    writeFlight(folder / "in/b.flt", 13, {"c.flt"});
    const JobPlan jobs(plan, StateFolder(folder / "out/.sceneutils/m.ive"));

    EXPECT_EQ(jobs.jobs().front().job.input, before);
    EXPECT_NE(stampOf(options.input), before);
}

TEST(ConvertJobs, NoticeAnotherTexture) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"tile.flt", "other.flt"});
    writeFlight(folder / "in/other.flt", 5);
    writeGrey(folder / "in/b.png", 100);
    writeFlight(folder / "in/tile.flt", *makeTextured("b.png"));
    convertInJobs(folder.path());
    const FolderState before = stateOf(folder / "out");

    fs::rename(folder / "in/b.png", folder / "in/c.png");
    const ToolResult without = convertInJobs(folder.path());
    const Names afterLoss = writtenSince(before, folder / "out");
    writeGrey(folder / "in/b.png", 200);
    const ToolResult with = convertInJobs(folder.path());

    EXPECT_THAT(without.errorLines(), ElementsAre("sceneutils: tile.flt: texture b.png is missing or unreadable"));
    EXPECT_EQ(afterLoss, Names({"tile.ive"}));
    EXPECT_EQ(writtenSince(before, folder / "out").count("m.ive"), 0u);
    EXPECT_EQ(with.errors, "");
    EXPECT_THAT(writtenSince(before, folder / "out"), testing::IsSupersetOf({"b.png", "tile.ive"}));
    EXPECT_EQ(readBytes(folder / "out/b.png"), readBytes(folder / "in/b.png"));
}

TEST(ConvertJobs, TakeOverATextureWithAnotherContent) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeFlight(folder / "in/master.flt", 20, {"tile.flt"});
    writeFlight(folder / "in/tile.flt", *makeTextured("a.png"));

    EXPECT_EQ(writtenAfter(folder, [&] { writeGrey(folder / "in/a.png", 150); }), Names({"a.png", "tile.ive"}));
}

TEST(ConvertJobs, TakeOverATextureWithAnotherContentThatANewFileUsesToo) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeFlight(folder / "in/master.flt", 20, {"tile.flt"});
    writeFlight(folder / "in/tile.flt", *makeTextured("a.png"));
    const auto change = [&] {
        writeGrey(folder / "in/a.png", 150);
        writeFlight(folder / "in/new.flt", *makeTextured("a.png"));
        writeFlight(folder / "in/master.flt", 20, {"new.flt", "tile.flt"});
    };

    EXPECT_EQ(writtenAfter(folder, change), Names({"a.png", "m.ive", "new.ive", "tile.ive"}));
}

TEST(ConvertJobs, TakeOverATextureWithAnotherContentOfAFileThatIsGone) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeFlight(folder / "in/master.flt", 20, {"tile.flt"});
    writeFlight(folder / "in/tile.flt", *makeTextured("a.png"));
    convertInJobs(folder.path());
    writeFlight(folder / "in/master.flt", 20);
    convertInJobs(folder.path());

    writeGrey(folder / "in/a.png", 150);
    writeFlight(folder / "in/new.flt", *makeTextured("a.png"));
    writeFlight(folder / "in/master.flt", 20, {"new.flt"});
    const ToolResult result = convertInJobs(folder.path());

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(readBytes(folder / "out/a.png"), readBytes(folder / "in/a.png"));
}

TEST(ConvertJobs, NoticeThatALinkToATextureLeadsSomewhereNow) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"tile.flt"});
    writeFlight(folder / "in/tile.flt", *makeTextured("a.png"));
    fs::create_directories(folder / "store");
    fs::create_symlink("../store/a.png", folder / "in/a.png");
    EXPECT_EQ(convertInJobs(folder.path()).errors, "sceneutils: tile.flt: texture a.png is missing or unreadable\n");

    writeGrey(folder / "store/a.png", 150);
    const ToolResult result = convertInJobs(folder.path());

    EXPECT_EQ(countsIn(result), "2 files read, 2 converted, 0 failed, 0 textures missing");
    EXPECT_TRUE(fs::exists(folder / "out/_parent/store/a.png"));
}

TEST(ConvertJobs, TakeOverNewAttributesOfATexture) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeFlight(folder / "in/master.flt", 20, {"tile.flt"});
    writeFlight(folder / "in/tile.flt", *makeTextured("a.png"));
    fs::rename(folder / "in/a.png.attr", folder / "attributes");

    EXPECT_EQ(writtenAfter(folder, [&] { fs::rename(folder / "attributes", folder / "in/a.png.attr"); }),
              Names({"tile.ive"}));
}

TEST(ConvertJobs, ConvertEverythingAgainByAnotherVersion) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    convertInJobs(folder.path());
    for (const std::string& name : namesIn(folder / "out/.sceneutils/m.ive")) {
        const fs::path path = fs::path(folder / "out/.sceneutils/m.ive") / name;
        std::string bytes = readBytes(path);
        const std::size_t version = bytes.find("sceneutils " SCENEUTILS_VERSION);
        if (path.extension() == ".finished") fs::remove(path);
        if (path.extension() == ".job" && version != std::string::npos)
            writeBytes(path, bytes.replace(version, 1, "S"));
    }

    const ToolResult result = convertInJobs(folder.path(), {"--dry-run"});

    for (const std::string name : {"master", "a", "b", "c"})
        EXPECT_THAT(result.output, HasSubstr(name + ".flt: was converted by another version (Sceneutils " +
                                             SCENEUTILS_VERSION + ", OpenSceneGraph "));
}

TEST(ConvertJobs, BringBackATextureThatIsGone) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/b.png", 100);
    writeFlight(folder / "in/master.flt", 20, {"tile.flt", "other.flt"});
    writeFlight(folder / "in/other.flt", *makeTextured("b.png"));
    writeFlight(folder / "in/tile.flt", *makeTextured("b.png"));

    EXPECT_EQ(writtenAfter(folder, [&] { fs::remove(folder / "out/b.png"); }), Names({"b.png", "tile.ive"}));
}

TEST(ConvertJobs, SayInADryRunWhatTheyWouldDoAndWhy) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    const ToolResult atFirst = convertInJobs(folder.path(), {"--dry-run"});
    EXPECT_FALSE(fs::exists(folder / "out"));
    convertInJobs(folder.path());
    writeFlight(folder / "in/c.flt", 9);
    fs::remove(folder / "out/b.ive");
    const FolderState before = stateOf(folder.path());

    const ToolResult result = convertInJobs(folder.path(), {"--dry-run"});

    EXPECT_THAT(atFirst.output,
                EndsWith("c.flt: has not been converted yet\nb.flt: has not been converted yet\n4 files, "
                         "4 to convert, 0 more if bounding spheres change, 0 up to date, 0 that cannot be "
                         "converted\n"));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output,
              "master.flt: only if the bounding sphere of a file that it refers to changes\n"
              "a.flt: only if the bounding sphere of a file that it refers to changes\n"
              "c.flt: has changed\n"
              "b.flt: its output is missing\n"
              "4 files, 2 to convert, 2 more if bounding spheres change, 0 up to date, 0 that cannot be converted\n");
    EXPECT_EQ(stateOf(folder.path()), before);
}

TEST(ConvertJobs, SayInADryRunWhatFollowsFromWhatMayFollow) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    convertInJobs(folder.path());
    writeFlight(folder / "in/c.flt", 9);

    EXPECT_EQ(convertInJobs(folder.path(), {"--dry-run"}).output,
              "master.flt: only if the bounding sphere of a file that it refers to changes\n"
              "a.flt: only if the bounding sphere of a file that it refers to changes\n"
              "c.flt: has changed\n"
              "4 files, 1 to convert, 2 more if bounding spheres change, 1 up to date, 0 that cannot be converted\n");
}

TEST(ConvertJobs, SayInADryRunWhatIsDifferentAboutAFile) {
    const TemporaryDirectory folder;
    const std::string texture = folder / "in/pictures/a.png";
    const auto whyAfter = [&](const std::function<void()>& change) {
        fs::remove_all(folder / "in");
        fs::remove_all(folder / "out");
        writeGrey(texture, 100);
        writeFlight(folder / "in/master.flt", 20, {"tile.flt"});
        writeFlight(folder / "in/tile.flt", *makeTextured("pictures/a.png"));
        convertInJobs(folder.path());
        change();
        const std::string output = convertInJobs(folder.path(), {"--dry-run", "--overwrite"}).output;
        const std::size_t begin = output.find("tile.flt: ") + 10;
        return output.substr(begin, output.find('\n', begin) - begin);
    };

    EXPECT_EQ(whyAfter([&] { writeBytes(folder / "out/tile.ive", "mine"); }), "its output has been changed");
    EXPECT_EQ(whyAfter([&] { fs::remove(texture); }), "a.png is missing");
    EXPECT_EQ(whyAfter([&] { writeGrey(texture, 150); }), "a.png has changed");
    EXPECT_EQ(whyAfter([&] { writeBytes(texture + ".attr", "x"); }), "a.png: its attributes have changed");
    EXPECT_EQ(whyAfter([&] { fs::rename(texture, folder / "in/a.png"); }), "a.png is another file");
    EXPECT_EQ(whyAfter([&] { fs::remove(folder / "out/pictures/a.png"); }),
              "the texture a.png is missing or has been changed");
}

TEST(ConvertJobs, PutTheLauncherInFrontOfEveryJob) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    writeBytes(folder / "my launcher", "#!/bin/sh\necho \"$1\" >> launched\nshift\nexec \"$@\"\n");
    fs::permissions(folder / "my launcher", fs::perms::owner_all);

    const ToolResult result =
        convertInJobs(folder.path(), {"--launcher", "'" + folder / "my launcher" + "' \"two words\""});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(readBytes(folder / "out/.sceneutils/m.ive/launched"), "two words\ntwo words\ntwo words\ntwo words\n");
}

TEST(ConvertJobs, ReportAllFiles) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    fs::remove(folder / "in/c.flt");
    convertInJobs(folder.path());

    EXPECT_EQ(convertInJobs(folder.path(), {"--report", "r.json"}).status, 5);

    const nlohmann::json report = nlohmann::json::parse(readBytes(folder / "r.json"));
    EXPECT_EQ(report["totals"]["filesConverted"], 3);
    EXPECT_EQ(report["files"].size(), 4u);
}

TEST(ConvertJobs, NeedTheirOptionsTogether) {
    const TemporaryDirectory folder;
    writeTree(folder.path());
    ToolSettings settings;
    settings.workingDirectory = folder.path();
    for (const std::vector<std::string>& option : {std::vector<std::string>{"--dry-run"},
                                                   {"--job-timeout", "1"},
                                                   {"--job-memory", "16"},
                                                   {"--launcher", "nice"}}) {
        std::vector<std::string> arguments = {"convert", "in/master.flt", "out/m.ive"};
        arguments.insert(arguments.end(), option.begin(), option.end());
        const ToolResult result = runTool(arguments, settings);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.errors,
                  "sceneutils: --job-timeout, --job-memory, --launcher and --dry-run need --jobs (see --help)\n");
    }
    EXPECT_FALSE(fs::exists(folder / "out"));
}
