#include "Overlay.h"

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LightSource>
#include <osg/LineWidth>
#include <osgText/Text>

#include <cmath>

namespace veltrane::sceneutils::offscreen {

namespace {

constexpr int panelOrder = 0;
constexpr int overlayOrder = 1;

osg::ref_ptr<osg::Geometry> makeGeometry(const osg::ref_ptr<osg::Vec3Array>& vertices,
                                         const osg::ref_ptr<osg::Vec4Array>& colors, GLenum mode) {
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    const bool isInOneColor = colors->size() == 1;
    geometry->setVertexArray(vertices);
    geometry->setColorArray(colors, isInOneColor ? osg::Array::BIND_OVERALL : osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(mode, 0, static_cast<GLsizei>(vertices->size())));
    return geometry;
}

/** Lines through the middles of pixels, so that level ones are as wide as they are said to be. */
osg::Vec3 middleOfPixel(const osg::Vec2d& place) {
    return {static_cast<float>(std::floor(place.x()) + 0.5), static_cast<float>(std::floor(place.y()) + 0.5), 0.0f};
}

/** A light from over the eye's right shoulder. The viewer's own shines along the line of sight of the viewer's camera.
 */
osg::ref_ptr<osg::LightSource> makeHeadlight() {
    osg::ref_ptr<osg::LightSource> source = new osg::LightSource;
    source->setReferenceFrame(osg::LightSource::ABSOLUTE_RF);
    osg::Light& light = *source->getLight();
    light.setPosition(osg::Vec4(0.3f, 0.3f, 1.0f, 0.0f));
    light.setAmbient(osg::Vec4(0.3f, 0.3f, 0.3f, 1.0f));
    light.setDiffuse(osg::Vec4(0.9f, 0.9f, 0.9f, 1.0f));
    light.setSpecular(osg::Vec4());
    return source;
}

}  // namespace

Overlay::Overlay(int width, int height) : _camera(new osg::Camera), _content(new osg::Group) {
    _camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    _camera->setRenderOrder(osg::Camera::POST_RENDER, overlayOrder);
    _camera->setClearMask(0);
    _camera->setViewport(0, 0, width, height);
    _camera->setProjectionMatrixAsOrtho2D(0.0, width, 0.0, height);
    _camera->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    _camera->setCullingMode(osg::CullSettings::NO_CULLING);
    _camera->addChild(_content);
    osg::StateSet& state = *_content->getOrCreateStateSet();  // a camera's own could not choose the bin
    state.setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    state.setMode(GL_BLEND, osg::StateAttribute::ON);
    state.setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF);
    state.setRenderBinDetails(0, "TraversalOrderBin", osg::StateSet::OVERRIDE_RENDERBIN_DETAILS);
}

void Overlay::addArea(const osg::Vec2d& low, const osg::Vec2d& high, const osg::Vec4& color) {
    const osg::ref_ptr<osg::Vec3Array> corners = new osg::Vec3Array;
    for (const osg::Vec2d& corner : {low, osg::Vec2d(high.x(), low.y()), high, osg::Vec2d(low.x(), high.y())})
        corners->push_back(osg::Vec3(osg::Vec2(corner), 0.0f));
    _content->addChild(makeGeometry(corners, new osg::Vec4Array(1, &color), GL_TRIANGLE_FAN));
}

void Overlay::addLines(const std::vector<OverlayLine>& lines, float width) {
    const osg::ref_ptr<osg::Vec3Array> ends = new osg::Vec3Array;
    const osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array;
    for (const OverlayLine& line : lines) {
        for (const osg::Vec2d& end : {line.from, line.to}) {
            ends->push_back(middleOfPixel(end));
            colors->push_back(line.color);
        }
    }
    const osg::ref_ptr<osg::Geometry> geometry = makeGeometry(ends, colors, GL_LINES);
    geometry->getOrCreateStateSet()->setAttributeAndModes(new osg::LineWidth(width));
    _content->addChild(geometry);
}

void Overlay::addText(const std::string& text, const osg::Vec2d& place, const osg::Vec4& color) {
    const osg::ref_ptr<osgText::Text> letters = new osgText::Text;
    letters->setFont(osgText::Font::getDefaultFont());
    letters->setCharacterSize(static_cast<float>(textHeight));
    letters->setColor(color);
    letters->setAlignment(osgText::Text::LEFT_BOTTOM);
    letters->setPosition(osg::Vec3(osg::Vec2(osg::Vec2d(std::floor(place.x()), std::floor(place.y()))), 0.0f));
    letters->setText(text, osgText::String::ENCODING_UTF8);
    _content->addChild(letters);
}

double Overlay::widthOf(const std::string& text) {
    return letterWidth * static_cast<double>(osgText::String(text, osgText::String::ENCODING_UTF8).size());
}

osg::ref_ptr<osg::Camera> makePanel(osg::Node* scene, const PanelView& view, const osg::Vec4& background) {
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->setRenderOrder(osg::Camera::POST_RENDER, panelOrder);
    camera->setClearColor(background);
    camera->setViewport(view.left, view.bottom, view.width, view.height);
    const double halfWidth = view.width * view.unitsPerPixel / 2.0;
    const double halfHeight = view.height * view.unitsPerPixel / 2.0;
    camera->setProjectionMatrixAsOrtho(-halfWidth, halfWidth, -halfHeight, halfHeight, -view.eyeDistance,
                                       3.0 * view.eyeDistance);
    camera->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    camera->setViewMatrixAsLookAt(view.center + view.towardsEye * view.eyeDistance, view.center, view.up);
    camera->setLODScale(0.0f);
    camera->setCullingMode(camera->getCullingMode() & ~osg::CullSettings::SMALL_FEATURE_CULLING);
    camera->addChild(makeHeadlight());
    camera->addChild(scene);
    return camera;
}

}  // namespace veltrane::sceneutils::offscreen
