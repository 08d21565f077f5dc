#include "PlainText.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace veltrane::sceneutils::tool {

std::string withoutControlCharacters(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    return text;
}

std::string asText(float number) {
    char text[64];  // the longest such number has 48 characters
    return {text, std::to_chars(text, text + sizeof text, number, std::chars_format::fixed).ptr};
}

std::string asText(const osg::Vec3f& point) {
    return asText(point.x()) + "," + asText(point.y()) + "," + asText(point.z());
}

double withFewDigits(float number) {
    if (!std::isfinite(number)) return static_cast<double>(number);
    const std::string text = asText(number);
    double result = 0.0;
    std::from_chars(text.data(), text.data() + text.size(), result);
    return result;
}

std::string plural(std::uint64_t count, const std::string& one, const std::string& many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace veltrane::sceneutils::tool
