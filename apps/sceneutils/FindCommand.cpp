#include "Command.h"

#include "files/FileReferences.h"
#include "files/GraphFile.h"
#include "files/GuardedWork.h"
#include "files/Interruption.h"
#include "files/JsonGeometry.h"
#include "files/NodeText.h"
#include "files/PlainText.h"
#include "find/NodeClass.h"

#include <sceneutils/FindNodeVisitor.h>

#include <osg/Transform>

#include <CLI/CLI.hpp>

#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>

namespace veltrane::sceneutils::tool {

namespace {

constexpr int reportVersion = 1;

struct FindRequest {
    std::string file;
    std::string name;
    std::string type;
    bool json = false;
};

/** The ways to nodes, in the order in which FindNodeVisitor finds them. */
class WaysTo : public osg::NodeVisitor {
public:
    explicit WaysTo(const std::vector<osg::Node*>& nodes)
        : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _nodes(nodes.begin(), nodes.end()) {
        setNodeMaskOverride(~0u);
    }

    using osg::NodeVisitor::apply;

    void apply(osg::Node& node) override {
        if (_nodes.count(&node) != 0) paths.push_back(getNodePath());
        traverse(node);
    }

    std::vector<osg::NodePath> paths;

private:
    std::set<osg::Node*> _nodes;
};

std::vector<osg::NodePath> findPaths(osg::Node& graph, const std::string& name) {
    FindNodeVisitor finder(name);
    finder.setNodeMaskOverride(~0u);  // who looks for a node wants it whether it is hidden or not
    graph.accept(finder);
    WaysTo ways(finder.getNodeList());
    if (finder.getFirst()) graph.accept(ways);
    return std::move(ways.paths);
}

std::vector<osg::NodePath> ofClass(std::vector<osg::NodePath> paths, const NodeClass& wanted) {
    std::vector<osg::NodePath> result;
    std::copy_if(paths.begin(), paths.end(), std::back_inserter(result),
                 [&](const osg::NodePath& path) { return wanted.has(*path.back()); });
    return result;
}

bool hasClass(osg::Node& graph, const NodeClass& wanted) {
    struct Search : osg::NodeVisitor {
        explicit Search(const NodeClass& nodeClass) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), wanted(nodeClass) {
            setNodeMaskOverride(~0u);
        }
        using osg::NodeVisitor::apply;
        void apply(osg::Node& node) override {
            if (isFound) return;
            isFound = wanted.has(node);
            traverse(node);
        }
        const NodeClass& wanted;
        bool isFound = false;
    };
    Search search(wanted);
    graph.accept(search);
    return search.isFound;
}

/** Where a transform's own origin is, and the middle of the bounding sphere of any other node. */
std::optional<osg::Vec3d> worldPosition(const osg::NodePath& path) {
    osg::Node& node = *path.back();
    const osg::Matrixd toWorld = osg::computeLocalToWorld(path);
    if (node.asTransform()) return osg::Vec3d() * toWorld;
    if (!node.getBound().valid()) return std::nullopt;
    return osg::Vec3d(node.getBound().center()) * toWorld;
}

void writeText(std::ostream& out, const std::vector<osg::NodePath>& paths) {
    for (const osg::NodePath& path : paths) {
        const std::optional<osg::Vec3d> position = worldPosition(path);
        out << asText(path) << "  " << classOf(*path.back()) << "  "
            << (position ? "at " + asText(osg::Vec3f(*position)) : "nowhere: it has no extent") << "\n";
    }
}

nlohmann::json toJson(const FindRequest& request, const std::vector<osg::NodePath>& paths, std::size_t unloaded) {
    nlohmann::json nodes = nlohmann::json::array();
    for (const osg::NodePath& path : paths) {
        const std::optional<osg::Vec3d> position = worldPosition(path);
        nodes.push_back({{"path", namesAlong(path)},
                         {"class", classOf(*path.back())},
                         {"position", position ? asJson(osg::Vec3f(*position)) : nlohmann::json(nullptr)}});
    }
    return {{"version", reportVersion}, {"command", "find"},
            {"input", request.file},    {"options", {{"name", request.name}, {"type", request.type}}},
            {"nodes", nodes},           {"filesNotLoaded", unloaded}};
}

std::string nothingFound(const FindRequest& request, std::size_t unloaded) {
    const std::string kind = request.type.empty() ? "node" : NodeClass(request.type).name();
    const std::string called = request.name.empty() ? " without a name" : " called '" + request.name + "'";
    return request.file + ": there is no " + kind + called +
           (unloaded > 0 ? "; not searched: " + plural(unloaded, "file", "files") + " that it refers to" : "");
}

void runFind(const FindRequest& request) {
    const osg::ref_ptr<osg::Node> graph = readGraph(request.file);
    std::vector<osg::NodePath> paths = findPaths(*graph, request.name);
    if (!request.type.empty()) {
        const NodeClass wanted(request.type);
        if (!wanted.isKnown() && !hasClass(*graph, wanted)) {
            throw CommandError(ExitStatus::Usage,
                               "--type: OpenSceneGraph has no class of nodes called '" + request.type + "'");
        }
        paths = ofClass(std::move(paths), wanted);
    }
    const std::size_t unloaded = countUnloadedFiles(*graph);
    if (request.json) {
        writeJson(std::cout, toJson(request, paths, unloaded));
    } else {
        writeText(std::cout, paths);
    }
    if (paths.empty()) throw CommandError(ExitStatus::Usage, nothingFound(request, unloaded));
}

}  // namespace

void addFindCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("find", "Tell where in a graph the nodes of a name are");
    const auto request = std::make_shared<FindRequest>();
    command->add_option("FILE", request->file, "The graph, of any format that OpenSceneGraph reads")->required();
    command->add_option("NAME", request->name, "The whole name, in its own letter case; '' for nodes without a name")
        ->required();
    command->add_option("--type", request->type,
                        "Only nodes of this class or one derived from it: LOD, osgSim::DOFTransform");
    command->add_flag("--json", request->json, "Write everything as JSON");
    command->callback([request, &result] {
        endCleanlyOnSignals();
        result = runGuarded(request->file, {}, [&] {
            runFind(*request);
            return ExitStatus::Done;
        });
    });
}

}  // namespace veltrane::sceneutils::tool
