#include <sceneutils/FindNodeVisitor.h>

#include "VisitorSettings.h"

namespace veltrane::sceneutils {

FindNodeVisitor::FindNodeVisitor() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

FindNodeVisitor::FindNodeVisitor(const std::string& nameToFind)
    : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _nameToFind(nameToFind) {}

FindNodeVisitor::FindNodeVisitor(const FindNodeVisitor& other)
    : osg::Object(other), osg::NodeVisitor(other), _nameToFind(other._nameToFind), _foundNodes(other._foundNodes) {}

FindNodeVisitor& FindNodeVisitor::operator=(const FindNodeVisitor& other) {
    copyVisitorSettings(*this, other);
    _nameToFind = other._nameToFind;
    _foundNodes = other._foundNodes;
    return *this;
}

FindNodeVisitor::~FindNodeVisitor() = default;

void FindNodeVisitor::setNameToFind(const std::string& nameToFind) {
    _nameToFind = nameToFind;
    _foundNodes.clear();
}

osg::Node* FindNodeVisitor::getFirst() const {
    return _foundNodes.empty() ? nullptr : _foundNodes.front();
}

std::vector<osg::Node*>& FindNodeVisitor::getNodeList() {
    return _foundNodes;
}

void FindNodeVisitor::apply(osg::Node& node) {
    if (node.getName() == _nameToFind) _foundNodes.push_back(&node);
    traverse(node);
}

}  // namespace veltrane::sceneutils
