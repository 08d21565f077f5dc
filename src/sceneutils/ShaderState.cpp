#include "ShaderState.h"

#include <osg/PointSprite>
#include <osg/Texture>

#include <string>

namespace veltrane::sceneutils {

namespace {

const std::string overlayName = "OverlayTex";
const std::string sunName = "SunAmbient";

/** Whether an attribute is what its place in the state set says. */
template <typename T>
bool holds(const osg::StateSet::RefAttributePair& entry) {
    return dynamic_cast<const T*>(entry.first.get()) != nullptr;
}

}  // namespace

void ShaderState::merge(const osg::StateSet& own) {
    mergeMaterial(own);
    mergeUniforms(own);
    mergeUnits(own);
}

void ShaderState::mergeMaterial(const osg::StateSet& own) {
    const auto* entry = own.getAttributePair(osg::StateAttribute::MATERIAL);
    if (entry) _material.merge(dynamic_cast<osg::Material*>(entry->first.get()), entry->second);
}

void ShaderState::mergeUniforms(const osg::StateSet& own) {
    if (own.getUniformList().empty()) return;

    const auto* overlay = own.getUniformPair(overlayName);
    if (overlay) _overlay.merge(overlay->first.get(), overlay->second);
    if (own.getUniform(sunName)) _hasSun = true;
}

void ShaderState::mergeUnits(const osg::StateSet& own) {
    const unsigned int count = own.getNumTextureAttributeLists();
    if (_units.size() < count) _units.resize(count);

    for (unsigned int i = 0; i < count; ++i) {
        const auto* texture = own.getTextureAttributePair(i, osg::StateAttribute::TEXTURE);
        if (texture) _units[i].isTextured.merge(holds<osg::Texture>(*texture), texture->second);
        const auto* sprite = own.getTextureAttributePair(i, osg::StateAttribute::POINTSPRITE);
        if (sprite) _units[i].hasPointSprite.merge(holds<osg::PointSprite>(*sprite), sprite->second);
    }
}

}  // namespace veltrane::sceneutils
