#include "Command.h"

#include "files/GuardedWork.h"
#include "files/Interruption.h"
#include "files/JsonGeometry.h"
#include "files/PlainText.h"
#include "info/InfoReport.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <memory>

namespace veltrane::sceneutils::tool {

namespace {

struct InfoRequest {
    std::string file;
    bool recurse = false;
    bool json = false;
};

void tell(const FileInfo& failed) {
    std::cerr << "sceneutils: " << withoutControlCharacters(failed.problem + " (named by " + failed.namedBy + ")")
              << "\n";
}

ExitStatus runInfo(const InfoRequest& request) {
    const std::vector<FileInfo> files = inspectDatabase(request.file, request.recurse, tell);
    if (request.json) {
        writeJson(std::cout, infoAsJson(files, request.recurse));
    } else {
        writeInfo(std::cout, files);
    }
    const auto hasFailed = [](const FileInfo& file) { return !file.problem.empty(); };
    return std::any_of(files.begin(), files.end(), hasFailed) ? ExitStatus::DonePartly : ExitStatus::Done;
}

}  // namespace

void addInfoCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("info", "Tell what is in a graph or a whole database");
    const auto request = std::make_shared<InfoRequest>();
    command->add_option("FILE", request->file, "The graph, of any format that OpenSceneGraph reads")->required();
    command->add_flag("--recurse", request->recurse, "Look into the files that it refers to or pages in as well");
    command->add_flag("--json", request->json, "Write everything as JSON");
    command->callback([request, &result] {
        endCleanlyOnSignals();
        result = runGuarded(request->file, {}, [&] { return runInfo(*request); });
    });
}

}  // namespace veltrane::sceneutils::tool
