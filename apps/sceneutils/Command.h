#pragma once

#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace veltrane::sceneutils::tool {

/** How the tool ends; the same for every command. */
enum class ExitStatus {
    Done = 0,
    Usage = 1,             ///< the command line does not make sense
    InputUnreadable = 2,   ///< the input is missing, damaged or not readable
    NotSupported = 3,      ///< the input is understood, but this cannot be done with it
    OutputNotWritten = 4,  ///< an output exists already or could not be written
    DonePartly = 5,        ///< some of it failed; what failed is listed
    Interrupted = 130
};

/** Ends a command: the message goes to standard error as one line, and the tool ends with that status. */
class CommandError : public std::runtime_error {
public:
    CommandError(ExitStatus status, const std::string& message) : std::runtime_error(message), _status(status) {}
    ExitStatus status() const { return _status; }

private:
    ExitStatus _status;
};

// Each command has a source of its own that adds it to the command line. What it was told to do runs when the command
// line has been read; `result` takes the status it ends with.

void addAxesCommand(CLI::App& app, ExitStatus& result);
void addBoundsCommand(CLI::App& app, ExitStatus& result);
void addConvertCommand(CLI::App& app, ExitStatus& result);
void addConvertJobCommand(CLI::App& app, ExitStatus& result);
void addExportCommand(CLI::App& app, ExitStatus& result);
void addFindCommand(CLI::App& app, ExitStatus& result);
void addInfoCommand(CLI::App& app, ExitStatus& result);
void addLodsCommand(CLI::App& app, ExitStatus& result);
void addMarkupCommand(CLI::App& app, ExitStatus& result);
void addOptimizeCommand(CLI::App& app, ExitStatus& result);
void addPlanCommand(CLI::App& app, ExitStatus& result);
void addRecentreCommand(CLI::App& app, ExitStatus& result);
void addRenderCommand(CLI::App& app, ExitStatus& result);
void addSampleCommand(CLI::App& app, ExitStatus& result);
void addShadersCommand(CLI::App& app, ExitStatus& result);
void addValidateCommand(CLI::App& app, ExitStatus& result);
void addVerifyCommand(CLI::App& app, ExitStatus& result);

}  // namespace veltrane::sceneutils::tool
