#include "sample/SampleDatabase.h"

#include "Command.h"
#include "support/OsgMessages.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <CLI/CLI.hpp>

#include <osg/ComputeBoundsVisitor>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Material>
#include <osg/ProxyNode>
#include <osg/Texture2D>
#include <osgDB/ReadFile>
#include <osgUtil/Optimizer>

#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

using namespace veltrane::sceneutils::tool;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing_support::OsgMessages;
using testing_support::TemporaryDirectory;
using testing_support::WorkingDirectory;

namespace {

constexpr const char* keepReferences = "keepExternalReferences=yes;preserveFace=yes";

/** All files below a directory by relative name, with their bytes. */
std::map<std::string, std::string> readAll(const fs::path& directory) {
    std::map<std::string, std::string> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
        if (!entry.is_regular_file()) continue;
        std::ifstream file(entry.path(), std::ios::binary);
        files[fs::relative(entry.path(), directory).string()] =
            std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return files;
}

std::vector<fs::path> filesWithExtension(const fs::path& directory, const std::string& extension) {
    std::vector<fs::path> found;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory))
        if (entry.path().extension() == extension) found.push_back(entry.path());
    return found;
}

osg::ref_ptr<osg::Node> readNode(const fs::path& file, const std::string& options = keepReferences) {
    const osg::ref_ptr<osgDB::Options> held = new osgDB::Options(options);
    return osgDB::readRefNodeFile(file.string(), held);
}

/** What a graph is made of. */
class Inventory : public osg::NodeVisitor {
public:
    explicit Inventory(osg::Node* node) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {
        if (node) node->accept(*this);
    }

    void apply(osg::Node& node) override {
        if (!node.getName().empty()) names.insert(node.getName());
        for (const std::string& description : node.getDescriptions()) descriptions[node.getName()] = description;
        if (node.getStateSet()) addState(*node.getStateSet());
        traverse(node);
    }

    void apply(osg::ProxyNode& node) override {
        references.push_back(node.getFileName(0));
        if (node.getNumChildren() == 0) unloaded.push_back(node.getFileName(0));
        apply(static_cast<osg::Node&>(node));
    }

    void apply(osg::Geometry& geometry) override {
        ++geometries;
        if (const auto* vertices = dynamic_cast<const osg::Vec3Array*>(geometry.getVertexArray()))
            points.insert(points.end(), vertices->begin(), vertices->end());
        if (const auto* coordinates = dynamic_cast<const osg::Vec2Array*>(geometry.getTexCoordArray(0)))
            for (const osg::Vec2& coordinate : *coordinates) addCoordinate(coordinate);
        apply(static_cast<osg::Node&>(geometry));
    }

    std::set<std::string> names;
    std::map<std::string, std::string> descriptions;  ///< by the name of the node
    std::vector<std::string> references;
    std::vector<std::string> unloaded;
    std::set<std::string> images;       ///< names without folders
    std::set<std::string> blankImages;  ///< those without pixels
    std::set<std::string> materials;
    std::vector<osg::Vec3> points;
    std::map<std::string, float> largestCoordinates;  ///< of textures, by the name of the geode
    unsigned geometries = 0;

private:
    void addCoordinate(const osg::Vec2& coordinate) {
        float& largest = largestCoordinates[getNodePath().rbegin()[1]->getName()];
        largest = std::max({largest, coordinate.x(), coordinate.y()});
    }

    void addState(osg::StateSet& state) {
        if (auto* material = dynamic_cast<osg::Material*>(state.getAttribute(osg::StateAttribute::MATERIAL)))
            materials.insert(material->getName());
        auto* texture = dynamic_cast<osg::Texture2D*>(state.getTextureAttribute(0, osg::StateAttribute::TEXTURE));
        if (!texture || !texture->getImage()) return;
        const std::string name = fs::path(texture->getImage()->getFileName()).filename().string();
        images.insert(name);
        if (!texture->getImage()->data()) blankImages.insert(name);
    }
};

Inventory inventoryOf(const fs::path& file, const std::string& options = keepReferences) {
    return Inventory(readNode(file, options));
}

SampleOptions smallDatabase() {
    SampleOptions options;
    options.tiles = 2;
    return options;
}

/** The status and message that a call ends with. */
template <class Call>
std::pair<ExitStatus, std::string> failureOf(const Call& call) {
    try {
        call();
    } catch (const CommandError& error) {
        return {error.status(), error.what()};
    }
    return {ExitStatus::Done, ""};
}

std::pair<ExitStatus, std::string> failureToWrite(const fs::path& directory,
                                                  const SampleOptions& options = smallDatabase()) {
    return failureOf([&] { writeSampleDatabase(directory, options); });
}

/** What is written to standard output and standard error while it lives. */
class Console {
public:
    Console() : _output(std::cout.rdbuf(_caught.rdbuf())), _errors(std::cerr.rdbuf(_caught.rdbuf())) {}
    ~Console() {
        std::cout.rdbuf(_output);
        std::cerr.rdbuf(_errors);
    }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    std::string text() const { return _caught.str(); }

private:
    std::ostringstream _caught;
    std::streambuf* _output;
    std::streambuf* _errors;
};

/** Lets no file grow beyond that size, as a full disk would. */
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : _signal(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &_own);
        const rlimit limit = {bytes, _own.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &_own);
        std::signal(SIGXFSZ, _signal);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit _own = {};
    void (*_signal)(int);
};

/** Runs `sceneutils sample` with those arguments. */
ExitStatus runSample(const std::string& arguments) {
    CLI::App app("", "sceneutils");
    ExitStatus status = ExitStatus::Interrupted;
    addSampleCommand(app, status);
    app.parse("sample " + arguments);
    return status;
}

using Heights = std::map<float, float>;

/** The ground's heights along one edge of a tile, by the distance along it. */
Heights eastOrWestEdge(const fs::path& tile, float x) {
    osg::ref_ptr<osg::Node> node = readNode(tile);
    osg::Node* terrain = node->asGroup()->getChild(0);
    Heights heights;
    for (const osg::Vec3& point : Inventory(terrain).points)
        if (point.x() == x) heights[point.y()] = point.z();
    return heights;
}

}  // namespace

TEST(SampleDatabase, CountsTheFilesOfEveryLevel) {
    const TemporaryDirectory directory;
    for (unsigned levels = 1; levels <= 4; ++levels) {
        SampleOptions options;
        options.tiles = 5;
        options.levels = levels;
        const fs::path database = directory.path() / std::to_string(levels);

        const SampleSummary summary = writeSampleDatabase(database, options);

        const unsigned models = levels == 1 ? 0 : 6;
        EXPECT_EQ(summary.files, 1 + 5 * levels + models);
        EXPECT_EQ(filesWithExtension(database, ".flt").size(), summary.files);
    }
}

TEST(SampleDatabase, WritesAsManyTexturesAsAskedFor) {
    const TemporaryDirectory directory;
    for (unsigned textures : {1u, 3u, 8u, 14u}) {
        SampleOptions options = smallDatabase();
        options.textures = textures;
        const fs::path database = directory.path() / std::to_string(textures);

        EXPECT_EQ(writeSampleDatabase(database, options).textures, textures);
        EXPECT_EQ(filesWithExtension(database / "textures", ".png").size(), textures);
    }
}

TEST(SampleDatabase, SumsUpTheBytesAndNamesTheMaster) {
    const TemporaryDirectory directory;

    const SampleSummary summary = writeSampleDatabase(directory.path(), smallDatabase());

    std::size_t bytes = 0;
    for (const auto& file : readAll(directory.path())) bytes += file.second.size();
    EXPECT_EQ(summary.bytes, bytes);
    EXPECT_EQ(summary.master, directory.path() / "master.flt");
}

TEST(SampleDatabase, PutsEveryFileIntoAFolderOfItsOwn) {
    const TemporaryDirectory directory;
    SampleOptions options = smallDatabase();
    options.levels = 4;
    options.textures = 1;

    writeSampleDatabase(directory.path(), options);

    std::vector<std::string> names;
    for (const auto& file : readAll(directory.path())) names.push_back(file.first);
    EXPECT_THAT(names,
                ElementsAre("master.flt", "models/house_0.flt", "models/house_1.flt", "models/house_2.flt",
                            "models/tree_0.flt", "models/tree_1.flt", "models/tree_2.flt", "textures/grass_0.png",
                            "textures/grass_0.png.attr", "tiles/r00/c00/objects/details/details_00_00.flt",
                            "tiles/r00/c00/objects/details/fittings/fittings_00_00.flt",
                            "tiles/r00/c00/objects/objects_00_00.flt", "tiles/r00/c00/tile_00_00.flt",
                            "tiles/r00/c01/objects/details/details_00_01.flt",
                            "tiles/r00/c01/objects/details/fittings/fittings_00_01.flt",
                            "tiles/r00/c01/objects/objects_00_01.flt", "tiles/r00/c01/tile_00_01.flt"));
}

TEST(SampleDatabase, GivesEveryTileTheSameNameWhenAskedTo) {
    const TemporaryDirectory directory;
    SampleOptions options;
    options.tiles = 4;
    options.sameNames = true;

    writeSampleDatabase(directory.path(), options);

    EXPECT_THAT(inventoryOf(directory / "master.flt").references,
                ElementsAre("tiles/r00/c00/tile.flt", "tiles/r00/c01/tile.flt", "tiles/r01/c00/tile.flt",
                            "tiles/r01/c01/tile.flt"));
    EXPECT_THAT(inventoryOf(directory / "tiles/r01/c00/tile.flt").references, Contains("objects/objects.flt"));
    EXPECT_TRUE(fs::exists(directory / "tiles/r01/c00/objects/objects.flt"));
}

TEST(SampleDatabase, GivesTheSameBytesForTheSameSeed) {
    const TemporaryDirectory directory;
    SampleOptions options = smallDatabase();
    options.levels = 4;
    options.seed = 7;

    writeSampleDatabase(directory.path() / "one", options);
    const std::vector<std::string> otherAddresses(1000, std::string(300, 'x'));
    writeSampleDatabase(directory.path() / "two", options);

    EXPECT_EQ(readAll(directory.path() / "one"), readAll(directory.path() / "two"));
}

TEST(SampleDatabase, GivesOtherBytesForAnotherSeed) {
    const TemporaryDirectory directory;
    SampleOptions options = smallDatabase();
    writeSampleDatabase(directory.path() / "one", options);
    options.seed = 2;
    writeSampleDatabase(directory.path() / "two", options);

    const auto one = readAll(directory.path() / "one");
    const auto two = readAll(directory.path() / "two");
    EXPECT_NE(one.at("tiles/r00/c00/tile_00_00.flt"), two.at("tiles/r00/c00/tile_00_00.flt"));
    EXPECT_NE(one.at("tiles/r00/c01/objects/objects_00_01.flt"), two.at("tiles/r00/c01/objects/objects_00_01.flt"));
    EXPECT_NE(one.at("textures/grass_0.png"), two.at("textures/grass_0.png"));
}

TEST(SampleDatabase, RefersOnlyToFilesThatExist) {
    const TemporaryDirectory directory;
    SampleOptions options = smallDatabase();
    options.levels = 4;
    writeSampleDatabase(directory.path(), options);

    unsigned references = 0;
    for (const fs::path& file : filesWithExtension(directory.path(), ".flt"))
        for (const std::string& name : inventoryOf(file).references) {
            ++references;
            EXPECT_TRUE(fs::exists(file.parent_path() / name)) << file << " refers to " << name;
        }

    EXPECT_EQ(references, 2u + 2u * (6 + 3));  // the tiles; each tile's models and further levels
}

TEST(SampleDatabase, SharesModelsBetweenTiles) {
    const TemporaryDirectory directory;
    writeSampleDatabase(directory.path(), SampleOptions());

    std::multiset<std::string> models;
    for (const fs::path& file : filesWithExtension(directory.path() / "tiles", ".flt"))
        for (const std::string& name : inventoryOf(file).references)
            if (name.find("models") != std::string::npos) models.insert(name);

    EXPECT_EQ(models.size(), 16u * 6u);
    EXPECT_GT(models.count("../../../models/tree_0.flt"), 1u);
    EXPECT_GT(models.count("../../../models/house_0.flt"), 1u);
}

TEST(SampleDatabase, LoadsWholeWithEveryTexture) {
    const TemporaryDirectory directory;
    SampleOptions options;
    options.levels = 4;
    writeSampleDatabase(directory.path(), options);

    const osg::ref_ptr<osg::Node> whole = osgDB::readRefNodeFile(directory / "master.flt");

    const Inventory inventory(whole);
    EXPECT_THAT(inventory.unloaded, IsEmpty());
    EXPECT_THAT(inventory.blankImages, IsEmpty());
    EXPECT_THAT(inventory.images, ElementsAre("door_0.png", "facade_0.png", "facade_1.png", "grass_0.png",
                                              "grass_1.png", "rock_0.png", "sign_0.png", "tree_0.png"));
}

TEST(SampleDatabase, CoversTheGridOfItsTiles) {
    const TemporaryDirectory directory;
    SampleOptions options;
    options.tiles = 6;  // three columns, two rows
    writeSampleDatabase(directory.path(), options);
    const osg::ref_ptr<osg::Node> whole = osgDB::readRefNodeFile(directory / "master.flt");

    osg::ComputeBoundsVisitor bounds;
    whole->accept(bounds);

    const osg::BoundingBox box = bounds.getBoundingBox();
    EXPECT_EQ(osg::Vec2(box.xMin(), box.yMin()), osg::Vec2(0, 0));
    EXPECT_EQ(osg::Vec2(box.xMax(), box.yMax()), osg::Vec2(3000, 2000));
    EXPECT_GT(box.zMin(), -2.0f);
    EXPECT_LT(box.zMax(), 160.0f);
}

TEST(SampleDatabase, LoadsWholeFromAnotherPlace) {
    const TemporaryDirectory directory;
    writeSampleDatabase(directory.path() / "made", smallDatabase());
    fs::rename(directory.path() / "made", directory.path() / "moved");

    const Inventory inventory(osgDB::readRefNodeFile(directory / "moved/master.flt"));

    EXPECT_THAT(inventory.unloaded, IsEmpty());
    EXPECT_THAT(inventory.blankImages, IsEmpty());
    EXPECT_THAT(inventory.images, Contains("rock_0.png"));
}

TEST(SampleDatabase, ReadsBackWithNamesMaterialsAndTextures) {
    const TemporaryDirectory directory;
    writeSampleDatabase(directory.path(), smallDatabase());

    const Inventory tile = inventoryOf(directory / "tiles/r00/c00/tile_00_00.flt");

    for (const char* name : {"tile_00_00", "terrain", "grass", "grove", "tree_0", "leaves", "models", "kiosks",
                             "kiosks_0", "walls", "roof", "door", "sign", "objects"})
        EXPECT_THAT(tile.names, Contains(name));
    EXPECT_THAT(tile.materials, Contains("grass"));
    EXPECT_THAT(tile.blankImages, IsEmpty());
    EXPECT_THAT(tile.images, Contains("tree_0.png"));
}

TEST(SampleDatabase, ReadsBackWithTheReferencesFollowedAtOnce) {
    const TemporaryDirectory directory;
    writeSampleDatabase(directory.path(), smallDatabase());

    const Inventory tile = inventoryOf(directory / "tiles/r00/c00/tile_00_00.flt", "");

    EXPECT_EQ(tile.references.size(), 7u);
    EXPECT_THAT(tile.unloaded, IsEmpty());
    EXPECT_THAT(tile.names, Contains("buildings_0"));
}

TEST(SampleDatabase, RepeatsTexturesOnGroundAndWallsOnly) {
    const TemporaryDirectory directory;
    writeSampleDatabase(directory.path(), smallDatabase());

    const Inventory tile = inventoryOf(directory / "tiles/r00/c00/tile_00_00.flt");

    EXPECT_EQ(tile.largestCoordinates.at("grass"), 20.0f);
    EXPECT_GT(tile.largestCoordinates.at("walls"), 1.0f);
    EXPECT_EQ(tile.largestCoordinates.at("door"), 1.0f);
    EXPECT_EQ(tile.largestCoordinates.at("sign"), 1.0f);
    EXPECT_FLOAT_EQ(tile.largestCoordinates.at("leaves"), 0.98f);
}

TEST(SampleDatabase, HoldsTexturesForAnAtlasInEveryFileBelowTheMaster) {
    const TemporaryDirectory directory;
    SampleOptions options = smallDatabase();
    options.levels = 4;
    writeSampleDatabase(directory.path(), options);

    for (const fs::path& file : filesWithExtension(directory.path() / "tiles", ".flt")) {
        osg::ref_ptr<osg::Node> node = readNode(file);
        osgUtil::Optimizer().optimize(
            node, osgUtil::Optimizer::TEXTURE_ATLAS_BUILDER | osgUtil::Optimizer::STATIC_OBJECT_DETECTION);

        const Inventory inventory(node);
        EXPECT_THAT(inventory.images, Contains(testing::StartsWith("atlas_"))) << file;
        EXPECT_THAT(inventory.images, Not(Contains("sign_0.png"))) << file;
    }
}

TEST(SampleDatabase, GivesTilesOfOneLevelTheirBuildings) {
    const TemporaryDirectory directory;
    SampleOptions options = smallDatabase();
    options.levels = 1;
    writeSampleDatabase(directory.path(), options);

    const Inventory tile = inventoryOf(directory / "tiles/r00/c00/tile_00_00.flt");

    EXPECT_THAT(tile.references, IsEmpty());
    EXPECT_THAT(tile.names, Contains("buildings_7"));
    EXPECT_FALSE(fs::exists(directory / "models"));
}

TEST(SampleDatabase, LetsNeighbouringTilesMeet) {
    const TemporaryDirectory directory;
    writeSampleDatabase(directory.path(), smallDatabase());

    const Heights east = eastOrWestEdge(directory / "tiles/r00/c00/tile_00_00.flt", 1000.0f);
    const Heights west = eastOrWestEdge(directory / "tiles/r00/c01/tile_00_01.flt", 0.0f);

    EXPECT_EQ(east.size(), 13u);
    EXPECT_EQ(east, west);
    EXPECT_NE(east.begin()->second, east.rbegin()->second);
}

TEST(SampleDatabase, DescribesGroupsWithTransitionRangesWhenAskedTo) {
    const TemporaryDirectory directory;
    SampleOptions options = smallDatabase();
    options.lodHints = true;
    writeSampleDatabase(directory.path(), options);

    const std::map<std::string, std::string> tile = {{"grove", "LOD_Transition_Range 400"},
                                                     {"models", "LOD_Transition_Range 750"},
                                                     {"kiosks", "LOD_Transition_Range 250"}};
    const std::map<std::string, std::string> objects = {{"buildings", "LOD_Transition_Range 1000"}};
    EXPECT_EQ(inventoryOf(directory / "tiles/r00/c00/tile_00_00.flt").descriptions, tile);
    EXPECT_EQ(inventoryOf(directory / "tiles/r00/c00/objects/objects_00_00.flt").descriptions, objects);
}

TEST(SampleDatabase, DescribesNothingByDefault) {
    const TemporaryDirectory directory;
    writeSampleDatabase(directory.path(), smallDatabase());

    for (const fs::path& file : filesWithExtension(directory.path(), ".flt"))
        EXPECT_THAT(inventoryOf(file).descriptions, IsEmpty()) << file;
}

TEST(SampleDatabase, MakesTheDirectoryAndItsParents) {
    const TemporaryDirectory directory;

    writeSampleDatabase(directory.path() / "some/where/new", smallDatabase());

    EXPECT_TRUE(fs::exists(directory / "some/where/new/master.flt"));
}

TEST(SampleDatabase, TakesARelativeDirectoryAndKeepsTheWorkingDirectory) {
    const TemporaryDirectory directory;
    const WorkingDirectory working(directory.path());

    const SampleSummary summary = writeSampleDatabase("made", smallDatabase());

    EXPECT_EQ(summary.master, fs::path("made/master.flt"));
    EXPECT_EQ(fs::current_path(), fs::canonical(directory.path()));
    EXPECT_TRUE(fs::exists("made/master.flt"));
}

TEST(SampleDatabase, RefusesADirectoryThatIsNotEmpty) {
    const TemporaryDirectory directory;
    std::ofstream(directory / "notes.txt") << "mine";

    const auto [status, message] = failureToWrite(directory.path());

    EXPECT_EQ(status, ExitStatus::OutputNotWritten);
    EXPECT_EQ(message, directory.path().string() + " is not empty; name a new or an empty directory");
    EXPECT_EQ(readAll(directory.path()), (std::map<std::string, std::string>{{"notes.txt", "mine"}}));
}

TEST(SampleDatabase, RefusesToWriteOverADatabase) {
    const TemporaryDirectory directory;
    writeSampleDatabase(directory.path(), smallDatabase());
    const auto before = readAll(directory.path());

    const auto [status, message] = failureToWrite(directory.path());

    EXPECT_EQ(status, ExitStatus::OutputNotWritten);
    EXPECT_EQ(message, directory.path().string() + " is not empty; name a new or an empty directory");
    EXPECT_EQ(readAll(directory.path()), before);
}

TEST(SampleDatabase, RefusesAFileAsDirectory) {
    const TemporaryDirectory directory;
    const std::string file = directory / "notes.txt";
    std::ofstream(file) << "mine";

    EXPECT_EQ(failureToWrite(file),
              std::make_pair(ExitStatus::OutputNotWritten, file + " is not a directory; name a new or an empty one"));
    EXPECT_EQ(failureToWrite(file + "/below"),
              std::make_pair(ExitStatus::OutputNotWritten, file + "/below cannot be made: Not a directory"));
    EXPECT_EQ(fs::file_size(file), 4u);
}

TEST(SampleDatabase, RefusesADirectoryWithoutAName) {
    EXPECT_EQ(failureToWrite(""), std::make_pair(ExitStatus::Usage, std::string("the name of the directory is empty")));
}

TEST(SampleDatabase, RefusesOptionsOutOfRange) {
    const TemporaryDirectory directory;
    const fs::path database = directory.path() / "made";
    const auto failureWith = [&](unsigned SampleOptions::*option, unsigned value) {
        SampleOptions options;
        options.*option = value;
        return failureToWrite(database, options);
    };
    const auto usage = [](const std::string& message) { return std::make_pair(ExitStatus::Usage, message); };

    EXPECT_EQ(failureWith(&SampleOptions::tiles, 0), usage("tiles must be 1 to 100000, not 0"));
    EXPECT_EQ(failureWith(&SampleOptions::tiles, 100001), usage("tiles must be 1 to 100000, not 100001"));
    EXPECT_EQ(failureWith(&SampleOptions::levels, 0), usage("levels must be 1 to 4, not 0"));
    EXPECT_EQ(failureWith(&SampleOptions::levels, 5), usage("levels must be 1 to 4, not 5"));
    EXPECT_EQ(failureWith(&SampleOptions::textures, 0), usage("textures must be 1 to 1000, not 0"));
    EXPECT_EQ(failureWith(&SampleOptions::textures, 1001), usage("textures must be 1 to 1000, not 1001"));
    EXPECT_FALSE(fs::exists(database));
}

TEST(SampleDatabase, NoticesAFileThatWasNotWrittenWhole) {
    const TemporaryDirectory directory;
    const std::string database = directory / "made";
    SampleOptions options = smallDatabase();
    options.textures = 1;
    const auto failureBelow = [&](rlim_t bytes) {
        const FileSizeLimit limit(bytes);
        return failureToWrite(database, options);
    };

    EXPECT_EQ(failureBelow(4096), std::make_pair(ExitStatus::OutputNotWritten,
                                                 database + "/textures/grass_0.png could not be written; is the disk "
                                                            "full?"));
    EXPECT_EQ(failureBelow(40960), std::make_pair(ExitStatus::OutputNotWritten,
                                                  database + "/tiles/r00/c00/tile_00_00.flt could not be written; is "
                                                             "the disk full?"));
}

TEST(SampleDatabase, LeavesNothingBehindWhereverTheDiskFillsUp) {
    const TemporaryDirectory directory;
    SampleOptions options = smallDatabase();
    options.textures = 1;
    for (rlim_t bytes = 0; bytes < 56000; bytes += 1900) {
        {
            const FileSizeLimit limit(bytes);
            EXPECT_EQ(failureToWrite(directory.path() / "made", options).first, ExitStatus::OutputNotWritten) << bytes;
        }
        EXPECT_TRUE(fs::is_empty(directory.path())) << bytes;
    }
}

TEST(SampleDatabase, KeepsADirectoryThatWasThereWhenWritingFails) {
    const TemporaryDirectory directory;
    {
        const FileSizeLimit limit(20000);
        EXPECT_EQ(failureToWrite(directory.path()).first, ExitStatus::OutputNotWritten);
    }

    EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST(SampleDatabase, KeepsTheConsoleQuiet) {
    const TemporaryDirectory directory;
    const Console console;
    const OsgMessages messages;
    osg::setNotifyLevel(osg::INFO);

    writeSampleDatabase(directory.path() / "made", smallDatabase());
    failureToWrite(directory.path() / "made");

    EXPECT_EQ(console.text(), "");
    EXPECT_EQ(messages.text(), "");
    EXPECT_EQ(osg::getNotifyLevel(), osg::INFO);
}

TEST(SampleCommand, PrintsOneLineOfWhatItMade) {
    const TemporaryDirectory directory;
    const WorkingDirectory working(directory.path());
    const Console console;

    const ExitStatus status = runSample("made --tiles 3 --levels 1 --textures 2 --seed 5");

    std::size_t bytes = 0;
    for (const auto& file : readAll("made")) bytes += file.second.size();
    EXPECT_EQ(status, ExitStatus::Done);
    EXPECT_EQ(console.text(),
              "OpenFlight files: 4, textures: 2, bytes: " + std::to_string(bytes) + ", master: made/master.flt\n");
}

TEST(SampleCommand, PassesEveryOptionOn) {
    const TemporaryDirectory directory;
    const Console console;
    SampleOptions options;
    options.tiles = 2;
    options.levels = 3;
    options.textures = 7;
    options.seed = 9;
    options.lodHints = true;
    options.sameNames = true;
    writeSampleDatabase(directory.path() / "called", options);

    runSample(directory / "run --tiles 2 --levels 3 --textures 7 --seed 9 --lod-hints --same-names");

    EXPECT_EQ(readAll(directory.path() / "run"), readAll(directory.path() / "called"));
}

TEST(SampleCommand, TakesTheGeneratorsDefaults) {
    const TemporaryDirectory directory;
    const Console console;
    writeSampleDatabase(directory.path() / "called", SampleOptions());

    runSample(directory / "run");

    EXPECT_EQ(readAll(directory.path() / "run"), readAll(directory.path() / "called"));
}

TEST(SampleCommand, RejectsOptionsOutOfRange) {
    const TemporaryDirectory directory;
    for (const char* option : {"--tiles 0", "--tiles 100001", "--tiles -1", "--levels 0", "--levels 5", "--textures 0",
                               "--textures 1001", "--seed -1", "--seed some", "--unknown"})
        EXPECT_THROW(runSample(directory / (std::string("made ") + option)), CLI::ParseError) << option;
    EXPECT_THROW(runSample("--tiles 2"), CLI::RequiredError);
    EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST(SampleCommand, ShowsDefaultsAndRangesInItsHelp) {
    CLI::App app("", "sceneutils");
    ExitStatus status = ExitStatus::Done;
    addSampleCommand(app, status);

    const std::string help = app.get_subcommand("sample")->help();

    for (const char* part : {"[1 - 100000]=16", "[1 - 4]=2", "[1 - 1000]=8", "--seed UINT=1", "1000 m wide",
                             "--lod-hints", "--same-names"})
        EXPECT_THAT(help, testing::HasSubstr(part));
}
