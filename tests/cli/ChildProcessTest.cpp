#include "convert/ChildProcess.h"
#include "support/FlightRecords.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <numeric>
#include <stdexcept>
#include <thread>

#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

namespace {

using Work = std::function<void(const MessageSender&)>;

// Far more than any child here takes.
constexpr unsigned int plenty = 60;

void ignoreMessage(const std::string&) {}

ChildEnd run(const Work& work, unsigned int seconds = plenty) {
    return runInChild(seconds, work, ignoreMessage);
}

std::vector<std::string> messagesOf(const Work& work) {
    std::vector<std::string> messages;
    runInChild(plenty, work, [&](const std::string& message) { messages.push_back(message); });
    return messages;
}

[[noreturn]] void endBySignal(int signal) {
    std::signal(signal, SIG_DFL);
    raise(signal);
    std::abort();
}

[[noreturn]] void useProcessorTime() {
    for (volatile unsigned int i = 0;; i = i + 1) {
    }
}

void useProcessorTime(double seconds) {
    const std::clock_t begin = std::clock();
    while (static_cast<double>(std::clock() - begin) < seconds * static_cast<double>(CLOCKS_PER_SEC)) {
        for (volatile unsigned int i = 0; i < 1'000'000; i = i + 1) {
        }
    }
}

std::size_t openFiles() {
    const fs::directory_iterator files("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

/** A pipe between processes of a test. */
class Pipe {
public:
    Pipe() {
        if (pipe(_ends) != 0) throw std::runtime_error("cannot make a pipe");
    }
    ~Pipe() {
        close(_ends[0]);
        closeWriting();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    bool put(char byte) const { return write(_ends[1], &byte, 1) == 1; }
    /** Waits for a byte; 0 when all that could write have closed it, '?' when nothing happens for half a minute. */
    char get() const {
        pollfd waiting = {_ends[0], POLLIN, 0};
        if (poll(&waiting, 1, 30'000) != 1) return '?';
        char byte = 0;
        return read(_ends[0], &byte, 1) == 1 ? byte : '\0';
    }
    void closeWriting() {
        if (_ends[1] >= 0) close(_ends[1]);
        _ends[1] = -1;
    }

private:
    int _ends[2];
};

}  // namespace

TEST(RunInChild, WorksInAProcessOfItsOwn) {
    std::string childsOwn;
    const ChildEnd end = runInChild(
        plenty,
        [](const MessageSender& parent) {
            parent.send(std::to_string(getpid()) + " below " + std::to_string(getppid()));
        },
        [&](const std::string& message) { childsOwn = message; });
    EXPECT_NE(end.pid, getpid());
    EXPECT_EQ(childsOwn, std::to_string(end.pid) + " below " + std::to_string(getpid()));
}

TEST(RunInChild, HandsOnMessagesOfAnySizeInOrder) {
    const std::vector<std::size_t> sizes = {0, 1, 65'535, 65'536, 65'537, 0, 5'000'000, 3};
    const auto messageOf = [](std::size_t size) { return std::string(size, static_cast<char>('a' + size % 26)); };
    const auto messages = messagesOf([&](const MessageSender& parent) {
        for (const std::size_t size : sizes) parent.send(messageOf(size));
    });
    ASSERT_EQ(messages.size(), sizes.size());
    for (std::size_t i = 0; i < sizes.size(); ++i) EXPECT_TRUE(messages[i] == messageOf(sizes[i])) << i;
}

TEST(RunInChild, HandsOnManyMessages) {
    const auto messages = messagesOf([](const MessageSender& parent) {
        for (int i = 0; i < 20'000; ++i) parent.send(std::to_string(i));
    });
    ASSERT_EQ(messages.size(), 20'000u);
    for (std::size_t i = 0; i < messages.size(); ++i) ASSERT_EQ(messages[i], std::to_string(i));
}

TEST(RunInChild, HandsOnAnyBytes) {
    std::string allBytes(256, '\0');
    std::iota(allBytes.begin(), allBytes.end(), '\0');
    EXPECT_THAT(messagesOf([&](const MessageSender& parent) { parent.send(allBytes); }), ElementsAre(allBytes));
}

TEST(RunInChild, HandsOnMessagesWhileTheChildWorks) {
    const Pipe answers;
    std::vector<std::string> messages;
    runInChild(
        plenty,
        [&](const MessageSender& parent) {
            parent.send("question");
            parent.send(std::string("answered ") + answers.get());
        },
        [&](const std::string& message) {
            messages.push_back(message);
            answers.put('!');
        });
    EXPECT_THAT(messages, ElementsAre("question", "answered !"));
}

TEST(RunInChild, KeepsTheMessagesOfAChildThatCrashes) {
    const auto messages = messagesOf([](const MessageSender& parent) {
        parent.send("last words");
        endBySignal(SIGSEGV);
    });
    EXPECT_THAT(messages, ElementsAre("last words"));
}

TEST(RunInChild, EndsWellWhenTheChildDoes) {
    const ChildEnd end = run([](const MessageSender&) {});
    EXPECT_EQ(end.exitStatus, 0);
    EXPECT_EQ(end.signal, 0);
}

TEST(RunInChild, TellsWhichSignalEndedTheChild) {
    for (const int signal : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGKILL, SIGTERM}) {
        const ChildEnd end = run([signal](const MessageSender&) { endBySignal(signal); });
        EXPECT_EQ(end.signal, signal);
        EXPECT_EQ(end.exitStatus, 0);
    }
}

TEST(RunInChild, TellsTheExitStatusOfTheChild) {
    const ChildEnd end = run([](const MessageSender&) { _exit(42); });
    EXPECT_EQ(end.exitStatus, 42);
    EXPECT_EQ(end.signal, 0);
}

TEST(RunInChild, HasExitStatus1WhenTheWorkThrows) {
    EXPECT_EQ(run([](const MessageSender&) { throw std::runtime_error("failed"); }).exitStatus, 1);
    EXPECT_EQ(run([](const MessageSender&) { throw 42; }).exitStatus, 1);
}

TEST(RunInChild, EndsAChildThatTakesTooMuchProcessorTime) {
    const ChildEnd end = run([](const MessageSender&) { useProcessorTime(); }, 1);
    EXPECT_EQ(end.signal, SIGXCPU);
}

TEST(RunInChild, EndsAChildThatIgnoresItsTimeLimit) {
    const auto work = [](const MessageSender&) {
        std::signal(SIGXCPU, SIG_IGN);
        useProcessorTime();
    };
    EXPECT_EQ(run(work, 1).signal, SIGKILL);
}

TEST(RunInChild, CountsNoTimeThatIsOnlyWaited) {
    const auto work = [](const MessageSender&) { std::this_thread::sleep_for(std::chrono::milliseconds(1500)); };
    EXPECT_EQ(run(work, 1).signal, 0);
}

TEST(RunInChild, LeavesTheParentsMemoryUntouched) {
    std::string text = "parent's";
    run([&](const MessageSender&) { text = "child's"; });
    EXPECT_EQ(text, "parent's");
}

TEST(RunInChild, LeavesNoCoreFile) {
    const TemporaryDirectory folder;
    const WorkingDirectory workingDirectory(folder.path());
    rlimit own{};
    getrlimit(RLIMIT_CORE, &own);
    const rlimit asMuchAsPossible = {own.rlim_max, own.rlim_max};
    setrlimit(RLIMIT_CORE, &asMuchAsPossible);
    const ChildEnd end = run([](const MessageSender&) { endBySignal(SIGSEGV); });
    setrlimit(RLIMIT_CORE, &own);
    EXPECT_EQ(end.signal, SIGSEGV);
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST(RunInChild, LeavesTheParentsLimitsAlone) {
    const auto limits = [] {
        rlimit core{};
        rlimit time{};
        getrlimit(RLIMIT_CORE, &core);
        getrlimit(RLIMIT_CPU, &time);
        return std::vector<rlim_t>{core.rlim_cur, core.rlim_max, time.rlim_cur, time.rlim_max};
    };
    const auto before = limits();
    run([](const MessageSender&) {});
    EXPECT_EQ(limits(), before);
}

TEST(RunInChild, LeavesNoZombieAndNoOpenFile) {
    const std::size_t before = openFiles();
    for (int i = 0; i < 10; ++i) run([](const MessageSender&) {});
    run([](const MessageSender&) { endBySignal(SIGKILL); });
    EXPECT_EQ(openFiles(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(RunInChild, LeavesNoChildWhenAMessageCannotBeTaken) {
    const std::size_t before = openFiles();
    const Work work = [](const MessageSender& parent) {
        parent.send("hello");
        pause();
    };
    const auto refuse = [](const std::string& message) { throw std::runtime_error("cannot take " + message); };
    EXPECT_THROW(runInChild(plenty, work, refuse), std::runtime_error);
    EXPECT_EQ(openFiles(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST(RunInChild, DoesNotDoubleWhatIsBuffered) {
    testing::internal::CaptureStdout();
    std::cout << "parent's ";
    std::printf("own ");
    run([](const MessageSender&) {
        std::cout << "child's ";
        std::printf("own ");
    });
    std::cout << "end" << std::flush;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "parent's own child's own end");
}

TEST(RunInChild, DoesNotRunWhatTheParentDoesAtItsEnd) {
    static const Pipe* atExit = nullptr;
    std::atexit([] {
        if (atExit) atExit->put('!');
    });
    Pipe ended;
    run([&](const MessageSender&) { atExit = &ended; });
    ended.closeWriting();
    EXPECT_EQ(ended.get(), '\0');
}

TEST(RunInChild, WorksInAChildToo) {
    const auto messages = messagesOf([](const MessageSender& parent) {
        const auto handOn = [&](const std::string& message) { parent.send("child: " + message); };
        const ChildEnd end = runInChild(
            plenty,
            [](const MessageSender& child) {
                child.send("grandchild");
                endBySignal(SIGSEGV);
            },
            handOn);
        parent.send("ended by " + std::to_string(end.signal));
    });
    EXPECT_THAT(messages, ElementsAre("child: grandchild", "ended by " + std::to_string(SIGSEGV)));
}

TEST(RunInChild, GivesEachNestedChildATimeOfItsOwn) {
    const auto messages = messagesOf([](const MessageSender& parent) {
        const ChildEnd end = runInChild(
            1, [](const MessageSender&) { useProcessorTime(); }, ignoreMessage);
        parent.send(std::to_string(end.signal));
    });
    EXPECT_THAT(messages, ElementsAre(std::to_string(SIGXCPU)));
}

TEST(RunInChild, EndsTheChildrenOfAChildThatDies) {
    Pipe alive;
    const ChildEnd end = run([&](const MessageSender&) {
        runInChild(
            plenty,
            [](const MessageSender& child) {
                child.send("running");
                pause();
            },
            [](const std::string&) { endBySignal(SIGKILL); });
    });
    alive.closeWriting();
    EXPECT_EQ(end.signal, SIGKILL);
    EXPECT_EQ(alive.get(), '\0');
}

TEST(RunInChild, EndsTheChildWhenTheParentIsKilled) {
    Pipe alive;
    const pid_t parent = fork();
    if (parent == 0) {
        run([&](const MessageSender&) {
            alive.put('c');
            pause();
        });
        _exit(0);
    }
    alive.closeWriting();
    EXPECT_EQ(alive.get(), 'c');
    kill(parent, SIGKILL);
    waitpid(parent, nullptr, 0);
    EXPECT_EQ(alive.get(), '\0');
}

TEST(MessageSender, StandsAParentThatNoLongerListens) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    const ChildEnd end = run([&](const MessageSender&) { MessageSender(ends[1]).send("is anybody there?"); });
    close(ends[1]);
    EXPECT_EQ(end.exitStatus, 0);
    EXPECT_EQ(end.signal, 0);
}

TEST(RunInChild, ThrowsWhenNoProcessCanBeHad) {
    const auto messages = messagesOf([](const MessageSender& parent) {
        constexpr uid_t nobody = 65534;
        if (geteuid() == 0 && setuid(nobody) != 0) return;
        const rlimit noProcess = {0, 0};
        setrlimit(RLIMIT_NPROC, &noProcess);
        const std::size_t before = openFiles();
        try {
            run([](const MessageSender&) {});
        } catch (const std::system_error& error) {
            parent.send(error.what());
        }
        parent.send(std::to_string(openFiles() - before) + " files left open");
    });
    EXPECT_THAT(messages, ElementsAre("cannot start a process: Resource temporarily unavailable", "0 files left open"));
}

TEST(RunInChild, EndsAChildThatTakesTooLongByTheClock) {
    ChildLimits limits(plenty);
    limits.seconds = 1;
    const auto start = std::chrono::steady_clock::now();
    const ChildEnd end = runInChild(
        limits, [](const MessageSender&) { pause(); }, ignoreMessage);
    EXPECT_TRUE(end.tookTooLong);
    EXPECT_EQ(end.signal, SIGKILL);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(RunInChild, LeavesAChildAloneThatKeepsToItsTime) {
    ChildLimits limits(plenty);
    limits.seconds = 30;
    std::string message;
    const ChildEnd end = runInChild(
        limits, [](const MessageSender& parent) { parent.send("done"); },
        [&](const std::string& sent) { message = sent; });
    EXPECT_FALSE(end.tookTooLong);
    EXPECT_EQ(end.exitStatus, 0);
    EXPECT_EQ(message, "done");
}

TEST(RunInChild, GivesEachPieceOfWorkAllTimeByTheClock) {
    ChildLimits limits(plenty);
    limits.seconds = 4;
    limits.piecesOfWork = 4;
    const auto work = [](const MessageSender& parent) {
        for (int i = 0; i < 4; ++i) {
            if (i > 0) parent.startAnew();
            std::this_thread::sleep_for(std::chrono::milliseconds(1200));
        }
    };
    const ChildEnd end = runInChild(limits, work, ignoreMessage);
    EXPECT_FALSE(end.tookTooLong);
    EXPECT_EQ(end.exitStatus, 0);
    EXPECT_EQ(end.signal, 0);
}

TEST(RunInChild, GivesEachPieceOfWorkAllProcessorTime) {
    ChildLimits limits(2);
    limits.piecesOfWork = 5;
    const auto work = [](const MessageSender& parent) {
        for (int i = 0; i < 5; ++i) {
            if (i > 0) parent.startAnew();
            useProcessorTime(0.8);
        }
    };
    const ChildEnd end = runInChild(limits, work, ignoreMessage);
    EXPECT_EQ(end.exitStatus, 0);
    EXPECT_EQ(end.signal, 0);
}

TEST(RunInChild, EndsAPieceOfWorkThatTakesTooMuchTime) {
    ChildLimits limits(1);
    limits.piecesOfWork = 10;
    const auto useAll = [](const MessageSender& parent) {
        parent.startAnew();
        useProcessorTime();
    };
    EXPECT_EQ(runInChild(limits, useAll, ignoreMessage).signal, SIGXCPU);

    limits.seconds = 1;
    const auto wait = [](const MessageSender& parent) {
        parent.startAnew();
        pause();
    };
    EXPECT_TRUE(runInChild(limits, wait, ignoreMessage).tookTooLong);
}

TEST(RunInChild, EndsAChildThatNeedsMoreMemory) {
    if (!canLimitMemory()) return;
    ChildLimits limits(plenty);
    limits.memoryBytes = 200 * bytesPerMiB;
    const auto memoryOf = [&](std::size_t bytes) {
        return runInChild(
            limits, [=](const MessageSender&) { std::vector<char>(bytes, 'x').data()[0] = 'y'; }, ignoreMessage);
    };
    EXPECT_TRUE(memoryOf(300 * bytesPerMiB).neededMoreMemory);
    EXPECT_EQ(memoryOf(300 * bytesPerMiB).exitStatus, 1);
    EXPECT_FALSE(memoryOf(50 * bytesPerMiB).neededMoreMemory);
    EXPECT_EQ(memoryOf(50 * bytesPerMiB).exitStatus, 0);
}

namespace {

std::vector<std::string> linesOf(const std::vector<std::string>& program) {
    std::vector<std::string> lines;
    runProgram(program, [&](const std::string& line) { lines.push_back(line); });
    return lines;
}

}  // namespace

TEST(RunProgram, HandsOnWhatItWritesLineByLine) {
    EXPECT_THAT(linesOf({"sh", "-c", "echo one; echo two >&2; printf 'three'"}), ElementsAre("one", "two", "three"));
    EXPECT_THAT(linesOf({"printf", "%s\n", "a b", "$HOME", ""}), ElementsAre("a b", "$HOME", ""));
    EXPECT_THAT(linesOf({"true"}), IsEmpty());
}

TEST(RunProgram, TellsHowItEnded) {
    const auto ignoreLine = [](const std::string&) {};
    EXPECT_EQ(runProgram({"sh", "-c", "exit 7"}, ignoreLine).exitStatus, 7);
    EXPECT_EQ(runProgram({"sh", "-c", "kill -9 $$"}, ignoreLine).signal, SIGKILL);
    EXPECT_EQ(runProgram({"/no/such/program"}, ignoreLine).exitStatus, 127);
}
