#pragma once

#include <osg/Node>

#include <filesystem>

namespace veltrane::sceneutils::tool {

/**
 * Inputs are never overwritten, whatever the user allows.
 * @throws CommandError with OutputNotWritten if `output` is `input`, under whatever name
 */
void checkIsNoInput(const std::filesystem::path& output, const std::filesystem::path& input);

/** The same; the files that were loaded with `graph`, which was read from `input`, are inputs too. */
void checkIsNoInput(const std::filesystem::path& output, const std::filesystem::path& input, osg::Node& graph);

}  // namespace veltrane::sceneutils::tool
