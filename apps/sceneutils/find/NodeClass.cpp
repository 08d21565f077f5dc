#include "NodeClass.h"

#include "../files/NodeText.h"

#include <osgDB/ObjectWrapper>
#include <osgDB/Registry>

#include <algorithm>
#include <array>

namespace veltrane::sceneutils::tool {

namespace {

// Those with nodes in them; a name without library is looked for in this order.
constexpr std::array<const char*, 10> libraries = {"osg",         "osgSim",        "osgText",   "osgFX",
                                                   "osgParticle", "osgTerrain",    "osgVolume", "osgAnimation",
                                                   "osgShadow",   "osgManipulator"};

/** Whether the class named first is derived from the other, or the same. False if the first is not known. */
bool isDerived(const std::string& fullName, const std::string& base) {
    const osgDB::ObjectWrapper* wrapper = osgDB::Registry::instance()->getObjectWrapperManager()->findWrapper(fullName);
    if (!wrapper) return false;
    const auto& associates = wrapper->getAssociates();
    return std::any_of(associates.begin(), associates.end(),
                       [&](const auto& associate) { return associate._name == base; });
}

bool isNodeClass(const std::string& fullName) {
    return isDerived(fullName, "osg::Node");
}

}  // namespace

NodeClass::NodeClass(const std::string& name) : _name(name) {
    const bool hasLibrary = name.find("::") != std::string::npos;
    if (hasLibrary && isNodeClass(name)) _fullName = name;
    for (const char* library : libraries) {
        if (hasLibrary || !_fullName.empty()) break;
        const std::string candidate = std::string(library) + "::" + name;
        if (isNodeClass(candidate)) _fullName = candidate;
    }
}

bool NodeClass::has(const osg::Node& node) const {
    const std::string own = classOf(node);
    if (!isKnown()) return own == _name || node.className() == _name;
    return own == _fullName || isDerived(own, _fullName);
}

}  // namespace veltrane::sceneutils::tool
