#pragma once

#include <sceneutils/Export.h>

#include <osg/Geode>
#include <osg/Group>
#include <osg/NodeVisitor>
#include <osg/StateSet>

namespace veltrane::sceneutils {

/**
 * Visits every state set of a graph: those of the nodes and those of the drawables.
 *
 * Derive from it, implement apply(osg::StateSet&), and let a node accept the visitor. The walk goes depth first, a
 * node's own state set before its children, children and drawables in index order. No record of what was visited is
 * kept: a state set or subgraph that hangs in several places is visited once for every path that leads to it.
 *
 * The visitor walks the children itself (its traversal mode is TRAVERSE_NONE), so that children and drawables that
 * apply(osg::StateSet&) adds behind the current one are still reached. Nothing is changed or kept by the walk, and null
 * drawables are skipped. One instance serves one thread at a time.
 */
class SCENEUTILS_EXPORT StateSetVisitor : public osg::NodeVisitor {
public:
    StateSetVisitor();
    StateSetVisitor(const StateSetVisitor& other);
    StateSetVisitor& operator=(const StateSetVisitor& other);
    ~StateSetVisitor() override;

    using osg::NodeVisitor::apply;

    /** Visits the group's own state set, then lets each child accept this visitor. */
    void apply(osg::Group& group) override;

    /** Visits the geode's own state set, then that of each drawable. The drawables themselves are not visited. */
    void apply(osg::Geode& geode) override;

    /** Visits the node's own state set. A drawable that hangs directly below a group arrives here. */
    void apply(osg::Node& node) override;

    /** Called for every state set that is met, once per path that leads to it. @param stateSet may be changed */
    virtual void apply(osg::StateSet& stateSet) = 0;

private:
    void visitOwnStateSet(osg::Node& node);
};

}  // namespace veltrane::sceneutils
