#pragma once

#include <osg/NodeVisitor>

namespace veltrane::sceneutils {

/**
 * Gives `to` the traversal settings of `from`: what osg::NodeVisitor's own assignment would do if it had one. (Its base
 * osg::Object hides the assignment operator, so every visitor writes its own and begins it with this call.)
 */
inline void copyVisitorSettings(osg::NodeVisitor& to, const osg::NodeVisitor& from) {
    to.setVisitorType(from.getVisitorType());
    to.setTraversalNumber(from.getTraversalNumber());
    to.setTraversalMode(from.getTraversalMode());
    to.setTraversalMask(from.getTraversalMask());
    to.setNodeMaskOverride(from.getNodeMaskOverride());
}

}  // namespace veltrane::sceneutils
