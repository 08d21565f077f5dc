#pragma once

#include "GraphInfo.h"

#include <osg/Drawable>

namespace veltrane::sceneutils::tool {

/** Counts by mode what a drawable draws; degenerate triangles count. Instances count as often as they are drawn. */
std::map<std::string, PrimitiveCount> countPrimitives(const osg::Drawable& drawable);

}  // namespace veltrane::sceneutils::tool
