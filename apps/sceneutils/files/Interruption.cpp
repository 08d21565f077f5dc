#include "Interruption.h"

#include "../Command.h"
#include "../convert/ChildProcess.h"
#include "WholeFile.h"

#include <csignal>
#include <new>

#include <unistd.h>

namespace veltrane::sceneutils::tool {

namespace {

pid_t processOfTheUser = 0;

// The process that does the work has this handler too. Both may be signalled; one of them tells.
extern "C" void removeAndEnd(int) {
    constexpr char message[] = "sceneutils: interrupted\n";
    endRunningChildren();
    removeUnfinishedFile();
    if (getpid() == processOfTheUser && write(STDERR_FILENO, message, sizeof message - 1) < 0) {
        // There is nobody left to tell.
    }
    _exit(static_cast<int>(ExitStatus::Interrupted));
}

void tellThatMemoryIsUsedUp() {
    constexpr char message[] = "sceneutils: ran out of memory\n";
    endRunningChildren();
    removeUnfinishedFile();
    if (write(STDERR_FILENO, message, sizeof message - 1) < 0) {
        // There is nobody left to tell.
    }
    _exit(static_cast<int>(ExitStatus::OutputNotWritten));
}

}  // namespace

void endCleanlyWithoutMemory() {
    std::set_new_handler(tellThatMemoryIsUsedUp);
}

void endCleanlyOnSignals() {
    processOfTheUser = getpid();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, removeAndEnd);
    std::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace veltrane::sceneutils::tool
