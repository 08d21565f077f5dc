#include "TransformReplacement.h"

namespace veltrane::sceneutils::tool {

namespace {

osg::Matrixd matrixOf(const osg::PositionAttitudeTransform& transform) {
    osg::Matrixd matrix;
    transform.computeLocalToWorldMatrix(matrix, nullptr);
    return matrix;
}

void copyNodeSettings(osg::MatrixTransform& to, osg::PositionAttitudeTransform& from) {
    to.setName(from.getName());
    to.setDataVariance(from.getDataVariance());
    to.setUserDataContainer(from.getUserDataContainer());
    to.setStateSet(from.getStateSet());
    to.setNodeMask(from.getNodeMask());
    to.setUpdateCallback(from.getUpdateCallback());
    to.setEventCallback(from.getEventCallback());
    to.setCullCallback(from.getCullCallback());
    to.setComputeBoundingSphereCallback(from.getComputeBoundingSphereCallback());
    to.setInitialBound(from.getInitialBound());
    to.setReferenceFrame(from.getReferenceFrame());
    to.setCullingActive(from.getCullingActive());  // which the reference frame changes
}

}  // namespace

osg::ref_ptr<osg::MatrixTransform> replaceByMatrixTransform(
    const osg::ref_ptr<osg::PositionAttitudeTransform>& transform) {
    osg::ref_ptr<osg::MatrixTransform> replacement = new osg::MatrixTransform(matrixOf(*transform));
    copyNodeSettings(*replacement, *transform);
    for (unsigned int i = 0; i < transform->getNumChildren(); ++i) replacement->addChild(transform->getChild(i));
    transform->removeChildren(0, transform->getNumChildren());
    for (osg::Group* parent : osg::Node::ParentList(transform->getParents()))
        parent->replaceChild(transform, replacement);
    return replacement;
}

}  // namespace veltrane::sceneutils::tool
