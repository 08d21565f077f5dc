#pragma once

#include <osg/Image>
#include <osg/Node>
#include <osg/ref_ptr>

#include <filesystem>

namespace veltrane::sceneutils::tool {

/** Whether the files that an OpenFlight file refers to are read with it. */
enum class References { Load, Leave };

/**
 * Reads a graph of any format that OpenSceneGraph reads. What OpenSceneGraph has to tell meanwhile (textures that are
 * missing, for example) goes to standard error.
 * @param parentPalettes of an OpenFlight file that another one refers to: the user data of the reference; may be null
 * @throws CommandError with InputUnreadable and one line that names the file and the reason: there is none, it is a
 *     folder, nothing reads this format, it is damaged, or, of an OpenFlight file, it was cut short
 */
osg::ref_ptr<osg::Node> readGraph(const std::filesystem::path& path, References references = References::Load,
                                  osg::Referenced* parentPalettes = nullptr);

/**
 * Writes a graph, whole or not at all, in the format that the name's ending says. Missing folders are made. Before a
 * long work checkOutput() tells what will hinder it.
 *
 * Changes the graph to what the file can hold: loaded external references become part of the graph, other references
 * and the images named in it are named relative to the file's folder, and what the format holds in one form only is
 * brought into it, see fitForFormat().
 * @throws CommandError with OutputNotWritten
 */
void writeGraph(osg::ref_ptr<osg::Node> graph, const std::filesystem::path& path, bool mayOverwrite);

/** Writes a picture in the format that the name's ending says. @throws CommandError with OutputNotWritten */
void writePicture(const osg::Image& picture, const std::filesystem::path& path, bool mayOverwrite);

}  // namespace veltrane::sceneutils::tool
