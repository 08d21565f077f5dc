#pragma once

#include <osg/Node>

#include <string>

namespace testing_support {

/**
 * Puts a graph into words, so that two graphs can be compared: kinds, names, order, ranges, centres, radii, matrices,
 * vertices and bounds, to the last bit. Nodes are numbered as they are first met; what is met again is named by its
 * number, so that two graphs have the same description only if they share the same nodes in the same places.
 */
std::string describeGraph(const osg::Node& root);

}  // namespace testing_support
