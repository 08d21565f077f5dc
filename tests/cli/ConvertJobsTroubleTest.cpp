#include "convert/ChildProcess.h"
#include "convert/StateLock.h"
#include "sample/SampleDatabase.h"
#include "support/DiskFaults.h"
#include "support/FlightRecords.h"
#include "support/JobConversions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

namespace {

using Names = std::set<std::string>;

void writeSample(const fs::path& folder, unsigned int tiles) {
    veltrane::sceneutils::tool::SampleOptions options;
    options.tiles = tiles;
    options.levels = 2;
    veltrane::sceneutils::tool::writeSampleDatabase(folder, options);
}

/** master.flt refers to bad.flt, which is for the test to make, and to good.flt. */
void writeWithOneBad(const TemporaryDirectory& folder, const std::function<void(const fs::path&)>& makeBad) {
    writeFlight(folder / "in/master.flt", 20, {"bad.flt", "good.flt"});
    writeFlight(folder / "in/good.flt", 3);
    makeBad(folder / "in/bad.flt");
}

/** Groups in one another, so deep that OpenSceneGraph's recursion finds no end of the stack. */
void writeTooDeep(const fs::path& path) {
    constexpr int levels = 1'000'000;  // more than any stack is deep, with small frames too
    FlightRecords records;
    records.push();
    for (int i = 0; i < levels; ++i) {
        records.record(FlightRecords::Group, FlightRecords::padded("g", 40)).push();
    }
    for (int i = 0; i <= levels; ++i) records.pop();
    records.write(path);
}

void writeLarge(const fs::path& path) {
    const osg::ref_ptr<osg::Group> model = makeModel(7);
    for (int i = 0; i < 40000; ++i) model->addChild(makeGround(static_cast<float>(i)));
    writeFlight(path, *model);
}

/** Expects that bad.flt alone fails, for the reason that is returned, and that it is converted once it is mended. */
std::string reasonForOneBad(const std::function<void(const fs::path&)>& makeBad,
                            const std::vector<std::string>& options, const ToolSettings& settings = {}) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, makeBad);
    const ToolResult result = convertInJobs(folder.path(), options, settings);

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(countsIn(result), "2 files read, 2 converted, 1 failed, 0 textures missing");
    EXPECT_THAT(references(load(folder / "out/m.ive")), ElementsAre("bad.flt"));
    EXPECT_THAT(pagedFiles(load(folder / "out/m.ive")), ElementsAre("good.ive"));
    EXPECT_EQ(result.errorLines().size(), 1u) << result.errors;

    const FolderState before = stateOf(folder / "out");
    // What it was doing meanwhile may be another thing.
    const std::string again = convertInJobs(folder.path(), options, settings).errors;
    const std::string reason = result.errors.substr(0, result.errors.find(" while being "));
    EXPECT_THAT(again, StartsWith(reason)) << "it is tried again";
    EXPECT_EQ(writtenSince(before, folder / "out"), Names());

    fs::remove(folder / "in/bad.flt");
    writeFlight(folder / "in/bad.flt", 5);
    EXPECT_EQ(convertInJobs(folder.path()).status, 0);
    EXPECT_EQ(writtenSince(before, folder / "out"), Names({"bad.ive", "m.ive"}));
    EXPECT_THAT(pagedFiles(load(folder / "out/m.ive")), ElementsAre("bad.ive", "good.ive"));
    const auto mended = outputsIn(folder / "out");
    fs::remove_all(folder / "out");
    expectSameOutputs(mended, undisturbedOutputs(folder.path()));

    const std::string beginning = "sceneutils: bad.flt (named by master.flt): ";
    EXPECT_THAT(result.errors, StartsWith(beginning));
    return result.errors.substr(std::min(beginning.size(), result.errors.size()));
}

/** The processes that have this word in their command lines. */
std::vector<int> processesWith(const std::string& word) {
    std::vector<int> processes;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::ifstream file(entry.path() / "cmdline");
        std::string words;
        std::getline(file, words);  // empty if the process has ended meanwhile
        if (words.find(word) != std::string::npos) processes.push_back(std::stoi(name));
    }
    return processes;
}

std::size_t tilesIn(const fs::path& folder) {
    std::size_t tiles = 0;
    std::error_code error;
    for (const auto& entry : fs::recursive_directory_iterator(folder, error)) {
        if (entry.path().extension() == ".ive" && entry.is_regular_file(error)) ++tiles;
    }
    return tiles;
}

/** Starts a conversion in jobs and waits until so many tiles are there. */
class BegunConversion {
public:
    BegunConversion(const fs::path& folder, std::size_t tiles) : _tool(SCENEUTILS_TOOL, arguments(), settings(folder)) {
        while (_tool.isRunning() && tilesIn(folder / "out") < tiles)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    ToolProcess& tool() { return _tool; }

private:
    static std::vector<std::string> arguments() {
        return {"convert", "in/master.flt", "out/m.ive", "--recurse", "--jobs", "3"};
    }
    static ToolSettings settings(const fs::path& folder) {
        ToolSettings settings;
        settings.workingDirectory = folder;
        return settings;
    }

    ToolProcess _tool;
};

void expectEveryTileWhole(const fs::path& folder, const std::map<std::string, std::string>& expected) {
    for (const auto& [name, content] : outputsIn(folder)) {
        if (fs::path(name).extension() != ".ive") continue;
        const auto same = expected.find(name);
        EXPECT_TRUE(same != expected.end() && same->second.size() == content.size()) << name;
    }
}

}  // namespace

TEST(ConvertJobsTrouble, NamesAFileThatIsMissing) {
    EXPECT_EQ(reasonForOneBad([](const fs::path&) {}, {}), "no such file\n");
}

TEST(ConvertJobsTrouble, NamesAFileThatCrashesTheReader) {
    const std::string reason = reasonForOneBad(writeTooDeep, {});
#ifdef __SANITIZE_ADDRESS__  // which ends the process itself
    EXPECT_THAT(reason, StartsWith("failed while being "));
#else
    EXPECT_THAT(reason, AllOf(HasSubstr("crashed"), EndsWith("(Segmentation fault)\n")));
#endif
}

TEST(ConvertJobsTrouble, NamesAFileThatTakesTooLongByTheClock) {
    EXPECT_THAT(reasonForOneBad(writeLarge, {"--job-timeout", "1"}), StartsWith("took more than 1 s while being "));
}

TEST(ConvertJobsTrouble, NamesAFileThatIsNeverRead) {
    const auto write = [](const fs::path& path) { writeFlight(path, 7); };
    EXPECT_EQ(reasonForOneBad(write, {"--job-timeout", "1"}, withDiskFaults({{"SLEEP", "/bad.flt"}})),
              "took more than 1 s while being read\n");
}

TEST(ConvertJobsTrouble, NamesAFileThatCannotBeRead) {
    const auto write = [](const fs::path& path) { writeFlight(path, 7); };
    EXPECT_EQ(reasonForOneBad(write, {}, withDiskFaults({{"UNREADABLE", "/bad.flt"}})), "Input/output error\n");
}

TEST(ConvertJobsTrouble, NamesAFileThatIsCutShortOrEmptyOrAFolder) {
    const auto cut = [](const fs::path& path) {
        writeFlight(path, 7);
        fs::resize_file(path, 500);
    };
    EXPECT_THAT(reasonForOneBad(cut, {}), StartsWith("truncated: "));
    EXPECT_EQ(reasonForOneBad([](const fs::path& path) { writeBytes(path, ""); }, {}), "empty file\n");
    EXPECT_EQ(reasonForOneBad([](const fs::path& path) { fs::create_directory(path); }, {}), "is a folder\n");
}

TEST(ConvertJobsTrouble, ConvertsTheRestOfCirclesRoundABadFile) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"a.flt", "master.flt"});
    writeFlight(folder / "in/a.flt", 16, {"b.flt", "a.flt", "bad.flt"});
    writeFlight(folder / "in/b.flt", 12, {"a.flt", "bad.flt", "master.flt"});
    writeFlight(folder / "in/bad.flt", 8, {"bad.flt", "b.flt"});
    const auto expected = undisturbedOutputs(folder.path());
    const std::string good = readBytes(folder / "in/bad.flt");
    writeBytes(folder / "in/bad.flt", good.substr(0, good.size() / 2));

    const ToolResult result = convertInJobs(folder.path());

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errorLines().size(), 1u);
    writeBytes(folder / "in/bad.flt", good);
    expectPlainRunCompletes(folder.path(), expected);
}

TEST(ConvertJobsTrouble, LeavesEverythingAsItIsForADamagedMaster) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, [](const fs::path& path) { writeFlight(path, 7); });
    const auto expected = undisturbedOutputs(folder.path());
    const std::string good = readBytes(folder / "in/master.flt");
    for (const std::string& bytes : {std::string(), good.substr(0, 100), good.substr(0, good.size() - 1)}) {
        writeBytes(folder / "in/master.flt", bytes);
        const ToolResult result = convertInJobs(folder.path());
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.errorLines().size(), 1u);
        EXPECT_FALSE(fs::exists(folder / "out"));
    }
    writeBytes(folder / "in/master.flt", good);
    convertInJobs(folder.path());
    const FolderState before = quietStateOf(folder / "out");
    writeBytes(folder / "in/master.flt", good.substr(0, 100));
    EXPECT_EQ(convertInJobs(folder.path()).status, 2);
    EXPECT_EQ(quietStateOf(folder / "out"), before);
    writeBytes(folder / "in/master.flt", good);
    expectPlainRunCompletes(folder.path(), expected);
}

TEST(ConvertJobsTrouble, NamesAFileThatTakesTooMuchProcessorTime) {
    EXPECT_THAT(reasonForOneBad(writeLarge, {"--time-limit", "1"}),
                StartsWith("took more than 1 s of processor time while being "));
}

TEST(ConvertJobsTrouble, NamesAFileThatNeedsTooMuchMemory) {
    if (!veltrane::sceneutils::tool::canLimitMemory()) return;
    EXPECT_THAT(reasonForOneBad(writeLarge, {"--job-memory", "64"}),
                StartsWith("needed more than 64 MiB of memory while being "));
}

TEST(ConvertJobsTrouble, EndsAtOnceWhenInterruptedAndGoesOnLater) {
    const TemporaryDirectory folder;
    writeSample(folder / "in", 30);
    convertInJobs(folder.path());
    const auto expected = outputsIn(folder / "out");
    for (const int signal : {SIGINT, SIGTERM}) {
        fs::remove_all(folder / "out");
        BegunConversion begun(folder.path(), 6);

        begun.tool().send(signal);
        const ToolResult result = begun.tool().wait();

        EXPECT_EQ(result.status, 130);
        EXPECT_FALSE(result.leftProcesses);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "sceneutils: interrupted\n");
        EXPECT_THAT(processesWith(folder.path().string()), IsEmpty());
        expectNoPartialFiles(folder.path());
        const FolderState before = stateOf(folder / "out");
        EXPECT_EQ(convertInJobs(folder.path()).status, 0);
        expectSameOutputs(outputsIn(folder / "out"), expected);
        // Those that were being finished at that moment, one for each job.
        std::size_t writtenAgain = 0;
        for (const std::string& name : writtenSince(before, folder / "out")) writtenAgain += before.count(name);
        EXPECT_LE(writtenAgain, 3u);
    }
}

TEST(ConvertJobsTrouble, GoesOnAfterTheWholeRunWasKilledAtAnyMoment) {
    const TemporaryDirectory folder;
    writeSample(folder / "in", 10);
    convertInJobs(folder.path());
    const auto expected = outputsIn(folder / "out");
    std::mt19937 random(7);
    fs::remove_all(folder / "out");
    for (int i = 0; i < 6; ++i) {
        if (i == 3) fs::remove_all(folder / "out");
        BegunConversion begun(folder.path(), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 1000));
        for (const int process : processesWith(folder.path().string())) kill(process, SIGKILL);
        begun.tool().send(SIGKILL);
        begun.tool().wait();
        expectEveryTileWhole(folder / "out", expected);
    }

    EXPECT_EQ(convertInJobs(folder.path()).status, 0);
    expectSameOutputs(outputsIn(folder / "out"), expected);
}

TEST(ConvertJobsTrouble, RemovesWhatARunThatWasKilledHasLeft) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, [](const fs::path& path) { writeFlight(path, 7); });
    convertInJobs(folder.path());
    const std::string running = ".part-" + std::to_string(getpid());
    const Names others = {"out/.good.ive" + running, "out/.mine.ive.part-999999999", "out/.good.ive.part-x"};
    for (const std::string& name : others) writeBytes(folder / name, "not the run's");
    writeBytes(folder / "out/.good.ive.part-999999999", "half");
    writeBytes(folder / "out/.sceneutils/m.ive/.x.job.part-999999999", "half");
    writeBytes(folder / "out/.sceneutils/m.ive/lock", "!");
    ToolSettings settings;
    settings.workingDirectory = folder.path();

    runTool({"convert", "in/master.flt", "out/m.ive", "--recurse", "--jobs", "1"}, settings);

    Names left;
    for (const std::string& name : namesIn(folder.path())) {
        if (name.find(".part-") != std::string::npos) left.insert(name);
    }
    EXPECT_EQ(left, others);
    EXPECT_EQ(readBytes(folder / "out/.sceneutils/m.ive/lock"), "");
}

TEST(ConvertJobsTrouble, EndsItsJobsWhenItIsKilledItself) {
    const TemporaryDirectory folder;
    writeSample(folder / "in", 10);
    BegunConversion begun(folder.path(), 3);

    begun.tool().send(SIGKILL);
    begun.tool().wait();
    for (int i = 0; i < 500 && !processesWith(folder.path().string()).empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));

    EXPECT_THAT(processesWith(folder.path().string()), IsEmpty());
    EXPECT_EQ(convertInJobs(folder.path()).status, 0);
}

TEST(ConvertJobsTrouble, SaysThatNinjaWasKilled) {
    const TemporaryDirectory folder;
    writeSample(folder / "in", 10);
    BegunConversion begun(folder.path(), 3);
    const std::string ninja = std::string("ninja\0-C\0", 9) + folder.path().string();
    for (const int process : processesWith(ninja)) kill(process, SIGKILL);

    const ToolResult result = begun.tool().wait();

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errors, "sceneutils: Ninja was ended (Killed) before all was done; the same command goes on\n");
    EXPECT_EQ(convertInJobs(folder.path()).status, 0);
}

TEST(ConvertJobsTrouble, ConvertsTheRestWhenAJobIsKilled) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"a.flt", "b.flt"});
    writeFlight(folder / "in/a.flt", 5);
    writeFlight(folder / "in/b.flt", 6);
    // The first job kills its own process instead of becoming the tool.
    writeBytes(folder / "once", "#!/bin/sh\nmkdir marker 2>/dev/null && kill -9 $$\nexec \"$@\"\n");
    fs::permissions(folder / "once", fs::perms::owner_all);

    const ToolResult result = convertInJobs(folder.path(), {"--jobs", "1", "--launcher", folder / "once"});

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(countsIn(result), "1 file read, 1 converted, 2 failed, 0 textures missing");
    EXPECT_THAT(result.errors, HasSubstr(": was not converted: its process, or that of a file that it refers to, was "
                                         "ended\n"));
    EXPECT_EQ(convertInJobs(folder.path()).status, 0);
}

TEST(ConvertJobsTrouble, LetsNobodyElseIntoItsOutput) {
    const TemporaryDirectory folder;
    writeSample(folder / "in", 1);
    const std::string state = (fs::canonical(folder.path()) / "out/.sceneutils/m.ive").string();
    ToolSettings settings;
    settings.workingDirectory = folder.path();
    const auto run = [&] {
        return runTool({"convert", "in/master.flt", "out/m.ive", "--recurse", "--jobs", "1"}, settings);
    };
    {
        const veltrane::sceneutils::tool::StateLock another(state);
        const ToolResult refused = run();
        EXPECT_EQ(refused.status, 4);
        EXPECT_EQ(refused.errors, "sceneutils: " + state + ": another run is converting into it\n");
    }
    EXPECT_EQ(run().status, 0);
}

TEST(ConvertJobsTrouble, TakesNamesThatMeanSomethingToShellsAndNinja) {
    const TemporaryDirectory folder;
    const std::vector<std::string> names = {
        "a b", "it's", "\"q\"",      "$HOME", "$(touch x)", "`touch x`", "a;b|c&d",    "-rf", "#x",
        "a:b", "$in",  "line\nfeed", "tab\t", "*",          "b\\c",      "latin-\xe9", "{x}", std::string(240, 'n')};
    std::vector<std::string> references;
    for (const std::string& name : names) references.push_back(name + ".flt");
    const std::string odd = "in $put's \"x\"\n-d";
    fs::create_directories(folder / odd);
    writeFlight(folder / (odd + "/-m $1.flt"), 20, {});
    FlightRecords master;
    master.push().references(references).pop().write(folder / (odd + "/-m $1.flt"));
    for (const std::string& name : references) writeFlight(fs::path(folder / odd) / name, 3);
    ToolSettings settings;
    settings.workingDirectory = folder / odd;

    const ToolResult result =
        runTool({"convert", "--recurse", "--jobs", "2", "--", "-m $1.flt", "../out 'put\" $x\n/-m.ive"}, settings);

    // The record has room for 200 bytes of a name.
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(countsIn(result), "18 files read, 18 converted, 1 failed, 0 textures missing");
    EXPECT_EQ(tilesIn(folder / "out 'put\" $x\n"), 18u);
    EXPECT_FALSE(fs::exists(folder / (odd + "/x")));
}

TEST(ConvertJobsTrouble, TakesPathsAsLongAsTheSystemDoes) {
    const TemporaryDirectory folder;
    std::string deep = "in";
    for (int i = 0; i < 12; ++i) deep += "/" + std::string(200, static_cast<char>('a' + i));
    writeFlight(folder / (deep + "/master.flt"), 20, {"a.flt"});
    writeFlight(folder / (deep + "/a.flt"), 3);
    ToolSettings settings;
    settings.workingDirectory = folder.path();

    const ToolResult result =
        runTool({"convert", deep + "/master.flt", "out/m.ive", "--recurse", "--jobs", "2"}, settings);

    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(namesIn(folder / "out").count("a.ive"), 1u);
}

TEST(ConvertJobsTrouble, ReplacesNothingThatIsNotItsOwn) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, [](const fs::path& path) { writeFlight(path, 7); });
    writeBytes(folder / "out/good.ive", "mine");

    const ToolResult result = convertInJobs(folder.path());

    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errorLines(),
                ElementsAre(EndsWith("/out/good.ive: exists already; pass --overwrite to replace it")));
    EXPECT_EQ(contentOf(folder / "out"), (std::map<std::string, std::string>{{"good.ive", "mine"}}));
    EXPECT_EQ(convertInJobs(folder.path(), {"--overwrite"}).status, 0);
    writeBytes(folder / "out/good.ive", "mine");
    EXPECT_EQ(convertInJobs(folder.path()).status, 4);
    EXPECT_EQ(readBytes(folder / "out/good.ive"), "mine");
    EXPECT_EQ(convertInJobs(folder.path(), {"--overwrite"}).status, 0);
    EXPECT_EQ(widthOf(folder / "out/good.ive"), 3.0f);
}

TEST(ConvertJobsTrouble, ReplacesNothingThatSomebodyPutsThereMeanwhile) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, [](const fs::path& path) { writeFlight(path, 7); });
    convertInJobs(folder.path());
    writeFlight(folder / "in/good.flt", 4);
    // The working directory is the state's.
    writeBytes(folder / "meddle", "#!/bin/sh\necho mine > ../../good.ive\nexec \"$@\"\n");
    fs::permissions(folder / "meddle", fs::perms::owner_all);

    const ToolResult result = convertInJobs(folder.path(), {"--launcher", folder / "meddle"});

    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.errorLines(),
                ElementsAre(EndsWith("/out/good.ive: exists already; pass --overwrite to replace it")));
    EXPECT_EQ(readBytes(folder / "out/good.ive"), "mine\n");
}

TEST(ConvertJobsTrouble, SaysThatAnOutputFolderIsNone) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, [](const fs::path& path) { writeFlight(path, 7); });
    writeBytes(folder / "out", "no folder");

    const ToolResult result = convertInJobs(folder.path());

    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errorLines(), ElementsAre(EndsWith("/out is not a folder")));
}

TEST(ConvertJobsTrouble, SaysThatNinjaIsMissing) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, [](const fs::path& path) { writeFlight(path, 7); });
    ToolSettings settings;
    settings.environment = {{"PATH", folder.path().string()}};

    const ToolResult result = convertInJobs(folder.path(), {}, settings);

    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.errors, "sceneutils: --jobs needs Ninja, which is not installed (Debian package ninja-build)\n");
}

TEST(ConvertJobsTrouble, StartsAfreshWhenItsStateIsDamaged) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, [](const fs::path& path) { writeFlight(path, 7); });
    convertInJobs(folder.path());
    const auto expected = outputsIn(folder / "out");
    for (const std::string& name : namesIn(folder / "out/.sceneutils/m.ive"))
        writeBytes(fs::path(folder / "out/.sceneutils/m.ive") / name, "x");

    EXPECT_EQ(convertInJobs(folder.path(), {"--overwrite"}).status, 0);

    expectSameOutputs(outputsIn(folder / "out"), expected);
}
