#pragma once

#include <osg/Camera>
#include <osg/Group>
#include <osg/Vec2d>
#include <osg/Vec4>
#include <osg/ref_ptr>

#include <string>
#include <vector>

namespace veltrane::sceneutils::offscreen {

/** A line in a picture: columns and rows from its lower left corner, in pixels. */
struct OverlayLine {
    osg::Vec2d from;
    osg::Vec2d to;
    osg::Vec4 color;
};

/**
 * Areas, lines and text over a picture, in its pixels, each drawn over what was added before. The text is in
 * OpenSceneGraph's own font, so that it looks the same on every machine; letters that it does not have are left out.
 */
class Overlay {
public:
    /** How high a line of text is, and how wide one letter, in pixels. */
    static constexpr double textHeight = 12.0;
    static constexpr double letterWidth = 8.0;

    /** @param width,height of the picture in pixels, at least 1 */
    Overlay(int width, int height);

    void addArea(const osg::Vec2d& low, const osg::Vec2d& high, const osg::Vec4& color);

    /** @param width in pixels, greater than 0 */
    void addLines(const std::vector<OverlayLine>& lines, float width);

    /** @param place of the lower left corner @param text of one line, in UTF-8 */
    void addText(const std::string& text, const osg::Vec2d& place, const osg::Vec4& color);

    /** How wide addText() writes it, in pixels. */
    static double widthOf(const std::string& text);

    /** What draws all that; to be put into the scene. */
    osg::Camera* camera() const { return _camera; }

private:
    osg::ref_ptr<osg::Camera> _camera;
    osg::ref_ptr<osg::Group> _content;
};

/** Where in a picture, and from where, a panel shows a scene: along parallels, so that lengths can be measured. */
struct PanelView {
    int left = 0;  ///< the panel's lower left corner and size, in the picture's pixels
    int bottom = 0;
    int width = 1;
    int height = 1;
    osg::Vec3d center;                      ///< the point in the panel's middle
    osg::Vec3d towardsEye{0.0, -1.0, 0.0};  ///< of length 1, as is `up`
    osg::Vec3d up{0.0, 0.0, 1.0};
    double unitsPerPixel = 1.0;
    double eyeDistance = 1.0;  ///< from the center; what is nearer to it than twice that is seen
};

/**
 * What draws a scene into a part of a picture; to be put into the scene of a SceneRenderer. Each level of detail is
 * shown as from next to it, wherever it is.
 */
osg::ref_ptr<osg::Camera> makePanel(osg::Node* scene, const PanelView& view, const osg::Vec4& background);

}  // namespace veltrane::sceneutils::offscreen
