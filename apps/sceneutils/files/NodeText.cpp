#include "NodeText.h"

#include "PlainText.h"

namespace veltrane::sceneutils::tool {

std::string classOf(const osg::Node& node) {
    return std::string(node.libraryName()) + "::" + node.className();
}

std::vector<std::string> namesAlong(const osg::NodePath& path) {
    std::vector<std::string> names;
    for (const osg::Node* node : path)
        names.push_back(node->getName().empty() ? "<" + std::string(node->className()) + ">" : node->getName());
    return names;
}

std::string asText(const osg::NodePath& path) {
    return asText(namesAlong(path));
}

std::string asText(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : "/") + name;
    return withoutControlCharacters(text);
}

}  // namespace veltrane::sceneutils::tool
