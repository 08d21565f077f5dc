#pragma once

#include "TileFinding.h"

#include <osg/BoundingSphere>

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

struct VerifySettings {
    std::string master;
    unsigned int secondsPerFile = 600;  ///< of processor time; also for each program
    std::size_t jobs = 1;
    bool checksPrograms = true;
};

/** What a file refers to, each name and place once. */
struct VerifiedReference {
    std::string name;                   ///< as it stands in the file
    std::optional<std::size_t> target;  ///< a file's number; none: it leads nowhere
    bool isRemote = false;
};

struct VerifiedFile {
    std::string path;      ///< as OpenSceneGraph is asked for it
    std::string identity;  ///< the path without links and dots in its folder
    std::optional<std::size_t> namedBy;
    bool isLoaded = false;
    std::uintmax_t bytes = 0;
    std::size_t textures = 0;
    osg::BoundingSphere sphere;
    std::vector<VerifiedReference> references;
    std::vector<TileFinding> findings;
};

/** A database and all that is wrong with it. Files stand in the order of the first encounter, the master first. */
struct VerifiedDatabase {
    std::vector<VerifiedFile> files;
    std::size_t programs = 0;
    std::string driver;               ///< that tried the programs; empty: none did
    std::string whyProgramsWereLeft;  ///< out although they should have been tried; else empty

    std::size_t references() const;
    std::size_t textures() const;
    std::size_t filesFailed() const;
    std::size_t findings() const;
    std::uintmax_t bytes() const;
    bool hasGaps() const;  ///< whether parts of it were not looked at
};

/**
 * Loads the master and all that hangs below it, each file once, in child processes.
 * @param onMessages is handed what OpenSceneGraph had to say of each file, if anything, in the order of the files
 * @throws CommandError with InputUnreadable if the master cannot be loaded
 */
VerifiedDatabase verifyDatabase(const VerifySettings& settings,
                                const std::function<void(const std::string&)>& onMessages);

}  // namespace veltrane::sceneutils::tool
