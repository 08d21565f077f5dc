#include "sample/SampleDatabase.h"
#include "support/Conversions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/** A database in nested folders: the master and two tiles of the same name, each of which refers to a house. */
void writeNested(const fs::path& folder) {
    writeFlight(folder / "db/master.flt", 20, {"west/tile.flt", "east/tile.flt"});
    writeFlight(folder / "db/west/tile.flt", 16, {"parts/house.flt"});
    writeFlight(folder / "db/west/parts/house.flt", 3);
    writeFlight(folder / "db/east/tile.flt", 12, {"parts/house.flt"});
    writeFlight(folder / "db/east/parts/house.flt", 5);
}

void expectNested(const fs::path& folder) {
    EXPECT_EQ(widthOf(folder / "west/tile.ive"), 16.0f);
    EXPECT_EQ(widthOf(folder / "east/tile.ive"), 12.0f);
    EXPECT_EQ(widthOf(folder / "west/parts/house.ive"), 3.0f);
    EXPECT_EQ(widthOf(folder / "east/parts/house.ive"), 5.0f);
}

std::vector<float> radii(const fs::path& path) {
    std::vector<float> radii;
    for (const auto& plod : findAll<osg::PagedLOD>(load(path))) radii.push_back(plod->getRadius());
    return radii;
}

constexpr float halfDiagonal = 0.70710678f;

}  // namespace

TEST(ConvertPaths, GivesTheSameBytesHoweverInputAndOutputAreSpelled) {
    const TemporaryDirectory folder;
    writeNested(folder.path());
    fs::create_directories(folder / "elsewhere/deep");
    const auto convertedFrom = [&](const std::string& from, const std::string& input, const std::string& output) {
        fs::remove_all(folder / "out");
        ToolSettings settings;
        settings.workingDirectory = folder / from;
        EXPECT_EQ(convertIn(folder.path(), {input, output, "--recurse"}, settings).status, 0);
        return contentOf(folder / "out");
    };

    const auto expected = convertedFrom("", "db/master.flt", "out/world/m.ive");

    ASSERT_EQ(expected.size(), 5u);
    expectNested(fs::path(folder / "out/world"));
    EXPECT_EQ(convertedFrom("db", "master.flt", "../out/world/m.ive"), expected);
    EXPECT_EQ(convertedFrom("elsewhere/deep", "../../db/master.flt", "./../../out/world/m.ive"), expected);
    EXPECT_EQ(convertedFrom("db/west", "../../db/east/../master.flt", folder / "out/world/../world/m.ive"), expected);
    EXPECT_EQ(convertedFrom("", folder / "db/master.flt", folder / "out/world/m.ive"), expected);
    EXPECT_EQ(convertedFrom("db/east", folder / "db//master.flt", "../..//out/world/m.ive"), expected);
}

TEST(ConvertPaths, ConvertsAnInputOfABareNameIntoAnOutputOfABareName) {
    const TemporaryDirectory folder;
    writeNested(folder.path());
    ToolSettings settings;
    settings.workingDirectory = folder / "db";

    EXPECT_EQ(convertIn(folder.path(), {"master.flt", "master.ive", "--recurse"}, settings).status, 0);

    expectNested(folder / "db");
}

TEST(ConvertPaths, GivesEachOfTwoTilesOfTheSameNameItsOwnContent) {
    const TemporaryDirectory folder;
    writeNested(folder.path());

    convertIn(folder.path(), {"db/master.flt", "out/m.ive", "--recurse"});

    expectNested(folder / "out");
    EXPECT_THAT(pagedFiles(load(folder / "out/m.ive")), ElementsAre("west/tile.ive", "east/tile.ive"));
    EXPECT_THAT(radii(folder / "out/m.ive"),
                ElementsAre(testing::FloatEq(16 * halfDiagonal), testing::FloatEq(12 * halfDiagonal)));
    EXPECT_THAT(radii(folder / "out/west/tile.ive"), ElementsAre(testing::FloatEq(3 * halfDiagonal)));
    EXPECT_THAT(radii(folder / "out/east/tile.ive"), ElementsAre(testing::FloatEq(5 * halfDiagonal)));
}

TEST(ConvertPaths, NeverTakesAFileOfTheSameNameFromTheWorkingDirectory) {
    const TemporaryDirectory folder;
    writeNested(folder.path());
    fs::remove(folder / "db/east/parts/house.flt");
    for (const char* decoy : {"tile.flt", "house.flt", "parts/house.flt", "west/tile.flt", "east/parts/house.flt"})
        writeFlight(folder / decoy, 999);

    const ToolResult result = convertIn(folder.path(), {"db/master.flt", "out/m.ive", "--recurse"});

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errors, "sceneutils: east/parts/house.flt (named by east/tile.flt): no such file\n");
    EXPECT_EQ(widthOf(folder / "out/west/tile.ive"), 16.0f);
    EXPECT_EQ(widthOf(folder / "out/west/parts/house.ive"), 3.0f);
    EXPECT_FALSE(fs::exists(folder / "out/east/parts"));
}

TEST(ConvertPaths, FollowsReferencesAsOtherSystemsWriteThem) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"Tiles\\A.FLT", "TILES/b.flt", ".\\tiles\\..\\tiles\\C.flt"});
    writeFlight(folder / "in/tiles/a.flt", 3);
    writeFlight(folder / "in/tiles/B.Flt", 4);
    writeFlight(folder / "in/tiles/c.flt", 5);

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(pagedFiles(load(folder / "out/m.ive")), ElementsAre("tiles/a.ive", "tiles/B.ive", "tiles/c.ive"));
    EXPECT_EQ(widthOf(folder / "out/tiles/a.ive"), 3.0f);
    EXPECT_EQ(widthOf(folder / "out/tiles/B.ive"), 4.0f);
    EXPECT_EQ(widthOf(folder / "out/tiles/c.ive"), 5.0f);
}

TEST(ConvertPaths, PutsFilesFromAboveTheMastersFolderBelowAFolderOfTheirOwn) {
    const TemporaryDirectory folder;
    writeFlight(folder / "db/master/master.flt", 20, {"../common/house.flt", folder / "far/tree.flt"});
    writeFlight(folder / "db/common/house.flt", 3, {"../master/master.flt"});
    writeFlight(folder / "far/tree.flt", 4);

    EXPECT_EQ(convertIn(folder.path(), {"db/master/master.flt", "out/m.ive", "--recurse"}).status, 0);

    EXPECT_THAT(pagedFiles(load(folder / "out/m.ive")),
                ElementsAre("_parent/common/house.ive", "_parent/_parent/far/tree.ive"));
    EXPECT_THAT(pagedFiles(load(folder / "out/_parent/common/house.ive")), ElementsAre("../../m.ive"));
    EXPECT_EQ(widthOf(folder / "out/_parent/common/house.ive"), 3.0f);
    EXPECT_EQ(widthOf(folder / "out/_parent/_parent/far/tree.ive"), 4.0f);
}

TEST(ConvertPaths, GivesTwoFilesWhoseOutputsWouldHaveTheSameNameOneEach) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"a.flt", "a.flt.flt", "A.flt", "sub/a.flt"});
    writeFlight(folder / "in/a.flt", 3);
    writeFlight(folder / "in/a.flt.flt", 4);
    writeFlight(folder / "in/A.flt", 5);
    writeFlight(folder / "in/sub/a.flt", 6);

    EXPECT_EQ(convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"}).status, 0);

    EXPECT_THAT(pagedFiles(load(folder / "out/m.ive")), ElementsAre("a.ive", "a-2.ive", "A-3.ive", "sub/a.ive"));
    EXPECT_EQ(widthOf(folder / "out/a.ive"), 3.0f);
    EXPECT_EQ(widthOf(folder / "out/a-2.ive"), 4.0f);
    EXPECT_EQ(widthOf(folder / "out/A-3.ive"), 5.0f);
    EXPECT_EQ(widthOf(folder / "out/sub/a.ive"), 6.0f);
}

TEST(ConvertPaths, KeepsTheMastersOutputApartFromThoseOfItsReferences) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"world.flt"});
    writeFlight(folder / "in/world.flt", 3);

    EXPECT_EQ(convertIn(folder.path(), {"in/master.flt", "out/world.ive", "--recurse"}).status, 0);

    EXPECT_THAT(pagedFiles(load(folder / "out/world.ive")), ElementsAre("world-2.ive"));
    EXPECT_EQ(widthOf(folder / "out/world.ive"), 20.0f);
    EXPECT_EQ(widthOf(folder / "out/world-2.ive"), 3.0f);
}

TEST(ConvertPaths, FollowsANameThatHoldsTheEndingInItsMiddle) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"x.flt2", "old.flt.d/y.flt"});
    writeFlight(folder / "in/x.flt2", 3);
    writeFlight(folder / "in/old.flt.d/y.flt", 4);

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    // OSG chooses its reader by the ending, and has none for this one.
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errors, "sceneutils: x.flt2 (named by master.flt): cannot be read as OpenFlight\n");
    EXPECT_THAT(references(load(folder / "out/m.ive")), ElementsAre("x.flt2"));
    EXPECT_THAT(pagedFiles(load(folder / "out/m.ive")), ElementsAre("old.flt.d/y.ive"));
    EXPECT_EQ(widthOf(folder / "out/old.flt.d/y.ive"), 4.0f);
}

TEST(ConvertPaths, LeavesReferencesToOtherKindsOfFilesThatStillLeadThere) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"parts\\Tile.osg", "parts/a.flt"});
    writeFlight(folder / "in/parts/a.flt", 3);
    osgDB::writeNodeFile(*makeModel(7), folder / "in/parts/tile.osg");

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/deep/m.ive", "--recurse"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(countsIn(result), "2 files read, 2 converted, 0 failed, 0 textures missing");
    EXPECT_THAT(references(load(folder / "out/deep/m.ive")), ElementsAre("../../in/parts/tile.osg"));
    EXPECT_THAT(pagedFiles(load(folder / "out/deep/m.ive")), ElementsAre("parts/a.ive"));
    EXPECT_EQ(widthOf(fs::path(folder / "out/deep") / "../../in/parts/tile.osg"), 7.0f);
}

TEST(ConvertPaths, ConvertsAFileThatIsReachedInSeveralWaysOnce) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20,
                {"a.flt", "./a.flt", "sub/../a.flt", "A.FLT", "linked/a.flt", folder / "in/a.flt"});
    writeFlight(folder / "in/a.flt", 3);
    fs::create_directories(folder / "in/sub");
    fs::create_directory_symlink(".", folder / "in/linked");

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    EXPECT_EQ(countsIn(result), "2 files read, 2 converted, 0 failed, 0 textures missing");
    EXPECT_EQ(pagedFiles(load(folder / "out/m.ive")), std::vector<std::string>(6, "a.ive"));
}

TEST(ConvertPaths, TakesNamesThatAreNotAscii) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in put/m\xc3\xbcnchen.flt", 20,
                {"\xe6\x9d\xb1 tile.flt", "latin-\xe9.flt", "-x.flt", "0.flt"});
    writeFlight(folder / "in put/\xe6\x9d\xb1 tile.flt", 3);
    writeFlight(folder / "in put/latin-\xe9.flt", 4);
    writeFlight(folder / "in put/-x.flt", 5);
    writeFlight(folder / "in put/0.flt", 6);

    const ToolResult result = convertIn(
        folder.path(), {"in put/m\xc3\xbcnchen.flt", "out put/\xc3\xbc.ive", "--recurse", "--report", "r.json"});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(pagedFiles(load(folder / "out put/\xc3\xbc.ive")),
                ElementsAre("\xe6\x9d\xb1 tile.ive", "latin-\xe9.ive", "-x.ive", "0.ive"));
    EXPECT_EQ(widthOf(folder / "out put/0.ive"), 6.0f);
}

TEST(ConvertPaths, ConvertsADatabaseWhoseTilesAllHaveTheSameName) {
    const TemporaryDirectory folder;
    veltrane::sceneutils::tool::SampleOptions options;
    options.tiles = 4;
    options.levels = 3;
    options.sameNames = true;
    veltrane::sceneutils::tool::writeSampleDatabase(folder / "in", options);

    EXPECT_EQ(convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"}).status, 0);

    std::set<std::string> bytes;
    std::size_t tiles = 0;
    for (const auto& [name, content] : contentOf(folder / "out")) {
        if (name.find("tiles/") != 0) continue;
        ++tiles;
        bytes.insert(content);
    }
    EXPECT_EQ(tiles, 12u);
    EXPECT_EQ(bytes.size(), 12u) << "two of them hold the same";
}
