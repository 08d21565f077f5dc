#pragma once

#include "../Command.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** While one lives in guarded work, an output is being written, and a crash has to do with that, not with the input. */
class WritingNote {
public:
    explicit WritingNote(const std::filesystem::path& output);
    ~WritingNote();
    WritingNote(const WritingNote&) = delete;
    WritingNote& operator=(const WritingNote&) = delete;
};

/** Gives a child process a stack for deep graphs: OpenSceneGraph goes down a graph by recursion. */
void allowDeepGraphs();

/**
 * Does a command's work in a process of its own, so that a crash of OpenSceneGraph on a damaged file, or of a driver,
 * is told in one line like any other failure and leaves no half-written file. What the work throws comes through.
 *
 * Call it before anything starts a thread or opens a graphics context, and after endCleanlyOnSignals().
 * @param input what the line names when the work crashes
 * @param outputFolders where unfinished files of the work may lie then
 * @param seconds of processor time that the work may take: a damaged file can make OpenSceneGraph run without end
 * @throws CommandError with InputUnreadable if the work crashes or takes longer, with OutputNotWritten if it does so
 *     while there is a WritingNote: the line then names that output
 */
ExitStatus runGuarded(const std::string& input, const std::vector<std::filesystem::path>& outputFolders,
                      const std::function<ExitStatus()>& work, unsigned int seconds = 3600);

}  // namespace veltrane::sceneutils::tool
