#pragma once

#include <osg/Node>

namespace veltrane::sceneutils::tool {

/**
 * Makes what SimpleGeometryGenerator draws fit for files: where all primitives of a geometry have the same normal, each
 * its own, the geometry gets one for all of them. It looks the same; but the .ive writer refuses the former, and a
 * graph that was read from a file is not lit by it.
 *
 * A generator in the graph can no longer be added to.
 */
void bindNormalsOverall(osg::Node& graph);

}  // namespace veltrane::sceneutils::tool
