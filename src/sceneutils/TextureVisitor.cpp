#include <sceneutils/TextureVisitor.h>

namespace veltrane::sceneutils {

TextureVisitor::TextureVisitor() = default;

TextureVisitor::TextureVisitor(const TextureVisitor& other) : osg::Object(other), StateSetVisitor(other) {}

TextureVisitor& TextureVisitor::operator=(const TextureVisitor& other) = default;

TextureVisitor::~TextureVisitor() = default;

void TextureVisitor::apply(osg::StateSet& stateSet) {
    // The list may grow while a texture is visited, so its length is read again each time.
    for (unsigned int unit = 0; unit < stateSet.getTextureAttributeList().size(); ++unit) {
        auto* texture = dynamic_cast<osg::Texture*>(stateSet.getTextureAttribute(unit, osg::StateAttribute::TEXTURE));
        if (texture) apply(*texture);
    }
}

}  // namespace veltrane::sceneutils
