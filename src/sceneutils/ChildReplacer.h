#pragma once

#include <osg/Group>
#include <osg/observer_ptr>

#include <unordered_map>
#include <vector>

namespace veltrane::sceneutils {

/**
 * Does what osg::Group::replaceChild() does without searching the children of a large group again and again. Between
 * the first and the last call for a group nothing else may change the list of its children.
 */
class ChildReplacer {
public:
    /** Puts the replacement into the child's first place below the parent. False if there is none (any more). */
    bool replace(osg::Group& parent, osg::Node& child, osg::Node& replacement);

    /** Puts the replacement into all of the child's places below the parent. */
    void replaceAll(osg::Group& parent, osg::Node& child, osg::Node& replacement);

private:
    /** For each child its indices that are left, the first one last. */
    using Places = std::unordered_map<const osg::Node*, std::vector<unsigned int>>;

    struct Table {
        osg::observer_ptr<osg::Group> parent;  ///< no longer valid: another group may have its address
        Places places;
    };

    Places& placesIn(osg::Group& parent);

    std::unordered_map<const osg::Group*, Table> _tables;
};

}  // namespace veltrane::sceneutils
