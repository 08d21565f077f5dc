#include "Interruption.h"

#include "../Command.h"
#include "WholeFile.h"

#include <csignal>

#include <unistd.h>

namespace veltrane::sceneutils::tool {

namespace {

extern "C" void removeAndEnd(int) {
    constexpr char message[] = "sceneutils: interrupted\n";
    removeUnfinishedFile();
    if (write(STDERR_FILENO, message, sizeof message - 1) < 0) {
        // There is nobody left to tell.
    }
    _exit(static_cast<int>(ExitStatus::Interrupted));
}

}  // namespace

void endCleanlyOnSignals() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, removeAndEnd);
    std::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace veltrane::sceneutils::tool
