#pragma once

#include <osg/Node>
#include <osg/ref_ptr>

namespace veltrane::sceneutils {

/** Keeps the root of a graph alive for a scope. One that nobody held before is given back as it came, not deleted. */
class HeldRoot {
public:
    explicit HeldRoot(osg::Node* root) : _root(root), _wasHeld(root->referenceCount() > 1) {}
    ~HeldRoot() {
        if (!_wasHeld) _root.release();
    }
    HeldRoot(const HeldRoot&) = delete;
    HeldRoot& operator=(const HeldRoot&) = delete;

private:
    osg::ref_ptr<osg::Node> _root;
    bool _wasHeld;  ///< by others
};

}  // namespace veltrane::sceneutils
