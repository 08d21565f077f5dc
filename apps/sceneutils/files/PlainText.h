#pragma once

#include <osg/Vec3f>

#include <cstdint>
#include <string>

namespace veltrane::sceneutils::tool {

/** A name from a damaged file can hold anything; one problem is one line, and a terminal is not to be steered by it. */
std::string withoutControlCharacters(std::string text);

/**
 * The same for text in which such characters are what it is about: a line feed becomes "\n", and what else could steer
 * a terminal, change the direction of writing, or is not UTF-8, becomes "\x1b" byte by byte.
 */
std::string withVisibleControlCharacters(const std::string& text);

/** The shortest text without an exponent that reads back as the same number. */
std::string asText(float number);

/** "X,Y,Z" */
std::string asText(const osg::Vec3f& point);

/** The number with the fewest digits that is the same float: 0.1f becomes 0.1. */
double withFewDigits(float number);

/** "1 tile", "2 tiles" */
std::string plural(std::uint64_t count, const std::string& one, const std::string& many);

}  // namespace veltrane::sceneutils::tool
