#include "convert/ConversionPlan.h"
#include "convert/TexturePlaces.h"
#include "sample/SampleDatabase.h"
#include "support/ConvertedTextures.h"
#include "support/JobConversions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <functional>
#include <string>
#include <vector>

namespace fs = std::filesystem;
namespace tool = veltrane::sceneutils::tool;
using namespace testing_support;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using veltrane::sceneutils::tool::gatheredName;
using veltrane::sceneutils::tool::SampleOptions;
using veltrane::sceneutils::tool::writeSampleDatabase;

namespace {

using Names = std::set<std::string>;

const std::vector<std::string> modes = {"relative", "copy", "embed"};

/** Converts "in/master.flt" into "out/m.ive" without jobs. */
ToolResult convertInOrder(const TemporaryDirectory& folder, const std::string& mode,
                          const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {"convert", "in/master.flt", "out/m.ive", "--recurse", "--textures", mode};
    arguments.insert(arguments.end(), more.begin(), more.end());
    ToolSettings settings;
    settings.workingDirectory = folder.path();
    const ToolResult result = runTool(arguments, settings);
    expectNoPartialFiles(folder.path());
    return result;
}

/** The same in jobs. */
ToolResult convertWithJobs(const TemporaryDirectory& folder, const std::string& mode,
                           const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {"--textures", mode};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return convertInJobs(folder.path(), arguments);
}

/** The name of a texture that is gathered from "in". */
std::string gathered(const std::string& texture) {
    return "m.textures/" + gatheredName("/in", "/in/" + texture);
}

/** Tiles in two folders that have textures of the same name, and one of the master's. */
void writeTwins(const TemporaryDirectory& folder) {
    writeGrey(folder / "in/west/a.png", 100);
    writeGrey(folder / "in/east/a.png", 150);
    writeGrey(folder / "in/common.png", 200);
    writeTextured(folder / "in/master.flt", {"common.png"}, {"west/tile.flt", "east/tile.flt"});
    writeTextured(folder / "in/west/tile.flt", {"a.png", "../common.png"});
    writeTextured(folder / "in/east/tile.flt", {"a.png", "../COMMON.png"});
}

Names linksIn(const fs::path& folder) {
    Names links;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_symlink()) links.insert(entry.path().lexically_relative(folder).string());
    }
    return links;
}

/** A picture of 16 by 16 pixels in blocks, with all smaller ones. */
osg::ref_ptr<osg::Image> makeCompressed() {
    osg::ref_ptr<osg::Image> image = new osg::Image;
    auto* bytes = new unsigned char[176];
    for (int i = 0; i < 176; ++i) bytes[i] = static_cast<unsigned char>(i * 7);
    image->setImage(16, 16, 1, GL_COMPRESSED_RGB_S3TC_DXT1_EXT, GL_COMPRESSED_RGB_S3TC_DXT1_EXT, GL_UNSIGNED_BYTE,
                    bytes, osg::Image::USE_NEW_DELETE);
    image->setMipmapLevels({128, 160, 168});
    return image;
}

}  // namespace

TEST(ConvertTextureModes, GatherAllTexturesInOneFolder) {
    const TemporaryDirectory folder;
    writeTwins(folder);

    const ToolResult result = convertInOrder(folder, "copy");

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(namesIn(folder / "out"), Names({"m.ive", "west/tile.ive", "east/tile.ive", gathered("west/a.png"),
                                              gathered("east/a.png"), gathered("common.png")}));
    EXPECT_THAT(textureNamesIn(folder / "out/m.ive"), ElementsAre(gathered("common.png")));
    EXPECT_THAT(textureNamesIn(folder / "out/west/tile.ive"),
                UnorderedElementsAre("../" + gathered("west/a.png"), "../" + gathered("common.png")));
    fs::rename(folder / "out", folder / "moved");
    fs::remove_all(folder / "in");
    EXPECT_THAT(greysIn(folder / "moved/west/tile.ive"), UnorderedElementsAre(100, 200));
    EXPECT_THAT(greysIn(folder / "moved/east/tile.ive"), UnorderedElementsAre(150, 200));
}

TEST(ConvertTextureModes, GatherExactCopiesWithTheTimeOfTheOriginal) {
    const TemporaryDirectory folder;
    writeTwins(folder);
    fs::last_write_time(folder / "in/west/a.png", fs::file_time_type::clock::now() - std::chrono::hours(100));

    convertInOrder(folder, "copy");

    EXPECT_EQ(stateOf(folder / "out").at(gathered("west/a.png")), stateOf(folder / "in").at("west/a.png"));
}

TEST(ConvertTextureModes, GatherATextureOnceWhateverItIsCalled) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/textures/a.png", 100);
    fs::create_symlink("a.png", folder / "in/textures/b.png");
    writeTextured(folder / "in/master.flt", {"textures/a.png", "textures/b.png"}, {"tile.flt"});
    writeTextured(folder / "in/tile.flt", {"./textures/../textures/a.png", folder / "in/textures/a.png"});

    EXPECT_EQ(convertInOrder(folder, "copy").errors, "");

    EXPECT_EQ(namesIn(folder / "out"), Names({"m.ive", "tile.ive", gathered("textures/a.png")}));
}

TEST(ConvertTextureModes, GatherTexturesApartThatDifferInLetterCaseOnly) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeGrey(folder / "in/A.png", 150);
    writeTextured(folder / "in/master.flt", {"a.png", "A.png"});

    convertInOrder(folder, "copy");

    Names lowered;
    for (std::string name : namesIn(folder / "out")) {
        std::transform(name.begin(), name.end(), name.begin(), [](char c) { return c == 'A' ? 'a' : c; });
        lowered.insert(name);
    }
    EXPECT_EQ(lowered.size(), 3u);
    EXPECT_THAT(greysIn(folder / "out/m.ive"), UnorderedElementsAre(100, 150));
}

TEST(ConvertTextureModes, GatherWhatLiesInTheOutputFolderToo) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/textures/a.png", 100);
    writeTextured(folder / "in/master.flt", {"textures/a.png"});
    Names expected = namesIn(folder / "in");
    expected.insert({"m.ive", gathered("textures/a.png")});

    convertIn(folder.path(), {"in/master.flt", "in/m.ive", "--textures", "copy"});

    EXPECT_EQ(namesIn(folder / "in"), expected);
    EXPECT_THAT(textureNamesIn(folder / "in/m.ive"), ElementsAre(gathered("textures/a.png")));
}

TEST(ConvertTextureModes, DoNotGatherOverAnInput) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeGrey(folder / "in" + ("/" + gathered("a.png")), 150);
    writeTextured(folder / "in/master.flt", {"a.png", gathered("a.png")});

    const ToolResult result =
        convertIn(folder.path(), {"in/master.flt", "in/m.ive", "--textures", "copy", "--overwrite"});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(greysIn(folder / "in/m.ive"), UnorderedElementsAre(100, 150));
    std::string other = gathered("a.png");
    other.insert(other.size() - 4, "-2");
    EXPECT_THAT(textureNamesIn(folder / "in/m.ive"), UnorderedElementsAre(other, gathered(gathered("a.png"))));
}

TEST(ConvertTextureModes, KeepDatabasesOfOneFolderApart) {
    const TemporaryDirectory folder;
    writeGrey(folder / "in/a.png", 100);
    writeGrey(folder / "other/a.png", 150);
    writeTextured(folder / "in/master.flt", {"a.png"});
    writeTextured(folder / "other/master.flt", {"a.png"});

    convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--textures", "copy"});
    convertIn(folder.path(), {"other/master.flt", "out/n.ive", "--textures", "copy"});

    EXPECT_THAT(greysIn(folder / "out/m.ive"), ElementsAre(100));
    EXPECT_THAT(greysIn(folder / "out/n.ive"), ElementsAre(150));
}

TEST(ConvertTextureModes, StorePixelsSoThatNoTextureIsNeeded) {
    const TemporaryDirectory folder;
    writeTwins(folder);

    const ToolResult result = convertInOrder(folder, "embed");

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(namesIn(folder / "out"), Names({"m.ive", "west/tile.ive", "east/tile.ive"}));
    fs::remove_all(folder / "in");
    EXPECT_THAT(greysIn(folder / "out/m.ive"), ElementsAre(200));
    EXPECT_THAT(greysIn(folder / "out/west/tile.ive"), UnorderedElementsAre(100, 200));
    EXPECT_THAT(greysIn(folder / "out/east/tile.ive"), UnorderedElementsAre(150, 200));
    EXPECT_THAT(textureNamesIn(folder / "out/west/tile.ive"), IsEmpty());
}

TEST(ConvertTextureModes, NeedNoPlaceForWhatIsStored) {
    const TemporaryDirectory folder;
    writeGrey(folder / "db/x.png", 100);
    writeTextured(folder / "db/m.flt", {"x.png"}, {"../other/t.flt"});
    writeGrey(folder / "other/x.png", 7);
    writeTextured(folder / "other/t.flt", {"x.png"});
    tool::ConversionOptions options;
    options.input = folder / "db/m.flt";
    options.output = folder / "other/w.ive";

    EXPECT_EQ(tool::planFiles(options).displacedTextures.size(), 1u);
    options.textures = tool::TextureMode::Copy;
    EXPECT_EQ(tool::planFiles(options).displacedTextures.size(), 0u);
    options.textures = tool::TextureMode::Embed;
    EXPECT_EQ(tool::planFiles(options).displacedTextures.size(), 0u);
}

TEST(ConvertTextureModes, StorePicturesUnderNamesThatTellThemApart) {
    const TemporaryDirectory folder;
    writeTwins(folder);
    convertInOrder(folder, "embed");

    Names names;
    for (const char* tile : {"out/west/tile.ive", "out/east/tile.ive"}) {
        for (const auto& texture : findTextures(load(folder / tile))) names.insert(texture->getImage()->getFileName());
    }

    EXPECT_EQ(names, Names({gatheredName("/in", "/in/west/a.png"), gatheredName("/in", "/in/east/a.png"),
                            gatheredName("/in", "/in/common.png")}));
}

TEST(ConvertTextureModes, StoreCompressedPicturesWithAllTheirSizes) {
    const TemporaryDirectory folder;
    fs::create_directory(folder / "in");
    const osg::ref_ptr<osgDB::Options> asIs = new osgDB::Options("ddsNoAutoFlipWrite");
    ASSERT_TRUE(osgDB::writeImageFile(*makeCompressed(), folder / "in/a.dds", asIs.get()));
    writeTextured(folder / "in/master.flt", {"a.dds"});
    const osg::ref_ptr<osg::Image> original = osgDB::readRefImageFile(folder / "in/a.dds");

    EXPECT_EQ(convertInOrder(folder, "embed").errors, "");

    fs::remove_all(folder / "in");
    const auto textures = findTextures(load(folder / "out/m.ive"));
    ASSERT_EQ(textures.size(), 1u);
    const osg::Image& stored = *textures.front()->getImage();
    EXPECT_EQ(stored.s(), 16);
    EXPECT_EQ(stored.t(), 16);
    EXPECT_EQ(stored.getPixelFormat(), original->getPixelFormat());
    EXPECT_EQ(stored.getInternalTextureFormat(), original->getInternalTextureFormat());
    EXPECT_EQ(stored.getMipmapLevels(), osg::Image::MipmapDataType({128, 160, 168}));
    ASSERT_EQ(stored.getTotalSizeInBytesIncludingMipmaps(), 176u);
    EXPECT_TRUE(std::equal(stored.data(), stored.data() + 176, original->data()));
}

TEST(ConvertTextureModes, MakeTheSameBytesWithAndWithoutJobs) {
    const TemporaryDirectory folder;
    SampleOptions options;
    options.tiles = 4;
    options.levels = 3;
    writeSampleDatabase(folder / "in", options);
    for (const std::string& mode : modes) {
        convertInOrder(folder, mode);
        const auto expected = contentOf(folder / "out");
        for (const char* jobs : {"1", "8"}) {
            fs::remove_all(folder / "out");
            EXPECT_EQ(convertWithJobs(folder, mode, {"--jobs", jobs}).status, 0);
            expectSameOutputs(outputsIn(folder / "out"), expected);
        }
        fs::remove_all(folder / "out");
    }
}

TEST(ConvertTextureModes, MakeTheSameBytesWhereverTheDatabaseLies) {
    const TemporaryDirectory folder;
    writeTwins(folder);
    fs::create_directories(folder / "a/long/way");
    fs::copy(folder / "in", folder / "a/long/way/down", fs::copy_options::recursive);
    for (const std::string& mode : modes) {
        convertInOrder(folder, mode);
        convertIn(folder.path(), {"a/long/way/down/master.flt", "b/m.ive", "--recurse", "--textures", mode});
        expectSameOutputs(contentOf(folder / "b"), contentOf(folder / "out"));
        fs::remove_all(folder / "b");
        fs::remove_all(folder / "out");
    }
}

TEST(ConvertTextureModes, AreRelativeByDefault) {
    const TemporaryDirectory folder;
    writeTwins(folder);
    convertInOrder(folder, "relative");

    convertIn(folder.path(), {"in/master.flt", "default/m.ive", "--recurse"});

    EXPECT_EQ(namesIn(folder / "default"),
              Names({"m.ive", "west/tile.ive", "east/tile.ive", "west/a.png", "east/a.png", "common.png"}));
    expectSameOutputs(contentOf(folder / "default"), contentOf(folder / "out"));
}

TEST(ConvertTextureModes, AreNoticedByJobsWhenTheyChange) {
    const TemporaryDirectory folder;
    writeTwins(folder);
    for (const std::vector<std::string>& change :
         {std::vector<std::string>{"relative", "copy"}, {"copy", "embed"}, {"embed", "relative"}}) {
        fs::remove_all(folder / "out");
        convertWithJobs(folder, change[0]);
        EXPECT_THAT(convertWithJobs(folder, change[1], {"--dry-run"}).output,
                    testing::StartsWith("master.flt: the options have changed\n"
                                        "west/tile.flt: the options have changed\n"
                                        "east/tile.flt: the options have changed\n"));
        EXPECT_EQ(convertWithJobs(folder, change[1]).status, 0);
        EXPECT_THAT(convertWithJobs(folder, change[1]).output, EndsWith("; 3 were up to date\n"));
        const auto outputs = outputsIn(folder / "out");
        fs::remove_all(folder / "out");
        convertWithJobs(folder, change[1]);
        for (const auto& [name, content] : outputsIn(folder / "out")) EXPECT_EQ(outputs.count(name), 1u) << name;
        for (const char* tile : {"m.ive", "west/tile.ive", "east/tile.ive"})
            expectSameOutputs({{tile, outputs.at(tile)}},
                              {{tile, readBytes(folder / "out" + ("/" + std::string(tile)))}});
    }
}

TEST(ConvertTextureModes, BringBackAGatheredTextureThatIsGone) {
    const TemporaryDirectory folder;
    writeTwins(folder);
    convertWithJobs(folder, "copy");
    const FolderState before = stateOf(folder / "out");
    fs::remove(folder / "out" + ("/" + gathered("west/a.png")));

    const ToolResult dry = convertWithJobs(folder, "copy", {"--dry-run"});
    EXPECT_EQ(convertWithJobs(folder, "copy").status, 0);

    EXPECT_THAT(dry.output, HasSubstr("west/tile.flt: the texture " + gathered("west/a.png").substr(11) +
                                      " is missing or has been changed\n"));
    EXPECT_EQ(writtenSince(before, folder / "out"), Names({"west/tile.ive"}));
    EXPECT_EQ(outputsIn(folder / "out").at(gathered("west/a.png")), readBytes(folder / "in/west/a.png"));
}

TEST(ConvertTextureModes, TakeOverAnotherContent) {
    const TemporaryDirectory folder;
    writeTwins(folder);
    for (const char* mode : {"copy", "embed"}) {
        fs::remove_all(folder / "out");
        writeGrey(folder / "in/common.png", 200);
        convertWithJobs(folder, mode);
        writeGrey(folder / "in/common.png", 50);

        EXPECT_EQ(convertWithJobs(folder, mode).status, 0);

        EXPECT_THAT(greysIn(folder / "out/m.ive"), ElementsAre(50));
        EXPECT_THAT(greysIn(folder / "out/west/tile.ive"), UnorderedElementsAre(100, 50));
    }
}

TEST(ConvertTextureModes, DoNotGatherOverWhatIsNotTheirs) {
    for (const auto& convert : {convertInOrder, convertWithJobs}) {
        const TemporaryDirectory folder;
        writeTwins(folder);
        writeBytes(folder / "out" + ("/" + gathered("west/a.png")), "theirs");

        const ToolResult result = convert(folder, "copy", {});

        EXPECT_EQ(result.status, 5);
        EXPECT_THAT(result.errors,
                    HasSubstr(gathered("west/a.png") + ": exists already; pass --overwrite to replace it\n"));
        EXPECT_EQ(readBytes(folder / "out" + ("/" + gathered("west/a.png"))), "theirs");
        EXPECT_FALSE(fs::exists(folder / "out/west/tile.ive"));

        EXPECT_EQ(convert(folder, "copy", {"--overwrite"}).status, 0);
        EXPECT_EQ(readBytes(folder / "out" + ("/" + gathered("west/a.png"))), readBytes(folder / "in/west/a.png"));
    }
}

TEST(ConvertTextureModes, LeaveTexturesAloneThatSomebodyHasChanged) {
    const TemporaryDirectory folder;
    writeTwins(folder);
    convertWithJobs(folder, "copy");
    writeBytes(folder / "out" + ("/" + gathered("west/a.png")), "theirs");

    const ToolResult result = convertWithJobs(folder, "copy");

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(readBytes(folder / "out" + ("/" + gathered("west/a.png"))), "theirs");
}

TEST(ConvertTextureModes, RemoveHalfAGatheredTextureThatWasLeftBehind) {
    const TemporaryDirectory folder;
    writeTwins(folder);
    const std::string name = gathered("west/a.png").substr(11);
    const Names leftovers = {"out/m.textures/." + name + ".part-999999999", "out/west/.a.png.part-999999999"};
    convertWithJobs(folder, "copy");
    for (const std::string& leftover : leftovers) writeBytes(folder / leftover, "half");
    // The mark of a run that was killed.
    writeBytes(folder / "out/.sceneutils/m.ive/lock", "!");

    convertWithJobs(folder, "embed");

    for (const std::string& leftover : leftovers) EXPECT_FALSE(fs::exists(folder / leftover)) << leftover;
}

TEST(ConvertTextureModes, WriteNothingThroughALinkedFolder) {
    const std::vector<std::pair<std::string, std::string>> links = {
        {"copy", "m.textures"}, {"relative", "west"}, {"embed", "west"}};
    for (const auto& convert : {convertInOrder, convertWithJobs}) {
        for (const auto& [mode, link] : links) {
            const TemporaryDirectory folder;
            writeTwins(folder);
            fs::create_directory(folder / "theirs");
            fs::create_directory(folder / "out");
            fs::create_directory_symlink("../theirs", folder / "out" + ("/" + link));

            const ToolResult result = convert(folder, mode, {"--overwrite"});

            EXPECT_EQ(result.status, 4);
            EXPECT_THAT(result.errors, HasSubstr("/out/" + link + ": leads out of "));
            EXPECT_THAT(result.errors, HasSubstr("/out over a link\n"));
            EXPECT_THAT(namesIn(folder / "theirs"), IsEmpty());
        }
    }
}

TEST(ConvertTextureModes, WriteNoMirroredTextureThroughALinkedFolder) {
    for (const auto& convert : {convertInOrder, convertWithJobs}) {
        const TemporaryDirectory folder;
        writeGrey(folder / "in/textures/deep/a.png", 100);
        writeTextured(folder / "in/master.flt", {}, {"tile.flt"});
        writeTextured(folder / "in/tile.flt", {"textures/deep/a.png"});
        fs::create_directory(folder / "theirs");
        fs::create_directory(folder / "out");
        fs::create_directory_symlink(folder / "theirs", folder / "out/textures");

        const ToolResult result = convert(folder, "relative", {"--overwrite"});

        EXPECT_EQ(result.status, 5);
        EXPECT_THAT(result.errors, HasSubstr("/out/textures/deep: leads out of "));
        EXPECT_TRUE(fs::is_empty(folder / "theirs"));
        EXPECT_FALSE(fs::exists(folder / "out/tile.ive"));
    }
}

TEST(ConvertTextureModes, MakeNoFolderWhereALinkLeadsNowhere) {
    const TemporaryDirectory folder;
    writeTwins(folder);
    fs::create_directory(folder / "out");
    fs::create_directory_symlink("../theirs", folder / "out/m.textures");

    EXPECT_EQ(convertInOrder(folder, "copy").status, 4);

    EXPECT_FALSE(fs::exists(folder / "theirs"));
}

TEST(ConvertTextureModes, MayUseALinkThatStaysInTheOutputFolder) {
    const TemporaryDirectory folder;
    writeTwins(folder);
    fs::create_directories(folder / "out/inside");
    fs::create_directory_symlink("inside", folder / "out/m.textures");

    EXPECT_EQ(convertInOrder(folder, "copy").status, 0);

    EXPECT_THAT(greysIn(folder / "out/west/tile.ive"), UnorderedElementsAre(100, 200));
}

TEST(ConvertTextureModes, PutATextureInThePlaceOfALinkInsteadOfWhereItLeads) {
    const std::vector<std::pair<std::string, std::string>> places = {{"relative", "west/a.png"},
                                                                     {"copy", gathered("west/a.png")}};
    for (const auto& convert : {convertInOrder, convertWithJobs}) {
        for (const auto& [mode, place] : places) {
            const TemporaryDirectory folder;
            writeTwins(folder);
            writeBytes(folder / "theirs", "theirs");
            fs::create_directories(fs::path(folder / "out" + ("/" + place)).parent_path());
            fs::create_symlink(folder / "theirs", folder / "out" + ("/" + place));

            EXPECT_EQ(convert(folder, mode, {}).status, 5);
            EXPECT_EQ(linksIn(folder / "out"), Names({place}));
            EXPECT_EQ(convert(folder, mode, {"--overwrite"}).status, 0);

            EXPECT_EQ(readBytes(folder / "theirs"), "theirs");
            EXPECT_THAT(linksIn(folder / "out"), IsEmpty());
            EXPECT_THAT(greysIn(folder / "out/west/tile.ive"), UnorderedElementsAre(100, 200));
        }
    }
}

TEST(ConvertTextureModes, RememberNothingThroughALinkedFolder) {
    const TemporaryDirectory folder;
    writeTwins(folder);
    fs::create_directory(folder / "theirs");
    fs::create_directory(folder / "out");
    fs::create_directory_symlink("../theirs", folder / "out/.sceneutils");

    const ToolResult result = convertWithJobs(folder, "copy");

    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errors, HasSubstr("/out/.sceneutils: is a link; remove it, nothing is written where it leads"));
    EXPECT_TRUE(fs::is_empty(folder / "theirs"));
}

TEST(ConvertTextureModes, TakeTexturesOfAnyName) {
    const std::string longName = std::string(251, 'x') + ".png";
    const std::vector<std::string> names = {"-rf.png", "..a.png", "a\n\x1b[31mb.png", "W\xe4ldchen.png", "a b;c.png"};
    for (const std::string& mode : modes) {
        const TemporaryDirectory folder;
        writeGrey(folder / "in/b.png", 1);
        for (const std::string& name : names) fs::copy(folder / "in/b.png", folder / "in" + ("/" + name));
        writeGrey(folder / "above.png", 2);
        writeGrey(folder / "absolute.png", 3);
        fs::rename(folder / "in/b.png", folder / "in" + ("/" + longName));
        std::vector<std::string> all = names;
        all.insert(all.end(), {"../above.png", folder / "absolute.png"});
        writeTextured(folder / "in/master.flt", all);
        // The record has room for 200 bytes; the reader also looks for what a link leads to.
        fs::create_symlink(longName, folder / "in/long.png");
        writeTextured(folder / "in/tile.flt", {"long.png"});
        writeTextured(folder / "in/master.flt", all, {"tile.flt"});
        const Names before = namesIn(folder.path());

        const ToolResult result = convertInOrder(folder, mode);

        EXPECT_EQ(result.status, 0) << mode << result.errors;
        EXPECT_EQ(result.errors, "");
        for (const std::string& name : namesIn(folder.path()))
            EXPECT_TRUE(before.count(name) != 0 || name.compare(0, 4, "out/") == 0) << name;
        if (mode == "embed") fs::remove_all(folder / "in");
        EXPECT_THAT(greysIn(folder / "out/m.ive"), UnorderedElementsAre(1, 1, 1, 1, 1, 2, 3)) << mode;
        EXPECT_THAT(greysIn(folder / "out/tile.ive"), ElementsAre(1)) << mode;
    }
}

TEST(ConvertTextureModes, AreNamedInTheReport) {
    const TemporaryDirectory folder;
    writeTwins(folder);

    convertInOrder(folder, "copy", {"--report", "r.json"});

    const nlohmann::json report = nlohmann::json::parse(readBytes(folder / "r.json"));
    EXPECT_EQ(report["options"]["textures"], "copy");
    std::uintmax_t bytes = 0;
    for (const auto& file : report["files"]) bytes += file["textureBytesOut"].get<std::uintmax_t>();
    EXPECT_EQ(bytes, fs::file_size(folder / "in/west/a.png") + fs::file_size(folder / "in/east/a.png") +
                         fs::file_size(folder / "in/common.png"));
}

TEST(ConvertTextureModes, AreThree) {
    const TemporaryDirectory folder;

    const ToolResult result = convertInOrder(folder, "move");

    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "sceneutils: --textures: move not in {relative,copy,embed} (see --help)\n");
}
