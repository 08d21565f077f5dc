#include <sceneutils/ChangeTextureExtension.h>

#include "support/Graphs.h"
#include "support/StandardError.h"
#include "support/VisitorSettings.h"

#include <gtest/gtest.h>

#include <osg/Group>
#include <osg/Texture2DArray>
#include <osg/TextureCubeMap>

#include <string>
#include <type_traits>

using namespace testing_support;
using veltrane::sceneutils::ChangeTextureExtension;
using veltrane::sceneutils::TextureVisitor;

namespace {

static_assert(std::is_base_of_v<TextureVisitor, ChangeTextureExtension>);
static_assert(std::has_virtual_destructor_v<ChangeTextureExtension>);
static_assert(std::is_copy_constructible_v<ChangeTextureExtension>);
static_assert(std::is_copy_assignable_v<ChangeTextureExtension>);

osg::ref_ptr<osg::Node> makeNode(osg::Texture* texture) {
    osg::ref_ptr<osg::Node> node = new osg::Node;
    node->getOrCreateStateSet()->setTextureAttributeAndModes(0, texture);
    return node;
}

/** What became of an image's file name, and what was said about it. */
struct Outcome {
    std::string fileName;
    std::string report;
};

bool operator==(const Outcome& a, const Outcome& b) {
    return a.fileName == b.fileName && a.report == b.report;
}

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << "\"" << outcome.fileName << "\", reported as \"" << outcome.report << "\"";
}

Outcome unchanged(const std::string& fileName) {
    return {fileName, ""};
}

Outcome changed(const std::string& fileName, const std::string& newFileName) {
    return {newFileName, "Changing " + fileName + " to " + newFileName + "\n"};
}

Outcome change(const std::string& fileName, const std::string& from, const std::string& to) {
    osg::ref_ptr<osg::Texture2D> texture = makeTexture(fileName);
    const StandardError standardError;
    ChangeTextureExtension::process(makeNode(texture), from, to);
    return {texture->getImage()->getFileName(), standardError.text()};
}

}  // namespace

TEST(ChangeTextureExtension, WalksTheGraphItself) {
    EXPECT_EQ(ChangeTextureExtension("a", "b").getTraversalMode(), osg::NodeVisitor::TRAVERSE_NONE);
}

TEST(ChangeTextureExtension, ReplacesTheExtensionAndReportsIt) {
    const Outcome outcome = change("wall.rgb", "rgb", "dds");

    EXPECT_EQ(outcome.fileName, "wall.dds");
    EXPECT_EQ(outcome.report, "Changing wall.rgb to wall.dds\n");
}

TEST(ChangeTextureExtension, LeavesOtherExtensionsAlone) {
    EXPECT_EQ(change("wall.png", "rgb", "dds"), unchanged("wall.png"));
    EXPECT_EQ(change("wall.rgba", "rgb", "dds"), unchanged("wall.rgba"));
    EXPECT_EQ(change("wall.xrgb", "rgb", "dds"), unchanged("wall.xrgb"));
    EXPECT_EQ(change("rgb", "rgb", "dds"), unchanged("rgb"));
}

TEST(ChangeTextureExtension, NeverMatchesAnExtensionGivenWithItsDot) {
    EXPECT_EQ(change("wall.rgb", ".rgb", "dds"), unchanged("wall.rgb"));
    EXPECT_EQ(change("wall..rgb", ".rgb", "dds"), unchanged("wall..rgb"));
}

TEST(ChangeTextureExtension, ComparesCaseSensitively) {
    EXPECT_EQ(change("tex.RGB", "rgb", "dds"), unchanged("tex.RGB"));
    EXPECT_EQ(change("tex.rgb", "RGB", "dds"), unchanged("tex.rgb"));
    EXPECT_EQ(change("tex.RGB", "RGB", "dds"), changed("tex.RGB", "tex.dds"));
}

TEST(ChangeTextureExtension, AppendsToNamesWithoutExtensionWhenFromIsEmpty) {
    EXPECT_EQ(change("wall", "", "dds"), changed("wall", "wall.dds"));
    EXPECT_EQ(change("wall.", "", "dds"), changed("wall.", "wall.dds"));
    EXPECT_EQ(change("", "", "dds"), changed("", ".dds"));
    EXPECT_EQ(change("wall.rgb", "", "dds"), unchanged("wall.rgb"));
}

TEST(ChangeTextureExtension, TakesTheTextAfterTheLastDotForTheExtension) {
    EXPECT_EQ(change("wall.v2.rgb", "rgb", "dds"), changed("wall.v2.rgb", "wall.v2.dds"));
    EXPECT_EQ(change("wall.rgb.png", "rgb", "dds"), unchanged("wall.rgb.png"));
    EXPECT_EQ(change("wall.rgb.rgb", "rgb", "dds"), changed("wall.rgb.rgb", "wall.rgb.dds"));
    EXPECT_EQ(change("wall.v2.rgb", "v2.rgb", "dds"), unchanged("wall.v2.rgb"));
    EXPECT_EQ(change(".rgb", "rgb", "dds"), changed(".rgb", ".dds"));
}

TEST(ChangeTextureExtension, DoesNotMistakeADotInADirectoryForAnExtension) {
    EXPECT_EQ(change("db.v1/wall", "v1/wall", "dds"), unchanged("db.v1/wall"));
    EXPECT_EQ(change("db.v1/wall", "", "dds"), changed("db.v1/wall", "db.v1/wall.dds"));
    EXPECT_EQ(change("db.v1\\wall", "", "dds"), changed("db.v1\\wall", "db.v1\\wall.dds"));
    EXPECT_EQ(change("../db.rgb/wall.rgb", "rgb", "dds"), changed("../db.rgb/wall.rgb", "../db.rgb/wall.dds"));
}

TEST(ChangeTextureExtension, TakesTheNewExtensionAsItIs) {
    EXPECT_EQ(change("wall.rgb", "rgb", ""), changed("wall.rgb", "wall."));
    EXPECT_EQ(change("wall.rgb", "rgb", ".dds"), changed("wall.rgb", "wall..dds"));
    EXPECT_EQ(change("wall.rgb", "rgb", "dds.gz"), changed("wall.rgb", "wall.dds.gz"));
}

TEST(ChangeTextureExtension, RenamesAndReportsEachOfTheSixImagesOfACubeMap) {
    osg::ref_ptr<osg::TextureCubeMap> texture = new osg::TextureCubeMap;
    for (unsigned int i = 0; i < 6; ++i) texture->setImage(i, makeImage("face" + std::to_string(i) + ".rgb"));
    const StandardError standardError;

    ChangeTextureExtension::process(makeNode(texture), "rgb", "dds");

    EXPECT_EQ(standardError.text(),
              "Changing face0.rgb to face0.dds\n"
              "Changing face1.rgb to face1.dds\n"
              "Changing face2.rgb to face2.dds\n"
              "Changing face3.rgb to face3.dds\n"
              "Changing face4.rgb to face4.dds\n"
              "Changing face5.rgb to face5.dds\n");
    for (unsigned int i = 0; i < 6; ++i) {
        EXPECT_EQ(texture->getImage(i)->getFileName(), "face" + std::to_string(i) + ".dds");
    }
}

TEST(ChangeTextureExtension, SkipsNullImages) {
    osg::ref_ptr<osg::TextureCubeMap> texture = new osg::TextureCubeMap;
    texture->setImage(5, makeImage("last.rgb"));
    const StandardError standardError;

    ChangeTextureExtension::process(makeNode(texture), "rgb", "dds");

    EXPECT_EQ(standardError.text(), "Changing last.rgb to last.dds\n");
}

TEST(ChangeTextureExtension, SkipsTexturesWithoutImages) {
    osg::ref_ptr<osg::Texture2DArray> noLayers = new osg::Texture2DArray;
    osg::ref_ptr<osg::Texture2D> noImage = new osg::Texture2D;
    ASSERT_EQ(noLayers->getNumImages(), 0u);
    const StandardError standardError;

    ChangeTextureExtension::process(makeNode(noLayers), "", "dds");
    ChangeTextureExtension::process(makeNode(noImage), "", "dds");

    EXPECT_EQ(standardError.text(), "");
}

TEST(ChangeTextureExtension, ReportsASharedTextureOnlyOnce) {
    osg::ref_ptr<osg::Texture2D> texture = makeTexture("wall.rgb");
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makeNode(texture));
    root->addChild(makeNode(texture));
    const StandardError standardError;

    ChangeTextureExtension::process(root, "rgb", "dds");

    EXPECT_EQ(standardError.text(), "Changing wall.rgb to wall.dds\n");
}

TEST(ChangeTextureExtension, ReportsAnImageSharedByTexturesOnlyOnce) {
    osg::ref_ptr<osg::Image> image = makeImage("wall.rgb");
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makeNode(new osg::Texture2D(image)));
    root->addChild(makeNode(new osg::Texture2D(image)));
    const StandardError standardError;

    ChangeTextureExtension::process(root, "rgb", "dds");

    EXPECT_EQ(image->getFileName(), "wall.dds");
    EXPECT_EQ(standardError.text(), "Changing wall.rgb to wall.dds\n");
}

TEST(ChangeTextureExtension, ReportsEveryVisitWhenBothExtensionsAreEqual) {
    osg::ref_ptr<osg::Texture2D> texture = makeTexture("wall.rgb");
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makeNode(texture));
    root->addChild(makeNode(texture));
    const StandardError standardError;

    ChangeTextureExtension::process(root, "rgb", "rgb");

    EXPECT_EQ(texture->getImage()->getFileName(), "wall.rgb");
    EXPECT_EQ(standardError.text(), "Changing wall.rgb to wall.rgb\nChanging wall.rgb to wall.rgb\n");
}

TEST(ChangeTextureExtension, ReportsInTheOrderOfTheVisits) {
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::Geometry> square = makeSquare();
    square->getOrCreateStateSet()->setTextureAttribute(0, makeTexture("drawable.rgb"));
    root->addChild(makeGeode(square));
    root->addChild(makeNode(makeTexture("child.rgb")));
    root->getOrCreateStateSet()->setTextureAttribute(1, makeTexture("root1.rgb"));
    root->getOrCreateStateSet()->setTextureAttribute(0, makeTexture("root0.rgb"));
    const StandardError standardError;

    ChangeTextureExtension::process(root, "rgb", "dds");

    EXPECT_EQ(standardError.text(),
              "Changing root0.rgb to root0.dds\n"
              "Changing root1.rgb to root1.dds\n"
              "Changing drawable.rgb to drawable.dds\n"
              "Changing child.rgb to child.dds\n");
}

TEST(ChangeTextureExtension, TouchesNeitherPixelsNorImage) {
    osg::ref_ptr<osg::Texture2D> texture = makeTexture("wall.rgb");
    osg::Image* image = texture->getImage();
    image->data()[0] = 42;
    const unsigned char* pixels = image->data();
    const unsigned int version = image->getModifiedCount();
    const StandardError standardError;

    ChangeTextureExtension::process(makeNode(texture), "rgb", "dds");

    EXPECT_EQ(texture->getImage(), image);
    EXPECT_EQ(image->data(), pixels);
    EXPECT_EQ(image->data()[0], 42);
    EXPECT_EQ(image->getModifiedCount(), version);
}

TEST(ChangeTextureExtension, WalksAGraphWithoutStateSetsWithoutEffect) {
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makeGeode(makeSquare()));
    const StandardError standardError;

    ChangeTextureExtension::process(root, "", "dds");

    EXPECT_EQ(standardError.text(), "");
    EXPECT_EQ(root->getStateSet(), nullptr);
}

TEST(ChangeTextureExtension, ProcessIgnoresANullNode) {
    const StandardError standardError;

    ChangeTextureExtension::process(nullptr, "rgb", "dds");

    EXPECT_EQ(standardError.text(), "");
}

TEST(ChangeTextureExtension, DoesAsAVisitorWhatProcessDoes) {
    osg::ref_ptr<osg::Texture2D> texture = makeTexture("wall.rgb");
    const StandardError standardError;

    ChangeTextureExtension visitor("rgb", "dds");
    makeNode(texture)->accept(visitor);

    EXPECT_EQ(texture->getImage()->getFileName(), "wall.dds");
    EXPECT_EQ(standardError.text(), "Changing wall.rgb to wall.dds\n");
}

TEST(ChangeTextureExtension, CopyConstructionCopiesEverySetting) {
    ChangeTextureExtension original("rgb", "dds");
    ChangeTextureExtension copy(original);
    const StandardError standardError;

    makeNode(makeTexture("wall.rgb"))->accept(copy);
    EXPECT_EQ(standardError.text(), "Changing wall.rgb to wall.dds\n");

    changeEverySetting(original);
    const ChangeTextureExtension changedCopy(original);
    expectEqualSettings(changedCopy, original);
}

TEST(ChangeTextureExtension, AssignmentCopiesEverySetting) {
    ChangeTextureExtension original("rgb", "dds");
    ChangeTextureExtension copy("png", "jpg");
    const StandardError standardError;

    copy = original;
    makeNode(makeTexture("wall.rgb"))->accept(copy);
    EXPECT_EQ(standardError.text(), "Changing wall.rgb to wall.dds\n");

    changeEverySetting(original);
    EXPECT_EQ(&(copy = original), &copy);
    expectEqualSettings(copy, original);
}
