#pragma once

#include <osg/Node>
#include <osg/Program>
#include <osg/ref_ptr>

#include <cstdint>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** A program that a tile uses, with what uses it there. */
struct TileProgram {
    std::string name;   ///< made fit for a line
    std::string place;  ///< the names of the nodes from the root on
    std::vector<std::string> state;
    std::uint64_t digest = 0;  ///< of the content: the same for the same
    std::string content;       ///< asContent(); may be left out where the digest is known
};

/** The programs of a graph, those that do the same once. */
std::vector<TileProgram> tileProgramsOf(osg::Node& graph);

/** All that compiling and linking a program depends on, and its name, as bytes that another process can read. */
std::string asContent(const osg::Program& program);

/** The same program again. */
osg::ref_ptr<osg::Program> programFrom(const std::string& content);

}  // namespace veltrane::sceneutils::tool
