#include "convert/FinishedRun.h"
#include "support/JobConversions.h"
#include "support/TexturedModels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace fs = std::filesystem;
using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char* record = "out/.sceneutils/m.ive/run.finished";

/** master.flt refers to sub/tile.flt, which shows a texture. */
void writeDatabase(const TemporaryDirectory& folder, const std::string& texture) {
    writeFlight(folder / "in/master.flt", 20, {"sub/tile.flt"});
    writeFlight(folder / "in/sub/tile.flt", *makeTextured(texture));
}

/** Converts, lets something change, and expects that the next run makes of it what a first run would. */
void expectNoticed(const TemporaryDirectory& folder, const std::function<void()>& change,
                   const ToolSettings& settings = {}) {
    convertInJobs(folder.path());
    ASSERT_TRUE(fs::exists(folder / record));
    change();
    const ToolResult result = convertInJobs(folder.path(), {}, settings);
    const auto outputs = outputsIn(folder / "out");
    EXPECT_EQ(result.output.find("2 were up to date"), std::string::npos) << result.output;
    fs::remove_all(folder / "out");
    convertInJobs(folder.path(), {}, settings);
    for (const auto& [name, content] : outputsIn(folder / "out"))
        EXPECT_TRUE(outputs.count(name) != 0 && (outputs.at(name) == content || !canOrderObjectsByAge())) << name;
}

/** What convertInJobs() asks for. */
ConversionOptions optionsIn(const TemporaryDirectory& folder) {
    ConversionOptions options;
    options.input = folder / "in/master.flt";
    options.output = folder / "out/m.ive";
    options.recurse = true;
    return options;
}

/** Whether a run is believed to have seen all that has found that; the plan may have seen its folder before. */
bool isBelieved(const TemporaryDirectory& folder, const Lookup& lookup,
                std::optional<std::int64_t> timeBefore = std::nullopt) {
    const ConversionOptions options = optionsIn(folder);
    const StateFolder state(stateFolderOf(options.output));
    fs::create_directories(state.path());
    writeBytes(state.path() / "lock", "");
    ConversionPlan plan = planFiles(options);
    if (timeBefore) plan.seenFolders[lookup.folder.string()] = *timeBefore;
    PlannedJob planned;
    planned.job.conversion.path = options.input;
    planned.job.input = stampOf(options.input);
    StoredResult result;
    result.lookups = {lookup};
    FinishedRun run(plan, ConversionReport());
    run.add(planned, result);
    run.write(state);
    return FinishedRun::unchanged(options).has_value();
}

}  // namespace

TEST(ConvertJobsNothingToDo, IsFoundOutWithoutALookAtTheJobs) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "a.png");
    writeGrey(folder / "in/sub/a.png", 100);
    convertInJobs(folder.path());
    for (const std::string& name : namesIn(folder / "out/.sceneutils/m.ive")) {
        if (fs::path(name).extension() == ".job") fs::remove(folder / ("out/.sceneutils/m.ive/" + name));
    }

    const ToolResult result = convertInJobs(folder.path());

    EXPECT_THAT(result.output, EndsWith(" s; 2 were up to date\n"));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(convertInJobs(folder.path(), {"--dry-run"}).output,
              "2 files, 0 to convert, 0 more if bounding spheres change, 2 up to date, 0 that cannot be converted\n");
}

TEST(ConvertJobsNothingToDo, IsSaidOnlyAfterARunWithoutFailures) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "a.png");
    fs::remove(folder / "in/sub/tile.flt");

    EXPECT_EQ(convertInJobs(folder.path()).status, 5);

    EXPECT_FALSE(fs::exists(folder / record));
    EXPECT_EQ(convertInJobs(folder.path()).status, 5);
}

TEST(ConvertJobsNothingToDo, IsNotBelievedOfADamagedRecord) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "a.png");
    convertInJobs(folder.path());
    const std::string whole = readBytes(folder / record);
    for (const std::string& bytes :
         {std::string(), whole.substr(0, whole.size() - 1), std::string(whole.size(), '\0')}) {
        writeBytes(folder / record, bytes);
        EXPECT_THAT(convertInJobs(folder.path()).output, EndsWith(" s; 2 were up to date\n"));
        EXPECT_EQ(readBytes(folder / record), whole) << "it was made anew";
    }
}

TEST(ConvertJobsNothingToDo, IsNotBelievedOfARecordWithAnyByteChanged) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "a.png");
    convertInJobs(folder.path());
    ASSERT_TRUE(FinishedRun::unchanged(optionsIn(folder)));
    const std::string whole = readBytes(folder / record);
    for (std::size_t i = 0; i < whole.size(); ++i) {
        std::string bytes = whole;
        bytes[i] = static_cast<char>(bytes[i] ^ 1);
        writeBytes(folder / record, bytes);
        EXPECT_FALSE(FinishedRun::unchanged(optionsIn(folder))) << i;
    }
}

TEST(ConvertJobsNothingToDo, IsNotBelievedOfOtherOptions) {
    const std::vector<std::string> plain = {"convert", "in/master.flt", "out/m.ive", "--jobs", "2"};
    for (const std::vector<std::string>& more : {std::vector<std::string>{},
                                                 {"--convert-references"},
                                                 {"--recurse", "--max-range", "5"},
                                                 {"--recurse", "--no-smooth"},
                                                 {"--recurse", "--textures", "copy"}}) {
        const TemporaryDirectory folder;
        writeDatabase(folder, "a.png");
        writeGrey(folder / "in/sub/a.png", 100);
        convertInJobs(folder.path());
        std::vector<std::string> arguments = plain;
        arguments.insert(arguments.end(), more.begin(), more.end());
        ToolSettings settings;
        settings.workingDirectory = folder.path();

        const ToolResult result = runTool(arguments, settings);

        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_THAT(result.output, Not(HasSubstr("2 were up to date")));
    }
}

TEST(ConvertJobsNothingToDo, IsNotBelievedOfAnotherInputOrOutput) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "a.png");
    convertInJobs(folder.path());
    fs::copy(folder / "in", folder / "in2", fs::copy_options::recursive);
    fs::copy(folder / "out", folder / "out2", fs::copy_options::recursive);
    ASSERT_TRUE(FinishedRun::unchanged(optionsIn(folder)));

    ConversionOptions otherInput = optionsIn(folder);
    otherInput.input = folder / "in2/master.flt";
    ConversionOptions otherOutput = optionsIn(folder);
    otherOutput.output = folder / "out2/m.ive";

    EXPECT_FALSE(FinishedRun::unchanged(otherInput));
    EXPECT_FALSE(FinishedRun::unchanged(otherOutput));
}

TEST(ConvertJobsNothingToDo, IsNotBelievedIfSomethingHasChangedWhileItWasLookedAt) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "a.png");
    writeGrey(folder / "in/sub/a.png", 100);
    const std::string texture = folder / "in/sub/a.png";
    const Lookup present = {folder / "in/sub", "a.png", texture, stampOf(texture), stampOf(texture + ".attr")};
    const Lookup absent = {folder / "in/sub", "b.png", {}, {}, {}};
    Lookup elsewhere = present;
    elsewhere.found = folder / "in/a.png";
    Lookup wasAbsent = present;
    wasAbsent.found = {};
    const std::int64_t time = timeOfFolder(folder / "in/sub");

    EXPECT_TRUE(isBelieved(folder, present, time));
    EXPECT_TRUE(isBelieved(folder, absent, time));
    EXPECT_FALSE(isBelieved(folder, elsewhere, time));
    EXPECT_FALSE(isBelieved(folder, wasAbsent, time));
    EXPECT_FALSE(isBelieved(folder, absent, time - 1));
}

TEST(ConvertJobsNothingToDo, EndsWhenSomethingComesThatOnlyAJobHasLookedFor) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "a.png");
    const fs::path elsewhere = folder / "elsewhere";
    fs::create_directories(elsewhere);
    fs::last_write_time(elsewhere, fs::file_time_type::clock::now() - std::chrono::seconds(5));
    EXPECT_TRUE(isBelieved(folder, {elsewhere, "b.png", {}, {}, {}}));

    writeBytes(elsewhere / "b.png", "anything");

    EXPECT_FALSE(FinishedRun::unchanged(optionsIn(folder)));
}

TEST(ConvertJobsNothingToDo, IsNotBelievedOfAnotherVersion) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "a.png");
    convertInJobs(folder.path());
    const std::string whole = readBytes(folder / record);
    std::string other = whole.substr(asHexadecimal(0).size());
    other[other.find(SCENEUTILS_VERSION)] = 'x';
    writeBytes(folder / record, asHexadecimal(hashOf(other)) + other);

    convertInJobs(folder.path());

    EXPECT_EQ(readBytes(folder / record), whole) << "it was made anew";
}

TEST(ConvertJobsNothingToDo, EndsWhenATextureComesIntoANewFolder) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "../pictures/a.png");
    expectNoticed(folder, [&] { writeGrey(folder / "in/pictures/a.png", 100); });
}

TEST(ConvertJobsNothingToDo, EndsWhenATextureOfTheRightLetterCaseComes) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "a.png");
    writeGrey(folder / "in/sub/A.PNG", 100);
    expectNoticed(folder, [&] { writeGrey(folder / "in/sub/a.png", 200); });
}

TEST(ConvertJobsNothingToDo, EndsWhenAFileHasAnotherSizeOrAnotherTime) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "a.png");
    writeGrey(folder / "in/sub/a.png", 100);
    const fs::path tile = folder / "in/sub/tile.flt";
    expectNoticed(folder, [&] {
        const auto time = fs::last_write_time(tile);
        writeFlight(tile, 7);
        fs::last_write_time(tile, time);
    });
    expectNoticed(folder, [&] { fs::last_write_time(tile, fs::last_write_time(tile) + std::chrono::seconds(5)); });
}

TEST(ConvertJobsNothingToDo, EndsWhenALinkLeadsElsewhere) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"sub/tile.flt"});
    writeFlight(folder / "one/tile.flt", 5);
    writeFlight(folder / "two/tile.flt", 7);
    fs::create_directory_symlink("../one", folder / "in/sub");
    expectNoticed(folder, [&] {
        fs::remove(folder / "in/sub");
        fs::create_directory_symlink("../two", folder / "in/sub");
    });
}

TEST(ConvertJobsNothingToDo, EndsWhenTexturesAreLookedForElsewhere) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "a.png");
    writeGrey(folder / "elsewhere/a.png", 100);
    ToolSettings settings;
    settings.environment = {{"OSG_FILE_PATH", folder / "elsewhere"}};
    expectNoticed(
        folder, [] {}, settings);
}

TEST(ConvertJobsNothingToDo, EndsWhenAnOutputOrItsTextureIsTouched) {
    for (const std::string name : {"out/sub/tile.ive", "out/sub/a.png"}) {
        const TemporaryDirectory folder;
        writeDatabase(folder, "a.png");
        writeGrey(folder / "in/sub/a.png", 100);
        expectNoticed(folder, [&] { fs::remove(folder / name); });
    }
}

TEST(ConvertJobs, CountEveryTextureOnceWhoeverHasCopiedIt) {
    const TemporaryDirectory folder;
    writeDatabase(folder, "a.png");
    writeGrey(folder / "in/sub/a.png", 100);
    const std::string first = convertInJobs(folder.path()).output;
    fs::last_write_time(folder / "in/sub/tile.flt", fs::file_time_type::clock::now() + std::chrono::seconds(5));
    const std::string second = convertInJobs(folder.path()).output;

    const auto bytes = [](const std::string& line) { return line.substr(0, line.find(" bytes out")); };
    EXPECT_EQ(bytes(second), bytes(first));
    EXPECT_THAT(second, EndsWith(" s; 1 was up to date\n"));
}

TEST(ConvertJobs, CountWhatTheyDidThemselves) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"a.flt", "b.flt", "c.flt", "d.flt", "e.flt", "f.flt", "g.flt", "h.flt"});
    for (const std::string name : {"a", "b", "c", "d", "e", "f", "g", "h"})
        writeFlight(folder / ("in/" + name + ".flt"), 5);
    convertInJobs(folder.path(), {"--jobs", "1"});
    fs::last_write_time(folder / "in/c.flt", fs::file_time_type::clock::now() + std::chrono::seconds(5));

    EXPECT_THAT(convertInJobs(folder.path(), {"--jobs", "1"}).output, EndsWith(" s; 8 were up to date\n"));
}
