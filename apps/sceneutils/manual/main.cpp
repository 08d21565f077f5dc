#include "CommandLine.h"
#include "manual/Completion.h"
#include "manual/ManualPage.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

using namespace veltrane::sceneutils::tool;

namespace {

void write(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path);
    file << text;
    file.close();
    if (!file) throw std::runtime_error("cannot write " + path.string());
}

void writeManual(const std::filesystem::path& folder, const ManualEdition& edition) {
    ExitStatus unused = ExitStatus::Done;
    const auto app = makeCommandLine(unused);
    const CommandText tool = describeTool(*app);
    const std::vector<CommandText> commands = describeCommands(*app);

    write(folder / "man1" / (tool.name + ".1"), manualPageOfTool(tool, commands, edition));
    for (const CommandText& command : commands) {
        write(folder / "man1" / (tool.name + "-" + command.name + ".1"), manualPageOfCommand(tool, command, edition));
    }
    write(folder / (tool.name + ".bash"), bashCompletion(tool, commands));
    write(folder / ("_" + tool.name), zshCompletion(tool, commands));
}

}  // namespace

/** Writes the manual pages and completions of the tool: sceneutils_manual FOLDER VERSION DATE */
int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: sceneutils_manual FOLDER VERSION DATE\n";
        return 1;
    }
    try {
        writeManual(argv[1], {argv[2], argv[3]});
    } catch (const std::exception& error) {
        std::cerr << "sceneutils_manual: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
