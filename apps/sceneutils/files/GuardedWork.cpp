#include "GuardedWork.h"

#include "../convert/ChildProcess.h"
#include "WholeFile.h"

#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>

#include <sys/resource.h>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr rlim_t largeStack = 100 << 20;

constexpr char writingMark = 'w';  // no status

// In the process that does the work.
const MessageSender* senderOfWork = nullptr;

void tellWriting(const std::string& output) {
    if (senderOfWork) senderOfWork->send(writingMark + output);
}

std::string asMessage(ExitStatus status, const std::string& problem) {
    return static_cast<char>(status) + problem;
}

std::string outcomeOf(const std::function<ExitStatus()>& work) {
    try {
        const ExitStatus status = work();
        std::cout.flush();
        if (!std::cout) return asMessage(ExitStatus::OutputNotWritten, "standard output cannot be written");
        return asMessage(status, "");
    } catch (const CommandError& error) {
        return asMessage(error.status(), error.what());
    } catch (const std::exception& error) {
        return asMessage(ExitStatus::OutputNotWritten, error.what());
    }
}

void removeUnfinishedFiles(const std::vector<fs::path>& folders, int pid) {
    const std::string ending = WholeFile::temporaryPath("", pid).filename().string().substr(1);
    for (const fs::path& folder : folders) {
        std::error_code error;
        std::vector<fs::path> unfinished;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder.empty() ? "." : folder, error)) {
            const std::string name = entry.path().filename().string();
            const bool ends =
                name.size() >= ending.size() && name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
            if (ends) unfinished.push_back(entry.path());
        }
        for (const fs::path& path : unfinished) fs::remove_all(path, error);
    }
}

/** What there is to say about work that ended before its time. */
[[noreturn]] void throwEarlyEnd(const std::string& input, const std::string& output, const ChildEnd& end,
                                unsigned int seconds) {
    const ExitStatus status = output.empty() ? ExitStatus::InputUnreadable : ExitStatus::OutputNotWritten;
    if (end.neededMoreMemory) throw CommandError(status, (output.empty() ? input : output) + ": ran out of memory");

    const int signal = end.signal;
    const std::string limit = std::to_string(seconds) + " s of processor time";
    const std::string reason = signal != 0 ? strsignal(signal) : "ended early";
    if (signal == SIGXCPU && output.empty())
        throw CommandError(status, input + ": takes more than " + limit + "; it may be damaged");
    if (signal == SIGXCPU) throw CommandError(status, output + ": could not be written within " + limit);
    if (output.empty())
        throw CommandError(status, input + ": OpenSceneGraph crashes on it (" + reason + "); it may be damaged");
    throw CommandError(status, output + ": OpenSceneGraph crashes while writing it (" + reason + ")");
}

}  // namespace

WritingNote::WritingNote(const fs::path& output) {
    tellWriting(output.string());
}

WritingNote::~WritingNote() {
    tellWriting("");
}

// What the system leaves free for the stack is at least 128 MiB.
void allowDeepGraphs() {
    rlimit stack = {0, 0};
    if (getrlimit(RLIMIT_STACK, &stack) != 0 || stack.rlim_cur >= largeStack) return;
    stack.rlim_cur = stack.rlim_max < largeStack ? stack.rlim_max : largeStack;
    setrlimit(RLIMIT_STACK, &stack);
}

ExitStatus runGuarded(const std::string& input, const std::vector<fs::path>& outputFolders,
                      const std::function<ExitStatus()>& work, unsigned int seconds) {
    std::optional<std::string> outcome;
    std::string writing;
    const ChildEnd end = runInChild(
        seconds,
        [&](const MessageSender& sender) {
            allowDeepGraphs();
            senderOfWork = &sender;
            sender.send(outcomeOf(work));
        },
        [&](const std::string& message) {
            if (message.front() == writingMark) {
                writing = message.substr(1);
            } else {
                outcome = message;
            }
        });
    if (!outcome) {
        removeUnfinishedFiles(outputFolders, end.pid);
        throwEarlyEnd(input, writing, end, seconds);
    }
    const auto status = static_cast<ExitStatus>(outcome->front());
    if (outcome->size() > 1) throw CommandError(status, outcome->substr(1));
    return status;
}

}  // namespace veltrane::sceneutils::tool
