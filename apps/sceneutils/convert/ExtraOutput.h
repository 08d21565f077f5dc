#pragma once

#include "ConversionPlan.h"

#include <filesystem>

namespace veltrane::sceneutils::tool {

/** Where a file that is written besides the database comes to lie, resolved as far as it exists. */
std::filesystem::path placeOfExtraOutput(const std::filesystem::path& path);

/** @throws OutputError if such a file would take the place of an input or an output, or may not be written */
void checkExtraOutput(const ConversionPlan& plan, const std::filesystem::path& path);

}  // namespace veltrane::sceneutils::tool
