#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

constexpr std::uint64_t bytesPerMiB = 1 << 20;

/** What a child process may use. */
struct ChildLimits {
    // NOLINTNEXTLINE(google-explicit-constructor): in most places a time is all that there is to say
    ChildLimits(unsigned int processorTime) : processorSeconds(processorTime) {}

    unsigned int processorSeconds;
    unsigned int seconds = 0;       ///< by the clock; 0: no limit
    std::uint64_t memoryBytes = 0;  ///< of data; 0: no limit
    unsigned int piecesOfWork = 1;  ///< each of which has all of the time
};

/** One process's end of a pipe, or of a socket, to another. */
class MessageSender {
public:
    /** @param processorSeconds the child's limit, if it may do several pieces of work */
    explicit MessageSender(int fileDescriptor, unsigned int processorSeconds = 0)
        : _fileDescriptor(fileDescriptor), _processorSeconds(processorSeconds) {}

    /** Sends a message of any bytes. If nobody listens any more, that is not an error. */
    void send(const std::string& message) const;

    /** Begins another piece of work: what time it may take counts from here. In whole seconds of processor time. */
    void startAnew() const;

private:
    int _fileDescriptor;
    unsigned int _processorSeconds;
};

/** How a child process ended. */
struct ChildEnd {
    int pid = 0;
    int exitStatus = 0;             ///< if it ended by itself
    int signal = 0;                 ///< what ended it; 0: it ended by itself
    bool tookTooLong = false;       ///< by the clock
    bool neededMoreMemory = false;  ///< than the limit, or than there is
};

/** Whether ChildLimits::memoryBytes has an effect in this build: AddressSanitizer leaves no room for it. */
constexpr bool canLimitMemory() {
#if defined(__SANITIZE_ADDRESS__)
    return false;
#else
    return true;
#endif
}

/**
 * Runs `work` in a copy of this process and waits for it. A crash of the child leaves this process unharmed, and what
 * the child changes in memory dies with it; it speaks through messages, which are handed to `receive` one by one while
 * it works. The child dies with its parent, leaves no core file, is ended by SIGXCPU when it has used its processor
 * time, by SIGKILL when its time by the clock is over, and with status 1 when it needs more memory than it may have or
 * there is.
 * @throws std::system_error if no process can be had; what `receive` throws, when the child has been ended
 */
ChildEnd runInChild(const ChildLimits& limits, const std::function<void(const MessageSender&)>& work,
                    const std::function<void(const std::string&)>& receive);

/**
 * Runs a program, which is looked for as the shell does, and hands what it writes to `onLine` line by line. It dies
 * with this process, by SIGTERM. Exit status 127: it could not be started.
 * @param pidVariable an environment variable that tells the program, and what it starts, its process number; may be
 *        null
 * @throws std::system_error if no process can be had
 */
ChildEnd runProgram(const std::vector<std::string>& arguments, const std::function<void(const std::string&)>& onLine,
                    const char* pidVariable = nullptr);

/**
 * Ends this process, by SIGTERM, when its parent ends.
 * @param parent who that should be: if it is another one by now, the process ends at once with status 1
 */
void dieWith(int parent);

/**
 * Starts a copy of this process that does `work`, and does not wait for it; several may be at work. It dies with this
 * process, leaves no core file, and has no other limits.
 * @return its process id, which has to be handed to waitForChild()
 * @throws std::system_error if no process can be had
 */
int startChild(const std::function<void()>& work);

/** Waits until a child of startChild() has ended. */
ChildEnd waitForChild(int pid);

/** Waits for what a MessageSender sends. False: nothing more will come, or what came is not whole. */
bool receiveMessage(int fileDescriptor, std::string& message);

/**
 * Ends the children that runInChild(), runProgram() and startChild() have started, by SIGTERM, and waits until they are
 * gone. May be called from a signal handler that does not return.
 */
void endRunningChildren();

}  // namespace veltrane::sceneutils::tool
