#pragma once

#include "PictureLayout.h"

#include <osg/Group>
#include <osg/Node>
#include <osg/ref_ptr>

#include <string>

namespace veltrane::sceneutils::tool {

/** The smallest width and height of a markup's picture, in pixels. */
constexpr int smallestMarkupPicture = 400;

/**
 * What a SceneRenderer has to draw for a picture of a markup: the scene, faded, from above and from the south, with
 * the figures over it, and below both a scale and a legend.
 * @param scene as it is without the markup
 * @param content with a box that has an extent
 * @param width,height of the picture in pixels, at least smallestMarkupPicture
 */
osg::ref_ptr<osg::Group> makeMarkupPicture(osg::Node* scene, const PictureContent& content, int width, int height);

}  // namespace veltrane::sceneutils::tool
