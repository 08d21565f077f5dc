#pragma once

#include <offscreen/OffscreenContext.h>

#include <cstddef>
#include <cstdint>

namespace fuzzing {

/**
 * Makes a graph of state sets of the bytes, has programs generated for it, and looks whether they are those that the
 * plainest possible walk comes to, whether a second run changes nothing, and what the driver says of their texts.
 * @throws BrokenPromise
 */
void runShaders(const std::uint8_t* data, std::size_t size, veltrane::sceneutils::offscreen::OffscreenContext& context);

}  // namespace fuzzing
