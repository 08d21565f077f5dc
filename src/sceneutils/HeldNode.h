#pragma once

#include <osg/Node>
#include <osg/ref_ptr>

namespace veltrane::sceneutils {

/** Keeps a node alive for a scope. One that nobody held before is given back as it came, not deleted. */
class HeldNode {
public:
    explicit HeldNode(osg::Node* node) : _node(node), _wasHeld(node->referenceCount() > 1) {}
    ~HeldNode() {
        if (!_wasHeld) _node.release();
    }
    HeldNode(const HeldNode&) = delete;
    HeldNode& operator=(const HeldNode&) = delete;

private:
    osg::ref_ptr<osg::Node> _node;
    bool _wasHeld;  ///< by others
};

}  // namespace veltrane::sceneutils
