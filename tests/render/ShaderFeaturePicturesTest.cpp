#include <offscreen/SceneRenderer.h>

#include "support/OpenShaderGenerator.h"
#include "support/Pictures.h"
#include "support/ShadedScenes.h"
#include "support/ShaderGraphs.h"

#include <osg/Point>
#include <osg/PointSprite>
#include <osg/TexGenNode>
#include <osgText/Text>

#include <gmock/gmock.h>

#include <cmath>
#include <string>

/** What the features of the generated programs look like. */
namespace {

using testing_support::addInt;
using testing_support::background;
using testing_support::centerOf;
using testing_support::countColors;
using testing_support::differenceOf;
using testing_support::HillScene;
using testing_support::makeChecks;
using testing_support::makeLabel;
using testing_support::makePainted;
using testing_support::makeRamp;
using testing_support::OpenShaderGenerator;
using testing_support::partOtherThan;
using testing_support::pixelAt;
using testing_support::Rgb;
using testing_support::ShownPictures;
using veltrane::sceneutils::offscreen::SceneRenderer;

constexpr int size = 120;
constexpr int rounding = 2;  // of 256 steps

/** A flat square of 10 by 10 units, seen from straight above: x is to the right and y up. */
struct PlateScene : HillScene {
    PlateScene() {
        hills = osg::createTexturedQuadGeometry(osg::Vec3(-5, -5, 0), osg::Vec3(10, 0, 0), osg::Vec3(0, 10, 0));
        setColor(osg::Vec4(1, 1, 1, 1));
        for (unsigned int unit = 1; unit < 4; ++unit) hills->setTexCoordArray(unit, hills->getTexCoordArray(0));
        geode->setDrawable(0, hills);
    }

    void setColor(const osg::Vec4& color) {
        osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array(osg::Array::BIND_OVERALL);
        colors->push_back(color);
        hills->setColorArray(colors);
    }

    /** Lights it from far away, as much as that on all of it. */
    osg::Light& lightFrom(const osg::Vec3& direction) {
        osg::Light& sun = light(osg::Vec4(direction * 10000.0f, 1.0f));
        sun.setAmbient(osg::Vec4(0, 0, 0, 1));
        sun.setDiffuse(osg::Vec4(1, 1, 1, 1));
        sun.setSpecular(osg::Vec4(0, 0, 0, 1));
        return sun;
    }

    /** Hangs a normal map on unit 1: the same direction everywhere. */
    void setNormalMap(const osg::Vec3& normal) {
        const osg::Vec3 half = normal * 0.5f + osg::Vec3(0.5f, 0.5f, 0.5f);
        state.setTextureAttributeAndModes(1, makePainted([&](const osg::Vec2&) { return osg::Vec4(half, 1.0f); }));
        addInt(state, "NormalMapTex", 1);
    }
};

struct Features {
    bool lighting = false;
    bool normalMapping = false;
    bool fog = false;
    int shadowUnit = -1;
};

osg::ref_ptr<osg::Image> draw(HillScene& scene, const Features& features, ShownPictures& shown) {
    OpenShaderGenerator generator(features.shadowUnit);
    generator.process(scene.geode, features.shadowUnit >= 0, features.lighting, features.normalMapping, features.fog);
    SceneRenderer renderer(size, size);
    renderer.viewer().setLightingMode(osg::View::NO_LIGHT);
    renderer.setScene(scene.root);
    renderer.setView(osg::Vec3d(0, 0, 22), osg::Vec3d());
    return shown.add(renderer.drawPicture());
}

void expectNear(const Rgb& color, const Rgb& expected) {
    for (std::size_t i = 0; i < color.size(); ++i) EXPECT_NEAR(color[i], expected[i], rounding) << i;
}

/** A shadow map whose western half lies before everything, and its eastern half behind. */
osg::ref_ptr<osg::Texture2D> makeShadowMap() {
    osg::ref_ptr<osg::Image> depths = new osg::Image;
    depths->allocateImage(2, 1, 1, GL_DEPTH_COMPONENT, GL_FLOAT);
    reinterpret_cast<float*>(depths->data())[0] = 0.0f;
    reinterpret_cast<float*>(depths->data())[1] = 1.0f;
    osg::ref_ptr<osg::Texture2D> map = new osg::Texture2D(depths);
    map->setInternalFormat(GL_DEPTH_COMPONENT);
    map->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    map->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    map->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    map->setShadowComparison(true);
    return map;
}

/** Lays the shadow map on unit 3 over the plate, from above the graph that is shaded. */
void setShadow(PlateScene& scene) {
    const osg::ref_ptr<osg::TexGenNode> planes = new osg::TexGenNode;
    planes->setTextureUnit(3);
    osg::TexGen& coordinates = *planes->getTexGen();
    coordinates.setMode(osg::TexGen::EYE_LINEAR);
    coordinates.setPlane(osg::TexGen::S, osg::Plane(0.1, 0.0, 0.0, 0.5));
    coordinates.setPlane(osg::TexGen::T, osg::Plane(0.0, 0.0, 0.0, 0.5));
    coordinates.setPlane(osg::TexGen::R, osg::Plane(0.0, 0.0, 0.0, 0.5));
    coordinates.setPlane(osg::TexGen::Q, osg::Plane(0.0, 0.0, 0.0, 1.0));
    scene.root->addChild(planes);
    scene.all.setTextureAttributeAndModes(3, makeShadowMap());
}

void setFog(PlateScene& scene, float density) {
    scene.lightFrom(osg::Vec3(0, 0, 1)).setDiffuse(osg::Vec4(0.8f, 0.6f, 0.4f, 1.0f));
    scene.setColor(osg::Vec4(0.0f, 0.0f, 1.0f, 1.0f));
    scene.all.addUniform(new osg::Uniform("fogDensity", density));
}

bool hasPixel(const osg::Image& picture, const Rgb& color) {
    bool isFound = false;
    testing_support::forEachPixel(picture, [&](int x, int y) { isFound = isFound || pixelAt(picture, x, y) == color; });
    return isFound;
}

void makePointSprite(PlateScene& scene) {
    scene.hills->setPrimitiveSet(0, new osg::DrawArrays(GL_POINTS, 0, 4));
    scene.state.setAttribute(new osg::Point(40.0f));
    scene.state.setTextureAttributeAndModes(0, makeRamp());
    scene.state.setTextureAttributeAndModes(0, new osg::PointSprite);
}

}  // namespace

// The tangent of a surface that faces up runs to the west, and its binormal to the south.
TEST(ShaderFeaturePictures, ANormalMapTiltsTheSurfaceInTheLight) {
    ShownPictures shown("feature-normal-map");
    const auto brightness = [&](const osg::Vec3& lightFrom, const osg::Vec3& normal) {
        PlateScene scene;
        scene.lightFrom(lightFrom);
        scene.setNormalMap(normal);
        return centerOf(*draw(scene, {true, true}, shown))[0];
    };
    const float slope = std::sqrt(0.5f);
    const osg::Vec3 fromEast(slope, 0, slope);
    const osg::Vec3 fromNorth(0, slope, slope);

    EXPECT_NEAR(brightness(fromEast, osg::Vec3(0, 0, 1)), 180, rounding);
    EXPECT_NEAR(brightness(fromEast, osg::Vec3(-slope, 0, slope)), 255, rounding);
    EXPECT_NEAR(brightness(fromEast, osg::Vec3(slope, 0, slope)), 0, rounding);
    EXPECT_NEAR(brightness(fromNorth, osg::Vec3(0, -slope, slope)), 255, rounding);
    EXPECT_NEAR(brightness(fromNorth, osg::Vec3(0, slope, slope)), 0, rounding);
}

TEST(ShaderFeaturePictures, ANormalMapBringsOutRelief) {
    ShownPictures shown("feature-relief");
    const auto colors = [&](float steepness) {
        PlateScene scene;
        scene.lightFrom(osg::Vec3(0.6f, 0.0f, 0.8f));
        scene.setNormalMap(osg::Vec3(0, 0, 1));
        scene.state.setTextureAttributeAndModes(1, makePainted([&](const osg::Vec2& p) {
                                                    osg::Vec3 normal(steepness * std::sin(p.x() * 20.0f),
                                                                     steepness * std::sin(p.y() * 20.0f), 1.0f);
                                                    normal.normalize();
                                                    return osg::Vec4(normal * 0.5f + osg::Vec3(0.5f, 0.5f, 0.5f), 1.0f);
                                                }));
        return countColors(*draw(scene, {true, true}, shown));
    };

    EXPECT_LE(colors(0.0f), 8u);
    EXPECT_GT(colors(1.0f), 100u);
}

TEST(ShaderFeaturePictures, ANormalMapIsNoColor) {
    ShownPictures shown("feature-normal-map-not-asked-for");
    PlateScene scene;
    scene.setNormalMap(osg::Vec3(0, 0, 1));

    EXPECT_EQ(centerOf(*draw(scene, {false, false}, shown)), (Rgb{255, 255, 255}));
}

TEST(ShaderFeaturePictures, ASpecularMapIsNoColorAndChangesNothing) {
    ShownPictures shown("feature-specular-map");
    const auto drawWith = [&](bool hasMap, bool isDeclared) {
        PlateScene scene;
        scene.state.setTextureAttributeAndModes(0, makeChecks());
        if (hasMap) scene.state.setTextureAttributeAndModes(2, makeRamp());
        if (isDeclared) addInt(scene.state, "SpecMapTex", 2);
        return draw(scene, {}, shown);
    };

    const osg::ref_ptr<osg::Image> without = drawWith(false, false);

    EXPECT_EQ(differenceOf(*without, *drawWith(true, true)).pixels, 0);
    EXPECT_GT(differenceOf(*without, *drawWith(true, false)).pixels, 1000);
}

TEST(ShaderFeaturePictures, AnOverlayChangesNothing) {
    ShownPictures shown("feature-overlay");
    const auto drawWith = [&](bool isDeclared) {
        PlateScene scene;
        scene.state.setTextureAttributeAndModes(0, makeChecks());
        if (isDeclared) {
            addInt(scene.state, "OverlayTex", 3);
            setShadow(scene);
        }
        return draw(scene, {}, shown);
    };

    EXPECT_EQ(differenceOf(*drawWith(false), *drawWith(true)).pixels, 0);
}

TEST(ShaderFeaturePictures, AnOverlayTextureInTheGraphItselfIsABaseTextureToo) {
    ShownPictures shown("feature-overlay-as-base");
    PlateScene scene;
    scene.state.setTextureAttributeAndModes(
        3, makePainted([](const osg::Vec2&) { return osg::Vec4(0.0f, 0.4f, 0.0f, 1.0f); }));
    addInt(scene.state, "OverlayTex", 3);

    expectNear(centerOf(*draw(scene, {}, shown)), Rgb{0, 102, 0});
}

TEST(ShaderFeaturePictures, AShadowMapDarkensWhatLiesInShadowAndBrightensTheRest) {
    ShownPictures shown("feature-shadow");
    PlateScene scene;
    scene.setColor(osg::Vec4(0.5f, 0.25f, 0.125f, 1.0f));
    setShadow(scene);

    const osg::ref_ptr<osg::Image> picture = draw(scene, {false, false, false, 3}, shown);

    expectNear(pixelAt(*picture, size / 2 - 20, size / 2), Rgb{115, 57, 29});   // 0.9 of its colour
    expectNear(pixelAt(*picture, size / 2 + 20, size / 2), Rgb{242, 121, 61});  // 1.9 of it
}

TEST(ShaderFeaturePictures, AShadowMapChangesNothingInARunWithoutShadow) {
    ShownPictures shown("feature-shadow-not-asked-for");
    PlateScene scene;
    scene.setColor(osg::Vec4(0.5f, 0.25f, 0.125f, 1.0f));
    setShadow(scene);

    const osg::ref_ptr<osg::Image> picture = draw(scene, {}, shown);

    EXPECT_EQ(pixelAt(*picture, size / 2 - 20, size / 2), pixelAt(*picture, size / 2 + 20, size / 2));
    expectNear(centerOf(*picture), Rgb{128, 64, 32});
}

TEST(ShaderFeaturePictures, FogThickensWithItsDensityToTheColorOfTheLight) {
    ShownPictures shown("feature-fog");
    const auto colorAt = [&](float density) {
        PlateScene scene;
        setFog(scene, density);
        return centerOf(*draw(scene, {false, false, true}, shown));
    };

    expectNear(colorAt(0.0f), Rgb{0, 0, 255});
    const Rgb thin = colorAt(0.05f);
    const Rgb thick = colorAt(0.1f);
    expectNear(colorAt(10.0f), Rgb{204, 153, 102});
    EXPECT_GT(thin[0], 10);
    EXPECT_GT(thick[0], thin[0] + 10);
    EXPECT_LT(thick[0], 190);
    EXPECT_LT(thick[2], thin[2] - 10);
}

TEST(ShaderFeaturePictures, SunUniformsTakeThePlaceOfTheLightsColors) {
    ShownPictures shown("feature-sun");
    const auto colorUnder = [&](const osg::Vec4& ambient, const osg::Vec4& diffuse, const osg::Vec4& specular) {
        PlateScene scene;
        scene.lightFrom(osg::Vec3(std::sqrt(0.75f), 0.0f, 0.5f));
        constexpr auto face = osg::Material::FRONT_AND_BACK;
        osg::Material& material = scene.material();
        material.setAmbient(face, osg::Vec4(1, 1, 1, 1));
        material.setDiffuse(face, osg::Vec4(1, 1, 1, 1));
        material.setSpecular(face, osg::Vec4(1, 1, 1, 1));
        scene.state.addUniform(new osg::Uniform("SunAmbient", ambient));
        scene.state.addUniform(new osg::Uniform("SunDiffuse", diffuse));
        scene.state.addUniform(new osg::Uniform("SunSpecular", specular));
        return centerOf(*draw(scene, {true}, shown));
    };
    const osg::Vec4 black(0, 0, 0, 1);

    expectNear(colorUnder(osg::Vec4(0.4f, 0.0f, 0.2f, 1.0f), black, black), Rgb{102, 0, 51});
    expectNear(colorUnder(black, osg::Vec4(0.0f, 1.0f, 0.4f, 1.0f), black), Rgb{0, 128, 51});
    expectNear(colorUnder(black, black, osg::Vec4(1, 1, 1, 1)), Rgb{0, 0, 0});  // no highlight at that angle
}

TEST(ShaderFeaturePictures, SunUniformsMakeSmallHighlightsWhereTheSunStandsAboveTheSurface) {
    ShownPictures shown("feature-sun-highlight");
    const auto colorUnderSunAt = [&](float cosine) {
        PlateScene scene;
        scene.lightFrom(osg::Vec3(std::sqrt(1.0f - cosine * cosine), 0.0f, cosine));
        scene.material().setSpecular(osg::Material::FRONT_AND_BACK, osg::Vec4(1, 1, 1, 1));
        scene.state.addUniform(new osg::Uniform("SunAmbient", osg::Vec4(0, 0, 0, 1)));
        scene.state.addUniform(new osg::Uniform("SunDiffuse", osg::Vec4(0, 0, 0, 1)));
        scene.state.addUniform(new osg::Uniform("SunSpecular", osg::Vec4(0.2f, 0.6f, 1.0f, 1.0f)));
        return centerOf(*draw(scene, {true}, shown));
    };

    expectNear(colorUnderSunAt(1.0f), Rgb{51, 153, 255});
    expectNear(colorUnderSunAt(0.99f), Rgb{14, 42, 70});  // 0.99 to the power of 128 is 0.276
}

TEST(ShaderFeaturePictures, TextStaysReadable) {
    ShownPictures shown("feature-text");
    PlateScene scene;
    scene.geode->setDrawable(0, makeLabel(3.0f));
    EXPECT_EQ(testing_support::programName(scene.geode->getDrawable(0)->getStateSet()), "");

    const osg::ref_ptr<osg::Image> picture = draw(scene, {}, shown);

    EXPECT_EQ(testing_support::programName(scene.geode->getDrawable(0)->getStateSet()), "shader_t0_text");
    EXPECT_GT(partOtherThan(background, *picture), 0.02);
    EXPECT_LT(partOtherThan(background, *picture), 0.25);
    EXPECT_TRUE(hasPixel(*picture, Rgb{255, 153, 51}));
}

TEST(ShaderFeaturePictures, TextIsLitWhereTheRunAsksForLighting) {
    ShownPictures shown("feature-text-lit");
    PlateScene scene;
    scene.geode->setDrawable(0, makeLabel(3.0f));
    scene.lightFrom(osg::Vec3(0, 0, 1)).setDiffuse(osg::Vec4(0.0f, 1.0f, 0.0f, 1.0f));
    osg::Material& material = scene.material();
    material.setDiffuse(osg::Material::FRONT_AND_BACK, osg::Vec4(1, 1, 1, 1));

    const osg::ref_ptr<osg::Image> picture = draw(scene, {true}, shown);

    EXPECT_TRUE(hasPixel(*picture, Rgb{0, 153, 0}));
    EXPECT_FALSE(hasPixel(*picture, Rgb{255, 153, 51}));
}

TEST(ShaderFeaturePictures, APointSpriteShowsItsTextureInTheMiddleOfThePicture) {
    ShownPictures shown("feature-point-sprite");
    PlateScene scene;
    makePointSprite(scene);

    const osg::ref_ptr<osg::Image> picture = draw(scene, {}, shown);

    EXPECT_NEAR(partOtherThan(background, *picture), 40.0 * 40.0 / (size * size), 0.02);
    EXPECT_EQ(pixelAt(*picture, size / 2 - 25, size / 2), background);
    EXPECT_EQ(pixelAt(*picture, size / 2, size / 2 + 25), background);
    const Rgb left = pixelAt(*picture, size / 2 - 15, size / 2);
    const Rgb right = pixelAt(*picture, size / 2 + 15, size / 2);
    const Rgb top = pixelAt(*picture, size / 2, size / 2 + 15);
    const Rgb bottom = pixelAt(*picture, size / 2, size / 2 - 15);
    EXPECT_NEAR(right[0] - left[0], 255 * 30 / 40, 12);
    EXPECT_NEAR(bottom[2] - top[2], 255 * 30 / 40, 12);  // point coordinates begin at the upper left
}

TEST(ShaderFeaturePictures, APointSpriteTakesItsVertexColor) {
    ShownPictures shown("feature-point-sprite-color");
    PlateScene scene;
    makePointSprite(scene);
    scene.setColor(osg::Vec4(0.0f, 0.5f, 0.0f, 1.0f));

    expectNear(centerOf(*draw(scene, {}, shown)), Rgb{0, 128, 0});
}
