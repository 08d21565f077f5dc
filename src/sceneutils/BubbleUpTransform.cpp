#include <sceneutils/BubbleUpTransform.h>

#include "DrawableTransform.h"
#include "GeodeDistanceChecker.h"
#include "LightPointNodeTranslate.h"
#include "VisitorSettings.h"

namespace veltrane::sceneutils {

namespace {

constexpr osg::Node::NodeMask anyMask = ~0u;

osg::Matrixd withoutTranslation(osg::Matrixd matrix) {
    matrix.setTrans(0.0, 0.0, 0.0);
    return matrix;
}

/** How much longer the matrix makes a vector that points in no particular direction. */
float scaleOf(const osg::Matrixd& matrix) {
    const osg::Vec3f diagonal(1.0f, 1.0f, 1.0f);
    const osg::Vec3f transformed = diagonal * withoutTranslation(matrix);
    return transformed.length() / diagonal.length();
}

osg::Vec3 transformNormal(const osg::Matrixd& inverse, const osg::Vec3& normal) {
    osg::Vec3 transformed = osg::Matrixd::transform3x3(inverse, normal);
    transformed.normalize();
    return transformed;
}

}  // namespace

BubbleUpTransform::BubbleUpTransform() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {
    setNodeMaskOverride(anyMask);
}

BubbleUpTransform::BubbleUpTransform(const BubbleUpTransform& other)
    : osg::Object(other),
      osg::NodeVisitor(other),
      _matrix(other._matrix),
      _visited(other._visited),
      _transformed(other._transformed) {}

BubbleUpTransform& BubbleUpTransform::operator=(const BubbleUpTransform& other) {
    copyVisitorSettings(*this, other);
    _matrix = other._matrix;
    _visited = other._visited;
    _transformed = other._transformed;
    return *this;
}

BubbleUpTransform::~BubbleUpTransform() = default;

void BubbleUpTransform::createMatrixForGeodes(osg::ref_ptr<osg::Node> node, double minDistance, osg::Matrixd& result) {
    if (!node) return;

    const osg::Vec3f centre = node->getBound().center();
    GeodeDistanceChecker checker;
    node->accept(checker);
    if (minDistance * minDistance > checker.maxDistance2()) return;

    pushDown(*node, centre * -1.0f);
    LightPointNodeTranslate lightTranslate;
    lightTranslate.setTranslation(centre * -1.0f);
    node->accept(lightTranslate);
    _matrix.makeTranslate(centre);
    result = _matrix;
}

void BubbleUpTransform::createMatrixForGraph(osg::ref_ptr<osg::Node> node, double minDistance, osg::Matrixd& result) {
    if (!node) return;

    const osg::Vec3f centre = node->getBound().center();
    // Decides nothing here; but nodes that act on being visited are visited as often as by createMatrixForGeodes().
    GeodeDistanceChecker checker;
    node->accept(checker);
    const double distance2 = centre.length2();
    if (minDistance * minDistance > distance2) return;

    pushDown(*node, centre * -1.0f);
    _matrix.makeTranslate(centre);
    result = _matrix;
}

osg::Group* BubbleUpTransform::createTransformForGeodes(osg::ref_ptr<osg::Group> group, double minDistance) {
    createMatrixForGeodes(group, minDistance, _matrix);
    return hangBelowTransform(group);
}

osg::Group* BubbleUpTransform::createTransformForGraph(osg::ref_ptr<osg::Group> group, double minDistance) {
    createMatrixForGraph(group, minDistance, _matrix);
    return hangBelowTransform(group);
}

void BubbleUpTransform::apply(osg::PagedLOD& lod) {
    applyToAnyLOD(lod);
}

void BubbleUpTransform::apply(osg::LOD& lod) {
    applyToAnyLOD(lod);
}

void BubbleUpTransform::apply(osg::PositionAttitudeTransform& transform) {
    if (_visited.count(&transform) == 0) return;
    transform.setPosition(transform.getPosition() + _matrix.getTrans());
}

void BubbleUpTransform::apply(osg::MatrixTransform& transform) {
    if (!isFirstVisit(transform)) return;
    transform.setMatrix(transform.getMatrix() * _matrix);
}

void BubbleUpTransform::apply(osg::Billboard& billboard) {
    if (!isFirstVisit(billboard)) return;

    // The positions take up the translation, so the drawables are only turned and scaled.
    DrawableTransform drawableTransform(withoutTranslation(_matrix), _transformed);
    const osg::Matrixd& inverse = drawableTransform._im;
    billboard.setAxis(transformNormal(inverse, billboard.getAxis()));
    billboard.setNormal(transformNormal(inverse, billboard.getNormal()));
    for (unsigned int i = 0; i < billboard.getNumDrawables(); ++i) {
        // A drawable that was added as a mere child has no position.
        if (i < billboard.getPositionList().size()) billboard.setPosition(i, billboard.getPosition(i) * _matrix);
        if (osg::Drawable* drawable = billboard.getDrawable(i)) drawableTransform.transform(*drawable);
    }
    billboard.dirtyBound();
}

void BubbleUpTransform::apply(osg::Geode& geode) {
    if (!isFirstVisit(geode)) return;

    DrawableTransform drawableTransform(_matrix, _transformed);
    for (unsigned int i = 0; i < geode.getNumDrawables(); ++i) {
        osg::Drawable* drawable = geode.getDrawable(i);
        if (!drawable) continue;
        drawableTransform.transform(*drawable);
        drawable->dirtyDisplayList();
    }
}

void BubbleUpTransform::apply(osg::Drawable& drawable) {
    if (!isFirstVisit(drawable)) return;

    DrawableTransform(_matrix, _transformed).transform(drawable);
    drawable.dirtyDisplayList();
}

bool BubbleUpTransform::isFirstVisit(osg::Node& node) {
    return _visited.insert(&node).second;
}

void BubbleUpTransform::applyToAnyLOD(osg::LOD& lod) {
    if (!isFirstVisit(lod)) return;

    const float scale = scaleOf(_matrix);
    lod.setCenter(lod.getCenter() * _matrix);
    // setCenter() leaves one of the modes with a user-defined centre as it is.
    lod.setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    for (unsigned int i = 0; i < lod.getNumRanges(); ++i) {
        lod.setRange(i, lod.getMinRange(i) * scale, lod.getMaxRange(i) * scale);
    }
    lod.dirtyBound();
    traverse(lod);
}

void BubbleUpTransform::pushDown(osg::Node& node, const osg::Vec3f& translation) {
    _matrix.makeTranslate(translation);
    node.accept(*this);
}

osg::Group* BubbleUpTransform::hangBelowTransform(osg::Group* group) const {
    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(_matrix);
    transform->addChild(group);
    return transform.release();
}

}  // namespace veltrane::sceneutils
