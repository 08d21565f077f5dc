#pragma once

#include <csignal>
#include <cstdint>
#include <filesystem>

namespace veltrane::sceneutils::tool {

/** What a sample database is made of; the same options give the same bytes. */
struct SampleOptions {
    static constexpr unsigned maxTiles = 100000;
    static constexpr unsigned maxLevels = 4;
    static constexpr unsigned maxTextures = 1000;

    unsigned tiles = 16;     ///< terrain tiles of 1000 by 1000 m on a grid, 1 to maxTiles
    unsigned levels = 2;     ///< files below one another: 1 = tiles only, up to maxLevels
    unsigned textures = 8;   ///< image files, 1 to maxTextures
    unsigned seed = 1;       ///< another seed gives other heights, pictures and places
    bool lodHints = false;   ///< groups carry descriptions of the form "LOD_Transition_Range 500"
    bool sameNames = false;  ///< every tile's file is called "tile.flt", and likewise at each further level
};

/** Set by a signal handler: the database that is being written is given up and removed. */
extern volatile std::sig_atomic_t sampleInterrupted;

/** What has been written. */
struct SampleSummary {
    unsigned files = 0;            ///< OpenFlight files
    unsigned textures = 0;         ///< image files
    std::uintmax_t bytes = 0;      ///< of all files, the textures' attribute files included
    std::filesystem::path master;  ///< the file that refers to all tiles
};

/**
 * Writes a database of OpenFlight files: a master file, tiles in nested folders, the files and models that the tiles
 * refer to, and the textures of all of them.
 *
 * `directory` is made where it is missing, parents included; otherwise it must be empty. Every reference in the
 * database is relative, so the directory can be moved. The working directory changes while this runs, and OSG's
 * messages are held back: nothing else in the process should read or write files meanwhile.
 *
 * Throws CommandError: Usage for an option out of its range, OutputNotWritten when the directory cannot be used or a
 * file is not written whole. What was written until then is removed again.
 */
SampleSummary writeSampleDatabase(const std::filesystem::path& directory, const SampleOptions& options);

}  // namespace veltrane::sceneutils::tool
