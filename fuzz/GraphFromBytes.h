#pragma once

#include "ByteChoices.h"

#include <osg/Group>

namespace fuzzing {

/** A graph that the bytes choose; the same bytes make the same graph again, of other objects. */
struct GraphFromBytes {
    /** Whether geometries may lack arrays, or have odd ones or wild numbers, as no reader of files makes them. */
    enum class Geometries { Any, AsFromFiles };

    explicit GraphFromBytes(ByteChoices& choices, Geometries geometries = Geometries::Any);

    osg::ref_ptr<osg::Group> top;

    /**
     * Whether there are numbers that nobody should need: infinite ones, some that are none, scales of 0. Without them,
     * all coordinates are small whole numbers, all turns are right angles, and every place in the world is exact.
     */
    bool isWild = false;
};

}  // namespace fuzzing
