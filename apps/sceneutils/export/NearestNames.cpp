#include "NearestNames.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <utility>

namespace veltrane::sceneutils::tool {

namespace {

constexpr unsigned int continuationMask = 0xC0;
constexpr unsigned int continuation = 0x80;
constexpr unsigned int bitsPerByte = 8;

/** One number for each character; what is no UTF-8 makes some characters, too. */
std::vector<std::uint32_t> charactersOf(const std::string& text) {
    std::vector<std::uint32_t> characters;
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if ((byte & continuationMask) == continuation && !characters.empty()) {
            characters.back() = (characters.back() << bitsPerByte) | byte;
        } else {
            characters.push_back(byte);
        }
    }
    return characters;
}

}  // namespace

std::size_t editDistance(const std::string& one, const std::string& other) {
    const std::vector<std::uint32_t> rows = charactersOf(one);
    const std::vector<std::uint32_t> columns = charactersOf(other);
    std::vector<std::size_t> distances(columns.size() + 1);  // from the rows so far to each beginning of the columns
    std::iota(distances.begin(), distances.end(), std::size_t(0));
    for (const std::uint32_t row : rows) {
        std::size_t diagonal = distances[0]++;
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const std::size_t replaced = diagonal + (row == columns[i] ? 0 : 1);
            diagonal = distances[i + 1];
            distances[i + 1] = std::min({replaced, distances[i] + 1, diagonal + 1});
        }
    }
    return distances.back();
}

std::vector<std::string> nearestNames(const std::string& wanted, const std::set<std::string>& names,
                                      std::size_t count) {
    std::vector<std::pair<std::size_t, std::string>> byDistance;
    for (const std::string& name : names) byDistance.emplace_back(editDistance(wanted, name), name);
    const std::size_t kept = std::min(count, byDistance.size());
    std::partial_sort(byDistance.begin(), byDistance.begin() + static_cast<std::ptrdiff_t>(kept), byDistance.end());

    std::vector<std::string> nearest;
    for (std::size_t i = 0; i < kept; ++i) nearest.push_back(byDistance[i].second);
    return nearest;
}

}  // namespace veltrane::sceneutils::tool
