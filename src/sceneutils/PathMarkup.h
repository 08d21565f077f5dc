#pragma once

#include "LODDrawing.h"

#include <osg/Geode>
#include <osg/Group>
#include <osg/LOD>
#include <osg/Transform>
#include <osg/ref_ptr>

namespace veltrane::sceneutils {

/** Describes the nodes of one path on standard error, and rebuilds it as a chain of nodes that make it visible. */
class PathMarkup {
public:
    explicit PathMarkup(LabelFont& font) : _font(font) {}

    /** @return the group above the chain. May be called once. */
    osg::ref_ptr<osg::Group> markup(const osg::NodePath& path);

private:
    void add(osg::Node& node, osg::Node* next);
    void addTransform(osg::Transform& transform);
    void addLOD(osg::LOD& lod, unsigned int level);
    void addGeode(osg::Geode& geode);
    void descendTo(osg::Group& group);

    LabelFont& _font;
    osg::ref_ptr<osg::Group> _current;  ///< the end of the chain
};

}  // namespace veltrane::sceneutils
