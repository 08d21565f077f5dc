#pragma once

#include <osg/Node>
#include <osg/ref_ptr>

#include <filesystem>

namespace veltrane::sceneutils::benchmarks {

/** What becomes of the distance up to which a tile is seen when it is no longer paged. */
enum class TileRanges { Keep, Drop };

/**
 * Reads a paged database with all of its tiles into one graph, in which each paged LOD is an LOD, or a group if the
 * ranges are dropped. Files, textures and programs that occur in many places are shared, as far as they are the same.
 * @throws std::runtime_error if a file cannot be read
 */
osg::ref_ptr<osg::Node> readWholeDatabase(const std::filesystem::path& master, TileRanges ranges);

}  // namespace veltrane::sceneutils::benchmarks
