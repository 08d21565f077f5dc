#include "SceneRenderer.h"

#include "TilePager.h"

#include <osg/Math>

#include <algorithm>
#include <cmath>

namespace veltrane::sceneutils::offscreen {

namespace {

constexpr double nearPlane = 1.0;  // replaced in each frame by what the scene needs, as is the far plane
constexpr double farPlane = 10000.0;
constexpr double homeElevation = 30.0;  // degrees
constexpr double homeMargin = 1.05;

}  // namespace

SceneRenderer::SceneRenderer(int width, int height)
    : _context(new OffscreenContext(width, height)), _pager(new TilePager) {
    _viewer.setThreadingModel(osgViewer::Viewer::SingleThreaded);
    _viewer.setReleaseContextAtEndOfFrameHint(false);
    _viewer.setDatabasePager(_pager);

    osg::Camera& camera = *_viewer.getCamera();
    camera.setGraphicsContext(_context);
    camera.setViewport(0, 0, width, height);
    camera.setProjectionMatrixAsPerspective(fieldOfView, static_cast<double>(width) / height, nearPlane, farPlane);
    _viewer.realize();
}

SceneRenderer::~SceneRenderer() = default;

void SceneRenderer::setScene(osg::Node* scene) {
    _viewer.setSceneData(scene);
    setHomeView();
}

void SceneRenderer::setView(const osg::Vec3d& eye, const osg::Vec3d& target) {
    const osg::Vec3d sight = target - eye;
    const bool isUpright = sight.x() == 0.0 && sight.y() == 0.0;
    _viewer.getCamera()->setViewMatrixAsLookAt(eye, target, isUpright ? osg::Y_AXIS : osg::Z_AXIS);
}

bool SceneRenderer::setHomeView() {
    const osg::BoundingSphere bound =
        _viewer.getSceneData() ? _viewer.getSceneData()->getBound() : osg::BoundingSphere();
    if (!bound.valid() || bound.radius() == 0.0f) return false;

    const osg::Viewport& viewport = *_viewer.getCamera()->getViewport();
    const double halfHeight = std::tan(osg::DegreesToRadians(fieldOfView / 2.0));
    const double half = std::atan(halfHeight * std::min(1.0, viewport.aspectRatio()));
    const double distance = homeMargin * bound.radius() / std::sin(half);
    const double elevation = osg::DegreesToRadians(homeElevation);
    const osg::Vec3d center = bound.center();
    setView(center + osg::Vec3d(0.0, -std::cos(elevation), std::sin(elevation)) * distance, center);
    return true;
}

void SceneRenderer::drawFrame() {
    // A viewer shares what belongs to a scene, the pager too, with other viewers of the same scene.
    _viewer.setDatabasePager(_pager);
    _pager->beginFrame();
    // The viewer believes that its context stays current, even when another renderer has drawn meanwhile.
    _context->makeCurrent();
    _viewer.frame(0.0);
}

osg::ref_ptr<osg::Image> SceneRenderer::drawPicture() {
    drawFrame();
    const osg::GraphicsContext::Traits& size = *_context->getTraits();
    osg::ref_ptr<osg::Image> picture = new osg::Image;
    picture->readPixels(0, 0, size.width, size.height, GL_RGBA, GL_UNSIGNED_BYTE);
    return picture;
}

std::vector<std::string> SceneRenderer::loadTiles() {
    _pager->startLoading();
    do {
        drawFrame();
        _pager->waitForReaders();
    } while (_pager->hasNewRequests());
    _pager->stopLoading();
    return _pager->failures();
}

}  // namespace veltrane::sceneutils::offscreen
