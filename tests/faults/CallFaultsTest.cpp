// What becomes of a conversion when the system refuses a call: any call.

#include "sample/SampleDatabase.h"
#include "support/CallFaults.h"
#include "support/JobConversions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::AnyOf;
using testing::StartsWith;

namespace {

using Outputs = std::map<std::string, std::string>;
using Names = std::set<std::string>;

const std::vector<std::string> waysToFail = {"alloc once", "alloc ever", "large once", "map once",    "map ever",
                                             "read once",  "read ever",  "write once", "write ever",  "open once",
                                             "open ever",  "close once", "sync once",  "rename once", "folder once",
                                             "fork once",  "pipe once"};

std::string asTestName(const testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    name.replace(name.find(' '), 1, 1, '_');
    return name;
}

void writeSample(const fs::path& folder) {
    veltrane::sceneutils::tool::SampleOptions options;
    options.tiles = 2;
    options.levels = 1;
    options.textures = 2;
    veltrane::sceneutils::tool::writeSampleDatabase(folder, options);
}

/** A sample database and what a conversion of it makes when nothing fails. */
class Conversion {
public:
    explicit Conversion(bool isInJobs) : _isInJobs(isInJobs) {
        writeSample(_folder / "in");
        expected = outputsOfNow(0);
    }

    ToolResult run(const ToolSettings& faults = {}, const std::vector<std::string>& more = {}) {
        ToolSettings settings = faults;
        settings.workingDirectory = _folder.path();
        std::vector<std::string> arguments = {"convert", "in/master.flt", "out/m.ive", "--recurse"};
        if (_isInJobs) arguments.insert(arguments.end(), {"--jobs", "1"});
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runTool(arguments, settings);
    }

    /** What is there without those inputs: references to them stay as they are. */
    Outputs expectedWithout(const Names& failed) {
        auto [known, isNew] = _expectedWithout.try_emplace(failed);
        if (!isNew) return known->second;
        const fs::path moved = _folder / "in-failed";
        const fs::path out = _folder / "out-failed";
        fs::rename(_folder / "out", out);
        fs::copy(_folder / "in", moved, fs::copy_options::recursive);
        for (const std::string& name : failed) fs::remove(fs::path(_folder / "in") / name);
        known->second = outputsOfNow(failed.empty() ? 0 : 5);
        fs::remove_all(_folder / "in");
        fs::rename(moved, _folder / "in");
        fs::rename(out, _folder / "out");
        return known->second;
    }

    /** The inputs that have not been converted, the master left out. */
    Names failed() const {
        Names failed;
        const Outputs made = outputs();
        for (const auto& [name, content] : expected) {
            const bool isMissing = fs::path(name).extension() == ".ive" && name != "m.ive" && made.count(name) == 0;
            if (isMissing) failed.insert(fs::path(name).replace_extension(".flt").string());
        }
        return failed;
    }

    Outputs outputs() const { return outputsIn(_folder / "out"); }
    fs::path folder() const { return _folder.path(); }
    void clear() const { fs::remove_all(_folder / "out"); }

    void expectRerunCompletes() {
        const ToolResult again =
            run({}, _isInJobs ? std::vector<std::string>() : std::vector<std::string>{"--overwrite"});
        EXPECT_EQ(again.status, 0);
        EXPECT_EQ(again.errors, "");
        expectSameOutputs(outputs(), expected);
        if (_isInJobs) expectPlainRunCompletes(_folder.path(), expected);
    }

    Outputs expected;

private:
    Outputs outputsOfNow(int status) {
        EXPECT_EQ(run().status, status);
        const Outputs made = outputs();
        clear();
        return made;
    }

    TemporaryDirectory _folder;
    bool _isInJobs;
    std::map<Names, Outputs> _expectedWithout;
};

bool isSame(const std::string& content, const Outputs& outputs, const std::string& name) {
    const auto same = outputs.find(name);
    if (same == outputs.end()) return false;
    return content == same->second || !veltrane::sceneutils::tool::canOrderObjectsByAge();
}

/** Expects that a run ended by itself, and said what is wrong if anything is. */
void expectTold(const ToolResult& result) {
    EXPECT_FALSE(result.timedOut);
    EXPECT_FALSE(result.leftProcesses);
    EXPECT_EQ(result.signal, 0);
    EXPECT_THAT(result.status, AnyOf(0, 2, 3, 4, 5));
    const std::vector<std::string> lines = result.errorLines();
    EXPECT_EQ(lines.empty(), result.status == 0) << result.errors;
    EXPECT_LE(lines.size(), 5u) << result.errors;
    for (const std::string& line : lines) EXPECT_THAT(line, StartsWith("sceneutils: "));
}

/** Expects that what has its name has its whole content: what it has if nothing fails, or if those files do. */
void expectWhole(Conversion& conversion, const ToolResult& result) {
    const Outputs outputs = conversion.outputs();
    if (result.status == 0) return expectSameOutputs(outputs, conversion.expected);
    const Names failed = conversion.failed();
    for (const auto& [name, content] : outputs) {
        EXPECT_EQ(name.find(".part-"), std::string::npos) << name;
        if (isSame(content, conversion.expected, name)) continue;
        const bool isWithoutThose = result.status == 5 && isSame(content, conversion.expectedWithout(failed), name);
        EXPECT_TRUE(isWithoutThose) << name << "\n" << result.errors;
    }
}

void tryFault(Conversion& conversion, const std::string& fault, CallFaults& faults) {
    SCOPED_TRACE(fault);
    const ToolResult result = conversion.run(faults.settings(fault));
    SCOPED_TRACE("status " + std::to_string(result.status) + "\n" + result.errors);
    expectTold(result);
    expectWhole(conversion, result);
    conversion.expectRerunCompletes();
    conversion.clear();
}

void tryFaults(bool isInJobs, const std::string& way) {
    Conversion conversion(isInJobs);
    CallFaults faults;
    const std::string kind = way.substr(0, way.find(' '));
    ASSERT_EQ(conversion.run(faults.settings(kind + " once 0")).status, 0);
    conversion.clear();
    const std::uint64_t calls = faults.count();
    ASSERT_GT(calls, 0u) << way;
    for (const std::uint64_t number : someUpTo(calls)) tryFault(conversion, way + " " + std::to_string(number), faults);
}

void tryHalves(bool isInJobs, const std::string& kind) {
    Conversion conversion(isInJobs);
    CallFaults faults;
    const ToolResult result = conversion.run(faults.settings(kind + " short 1"));
    EXPECT_GT(faults.count(), 0u);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    expectSameOutputs(conversion.outputs(), conversion.expected);
}

/** A command that makes one file of another. */
struct FileCommand {
    std::vector<std::string> words;
    std::string output;
};

ToolResult runIn(const fs::path& folder, const FileCommand& command, ToolSettings settings = {}) {
    settings.workingDirectory = folder;
    return runTool(command.words, settings);
}

/** Expects that the output is there as it should be, or not at all, and that it can be made afterwards. */
void tryFileFault(const fs::path& folder, const FileCommand& command, const std::string& fault, CallFaults& faults,
                  const std::string& expected) {
    SCOPED_TRACE(fault);
    const ToolResult result = runIn(folder, command, faults.settings(fault));
    SCOPED_TRACE("status " + std::to_string(result.status) + "\n" + result.errors);
    expectTold(result);
    expectNoPartialFiles(folder);
    EXPECT_EQ(fs::exists(folder / command.output), result.status == 0);
    if (result.status == 0) {
        EXPECT_EQ(textOf(folder / command.output), expected);
    }
    fs::remove(folder / command.output);
    EXPECT_EQ(runIn(folder, command).status, 0);
    EXPECT_EQ(textOf(folder / command.output), expected);
    fs::remove(folder / command.output);
}

void tryFileFaults(const FileCommand& command, const std::string& way) {
    const TemporaryDirectory folder;
    writeSample(folder / "in");
    CallFaults faults;
    const std::string kind = way.substr(0, way.find(' '));
    ASSERT_EQ(runIn(folder.path(), command, faults.settings(kind + " once 0")).status, 0);
    const std::uint64_t calls = faults.count();
    const std::string expected = textOf(folder / command.output);
    fs::remove(folder / command.output);
    for (const std::uint64_t number : someUpTo(calls))
        tryFileFault(folder.path(), command, way + " " + std::to_string(number), faults, expected);
}

class CallFaultsInOrder : public testing::TestWithParam<std::string> {};
class CallFaultsInJobs : public testing::TestWithParam<std::string> {};
class CallFaultsInCommands : public testing::TestWithParam<std::string> {};

}  // namespace

TEST_P(CallFaultsInOrder, AreToldAndLeaveNothingHalfDone) {
    tryFaults(false, GetParam());
}

TEST_P(CallFaultsInJobs, AreToldAndLeaveNothingHalfDone) {
    tryFaults(true, GetParam());
}

TEST_P(CallFaultsInCommands, AreToldAndLeaveNothingHalfDone) {
    tryFileFaults({{"optimize", "in/master.flt", "optimized.ive"}, "optimized.ive"}, GetParam());
    tryFileFaults({{"export", "in/master.flt", "exported.osgt"}, "exported.osgt"}, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Conversion, CallFaultsInOrder, testing::ValuesIn(waysToFail), asTestName);
INSTANTIATE_TEST_SUITE_P(Conversion, CallFaultsInJobs, testing::ValuesIn(waysToFail), asTestName);
INSTANTIATE_TEST_SUITE_P(OneFile, CallFaultsInCommands, testing::ValuesIn(waysToFail), asTestName);

TEST(CallFaults, OfReadingAndWritingOnlyInPartChangeNothing) {
    for (const bool isInJobs : {false, true}) {
        for (const char* kind : {"read", "write"}) tryHalves(isInJobs, kind);
    }
}

TEST(CallFaults, OfCopyingATextureAreToldWhicheverItIs) {
    Conversion conversion(false);
    CallFaults faults;
    for (int number = 1; number <= 4; ++number) tryFault(conversion, "write once " + std::to_string(number), faults);
    for (int number = 14; number <= 17; ++number) tryFault(conversion, "open once " + std::to_string(number), faults);
}

TEST(CallFaults, OfMemoryAreToldWithTheFileThatNeedsItIfThereIsOne) {
    Conversion conversion(false);
    CallFaults faults;

    const ToolResult atOnce = conversion.run(faults.settings("alloc ever 1"));
    EXPECT_EQ(atOnce.status, 4);
    EXPECT_EQ(atOnce.errors, "sceneutils: ran out of memory\n");
    const ToolResult ofAFile = conversion.run(faults.settings("map once 1"));
    EXPECT_EQ(ofAFile.status, 2);
    EXPECT_EQ(ofAFile.errors, "sceneutils: master.flt: ran out of memory while being read\n");
    const ToolResult ofACommand = runIn(conversion.folder(), {{"optimize", "in/master.flt", "optimized.ive"}, ""},
                                        faults.settings("large once 1"));
    EXPECT_EQ(ofACommand.status, 2);
    EXPECT_EQ(ofACommand.errors, "sceneutils: in/master.flt: ran out of memory\n");
}
