#include "ShaderFiles.h"

#include "../Command.h"
#include "../files/WholeFile.h"

#include <osg/Shader>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

std::string endingOf(osg::Shader::Type type) {
    switch (type) {
        case osg::Shader::VERTEX:
            return ".vert";
        case osg::Shader::FRAGMENT:
            return ".frag";
        case osg::Shader::GEOMETRY:
            return ".geom";
        case osg::Shader::TESSCONTROL:
            return ".tctrl";
        case osg::Shader::TESSEVALUATION:
            return ".teval";
        case osg::Shader::COMPUTE:
            return ".comp";
        default:
            return ".glsl";
    }
}

}  // namespace

std::vector<ShaderFile> shaderFiles(const std::vector<ListedProgram>& programs, const fs::path& folder) {
    std::vector<ShaderFile> files;
    for (const ListedProgram& program : programs) {
        std::map<std::string, int> countOf;
        for (unsigned int i = 0; i < program.program->getNumShaders(); ++i) {
            const osg::Shader& shader = *program.program->getShader(i);
            const std::string ending = endingOf(shader.getType());
            const int number = ++countOf[ending];
            const std::string which = number == 1 ? "" : "." + std::to_string(number);
            files.push_back({folder / (program.name + which + ending), program.name, shader.getShaderSource()});
        }
    }
    return files;
}

void writeShaderFiles(const std::vector<ShaderFile>& files, bool mayOverwrite) {
    try {
        for (const ShaderFile& file : files) checkOutputPath(file.path, mayOverwrite);
        for (const ShaderFile& file : files) {
            WholeFile whole(file.path, mayOverwrite);
            whole.stream() << file.text;
            whole.commit();
        }
    } catch (const OutputError& error) {
        throw CommandError(ExitStatus::OutputNotWritten, error.what());
    }
}

}  // namespace veltrane::sceneutils::tool
