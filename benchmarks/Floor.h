#pragma once

#include <osg/BoundingSphere>
#include <osg/Group>
#include <osg/Program>
#include <osg/ref_ptr>

#include <filesystem>
#include <map>
#include <string>

namespace veltrane::sceneutils::benchmarks {

/**
 * The least that a recursive conversion of a sample database can cost: the calls of OpenSceneGraph that the library
 * makes, with the same arguments and in the same order, held together by as little code as ends with the same files.
 *
 * It relies on what is true of sample databases: textures on unit 0 only, no text, no point sprites, no uniforms, no
 * OVERRIDE, no references in circles, none that hang nowhere, the paths of all files written the same way.
 */
class Floor {
public:
    /** Makes the two programs that sample databases need. */
    Floor();

    void convert(const std::filesystem::path& master);

private:
    osg::BoundingSphere convertFile(const std::string& path, float maxRange, bool smooth);
    void convertReferences(osg::Group& group, const std::string& folder, float maxRange);
    void addPrograms(osg::Node& node, bool isTextured);
    void addProgram(osg::StateSet& stateSet, bool isTextured);

    osg::ref_ptr<osg::Program> _program;
    osg::ref_ptr<osg::Program> _texturingProgram;
    std::map<std::string, osg::BoundingSphere> _spheres;  ///< of the files that are done, by their paths
};

}  // namespace veltrane::sceneutils::benchmarks
