#include "support/Graphs.h"
#include "support/Pictures.h"

#include <offscreen/Overlay.h>
#include <offscreen/SceneRenderer.h>

#include <gmock/gmock.h>

#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>

using namespace testing_support;
using veltrane::sceneutils::offscreen::extentOf;
using veltrane::sceneutils::offscreen::makePanel;
using veltrane::sceneutils::offscreen::Overlay;
using veltrane::sceneutils::offscreen::PanelView;
using veltrane::sceneutils::offscreen::SceneRenderer;

namespace {

constexpr int pixels = 60;
const osg::Vec4 greenInk(0, 1, 0, 1);
const osg::Vec4 redInk(1, 0, 0, 1);

osg::ref_ptr<osg::Image> draw(osg::Node* node) {
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(node);
    SceneRenderer renderer(pixels, pixels);
    renderer.setScene(scene);
    return renderer.drawPicture();
}

int countOf(const Rgb& color, const osg::Image& picture) {
    int count = 0;
    forEachPixel(picture, [&](int x, int y) { count += pixelAt(picture, x, y) == color; });
    return count;
}

/** A unit square in the xy plane, green and unlit. */
osg::ref_ptr<osg::Geode> makeGreenSquare(const osg::Vec3& corner = osg::Vec3()) {
    const osg::ref_ptr<osg::Geometry> square = makeSquare(corner);
    square->setColorArray(new osg::Vec4Array(1, &greenInk), osg::Array::BIND_OVERALL);
    square->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return makeGeode(square);
}

/** From above, 10 pixels for a unit, in the lower left quarter. */
PanelView fromAbove() {
    PanelView view;
    view.width = view.height = pixels / 2;
    view.towardsEye = osg::Z_AXIS;
    view.up = osg::Y_AXIS;
    view.unitsPerPixel = 0.1;
    view.eyeDistance = 10.0;
    return view;
}

}  // namespace

TEST(Overlay, DrawsAreasAndLinesPixelByPixel) {
    Overlay overlay(pixels, pixels);
    overlay.addArea({10.0, 20.0}, {15.0, 22.0}, greenInk);
    overlay.addLines({{{30.0, 40.0}, {40.0, 40.0}, redInk}, {{30.0, 50.0}, {40.0, 50.0}, {0, 0, 1, 1}}}, 1.0f);

    const auto picture = draw(overlay.camera());

    EXPECT_EQ(countOf(green, *picture), 10);
    EXPECT_EQ(pixelAt(*picture, 10, 20), green);
    EXPECT_EQ(pixelAt(*picture, 14, 21), green);
    EXPECT_EQ(pixelAt(*picture, 35, 40), red);
    EXPECT_EQ(pixelAt(*picture, 35, 50), blue);
    EXPECT_NEAR(countOf(red, *picture), 10, 1);
}

TEST(Overlay, DrawsWhatIsAddedLaterOverWhatWasThere) {
    Overlay overlay(pixels, pixels);
    overlay.addLines({{{0.0, 30.0}, {60.0, 30.0}, redInk}}, 3.0f);
    overlay.addArea({0.0, 0.0}, {60.0, 60.0}, greenInk);

    EXPECT_EQ(countOf(green, *draw(overlay.camera())), pixels * pixels);
}

TEST(Overlay, WritesTextAsWideAsItSays) {
    ShownPictures shown("overlay_text");
    Overlay overlay(pixels, pixels);
    overlay.addText("HH", {10.0, 20.0}, redInk);

    const auto picture = shown.add(draw(overlay.camera()));

    EXPECT_EQ(Overlay::widthOf("HH"), 16.0);
    EXPECT_EQ(Overlay::widthOf("\u00fc"), 8.0);
    EXPECT_LT(countOf(background, *picture), pixels * pixels - 20);
    forEachPixel(*picture, [&](int x, int y) {
        const bool isInside = x >= 9 && x <= 26 && y >= 19 && y <= 33;
        if (!isInside) {
            EXPECT_EQ(pixelAt(*picture, x, y), background) << x << "," << y;
        }
    });
}

TEST(Panel, ShowsASceneToScaleInItsPartOfThePicture) {
    const auto picture = draw(makePanel(makeGreenSquare(), fromAbove(), redInk));

    EXPECT_EQ(countOf(green, *picture), 100);
    EXPECT_EQ(pixelAt(*picture, 15, 15), green);  // the origin is in the panel's middle
    EXPECT_EQ(pixelAt(*picture, 24, 24), green);
    EXPECT_EQ(countOf(red, *picture), pixels * pixels / 4 - 100);
    EXPECT_EQ(pixelAt(*picture, 30, 10), background);
}

TEST(Panel, ShowsEachLevelOfDetailAsFromNearby) {
    const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->addChild(makeGreenSquare(), 0.0f, 0.5f);
    lod->addChild(makeGeode(makeSquare(osg::Vec3(-1, -1, 0))), 0.5f, 1e9f);

    const auto picture = draw(makePanel(lod, fromAbove(), redInk));

    EXPECT_EQ(countOf(green, *picture), 100);
    EXPECT_EQ(countOf(red, *picture), pixels * pixels / 4 - 100);
}

TEST(Panel, LightsASceneFromItsOwnSide) {
    const osg::ref_ptr<osg::Geode> square = makeGreenSquare();
    square->getDrawable(0)->setStateSet(nullptr);

    EXPECT_GT(pixelAt(*draw(makePanel(square, fromAbove(), redInk)), 20, 20)[1], 200);
}

TEST(Panel, ShowsScenesFarFromTheOrigin) {
    const osg::Vec3d far(4000000.0, 5000000.0, 3000000.0);
    const osg::ref_ptr<osg::MatrixTransform> moved = new osg::MatrixTransform(osg::Matrix::translate(far));
    moved->addChild(makeGreenSquare());
    PanelView view = fromAbove();
    view.center = far;

    EXPECT_EQ(countOf(green, *draw(makePanel(moved, view, redInk))), 100);
}

TEST(ExtentOf, HoldsDrawablesAndTilesThatAreNotLoaded) {
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(makeGreenSquare());
    EXPECT_EQ(extentOf(scene)._max, osg::Vec3(1, 1, 0));

    const osg::ref_ptr<osg::PagedLOD> paged = new osg::PagedLOD;
    paged->setCenter(osg::Vec3(10, 0, 0));
    paged->setRadius(2.0f);
    scene->addChild(paged);
    EXPECT_EQ(extentOf(scene)._max.x(), 12.0f);
    EXPECT_FALSE(extentOf(nullptr).valid());
}
