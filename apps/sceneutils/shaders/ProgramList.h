#pragma once

#include <osg/Node>
#include <osg/Program>
#include <osg/ref_ptr>

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** Programs of one name and the same shader texts, and what uses them in a graph. */
struct ListedProgram {
    /**
     * The programs' name, made fit for a line and for a file: control characters and slashes become '_', no name
     * becomes "unnamed". Names are distinct: of different programs with one name, the second is called NAME-2.
     */
    std::string name;
    osg::ref_ptr<const osg::Program> program;  ///< one of them
    std::size_t stateSets = 0;                 ///< how many distinct state sets have one of them
    std::size_t kept = 0;                      ///< how many of those have one that the graph had before
    osg::NodePath user;                        ///< the last place at which a walk meets one of them
};

/** The programs that a graph has before others are generated. */
using ProgramSet = std::set<osg::ref_ptr<const osg::Program>>;

ProgramSet programsOf(osg::Node& graph);

/** The programs of a graph's state sets, sorted by name, numbers in names by their value. */
std::vector<ListedProgram> listPrograms(osg::Node& graph, const ProgramSet& before);

/** Whether `left` comes before `right` in a list for people: t2 before t10. */
bool comesBefore(const std::string& left, const std::string& right);

}  // namespace veltrane::sceneutils::tool
