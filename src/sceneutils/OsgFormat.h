#pragma once

#include <osg/Geode>
#include <osg/NodeVisitor>

#include <unordered_set>

namespace veltrane::sceneutils {

/** Looks for geodes with a child that is no drawable: OpenSceneGraph's .osg writer crashes on them. */
class ForeignChildFinder : public osg::NodeVisitor {
public:
    ForeignChildFinder() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    using osg::NodeVisitor::apply;

    void apply(osg::Group& group) override {
        if (!found && _seen.insert(&group).second) traverse(group);
    }

    void apply(osg::Geode& geode) override {
        for (unsigned int i = 0; i < geode.getNumDrawables(); ++i) found = found || !geode.getDrawable(i);
    }

    bool found = false;

private:
    std::unordered_set<const osg::Group*> _seen;
};

/** Whether OpenSceneGraph can write a graph as .osg. The node has to be held by someone. */
inline bool isWritableAsOsg(osg::Node& node) {
    ForeignChildFinder finder;
    node.accept(finder);
    return !finder.found;
}

}  // namespace veltrane::sceneutils
