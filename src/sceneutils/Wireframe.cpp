#include <sceneutils/SceneUtils.h>

#include <osg/LineWidth>
#include <osg/Material>
#include <osg/PolygonMode>
#include <osg/PolygonOffset>

namespace veltrane::sceneutils {

namespace {

constexpr float widthInPixels = 2.0f;

constexpr osg::StateAttribute::OverrideValue forcedOn = osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE;
constexpr osg::StateAttribute::OverrideValue forcedOff = osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE;

/** Lit, it has that colour whatever the lights: it only glows and reflects nothing. */
void makeGlow(osg::Material& material, const osg::Vec4& color) {
    const osg::Vec4 black(0.0f, 0.0f, 0.0f, 1.0f);
    material.setColorMode(osg::Material::OFF);
    material.setDiffuse(osg::Material::FRONT_AND_BACK, black);
    material.setAmbient(osg::Material::FRONT_AND_BACK, black);
    material.setSpecular(osg::Material::FRONT_AND_BACK, black);
    material.setEmission(osg::Material::FRONT_AND_BACK, color);
}

}  // namespace

void makeWireframe(osg::StateSet* stateSet, const osg::Vec4& color, float offset) {
    if (!stateSet) return;

    stateSet->setAttribute(new osg::PolygonOffset(offset, offset), forcedOn);
    stateSet->setMode(GL_POLYGON_OFFSET_FILL, forcedOn);

    osg::ref_ptr<osg::Material> material = new osg::Material;
    osg::ref_ptr<osg::LineWidth> lineWidth = new osg::LineWidth;
    lineWidth->setWidth(widthInPixels);
    makeGlow(*material, color);
    stateSet->setAttributeAndModes(lineWidth, forcedOn);
    stateSet->setAttributeAndModes(material, forcedOn);
    stateSet->setMode(GL_LIGHTING, forcedOn);
    stateSet->setTextureMode(0, GL_TEXTURE_2D, forcedOff);

    osg::ref_ptr<osg::PolygonMode> lines =
        new osg::PolygonMode(osg::PolygonMode::FRONT_AND_BACK, osg::PolygonMode::LINE);
    stateSet->setAttributeAndModes(lines, forcedOn);
}

}  // namespace veltrane::sceneutils
