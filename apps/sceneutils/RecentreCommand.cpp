#include "Command.h"

#include "files/GraphFile.h"
#include "files/GuardedWork.h"
#include "files/InputGuard.h"
#include "files/Interruption.h"
#include "files/OutputFormat.h"
#include "recentre/Recentring.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cmath>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

namespace veltrane::sceneutils::tool {

namespace {

constexpr int reportVersion = 1;
constexpr int singlePrecisionDigits = 9;

struct Request {
    std::string input;
    std::string output;
    RecentreOptions options;
    bool overwrite = false;
    bool json = false;
};

void writeReport(const Request& request, const Recentring& done) {
    std::ostringstream text;  // so that the form of numbers changes in no one else's stream
    text.precision(singlePrecisionDigits);
    text << request.output << ": ";
    if (done.reasonNotMoved.empty()) {
        text << "moved from " << done.offset.x() << "," << done.offset.y() << "," << done.offset.z()
             << " to the origin, below a transform that puts it back\n";
    } else {
        text << "not moved: " << done.reasonNotMoved << "\n";
    }
    text << "largest vertex distance from the origin: " << done.farthestVertexBefore << " before, "
         << done.farthestVertexNow << " now\n";
    if (done.replacedTransforms > 0)
        text << "position-attitude transforms replaced by matrix transforms: " << done.replacedTransforms << "\n";
    if (done.reasonNotMoved.empty())
        text << "largest difference of a place in the world: " << done.largestDifference << "\n";
    std::cout << text.str();
}

void writeReportAsJson(const Request& request, const Recentring& done) {
    nlohmann::json report = {
        {"version", reportVersion},
        {"command", "recentre"},
        {"input", request.input},
        {"output", request.output},
        {"options",
         {{"minDistance", request.options.minDistance},
          {"graph", request.options.asGraph},
          {"overwrite", request.overwrite}}},
        {"moved", done.reasonNotMoved.empty()},
        {"offset", {done.offset.x(), done.offset.y(), done.offset.z()}},
        {"largestVertexDistance", {{"before", done.farthestVertexBefore}, {"now", done.farthestVertexNow}}},
        {"replacedTransforms", done.replacedTransforms},
        {"largestDifference", done.largestDifference},
    };
    if (!done.reasonNotMoved.empty()) report["reason"] = done.reasonNotMoved;
    std::cout << report.dump(2) << "\n";
}

Recentring recentre(const Request& request) {
    try {
        const osg::ref_ptr<osg::Node> graph = readGraph(request.input);
        checkIsNoInput(request.output, request.input, *graph);
        return recentre(graph, request.options);
    } catch (const RecentreError& error) {
        throw CommandError(ExitStatus::NotSupported, request.input + ": cannot be recentred: " + error.what());
    }
}

ExitStatus writeRecentred(const Request& request) {
    if (!std::isfinite(request.options.minDistance) || request.options.minDistance < 0.0)
        throw CommandError(ExitStatus::Usage, "--min-distance: a distance is 0 or more");
    checkIsNative(request.output, "transforms");
    checkOutput(request.output, request.overwrite);
    const Recentring done = recentre(request);
    writeGraph(done.graph, request.output, request.overwrite);
    if (request.json) {
        writeReportAsJson(request, done);
    } else {
        writeReport(request, done);
    }
    return ExitStatus::Done;
}

ExitStatus runRecentre(const Request& request) {
    endCleanlyOnSignals();
    return runGuarded(request.input, {std::filesystem::path(request.output).parent_path()},
                      [&] { return writeRecentred(request); });
}

}  // namespace

void addRecentreCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command =
        app.add_subcommand("recentre", "Move a graph to the origin, below a transform that puts it back");
    const auto request = std::make_shared<Request>();

    command->add_option("IN", request->input, "The graph, of any format that OpenSceneGraph reads")->required();
    command->add_option("OUT", request->output, "The file to write; its ending says the format")->required();
    command
        ->add_option("--min-distance", request->options.minDistance,
                     "Move it only if a geode lies so far from the origin, in the graph's length unit")
        ->capture_default_str();
    command->add_flag("--graph", request->options.asGraph,
                      "Move it only if its centre lies so far, and do not move light points");
    command->add_flag("--overwrite", request->overwrite, "Replace an output that exists");
    command->add_flag("--json", request->json, "Report as JSON");
    command->callback([request, &result] { result = runRecentre(*request); });
}

}  // namespace veltrane::sceneutils::tool
