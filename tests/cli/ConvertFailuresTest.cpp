#include "sample/SampleDatabase.h"
#include "support/Conversions.h"
#include "support/TexturedModels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

/** master.flt refers to bad.flt, which is for the test to make, and to good.flt. */
void writeWithOneBad(const TemporaryDirectory& folder, const std::function<void(const fs::path&)>& makeBad) {
    writeFlight(folder / "in/master.flt", 20, {"bad.flt", "good.flt"});
    writeFlight(folder / "in/good.flt", 3);
    makeBad(folder / "in/bad.flt");
}

/** Expects that everything but bad.flt is converted, and that this is said in one line: the reason is returned. */
std::string reasonForOneBad(const std::function<void(const fs::path&)>& makeBad) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, makeBad);
    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(countsIn(result), "2 files read, 2 converted, 1 failed, 0 textures missing");
    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"good.ive", "m.ive"}));
    EXPECT_THAT(references(load(folder / "out/m.ive")), ElementsAre("bad.flt"));
    EXPECT_THAT(pagedFiles(load(folder / "out/m.ive")), ElementsAre("good.ive"));
    const std::string beginning = "sceneutils: bad.flt (named by master.flt): ";
    EXPECT_THAT(result.errors, StartsWith(beginning));
    EXPECT_EQ(result.errorLines().size(), 1u) << result.errors;
    return result.errors.substr(std::min(beginning.size(), result.errors.size()));
}

void cut(const fs::path& path, std::size_t size) {
    writeFlight(path, 5);
    fs::resize_file(path, size);
}

/** Expects that a master is refused without a trace: the line is returned. */
std::string refusalOf(const std::function<void(const fs::path&)>& makeMaster) {
    const TemporaryDirectory folder;
    fs::create_directories(folder / "in");
    makeMaster(folder / "in/master.flt");
    const ToolResult result =
        convertIn(folder.path(), {"in/master.flt", "new/out/m.ive", "--recurse", "--report", "reports/r.json"});

    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_FALSE(fs::exists(folder / "new"));
    EXPECT_FALSE(fs::exists(folder / "reports"));
    return result.errors;
}

void writeSample(const fs::path& folder, unsigned int tiles) {
    veltrane::sceneutils::tool::SampleOptions options;
    options.tiles = tiles;
    options.levels = 1;
    veltrane::sceneutils::tool::writeSampleDatabase(folder, options);
}

}  // namespace

TEST(ConvertFailures, NamesAMissingTile) {
    EXPECT_EQ(reasonForOneBad([](const fs::path&) {}), "no such file\n");
}

TEST(ConvertFailures, NamesATileThatIsNoFile) {
    EXPECT_EQ(reasonForOneBad([](const fs::path& path) { writeBytes(path, ""); }), "empty file\n");
    EXPECT_EQ(reasonForOneBad([](const fs::path& path) { writeBytes(path, "This is a text.\n"); }),
              "not an OpenFlight file\n");
    EXPECT_EQ(reasonForOneBad([](const fs::path& path) { fs::create_symlink("nowhere", path); }), "no such file\n");
    EXPECT_EQ(reasonForOneBad([](const fs::path& path) { mkfifo(path.c_str(), 0600); }), "is not a regular file\n");
}

TEST(ConvertFailures, NamesATileThatIsAFolder) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, [](const fs::path& path) { fs::create_directory(path); });

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errors, "sceneutils: bad.flt (named by master.flt): is a folder\n");
    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"good.ive", "m.ive"}));
}

TEST(ConvertFailures, NamesATruncatedTile) {
    EXPECT_EQ(reasonForOneBad([](const fs::path& path) { cut(path, 100); }),
              "truncated: ends inside the record at byte 0\n");
    for (const std::size_t missing : {1, 4, 5})
        EXPECT_THAT(reasonForOneBad([&](const fs::path& path) {
                        writeFlight(path, 5);
                        fs::resize_file(path, fs::file_size(path) - missing);
                    }),
                    StartsWith("truncated: ends "));
}

TEST(ConvertFailures, NamesTheFirstFileThatRefersToTheMissingOne) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"sub/a.flt", "sub/b.flt"});
    writeFlight(folder / "in/sub/a.flt", 3, {"../gone.flt", "lost.osg"});
    writeFlight(folder / "in/sub/b.flt", 4, {"../gone.flt"});

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(countsIn(result), "3 files read, 3 converted, 2 failed, 0 textures missing");
    EXPECT_THAT(result.errorLines(), ElementsAre("sceneutils: gone.flt (named by sub/a.flt): no such file",
                                                 "sceneutils: sub/lost.osg (named by sub/a.flt): no such file"));
    EXPECT_THAT(references(load(folder / "out/sub/b.ive")), ElementsAre("../gone.flt"));
}

TEST(ConvertFailures, RefusesAMasterThatCannotBeRead) {
    EXPECT_EQ(refusalOf([](const fs::path&) {}), "sceneutils: in/master.flt: no such file\n");
    EXPECT_EQ(refusalOf([](const fs::path& path) { fs::create_directory(path); }),
              "sceneutils: in/master.flt: is a folder\n");
    EXPECT_EQ(refusalOf([](const fs::path& path) { writeBytes(path, ""); }), "sceneutils: in/master.flt: empty file\n");
    EXPECT_EQ(refusalOf([](const fs::path& path) { writeBytes(path, "text"); }),
              "sceneutils: in/master.flt: not an OpenFlight file\n");
    EXPECT_EQ(refusalOf([](const fs::path& path) { cut(path, 50); }),
              "sceneutils: in/master.flt: truncated: ends inside the record at byte 0\n");
}

TEST(ConvertFailures, RefusesAnInputOfAnotherKind) {
    const TemporaryDirectory folder;
    writeBytes(folder / "a.osg", "#Ascii Scene\n");

    const ToolResult result = convertIn(folder.path(), {"a.osg", "out/m.ive"});

    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.errors, "sceneutils: a.osg: only OpenFlight files (.flt) can be converted\n");
    EXPECT_EQ(namesIn(folder.path()), std::set<std::string>({"a.osg"}));
}

TEST(ConvertFailures, RefusesAFolderAsOutput) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in.flt", 10);
    fs::create_directory(folder / "out.ive");

    const ToolResult result = convertIn(folder.path(), {"in.flt", "out.ive", "--overwrite"});

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "sceneutils: " + (fs::canonical(folder.path()) / "out.ive").string() + ": is a folder\n");
    EXPECT_THAT(namesIn(folder / "out.ive"), IsEmpty());
}

TEST(ConvertFailures, RefusesAnOutputBelowARegularFile) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in.flt", 10);
    writeBytes(folder / "file", "text");

    const ToolResult result = convertIn(folder.path(), {"in.flt", "file/deep/out.ive", "--recurse"});

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errorLines(),
                ElementsAre(EndsWith("/file/deep/out.ive: " + (fs::canonical(folder.path()) / "file").string() +
                                     " is not a folder")));
}

TEST(ConvertFailures, RefusesToReplaceAnyOutput) {
    for (const char* existing : {"m.ive", "good.ive"}) {
        const TemporaryDirectory folder;
        writeWithOneBad(folder, [](const fs::path& path) { writeFlight(path, 7); });
        writeBytes(fs::path(folder / "out") / existing, "mine");

        const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

        EXPECT_EQ(result.status, 4);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errorLines(), ElementsAre(EndsWith("/out/" + std::string(existing) +
                                                              ": exists already; pass --overwrite to replace it")));
        EXPECT_EQ(contentOf(folder / "out"), (std::map<std::string, std::string>{{existing, "mine"}}));
    }
}

TEST(ConvertFailures, ReplacesOutputsWhenToldTo) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, [](const fs::path& path) { writeFlight(path, 7); });
    const std::vector<std::string> arguments = {"in/master.flt", "out/m.ive", "--recurse", "--report", "r.json"};
    convertIn(folder.path(), arguments);
    const auto expected = contentOf(folder / "out");
    for (const char* name : {"out/m.ive", "out/good.ive", "r.json"}) writeBytes(folder / name, "mine");

    auto withOverwrite = arguments;
    withOverwrite.push_back("--overwrite");
    const ToolResult result = convertIn(folder.path(), withOverwrite);

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(contentOf(folder / "out"), expected);
    EXPECT_NE(readBytes(folder / "r.json"), "mine");
}

TEST(ConvertFailures, NeverReplacesAnInput) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"tile.flt", "tile.ive"});
    writeFlight(folder / "in/tile.flt", 3);
    osgDB::writeNodeFile(*makeModel(7), folder / "in/tile.ive");
    const std::string before = readBytes(folder / "in/tile.ive");

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "in/m.ive", "--recurse", "--overwrite"});

    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errorLines(),
                ElementsAre(EndsWith("/in/tile.ive: is one of the inputs; choose another output")));
    EXPECT_EQ(readBytes(folder / "in/tile.ive"), before);
}

TEST(ConvertFailures, LeavesNothingOfAMasterThatCannotBeWrittenWhole) {
    for (const bool diesOfFileSize : {false, true}) {
        const TemporaryDirectory folder;
        writeFlight(folder / "in/master.flt", 20);
        ToolSettings settings;
        settings.fileSizeLimit = 1024;
        settings.diesOfFileSize = diesOfFileSize;

        const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive"}, settings);

        EXPECT_EQ(result.status, 4);
        EXPECT_EQ(countsIn(result), "0 files read, 0 converted, 1 failed, 0 textures missing");
        EXPECT_THAT(result.errorLines(),
                    ElementsAre(EndsWith("/out/m.ive: not all of it could be written: File too large")));
        EXPECT_THAT(namesIn(folder / "out"), IsEmpty());
    }
}

TEST(ConvertFailures, LeavesNothingOfATileThatCannotBeWrittenWhole) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, [](const fs::path& path) {
        const osg::ref_ptr<osg::Group> model = makeModel(7);
        for (int i = 0; i < 2000; ++i) model->addChild(makeGround(static_cast<float>(i)));
        writeFlight(path, *model);
    });
    ToolSettings settings;
    settings.fileSizeLimit = 40000;

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"}, settings);

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(countsIn(result), "2 files read, 2 converted, 1 failed, 0 textures missing");
    EXPECT_THAT(result.errorLines(),
                ElementsAre(EndsWith("/out/bad.ive: not all of it could be written: File too large")));
    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"good.ive", "m.ive"}));
    EXPECT_THAT(references(load(folder / "out/m.ive")), ElementsAre("bad.flt"));
}

TEST(ConvertFailures, EndsAtOnceWhenInterrupted) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const TemporaryDirectory folder;
        writeSample(folder / "in", 100);
        ToolSettings settings;
        settings.workingDirectory = folder.path();
        ToolProcess tool(SCENEUTILS_TOOL, {"convert", "in/master.flt", "out/m.ive", "--recurse"}, settings);
        while (tool.isRunning() && !fs::exists(folder / "out/tiles/r00/c03/tile_00_03.ive"))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));

        tool.send(signal);
        const ToolResult result = tool.wait();

        EXPECT_EQ(result.status, 130);
        EXPECT_FALSE(result.leftProcesses);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "sceneutils: interrupted\n");
        EXPECT_FALSE(fs::exists(folder / "out/m.ive"));
        expectNoPartialFiles(folder.path());
        for (const std::string& name : namesIn(folder / "out"))
            EXPECT_TRUE(fs::path(name).extension() != ".ive" || load(fs::path(folder / "out") / name)) << name;
    }
}

TEST(ConvertFailures, GivesUpAFileThatTakesTooLong) {
    const TemporaryDirectory folder;
    writeWithOneBad(folder, [](const fs::path& path) {
        const osg::ref_ptr<osg::Group> model = makeModel(7);
        for (int i = 0; i < 40000; ++i) model->addChild(makeGround(static_cast<float>(i)));
        writeFlight(path, *model);
    });

    const ToolResult result =
        convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse", "--time-limit", "1"});

    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(
        result.errorLines(),
        ElementsAre(StartsWith("sceneutils: bad.flt (named by master.flt): took more than 1 s of processor time "
                               "while being ")));
    EXPECT_EQ(namesIn(folder / "out"), std::set<std::string>({"good.ive", "m.ive"}));
}

TEST(ConvertFailures, SaysInOneLineWhatIsWrongWithANameOfSeveral) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"gone\n\x1b[31m.flt"});

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    EXPECT_EQ(result.errors, "sceneutils: gone??[31m.flt (named by master.flt): no such file\n");
}

namespace {

/** A black picture of that many pixels each way, which takes a while to copy but none to make. */
void writeLargePicture(const fs::path& path, std::size_t size) {
    const std::string header = "P6\n" + std::to_string(size) + " " + std::to_string(size) + "\n255\n";
    writeBytes(path, header);
    fs::resize_file(path, header.size() + 3 * size * size);
}

/** Ends the process that has begun to write an output of that name, as the system does when memory runs out. */
bool killWriterOf(const ToolProcess& tool, const fs::path& output) {
    const std::string beginning = "." + output.filename().string() + ".part-";
    while (tool.isRunning()) {
        std::error_code notMadeYet;
        for (const auto& entry : fs::directory_iterator(output.parent_path(), notMadeYet)) {
            const std::string name = entry.path().filename().string();
            if (name.compare(0, beginning.size(), beginning) != 0) continue;
            return kill(std::stoi(name.substr(beginning.size())), SIGKILL) == 0;
        }
    }
    return false;
}

}  // namespace

TEST(ConvertFailures, LeavesNothingOfATextureWhoseCopyingWasKilled) {
    const TemporaryDirectory folder;
    writeLargePicture(folder / "in/a.ppm", 6000);
    const osg::ref_ptr<osg::Group> model = makeModel(10);
    model->addChild(makeTextured("a.ppm"));
    writeFlight(folder / "in/master.flt", *model);
    ToolSettings settings;
    settings.workingDirectory = folder.path();
    ToolProcess tool(SCENEUTILS_TOOL, {"convert", "in/master.flt", "out/m.ive"}, settings);

    ASSERT_TRUE(killWriterOf(tool, folder / "out/a.ppm"));
    const ToolResult result = tool.wait();

    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.errorLines(), ElementsAre(EndsWith("/out/a.ppm: crashed while being written (Killed)")));
    EXPECT_THAT(namesIn(folder / "out"), IsEmpty());
}
