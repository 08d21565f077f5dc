#pragma once

#include <osg/Drawable>
#include <osg/Geode>
#include <osg/NodeVisitor>

namespace veltrane::sceneutils {

/**
 * Measures how far from the origin the geodes of a graph lie: the centres of their bounding spheres, each in the
 * geode's own coordinates. A drawable that hangs directly below a group counts as a geode of its own. Nodes are visited
 * whatever their node mask.
 */
class GeodeDistanceChecker : public osg::NodeVisitor {
public:
    GeodeDistanceChecker();
    GeodeDistanceChecker(const GeodeDistanceChecker& other);
    GeodeDistanceChecker& operator=(const GeodeDistanceChecker& other);
    ~GeodeDistanceChecker() override;

    using osg::NodeVisitor::apply;
    void apply(osg::Geode& geode) override;
    void apply(osg::Drawable& drawable) override;

    /** The square of the largest distance met so far; 0 before. */
    double maxDistance2() const { return _maxDistance2; }

private:
    void measure(const osg::BoundingSphere& bound);

    double _maxDistance2 = 0.0;
};

}  // namespace veltrane::sceneutils
