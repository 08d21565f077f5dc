#pragma once

#include <osg/Node>
#include <osg/ref_ptr>

#include <string>

namespace veltrane::sceneutils::tool {

/**
 * Brings a graph into a form that files of a format hold, without changing what it looks like. OpenSceneGraph's writers
 * lose what is in another form, or write what cannot be read again:
 * - No format holds other children of a geode than drawables. Such a geode becomes a group in which its drawables hang
 *   in geodes; the order stays. What else hangs in a billboard is never drawn: it goes into a hidden group beside it.
 * - .ive files hold drawables only in geodes: others get one in their place. So they do in formats that are not
 *   OpenSceneGraph's own.
 * - Only .osgb, .osgt and .osgx files hold a drawable's node mask: in others a geode has it.
 * - .ive files do not hold normals that are bound per primitive; see bindNormalsOverall().
 *
 * Changes the graph itself. Names, state sets, masks, callbacks and the places among the siblings stay.
 * @param ending of the file's name, in lower case
 * @return the graph's root, which is another one if it had to be replaced
 */
osg::ref_ptr<osg::Node> fitForFormat(osg::ref_ptr<osg::Node> root, const std::string& ending);

}  // namespace veltrane::sceneutils::tool
