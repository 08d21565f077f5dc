#include "NameSearch.h"

#include "../Command.h"
#include "../files/FileReferences.h"
#include "../files/PlainText.h"
#include "NearestNames.h"

#include <osg/NodeVisitor>

#include <set>
#include <utility>

namespace veltrane::sceneutils::tool {

namespace {

constexpr std::size_t namesOffered = 3;

/** The nodes of a name, and all names that there are. Visits each node once. */
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
        if (node.getName() == _name) ways.push_back(getNodePath());
        traverse(node);
    }

    std::vector<osg::NodePath> ways;
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

std::string nothingFound(const std::string& input, const std::string& name, const std::set<std::string>& names,
                         std::size_t unloaded) {
    const std::string nearest = quoted(nearestNames(name, names, namesOffered));
    return input + ": there is no node called '" + name + "'; " +
           (nearest.empty() ? "no node has a name" : "nearest: " + nearest) +
           (unloaded > 0 ? "; not searched: " + plural(unloaded, "file", "files") + " that it refers to" : "");
}

}  // namespace

std::vector<osg::NodePath> findByName(osg::Node& graph, const std::string& name, const std::string& input) {
    NameSearch search(graph, name);
    if (search.ways.empty())
        throw CommandError(ExitStatus::Usage, nothingFound(input, name, search.names, countUnloadedFiles(graph)));
    return std::move(search.ways);
}

}  // namespace veltrane::sceneutils::tool
