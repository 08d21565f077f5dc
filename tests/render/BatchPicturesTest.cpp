#include "support/PictureClusters.h"
#include "support/Pictures.h"
#include "support/Town.h"

#include <offscreen/SceneRenderer.h>
#include <sceneutils/MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor.h>
#include <sceneutils/OptimizeBatches.h>

#include <gtest/gtest.h>

#include <osg/BlendFunc>
#include <osg/CullSettings>
#include <osg/Depth>

#include <ostream>
#include <string>
#include <vector>

using namespace testing_support;
using veltrane::sceneutils::MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor;
using veltrane::sceneutils::OptimizeBatches;
using veltrane::sceneutils::offscreen::SceneRenderer;

namespace {

constexpr double nothingFlattened = -1.0;
constexpr double squaredLimit = 150.0 * 150.0;  // of some houses and trees, not of all
constexpr double smallRadius = 60.0;            // of a block and its groves, but not of a quarter
constexpr double largeRadius = 1e9;

constexpr int smallPart = 4;        // pixels
constexpr int roundedCluster = 60;  // pixels: of a wall

constexpr float alwaysTheFineLevel = 0.001f;  // as scale of levels of detail

struct View {
    const char* name;
    osg::Vec3d eye;
    osg::Vec3d target;
    bool treesChange;  ///< whether some trees are near the distance at which their level changes
};

/** Near enough for fine trees beside coarse ones, for coarse ones only, and so far that some trees are not seen. */
const std::vector<View> views = {
    {"street", {-10, -20, 4}, {120, 140, 3}, true},   {"gate", {182, 6, 5}, {200, 200, 4}, true},
    {"tower", {60, -60, 40}, {160, 180, 0}, true},    {"roofs", {180, -150, 120}, {180, 160, 0}, false},
    {"above", {181, 180, 420}, {180, 181, 0}, false}, {"middle", {-350, -250, 150}, {180, 180, 0}, false},
    {"far", {900, -1000, 350}, {180, 180, 0}, false}, {"horizon", {-2650, -500, 300}, {180, 180, 0}, true},
};

struct Way {
    const char* name;
    double radius;
    double squaredLimit;
    int largestCluster;  ///< of pixels that differ by more than rounding where trees change
};

std::ostream& operator<<(std::ostream& out, const Way& way) {
    return out << way.name;
}

osg::ref_ptr<osg::Node> optimize(const osg::ref_ptr<osg::Node>& scene, const Way& way) {
    if (way.squaredLimit >= 0.0)
        MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor::process(scene, way.squaredLimit);
    OptimizeBatches optimizer;
    optimizer.setUnspatializeRadius(way.radius);
    optimizer.process(scene);
    return scene;
}

class Photographer {
public:
    /** Draws all that is in sight, however small, and with the fine level of all that has levels. */
    void lookClosely() {
        osg::Camera& camera = *_renderer.viewer().getCamera();
        camera.setCullingMode(camera.getCullingMode() & ~osg::CullSettings::SMALL_FEATURE_CULLING);
        camera.setLODScale(alwaysTheFineLevel);
    }

    osg::ref_ptr<osg::Image> draw(const osg::ref_ptr<osg::Node>& scene, const View& view) {
        _renderer.setScene(scene);
        _renderer.setView(view.eye, view.target);
        return _renderer.drawPicture();
    }

private:
    SceneRenderer _renderer{640, 480};
};

/** The town before and after, from each view. */
class BatchPictures : public testing::TestWithParam<Way> {
protected:
    struct Pair {
        View view;
        osg::ref_ptr<osg::Image> before;
        osg::ref_ptr<osg::Image> after;
    };

    std::vector<Pair> draw(const std::string& name) {
        const osg::ref_ptr<osg::Node> before = makeTown();
        const osg::ref_ptr<osg::Node> after = optimize(makeTown(), GetParam());
        std::vector<Pair> pairs;
        for (const View& view : views) {
            ShownPictures shown("batches_" + name + "_" + view.name + "_" + GetParam().name);
            pairs.push_back(
                {view, shown.add(photographer.draw(before, view)), shown.add(photographer.draw(after, view))});
            shown.add(makeDifferencePicture(*pairs.back().before, *pairs.back().after));
        }
        return pairs;
    }

    Photographer photographer;
};

osg::ref_ptr<osg::Node> makePane(float y, const osg::Vec4& color, osg::StateSet* state) {
    const osg::ref_ptr<osg::Geometry> pane =
        osg::createTexturedQuadGeometry(osg::Vec3(-1, y, -1), osg::Vec3(2, 0, 0), osg::Vec3(0, 0, 2));
    const osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array(osg::Array::BIND_PER_VERTEX, 4);
    for (osg::Vec4& each : *colors) each = color;
    pane->setColorArray(colors);
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(pane);
    geode->setStateSet(state);
    return geode;
}

/** A red pane before a blue one, seen from the south, and in the graph before it, too. */
osg::ref_ptr<osg::Node> makePanes() {
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->setAttributeAndModes(new osg::BlendFunc);
    state->setAttribute(new osg::Depth(osg::Depth::LESS, 0.0, 1.0, false));
    state->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    state->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
    const osg::ref_ptr<osg::Group> panes = new osg::Group;
    panes->addChild(makePane(-1.0f, osg::Vec4(1, 0, 0, 0.75f), state));
    panes->addChild(makePane(1.0f, osg::Vec4(0, 0, 1, 0.75f), state));
    return panes;
}

}  // namespace

// The clusters that are larger than a wall of which the shades are rounded another way are trees: those that were
// merged change their level together, at their common centre's distance. In the far views a few small parts appear
// that OpenSceneGraph left out before, each for itself being smaller than two pixels.
TEST_P(BatchPictures, ShowWhatTheTownWas) {
    for (const auto& [view, before, after] : draw("shown")) {
        SCOPED_TRACE(view.name);
        const int cluster = view.treesChange ? GetParam().largestCluster : smallPart;
        EXPECT_GT(partOtherThan(background, *before), 0.001);
        const PictureDifference difference = differenceOf(*before, *after);
        EXPECT_LT(difference.mean, 0.5) << difference;
        EXPECT_LE(DifferentPixels(*before, *after).largestCluster(), cluster + roundedCluster);
        EXPECT_LE(DifferentPixels(*before, *after, 1).largestCluster(), cluster) << difference;
    }
}

// Rounding: a vertex that was moved into place, and its normal that was turned, are no longer what the driver made of
// them. So single pixels at edges belong to the neighbour, and walls are by one step of 255 darker or lighter.
TEST_P(BatchPictures, DifferInRoundingOnlyWhereNothingIsLeftOutAndNoLevelChanges) {
    photographer.lookClosely();
    for (const auto& [view, before, after] : draw("closely")) {
        SCOPED_TRACE(view.name);
        const PictureDifference difference = differenceOf(*before, *after);
        EXPECT_LT(difference.mean, 0.002) << difference;
        EXPECT_LE(DifferentPixels(*before, *after).largestCluster(), roundedCluster) << difference;
        EXPECT_LE(DifferentPixels(*before, *after, 1).largestCluster(), 2) << difference;
    }
}

INSTANTIATE_TEST_SUITE_P(Ways, BatchPictures,
                         testing::Values(Way{"radius0", 0.0, nothingFlattened, smallPart},
                                         Way{"small", smallRadius, nothingFlattened, 1000},
                                         Way{"large", largeRadius, nothingFlattened, 2000},
                                         Way{"limited_radius0", 0.0, squaredLimit, smallPart},
                                         Way{"limited_small", smallRadius, squaredLimit, 1000},
                                         Way{"limited_large", largeRadius, squaredLimit, 2000}),
                         [](const testing::TestParamInfo<Way>& way) { return std::string(way.param.name); });

// A drawable is sorted as a whole: what is merged is drawn in the order of the graph, from wherever it is seen.
TEST(BatchPicturesOfPanes, ShowTheLaterOneOnTopWhereTwoOfOneStateOverlap) {
    const View fromSouth{"south", {0, -10, 0}, {0, 0, 0}, false};
    Photographer photographer;
    const Rgb before = centerOf(*photographer.draw(makePanes(), fromSouth));
    const Rgb after = centerOf(*photographer.draw(optimize(makePanes(), {"", 0.0, nothingFlattened, 0}), fromSouth));
    EXPECT_GT(before[0], before[2]);
    EXPECT_LT(after[0], after[2]);
}
