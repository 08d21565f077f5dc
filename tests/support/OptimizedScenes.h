#pragma once

#include "Graphs.h"

#include <osg/Group>
#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/StateSet>

#include <string>

/** Small scenes whose optimisation could lose something. */
namespace testing_support {

/** A unit square at that place along the x axis. */
inline osg::ref_ptr<osg::Geode> squareAt(float x) {
    return makeGeode(makeSquare(osg::Vec3(x, 0, 0)));
}

inline osg::ref_ptr<osg::Group> groupOf(const std::vector<osg::ref_ptr<osg::Node>>& children) {
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    for (const auto& child : children) group->addChild(child);
    return group;
}

inline osg::ref_ptr<osg::MatrixTransform> staticTransform(const osg::Matrixd& matrix, osg::Node* child) {
    const osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(matrix);
    transform->setDataVariance(osg::Object::STATIC);
    transform->addChild(child);
    return transform;
}

inline osg::ref_ptr<osg::LOD> lodOf(osg::Node* child, float minimum, float maximum) {
    const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->addChild(child, minimum, maximum);
    return lod;
}

inline osg::ref_ptr<osg::StateSet> stateWithMode(GLenum mode, osg::StateAttribute::GLModeValue value) {
    const osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
    stateSet->setMode(mode, value);
    return stateSet;
}

/** Everything but pixels is copied. */
inline osg::ref_ptr<osg::Group> deepCopy(const osg::Group& graph) {
    return osg::clone(&graph, osg::CopyOp(osg::CopyOp::DEEP_COPY_ALL & ~osg::CopyOp::DEEP_COPY_IMAGES));
}

}  // namespace testing_support
