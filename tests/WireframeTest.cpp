#include <sceneutils/SceneUtils.h>

#include "support/Graphs.h"
#include "support/OsgMessages.h"
#include "support/StandardError.h"

#include <gmock/gmock.h>

#include <osg/CullFace>
#include <osg/LineWidth>
#include <osg/Material>
#include <osg/PolygonMode>
#include <osg/PolygonOffset>

#include <limits>
#include <map>
#include <stdexcept>
#include <utility>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using testing_support::makeTexture;
using testing_support::OsgMessages;
using testing_support::StandardError;
using veltrane::sceneutils::makeWireframe;

const osg::Vec4 yellow(1.0f, 0.75f, 0.25f, 0.5f);

osg::ref_ptr<osg::StateSet> makeWire(float offset = -1.5f) {
    osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    makeWireframe(state, yellow, offset);
    return state;
}

/** The attribute of that class; a test that lacks it ends by an exception. */
template <typename Attribute>
const Attribute& attributeOf(const osg::StateSet& state) {
    for (const auto& [key, entry] : state.getAttributeList()) {
        if (const auto* attribute = dynamic_cast<const Attribute*>(entry.first.get())) return *attribute;
    }
    throw std::runtime_error("no such attribute");
}

/** How strong each kind of attribute is there. */
std::map<osg::StateAttribute::Type, osg::StateAttribute::OverrideValue> strengthsIn(const osg::StateSet& state) {
    std::map<osg::StateAttribute::Type, osg::StateAttribute::OverrideValue> strengths;
    for (const auto& [key, entry] : state.getAttributeList()) strengths[key.first] = entry.second;
    return strengths;
}

/** What holds at a child with that state below a wireframe. */
osg::ref_ptr<osg::StateSet> belowWire(const osg::StateSet& child) {
    const osg::ref_ptr<osg::StateSet> state = makeWire();
    state->merge(child);
    return state;
}

MATCHER_P(OnBothFaces, color, "") {
    return arg(osg::Material::FRONT) == color && arg(osg::Material::BACK) == color;
}

}  // namespace

TEST(Wireframe, OffsetsPolygonsByFactorAndUnitsAlike) {
    for (const float offset : {-1.5f, 0.0f, 3e10f, std::numeric_limits<float>::infinity()}) {
        const osg::ref_ptr<osg::StateSet> state = makeWire(offset);

        EXPECT_EQ(attributeOf<osg::PolygonOffset>(*state).getFactor(), offset);
        EXPECT_EQ(attributeOf<osg::PolygonOffset>(*state).getUnits(), offset);
        EXPECT_EQ(state->getMode(GL_POLYGON_OFFSET_FILL), 3u);
    }
}

TEST(Wireframe, GlowsInTheColorAndReflectsNothing) {
    const osg::ref_ptr<osg::StateSet> state = makeWire();

    const auto& material = attributeOf<osg::Material>(*state);
    const osg::Vec4 black(0, 0, 0, 1);
    EXPECT_EQ(material.getColorMode(), osg::Material::OFF);
    EXPECT_THAT([&](auto face) { return material.getDiffuse(face); }, OnBothFaces(black));
    EXPECT_THAT([&](auto face) { return material.getAmbient(face); }, OnBothFaces(black));
    EXPECT_THAT([&](auto face) { return material.getSpecular(face); }, OnBothFaces(black));
    EXPECT_THAT([&](auto face) { return material.getEmission(face); }, OnBothFaces(yellow));
    EXPECT_TRUE(material.getDiffuseFrontAndBack() && material.getAmbientFrontAndBack() &&
                material.getSpecularFrontAndBack() && material.getEmissionFrontAndBack());
}

TEST(Wireframe, DrawsLinesTwoPixelsWideOnBothFaces) {
    const osg::ref_ptr<osg::StateSet> state = makeWire();

    EXPECT_EQ(attributeOf<osg::LineWidth>(*state).getWidth(), 2.0f);
    EXPECT_EQ(attributeOf<osg::PolygonMode>(*state).getMode(osg::PolygonMode::FRONT), osg::PolygonMode::LINE);
    EXPECT_EQ(attributeOf<osg::PolygonMode>(*state).getMode(osg::PolygonMode::BACK), osg::PolygonMode::LINE);
}

TEST(Wireframe, OverridesWithEveryAttribute) {
    // OpenSceneGraph keeps of an attribute's override value whether it overrides or is protected: of 3, 2.
    EXPECT_THAT(
        strengthsIn(*makeWire()),
        UnorderedElementsAre(Pair(osg::StateAttribute::POLYGONOFFSET, 2u), Pair(osg::StateAttribute::LINEWIDTH, 2u),
                             Pair(osg::StateAttribute::MATERIAL, 2u), Pair(osg::StateAttribute::POLYGONMODE, 2u)));
}

TEST(Wireframe, OverridesWithEveryMode) {
    const osg::ref_ptr<osg::StateSet> state = makeWire();

    EXPECT_THAT(state->getModeList(), UnorderedElementsAre(Pair(GL_POLYGON_OFFSET_FILL, 3u), Pair(GL_LIGHTING, 3u)));
    EXPECT_THAT(state->getTextureModeList(), ElementsAre(ElementsAre(Pair(GL_TEXTURE_2D, 2u))));
}

TEST(Wireframe, SetsNothingElse) {
    const osg::ref_ptr<osg::StateSet> state = makeWire();

    EXPECT_THAT(state->getTextureAttributeList(), IsEmpty());
    EXPECT_THAT(state->getUniformList(), IsEmpty());
    EXPECT_THAT(state->getDefineList(), IsEmpty());
    EXPECT_EQ(state->getRenderBinMode(), osg::StateSet::INHERIT_RENDERBIN_DETAILS);
    EXPECT_EQ(state->getRenderingHint(), osg::StateSet::DEFAULT_BIN);
    EXPECT_EQ(state->referenceCount(), 1);
    for (const auto& [key, entry] : state->getAttributeList()) EXPECT_EQ(entry.first->referenceCount(), 1);
}

TEST(Wireframe, ReplacesEachAttributeWhenMadeTwice) {
    const osg::ref_ptr<osg::StateSet> state = makeWire();
    const osg::StateSet::AttributeList first = state->getAttributeList();
    const auto strengths = strengthsIn(*state);

    makeWireframe(state, osg::Vec4(0, 0, 1, 1), 4.0f);

    EXPECT_EQ(strengthsIn(*state), strengths);
    for (const auto& [key, entry] : first) {
        EXPECT_NE(state->getAttribute(key.first), entry.first);
        EXPECT_EQ(entry.first->referenceCount(), 1);
        EXPECT_THAT(entry.first->getParents(), IsEmpty());
    }
    EXPECT_EQ(attributeOf<osg::PolygonOffset>(*state).getFactor(), 4.0f);
    EXPECT_EQ(attributeOf<osg::Material>(*state).getEmission(osg::Material::FRONT), osg::Vec4(0, 0, 1, 1));
}

TEST(Wireframe, KeepsTheModesWhenMadeTwice) {
    const osg::ref_ptr<osg::StateSet> state = makeWire();
    const osg::StateSet::ModeList modes = state->getModeList();
    const osg::StateSet::TextureModeList textureModes = state->getTextureModeList();

    makeWireframe(state, yellow, -1.5f);

    EXPECT_EQ(state->getModeList(), modes);
    EXPECT_EQ(state->getTextureModeList(), textureModes);
}

TEST(Wireframe, ReplacesWhatTheStateSetHadOfTheSameKind) {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    const osg::ref_ptr<osg::Material> material = new osg::Material;
    state->setAttributeAndModes(material, osg::StateAttribute::PROTECTED);
    state->setMode(GL_LIGHTING, osg::StateAttribute::PROTECTED);
    state->setTextureAttributeAndModes(0, makeTexture());

    makeWireframe(state, yellow, 0.0f);

    EXPECT_NE(state->getAttribute(osg::StateAttribute::MATERIAL), material);
    EXPECT_EQ(material->getEmission(osg::Material::FRONT), osg::Vec4(0, 0, 0, 1));
    EXPECT_EQ(strengthsIn(*state)[osg::StateAttribute::MATERIAL], 2u);
    EXPECT_EQ(state->getMode(GL_LIGHTING), 3u);
    EXPECT_EQ(state->getTextureMode(0, GL_TEXTURE_2D), 2u);
}

TEST(Wireframe, KeepsEverythingElseThere) {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    const osg::ref_ptr<osg::Texture> texture = makeTexture();
    state->setTextureAttributeAndModes(0, texture);
    state->setTextureAttributeAndModes(1, texture);
    state->setAttributeAndModes(new osg::CullFace);
    state->addUniform(new osg::Uniform("own", 1.0f));

    makeWireframe(state, yellow, 0.0f);

    EXPECT_EQ(state->getTextureAttribute(0, osg::StateAttribute::TEXTURE), texture);
    EXPECT_EQ(state->getTextureMode(1, GL_TEXTURE_2D), osg::StateAttribute::ON);
    EXPECT_EQ(state->getMode(GL_CULL_FACE), osg::StateAttribute::ON);
    EXPECT_EQ(strengthsIn(*state).size(), 5u);
    EXPECT_NE(state->getUniform("own"), nullptr);
}

TEST(Wireframe, HoldsForChildrenWithStateOfTheirOwn) {
    const osg::ref_ptr<osg::StateSet> child = new osg::StateSet;
    child->setTextureAttributeAndModes(0, makeTexture());
    child->setAttributeAndModes(new osg::Material);
    child->setAttributeAndModes(new osg::PolygonMode(osg::PolygonMode::FRONT_AND_BACK, osg::PolygonMode::FILL));
    child->setAttributeAndModes(new osg::LineWidth(7.0f));
    child->setAttributeAndModes(new osg::PolygonOffset(9.0f, 9.0f), osg::StateAttribute::OFF);
    child->setMode(GL_LIGHTING, osg::StateAttribute::OFF);

    const osg::ref_ptr<osg::StateSet> state = belowWire(*child);

    EXPECT_EQ(state->getTextureMode(0, GL_TEXTURE_2D), 2u);
    EXPECT_EQ(attributeOf<osg::Material>(*state).getEmission(osg::Material::FRONT), yellow);
    EXPECT_EQ(attributeOf<osg::PolygonMode>(*state).getMode(osg::PolygonMode::FRONT), osg::PolygonMode::LINE);
    EXPECT_EQ(attributeOf<osg::LineWidth>(*state).getWidth(), 2.0f);
    EXPECT_EQ(attributeOf<osg::PolygonOffset>(*state).getFactor(), -1.5f);
    EXPECT_EQ(state->getMode(GL_POLYGON_OFFSET_FILL), 3u);
    EXPECT_EQ(state->getMode(GL_LIGHTING), 3u);
}

TEST(Wireframe, IgnoresANullStateSetAndSaysNothing) {
    const StandardError standardError;
    const OsgMessages osgMessages;

    makeWireframe(nullptr, yellow, 1.0f);
    makeWire();

    EXPECT_EQ(standardError.text() + osgMessages.text(), "");
}
