#include "SampleDatabase.h"

#include "Command.h"
#include "SampleImages.h"
#include "SampleNoise.h"

#include <osg/BlendFunc>
#include <osg/CullFace>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/Notify>
#include <osg/ProxyNode>
#include <osg/StateSet>
#include <osg/Texture2D>
#include <osgDB/Registry>
#include <osgDB/WriteFile>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

using namespace sample;

constexpr double tileSize = 1000.0;  // metres
constexpr unsigned tileCells = 12;   // squares of the terrain mesh along a tile's edge
constexpr double cellSize = tileSize / tileCells;
constexpr float grassRepeats = 20.0f;  // of the ground's texture along a tile's edge
constexpr double rockHeight = 48.0;    // metres; above this the ground is rock
constexpr double margin = 60.0;        // metres that objects keep from a tile's edge
constexpr double foundation = 1.0;     // metres that objects reach into the ground

constexpr unsigned modelVariants = 3;  // of each kind of shared model
constexpr unsigned treesPerTile = 6;
constexpr unsigned modelsPerTile = 6;

constexpr const char* masterName = "master.flt";
constexpr const char* textureFolder = "textures";
constexpr const char* modelFolder = "models";
constexpr const char* tileFolder = "tiles";

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

[[noreturn]] void failToWrite(const fs::path& path, const std::string& reason) {
    throw CommandError(ExitStatus::OutputNotWritten, path.string() + " " + reason);
}

void makeFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) failToWrite(folder, "cannot be made: " + error.message());
}

void enterFolder(const fs::path& folder) {
    std::error_code error;
    fs::current_path(folder, error);
    if (error) failToWrite(folder, "cannot be entered: " + error.message());
}

std::string readBytes(const fs::path& path) {
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    if (error) return std::string();
    std::string bytes(size, '\0');
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(size));
    return bytes;
}

bool endsWith(const std::string& bytes, const std::string& end) {
    return bytes.size() >= end.size() && bytes.compare(bytes.size() - end.size(), end.size(), end) == 0;
}

std::size_t bigEndian(const std::string& bytes, std::size_t at, std::size_t count) {
    std::size_t value = 0;
    for (std::size_t i = 0; i < count && at + i < bytes.size(); ++i)
        value = value << 8u | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

/** Whether the records fill the file exactly and close every level: OSG's writer reports no failed write. */
bool isWholeOpenFlight(const std::string& bytes) {
    constexpr std::size_t pushLevel = 10, popLevel = 11, vertexPalette = 67, headerSize = 4;
    std::size_t at = 0;
    std::size_t record = 0;
    int depth = 0;
    while (at + headerSize <= bytes.size()) {
        record = bigEndian(bytes, at, 2);
        // The vertices that follow a vertex palette count as part of it, so that missing ones are noticed.
        const std::size_t size =
            record == vertexPalette ? bigEndian(bytes, at + headerSize, 4) : bigEndian(bytes, at + 2, 2);
        if (size < headerSize) return false;
        if (record == pushLevel) ++depth;
        if (record == popLevel) --depth;
        at += size;
    }
    return at == bytes.size() && record == popLevel && depth == 0;
}

bool isWholePng(const std::string& bytes) {
    return endsWith(bytes, std::string("IEND\xae\x42\x60\x82"));
}

/** Holds back what OSG writes to the console. */
class QuietOsg {
public:
    QuietOsg() : _level(osg::getNotifyLevel()) { osg::setNotifyLevel(osg::ALWAYS); }
    ~QuietOsg() { osg::setNotifyLevel(_level); }
    QuietOsg(const QuietOsg&) = delete;
    QuietOsg& operator=(const QuietOsg&) = delete;

private:
    osg::NotifySeverity _level;
};

/** Goes back to the working directory at the end. */
class KeptWorkingDirectory {
public:
    KeptWorkingDirectory() : _path(fs::current_path(_error)) {}
    ~KeptWorkingDirectory() {
        if (!_error) fs::current_path(_path, _error);
    }
    KeptWorkingDirectory(const KeptWorkingDirectory&) = delete;
    KeptWorkingDirectory& operator=(const KeptWorkingDirectory&) = delete;

private:
    std::error_code _error;
    fs::path _path;
};

/** The directory that is written to; it is left as it was found unless `keep` is called. */
class OutputDirectory {
public:
    explicit OutputDirectory(const fs::path& directory) : _asGiven(directory) {
        claim();
        std::error_code error;
        _path = fs::canonical(directory, error);
        if (error) failToWrite(directory, "cannot be used: " + error.message());
    }
    ~OutputDirectory() {
        if (_isKept) return;
        std::error_code ignored;
        for (const char* name : {textureFolder, modelFolder, tileFolder, masterName})
            fs::remove_all(_path / name, ignored);
        if (_isNew) fs::remove(_path, ignored);
    }
    OutputDirectory(const OutputDirectory&) = delete;
    OutputDirectory& operator=(const OutputDirectory&) = delete;

    const fs::path& path() const { return _path; }
    void keep() { _isKept = true; }

private:
    void claim() {
        if (_asGiven.empty()) throw CommandError(ExitStatus::Usage, "the name of the directory is empty");
        std::error_code error;
        const fs::file_status status = fs::status(_asGiven, error);
        _isNew = !fs::exists(status);
        if (_isNew) return makeFolder(_asGiven);
        if (!fs::is_directory(status)) failToWrite(_asGiven, "is not a directory; name a new or an empty one");
        const bool isEmpty = fs::is_empty(_asGiven, error);
        if (error) failToWrite(_asGiven, "cannot be read: " + error.message());
        if (!isEmpty) failToWrite(_asGiven, "is not empty; name a new or an empty directory");
    }

    fs::path _asGiven;
    fs::path _path;
    bool _isNew = false;
    bool _isKept = false;
};

/** Writes the files and counts them. */
class FileWriter {
public:
    FileWriter(const fs::path& root, SampleSummary& summary) : _root(root), _summary(summary) {}

    void writeNode(const osg::Node& node, const std::string& folder, const std::string& name) {
        const fs::path path = _root / folder / name;
        makeFolder(path.parent_path());
        // The plug-in looks for a texture's attribute file, and writes it, relative to the working directory.
        enterFolder(path.parent_path());
        const bool isWritten = osgDB::writeNodeFile(node, path.string(), _options);
        if (!isWritten || !isWholeOpenFlight(readBytes(path))) failWhole(path);
        ++_summary.files;
    }

    void writeImage(const osg::Image& image, const std::string& folder, const std::string& name) {
        const fs::path path = _root / folder / name;
        makeFolder(path.parent_path());
        if (!osgDB::writeImageFile(image, path.string(), _options) || !isWholePng(readBytes(path))) failWhole(path);
        ++_summary.textures;
    }

private:
    [[noreturn]] static void failWhole(const fs::path& path) {
        failToWrite(path, "could not be written; is the disk full?");
    }

    fs::path _root;
    SampleSummary& _summary;
    osg::ref_ptr<osgDB::Options> _options = new osgDB::Options;
};

/** The ground: a height for every place of the whole grid, so that neighbouring tiles meet. */
class Terrain {
public:
    explicit Terrain(unsigned seed) : _seed(seedFor(seed, Purpose::Heights)) {}

    double heightAt(double x, double y) const {
        return 60.0 * smoothNoise(_seed, x / 900.0, y / 900.0) +
               20.0 * smoothNoise(seedOf(_seed, 1), x / 300.0, y / 300.0) +
               4.0 * smoothNoise(seedOf(_seed, 2), x / 90.0, y / 90.0);
    }

private:
    std::uint64_t _seed;
};

/**
 * `count` new objects in the order of their addresses. OSG's writer lists textures and materials in that order: with
 * the first of these always used for the same purpose, the files do not depend on where the objects happen to lie.
 */
template <class T>
std::vector<osg::ref_ptr<T>> makeInAddressOrder(std::size_t count) {
    std::vector<osg::ref_ptr<T>> objects(count);
    for (osg::ref_ptr<T>& object : objects) object = new T;
    std::sort(objects.begin(), objects.end());
    return objects;
}

/** The textures and materials that all files share. */
class Palette {
public:
    explicit Palette(unsigned textures)
        : _textures(makeInAddressOrder<osg::Texture2D>(textures)),
          _materials(makeInAddressOrder<osg::Material>(imageKinds.size())) {
        for (unsigned i = 0; i < textures; ++i) setUpTexture(i);
        for (unsigned i = 0; i < imageKinds.size(); ++i) setUpMaterial(i);
    }

    unsigned textures() const { return static_cast<unsigned>(_textures.size()); }
    static ImageKind kindOf(unsigned texture) { return static_cast<ImageKind>(texture % imageKinds.size()); }
    static std::string nameOf(unsigned texture) {
        const unsigned variant = texture / static_cast<unsigned>(imageKinds.size());
        return std::string(traitsOf(kindOf(texture)).name) + "_" + std::to_string(variant) + ".png";
    }

    /** A surface of that kind for a file from which `toRoot` leads to the database's folder. */
    osg::ref_ptr<osg::StateSet> makeSurface(ImageKind kind, std::uint64_t choice, const std::string& toRoot) const {
        const unsigned texture = textureFor(kind, choice);
        _textures[texture]->getImage()->setFileName(toRoot + textureFolder + "/" + nameOf(texture));

        osg::ref_ptr<osg::StateSet> surface = new osg::StateSet;
        surface->setTextureAttributeAndModes(0, _textures[texture]);
        surface->setAttribute(_materials[static_cast<unsigned>(kind)]);
        if (traitsOf(kind).hasAlpha)
            surface->setAttributeAndModes(_blending);
        else
            surface->setAttributeAndModes(_culling);
        return surface;
    }

private:
    /** A variant of the kind, or some other texture when there are too few for every kind. */
    unsigned textureFor(ImageKind kind, std::uint64_t choice) const {
        const auto kinds = static_cast<unsigned>(imageKinds.size());
        const auto first = static_cast<unsigned>(kind);
        if (first >= textures()) return first % textures();
        const unsigned variants = (textures() - first + kinds - 1) / kinds;
        return first + static_cast<unsigned>(choice % variants) * kinds;
    }

    void setUpTexture(unsigned index) {
        // The files name the picture; its size is all that the writer wants to know.
        const ImageKindTraits& traits = traitsOf(kindOf(index));
        osg::ref_ptr<osg::Image> image = new osg::Image;
        const GLenum format = traits.hasAlpha ? GL_RGBA : GL_RGB;
        image->setImage(traits.size, traits.size, 1, static_cast<GLint>(format), format, GL_UNSIGNED_BYTE, nullptr,
                        osg::Image::NO_DELETE);

        osg::Texture2D& texture = *_textures[index];
        const auto wrap = traits.isRepeated ? osg::Texture::REPEAT : osg::Texture::CLAMP_TO_EDGE;
        texture.setImage(image);
        texture.setWrap(osg::Texture::WRAP_S, wrap);
        texture.setWrap(osg::Texture::WRAP_T, wrap);
        texture.setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR_MIPMAP_LINEAR);
    }

    void setUpMaterial(unsigned index) {
        constexpr auto face = osg::Material::FRONT_AND_BACK;
        const float light = 1.0f - 0.08f * static_cast<float>(index);
        osg::Material& material = *_materials[index];
        material.setName(imageKinds[index].name);
        material.setAmbient(face, osg::Vec4(0.4f * light, 0.4f * light, 0.4f * light, 1.0f));
        material.setDiffuse(face, osg::Vec4(light, light, light, 1.0f));
        material.setSpecular(face, osg::Vec4(0.05f, 0.05f, 0.05f, 1.0f));
        material.setEmission(face, osg::Vec4(0.0f, 0.0f, 0.0f, 1.0f));
        material.setShininess(face, 8.0f);
    }

    std::vector<osg::ref_ptr<osg::Texture2D>> _textures;
    std::vector<osg::ref_ptr<osg::Material>> _materials;
    osg::ref_ptr<osg::BlendFunc> _blending = new osg::BlendFunc;
    osg::ref_ptr<osg::CullFace> _culling = new osg::CullFace;
};

struct TextureArea {
    float left, bottom, right, top;
};

constexpr TextureArea wholeTexture = {0.0f, 0.0f, 1.0f, 1.0f};
constexpr TextureArea insideTexture = {0.02f, 0.02f, 0.98f, 0.98f};

/** Rectangles that become one geode. */
class QuadBuilder {
public:
    void add(const osg::Vec3& corner, const osg::Vec3& across, const osg::Vec3& up, const TextureArea& area) {
        osg::Vec3 normal = across ^ up;
        normal.normalize();
        for (const osg::Vec3& vertex : {corner, corner + across, corner + across + up, corner + up}) {
            _vertices->push_back(vertex);
            _normals->push_back(normal);
        }
        for (const osg::Vec2& coordinate : {osg::Vec2(area.left, area.bottom), osg::Vec2(area.right, area.bottom),
                                            osg::Vec2(area.right, area.top), osg::Vec2(area.left, area.top)})
            _coordinates->push_back(coordinate);
    }

    osg::ref_ptr<osg::Geode> build(const std::string& name, osg::StateSet* surface) const {
        osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
        geometry->setVertexArray(_vertices);
        geometry->setNormalArray(_normals, osg::Array::BIND_PER_VERTEX);
        geometry->setTexCoordArray(0, _coordinates);
        geometry->addPrimitiveSet(new osg::DrawArrays(GL_QUADS, 0, static_cast<GLsizei>(_vertices->size())));

        osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        geode->setName(name);
        geode->setStateSet(surface);
        geode->addDrawable(geometry);
        return geode;
    }

private:
    osg::ref_ptr<osg::Vec3Array> _vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> _normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec2Array> _coordinates = new osg::Vec2Array;
};

/** The square of terrain of one tile; what is grass and what is rock share their vertices. */
class GroundBuilder {
public:
    GroundBuilder(const Terrain& terrain, unsigned row, unsigned column)
        : _terrain(terrain), _firstRow(row * tileCells), _firstColumn(column * tileCells) {
        for (unsigned j = 0; j <= tileCells; ++j)
            for (unsigned i = 0; i <= tileCells; ++i) addVertex(i, j);
        for (unsigned j = 0; j < tileCells; ++j)
            for (unsigned i = 0; i < tileCells; ++i) addCell(i, j);
    }

    void addTo(osg::Group& group, osg::StateSet* grass, osg::StateSet* rock) const {
        if (!_grass->empty()) group.addChild(makeGeode("grass", _grass, grass));
        if (!_rock->empty()) group.addChild(makeGeode("rock", _rock, rock));
    }

private:
    /** Counted in whole cells over the whole grid: tiles that share an edge compute it from the same numbers. */
    double heightOf(int i, int j) const {
        return _terrain.heightAt((static_cast<int>(_firstColumn) + i) * cellSize,
                                 (static_cast<int>(_firstRow) + j) * cellSize);
    }

    void addVertex(unsigned i, unsigned j) {
        const auto column = static_cast<int>(i);
        const auto row = static_cast<int>(j);
        osg::Vec3 normal(static_cast<float>(heightOf(column - 1, row) - heightOf(column + 1, row)),
                         static_cast<float>(heightOf(column, row - 1) - heightOf(column, row + 1)),
                         static_cast<float>(2.0 * cellSize));
        normal.normalize();
        _vertices->push_back(osg::Vec3d(i * cellSize, j * cellSize, heightOf(column, row)));
        _normals->push_back(normal);
        _coordinates->push_back(osg::Vec2(static_cast<float>(i), static_cast<float>(j)) * (grassRepeats / tileCells));
    }

    void addCell(unsigned i, unsigned j) {
        const unsigned southWest = j * (tileCells + 1) + i;
        const unsigned northWest = southWest + tileCells + 1;
        addTriangle(southWest, southWest + 1, northWest + 1);
        addTriangle(southWest, northWest + 1, northWest);
    }

    void addTriangle(unsigned a, unsigned b, unsigned c) {
        const double height = ((*_vertices)[a].z() + (*_vertices)[b].z() + (*_vertices)[c].z()) / 3.0;
        osg::DrawElementsUShort& kind = height > rockHeight ? *_rock : *_grass;
        for (unsigned index : {a, b, c}) kind.push_back(static_cast<GLushort>(index));
    }

    osg::ref_ptr<osg::Geode> makeGeode(const std::string& name, osg::DrawElementsUShort* triangles,
                                       osg::StateSet* surface) const {
        osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
        geometry->setVertexArray(_vertices);
        geometry->setNormalArray(_normals, osg::Array::BIND_PER_VERTEX);
        geometry->setTexCoordArray(0, _coordinates);
        geometry->addPrimitiveSet(triangles);
        osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        geode->setName(name);
        geode->setStateSet(surface);
        geode->addDrawable(geometry);
        return geode;
    }

    const Terrain& _terrain;
    unsigned _firstRow;
    unsigned _firstColumn;
    osg::ref_ptr<osg::Vec3Array> _vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> _normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec2Array> _coordinates = new osg::Vec2Array;
    osg::ref_ptr<osg::DrawElementsUShort> _grass = new osg::DrawElementsUShort(GL_TRIANGLES);
    osg::ref_ptr<osg::DrawElementsUShort> _rock = new osg::DrawElementsUShort(GL_TRIANGLES);
};

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
        : _options(options), _files(files), _grid(options), _terrain(options.seed), _palette(options.textures) {}

    void writeAll() {
        for (unsigned texture = 0; texture < _palette.textures(); ++texture) writeTexture(texture);
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
        return _palette.makeSurface(kind, contents.variant, contents.toRoot);
    }

    void writeTexture(unsigned texture) {
        const std::uint64_t seed = seedOf(seedFor(_options.seed, Purpose::Pictures), texture);
        _files.writeImage(*makeImage(Palette::kindOf(texture), seed), textureFolder, Palette::nameOf(texture));
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
    Palette _palette;
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
    for (const char* extension : {"flt", "png", "attr"}) requirePlugin(extension);
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
