#pragma once

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

/** Refuses an output that would replace the input, whatever leads to it. @throws CommandError with OutputNotWritten */
void checkIsNotInput(const std::filesystem::path& output, const std::filesystem::path& input);

/** How a plug-in is told to write, into a stream and as a file of that name. */
struct OutputCalls {
    std::function<osgDB::ReaderWriter::WriteResult(osgDB::ReaderWriter&, std::ostream&, const osgDB::Options*)>
        toStream;
    std::function<osgDB::ReaderWriter::WriteResult(osgDB::ReaderWriter&, const std::string&, const osgDB::Options*)>
        toFile;
};

/**
 * Writes an output, whole or not at all, in the format that the name's ending says. Missing folders are made.
 * @throws CommandError with OutputNotWritten
 */
void writeOutput(const std::filesystem::path& path, bool mayOverwrite, const OutputCalls& calls);

}  // namespace veltrane::sceneutils::tool
