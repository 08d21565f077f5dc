#pragma once

#include <osg/Node>
#include <osg/ref_ptr>

#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** A file that a graph names: an external reference or a tile of a paged LOD. */
struct FileReference {
    std::string name;                        ///< as it stands in the graph
    std::string databasePath;                ///< what OpenSceneGraph puts in front of it
    bool isPaged = false;                    ///< a tile of a paged LOD
    bool isLoaded = false;                   ///< what the file holds hangs in the graph
    osg::ref_ptr<osg::Referenced> userData;  ///< of the reference: what an OpenFlight file hands on to the other
};

/** All of a graph, each node's once, in the order of the graph. */
std::vector<FileReference> fileReferences(osg::Node& root);

/** How many files the graph names that are not loaded with it; each name counts once. */
std::size_t countUnloadedFiles(osg::Node& root);

}  // namespace veltrane::sceneutils::tool
