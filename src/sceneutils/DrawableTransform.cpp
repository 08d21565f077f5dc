#include "DrawableTransform.h"

namespace veltrane::sceneutils {

DrawableTransform::DrawableTransform(const osg::Matrixd& matrix, SharedObjects& shared)
    : osgUtil::TransformAttributeFunctor(matrix), _shared(shared) {}

DrawableTransform::~DrawableTransform() = default;

void DrawableTransform::transform(osg::Drawable& drawable) {
    if (drawable.getNumParents() > 1 && !_shared.insert(&drawable).second) return;

    collectCandidates(drawable);
    drawable.accept(*this);
    noteChanges();
    drawable.dirtyBound();
}

void DrawableTransform::collectCandidates(osg::Drawable& drawable) {
    _candidates = {};
    osg::Geometry* geometry = drawable.asGeometry();
    if (!geometry) return;

    // A geometry hands out its vertex attributes under their index, which two kinds of array have for their number.
    const std::array<osg::Array*, 4> arrays = {geometry->getVertexArray(), geometry->getNormalArray(),
                                               geometry->getVertexAttribArray(osg::Drawable::VERTICES),
                                               geometry->getVertexAttribArray(osg::Drawable::NORMALS)};
    for (std::size_t i = 0; i < arrays.size(); ++i) {
        _candidates[i].array = arrays[i];
        _candidates[i].isDone = !_shared.empty() && _shared.count(arrays[i]) > 0;
    }
}

void DrawableTransform::noteChanges() {
    for (const Candidate& candidate : _candidates) {
        if (!candidate.isChanged) continue;
        candidate.array->dirty();
        if (candidate.array->referenceCount() > 1) _shared.insert(candidate.array);
    }
}

void DrawableTransform::apply(osg::Drawable::AttributeType type, unsigned int count, osg::Vec3* begin) {
    if (isToBeTransformed(type, begin)) TransformAttributeFunctor::apply(type, count, begin);
}

void DrawableTransform::apply(osg::Drawable::AttributeType type, unsigned int count, osg::Vec3d* begin) {
    if (isToBeTransformed(type, begin)) TransformAttributeFunctor::apply(type, count, begin);
}

bool DrawableTransform::isToBeTransformed(osg::Drawable::AttributeType type, const void* data) {
    if (type != osg::Drawable::VERTICES && type != osg::Drawable::NORMALS) return false;
    for (Candidate& candidate : _candidates) {
        if (!candidate.array || candidate.array->getDataPointer() != data) continue;
        if (candidate.isDone) return false;
        candidate.isDone = true;
        candidate.isChanged = true;
        return true;
    }
    return true;  // what a drawable of another kind keeps in its own way
}

}  // namespace veltrane::sceneutils
