#pragma once

#include <filesystem>

namespace veltrane::sceneutils::tool {

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

    /** Whether the run before has not come to its end: it may have left unfinished files. */
    bool wasLeftInAHurry() const { return _wasLeftInAHurry; }

    /** Says that this run leaves nothing unfinished. */
    void leaveInOrder();

private:
    int _file = -1;
    bool _wasLeftInAHurry = false;
};

}  // namespace veltrane::sceneutils::tool
