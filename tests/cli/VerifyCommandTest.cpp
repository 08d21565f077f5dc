#include "sample/SampleDatabase.h"
#include "support/FlightRecords.h"
#include "support/TileDatabases.h"
#include "support/ToolJson.h"

#include <gmock/gmock.h>

#include <osg/Geometry>
#include <osg/MatrixTransform>

#include <cmath>
#include <csignal>
#include <functional>

#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace testing_support;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using veltrane::sceneutils::tool::SampleOptions;
using veltrane::sceneutils::tool::writeSampleDatabase;

namespace {

json reportOf(const TemporaryDirectory& folder, const std::string& name = "report.json") {
    return json::parse(readBytes(folder / name), nullptr, false);
}

std::string sizeOf(const fs::path& folder) {
    std::uintmax_t bytes = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.path().extension() == ".ive") bytes += entry.file_size();
    return std::to_string(bytes);
}

/** Without what a sanitizer says of a crash. */
std::vector<std::string> toldBy(const ToolResult& result) {
    std::vector<std::string> lines;
    for (const std::string& line : result.errorLines()) {
        if (line.compare(0, 12, "sceneutils: ") == 0) lines.push_back(line);
    }
    return lines;
}

/** A master with a good tile and "bad.ive", which is written by `writeBad`. */
ToolResult verifyWithOneBad(const TemporaryDirectory& folder, const std::function<void(const fs::path&)>& writeBad,
                            const std::vector<std::string>& options = {}) {
    writeMaster(folder / "out/m.ive", {"bad.ive", "good.ive"});
    writeTile(folder / "out/good.ive");
    writeBad(folder / "out/bad.ive");
    return verifyIn(folder, options);
}

/** Expects one finding, of the tile "bad.ive", and that all else was loaded; returns what is said of it. */
std::string findingOfBad(const std::function<void(const fs::path&)>& writeBad, int status = 3) {
    const TemporaryDirectory folder;
    const ToolResult result = verifyWithOneBad(folder, writeBad);
    EXPECT_EQ(result.status, status);
    EXPECT_THAT(result.errorLines(), SizeIs(1)) << result.errors;
    EXPECT_THAT(result.output, EndsWith("1 finding\n"));
    EXPECT_THAT(result.output, StartsWith(status == 3 ? "3 files, 0 failed, 2 ref" : "3 files, 1 failed, 2 ref"));
    const std::string start = "sceneutils: error: out/bad.ive: ";
    EXPECT_THAT(result.errors, StartsWith(start));
    return result.errors.substr(start.size());
}

const std::string notLoaded = " (named by out/m.ive)\n";

osg::ref_ptr<osg::Geode> tileWithVertex(const osg::Vec3& vertex) {
    osg::ref_ptr<osg::Geometry> geometry = makeRectangle(10.0f);
    (*static_cast<osg::Vec3Array*>(geometry->getVertexArray()))[1] = vertex;
    geometry->setName("roof");
    osg::ref_ptr<osg::Geode> tile = makeGeode(geometry);
    tile->setName("house");
    return tile;
}

/** A master whose tile, a sphere of radius 10 about a point, is shown within a distance of the origin. */
ToolResult verifyRange(const TemporaryDirectory& folder, const osg::Vec3& place, float range,
                       osg::LOD::RangeMode mode = osg::LOD::DISTANCE_FROM_EYE_POINT) {
    const osg::ref_ptr<osg::Group> master = makeMaster({});
    const osg::ref_ptr<osg::PagedLOD> paged = makePaged("a.ive", range);
    paged->setRangeMode(mode);
    master->addChild(paged);
    writeTile(folder / "out/m.ive", *master);
    writeTile(folder / "out/a.ive", *makeGeode(makeRectangle(10.0f, place)));
    return verifyIn(folder);
}

}  // namespace

TEST(VerifyCommand, EndsWith0AndOneLineOfTotalsIfAllIsRight) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {"tiles/a.ive", "tiles/b.ive"});
    writeMaster(folder / "out/tiles/a.ive", {"b.ive"});
    const osg::ref_ptr<osg::Image> picture = makePicture("p.rgb");
    picture->setWriteHint(osg::Image::STORE_INLINE);
    writeTile(folder / "out/tiles/b.ive", *makeTileWith(new osg::Texture2D(picture)));
    const ToolResult result = verifyIn(folder);

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, "3 files, 0 failed, 3 references, 1 texture, 0 programs, " + sizeOf(folder / "out") +
                                 " bytes, 0 findings\n");
}

TEST(VerifyCommand, FindsNothingWrongWithWhatConvertWrites) {
    const TemporaryDirectory folder;
    SampleOptions options;
    options.tiles = 2;
    options.levels = 3;
    writeSampleDatabase(folder / "db", options);
    ASSERT_EQ(runTool({"convert", folder / "db/master.flt", folder / "out/m.ive", "--recurse"}).status, 0);
    const ToolResult result = verifyIn(folder);

    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr(" 0 failed, "));
}

TEST(VerifyCommand, WritesTheseKeys) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {"a.ive", "gone.ive"});
    writeTile(folder / "out/a.ive");
    EXPECT_EQ(verifyIn(folder, {"--report", "report.json"}).status, 5);

    const std::string out = fs::canonical(folder / "out").string();
    json report = reportOf(folder);
    for (json& file : report["files"]) {
        EXPECT_EQ(file["bytes"], fs::file_size(file["path"].get<std::string>()));
        file.erase("bytes");
    }
    const json tile = {{"name", "a.ive"}, {"status", "followed"}, {"file", 1}};
    const json gone = {{"name", "gone.ive"}, {"status", "missing"}, {"file", nullptr}};
    const json sphere = {{"center", {0, 0, 0}}, {"radius", 10}};
    EXPECT_EQ(report["files"], json::array({{{"path", out + "/m.ive"},
                                             {"status", "loaded"},
                                             {"textures", 0},
                                             {"sphere", sphere},
                                             {"namedBy", nullptr},
                                             {"references", json::array({tile, gone})}},
                                            {{"path", out + "/a.ive"},
                                             {"status", "loaded"},
                                             {"textures", 0},
                                             {"sphere", sphere},
                                             {"namedBy", 0},
                                             {"references", json::array()}}}));
    EXPECT_EQ(report["findings"], json::array({{{"kind", "missing"},
                                                {"severity", "error"},
                                                {"file", out + "/m.ive"},
                                                {"reference", "gone.ive"},
                                                {"message", "'gone.ive': no such file"},
                                                {"log", nullptr}}}));
}

TEST(VerifyCommand, WritesTheseTotals) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {"bad.ive"});
    saveBytes(folder / "out/bad.ive", "text");
    verifyIn(folder, {"--report", "report.json", "--time-limit", "7", "--jobs", "2"});

    json report = reportOf(folder);
    report.erase("files");
    report.erase("findings");
    EXPECT_EQ(report, json({{"version", 1},
                            {"command", "verify"},
                            {"input", fs::canonical(folder / "out/m.ive").string()},
                            {"options", {{"programs", true}, {"timeLimit", 7}}},
                            {"driver", nullptr},
                            {"programsNotTried", nullptr},
                            {"totals",
                             {{"files", 2},
                              {"filesFailed", 1},
                              {"references", 1},
                              {"textures", 0},
                              {"programs", 0},
                              {"bytes", fs::file_size(folder / "out/m.ive")},
                              {"findings", 1}}}}));
}

TEST(VerifyCommand, NamesAMissingTileOnceWithTheFileThatNamesIt) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {"tiles/a.ive", "tiles/a.ive"});
    writeMaster(folder / "out/tiles/a.ive", {"gone.ive", "../gone2.ive", "gone.ive"});
    const ToolResult result = verifyIn(folder);

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errors,
              "sceneutils: error: out/tiles/a.ive: 'gone.ive': no such file\n"
              "sceneutils: error: out/tiles/a.ive: '../gone2.ive': no such file\n");
    EXPECT_THAT(result.output, AllOf(StartsWith("2 files, 0 failed, 3 references, "), EndsWith(" 2 findings\n")));
}

TEST(VerifyCommand, LooksForTilesInThePagedLODsDatabasePath) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> master = makeMaster({});
    for (const char* path : {"elsewhere", "out"}) {
        const osg::ref_ptr<osg::PagedLOD> paged = makePaged("a.ive");
        paged->setDatabasePath(path);
        master->addChild(paged);
    }
    writeTile(folder / "out/m.ive", *master);
    writeTile(folder / "elsewhere/a.ive");
    const ToolResult result = verifyIn(folder);

    EXPECT_EQ(result.errors, "sceneutils: error: out/m.ive: 'a.ive': no such file\n");
    EXPECT_THAT(result.output, StartsWith("2 files, 0 failed, 2 references, "));
}

TEST(VerifyCommand, FindsTilesOnOpenSceneGraphsDataFilePath) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {"a.ive"});
    writeTile(folder / "data/a.ive");
    ToolSettings settings;
    settings.environment = {{"OSG_FILE_PATH", folder / "data"}};
    const ToolResult result = verifyIn(folder, {"--report", "report.json"}, settings);

    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(reportOf(folder)["files"][1]["path"], fs::canonical(folder / "data/a.ive").string());
}

TEST(VerifyCommand, FollowsProxyNodesAndOtherFormats) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> master = makeMaster({"b.osgt"});
    master->addChild(makeProxy("sub/a.ive"));
    writeTile(folder / "out/m.ive", *master);
    writeMaster(folder / "out/sub/a.ive", {"c.ive"});
    writeTile(folder / "out/sub/c.ive");
    writeMaster(folder / "out/b.osgt", {"gone.ive"});
    const ToolResult result = verifyIn(folder);

    EXPECT_EQ(result.errors, "sceneutils: error: out/b.osgt: 'gone.ive': no such file\n");
    EXPECT_THAT(result.output, StartsWith("4 files, 0 failed, 4 references, "));
}

TEST(VerifyCommand, LooksForProxyNodesFirstWhereTheReaderDoesAndThenWhereThePagerDoes) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> master = makeMaster({});
    master->addChild(makeProxy("sub/a.ive"));
    writeTile(folder / "out/m.ive", *master);
    writeMaster(folder / "out/sub/a.ive", {"gone1.ive"});
    writeMaster(folder / "out/sub/sub/a.ive", {"gone2.ive"});
    EXPECT_EQ(verifyIn(folder).errors, "sceneutils: error: out/sub/sub/a.ive: 'gone2.ive': no such file\n");
    ToolSettings inItsFolder;
    inItsFolder.workingDirectory = folder.path() / "out";
    EXPECT_EQ(runTool({"verify", "m.ive"}, inItsFolder).errors,
              "sceneutils: error: sub/a.ive: 'gone1.ive': no such file\n");
}

TEST(VerifyCommand, TellsOnceWhatIsTheSameInSeveralPlaces) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> master = makeMaster({});
    for (const float range : {5.0f, 5.0f}) master->addChild(makePaged("a.ive", range));
    for (const float range : {5.0f, 50.0f}) master->addChild(makePaged("gone.ive", range));
    const osg::ref_ptr<osg::Geode> bad = tileWithVertex(osg::Vec3(0, std::nanf(""), 0));
    for (int i = 0; i < 2; ++i) master->addChild(bad);
    writeTile(folder / "out/m.ive", *master);
    writeTile(folder / "out/a.ive");
    const ToolResult result = verifyIn(folder);

    EXPECT_THAT(result.output, StartsWith("2 files, 0 failed, 2 references, "));
    EXPECT_THAT(result.errors, HasSubstr("out/m.ive: 1 vertex is not finite"));
    EXPECT_THAT(result.errorLines(), SizeIs(3)) << result.errors;
}

TEST(VerifyCommand, FollowsReferencesInHiddenPartsOfATile) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> master = makeMaster({"a.ive"});
    master->getChild(1)->setNodeMask(0);
    writeTile(folder / "out/m.ive", *master);
    EXPECT_EQ(verifyIn(folder).errors, "sceneutils: error: out/m.ive: 'a.ive': no such file\n");
}

TEST(VerifyCommand, LoadsTilesThatPageEachOtherOnce) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {"a.ive", "m.ive", "./sub/../a.ive"});
    writeMaster(folder / "out/a.ive", {"m.ive", "sub/a.ive", "a.ive"});
    fs::create_directories(folder / "out/sub");
    fs::create_directory_symlink("..", folder / "out/sub/up");
    writeMaster(folder / "out/sub/a.ive", {"up/a.ive", "up/sub/up/sub/a.ive"});
    const ToolResult result = verifyIn(folder);

    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.output, StartsWith("3 files, 0 failed, 8 references, "));
}

TEST(VerifyCommand, TellsOfReferencesThatOpenSceneGraphWouldLoadWithoutEnd) {
    const TemporaryDirectory folder;
    for (const auto& [file, reference] : {std::pair("m.ive", "a.ive"), std::pair("a.ive", "m.ive")}) {
        const osg::ref_ptr<osg::Group> tile = makeMaster({});
        tile->addChild(makeProxy(reference));
        writeTile(fs::path(folder / "out") / file, *tile);
    }
    const ToolResult result = verifyIn(folder);

    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.errors,
              "sceneutils: error: out/a.ive: 'm.ive' is loaded at once with this file, which is loaded at once with "
              "that one: OpenSceneGraph never comes to an end\n");
}

TEST(VerifyCommand, FollowsAFileOnceThatIsLoadedWithTwoOthers) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> master = makeMaster({});
    for (const char* name : {"a.ive", "b.ive"}) {
        master->addChild(makeProxy(name));
        const osg::ref_ptr<osg::Group> tile = makeMaster({});
        tile->addChild(makeProxy("c.ive"));
        writeTile(fs::path(folder / "out") / name, *tile);
    }
    writeTile(folder / "out/m.ive", *master);
    writeTile(folder / "out/c.ive");
    EXPECT_EQ(verifyIn(folder).status, 0);
}

TEST(VerifyCommand, DoesNotFetchRemoteFiles) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {"http://localhost:1/a.ive", "a.ive"});
    writeTile(folder / "out/a.ive", *makeTileWith(new osg::Texture2D(makePicture("http://localhost:1/p.rgb"))),
              "noTexturesInIVEFile");
    const ToolResult result = verifyIn(folder);

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errors,
              "sceneutils: error: out/m.ive: 'http://localhost:1/a.ive' is on a server, which is not asked\n"
              "sceneutils: error: out/a.ive: texture 'http://localhost:1/p.rgb' is on a server, which is not asked\n");
}

TEST(VerifyCommand, TellsOfFoldersPipesAndEmptyFilesInPlaceOfTiles) {
    EXPECT_EQ(findingOfBad([](const fs::path& path) { fs::create_directory(path); }, 5), "is a folder" + notLoaded);
    EXPECT_EQ(findingOfBad([](const fs::path& path) { mkfifo(path.c_str(), 0600); }, 5),
              "is no regular file" + notLoaded);
    EXPECT_EQ(findingOfBad([](const fs::path& path) { fs::create_symlink("/dev/zero", path); }, 5),
              "is no regular file" + notLoaded);
    EXPECT_EQ(findingOfBad([](const fs::path& path) { saveBytes(path, ""); }, 5), "is empty" + notLoaded);
}

TEST(VerifyCommand, TellsOfATileThatWasCutShort) {
    const TemporaryDirectory whole;
    writeTile(whole / "a.ive");
    const std::string bytes = readBytes(whole / "a.ive");
    EXPECT_EQ(findingOfBad([&](const fs::path& path) { saveBytes(path, bytes.substr(0, bytes.size() / 2)); }, 5),
              "holds no graph that OpenSceneGraph can read" + notLoaded);
}

TEST(VerifyCommand, TellsOfATileThatCrashesTheReader) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {"bad.osgt", "good.ive", "bad2.osgt", "good2.ive"});
    for (const char* name : {"out/bad.osgt", "out/bad2.osgt"}) saveBytes(folder / name, groupInItself());
    for (const char* name : {"out/good.ive", "out/good2.ive"}) writeTile(folder / name);
    const ToolResult result = verifyIn(folder);

    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.output, AllOf(StartsWith("5 files, 2 failed, 4 references, "), EndsWith(" 2 findings\n")));
#ifdef __SANITIZE_ADDRESS__  // which ends the process itself
    const std::string reason = "failed while being read";
#else
    const std::string reason = "crashed OpenSceneGraph's reader while being read (Segmentation fault)";
#endif
    EXPECT_THAT(result.errors, HasSubstr("sceneutils: error: out/bad.osgt: " + reason + notLoaded));
    EXPECT_THAT(result.errors, HasSubstr("sceneutils: error: out/bad2.osgt: " + reason + notLoaded));
}

TEST(VerifyCommand, GivesUpATileThatTakesTooLong) {
    const TemporaryDirectory folder;
    const ToolResult result =
        verifyWithOneBad(folder, [](const fs::path& path) { writeTile(path, *makeEndless()); }, {"--time-limit", "1"});

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errors,
              "sceneutils: error: out/bad.ive: took more than 1 s of processor time while being read" + notLoaded);
    EXPECT_THAT(result.output, StartsWith("3 files, 1 failed, 2 references, "));
}

TEST(VerifyCommand, CountsTheTimeOfEachFileAlone) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> slow = new osg::Group;
    osg::ref_ptr<osg::Group> graph = slow;
    for (int level = 0; level < 19; ++level) {
        const osg::ref_ptr<osg::Group> above = new osg::Group;
        for (int i = 0; i < 2; ++i) above->addChild(graph);
        graph = above;
    }
    graph->addChild(makeTile());
    std::vector<std::string> names;
    for (int i = 0; i < 24; ++i) {
        names.push_back(std::to_string(i) + ".ive");
        writeTile(folder / ("out/" + names.back()), *graph);
    }
    writeMaster(folder / "out/m.ive", names);
    EXPECT_EQ(verifyIn(folder, {"--time-limit", "1"}).errors, "");
}

TEST(VerifyCommand, TellsOfTexturesWhoseFileIsMissingOrNoPicture) {
    const auto tileNaming = [](const std::string& picture) {
        return [picture](const fs::path& path) {
            saveBytes(path.parent_path() / "text.rgb", "text");
            mkfifo((path.parent_path() / "pipe.rgb").c_str(), 0600);
            writeTile(path, *makeTileWith(new osg::Texture2D(makePicture(picture))), "noTexturesInIVEFile");
        };
    };
    EXPECT_EQ(findingOfBad(tileNaming("gone.rgb")), "texture 'gone.rgb' is missing\n");
    EXPECT_EQ(findingOfBad(tileNaming("text.rgb")), "texture 'text.rgb' cannot be read\n");
    EXPECT_EQ(findingOfBad(tileNaming("pipe.rgb")), "texture 'pipe.rgb' is no regular file\n");
}

TEST(VerifyCommand, FindsTexturesBesideTheTile) {
    const TemporaryDirectory folder;
    writePicture(folder, "p.png", osg::Vec4ub(1, 2, 3, 255));
    const ToolResult result = verifyWithOneBad(folder, [&](const fs::path& path) {
        fs::rename(folder / "p.png", path.parent_path() / "p.png");
        writeTile(path, *makeTileWith(new osg::Texture2D(makePicture("p.png"))), "noTexturesInIVEFile");
    });
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, HasSubstr(" 1 texture, "));
}

TEST(VerifyCommand, TellsOfTexturesWithoutAnImageAndImagesWithoutPixels) {
    EXPECT_EQ(findingOfBad([](const fs::path& path) { writeTile(path, *makeTileWith(new osg::Texture2D)); }),
              "a texture has no image (below <Geode>)\n");
    EXPECT_EQ(findingOfBad([](const fs::path& path) {
                  const osg::ref_ptr<osg::Image> image = new osg::Image;
                  image->setFileName("empty.rgb");
                  image->setWriteHint(osg::Image::STORE_INLINE);
                  writeTile(path, *makeTileWith(new osg::Texture2D(image)));
              }),
              "texture 'empty.rgb' has no pixels\n");
}

TEST(VerifyCommand, TellsOfVerticesThatAreNotFinite) {
    for (const float bad : {std::nanf(""), std::numeric_limits<float>::infinity()}) {
        const TemporaryDirectory folder;
        const ToolResult result = verifyWithOneBad(
            folder, [&](const fs::path& path) { writeTile(path, *tileWithVertex(osg::Vec3(0, bad, 0))); });
        EXPECT_EQ(result.status, 3);
        EXPECT_THAT(result.errors, StartsWith("sceneutils: error: out/bad.ive: 1 vertex is not finite, the first in "
                                              "house/roof\n"));
    }
}

TEST(VerifyCommand, TellsOfBoundingSpheresThatAreNotFinite) {
    EXPECT_EQ(findingOfBad([](const fs::path& path) {
                  const osg::ref_ptr<osg::Group> tile = makeMaster({});
                  const osg::ref_ptr<osg::MatrixTransform> place = new osg::MatrixTransform;
                  place->setName("place");
                  place->setMatrix(osg::Matrix::translate(std::nan(""), 0, 0));
                  place->addChild(makeTile());
                  tile->addChild(place);
                  writeTile(path, *tile);
              }),
              "1 bounding sphere is not finite, the first is that of <Group>/place\n");
}

TEST(VerifyCommand, TellsOfATileThatHasNoBoundingSphere) {
    const osg::ref_ptr<osg::Group> empty = new osg::Group;
    EXPECT_EQ(findingOfBad([&](const fs::path& path) { writeTile(path, *empty); }),
              "has no bounding sphere: there is nothing in it to see\n");
}

TEST(VerifyCommand, TellsOfATileThatReachesBeyondTheRangeInWhichItIsShown) {
    const TemporaryDirectory folder;
    const ToolResult result = verifyRange(folder, osg::Vec3(100, 0, 0), 105);

    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.errors,
              "sceneutils: error: out/m.ive: 'a.ive' reaches 110 from the center of its paged LOD, but is shown within "
              "105 only\n");
}

TEST(VerifyCommand, AllowsAThousandthOfTheRange) {
    const TemporaryDirectory folder;
    EXPECT_EQ(verifyRange(folder, osg::Vec3(990, 0, 0), 999.1f).status, 0);
    EXPECT_EQ(verifyRange(folder, osg::Vec3(990, 0, 0), 998.9f).status, 3);
    EXPECT_EQ(verifyRange(folder, osg::Vec3(990, 0, 0), 998.9f, osg::LOD::PIXEL_SIZE_ON_SCREEN).status, 0);
    EXPECT_EQ(verifyRange(folder, osg::Vec3(990, 0, 0), std::nanf("")).status, 3);
}

TEST(VerifyCommand, MeasuresRangesFromThePagedLODsCenterBelowItsTransforms) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> master = makeMaster({});
    const osg::ref_ptr<osg::MatrixTransform> place = new osg::MatrixTransform(osg::Matrix::translate(5000, 0, 0));
    const osg::ref_ptr<osg::PagedLOD> paged = makePaged("a.ive", 15);
    paged->setCenter(osg::Vec3(0, 300, 0));
    place->addChild(paged);
    master->addChild(place);
    writeTile(folder / "out/m.ive", *master);
    writeTile(folder / "out/a.ive", *makeGeode(makeRectangle(10.0f, osg::Vec3(0, 304, 0))));
    EXPECT_EQ(verifyIn(folder).status, 0);
}

TEST(VerifyCommand, ChecksEachChildsOwnRange) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::PagedLOD> paged = makePaged("far.ive", 5);
    paged->setFileName(1, "near.ive");
    paged->setRange(1, 0, 50);
    const osg::ref_ptr<osg::Group> master = makeMaster({});
    master->addChild(paged);
    writeTile(folder / "out/m.ive", *master);
    writeTile(folder / "out/far.ive");
    writeTile(folder / "out/near.ive");
    EXPECT_EQ(verifyIn(folder).errors,
              "sceneutils: error: out/m.ive: 'far.ive' reaches 10 from the center of its paged LOD, but is shown "
              "within 5 only\n");
}

TEST(VerifyCommand, TellsOfAProgramThatDoesNotCompileOnce) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {"a.ive", "b.ive", "c.ive"});
    for (const char* name : {"out/a.ive", "out/b.ive"})
        writeTile(folder / name, *makeTileWith(makeProgram("water", "gl_FragColor = wave;")));
    writeTile(folder / "out/c.ive", *makeTileWith(makeProgram("water", "gl_FragColor = vec4(1.0);")));
    const ToolResult result = verifyIn(folder, {"--report", "report.json"});

    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.output, AllOf(HasSubstr(" 2 programs, "), EndsWith(" 1 finding\n")));
    EXPECT_THAT(result.errors, StartsWith("sceneutils: error: out/a.ive: program water at (Geode) fails (with no "
                                          "textures): FRAGMENT shader does not compile: "));
    EXPECT_THAT(result.errorLines(), SizeIs(1));
    EXPECT_THAT(reportOf(folder)["findings"][0]["log"].get<std::string>(), HasSubstr("wave"));
    EXPECT_NE(reportOf(folder)["driver"], nullptr);
}

TEST(VerifyCommand, TellsOfAProgramThatDoesNotLink) {
    const std::string finding = findingOfBad([](const fs::path& path) {
        const osg::ref_ptr<osg::Program> program = makeProgram("fog", "undefined();");
        program->getShader(0)->setShaderSource("void undefined(); void main() { undefined(); }");
        writeTile(path, *makeTileWith(program));
    });
    EXPECT_THAT(finding, StartsWith("program fog at (Geode) fails (with no textures): program does not link: "));
}

TEST(VerifyCommand, LeavesProgramsOutIfTold) {
    const TemporaryDirectory folder;
    writeTile(folder / "out/m.ive", *makeTileWith(makeProgram("water", "gl_FragColor = wave;")));
    const ToolResult result = verifyIn(folder, {"--no-programs", "--report", "report.json"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, HasSubstr(" 1 program (not tried), "));
    EXPECT_EQ(reportOf(folder)["options"]["programs"], false);
    EXPECT_EQ(reportOf(folder)["programsNotTried"], nullptr);
}

TEST(VerifyCommand, SaysSoInOneLineIfThereIsNoDriver) {
    const TemporaryDirectory folder;
    writeTile(folder / "out/m.ive", *makeTileWith(makeProgram("water", "gl_FragColor = wave;")));
    ToolSettings settings;
    settings.environment = {{"__EGL_VENDOR_LIBRARY_FILENAMES", "/dev/null"}};
    const ToolResult result = verifyIn(folder, {"--report", "report.json"}, settings);

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errors, StartsWith("sceneutils: programs are not tried: no driver can draw"));
    EXPECT_THAT(result.errorLines(), SizeIs(1));
    EXPECT_THAT(result.output, HasSubstr(" 1 program (not tried), "));
    EXPECT_THAT(reportOf(folder)["programsNotTried"].get<std::string>(), StartsWith("no driver can draw"));
    EXPECT_EQ(reportOf(folder)["driver"], nullptr);
}

TEST(VerifyCommand, SaysTheSameHoweverManyFilesAreLoadedAtATime) {
    const TemporaryDirectory folder;
    std::vector<std::string> names;
    for (int i = 0; i < 30; ++i) names.push_back("t" + std::to_string(i) + (i % 7 == 3 ? ".osgt" : ".ive"));
    writeMaster(folder / "out/m.ive", names);
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string path = folder / ("out/" + names[i]);
        i % 7 == 3 ? saveBytes(path, groupInItself()) : writeMaster(path, {"x" + std::to_string(i % 4), names[29]});
    }
    const ToolResult one = verifyIn(folder, {"--verbose", "--report", "1.json"});
    const ToolResult five = verifyIn(folder, {"--verbose", "--report", "5.json", "--jobs", "5"});

    EXPECT_EQ(one.status, 5);
    EXPECT_EQ(toldBy(one), toldBy(five));
    EXPECT_EQ(one.output, five.output);
    EXPECT_EQ(readBytes(folder / "1.json"), readBytes(folder / "5.json"));
    EXPECT_THAT(one.output, StartsWith("31 files, 4 failed, "));
}

TEST(VerifyCommand, ShowsTwentyFindingsOfAKindUnlessToldToShowAll) {
    const TemporaryDirectory folder;
    std::vector<std::string> names;
    for (int i = 0; i < 25; ++i) names.push_back(std::to_string(i) + ".ive");
    writeMaster(folder / "out/m.ive", names);
    const auto lines = verifyIn(folder).errorLines();

    ASSERT_THAT(lines, SizeIs(21));
    EXPECT_EQ(lines[19], "sceneutils: error: out/m.ive: '19.ive': no such file");
    EXPECT_EQ(lines[20], "sceneutils: 5 more findings of the kind \"missing\" (--verbose shows all)");
    EXPECT_EQ(verifyIn(folder, {"--report", "r.json"}).errorLines()[20],
              "sceneutils: 5 more findings of the kind \"missing\" (r.json has all)");
    EXPECT_THAT(verifyIn(folder, {"--verbose"}).errorLines(), SizeIs(25));
}

TEST(VerifyCommand, KeepsControlCharactersOfNamesFromTheTerminal) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {"a\x1b[31m\n.ive", "b\x1b.ive"});
    fs::create_directory(folder / "out/b\x1b.ive");
    const ToolResult result = verifyIn(folder);

    EXPECT_EQ(result.errors,
              "sceneutils: error: out/m.ive: 'a\\x1b[31m\\n.ive': no such file\n"
              "sceneutils: error: out/b\\x1b.ive: is a folder" +
                  notLoaded);
}

TEST(VerifyCommand, ShowsWhatOpenSceneGraphSaysIfTold) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {});
    saveBytes(folder / "out/m.ive", readBytes(folder / "out/m.ive").substr(0, 100));
    writeTile(folder / "out/b.osgt");
    writeMaster(folder / "out/m.ive", {"b.osgt"});
    std::string text = readBytes(folder / "out/b.osgt");
    text.insert(text.rfind('}'), "  osg::Nonsense {\n  }\n");
    text.replace(text.find("osg::Geometry"), 13, "osg::Nonsense");
    saveBytes(folder / "out/b.osgt", text);
    EXPECT_THAT(verifyIn(folder, {"--verbose"}).errors, HasSubstr("sceneutils: out/b.osgt: "));
    EXPECT_THAT(verifyIn(folder).errors, testing::Not(HasSubstr("sceneutils: out/b.osgt: ")));
}

TEST(VerifyCommand, HandlesManyReferencesInOneFile) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> master = makeMaster({});
    for (int i = 0; i < 50'000; ++i) master->addChild(makePaged("a.ive"));
    for (int i = 0; i < 20'000; ++i) master->addChild(makePaged(std::to_string(i)));
    writeTile(folder / "out/m.ive", *master);
    writeTile(folder / "out/a.ive");
    const ToolResult result = verifyIn(folder);

    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.output, AllOf(StartsWith("2 files, 0 failed, 20001 references"), EndsWith("20000 findings\n")));
}

TEST(VerifyCommand, EndsWith2IfTheFileItselfCannotBeLoaded) {
    const TemporaryDirectory folder;
    fs::create_directories(folder / "out");
    EXPECT_EQ(verifyIn(folder).errors, "sceneutils: out/m.ive: no such file\n");
    saveBytes(folder / "out/m.ive", "");
    const ToolResult result = verifyIn(folder, {"--report", "report.json"});

    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.errors, "sceneutils: out/m.ive: is empty\n");
    EXPECT_EQ(result.output, "");
    EXPECT_FALSE(fs::exists(folder / "report.json"));
}

TEST(VerifyCommand, EndsWith2IfTheFileItselfCrashesTheReader) {
    const TemporaryDirectory folder;
    saveBytes(folder / "m.osgt", groupInItself());
    EXPECT_EQ(runTool({"verify", folder / "m.osgt"}).status, 2);
}

TEST(VerifyCommand, DoesNotReplaceAReportUnlessTold) {
    const TemporaryDirectory folder;
    writeTile(folder / "out/m.ive");
    saveBytes(folder / "r.json", "mine");
    const ToolResult refused = verifyIn(folder, {"--report", "r.json"});

    EXPECT_EQ(refused.status, 4);
    EXPECT_EQ(refused.output, "");
    EXPECT_EQ(readBytes(folder / "r.json"), "mine");
    EXPECT_EQ(verifyIn(folder, {"--report", "r.json", "--overwrite"}).status, 0);
    EXPECT_EQ(reportOf(folder, "r.json")["command"], "verify");
}

TEST(VerifyCommand, NeverWritesAReportOverAFileOfTheDatabase) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {"a.ive"});
    writeTile(folder / "out/a.ive");
    const std::string tile = readBytes(folder / "out/a.ive");

    EXPECT_EQ(verifyIn(folder, {"--report", "out/m.ive", "--overwrite"}).status, 4);
    EXPECT_EQ(verifyIn(folder, {"--report", "out/a.ive", "--overwrite"}).status, 4);
    EXPECT_EQ(readBytes(folder / "out/a.ive"), tile);
}

TEST(VerifyCommand, EndsAtOnceWhenInterrupted) {
    const TemporaryDirectory folder;
    writeMaster(folder / "out/m.ive", {"a.ive", "b.ive"});
    for (const char* name : {"out/a.ive", "out/b.ive"}) writeTile(folder / name, *makeEndless());
    ToolProcess process(SCENEUTILS_TOOL, {"verify", folder / "out/m.ive", "--jobs", "2"}, {});
    sleep(1);
    process.send(SIGINT);
    const ToolResult result = process.wait();

    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.errors, "sceneutils: interrupted\n");
    EXPECT_EQ(result.output, "");
    EXPECT_FALSE(result.leftProcesses);
}
