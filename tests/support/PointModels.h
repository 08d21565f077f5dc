#pragma once

#include <osg/Array>
#include <osg/Drawable>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/io_utils>

#include <initializer_list>
#include <vector>

/** Models whose places and bounds are easy to name. */
namespace testing_support {

using Points = std::vector<osg::Vec3>;

template <typename ArrayType>
osg::ref_ptr<ArrayType> makeArray(std::initializer_list<typename ArrayType::ElementDataType> elements) {
    return new ArrayType(elements.begin(), elements.end());
}

inline osg::ref_ptr<osg::Geometry> makePoints(osg::Array* positions) {
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(positions);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, static_cast<int>(positions->getNumElements())));
    return geometry;
}

inline osg::ref_ptr<osg::Geometry> makePoints(const Points& positions) {
    return makePoints(new osg::Vec3Array(positions.begin(), positions.end()));
}

/** Two points, one unit before and one behind the centre along the x axis. */
inline osg::ref_ptr<osg::Geometry> makePair(const osg::Vec3& centre) {
    return makePoints({centre - osg::X_AXIS, centre + osg::X_AXIS});
}

/** A geode with such a pair. Its bound is the sphere with radius 1 around the centre. */
inline osg::ref_ptr<osg::Geode> makePairGeode(const osg::Vec3& centre) {
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(makePair(centre));
    return geode;
}

inline Points pointsOf(const osg::Array* array) {
    const auto* points = dynamic_cast<const osg::Vec3Array*>(array);
    return points ? points->asVector() : Points();
}

/** The positions of a geometry. */
inline Points pointsOf(const osg::Drawable* drawable) {
    return pointsOf(drawable->asGeometry()->getVertexArray());
}

/** The positions of a geode's first drawable. */
inline Points pointsOf(const osg::Geode* geode) {
    return pointsOf(geode->getDrawable(0));
}

/** The positions that makePair() gives. */
inline Points pairAt(const osg::Vec3& centre) {
    return {centre - osg::X_AXIS, centre + osg::X_AXIS};
}

}  // namespace testing_support
