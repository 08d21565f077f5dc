#include "CommandLine.h"

#include <CLI/CLI.hpp>

namespace veltrane::sceneutils::tool {

std::unique_ptr<CLI::App> makeCommandLine(ExitStatus& result) {
    auto app =
        std::make_unique<CLI::App>("Scene-graph tools for OpenFlight and OpenSceneGraph databases.", "sceneutils");
    app->set_version_flag("--version", "sceneutils " SCENEUTILS_VERSION);
    app->require_subcommand(1);
    app->get_formatter()->column_width(34);
    app->footer(
        "Results go to standard output, everything else to standard error.\n"
        "Exit status: 0 done, 1 usage, 2 input unreadable, 3 not supported, 4 output not written,\n"
        "5 done in part (what failed is listed), 130 interrupted.\n"
        "'sceneutils COMMAND --help' lists the options of a command.");

    addAxesCommand(*app, result);
    addBoundsCommand(*app, result);
    addConvertCommand(*app, result);
    addConvertJobCommand(*app, result);
    addExportCommand(*app, result);
    addFindCommand(*app, result);
    addInfoCommand(*app, result);
    addLodsCommand(*app, result);
    addMarkupCommand(*app, result);
    addOptimizeCommand(*app, result);
    addPlanCommand(*app, result);
    addRecentreCommand(*app, result);
    addRenderCommand(*app, result);
    addSampleCommand(*app, result);
    addShadersCommand(*app, result);
    addValidateCommand(*app, result);
    addVerifyCommand(*app, result);
    return app;
}

}  // namespace veltrane::sceneutils::tool
