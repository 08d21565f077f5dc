#include "FrameTimes.h"

#include "Median.h"
#include "ThreadTime.h"

#include <osg/Camera>
#include <osg/ComputeBoundsVisitor>
#include <osg/CullSettings>

#include <cstdlib>
#include <vector>

namespace veltrane::sceneutils::benchmarks {

namespace {

constexpr int framesToWarmUp = 3;
constexpr double eyeHeight = 20.0;

/** Takes the time when drawing begins. */
class DrawingBegins : public osg::Camera::DrawCallback {
public:
    void operator()(osg::RenderInfo&) const override { time = threadMilliseconds(); }
    mutable double time = 0.0;
};

}  // namespace

void keepDriverOnOneThread() {
    setenv("LP_NUM_THREADS", "0", 1);
}

void look(offscreen::SceneRenderer& renderer, osg::Node& scene, FrameView view) {
    renderer.setHomeView();
    if (view == FrameView::Whole) return;
    osg::ComputeBoundsVisitor bounds;
    scene.accept(bounds);
    const osg::Vec3d eye = osg::Vec3d(bounds.getBoundingBox().center()) + osg::Vec3d(0, 0, eyeHeight);
    renderer.setView(eye, eye + osg::X_AXIS);
}

void showSmallThings(offscreen::SceneRenderer& renderer) {
    osg::Camera& camera = *renderer.viewer().getCamera();
    camera.setCullingMode(camera.getCullingMode() & ~osg::CullSettings::SMALL_FEATURE_CULLING);
}

FrameTimes timeFrames(offscreen::SceneRenderer& renderer, int frames) {
    osg::Camera& camera = *renderer.viewer().getCamera();
    const osg::ref_ptr<DrawingBegins> drawing = new DrawingBegins;
    camera.setInitialDrawCallback(drawing);

    std::vector<double> culls, draws;
    for (int frame = -framesToWarmUp; frame < frames; ++frame) {
        const double start = threadMilliseconds();
        renderer.drawFrame();
        renderer.waitForDriver();
        const double end = threadMilliseconds();
        if (frame < 0) continue;
        culls.push_back(drawing->time - start);
        draws.push_back(end - drawing->time);
    }
    camera.setInitialDrawCallback(nullptr);
    return {medianOf(culls), medianOf(draws)};
}

FrameTimes measureFrames(osg::Node& scene, FrameView view, int frames) {
    keepDriverOnOneThread();
    offscreen::SceneRenderer renderer(frameWidth, frameHeight);
    renderer.setScene(&scene);
    look(renderer, scene, view);
    showSmallThings(renderer);
    return timeFrames(renderer, frames);
}

}  // namespace veltrane::sceneutils::benchmarks
