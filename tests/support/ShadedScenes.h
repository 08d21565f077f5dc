#pragma once

#include "support/Graphs.h"

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/Image>
#include <osg/LightModel>
#include <osg/LightSource>
#include <osg/Material>
#include <osg/Texture2D>
#include <osgText/Font>
#include <osgText/Text>

#include <cmath>
#include <functional>

/** Scenes for pictures of shaded surfaces. */
namespace testing_support {

/** Hills below a group that carries what counts for the whole scene: no light from all sides, and no light at all. */
struct HillScene {
    HillScene();

    /** Lights the scene with light 0. */
    osg::Light& light(const osg::Vec4& position);

    /** Gives the hills a material that knows no shine. */
    osg::Material& material(osg::Material::ColorMode mode = osg::Material::OFF);

    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    osg::ref_ptr<osg::Geometry> hills;
    osg::StateSet& all = *root->getOrCreateStateSet();
    osg::StateSet& state = *geode->getOrCreateStateSet();
};

constexpr int hillsPerSide = 32;
constexpr float hillsExtent = 5.0f;

inline osg::ref_ptr<osg::Geometry> makeHills() {
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array(osg::Array::BIND_PER_VERTEX);
    osg::ref_ptr<osg::Vec2Array> coordinates = new osg::Vec2Array(osg::Array::BIND_PER_VERTEX);
    osg::ref_ptr<osg::Vec4Array> white = new osg::Vec4Array(osg::Array::BIND_OVERALL);
    white->push_back(osg::Vec4(1, 1, 1, 1));
    for (int j = 0; j <= hillsPerSide; ++j) {
        for (int i = 0; i <= hillsPerSide; ++i) {
            const osg::Vec2 at(static_cast<float>(i) / hillsPerSide, static_cast<float>(j) / hillsPerSide);
            const osg::Vec2 p = (at * 2.0f - osg::Vec2(1, 1)) * hillsExtent;
            vertices->push_back(osg::Vec3(p, std::sin(p.x()) * std::cos(p.y())));
            osg::Vec3 normal(-std::cos(p.x()) * std::cos(p.y()), std::sin(p.x()) * std::sin(p.y()), 1.0f);
            normal.normalize();
            normals->push_back(normal);
            coordinates->push_back(at * 4.0f);
        }
    }
    osg::ref_ptr<osg::DrawElementsUInt> triangles = new osg::DrawElementsUInt(GL_TRIANGLES);
    for (int j = 0; j < hillsPerSide; ++j) {
        for (int i = 0; i < hillsPerSide; ++i) {
            const auto corner = static_cast<unsigned int>(j * (hillsPerSide + 1) + i);
            for (const unsigned int step : {0u, 1u, hillsPerSide + 2u, 0u, hillsPerSide + 2u, hillsPerSide + 1u}) {
                triangles->push_back(corner + step);
            }
        }
    }
    osg::ref_ptr<osg::Geometry> hills = new osg::Geometry;
    hills->setVertexArray(vertices);
    hills->setNormalArray(normals);
    hills->setColorArray(white);
    hills->setTexCoordArray(0, coordinates);
    hills->setTexCoordArray(1, coordinates);
    hills->setTexCoordArray(2, coordinates);
    hills->addPrimitiveSet(triangles);
    return hills;
}

/** Gives each vertex a colour of its own. */
inline void colorVertices(osg::Geometry& geometry) {
    osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array(osg::Array::BIND_PER_VERTEX);
    for (const osg::Vec3& p : dynamic_cast<const osg::Vec3Array&>(*geometry.getVertexArray())) {
        colors->push_back(osg::Vec4(0.5f + p.x() * 0.1f, 0.5f - p.y() * 0.1f, 0.5f + 0.5f * p.z(), 1.0f));
    }
    geometry.setColorArray(colors);
}

/** A texture of 64 by 64 pixels of which each has the colour that the function says for its place in 0 to 1. */
inline osg::ref_ptr<osg::Texture2D> makePainted(const std::function<osg::Vec4(const osg::Vec2&)>& colorAt) {
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(64, 64, 1, GL_RGBA, GL_UNSIGNED_BYTE);
    for (unsigned int y = 0; y < 64; ++y) {
        for (unsigned int x = 0; x < 64; ++x) {
            image->setColor(colorAt(osg::Vec2(static_cast<float>(x), static_cast<float>(y)) / 64.0f), x, y);
        }
    }
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(image);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::REPEAT);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::REPEAT);
    return texture;
}

/** Squares of two colours; the one is half transparent. */
inline osg::ref_ptr<osg::Texture2D> makeChecks() {
    return makePainted([](const osg::Vec2& p) {
        const bool isOdd = (p.x() < 0.5f) != (p.y() < 0.5f);
        return isOdd ? osg::Vec4(1.0f, 0.8f, 0.2f, 1.0f) : osg::Vec4(0.1f, 0.4f, 0.9f, 0.5f);
    });
}

/** From dark to light. */
inline osg::ref_ptr<osg::Texture2D> makeRamp() {
    return makePainted([](const osg::Vec2& p) { return osg::Vec4(p.x(), 1.0f, p.y(), 1.0f); });
}

/** An orange text with a state set of its own: texts of one font share theirs, even with those of earlier tests. */
inline osg::ref_ptr<osgText::Text> makeLabel(float characterSize, const osg::Vec3& position = osg::Vec3()) {
    osgText::Font::getDefaultFont()->getCachedStateSets().clear();
    osg::ref_ptr<osgText::Text> label = new osgText::Text;
    label->setText("Label");
    label->setColor(osg::Vec4(1.0f, 0.6f, 0.2f, 1.0f));
    label->setCharacterSize(characterSize);
    label->setAlignment(osgText::Text::CENTER_CENTER);
    label->setPosition(position);
    return label;
}

inline HillScene::HillScene() : hills(makeHills()) {
    geode->addDrawable(hills);
    root->addChild(geode);
    all.setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    osg::ref_ptr<osg::LightModel> noneFromAllSides = new osg::LightModel;
    noneFromAllSides->setAmbientIntensity(osg::Vec4(0, 0, 0, 1));
    all.setAttribute(noneFromAllSides);
}

inline osg::Light& HillScene::light(const osg::Vec4& position) {
    osg::ref_ptr<osg::Light> light = new osg::Light(0);
    light->setPosition(position);
    light->setAmbient(osg::Vec4(0.2f, 0.1f, 0.1f, 1.0f));
    light->setDiffuse(osg::Vec4(0.7f, 0.8f, 0.6f, 1.0f));
    light->setSpecular(osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
    root->addChild(new osg::LightSource);
    dynamic_cast<osg::LightSource&>(*root->getChild(root->getNumChildren() - 1)).setLight(light);
    all.setMode(GL_LIGHTING, osg::StateAttribute::ON);
    all.setMode(GL_LIGHT0, osg::StateAttribute::ON);
    return *light;
}

inline osg::Material& HillScene::material(osg::Material::ColorMode mode) {
    constexpr auto face = osg::Material::FRONT_AND_BACK;
    osg::ref_ptr<osg::Material> material = new osg::Material;
    material->setColorMode(mode);
    material->setAmbient(face, osg::Vec4(0.9f, 0.6f, 0.3f, 1.0f));
    material->setDiffuse(face, osg::Vec4(0.9f, 0.7f, 0.8f, 1.0f));
    material->setSpecular(face, osg::Vec4(0.0f, 0.0f, 0.0f, 1.0f));
    state.setAttribute(material);
    return *material;
}

}  // namespace testing_support
