#pragma once

#include "ReferenceGraph.h"

namespace veltrane::sceneutils::tool {

/**
 * Fills in the order in which the sound files are to be converted, marks those in cycles, and tells each knot of cycles
 * once, by a shortest way from the first of its files back to itself.
 */
void orderForConversion(ReferenceGraph& graph);

}  // namespace veltrane::sceneutils::tool
