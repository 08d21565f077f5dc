#include "support/LODDrawings.h"
#include "support/Pictures.h"
#include "support/ShadedScenes.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"

#include <offscreen/SceneRenderer.h>
#include <sceneutils/LODMarkup.h>
#include <sceneutils/ShaderGenerator.h>

#include <gmock/gmock.h>

#include <osg/ShapeDrawable>

#include <string>

using namespace testing_support;
using veltrane::sceneutils::LODMarkup;
using veltrane::sceneutils::ShaderGenerator;
using veltrane::sceneutils::offscreen::SceneRenderer;

namespace {

constexpr int pixels = 480;
constexpr Rgb yellow{255, 255, 0};
constexpr Rgb cyan{0, 255, 255};
constexpr Rgb magenta{255, 0, 255};
constexpr Rgb black{0, 0, 0};
constexpr Rgb orange{255, 128, 0};

/** A house with a radius of 60, shown up to 120. */
template <typename LOD>
osg::ref_ptr<LOD> makeHouse() {
    const osg::ref_ptr<LOD> lod = makeLOD<LOD>("house", osg::Vec3(), 60.0f);
    const osg::ref_ptr<osg::Geode> geode = makeGeode(new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(), 20.0f)));
    lod->osg::LOD::addChild(geode, 0.0f, 120.0f);
    return lod;
}

const osg::Vec3d middle(90, 0, 20);  // of the cubes and their labels
const osg::Vec3d fromTheSouth(100, -700, 400);
const osg::Vec3d fromAbove(90, -1, 800);

osg::ref_ptr<osg::Image> draw(osg::Node& node, const osg::Vec3d& eye) {
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    scene->addChild(&node);
    SceneRenderer renderer(pixels, pixels);
    renderer.setScene(scene);
    renderer.setView(eye, middle);
    return renderer.drawPicture(GL_RGBA);
}

int countOf(const Rgb& color, const osg::Image& picture) {
    int count = 0;
    forEachPixel(picture, [&](int x, int y) { count += pixelAt(picture, x, y) == color; });
    return count;
}

/** How many pixels are as dark as the letters of labels. */
int countDark(const osg::Image& picture) {
    int count = 0;
    forEachPixel(picture, [&](int x, int y) {
        const Rgb color = pixelAt(picture, x, y);
        count += color[0] < 20 && color[1] < 20 && color[2] < 40;
    });
    return count;
}

/** The chains to the sphere of a house, made where no file is in the way. */
template <typename LOD>
osg::ref_ptr<osg::Group> makeChains() {
    const TemporaryDirectory folder;
    const WorkingDirectory entered(folder.path());
    const StandardError standardError;
    osgText::Font::getDefaultFont()->getCachedStateSets().clear();
    const osg::ref_ptr<LOD> house = makeHouse<LOD>();
    return LODMarkup().markupPath(house->getChild(0));
}

/** The first level alone, without a shader run; in OpenSceneGraph's own font or in that of the file. */
osg::ref_ptr<osg::Group> makeLevel(bool inOwnFont) {
    const auto house = makeHouse<osg::LOD>();
    const auto generator = makeGenerator();
    LODMarkup().addToGeometry(house, house->getChild(0), generator);
    for (const osgText::Text* label : labelsOf(*generator)) {
        auto& text = const_cast<osgText::Text&>(*label);
        osg::ref_ptr<osgText::Font> font = text.getFont();
        if (inOwnFont) font = osgText::Font::getDefaultFont();
        if (!font) continue;
        font->getCachedStateSets().clear();  // which earlier shader runs may have changed
        text.setFont(nullptr);
        text.setFont(font);
    }
    return generator;
}

}  // namespace

TEST(LODMarkupPictures, ShowCubesAndSpokesAroundAnLOD) {
    ShownPictures shown("lod_cubes");
    const osg::ref_ptr<osg::Group> plain = new osg::Group;
    plain->addChild(makeHouse<osg::LOD>());
    const osg::ref_ptr<osg::Group> paged = new osg::Group;
    paged->addChild(makeHouse<osg::PagedLOD>());

    LODMarkup::process(plain);
    LODMarkup::process(paged);
    const auto plainPicture = shown.add(draw(*plain, fromTheSouth));
    const auto pagedPicture = shown.add(draw(*paged, fromTheSouth));

    for (const Rgb& color : {red, green, blue}) EXPECT_GT(countOf(color, *plainPicture), 200);
    for (const Rgb& color : {yellow, cyan, magenta}) EXPECT_GT(countOf(color, *pagedPicture), 200);
    EXPECT_EQ(countOf(magenta, *plainPicture), 0);
    EXPECT_EQ(countOf(blue, *pagedPicture), 0);
}

TEST(LODMarkupPictures, ShowTheChainToANode) {
    ShownPictures shown("lod_chain");

    const auto plain = shown.add(draw(*makeChains<osg::LOD>(), fromTheSouth));
    const auto paged = shown.add(draw(*makeChains<osg::PagedLOD>(), fromTheSouth));

    for (const Rgb& color : {red, green, blue, orange}) EXPECT_GT(countOf(color, *plain), 100);
    for (const Rgb& color : {yellow, cyan, magenta, orange}) EXPECT_GT(countOf(color, *paged), 100);
}

TEST(LODMarkupPictures, LabelsReadTheSameAfterAShaderRun) {
    ShownPictures shown("lod_labels");
    for (const bool inOwnFont : {true, false}) {
        const osg::ref_ptr<osg::Group> level = makeLevel(inOwnFont);
        const auto before = shown.add(draw(*level, fromAbove));

        ShaderGenerator::instance()->process(level, false, false, true, true);
        const auto after = shown.add(draw(*level, fromAbove));

        EXPECT_GT(countDark(*before), 300);
        EXPECT_NEAR(countDark(*after), countDark(*before), countDark(*before) / 10);
        EXPECT_LT(differenceOf(*before, *after).mean, 1.0) << differenceOf(*before, *after);
    }
}
