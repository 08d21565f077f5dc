#pragma once

#include "DebugGeometry.h"

#include <gtest/gtest.h>

#include <osg/LOD>
#include <osgText/Text>

#include <ostream>
#include <string>
#include <vector>

/** What is drawn of LODs, line by line. */
namespace testing_support {

struct DrawnLine {
    osg::Vec3 from;
    osg::Vec3 to;
    osg::Vec4 color;

    bool operator==(const DrawnLine& other) const {
        return from == other.from && to == other.to && color == other.color;
    }
};

inline void PrintTo(const DrawnLine& line, std::ostream* out) {
    for (const osg::Vec3& end : {line.from, line.to}) *out << end.x() << "," << end.y() << "," << end.z() << " ";
    *out << "in " << line.color.r() << "," << line.color.g() << "," << line.color.b() << "," << line.color.a();
}

using DrawnLines = std::vector<DrawnLine>;

/** The lines of a SimpleGeometryGenerator in their order, or of one that was read from a file. */
inline DrawnLines linesIn(osg::Group& generator) {
    DrawnLines lines;
    if (geodeOf(generator).getNumDrawables() == 0) return lines;
    osg::Geometry& geometry = geometryOf(generator);
    const std::vector<osg::Vec3> vertices = verticesOf(geometry);
    const std::vector<osg::Vec4> colors = colorsOf(geometry);
    const osg::PrimitiveSet& indices = *geometry.getPrimitiveSet(0);
    EXPECT_EQ(indices.getMode(), static_cast<GLenum>(GL_LINES));
    for (unsigned int i = 0; i + 1 < indices.getNumIndices(); i += 2) {
        const unsigned int from = indices.index(i), to = indices.index(i + 1);
        EXPECT_EQ(colors[from], colors[to]);
        lines.push_back({vertices[from], vertices[to], colors[from]});
    }
    return lines;
}

inline DrawnLines operator+(DrawnLines lines, const DrawnLines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

/** From the centre to the top corners of a cube. */
inline DrawnLines spokes(const osg::Vec3& center, float half, const osg::Vec4& color) {
    DrawnLines lines;
    for (const osg::Vec3& corner : {osg::Vec3(-half, -half, half), osg::Vec3(half, -half, half),
                                    osg::Vec3(-half, half, half), osg::Vec3(half, half, half)})
        lines.push_back({center, center + corner, color});
    return lines;
}

/** The top of a cube. */
inline DrawnLines square(const osg::Vec3& center, float half, const osg::Vec4& color) {
    const osg::Vec3 a = center + osg::Vec3(-half, -half, half), b = center + osg::Vec3(half, -half, half);
    const osg::Vec3 c = center + osg::Vec3(half, half, half), d = center + osg::Vec3(-half, half, half);
    return {{a, b, color}, {b, c, color}, {c, d, color}, {d, a, color}};
}

/** A cube, as any generator draws it. */
inline DrawnLines cube(const osg::Vec3& center, float half, const osg::Vec4& color) {
    const auto generator = makeGenerator();
    const osg::Vec3 diagonal(half, half, half);
    generator->addBoundingBox(osg::BoundingBox(center - diagonal, center + diagonal), color);
    return linesIn(*generator);
}

/** The labels of a generator: its children but for the first, each a geode with a text. */
inline std::vector<const osgText::Text*> labelsOf(const osg::Group& generator) {
    std::vector<const osgText::Text*> labels;
    for (unsigned int i = 1; i < generator.getNumChildren(); ++i) {
        const osg::Geode* geode = generator.getChild(i)->asGeode();
        if (!geode) continue;  // the next node of a chain
        EXPECT_EQ(geode->getNumDrawables(), 1u);
        labels.push_back(dynamic_cast<const osgText::Text*>(geode->getDrawable(0)));
    }
    return labels;
}

inline std::vector<std::string> wordsOf(const osg::Group& generator) {
    std::vector<std::string> words;
    for (const osgText::Text* label : labelsOf(generator)) words.push_back(label->getText().createUTF8EncodedString());
    return words;
}

/** An LOD with that centre and radius. */
template <typename LOD = osg::LOD>
osg::ref_ptr<LOD> makeLOD(const std::string& name, const osg::Vec3& center = osg::Vec3(), float radius = 2.0f) {
    osg::ref_ptr<LOD> lod = new LOD;
    lod->setName(name);
    lod->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    lod->setCenter(center);
    lod->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    lod->setRadius(radius);
    return lod;
}

}  // namespace testing_support
