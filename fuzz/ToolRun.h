#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzzing {

/**
 * Makes a graph of the bytes, sends it through tools of the library as the bytes choose, and looks after each whether
 * it did what it promises, and nothing else.
 * @throws BrokenPromise that names the tools so far
 */
void runTools(const std::uint8_t* data, std::size_t size);

}  // namespace fuzzing
