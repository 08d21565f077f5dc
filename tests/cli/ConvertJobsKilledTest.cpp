#include "sample/SampleDatabase.h"
#include "support/JobConversions.h"
#include "support/ProcessTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace testing_support;

namespace {

using Milliseconds = std::chrono::milliseconds;

// With AddressSanitizer a run takes several times as long, so there are fewer.
#ifdef __SANITIZE_ADDRESS__
constexpr int kills = 3;
constexpr int interruptions = 2;
#else
constexpr int kills = 10;
constexpr int interruptions = 6;
#endif
constexpr int killsBetweenRuns = 2;

// What the tree of processes of a run has at its levels.
constexpr std::size_t tool = 0;
constexpr std::size_t ninja = 1;
constexpr std::size_t job = 2;
constexpr std::size_t converter = 3;
constexpr std::size_t allOfThem = 4;

/** A database, what it becomes, and runs that are disturbed at random moments. */
class Disturbances {
public:
    explicit Disturbances(unsigned int seed) : _seed(seed), _random(seed) {
        veltrane::sceneutils::tool::SampleOptions options;
        options.tiles = 4;
        options.levels = 2;
        options.textures = 3;
        veltrane::sceneutils::tool::writeSampleDatabase(_folder / "in", options);
        _expected = undisturbedOutputs(_folder.path());
    }

    /** Kills processes of a run, which may have gone on from another one. */
    void killAt(std::size_t level) {
        ToolProcess process(SCENEUTILS_TOOL, arguments(), settings());
        waitForARandomMoment(process);
        const std::vector<int> victims = victimsIn(process, level);
        for (const int victim : victims) kill(victim, SIGKILL);
        const ToolResult result = process.wait();
        const bool isWhole = victims.empty() || level == tool || level == allOfThem;
        EXPECT_TRUE(isWhole || result.status == 0 || result.status == 4 || result.status == 5) << result.errors;
        EXPECT_TRUE(!victims.empty() || result.status == 0) << result.errors;
        waitUntilNobodyIsAtWork();
        // Without the file of a process that was killed, its parent's output is another one.
        if (result.status == 5) {
            expectEveryTileWhole(_folder / "out");
        } else {
            expectNothingHalfWritten(_folder / "out", _expected);
        }
        _killed += victims.empty() ? 0 : 1;
    }

    /** Interrupts a run, and expects that it ends at once and leaves nothing unfinished. */
    void interrupt(int signal, bool wholeGroup) {
        ToolProcess process(SCENEUTILS_TOOL, arguments(), settings());
        // Before it has started Ninja, it may not be prepared yet.
        while (process.isRunning() && processTree(lastChild()).size() < 2) std::this_thread::sleep_for(Milliseconds(1));
        waitForARandomMoment(process);
        const bool isInTime = process.isRunning();
        const int group = lastChild();
        if (wholeGroup && group > 1) kill(-group, signal);
        if (!wholeGroup) process.send(signal);
        const ToolResult result = process.wait();
        expectNothingHalfWritten(_folder / "out", _expected);
        if (!isInTime || result.status == 0) return;
        EXPECT_EQ(result.status, 130);
        EXPECT_EQ(result.errors, "sceneutils: interrupted\n");
        EXPECT_FALSE(result.leftProcesses);
        expectNoPartialFiles(_folder.path());
        ++_killed;
    }

    void expectRunCompletes() {
        SCOPED_TRACE("seed " + std::to_string(_seed));
        expectPlainRunCompletes(_folder.path(), _expected);
        fs::remove_all(_folder / "out");
    }

    int killed() const { return _killed; }

private:
    static std::vector<std::string> arguments() {
        return {"convert", "in/master.flt", "out/m.ive", "--recurse", "--jobs", "3"};
    }
    ToolSettings settings() const {
        ToolSettings settings;
        settings.workingDirectory = _folder.path();
        // The leak checker has a process of its own for a moment, and who has lost it waits for ever.
        settings.environment = {{"ASAN_OPTIONS", "detect_leaks=0"}};
        return settings;
    }

    std::size_t outputs() const {
        std::size_t count = 0;
        for (const auto& expected : _expected) count += fs::exists(fs::path(_folder / "out") / expected.first) ? 1 : 0;
        return count;
    }

    // When a random number of the outputs that are missing are there, and a little later: however fast the machine is.
    void waitForARandomMoment(const ToolProcess& process) {
        const std::size_t missing = _expected.size() - outputs();
        const std::size_t enough = outputs() + (missing > 1 ? _random() % (missing - 1) : 0);
        const Milliseconds later(_random() % 40);
        while (process.isRunning() && outputs() < enough) std::this_thread::sleep_for(Milliseconds(1));
        std::this_thread::sleep_for(later);
    }

    // All processes of a run have its lock.
    void waitUntilNobodyIsAtWork() const {
        const int file = open((_folder / "out/.sceneutils/m.ive/lock").c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0) return;
        EXPECT_EQ(flock(file, LOCK_EX), 0);
        close(file);
    }

    // Waits for such a process if there is none at the moment; none: the run has come to its end before.
    std::vector<int> victimsIn(const ToolProcess& process, std::size_t level) {
        while (process.isRunning()) {
            const int root = lastChild();
            if (root <= 1) return {};
            const auto tree = processTree(root);
            std::vector<int> all;
            for (const auto& processes : tree) all.insert(all.end(), processes.begin(), processes.end());
            if (level == allOfThem) return all;
            if (level < tree.size()) return {tree[level][_random() % tree[level].size()]};
            std::this_thread::sleep_for(Milliseconds(1));
        }
        return {};
    }

    TemporaryDirectory _folder;
    unsigned int _seed;
    std::mt19937 _random;
    std::map<std::string, std::string> _expected;
    int _killed = 0;
};

void expectToOutliveKills(std::size_t level, unsigned int seed) {
    Disturbances disturbances(seed);
    for (int i = 0; i < kills; ++i) {
        disturbances.killAt(level);
        if (i % killsBetweenRuns == killsBetweenRuns - 1) disturbances.expectRunCompletes();
    }
    disturbances.expectRunCompletes();
    EXPECT_GE(disturbances.killed(), kills / 2);
}

void expectToOutliveInterruptions(int signal, bool wholeGroup, unsigned int seed) {
    Disturbances disturbances(seed);
    for (int i = 0; i < interruptions; ++i) {
        disturbances.interrupt(signal, wholeGroup);
        if (i % killsBetweenRuns == killsBetweenRuns - 1) disturbances.expectRunCompletes();
    }
    EXPECT_GE(disturbances.killed(), interruptions / 2);
}

}  // namespace

TEST(ConvertJobsKilled, GoOnAfterAllProcessesOfTheRun) {
    expectToOutliveKills(allOfThem, 1);
}

TEST(ConvertJobsKilled, GoOnAfterTheToolAlone) {
    expectToOutliveKills(tool, 2);
}

TEST(ConvertJobsKilled, GoOnAfterNinja) {
    expectToOutliveKills(ninja, 3);
}

TEST(ConvertJobsKilled, GoOnAfterTheProcessOfABatch) {
    expectToOutliveKills(job, 4);
}

TEST(ConvertJobsKilled, GoOnAfterTheProcessOfAFile) {
    expectToOutliveKills(converter, 5);
}

TEST(ConvertJobsKilled, EndCleanlyWhenTheUserInterruptsThem) {
    expectToOutliveInterruptions(SIGINT, true, 6);
}

TEST(ConvertJobsKilled, EndCleanlyWhenTheToolIsToldTo) {
    expectToOutliveInterruptions(SIGTERM, false, 7);
}
