#include "support/Pictures.h"
#include "support/Town.h"

#include <offscreen/SceneRenderer.h>
#include <sceneutils/MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor.h>
#include <sceneutils/OptimizeBatches.h>

#include <gtest/gtest.h>

#include <osg/CullSettings>
#include <cstdlib>

using namespace testing_support;
using namespace veltrane::sceneutils;
using offscreen::SceneRenderer;

namespace {

struct View { const char* name; osg::Vec3d eye; osg::Vec3d target; };
const View views[] = {
    {"street", {-10, -20, 4}, {120, 140, 3}},
    {"inside", {150, 28, 3}, {180, 180, 4}},
    {"roofs", {180, -150, 120}, {180, 160, 0}},
    {"above", {181, 180, 420}, {180, 181, 0}},
    {"middle", {-350, -250, 150}, {180, 180, 0}},
    {"far", {900, -1000, 350}, {180, 180, 0}},
    {"horizon", {-2500, -400, 300}, {180, 180, 0}},
};

int largestCluster(const osg::Image& a, const osg::Image& b) {
    std::vector<char> open(static_cast<size_t>(a.s() * a.t()));
    forEachPixel(a, [&](int x, int y) { open[size_t(y * a.s() + x)] = pixelAt(a, x, y) != pixelAt(b, x, y); });
    int best = 0;
    for (int i = 0; i < a.s() * a.t(); ++i) {
        if (!open[size_t(i)]) continue;
        std::vector<int> todo{i};
        open[size_t(i)] = 0;
        int n = 0;
        while (!todo.empty()) {
            const int p = todo.back(); todo.pop_back(); ++n;
            for (int dy = -1; dy <= 1; ++dy) for (int dx = -1; dx <= 1; ++dx) {
                int x = p % a.s() + dx, y = p / a.s() + dy;
                if (x < 0 || y < 0 || x >= a.s() || y >= a.t() || !open[size_t(y * a.s() + x)]) continue;
                open[size_t(y * a.s() + x)] = 0;
                todo.push_back(y * a.s() + x);
            }
        }
        best = std::max(best, n);
    }
    return best;
}
}

TEST(BatchPictures, Explore) {
    const bool noSmall = std::getenv("NOSMALL");
    for (const View& v : views) {
        ShownPictures shown(std::string("batch_") + v.name);
        auto draw = [&](osg::Node* n) {
            SceneRenderer r(640, 480);
            if (noSmall) r.viewer().getCamera()->setCullingMode(r.viewer().getCamera()->getCullingMode() & ~osg::CullSettings::SMALL_FEATURE_CULLING);
            r.setScene(n);
            r.setView(v.eye, v.target);
            return r.drawPicture();
        };
        osg::ref_ptr<osg::Image> before = shown.add(draw(makeTown()));
        for (double limit : {-1.0, 100.0}) for (double radius : {0.0, 60.0, 1e9}) {
            osg::ref_ptr<osg::Group> town = makeTown();
            if (limit > 0) MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor::process(town, limit * limit);
            OptimizeBatches o; o.setUnspatializeRadius(radius); o.process(town);
            auto after = draw(town);
            if (limit < 0) shown.add(after);
            std::cout << v.name << " limit " << limit << " radius " << radius << ": " << differenceOf(*before, *after)
                      << ", cluster " << largestCluster(*before, *after) << "\n";
        }
    }
}
