#pragma once

#include <osg/Drawable>
#include <osg/NodeVisitor>

namespace veltrane::sceneutils::benchmarks {

/** Counts drawables, in each place where they hang. */
class DrawableCounter : public osg::NodeVisitor {
public:
    DrawableCounter() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
    void apply(osg::Drawable&) override { ++count; }
    int count = 0;
};

}  // namespace veltrane::sceneutils::benchmarks
