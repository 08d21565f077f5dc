#include <sceneutils/ShaderGenerator.h>

#include <offscreen/SceneRenderer.h>

#include "support/OpenShaderGenerator.h"
#include "support/Pictures.h"
#include "support/ShadedScenes.h"
#include "support/ShaderGraphs.h"

#include <osg/AlphaFunc>
#include <osg/BlendFunc>
#include <osg/Fog>
#include <osg/MatrixTransform>
#include <osg/Point>
#include <osg/PointSprite>
#include <osg/ShadeModel>
#include <osg/TexEnv>
#include <osg/TexGen>
#include <osg/TexMat>
#include <osgText/Text>

#include <gmock/gmock.h>

#include <functional>
#include <iostream>
#include <string>

/**
 * The same scene, drawn by OpenGL's fixed functions and by the generated programs. Where the pictures differ, the name
 * of the test says why, and the mean absolute difference (of red, green and blue, 0 to 255) is held to what it was.
 */
namespace {

using testing_support::background;
using testing_support::colorVertices;
using testing_support::countColors;
using testing_support::differenceOf;
using testing_support::HillScene;
using testing_support::makeChecks;
using testing_support::makeLabel;
using testing_support::makeRamp;
using testing_support::OpenShaderGenerator;
using testing_support::partOtherThan;
using testing_support::PictureDifference;
using testing_support::ShownPictures;
using veltrane::sceneutils::offscreen::SceneRenderer;

const osg::Vec3d eye(0.0, -17.0, 12.0);
const osg::Vec4 pointLight(2.0f, -2.0f, 4.0f, 1.0f);
const osg::Vec4 directionalLight(0.4f, -0.3f, 0.8f, 0.0f);

/** What the programs are generated with, and how the scene is looked at. */
struct Way {
    bool lighting = false;
    bool fog = false;
    osg::Vec3d from = eye;
    osg::View::LightingMode lights = osg::View::NO_LIGHT;
    int programsBefore = 0;
};

const Way unlit{};
const Way lit{true};
const Way fogged{false, true};

using Edit = std::function<void(HillScene&)>;

/** Finds programs. */
class ProgramCount : public osg::NodeVisitor {
public:
    ProgramCount() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
    void apply(osg::Node& node) override {
        const osg::StateSet* state = node.getStateSet();
        if (state && state->getAttribute(osg::StateAttribute::PROGRAM)) ++count;
        traverse(node);
    }
    int count = 0;
};

int countPrograms(osg::Node& node) {
    ProgramCount visitor;
    node.accept(visitor);
    return visitor.count;
}

osg::ref_ptr<osg::Image> draw(osg::Node& scene, const Way& way) {
    SceneRenderer renderer(240, 160);
    renderer.viewer().setLightingMode(way.lights);
    renderer.setScene(&scene);
    renderer.setView(way.from, osg::Vec3d());
    return renderer.drawPicture();
}

/** Both pictures show something, in more than a few colours. */
void expectToShowSomething(const osg::Image& picture) {
    EXPECT_GT(countColors(picture), 20u);
    EXPECT_GT(partOtherThan(background, picture), 0.1);
}

PictureDifference compare(const std::string& name, const Way& way, const Edit& edit) {
    HillScene fixed;
    edit(fixed);
    HillScene shaded;
    edit(shaded);
    OpenShaderGenerator generator;
    generator.process(shaded.root, false, way.lighting, false, way.fog);
    EXPECT_EQ(countPrograms(*fixed.root), way.programsBefore);
    EXPECT_GE(countPrograms(*shaded.root), 2);

    ShownPictures shown("fidelity-" + name);
    const osg::ref_ptr<osg::Image> byFixed = shown.add(draw(*fixed.root, way));
    const osg::ref_ptr<osg::Image> byPrograms = shown.add(draw(*shaded.root, way));
    expectToShowSomething(*byFixed);
    const PictureDifference difference = differenceOf(*byFixed, *byPrograms);
    std::cout << name << ": " << difference << "\n";
    return difference;
}

/** Single pixels may be rounded to the next of 256 steps. */
void expectSame(const PictureDifference& difference) {
    EXPECT_LE(difference.largest, 1) << difference;
    EXPECT_LE(difference.mean, 0.01) << difference;
}

/** Drivers round differently: within a tenth. */
void expectMean(const PictureDifference& difference, double mean) {
    EXPECT_NEAR(difference.mean, mean, 0.1 * mean) << difference;
}

void setTextureEnvironment(HillScene& scene, osg::TexEnv::Mode mode) {
    scene.light(pointLight);
    scene.material();
    scene.state.setTextureAttributeAndModes(0, makeChecks());
    osg::ref_ptr<osg::TexEnv> environment = new osg::TexEnv(mode);
    environment->setColor(osg::Vec4(1.0f, 0.0f, 0.0f, 1.0f));
    scene.state.setTextureAttribute(0, environment);
}

void setFog(HillScene& scene, osg::Fog::Mode mode, const osg::Vec4& color) {
    osg::Light& light = scene.light(pointLight);
    light.setDiffuse(osg::Vec4(1, 1, 1, 1));
    scene.all.setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    osg::ref_ptr<osg::Fog> fog = new osg::Fog;
    fog->setMode(mode);
    fog->setDensity(0.05f);
    fog->setStart(10.0f);
    fog->setEnd(30.0f);
    fog->setColor(color);
    scene.all.setAttributeAndModes(fog);
    scene.all.addUniform(new osg::Uniform("fogDensity", 0.05f));
    scene.state.setTextureAttributeAndModes(0, makeChecks());
}

}  // namespace

TEST(ShaderFidelity, TexturedSurfacesAreTheSame) {
    expectSame(
        compare("textured", unlit, [](HillScene& scene) { scene.state.setTextureAttributeAndModes(0, makeChecks()); }));
}

TEST(ShaderFidelity, VertexColorsAreTheSame) {
    expectSame(compare("vertex-colors", unlit, [](HillScene& scene) { colorVertices(*scene.hills); }));
}

TEST(ShaderFidelity, TwoModulatedTexturesAreTheSame) {
    expectSame(compare("two-textures", unlit, [](HillScene& scene) {
        scene.state.setTextureAttributeAndModes(0, makeChecks());
        scene.state.setTextureAttributeAndModes(1, makeRamp());
    }));
}

TEST(ShaderFidelity, APointLightOnAMaterialIsTheSame) {
    expectSame(compare("point-light", lit, [](HillScene& scene) {
        scene.light(pointLight);
        scene.material();
    }));
}

TEST(ShaderFidelity, APointLightThatFadesIsTheSame) {
    expectSame(compare("point-light-fading", lit, [](HillScene& scene) {
        osg::Light& light = scene.light(pointLight);
        light.setConstantAttenuation(0.5f);
        light.setLinearAttenuation(0.05f);
        light.setQuadraticAttenuation(0.02f);
        scene.material();
    }));
}

TEST(ShaderFidelity, APointLightOnATexturedMaterialIsTheSame) {
    expectSame(compare("point-light-textured", lit, [](HillScene& scene) {
        scene.light(pointLight);
        scene.material();
        scene.state.setTextureAttributeAndModes(0, makeChecks());
    }));
}

TEST(ShaderFidelity, AScaledModelThatNormalizesIsTheSame) {
    expectSame(compare("scaled-normalized", lit, [](HillScene& scene) {
        scene.light(pointLight);
        scene.material();
        scene.all.setMode(GL_NORMALIZE, osg::StateAttribute::ON);
        const osg::ref_ptr<osg::MatrixTransform> half = new osg::MatrixTransform(osg::Matrix::scale(0.7, 0.7, 0.7));
        half->addChild(scene.geode);
        scene.root->setChild(0, half);
    }));
}

TEST(ShaderFidelity, AlphaTestsAreTheSame) {
    expectSame(compare("alpha-test", unlit, [](HillScene& scene) {
        scene.state.setTextureAttributeAndModes(0, makeChecks());
        scene.state.setAttributeAndModes(new osg::AlphaFunc(osg::AlphaFunc::GREATER, 0.7f));
    }));
}

TEST(ShaderFidelity, BlendedTexturesAreTheSame) {
    expectSame(compare("blended", unlit, [](HillScene& scene) {
        scene.state.setTextureAttributeAndModes(0, makeChecks());
        scene.state.setAttributeAndModes(new osg::BlendFunc);
    }));
}

TEST(ShaderFidelity, TextIsTheSame) {
    expectSame(compare("text", unlit, [](HillScene& scene) {
        const osg::ref_ptr<osgText::Text> label = makeLabel(4.0f, osg::Vec3(0, 0, 2));
        osg::StateSet& plain = *(new osg::StateSet);
        label->setStateSet(&plain);
        plain.setMode(GL_BLEND, osg::StateAttribute::ON);
        plain.setTextureMode(0, GL_TEXTURE_2D, osg::StateAttribute::ON);
        plain.setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
        scene.geode->addDrawable(label);
        colorVertices(*scene.hills);
    }));
}

TEST(ShaderFidelity, TextIsTheSameAsWithOpenSceneGraphsOwnProgram) {
    Way way = unlit;
    way.programsBefore = 1;
    expectSame(compare("text-own-program", way, [](HillScene& scene) {
        const osg::ref_ptr<osgText::Text> label = makeLabel(4.0f, osg::Vec3(0, 0, 2));
        scene.geode->addDrawable(label);
        colorVertices(*scene.hills);
    }));
}

TEST(ShaderFidelity, ADirectionalLightShinesFromAPointNextToTheEye) {
    expectMean(compare("directional-light", lit,
                       [](HillScene& scene) {
                           scene.light(directionalLight);
                           scene.material();
                       }),
               8.18);
}

TEST(ShaderFidelity, TheHeadlightShinesFromAPointBehindTheEye) {
    expectMean(compare("headlight", Way{true, false, eye, osg::View::HEADLIGHT},
                       [](HillScene& scene) {
                           scene.all.setMode(GL_LIGHTING, osg::StateAttribute::ON);
                           scene.material();
                       }),
               2.71);
}

TEST(ShaderFidelity, VertexColorsOfALitSurfaceMultiplyTheMaterialInsteadOfReplacingIt) {
    expectMean(compare("color-material", lit,
                       [](HillScene& scene) {
                           scene.light(pointLight);
                           scene.material(osg::Material::AMBIENT_AND_DIFFUSE);
                           colorVertices(*scene.hills);
                       }),
               5.43);
}

TEST(ShaderFidelity, VertexColorsOfALitTexturedSurfaceDoNotCount) {
    expectMean(compare("color-material-textured", lit,
                       [](HillScene& scene) {
                           scene.light(pointLight);
                           scene.material(osg::Material::AMBIENT_AND_DIFFUSE);
                           scene.state.setTextureAttributeAndModes(0, makeChecks());
                           colorVertices(*scene.hills);
                       }),
               8.99);
}

TEST(ShaderFidelity, VertexColorsOfATexturedSurfaceDoNotCount) {
    expectMean(compare("vertex-colors-textured", unlit,
                       [](HillScene& scene) {
                           scene.state.setTextureAttributeAndModes(0, makeChecks());
                           colorVertices(*scene.hills);
                       }),
               22.54);
}

TEST(ShaderFidelity, HighlightsAreOfShininess128AndDoNotMoveWithTheEye) {
    expectMean(compare("specular", lit,
                       [](HillScene& scene) {
                           scene.light(pointLight);
                           osg::Material& material = scene.material();
                           material.setSpecular(osg::Material::FRONT_AND_BACK, osg::Vec4(1, 1, 1, 1));
                           material.setShininess(osg::Material::FRONT_AND_BACK, 20.0f);
                       }),
               11.24);
}

TEST(ShaderFidelity, ASurfaceDoesNotGlow) {
    expectMean(compare("emission", lit,
                       [](HillScene& scene) {
                           scene.light(pointLight);
                           scene.material().setEmission(osg::Material::FRONT_AND_BACK, osg::Vec4(0.2f, 0.3f, 0.1f, 1));
                       }),
               17.28);
}

TEST(ShaderFidelity, LightFromAllSidesIsLeftOut) {
    expectMean(compare("light-from-all-sides", lit,
                       [](HillScene& scene) {
                           scene.light(pointLight);
                           scene.material();
                           scene.all.setAttribute(new osg::LightModel);
                       }),
               10.37);
}

TEST(ShaderFidelity, OnlyLight0Shines) {
    expectMean(compare("two-lights", lit,
                       [](HillScene& scene) {
                           scene.light(pointLight);
                           scene.light(osg::Vec4(-3.0f, 3.0f, 3.0f, 1.0f)).setLightNum(1);
                           scene.all.setMode(GL_LIGHT1, osg::StateAttribute::ON);
                           scene.material();
                       }),
               20.73);
}

TEST(ShaderFidelity, ASpotlightShinesAllAround) {
    expectMean(compare("spotlight", lit,
                       [](HillScene& scene) {
                           osg::Light& light = scene.light(pointLight);
                           light.setDirection(osg::Vec3(0, 0, -1));
                           light.setSpotCutoff(40.0f);
                           scene.material();
                       }),
               22.15);
}

TEST(ShaderFidelity, BackFacesAreLitAsTheirFronts) {
    expectMean(compare("two-sided-light", Way{true, false, osg::Vec3d(0.0, -17.0, -12.0)},
                       [](HillScene& scene) {
                           scene.light(osg::Vec4(2.0f, -2.0f, -4.0f, 1.0f));
                           scene.material();
                           const osg::ref_ptr<osg::LightModel> twoSided = new osg::LightModel;
                           twoSided->setAmbientIntensity(osg::Vec4(0, 0, 0, 1));
                           twoSided->setTwoSided(true);
                           scene.all.setAttribute(twoSided);
                       }),
               30.87);
}

TEST(ShaderFidelity, ASurfaceWithoutLightingIsLitWhenTheRunAsksForLighting) {
    expectMean(compare("lighting-off-in-the-state", lit,
                       [](HillScene& scene) {
                           scene.light(pointLight);
                           scene.material();
                           scene.state.setMode(GL_LIGHTING, osg::StateAttribute::OFF);
                           scene.state.setTextureAttributeAndModes(0, makeChecks());
                       }),
               27.33);
}

TEST(ShaderFidelity, ALitSurfaceIsNotLitWhenTheRunDoesNotAskForLighting) {
    expectMean(compare("lighting-not-asked-for", unlit,
                       [](HillScene& scene) {
                           scene.light(pointLight);
                           scene.material();
                           scene.state.setTextureAttributeAndModes(0, makeChecks());
                       }),
               27.33);
}

TEST(ShaderFidelity, NormalsOfAScaledModelAreNormalizedAlways) {
    expectMean(compare("scaled", lit,
                       [](HillScene& scene) {
                           scene.light(pointLight);
                           scene.material();
                           const osg::ref_ptr<osg::MatrixTransform> large =
                               new osg::MatrixTransform(osg::Matrix::scale(1.5, 1.5, 1.5));
                           large->addChild(scene.geode);
                           scene.root->setChild(0, large);
                       }),
               20.11);
}

TEST(ShaderFidelity, FlatShadingIsSmoothWhereLit) {
    expectMean(compare("flat-shading", lit,
                       [](HillScene& scene) {
                           scene.light(pointLight);
                           scene.material();
                           scene.all.setAttribute(new osg::ShadeModel(osg::ShadeModel::FLAT));
                       }),
               2.16);
}

TEST(ShaderFidelity, ATransparentLitSurfaceGetsItsTransparencyFromTheLightToo) {
    expectMean(compare("blended-lit", lit,
                       [](HillScene& scene) {
                           scene.light(pointLight);
                           scene.material().setAlpha(osg::Material::FRONT_AND_BACK, 0.5f);
                           scene.state.setAttributeAndModes(new osg::BlendFunc);
                       }),
               7.59);
}

TEST(ShaderFidelity, FogIsThinnerNearTheEye) {
    expectMean(
        compare("fog-exp2", fogged, [](HillScene& scene) { setFog(scene, osg::Fog::EXP2, osg::Vec4(1, 1, 1, 1)); }),
        13.23);
}

TEST(ShaderFidelity, LinearFogIsExponentialSquared) {
    expectMean(
        compare("fog-linear", fogged, [](HillScene& scene) { setFog(scene, osg::Fog::LINEAR, osg::Vec4(1, 1, 1, 1)); }),
        8.51);
}

TEST(ShaderFidelity, FogIsOfTheLightsColor) {
    expectMean(compare("fog-color", fogged,
                       [](HillScene& scene) { setFog(scene, osg::Fog::EXP2, osg::Vec4(0.2f, 0.3f, 0.6f, 1)); }),
               23.54);
}

TEST(ShaderFidelity, ReplacingTexturesAreMultiplied) {
    expectMean(
        compare("texenv-replace", lit, [](HillScene& scene) { setTextureEnvironment(scene, osg::TexEnv::REPLACE); }),
        27.33);
}

TEST(ShaderFidelity, DecalsAreMultiplied) {
    expectMean(compare("texenv-decal", lit, [](HillScene& scene) { setTextureEnvironment(scene, osg::TexEnv::DECAL); }),
               26.96);
}

TEST(ShaderFidelity, BlendingTexturesAreMultiplied) {
    expectMean(compare("texenv-blend", lit, [](HillScene& scene) { setTextureEnvironment(scene, osg::TexEnv::BLEND); }),
               25.26);
}

TEST(ShaderFidelity, AddedTexturesAreMultiplied) {
    expectMean(compare("texenv-add", lit, [](HillScene& scene) { setTextureEnvironment(scene, osg::TexEnv::ADD); }),
               51.63);
}

TEST(ShaderFidelity, TextureMatricesAreLeftOut) {
    expectMean(compare("texture-matrix", unlit,
                       [](HillScene& scene) {
                           scene.state.setTextureAttributeAndModes(0, makeChecks());
                           scene.state.setTextureAttribute(0, new osg::TexMat(osg::Matrix::scale(2.0, 3.0, 1.0)));
                       }),
               26.65);
}

TEST(ShaderFidelity, GeneratedTextureCoordinatesAreLeftOut) {
    expectMean(compare("generated-coordinates", unlit,
                       [](HillScene& scene) {
                           scene.state.setTextureAttributeAndModes(0, makeChecks());
                           osg::ref_ptr<osg::TexGen> planes = new osg::TexGen;
                           planes->setMode(osg::TexGen::OBJECT_LINEAR);
                           scene.state.setTextureAttributeAndModes(0, planes);
                       }),
               27.49);
}

TEST(ShaderFidelity, ATextureThatIsSwitchedOffIsDrawn) {
    expectMean(compare("texture-off", unlit,
                       [](HillScene& scene) {
                           colorVertices(*scene.hills);
                           scene.state.setTextureAttribute(0, makeChecks());
                           scene.state.setTextureMode(0, GL_TEXTURE_2D, osg::StateAttribute::OFF);
                       }),
               30.46);
}

TEST(ShaderFidelity, PointSpritesAreDrawnInTheMiddleOfThePicture) {
    expectMean(compare("point-sprites", unlit,
                       [](HillScene& scene) {
                           scene.hills->setPrimitiveSet(0, new osg::DrawArrays(GL_POINTS, 0, 33 * 33));
                           scene.state.setAttribute(new osg::Point(8.0f));
                           scene.state.setTextureAttributeAndModes(0, makeRamp());
                           scene.state.setTextureAttributeAndModes(0, new osg::PointSprite);
                       }),
               43.31);
}
