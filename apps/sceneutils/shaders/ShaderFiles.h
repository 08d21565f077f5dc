#pragma once

#include "ProgramList.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** A shader's text and the file that it is saved in. */
struct ShaderFile {
    std::filesystem::path path;
    std::string program;  ///< the name in the list
    std::string text;
};

/** The files for the texts of all programs: FOLDER/NAME.vert and FOLDER/NAME.frag, and so on for other shaders. */
std::vector<ShaderFile> shaderFiles(const std::vector<ListedProgram>& programs, const std::filesystem::path& folder);

/**
 * Writes the files, each whole or not at all; missing folders are made. If one may not be written, none is begun.
 * @throws CommandError with OutputNotWritten
 */
void writeShaderFiles(const std::vector<ShaderFile>& files, bool mayOverwrite);

}  // namespace veltrane::sceneutils::tool
