#pragma once

#include <osg/BoundingSphere>
#include <osg/Node>
#include <osg/Vec3d>

#include <vector>

namespace veltrane::sceneutils::tool {

/** A place to look at a graph from. */
struct Eye {
    osg::Vec3d place;
    double distance = 0.0;  ///< from the centre of the graph
};

/** What an eye may be in: around the centre of the graph's bound, as wide as the bound and at least as wide as the
 * distance from which LODs are taken to be seen. */
osg::BoundingSphered eyeRegion(const osg::Node& root);

/** At most so many: each is a bit of a mask. */
constexpr std::size_t mostEyes = 16;

/**
 * Places within the region: near the graph and farther away, and in and between the ranges of the LODs that occur, so
 * far from their borders that rounding decides nothing.
 */
std::vector<Eye> chooseEyes(const osg::Node& root);

}  // namespace veltrane::sceneutils::tool
