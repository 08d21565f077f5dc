#pragma once

#include <offscreen/SceneRenderer.h>

#include <osg/Node>

namespace veltrane::sceneutils::benchmarks {

constexpr int frameWidth = 640;  ///< of the frames that are measured, in pixels
constexpr int frameHeight = 480;

/** From where a scene is looked at. */
enum class FrameView {
    Whole,   ///< all of it in sight
    Street,  ///< from its middle, little above the ground, to the east
};

/** Milliseconds of processor time for one frame, medians. */
struct FrameTimes {
    double cull = 0.0;  ///< all until drawing begins
    double draw = 0.0;  ///< until the driver has drawn everything
};

/** Lets a software driver work on the thread that draws, which is measured. Call it before anything has been drawn. */
void keepDriverOnOneThread();

/** Looks at the renderer's scene, which is given once more. */
void look(offscreen::SceneRenderer& renderer, osg::Node& scene, FrameView view);

/** Small things are not left out, so that all ways of arranging a scene draw the same. */
void showSmallThings(offscreen::SceneRenderer& renderer);

/** Draws what the renderer shows, a few times more often than is measured. */
FrameTimes timeFrames(offscreen::SceneRenderer& renderer, int frames);

/** Draws frames of a scene with its small things. Call this before anything else has been drawn. */
FrameTimes measureFrames(osg::Node& scene, FrameView view, int frames);

}  // namespace veltrane::sceneutils::benchmarks
