#pragma once

#include "Conversions.h"
#include "FlightFiles.h"

#include <osg/Group>
#include <osg/Image>
#include <osg/PagedLOD>
#include <osg/Program>
#include <osg/ProxyNode>
#include <osg/Texture2D>
#include <osgDB/WriteFile>

#include <filesystem>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

/** Small paged databases, written by OpenSceneGraph, and `sceneutils verify` run on them. */
namespace testing_support {

/** Writes a graph, options such as "noTexturesInIVEFile" included; missing folders are made. */
inline void writeTile(const std::filesystem::path& path, osg::Node& graph, const std::string& options = "") {
    std::filesystem::create_directories(path.parent_path());
    const osg::ref_ptr<osgDB::Options> writing = new osgDB::Options("noWriteExternalReferenceFiles " + options);
    writing->getDatabasePathList().push_back("");  // or a reference gets the folder put in front of it
    if (!osgDB::writeNodeFile(graph, path.string(), writing)) throw std::runtime_error("cannot write " + path.string());
}

/** A rectangle around the origin whose bounding sphere has that radius. */
inline osg::ref_ptr<osg::Geode> makeTile(float radius = 10.0f) {
    return makeGeode(makeRectangle(radius));
}

inline void writeTile(const std::filesystem::path& path, float radius = 10.0f) {
    writeTile(path, *makeTile(radius));
}

/** Shows a tile within a distance of the origin. */
inline osg::ref_ptr<osg::PagedLOD> makePaged(const std::string& name, float range = 1000.0f) {
    osg::ref_ptr<osg::PagedLOD> paged = new osg::PagedLOD;
    paged->setCenter(osg::Vec3());
    paged->setRadius(10.0f);
    paged->setFileName(0, name);
    paged->setRange(0, 0.0f, range);
    return paged;
}

/** A rectangle with paged tiles. */
inline osg::ref_ptr<osg::Group> makeMaster(const std::vector<std::string>& tiles) {
    osg::ref_ptr<osg::Group> master = new osg::Group;
    master->addChild(makeTile());
    for (const std::string& tile : tiles) master->addChild(makePaged(tile));
    return master;
}

inline void writeMaster(const std::filesystem::path& path, const std::vector<std::string>& tiles) {
    writeTile(path, *makeMaster(tiles));
}

/** An image of 2 by 2 pixels, which is written with its pixels unless told otherwise by "noTexturesInIVEFile". */
inline osg::ref_ptr<osg::Image> makePicture(const std::string& name) {
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(2, 2, 1, GL_RGB, GL_UNSIGNED_BYTE);
    std::fill_n(image->data(), image->getTotalSizeInBytes(), static_cast<unsigned char>(200));
    image->setFileName(name);
    return image;
}

inline osg::ref_ptr<osg::Geode> makeTileWith(osg::StateAttribute* attribute) {
    osg::ref_ptr<osg::Geode> tile = makeTile();
    if (dynamic_cast<osg::Texture*>(attribute)) {
        tile->getOrCreateStateSet()->setTextureAttribute(0, attribute);
    } else {
        tile->getOrCreateStateSet()->setAttribute(attribute);
    }
    return tile;
}

inline osg::ref_ptr<osg::Program> makeProgram(const std::string& name, const std::string& fragmentBody) {
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName(name);
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, "void main() {\n" + fragmentBody + "\n}\n"));
    return program;
}

/** A text file that keeps OpenSceneGraph's reader busy by what it is made of: groups that hold themselves. */
inline std::string groupInItself() {
    return "#Ascii Scene\n#Version 162\n#Generator OpenSceneGraph 3.6.5\n\nosg::Group {\n  UniqueID 1\n  Children 1 {\n"
           "    osg::Group {\n      UniqueID 1\n    }\n  }\n}\n";
}

/** A graph in which a node hangs in 2^48 places: to walk it takes for ever. */
inline osg::ref_ptr<osg::Group> makeEndless() {
    osg::ref_ptr<osg::Group> graph = new osg::Group;
    graph->addChild(makeTile());
    for (int level = 0; level < 48; ++level) {
        const osg::ref_ptr<osg::Group> above = new osg::Group;
        above->addChild(graph);
        above->addChild(graph);
        graph = above;
    }
    return graph;
}

/** Runs `sceneutils verify out/m.ive` in a folder; nothing may be left over. */
inline ToolResult verifyIn(const TemporaryDirectory& folder, std::vector<std::string> options = {},
                           ToolSettings settings = {}) {
    options.insert(options.begin(), {"verify", "out/m.ive"});
    settings.workingDirectory = folder.path();
    const ToolResult result = runTool(options, settings);
    EXPECT_FALSE(result.timedOut);
    EXPECT_FALSE(result.leftProcesses);
    EXPECT_EQ(result.signal, 0);
    return result;
}

}  // namespace testing_support
