#pragma once

#include "ConversionPlan.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What a job must know of an external reference: which name it gets in the output, by what becomes of it. */
struct JobReference {
    std::string storedName;     ///< as the file has it, and as it stays if the referenced file cannot be converted
    std::string plainName;      ///< if the library passes over it, or it is not followed
    std::string convertedName;  ///< if the referenced file could be read or converted
    bool isFollowed = false;
};

/**
 * All that must be known to convert one file of a plan. Everything that depends on more than this file is decided, so
 * jobs need nothing from each other but the bounding spheres of the files that they refer to.
 */
struct ConversionJob {
    StoredPath path;
    StoredPath identity;
    StoredPath output;        ///< empty: the file is only read
    StoredPath inputFolder;   ///< the master's
    StoredPath outputFolder;  ///< the master's output's
    TextureMode textures = TextureMode::Relative;
    StoredPath textureFolder;  ///< where textures are gathered
    float maxRange = 0.0f;
    bool convertsReferences = false;
    bool smooths = false;
    bool mayOverwrite = false;
    std::vector<JobReference> references;
    std::map<StoredPath, StoredPath> texturePlaces;  ///< of textures that are not put in their usual places
};

/** @param file its place in the plan; it must have no problem */
ConversionJob jobOf(const ConversionPlan& plan, std::size_t file);

/** Where a texture that is not embedded lies for the output: copied there, unless it is there already. */
std::filesystem::path placeOfTexture(const ConversionJob& job, const std::filesystem::path& texture);

}  // namespace veltrane::sceneutils::tool
