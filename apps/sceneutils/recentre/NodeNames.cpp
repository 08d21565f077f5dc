#include "NodeNames.h"

#include <algorithm>

namespace veltrane::sceneutils::tool {

std::string nameOf(const osg::NodePath& path) {
    const osg::Node& node = *path.back();
    const std::string className = std::string(node.libraryName()) + "::" + node.className();
    if (!node.getName().empty()) return "'" + node.getName() + "' (" + className + ")";

    const auto named =
        std::find_if(path.rbegin(), path.rend(), [](const osg::Node* above) { return !above->getName().empty(); });
    const std::string place = named == path.rend() ? "" : " below '" + (*named)->getName() + "'";
    return className + " without a name" + place;
}

}  // namespace veltrane::sceneutils::tool
