#pragma once

#include <osg/Shader>
#include <osgDB/FileUtils>

#include <string>

namespace veltrane::sceneutils {

/**
 * Reads a shader's text from the file at exactly that path; false, and the text as it was, if that cannot be read.
 * A folder is refused here because osg::Shader takes it for a file and reads memory that was never set.
 */
inline bool loadShaderText(osg::Shader& shader, const std::string& path) {
    return osgDB::fileType(path) != osgDB::DIRECTORY && shader.loadShaderSourceFromFile(path);
}

}  // namespace veltrane::sceneutils
