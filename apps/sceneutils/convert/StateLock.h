#pragma once

#include "JobFiles.h"

#include <filesystem>
#include <optional>

namespace veltrane::sceneutils::tool {

/**
 * Held by a process that does jobs, as many as there are at a time: as long as one is at work, no run begins. A
 * launcher may start such a process on another machine, or leave it behind when it is killed itself.
 */
class JobLock {
public:
    /** Without effect in a folder that no run has ever had. */
    explicit JobLock(const std::filesystem::path& folder);
    ~JobLock();
    JobLock(const JobLock&) = delete;
    JobLock& operator=(const JobLock&) = delete;

private:
    int _file = -1;
};

/**
 * Holds a state folder for one run, and with it all processes that the run starts: as long as one of them is at work,
 * the folder is taken, even if the process that began has been killed.
 */
class StateLock {
public:
    /** Makes the folder. @throws CommandError with OutputNotWritten if another run has it, or it cannot be made */
    explicit StateLock(const std::filesystem::path& folder);
    ~StateLock();
    StateLock(const StateLock&) = delete;
    StateLock& operator=(const StateLock&) = delete;

    /** Tells whether a run has had the folder since; the same for a folder that nobody has had. */
    static std::optional<FileStamp> lastUseOf(const std::filesystem::path& folder);

    /** The same, as it was before this run. */
    std::optional<FileStamp> lastUse() const { return _lastUse; }

    /** Whether the run before has not come to its end: it may have left unfinished files. */
    bool wasLeftInAHurry() const { return _wasLeftInAHurry; }

    /** Says that this run leaves nothing unfinished. */
    void leaveInOrder();

private:
    std::optional<FileStamp> _lastUse;
    int _file = -1;
    bool _wasLeftInAHurry = false;
};

}  // namespace veltrane::sceneutils::tool
