#pragma once

#include <osg/Node>

#include <string>

namespace veltrane::sceneutils::tool {

/**
 * A class of nodes by its name: "LOD", "osg::LOD", "osgSim::DOFTransform". A node belongs to its own class and to those
 * that it is derived from, as OpenSceneGraph's serializers know them.
 */
class NodeClass {
public:
    explicit NodeClass(const std::string& name);

    /** Whether OpenSceneGraph knows a class of nodes by that name. Plug-ins can have others. */
    bool isKnown() const { return !_fullName.empty(); }

    bool has(const osg::Node& node) const;

    /** With its library, if it is known. */
    const std::string& name() const { return isKnown() ? _fullName : _name; }

private:
    std::string _name;
    std::string _fullName;
};

}  // namespace veltrane::sceneutils::tool
