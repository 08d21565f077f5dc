#pragma once

#include <sceneutils/TextureVisitor.h>

#include <osg/Image>
#include <osg/Texture>
#include <osg/ref_ptr>

#include <set>

namespace veltrane::sceneutils::tool {

/** Finds the images of a graph's textures, each once. */
class ImageCollector : public TextureVisitor {
public:
    using TextureVisitor::apply;

    void apply(osg::Texture& texture) override {
        for (unsigned int i = 0; i < texture.getNumImages(); ++i) {
            if (osg::Image* image = texture.getImage(i)) images.insert(image);
        }
    }

    std::set<osg::ref_ptr<osg::Image>> images;
};

}  // namespace veltrane::sceneutils::tool
