#include "support/ConvertedTextures.h"

#include <sceneutils/CreatePagedLODVisitor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <osg/Image>
#include <osg/Material>
#include <osg/Texture2D>

#include <algorithm>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

TEST(ConvertTextures, NamesTexturesRelativeToTheFileAndCopiesThem) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/textures/a.png", 100);
    writeGrey(folder / "in/tiles/b.png", 150);
    writeTextured(folder / "in/master.flt", {"textures/a.png"}, {"tiles/tile.flt"});
    writeTextured(folder / "in/tiles/tile.flt", {"..\\Textures\\A.PNG", "b.png"});

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(namesIn(folder / "out"),
              std::set<std::string>({"m.ive", "textures/a.png", "tiles/b.png", "tiles/tile.ive"}));
    EXPECT_THAT(textureNamesIn(folder / "out/m.ive"), ElementsAre("textures/a.png"));
    EXPECT_THAT(textureNamesIn(folder / "out/tiles/tile.ive"), UnorderedElementsAre("../textures/a.png", "b.png"));
    EXPECT_THAT(greysIn(folder / "out/tiles/tile.ive"), UnorderedElementsAre(100, 150));
    EXPECT_EQ(readBytes(folder / "out/textures/a.png"), readBytes(folder / "in/textures/a.png"));
}

TEST(ConvertTextures, KeepsTexturesOfTheSameNameApart) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/west/a.png", 100);
    writeGrey(folder / "in/east/a.png", 150);
    writeGrey(folder / "a.png", 1);  // in the working directory
    writeFlight(folder / "in/master.flt", 10, {"west/tile.flt", "east/tile.flt"});
    writeTextured(folder / "in/west/tile.flt", {"a.png"});
    writeTextured(folder / "in/east/tile.flt", {"a.png"});

    convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    EXPECT_THAT(greysIn(folder / "out/west/tile.ive"), ElementsAre(100));
    EXPECT_THAT(greysIn(folder / "out/east/tile.ive"), ElementsAre(150));
}

TEST(ConvertTextures, CountsTheBytesOfASharedTextureOnce) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeTextured(folder / "in/master.flt", {"a.png"}, {"b.flt", "c.flt"});
    writeTextured(folder / "in/b.flt", {"a.png"});
    writeTextured(folder / "in/c.flt", {"./a.png"});

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    std::uintmax_t bytes = 0;
    for (const auto& [name, content] : contentOf(folder / "out")) bytes += content.size();
    EXPECT_THAT(result.output, testing::HasSubstr(", " + std::to_string(bytes) + " bytes out, "));
    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"a.png", "b.ive", "c.ive", "m.ive"}));
}

TEST(ConvertTextures, PutsTexturesFromElsewhereBelowAFolderOfTheirOwn) {
    const TemporaryDirectory folder;
    writeGrey(folder / "common/a.png", 100);
    writeTextured(folder / "in/master.flt", {"../common/a.png"});

    convertIn(folder.path(), {"in/master.flt", "out/m.ive"});

    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"_parent/common/a.png", "m.ive"}));
    EXPECT_THAT(textureNamesIn(folder / "out/m.ive"), ElementsAre("_parent/common/a.png"));
}

TEST(ConvertTextures, NamesAndCountsWhatIsMissingOrNoImage) {
    const TemporaryDirectory folder;
    writeBytes(folder / "in/broken.png", "no picture");
    writeGrey(folder / "in/a.png", 100);
    writeTextured(folder / "in/master.flt", {"gone.png", "a.png"}, {"tile.flt"});
    writeTextured(folder / "in/tile.flt", {"gone.png", "broken.png"});

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(countsIn(result), "2 files read, 2 converted, 0 failed, 2 textures missing");
    EXPECT_THAT(result.errorLines(),
                UnorderedElementsAre("sceneutils: tile.flt: texture gone.png is missing or unreadable",
                                     "sceneutils: tile.flt: texture broken.png is missing or unreadable"));
    EXPECT_THAT(greysIn(folder / "out/m.ive"), ElementsAre(100));
}

TEST(ConvertTextures, KeepsThePixelsOfAnAtlasInTheFile) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeGrey(folder / "in/b.png", 150);
    writeTextured(folder / "in/master.flt", {"a.png", "b.png"}, {}, 1.0f);

    convertIn(folder.path(), {"in/master.flt", "out/m.ive"});

    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"m.ive"}));
    std::set<const osg::Texture2D*> atlases;
    std::set<int> greys;
    for (const auto& texture : findTextures(load(folder / "out/m.ive"))) {
        atlases.insert(texture);
        const osg::Image& image = *texture->getImage();
        ASSERT_NE(image.data(), nullptr);
        for (int y = 0; y < image.t(); ++y)
            for (int x = 0; x < image.s(); ++x) greys.insert(*image.data(x, y));
    }
    EXPECT_EQ(atlases.size(), 1u);
    EXPECT_EQ(greys.count(100), 1u);
    EXPECT_EQ(greys.count(150), 1u);
}

TEST(ConvertTextures, CopiesNothingWhenADatabaseIsConvertedInPlace) {
    const TemporaryDirectory folder;
    writeGrey(folder / "db/textures/a.png", 100);
    writeTextured(folder / "db/master.flt", {"textures/a.png"}, {"tiles/tile.flt"});
    writeTextured(folder / "db/tiles/tile.flt", {"../textures/a.png"});
    const std::set<std::string> before = namesIn(folder / "db");

    EXPECT_EQ(convertIn(folder.path(), {"db/master.flt", "db/master.ive", "--recurse"}).status, 0);

    std::set<std::string> expected = before;
    expected.insert({"master.ive", "tiles/tile.ive"});
    EXPECT_EQ(namesIn(folder / "db"), expected);
    EXPECT_THAT(textureNamesIn(folder / "db/tiles/tile.ive"), ElementsAre("../textures/a.png"));
}

TEST(ConvertTextures, DoesNotReplaceATextureThatIsThereAlready) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeTextured(folder / "in/master.flt", {"a.png"});
    writeGrey(folder / "out/a.png", 7);

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive"});

    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errorLines(),
                ElementsAre(testing::EndsWith("/out/a.png: exists already; pass --overwrite to replace it")));
    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"a.png"}));
}

TEST(ConvertTextures, TakesATextureThatIsThereAlreadyIfItIsTheSame) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeTextured(folder / "in/master.flt", {"a.png"});
    fs::create_directory(folder / "out");
    fs::copy(folder / "in/a.png", folder / "out/a.png");

    EXPECT_EQ(convertIn(folder.path(), {"in/master.flt", "out/m.ive"}).status, 0);
}

TEST(ConvertTextures, FindsTexturesOnTheDataFilePathAndBesideTheFile) {
    const TemporaryDirectory folder;
    writeGrey(folder / "library/a.png", 100);
    writeGrey(folder / "in/b.png", 150);
    writeTextured(folder / "in/master.flt", {"c:\\textures\\a.png", "/no/such/folder/b.png"});
    ToolSettings settings;
    settings.environment = {{"OSG_FILE_PATH", folder / "library"}};

    EXPECT_EQ(convertIn(folder.path(), {"in/master.flt", "out/m.ive"}, settings).errors, "");

    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"_parent/library/a.png", "b.png", "m.ive"}));
    EXPECT_THAT(greysIn(folder / "out/m.ive"), UnorderedElementsAre(100, 150));
}

TEST(ConvertTextures, TakesAPipeForAMissingTextureInsteadOfWaitingForIt) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeTextured(folder / "in/master.flt", {"a.png"});
    fs::remove(folder / "in/a.png");
    ASSERT_EQ(mkfifo((folder / "in/a.png").c_str(), 0600), 0);

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive"});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errorLines(), ElementsAre("sceneutils: master.flt: texture a.png is missing or unreadable"));
}

TEST(ConvertTextures, AreNotReplacedByTheReport) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeTextured(folder / "in/master.flt", {"a.png"});

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--report", "out/a.png"});

    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errorLines(), ElementsAre("sceneutils: out/a.png: is one of the outputs; choose another name"));
    EXPECT_EQ(readBytes(folder / "out/a.png"), readBytes(folder / "in/a.png"));
}

TEST(ConvertTextures, OfFilesThatAreNotConvertedAreInputsToo) {
    const TemporaryDirectory folder;
    writeGrey(folder / "db/x.png", 100);
    writeTextured(folder / "db/m.flt", {"x.png"}, {"../other/t.flt"});
    writeGrey(folder / "other/x.png", 7);
    writeTextured(folder / "other/t.flt", {}, {"sub/u.flt"});
    writeTextured(folder / "other/sub/u.flt", {"../x.png"});

    convertIn(folder.path(), {"db/m.flt", "other/w.ive", "--overwrite"});

    EXPECT_THAT(textureNamesIn(folder / "other/w.ive"), ElementsAre("x-2.png"));
}
