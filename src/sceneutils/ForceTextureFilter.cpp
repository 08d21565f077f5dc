#include <sceneutils/ForceTextureFilter.h>

namespace veltrane::sceneutils {

ForceTextureFilter::ForceTextureFilter(osg::Texture::FilterMode filterMode) : mode(filterMode) {}

ForceTextureFilter::ForceTextureFilter(const ForceTextureFilter& other)
    : osg::Object(other), TextureVisitor(other), mode(other.mode) {}

ForceTextureFilter& ForceTextureFilter::operator=(const ForceTextureFilter& other) = default;

ForceTextureFilter::~ForceTextureFilter() = default;

void ForceTextureFilter::apply(osg::Texture& texture) {
    texture.setFilter(osg::Texture::MIN_FILTER, mode);
}

}  // namespace veltrane::sceneutils
