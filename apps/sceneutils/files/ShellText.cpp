#include "ShellText.h"

#include <algorithm>
#include <cstdio>

namespace veltrane::sceneutils::tool {

namespace {

constexpr unsigned char firstPrintable = 0x20;
constexpr unsigned char deleteCharacter = 0x7f;

bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < firstPrintable || byte == deleteCharacter;
}

std::string asOctal(unsigned char byte) {
    char text[8];
    std::snprintf(text, sizeof text, "\\%03o", byte);
    return text;
}

// In some encodings a backslash can be the second half of a character, so nothing but ASCII is left as it is.
std::string escaped(const std::string& text) {
    std::string result = "$'";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isPlain = byte >= firstPrintable && byte < deleteCharacter && c != '\'' && c != '\\';
        result += isPlain ? std::string(1, c) : asOctal(byte);
    }
    return result + "'";
}

}  // namespace

std::string shellQuoted(const std::string& text) {
    std::string result = "'";
    for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

std::string bashQuoted(const std::string& text) {
    return std::any_of(text.begin(), text.end(), isControl) ? escaped(text) : shellQuoted(text);
}

}  // namespace veltrane::sceneutils::tool
