#include "Command.h"

#include "export/NameSearch.h"
#include "files/GraphFile.h"
#include "files/GuardedWork.h"
#include "files/InputGuard.h"
#include "files/Interruption.h"
#include "files/NodeText.h"
#include "files/OutputFormat.h"
#include "files/PlainText.h"

#include <osg/Geode>

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

namespace {

struct ExportRequest {
    std::string input;
    std::string output;
    std::optional<std::string> node;
    bool overwrite = false;
};

/** A drawable stands in a geode: some formats know no other place for it. */
osg::ref_ptr<osg::Node> asGraph(osg::Node& node) {
    osg::Drawable* drawable = node.asDrawable();
    if (!drawable) return &node;
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(drawable);
    return geode;
}

/** What is to be written, and how the report calls it. */
struct Part {
    osg::ref_ptr<osg::Node> node;
    std::string description;
};

Part findPart(const ExportRequest& request, osg::Node& graph) {
    const std::vector<osg::NodePath> ways = findByName(graph, *request.node, request.input);
    const std::string others =
        ways.size() > 1 ? ", the first of " + std::to_string(ways.size()) + " nodes of this name" : "";
    return {asGraph(*ways.front().back()), asText(ways.front()) + " written" + others};
}

ExitStatus exportGraph(const ExportRequest& request) {
    if (request.node && request.node->empty())
        throw CommandError(ExitStatus::Usage, "--node: a name is not empty; leave the option out for the whole graph");
    checkOutput(request.output, request.overwrite);
    const osg::ref_ptr<osg::Node> graph = readGraph(request.input);
    checkIsNoInput(request.output, request.input, *graph);
    const Part part = request.node ? findPart(request, *graph) : Part{graph, request.input + " written"};
    writeGraph(part.node, request.output, request.overwrite);
    std::cout << withoutControlCharacters(request.output + ": " + part.description) << "\n";
    return ExitStatus::Done;
}

ExitStatus runExport(const ExportRequest& request) {
    endCleanlyOnSignals();
    return runGuarded(request.input, {std::filesystem::path(request.output).parent_path()},
                      [&] { return exportGraph(request); });
}

}  // namespace

void addExportCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("export", "Write a graph, or one node of it, in another format");
    const auto request = std::make_shared<ExportRequest>();
    command->add_option("IN", request->input, "The graph, of any format that OpenSceneGraph reads")->required();
    command->add_option("OUT", request->output, "The file to write; its ending says the format")->required();
    command->add_option("--node", request->node,
                        "Write only the first node of this name with what hangs below it, as it is: in its own "
                        "coordinates, without the transforms and the state above it");
    command->add_flag("--overwrite", request->overwrite, "Replace an output that exists; inputs are never touched");
    command->callback([request, &result] { result = runExport(*request); });
}

}  // namespace veltrane::sceneutils::tool
