#include "convert/StateLock.h"
#include "support/JobConversions.h"
#include "support/ReferenceDatabases.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <set>
#include <sstream>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::string stateFolder = "out/.sceneutils/m.ive";

void writeTree(const TemporaryDirectory& folder) {
    writeFlight(folder / "in/master.flt", 20, {"a.flt", "b.flt"});
    writeFlight(folder / "in/a.flt", 16, {"c.flt"});
    writeFlight(folder / "in/b.flt", 12);
    writeFlight(folder / "in/c.flt", 8);
}

/** Refers to shared.flt, which takes its colours. */
void writeHandingOnColors(const fs::path& path, const std::string& colors) {
    FlightRecords records;
    records.record(FlightRecords::ColorPalette, FlightRecords::padded(colors, 4224)).push();
    records.reference("shared.flt", FlightRecords::parentsPalettes).pop().write(path);
}

ToolResult runIn(const TemporaryDirectory& folder, const std::vector<std::string>& arguments) {
    ToolSettings settings;
    settings.workingDirectory = folder.path();
    return runTool(arguments, settings);
}

/** Plans "in/master.flt" for "out/m.ive". */
ToolResult planIn(const TemporaryDirectory& folder, std::vector<std::string> options = {}) {
    options.insert(options.begin(), {"plan", "in/master.flt", "-o", "out/m.ive"});
    return runIn(folder, options);
}

/** What the conversion will work by: its jobs, palettes and Ninja's file. */
FolderState workIn(const TemporaryDirectory& folder) {
    FolderState work;
    for (const auto& [name, state] : stateOf(folder / stateFolder)) {
        const std::string ending = fs::path(name).extension().string();
        if (ending == ".job" || ending == ".flt" || ending == ".ninja") work[name] = state;
    }
    return work;
}

std::map<std::string, std::string> bytesOf(const FolderState& state) {
    std::map<std::string, std::string> bytes;
    for (const auto& [name, file] : state) bytes[name] = file.bytes;
    return bytes;
}

/** What `convert` begins with; its jobs fail at once. */
std::map<std::string, std::string> workOfConversion(const TemporaryDirectory& folder,
                                                    std::vector<std::string> options = {}) {
    fs::remove_all(folder / "out");
    options.insert(options.begin(), {"convert", "in/master.flt", "out/m.ive", "--recurse", "--launcher", "false"});
    EXPECT_EQ(runIn(folder, options).status, 5);
    const auto work = bytesOf(workIn(folder));
    fs::remove_all(folder / "out");
    return work;
}

/** Whether a process waits until nobody has a file to himself any more. */
bool awaitsFlock(int process) {
    std::istringstream locks(readBytes("/proc/locks"));
    const std::string reader = " READ " + std::to_string(process) + " ";
    for (std::string line; std::getline(locks, line);) {
        line.erase(std::unique(line.begin(), line.end(), [](char a, char b) { return a == ' ' && b == ' '; }),
                   line.end());
        if (line.find("-> FLOCK") != std::string::npos && line.find(reader) != std::string::npos) return true;
    }
    return false;
}

std::string helpOf(const std::string& command, const std::string& option) {
    const std::string help = runTool({command, "--help"}).output;
    const std::size_t begin = help.find("  " + option + " ");
    return begin == std::string::npos ? "none" : help.substr(begin, help.find("\n  --", begin) - begin);
}

}  // namespace

TEST(PlanConversion, WritesWhatAConversionInJobsBeginsWithAndConvertsNothing) {
    const TemporaryDirectory folder;
    writeTree(folder);
    const auto expected = workOfConversion(folder, {"--jobs", "3"});
    ASSERT_EQ(expected.size(), 5u);

    const ToolResult result = planIn(folder, {"--jobs", "3"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, AllOf(StartsWith("4 files, 4 to convert, 3 references, 2 levels, "),
                                     EndsWith(", plan: out/.sceneutils/m.ive/plan.json\n")));
    EXPECT_EQ(bytesOf(workIn(folder)), expected);
    EXPECT_EQ(namesIn(folder / stateFolder).size(), 8u);  // and plan.json, two locks
    EXPECT_TRUE(outputsIn(folder / "out").empty());
    EXPECT_EQ(readBytes(folder / (stateFolder + "/lock")), "");
}

TEST(PlanConversion, HasAJobForEachNameAndEachSetOfPalettesOfAFile) {
    const TemporaryDirectory folder;
    fileWith({"red.flt", "blue.flt", "a.flt", "b.flt"}).write(folder / "in/master.flt");
    writeHandingOnColors(folder / "in/red.flt", "red");
    writeHandingOnColors(folder / "in/blue.flt", "blue");
    fileWith({}).write(folder / "in/shared.flt");
    fileWith({}).write(folder / "in/a.flt");
    fs::create_symlink("a.flt", folder / "in/b.flt");
    const auto expected = workOfConversion(folder, {"--jobs", "1"});

    planIn(folder);

    std::multiset<std::string> endings;
    for (const auto& [name, state] : workIn(folder)) endings.insert(fs::path(name).extension().string());
    EXPECT_EQ(endings.count(".job"), 7u);
    EXPECT_EQ(endings.count(".flt"), 2u);
    EXPECT_EQ(bytesOf(workIn(folder)), expected);
    EXPECT_EQ(nlohmann::json::parse(readBytes(folder / (stateFolder + "/plan.json")))["files"].size(), 5u);
}

TEST(PlanConversion, PutsTheSamePlanIntoTheState) {
    const TemporaryDirectory folder;
    writeTree(folder);
    planIn(folder);
    runIn(folder, {"plan", "in/master.flt", "-o", "plan.json"});

    EXPECT_EQ(readBytes(folder / (stateFolder + "/plan.json")), readBytes(folder / "plan.json"));
}

TEST(PlanConversion, IsWhatTheConversionThenDoes) {
    const TemporaryDirectory folder;
    writeTree(folder);
    convertInJobs(folder.path());
    const auto expected = outputsIn(folder / "out");
    fs::remove_all(folder / "out");
    planIn(folder, {"--jobs", "2"});
    const FolderState planned = stateOf(folder / stateFolder);

    const ToolResult result = convertInJobs(folder.path());

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(countsIn(result), "4 files read, 4 converted, 0 failed, 0 textures missing");
    expectSameOutputs(outputsIn(folder / "out"), expected);
    for (const char* name : {"build.ninja", "plan.json"})
        EXPECT_EQ(stateOf(folder / stateFolder).at(name), planned.at(name)) << name;
}

TEST(PlanConversion, TakesTheOptionsThatDecideWhatComesOut) {
    const TemporaryDirectory folder;
    writeTree(folder);
    const auto plain = workOfConversion(folder, {"--jobs", "1"});
    for (const std::vector<std::string>& options :
         {std::vector<std::string>{"--max-range", "500"}, std::vector<std::string>{"--no-smooth"}}) {
        std::vector<std::string> withJobs = options;
        withJobs.insert(withJobs.end(), {"--jobs", "1"});
        const auto expected = workOfConversion(folder, withJobs);

        planIn(folder, options);

        EXPECT_EQ(bytesOf(workIn(folder)), expected) << options.front();
        EXPECT_NE(expected, plain) << options.front();
        fs::remove_all(folder / "out");
    }
}

TEST(PlanConversion, SharesTheseOptionsWithConvert) {
    for (const char* option : {"--max-range", "--no-smooth", "--overwrite"}) {
        EXPECT_NE(helpOf("plan", option), "none");
        EXPECT_EQ(helpOf("plan", option), helpOf("convert", option));
    }
    EXPECT_THAT(helpOf("plan", "--max-range"), HasSubstr("=10000 "));
}

TEST(PlanConversion, MakesNothingOutOfDate) {
    const TemporaryDirectory folder;
    writeTree(folder);
    convertInJobs(folder.path());
    const FolderState before = stateOf(folder / "out");

    EXPECT_EQ(planIn(folder, {"--max-range", "5"}).status, 0);
    EXPECT_EQ(planIn(folder, {"--jobs", "2"}).status, 0) << "the plan in the state is the tool's own";

    EXPECT_EQ(convertInJobs(folder.path()).status, 0);
    EXPECT_EQ(writtenSince(before, folder / "out"), std::set<std::string>());
}

TEST(PlanConversion, ReplacesOutputsOnlyIfAllowed) {
    const TemporaryDirectory folder;
    writeTree(folder);
    writeBytes(folder / "out/a.ive", "mine");

    const ToolResult refused = planIn(folder);

    EXPECT_EQ(refused.status, 4);
    EXPECT_EQ(refused.errors, "sceneutils: " + (fs::canonical(folder.path()) / "out/a.ive").string() +
                                  ": exists already; pass --overwrite to replace it\n");
    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"a.ive"}));
    EXPECT_EQ(planIn(folder, {"--overwrite"}).status, 0);
    EXPECT_EQ(readBytes(folder / "out/a.ive"), "mine");
}

TEST(PlanConversion, LeavesAnOutputThatAnotherRunIsAtWorkOn) {
    const TemporaryDirectory folder;
    writeTree(folder);
    const fs::path state = fs::canonical(folder.path()) / stateFolder;
    {
        const veltrane::sceneutils::tool::StateLock another(state);
        const ToolResult refused = planIn(folder, {"--slurm", "go.sh"});
        EXPECT_EQ(refused.status, 4);
        EXPECT_EQ(refused.errors, "sceneutils: " + state.string() + ": another run is converting into it\n");
    }
    EXPECT_EQ(namesIn(state), std::set<std::string>({"jobs-at-work", "lock"}));
    EXPECT_FALSE(fs::exists(folder / "go.sh"));
    EXPECT_EQ(planIn(folder, {"--slurm", "go.sh"}).status, 0);
}

TEST(PlanConversion, KeepsTheMarkOfARunThatWasKilled) {
    const TemporaryDirectory folder;
    writeTree(folder);
    writeBytes(folder / (stateFolder + "/lock"), "!");
    writeBytes(folder / "out/.a.ive.part-999999999", "half");

    planIn(folder);

    EXPECT_FALSE(fs::exists(folder / "out/.a.ive.part-999999999"));
    EXPECT_EQ(readBytes(folder / (stateFolder + "/lock")), "");
}

TEST(PlanConversion, TellsFindingsAndIsWrittenAllTheSame) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"gone.flt"});

    const ToolResult result = planIn(folder, {"--slurm", "go.sh"});

    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.errors, StartsWith("sceneutils: error: in/master.flt: 'gone.flt' at byte "));
    EXPECT_EQ(workIn(folder).size(), 2u);
    EXPECT_TRUE(fs::exists(folder / "go.sh"));
}

TEST(PlanConversion, WritesNothingWithoutASoundMaster) {
    const TemporaryDirectory folder;
    const ToolResult missing = planIn(folder, {"--slurm", "go.sh"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.errors, "sceneutils: in/master.flt: no such file\n");
    EXPECT_TRUE(namesIn(folder.path()).empty());
}

TEST(PlanConversion, TakesAFolderWithSuchANameForAFolder) {
    const TemporaryDirectory folder;
    writeTree(folder);
    fs::create_directory(folder / "odd.ive");

    EXPECT_THAT(runIn(folder, {"plan", "in/master.flt", "-o", "odd.ive"}).output,
                HasSubstr(", plan: odd.ive/plan.json\n"));
    EXPECT_EQ(namesIn(folder / "odd.ive"), std::set<std::string>({"plan.json"}));
}

TEST(PlanConversion, IsMeantByAnEndingInAnyLetterCase) {
    const TemporaryDirectory folder;
    writeTree(folder);

    EXPECT_EQ(runIn(folder, {"plan", "in/master.flt", "-o", "out/M.IVE"}).status, 0);
    EXPECT_TRUE(fs::exists(folder / "out/.sceneutils/M.IVE/build.ninja"));
}

TEST(PlanConversion, IsNeededByItsOptions) {
    const TemporaryDirectory folder;
    writeTree(folder);
    const std::vector<std::vector<std::string>> all = {
        {"--slurm", "go.sh"}, {"--jobs", "2"}, {"--max-range", "5"}, {"--no-smooth"}};
    for (std::vector<std::string> options : all) {
        const std::string name = options.front();
        options.insert(options.begin(), {"plan", "in/master.flt", "-o", "out"});
        const ToolResult result = runIn(folder, options);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.errors,
                  "sceneutils: " + name + " needs an output that ends in .ive: -o NAME.ive (see --help)\n");
    }
    EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST(PlanConversion, RefusesNumbersOfJobsThatConvertRefuses) {
    const TemporaryDirectory folder;
    writeTree(folder);
    for (const char* jobs : {"0", "1025", "x"}) EXPECT_EQ(planIn(folder, {"--jobs", jobs}).status, 1) << jobs;
    EXPECT_EQ(planIn(folder, {"--slurm", ""}).status, 1);
    EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST(JobLock, KeepsRunsOutUntilTheJobsOfAnEarlierOneHaveEnded) {
    const TemporaryDirectory folder;
    writeTree(folder);
    planIn(folder);
    const fs::path state = fs::canonical(folder.path()) / stateFolder;
    {
        const veltrane::sceneutils::tool::JobLock one(state);
        const veltrane::sceneutils::tool::JobLock two(state);
        const ToolResult refused = convertInJobs(folder.path());
        EXPECT_EQ(refused.status, 4);
        EXPECT_EQ(refused.errors,
                  "sceneutils: " + state.string() + ": jobs of an earlier run are still at work in it\n");
    }
    EXPECT_EQ(convertInJobs(folder.path()).status, 0);
}

TEST(JobLock, IsHeldByProcessesThatDoJobs) {
    const TemporaryDirectory folder;
    writeTree(folder);
    const veltrane::sceneutils::tool::JobLock none(folder.path());
    EXPECT_TRUE(namesIn(folder.path()).count("jobs-at-work") == 0) << "it makes no file";
    planIn(folder);
    const fs::path state = fs::canonical(folder.path()) / stateFolder;

    const std::string job = fs::path(workIn(folder).begin()->first).stem().string();
    const int file = open((state / "jobs-at-work").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(file, LOCK_EX), 0);

    ToolProcess process(SCENEUTILS_TOOL, {"convert-job", state.string(), job}, {});

    bool isAwaited = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (process.isRunning() && !isAwaited && std::chrono::steady_clock::now() < deadline)
        isAwaited = awaitsFlock(process.id());
    close(file);
    EXPECT_TRUE(isAwaited);
    EXPECT_EQ(process.wait().status, 0);
}
