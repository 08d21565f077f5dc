#include "MyCopySharedSubgraphsVisitor.h"

#include "ChildReplacer.h"
#include "EventCallbacks.h"
#include "VisitorSettings.h"

#include <osg/Group>
#include <osg/Notify>

namespace veltrane::sceneutils {

namespace {

/** Every copy owns its vertices and primitives: what is merged or transformed later must not be shared. */
constexpr osg::CopyOp::CopyFlags copyFlags = osg::CopyOp::DEEP_COPY_NODES | osg::CopyOp::DEEP_COPY_DRAWABLES |
                                             osg::CopyOp::DEEP_COPY_ARRAYS | osg::CopyOp::DEEP_COPY_PRIMITIVES;

void copyForAllParentsButTheFirst(osg::Node& node, ChildReplacer& replacer) {
    for (unsigned int i = node.getNumParents(); i-- > 1;) {
        const osg::ref_ptr<osg::Object> object = node.clone(osg::CopyOp(copyFlags));
        auto* copy = dynamic_cast<osg::Node*>(object.get());
        if (!copy) continue;
        copyEventCallbacks(node, *copy);
        replacer.replace(*node.getParent(i), node, *copy);
    }
}

}  // namespace

MyCopySharedSubgraphsVisitor::MyCopySharedSubgraphsVisitor(osgUtil::Optimizer* optimizer)
    : osgUtil::BaseOptimizerVisitor(optimizer, osgUtil::Optimizer::COPY_SHARED_NODES) {}

MyCopySharedSubgraphsVisitor::MyCopySharedSubgraphsVisitor(const MyCopySharedSubgraphsVisitor& other)
    : osg::Object(other), osgUtil::BaseOptimizerVisitor(other), _sharedNodes(other._sharedNodes) {}

MyCopySharedSubgraphsVisitor& MyCopySharedSubgraphsVisitor::operator=(const MyCopySharedSubgraphsVisitor& other) {
    copyVisitorSettings(*this, other);
    _optimizer = other._optimizer;
    _operationType = other._operationType;
    _sharedNodes = other._sharedNodes;
    return *this;
}

MyCopySharedSubgraphsVisitor::~MyCopySharedSubgraphsVisitor() = default;

void MyCopySharedSubgraphsVisitor::apply(osg::Node& node) {
    if (node.getNumParents() > 1 && isOperationPermissibleForObject(&node)) _sharedNodes.insert(&node);
    traverse(node);
}

void MyCopySharedSubgraphsVisitor::copySharedNodes() {
    OSG_INFO << "Shared node " << _sharedNodes.size() << std::endl;
    ChildReplacer replacer;
    for (osg::Node* node : _sharedNodes) {
        OSG_INFO << "   No parents " << node->getNumParents() << std::endl;
        copyForAllParentsButTheFirst(*node, replacer);
    }
}

}  // namespace veltrane::sceneutils
