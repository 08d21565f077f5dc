#include <sceneutils/ShaderGenerator.h>

#include "support/ExpectedShaders.h"
#include "support/Graphs.h"
#include "support/OpenShaderGenerator.h"
#include "support/OsgMessages.h"
#include "support/ShaderCombinations.h"
#include "support/ShaderGraphs.h"
#include "support/StandardError.h"

#include <gmock/gmock.h>

#include <osg/Billboard>
#include <osg/LOD>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/Switch>
#include <osgText/Text3D>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::Pair;
using testing::UnorderedElementsAre;
using testing_support::addInt;
using testing_support::addSun;
using testing_support::Combination;
using testing_support::expectedRecord;
using testing_support::expectedVertexText;
using testing_support::intUniforms;
using testing_support::makeGeode;
using testing_support::makeGroup;
using testing_support::makeSquare;
using testing_support::makeSquareWith;
using testing_support::makeState;
using testing_support::makeText;
using testing_support::makeTexture;
using testing_support::makeTexturedState;
using testing_support::OpenShaderGenerator;
using testing_support::OsgMessages;
using testing_support::programName;
using testing_support::programOf;
using testing_support::ShadedState;
using testing_support::sourceOf;
using testing_support::StandardError;
using veltrane::sceneutils::ShaderFeatures;
using veltrane::sceneutils::ShaderGenerator;

constexpr osg::Material::Face bothFaces = osg::Material::FRONT_AND_BACK;
const osg::Vec4 black(0.0f, 0.0f, 0.0f, 1.0f);
const osg::Vec4 white(1.0f, 1.0f, 1.0f, 1.0f);

/** Runs with nothing switched on. */
void processPlain(ShaderGenerator& generator, osg::Node* node, osg::Group* parent = nullptr) {
    generator.process(node, parent, false, false, false, false);
}

/** The name that a state set below a root gets when nothing is switched on. */
std::string plainNameOf(osg::StateSet* state) {
    OpenShaderGenerator generator;
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(state));
    processPlain(generator, root);
    return programName(state);
}

/** A texture attribute that is no texture. */
class NoTexture : public osg::StateAttribute {
public:
    NoTexture() = default;
    NoTexture(const NoTexture& other, const osg::CopyOp& copyop) : osg::StateAttribute(other, copyop) {}
    META_StateAttribute(test, NoTexture, TEXTURE);
    bool isTextureAttribute() const override { return true; }
    int compare(const osg::StateAttribute& other) const override { return this == &other ? 0 : 1; }
};

/** Counts how often a run on a geode is met in the middle of another thread's. */
class OverlapCounter : public OpenShaderGenerator {
public:
    std::atomic<int> overlaps{0};

private:
    void applyStateSet(osg::StateSet* own, osg::StateSet* accumulated, osg::Drawable* drawable) override {
        const std::thread::id running = _running;
        if (running != std::thread::id() && running != std::this_thread::get_id()) ++overlaps;
        _running = drawable ? std::this_thread::get_id() : std::thread::id();  // the root ends a run
        std::this_thread::yield();
        OpenShaderGenerator::applyStateSet(own, accumulated, drawable);
    }

    std::atomic<std::thread::id> _running{std::thread::id()};
};

/** Geodes of four drawables each, with a texture on unit 0, 1, 2 and 3. */
std::vector<osg::ref_ptr<osg::Geode>> makeGeodesWithFourTextures(std::size_t count) {
    std::vector<osg::ref_ptr<osg::Geode>> geodes(count);
    for (auto& geode : geodes) {
        geode = new osg::Geode;
        for (unsigned int unit = 0; unit < 4; ++unit) geode->addDrawable(makeSquareWith(makeTexturedState({unit})));
    }
    return geodes;
}

struct Colors {
    osg::Vec4 ambient;
    osg::Vec4 diffuse;
    bool operator==(const Colors& other) const { return ambient == other.ambient && diffuse == other.diffuse; }
};

std::ostream& operator<<(std::ostream& out, const Colors& colors) {
    const auto print = [&out](const osg::Vec4& c) { out << c.r() << " " << c.g() << " " << c.b() << " " << c.a(); };
    out << "ambient ";
    print(colors.ambient);
    out << ", diffuse ";
    print(colors.diffuse);
    return out;
}

osg::ref_ptr<osg::Material> makeMaterial(osg::Material::ColorMode mode, const osg::Vec4& ambient,
                                         const osg::Vec4& diffuse) {
    osg::ref_ptr<osg::Material> material = new osg::Material;
    material->setColorMode(mode);
    material->setAmbient(bothFaces, ambient);
    material->setDiffuse(bothFaces, diffuse);
    material->setSpecular(bothFaces, black);
    material->setEmission(bothFaces, black);
    return material;
}

Colors colorsOf(const osg::Material& material, osg::Material::Face face = osg::Material::FRONT) {
    return {material.getAmbient(face), material.getDiffuse(face)};
}

Colors colorsAfterRun(osg::Material::ColorMode mode, const osg::Vec4& ambient, const osg::Vec4& diffuse) {
    const osg::ref_ptr<osg::Material> material = makeMaterial(mode, ambient, diffuse);
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    root->getOrCreateStateSet()->setAttribute(material);
    OpenShaderGenerator generator;
    processPlain(generator, root);
    EXPECT_EQ(colorsOf(*material, osg::Material::BACK), colorsOf(*material));
    EXPECT_EQ(material->getSpecular(osg::Material::FRONT), black);
    EXPECT_EQ(material->getEmission(osg::Material::FRONT), black);
    EXPECT_EQ(material->getColorMode(), mode);
    return colorsOf(*material);
}

/** What classifying a state set with that uniform once writes, to standard error and through osg::notify. */
std::string complaintsAbout(osg::Uniform* uniform, const std::string& expectedName = "shader_t") {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->addUniform(uniform);
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(state));
    OpenShaderGenerator generator;
    const StandardError standardError;
    const OsgMessages osgMessages;
    generator.process(root, false, false, true, false);
    EXPECT_EQ(programName(state), expectedName);
    return standardError.text() + osgMessages.text();
}

osg::ref_ptr<osg::Uniform> makeIntUniform(osg::Uniform::Type type, const std::string& name, int value) {
    osg::ref_ptr<osg::Uniform> uniform = new osg::Uniform(type, name);
    uniform->set(value);
    return uniform;
}

std::string unreadableUniformLines(const std::string& type, const std::string& elements) {
    return "Unable to get the texture unit\ntype = " + type + "\nget num internal = " + elements + "\n";
}

}  // namespace

TEST(ShaderGenerator, ClassifiesStateSetsFromTheTopAndTheRootOnceMoreAtTheEnd) {
    const osg::ref_ptr<osg::Geometry> first = makeSquareWith(new osg::StateSet);
    const osg::ref_ptr<osg::Geometry> last = makeSquareWith(new osg::StateSet);
    const osg::ref_ptr<osg::Geode> geode = makeGeode(first);
    geode->setStateSet(new osg::StateSet);
    geode->addDrawable(makeSquare());
    geode->addDrawable(last);
    const osg::ref_ptr<osg::Geometry> loose = makeSquareWith(new osg::StateSet);
    const osg::ref_ptr<osg::Group> inner = makeGroup(new osg::StateSet, geode);
    const osg::ref_ptr<osg::Group> root = makeGroup(new osg::StateSet, inner);
    root->addChild(makeGroup(nullptr, loose));
    OpenShaderGenerator generator;

    processPlain(generator, root);

    EXPECT_THAT(generator.classified,
                ElementsAre(root->getStateSet(), inner->getStateSet(), geode->getStateSet(), first->getStateSet(),
                            last->getStateSet(), loose->getStateSet(), root->getStateSet()));
    EXPECT_THAT(generator.drawables,
                ElementsAre(nullptr, nullptr, nullptr, first.get(), last.get(), loose.get(), nullptr));
}

TEST(ShaderGenerator, ReachesNodesOfEveryType) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    const std::vector<osg::ref_ptr<osg::Node>> nodes{new osg::Node, new osg::LOD, new osg::MatrixTransform,
                                                     new osg::Geode, new osg::Billboard};
    for (const auto& node : nodes) {
        node->setStateSet(new osg::StateSet);
        root->addChild(node);
    }

    OpenShaderGenerator generator;
    processPlain(generator, root);

    for (const auto& node : nodes) EXPECT_EQ(programName(node->getStateSet()), "shader_t") << node->className();
}

TEST(ShaderGenerator, ReachesChildrenThatAreSwitchedOff) {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    const osg::ref_ptr<osg::Switch> root = new osg::Switch;
    root->addChild(makeGroup(state), false);

    OpenShaderGenerator generator;
    processPlain(generator, root);

    EXPECT_EQ(programName(state), "shader_t");
}

TEST(ShaderGenerator, LeavesWhatANodeMaskHidesButClassifiesAHiddenRoot) {
    const osg::ref_ptr<osg::StateSet> hidden = new osg::StateSet;
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(hidden));
    root->setNodeMask(0);

    OpenShaderGenerator generator;
    processPlain(generator, root);

    EXPECT_EQ(programName(hidden), "(none)");
    EXPECT_EQ(programName(root->getStateSet()), "shader_t");
}

TEST(ShaderGenerator, CreatesNoStateSetsBelowTheRoot) {
    const osg::ref_ptr<osg::Geometry> square = makeSquare();
    const osg::ref_ptr<osg::Geode> geode = makeGeode(square);
    const osg::ref_ptr<osg::Geometry> loose = makeSquare();
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, geode);
    root->addChild(loose);

    OpenShaderGenerator generator;
    processPlain(generator, root);

    EXPECT_EQ(square->getStateSet(), nullptr);
    EXPECT_EQ(geode->getStateSet(), nullptr);
    EXPECT_EQ(loose->getStateSet(), nullptr);
    EXPECT_EQ(programName(root->getStateSet()), "shader_t");
}

TEST(ShaderGenerator, ShadesAnEmptyGeode) {
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->setStateSet(makeTexturedState({1}));

    OpenShaderGenerator generator;
    processPlain(generator, makeGroup(nullptr, geode).get());

    EXPECT_EQ(programName(geode->getStateSet()), "shader_t1");
}

TEST(ShaderGenerator, DoesNotDescendBelowAGeode) {
    const osg::ref_ptr<osg::StateSet> nested = new osg::StateSet;
    const osg::ref_ptr<osg::StateSet> drawn = makeTexturedState({0});
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addChild(makeGroup(nested));
    geode->addChild(makeSquareWith(drawn));

    OpenShaderGenerator generator;
    processPlain(generator, makeGroup(nullptr, geode).get());

    EXPECT_EQ(programName(nested), "(none)");
    EXPECT_EQ(programName(drawn), "shader_t0");
    EXPECT_EQ(std::count(generator.classified.begin(), generator.classified.end(), drawn.get()), 1);
}

TEST(ShaderGenerator, CountsTheDrawablesOfAGeodeAnewAfterEach) {
    class DrawableRemover : public OpenShaderGenerator {
    public:
        osg::ref_ptr<osg::Geode> geode;

    private:
        void applyStateSet(osg::StateSet* own, osg::StateSet* accumulated, osg::Drawable* drawable) override {
            OpenShaderGenerator::applyStateSet(own, accumulated, drawable);
            if (drawable && geode->getNumDrawables() > 2) geode->removeDrawables(2, 1);
        }
    };
    const osg::ref_ptr<osg::StateSet> removed = new osg::StateSet;
    DrawableRemover generator;
    generator.geode = makeGeode(makeSquareWith(new osg::StateSet));
    generator.geode->addDrawable(makeSquareWith(new osg::StateSet));
    generator.geode->addDrawable(makeSquareWith(removed));

    processPlain(generator, makeGroup(nullptr, generator.geode).get());

    EXPECT_EQ(generator.classified.size(), 3u);
    EXPECT_EQ(programName(removed), "(none)");
}

TEST(ShaderGenerator, KeepsAGeodesStateFromItsSiblings) {
    const osg::ref_ptr<osg::Geode> geode = makeGeode(makeSquareWith(makeTexturedState({1})));
    geode->setStateSet(makeTexturedState({0}));
    const osg::ref_ptr<osg::StateSet> sibling = makeTexturedState({2});
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, geode);
    root->addChild(makeGroup(sibling));

    OpenShaderGenerator generator;
    processPlain(generator, root);

    EXPECT_EQ(programName(geode->getDrawable(0)->getStateSet()), "shader_t01");
    EXPECT_EQ(programName(sibling), "shader_t2");
}

TEST(ShaderGenerator, KeepsADrawablesStateFromTheNextDrawable) {
    const osg::ref_ptr<osg::StateSet> next = makeTexturedState({1});
    const osg::ref_ptr<osg::Geode> geode = makeGeode(makeSquareWith(makeTexturedState({0})));
    geode->addDrawable(makeSquareWith(next));

    OpenShaderGenerator generator;
    processPlain(generator, geode);

    EXPECT_EQ(programName(next), "shader_t1");
}

TEST(ShaderGenerator, AccumulatesStateDownAPathAndDropsItOnTheWayUp) {
    const osg::ref_ptr<osg::StateSet> deep = makeTexturedState({2});
    const osg::ref_ptr<osg::StateSet> beside = makeTexturedState({3});
    const osg::ref_ptr<osg::Group> stateless = makeGroup(nullptr, makeGroup(deep));
    const osg::ref_ptr<osg::Group> root =
        makeGroup(makeTexturedState({0}), makeGroup(makeTexturedState({1}), stateless));
    root->addChild(makeGroup(beside));

    OpenShaderGenerator generator;
    processPlain(generator, root);

    EXPECT_EQ(programName(deep), "shader_t012");
    EXPECT_EQ(programName(beside), "shader_t03");
}

TEST(ShaderGenerator, LeavesASharedStateSetWithTheLastPathsProgramAndAllPathsUniforms) {
    const osg::ref_ptr<osg::StateSet> shared = makeTexturedState({0});
    const osg::ref_ptr<osg::Node> leaf = makeGroup(shared);
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(makeTexturedState({1}), leaf));
    root->addChild(makeGroup(makeTexturedState({2}), leaf));

    OpenShaderGenerator generator;
    processPlain(generator, root);

    EXPECT_EQ(programName(shared), "shader_t02");
    EXPECT_THAT(intUniforms(*shared),
                UnorderedElementsAre(Pair("BaseTexture0", 0), Pair("BaseTexture1", 1), Pair("BaseTexture2", 2)));
}

TEST(ShaderGenerator, IgnoresANullNode) {
    OpenShaderGenerator generator(3);
    const osg::ref_ptr<osg::Group> root = new osg::Group;

    generator.process(nullptr, false, true, true, true);
    generator.process(nullptr, root, false, true, true, true);
    EXPECT_TRUE(generator.classified.empty());

    generator.process(root, true, false, false, false);
    EXPECT_EQ(programName(root->getStateSet()), "shader_t_shadow3");
}

TEST(ShaderGenerator, RecognisesATextDirectlyBelowAGroup) {
    const osg::ref_ptr<osgText::Text> text = makeText(makeTexturedState({3}));

    OpenShaderGenerator generator;
    processPlain(generator, makeGroup(makeTexturedState({1}), text).get());

    EXPECT_EQ(programName(text->getStateSet()), "shader_t0_text");
    EXPECT_THAT(intUniforms(*text->getStateSet()), ElementsAre(Pair("BaseTexture0", 0)));
}

TEST(ShaderGenerator, RecognisesAPointSpriteDirectlyBelowAGroup) {
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0});
    state->setTextureAttribute(0, new osg::PointSprite);

    OpenShaderGenerator generator;
    processPlain(generator, makeGroup(nullptr, makeSquareWith(state)).get());

    EXPECT_EQ(programName(state), "shader_t0_ps");
}

TEST(ShaderGenerator, TakesATextAsTheRootForAnyNodeInTheEnd) {
    const osg::ref_ptr<osgText::Text> text = makeText(makeTexturedState({3}));

    OpenShaderGenerator generator;
    processPlain(generator, text);

    EXPECT_EQ(programName(text->getStateSet()), "shader_t3");
    EXPECT_THAT(intUniforms(*text->getStateSet()), ElementsAre(Pair("BaseTexture0", 0), Pair("BaseTexture3", 3)));
}

TEST(ShaderGenerator, TakesSubclassesOfTextForText) {
    class Label : public osgText::Text {};
    const osg::ref_ptr<osg::Drawable> label = new Label;
    label->setStateSet(new osg::StateSet);

    OpenShaderGenerator generator;
    processPlain(generator, makeGeode(label).get());

    EXPECT_EQ(programName(label->getStateSet()), "shader_t0_text");
}

TEST(ShaderGenerator, TakesText3DForAnyDrawable) {
    const osg::ref_ptr<osg::Drawable> text = new osgText::Text3D;
    text->setStateSet(makeTexturedState({3}));

    OpenShaderGenerator generator;
    processPlain(generator, makeGeode(text).get());

    EXPECT_EQ(programName(text->getStateSet()), "shader_t3");
}

TEST(ShaderGenerator, ReplacesTheProgramThatTextsBringAlong) {
    const osg::ref_ptr<osgText::Text> text = new osgText::Text;
    ASSERT_NE(text->getStateSet(), nullptr);

    OpenShaderGenerator generator;
    processPlain(generator, makeGeode(text).get());

    EXPECT_EQ(programName(text->getStateSet()), "shader_t0_text");
}

TEST(ShaderGenerator, IgnoresPointSpritesAndTexturesForAText) {
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({1, 2});
    state->setTextureAttribute(1, new osg::PointSprite);
    addInt(*state, "NormalMapTex", 0);

    OpenShaderGenerator generator;
    generator.process(makeGeode(makeText(state)).get(), false, false, true, false);

    EXPECT_EQ(programName(state), "shader_t0_nm0_text");
}

TEST(ShaderGenerator, InheritsAPointSpriteOnAnyUnit) {
    const osg::ref_ptr<osg::StateSet> above = new osg::StateSet;
    above->setTextureAttribute(9, new osg::PointSprite);
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0});

    OpenShaderGenerator generator;
    processPlain(generator, makeGroup(above, makeGroup(state)).get());

    EXPECT_EQ(programName(state), "shader_t0_ps");
}

TEST(ShaderGenerator, FindsAPointSpriteOnTheUnitsOfNormalAndSpecularMaps) {
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0, 1});
    state->setTextureAttribute(1, new osg::PointSprite);
    addInt(*state, "NormalMapTex", 1);

    EXPECT_EQ(plainNameOf(state), "shader_t0_ps");
}

TEST(ShaderGenerator, InheritsFromTheParentsFirstPathOnly) {
    const osg::ref_ptr<osg::Group> parent = makeGroup(makeTexturedState({2}));
    const osg::ref_ptr<osg::Group> middle = makeGroup(nullptr, parent);
    const osg::ref_ptr<osg::Group> first = makeGroup(makeTexturedState({1}), middle);
    const osg::ref_ptr<osg::Group> second = makeGroup(makeTexturedState({3}), parent);
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0});
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(state));

    OpenShaderGenerator generator;
    processPlain(generator, root, parent);

    EXPECT_EQ(programName(state), "shader_t012");
    EXPECT_EQ(programName(parent->getStateSet()), "(none)");
    EXPECT_EQ(programName(first->getStateSet()), "(none)");
}

TEST(ShaderGenerator, ClassifiesTheRootByItselfInTheEndAndKeepsTheFirstUniforms) {
    const osg::ref_ptr<osg::Group> parent = makeGroup(makeTexturedState({1}));
    addSun(*parent->getStateSet());
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0});

    OpenShaderGenerator generator;
    processPlain(generator, makeGroup(state).get(), parent);

    EXPECT_EQ(programName(state), "shader_t0");
    EXPECT_THAT(intUniforms(*state), UnorderedElementsAre(Pair("BaseTexture0", 0), Pair("BaseTexture1", 1)));
    ASSERT_EQ(generator.records.size(), 2u);
    EXPECT_EQ(generator.records[0].name, "shader_t01");
    EXPECT_TRUE(generator.records[0].sunUniforms);
    EXPECT_FALSE(generator.records[1].sunUniforms);
}

TEST(ShaderGenerator, GivesARootWithoutStateTheProgramForNoState) {
    const osg::ref_ptr<osg::Group> parent = makeGroup(makeTexturedState({1}));
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(makeTexturedState({0})));

    OpenShaderGenerator generator;
    processPlain(generator, root, parent);

    EXPECT_EQ(programName(root->getStateSet()), "shader_t");
    EXPECT_TRUE(root->getStateSet()->getUniformList().empty());
    EXPECT_EQ(generator.classified.size(), 2u);
}

TEST(ShaderGenerator, ForgetsTheParentAfterTheRun) {
    const osg::ref_ptr<osg::Group> parent = makeGroup(makeTexturedState({1}));
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0});
    OpenShaderGenerator generator;
    processPlain(generator, makeGroup(nullptr).get(), parent);

    processPlain(generator, makeGroup(nullptr, makeGroup(state)).get());

    EXPECT_EQ(programName(state), "shader_t0");
}

TEST(ShaderGenerator, WorksForAWalkStartedOutsideARun) {
    const osg::ref_ptr<osg::Group> root = makeGroup(makeTexturedState({0}), makeGroup(makeTexturedState({1})));

    OpenShaderGenerator generator;
    root->accept(generator);

    EXPECT_EQ(programName(root->getStateSet()), "shader_t0");
    EXPECT_EQ(programName(root->getChild(0)->getStateSet()), "shader_t01");
    EXPECT_EQ(generator.classified.size(), 2u);
}

TEST(ShaderGenerator, TakesNormalAndSpecularMapsFromTheStateSetAloneAndOverlayAndSunFromAbove) {
    const osg::ref_ptr<osg::StateSet> above = makeTexturedState({0, 1, 2, 4});
    addInt(*above, "NormalMapTex", 1);
    addInt(*above, "SpecMapTex", 2);
    addInt(*above, "OverlayTex", 4);
    addSun(*above);
    const osg::ref_ptr<osg::StateSet> below = new osg::StateSet;
    OpenShaderGenerator generator;

    generator.process(makeGroup(nullptr, makeGroup(above, makeGroup(below))).get(), false, true, true, false);

    EXPECT_EQ(programName(above), "shader_t04_nm1_sm2_overlay4_lighting");
    EXPECT_EQ(programName(below), "shader_t0124_overlay4_lighting");
    EXPECT_TRUE(generator.records[1].sunUniforms);
}

TEST(ShaderGenerator, ListsOverlayAndShadowUnitsThatCarryATexture) {
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0, 3, 4});
    addInt(*state, "OverlayTex", 4);
    OpenShaderGenerator generator(3);

    generator.process(makeGroup(state).get(), true, false, false, false);

    EXPECT_EQ(programName(state), "shader_t034_shadow3_overlay4");
}

TEST(ShaderGenerator, LeavesTheNormalMapUnitOutOfTheBaseTexturesEvenWithNormalMappingOff) {
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0, 1});
    addInt(*state, "NormalMapTex", 1);

    EXPECT_EQ(plainNameOf(state), "shader_t0");
}

TEST(ShaderGenerator, WritesNegativeUnitsAsTheyAreExceptMinusOne) {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    addInt(*state, "NormalMapTex", -1);
    addInt(*state, "SpecMapTex", -2);
    addInt(*state, "OverlayTex", -3);

    EXPECT_EQ(plainNameOf(state), "shader_t_sm-2_overlay-3");
}

TEST(ShaderGenerator, ListsUnitsInAscendingOrderHoweverHigh) {
    EXPECT_EQ(plainNameOf(makeTexturedState({70, 8, 63, 64, 0})), "shader_t08636470");
}

TEST(ShaderGenerator, TellsSetsOfHighUnitsApart) {
    const osg::ref_ptr<osg::StateSet> few = makeTexturedState({64, 133});
    const osg::ref_ptr<osg::StateSet> many = makeTexturedState({128, 129, 130, 131, 132, 133});
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(few));
    root->addChild(makeGroup(many));

    OpenShaderGenerator().process(root, false, false, false, false);

    EXPECT_EQ(programName(few), "shader_t64133");
    EXPECT_EQ(programName(many), "shader_t128129130131132133");
}

TEST(ShaderGenerator, CountsATextureWhoseModeIsOff) {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->setTextureAttributeAndModes(1, makeTexture(), osg::StateAttribute::OFF);

    EXPECT_EQ(plainNameOf(state), "shader_t1");
}

TEST(ShaderGenerator, CountsTexturesOnlyAmongTextureAttributes) {
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0});
    state->setTextureAttribute(1, new NoTexture);

    EXPECT_EQ(plainNameOf(state), "shader_t0");
}

TEST(ShaderGenerator, FollowsOverrideAndProtectedForInheritedUniforms) {
    const auto overlayName = [](osg::StateAttribute::OverrideValue above, osg::StateAttribute::OverrideValue below) {
        const osg::ref_ptr<osg::StateSet> upper = new osg::StateSet;
        addInt(*upper, "OverlayTex", 5, above);
        const osg::ref_ptr<osg::StateSet> lower = new osg::StateSet;
        addInt(*lower, "OverlayTex", 6, below);
        OpenShaderGenerator generator;
        processPlain(generator, makeGroup(nullptr, makeGroup(upper, makeGroup(lower))).get());
        return programName(lower);
    };
    const unsigned int on = osg::StateAttribute::ON;

    EXPECT_EQ(overlayName(on, on), "shader_t_overlay6");
    EXPECT_EQ(overlayName(on | osg::StateAttribute::OVERRIDE, on), "shader_t_overlay5");
    EXPECT_EQ(overlayName(on | osg::StateAttribute::OVERRIDE, on | osg::StateAttribute::PROTECTED),
              "shader_t_overlay6");
}

TEST(ShaderGenerator, FollowsOverrideForInheritedTextures) {
    const osg::ref_ptr<osg::StateSet> above = new osg::StateSet;
    above->setTextureAttribute(0, new NoTexture, osg::StateAttribute::OVERRIDE);
    const osg::ref_ptr<osg::StateSet> plain = makeTexturedState({0});
    const osg::ref_ptr<osg::StateSet> guarded = new osg::StateSet;
    guarded->setTextureAttribute(0, makeTexture(), osg::StateAttribute::PROTECTED);
    const osg::ref_ptr<osg::Group> upper = makeGroup(above, makeGroup(plain));
    upper->addChild(makeGroup(guarded));

    OpenShaderGenerator generator;
    processPlain(generator, makeGroup(nullptr, upper).get());

    EXPECT_EQ(programName(plain), "shader_t");
    EXPECT_EQ(programName(guarded), "shader_t0");
}

TEST(ShaderGenerator, AddsIntUniformsThatAreNeitherOverridingNorProtected) {
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0, 12});
    OpenShaderGenerator generator(3);

    generator.process(makeGroup(state).get(), true, false, false, false);

    EXPECT_THAT(intUniforms(*state),
                ElementsAre(Pair("BaseTexture0", 0), Pair("BaseTexture12", 12), Pair("ShadowMapTex", 3)));
    const unsigned int strength = osg::StateAttribute::OVERRIDE | osg::StateAttribute::PROTECTED;
    for (const auto& [name, entry] : state->getUniformList()) EXPECT_EQ(entry.second & strength, 0u) << name;
    EXPECT_EQ(state->getAttributePair(osg::StateAttribute::PROGRAM)->second, 0u);
    EXPECT_TRUE(state->getModeList().empty());
}

TEST(ShaderGenerator, ReplacesUniformsAndProgramsThatAreInTheWay) {
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0});
    state->addUniform(new osg::Uniform("BaseTexture0", 7.0f), osg::StateAttribute::OVERRIDE);
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName("shader_t0_");
    state->setAttribute(program, osg::StateAttribute::OVERRIDE);

    OpenShaderGenerator generator;
    processPlain(generator, makeGroup(state).get());

    EXPECT_THAT(intUniforms(*state), ElementsAre(Pair("BaseTexture0", 0)));
    EXPECT_EQ(state->getUniformPair("BaseTexture0")->second & osg::StateAttribute::OVERRIDE, 0u);
    EXPECT_EQ(programName(state), "shader_t0");
    EXPECT_EQ(state->getAttributePair(osg::StateAttribute::PROGRAM)->second, 0u);
}

TEST(ShaderGenerator, LeavesAStateSetAloneWhoseProgramHasTheName) {
    const osg::ref_ptr<osg::Program> foreign = new osg::Program;
    foreign->setName("shader_t0");
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0});
    state->setAttribute(foreign, osg::StateAttribute::OVERRIDE);

    OpenShaderGenerator generator;
    processPlain(generator, makeGroup(state).get());

    EXPECT_EQ(programOf(*state), foreign);
    EXPECT_EQ(foreign->getNumShaders(), 0u);
    EXPECT_EQ(state->getAttributePair(osg::StateAttribute::PROGRAM)->second, osg::StateAttribute::OVERRIDE);
    EXPECT_TRUE(state->getUniformList().empty());
    EXPECT_TRUE(generator.records.empty());
}

TEST(ShaderGenerator, LooksForTheProgramOnTheStateSetAloneAndNotAbove) {
    const osg::ref_ptr<osg::StateSet> below = new osg::StateSet;
    const osg::ref_ptr<osg::StateSet> above = makeTexturedState({0});

    OpenShaderGenerator generator;
    processPlain(generator, makeGroup(above, makeGroup(below)).get());

    EXPECT_EQ(programName(above), "shader_t0");
    EXPECT_EQ(programName(below), "shader_t0");
    EXPECT_THAT(intUniforms(*below), ElementsAre(Pair("BaseTexture0", 0)));
}

TEST(ShaderGenerator, ChangesNothingInASecondRun) {
    Combination combination;
    combination.texturedUnits = {0, 1};
    combination.overlayUnit = 4;
    combination.sunUniforms = true;
    const osg::ref_ptr<osg::StateSet> upper = makeState(combination);
    const osg::ref_ptr<osg::StateSet> lower = makeTexturedState({2});
    const osg::ref_ptr<osg::Group> root = makeGroup(upper, makeGeode(makeText(lower)));
    OpenShaderGenerator generator(5);
    generator.process(root, true, true, true, true);
    const ShadedState upperBefore(*upper);
    const ShadedState lowerBefore(*lower);
    generator.records.clear();

    generator.process(root, true, true, true, true);

    EXPECT_TRUE(generator.records.empty());
    EXPECT_EQ(ShadedState(*upper), upperBefore);
    EXPECT_EQ(ShadedState(*lower), lowerBefore);
}

TEST(ShaderGenerator, PutsNewUniformsBesideTheOldWhenTheProgramChanges) {
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState({0});
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(state));
    OpenShaderGenerator generator(3);
    generator.process(root, true, false, false, false);
    const osg::ref_ptr<osg::Uniform> before = state->getUniform("BaseTexture0");

    generator.process(root, false, false, false, true);

    EXPECT_EQ(programName(state), "shader_t0_fog");
    EXPECT_NE(state->getUniform("BaseTexture0"), before);
    EXPECT_THAT(intUniforms(*state), ElementsAre(Pair("BaseTexture0", 0), Pair("ShadowMapTex", 3)));
}

TEST(ShaderGenerator, AsksTheVirtualStepsForProgramAndTexts) {
    class OwnTexts : public OpenShaderGenerator {
        void createFragmentSource(std::string& out, const ShaderFeatures& features) override {
            out += "fragment " + features.name;
        }
        void createVertexSource(std::string& out, const ShaderFeatures& features) override {
            out += "vertex " + features.name;
        }
    };
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    OwnTexts generator;

    processPlain(generator, root);

    const osg::Program& program = *programOf(*root->getStateSet());
    EXPECT_EQ(sourceOf(program, osg::Shader::FRAGMENT), "fragment shader_t");
    EXPECT_EQ(sourceOf(program, osg::Shader::VERTEX), "vertex shader_t");
}

TEST(ShaderGenerator, SuspendsTheShadowMapForARunWithoutShadow) {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(state));
    OpenShaderGenerator generator;
    generator.setShadowTex(6);

    generator.process(root, false, false, false, false);
    EXPECT_EQ(programName(state), "shader_t");
    EXPECT_TRUE(state->getUniformList().empty());

    generator.process(root, true, false, false, false);
    EXPECT_EQ(programName(state), "shader_t_shadow6");
    EXPECT_THAT(intUniforms(*state), ElementsAre(Pair("ShadowMapTex", 6)));
}

TEST(ShaderGenerator, KeepsTheShadowUnitForAllLaterRuns) {
    OpenShaderGenerator generator(3);
    const auto nameAfterRun = [&generator] {
        const osg::ref_ptr<osg::Group> root = new osg::Group;
        generator.process(root, true, false, false, false);
        return programName(root->getStateSet());
    };

    EXPECT_EQ(nameAfterRun(), "shader_t_shadow3");
    generator.setShadowTex(0);
    EXPECT_EQ(nameAfterRun(), "shader_t_shadow0");
    EXPECT_EQ(nameAfterRun(), "shader_t_shadow0");
    generator.setShadowTex(-1);
    EXPECT_EQ(nameAfterRun(), "shader_t");
}

TEST(ShaderGenerator, SharesOneProgramPerNameAcrossStateSetsAndGraphs) {
    const osg::ref_ptr<osg::StateSet> first = makeTexturedState({0});
    const osg::ref_ptr<osg::StateSet> second = makeTexturedState({0});
    const osg::ref_ptr<osg::StateSet> later = makeTexturedState({0});
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(first));
    root->addChild(makeGroup(second));
    OpenShaderGenerator generator;

    processPlain(generator, root);
    processPlain(generator, makeGroup(later).get());

    EXPECT_EQ(programOf(*first), programOf(*second));
    EXPECT_EQ(programOf(*first), programOf(*later));
    EXPECT_NE(programOf(*first), programOf(*root->getStateSet()));
}

TEST(ShaderGenerator, LetsTheFirstSunSettingDecideForBoth) {
    const auto texts = [](bool sunFirst) {
        const osg::ref_ptr<osg::StateSet> sunny = new osg::StateSet;
        addSun(*sunny);
        const osg::ref_ptr<osg::StateSet> plain = new osg::StateSet;
        const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(sunFirst ? sunny : plain));
        root->addChild(makeGroup(sunFirst ? plain : sunny));
        OpenShaderGenerator generator;
        generator.process(root, false, true, false, false);
        EXPECT_EQ(programOf(*sunny), programOf(*plain));
        return sourceOf(*programOf(*plain), osg::Shader::VERTEX);
    };
    Combination combination;
    combination.run.lighting = true;

    EXPECT_EQ(texts(false), expectedVertexText(expectedRecord(combination), combination.run));
    combination.sunUniforms = true;
    EXPECT_EQ(texts(true), expectedVertexText(expectedRecord(combination), combination.run));
}

TEST(ShaderGenerator, SharesAProgramBetweenUnitsThatReadTheSame) {
    const osg::ref_ptr<osg::StateSet> three = makeTexturedState({0, 1, 2});
    const osg::ref_ptr<osg::StateSet> two = makeTexturedState({0, 12});
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(three));
    root->addChild(makeGroup(two));

    OpenShaderGenerator generator;
    processPlain(generator, root);

    EXPECT_EQ(programName(two), "shader_t012");
    EXPECT_EQ(programOf(*two), programOf(*three));
    EXPECT_THAT(intUniforms(*two), ElementsAre(Pair("BaseTexture0", 0), Pair("BaseTexture12", 12)));
}

TEST(ShaderGenerator, ReplacesAForeignProgramOfAnotherNameByTheSharedOne) {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->setAttribute(new osg::Program);
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(state));

    OpenShaderGenerator generator;
    processPlain(generator, root);

    EXPECT_EQ(programOf(*state), programOf(*root->getStateSet()));
}

TEST(ShaderGenerator, IsOneForTheProcessAndStartsWithoutShadowMap) {
    ShaderGenerator* const generator = ShaderGenerator::instance();
    const osg::ref_ptr<osg::Group> first = new osg::Group;
    const osg::ref_ptr<osg::Group> second = new osg::Group;

    generator->process(first, true, true, false, true);
    ShaderGenerator::instance()->process(second, nullptr, true, true, false, true);

    EXPECT_EQ(ShaderGenerator::instance(), generator);
    EXPECT_EQ(generator->getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    EXPECT_EQ(programName(first->getStateSet()), "shader_t_lighting_fog");
    EXPECT_EQ(programOf(*first->getStateSet()), programOf(*second->getStateSet()));
}

TEST(ShaderGenerator, LetsThreadsTakeTurnsAndShareThePrograms) {
    OverlapCounter generator;
    const std::vector<osg::ref_ptr<osg::Geode>> geodes = makeGeodesWithFourTextures(200);
    const auto work = [&](std::size_t begin) {
        for (std::size_t i = begin; i < geodes.size(); i += 2) processPlain(generator, geodes[i]);
    };

    std::thread even(work, 0);
    std::thread odd(work, 1);
    even.join();
    odd.join();

    EXPECT_EQ(generator.overlaps, 0);
    for (const auto& geode : geodes) {
        for (unsigned int i = 0; i < 4; ++i) {
            const osg::StateSet& state = *geode->getDrawable(i)->getStateSet();
            ASSERT_EQ(programOf(state), programOf(*geodes[0]->getDrawable(i)->getStateSet()));
            ASSERT_EQ(programName(&state), "shader_t" + std::to_string(i));
        }
    }
}

TEST(ShaderGenerator, WhitensTheBlackThatTheColorModeLeavesToTheMaterial) {
    EXPECT_EQ(colorsAfterRun(osg::Material::AMBIENT, black, black), (Colors{black, white}));
    EXPECT_EQ(colorsAfterRun(osg::Material::DIFFUSE, black, black), (Colors{white, black}));
    EXPECT_EQ(colorsAfterRun(osg::Material::OFF, black, black), (Colors{white, white}));
}

TEST(ShaderGenerator, LeavesBlackAloneUnderTheOtherColorModes) {
    for (const auto mode : {osg::Material::SPECULAR, osg::Material::EMISSION, osg::Material::AMBIENT_AND_DIFFUSE}) {
        EXPECT_EQ(colorsAfterRun(mode, black, black), (Colors{black, black})) << mode;
    }
}

TEST(ShaderGenerator, WhitensAmbientAndDiffuseIndependently) {
    const osg::Vec4 red(1.0f, 0.0f, 0.0f, 1.0f);

    EXPECT_EQ(colorsAfterRun(osg::Material::OFF, red, black), (Colors{red, white}));
    EXPECT_EQ(colorsAfterRun(osg::Material::OFF, black, red), (Colors{white, red}));
    EXPECT_EQ(colorsAfterRun(osg::Material::AMBIENT, black, red), (Colors{black, red}));
    EXPECT_EQ(colorsAfterRun(osg::Material::DIFFUSE, red, black), (Colors{red, black}));
}

TEST(ShaderGenerator, WhitensNothingThatIsNearlyBlack) {
    const std::vector<osg::Vec4> nearlyBlack{{1e-30f, 0.0f, 0.0f, 1.0f}, {0.0f, 1e-30f, 0.0f, 1.0f},
                                             {0.0f, 0.0f, 1e-30f, 1.0f}, {0.0f, 0.0f, 0.0f, 0.999999f},
                                             {0.0f, 0.0f, 0.0f, 0.0f},   {-1e-30f, 0.0f, 0.0f, 1.0f}};
    for (const osg::Vec4& color : nearlyBlack) {
        EXPECT_EQ(colorsAfterRun(osg::Material::OFF, color, color), (Colors{color, color}));
        EXPECT_EQ(colorsAfterRun(osg::Material::AMBIENT, color, color), (Colors{color, color}));
        EXPECT_EQ(colorsAfterRun(osg::Material::DIFFUSE, color, color), (Colors{color, color}));
    }
}

TEST(ShaderGenerator, JudgesAMaterialWithTwoFacesByItsFront) {
    const osg::Vec4 red(1.0f, 0.0f, 0.0f, 1.0f);
    const auto diffuseAfterRun = [](const osg::Vec4& front, const osg::Vec4& back) {
        const osg::ref_ptr<osg::Material> material = makeMaterial(osg::Material::OFF, white, white);
        material->setDiffuse(osg::Material::FRONT, front);
        material->setDiffuse(osg::Material::BACK, back);
        const osg::ref_ptr<osg::Group> root = new osg::Group;
        root->getOrCreateStateSet()->setAttribute(material);
        const OsgMessages osgMessages;
        OpenShaderGenerator generator;
        processPlain(generator, root);
        return std::make_pair(material->getDiffuse(osg::Material::FRONT), material->getDiffuse(osg::Material::BACK));
    };

    EXPECT_EQ(diffuseAfterRun(black, red), std::make_pair(white, white));
    EXPECT_EQ(diffuseAfterRun(red, black), std::make_pair(red, black));
}

TEST(ShaderGenerator, WhitensTheSharedMaterialThatIsInForce) {
    const osg::ref_ptr<osg::Material> above = makeMaterial(osg::Material::OFF, black, black);
    const osg::ref_ptr<osg::Material> below = makeMaterial(osg::Material::OFF, black, black);
    const osg::ref_ptr<osg::Group> parent = new osg::Group;
    parent->getOrCreateStateSet()->setAttribute(above, osg::StateAttribute::OVERRIDE);
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->setAttribute(below);
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, makeGroup(state));

    OpenShaderGenerator generator;
    processPlain(generator, root, parent);

    EXPECT_EQ(state->getAttribute(osg::StateAttribute::MATERIAL), below);
    EXPECT_EQ(colorsOf(*above), (Colors{white, white}));
    EXPECT_EQ(colorsOf(*below), (Colors{black, black}));
}

TEST(ShaderGenerator, WhitensAProtectedMaterialBelowAnOverridingOne) {
    const osg::ref_ptr<osg::Material> below = makeMaterial(osg::Material::OFF, black, black);
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->setAttribute(below, osg::StateAttribute::PROTECTED);
    const osg::ref_ptr<osg::Group> root = makeGroup(new osg::StateSet, makeGeode(makeSquareWith(state)));
    root->getStateSet()->setAttribute(new osg::Material, osg::StateAttribute::OVERRIDE);

    OpenShaderGenerator generator;
    processPlain(generator, root);

    EXPECT_EQ(colorsOf(*below), (Colors{white, white}));
}

TEST(ShaderGenerator, WhitensAMaterialOnAStateSetThatIsLeftAlone) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    OpenShaderGenerator generator;
    processPlain(generator, root);
    const osg::ref_ptr<osg::Material> material = makeMaterial(osg::Material::OFF, black, black);
    root->getStateSet()->setAttribute(material);

    processPlain(generator, root);

    EXPECT_EQ(colorsOf(*material), (Colors{white, white}));
}

TEST(ShaderGenerator, ReportsMapUniformsThatAreNoInt) {
    for (const char* const name : {"NormalMapTex", "SpecMapTex"}) {
        const osg::ref_ptr<osg::Uniform> untyped = new osg::Uniform;
        untyped->setName(name);

        EXPECT_EQ(complaintsAbout(new osg::Uniform(name, 1.0f)), unreadableUniformLines("float", "1"));
        EXPECT_EQ(complaintsAbout(new osg::Uniform(name, white)), unreadableUniformLines("vec4", "4"));
        EXPECT_EQ(complaintsAbout(new osg::Uniform(name, 1u)), unreadableUniformLines("uint", "1"));
        EXPECT_EQ(complaintsAbout(new osg::Uniform(osg::Uniform::INT, name, 3)), unreadableUniformLines("int", "3"));
        EXPECT_EQ(complaintsAbout(new osg::Uniform(name, 1, 2)), unreadableUniformLines("ivec2", "2"));
        EXPECT_EQ(complaintsAbout(new osg::Uniform(osg::Uniform::FLOAT_MAT4, name, 2)),
                  unreadableUniformLines("mat4", "32"));
        EXPECT_EQ(complaintsAbout(untyped), unreadableUniformLines("UNDEFINED", "0"));
    }
}

TEST(ShaderGenerator, ReadsUnitsFromSamplersAndBools) {
    for (const auto type : {osg::Uniform::INT, osg::Uniform::SAMPLER_2D, osg::Uniform::SAMPLER_CUBE,
                            osg::Uniform::SAMPLER_2D_SHADOW, osg::Uniform::BOOL}) {
        EXPECT_EQ(complaintsAbout(makeIntUniform(type, "NormalMapTex", 1), "shader_t_nm1"), "") << type;
        EXPECT_EQ(complaintsAbout(makeIntUniform(type, "SpecMapTex", 1), "shader_t_sm1"), "") << type;
        EXPECT_EQ(complaintsAbout(makeIntUniform(type, "OverlayTex", 1), "shader_t_overlay1"), "") << type;
    }
}

TEST(ShaderGenerator, IsSilentAboutAnOverlayUniformThatIsNoInt) {
    EXPECT_EQ(complaintsAbout(new osg::Uniform("OverlayTex", 1.0f)), "");
    EXPECT_EQ(complaintsAbout(new osg::Uniform("OverlayTex", white)), "");
    EXPECT_EQ(complaintsAbout(new osg::Uniform("OverlayTex", 1u)), "");
    EXPECT_EQ(complaintsAbout(new osg::Uniform(osg::Uniform::INT, "OverlayTex", 3)), "");
}

TEST(ShaderGenerator, ReportsTheNormalMapBeforeTheSpecularMapAndEveryTimeAnew) {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->addUniform(new osg::Uniform("SpecMapTex", 1.0f));
    state->addUniform(new osg::Uniform("NormalMapTex", white));
    const osg::ref_ptr<osg::Group> root = makeGroup(state);
    OpenShaderGenerator generator;
    const StandardError standardError;

    processPlain(generator, root);

    const std::string once = unreadableUniformLines("vec4", "4") + unreadableUniformLines("float", "1");
    EXPECT_EQ(standardError.text(), once + once);
}

TEST(ShaderGenerator, TakesASunUniformOfAnyType) {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    addInt(*state, "SunAmbient", 0);
    OpenShaderGenerator generator;

    processPlain(generator, makeGroup(state).get());

    ASSERT_EQ(generator.records.size(), 1u);
    EXPECT_TRUE(generator.records[0].sunUniforms);
}

TEST(ShaderGenerator, KeepsQuietOnAnOrdinaryGraph) {
    Combination combination;
    combination.texturedUnits = {0, 1};
    combination.normalMapUnit = 1;
    combination.overlayUnit = 4;
    const osg::ref_ptr<osg::Group> root = makeGroup(makeState(combination), makeSquare());
    OpenShaderGenerator generator(3);
    const StandardError standardError;
    const OsgMessages osgMessages;

    generator.process(root, true, true, true, true);

    EXPECT_EQ(standardError.text(), "");
    EXPECT_EQ(osgMessages.text(), "");
}

TEST(ShaderGenerator, RemembersNothingOfAWalkThatACallbackEndedByThrowing) {
    struct ThrowingNode : osg::Group {
        void traverse(osg::NodeVisitor&) override { throw std::runtime_error("from the application"); }
    };
    const osg::ref_ptr<osg::StateSet> textured = new osg::StateSet;
    textured->setTextureAttributeAndModes(3, makeTexture());
    const osg::ref_ptr<osg::Group> throwing = makeGroup(textured);
    throwing->addChild(new ThrowingNode);
    EXPECT_THROW(ShaderGenerator::instance()->process(throwing, false, false, false, false), std::runtime_error);

    const osg::ref_ptr<osg::StateSet> plain = new osg::StateSet;
    makeGroup(plain)->accept(*ShaderGenerator::instance());

    EXPECT_EQ(plain->getAttribute(osg::StateAttribute::PROGRAM)->getName(), "shader_t");
}
