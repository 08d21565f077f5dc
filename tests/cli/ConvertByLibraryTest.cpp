#include "convert/ChildProcess.h"
#include "convert/ObjectOrder.h"
#include "files/ImageCollector.h"
#include "sample/SampleDatabase.h"
#include "support/ConvertedTextures.h"
#include "support/JobConversions.h"

#include <sceneutils/CreatePagedLODVisitor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <osg/Notify>
#include <osgDB/FileUtils>
#include <osgDB/Registry>

#include <iostream>
#include <string>

namespace fs = std::filesystem;
using namespace testing_support;
using namespace veltrane::sceneutils;
using Outputs = std::map<std::string, std::string>;

namespace {

/**
 * What an application adds to the library's recursive conversion: it finds files in nested folders, as the library's
 * documentation shows, and has textures named relative to the file that is written, where the library keeps the names
 * under which they were found.
 */
class Application : public osgDB::FindFileCallback, public osgDB::WriteFileCallback {
public:
    std::string findDataFile(const std::string& name, const osgDB::Options* options,
                             osgDB::CaseSensitivity caseSensitivity) override {
        for (auto end = name.rfind('/'); end != std::string::npos && end > 0; end = name.rfind('/', end - 1)) {
            const std::string directory = name.substr(0, end + 1);
            if (directory.rfind("..", 0) == 0) continue;
            if (name.compare(end + 1, directory.size(), directory) != 0) continue;
            const std::string single = name.substr(directory.size());
            return osgDB::fileExists(single) ? single : std::string();
        }
        return osgDB::FindFileCallback::findDataFile(name, options, caseSensitivity);
    }

    osgDB::ReaderWriter::WriteResult writeNode(const osg::Node& node, const std::string& name,
                                               const osgDB::Options* options) override {
        tool::ImageCollector images;
        const_cast<osg::Node&>(node).accept(images);
        for (const auto& image : images.images) {
            if (image->getWriteHint() == osg::Image::STORE_INLINE) continue;
            const fs::path folder = fs::canonical(fs::absolute(name).parent_path());
            image->setFileName(fs::canonical(image->getFileName()).lexically_relative(folder).string());
        }
        return osgDB::WriteFileCallback::writeNode(node, name, options);
    }
};

/**
 * Converts "master.flt" in a folder, with all that it refers to, by one call in a process of its own. A reference back
 * to the master is named "master.ive" by the library, whatever the output is called, so that is what it is called here.
 */
void convertByLibrary(const fs::path& folder) {
    const auto convert = [&](const tool::MessageSender&) {
        tool::orderObjectsByAge();
        fs::current_path(folder);
        std::cerr.rdbuf(nullptr);
        osg::setNotifyLevel(osg::ALWAYS);
        const osg::ref_ptr<Application> application = new Application;
        osgDB::Registry::instance()->setFindFileCallback(application);
        osgDB::Registry::instance()->setWriteFileCallback(application);
        CreatePagedLODVisitor visitor(nullptr);
        visitor.setRecurse(true);
        visitor.convert("master.flt", "master.ive");
    };
    tool::runInChild(60, convert, [](const std::string&) {});
}

/** Content by name of the files of one kind below a folder. */
Outputs filesIn(const fs::path& folder, const std::string& ending) {
    Outputs files;
    for (const auto& [name, content] : contentOf(folder)) {
        if (fs::path(name).extension() == ending && !isState(name)) files[name] = content;
    }
    return files;
}

/** Expects that the tool makes of "in" what the library makes of it, in place and elsewhere, in jobs and without. */
void expectSameAsByLibrary(const TemporaryDirectory& folder) {
    const std::size_t files = filesIn(folder / "in", ".flt").size();
    for (const char* copy : {"library", "plain", "jobs-1", "jobs-8"})
        fs::copy(folder / "in", folder / copy, fs::copy_options::recursive);
    convertByLibrary(folder / "library");
    const Outputs expected = filesIn(folder / "library", ".ive");
    EXPECT_EQ(expected.size(), files);

    convertIn(folder.path(), {"plain/master.flt", "plain/master.ive", "--recurse"});
    expectSameOutputs(filesIn(folder / "plain", ".ive"), expected);
    for (const std::string jobs : {"1", "8"}) {
        const std::string place = "jobs-" + jobs;
        convertIn(folder.path(), {place + "/master.flt", place + "/master.ive", "--recurse", "--jobs", jobs});
        expectSameOutputs(filesIn(folder / place, ".ive"), expected);
    }
    convertIn(folder.path(), {"in/master.flt", "out/master.ive", "--recurse"});
    expectSameOutputs(filesIn(folder / "out", ".ive"), expected);
}

void writeSample(const fs::path& folder, unsigned int tiles, unsigned int levels) {
    tool::SampleOptions options;
    options.tiles = tiles;
    options.levels = levels;
    tool::writeSampleDatabase(folder, options);
}

}  // namespace

TEST(ConvertByLibrary, GivesTheSameBytesOfFilesInOneFolder) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"a.flt", "b.flt"});
    writeFlight(folder / "in/a.flt", 16, {"c.flt"});
    writeFlight(folder / "in/b.flt", 12, {"c.flt"});
    writeFlight(folder / "in/c.flt", 8);

    expectSameAsByLibrary(folder);
}

TEST(ConvertByLibrary, GivesTheSameBytesOfTexturedDatabasesOfSeveralLevels) {
    for (const unsigned int levels : {2u, 3u}) {
        const TemporaryDirectory folder;
        writeSample(folder / "in", 2, levels);

        expectSameAsByLibrary(folder);
    }
}

TEST(ConvertByLibrary, GivesTheSameBytesOfAtlases) {
    const TemporaryDirectory folder;
    const std::vector<std::string> textures = {"../textures/a.png", "../textures/b.png", "../textures/c.png"};
    writeGrey(folder / "in/textures/a.png", 100);
    writeGrey(folder / "in/textures/b.png", 150);
    writeGrey(folder / "in/textures/c.png", 200);
    writeTextured(folder / "in/master.flt", {"textures/b.png", "textures/a.png"}, {"tiles/a.flt", "tiles/b.flt"}, 1.0f);
    writeTextured(folder / "in/tiles/a.flt", textures, {"c.flt"}, 1.0f);
    writeTextured(folder / "in/tiles/b.flt", textures, {"c.flt"}, 1.0f);
    writeTextured(folder / "in/tiles/c.flt", textures, {}, 1.0f);

    expectSameAsByLibrary(folder);
}

TEST(ConvertByLibrary, GivesTheSameBytesOfFilesThatReferToEachOther) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"a.flt", "b.flt", "master.flt"});
    writeFlight(folder / "in/a.flt", 16, {"b.flt", "a.flt"});
    writeFlight(folder / "in/b.flt", 12, {"a.flt", "master.flt", "c.flt"});
    writeFlight(folder / "in/c.flt", 8);

    expectSameAsByLibrary(folder);
}
