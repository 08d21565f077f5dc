#include "PortableNames.h"

#include "ImageCollector.h"

#include <osg/Group>
#include <osg/PagedLOD>
#include <osg/ProxyNode>

#include <set>
#include <string>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

/** A file's name as it is written into another file in `folder`. */
std::string relativeTo(const fs::path& folder, const fs::path& file) {
    const fs::path relative = fs::weakly_canonical(file).lexically_relative(fs::weakly_canonical(folder));
    return relative.empty() ? file.string() : relative.generic_string();
}

/** Finds the external references: first so that they can be changed after the walk. */
class ReferenceCollector : public osg::NodeVisitor {
public:
    ReferenceCollector() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    using osg::NodeVisitor::apply;

    void apply(osg::ProxyNode& proxy) override {
        proxies.insert(&proxy);
        traverse(proxy);
    }
    void apply(osg::PagedLOD& paged) override {
        pagedLODs.insert(&paged);
        traverse(paged);
    }

    std::set<osg::ref_ptr<osg::ProxyNode>> proxies;
    std::set<osg::ref_ptr<osg::PagedLOD>> pagedLODs;
};

template <typename Node>
void nameRelatively(Node& node, const fs::path& folder) {
    const fs::path own = node.getDatabasePath();
    node.setDatabasePath("");
    for (unsigned int i = 0; i < node.getNumFileNames(); ++i) {
        if (node.getFileName(i).empty()) continue;
        node.setFileName(i, relativeTo(folder, own / node.getFileName(i)));
    }
}

/** A reference whose file was loaded is written as what it has become: a group. Returns the graph's root. */
osg::ref_ptr<osg::Node> settleReferences(osg::ref_ptr<osg::Node> root, const fs::path& folder) {
    ReferenceCollector references;
    root->accept(references);
    for (const osg::ref_ptr<osg::PagedLOD>& paged : references.pagedLODs) nameRelatively(*paged, folder);
    for (const osg::ref_ptr<osg::ProxyNode>& proxy : references.proxies) {
        if (proxy->getNumChildren() == 0) {
            nameRelatively(*proxy, folder);
            continue;
        }
        const osg::ref_ptr<osg::Group> group = new osg::Group(*proxy, osg::CopyOp::SHALLOW_COPY);
        for (osg::Group* parent : osg::Node::ParentList(proxy->getParents())) parent->replaceChild(proxy, group);
        if (root == proxy) root = group;
    }
    return root;
}

/** Images that have a file are written as its name, others with their pixels. */
void settleImages(osg::Node& graph, const fs::path& folder) {
    ImageCollector collector;
    graph.accept(collector);
    for (const osg::ref_ptr<osg::Image>& image : collector.images) {
        std::error_code error;
        const fs::path file = fs::canonical(image->getFileName(), error);
        const bool hasPixels = image->data() != nullptr;
        if (error && hasPixels) image->setWriteHint(osg::Image::STORE_INLINE);
        if (!error) {
            image->setWriteHint(osg::Image::EXTERNAL_FILE);
            image->setFileName(relativeTo(folder, file));
        }
    }
}

}  // namespace

void resolveNames(osg::Node& root, const fs::path& folder) {
    ReferenceCollector references;
    root.accept(references);
    const std::string databasePath = folder.empty() ? "." : folder.string();
    for (const osg::ref_ptr<osg::ProxyNode>& proxy : references.proxies) {
        if (proxy->getDatabasePath().empty()) proxy->setDatabasePath(databasePath);
    }
    ImageCollector collector;
    root.accept(collector);
    for (const osg::ref_ptr<osg::Image>& image : collector.images) {
        std::error_code error;
        const fs::path file = fs::canonical(folder / image->getFileName(), error);
        if (!error && fs::is_regular_file(file)) image->setFileName(file.string());
    }
}

osg::ref_ptr<osg::Node> withPortableNames(osg::ref_ptr<osg::Node> root, const fs::path& folder) {
    root = settleReferences(root, folder);
    settleImages(*root, folder);
    return root;
}

}  // namespace veltrane::sceneutils::tool
