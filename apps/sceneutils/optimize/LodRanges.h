#pragma once

#include <osg/LOD>
#include <osg/Node>

#include <functional>
#include <vector>

namespace veltrane::sceneutils::tool {

/** LODs of one child and one range, which an optimiser may take for useless. */
struct SingleLods {
    std::vector<osg::LOD*> withEffect;     ///< whose loss may be seen
    std::vector<osg::LOD*> withoutEffect;  ///< that show their child to every eye in eyeRegion()
};

/** @param keeps says which ones are needed for something else than their range */
SingleLods singleLodsIn(osg::Node& root, const std::function<bool(const osg::LOD&)>& keeps);

}  // namespace veltrane::sceneutils::tool
