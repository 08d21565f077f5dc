#include <sceneutils/SceneUtils.h>

#include "ShaderFile.h"
#include "log/LogChannel.h"

#include <sceneutils/FindNodeVisitor.h>

#include <osgDB/Registry>

namespace veltrane::sceneutils {

namespace {

log4cpp::Category* const logCategory = log::obtainCategory();

// What the log records say of their origin. Fixed, because users filter by it.
constexpr const char* logFile = "sceneutils/SceneUtils";
constexpr int shaderNotFoundLine = 486;

}  // namespace

osg::ref_ptr<osg::Program> loadShader(const std::string& fileName, osg::Shader::Type type) {
    osg::ref_ptr<osg::Program> program = new osg::Program;
    reloadShader(fileName, type, program);
    return program;
}

void reloadShader(const std::string& fileName, osg::Shader::Type type, osg::ref_ptr<osg::Program> program) {
    if (!program) return;

    osgDB::Registry* registry = osgDB::Registry::instance();
    const std::string path = registry->findDataFile(fileName, registry->getOptions(), osgDB::CASE_SENSITIVE);
    if (path.empty()) {
        log::emit(logCategory, log::Logger::WARN, logFile, shaderNotFoundLine,
                  [&](std::ostream& message) { message << "Failed to load fragment shader: " << fileName; });
        return;
    }

    while (program->getNumShaders() > 0) program->removeShader(program->getShader(0));
    osg::ref_ptr<osg::Shader> shader = new osg::Shader(type);
    loadShaderText(*shader, path);
    program->addShader(shader);
}

osg::PositionAttitudeTransform* findNamedPAT(osg::Node* root, const std::string& name) {
    if (!root) return nullptr;

    FindNodeVisitor finder(name);
    root->accept(finder);
    return dynamic_cast<osg::PositionAttitudeTransform*>(finder.getFirst());
}

}  // namespace veltrane::sceneutils
