#include "support/DiskFaults.h"
#include "support/JobConversions.h"
#include "support/PrivateMounts.h"
#include "support/TexturedModels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::AllOf;
using testing::AnyOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr std::size_t page = 4096;
constexpr std::size_t plenty = 64 << 20;

/** Four files, one of them in a folder of its own, and two textures. */
void writeDatabase(const fs::path& folder) {
    writeGrey(folder / "in/t.png", 100);
    writeGrey(folder / "in/sub/u.png", 150);
    writeFlight(folder / "in/master.flt", 20, {"a.flt", "sub/b.flt", "c.flt"});
    writeFlight(folder / "in/a.flt", *makeTextured("t.png"));
    writeFlight(folder / "in/sub/b.flt", *makeTextured("u.png"));
    writeFlight(folder / "in/c.flt", 8);
}

std::size_t pagesIn(const fs::path& folder) {
    std::size_t pages = 0;
    for (const auto& [name, state] : stateOf(folder)) pages += (state.bytes.size() + page - 1) / page;
    return pages;
}

/** Expects what is true of every run that cannot write all: it says so, a line for a file, and leaves no half. */
void expectToldOnce(const ToolResult& result) {
    EXPECT_THAT(result.status, AnyOf(4, 5));
    const std::vector<std::string> lines = result.errorLines();
    EXPECT_FALSE(lines.empty());
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), lines.size()) << result.errors;
    EXPECT_LE(lines.size(), 4u) << result.errors;
    for (const std::string& line : lines) EXPECT_THAT(line, StartsWith("sceneutils: "));
    EXPECT_TRUE(result.status == 5 || result.errors.find("No space left on device") != std::string::npos);
}

/** Expects that a disk that is full for files with that in their names is named so, and a later run completes. */
ToolResult runWithFull(const std::string& name, const std::vector<std::string>& more = {}) {
    const TemporaryDirectory folder;
    writeDatabase(folder.path());
    const auto expected = undisturbedOutputs(folder.path());
    const ToolResult result = convertInJobs(folder.path(), more, withDiskFaults({{"FULL", name}}));
    expectToldOnce(result);
    expectEveryTileWhole(folder / "out");
    expectPlainRunCompletes(folder.path(), expected);
    return result;
}

/** What a run has done to the disk: the lines of DiskFaults.cpp, without the folder. */
std::vector<std::string> diskLog(const TemporaryDirectory& folder) {
    const std::string root = fs::canonical(folder.path()).string() + "/";
    std::istringstream lines(readBytes(folder / "log"));
    std::vector<std::string> log;
    for (std::string line; std::getline(lines, line);) {
        for (std::size_t at; (at = line.find(root)) != std::string::npos;) line.erase(at, root.size());
        log.push_back(line);
    }
    return log;
}

/** Lets a folder become one that nobody can write into, for as long as the object lives. */
class ReadOnly {
public:
    explicit ReadOnly(const fs::path& folder) : _folder(folder) {
        if (_mounts.areAvailable()) {
            _mounts.makeReadOnly(folder);
        } else {
            fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
        }
    }
    ~ReadOnly() {
        if (!_mounts.areAvailable()) fs::permissions(_folder, fs::perms::owner_all);
    }
    ReadOnly(const ReadOnly&) = delete;
    ReadOnly& operator=(const ReadOnly&) = delete;

private:
    fs::path _folder;
    PrivateMounts _mounts;
};

/** Runs with a folder in which nothing can be written, after all inputs have changed; a later run completes. */
ToolResult runWithReadOnly(const std::string& name) {
    const TemporaryDirectory folder;
    writeDatabase(folder.path());
    convertInJobs(folder.path());
    const auto old = outputsIn(folder / "out");
    fs::rename(folder / "out", folder / "old");
    writeFlight(folder / "in/c.flt", 9);
    writeGrey(folder / "in/sub/u.png", 160);
    writeFlight(folder / "in/sub/b.flt", *makeTextured("u.png", 5));
    const auto expected = undisturbedOutputs(folder.path());
    fs::rename(folder / "old", folder / "out");
    ToolResult result;
    {
        const ReadOnly readOnly(folder / name);
        const FolderState before = stateOf(folder / name);
        result = convertInJobs(folder.path());
        EXPECT_EQ(stateOf(folder / name), before);
    }
    expectPlainRunCompletes(folder.path(), expected);
    return result;
}

}  // namespace

TEST(ConvertJobsDisk, MayBeFullAtAnyMoment) {
    const TemporaryDirectory folder;
    writeDatabase(folder.path());
    convertInJobs(folder.path());
    const std::size_t needed = pagesIn(folder / "out");
    const auto expected = undisturbedOutputs(folder.path());
    int failures = 0;
    for (std::size_t pages = 1; pages < needed + 4; pages += 3) {
        SCOPED_TRACE(std::to_string(pages) + " pages of " + std::to_string(needed));
        PrivateMounts mounts;
        ToolSettings settings;
        if (mounts.areAvailable()) {
            mounts.addDisk(folder / "out", pages * page);
        } else {
            settings.fileSizeLimit = pages * 100;
        }
        const ToolResult result = convertInJobs(folder.path(), {}, settings);
        if (result.status != 0) {
            expectToldOnce(result);
            ++failures;
        }
        expectEveryTileWhole(folder / "out");
        if (mounts.areAvailable()) mounts.resizeDisk(folder / "out", plenty);
        expectPlainRunCompletes(folder.path(), expected);
        for (const auto& entry : fs::directory_iterator(folder / "out")) fs::remove_all(entry.path());
    }
    EXPECT_GE(failures, 6);
}

TEST(ConvertJobsDisk, MayBeFullForATile) {
    const ToolResult result = runWithFull(".a.ive.part");
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.errorLines(),
                ElementsAre(EndsWith("/out/a.ive: not all of it could be written: No space left on device")));
}

TEST(ConvertJobsDisk, MayBeFullForTheMaster) {
    const ToolResult result = runWithFull(".m.ive.part");
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errorLines(),
                ElementsAre(EndsWith("/out/m.ive: not all of it could be written: No space left on device")));
}

TEST(ConvertJobsDisk, MayBeFullForATexture) {
    const ToolResult result = runWithFull(".u.png.part");
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.errorLines(),
                ElementsAre(EndsWith("/out/sub/u.png: not all of it could be written: No space left on device")));
}

TEST(ConvertJobsDisk, MayBeFullForWhatIsRememberedBeforeTheRun) {
    for (const char* name : {".job.part", ".build.ninja.part", "/lock"}) {
        const ToolResult result = runWithFull(name);
        EXPECT_EQ(result.status, 4);
        EXPECT_THAT(result.errorLines(), ElementsAre(EndsWith(": No space left on device")));
    }
}

TEST(ConvertJobsDisk, MayBeFullForWhatIsRememberedOfAFile) {
    for (const char* name : {".result.part", ".sphere.part", ".bound.part"}) {
        const ToolResult result = runWithFull(name);
        EXPECT_EQ(result.status, 5);
        EXPECT_THAT(result.errors, HasSubstr("sceneutils: a.flt (named by master.flt): "));
        EXPECT_THAT(result.errors, HasSubstr(std::string(name).substr(0, 4)));
        EXPECT_THAT(result.errors, HasSubstr(": not all of it could be written: No space left on device\n"));
        EXPECT_THAT(result.errors,
                    HasSubstr("sceneutils: master.flt: was not converted: its process, or that of a file "
                              "that it refers to, was ended\n"));
    }
    const ToolResult result = runWithFull(".intent");
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errors, HasSubstr("/out/a.ive: cannot be written: "));
}

TEST(ConvertJobsDisk, MayBeFullForTheReport) {
    const ToolResult result = runWithFull(".r.json.part", {"--report", "r.json"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.errors, "sceneutils: r.json: not all of it could be written: No space left on device\n");
    EXPECT_EQ(countsIn(result), "4 files read, 4 converted, 0 failed, 0 textures missing");
}

TEST(ConvertJobsDisk, MayBreakBeforeAnOutputIsOnIt) {
    const TemporaryDirectory folder;
    writeDatabase(folder.path());
    const auto expected = undisturbedOutputs(folder.path());

    const ToolResult result = convertInJobs(folder.path(), {}, withDiskFaults({{"BROKEN", ".a.ive.part"}}));

    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.errorLines(),
                ElementsAre(EndsWith("/out/a.ive: not all of it could be written: Input/output error")));
    EXPECT_FALSE(fs::exists(folder / "out/a.ive"));
    expectPlainRunCompletes(folder.path(), expected);
}

TEST(ConvertJobsDisk, HasEveryOutputBeforeItHasItsName) {
    const TemporaryDirectory folder;
    writeDatabase(folder.path());
    convertInJobs(folder.path(), {"--report", "r.json"}, withDiskFaults({{"LOG", folder / "log"}}));

    std::set<std::string> onDisk;
    std::set<std::string> named;
    for (const std::string& line : diskLog(folder)) {
        const std::size_t bar = line.find('|');
        if (line.compare(0, 5, "sync ") == 0) onDisk.insert(line.substr(5));
        if (line.compare(0, 7, "rename ") != 0 || line.find(".sceneutils/") != std::string::npos) continue;
        EXPECT_EQ(onDisk.count(line.substr(7, bar - 7)), 1u) << line;
        named.insert(line.substr(bar + 1));
    }
    EXPECT_EQ(named, std::set<std::string>({"out/a.ive", "out/sub/b.ive", "out/c.ive", "out/m.ive", "out/t.png",
                                            "out/sub/u.png", "r.json"}));
}

TEST(ConvertJobsDisk, KnowsWhoseAnOutputIsBeforeThatHasItsNameAndThatItIsDoneAfterwards) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20);
    convertInJobs(folder.path(), {"--jobs", "1"}, withDiskFaults({{"LOG", folder / "log"}}));

    std::vector<std::string> order;
    for (const std::string& line : diskLog(folder)) {
        const bool isRename = line.compare(0, 7, "rename ") == 0;
        const fs::path file = isRename ? line.substr(line.find('|') + 1) : line.substr(line.find(' ') + 1);
        const std::string ending = file.filename() == "lock" ? "lock" : file.extension().string();
        order.push_back((isRename ? "name " : "sync ") + ending.substr(0, ending.find("-")));
    }
    EXPECT_THAT(order, ElementsAre("sync lock", "name .job", "name .ninja", "sync .part", "sync .intent", "name .ive",
                                   "name .result", "name .bound", "name .sphere", "name .finished"));
}

TEST(ConvertJobsDisk, SaysWhoseTheOutputsAreWheneverAProcessIsKilled) {
    for (const char* name : {"/a.ive", ".result", ".bound", ".sphere", "/sub/u.png"}) {
        SCOPED_TRACE(name);
        const TemporaryDirectory folder;
        writeDatabase(folder.path());
        convertInJobs(folder.path());
        fs::rename(folder / "out", folder / "old");
        writeFlight(folder / "in/c.flt", 9);
        const bool losesResults = std::string(name) == "/a.ive";
        writeFlight(folder / "in/a.flt", *makeTextured("t.png", 6));
        if (!losesResults) writeGrey(folder / "in/sub/u.png", 200);
        const auto expected = undisturbedOutputs(folder.path());
        fs::rename(folder / "old", folder / "out");
        // As if the run before had been killed too, before it could say what it had done.
        for (const std::string& file : namesIn(folder / "out/.sceneutils/m.ive")) {
            if (losesResults && fs::path(file).extension() == ".result")
                fs::remove(fs::path(folder / "out/.sceneutils/m.ive") / file);
        }

        EXPECT_EQ(convertInJobs(folder.path(), {}, withDiskFaults({{"KILL", name}})).status, 5);
        expectPlainRunCompletes(folder.path(), expected);
    }
}

TEST(ConvertJobsDisk, MayBeReadOnly) {
    const ToolResult result = runWithReadOnly("out");
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errorLines(), ElementsAre(HasSubstr(": cannot be written: ")));
}

TEST(ConvertJobsDisk, MayBeReadOnlyWhereTheStateIs) {
    const ToolResult result = runWithReadOnly("out/.sceneutils/m.ive");
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errorLines(), ElementsAre(AllOf(StartsWith("sceneutils: "), HasSubstr("/.sceneutils/m.ive"),
                                                       HasSubstr(": cannot be written: "))));
}

TEST(ConvertJobsDisk, MayBeReadOnlyInAFolderOfTheOutput) {
    const ToolResult result = runWithReadOnly("out/sub");
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errorLines(), ElementsAre(HasSubstr("/out/sub/b.ive: cannot be written: ")));
}
