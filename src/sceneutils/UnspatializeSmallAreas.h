#pragma once

#include "SiblingLODs.h"

#include <osg/Group>
#include <osg/Node>
#include <osg/NodeVisitor>
#include <osg/ref_ptr>

#include <vector>

namespace veltrane::sceneutils {

/**
 * Dissolves small groups: their children move up, behind the other children of the parent. On the way, LODs that hang
 * side by side and have the same ranges become one.
 *
 * A group is small if it is exactly an osg::Group and its bound has a radius below the visitor's; an empty one always
 * is. It is dissolved if it has exactly one parent, and that is a transform or exactly an osg::Group. LODs are merged
 * in every small group and in every group into which one was dissolved: see SiblingLODs.
 */
class UnspatializeSmallAreas : public osg::NodeVisitor {
public:
    /** @param radius in graph units; not a number (NaN): no group is small */
    explicit UnspatializeSmallAreas(double radius);
    UnspatializeSmallAreas(const UnspatializeSmallAreas& other);
    UnspatializeSmallAreas& operator=(const UnspatializeSmallAreas& other);
    ~UnspatializeSmallAreas() override;

    /** Visits the graph below `node` and dissolves what was found, twice, because the first round makes new groups. */
    static void process(osg::Node* node, double radius);

    using osg::NodeVisitor::apply;

    /** Visits the children, then merges the LODs of a small group and records it if it is to be dissolved. */
    void apply(osg::Group& group) override;

    /** Dissolves the recorded groups, in the order of their visits, and forgets them. */
    void dissolveRecordedGroups();

    /** Merges the children of the group that are LODs with the same ranges. */
    void mergeSiblingLODs(osg::Group* group);

private:
    /** A group to dissolve or, if that one is null, one whose visit ends and whose new children are all there. */
    struct Step {
        osg::ref_ptr<osg::Group> dissolved;
        osg::Group* visited;
    };

    bool isSmall(osg::Group& group) const;

    std::vector<Step> _steps;
    double _radius;
    LODMerger _merger;
};

}  // namespace veltrane::sceneutils
