#pragma once

#include "SampleImages.h"
#include "SampleNoise.h"

#include <osg/BlendFunc>
#include <osg/CullFace>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Material>
#include <osg/StateSet>
#include <osg/Texture2D>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

/** What the files of a sample database are built of: ground, surfaces and rectangles. */
namespace veltrane::sceneutils::tool::sample {

inline constexpr double tileSize = 1000.0;  // metres
inline constexpr unsigned tileCells = 12;   // squares of the terrain mesh along a tile's edge
inline constexpr double cellSize = tileSize / tileCells;
inline constexpr float grassRepeats = 20.0f;  // of the ground's texture along a tile's edge
inline constexpr double rockHeight = 48.0;    // metres; above this the ground is rock

/** The ground: a height for every place of the whole grid, so that neighbouring tiles meet. */
class Terrain {
public:
    explicit Terrain(std::uint64_t seed) : _seed(seed) {}

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
class Look {
public:
    explicit Look(unsigned textures)
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

    /** A surface of that kind for a file from which `toTextures` leads to the textures. */
    osg::ref_ptr<osg::StateSet> makeSurface(ImageKind kind, std::uint64_t choice, const std::string& toTextures) const {
        const unsigned texture = textureFor(kind, choice);
        _textures[texture]->getImage()->setFileName(toTextures + nameOf(texture));

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

inline constexpr TextureArea wholeTexture = {0.0f, 0.0f, 1.0f, 1.0f};
inline constexpr TextureArea insideTexture = {0.02f, 0.02f, 0.98f, 0.98f};

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

}  // namespace veltrane::sceneutils::tool::sample
