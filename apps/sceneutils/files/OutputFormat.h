#pragma once

#include "OsgMessages.h"

#include <osgDB/Options>
#include <osgDB/ReaderWriter>

#include <filesystem>
#include <functional>
#include <ostream>
#include <string>

namespace veltrane::sceneutils::tool {

/**
 * Says before the work begins what would hinder writeOutput() at its end.
 * @throws CommandError with OutputNotWritten, or with Usage if OpenSceneGraph knows no format by the name's ending
 */
void checkOutput(const std::filesystem::path& path, bool mayOverwrite);

/**
 * Refuses formats that are not OpenSceneGraph's own: they would take a graph and drop some of it.
 * @param kept what would be dropped, for the message
 * @throws CommandError with Usage
 */
void checkIsNative(const std::filesystem::path& path, const std::string& kept);

/** The first line by which a writer of OpenSceneGraph says that it lost something; empty: there is none. */
std::string toldLoss(const OsgMessages& messages);

/** How a plug-in is told to write, into a stream and as a file of that name. */
struct OutputCalls {
    std::function<osgDB::ReaderWriter::WriteResult(osgDB::ReaderWriter&, std::ostream&, const osgDB::Options*)>
        toStream;
    std::function<osgDB::ReaderWriter::WriteResult(osgDB::ReaderWriter&, const std::string&, const osgDB::Options*)>
        toFile;
};

/**
 * Writes an output, whole or not at all, in the format that the name's ending says. Missing folders are made.
 * @throws CommandError with OutputNotWritten; also if OpenSceneGraph tells that something of it was lost
 */
void writeOutput(const std::filesystem::path& path, bool mayOverwrite, const OutputCalls& calls);

}  // namespace veltrane::sceneutils::tool
