#pragma once

#include <osg/Node>
#include <osg/Vec3d>
#include <osg/ref_ptr>

#include <filesystem>
#include <string>
#include <vector>

namespace veltrane::sceneutils::benchmarks {

/** A place from which a scene is looked at. */
struct Outlook {
    std::string name;
    osg::Vec3d eye;
    osg::Vec3d target;
};

/** One way in which a scene is arranged, in a file. */
struct Arrangement {
    std::string name;
    std::filesystem::path file;
    bool isPaged = false;    ///< the file needs the others of its folder
    bool showsMore = false;  ///< than the others: what lies beyond its range too
};

/** A scene, as it was made at first and in other ways. */
struct FrameScene {
    std::string name;
    std::vector<Arrangement> arrangements;
    std::vector<Outlook> outlooks;
};

/** Makes scenes in a folder, by the tool and in processes of their own: nothing of them is left in this one. */
class SceneMaker {
public:
    /** @param tool the program `sceneutils` @param folder exists and is empty */
    SceneMaker(std::filesystem::path tool, std::filesystem::path folder);

    /** A sample database of four levels in one graph, and what `sceneutils optimize` makes of it. */
    FrameScene makeSample(unsigned int tiles) const;

    /** A town (see Town.h), and what `sceneutils optimize` makes of it. */
    FrameScene makeTown(int drawables) const;

    /**
     * A sample database, converted, with the textures in their files and in the tiles' files; and the same content in
     * one file, textures too, with the ranges of the tiles and without.
     */
    FrameScene makeDatabase(unsigned int tiles, double maxRange) const;

private:
    void runTool(const std::vector<std::string>& arguments) const;
    Arrangement optimized(const std::filesystem::path& file, double radius) const;

    std::filesystem::path _tool;
    std::filesystem::path _folder;
};

/** @throws std::runtime_error if there is no graph in the file */
osg::ref_ptr<osg::Node> readScene(const std::filesystem::path& file);

}  // namespace veltrane::sceneutils::benchmarks
