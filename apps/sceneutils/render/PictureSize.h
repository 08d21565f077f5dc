#pragma once

#include <array>
#include <cstddef>
#include <sstream>
#include <string>

namespace veltrane::sceneutils::tool {

/** Numbers with a separator between them and nothing else; false if that is not what the text is. */
template <typename Number, std::size_t count>
bool parseNumbers(const std::string& text, char separator, std::array<Number, count>& numbers) {
    std::istringstream stream(text);
    for (std::size_t i = 0; i < count; ++i) {
        if (i > 0 && stream.get() != separator) return false;
        if (!(stream >> numbers[i])) return false;
    }
    return stream.peek() == std::istringstream::traits_type::eof();
}

/**
 * The width and height that the option `--size` asks for, in pixels.
 * @throws CommandError with Usage if the text is no WIDTHxHEIGHT, each from `smallest` to 16384
 */
std::array<int, 2> parsePictureSize(const std::string& text, int smallest);

}  // namespace veltrane::sceneutils::tool
