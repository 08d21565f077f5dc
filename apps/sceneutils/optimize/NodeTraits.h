#pragma once

#include <osg/MatrixTransform>
#include <osg/Node>
#include <osg/PositionAttitudeTransform>

#include <typeinfo>

namespace veltrane::sceneutils::tool {

constexpr osg::Node::NodeMask anyNodeMask = ~0u;

inline bool hasCallbacks(const osg::Node& node) {
    return node.getUpdateCallback() || node.getEventCallback() || node.getCullCallback();
}

/** Whether a node is more than its children and state, so that something is lost with it: a name or user data (that
 * were left to it), callbacks, a node mask, that it is never culled, or that an application changes it. */
inline bool hasMoreThanChildren(const osg::Node& node) {
    return !node.getName().empty() || node.getUserDataContainer() || hasCallbacks(node) ||
           node.getNodeMask() != anyNodeMask || !node.getCullingActive() ||
           node.getDataVariance() == osg::Object::DYNAMIC;
}

/** Whether what a transform does is in its matrix: not so those that turn to the eye, have limits or are cameras. */
inline bool isPlainTransform(const osg::Node& node) {
    return typeid(node) == typeid(osg::MatrixTransform) || typeid(node) == typeid(osg::PositionAttitudeTransform);
}

}  // namespace veltrane::sceneutils::tool
