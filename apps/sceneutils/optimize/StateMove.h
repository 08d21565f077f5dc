#pragma once

#include <osg/Group>
#include <osg/StateSet>
#include <osg/ref_ptr>

#include <map>
#include <utility>

namespace veltrane::sceneutils::tool {

/**
 * Moves the state sets of groups that are about to go to their children. What is drawn stays the same: OVERRIDE and
 * PROTECTED are heeded. Children with the same state set get the same one again, so that they can still be merged.
 */
class StateMove {
public:
    /** Whether the group's state set can be moved: not if a child hangs elsewhere too, nor if render bins or callbacks
     * of state sets would come together, nor if an application may change the state set later. */
    static bool isPossible(const osg::Group& group);

    /** The group has no state set then. Only if that is possible. */
    void moveToChildren(osg::Group& group);

private:
    osg::StateSet* merged(osg::StateSet& above, osg::StateSet* below);

    using Pair = std::pair<osg::ref_ptr<osg::StateSet>, osg::ref_ptr<osg::StateSet>>;
    std::map<Pair, osg::ref_ptr<osg::StateSet>> _merged;
};

}  // namespace veltrane::sceneutils::tool
