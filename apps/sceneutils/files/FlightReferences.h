#pragma once

#include "FlightFile.h"

#include <filesystem>

namespace veltrane::sceneutils::tool {

/**
 * Looks through an OpenFlight file, with references through all that it refers to, before OpenSceneGraph reads them: it
 * takes a file that was cut short for a whole one, and of files that refer to each other in a ring it makes a graph
 * without an end. References to files that do not exist are passed over.
 * @throws FlightFileError if a file is damaged, refers to itself or is referred to over more than 100 levels; the
 *     message names it
 */
void checkFlightFile(const std::filesystem::path& path, bool withReferences);

}  // namespace veltrane::sceneutils::tool
