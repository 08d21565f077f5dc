#include "SceneRenderer.h"

#include "TilePager.h"

#include <osg/ComputeBoundsVisitor>
#include <osg/GL>
#include <osg/Math>
#include <osg/PagedLOD>

#include <algorithm>
#include <cmath>

namespace veltrane::sceneutils::offscreen {

namespace {

constexpr double nearPlane = 1.0;  // replaced in each frame by what the scene needs, as is the far plane
constexpr double farPlane = 10000.0;
constexpr double homeElevation = 30.0;  // degrees
constexpr double homeMargin = 1.05;

// A light at a place, though far away: generated programs take each light for one.
const osg::Vec3 towardsTheSun(-0.4f, -0.6f, 0.7f);
constexpr float sunDistance = 100.0f;  // in radii of the scene

/** The box around all drawables, and around the spheres of tiles that are not loaded. */
class ExtentVisitor : public osg::ComputeBoundsVisitor {
public:
    using osg::ComputeBoundsVisitor::apply;

    void apply(osg::PagedLOD& paged) override {
        const osg::BoundingSphere& bound = paged.getBound();
        if (paged.getNumChildren() == 0 && bound.valid()) {
            osg::BoundingBox box;
            box.expandBy(bound);
            applyBoundingBox(box);
        }
        traverse(paged);
    }
};

}  // namespace

osg::BoundingBox extentOf(osg::Node* scene) {
    ExtentVisitor visitor;
    if (scene) scene->accept(visitor);
    return visitor.getBoundingBox();
}

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

void SceneRenderer::setTilePreparation(std::function<void(osg::Node&)> prepare) {
    _pager->setPreparation(std::move(prepare));
}

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
    const osg::BoundingBox extent = extentOf(_viewer.getSceneData());
    if (!extent.valid()) return false;
    const osg::Vec3d center = extent.center();
    const double diagonal = (osg::Vec3d(extent._max) - osg::Vec3d(extent._min)).length();
    if (diagonal == 0.0 || !std::isfinite(diagonal)) return false;

    const double elevation = osg::DegreesToRadians(homeElevation);
    const osg::Vec3d toEye(0.0, -std::cos(elevation), std::sin(elevation));
    const osg::Vec3d up(0.0, std::sin(elevation), std::cos(elevation));
    const double halfHeight = std::tan(osg::DegreesToRadians(fieldOfView / 2.0));
    const double halfWidth = halfHeight * _viewer.getCamera()->getViewport()->aspectRatio();

    double distance = 0.0;
    for (unsigned int i = 0; i < 8; ++i) {
        const osg::Vec3d corner = osg::Vec3d(extent.corner(i)) - center;
        const double sideways = std::max(std::abs(corner.x()) / halfWidth, std::abs(corner * up) / halfHeight);
        distance = std::max(distance, corner * toEye + sideways);
    }
    setView(center + toEye * (homeMargin * distance), center);
    return true;
}

void SceneRenderer::setSunlight() {
    const osg::BoundingBox extent = extentOf(_viewer.getSceneData());
    const osg::Vec3 center = extent.valid() ? extent.center() : osg::Vec3();
    const float radius = extent.valid() ? extent.radius() : 1.0f;
    _viewer.setLightingMode(osg::View::SKY_LIGHT);
    _viewer.getLight()->setPosition(osg::Vec4(center + towardsTheSun * (radius * sunDistance), 1.0f));
    _viewer.getLight()->setAmbient(osg::Vec4(0.3f, 0.3f, 0.3f, 1.0f));
    _viewer.getLight()->setDiffuse(osg::Vec4(0.9f, 0.9f, 0.9f, 1.0f));
}

void SceneRenderer::drawFrame() {
    // A viewer shares what belongs to a scene, the pager too, with other viewers of the same scene.
    _viewer.setDatabasePager(_pager);
    _pager->beginFrame();
    // The viewer believes that its context stays current, even when another renderer has drawn meanwhile.
    _context->makeCurrent();
    _viewer.frame(0.0);
}

void SceneRenderer::waitForDriver() {
    _context->makeCurrent();
    glFinish();
}

osg::ref_ptr<osg::Image> SceneRenderer::drawPicture(GLenum format) {
    drawFrame();
    const osg::GraphicsContext::Traits& size = *_context->getTraits();
    osg::ref_ptr<osg::Image> picture = new osg::Image;
    picture->readPixels(0, 0, size.width, size.height, format, GL_UNSIGNED_BYTE);
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

const std::vector<std::string>& SceneRenderer::tilesBelowThemselves() const {
    return _pager->belowThemselves();
}

}  // namespace veltrane::sceneutils::offscreen
