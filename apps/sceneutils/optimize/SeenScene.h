#pragma once

#include "EffectiveState.h"
#include "EyePlaces.h"

#include <osg/Matrixd>
#include <osg/Node>
#include <osg/Vec3d>

#include <cstdint>
#include <set>
#include <vector>

namespace veltrane::sceneutils::tool {

/** A triangle, line or point in the world, or what stands for something else: a light, a tile, a drawable. */
struct SeenPrimitive {
    std::uint32_t eyes = 0;     ///< a bit for each eye that it is seen by
    std::uint32_t state = 0;    ///< the number of the content of what it is drawn with
    std::uint32_t what = 0;     ///< 0: a primitive; else the number of what it stands for
    std::uint32_t first = 0;    ///< corner
    std::uint32_t corners = 0;  ///< how many
    double amount = 0.0;        ///< the largest number that was added up for a coordinate of its corners
};

/**
 * What a graph shows to a few eyes: each primitive in each of its places, in double precision.
 *
 * LODs choose by distance as osg::LOD does for drawing, switches by their values. Of what chooses by time or by size on
 * the screen (sequences, multi-switches, LODs in pixels) all is taken to be seen, and of a paged LOD its tiles that are
 * not loaded. What nobody sees is listed too, with no eye. Triangles without an area of their own, whose corners fall
 * together in the world, are left out; quads, strips, fans and polygons are triangles.
 */
class SeenScene {
public:
    /** @param withoutProgram state sets whose shader program does not count */
    SeenScene(const osg::Node& root, const std::vector<Eye>& eyes, StateContents& contents,
              const std::set<const osg::StateSet*>& withoutProgram);

    std::vector<SeenPrimitive> primitives;
    std::vector<osg::Vec3d> corners;
    double largestAmount = 0.0;  ///< of the numbers that were added up for a coordinate

private:
    class Collection;
};

}  // namespace veltrane::sceneutils::tool
