#pragma once

#include <osg/Node>
#include <osg/Transform>

#include <functional>
#include <limits>
#include <unordered_set>

namespace veltrane::sceneutils::tool {

/** Which transforms may be put into the vertices. */
struct FlatteningRules {
    double longestTranslation = std::numeric_limits<double>::infinity();
    bool scalesRanges = true;                     ///< whether the ranges of LODs are scaled with them
    std::function<bool(const osg::Node&)> keeps;  ///< says which ones have to stay as they are
};

/**
 * The static transforms that must not be put into the vertices below, or what is seen would change: those above
 * something that cannot be moved or above another transform that stays and does not commute, those that stretch LODs or
 * turn billboards, those that the rules keep, and those of other kinds than matrix and position-attitude transforms.
 */
std::unordered_set<osg::Transform*> transformsThatStay(osg::Node& root, const FlatteningRules& rules);

}  // namespace veltrane::sceneutils::tool
