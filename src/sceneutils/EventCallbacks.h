#pragma once

#include <osg/Group>

namespace veltrane::sceneutils {

/** Gives a deep copy of a graph the event callbacks of the original, which OSG's copy constructors leave out. */
inline void copyEventCallbacks(osg::Node& original, osg::Node& copy) {
    if (&original == &copy) return;
    if (original.getEventCallback()) copy.setEventCallback(original.getEventCallback());
    if (original.getNumChildrenRequiringEventTraversal() == 0) return;

    osg::Group* from = original.asGroup();
    osg::Group* to = copy.asGroup();
    if (!from || !to || from->getNumChildren() != to->getNumChildren()) return;
    for (unsigned int i = 0; i < from->getNumChildren(); ++i) copyEventCallbacks(*from->getChild(i), *to->getChild(i));
}

}  // namespace veltrane::sceneutils
