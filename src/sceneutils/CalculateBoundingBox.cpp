#include <sceneutils/CalculateBoundingBox.h>

#include "VisitorSettings.h"

#include <osg/Drawable>

namespace veltrane::sceneutils {

namespace {

constexpr unsigned int cornersOfABox = 8;

/** The box around the geode's drawables; those without a valid box do not count. */
osg::BoundingBox boxOfDrawables(const osg::Geode& geode) {
    osg::BoundingBox box;
    for (unsigned int i = 0; i < geode.getNumDrawables(); ++i) {
        const osg::Drawable* drawable = geode.getDrawable(i);
        if (drawable) box.expandBy(drawable->getBoundingBox());  // passes over a box that is not valid
    }
    return box;
}

osg::BoundingBox transformed(const osg::BoundingBox& box, const osg::Matrixd& matrix) {
    osg::BoundingBox result;
    for (unsigned int i = 0; i < cornersOfABox; ++i) result.expandBy(matrix.preMult(box.corner(i)));
    return result;
}

}  // namespace

CalculateBoundingBox::CalculateBoundingBox() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

CalculateBoundingBox::CalculateBoundingBox(const CalculateBoundingBox& other)
    : osg::Object(other),
      osg::NodeVisitor(other),
      _boundingBox(other._boundingBox),
      _currentMatrix(other._currentMatrix) {}

CalculateBoundingBox& CalculateBoundingBox::operator=(const CalculateBoundingBox& other) {
    copyVisitorSettings(*this, other);
    _boundingBox = other._boundingBox;
    _currentMatrix = other._currentMatrix;
    return *this;
}

CalculateBoundingBox::~CalculateBoundingBox() = default;

osg::BoundingBox CalculateBoundingBox::process(osg::Node& node) {
    CalculateBoundingBox visitor;
    node.accept(visitor);
    return visitor.getBoundBox();
}

osg::BoundingBox& CalculateBoundingBox::getBoundBox() {
    return _boundingBox;
}

void CalculateBoundingBox::apply(osg::MatrixTransform& transform) {
    const osg::Matrixd outerMatrix = _currentMatrix;
    _currentMatrix *= transform.getMatrix();  // the outer matrix first: users rely on the boxes that this gives
    traverse(transform);
    _currentMatrix = outerMatrix;
}

void CalculateBoundingBox::apply(osg::Group& group) {
    if (auto* multiSwitch = dynamic_cast<osgSim::MultiSwitch*>(&group)) {
        visitShownChildren(*multiSwitch);
        return;
    }
    traverse(group);
}

void CalculateBoundingBox::apply(osg::Billboard& billboard) {
    traverse(billboard);
}

void CalculateBoundingBox::apply(osg::Geode& geode) {
    // Done for a box that stayed empty as well, which then becomes the largest of all.
    _boundingBox.expandBy(transformed(boxOfDrawables(geode), _currentMatrix));
    traverse(geode);
}

void CalculateBoundingBox::visitShownChildren(osgSim::MultiSwitch& multiSwitch) {
    const unsigned int switchSet = multiSwitch.getActiveSwitchSet();
    for (unsigned int i = 0; i < multiSwitch.getNumChildren(); ++i) {
        osg::Node* child = multiSwitch.getChild(i);
        // What getChildValue() says, but for a switch set with fewer values than children: that reads past its end.
        if (multiSwitch.getValue(switchSet, multiSwitch.getChildIndex(child))) traverse(*child);
    }
}

}  // namespace veltrane::sceneutils
