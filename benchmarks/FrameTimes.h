#pragma once

#include <osg/Node>

namespace veltrane::sceneutils::benchmarks {

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

/**
 * Draws frames of 640 by 480 pixels. Small things are not left out, so that all ways of arranging a scene draw the
 * same. A software driver works on this thread and is measured with it; call this before anything else has been drawn.
 */
FrameTimes measureFrames(osg::Node& scene, FrameView view, int frames);

}  // namespace veltrane::sceneutils::benchmarks
