#include "sample/SampleDatabase.h"
#include "support/Conversions.h"
#include "support/FileRequests.h"

#include <sceneutils/CreatePagedLODVisitor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <osg/Program>
#include <osgDB/Registry>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using veltrane::sceneutils::CreatePagedLODVisitor;
using veltrane::sceneutils::tool::SampleOptions;
using veltrane::sceneutils::tool::writeSampleDatabase;

namespace {

void writeSample(const fs::path& folder, unsigned int tiles, unsigned int levels) {
    SampleOptions options;
    options.tiles = tiles;
    options.levels = levels;
    writeSampleDatabase(folder, options);
}

/** master.flt (20 wide) refers to a.flt (16), which refers to b.flt (12), and that to c.flt (8). */
void writeChain(const fs::path& folder) {
    writeFlight(folder / "master.flt", 20, {"a.flt"});
    writeFlight(folder / "a.flt", 16, {"b.flt"});
    writeFlight(folder / "b.flt", 12, {"c.flt"});
    writeFlight(folder / "c.flt", 8);
}

/** How far beyond its radius the only referenced model of a file is seen. */
float rangeIn(const fs::path& path) {
    const auto plods = findAll<osg::PagedLOD>(load(path));
    if (plods.size() != 1 || plods[0]->getNumRanges() != 1 || plods[0]->getMinRange(0) != 0.0f) return -1;
    return plods[0]->getMaxRange(0) - plods[0]->getRadius();
}

/** The library asks for a file with its folder written twice; this takes one of them away. */
class UndoubledFolders : public osgDB::FindFileCallback {
public:
    std::string findDataFile(const std::string& name, const osgDB::Options* options,
                             osgDB::CaseSensitivity sensitivity) override {
        const bool leadsUpwards = name.compare(0, 3, "../") == 0;
        for (std::size_t half = leadsUpwards ? 0 : name.size() / 2; half > 0; --half) {
            if (name[half - 1] == '/' && name.compare(0, half, name, half, half) == 0) {
                return osgDB::FindFileCallback::findDataFile(name.substr(half), options, sensitivity);
            }
        }
        return osgDB::FindFileCallback::findDataFile(name, options, sensitivity);
    }
};

/** Converts master.flt in that folder by the library alone, with recursion, outputs beside inputs. */
void convertByLibrary(const fs::path& folder) {
    const WorkingDirectory in(folder);
    osgDB::Registry::instance()->setFindFileCallback(new UndoubledFolders);
    testing::internal::CaptureStderr();
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setRecurse(true);
    visitor.convert("master.flt", "master.ive");
    testing::internal::GetCapturedStderr();
    osgDB::Registry::instance()->setFindFileCallback(nullptr);
}

std::set<std::string> convertedFilesIn(const fs::path& folder) {
    std::set<std::string> names;
    for (const std::string& name : namesIn(folder)) {
        if (fs::path(name).extension() == ".ive") names.insert(name);
    }
    return names;
}

}  // namespace

TEST(ConvertCommand, ConvertsAWholeDatabaseAndSaysWhatItDid) {
    const TemporaryDirectory folder;
    writeSample(folder / "in", 4, 3);

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/master.ive", "--recurse"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(countsIn(result), "19 files read, 19 converted, 0 failed, 0 textures missing");
    const std::set<std::string> converted = convertedFilesIn(folder / "out");
    EXPECT_THAT(converted, SizeIs(19));
    for (const std::string& name : converted) EXPECT_TRUE(load(fs::path(folder / "out") / name)) << name;
}

TEST(ConvertCommand, MakesTheSameGraphsAsTheLibrary) {
    const TemporaryDirectory folder;
    writeSample(folder / "in", 4, 4);
    fs::copy(folder / "in", folder / "by-library", fs::copy_options::recursive);
    convertByLibrary(folder / "by-library");

    convertIn(folder.path(), {"in/master.flt", "out/master.ive", "--recurse"});

    const std::set<std::string> expected = convertedFilesIn(folder / "by-library");
    EXPECT_EQ(convertedFilesIn(folder / "out"), expected);
    for (const std::string& name : expected) {
        EXPECT_EQ(textOf(fs::path(folder / "out") / name), textOf(fs::path(folder / "by-library") / name)) << name;
    }
}

TEST(ConvertCommand, GivesEachLevelAQuarterOfTheRange) {
    const TemporaryDirectory folder;
    writeChain(folder / "in");

    convertIn(folder.path(), {"in/master.flt", "out/master.ive", "--recurse"});

    EXPECT_NEAR(rangeIn(folder / "out/master.ive"), 10000.0f, 0.001f);  // radius + range is rounded to single precision
    EXPECT_NEAR(rangeIn(folder / "out/a.ive"), 2500.0f, 0.001f);
    EXPECT_NEAR(rangeIn(folder / "out/b.ive"), 625.0f, 0.001f);
    EXPECT_THAT(pagedFiles(load(folder / "out/c.ive")), IsEmpty());
}

TEST(ConvertCommand, TakesTheRangeFromTheCommandLine) {
    const TemporaryDirectory folder;
    writeChain(folder / "in");

    convertIn(folder.path(), {"in/master.flt", "out/master.ive", "--recurse", "--max-range", "64"});

    EXPECT_NEAR(rangeIn(folder / "out/master.ive"), 64.0f, 0.001f);
    EXPECT_NEAR(rangeIn(folder / "out/a.ive"), 16.0f, 0.001f);
    EXPECT_NEAR(rangeIn(folder / "out/b.ive"), 4.0f, 0.001f);
}

TEST(ConvertCommand, AcceptsARangeOfNothing) {
    const TemporaryDirectory folder;
    writeChain(folder / "in");

    EXPECT_EQ(convertIn(folder.path(), {"in/master.flt", "out/master.ive", "--max-range", "0"}).status, 0);

    EXPECT_EQ(rangeIn(folder / "out/master.ive"), 0.0f);
}

TEST(ConvertCommand, ConvertsReferencesWithoutRecursionOneLevelDeep) {
    const TemporaryDirectory folder;
    writeChain(folder / "in");

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/master.ive", "--convert-references"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(countsIn(result), "2 files read, 2 converted, 0 failed, 0 textures missing");
    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"a.ive", "master.ive"}));
    EXPECT_THAT(pagedFiles(load(folder / "out/master.ive")), ElementsAre("a.ive"));
    EXPECT_THAT(pagedFiles(load(folder / "out/a.ive")), IsEmpty());
    EXPECT_THAT(references(load(folder / "out/a.ive")), ElementsAre("../in/b.flt"));
}

TEST(ConvertCommand, LetsThePagedLodsLoadTheSourcesWhenAskedForNothingElse) {
    const TemporaryDirectory folder;
    writeChain(folder / "in");

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/deep/master.ive"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(countsIn(result), "2 files read, 1 converted, 0 failed, 0 textures missing");
    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"deep/master.ive"}));
    EXPECT_THAT(pagedFiles(load(folder / "out/deep/master.ive")), ElementsAre("../../in/a.flt"));
    EXPECT_NEAR(rangeIn(folder / "out/deep/master.ive"), 10000.0f, 0.001f);
}

TEST(ConvertCommand, SmoothsTheMasterOnly) {
    const TemporaryDirectory folder;
    // What OSG's writer calls unlit has no normals when it is read again.
    for (const char* name : {"in/master.flt", "in/a.flt"}) {
        const osg::ref_ptr<osg::Group> model = makeModel(
            10, name == std::string("in/a.flt") ? std::vector<std::string>() : std::vector<std::string>{"a.flt"});
        model->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
        writeFlight(folder / name, *model);
    }

    convertIn(folder.path(), {"in/master.flt", "out/master.ive", "--recurse"});
    convertIn(folder.path(), {"in/master.flt", "plain/master.ive", "--recurse", "--no-smooth"});

    const auto hasNormals = [&](const std::string& name) {
        const auto geometries = findAll<osg::Geometry>(load(folder / name));
        return geometries.size() == 1 && geometries[0]->getNormalArray() != nullptr;
    };
    EXPECT_TRUE(hasNormals("out/master.ive"));
    EXPECT_FALSE(hasNormals("out/a.ive"));
    EXPECT_FALSE(hasNormals("plain/master.ive"));
    EXPECT_FALSE(hasNormals("plain/a.ive"));
}

TEST(ConvertCommand, ConvertsFilesThatReferToEachOtherOnceEach) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"a.flt", "master.flt"});
    writeFlight(folder / "in/a.flt", 10, {"b.flt", "a.flt"});
    writeFlight(folder / "in/b.flt", 5, {"a.flt", "master.flt"});

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/world.ive", "--recurse"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(countsIn(result), "3 files read, 3 converted, 0 failed, 0 textures missing");
    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"a.ive", "b.ive", "world.ive"}));
    EXPECT_THAT(pagedFiles(load(folder / "out/world.ive")), ElementsAre("a.ive", "world.ive"));
    EXPECT_THAT(pagedFiles(load(folder / "out/a.ive")), ElementsAre("b.ive", "a.ive"));
    EXPECT_THAT(pagedFiles(load(folder / "out/b.ive")), ElementsAre("a.ive", "world.ive"));
}

TEST(ConvertCommand, WritesAReport) {
    const TemporaryDirectory folder;
    writeChain(folder / "in");
    fs::remove(folder / "in/c.flt");

    const ToolResult result =
        convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse", "--no-smooth", "--report", "new/r.json"});

    EXPECT_EQ(result.status, 5);
    const nlohmann::json report = nlohmann::json::parse(readBytes(folder / "new/r.json"));
    const std::string root = fs::canonical(folder.path()).string();
    EXPECT_EQ(report["version"], 1);
    EXPECT_EQ(report["command"], "convert");
    EXPECT_EQ(report["input"], root + "/in/master.flt");
    EXPECT_EQ(report["output"], root + "/out/m.ive");
    EXPECT_EQ(report["options"], nlohmann::json({{"recurse", true},
                                                 {"convertReferences", true},
                                                 {"maxRange", 10000.0},
                                                 {"smooth", false},
                                                 {"overwrite", false},
                                                 {"textures", "relative"}}));
    EXPECT_EQ(report["totals"]["filesRead"], 3);
    EXPECT_EQ(report["totals"]["filesConverted"], 3);
    EXPECT_EQ(report["totals"]["filesFailed"], 1);
    EXPECT_EQ(report["totals"]["texturesMissing"], 0);
}

TEST(ConvertCommand, ReportsEachFile) {
    const TemporaryDirectory folder;
    writeChain(folder / "in");
    fs::remove(folder / "in/c.flt");

    convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse", "--report", "r.json"});

    const nlohmann::json files = nlohmann::json::parse(readBytes(folder / "r.json"))["files"];
    const std::string root = fs::canonical(folder.path()).string();
    ASSERT_EQ(files.size(), 4u);
    EXPECT_EQ(files[0]["input"], root + "/in/c.flt");
    EXPECT_EQ(files[0]["status"], "failed");
    EXPECT_EQ(files[0]["problem"], "no such file");
    EXPECT_EQ(files[0]["namedBy"], root + "/in/b.flt");
    EXPECT_FALSE(files[0].contains("output"));
    EXPECT_EQ(files[3]["input"], root + "/in/master.flt");
    EXPECT_EQ(files[3]["status"], "converted");
    EXPECT_EQ(files[3]["output"], root + "/out/m.ive");
    EXPECT_EQ(files[3]["bytesIn"], fs::file_size(folder / "in/master.flt"));
    EXPECT_EQ(files[3]["bytesOut"], fs::file_size(folder / "out/m.ive"));
    EXPECT_EQ(files[3]["missingTextures"], nlohmann::json::array());
    EXPECT_FALSE(files[3].contains("namedBy"));
    EXPECT_FALSE(files[3].contains("problem"));
    EXPECT_GE(files[3]["seconds"], 0.0);
}

TEST(ConvertCommand, ReportsWhatWasOnlyRead) {
    const TemporaryDirectory folder;
    writeChain(folder / "in");

    convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--report", "r.json"});

    const nlohmann::json files = nlohmann::json::parse(readBytes(folder / "r.json"))["files"];
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[0]["status"], "read");
    EXPECT_FALSE(files[0].contains("output"));
    EXPECT_EQ(files[0]["bytesOut"], 0);
    EXPECT_EQ(files[1]["status"], "converted");
}

TEST(ConvertCommand, RefusesAReportInPlaceOfAnotherFile) {
    const TemporaryDirectory folder;
    writeChain(folder / "in");
    writeBytes(folder / "r.json", "mine");

    const auto refusal = [&](const std::string& report, const std::string& option) {
        const ToolResult result =
            convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse", "--report", report, option});
        EXPECT_EQ(result.status, 4);
        EXPECT_FALSE(fs::exists(folder / "out"));
        return result.errors;
    };

    EXPECT_EQ(refusal("r.json", "--recurse"), "sceneutils: r.json: exists already; pass --overwrite to replace it\n");
    EXPECT_EQ(refusal("in/a.flt", "--overwrite"), "sceneutils: in/a.flt: is one of the inputs; choose another name\n");
    EXPECT_EQ(refusal("out/a.ive", "--overwrite"),
              "sceneutils: out/a.ive: is one of the outputs; choose another name\n");
    EXPECT_EQ(readBytes(folder / "r.json"), "mine");
}

TEST(ConvertCommand, ShowsTheLibrarysMessagesWhenAskedTo) {
    const TemporaryDirectory folder;
    writeFlight(folder / "master.flt", 10);

    const ToolResult result = convertIn(folder.path(), {"master.flt", "master.ive", "--verbose"});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errors, HasSubstr("done convert\n"));
}
