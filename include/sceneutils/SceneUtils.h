#pragma once

#include <sceneutils/Export.h>

#include <osg/Node>
#include <osg/PositionAttitudeTransform>
#include <osg/Program>
#include <osg/Shader>
#include <osg/ref_ptr>

#include <string>

/** @file The library's free functions. */

namespace veltrane::sceneutils {

/**
 * Makes a program from one shader file.
 * @param fileName looked for along osgDB's data file path, in its own letter case
 * @param type which stage the file is for
 * @return a new program, the caller's to hold: with the one shader, or without any when the file was not found (which
 *     is logged, see reloadShader())
 */
SCENEUTILS_EXPORT osg::ref_ptr<osg::Program> loadShader(const std::string& fileName, osg::Shader::Type type);

/**
 * Replaces all shaders of a program by one read from a file, so that a hand-written shader can be edited while the
 * application runs.
 * @param fileName looked for along osgDB's data file path, in its own letter case
 * @param type which stage the file is for
 * @param program the program that is changed; null is ignored
 *
 * A file that is not found leaves the program as it is and logs the warning "Failed to load fragment shader: FILE" in
 * the category "sceneutils" (it says "fragment" whatever the type). A file that is found but cannot be read, a folder
 * for example, leaves the program with one shader without text.
 *
 * Keeps no state of its own. Must not run while another thread uses the program.
 */
SCENEUTILS_EXPORT void reloadShader(const std::string& fileName, osg::Shader::Type type,
                                    osg::ref_ptr<osg::Program> program);

/**
 * Finds the transform by which a part of a model is moved.
 * @param root the whole graph below it is searched, see FindNodeVisitor; null finds nothing
 * @param name the whole name, in its own letter case
 * @return the first node of that name, which belongs to the graph; null if there is none, or if it is no
 *     osg::PositionAttitudeTransform. Further nodes of the name are deliberately not looked at. Nothing is reported.
 */
SCENEUTILS_EXPORT osg::PositionAttitudeTransform* findNamedPAT(osg::Node* root, const std::string& name);

}  // namespace veltrane::sceneutils
