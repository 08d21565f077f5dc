#include <sceneutils/MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor.h>

#include "ChildReplacer.h"
#include "EventCallbacks.h"
#include "HeldNode.h"
#include "VisitorSettings.h"

#include <osg/Billboard>
#include <osg/Geometry>
#include <osg/MatrixTransform>
#include <osg/Notify>
#include <osg/PositionAttitudeTransform>

namespace veltrane::sceneutils {

namespace {

using Flatten = MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor;

constexpr osg::CopyOp::CopyFlags copyOfShared =
    osg::CopyOp::DEEP_COPY_NODES | osg::CopyOp::DEEP_COPY_DRAWABLES | osg::CopyOp::DEEP_COPY_ARRAYS;
constexpr osg::CopyOp::CopyFlags copyOfTransform = copyOfShared | osg::CopyOp::DEEP_COPY_PRIMITIVES;

osg::Vec3d translationOf(osg::Transform& transform) {
    if (const osg::MatrixTransform* matrixTransform = transform.asMatrixTransform())
        return matrixTransform->getMatrix().getTrans();
    if (const auto* placed = transform.asPositionAttitudeTransform()) return placed->getPosition();
    return {};
}

bool holdsDrawablesOnly(const osg::Geode& geode) {
    for (unsigned int i = 0; i < geode.getNumChildren(); ++i)
        if (!geode.getDrawable(i)) return false;
    return true;
}

/** Has changed vertices and normals sent to the graphics card again. */
void dirtyArrays(osg::Drawable& drawable) {
    osg::Geometry* geometry = drawable.asGeometry();
    if (!geometry) return;
    if (osg::Array* vertices = geometry->getVertexArray()) vertices->dirty();
    if (osg::Array* normals = geometry->getNormalArray()) normals->dirty();
}

void dirtyArraysOf(osg::Geode& geode) {
    for (unsigned int i = 0; i < geode.getNumDrawables(); ++i) dirtyArrays(*geode.getDrawable(i));
}

}  // namespace

Flatten::MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor(double squaredLimit)
    : Base(nullptr), _squaredLimit(squaredLimit), _replacer(new ChildReplacer) {}

Flatten::MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor(const Flatten& other)
    : osg::Object(other), Base(other), _squaredLimit(other._squaredLimit), _replacer(new ChildReplacer) {}

Flatten& Flatten::operator=(const Flatten& other) {
    copyVisitorSettings(*this, other);
    _optimizer = other._optimizer;
    _operationType = other._operationType;
    _matrixStack = other._matrixStack;
    _squaredLimit = other._squaredLimit;
    return *this;
}

Flatten::~MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor() = default;

void Flatten::process(osg::Node* node, double squaredLimit) {
    if (!node) return;
    const HeldNode held(node);
    Flatten visitor(squaredLimit);
    node->accept(visitor);
}

void Flatten::apply(osg::LOD& lod) {
    if (!isSharedBelowAFlattenedTransform(lod)) {
        if (!_matrixStack.empty()) moveCenter(lod);
        traverse(lod);
        return;
    }
    const osg::ref_ptr<osg::LOD> copy = new osg::LOD(lod, osg::CopyOp(copyOfShared));
    osg::Group* parent = parentOnThePath();
    if (!parent) {
        OSG_NOTICE << "No parent for this LOD" << std::endl;
        return;
    }
    copyEventCallbacks(lod, *copy);
    _replacer->replace(*parent, lod, *copy);
    _nodePath.back() = copy;
    moveCenter(*copy);
    traverse(*copy);
}

void Flatten::apply(osg::Transform& transform) {
    if (translationOf(transform).length2() > _squaredLimit) {
        traverse(transform);
    } else {
        originalApply(transform);
    }
}

void Flatten::originalApply(osg::Transform& transform) {
    if (transform.getDataVariance() != osg::Object::STATIC || _nodePath.size() < 2) {
        traverse(transform);
        return;
    }
    osg::Matrixd matrix = _matrixStack.empty() ? osg::Matrixd() : _matrixStack.back();
    transform.computeLocalToWorldMatrix(matrix, this);
    _matrixStack.push_back(matrix);

    const osg::ref_ptr<osg::Group> group = new osg::Group(transform, osg::CopyOp(copyOfTransform));
    if (osg::Group* parent = parentOnThePath()) {
        copyEventCallbacks(transform, *group);
        const HeldNode held(&transform);
        _replacer->replace(*parent, transform, *group);
        _nodePath.back() = group;
        traverse(*group);
    } else {
        OSG_NOTICE << "No parent for this Group" << std::endl;
    }
    if (!_matrixStack.empty()) _matrixStack.pop_back();
}

void Flatten::apply(osg::Group& group) {
    if (!isSharedBelowAFlattenedTransform(group)) {
        traverse(group);
        return;
    }
    const osg::ref_ptr<osg::Object> object = group.clone(osg::CopyOp(copyOfShared));
    auto* copy = dynamic_cast<osg::Group*>(object.get());
    osg::Group* parent = parentOnThePath();
    if (!copy || !parent) {
        OSG_NOTICE << "No parent for this Group" << std::endl;
        return;
    }
    copyEventCallbacks(group, *copy);
    _replacer->replace(*parent, group, *copy);
    _nodePath.back() = copy;
    traverse(*copy);
}

void Flatten::apply(osg::Geode& geode) {
    if (!holdsDrawablesOnly(geode)) {
        apply(static_cast<osg::Group&>(geode));
        return;
    }
    const HeldNode held(&geode);
    Base::apply(geode);
    if (!_matrixStack.empty()) dirtyArraysOf(geode);
}

void Flatten::apply(osg::Billboard& billboard) {
    const bool isComplete = billboard.getPositionList().size() >= billboard.getNumChildren();
    if (!isComplete || !holdsDrawablesOnly(billboard)) return;
    const HeldNode held(&billboard);
    Base::apply(billboard);
    if (!_matrixStack.empty()) dirtyArraysOf(billboard);
}

void Flatten::apply(osg::Drawable& drawable) {
    if (_matrixStack.empty()) return;
    osg::Group* parent = drawable.getNumParents() > 1 ? parentOnThePath() : nullptr;
    if (!parent) {
        transformDrawable(drawable);
        dirtyArrays(drawable);
        return;
    }
    const osg::ref_ptr<osg::Drawable> copy = osg::clone(&drawable, osg::CopyOp(copyOfShared));
    if (!copy) return;
    copyEventCallbacks(drawable, *copy);
    _replacer->replace(*parent, drawable, *copy);
    transformDrawable(*copy);
}

bool Flatten::isSharedBelowAFlattenedTransform(const osg::Node& node) const {
    return !_matrixStack.empty() && node.getNumParents() > 1 && _nodePath.size() > 1;
}

osg::Group* Flatten::parentOnThePath() const {
    return _nodePath.size() > 1 ? dynamic_cast<osg::Group*>(_nodePath[_nodePath.size() - 2]) : nullptr;
}

void Flatten::moveCenter(osg::LOD& lod) const {
    const osg::Vec3 center = _matrixStack.back().preMult(lod.getCenter());
    // setCenter() leaves one of the modes with a user-defined centre as it is.
    lod.setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    lod.setCenter(center);
    lod.dirtyBound();
}

}  // namespace veltrane::sceneutils
