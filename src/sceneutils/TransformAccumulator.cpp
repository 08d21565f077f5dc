#include <sceneutils/TransformAccumulator.h>

#include <osg/Transform>

namespace veltrane::sceneutils {

UpdateAccumlatedMatrix::UpdateAccumlatedMatrix() = default;

UpdateAccumlatedMatrix::UpdateAccumlatedMatrix(const UpdateAccumlatedMatrix& other, const osg::CopyOp& copyOperation)
    : osg::Object(other, copyOperation),
      osg::Callback(other, copyOperation),
      osg::NodeCallback(other, copyOperation),
      _matrix(other._matrix) {}

UpdateAccumlatedMatrix& UpdateAccumlatedMatrix::operator=(const UpdateAccumlatedMatrix& other) {
    _nestedCallback = other._nestedCallback;
    _matrix = other._matrix;
    return *this;
}

UpdateAccumlatedMatrix::~UpdateAccumlatedMatrix() = default;

void UpdateAccumlatedMatrix::operator()(osg::Node* node, osg::NodeVisitor* visitor) {
    constexpr bool ignoreCameras = true;
    _matrix = osg::computeWorldToLocal(visitor->getNodePath(), ignoreCameras);
    traverse(node, visitor);
}

TransformAccumulator::TransformAccumulator()
    : _attachGroup(new osg::Group), _child(new osg::Node), _callback(new UpdateAccumlatedMatrix) {
    _attachGroup->setUpdateCallback(_callback);
    _attachGroup->addChild(_child);
}

TransformAccumulator::TransformAccumulator(const TransformAccumulator& other) = default;
TransformAccumulator& TransformAccumulator::operator=(const TransformAccumulator& other) = default;
TransformAccumulator::~TransformAccumulator() = default;

bool TransformAccumulator::attachToGroup(osg::Group* group) {
    if (!_parent) {
        group->addChild(_attachGroup);
        return true;
    }

    // Set once it is found: before its first move nobody may hold the attach point, and a reference that is given back
    // would free it.
    osg::ref_ptr<osg::Group> taken;
    const unsigned int count = _parent->getNumChildren();
    for (unsigned int i = 0; i < count; ++i) {
        if (i >= _parent->getNumChildren() || _parent->getChild(i) != _attachGroup) continue;
        taken = _attachGroup;
        _parent->removeChild(i, 1);
    }
    if (!taken) return false;

    group->addChild(taken);
    return true;
}

void TransformAccumulator::addUpdateCallbackToChild(osg::NodeCallback* callback) {
    _child->setUpdateCallback(callback);
}

osg::Matrixd TransformAccumulator::getMatrix() const {
    return _callback->_matrix;
}

}  // namespace veltrane::sceneutils
