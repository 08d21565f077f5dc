#include "convert/StateLock.h"
#include "sample/SampleDatabase.h"
#include "support/JobConversions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::AnyOf;
using testing::EndsWith;
using veltrane::sceneutils::tool::StateLock;

namespace {

void writeSample(const TemporaryDirectory& folder, unsigned int tiles) {
    veltrane::sceneutils::tool::SampleOptions options;
    options.tiles = tiles;
    options.levels = 2;
    veltrane::sceneutils::tool::writeSampleDatabase(folder / "in", options);
}

ToolSettings in(const TemporaryDirectory& folder) {
    ToolSettings settings;
    settings.workingDirectory = folder.path();
    return settings;
}

std::vector<std::string> arguments(const std::vector<std::string>& more) {
    std::vector<std::string> result = {"convert", "in/master.flt", "out/m.ive", "--recurse"};
    result.insert(result.end(), more.begin(), more.end());
    return result;
}

void waitFor(const fs::path& path) {
    for (int i = 0; i < 10000 && !fs::exists(path); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

std::string isTakenLine(const TemporaryDirectory& folder) {
    return "sceneutils: " + (fs::canonical(folder.path()) / "out/.sceneutils/m.ive").string() +
           ": another run is converting into it\n";
}

}  // namespace

TEST(ConvertJobsTogether, LetASecondRunKnowThatTheOutputIsTaken) {
    const TemporaryDirectory folder;
    writeSample(folder, 4);
    const auto expected = undisturbedOutputs(folder.path());
    // Never done: the first run is at work when the second one comes.
    ToolProcess first(SCENEUTILS_TOOL, arguments({"--jobs", "1", "--launcher", "sleep 5; true"}), in(folder));
    waitFor(folder / "out/.sceneutils/m.ive/build.ninja");

    const ToolResult second = runTool(arguments({"--jobs", "2"}), in(folder));

    EXPECT_EQ(second.status, 4);
    EXPECT_EQ(second.output, "");
    EXPECT_EQ(second.errors, isTakenLine(folder));
    EXPECT_TRUE(first.isRunning());
    first.send(SIGINT);
    EXPECT_EQ(first.wait().status, 130);
    expectPlainRunCompletes(folder.path(), expected);
}

TEST(ConvertJobsTogether, DoNoHarmWhenTheyAreStartedAtTheSameMoment) {
    const TemporaryDirectory folder;
    writeSample(folder, 2);
    const auto expected = undisturbedOutputs(folder.path());
    ToolProcess first(SCENEUTILS_TOOL, arguments({"--jobs", "2"}), in(folder));
    ToolProcess second(SCENEUTILS_TOOL, arguments({"--jobs", "2"}), in(folder));
    const ToolResult ofFirst = first.wait();
    const ToolResult ofSecond = second.wait();

    EXPECT_TRUE(ofFirst.status == 0 || ofSecond.status == 0);
    for (const ToolResult& result : {ofFirst, ofSecond}) {
        EXPECT_THAT(result.status, AnyOf(0, 4));
        EXPECT_EQ(result.errors, result.status == 0 ? "" : isTakenLine(folder));
    }
    expectSameOutputs(outputsIn(folder / "out"), expected);
    expectPlainRunCompletes(folder.path(), expected);
}

TEST(ConvertJobsTogether, WaitAMomentForARunThatIsAboutToEnd) {
    const TemporaryDirectory folder;
    writeSample(folder, 1);
    convertInJobs(folder.path());
    writeFlight(folder / "in/master.flt", 20);
    const int lock = open((folder / "out/.sceneutils/m.ive/lock").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    ToolProcess waiting(SCENEUTILS_TOOL, arguments({"--jobs", "2"}), in(folder));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(waiting.isRunning());

    close(lock);

    const ToolResult result = waiting.wait();
    EXPECT_EQ(result.status, 0) << result.errors;
}

TEST(ConvertJobsTogether, KeepAConversionInOrderOut) {
    const TemporaryDirectory folder;
    writeSample(folder, 1);
    convertInJobs(folder.path());
    const FolderState before = quietStateOf(folder / "out");
    {
        const StateLock lock(fs::canonical(folder / "out") / ".sceneutils/m.ive");
        const ToolResult result = runTool(arguments({"--overwrite", "--max-range", "5"}), in(folder));
        EXPECT_EQ(result.status, 4);
        EXPECT_EQ(result.errors, isTakenLine(folder));
    }
    EXPECT_EQ(quietStateOf(folder / "out"), before);
}

TEST(ConvertJobsTogether, AreKeptOutByAConversionInOrder) {
    const TemporaryDirectory folder;
    writeSample(folder, 40);
    fs::create_directories(folder / "out/.sceneutils/m.ive");
    ToolProcess plain(SCENEUTILS_TOOL, arguments({}), in(folder));
    waitFor(folder / "out/tiles");
    plain.send(SIGSTOP);  // so that it cannot be done before the other one gives up

    const ToolResult result = runTool(arguments({"--jobs", "1", "--overwrite"}), in(folder));
    plain.send(SIGTERM);
    plain.send(SIGCONT);

    EXPECT_EQ(plain.wait().status, 130);
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.errors, isTakenLine(folder));
}

TEST(ConvertJobsTogether, LeaveTheLockOfAConversionInOrderAsItWas) {
    const TemporaryDirectory folder;
    writeSample(folder, 1);
    convertInJobs(folder.path());
    for (const std::string mark : {"", "!"}) {
        writeBytes(folder / "out/.sceneutils/m.ive/lock", mark);
        EXPECT_EQ(runTool(arguments({"--overwrite"}), in(folder)).status, 0);
        EXPECT_EQ(readBytes(folder / "out/.sceneutils/m.ive/lock"), mark);
    }
}

TEST(ConvertJobsTogether, KeepNothingOfAConversionInOrderThatBeganBeforeThemForTheirOwn) {
    const TemporaryDirectory folder;
    writeSample(folder, 6);
    const auto expected = undisturbedOutputs(folder.path());
    ToolProcess plain(SCENEUTILS_TOOL, arguments({"--overwrite", "--max-range", "5"}), in(folder));
    ToolProcess jobs(SCENEUTILS_TOOL, arguments({"--overwrite", "--jobs", "2"}), in(folder));
    for (ToolProcess* process : {&plain, &jobs}) EXPECT_THAT(process->wait().status, AnyOf(0, 4));

    const ToolResult again = convertInJobs(folder.path());
    if (again.status != 0) {
        EXPECT_EQ(again.status, 4);
        EXPECT_THAT(again.errors, EndsWith(": exists already; pass --overwrite to replace it\n"));
        EXPECT_EQ(convertInJobs(folder.path(), {"--overwrite"}).status, 0);
    }

    expectPlainRunCompletes(folder.path(), expected);
}
