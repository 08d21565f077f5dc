#pragma once

#include <osg/MatrixTransform>
#include <osg/PositionAttitudeTransform>
#include <osg/ref_ptr>

namespace veltrane::sceneutils::tool {

/**
 * Puts a matrix transform of the same effect into the place of a position-attitude transform: with its children, in all
 * its parents, and with all that a node has (name, state, mask, callbacks, user data, descriptions ...).
 */
osg::ref_ptr<osg::MatrixTransform> replaceByMatrixTransform(
    const osg::ref_ptr<osg::PositionAttitudeTransform>& transform);

}  // namespace veltrane::sceneutils::tool
