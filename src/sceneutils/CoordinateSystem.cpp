#include <sceneutils/SceneUtils.h>

#include <sceneutils/ShaderGenerator.h>
#include <sceneutils/SimpleGeometryGenerator.h>

namespace veltrane::sceneutils {

osg::ref_ptr<osg::Group> createCoordinateSystemGeometry(float size) {
    osg::ref_ptr<SimpleGeometryGenerator> axes = new SimpleGeometryGenerator;
    const osg::Vec3f origin;
    // Of the sign of the size, and no number where the size is none.
    const auto zero = static_cast<float>(size * 0.0);
    axes->addLine(osg::Vec3f(size, zero, zero), origin, osg::Vec4f(1, 0, 0, 1));
    axes->addLine(osg::Vec3f(zero, size, zero), origin, osg::Vec4f(0, 1, 0, 1));
    axes->addLine(osg::Vec3f(zero, zero, size), origin, osg::Vec4f(0, 0, 1, 1));
    ShaderGenerator::instance()->process(axes, false, false, false, true);
    return axes;
}

}  // namespace veltrane::sceneutils
