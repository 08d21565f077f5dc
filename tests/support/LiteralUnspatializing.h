#pragma once

#include <osg/Group>
#include <osg/NodeVisitor>

#include <list>

namespace testing_support {

/**
 * How small groups are dissolved, written down as plainly as it can be said: each child is moved by itself, and after
 * each group all children of the receiver are looked at. Slow, and the measure for the pass of the library.
 */
class LiteralUnspatializing : public osg::NodeVisitor {
public:
    static void process(osg::Node& root, double radius);

    using osg::NodeVisitor::apply;
    void apply(osg::Group& group) override;

    static void mergeSiblingLODs(osg::Group& group);

private:
    explicit LiteralUnspatializing(double radius) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _radius(radius) {}

    void dissolveRecordedGroups();

    std::list<osg::ref_ptr<osg::Group>> _groups;
    double _radius;
};

}  // namespace testing_support
