#include "PlainText.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace veltrane::sceneutils::tool {

namespace {

/** How many bytes a well-formed character takes at a place of a text; 0: there is none. */
std::size_t lengthOfCharacter(const std::string& text, std::size_t at, char32_t& character) {
    const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
    const unsigned int first = byte(at);
    const std::size_t length = first < 0x80 ? 1 : first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    if (first > 0xf4 || length == 0) return 0;
    character = length == 1 ? first : first & (0x7fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xc0u) != 0x80u) return 0;
        character = (character << 6) | (byte(at + i) & 0x3fu);
    }
    const bool isLongerThanNeeded = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
    const bool isSurrogate = character >= 0xd800 && character <= 0xdfff;
    return isLongerThanNeeded || isSurrogate || character > 0x10ffff ? 0 : length;
}

bool steersTheOutput(char32_t character) {
    const auto isIn = [&](char32_t first, char32_t last) { return character >= first && character <= last; };
    return isIn(0, 0x1f) || isIn(0x7f, 0x9f) || isIn(0x200e, 0x200f) || isIn(0x2028, 0x202e) || isIn(0x2066, 0x2069);
}

std::string asEscape(char byte) {
    if (byte == '\n') return "\\n";
    if (byte == '\r') return "\\r";
    if (byte == '\t') return "\\t";
    constexpr char digits[] = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(byte);
    return {'\\', 'x', digits[value >> 4], digits[value & 0xfu]};
}

}  // namespace

std::string withVisibleControlCharacters(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        char32_t character = 0;
        const std::size_t length = lengthOfCharacter(text, at, character);
        const std::size_t taken = std::max<std::size_t>(length, 1);
        if (length > 0 && !steersTheOutput(character)) {
            result.append(text, at, taken);
        } else {
            for (std::size_t i = 0; i < taken; ++i) result += asEscape(text[at + i]);
        }
        at += taken;
    }
    return result;
}

std::string withoutControlCharacters(std::string text) {
    for (std::size_t at = 0; at < text.size();) {
        char32_t character = 0;
        const std::size_t length = lengthOfCharacter(text, at, character);
        const bool isControl = length > 0 && (character < 0x20 || (character >= 0x7f && character <= 0x9f));
        if (isControl) text.replace(at, length, 1, '?');
        at += isControl ? 1 : std::max<std::size_t>(length, 1);
    }
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
