#include "LODDrawing.h"

#include <osg/PagedLOD>
#include <osgText/Text>

#include <sstream>

namespace veltrane::sceneutils {

namespace {

constexpr const char* labelFontFile = "fonts/arial.ttf";
constexpr float labelSize = 20.0f;
constexpr float radiusIfUnset = 5.0f;
constexpr float undrawnRange = 5000.0f;  // so far out that it would only hide the rest

const osg::Vec4f white(1.0f, 1.0f, 1.0f, 1.0f);
const osg::Vec4f black(0.0f, 0.0f, 0.0f, 1.0f);

/** A cube by its centre and half of its width. */
class Cube {
public:
    Cube(const osg::Vec3f& center, float halfSize) : _center(center), _halfSize(halfSize) {}

    const osg::Vec3f& center() const { return _center; }

    /** The corner at the largest x, y and z where the bits 0, 1 and 2 of the number are set, at the smallest elsewhere.
     */
    osg::Vec3f corner(unsigned int number) const {
        const auto offset = [&](unsigned int bit) { return (number & bit) != 0 ? _halfSize : -_halfSize; };
        return _center + osg::Vec3f(offset(1u), offset(2u), offset(4u));
    }

    osg::BoundingBox box() const { return {corner(0), corner(7)}; }

private:
    osg::Vec3f _center;
    float _halfSize;
};

/** The cube of an LOD's radius, and its colour. */
struct RadiusCube {
    RadiusCube(const osg::LOD& lod, const osg::Vec4f& ownColor)
        : cube(lod.getCenter(), lod.getRadius() < 0.0f ? radiusIfUnset : lod.getRadius()),
          color(lod.getRadius() < 0.0f ? white : ownColor) {}

    Cube cube;
    osg::Vec4f color;
};

void drawSpokes(const Cube& cube, const osg::Vec4f& color, SimpleGeometryGenerator& generator) {
    for (const unsigned int top : {4u, 5u, 6u, 7u}) generator.addLine(cube.center(), cube.corner(top), color);
}

void drawTop(const Cube& cube, const osg::Vec4f& color, SimpleGeometryGenerator& generator) {
    generator.addLine(cube.corner(4), cube.corner(5), color);
    generator.addLine(cube.corner(5), cube.corner(7), color);
    generator.addLine(cube.corner(7), cube.corner(6), color);
    generator.addLine(cube.corner(6), cube.corner(4), color);
}

void addLabel(const osg::LOD& lod, float distance, const osg::Vec3f& position, LabelFont& font,
              SimpleGeometryGenerator& generator) {
    std::ostringstream words;
    words << "LOD " << lod.getName() << ", rad=" << distance << "\n";
    const osg::ref_ptr<osgText::Text> label = new osgText::Text;
    label->setFont(font.get());
    label->setColor(black);
    label->setCharacterSize(labelSize);
    label->setAxisAlignment(osgText::Text::XY_PLANE);
    label->setPosition(position);
    label->setText(words.str(), osgText::String::ENCODING_UTF8);
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(label);
    generator.addChild(geode);
}

}  // namespace

const LODColors plainLODColors{{1.0f, 0.0f, 0.0f, 1.0f}, {0.0f, 1.0f, 0.0f, 1.0f}, {0.0f, 0.0f, 1.0f, 1.0f}};
const LODColors pagedLODColors{{1.0f, 1.0f, 0.0f, 1.0f}, {0.0f, 1.0f, 1.0f, 1.0f}, {1.0f, 0.0f, 1.0f, 1.0f}};

osgText::Font* LabelFont::get() {
    if (!_isRead) {
        // Looked for first: read by its name, OpenSceneGraph would warn of one that is not there.
        _font = osgText::readRefFontFile(osgText::findFontFile(labelFontFile));
        _isRead = true;
    }
    return _font;
}

void drawLOD(const osg::LOD& lod, const LODColors& colors, SimpleGeometryGenerator& generator) {
    const RadiusCube radius(lod, colors.radius);
    drawSpokes(radius.cube, colors.spokes, generator);
    generator.addBoundingBox(radius.cube.box(), radius.color);
    for (const auto& [begin, end] : lod.getRangeList()) {
        const Cube cube(lod.getCenter(), end);
        generator.addBoundingBox(cube.box(), colors.range);
        drawSpokes(cube, colors.spokes, generator);
    }
}

void drawLODLevel(const osg::LOD& lod, unsigned int level, LabelFont& font, SimpleGeometryGenerator& generator) {
    const bool isPaged = dynamic_cast<const osg::PagedLOD*>(&lod) != nullptr;
    const LODColors& colors = isPaged ? pagedLODColors : plainLODColors;
    const RadiusCube radius(lod, colors.radius);
    drawSpokes(radius.cube, colors.spokes, generator);
    drawTop(radius.cube, radius.color, generator);
    addLabel(lod, lod.getRadius(), radius.cube.corner(7), font, generator);

    if (level >= lod.getNumRanges()) return;
    const float end = lod.getMaxRange(level);
    if (!(end < undrawnRange)) return;
    const Cube cube(lod.getCenter(), end);
    addLabel(lod, end, cube.corner(7), font, generator);
    drawTop(cube, colors.range, generator);
    drawSpokes(cube, colors.spokes, generator);
}

}  // namespace veltrane::sceneutils
