#include "Damage.h"
#include "GuardedRun.h"
#include "RichModel.h"
#include "support/Conversions.h"

#include <sceneutils/CreatePagedLODVisitor.h>

#include <gtest/gtest.h>
#include <osgDB/Registry>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <map>
#include <string>

namespace fs = std::filesystem;
using namespace testing_support;
using veltrane::sceneutils::CreatePagedLODVisitor;

#ifdef __SANITIZE_ADDRESS__
// What the sanitizer finds ends the process with a signal, like any other crash, and is attributed in the same way.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "abort_on_error=1:handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_abort=0:detect_leaks=0";
}
#endif

namespace {

constexpr std::uint64_t libraryConversions = 500;
constexpr std::uint64_t toolConversions = 200;
constexpr unsigned int longestSeconds = 10;
constexpr const char* processorSecondsPerFile = "2";  // some damage makes OSG's reader run in circles

/** The files of a small database with everything in it, by name. */
const std::map<std::string, std::string>& soundFiles() {
    static const std::map<std::string, std::string> files = [] {
        const TemporaryDirectory folder;
        writeGrey(folder / "a.png", 100);
        writeGrey(folder / "b.png", 150);
        writeFlight(folder / "master.flt", *makeRichModel({"a.flt", "b.flt"}));
        writeFlight(folder / "a.flt", *makeRichModel({"b.flt", "master.flt"}));
        writeFlight(folder / "b.flt", *makeRichModel({}));
        setReferenceFlags(folder / "a.flt", 0);
        return contentOf(folder.path());
    }();
    return files;
}

/** Writes the database with one of its models damaged. */
void writeDamaged(const fs::path& folder, std::uint64_t seed) {
    const std::string damaged = std::array<const char*, 3>{"master.flt", "a.flt", "b.flt"}[seed % 3];
    for (const auto& [name, bytes] : soundFiles())
        writeBytes(folder / name, name == damaged ? Damage(seed, bytes).result() : bytes);
}

/** Counts of what happened, for the test's output. */
class Tally {
public:
    explicit Tally(const char* title) : _title(title) {}
    ~Tally() {
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - _start;
        std::cout << _title << " (" << seconds.count() << " s):\n";
        for (const auto& [outcome, count] : _counts) std::cout << "  " << count << " " << outcome << "\n";
    }
    Tally(const Tally&) = delete;
    Tally& operator=(const Tally&) = delete;

    void add(const std::string& outcome) { ++_counts[outcome]; }
    std::size_t operator[](const std::string& outcome) const {
        const auto found = _counts.find(outcome);
        return found == _counts.end() ? 0 : found->second;
    }

private:
    const char* _title;
    std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();
    std::map<std::string, std::size_t> _counts;
};

bool isOurs(const std::string& module) {
    return module.find("sceneutils") != std::string::npos || module == "unknown";
}

std::string outcomeOf(const GuardedResult& result) {
    if (!result.outcome.empty()) return result.outcome;
    const std::string what = result.hung ? "hung" : "crashed";
    return what + " in " + result.culprit + (result.inReader ? ", reading" : "");
}

std::string convertByLibrary(const fs::path& folder) {
    const WorkingDirectory in(folder);
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setRecurse(true);
    const osg::ref_ptr<osg::Node> node = visitor.convert("master.flt", "master.ive");
    if (!node) return "unreadable";
    return fs::exists("master.ive") ? "converted" : "converted in memory, not written";
}

void loadPlugIns() {
    for (const char* extension : {"flt", "ive", "png", "attr"})
        osgDB::Registry::instance()->getReaderWriterForExtension(extension);
}

/** "3" from "3 files read, ..., 2 failed, ..." for " failed". */
std::size_t countBefore(const std::string& summary, const std::string& word) {
    const std::size_t end = summary.find(word);
    if (end == std::string::npos) return 0;
    const std::size_t begin = summary.find_last_not_of("0123456789", end - 1) + 1;
    return std::stoul(summary.substr(begin, end - begin));
}

/** What the tool's sanitizer has found in our code, if it has one; its findings in OSG are OSG's. */
std::string findingsInOurCode(const fs::path& folder) {
    for (const std::string& name : namesIn(folder)) {
        std::istringstream report(readBytes(folder / name));
        for (std::string line; std::getline(report, line);) {
            const std::size_t frame = line.find(" in ");
            if (line.find("    #") != 0 || line.find("libasan") != std::string::npos || frame == std::string::npos)
                continue;
            if (line.find("/apps/sceneutils/") != std::string::npos ||
                line.find("sceneutils+0x") != std::string::npos || line.find("/src/sceneutils/") != std::string::npos)
                return line;
            break;
        }
    }
    return {};
}

ToolResult convertByTool(const TemporaryDirectory& folder) {
    fs::create_directory(folder / "findings");
    ToolSettings settings;
    settings.workingDirectory = folder.path();
    settings.timeout = std::chrono::seconds(6 * longestSeconds);
    settings.environment = {{"ASAN_OPTIONS",
                             "abort_on_error=1:handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_abort=0:"
                             "detect_leaks=0:log_path=" +
                                 (folder / "findings/asan")}};
    return runTool({"convert", "in/master.flt", "out/master.ive", "--recurse", "--time-limit", processorSecondsPerFile},
                   settings);
}

void expectOneLinePerProblem(const ToolResult& result, std::uint64_t seed) {
    const std::vector<std::string> lines = result.errorLines();
    const std::size_t problems = countBefore(result.output, " failed") + countBefore(result.output, " texture");
    EXPECT_EQ(lines.size(), result.output.empty() ? 1 : problems) << "seed " << seed << "\n" << result.errors;
    for (const std::string& line : lines) EXPECT_EQ(line.find("sceneutils: "), 0u) << "seed " << seed << ": " << line;
    const bool isDone = result.status == 0;
    EXPECT_EQ(isDone, countBefore(result.output, " failed") == 0 && !result.output.empty()) << "seed " << seed;
}

void expectNothingElseTouched(const TemporaryDirectory& folder, const FolderState& inputs, std::uint64_t seed) {
    EXPECT_EQ(stateOf(folder / "in"), inputs) << "seed " << seed;
    expectNoPartialFiles(folder.path());
    for (const auto& entry : fs::directory_iterator(folder.path())) {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE(name == "in" || name == "out" || name == "findings") << "seed " << seed << ": " << name;
    }
}

std::string outcomeOf(const ToolResult& result) {
    std::string outcome = "status " + std::to_string(result.status);
    for (const char* event : {"crashed OpenSceneGraph's reader", "crashed while being", "took more than",
                              "could not be processed", "failed while being", "cannot write this graph"}) {
        if (result.errors.find(event) != std::string::npos) outcome += std::string(", ") + event;
    }
    return outcome;
}

}  // namespace

TEST(DamagedInput, NeverMakesTheLibraryCrashThrowOrHang) {
    loadPlugIns();
    Tally tally("Conversions of damaged files by the library");
    for (std::uint64_t seed = 0; seed < libraryConversions; ++seed) {
        const TemporaryDirectory folder;
        writeDamaged(folder.path(), seed);

        const GuardedResult result = runGuarded([&] { return convertByLibrary(folder.path()); }, longestSeconds);

        tally.add(outcomeOf(result));
        EXPECT_NE(result.outcome, "threw") << "seed " << seed;
        EXPECT_FALSE(result.outcome.empty() && isOurs(result.culprit)) << "seed " << seed << ": " << outcomeOf(result);
        EXPECT_FALSE(result.hung && !result.inReader) << "seed " << seed << ": " << outcomeOf(result);
    }
    EXPECT_GT(tally["converted"], libraryConversions / 2);
}

TEST(DamagedInput, NeverMakesTheToolEndInAnUndocumentedWay) {
    Tally tally("Conversions of damaged files by the tool");
    for (std::uint64_t seed = 0; seed < toolConversions; ++seed) {
        const TemporaryDirectory folder;
        writeDamaged(folder / "in", 1000 + seed);
        const FolderState inputs = stateOf(folder / "in");

        const ToolResult result = convertByTool(folder);

        tally.add(outcomeOf(result));
        EXPECT_FALSE(result.timedOut) << "seed " << seed;
        EXPECT_FALSE(result.leftProcesses) << "seed " << seed;
        EXPECT_TRUE(result.status == 0 || result.status == 2 || result.status == 5)
            << "seed " << seed << ": status " << result.status << ", signal " << result.signal << "\n"
            << result.errors;
        EXPECT_EQ(findingsInOurCode(folder / "findings"), "") << "seed " << seed;
        expectOneLinePerProblem(result, seed);
        expectNothingElseTouched(folder, inputs, seed);
    }
}

TEST(DamagedInput, IsToldApartFromASoundDatabase) {
    const TemporaryDirectory folder;
    for (const auto& [name, bytes] : soundFiles()) writeBytes(fs::path(folder / "in") / name, bytes);

    const ToolResult result = convertByTool(folder);

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(countsIn(result), "5 files read, 5 converted, 0 failed, 0 textures missing");
}

TEST(GuardedRun, TellsWhoCrashedThrewAndHung) {
    const auto crash = [] {
        raise(SIGSEGV);
        return std::string();
    };
    const auto hang = [] {
        for (volatile int i = 0;;) i = i + 1;
        return std::string();
    };

    EXPECT_TRUE(isOurs(runGuarded(crash, longestSeconds).culprit));
    EXPECT_TRUE(isOurs(runGuarded(hang, 1).culprit));
    EXPECT_TRUE(runGuarded(hang, 1).hung);
    EXPECT_EQ(runGuarded([]() -> std::string { throw 1; }, longestSeconds).outcome, "threw");
    EXPECT_EQ(runGuarded([] { return std::string("done"); }, longestSeconds).outcome, "done");
}
