#include "ShaderState.h"

#include <osg/PointSprite>

#include <string>

namespace veltrane::sceneutils {

namespace {

const std::string overlayName = "OverlayTex";
const std::string sunName = "SunAmbient";

const osg::StateAttribute::TypeMemberPair textureType(osg::StateAttribute::TEXTURE, 0);
const osg::StateAttribute::TypeMemberPair pointSpriteType(osg::StateAttribute::POINTSPRITE, 0);

bool isPointSprite(const osg::StateAttribute& attribute) {
    return dynamic_cast<const osg::PointSprite*>(&attribute) != nullptr;
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
    int unit = 0;
    for (const osg::StateSet::AttributeList& attributes : own.getTextureAttributeList()) {
        for (const auto& [type, entry] : attributes) {
            if (type == textureType) _textures.merge(unit, entry.first->asTexture() != nullptr, entry.second);
            if (type == pointSpriteType) _pointSprites.merge(unit, isPointSprite(*entry.first), entry.second);
        }
        ++unit;
    }
}

}  // namespace veltrane::sceneutils
