#include "TilePrograms.h"

#include "../shaders/ProgramList.h"
#include "../shaders/ProgramOrigin.h"

#include <osg/Shader>

#include <nlohmann/json.hpp>

#include <functional>
#include <map>

namespace veltrane::sceneutils::tool {

namespace {

using nlohmann::json;

constexpr GLenum parameters[] = {GL_GEOMETRY_VERTICES_OUT_EXT, GL_GEOMETRY_INPUT_TYPE_EXT, GL_GEOMETRY_OUTPUT_TYPE_EXT};

json parametersOf(const osg::Program& program) {
    json values = json::array();
    for (const GLenum parameter : parameters) values.push_back(program.getParameter(parameter));
    return values;
}

json shadersOf(const osg::Program& program) {
    json shaders = json::array();
    for (unsigned int i = 0; i < program.getNumShaders(); ++i) {
        const osg::Shader& shader = *program.getShader(i);
        shaders.push_back({{"type", static_cast<int>(shader.getType())}, {"source", shader.getShaderSource()}});
    }
    return shaders;
}

}  // namespace

std::vector<TileProgram> tileProgramsOf(osg::Node& graph) {
    std::vector<TileProgram> programs;
    for (const ListedProgram& listed : listPrograms(graph, programsOf(graph))) {
        const std::string content = asContent(*listed.program);
        const std::uint64_t digest = std::hash<std::string>()(content);
        programs.push_back({listed.name, placeOf(listed), stateBehind(listed, {}), digest, content});
    }
    return programs;
}

std::string asContent(const osg::Program& program) {
    const json content = {{"name", program.getName()},
                          {"shaders", shadersOf(program)},
                          {"attributes", program.getAttribBindingList()},
                          {"outputs", program.getFragDataBindingList()},
                          {"parameters", parametersOf(program)}};
    const std::vector<std::uint8_t> bytes = json::to_cbor(content);
    return {bytes.begin(), bytes.end()};
}

osg::ref_ptr<osg::Program> programFrom(const std::string& content) {
    const json json = json::from_cbor(content);
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName(json.at("name"));
    std::size_t next = 0;
    for (const GLenum parameter : parameters) program->setParameter(parameter, json.at("parameters")[next++]);
    for (const auto& [name, index] : json.at("attributes").get<std::map<std::string, GLuint>>())
        program->addBindAttribLocation(name, index);
    for (const auto& [name, index] : json.at("outputs").get<std::map<std::string, GLuint>>())
        program->addBindFragDataLocation(name, index);
    for (const auto& shader : json.at("shaders")) {
        const auto type = static_cast<osg::Shader::Type>(shader.at("type").get<int>());
        program->addShader(new osg::Shader(type, shader.at("source").get<std::string>()));
    }
    return program;
}

}  // namespace veltrane::sceneutils::tool
