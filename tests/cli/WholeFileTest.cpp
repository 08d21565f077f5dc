#include "convert/ChildProcess.h"
#include "files/WholeFile.h"
#include "support/FlightRecords.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace fs = std::filesystem;

namespace {

std::vector<std::string> namesIn(const TemporaryDirectory& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder.path())) names.push_back(entry.path().filename().string());
    return names;
}

/** What the failure of an action says; empty if it succeeds. */
template <typename Action>
std::string failureOf(const Action& action) {
    try {
        action();
        return {};
    } catch (const OutputError& error) {
        return error.what();
    }
}

std::string failureToWrite(const fs::path& path, bool mayOverwrite = false) {
    return failureOf([&] {
        WholeFile file(path, mayOverwrite);
        file.stream() << "content";
        file.commit();
    });
}

std::string failureToCheck(const fs::path& path, bool mayOverwrite = false) {
    return failureOf([&] { checkOutputPath(path, mayOverwrite); });
}

/** What failureToWrite-like work says in a process that may write files of up to `bytes` only. */
std::string failureWithFileSizeLimit(rlim_t bytes, const std::function<void()>& work) {
    std::string failure = "nothing was reported";
    const auto limited = [&](const MessageSender& parent) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {bytes, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        parent.send(failureOf(work));
    };
    runInChild(60, limited, [&](const std::string& message) { failure = message; });
    return failure;
}

}  // namespace

TEST(WholeFile, NeverReplacesWhatIsNoFile) {
    const TemporaryDirectory folder;
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

    for (const bool mayOverwrite : {false, true}) {
        EXPECT_EQ(failureToCheck(pipe, mayOverwrite), pipe + ": is neither a file nor a folder");
        EXPECT_EQ(failureToWrite(pipe, mayOverwrite), pipe + ": is neither a file nor a folder");
    }
    EXPECT_TRUE(fs::is_fifo(pipe));
}

TEST(WholeFile, IsInItsPlaceWithAllItsBytesAfterCommit) {
    const TemporaryDirectory folder;
    const std::string content("some\0bytes\n\r\xff", 13);
    WholeFile file(folder / "a.ive", false);
    file.stream() << content;
    EXPECT_EQ(file.commit(), 13u);
    EXPECT_EQ(loadBytes(folder / "a.ive"), content);
    EXPECT_THAT(namesIn(folder), ElementsAre("a.ive"));
}

TEST(WholeFile, MayBeEmptyOrLarge) {
    const TemporaryDirectory folder;
    EXPECT_EQ(WholeFile(folder / "empty", false).commit(), 0u);
    const std::string content(3'000'001, 'x');
    WholeFile file(folder / "large", false);
    file.stream() << content;
    EXPECT_EQ(file.commit(), 3'000'001u);
    EXPECT_EQ(loadBytes(folder / "empty"), "");
    EXPECT_TRUE(loadBytes(folder / "large") == content);
}

TEST(WholeFile, LiesUnderATemporaryNameUntilCommit) {
    const TemporaryDirectory folder;
    WholeFile file(folder / "a.ive", false);
    EXPECT_THAT(namesIn(folder), ElementsAre(".a.ive.part-" + std::to_string(getpid())));
    file.commit();
    EXPECT_THAT(namesIn(folder), ElementsAre("a.ive"));
}

TEST(WholeFile, HasATemporaryNameBesideItsPlace) {
    EXPECT_EQ(WholeFile::temporaryPath("/db/tiles/a.ive", 42), "/db/tiles/.a.ive.part-42");
    EXPECT_EQ(WholeFile::temporaryPath("a.ive", 7), ".a.ive.part-7");
}

TEST(WholeFile, LeavesNothingWithoutCommit) {
    const TemporaryDirectory folder;
    { WholeFile(folder / "a.ive", false).stream() << "half of it"; }
    EXPECT_THAT(namesIn(folder), IsEmpty());
}

TEST(WholeFile, LeavesNothingAfterAnException) {
    const TemporaryDirectory folder;
    try {
        WholeFile file(folder / "a.ive", false);
        file.stream() << "half of it" << std::flush;
        throw std::runtime_error("something else failed");
    } catch (const std::runtime_error&) {
    }
    EXPECT_THAT(namesIn(folder), IsEmpty());
}

TEST(WholeFile, KeepsWhatExistsWithoutCommitEvenIfItMayBeOverwritten) {
    const TemporaryDirectory folder;
    saveBytes(folder / "a.ive", "theirs");
    { WholeFile(folder / "a.ive", true).stream() << "half of it"; }
    EXPECT_EQ(loadBytes(folder / "a.ive"), "theirs");
    EXPECT_THAT(namesIn(folder), ElementsAre("a.ive"));
}

TEST(WholeFile, IsRefusedWhereAFileExists) {
    const TemporaryDirectory folder;
    const std::string path = folder / "a.ive";
    saveBytes(path, "theirs");
    EXPECT_EQ(failureToWrite(path), path + ": exists already; pass --overwrite to replace it");
    EXPECT_EQ(failureToCheck(path), path + ": exists already; pass --overwrite to replace it");
    EXPECT_EQ(failureToCheck(path, true), "");
    EXPECT_EQ(failureToCheck(folder / "b.ive"), "");
    EXPECT_EQ(loadBytes(path), "theirs");
    EXPECT_THAT(namesIn(folder), ElementsAre("a.ive"));
}

TEST(WholeFile, OverwritesNothingThatAppearsWhileItIsWritten) {
    const TemporaryDirectory folder;
    const std::string path = folder / "a.ive";
    {
        WholeFile file(path, false);
        file.stream() << "ours";
        saveBytes(path, "theirs");
        EXPECT_EQ(failureOf([&] { file.commit(); }), path + ": cannot be written: File exists");
    }
    EXPECT_EQ(loadBytes(path), "theirs");
    EXPECT_THAT(namesIn(folder), ElementsAre("a.ive"));
}

TEST(WholeFile, ReplacesAFileAtOnce) {
    const TemporaryDirectory folder;
    saveBytes(folder / "a.ive", "theirs");
    std::ifstream reader(folder / "a.ive");
    WholeFile file(folder / "a.ive", true);
    file.stream() << "ours" << std::flush;
    EXPECT_EQ(loadBytes(folder / "a.ive"), "theirs");
    EXPECT_EQ(file.commit(), 4u);
    EXPECT_EQ(loadBytes(folder / "a.ive"), "ours");
    // Who has opened the old file goes on reading the old file.
    std::string seen;
    reader >> seen;
    EXPECT_EQ(seen, "theirs");
    EXPECT_THAT(namesIn(folder), ElementsAre("a.ive"));
}

TEST(WholeFile, IsRefusedWhereAFolderIs) {
    const TemporaryDirectory folder;
    const std::string path = folder / "a.ive";
    fs::create_directory(path);
    fs::create_directory_symlink("a.ive", folder / "link.ive");
    for (const bool mayOverwrite : {false, true}) {
        EXPECT_EQ(failureToWrite(path, mayOverwrite), path + ": is a folder");
        EXPECT_EQ(failureToCheck(path, mayOverwrite), path + ": is a folder");
        EXPECT_EQ(failureToCheck(folder / "link.ive", mayOverwrite), folder / "link.ive" + ": is a folder");
    }
}

TEST(WholeFile, MakesMissingFolders) {
    const TemporaryDirectory folder;
    EXPECT_EQ(failureToWrite(folder / "tiles/r1/a.ive"), "");
    EXPECT_EQ(loadBytes(folder / "tiles/r1/a.ive"), "content");
}

TEST(WholeFile, IsWrittenIntoTheWorkingDirectoryWithoutAFolderInItsName) {
    const TemporaryDirectory folder;
    const WorkingDirectory workingDirectory(folder.path());
    EXPECT_EQ(failureToWrite("a.ive"), "");
    EXPECT_THAT(namesIn(folder), ElementsAre("a.ive"));
}

TEST(WholeFile, CannotLieBelowAFile) {
    const TemporaryDirectory folder;
    saveBytes(folder / "file", "theirs");
    EXPECT_EQ(failureToWrite(folder / "file/a.ive"), folder / "file/a.ive: " + folder / "file is not a folder");
    EXPECT_EQ(failureToWrite(folder / "file/tiles/a.ive", true),
              folder / "file/tiles/a.ive: " + folder / "file is not a folder");
    EXPECT_EQ(loadBytes(folder / "file"), "theirs");
}

TEST(WholeFile, CannotLieInAFolderThatTakesNoFiles) {
    EXPECT_EQ(failureToWrite("/proc/a.ive"), "/proc/a.ive: cannot be written: No such file or directory");
}

TEST(WholeFile, CannotHaveATooLongName) {
    const TemporaryDirectory folder;
    const std::string path = folder / std::string(300, 'n');
    EXPECT_EQ(failureToWrite(path), path + ": cannot be written: File name too long");
}

TEST(WholeFile, IsRefusedWhereALinkLeadsNowhere) {
    const TemporaryDirectory folder;
    const std::string path = folder / "a.ive";
    fs::create_symlink("none", path);
    EXPECT_EQ(failureToWrite(path), path + ": exists already; pass --overwrite to replace it");
    EXPECT_TRUE(fs::is_symlink(path));
}

TEST(WholeFile, ReplacesALinkAndNotWhatItLeadsTo) {
    const TemporaryDirectory folder;
    saveBytes(folder / "theirs", "theirs");
    fs::create_symlink("theirs", folder / "a.ive");
    fs::create_symlink("none", folder / "b.ive");
    EXPECT_EQ(failureToWrite(folder / "a.ive", true), "");
    EXPECT_EQ(failureToWrite(folder / "b.ive", true), "");
    EXPECT_FALSE(fs::is_symlink(folder / "a.ive"));
    EXPECT_EQ(loadBytes(folder / "a.ive"), "content");
    EXPECT_EQ(loadBytes(folder / "theirs"), "theirs");
    EXPECT_THAT(namesIn(folder), UnorderedElementsAre("a.ive", "b.ive", "theirs"));
}

TEST(WholeFile, SaysWhyNotAllOfItCouldBeWritten) {
    const TemporaryDirectory folder;
    const std::string path = folder / "a.ive";
    const auto writing = [&](std::size_t bytes, bool flushed) {
        return failureWithFileSizeLimit(10'000, [&] {
            WholeFile file(path, false);
            file.stream() << std::string(bytes, 'x');
            if (flushed) file.stream().flush();
            file.commit();
        });
    };
    for (const bool flushed : {false, true}) {
        EXPECT_EQ(writing(10'000, flushed), "");
        fs::remove(path);
        EXPECT_EQ(writing(10'001, flushed), path + ": not all of it could be written: File too large");
        EXPECT_EQ(writing(1'000'000, flushed), path + ": not all of it could be written: File too large");
        EXPECT_THAT(namesIn(folder), IsEmpty());
    }
}

TEST(WholeFile, SaysWhyNotAllOfManySmallPiecesCouldBeWritten) {
    const TemporaryDirectory folder;
    const std::string path = folder / "a.ive";
    const std::string failure = failureWithFileSizeLimit(100'000, [&] {
        WholeFile file(path, false);
        for (int i = 0; i < 100'000; ++i) file.stream() << "piece";
        file.stream().flush();
        file.commit();
    });
    EXPECT_EQ(failure, path + ": not all of it could be written: File too large");
    EXPECT_THAT(namesIn(folder), IsEmpty());
}

TEST(WholeFile, KeepsWhatExistsWhenNotAllOfItCouldBeWritten) {
    const TemporaryDirectory folder;
    saveBytes(folder / "a.ive", "theirs");
    const std::string failure = failureWithFileSizeLimit(10, [&] {
        WholeFile file(folder / "a.ive", true);
        file.stream() << "more than ten bytes";
        file.commit();
    });
    EXPECT_EQ(failure, folder / "a.ive: not all of it could be written: File too large");
    EXPECT_EQ(loadBytes(folder / "a.ive"), "theirs");
    EXPECT_THAT(namesIn(folder), ElementsAre("a.ive"));
}

TEST(WholeFile, FailsToCommitWhenItsTemporaryFileIsGone) {
    const TemporaryDirectory folder;
    const std::string path = folder / "a.ive";
    WholeFile file(path, false);
    fs::remove(WholeFile::temporaryPath(path, getpid()));
    EXPECT_EQ(failureOf([&] { file.commit(); }), path + ": cannot be written: No such file or directory");
}

TEST(RemoveUnfinishedFile, RemovesTheFileThatIsBeingWritten) {
    const TemporaryDirectory folder;
    WholeFile file(folder / "a.ive", false);
    removeUnfinishedFile();
    EXPECT_THAT(namesIn(folder), IsEmpty());
}

TEST(RemoveUnfinishedFile, LeavesACommittedFileAlone) {
    const TemporaryDirectory folder;
    WholeFile file(folder / "a.ive", false);
    file.commit();
    removeUnfinishedFile();
    EXPECT_THAT(namesIn(folder), ElementsAre("a.ive"));
}

TEST(RemoveUnfinishedFile, ForgetsAFileThatIsNoLongerWritten) {
    const TemporaryDirectory folder;
    { WholeFile(folder / "a.ive", false).stream() << "half of it"; }
    const fs::path temporaryPath = WholeFile::temporaryPath(folder / "a.ive", getpid());
    saveBytes(temporaryPath, "theirs");
    removeUnfinishedFile();
    EXPECT_EQ(loadBytes(temporaryPath), "theirs");
}

TEST(RemoveUnfinishedFile, ForgetsAFileThatCouldNotBeOpened) {
    const TemporaryDirectory folder;
    const fs::path temporaryPath = WholeFile::temporaryPath(folder / "a.ive", getpid());
    fs::create_directory(temporaryPath);
    EXPECT_EQ(failureToWrite(folder / "a.ive"), folder / "a.ive: cannot be written: Is a directory");
    fs::remove(temporaryPath);
    saveBytes(temporaryPath, "theirs");
    removeUnfinishedFile();
    EXPECT_EQ(loadBytes(temporaryPath), "theirs");
}

TEST(WholeFile, CanHaveTheTimeOfAnotherFile) {
    const TemporaryDirectory folder;
    saveBytes(folder / "old", "old");
    const fs::file_time_type time = fs::file_time_type::clock::now() - std::chrono::hours(1000);
    fs::last_write_time(folder / "old", time);
    WholeFile file(folder / "new", false);
    file.keepTimeOf(folder / "old");
    file.commit();
    EXPECT_EQ(fs::last_write_time(folder / "new"), time);
}

TEST(WholeFile, ShowsTheWholeContentBeforeItHasItsName) {
    const TemporaryDirectory folder;
    WholeFile file(folder / "a", false);
    file.stream() << "content";
    std::string content;
    bool wasThere = true;
    file.beforeRenaming = [&](const fs::path& temporary) {
        content = loadBytes(temporary);
        wasThere = fs::exists(folder / "a");
    };
    file.commit();
    EXPECT_EQ(content, "content");
    EXPECT_FALSE(wasThere);
}

TEST(WholeFile, DoesNotFollowALinkThatHasItsTemporaryName) {
    const TemporaryDirectory folder;
    saveBytes(folder / "theirs", "theirs");
    fs::create_symlink("theirs", WholeFile::temporaryPath(folder / "a", getpid()));

    WholeFile file(folder / "a", false);
    file.stream() << "ours";
    file.commit();

    EXPECT_EQ(loadBytes(folder / "theirs"), "theirs");
    EXPECT_EQ(loadBytes(folder / "a"), "ours");
    EXPECT_FALSE(fs::is_symlink(folder / "a"));
}

TEST(WholeFile, StaysBelowAFolderWhereverLinksLead) {
    const TemporaryDirectory folder;
    const fs::path base = fs::canonical(folder.path()) / "base";
    fs::create_directories(base / "in");
    fs::create_directories(base.parent_path() / "base-2");
    fs::create_directory_symlink("in", base / "inside");
    fs::create_directory_symlink("../base-2", base / "outside");
    fs::create_directory_symlink("loop", base / "loop");

    for (const fs::path& good : {base, base / "in", base / "not/there", base / "inside/x", base / "outside/../base"})
        EXPECT_TRUE(staysBelow(base, good)) << good;
    for (const fs::path& bad : {base.parent_path(), base / "..", base / "outside", base / "outside/x", base / "loop/x"})
        EXPECT_FALSE(staysBelow(base, bad)) << bad;
    EXPECT_NO_THROW(checkStaysBelow(base, base / "in"));
    try {
        checkStaysBelow(base, base / "outside");
        FAIL();
    } catch (const OutputError& error) {
        EXPECT_EQ(error.what(), (base / "outside").string() + ": leads out of " + base.string() + " over a link");
    }
}
