#include "convert/JobFiles.h"
#include "support/JobConversions.h"
#include "support/TexturedModels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::EndsWith;
using veltrane::sceneutils::tool::asHexadecimal;
using veltrane::sceneutils::tool::canOrderObjectsByAge;
using veltrane::sceneutils::tool::hashOf;

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
