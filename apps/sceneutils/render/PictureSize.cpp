#include "PictureSize.h"

#include "../Command.h"

namespace veltrane::sceneutils::tool {

namespace {

constexpr int largestSide = 16384;

}  // namespace

std::array<int, 2> parsePictureSize(const std::string& text, int smallest) {
    std::array<int, 2> size = {0, 0};
    const auto isGood = [&](int side) { return side >= smallest && side <= largestSide; };
    if (parseNumbers(text, 'x', size) && isGood(size[0]) && isGood(size[1])) return size;
    throw CommandError(ExitStatus::Usage, "--size: '" + text + "' is no WIDTHxHEIGHT, each " +
                                              std::to_string(smallest) + " to " + std::to_string(largestSide) +
                                              " pixels");
}

}  // namespace veltrane::sceneutils::tool
