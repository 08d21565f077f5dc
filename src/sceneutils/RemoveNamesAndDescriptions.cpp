#include <sceneutils/RemoveNamesAndDescriptions.h>

#include "VisitorSettings.h"

#include <osg/AnimationPath>
#include <osg/Sequence>
#include <osg/StateSet>
#include <osgSim/DOFTransform>
#include <osgSim/LightPoint>
#include <osgSim/LightPointNode>
#include <osgSim/MultiSwitch>

namespace veltrane::sceneutils {

namespace {

template <typename... Kinds>
bool isOneOf(const osg::Node& node) {
    return (dynamic_cast<const Kinds*>(&node) || ...);
}

/** Light points and animation paths are no nodes; a node can be one only by deriving from both. */
bool isFoundByItsName(const osg::Node& node) {
    return isOneOf<osgSim::MultiSwitch, osgSim::DOFTransform, osgSim::LightPoint, osgSim::LightPointNode, osg::Sequence,
                   osg::AnimationPath>(node);
}

void strip(osg::Node& node) {
    node.setName("");
    // The descriptions go with the container. They are not cleared in it: shallow copies of the node share it.
    node.setUserDataContainer(nullptr);
    osg::StateSet* stateSet = node.getStateSet();
    if (stateSet && stateSet->getAttribute(osg::StateAttribute::PROGRAM))
        stateSet->removeAttribute(osg::StateAttribute::PROGRAM);
}

}  // namespace

RemoveNamesAndDescriptions::RemoveNamesAndDescriptions() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

RemoveNamesAndDescriptions::RemoveNamesAndDescriptions(const RemoveNamesAndDescriptions& other)
    : osg::Object(other), osg::NodeVisitor(other), _preservedNames(other._preservedNames) {}

RemoveNamesAndDescriptions& RemoveNamesAndDescriptions::operator=(const RemoveNamesAndDescriptions& other) {
    copyVisitorSettings(*this, other);
    _preservedNames = other._preservedNames;
    return *this;
}

RemoveNamesAndDescriptions::~RemoveNamesAndDescriptions() = default;

void RemoveNamesAndDescriptions::preserveNames(const std::set<std::string>& names) {
    if (&names != &_preservedNames) _preservedNames = names;
}

void RemoveNamesAndDescriptions::process(osg::Node* node) {
    if (!node) return;
    RemoveNamesAndDescriptions visitor;
    node->accept(visitor);
}

void RemoveNamesAndDescriptions::apply(osg::Node& node) {
    if (isToBeStripped(node)) strip(node);
    traverse(node);
}

bool RemoveNamesAndDescriptions::isToBeStripped(const osg::Node& node) const {
    return !isFoundByItsName(node) && node.getDataVariance() != osg::Object::DYNAMIC &&
           _preservedNames.count(node.getName()) == 0;
}

}  // namespace veltrane::sceneutils
