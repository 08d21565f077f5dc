#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace veltrane::sceneutils::tool {

/** What becomes of the textures that converted files use. */
enum class TextureMode {
    Relative,  ///< those from outside the output folder are copied to where they mirror their source
    Copy,      ///< all are copied into one folder beside the output
    Embed      ///< the pixels are stored in the converted files
};

/** By the names that they have on the command line. */
const std::map<std::string, TextureMode>& textureModes();

std::string nameOf(TextureMode mode);

/** Between which folders the textures of a database are brought. All are absolute and resolved. */
struct TextureFolders {
    TextureMode mode = TextureMode::Relative;
    std::filesystem::path input;     ///< the master's
    std::filesystem::path output;    ///< the master's output's
    std::filesystem::path gathered;  ///< where they are gathered, see gatheringFolder()
};

/** "NAME.textures" beside "NAME.ive". What is too long for a file system is cut, and ends in a hash instead. */
std::filesystem::path gatheringFolder(const std::filesystem::path& output);

/**
 * The name that a texture has among those of all folders: what can be kept of its own, a hash of its path as seen from
 * the master's folder, and its ending. So the name depends on that path alone, no two textures share it, not even where
 * letter case is ignored, and every file system can hold it.
 */
std::string gatheredName(const std::filesystem::path& inputFolder, const std::filesystem::path& texture);

/** Where a texture belongs that is not embedded: where it is already, or where it is to be copied. */
std::filesystem::path usualPlace(const TextureFolders& folders, const std::filesystem::path& texture);

}  // namespace veltrane::sceneutils::tool
