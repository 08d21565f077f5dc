#pragma once

#include <osg/Node>
#include <osg/ref_ptr>

#include <filesystem>

namespace veltrane::sceneutils::tool {

/**
 * Notes where the files lie that a file in `folder` names relatively: images that exist get absolute names, external
 * references without a database path get that folder as theirs.
 */
void resolveNames(osg::Node& root, const std::filesystem::path& folder);

/**
 * Changes the names in a graph to what a file in `folder` has to hold, so that the folder can be moved as one: other
 * files are named relatively to it, images that have no file are marked to be written with their pixels, and external
 * references that were loaded become ordinary groups.
 * @return the graph's root, which is another one if it was such a reference
 */
osg::ref_ptr<osg::Node> withPortableNames(osg::ref_ptr<osg::Node> root, const std::filesystem::path& folder);

}  // namespace veltrane::sceneutils::tool
