#include <sceneutils/TextureVisitor.h>

#include "support/Graphs.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/Group>
#include <osg/Material>
#include <osg/PointSprite>
#include <osg/TexEnv>
#include <osg/TexGen>
#include <osg/Texture1D>
#include <osg/Texture2DArray>
#include <osg/Texture3D>
#include <osg/TextureBuffer>
#include <osg/TextureCubeMap>
#include <osg/TextureRectangle>

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using veltrane::sceneutils::StateSetVisitor;
using veltrane::sceneutils::TextureVisitor;

namespace {

static_assert(std::is_base_of_v<StateSetVisitor, TextureVisitor>);
static_assert(std::is_abstract_v<TextureVisitor>);
static_assert(std::has_virtual_destructor_v<TextureVisitor>);
static_assert(std::is_copy_assignable_v<TextureVisitor>);

/** Writes down the textures in the order of the visits. */
class Recorder : public TextureVisitor {
public:
    using TextureVisitor::apply;
    void apply(osg::Texture& texture) override {
        textures.push_back(&texture);
        if (onVisit) onVisit(texture);
    }

    std::vector<osg::Texture*> textures;
    std::function<void(osg::Texture&)> onVisit;
};

/** An attribute that claims a texture's place without being one. */
class NotReallyATexture : public osg::StateAttribute {
public:
    NotReallyATexture() = default;
    NotReallyATexture(const NotReallyATexture& other, const osg::CopyOp& copyop) : osg::StateAttribute(other, copyop) {}
    META_StateAttribute(test, NotReallyATexture, TEXTURE) bool isTextureAttribute() const override { return true; }
    int compare(const osg::StateAttribute& other) const override { return this == &other ? 0 : 1; }
};

std::vector<osg::Texture*> visit(osg::Node& node) {
    Recorder recorder;
    node.accept(recorder);
    return recorder.textures;
}

std::vector<osg::Texture*> visit(osg::StateSet& stateSet) {
    osg::ref_ptr<osg::Node> node = new osg::Node;
    node->setStateSet(&stateSet);
    return visit(*node);
}

}  // namespace

TEST(TextureVisitor, WalksTheGraphItself) {
    EXPECT_EQ(Recorder().getTraversalMode(), osg::NodeVisitor::TRAVERSE_NONE);
}

TEST(TextureVisitor, VisitsTheTexturesOfAStateSetByAscendingUnit) {
    osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
    osg::ref_ptr<osg::Texture2D> on0 = makeTexture(), on1 = makeTexture(), on2 = makeTexture();
    stateSet->setTextureAttribute(2, on2);
    stateSet->setTextureAttribute(0, on0);
    stateSet->setTextureAttribute(1, on1);

    EXPECT_THAT(visit(*stateSet), ElementsAre(on0.get(), on1.get(), on2.get()));
}

TEST(TextureVisitor, SkipsUnitsWithoutATexture) {
    osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
    osg::ref_ptr<osg::Texture2D> on1 = makeTexture(), on9 = makeTexture();
    stateSet->setTextureAttribute(1, on1);
    stateSet->setTextureAttribute(9, on9);

    EXPECT_THAT(visit(*stateSet), ElementsAre(on1.get(), on9.get()));
}

TEST(TextureVisitor, SkipsAttributesThatAreNotTextures) {
    osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
    stateSet->setAttribute(new osg::Material);
    stateSet->setTextureAttribute(0, new osg::TexEnv);
    stateSet->setTextureAttribute(1, new osg::TexGen);
    stateSet->setTextureAttribute(2, new osg::PointSprite);
    stateSet->setTextureAttribute(3, new NotReallyATexture);
    stateSet->setTextureMode(4, GL_TEXTURE_2D, osg::StateAttribute::ON);
    ASSERT_NE(stateSet->getTextureAttribute(3, osg::StateAttribute::TEXTURE), nullptr);

    EXPECT_THAT(visit(*stateSet), IsEmpty());
}

TEST(TextureVisitor, FindsATextureBesideOtherAttributesOfItsUnit) {
    osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
    osg::ref_ptr<osg::Texture2D> texture = makeTexture();
    stateSet->setTextureAttribute(0, new osg::TexEnv);
    stateSet->setTextureAttribute(0, texture);
    stateSet->setTextureAttribute(0, new osg::PointSprite);

    EXPECT_THAT(visit(*stateSet), ElementsAre(texture.get()));
}

TEST(TextureVisitor, VisitsATextureThatIsSwitchedOff) {
    osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
    osg::ref_ptr<osg::Texture2D> texture = makeTexture();
    stateSet->setTextureAttributeAndModes(0, texture, osg::StateAttribute::OFF);

    EXPECT_THAT(visit(*stateSet), ElementsAre(texture.get()));
}

TEST(TextureVisitor, ReachesATextureThatIsAddedOnALaterUnitDuringTheVisit) {
    osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
    osg::ref_ptr<osg::Texture2D> first = makeTexture(), added = makeTexture();
    stateSet->setTextureAttribute(0, first);
    osg::ref_ptr<osg::Node> node = new osg::Node;
    node->setStateSet(stateSet);
    Recorder recorder;
    recorder.onVisit = [&](osg::Texture& texture) {
        if (&texture == first) stateSet->setTextureAttribute(5, added);
    };

    node->accept(recorder);

    EXPECT_THAT(recorder.textures, ElementsAre(first.get(), added.get()));
}

TEST(TextureVisitor, VisitsASharedTextureOnceForEachUnitAndStateSet) {
    osg::ref_ptr<osg::Texture2D> texture = makeTexture();
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::Geode> geode = makeGeode(makeSquare());
    root->addChild(geode);
    root->getOrCreateStateSet()->setTextureAttribute(0, texture);
    root->getOrCreateStateSet()->setTextureAttribute(3, texture);
    geode->getDrawable(0)->getOrCreateStateSet()->setTextureAttribute(0, texture);

    EXPECT_THAT(visit(*root), ElementsAre(texture.get(), texture.get(), texture.get()));
}

TEST(TextureVisitor, VisitsTheTexturesOfNodesAndDrawablesInTheOrderOfTheStateSets) {
    osg::ref_ptr<osg::Texture2D> ofRoot = makeTexture(), ofDrawable = makeTexture(), ofChild = makeTexture();
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::Geometry> square = makeSquare();
    osg::ref_ptr<osg::Node> child = new osg::Node;
    root->addChild(makeGeode(square));
    root->addChild(child);
    child->getOrCreateStateSet()->setTextureAttribute(0, ofChild);
    square->getOrCreateStateSet()->setTextureAttribute(0, ofDrawable);
    root->getOrCreateStateSet()->setTextureAttribute(0, ofRoot);

    EXPECT_THAT(visit(*root), ElementsAre(ofRoot.get(), ofDrawable.get(), ofChild.get()));
}

TEST(TextureVisitor, VisitsNothingInAGraphWithoutStateSets) {
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makeGeode(makeSquare()));

    EXPECT_THAT(visit(*root), IsEmpty());
}

template <typename TextureType>
class TextureVisitorOnTextures : public testing::Test {};

using TextureTypes = testing::Types<osg::Texture1D, osg::Texture2D, osg::Texture3D, osg::Texture2DArray,
                                    osg::TextureRectangle, osg::TextureCubeMap, osg::TextureBuffer>;
TYPED_TEST_SUITE(TextureVisitorOnTextures, TextureTypes);

TYPED_TEST(TextureVisitorOnTextures, VisitsTexturesOfEveryType) {
    osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
    osg::ref_ptr<TypeParam> texture = new TypeParam;
    stateSet->setTextureAttribute(0, texture);

    EXPECT_THAT(visit(*stateSet), ElementsAre(texture.get()));
}

TEST(TextureVisitor, CopyConstructionCopiesEverySetting) {
    Recorder original;
    changeEverySetting(original);

    const Recorder copy(original);

    expectEqualSettings(copy, original);
}

TEST(TextureVisitor, AssignmentCopiesEverySetting) {
    Recorder original;
    changeEverySetting(original);
    Recorder copy;

    TextureVisitor& result = static_cast<TextureVisitor&>(copy) = original;

    expectEqualSettings(copy, original);
    EXPECT_EQ(&result, &copy);
}
