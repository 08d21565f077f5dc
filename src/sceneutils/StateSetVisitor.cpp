#include <sceneutils/StateSetVisitor.h>

#include "VisitorSettings.h"

#include <osg/Drawable>

namespace veltrane::sceneutils {

StateSetVisitor::StateSetVisitor() : osg::NodeVisitor(TRAVERSE_NONE) {}

StateSetVisitor::StateSetVisitor(const StateSetVisitor& other) : osg::Object(other), osg::NodeVisitor(other) {}

StateSetVisitor& StateSetVisitor::operator=(const StateSetVisitor& other) {
    copyVisitorSettings(*this, other);
    return *this;
}

StateSetVisitor::~StateSetVisitor() = default;

// The counts are read again after every child and drawable: a visitor may add some while it works.

void StateSetVisitor::apply(osg::Group& group) {
    visitOwnStateSet(group);
    for (unsigned int i = 0; i < group.getNumChildren(); ++i) group.getChild(i)->accept(*this);
}

void StateSetVisitor::apply(osg::Geode& geode) {
    visitOwnStateSet(geode);
    for (unsigned int i = 0; i < geode.getNumDrawables(); ++i) {
        osg::Drawable* drawable = geode.getDrawable(i);
        if (drawable) visitOwnStateSet(*drawable);
    }
}

void StateSetVisitor::apply(osg::Node& node) {
    visitOwnStateSet(node);
    traverse(node);
}

void StateSetVisitor::visitOwnStateSet(osg::Node& node) {
    if (osg::StateSet* stateSet = node.getStateSet()) apply(*stateSet);
}

}  // namespace veltrane::sceneutils
