#include "GeodeDistanceChecker.h"

#include "VisitorSettings.h"

namespace veltrane::sceneutils {

namespace {

constexpr osg::Node::NodeMask anyMask = ~0u;

}  // namespace

GeodeDistanceChecker::GeodeDistanceChecker() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {
    setNodeMaskOverride(anyMask);
}

GeodeDistanceChecker::GeodeDistanceChecker(const GeodeDistanceChecker& other)
    : osg::Object(other), osg::NodeVisitor(other), _maxDistance2(other._maxDistance2) {}

GeodeDistanceChecker& GeodeDistanceChecker::operator=(const GeodeDistanceChecker& other) {
    copyVisitorSettings(*this, other);
    _maxDistance2 = other._maxDistance2;
    return *this;
}

GeodeDistanceChecker::~GeodeDistanceChecker() = default;

void GeodeDistanceChecker::apply(osg::Geode& geode) {
    measure(geode.getBound());
}

void GeodeDistanceChecker::apply(osg::Drawable& drawable) {
    osg::BoundingSphere boundInAGeode;
    boundInAGeode.expandBy(drawable.getBoundingBox());
    measure(boundInAGeode);
}

void GeodeDistanceChecker::measure(const osg::BoundingSphere& bound) {
    const double distance2 = bound.center().length2();
    if (!(_maxDistance2 > distance2)) _maxDistance2 = distance2;
}

}  // namespace veltrane::sceneutils
