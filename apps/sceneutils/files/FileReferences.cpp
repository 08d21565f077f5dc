#include "FileReferences.h"

#include <osg/NodeVisitor>
#include <osg/PagedLOD>
#include <osg/ProxyNode>

#include <set>
#include <utility>

namespace veltrane::sceneutils::tool {

namespace {

class ReferenceCollector : public osg::NodeVisitor {
public:
    ReferenceCollector() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    using osg::NodeVisitor::apply;

    void apply(osg::Group& group) override {
        if (_seen.insert(&group).second) traverse(group);
    }
    void apply(osg::ProxyNode& proxy) override { collect(proxy, false); }
    void apply(osg::PagedLOD& paged) override { collect(paged, true); }

    std::vector<FileReference> references;

private:
    template <typename Node>
    void collect(Node& node, bool isPaged) {
        if (!_seen.insert(&node).second) return;
        for (unsigned int i = 0; i < node.getNumFileNames(); ++i) {
            if (node.getFileName(i).empty()) continue;
            references.push_back(
                {node.getFileName(i), node.getDatabasePath(), isPaged, i < node.getNumChildren(), node.getUserData()});
        }
        traverse(node);
    }

    std::set<osg::Node*> _seen;
};

}  // namespace

std::vector<FileReference> fileReferences(osg::Node& root) {
    ReferenceCollector collector;
    root.accept(collector);
    return collector.references;
}

std::size_t countUnloadedFiles(osg::Node& root) {
    std::set<std::pair<std::string, std::string>> names;
    for (const FileReference& reference : fileReferences(root)) {
        if (!reference.isLoaded) names.emplace(reference.databasePath, reference.name);
    }
    return names.size();
}

}  // namespace veltrane::sceneutils::tool
