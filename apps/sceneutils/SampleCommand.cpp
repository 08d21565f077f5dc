#include "Command.h"
#include "sample/SampleDatabase.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <iostream>
#include <memory>
#include <string>

namespace veltrane::sceneutils::tool {

namespace {

struct Request {
    std::string directory;
    SampleOptions options;
};

extern "C" void interruptSample(int) {
    sampleInterrupted = 1;
}

void writeSample(const Request& request) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, interruptSample);
    const SampleSummary made = writeSampleDatabase(request.directory, request.options);
    std::cout << "OpenFlight files: " << made.files << ", textures: " << made.textures << ", bytes: " << made.bytes
              << ", master: " << made.master.string() << "\n";
}

}  // namespace

void addSampleCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command =
        app.add_subcommand("sample", "Write a database of OpenFlight files for demonstrations, tests and benchmarks.");
    const auto request = std::make_shared<Request>();
    SampleOptions& options = request->options;

    command->add_option("DIR", request->directory, "Directory to write to: new (parents are made) or empty")
        ->required();
    command->add_option("--tiles", options.tiles, "Number of terrain tiles, each 1000 m wide")
        ->check(CLI::Range(1u, SampleOptions::maxTiles))
        ->capture_default_str();
    command
        ->add_option("--levels", options.levels,
                     "Files that refer to one another below the master: 1 = tiles, 2 = and objects, 3 = and details, "
                     "4 = and fittings")
        ->check(CLI::Range(1u, SampleOptions::maxLevels))
        ->capture_default_str();
    command->add_option("--textures", options.textures, "Number of image files, 32 to 256 pixels wide")
        ->check(CLI::Range(1u, SampleOptions::maxTextures))
        ->capture_default_str();
    command->add_option("--seed", options.seed, "Number that all heights, places and pictures follow from")
        ->capture_default_str();
    command->add_flag("--lod-hints", options.lodHints,
                      "Describe groups with \"LOD_Transition_Range\" and a distance in m");
    command->add_flag("--same-names", options.sameNames, "Give every tile's file the same name, each in its folder");

    command->callback([request, &result] {
        writeSample(*request);
        result = ExitStatus::Done;
    });
}

}  // namespace veltrane::sceneutils::tool
