#pragma once

#include <osg/Drawable>
#include <osg/NodeVisitor>
#include <osg/StateSet>
#include <osg/Texture2D>
#include <osg/ref_ptr>

#include <vector>

namespace testing_support {

/** Every node of that type in the graph, derived types included, once for each path; in depth-first order. No graph, no
 * nodes. */
template <class NodeType>
std::vector<osg::ref_ptr<NodeType>> findAll(osg::Node* root) {
    struct Finder : osg::NodeVisitor {
        Finder() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
        using osg::NodeVisitor::apply;
        void apply(osg::Node& node) override {
            if (NodeType* wanted = dynamic_cast<NodeType*>(&node)) found.push_back(wanted);
            traverse(node);
        }
        std::vector<osg::ref_ptr<NodeType>> found;
    };
    Finder finder;
    if (root) root->accept(finder);
    return finder.found;
}

/** The state sets of all nodes of the graph, drawables included. */
inline std::vector<osg::ref_ptr<osg::StateSet>> findStateSets(osg::Node* root) {
    std::vector<osg::ref_ptr<osg::StateSet>> found;
    for (const auto& node : findAll<osg::Node>(root)) {
        if (node->getStateSet()) found.emplace_back(node->getStateSet());
    }
    return found;
}

/** The textures on unit 0 of the graph. */
inline std::vector<osg::ref_ptr<osg::Texture2D>> findTextures(osg::Node* root) {
    std::vector<osg::ref_ptr<osg::Texture2D>> found;
    for (const auto& stateSet : findStateSets(root)) {
        auto* texture = dynamic_cast<osg::Texture2D*>(stateSet->getTextureAttribute(0, osg::StateAttribute::TEXTURE));
        if (texture) found.emplace_back(texture);
    }
    return found;
}

}  // namespace testing_support
