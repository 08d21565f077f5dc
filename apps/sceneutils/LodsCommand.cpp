#include "Command.h"

#include "files/CapturedErrors.h"
#include "files/GraphFile.h"
#include "files/GuardedWork.h"
#include "files/InputGuard.h"
#include "files/Interruption.h"
#include "files/NodeText.h"
#include "files/OutputFormat.h"
#include "files/PlainText.h"

#include <sceneutils/OpenFlightLODCreator.h>

#include <osg/Group>
#include <osg/LOD>

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* hintKeyword = "LOD_Transition_Range";

struct LodsRequest {
    std::string input;
    std::string output;
    bool overwrite = false;
};

/** The LODs of a graph, and the hints that are left in it: those that could not be read. Looks where
 * OpenFlightLODCreator does, each group once. */
class Inventory : public osg::NodeVisitor {
public:
    explicit Inventory(osg::Node& graph) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { graph.accept(*this); }

    using osg::NodeVisitor::apply;

    void apply(osg::Group& group) override {
        if (!_seen.insert(&group).second) return;
        if (dynamic_cast<const osg::LOD*>(&group)) ++lods;
        for (unsigned int i = 0; i < group.getNumDescriptions(); ++i) {
            const std::string& description = group.getDescription(i);
            std::istringstream words(description);
            std::string first;
            if (words >> first && first == hintKeyword)
                hints.push_back(asText(getNodePath()) + ": '" + description + "'");
        }
        traverse(group);
    }
    void apply(osg::Geode&) override {}

    std::size_t lods = 0;
    std::vector<std::string> hints;

private:
    std::set<osg::Group*> _seen;
};

void createLODs(osg::Group& root) {
    // The library reports each unreadable hint there, without saying which, once for every way that leads to it.
    const CapturedErrors silenced;
    OpenFlightLODCreator creator;
    creator.process(&root);
}

ExitStatus makeLods(const LodsRequest& request) {
    checkOutput(request.output, request.overwrite);
    osg::ref_ptr<osg::Node> graph = readGraph(request.input);
    checkIsNoInput(request.output, request.input, *graph);

    const osg::ref_ptr<osg::Group> root = new osg::Group;  // so that there is a place for an LOD above the graph
    root->addChild(graph);
    const std::size_t lodsBefore = Inventory(*graph).lods;
    createLODs(*root);
    graph = root->getChild(0);
    root->removeChildren(0, 1);
    const Inventory after(*graph);

    for (const std::string& hint : after.hints) {
        std::cerr << "sceneutils: " << withoutControlCharacters(request.input + ": no range can be read: " + hint)
                  << "\n";
    }
    writeGraph(graph, request.output, request.overwrite);
    std::cout << withoutControlCharacters(request.output) << ": " << plural(after.lods - lodsBefore, "LOD", "LODs")
              << " created, " << plural(after.hints.size(), "hint", "hints") << " not readable\n";
    return after.hints.empty() ? ExitStatus::Done : ExitStatus::DonePartly;
}

ExitStatus runLods(const LodsRequest& request) {
    endCleanlyOnSignals();
    return runGuarded(request.input, {std::filesystem::path(request.output).parent_path()},
                      [&] { return makeLods(request); });
}

}  // namespace

void addLodsCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("lods", "Turn comments \"LOD_Transition_Range NUMBER\" into LODs");
    const auto request = std::make_shared<LodsRequest>();
    command->add_option("INPUT", request->input, "The graph, of any format that OpenSceneGraph reads")->required();
    command->add_option("OUTPUT", request->output, "The file to write; its ending says the format (.ive)")->required();
    command->add_flag("--overwrite", request->overwrite, "Replace an output that exists; inputs are never touched");
    command->callback([request, &result] { result = runLods(*request); });
}

}  // namespace veltrane::sceneutils::tool
