#pragma once

#include <osg/Array>
#include <osg/Drawable>
#include <osg/Geometry>
#include <osg/Referenced>
#include <osg/ref_ptr>
#include <osgUtil/TransformAttributeFunctor>

#include <array>
#include <set>

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
    DrawableTransform(const DrawableTransform&) = delete;
    DrawableTransform& operator=(const DrawableTransform&) = delete;

    /** Transforms the drawable if that has not been done. The arrays that change, and the bound, are marked dirty. */
    void transform(osg::Drawable& drawable);

    using osgUtil::TransformAttributeFunctor::apply;
    void apply(osg::Drawable::AttributeType type, unsigned int count, osg::Vec3* begin) override;
    void apply(osg::Drawable::AttributeType type, unsigned int count, osg::Vec3d* begin) override;

private:
    /** An array of the drawable at hand that OSG may take for positions or normals. */
    struct Candidate {
        osg::Array* array = nullptr;
        bool isDone = false;
        bool isChanged = false;
    };

    void collectCandidates(osg::Drawable& drawable);
    void noteChanges();
    bool isToBeTransformed(osg::Drawable::AttributeType type, const void* data);

    SharedObjects& _shared;
    std::array<Candidate, 4> _candidates;
};

}  // namespace veltrane::sceneutils
