#include <sceneutils/OpenFlightLODCreator.h>

#include "VisitorSettings.h"

#include <osg/Geode>
#include <osg/UserDataContainer>

#include <iostream>
#include <locale>
#include <optional>
#include <sstream>

namespace veltrane::sceneutils {

namespace {

constexpr const char* keyword = "LOD_Transition_Range";
constexpr float farRangePerTransitionRange = 5.0f;

/** The number of a description that begins with the keyword. One that cannot be read is reported. */
std::optional<float> readTransitionRange(const std::string& description) {
    std::istringstream stream(description);
    stream.imbue(std::locale::classic());  // databases have decimal points, whatever the application's locale has
    std::string word;
    if (!(stream >> word) || word != keyword) return std::nullopt;

    float range = 0.0f;
    if (stream >> range) return range;
    std::cerr << "Error reading LOS_Transition_Range value\n";
    return std::nullopt;
}

void clearDescription(osg::Group& group, unsigned int index) {
    // Shallow copies of a node share its container; the hint of another node is not to be taken away with this one.
    osg::UserDataContainer* container = group.getUserDataContainer();
    if (container->referenceCount() > 1) group.setUserDataContainer(osg::clone(container));
    group.getDescriptions()[index].clear();
}

/** What OSG does not do by itself: a plain addChild() gives an LOD's new child the range from 0 to 0. */
void replaceBehindItsSiblings(osg::Group& parent, osg::Group& group, osg::LOD& lod) {
    auto* parentLOD = dynamic_cast<osg::LOD*>(&parent);
    const unsigned int index = parent.getChildIndex(&group);
    std::optional<osg::LOD::MinMaxPair> range;
    if (parentLOD && index < parentLOD->getNumRanges()) range = parentLOD->getRangeList()[index];

    parent.removeChild(&group);
    parent.addChild(&lod);
    if (range) parentLOD->setRange(parent.getNumChildren() - 1, range->first, range->second);
}

/** Hangs the LOD between its child and that child's parent. */
void assign(osg::LOD& lod) {
    const osg::ref_ptr<osg::Group> group = lod.getNumChildren() > 0 ? lod.getChild(0)->asGroup() : nullptr;
    if (!group) return;

    // An LOD that is the first parent itself has its place already, or there is none for it. It must not become its own
    // child.
    osg::Group* parent = group->getParent(0);
    if (parent != &lod) replaceBehindItsSiblings(*parent, *group, lod);
}

}  // namespace

OpenFlightLODCreator::OpenFlightLODCreator() : osg::NodeVisitor(TRAVERSE_NONE) {}

OpenFlightLODCreator::OpenFlightLODCreator(const OpenFlightLODCreator& other)
    : osg::Object(other), osg::NodeVisitor(other), createdLODs(other.createdLODs) {}

OpenFlightLODCreator& OpenFlightLODCreator::operator=(const OpenFlightLODCreator& other) {
    copyVisitorSettings(*this, other);
    createdLODs = other.createdLODs;
    return *this;
}

OpenFlightLODCreator::~OpenFlightLODCreator() = default;

void OpenFlightLODCreator::process(osg::Node* node) {
    if (!node) return;
    node->ref();  // a root that nobody holds must survive being taken off an LOD
    node->accept(*this);
    assignLODs();
    node->unref_nodelete();
}

void OpenFlightLODCreator::apply(osg::Group& group) {
    if (group.asGeode()) return;

    for (unsigned int i = 0; i < group.getNumDescriptions(); ++i) {
        const std::string description = group.getDescriptions()[i];
        const std::optional<float> range = readTransitionRange(description);
        if (!range) continue;
        clearDescription(group, i);
        createLOD(group, *range);
    }
    for (unsigned int i = 0; i < group.getNumChildren(); ++i) group.getChild(i)->accept(*this);
}

void OpenFlightLODCreator::assignLODs() {
    for (const osg::observer_ptr<osg::LOD>& created : createdLODs) {
        const osg::ref_ptr<osg::LOD> lod = created.get();  // frees one that has found no place
        if (lod) assign(*lod);
    }
}

void OpenFlightLODCreator::createLOD(osg::Group& group, float transitionRange) {
    auto* lod = new osg::LOD;
    lod->addChild(&group, 0.0f, transitionRange * farRangePerTransitionRange);
    createdLODs.emplace_back(lod);
}

}  // namespace veltrane::sceneutils
