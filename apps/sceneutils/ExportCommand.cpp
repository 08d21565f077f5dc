#include "Command.h"

#include "export/NearestNames.h"
#include "files/FileReferences.h"
#include "files/GraphFile.h"
#include "files/GuardedWork.h"
#include "files/InputGuard.h"
#include "files/Interruption.h"
#include "files/NodeText.h"
#include "files/OutputFormat.h"
#include "files/PlainText.h"

#include <osg/Geode>
#include <osg/NodeVisitor>

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace veltrane::sceneutils::tool {

namespace {

constexpr std::size_t namesOffered = 3;

struct ExportRequest {
    std::string input;
    std::string output;
    std::optional<std::string> node;
    bool overwrite = false;
};

/** The nodes of a name, and all names that there are. Visits each node once, in the order of the graph, hidden nodes
 * too. */
class NameSearch : public osg::NodeVisitor {
public:
    NameSearch(osg::Node& graph, std::string name) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _name(std::move(name)) {
        setNodeMaskOverride(~0u);
        graph.accept(*this);
    }

    using osg::NodeVisitor::apply;

    void apply(osg::Node& node) override {
        if (!_seen.insert(&node).second) return;
        if (!node.getName().empty()) names.insert(node.getName());
        if (node.getName() == _name && count++ == 0) wayToFirst = getNodePath();
        traverse(node);
    }

    osg::NodePath wayToFirst;
    std::size_t count = 0;
    std::set<std::string> names;

private:
    std::string _name;
    std::set<const osg::Node*> _seen;
};

std::string quoted(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "'" : ", '") + name + "'";
    return text;
}

std::string nothingFound(const ExportRequest& request, const std::set<std::string>& names, std::size_t unloaded) {
    const std::string nearest = quoted(nearestNames(*request.node, names, namesOffered));
    return request.input + ": there is no node called '" + *request.node + "'; " +
           (nearest.empty() ? "no node has a name" : "nearest: " + nearest) +
           (unloaded > 0 ? "; not searched: " + plural(unloaded, "file", "files") + " that it refers to" : "");
}

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
    const NameSearch search(graph, *request.node);
    if (search.count == 0) {
        throw CommandError(ExitStatus::Usage, nothingFound(request, search.names, countUnloadedFiles(graph)));
    }
    const std::string others =
        search.count > 1 ? ", the first of " + std::to_string(search.count) + " nodes of this name" : "";
    return {asGraph(*search.wayToFirst.back()), asText(search.wayToFirst) + " written" + others};
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
