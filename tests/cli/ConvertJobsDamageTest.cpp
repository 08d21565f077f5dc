#include "convert/JobFiles.h"
#include "support/FlightRecords.h"
#include "support/JobConversions.h"
#include "support/TexturedModels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using testing::Each;
using testing::EndsWith;

namespace {

const std::string stateName = "out/.sceneutils/m.ive";

/** What a power failure makes of a file that was written shortly before. */
struct Damage {
    const char* name;
    std::function<std::string(const std::string&)> apply;
};

const std::vector<Damage> damages = {
    {"empty", [](const std::string&) { return std::string(); }},
    {"its first byte", [](const std::string& bytes) { return bytes.substr(0, 1); }},
    {"its first half", [](const std::string& bytes) { return bytes.substr(0, bytes.size() / 2); }},
    {"all but its last byte", [](const std::string& bytes) { return bytes.substr(0, bytes.size() - 1); }},
    {"zeros", [](const std::string& bytes) { return std::string(bytes.size(), '\0'); }},
    {"zeros behind its first half",
     [](const std::string& bytes) {
         return bytes.substr(0, bytes.size() / 2) + std::string(bytes.size() - bytes.size() / 2, '\0');
     }},
};

/** A master that hands its colours on, two levels below it, and a texture. */
void writeDatabase(const fs::path& folder) {
    writeGrey(folder / "in/t.png", 100);
    FlightRecords master;
    master.record(FlightRecords::ColorPalette, std::string(128, '\0') + std::string(1024 * 4, 'c'));
    master.push().reference("a.flt", FlightRecords::parentsPalettes).reference("b.flt").pop();
    master.write(folder / "in/master.flt");
    writeFlight(folder / "in/a.flt", 16, {"c.flt"});
    writeFlight(folder / "in/c.flt", *makeTextured("t.png"));
}

/**
 * The files of the state whose names end like that, spoiled. Returns how many they are. What would keep a run from
 * looking at them is gone.
 */
std::size_t spoil(const fs::path& state, const std::string& ending, const Damage& damage) {
    std::size_t count = 0;
    fs::remove(state / "run.finished");
    for (const std::string& name : namesIn(state)) {
        if (name.size() < ending.size() || name.compare(name.size() - ending.size(), ending.size(), ending) != 0)
            continue;
        const std::string bytes = readBytes(state / name);
        writeBytes(state / name, bytes.empty() ? "" : damage.apply(bytes));
        ++count;
    }
    return count;
}

/** Two contents of b.flt, by turns, and what the database becomes with each. */
class ChangingDatabase {
public:
    ChangingDatabase() {
        writeDatabase(_folder.path());
        for (int i = 0; i < 2; ++i) {
            change();
            _expected[_turn] = undisturbedOutputs(_folder.path());
        }
        convertInJobs(_folder.path());
    }

    void change() {
        _turn = 1 - _turn;
        writeFlight(_folder / "in/b.flt", _turn == 0 ? 5.0f : 600.0f);
    }

    fs::path folder() const { return _folder.path(); }
    fs::path state() const { return _folder / stateName; }
    const std::map<std::string, std::string>& expected() const { return _expected[_turn]; }

private:
    TemporaryDirectory _folder;
    int _turn = 0;
    std::map<std::string, std::string> _expected[2];
};

/** Expects that damage to all files with that ending goes unnoticed by the user, with and without something to do. */
void expectToOutliveDamageTo(const std::string& ending) {
    ChangingDatabase database;
    std::size_t spoiled = 0;
    for (const Damage& damage : damages) {
        for (const bool changes : {false, true}) {
            SCOPED_TRACE(ending + ": " + damage.name + (changes ? ", and another input" : ""));
            spoiled += spoil(database.state(), ending, damage);
            if (changes) database.change();
            expectPlainRunCompletes(database.folder(), database.expected());
        }
    }
    // Ninja removes a log that it cannot read, and begins another one when it has something to write.
    EXPECT_GE(spoiled, damages.size());
}

std::vector<std::string> linesOf(const std::string& text) {
    ToolResult result;
    result.errors = text;
    return result.errorLines();
}

}  // namespace

TEST(ConvertJobsDamage, OutlivesThatOfJobs) {
    expectToOutliveDamageTo(".job");
}

TEST(ConvertJobsDamage, OutlivesThatOfResults) {
    expectToOutliveDamageTo(".result");
}

TEST(ConvertJobsDamage, OutlivesThatOfSpheres) {
    expectToOutliveDamageTo(".sphere");
}

TEST(ConvertJobsDamage, OutlivesThatOfBounds) {
    expectToOutliveDamageTo(".bound");
}

TEST(ConvertJobsDamage, OutlivesThatOfIntents) {
    expectToOutliveDamageTo(".intent");
}

TEST(ConvertJobsDamage, OutlivesThatOfPalettes) {
    expectToOutliveDamageTo(".flt");
}

TEST(ConvertJobsDamage, OutlivesThatOfTheBuildFile) {
    expectToOutliveDamageTo("build.ninja");
}

TEST(ConvertJobsDamage, OutlivesThatOfNinjasLogs) {
    expectToOutliveDamageTo(".ninja_log");
    const ChangingDatabase database;
    const std::vector<std::string> contents = {"", "x", "# ninjadeps\n", std::string(100, '\0')};
    for (const std::string& content : contents) {
        writeBytes(database.state() / ".ninja_deps", content);
        expectPlainRunCompletes(database.folder(), database.expected());
    }
}

TEST(ConvertJobsDamage, OutlivesThatOfAllAtOnceButTheResultsOrTheIntents) {
    for (const std::string kept : {".result", ".intent"}) {
        ChangingDatabase database;
        for (const std::string& name : namesIn(database.state())) {
            if (name.size() < kept.size() || name.compare(name.size() - kept.size(), kept.size(), kept) != 0)
                writeBytes(database.state() / name, "");
        }
        database.change();
        expectPlainRunCompletes(database.folder(), database.expected());
    }
}

TEST(ConvertJobsDamage, IsNamedWhenNobodyCanKnowAnyMoreWhoseTheOutputsAre) {
    const ChangingDatabase database;
    for (const char* ending : {".result", ".intent"}) spoil(database.state(), ending, damages.front());

    const ToolResult refused = convertInJobs(database.folder());

    EXPECT_EQ(refused.status, 4);
    EXPECT_THAT(linesOf(refused.errors), Each(EndsWith("m.ive: exists already; pass --overwrite to replace it")));
    EXPECT_EQ(convertInJobs(database.folder(), {"--overwrite"}).status, 0);
    expectPlainRunCompletes(database.folder(), database.expected());
}

TEST(ConvertJobsDamage, OfAnyLengthIsNoticedInEveryFile) {
    const ChangingDatabase database;
    const StateFolder state(database.state());
    for (const std::string& name : namesIn(database.state())) {
        const std::string id = fs::path(name).stem().string();
        const std::string ending = fs::path(name).extension().string();
        const std::string bytes = readBytes(database.state() / name);
        const auto isTaken = [&] {
            return (ending == ".job" && state.job(id)) || (ending == ".result" && state.result(id)) ||
                   (ending == ".bound" && state.sphere(id));
        };
        if (ending != ".job" && ending != ".result" && ending != ".bound") continue;
        EXPECT_TRUE(isTaken()) << name;
        for (std::size_t length = 0; length < bytes.size(); ++length) {
            writeBytes(database.state() / name, bytes.substr(0, length));
            EXPECT_FALSE(isTaken()) << name << ", " << length << " bytes";
        }
        writeBytes(database.state() / name, std::string(bytes.size(), '\0'));
        EXPECT_FALSE(isTaken()) << name << ", zeros";
    }
}

TEST(StateFolder, KnowsEveryOutputThatIsIntendedWhateverWasThereBefore) {
    const TemporaryDirectory folder;
    const StateFolder state(folder.path());
    const FileStamp large{123456789, 1700000000123456789};
    const FileStamp small{1, 2};

    state.writeIntent("x", {large, small});
    EXPECT_TRUE(state.isIntended("x", large));
    EXPECT_TRUE(state.isIntended("x", small));
    state.writeIntent("x", {small});
    EXPECT_FALSE(state.isIntended("x", large));
    EXPECT_TRUE(state.isIntended("x", small));
    EXPECT_FALSE(state.isIntended("y", small));
    const std::string bytes = readBytes(folder / "x.intent");
    for (std::size_t length = 0; length < 4; ++length) {
        writeBytes(folder / "x.intent", bytes.substr(0, length));
        EXPECT_FALSE(state.isIntended("x", small)) << length;
    }
}
