#pragma once

#include <sceneutils/TextureVisitor.h>

namespace veltrane::sceneutils {

/**
 * Gives every texture of a graph the same minification filter, so that distant surfaces stop to shimmer however the
 * database's textures were set up.
 *
 *     veltrane::sceneutils::ForceTextureFilter filter(osg::Texture::LINEAR_MIPMAP_LINEAR);
 *     node->accept(filter);
 *
 * Only the minification filter is changed. The magnification filter stays as each texture has it: it decides between
 * smooth and blocky close-ups, which is the modeller's choice. Textures shared with other graphs change there too.
 * One instance serves one thread at a time.
 */
class SCENEUTILS_EXPORT ForceTextureFilter : public TextureVisitor {
public:
    /** @param mode the minification filter that every texture gets */
    explicit ForceTextureFilter(osg::Texture::FilterMode mode);
    ForceTextureFilter(const ForceTextureFilter& other);
    ForceTextureFilter& operator=(const ForceTextureFilter& other);
    ~ForceTextureFilter() override;

    using TextureVisitor::apply;

    /** Sets the texture's minification filter. */
    void apply(osg::Texture& texture) override;

private:
    osg::Texture::FilterMode mode;
};

}  // namespace veltrane::sceneutils
