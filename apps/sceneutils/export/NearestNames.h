#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** How many characters (of UTF-8) have to be put in, taken out or replaced to make the one text of the other. */
std::size_t editDistance(const std::string& one, const std::string& other);

/** The names that differ least from the wanted one, at most `count`; of those that differ alike, in byte order. */
std::vector<std::string> nearestNames(const std::string& wanted, const std::set<std::string>& names, std::size_t count);

}  // namespace veltrane::sceneutils::tool
