#include "DrawableTransform.h"

#include <osg/Array>

#include <algorithm>

namespace veltrane::sceneutils {

namespace {

// The reference that the geometry holds, and the one of the list that its arrays are looked at in.
constexpr int referencesToOwnArray = 2;

bool contains(const std::vector<const void*>& list, const void* data) {
    return std::find(list.begin(), list.end(), data) != list.end();
}

osg::Geometry::ArrayList arraysOf(osg::Drawable& drawable) {
    osg::Geometry::ArrayList arrays;
    if (const osg::Geometry* geometry = drawable.asGeometry()) geometry->getArrayList(arrays);
    return arrays;
}

}  // namespace

DrawableTransform::DrawableTransform(const osg::Matrixd& matrix, SharedObjects& shared)
    : osgUtil::TransformAttributeFunctor(matrix), _shared(shared) {}

DrawableTransform::~DrawableTransform() = default;

void DrawableTransform::transform(osg::Drawable& drawable) {
    if (drawable.getNumParents() > 1 && !_shared.insert(&drawable).second) return;

    const osg::Geometry::ArrayList arrays = arraysOf(drawable);
    _leftOut.clear();
    _changed.clear();
    for (const osg::ref_ptr<osg::Array>& array : arrays) {
        if (_shared.count(array) > 0) _leftOut.push_back(array->getDataPointer());
    }
    drawable.accept(*this);
    noteChanges(arrays);
    drawable.dirtyBound();
}

void DrawableTransform::noteChanges(const osg::Geometry::ArrayList& arrays) {
    for (const osg::ref_ptr<osg::Array>& array : arrays) {
        if (!contains(_changed, array->getDataPointer())) continue;
        array->dirty();
        if (array->referenceCount() > referencesToOwnArray) _shared.insert(array);
    }
}

void DrawableTransform::apply(osg::Drawable::AttributeType type, unsigned int count, osg::Vec3* begin) {
    if (isFirstUse(type, begin)) TransformAttributeFunctor::apply(type, count, begin);
}

void DrawableTransform::apply(osg::Drawable::AttributeType type, unsigned int count, osg::Vec3d* begin) {
    if (isFirstUse(type, begin)) TransformAttributeFunctor::apply(type, count, begin);
}

bool DrawableTransform::isFirstUse(osg::Drawable::AttributeType type, const void* data) {
    if (type != osg::Drawable::VERTICES && type != osg::Drawable::NORMALS) return false;
    if (contains(_leftOut, data) || contains(_changed, data)) return false;
    _changed.push_back(data);
    return true;
}

}  // namespace veltrane::sceneutils
