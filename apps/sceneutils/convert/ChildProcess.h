#pragma once

#include <functional>
#include <string>

namespace veltrane::sceneutils::tool {

/** The child's end of the pipe to its parent. */
class MessageSender {
public:
    explicit MessageSender(int fileDescriptor) : _fileDescriptor(fileDescriptor) {}

    /** Sends a message of any bytes. A parent that no longer listens is not an error. */
    void send(const std::string& message) const;

private:
    int _fileDescriptor;
};

/** How a child process ended. */
struct ChildEnd {
    int pid = 0;
    int exitStatus = 0;  ///< if it ended by itself
    int signal = 0;      ///< what ended it; 0: it ended by itself
};

/**
 * Runs `work` in a copy of this process and waits for it. A crash of the child leaves this process unharmed, and what
 * the child changes in memory dies with it; it speaks through messages, which are handed to `receive` one by one while
 * it works. The child dies with its parent, leaves no core file, and is ended by SIGXCPU when it has used `seconds` of
 * processor time.
 * @throws std::system_error if no process can be had; what `receive` throws, when the child has been ended
 */
ChildEnd runInChild(unsigned int seconds, const std::function<void(const MessageSender&)>& work,
                    const std::function<void(const std::string&)>& receive);

/**
 * Ends the child that runInChild() is waiting for, if there is one, by SIGTERM, and waits until it is gone. May be
 * called from a signal handler that does not return.
 */
void endRunningChild();

}  // namespace veltrane::sceneutils::tool
