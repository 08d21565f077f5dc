#pragma once

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Image>
#include <osg/Texture2D>
#include <osgDB/WriteFile>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string>

/** Pictures and what they are put on, for tests of textures in files. */
namespace testing_support {

/** Writes a picture of 8 by 8 pixels, all of that grey. */
inline void writeGrey(const std::filesystem::path& path, unsigned char grey) {
    std::filesystem::create_directories(path.parent_path());
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(8, 8, 1, GL_RGB, GL_UNSIGNED_BYTE);
    std::fill_n(image->data(), image->getTotalSizeInBytes(), grey);
    if (!osgDB::writeImageFile(*image, path.string())) throw std::runtime_error("cannot write " + path.string());
}

/** A square under that texture; one that repeats is not put into an atlas. */
inline osg::ref_ptr<osg::Node> makeTextured(const std::string& texture, float repeats = 4.0f) {
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->setImage(8, 8, 1, GL_RGB, GL_RGB, GL_UNSIGNED_BYTE, nullptr, osg::Image::NO_DELETE);
    image->setFileName(texture);
    osg::ref_ptr<osg::Texture2D> texture2D = new osg::Texture2D(image);
    const auto wrap = repeats > 1.0f ? osg::Texture::REPEAT : osg::Texture::CLAMP_TO_EDGE;
    texture2D->setWrap(osg::Texture::WRAP_S, wrap);
    texture2D->setWrap(osg::Texture::WRAP_T, wrap);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(
        osg::createTexturedQuadGeometry(osg::Vec3(), osg::Vec3(10, 0, 0), osg::Vec3(0, 10, 0), repeats, repeats));
    geode->getOrCreateStateSet()->setTextureAttributeAndModes(0, texture2D);
    return geode;
}

}  // namespace testing_support
