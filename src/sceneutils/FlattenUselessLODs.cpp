#include <sceneutils/FlattenUselessLODs.h>

#include "ChildReplacer.h"
#include "HeldNode.h"
#include "VisitorSettings.h"

#include <osg/Group>

#include <unordered_map>
#include <vector>

namespace veltrane::sceneutils {

namespace {

/** A useless LOD and what stood directly above it, both kept alive: one may be the other's only holder. */
struct UselessLOD {
    osg::ref_ptr<osg::Node> parent;
    osg::ref_ptr<osg::LOD> lod;
};

class Flattening {
public:
    void replace(const UselessLOD& useless) {
        if (useless.lod->getNumChildren() == 0) return;
        osg::Group& group = groupFor(*useless.lod);
        if (osg::Group* parent = useless.parent->asGroup()) _replacer.replaceAll(*parent, *useless.lod, group);
        // The parent may be a useless LOD itself, and its child hang below the group that took its place already.
        if (osg::Group* successor = successorOf(*useless.parent)) _replacer.replaceAll(*successor, *useless.lod, group);
    }

private:
    osg::Group& groupFor(osg::LOD& lod) {
        osg::ref_ptr<osg::Group>& group = _groups[&lod];
        if (!group) {
            group = new osg::Group;
            group->addChild(lod.getChild(0));
        }
        return *group;
    }

    osg::Group* successorOf(const osg::Node& node) const {
        const auto found = _groups.find(&node);
        return found == _groups.end() ? nullptr : found->second.get();
    }

    std::unordered_map<const osg::Node*, osg::ref_ptr<osg::Group>> _groups;  ///< that take the LODs' places
    ChildReplacer _replacer;
};

/** Takes the child from an LOD that has no place left. One that is not useless everywhere goes on showing it. */
void emptyIfUnused(osg::LOD& lod) {
    if (lod.getNumParents() == 0) lod.removeChildren(0, lod.getNumChildren());
}

}  // namespace

FlattenUselessLODs::FlattenUselessLODs(float minRange, float maxRange)
    : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _currentMinRange(minRange), _currentMaxRange(maxRange) {}

FlattenUselessLODs::FlattenUselessLODs(const FlattenUselessLODs& other)
    : osg::Object(other),
      osg::NodeVisitor(other),
      _currentMinRange(other._currentMinRange),
      _currentMaxRange(other._currentMaxRange),
      _uselessLODs(other._uselessLODs) {}

FlattenUselessLODs& FlattenUselessLODs::operator=(const FlattenUselessLODs& other) {
    copyVisitorSettings(*this, other);
    _currentMinRange = other._currentMinRange;
    _currentMaxRange = other._currentMaxRange;
    _uselessLODs = other._uselessLODs;
    return *this;
}

FlattenUselessLODs::~FlattenUselessLODs() = default;

void FlattenUselessLODs::process(osg::Node* node, float minRange, float maxRange) {
    if (!node) return;
    const HeldNode held(node);
    FlattenUselessLODs visitor(minRange, maxRange);
    node->accept(visitor);

    std::vector<UselessLOD> useless;
    for (const auto& [parent, lod] : visitor._uselessLODs) useless.push_back({parent, lod});
    Flattening flattening;
    for (const UselessLOD& each : useless) flattening.replace(each);
    for (const UselessLOD& each : useless) emptyIfUnused(*each.lod);
}

void FlattenUselessLODs::apply(osg::LOD& lod) {
    if (isUseless(lod)) _uselessLODs.emplace(getNodePath()[getNodePath().size() - 2], &lod);
    for (unsigned int i = 0; i < lod.getNumRanges() && i < lod.getNumChildren(); ++i) visitChild(lod, i);
}

bool FlattenUselessLODs::isUseless(const osg::LOD& lod) const {
    if (lod.getNumRanges() != 1 || lod.getNumChildren() != 1) return false;
    const osg::NodePath& path = getNodePath();
    if (path.size() < 2 || !path[path.size() - 2]) return false;
    return _currentMinRange >= lod.getMinRange(0) && lod.getMaxRange(0) >= _currentMaxRange;
}

void FlattenUselessLODs::visitChild(osg::LOD& lod, unsigned int index) {
    const float savedMinRange = _currentMinRange;
    const float savedMaxRange = _currentMaxRange;
    _currentMinRange = lod.getMinRange(index);
    _currentMaxRange = lod.getMaxRange(index);
    lod.getChild(index)->accept(*this);
    _currentMinRange = savedMinRange;
    _currentMaxRange = savedMaxRange;
}

}  // namespace veltrane::sceneutils
