#include <sceneutils/SceneUtils.h>

#include "support/Graphs.h"
#include "support/OsgMessages.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/TexEnv>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using testing_support::makeTexture;
using testing_support::OsgMessages;
using testing_support::StandardError;
using testing_support::TemporaryDirectory;
using veltrane::sceneutils::GetDirt;

constexpr double infinity = std::numeric_limits<double>::infinity();

osg::ref_ptr<osg::Program> makeProgram() {
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName("soil");
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, "uniform sampler2D ClayTex;\n"));
    return program;
}

/** What a soil sample is made from: every argument has a value of its own. */
struct Soil {
    osg::ref_ptr<osg::Texture> clay = makeTexture("clay.png");
    osg::ref_ptr<osg::Texture> silt = makeTexture("silt.png");
    osg::ref_ptr<osg::Texture> sand = makeTexture("sand.png");
    osg::ref_ptr<osg::Program> program = makeProgram();

    osg::ref_ptr<osg::Node> make(double height = 1.0) const {
        return GetDirt(height, clay, silt, sand, program, 0.125f, 22.5f, -3.0f, 1e30f, 0.1f);
    }
};

const osg::Geometry& moundOf(const osg::Node& node) {
    return *node.asGeode()->getDrawable(0)->asGeometry();
}

osg::ref_ptr<osg::Geometry> makeMound(double height) {
    const osg::ref_ptr<osg::Node> node = Soil().make(height);
    return node->asGeode()->getDrawable(0)->asGeometry();
}

template <typename Array, typename Element = typename Array::ElementDataType>
std::vector<Element> elementsOf(const osg::Array* array) {
    const auto& elements = dynamic_cast<const Array&>(*array);
    return {elements.begin(), elements.end()};
}

std::vector<osg::Vec3> verticesOf(const osg::Geometry& mound) {
    return elementsOf<osg::Vec3Array>(mound.getVertexArray());
}

std::vector<osg::Vec2> coordinatesOf(const osg::Geometry& mound) {
    return elementsOf<osg::Vec2Array>(mound.getTexCoordArray(0));
}

using Indices = std::vector<GLuint>;

std::vector<Indices> polygonsOf(const osg::Geometry& mound) {
    std::vector<Indices> polygons;
    for (const auto& set : mound.getPrimitiveSetList()) {
        const auto& polygon = dynamic_cast<const osg::DrawElementsUInt&>(*set);
        EXPECT_EQ(polygon.getMode(), static_cast<GLenum>(GL_POLYGON));
        polygons.emplace_back(polygon.begin(), polygon.end());
    }
    return polygons;
}

/** The z values in which mounds of different height differ. */
struct Levels {
    float farSide;
    float nearSide;
    float square;
    float diamond;
    float peak;
};

std::vector<osg::Vec3> expectedVertices(float farX, const Levels& z) {
    return {{farX, 29, z.farSide}, {30, 29, z.nearSide}, {30, 1.5f, z.nearSide}, {farX, 1.5f, z.farSide},
            {40, 15, z.diamond},   {50, 15, z.diamond},  {35, 25, z.square},     {55, 25, z.square},
            {35, 15, z.square},    {55, 15, z.square},   {35, 5, z.square},      {55, 5, z.square},
            {45, 25, z.square},    {45, 20, z.diamond},  {45, 15, z.peak},       {45, 10, z.diamond},
            {45, 5, z.square}};
}

using Strength = osg::StateAttribute::OverrideValue;
using Attribute = std::pair<const osg::StateAttribute*, Strength>;

/** The attributes there, by kind, and how strong they are. */
std::map<osg::StateAttribute::Type, Attribute> attributesIn(const osg::StateSet::AttributeList& list) {
    std::map<osg::StateAttribute::Type, Attribute> attributes;
    for (const auto& [key, entry] : list) attributes[key.first] = {entry.first, entry.second};
    return attributes;
}

std::string imageOf(const osg::StateSet& state, unsigned int unit) {
    const auto* texture = state.getTextureAttribute(unit, osg::StateAttribute::TEXTURE)->asTexture();
    return texture->getImage(0)->getFileName();
}

/** The uniforms' type, value and strength, by name. */
std::map<std::string, std::string> uniformsIn(const osg::StateSet& state) {
    std::map<std::string, std::string> uniforms;
    for (const auto& [name, entry] : state.getUniformList()) {
        const osg::Uniform& uniform = *entry.first;
        std::string text = osg::Uniform::getTypename(uniform.getType());
        if (uniform.getIntArray()) text += " " + std::to_string(uniform.getIntArray()->front());
        if (uniform.getFloatArray()) text += " " + std::to_string(uniform.getFloatArray()->front());
        uniforms[name] = text + " " + std::to_string(entry.second) + " x" + std::to_string(uniform.getNumElements());
    }
    return uniforms;
}

}  // namespace

TEST(SoilMaterial, IsAnEmptyNodeUnlessTheHeightIsGreaterThanZero) {
    for (const double height : {0.0, -0.0, -1.0, -1e-300, -infinity, std::nan("")}) {
        const Soil soil;

        const osg::ref_ptr<osg::Node> node = soil.make(height);

        ASSERT_NE(node, nullptr) << height;
        EXPECT_TRUE(typeid(*node) == typeid(osg::Node)) << height;
        EXPECT_EQ(node->getStateSet(), nullptr) << height;
        EXPECT_EQ(node->referenceCount(), 1) << height;
        EXPECT_EQ(soil.clay->referenceCount(), 1) << height;
        EXPECT_EQ(soil.program->referenceCount(), 1) << height;
    }
}

TEST(SoilMaterial, IsAGeodeOfOneGeometry) {
    const osg::ref_ptr<osg::Node> node = Soil().make();

    ASSERT_TRUE(typeid(*node) == typeid(osg::Geode));
    EXPECT_EQ(node->asGeode()->getNumDrawables(), 1u);
    const osg::Drawable& drawable = *node->asGeode()->getDrawable(0);
    EXPECT_TRUE(typeid(drawable) == typeid(osg::Geometry));
    EXPECT_EQ(drawable.getStateSet(), nullptr);
    EXPECT_EQ(node->getName(), "");
}

TEST(SoilMaterial, IsNewEachTime) {
    const Soil soil;

    const osg::ref_ptr<osg::Node> first = soil.make();
    const osg::ref_ptr<osg::Node> second = soil.make();

    EXPECT_NE(first, second);
    EXPECT_NE(&moundOf(*first), &moundOf(*second));
    EXPECT_NE(first->getStateSet(), second->getStateSet());
}

TEST(SoilMaterial, IsReferredToByNothing) {
    const Soil soil;

    osg::Node* node = GetDirt(1.0, soil.clay, soil.silt, soil.sand, soil.program, 1, 2, 3, 4, 5);

    EXPECT_EQ(node->referenceCount(), 0);
    EXPECT_EQ(node->getNumParents(), 0u);
    const osg::ref_ptr<osg::Node> held = node;
    EXPECT_EQ(node->getStateSet()->referenceCount(), 1);
    EXPECT_EQ(moundOf(*node).referenceCount(), 1);
    EXPECT_EQ(moundOf(*node).getVertexArray()->referenceCount(), 1);
    EXPECT_EQ(moundOf(*node).getTexCoordArray(0)->referenceCount(), 1);
}

TEST(SoilMaterial, AloneHoldsTexturesAndProgramAfterReturning) {
    const Soil soil;

    osg::ref_ptr<osg::Node> node = soil.make();

    for (const osg::StateAttribute* attribute :
         {static_cast<osg::StateAttribute*>(soil.clay), static_cast<osg::StateAttribute*>(soil.silt),
          static_cast<osg::StateAttribute*>(soil.sand), static_cast<osg::StateAttribute*>(soil.program)}) {
        EXPECT_EQ(attribute->referenceCount(), 2);
        EXPECT_THAT(attribute->getParents(), ElementsAre(node->getStateSet()));
    }
    node = nullptr;
    EXPECT_EQ(soil.clay->referenceCount(), 1);
    EXPECT_EQ(soil.program->referenceCount(), 1);
}

TEST(SoilMaterial, HasSeventeenVerticesThatRiseWithTheHeight) {
    EXPECT_EQ(verticesOf(*makeMound(1.0)), expectedVertices(63, {23, 20, 31, 35, 39}));
    EXPECT_EQ(verticesOf(*makeMound(2.5)), expectedVertices(63, {35, 32, 61, 71, 81}));
    EXPECT_EQ(verticesOf(*makeMound(0.125)), expectedVertices(60, {13, 13, 13.5f, 14, 14.5f}));
}

TEST(SoilMaterial, ComputesInDoublePrecision) {
    // In single precision some levels of the last three come to other values.
    EXPECT_EQ(verticesOf(*makeMound(0.1)), expectedVertices(60, {12.8f, 12.8f, 13.0f, 13.4f, 13.8f}));
    EXPECT_EQ(verticesOf(*makeMound(0.3)), expectedVertices(63, {17.4f, 14.4f, 17.0f, 18.2f, 19.4f}));
    EXPECT_EQ(verticesOf(*makeMound(0.6)), expectedVertices(63, {19.8f, 16.8f, 23.0f, 25.4f, 27.8f}));
    EXPECT_EQ(verticesOf(*makeMound(1000.1)), expectedVertices(63, {8015.8f, 8012.8f, 20013.0f, 24013.4f, 28013.8f}));
}

TEST(SoilMaterial, IsNarrowUpToTheHeightOfThreeSixteenths) {
    EXPECT_EQ(verticesOf(*makeMound(0.1875)), expectedVertices(60, {13.5f, 13.5f, 14.75f, 15.5f, 16.25f}));
    EXPECT_EQ(verticesOf(*makeMound(std::nextafter(0.1875, 0))),
              expectedVertices(60, {13.5f, 13.5f, 14.75f, 15.5f, 16.25f}));
}

TEST(SoilMaterial, IsWiderAndHigherAtTheFarSideAboveThat) {
    EXPECT_EQ(verticesOf(*makeMound(std::nextafter(0.1875, 1))),
              expectedVertices(63, {16.5f, 13.5f, 14.75f, 15.5f, 16.25f}));
}

TEST(SoilMaterial, TakesEveryHeightAboveZero) {
    EXPECT_EQ(verticesOf(*makeMound(std::numeric_limits<double>::denorm_min())),
              expectedVertices(60, {12, 12, 11, 11, 11}));
    EXPECT_EQ(verticesOf(*makeMound(std::ldexp(1.0, 100))),
              expectedVertices(63, {std::ldexp(8.0f, 100), std::ldexp(8.0f, 100), std::ldexp(20.0f, 100),
                                    std::ldexp(24.0f, 100), std::ldexp(28.0f, 100)}));
    const float infinite = std::numeric_limits<float>::infinity();
    EXPECT_EQ(verticesOf(*makeMound(infinity)),
              expectedVertices(63, {infinite, infinite, infinite, infinite, infinite}));
}

TEST(SoilMaterial, LaysTheTexturesOverThePlan) {
    const std::vector<osg::Vec2> inside = {{11 / 30.f, 14 / 30.f}, {21 / 30.f, 14 / 30.f}, {6 / 30.f, 24 / 30.f},
                                           {26 / 30.f, 24 / 30.f}, {6 / 30.f, 14 / 30.f},  {26 / 30.f, 14 / 30.f},
                                           {6 / 30.f, 4 / 30.f},   {26 / 30.f, 4 / 30.f},  {16 / 30.f, 24 / 30.f},
                                           {16 / 30.f, 19 / 30.f}, {16 / 30.f, 14 / 30.f}, {16 / 30.f, 9 / 30.f},
                                           {16 / 30.f, 4 / 30.f}};
    std::vector<osg::Vec2> narrow = {
        {31 / 30.f, 28 / 30.f}, {1 / 30.f, 28 / 30.f}, {1 / 30.f, 0.5f / 30.f}, {31 / 30.f, 0.5f / 30.f}};
    std::vector<osg::Vec2> wide = {
        {34 / 30.f, 28 / 30.f}, {1 / 30.f, 28 / 30.f}, {1 / 30.f, 0.5f / 30.f}, {34 / 30.f, 0.5f / 30.f}};
    narrow.insert(narrow.end(), inside.begin(), inside.end());
    wide.insert(wide.end(), inside.begin(), inside.end());

    EXPECT_EQ(coordinatesOf(*makeMound(0.1875)), narrow);
    EXPECT_EQ(coordinatesOf(*makeMound(1.0)), wide);
    EXPECT_EQ(coordinatesOf(*makeMound(infinity)), wide);
}

TEST(SoilMaterial, HasATextureCoordinateAndNothingElseAtEachVertex) {
    const osg::ref_ptr<osg::Geometry> mound = makeMound(1.0);

    EXPECT_EQ(mound->getVertexArray()->getBinding(), osg::Array::BIND_PER_VERTEX);
    EXPECT_EQ(mound->getNumTexCoordArrays(), 1u);
    EXPECT_EQ(mound->getTexCoordArray(0)->getBinding(), osg::Array::BIND_PER_VERTEX);
    EXPECT_EQ(mound->getColorArray(), nullptr);
    EXPECT_EQ(mound->getSecondaryColorArray(), nullptr);
    EXPECT_EQ(mound->getNormalArray(), nullptr);
    EXPECT_EQ(mound->getFogCoordArray(), nullptr);
    EXPECT_EQ(mound->getNumVertexAttribArrays(), 0u);
}

TEST(SoilMaterial, HasTenPolygons) {
    EXPECT_THAT(polygonsOf(*makeMound(1.0)),
                ElementsAre(Indices{2, 10, 6, 1}, Indices{3, 11, 10, 2}, Indices{3, 0, 7, 11}, Indices{6, 7, 0, 1},
                            Indices{8, 4, 13, 12, 6}, Indices{16, 15, 4, 8, 10}, Indices{5, 9, 7, 12, 13},
                            Indices{11, 9, 5, 15, 16}, Indices{15, 14, 13, 4}, Indices{5, 13, 14, 15}));
}

TEST(SoilMaterial, PutsEachTextureOnItsUnitUnderOneEnvironment) {
    const Soil soil;
    const osg::ref_ptr<osg::Node> node = soil.make();
    const auto& units = node->getStateSet()->getTextureAttributeList();

    ASSERT_EQ(units.size(), 3u);
    const auto* texEnv = dynamic_cast<const osg::TexEnv*>(attributesIn(units[0])[osg::StateAttribute::TEXENV].first);
    ASSERT_NE(texEnv, nullptr);
    EXPECT_EQ(texEnv->getMode(), osg::TexEnv::MODULATE);
    EXPECT_EQ(texEnv->referenceCount(), 3);
    const auto expected = [&](const osg::Texture* texture) {
        return ElementsAre(Pair(osg::StateAttribute::TEXTURE, Attribute(texture, 0)),
                           Pair(osg::StateAttribute::TEXENV, Attribute(texEnv, 0)));
    };
    EXPECT_THAT(attributesIn(units[0]), expected(soil.clay));
    EXPECT_THAT(attributesIn(units[1]), expected(soil.silt));
    EXPECT_THAT(attributesIn(units[2]), expected(soil.sand));
}

TEST(SoilMaterial, SwitchesTheTexturesOn) {
    const osg::ref_ptr<osg::Node> node = Soil().make();

    const auto on = ElementsAre(Pair(GL_TEXTURE_2D, osg::StateAttribute::ON));
    EXPECT_THAT(node->getStateSet()->getTextureModeList(), ElementsAre(on, on, on));
}

TEST(SoilMaterial, SwitchesLightingOffProtected) {
    const osg::ref_ptr<osg::Node> node = Soil().make();

    EXPECT_THAT(node->getStateSet()->getModeList(), ElementsAre(Pair(GL_LIGHTING, 4u)));
}

TEST(SoilMaterial, IsDrawnByTheProgram) {
    const Soil soil;
    const osg::ref_ptr<osg::Node> node = soil.make();

    EXPECT_THAT(attributesIn(node->getStateSet()->getAttributeList()),
                ElementsAre(Pair(osg::StateAttribute::PROGRAM, Attribute(soil.program, 0))));
    EXPECT_EQ(soil.program->getNumShaders(), 1u);
}

TEST(SoilMaterial, TellsTheProgramWhatTheSoilIsMadeOf) {
    const osg::ref_ptr<osg::Node> node = Soil().make();

    // OpenSceneGraph keeps of a uniform's override value whether it overrides or is protected: of ON, 0.
    EXPECT_THAT(uniformsIn(*node->getStateSet()),
                UnorderedElementsAre(
                    Pair("clayPercentage", "float 0.125000 0 x1"), Pair("siltPercentage", "float 22.500000 0 x1"),
                    Pair("sandPercentage", "float -3.000000 0 x1"),
                    Pair("waterVolumePercentage", "float " + std::to_string(1e30f) + " 0 x1"),
                    Pair("frozenPercentage", "float " + std::to_string(0.1f) + " 0 x1"), Pair("ClayTex", "int 0 0 x1"),
                    Pair("SiltTex", "int 1 0 x1"), Pair("SandTex", "int 2 0 x1")));
}

TEST(SoilMaterial, MakesTheUniformsInOrder) {
    const osg::ref_ptr<osg::Node> node = Soil().make();

    std::vector<unsigned int> ids;  // ascending in the order in which the names first came up
    for (const char* name : {"clayPercentage", "siltPercentage", "sandPercentage", "waterVolumePercentage",
                             "frozenPercentage", "ClayTex", "SiltTex", "SandTex"}) {
        ids.push_back(node->getStateSet()->getUniform(name)->getNameID());
    }
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end())) << testing::PrintToString(ids);
}

TEST(SoilMaterial, LeavesTheRestOfItsStateAlone) {
    const osg::ref_ptr<osg::Node> node = Soil().make();

    const osg::StateSet& state = *node->getStateSet();
    EXPECT_EQ(state.getRenderBinMode(), osg::StateSet::INHERIT_RENDERBIN_DETAILS);
    EXPECT_EQ(state.getRenderingHint(), osg::StateSet::DEFAULT_BIN);
    EXPECT_THAT(state.getDefineList(), IsEmpty());
    EXPECT_THAT(state.getParents(), ElementsAre(node));
}

TEST(SoilMaterial, LeavesOutWhatIsNull) {
    const StandardError standardError;
    const OsgMessages osgMessages;
    const Soil soil;

    const osg::ref_ptr<osg::Node> bare = GetDirt(1.0, nullptr, nullptr, nullptr, nullptr, 1, 2, 3, 4, 5);
    const osg::ref_ptr<osg::Node> siltOnly = GetDirt(1.0, nullptr, soil.silt, nullptr, nullptr, 1, 2, 3, 4, 5);

    const auto texEnv = ElementsAre(Pair(osg::StateAttribute::TEXENV, testing::_));
    for (const auto& unit : bare->getStateSet()->getTextureAttributeList()) EXPECT_THAT(attributesIn(unit), texEnv);
    EXPECT_THAT(bare->getStateSet()->getTextureModeList(), IsEmpty());
    EXPECT_THAT(bare->getStateSet()->getAttributeList(), IsEmpty());
    EXPECT_EQ(bare->getStateSet()->getUniformList().size(), 8u);
    EXPECT_EQ(moundOf(*bare).getNumPrimitiveSets(), 10u);
    EXPECT_EQ(siltOnly->getStateSet()->getTextureAttribute(1, osg::StateAttribute::TEXTURE), soil.silt);
    EXPECT_EQ(siltOnly->getStateSet()->getTextureAttribute(0, osg::StateAttribute::TEXTURE), nullptr);
    EXPECT_EQ(standardError.text() + osgMessages.text(), "");
}

TEST(SoilMaterial, MayHaveOneTextureOnAllUnits) {
    Soil soil;
    soil.silt = soil.sand = soil.clay;

    const osg::ref_ptr<osg::Node> node = soil.make();

    for (const unsigned int unit : {0u, 1u, 2u}) {
        EXPECT_EQ(node->getStateSet()->getTextureAttribute(unit, osg::StateAttribute::TEXTURE), soil.clay);
    }
}

TEST(SoilMaterial, SaysNothing) {
    const StandardError standardError;
    const OsgMessages osgMessages;

    Soil().make();
    Soil().make(-1.0);

    EXPECT_EQ(standardError.text() + osgMessages.text(), "");
}

class SoilMaterialInAFile : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        const TemporaryDirectory directory;
        const std::string path = directory / (std::string("soil.") + GetParam());
        ASSERT_TRUE(osgDB::writeNodeFile(*written, path));
        read = osgDB::readRefNodeFile(path);
        ASSERT_NE(read, nullptr);
    }

    osg::ref_ptr<osg::Node> written = Soil().make(0.3);
    osg::ref_ptr<osg::Node> read;
};

TEST_P(SoilMaterialInAFile, KeepsItsShape) {
    EXPECT_EQ(verticesOf(moundOf(*read)), verticesOf(moundOf(*written)));
    EXPECT_EQ(coordinatesOf(moundOf(*read)), coordinatesOf(moundOf(*written)));
    EXPECT_EQ(polygonsOf(moundOf(*read)), polygonsOf(moundOf(*written)));
    EXPECT_EQ(moundOf(*read).getNormalArray(), nullptr);
    EXPECT_EQ(moundOf(*read).getColorArray(), nullptr);
}

TEST_P(SoilMaterialInAFile, KeepsItsState) {
    const osg::StateSet& state = *read->getStateSet();

    EXPECT_EQ(uniformsIn(state), uniformsIn(*written->getStateSet()));
    EXPECT_EQ(state.getModeList(), written->getStateSet()->getModeList());
    EXPECT_EQ(state.getTextureModeList(), written->getStateSet()->getTextureModeList());
    EXPECT_EQ(imageOf(state, 0), "clay.png");
    EXPECT_EQ(imageOf(state, 1), "silt.png");
    EXPECT_EQ(imageOf(state, 2), "sand.png");
    EXPECT_EQ(state.getTextureAttribute(0, osg::StateAttribute::TEXENV)->getNumParents(), 3u);
    const auto* program = dynamic_cast<const osg::Program*>(state.getAttribute(osg::StateAttribute::PROGRAM));
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(program->getName(), "soil");
    EXPECT_EQ(program->getShader(0)->getShaderSource(), "uniform sampler2D ClayTex;\n");
}

INSTANTIATE_TEST_SUITE_P(Format, SoilMaterialInAFile, testing::Values("ive", "osgb"),
                         [](const auto& format) { return std::string(format.param); });
