#include "support/DiskFaults.h"
#include "support/JobConversions.h"
#include "support/TexturedModels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

using Faults = std::vector<std::pair<std::string, std::string>>;

constexpr int tiles = 16;  // with one job at a time, a process converts four of them

std::vector<std::string> tileNames() {
    std::vector<std::string> names;
    for (int i = 0; i < tiles; ++i) names.push_back((i < 10 ? "t0" : "t") + std::to_string(i) + ".flt");
    return names;
}

/** master.flt refers to the tiles t00.flt to t15.flt. */
void writeTiles(const TemporaryDirectory& folder) {
    writeFlight(folder / "in/master.flt", 20, tileNames());
    for (const std::string& name : tileNames()) writeFlight(folder / ("in/" + name), 5);
}

ToolResult convertOneAtATime(const TemporaryDirectory& folder, const ToolSettings& settings = {},
                             std::vector<std::string> more = {}) {
    more.insert(more.end(), {"--jobs", "1"});
    return convertInJobs(folder.path(), more, settings);
}

}  // namespace

TEST(ConvertJobsInBatches, StartOneProcessForFourFiles) {
    const TemporaryDirectory folder;
    writeTiles(folder);
    writeBytes(folder / "count", "#!/bin/sh\necho >> processes\nexec \"$@\"\n");
    fs::permissions(folder / "count", fs::perms::owner_all);

    convertInJobs(folder.path(), {"--jobs", "1", "--launcher", folder / "count"});

    EXPECT_EQ(readBytes(folder / "out/.sceneutils/m.ive/processes"), "\n\n\n\n\n") << "the fifth is the master's";
}

TEST(ConvertJobsInBatches, LoseNoFileButThoseWhoseProcessesEnd) {
    const TemporaryDirectory folder;
    writeTiles(folder);
    const auto expected = undisturbedOutputs(folder.path());

    const ToolResult result = convertOneAtATime(folder, withDiskFaults({{"KILL", "/t0"}}));

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(countsIn(result), "7 files read, 7 converted, 10 failed, 0 textures missing");
    EXPECT_EQ(result.errorLines().size(), 10u);
    for (const std::string& line : result.errorLines())
        EXPECT_THAT(line, AllOf(HasSubstr("/out/t0"), EndsWith(".ive: crashed while being written (Killed)")));
    EXPECT_THAT(convertOneAtATime(folder, {}, {"--dry-run"}).output,
                AllOf(HasSubstr("t00.flt: failed: "), HasSubstr("t09.flt: failed: ")));
    EXPECT_EQ(pagedFiles(load(folder / "out/m.ive")).size(), 6u);
    expectPlainRunCompletes(folder.path(), expected);
}

TEST(ConvertJobsInBatches, TryAFileAgainThatFailsInAProcessThatHasConvertedOthers) {
    for (const Faults& faults : {Faults{{"KILL", "/t05.ive"}}, Faults{{"FULL", ".t05.ive.part"}}}) {
        const TemporaryDirectory folder;
        writeTiles(folder);
        const auto expected = undisturbedOutputs(folder.path());
        ToolSettings settings = withDiskFaults(faults);
        settings.environment.emplace_back("SCENEUTILS_TEST_ONCE", folder / "has-happened");

        const ToolResult result = convertOneAtATime(folder, settings);

        EXPECT_TRUE(fs::exists(folder / "has-happened"));
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.errors, "");
        expectSameOutputs(outputsIn(folder / "out"), expected);
    }
}

TEST(ConvertJobsInBatches, TryAFileOnceThatFailsInAProcessOfItsOwn) {
    const TemporaryDirectory folder;
    writeTiles(folder);
    const auto expected = undisturbedOutputs(folder.path());
    ToolSettings settings = withDiskFaults({{"KILL", "/t04.ive"}});
    settings.environment.emplace_back("SCENEUTILS_TEST_ONCE", folder / "has-happened");

    const ToolResult result = convertOneAtATime(folder, settings);

    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.errorLines(), ElementsAre(EndsWith("/out/t04.ive: crashed while being written (Killed)")));
    expectPlainRunCompletes(folder.path(), expected);
}

TEST(ConvertJobsInBatches, MakeTheSameBytesOfTilesThatShareATexture) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeFlight(folder / "in/master.flt", 20, tileNames());
    float repeats = 1.0f;
    for (const std::string& name : tileNames()) writeFlight(folder / ("in/" + name), *makeTextured("a.png", repeats++));
    EXPECT_EQ(convertInJobs(folder.path(), {"--jobs", "8"}).status, 0);
    const auto expected = outputsIn(folder / "out");
    fs::remove_all(folder / "out");

    EXPECT_EQ(convertOneAtATime(folder).status, 0);

    expectSameOutputs(outputsIn(folder / "out"), expected);
}
