#pragma once

#include <osg/Drawable>
#include <osg/Geometry>
#include <osg/Referenced>
#include <osg/ref_ptr>
#include <osgUtil/TransformAttributeFunctor>

#include <set>
#include <vector>

namespace veltrane::sceneutils {

/** The drawables and arrays that have been transformed and may be met again because something else uses them too. */
using SharedObjects = std::set<osg::ref_ptr<osg::Referenced>>;

/**
 * Pushes a matrix into the vertices and normals of drawables: into each drawable and each array once, however many
 * parents share the drawable, however many geometries share the array, and however often a geometry uses it.
 */
class DrawableTransform : public osgUtil::TransformAttributeFunctor {
public:
    /** @param shared is looked up and added to, and has to live as long as this object */
    DrawableTransform(const osg::Matrixd& matrix, SharedObjects& shared);
    ~DrawableTransform() override;

    /** Transforms the drawable if that has not been done. The arrays that change, and the bound, are marked dirty. */
    void transform(osg::Drawable& drawable);

    using osgUtil::TransformAttributeFunctor::apply;
    void apply(osg::Drawable::AttributeType type, unsigned int count, osg::Vec3* begin) override;
    void apply(osg::Drawable::AttributeType type, unsigned int count, osg::Vec3d* begin) override;

private:
    using ArrayData = std::vector<const void*>;

    bool isFirstUse(osg::Drawable::AttributeType type, const void* data);
    void noteChanges(const osg::Geometry::ArrayList& arrays);

    SharedObjects& _shared;
    ArrayData _leftOut;  ///< of the current drawable: what another one has had transformed
    ArrayData _changed;  ///< of the current drawable: what it has had transformed
};

}  // namespace veltrane::sceneutils
