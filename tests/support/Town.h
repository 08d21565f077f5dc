#pragma once

#include <osg/Group>
#include <osg/ref_ptr>

/** A town to optimise and to look at. */
namespace testing_support {

/** How large a town is, and what chance decides in it: the turns of houses, the places of trees, what is in a LOD. */
struct TownSettings {
    unsigned int seed = 1;
    int blocksPerSide = 6;  ///< blocks of 60 by 60 units, from the origin towards +x and +y; z is up
};

/** The width of a block of a town. */
constexpr float townBlock = 60.0f;

/** The distance at which the trees of a town change from the fine to the coarse level. */
constexpr float townTreeSwitch = 150.0f;

/** The distance beyond which trees are not seen. */
constexpr float townTreeEnd = 3000.0f;

/**
 * Quarters of two by two blocks, with what a scenery has: models shared below static transforms, levels of detail that
 * never switch, trees of two levels side by side in groves, gates that are switched, lamps in sequences, windmills of
 * which the rotor's transform is dynamic, small groups of benches, names, descriptions, textures and transparent parts.
 *
 * The same settings make the same town again, of other objects. What it looks like follows from the graph alone:
 * - No two surfaces share a plane where they overlap.
 * - Of the transparent parts, ponds lie side by side and are drawn before panes, and panes are all of one colour,
 *   unlit, and write no depth, so that their order does not show.
 * - State sets hang on the root, on geodes and on drawables: not on plain groups, LODs and transforms, which the
 *   optimisation of batches dissolves together with their state.
 */
osg::ref_ptr<osg::Group> makeTown(const TownSettings& settings = {});

}  // namespace testing_support
