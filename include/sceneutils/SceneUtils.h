#pragma once

#include <sceneutils/Export.h>

#include <osg/Group>
#include <osg/Node>
#include <osg/PositionAttitudeTransform>
#include <osg/Program>
#include <osg/Shader>
#include <osg/StateSet>
#include <osg/Texture>
#include <osg/Vec4>
#include <osg/ref_ptr>

#include <string>

/** @file
 * The library's free functions.
 */

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
 * Makes a soil sample: a mound of polygons, to be drawn by a program of the caller's with three textures and what the
 * soil is made of.
 * @param height how high the mound is: its peak lies at z = 28 height + 11, in graph units. There is no mound unless it
 *     is greater than 0. Above 0.1875 the mound is wider and higher at its far x side, and only there.
 * @param clayTex the texture of unit 0, sampler "ClayTex"
 * @param siltTex the texture of unit 1, sampler "SiltTex"
 * @param sandTex the texture of unit 2, sampler "SandTex"
 * @param program draws the mound; nothing here says what it makes of the uniforms
 * @param clayPercentage the float uniform of that name, as are the next four; passed on as it is, in whatever range the
 *     program expects
 * @param siltPercentage see clayPercentage
 * @param sandPercentage see clayPercentage
 * @param waterVolumePercentage see clayPercentage
 * @param frozenPercentage see clayPercentage
 * @return a new node that nothing refers to yet, the caller's to hold: a geode of one geometry, or an empty osg::Node
 *     when there is no mound
 *
 * A null texture or program is left out; the samplers are declared all the same. The mound has neither colours nor
 * normals, and lighting is switched off for it. Textures and program are shared, not copied.
 *
 * Reports nothing and keeps no state: may run in several threads at a time.
 */
SCENEUTILS_EXPORT osg::Node* GetDirt(double height, osg::ref_ptr<osg::Texture> clayTex,
                                     osg::ref_ptr<osg::Texture> siltTex, osg::ref_ptr<osg::Texture> sandTex,
                                     osg::ref_ptr<osg::Program> program, float clayPercentage, float siltPercentage,
                                     float sandPercentage, float waterVolumePercentage, float frozenPercentage);

/**
 * Turns a state set into that of a wireframe overlay: whatever is drawn below it shows as lines of one colour, two
 * pixels wide and untextured, whatever the lights.
 * @param stateSet the state set that is changed; null is ignored
 * @param color the colour of the lines. Its alpha has no effect: the lines are opaque.
 * @param offset factor and units of the polygon offset; negative values pull towards the viewer. OpenGL applies it to
 *     lines only where GL_POLYGON_OFFSET_LINE is on too, which is left to the caller.
 *
 * Replaces the polygon offset, line width, material and polygon mode of the state set by new ones and overrides those
 * below it; everything else in the state set stays. A program, there or inherited, draws in its own colours.
 *
 * Reports nothing and keeps no state. Must not run while another thread uses the state set.
 */
SCENEUTILS_EXPORT void makeWireframe(osg::StateSet* stateSet, const osg::Vec4& color, float offset);

/**
 * Makes a coordinate system to look at: three lines from the ends of the axes to the origin, x red, y green and z blue.
 * @param size how long the lines are, in graph units; negative ones point the other way
 * @return a new SimpleGeometryGenerator, the caller's to hold, to which more can be added
 *
 * The lines get a generated program that draws them unlit and in fog, see ShaderGenerator; its uniform "fogDensity" is
 * the caller's to set, and is 0, no fog, as long as nobody does.
 *
 * Reports nothing. Uses the ShaderGenerator of the process: may run in several threads at a time.
 */
SCENEUTILS_EXPORT osg::ref_ptr<osg::Group> createCoordinateSystemGeometry(float size);

/**
 * Finds the transform by which a part of a model is moved.
 * @param root the whole graph below it is searched, see FindNodeVisitor; null finds nothing
 * @param name the whole name, in its own letter case
 * @return the first node of that name, which belongs to the graph; null if there is none, or if it is no
 *     osg::PositionAttitudeTransform. Further nodes of the name are deliberately not looked at. Nothing is reported.
 */
SCENEUTILS_EXPORT osg::PositionAttitudeTransform* findNamedPAT(osg::Node* root, const std::string& name);

/**
 * Makes a test object: the model "rock.osg", at a place that is always the same.
 * @return a new transform that nothing refers to yet, the caller's to hold, at (46.406150817871094, 15, 6) in graph
 *     units. The model, looked for along osgDB's data file path with the registry's options, is its only child; it has
 *     none when the model cannot be read, which OpenSceneGraph reports.
 *
 * Keeps no state.
 */
SCENEUTILS_EXPORT osg::PositionAttitudeTransform* addRock();

/**
 * Writes a graph, or one node of it with all that hangs below, to the file FILEBASE.osg.
 * @param root the graph; null writes nothing
 * @param name the whole name of the node, in its own letter case. The first node of that name is written, see
 *     FindNodeVisitor; nothing is if there is none. Empty or null: the whole graph.
 * @param fileBase the file's path but for its ending, of any length; null writes nothing
 *
 * The node is written as it is, in its own coordinates: transforms and state above it are left out. An existing file is
 * replaced. Nothing is reported, not even a file that cannot be written, as that of a graph in which a geode has other
 * children than drawables. The graph is not changed and not held.
 *
 * Keeps no state. Must not run while another thread changes the graph.
 */
SCENEUTILS_EXPORT void exportNode(osg::Group* root, const char* name, const char* fileBase);

}  // namespace veltrane::sceneutils
