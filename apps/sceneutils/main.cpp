#include "CommandLine.h"

#include "files/Interruption.h"
#include "files/PlainText.h"

#include <CLI/CLI.hpp>

#include <osg/Notify>

#include <exception>
#include <iostream>
#include <memory>
#include <string>

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
    endCleanlyWithoutMemory();
    osg::setNotifyLevel(
        osg::WARN);  // what OpenSceneGraph says below that goes to standard output, which is for results

    ExitStatus result = ExitStatus::Done;
    const std::unique_ptr<CLI::App> app = makeCommandLine(result);

    try {
        app->parse(argc, argv);
    } catch (const CLI::Success& helpOrVersion) {
        return app->exit(helpOrVersion);
    } catch (const CLI::ParseError& error) {
        const bool namesACommand = argc > 1 && argv[1][0] != '-';
        if (namesACommand && app->get_subcommands().empty()) {
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
