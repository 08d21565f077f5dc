#pragma once

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Image>
#include <osg/Program>
#include <osg/StateSet>
#include <osg/Texture2D>

#include <string>

/** Small builders for the graphs that tests need. */
namespace testing_support {

/** A one-pixel image of that file name. */
inline osg::ref_ptr<osg::Image> makeImage(const std::string& fileName) {
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(1, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE);
    image->setFileName(fileName);
    return image;
}

inline osg::ref_ptr<osg::Texture2D> makeTexture(const std::string& fileName = "texture.png") {
    return new osg::Texture2D(makeImage(fileName));
}

/** A unit square in the xy plane, with a normal and texture coordinates on unit 0. */
inline osg::ref_ptr<osg::Geometry> makeSquare(const osg::Vec3& corner = osg::Vec3()) {
    return osg::createTexturedQuadGeometry(corner, osg::Vec3(1, 0, 0), osg::Vec3(0, 1, 0));
}

inline osg::ref_ptr<osg::Geode> makeGeode(osg::Drawable* drawable) {
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(drawable);
    return geode;
}

}  // namespace testing_support
