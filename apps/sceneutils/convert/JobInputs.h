#pragma once

#include "JobFiles.h"

#include <osg/BoundingSphere>
#include <osg/Referenced>
#include <osg/ref_ptr>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** Told of every file that is looked for. */
using LookupListener = std::function<void(const std::filesystem::path& folder, const std::string& name,
                                          const std::filesystem::path& found)>;

/**
 * Reads the palettes that a file takes from above, as OpenSceneGraph's reader would hand them on if it read those files
 * whole. Null if there are none. Uses the osgDB registry's callbacks.
 */
osg::ref_ptr<osg::Referenced> readPalettes(const StateFolder& state, const std::vector<PaletteStep>& steps,
                                           const LookupListener& onLookup);

/** How large an OpenFlight file is as it is read, without what it refers to. Leaves the registry's callbacks alone. */
std::optional<osg::BoundingSphere> boundAsRead(const std::filesystem::path& path);

}  // namespace veltrane::sceneutils::tool
