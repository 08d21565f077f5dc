#pragma once

#include <sceneutils/SimpleGeometryGenerator.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/StateSet>
#include <osg/ref_ptr>

#include <vector>

/** What tests want to know of what a SimpleGeometryGenerator draws, found in the graph as any user would. */
namespace testing_support {

inline osg::ref_ptr<veltrane::sceneutils::SimpleGeometryGenerator> makeGenerator() {
    return new veltrane::sceneutils::SimpleGeometryGenerator;
}

inline osg::Geode& geodeOf(osg::Group& generator) {
    return *generator.getChild(0)->asGeode();
}

/** The geode's drawable of that number, a geometry. */
inline osg::Geometry& geometryOf(osg::Group& generator, unsigned int number = 0) {
    return *geodeOf(generator).getDrawable(number)->asGeometry();
}

/** The geode's geometry that has normals, or the one that has none. */
inline osg::Geometry& geometryWithNormals(osg::Group& generator, bool hasNormals) {
    const bool isFirst = (geometryOf(generator).getNormalArray() != nullptr) == hasNormals;
    return geometryOf(generator, isFirst ? 0 : 1);
}

/** The lines and triangles of a generator, which are attached if they are not. */
inline osg::Geometry& linesOf(veltrane::sceneutils::SimpleGeometryGenerator& generator) {
    generator.checkGeometry();
    return geometryWithNormals(generator, true);
}

/** The markers of a generator, which are attached if they are not. */
inline osg::Geometry& markersOf(veltrane::sceneutils::SimpleGeometryGenerator& generator) {
    generator.checkPointsGeometry();
    return geometryWithNormals(generator, false);
}

inline std::vector<osg::Vec3> verticesOf(const osg::Geometry& geometry) {
    return dynamic_cast<const osg::Vec3Array&>(*geometry.getVertexArray()).asVector();
}

inline std::vector<osg::Vec4> colorsOf(const osg::Geometry& geometry) {
    return dynamic_cast<const osg::Vec4Array&>(*geometry.getColorArray()).asVector();
}

inline std::vector<osg::Vec3> normalsOf(const osg::Geometry& geometry) {
    return dynamic_cast<const osg::Vec3Array&>(*geometry.getNormalArray()).asVector();
}

/** The index list of that mode; null if the geometry has none. */
inline osg::DrawElementsUInt* primitivesOf(osg::Geometry& geometry, GLenum mode) {
    for (const auto& primitives : geometry.getPrimitiveSetList()) {
        if (primitives->getMode() == mode) return dynamic_cast<osg::DrawElementsUInt*>(primitives.get());
    }
    return nullptr;
}

inline std::vector<unsigned int> indicesOf(osg::Geometry& geometry, GLenum mode) {
    return primitivesOf(geometry, mode)->asVector();
}

/** The attribute of a state set, which is of that class; null if it has none. */
template <typename Attribute>
Attribute* attributeOf(const osg::StateSet& state) {
    const osg::ref_ptr<Attribute> sample = new Attribute;
    return const_cast<Attribute*>(dynamic_cast<const Attribute*>(state.getAttribute(sample->getType())));
}

}  // namespace testing_support
