#pragma once

#include <osg/Node>

#include <filesystem>

namespace veltrane::sceneutils::tool {

/**
 * Inputs are never overwritten, whatever the user allows.
 * @param graph what was read from `input`; the files that were loaded with it are inputs, too
 * @throws CommandError with OutputNotWritten if `output` is one of the inputs
 */
void checkIsNoInput(const std::filesystem::path& output, const std::filesystem::path& input, osg::Node& graph);

}  // namespace veltrane::sceneutils::tool
