#include "files/FileFinder.h"
#include "support/FlightRecords.h"
#include "support/TemporaryDirectory.h"

#include <osgDB/FileUtils>
#include <osgDB/Registry>

#include <gmock/gmock.h>

#include <sys/stat.h>

using namespace testing_support;
using namespace veltrane::sceneutils::tool;

namespace fs = std::filesystem;

namespace {

// What a finder answers where it finds nothing.
constexpr std::nullopt_t nothing = std::nullopt;

using Found = std::optional<fs::path>;

Found find(const TemporaryDirectory& folder, const std::string& name) {
    return FileFinder().find(folder.path(), name);
}

Found findTexture(const fs::path& folder, const std::string& name) {
    return FileFinder().findTexture(folder, name);
}

/** Makes empty files. */
void put(const TemporaryDirectory& folder, const std::vector<std::string>& names) {
    for (const std::string& name : names) saveBytes(folder / name, "");
}

/** Gives osgDB another data file path for the length of a scope. */
class DataFilePath {
public:
    explicit DataFilePath(const osgDB::FilePathList& folders) : _own(osgDB::getDataFilePathList()) {
        osgDB::setDataFilePathList(folders);
    }
    ~DataFilePath() { osgDB::setDataFilePathList(_own); }
    DataFilePath(const DataFilePath&) = delete;
    DataFilePath& operator=(const DataFilePath&) = delete;

private:
    osgDB::FilePathList _own;
};

}  // namespace

TEST(FileFinder, FindsAFileByItsName) {
    const TemporaryDirectory folder;
    put(folder, {"a.flt", "tiles/r1/b.flt"});
    EXPECT_EQ(find(folder, "a.flt"), folder / "a.flt");
    EXPECT_EQ(find(folder, "tiles/r1/b.flt"), folder / "tiles/r1/b.flt");
    EXPECT_EQ(find(folder, "b.flt"), nothing);
    EXPECT_EQ(find(folder, "a"), nothing);
    EXPECT_EQ(find(folder, ""), nothing);
}

TEST(FileFinder, FindsAFileInAnotherLetterCase) {
    const TemporaryDirectory folder;
    put(folder, {"Tiles/R1/Hill.FLT", "plain.flt"});
    EXPECT_EQ(find(folder, "tiles/r1/hill.flt"), folder / "Tiles/R1/Hill.FLT");
    EXPECT_EQ(find(folder, "TILES/R1/HILL.flt"), folder / "Tiles/R1/Hill.FLT");
    EXPECT_EQ(find(folder, "Tiles/r1/Hill.FLT"), folder / "Tiles/R1/Hill.FLT");
    EXPECT_EQ(find(folder, "PLAIN.flt"), folder / "plain.flt");
}

TEST(FileFinder, FindsAFileNamedWithBackslashes) {
    const TemporaryDirectory folder;
    put(folder, {"tiles/r1/hill.flt"});
    EXPECT_EQ(find(folder, "tiles\\r1\\hill.flt"), folder / "tiles/r1/hill.flt");
    EXPECT_EQ(find(folder, ".\\tiles\\R1/HILL.flt"), folder / "tiles/r1/hill.flt");
    EXPECT_EQ(find(folder, "tiles\\\\r1\\hill.flt"), folder / "tiles/r1/hill.flt");
}

TEST(FileFinder, PrefersAFileWithABackslashInItsNameOnDisk) {
    const TemporaryDirectory folder;
    put(folder, {"tiles\\hill.flt", "tiles/hill.flt"});
    EXPECT_EQ(find(folder, "tiles\\hill.flt"), folder / "tiles\\hill.flt");
    EXPECT_EQ(find(folder, "tiles/hill.flt"), folder / "tiles/hill.flt");
}

TEST(FileFinder, FollowsDots) {
    const TemporaryDirectory folder;
    put(folder, {"near.flt", "db/tiles/hill.flt"});
    FileFinder finder;
    EXPECT_EQ(finder.find(folder / "db", "../near.flt"), folder / "db/../near.flt");
    EXPECT_EQ(finder.find(folder / "db", "..\\NEAR.flt"), folder / "db/../near.flt");
    EXPECT_EQ(finder.find(folder / "db", "./tiles/./hill.flt"), folder / "db/./tiles/./hill.flt");
    EXPECT_EQ(finder.find(folder / "db", "Tiles/../TILES/hill.flt"), folder / "db/tiles/../tiles/hill.flt");
    EXPECT_EQ(finder.find(folder / "db", "none/../tiles/hill.flt"), nothing);
}

TEST(FileFinder, FindsAbsoluteNamesWhereTheySay) {
    const TemporaryDirectory folder;
    const TemporaryDirectory elsewhere;
    put(folder, {"Tiles/hill.flt"});
    EXPECT_EQ(find(elsewhere, folder / "Tiles/hill.flt"), folder / "Tiles/hill.flt");
    EXPECT_EQ(find(elsewhere, folder / "tiles/HILL.flt"), folder / "Tiles/hill.flt");
    EXPECT_EQ(find(elsewhere, "/Tiles/hill.flt"), nothing);
}

TEST(FileFinder, FindsNoModelByADriveLetter) {
    const TemporaryDirectory folder;
    put(folder, {"hill.flt", "db/hill.flt"});
    EXPECT_EQ(find(folder, "C:\\db\\hill.flt"), nothing);
    EXPECT_EQ(find(folder, "C:hill.flt"), nothing);
}

TEST(FileFinder, PrefersTheExactNameThenTheFirstByName) {
    const TemporaryDirectory folder;
    put(folder, {"hill.flt", "Hill.flt", "HILL.flt"});
    EXPECT_EQ(find(folder, "hill.flt"), folder / "hill.flt");
    EXPECT_EQ(find(folder, "Hill.flt"), folder / "Hill.flt");
    EXPECT_EQ(find(folder, "hILL.flt"), folder / "HILL.flt");
}

TEST(FileFinder, PrefersTheExactFolderThenTheFirstByName) {
    const TemporaryDirectory folder;
    put(folder, {"tiles/hill.flt", "Tiles/hill.flt"});
    EXPECT_EQ(find(folder, "tiles/HILL.flt"), folder / "tiles/hill.flt");
    EXPECT_EQ(find(folder, "TILES/hill.flt"), folder / "Tiles/hill.flt");
}

TEST(FileFinder, LeavesLettersBeyondAsciiAsTheyAre) {
    const TemporaryDirectory folder;
    put(folder, {"H\xc3\x9cgel.flt"});
    EXPECT_EQ(find(folder, "h\xc3\x9cGEL.flt"), folder / "H\xc3\x9cgel.flt");
    EXPECT_EQ(find(folder, "H\xc3\xbcgel.flt"), nothing);
    EXPECT_EQ(toLowerCase("AZaz09[@\xc3\x9c"), "azaz09[@\xc3\x9c");
}

TEST(FileFinder, TakesNoFolderForAFile) {
    const TemporaryDirectory folder;
    put(folder, {"hill.flt/tile.flt"});
    EXPECT_EQ(find(folder, "hill.flt"), nothing);
    EXPECT_EQ(find(folder, "HILL.flt"), nothing);
    EXPECT_EQ(find(folder, "."), nothing);
    EXPECT_EQ(find(folder, ".."), nothing);
    EXPECT_EQ(find(folder, "/"), nothing);
    EXPECT_EQ(find(folder, "Hill.flt\\TILE.flt"), folder / "hill.flt/tile.flt");
}

TEST(FileFinder, TakesNoFileForAFolder) {
    const TemporaryDirectory folder;
    put(folder, {"tiles"});
    EXPECT_EQ(find(folder, "tiles/hill.flt"), nothing);
    EXPECT_EQ(find(folder, "Tiles/hill.flt"), nothing);
}

TEST(FileFinder, FindsNothingInAMissingFolder) {
    const TemporaryDirectory folder;
    FileFinder finder;
    EXPECT_EQ(finder.find(folder / "none", "a.flt"), nothing);
    EXPECT_EQ(finder.findTexture(folder / "none", "a.png"), nothing);
}

TEST(FileFinder, LooksNotInTheWorkingDirectory) {
    const TemporaryDirectory folder;
    const TemporaryDirectory elsewhere;
    put(elsewhere, {"a.flt", "a.png"});
    const WorkingDirectory workingDirectory(elsewhere.path());
    EXPECT_EQ(find(folder, "a.flt"), nothing);
    EXPECT_EQ(find(folder, "A.flt"), nothing);
    EXPECT_EQ(findTexture(folder.path(), "a.png"), nothing);
    EXPECT_EQ(findTexture(folder.path(), "C:\\a.png"), nothing);
}

TEST(FileFinder, FindsATextureBesideTheFileThatNamesIt) {
    const TemporaryDirectory folder;
    put(folder, {"Grass.png"});
    EXPECT_EQ(findTexture(folder.path(), "C:\\db\\textures\\Grass.png"), folder / "Grass.png");
    EXPECT_EQ(findTexture(folder.path(), "\\\\server\\share\\grass.PNG"), folder / "Grass.png");
    EXPECT_EQ(findTexture(folder.path(), "/home/somebody/grass.png"), folder / "Grass.png");
    EXPECT_EQ(findTexture(folder.path(), "textures/grass.png"), folder / "Grass.png");
    EXPECT_EQ(findTexture(folder.path(), "textures/"), nothing);
    EXPECT_EQ(find(folder, "textures/Grass.png"), nothing);
}

TEST(FileFinder, PrefersATextureWhereItsNameSays) {
    const TemporaryDirectory folder;
    put(folder, {"grass.png", "textures/GRASS.png"});
    EXPECT_EQ(findTexture(folder.path(), "Textures\\grass.png"), folder / "textures/GRASS.png");
}

TEST(FileFinder, FindsTexturesOnOsgsDataFilePathLast) {
    const TemporaryDirectory folder;
    const TemporaryDirectory first;
    const TemporaryDirectory second;
    put(first, {"Sky.png"});
    put(second, {"sky.png", "textures/grass.png", "rock.png"});
    put(folder, {"rock.png"});
    const DataFilePath dataFilePath({first.path().string(), second.path().string()});
    EXPECT_EQ(findTexture(folder.path(), "sky.png"), first / "Sky.png");
    EXPECT_EQ(findTexture(folder.path(), "C:\\textures\\SKY.png"), first / "Sky.png");
    EXPECT_EQ(findTexture(folder.path(), "textures\\grass.png"), second / "textures/grass.png");
    EXPECT_EQ(findTexture(folder.path(), "textures/rock.png"), folder / "rock.png");
    EXPECT_EQ(find(folder, "sky.png"), nothing);
}

TEST(FileFinder, GivesAbsoluteTexturesForARelativeDataFilePath) {
    const TemporaryDirectory folder;
    const TemporaryDirectory elsewhere;
    put(elsewhere, {"data/sky.png"});
    const WorkingDirectory workingDirectory(elsewhere.path());
    const DataFilePath dataFilePath({"data"});
    EXPECT_EQ(findTexture(folder.path(), "sky.png"), fs::current_path() / "data/sky.png");
}

TEST(FileFinder, FollowsSymbolicLinksAndKeepsTheirNames) {
    const TemporaryDirectory folder;
    put(folder, {"real/hill.flt"});
    fs::create_directory_symlink("real", folder / "Link");
    fs::create_symlink("real/hill.flt", folder / "Hill-Link.flt");
    fs::create_symlink("none.flt", folder / "dangling.flt");
    fs::create_symlink("loop.flt", folder / "loop.flt");
    EXPECT_EQ(find(folder, "link/HILL.flt"), folder / "Link/hill.flt");
    EXPECT_EQ(find(folder, "hill-link.flt"), folder / "Hill-Link.flt");
    EXPECT_EQ(find(folder, "dangling.flt"), nothing);
    EXPECT_EQ(find(folder, "Dangling.flt"), nothing);
    EXPECT_EQ(find(folder, "loop.flt"), nothing);
    EXPECT_EQ(find(folder, "loop.flt/a.flt"), nothing);
}

TEST(FileFinder, RemembersWhatAFolderHeld) {
    const TemporaryDirectory folder;
    put(folder, {"b.flt"});
    FileFinder finder;
    EXPECT_EQ(finder.find(folder.path(), "A.flt"), nothing);
    put(folder, {"a.flt"});
    EXPECT_EQ(finder.find(folder.path(), "A.flt"), nothing);
    EXPECT_EQ(finder.find(folder.path(), "a.flt"), folder / "a.flt");
    EXPECT_EQ(FileFinder().find(folder.path(), "A.flt"), folder / "a.flt");
}

TEST(FileFinder, StandsNamesThatNoFileCanHave) {
    const TemporaryDirectory folder;
    EXPECT_EQ(find(folder, std::string(300, 'n')), nothing);
    EXPECT_EQ(find(folder, std::string(5000, '/') + "a.flt"), nothing);
    EXPECT_EQ(find(folder, "\xff\xfe\n.flt"), nothing);
}
