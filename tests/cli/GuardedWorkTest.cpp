#include "files/GuardedWork.h"

#include "files/WholeFile.h"
#include "support/Conversions.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <stdexcept>

#include <sys/resource.h>
#include <unistd.h>

using namespace testing_support;
using testing::ElementsAre;
using veltrane::sceneutils::tool::CommandError;
using veltrane::sceneutils::tool::ExitStatus;
using veltrane::sceneutils::tool::runGuarded;
using veltrane::sceneutils::tool::WholeFile;
using veltrane::sceneutils::tool::WritingNote;

namespace {

std::string errorOf(ExitStatus expected, const std::function<ExitStatus()>& work,
                    const std::vector<std::filesystem::path>& folders = {}, unsigned int seconds = 100) {
    try {
        runGuarded("in.osgb", folders, work, seconds);
    } catch (const CommandError& error) {
        EXPECT_EQ(error.status(), expected);
        return error.what();
    }
    return "no error";
}

ExitStatus crash() {
    kill(getpid(), SIGKILL);
    return ExitStatus::Done;
}

}  // namespace

TEST(RunGuarded, ReturnsTheStatusOfTheWork) {
    for (const ExitStatus status : {ExitStatus::Done, ExitStatus::NotSupported, ExitStatus::DonePartly})
        EXPECT_EQ(runGuarded("in.osgb", {}, [&] { return status; }), status);
}

TEST(RunGuarded, WorksInAnotherProcess) {
    int changed = 0;

    runGuarded("in.osgb", {}, [&] {
        changed = 1;
        return ExitStatus::Done;
    });

    EXPECT_EQ(changed, 0);
}

TEST(RunGuarded, PassesOnWhatTheWorkThrows) {
    const auto refused = []() -> ExitStatus { throw CommandError(ExitStatus::Usage, "no such size"); };
    const auto failed = []() -> ExitStatus { throw std::runtime_error("out of luck"); };

    EXPECT_EQ(errorOf(ExitStatus::Usage, refused), "no such size");
    EXPECT_EQ(errorOf(ExitStatus::OutputNotWritten, failed), "out of luck");
}

TEST(RunGuarded, LeavesRoomForGraphsThatAreNestedDeeply) {
    rlimit here = {0, 0};
    getrlimit(RLIMIT_STACK, &here);
    const rlim_t wanted = std::min<rlim_t>(here.rlim_max, 100 << 20);
    const auto hasRoom = [&] {
        rlimit there = {0, 0};
        getrlimit(RLIMIT_STACK, &there);
        return there.rlim_cur >= wanted ? ExitStatus::Done : ExitStatus::NotSupported;
    };

    EXPECT_EQ(runGuarded("in.osgb", {}, hasRoom), ExitStatus::Done);
}

TEST(RunGuarded, SaysWhenItsResultsCannotBeWritten) {
    const auto writeInVain = [] {
        std::cout.setstate(std::ios::badbit);
        return ExitStatus::Done;
    };

    EXPECT_EQ(errorOf(ExitStatus::OutputNotWritten, writeInVain), "standard output cannot be written");
}

TEST(RunGuarded, TellsACrashInOneLine) {
    EXPECT_EQ(errorOf(ExitStatus::InputUnreadable, crash),
              "in.osgb: OpenSceneGraph crashes on it (Killed); it may be damaged");
    EXPECT_EQ(errorOf(ExitStatus::InputUnreadable, []() -> ExitStatus { _exit(0); }),
              "in.osgb: OpenSceneGraph crashes on it (ended early); it may be damaged");
}

TEST(RunGuarded, NamesTheOutputThatWasBeingWrittenWhenItCrashed) {
    const auto crashWriting = [] {
        const WritingNote note("out.osg");
        return crash();
    };
    const auto crashAfterwards = [] {
        { const WritingNote note("out.osg"); }
        return crash();
    };

    EXPECT_EQ(errorOf(ExitStatus::OutputNotWritten, crashWriting),
              "out.osg: OpenSceneGraph crashes while writing it (Killed)");
    EXPECT_EQ(errorOf(ExitStatus::InputUnreadable, crashAfterwards),
              "in.osgb: OpenSceneGraph crashes on it (Killed); it may be damaged");
}

TEST(RunGuarded, NamesTheOutputThatIsWrittenWithoutEnd) {
    const auto writeForEver = []() -> ExitStatus {
        const WritingNote note("out.osg");
        for (volatile bool goesOn = true; goesOn;) {
        }
        return ExitStatus::Done;
    };

    EXPECT_EQ(errorOf(ExitStatus::OutputNotWritten, writeForEver, {}, 1),
              "out.osg: could not be written within 1 s of processor time");
}

TEST(RunGuarded, EndsWorkThatRunsWithoutEnd) {
    const auto runForEver = []() -> ExitStatus {
        for (volatile bool goesOn = true; goesOn;) {
        }
        return ExitStatus::Done;
    };
    try {
        runGuarded("in.ive", {}, runForEver, 1);
        FAIL() << "it ended";
    } catch (const CommandError& error) {
        EXPECT_EQ(error.status(), ExitStatus::InputUnreadable);
        EXPECT_STREQ(error.what(), "in.ive: takes more than 1 s of processor time; it may be damaged");
    }
}

TEST(RunGuarded, RemovesWhatACrashLeavesUnfinishedAndNothingElse) {
    const TemporaryDirectory folder;
    const std::string another = WholeFile::temporaryPath(folder / "out.osgb", getpid());
    writeBytes(another, "another process's");
    const auto writeAndCrash = [&] {
        writeBytes(WholeFile::temporaryPath(folder / "out.osgb", getpid()), "half");
        std::filesystem::create_directories(WholeFile::temporaryPath(folder / "out.obj", getpid()) / "textures");
        return crash();
    };

    errorOf(ExitStatus::InputUnreadable, writeAndCrash, {folder / "missing", folder.path()});

    EXPECT_THAT(namesIn(folder.path()), ElementsAre(std::filesystem::path(another).filename()));
}
