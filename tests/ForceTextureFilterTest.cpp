#include <sceneutils/ForceTextureFilter.h>

#include "support/Graphs.h"
#include "support/StandardError.h"
#include "support/VisitorSettings.h"

#include <gtest/gtest.h>

#include <osg/Group>
#include <osg/TextureCubeMap>

#include <type_traits>

using namespace testing_support;
using osg::Texture;
using veltrane::sceneutils::ForceTextureFilter;
using veltrane::sceneutils::TextureVisitor;

namespace {

static_assert(std::is_base_of_v<TextureVisitor, ForceTextureFilter>);
static_assert(std::has_virtual_destructor_v<ForceTextureFilter>);
static_assert(std::is_copy_constructible_v<ForceTextureFilter>);
static_assert(std::is_copy_assignable_v<ForceTextureFilter>);

osg::ref_ptr<osg::Texture2D> makeFilteredTexture(Texture::FilterMode min, Texture::FilterMode mag) {
    osg::ref_ptr<osg::Texture2D> texture = makeTexture();
    texture->setFilter(Texture::MIN_FILTER, min);
    texture->setFilter(Texture::MAG_FILTER, mag);
    return texture;
}

osg::ref_ptr<osg::Node> makeNode(Texture* texture) {
    osg::ref_ptr<osg::Node> node = new osg::Node;
    node->getOrCreateStateSet()->setTextureAttributeAndModes(0, texture);
    return node;
}

/** The filter that the visitor gives to a texture. */
Texture::FilterMode forcedBy(ForceTextureFilter& visitor) {
    osg::ref_ptr<osg::Texture2D> texture = makeFilteredTexture(Texture::LINEAR_MIPMAP_NEAREST, Texture::NEAREST);
    makeNode(texture)->accept(visitor);
    return texture->getFilter(Texture::MIN_FILTER);
}

}  // namespace

TEST(ForceTextureFilter, WalksTheGraphItself) {
    EXPECT_EQ(ForceTextureFilter(Texture::LINEAR).getTraversalMode(), osg::NodeVisitor::TRAVERSE_NONE);
}

class ForceTextureFilterModes : public testing::TestWithParam<Texture::FilterMode> {};

TEST_P(ForceTextureFilterModes, SetsTheMinificationFilterOnly) {
    osg::ref_ptr<osg::Texture2D> blocky = makeFilteredTexture(Texture::LINEAR_MIPMAP_NEAREST, Texture::NEAREST);
    osg::ref_ptr<osg::Texture2D> smooth = makeFilteredTexture(Texture::NEAREST_MIPMAP_LINEAR, Texture::LINEAR);
    osg::ref_ptr<osg::Node> node = makeNode(blocky);
    node->getStateSet()->setTextureAttribute(4, smooth);

    ForceTextureFilter filter(GetParam());
    node->accept(filter);

    EXPECT_EQ(blocky->getFilter(Texture::MIN_FILTER), GetParam());
    EXPECT_EQ(smooth->getFilter(Texture::MIN_FILTER), GetParam());
    EXPECT_EQ(blocky->getFilter(Texture::MAG_FILTER), Texture::NEAREST);
    EXPECT_EQ(smooth->getFilter(Texture::MAG_FILTER), Texture::LINEAR);
}

INSTANTIATE_TEST_SUITE_P(EveryMode, ForceTextureFilterModes,
                         testing::Values(Texture::NEAREST, Texture::LINEAR, Texture::NEAREST_MIPMAP_NEAREST,
                                         Texture::LINEAR_MIPMAP_NEAREST, Texture::NEAREST_MIPMAP_LINEAR,
                                         Texture::LINEAR_MIPMAP_LINEAR));

TEST(ForceTextureFilter, LeavesEverythingElseOfATextureAlone) {
    osg::ref_ptr<osg::Texture2D> texture = makeTexture("wall.png");
    texture->setWrap(Texture::WRAP_S, Texture::MIRROR);
    texture->setMaxAnisotropy(4.0f);
    const osg::Image* image = texture->getImage();
    const unsigned int imageVersion = image->getModifiedCount();
    const osg::ref_ptr<osg::Texture2D> expected = osg::clone(texture.get(), osg::CopyOp::SHALLOW_COPY);
    expected->setFilter(Texture::MIN_FILTER, Texture::NEAREST);

    ForceTextureFilter filter(Texture::NEAREST);
    makeNode(texture)->accept(filter);

    EXPECT_EQ(texture->compare(*expected), 0);
    EXPECT_EQ(texture->getImage(), image);
    EXPECT_EQ(image->getModifiedCount(), imageVersion);
}

TEST(ForceTextureFilter, ReachesTheTexturesOfDrawables) {
    osg::ref_ptr<osg::Texture2D> inGeode = makeTexture(), belowGroup = makeTexture();
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::Geometry> square = makeSquare(), loose = makeSquare();
    root->addChild(makeGeode(square));
    root->addChild(loose);
    square->getOrCreateStateSet()->setTextureAttribute(0, inGeode);
    loose->getOrCreateStateSet()->setTextureAttribute(0, belowGroup);

    ForceTextureFilter filter(Texture::NEAREST);
    root->accept(filter);

    EXPECT_EQ(inGeode->getFilter(Texture::MIN_FILTER), Texture::NEAREST);
    EXPECT_EQ(belowGroup->getFilter(Texture::MIN_FILTER), Texture::NEAREST);
}

TEST(ForceTextureFilter, SetsASharedTextureTwiceWithoutHarm) {
    osg::ref_ptr<osg::TextureCubeMap> texture = new osg::TextureCubeMap;
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makeNode(texture));
    root->addChild(makeNode(texture));

    ForceTextureFilter filter(Texture::NEAREST_MIPMAP_LINEAR);
    root->accept(filter);

    EXPECT_EQ(texture->getFilter(Texture::MIN_FILTER), Texture::NEAREST_MIPMAP_LINEAR);
}

TEST(ForceTextureFilter, ReportsNothing) {
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makeNode(makeTexture()));
    root->addChild(new osg::Node);
    const StandardError standardError;

    ForceTextureFilter filter(Texture::LINEAR);
    root->accept(filter);

    EXPECT_EQ(standardError.text(), "");
}

TEST(ForceTextureFilter, CopyConstructionCopiesEverySetting) {
    ForceTextureFilter original(Texture::NEAREST_MIPMAP_LINEAR);
    ForceTextureFilter copy(original);
    EXPECT_EQ(forcedBy(copy), Texture::NEAREST_MIPMAP_LINEAR);

    changeEverySetting(original);
    const ForceTextureFilter changed(original);
    expectEqualSettings(changed, original);
}

TEST(ForceTextureFilter, AssignmentCopiesEverySetting) {
    ForceTextureFilter original(Texture::NEAREST_MIPMAP_LINEAR);
    ForceTextureFilter copy(Texture::NEAREST);

    copy = original;
    EXPECT_EQ(forcedBy(copy), Texture::NEAREST_MIPMAP_LINEAR);

    changeEverySetting(original);
    EXPECT_EQ(&(copy = original), &copy);
    expectEqualSettings(copy, original);
}
