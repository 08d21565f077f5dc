#include "SampleDatabase.h"

#include "../Command.h"
#include "SampleFiles.h"
#include "SampleImages.h"
#include "SampleNoise.h"
#include "SampleParts.h"

#include <osg/Group>
#include <osg/MatrixTransform>
#include <osg/ProxyNode>
#include <osgDB/Registry>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <string>

namespace veltrane::sceneutils::tool {

volatile std::sig_atomic_t sampleInterrupted = 0;

namespace {

using namespace sample;

constexpr double margin = 60.0;     // metres that objects keep from a tile's edge
constexpr double foundation = 1.0;  // metres that objects reach into the ground

constexpr unsigned modelVariants = 3;  // of each kind of shared model
constexpr unsigned treesPerTile = 6;
constexpr unsigned modelsPerTile = 6;

/** What the files of one level below the master hold besides what all hold. */
struct LevelTraits {
    const char* name;   ///< of the files, and of the folder below the level above
    const char* group;  ///< that holds this level's boxes
    unsigned boxes;     ///< how many
    double smallest;    ///< width of a box in metres
    double largest;
    ImageKind walls;
    unsigned hintRange;  ///< metres
};

constexpr std::array<LevelTraits, SampleOptions::maxLevels> levelTraits = {
    {{"tile", "kiosks", 1, 6.0, 9.0, ImageKind::Rock, 250},
     {"objects", "buildings", 8, 14.0, 40.0, ImageKind::Facade, 1000},
     {"details", "sheds", 6, 4.0, 8.0, ImageKind::Rock, 500},
     {"fittings", "crates", 6, 1.5, 2.5, ImageKind::Facade, 125}}};

constexpr unsigned groveHintRange = 400;   // metres
constexpr unsigned modelsHintRange = 750;  // metres

/** What a seed is drawn for; two purposes never share one. */
enum class Purpose : std::uint64_t { Heights, Pictures, Contents, Models };

std::uint64_t seedFor(unsigned seed, Purpose purpose) {
    return seedOf(seed, static_cast<std::uint64_t>(purpose));
}

/** A tile's place on the grid and the names that follow from it. */
class Grid {
public:
    explicit Grid(const SampleOptions& options)
        : _tiles(options.tiles),
          _columns(static_cast<unsigned>(std::ceil(std::sqrt(static_cast<double>(options.tiles))))),
          _digits(std::max<std::size_t>(2, std::to_string(_columns - 1).size())),
          _hasSameNames(options.sameNames) {}

    unsigned tiles() const { return _tiles; }
    unsigned rows() const { return (_tiles + _columns - 1) / _columns; }
    unsigned rowOf(unsigned tile) const { return tile / _columns; }
    unsigned columnOf(unsigned tile) const { return tile % _columns; }
    osg::Vec3d originOf(unsigned tile) const {
        return osg::Vec3d(columnOf(tile) * tileSize, rowOf(tile) * tileSize, 0.0);
    }

    std::string rowName(unsigned row) const { return "r" + padded(row); }
    std::string nameOf(unsigned tile, unsigned level) const {
        return std::string(levelTraits[level].name) + "_" + padded(rowOf(tile)) + "_" + padded(columnOf(tile));
    }
    std::string fileOf(unsigned tile, unsigned level) const {
        return (_hasSameNames ? levelTraits[level].name : nameOf(tile, level)) + ".flt";
    }
    std::string folderOf(unsigned tile, unsigned level) const {
        std::string folder = std::string(tileFolder) + "/" + rowName(rowOf(tile)) + "/c" + padded(columnOf(tile));
        for (unsigned below = 1; below <= level; ++below) folder += std::string("/") + levelTraits[below].name;
        return folder;
    }

private:
    std::string padded(unsigned number) const {
        const std::string digits = std::to_string(number);
        return std::string(_digits - std::min(_digits, digits.size()), '0') + digits;
    }

    unsigned _tiles;
    unsigned _columns;
    std::size_t _digits;
    bool _hasSameNames;
};

std::string pathToRoot(const std::string& folder) {
    std::string path = "../";
    for (char letter : folder)
        if (letter == '/') path += "../";
    return path;
}

osg::ref_ptr<osg::Group> makeGroup(const std::string& name) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->setName(name);
    return group;
}

osg::ref_ptr<osg::Node> place(osg::Node* node, const osg::Vec3d& position, double heading = 0.0) {
    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(
        osg::Matrix::rotate(heading, osg::Vec3d(0.0, 0.0, 1.0)) * osg::Matrix::translate(position));
    transform->addChild(node);
    return transform;
}

osg::ref_ptr<osg::ProxyNode> makeReference(const std::string& file) {
    osg::ref_ptr<osg::ProxyNode> reference = new osg::ProxyNode;
    reference->setFileName(0, file);
    return reference;
}

/** Makes the contents of the files. */
class DatabaseBuilder {
public:
    DatabaseBuilder(const SampleOptions& options, FileWriter& files)
        : _options(options),
          _files(files),
          _grid(options),
          _terrain(seedFor(options.seed, Purpose::Heights)),
          _look(options.textures) {}

    void writeAll() {
        for (unsigned texture = 0; texture < _look.textures(); ++texture) writeTexture(texture);
        if (hasModels())
            for (unsigned variant = 0; variant < modelVariants; ++variant) writeModels(variant);
        for (unsigned tile = 0; tile < _grid.tiles(); ++tile)
            for (unsigned level = 0; level < _options.levels; ++level) writeTileFile(tile, level);
        // The master comes last: where there is one, the database is complete.
        _files.writeNode(*makeMaster(), "", masterName);
    }

private:
    /** What goes into the file at hand is chosen by `dice`; its surfaces find their textures through `toRoot`. */
    struct Contents {
        Dice dice;
        std::uint64_t variant;
        std::string toRoot;
    };

    bool hasModels() const { return _options.levels > 1; }

    static std::string modelName(bool isTree, unsigned variant) {
        return (isTree ? "tree_" : "house_") + std::to_string(variant);
    }

    osg::ref_ptr<osg::StateSet> surface(ImageKind kind, const Contents& contents) const {
        return _look.makeSurface(kind, contents.variant, contents.toRoot + textureFolder + "/");
    }

    void writeTexture(unsigned texture) {
        const std::uint64_t seed = seedOf(seedFor(_options.seed, Purpose::Pictures), texture);
        _files.writeImage(*makeImage(Look::kindOf(texture), seed), textureFolder, Look::nameOf(texture));
    }

    void writeModels(unsigned variant) {
        Contents contents = {Dice(seedOf(seedFor(_options.seed, Purpose::Models), variant)), variant,
                             pathToRoot(modelFolder)};
        for (bool isTree : {true, false}) {
            const std::string name = modelName(isTree, variant);
            osg::ref_ptr<osg::Group> root = makeGroup(name);
            root->addChild(isTree ? makeTree(contents, "crown")
                                  : makeBox(contents, "house", 10.0, 14.0, ImageKind::Facade));
            _files.writeNode(*root, modelFolder, name + ".flt");
        }
    }

    void writeTileFile(unsigned tile, unsigned level) {
        const std::string folder = _grid.folderOf(tile, level);
        const std::uint64_t tileSeed = seedOf(seedFor(_options.seed, Purpose::Contents), tile);
        Contents contents = {Dice(seedOf(tileSeed, level)), tileSeed, pathToRoot(folder)};

        osg::ref_ptr<osg::Group> root = makeGroup(_grid.nameOf(tile, level));
        if (level == 0) addGround(*root, contents, tile);
        addBoxes(*root, contents, tile, level);
        // With one level only there is no other file that could hold the buildings.
        if (_options.levels == 1) addBoxes(*root, contents, tile, 1);
        if (level + 1 < _options.levels) addNextLevel(*root, tile, level + 1);
        _files.writeNode(*root, folder, _grid.fileOf(tile, level));
    }

    void addGround(osg::Group& root, Contents& contents, unsigned tile) const {
        osg::ref_ptr<osg::Group> terrain = makeGroup("terrain");
        GroundBuilder(_terrain, _grid.rowOf(tile), _grid.columnOf(tile))
            .addTo(*terrain, surface(ImageKind::Grass, contents), surface(ImageKind::Rock, contents));
        root.addChild(terrain);

        osg::ref_ptr<osg::Group> grove = makeGroup("grove");
        for (unsigned i = 0; i < treesPerTile; ++i)
            grove->addChild(placeOnGround(makeTree(contents, "tree_" + std::to_string(i)), contents, tile));
        addHint(*grove, groveHintRange);
        root.addChild(grove);

        if (hasModels()) addModels(root, contents, tile);
    }

    void addModels(osg::Group& root, Contents& contents, unsigned tile) const {
        osg::ref_ptr<osg::Group> models = makeGroup("models");
        for (unsigned i = 0; i < modelsPerTile; ++i) {
            const std::string name = modelName(i % 2 == 0, contents.dice.below(modelVariants));
            models->addChild(
                placeOnGround(makeReference(contents.toRoot + modelFolder + "/" + name + ".flt"), contents, tile));
        }
        addHint(*models, modelsHintRange);
        root.addChild(models);
    }

    void addBoxes(osg::Group& root, Contents& contents, unsigned tile, unsigned level) const {
        const LevelTraits& traits = levelTraits[level];
        osg::ref_ptr<osg::Group> boxes = makeGroup(traits.group);
        for (unsigned i = 0; i < traits.boxes; ++i) {
            const double width = contents.dice.between(traits.smallest, traits.largest);
            const double height = width * contents.dice.between(0.6, 1.6);
            const std::string name = std::string(traits.group) + "_" + std::to_string(i);
            boxes->addChild(placeOnGround(makeBox(contents, name, width, height, traits.walls), contents, tile));
        }
        addHint(*boxes, traits.hintRange);
        root.addChild(boxes);
    }

    void addNextLevel(osg::Group& root, unsigned tile, unsigned level) const {
        const LevelTraits& traits = levelTraits[level];
        osg::ref_ptr<osg::Group> next = makeGroup(traits.name);
        next->addChild(makeReference(std::string(traits.name) + "/" + _grid.fileOf(tile, level)));
        root.addChild(next);
    }

    osg::ref_ptr<osg::Node> placeOnGround(osg::Node* node, Contents& contents, unsigned tile) const {
        const double x = contents.dice.between(margin, tileSize - margin);
        const double y = contents.dice.between(margin, tileSize - margin);
        const double heading = contents.dice.between(0.0, 2.0 * osg::PI);
        const osg::Vec3d origin = _grid.originOf(tile);
        const double ground = _terrain.heightAt(origin.x() + x, origin.y() + y);
        return place(node, osg::Vec3d(x, y, ground - foundation), heading);
    }

    osg::ref_ptr<osg::Group> makeTree(Contents& contents, const std::string& name) const {
        const auto height = static_cast<float>(contents.dice.between(6.0, 14.0));
        const float width = 0.7f * height;
        QuadBuilder quads;
        quads.add(osg::Vec3(-0.5f * width, 0, 0), osg::Vec3(width, 0, 0), osg::Vec3(0, 0, height), insideTexture);
        quads.add(osg::Vec3(0, -0.5f * width, 0), osg::Vec3(0, width, 0), osg::Vec3(0, 0, height), insideTexture);
        osg::ref_ptr<osg::Group> tree = makeGroup(name);
        tree->addChild(quads.build("leaves", surface(ImageKind::Tree, contents)));
        return tree;
    }

    /** Four walls and a roof, with a door in the front and a sign beside it. */
    osg::ref_ptr<osg::Group> makeBox(const Contents& contents, const std::string& name, double width, double height,
                                     ImageKind walls) const {
        const auto w = static_cast<float>(width);
        const auto h = static_cast<float>(height);
        const float half = 0.5f * w;
        constexpr float metersPerRepeat = 6.0f;
        const TextureArea wallArea = {0.0f, 0.0f, 1.0f + w / metersPerRepeat, 1.0f + h / metersPerRepeat};

        osg::ref_ptr<osg::Group> box = makeGroup(name);
        QuadBuilder wall;
        wall.add(osg::Vec3(-half, -half, 0), osg::Vec3(w, 0, 0), osg::Vec3(0, 0, h), wallArea);
        wall.add(osg::Vec3(half, -half, 0), osg::Vec3(0, w, 0), osg::Vec3(0, 0, h), wallArea);
        wall.add(osg::Vec3(half, half, 0), osg::Vec3(-w, 0, 0), osg::Vec3(0, 0, h), wallArea);
        wall.add(osg::Vec3(-half, half, 0), osg::Vec3(0, -w, 0), osg::Vec3(0, 0, h), wallArea);
        box->addChild(wall.build("walls", surface(walls, contents)));

        QuadBuilder roof;
        roof.add(osg::Vec3(-half, -half, h), osg::Vec3(w, 0, 0), osg::Vec3(0, w, 0), wallArea);
        box->addChild(roof.build("roof", surface(ImageKind::Rock, contents)));

        const float front = -half - 0.01f * w;
        QuadBuilder door;
        door.add(osg::Vec3(-0.3f * w, front, 0), osg::Vec3(0.2f * w, 0, 0), osg::Vec3(0, 0, 0.6f * h), wholeTexture);
        box->addChild(door.build("door", surface(ImageKind::Door, contents)));

        QuadBuilder sign;
        sign.add(osg::Vec3(0.1f * w, front, 0.4f * h), osg::Vec3(0.3f * w, 0, 0), osg::Vec3(0, 0, 0.2f * h),
                 wholeTexture);
        box->addChild(sign.build("sign", surface(ImageKind::Sign, contents)));
        return box;
    }

    void addHint(osg::Group& group, unsigned range) const {
        if (_options.lodHints) group.addDescription("LOD_Transition_Range " + std::to_string(range));
    }

    osg::ref_ptr<osg::Group> makeMaster() const {
        osg::ref_ptr<osg::Group> master = makeGroup("master");
        for (unsigned row = 0; row < _grid.rows(); ++row) master->addChild(makeGroup(_grid.rowName(row)));
        for (unsigned tile = 0; tile < _grid.tiles(); ++tile) {
            osg::ref_ptr<osg::Node> reference = makeReference(_grid.folderOf(tile, 0) + "/" + _grid.fileOf(tile, 0));
            master->getChild(_grid.rowOf(tile))->asGroup()->addChild(place(reference, _grid.originOf(tile)));
        }
        return master;
    }

    SampleOptions _options;
    FileWriter& _files;
    Grid _grid;
    Terrain _terrain;
    Look _look;
};

void requireRange(const std::string& name, unsigned value, unsigned largest) {
    if (value >= 1 && value <= largest) return;
    throw CommandError(ExitStatus::Usage,
                       name + " must be 1 to " + std::to_string(largest) + ", not " + std::to_string(value));
}

/** The size of all files, each of which must hold something. */
std::uintmax_t totalSize(const fs::path& directory) {
    std::uintmax_t bytes = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
        if (!entry.is_regular_file()) continue;
        if (entry.file_size() == 0) failToWrite(entry.path(), "could not be written; is the disk full?");
        bytes += entry.file_size();
    }
    return bytes;
}

void requirePlugin(const std::string& extension) {
    if (osgDB::Registry::instance()->getReaderWriterForExtension(extension)) return;
    throw CommandError(ExitStatus::NotSupported,
                       "OpenSceneGraph has no plug-in for ." + extension + " files; install its plug-ins");
}

}  // namespace

SampleSummary writeSampleDatabase(const fs::path& directory, const SampleOptions& options) {
    requireRange("tiles", options.tiles, SampleOptions::maxTiles);
    requireRange("levels", options.levels, SampleOptions::maxLevels);
    requireRange("textures", options.textures, SampleOptions::maxTextures);

    const QuietOsg quiet;
    for (const char* extension : {"flt", "png"}) requirePlugin(extension);
    OutputDirectory output(directory);
    const KeptWorkingDirectory workingDirectory;

    SampleSummary summary;
    FileWriter files(output.path(), summary);
    DatabaseBuilder(options, files).writeAll();
    summary.bytes = totalSize(output.path());
    summary.master = directory / masterName;
    output.keep();
    return summary;
}

}  // namespace veltrane::sceneutils::tool
