#include "UnspatializeSmallAreas.h"

#include "HeldNode.h"
#include "VisitorSettings.h"

#include <osg/LOD>
#include <osg/Transform>

#include <typeinfo>
#include <unordered_map>

namespace veltrane::sceneutils {

namespace {

bool isPlainGroup(const osg::Node& node) {
    return typeid(node) == typeid(osg::Group);
}

bool isDissolvable(const osg::Group& group) {
    if (group.getNumParents() != 1) return false;
    const osg::Group& parent = *group.getParent(0);
    return parent.asTransform() || isPlainGroup(parent);
}

bool hasSeveralLODs(const osg::Group& group) {
    unsigned int count = 0;
    for (unsigned int i = 0; i < group.getNumChildren() && count < 2; ++i) {
        const osg::Node& child = *group.getChild(i);
        if (typeid(child) == typeid(osg::LOD)) ++count;
    }
    return count > 1;
}

/**
 * Dissolves groups one after the other. While one group receives children, they are in a list; that is written back
 * when the group's visit ends, before anything above asks for its bound.
 */
class Dissolution {
public:
    explicit Dissolution(LODMerger& merger) : _merger(merger) {}

    void add(const osg::Group& group) { _recorded[&group]; }

    void dissolve(osg::Group& group) {
        Recorded& recorded = _recorded[&group];
        if (recorded.receiver || group.getNumParents() == 0) return;

        osg::Group& parent = receiverOf(*group.getParent(0));
        ChildList& siblings = childrenOf(parent);
        ChildList& children = childrenOf(group);
        children.findLODs(_merger);
        siblings.findLODs(_merger);
        siblings.remove(recorded.place);
        siblings.append(group, children);
        siblings.mergeLODs(_merger);
        recorded.receiver = &parent;
        _lists.erase(&group);
    }

    void settle(osg::Group& group) {
        const auto found = _lists.find(&group);
        if (found == _lists.end()) return;
        found->second.writeBack(group);
        _lists.erase(found);
    }

    /** For groups above the graph, whose visits never end. */
    void settleAll() {
        for (auto& [group, children] : _lists) children.writeBack(*group);
        _lists.clear();
    }

private:
    struct Recorded {
        ChildList::Place place;          ///< in the list of its parent, as soon as there is one
        osg::Group* receiver = nullptr;  ///< of its children; null: not dissolved yet
    };

    /** The group, or that into which it was dissolved. */
    osg::Group& receiverOf(osg::Group& group) const {
        const auto found = _recorded.find(&group);
        if (found == _recorded.end() || !found->second.receiver) return group;
        return receiverOf(*found->second.receiver);
    }

    ChildList& childrenOf(osg::Group& group) {
        const auto [entry, isNew] = _lists.try_emplace(&group, group);
        if (isNew) notePlaces(entry->second);
        return entry->second;
    }

    void notePlaces(ChildList& list) {
        for (auto place = list.children().begin(); place != list.children().end(); ++place) {
            const auto found = _recorded.find(place->get());
            if (found != _recorded.end()) found->second.place = place;
        }
    }

    LODMerger& _merger;
    std::unordered_map<const osg::Node*, Recorded> _recorded;
    std::unordered_map<osg::Group*, ChildList> _lists;
};

}  // namespace

UnspatializeSmallAreas::UnspatializeSmallAreas(double radius)
    : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _radius(radius) {}

UnspatializeSmallAreas::UnspatializeSmallAreas(const UnspatializeSmallAreas& other)
    : osg::Object(other),
      osg::NodeVisitor(other),
      _steps(other._steps),
      _radius(other._radius),
      _merger(other._merger) {}

UnspatializeSmallAreas& UnspatializeSmallAreas::operator=(const UnspatializeSmallAreas& other) {
    copyVisitorSettings(*this, other);
    _steps = other._steps;
    _radius = other._radius;
    _merger = other._merger;
    return *this;
}

UnspatializeSmallAreas::~UnspatializeSmallAreas() = default;

void UnspatializeSmallAreas::process(osg::Node* node, double radius) {
    if (!node) return;
    const HeldNode held(node);
    UnspatializeSmallAreas visitor(radius);
    for (int round = 0; round < 2; ++round) {
        node->accept(visitor);
        visitor.dissolveRecordedGroups();
    }
}

void UnspatializeSmallAreas::apply(osg::Group& group) {
    const std::size_t steps = _steps.size();
    traverse(group);
    const bool receives = _steps.size() > steps;
    const bool small = isSmall(group);
    const bool dissolves = small && isDissolvable(group);
    if (dissolves) {
        _steps.push_back({&group, &group});
    } else if (receives) {
        _steps.push_back({nullptr, &group});
    }
    if (small) mergeSiblingLODs(&group);
}

bool UnspatializeSmallAreas::isSmall(osg::Group& group) const {
    if (!isPlainGroup(group)) return false;
    group.computeBound();
    return _radius > static_cast<double>(group.getBound().radius());
}

void UnspatializeSmallAreas::dissolveRecordedGroups() {
    Dissolution dissolution(_merger);
    for (const Step& step : _steps) {
        if (step.dissolved) dissolution.add(*step.dissolved);
    }
    for (const Step& step : _steps) {
        if (step.dissolved) {
            dissolution.dissolve(*step.dissolved);
        } else {
            dissolution.settle(*step.visited);
        }
    }
    dissolution.settleAll();
    _steps.clear();
}

void UnspatializeSmallAreas::mergeSiblingLODs(osg::Group* group) {
    if (!hasSeveralLODs(*group)) return;
    ChildList children(*group);
    if (children.mergeLODs(_merger)) children.writeBack(*group);
}

}  // namespace veltrane::sceneutils
