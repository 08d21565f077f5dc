#include "Command.h"

#include "files/FileFinder.h"
#include "files/InputGuard.h"
#include "files/Interruption.h"
#include "files/WholeFile.h"
#include "plan/FindingReport.h"
#include "plan/PlanReport.h"
#include "plan/ReferenceGraph.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <map>
#include <memory>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* planName = "plan.json";
constexpr const char* planEnding = ".json";
constexpr std::size_t linesPerKind = 20;

struct PlanRequest {
    std::string master;
    std::string output;
    std::string root;
    std::vector<std::string> allowedFolders;
    bool overwrite = false;
};

fs::path planFile(const fs::path& output) {
    if (output.empty()) throw CommandError(ExitStatus::Usage, "-o: the name is empty");
    std::error_code error;
    const bool isFile = toLowerCase(output.extension().string()) == planEnding && !fs::is_directory(output, error);
    return isFile ? output : output / planName;
}

void checkOutput(const fs::path& output, bool mayOverwrite) {
    try {
        checkOutputPath(output, mayOverwrite);
    } catch (const OutputError& error) {
        throw CommandError(ExitStatus::OutputNotWritten, error.what());
    }
}

void checkMaster(const ReferenceGraph& graph, const std::string& master) {
    if (graph.files.front().isSound) return;
    throw CommandError(ExitStatus::InputUnreadable, master + ": " + graph.findings.front().message);
}

void checkIsNoFileOf(const ReferenceGraph& graph, const fs::path& output) {
    std::error_code error;
    const fs::path real = fs::canonical(output, error);
    if (error) return;
    for (const GraphFile& file : graph.files) {
        if (file.path == real) checkIsNoInput(output, file.path);
    }
}

void writePlanFile(const fs::path& output, const ReferenceGraph& graph, const PlanRequest& request) {
    try {
        WholeFile file(output, request.overwrite);
        writePlan(file.stream(), graph, request.master);
        file.commit();
    } catch (const OutputError& error) {
        throw CommandError(ExitStatus::OutputNotWritten, error.what());
    }
}

/** Some of each kind, because a finding is seldom alone. */
void tellFindings(const ReferenceGraph& graph, const fs::path& master, const fs::path& output) {
    const FindingReport report(graph, master);
    std::map<FindingKind, std::size_t> counts;
    for (const Finding& finding : graph.findings) {
        if (++counts[finding.kind] <= linesPerKind) std::cerr << "sceneutils: " << report.lineOf(finding) << "\n";
    }
    for (const auto& [kind, count] : counts) {
        if (count <= linesPerKind) continue;
        std::cerr << "sceneutils: " << count - linesPerKind << " more findings of the kind \"" << nameOf(kind) << "\" ("
                  << output.string() << " has all)\n";
    }
}

ExitStatus plan(const PlanRequest& request) {
    const fs::path output = planFile(request.output);
    checkIsNoInput(output, request.master);
    checkOutput(output, request.overwrite);

    const ReferenceGraph graph = buildReferenceGraph(
        request.master, {request.root, {request.allowedFolders.begin(), request.allowedFolders.end()}});
    checkMaster(graph, request.master);
    checkIsNoFileOf(graph, output);

    writePlanFile(output, graph, request);
    tellFindings(graph, request.master, output);
    std::cout << summaryOf(graph) << ", plan: " << withoutControlCharacters(output.string()) << "\n";
    return graph.count(Severity::Error) > 0 ? ExitStatus::DonePartly : ExitStatus::Done;
}

}  // namespace

void addPlanCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("plan", "List the files of an OpenFlight database in order of conversion");
    const auto request = std::make_shared<PlanRequest>();
    command->add_option("MASTER", request->master, "The OpenFlight file that leads to all others")->required();
    command
        ->add_option("-o", request->output,
                     "The file to write, if its name ends in .json; else the folder for \"plan.json\"")
        ->required();
    command->add_option("--root", request->root,
                        "The folder of the database, which references must not leave (the master's)");
    command
        ->add_option("--allow-outside", request->allowedFolders,
                     "A folder elsewhere that references may lead to; may be given several times")
        ->allow_extra_args(false);
    command->add_flag("--overwrite", request->overwrite, "Replace an output that exists");
    command->callback([request, &result] {
        endCleanlyOnSignals();
        result = plan(*request);
    });
}

}  // namespace veltrane::sceneutils::tool
