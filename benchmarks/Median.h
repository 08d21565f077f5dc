#pragma once

#include <algorithm>
#include <vector>

namespace veltrane::sceneutils::benchmarks {

/** The number in the middle; of an even number of them the upper one. There must be one. */
inline double medianOf(std::vector<double> numbers) {
    std::sort(numbers.begin(), numbers.end());
    return numbers[numbers.size() / 2];
}

}  // namespace veltrane::sceneutils::benchmarks
