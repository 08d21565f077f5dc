#include "support/Conversions.h"
#include "support/Graphs.h"
#include "support/TexturedModels.h"
#include "support/ToolJson.h"

#include <gmock/gmock.h>

#include <osg/Geometry>
#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osg/Program>
#include <osgDB/WriteFile>

#include <filesystem>

namespace fs = std::filesystem;

using namespace testing_support;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

/** Writes the graph and returns what `info --json` says of it. */
json infoOf(const osg::Node& graph) {
    const TemporaryDirectory folder;
    osgDB::writeNodeFile(graph, folder / "a.osgb");
    return jsonOf({"info", folder / "a.osgb"})["files"][0];
}

/** What `info` writes as a table. */
std::string tableOf(const osg::Node& graph) {
    const TemporaryDirectory folder;
    osgDB::writeNodeFile(graph, folder / "a.osgb");
    return runTool({"info", folder / "a.osgb"}).output;
}

osg::ref_ptr<osg::Geometry> makePrimitives(const std::vector<std::pair<GLenum, GLsizei>>& runs) {
    const osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(new osg::Vec3Array(12));
    for (const auto& [mode, count] : runs) geometry->addPrimitiveSet(new osg::DrawArrays(mode, 0, count));
    return geometry;
}

osg::ref_ptr<osg::PagedLOD> makePaged(const std::vector<std::string>& tiles) {
    const osg::ref_ptr<osg::PagedLOD> paged = new osg::PagedLOD;
    for (unsigned int i = 0; i < tiles.size(); ++i) {
        paged->setFileName(i, tiles[i]);
        paged->setRange(i, 0.0f, 100.0f);
    }
    return paged;
}

osg::ref_ptr<osg::ProxyNode> makeReference(const std::string& file) {
    const osg::ref_ptr<osg::ProxyNode> reference = new osg::ProxyNode;
    reference->setFileName(0, file);
    return reference;
}

std::vector<std::string> filesIn(const json& info, const TemporaryDirectory& folder) {
    std::vector<std::string> files;
    for (const json& file : info["files"])
        files.push_back(fs::path(file["file"].get<std::string>()).lexically_relative(folder.path()).string());
    return files;
}

}  // namespace

TEST(InfoCommand, CountsNodesByClassAndEachOnce) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    const osg::ref_ptr<osg::Geode> shared = makeGeode(makeSquare());
    shared->setName("shared");
    for (int i = 0; i < 3; ++i) {
        root->addChild(new osg::MatrixTransform);
        root->getChild(static_cast<unsigned int>(i))->asGroup()->addChild(shared);
    }

    const json info = infoOf(*root);

    EXPECT_EQ(info["nodesByClass"],
              json({{"osg::Group", 1}, {"osg::MatrixTransform", 3}, {"osg::Geode", 1}, {"osg::Geometry", 1}}));
    EXPECT_EQ(info["nodes"], 6);
    EXPECT_EQ(info["geodes"], 1);
    EXPECT_EQ(info["drawables"], 1);
    EXPECT_EQ(info["vertices"], 4);
    EXPECT_EQ(info["depth"], 4);
    EXPECT_EQ(info["triangles"], 2);
    EXPECT_EQ(info["trianglesInAllPlaces"], 6);
    EXPECT_EQ(info["sharedNodes"], json::array({{{"name", "shared"}, {"class", "osg::Geode"}, {"parents", 3}}}));
}

TEST(InfoCommand, CountsTrianglesByPrimitiveModeAndOtherPrimitives) {
    const json info = infoOf(*makeGeode(makePrimitives({{GL_POINTS, 5},
                                                        {GL_LINES, 5},
                                                        {GL_LINE_STRIP, 5},
                                                        {GL_LINE_LOOP, 5},
                                                        {GL_TRIANGLES, 7},
                                                        {GL_TRIANGLE_STRIP, 5},
                                                        {GL_TRIANGLE_FAN, 6},
                                                        {GL_QUADS, 8},
                                                        {GL_QUAD_STRIP, 8},
                                                        {GL_POLYGON, 7},
                                                        {GL_POLYGON, 1}})));

    const auto count = [](int primitives, int triangles) {
        return json({{"primitives", primitives}, {"triangles", triangles}});
    };
    EXPECT_EQ(info["primitives"], json({{"POINTS", count(5, 0)},
                                        {"LINES", count(2, 0)},
                                        {"LINE_STRIP", count(4, 0)},
                                        {"LINE_LOOP", count(5, 0)},
                                        {"TRIANGLES", count(2, 2)},
                                        {"TRIANGLE_STRIP", count(3, 3)},
                                        {"TRIANGLE_FAN", count(4, 4)},
                                        {"QUADS", count(2, 4)},
                                        {"QUAD_STRIP", count(3, 6)},
                                        {"POLYGON", count(1, 5)}}));
    EXPECT_EQ(info["triangles"], 24);
}

TEST(InfoCommand, CountsEveryRunAndInstanceOfAPrimitiveSet) {
    const osg::ref_ptr<osg::Geometry> geometry = makePrimitives({});
    const osg::ref_ptr<osg::DrawArrayLengths> strips = new osg::DrawArrayLengths(GL_TRIANGLE_STRIP);
    strips->push_back(4);
    strips->push_back(5);
    geometry->addPrimitiveSet(strips);
    geometry->addPrimitiveSet(new osg::DrawElementsUShort(GL_TRIANGLES, 6));
    geometry->getPrimitiveSet(1)->setNumInstances(10);

    const json info = infoOf(*makeGeode(geometry));

    EXPECT_EQ(info["primitives"]["TRIANGLE_STRIP"]["triangles"], 5);
    EXPECT_EQ(info["primitives"]["TRIANGLES"]["triangles"], 20);
    EXPECT_EQ(info["indexBytes"], 6 * 2);
}

TEST(InfoCommand, CountsSharedArraysStateSetsTexturesAndProgramsOnce) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    const osg::ref_ptr<osg::Geometry> first = makePrimitives({});
    const osg::ref_ptr<osg::Geometry> second = makePrimitives({});
    second->setVertexArray(first->getVertexArray());
    const osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName("water");
    stateSet->setAttribute(program);
    root->addChild(makeGeode(first));
    root->addChild(makeGeode(second));
    for (unsigned int i = 0; i < 2; ++i) root->getChild(i)->setStateSet(stateSet);
    root->getOrCreateStateSet()->setAttribute(program);

    const json info = infoOf(*root);

    EXPECT_EQ(info["vertices"], 12);
    EXPECT_EQ(info["arrayBytes"], 12 * 3 * 4);
    EXPECT_EQ(info["stateSets"], 2);
    EXPECT_EQ(info["programs"], json({{"water", 1}}));
}

TEST(InfoCommand, TellsWhetherTheFileOfATextureWasFound) {
    const TemporaryDirectory folder;
    writeGrey(folder / "brick.png", 7);
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    for (const char* name : {"brick.png", "gone.png"}) root->addChild(makeTextured(name));
    for (const auto& texture : findTextures(root)) texture->getImage()->setWriteHint(osg::Image::EXTERNAL_FILE);
    root->addChild(makeGeode(makeSquare()));
    root->getChild(2)->getOrCreateStateSet()->setTextureAttribute(3, makeTexture("own.png"));
    osgDB::writeNodeFile(*root, folder / "a.osgb");

    const json info = jsonOf({"info", folder / "a.osgb"})["files"][0];

    ASSERT_EQ(info["textures"].size(), 3u);
    EXPECT_EQ(info["textures"][0], json({{"class", "osg::Texture2D"},
                                         {"file", fs::canonical(folder / "brick.png").string()},
                                         {"width", 8},
                                         {"height", 8},
                                         {"depth", 1},
                                         {"image", "found"}}));
    EXPECT_EQ(info["textures"][1]["image"], "none");
    EXPECT_EQ(info["textures"][2]["image"], "embedded");
    EXPECT_EQ(info["missingTextures"], json::array({folder / "gone.png"}));
    EXPECT_EQ(info["imageBytes"], 8 * 8 * 3 + 4);
}

TEST(InfoCommand, NamesTheTexturesThatAnOpenFlightFileLacks) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", *makeTextured("gone.png"));

    const json info = jsonOf({"info", folder / "a.flt"})["files"][0];

    EXPECT_EQ(info["missingTextures"], json::array({folder / "gone.png"}));
}

TEST(InfoCommand, ListsLodsWithTheirRangesAndTheFilesOfPagedOnes) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->setName("tree");
    lod->addChild(new osg::Group, 0.0f, 0.1f);
    lod->setRangeMode(osg::LOD::PIXEL_SIZE_ON_SCREEN);
    root->addChild(lod);
    root->addChild(makePaged({"t.ive"}));

    const json info = infoOf(*root);

    EXPECT_EQ(
        info["lods"],
        json::array({{{"name", "tree"}, {"unit", "pixels"}, {"ranges", json::array({{{"min", 0.0}, {"max", 0.1}}})}}}));
    EXPECT_EQ(info["pagedLods"],
              json::array({{{"name", ""},
                            {"unit", "distance"},
                            {"ranges", json::array({{{"min", 0.0}, {"max", 100.0}, {"file", "t.ive"}}})}}}));
}

TEST(InfoCommand, SumsUpTheRangesOfManyLodsInTheTable) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    for (int i = 0; i < 10000; ++i) {
        const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
        lod->addChild(new osg::Group, 0.0f, i < 9970 ? 50.0f : static_cast<float>(i));
        root->addChild(lod);
    }

    EXPECT_THAT(tableOf(*root), HasSubstr("LODs                   10000\n    9970 x 0 to 50\n    1 x 0 to 9970\n"));
    EXPECT_THAT(tableOf(*root), HasSubstr("    1 x 0 to 9988\n    and 11 more (--json lists all)\n"));
    EXPECT_EQ(infoOf(*root)["lods"].size(), 10000u);
}

TEST(InfoCommand, TellsTheBoxAndTheSphereOrThatThereAreNone) {
    const osg::ref_ptr<osg::MatrixTransform> moved = new osg::MatrixTransform(osg::Matrix::translate(10, 0, 0));
    moved->addChild(makeGround(2.0f));
    const osg::ref_ptr<osg::Group> empty = new osg::Group;

    EXPECT_EQ(infoOf(*moved)["box"], json({{"min", {9.0, -1.0, 0.0}}, {"max", {11.0, 1.0, 0.0}}}));
    EXPECT_EQ(infoOf(*moved)["sphere"]["center"], json({10.0, 0.0, 0.0}));
    EXPECT_EQ(infoOf(*empty)["box"], nullptr);
    EXPECT_EQ(infoOf(*empty)["sphere"], nullptr);
    EXPECT_THAT(tableOf(*moved), HasSubstr("bounding box           9,-1,0 to 11,1,0\n"));
    EXPECT_THAT(tableOf(*empty), HasSubstr("bounding box           nothing has an extent\n"));
}

TEST(InfoCommand, WritesATable) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    const osg::ref_ptr<osg::Geode> square = makeGround(2.0f);
    root->addChild(square);
    root->addChild(square);

    EXPECT_THAT(tableOf(*root), HasSubstr("nodes                  3, depth 3\n"
                                          "    1 x osg::Geode\n"
                                          "    1 x osg::Geometry\n"
                                          "    1 x osg::Group\n"
                                          "with several parents   1\n"
                                          "geodes                 1\n"
                                          "drawables              1\n"
                                          "vertices               4\n"
                                          "triangles              2 (4 in all the places where they hang)\n"
                                          "    TRIANGLES: 2 primitives, 2 triangles\n"
                                          "state sets             0\n"
                                          "textures               0\n"
                                          "programs               0\n"
                                          "external references    0\n"
                                          "LODs                   0\n"
                                          "paged LODs             0\n"));
}

TEST(InfoCommand, LeavesReferencedFilesAloneUnlessTold) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.flt", "gone.flt"});
    writeFlight(folder / "b.flt", 10.0f);

    const json info = jsonOf({"info", folder / "a.flt"});

    EXPECT_EQ(info["files"].size(), 1u);
    EXPECT_EQ(info["files"][0]["externalReferences"], json({"b.flt", "gone.flt"}));
    EXPECT_EQ(info["files"][0]["triangles"], 2);
    EXPECT_EQ(runTool({"info", folder / "a.flt"}).errors, "");
}

TEST(InfoCommand, FollowsReferencesAndTilesEachFileOnce) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makePaged({"tiles/x.osgb", "./tiles/x.osgb", "TILES\\X.osgb"}));
    root->addChild(makeReference("b.flt"));
    osgDB::writeNodeFile(*root, folder / "a.osgb");
    fs::create_directory(folder / "tiles");
    osgDB::writeNodeFile(*makePaged({"../y.osgb"}), folder / "tiles/x.osgb");
    osgDB::writeNodeFile(*makeGround(1.0f), folder / "y.osgb");
    writeFlight(folder / "b.flt", 10.0f);

    const json info = jsonOf({"info", "--recurse", folder / "a.osgb"});

    EXPECT_THAT(filesIn(info, folder), ElementsAre("a.osgb", "tiles/x.osgb", "b.flt", "y.osgb"));
    EXPECT_EQ(info["totals"]["triangles"], 4);
    EXPECT_EQ(info["totals"]["pagedLods"], 2);
    EXPECT_EQ(info["totals"]["filesRead"], 4);
    EXPECT_EQ(info["options"], json({{"recurse", true}}));
    EXPECT_EQ(info["files"][3]["namedBy"], folder / "tiles/x.osgb");
}

TEST(InfoCommand, LeavesReferencesAloneThatOpenSceneGraphWouldLoad) {
    const TemporaryDirectory folder;
    osgDB::writeNodeFile(*makeReference("b.osgb"), folder / "a.osgb");
    osgDB::writeNodeFile(*makeReference("a.osgb"), folder / "b.osgb");

    EXPECT_EQ(jsonOf({"info", folder / "a.osgb"})["files"][0]["nodes"], 1);
    EXPECT_THAT(filesIn(jsonOf({"info", "--recurse", folder / "a.osgb"}), folder), ElementsAre("a.osgb", "b.osgb"));
    EXPECT_EQ(runTool({"info", "--recurse", folder / "a.osgb"}).errors, "");
}

TEST(InfoCommand, ReadsAFileThatNamesItselfOnce) {
    const TemporaryDirectory folder;
    osgDB::writeNodeFile(*makeReference("self.osgb"), folder / "self.osgb");
    ToolSettings inFolder;
    inFolder.workingDirectory = folder.path();

    const ToolResult result = runTool({"info", "--recurse", "self.osgb"}, inFolder);

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("nodes                  1, depth 1\n"));
}

TEST(InfoCommand, EndsRings) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.flt", "a.flt"});
    writeFlight(folder / "b.flt", 10.0f, {"a.flt"});

    const ToolResult result = runTool({"info", "--recurse", folder / "a.flt"});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("files                  2 files read, 0 failed\n"));
}

TEST(InfoCommand, TellsMissingAndDamagedFilesInOneLineEachAndCountsTheRest) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"gone.flt", "cut.flt", "b.flt", "gone.flt"});
    writeFlight(folder / "b.flt", 10.0f, {"cut.flt"});
    writeBytes(folder / "cut.flt", readBytes(folder / "b.flt").substr(0, 100));

    const ToolResult result = runTool({"info", "--recurse", folder / "a.flt"});

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errors,
              "sceneutils: " + (folder / "gone.flt: no such file (named by ") + (folder / "a.flt)\n") + "sceneutils: " +
                  (folder / "cut.flt: truncated: ends inside the record at byte 0 (named by ") + (folder / "a.flt)\n"));
    EXPECT_THAT(result.output, HasSubstr("files                  2 files read, 2 failed\n"));
    EXPECT_THAT(result.output, HasSubstr("triangles              4\n"));
}

TEST(InfoCommand, ListsFilesThatFailedInJson) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"gone.flt"});

    const json info = jsonOf({"info", "--recurse", folder / "a.flt"}, 5);

    EXPECT_EQ(info["files"][1], json({{"file", folder / "gone.flt"},
                                      {"status", "failed"},
                                      {"problem", folder / "gone.flt: no such file"},
                                      {"namedBy", folder / "a.flt"}}));
    EXPECT_EQ(info["files"][0]["status"], "read");
    EXPECT_EQ(info["totals"]["filesFailed"], 1);
}

TEST(InfoCommand, HandsPalettesOnToReferencedFiles) {
    const TemporaryDirectory folder;
    writeGrey(folder / "brick.png", 7);
    const osg::ref_ptr<osg::Group> parent = makeModel(10.0f, {"b.flt"});
    parent->addChild(makeTextured("brick.png"));
    writeFlight(folder / "a.flt", *parent);
    setReferenceFlags(folder / "a.flt", ownEverything & ~ownTextures);
    writeFlight(folder / "b.flt", *makeTextured("brick.png"));
    std::vector<std::string> records = splitRecords(readBytes(folder / "b.flt"));
    std::string withoutTextures;
    for (const std::string& record : records) {
        if (bigEndian(record, 0, 2) != texturePaletteOpcode) withoutTextures += record;
    }
    writeBytes(folder / "b.flt", withoutTextures);

    const json info = jsonOf({"info", "--recurse", folder / "a.flt"});

    EXPECT_EQ(info["files"][1]["textures"].size(), 1u);
}

TEST(InfoCommand, NeverWritesControlCharactersToATerminal) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"gone\x1b[2J\n.flt"});

    const ToolResult result = runTool({"info", "--recurse", folder / "a.flt"});

    EXPECT_EQ(result.errors,
              "sceneutils: " + (folder / "gone?[2J?.flt: no such file (named by ") + (folder / "a.flt)\n"));
    EXPECT_THAT(result.output, Not(HasSubstr("\x1b")));
    EXPECT_THAT(result.output, HasSubstr("    gone?[2J?.flt\n"));
}

TEST(InfoCommand, JsonHasAVersionAndTellsWhatWasAsked) {
    const TemporaryDirectory folder;
    osgDB::writeNodeFile(*makeGround(1.0f), folder / "a.ive");

    const json info = jsonOf({"info", folder / "a.ive"});

    EXPECT_EQ(info["version"], 1);
    EXPECT_EQ(info["command"], "info");
    EXPECT_EQ(info["input"], folder / "a.ive");
    EXPECT_EQ(info["options"], json({{"recurse", false}}));
}

TEST(InfoCommand, SaysThatTheInputCannotBeRead) {
    const TemporaryDirectory folder;

    EXPECT_EQ(onlyLineOf({"info", folder / "a.ive"}, 2), "sceneutils: " + (folder / "a.ive: no such file\n"));
    EXPECT_EQ(runTool({"info", folder / "a.ive", "--json"}).output, "");
    EXPECT_THAT(onlyLineOf({"info"}, 1), HasSubstr("FILE"));
}

TEST(InfoCommand, HelpListsEveryOption) {
    const ToolResult result = runTool({"info", "--help"});

    EXPECT_EQ(result.status, 0);
    for (const char* word : {"FILE", "--recurse", "--json"}) EXPECT_THAT(result.output, HasSubstr(word));
}
