#include "Command.h"

#include "files/PlainText.h"

#include <CLI/CLI.hpp>

#include <osg/Notify>

#include <exception>
#include <iostream>

using namespace veltrane::sceneutils::tool;

namespace {

int end(ExitStatus status) {
    return static_cast<int>(status);
}

int fail(ExitStatus status, const std::string& message) {
    std::cerr << "sceneutils: " << withoutControlCharacters(message) << "\n";
    return end(status);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Scene-graph tools for OpenFlight and OpenSceneGraph databases.", "sceneutils");
    app.set_version_flag("--version", "sceneutils " SCENEUTILS_VERSION);
    app.require_subcommand(1);
    app.get_formatter()->column_width(34);
    app.footer(
        "Results go to standard output, everything else to standard error.\n"
        "Exit status: 0 done, 1 usage, 2 input unreadable, 3 not supported, 4 output not written,\n"
        "5 done in part (what failed is listed), 130 interrupted.\n"
        "'sceneutils COMMAND --help' lists the options of a command.");

    osg::setNotifyLevel(
        osg::WARN);  // what OpenSceneGraph says below that goes to standard output, which is for results

    ExitStatus result = ExitStatus::Done;
    addAxesCommand(app, result);
    addBoundsCommand(app, result);
    addConvertCommand(app, result);
    addConvertJobCommand(app, result);
    addExportCommand(app, result);
    addFindCommand(app, result);
    addInfoCommand(app, result);
    addLodsCommand(app, result);
    addMarkupCommand(app, result);
    addOptimizeCommand(app, result);
    addPlanCommand(app, result);
    addRecentreCommand(app, result);
    addRenderCommand(app, result);
    addSampleCommand(app, result);
    addShadersCommand(app, result);
    addValidateCommand(app, result);
    addVerifyCommand(app, result);

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& helpOrVersion) {
        return app.exit(helpOrVersion);
    } catch (const CLI::ParseError& error) {
        const bool namesACommand = argc > 1 && argv[1][0] != '-';
        if (namesACommand && app.get_subcommands().empty()) {
            return fail(ExitStatus::Usage, "there is no command '" + std::string(argv[1]) + "' (see --help)");
        }
        return fail(ExitStatus::Usage, std::string(error.what()) + " (see --help)");
    } catch (const CommandError& error) {
        return fail(error.status(), error.what());
    } catch (const std::exception& error) {
        return fail(ExitStatus::OutputNotWritten, error.what());
    }
    std::cout.flush();
    if (!std::cout) return fail(ExitStatus::OutputNotWritten, "standard output cannot be written");
    return end(result);
}
