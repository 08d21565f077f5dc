#include "TexturePlaces.h"

#include "../files/PlainText.h"
#include "ConversionPlan.h"
#include "JobFiles.h"

#include <algorithm>
#include <cctype>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* gatheringEnding = ".textures";
constexpr std::size_t longestFolderName = 255;
// Names of at most 143 bytes are left by file systems that encrypt them.
constexpr std::size_t longestStemKept = 100;
constexpr std::size_t longestEndingKept = 20;

bool isSafe(char byte, bool isPlainText) {
    const auto code = static_cast<unsigned char>(byte);
    if (code >= 0x80) return isPlainText;
    return std::isalnum(code) != 0 || byte == '.' || byte == '_' || byte == '-';
}

std::string safe(std::string text) {
    const bool isPlainText = withVisibleControlCharacters(text) == text;
    for (char& byte : text) {
        if (!isSafe(byte, isPlainText)) byte = '_';
    }
    return text;
}

/** The beginning of a text, no character of UTF-8 cut in two. */
std::string beginning(const std::string& text, std::size_t bytes) {
    if (text.size() <= bytes) return text;
    while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xc0) == 0x80) --bytes;
    return text.substr(0, bytes);
}

}  // namespace

const std::map<std::string, TextureMode>& textureModes() {
    static const std::map<std::string, TextureMode> modes = {
        {"relative", TextureMode::Relative}, {"copy", TextureMode::Copy}, {"embed", TextureMode::Embed}};
    return modes;
}

std::string nameOf(TextureMode mode) {
    for (const auto& [name, other] : textureModes()) {
        if (other == mode) return name;
    }
    return {};
}

fs::path gatheringFolder(const fs::path& output) {
    const std::string stem = output.stem().string();
    const std::string whole = stem + gatheringEnding;
    if (whole.size() <= longestFolderName) return output.parent_path() / whole;
    return output.parent_path() /
           (beginning(stem, longestStemKept) + "-" + asHexadecimal(hashOf(stem)) + gatheringEnding);
}

std::string gatheredName(const fs::path& inputFolder, const fs::path& texture) {
    const std::string name = texture.filename().string();
    const std::size_t dot = std::min(name.rfind('.'), name.size());
    std::string stem = beginning(safe(name.substr(0, dot)), longestStemKept);
    if (stem.empty() || stem.front() == '-' || stem.front() == '.') stem.insert(0, "_");
    const std::string ending = beginning(safe(name.substr(dot)), longestEndingKept);
    return stem + "-" + asHexadecimal(hashOf(relativeName(texture, inputFolder))) + ending;
}

fs::path usualPlace(const TextureFolders& folders, const fs::path& texture) {
    if (folders.mode == TextureMode::Copy) return folders.gathered / gatheredName(folders.input, texture);
    if (isBelow(texture, folders.output)) return texture;
    return mirroredPath(folders.input, folders.output, texture);
}

}  // namespace veltrane::sceneutils::tool
