#include "Command.h"

#include "files/GraphFile.h"
#include "files/GuardedWork.h"
#include "files/InputGuard.h"
#include "files/Interruption.h"
#include "files/JsonGeometry.h"
#include "files/OutputFormat.h"
#include "files/PlainText.h"
#include "files/WholeFile.h"
#include "optimize/OptimizeReport.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

struct OptimizeRequest {
    std::string input;
    std::string output;
    std::vector<std::string> keptNames;
    std::string keptNamesFile;
    double unspatializeRadius = 0.0;
    double flattenWithin = 0.0;
    bool flattens = false;
    std::string report;
    bool json = false;
    bool dryRun = false;
    bool overwrite = false;
};

void tell(const std::string& line) {
    std::cerr << "sceneutils: " << withoutControlCharacters(line) << "\n";
}

void checkLength(const std::string& option, const std::string& what, double length) {
    if (!std::isfinite(length) || length < 0.0)
        throw CommandError(ExitStatus::Usage, option + ": a " + what + " is 0 or more");
}

/** One name on each line. */
std::set<std::string> namesIn(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (fs::is_directory(path) || !file) throw CommandError(ExitStatus::InputUnreadable, path + ": cannot be read");
    std::set<std::string> names;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) names.insert(line);
    }
    if (file.bad()) throw CommandError(ExitStatus::InputUnreadable, path + ": cannot be read");
    return names;
}

OptimizationOptions optionsOf(const OptimizeRequest& request) {
    checkLength("--unspatialize-radius", "radius", request.unspatializeRadius);
    checkLength("--flatten-within", "distance", request.flattenWithin);
    OptimizationOptions options;
    options.unspatializeRadius = request.unspatializeRadius;
    if (request.flattens) options.flattenWithin = request.flattenWithin;
    options.keptNames.insert(request.keptNames.begin(), request.keptNames.end());
    if (options.keptNames.count("") != 0) throw CommandError(ExitStatus::Usage, "--keep-names: a name is empty");
    if (!request.keptNamesFile.empty()) options.keptNames = namesIn(request.keptNamesFile);
    return options;
}

void checkOutputs(const OptimizeRequest& request) {
    checkIsNative(request.output, "all of a graph's state");
    checkIsNoInput(request.output, request.input);
    if (!request.keptNamesFile.empty()) checkIsNoInput(request.output, request.keptNamesFile);
    checkOutput(request.output, request.overwrite || request.dryRun);
    if (request.report.empty()) return;
    for (const std::string& input : {request.input, request.keptNamesFile})
        if (!input.empty()) checkIsNoInput(request.report, input);
    if (fs::weakly_canonical(request.report) == fs::weakly_canonical(request.output))
        throw CommandError(ExitStatus::Usage, request.report + ": is the output and the report");
    try {
        checkOutputPath(request.report, request.overwrite || request.dryRun);
    } catch (const OutputError& error) {
        throw CommandError(ExitStatus::OutputNotWritten, error.what());
    }
}

void writeReport(const std::string& path, bool mayOverwrite, const OptimizeReport& report) {
    try {
        WholeFile file(path, mayOverwrite);
        writeJson(file.stream(), asJson(report));
        file.commit();
    } catch (const OutputError& error) {
        throw CommandError(ExitStatus::OutputNotWritten, error.what());
    }
}

void tellNames(const std::string& input, const Optimization& result) {
    for (const std::string& name : result.unknownNames) tell(input + ": no node is called '" + name + "'");
    for (const LostName& lost : result.lostNames) {
        tell(input + ": of " + plural(lost.before, "node", "nodes") + " called '" + lost.name + "' only " +
             std::to_string(lost.after) + " could be kept");
    }
}

[[noreturn]] void refuse(const std::string& input, const std::vector<SceneDifference>& differences) {
    std::string text;
    for (const SceneDifference& difference : differences) text += (text.empty() ? "" : "; ") + difference.text;
    throw CommandError(ExitStatus::NotSupported, input + ": cannot be optimised without a change: " + text);
}

ExitStatus optimizeFile(const OptimizeRequest& request) {
    OptimizeReport report;
    report.options = optionsOf(request);
    checkOutputs(request);
    report.input = request.input;
    report.output = request.output;
    report.dryRun = request.dryRun;
    report.overwrite = request.overwrite;

    osg::ref_ptr<osg::Node> graph = readGraph(request.input);
    for (const std::string& output : {request.output, request.report})
        if (!output.empty()) checkIsNoInput(output, request.input, *graph);
    report.result = optimize(graph, report.options);
    graph = nullptr;
    tellNames(request.input, report.result);
    if (!report.result.differences.empty()) refuse(request.input, report.result.differences);

    if (!request.dryRun) {
        writeGraph(report.result.graph, request.output, request.overwrite);
        report.written = true;
        if (!request.report.empty()) writeReport(request.report, request.overwrite, report);
    }
    request.json ? writeJson(std::cout, asJson(report)) : writeTable(std::cout, report);
    return ExitStatus::Done;
}

ExitStatus runOptimize(const OptimizeRequest& request) {
    endCleanlyOnSignals();
    return runGuarded(request.input, {fs::path(request.output).parent_path(), fs::path(request.report).parent_path()},
                      [&] { return optimizeFile(request); });
}

}  // namespace

void addOptimizeCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("optimize", "Rebuild a graph to be drawn in fewer, larger batches");
    const auto request = std::make_shared<OptimizeRequest>();

    command->add_option("IN", request->input, "The graph, of any format that OpenSceneGraph reads")->required();
    command->add_option("OUT", request->output, "The file to write (.ive, .osg, .osgb, .osgt, .osgx)")->required();
    CLI::Option* names =
        command->add_option("--keep-names", request->keptNames, "Names of nodes that keep name, user data and program");
    names->type_name("NAME...");
    command->add_option("--keep-names-file", request->keptNamesFile, "A file with such names, one on each line")
        ->type_name("FILE")
        ->excludes(names);
    command
        ->add_option("--unspatialize-radius", request->unspatializeRadius,
                     "Dissolve groups whose bound has a smaller radius, in the graph's length unit; 0: none")
        ->capture_default_str();
    CLI::Option* within =
        command->add_option("--flatten-within", request->flattenWithin,
                            "First put static transforms into the vertices whose translation is not longer, in the "
                            "graph's length unit, copying what they share");
    command->add_option("--report", request->report, "Write the report as JSON to this file too")->type_name("FILE");
    command->add_flag("--json", request->json, "Report as JSON");
    command->add_flag("--dry-run", request->dryRun, "Report only; no file is written");
    command->add_flag("--overwrite", request->overwrite, "Replace an output that exists; inputs are never touched");
    command->callback([request, within, &result] {
        request->flattens = within->count() > 0;
        result = runOptimize(*request);
    });
}

}  // namespace veltrane::sceneutils::tool
