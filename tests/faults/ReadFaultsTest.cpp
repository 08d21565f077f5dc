// What is said of a disk that fails while OpenSceneGraph reads from it, which takes that for the end of the file.

#include "files/CheckedReading.h"
#include "support/DiskFaults.h"
#include "support/JobConversions.h"
#include "support/TexturedModels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using testing::ElementsAre;

namespace {

void writeDatabase(const fs::path& folder) {
    writeGrey(folder / "in/t.png", 100);
    writeFlight(folder / "in/master.flt", 20, {"a.flt", "b.flt"});
    writeFlight(folder / "in/a.flt", *makeTextured("t.png"));
    writeFlight(folder / "in/b.flt", 8);
}

/** The line about a.flt, the only file that fails while another cannot be read; then all can be converted. */
std::string lineFor(const std::string& unreadable, bool isInJobs) {
    const TemporaryDirectory folder;
    writeDatabase(folder.path());
    writeBytes(folder / "in/t.png.attr", std::string(500, '\0'));
    const std::vector<std::string> words = {"in/master.flt", "out/m.ive", "--recurse"};
    const ToolSettings settings = withDiskFaults({{"BADSECTOR", unreadable}});
    const ToolResult result =
        isInJobs ? convertInJobs(folder.path(), {}, settings) : convertIn(folder.path(), words, settings);

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(countsIn(result), "2 files read, 2 converted, 1 failed, 0 textures missing");
    EXPECT_FALSE(fs::exists(folder / "out/a.ive"));
    EXPECT_THAT(references(load(folder / "out/m.ive")), ElementsAre("a.flt"));
    if (isInJobs) {
        EXPECT_EQ(convertInJobs(folder.path()).status, 0);
    }
    return result.errors;
}

ToolResult runBadly(const TemporaryDirectory& folder, const std::vector<std::string>& words,
                    const std::string& unreadable) {
    ToolSettings settings = withDiskFaults({{"BADSECTOR", unreadable}});
    settings.workingDirectory = folder.path();
    return runTool(words, settings);
}

}  // namespace

TEST(ReadFaults, OfAConvertedFileAreItsFailure) {
    for (const bool isInJobs : {false, true})
        EXPECT_EQ(lineFor("/a.flt", isInJobs), "sceneutils: a.flt (named by master.flt): Input/output error\n");
}

TEST(ReadFaults, OfATextureAreTheFailureOfTheFileThatUsesIt) {
    for (const bool isInJobs : {false, true}) {
        EXPECT_EQ(lineFor("/t.png", isInJobs), "sceneutils: a.flt (named by master.flt): t.png: Input/output error\n");
    }
}

TEST(ReadFaults, OfATexturesAttributesAreTheFailureOfTheFileThatUsesIt) {
    for (const bool isInJobs : {false, true}) {
        EXPECT_EQ(lineFor("/t.png.attr", isInJobs),
                  "sceneutils: a.flt (named by master.flt): t.png.attr: Input/output error\n");
    }
}

TEST(ReadFaults, OfTheMasterLeaveNothing) {
    const TemporaryDirectory folder;
    writeDatabase(folder.path());
    const ToolResult result = runBadly(folder, {"convert", "in/master.flt", "out/m.ive", "--recurse"}, "/master.flt");

    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.errors, "sceneutils: master.flt: Input/output error\n");
    EXPECT_FALSE(fs::exists(folder / "out/m.ive"));
}

TEST(ReadFaults, OfWhatAJobRemembersAreToldWithItsName) {
    const TemporaryDirectory folder;
    writeDatabase(folder.path());
    EXPECT_EQ(convertInJobs(folder.path()).status, 0);
    writeFlight(folder / "in/b.flt", 9);
    const FolderState before = quietStateOf(folder / "out");

    const ToolResult result = convertInJobs(folder.path(), {}, withDiskFaults({{"BADSECTOR", ".result"}}));

    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errorLines(), ElementsAre(testing::ContainsRegex(
                                         "^sceneutils: .*/out/.sceneutils/m.ive/[0-9a-f]*.result: cannot be read: "
                                         "Input/output error$")));
    EXPECT_EQ(quietStateOf(folder / "out"), before);
    EXPECT_EQ(convertInJobs(folder.path()).status, 0);
}

TEST(ReadFaults, OfAGraphOrWhatItNeedsAreToldByTheOtherCommands) {
    for (const char* unreadable : {"/master.flt", "/a.flt", "/t.png"}) {
        const TemporaryDirectory folder;
        writeDatabase(folder.path());
        const ToolResult result = runBadly(folder, {"export", "in/master.flt", "out.osgt"}, unreadable);

        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.errorLines().size(), 1u);
        EXPECT_THAT(result.errors, testing::HasSubstr("in" + std::string(unreadable) + ": Input/output error\n"));
        EXPECT_FALSE(fs::exists(folder / "out.osgt"));
    }
}

TEST(ReadFaults, OfAGraphOfAnotherFormatAreTold) {
    const TemporaryDirectory folder;
    writeDatabase(folder.path());
    for (const char* name : {"a.ive", "a.osg", "a.osgb"}) {
        ToolSettings settings;
        settings.workingDirectory = folder.path();
        EXPECT_EQ(runTool({"export", "in/a.flt", name}, settings).status, 0);
        const ToolResult result = runBadly(folder, {"export", name, "out.osgt"}, std::string("/") + name);

        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.errors, "sceneutils: " + std::string(name) + ": Input/output error\n");
    }
}

TEST(ReadFaults, OfAttributesThatMayHaveNoEndAreNone) {
    for (const bool isInJobs : {false, true}) {
        const TemporaryDirectory folder;
        writeDatabase(folder.path());
        fs::remove(folder / "in/t.png.attr");
        fs::create_symlink("/dev/zero", folder / "in/t.png.attr");
        const std::vector<std::string> words = {"in/master.flt", "out/m.ive", "--recurse"};
        const ToolResult result = isInJobs ? convertInJobs(folder.path()) : convertIn(folder.path(), words);

        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(countsIn(result), "3 files read, 3 converted, 0 failed, 1 texture missing");
        EXPECT_EQ(result.errors, "sceneutils: a.flt: texture t.png.attr is missing or unreadable\n");
    }
}

TEST(CheckedReading, OpensNoDeviceAndNoPipe) {
    const TemporaryDirectory folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);

    EXPECT_EQ(readThrough(folder / "pipe"), ENXIO);
    EXPECT_EQ(readThrough("/dev/zero"), ENXIO);
    EXPECT_FALSE(isSystemError(ENXIO));
}

TEST(CheckedReading, TellsFilesThatAreNotThereFromASystemThatFails) {
    const TemporaryDirectory folder;
    writeBytes(folder / "file", std::string(200000, 'x'));

    EXPECT_EQ(readThrough(folder / "file"), 0);
    EXPECT_EQ(readThrough(folder / "none"), ENOENT);
    EXPECT_EQ(readThrough(folder.path()), EISDIR);
    EXPECT_EQ(readThrough("/proc/self/mem"), EIO);
    for (const int error : {0, ENOENT, ENOTDIR, EACCES, EISDIR}) EXPECT_FALSE(isSystemError(error)) << error;
    for (const int error : {EIO, ENOMEM, EMFILE, ENFILE, ESTALE}) EXPECT_TRUE(isSystemError(error)) << error;
}
