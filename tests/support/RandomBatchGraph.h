#pragma once

#include <osg/Group>

namespace testing_support {

/** What chance decides in a random graph of groups, levels of detail, transforms, switches, geodes and drawables. */
struct BatchGraphSettings {
    unsigned int seed = 0;
    unsigned int nodes = 30;         ///< inner nodes
    unsigned int sharedPercent = 0;  ///< how many of the places are taken by nodes that hang elsewhere already
    unsigned int lodPercent = 35;    ///< of the inner nodes
    bool oddLODs = false;            ///< whether LODs may have more or fewer children than ranges
};

/** The same settings make the same graph again, of other objects. Models lie within 100 units of the origin. */
osg::ref_ptr<osg::Group> makeRandomBatchGraph(const BatchGraphSettings& settings);

}  // namespace testing_support
