#include "SiblingLODs.h"

#include <osg/NodeVisitor>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <typeinfo>

namespace veltrane::sceneutils {

namespace {

constexpr const char* mergedName = "new lod";

bool isPlainLOD(const osg::Node& node) {
    return typeid(node) == typeid(osg::LOD);
}

/** What is not a number is equal to nothing, and a table that is ordered by it would fall apart. */
bool areNumbers(const osg::LOD::RangeList& ranges) {
    return std::none_of(ranges.begin(), ranges.end(), [](const osg::LOD::MinMaxPair& range) {
        return std::isnan(range.first) || std::isnan(range.second);
    });
}

/** Looks for LODs that will have one parent less when the visited graph is gone. */
class SharedLODFinder : public osg::NodeVisitor {
public:
    SharedLODFinder() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    using osg::NodeVisitor::apply;
    void apply(osg::LOD& lod) override {
        found = found || lod.getNumParents() > 1;
        if (!found) traverse(lod);
    }

    bool found = false;
};

/** Gives an LOD the bound that its children make. */
void fixBound(osg::LOD& lod, const osg::BoundingSphere& bound) {
    lod.setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    lod.setCenter(bound.center());
    lod.setRadius(bound.radius());
}

}  // namespace

osg::ref_ptr<osg::LOD> LODMerger::merge(const LODs& lods) {
    const auto deepest = std::max_element(
        lods.begin(), lods.end(), [this](const auto& a, const auto& b) { return nestingOf(*a) < nestingOf(*b); });
    const bool isTooDeep = nestingOf(**deepest) >= deepestNesting;
    const osg::ref_ptr<osg::LOD> merged = isTooDeep ? *deepest : create(lods);
    if (isTooDeep) extend(*merged, lods);
    for (const osg::ref_ptr<osg::LOD>& lod : lods) {
        if (lod != merged) empty(*lod);
    }
    return merged;
}

unsigned int LODMerger::nestingOf(const osg::LOD& lod) const {
    const auto found = _nesting.find(&lod);
    return found == _nesting.end() ? 0 : found->second;
}

osg::ref_ptr<osg::LOD> LODMerger::create(const LODs& lods) {
    const osg::ref_ptr<osg::LOD> merged = new osg::LOD;
    merged->setName(mergedName);
    merged->setRangeMode(lods.front()->getRangeMode());
    merged->setRangeList(lods.front()->getRangeList());
    merged->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    unsigned int nesting = 0;
    for (const osg::ref_ptr<osg::LOD>& lod : lods) nesting = std::max(nesting, nestingOf(*lod));
    _nesting[merged.get()] = nesting + 1;

    for (unsigned int i = 0; i < lods.front()->getNumRanges(); ++i) {
        const osg::ref_ptr<osg::Group> level = new osg::Group;
        merged->addChild(level);
        for (const osg::ref_ptr<osg::LOD>& lod : lods) {
            if (i < lod->getNumChildren()) level->addChild(lod->getChild(i));
        }
    }
    merged->computeBound();
    fixBound(*merged, merged->getBound());
    return merged;
}

void LODMerger::extend(osg::LOD& nested, const LODs& lods) const {
    osg::BoundingSphere bound = nested.getBound();
    for (unsigned int i = 0; i < nested.getNumRanges() && i < nested.getNumChildren(); ++i) {
        for (const osg::ref_ptr<osg::LOD>& lod : lods) {
            if (lod == &nested || i >= lod->getNumChildren()) continue;
            bound.expandBy(lod->getChild(i)->getBound());
            nested.getChild(i)->asGroup()->addChild(lod->getChild(i));
        }
    }
    fixBound(nested, bound);
    nested.dirtyBound();
}

void LODMerger::empty(osg::LOD& lod) {
    SharedLODFinder finder;
    for (unsigned int i = lod.getNumRanges(); i < lod.getNumChildren(); ++i) lod.getChild(i)->accept(finder);
    if (finder.found) ++_generation;
    lod.removeChildren(0, lod.getNumChildren());
    _nesting.erase(&lod);
}

ChildList::ChildList(osg::Group& group) {
    for (unsigned int i = 0; i < group.getNumChildren(); ++i) _children.emplace_back(group.getChild(i));
}

void ChildList::append(osg::Group& dissolved, ChildList& children) {
    _children.splice(_children.end(), children._children);
    _dissolved.emplace_back(&dissolved);
    _dissolved.splice(_dissolved.end(), children._dissolved);
    takeOver(children);
}

/** Adds the other list's LODs behind the own ones of the same ranges. Of two tables the smaller one is moved. */
void ChildList::takeOver(ChildList& other) {
    _crowded.merge(other._crowded);
    const bool isLarger = other._lods.size() > _lods.size();
    if (isLarger) _lods.swap(other._lods);
    for (auto& [ranges, places] : other._lods) {
        std::list<Place>& known = _lods[ranges];
        known.splice(isLarger ? known.begin() : known.end(), places);
        if (known.size() > 1) _crowded.insert(ranges);
    }
}

void ChildList::collectLODs() {
    _lods.clear();
    _crowded.clear();
    for (auto place = _children.begin(); place != _children.end(); ++place) {
        // One that was merged here has no parent yet.
        if (!isPlainLOD(**place) || (*place)->getNumParents() > 1) continue;
        const osg::LOD::RangeList& ranges = static_cast<osg::LOD&>(**place).getRangeList();
        if (!areNumbers(ranges)) continue;
        std::list<Place>& places = _lods[ranges];
        places.push_back(place);
        if (places.size() > 1) _crowded.insert(ranges);
    }
}

void ChildList::findLODs(const LODMerger& merger) {
    if (!_lodsAreKnown || _generation != merger.generation()) collectLODs();
    _lodsAreKnown = true;
    _generation = merger.generation();
}

bool ChildList::mergeLODs(LODMerger& merger) {
    findLODs(merger);
    const bool found = !_crowded.empty();
    for (const osg::LOD::RangeList& ranges : _crowded) {
        std::list<Place>& places = _lods[ranges];
        LODMerger::LODs lods;
        for (const Place place : places) lods.emplace_back(static_cast<osg::LOD*>(place->get()));
        for (const Place place : places) _children.erase(place);
        _children.push_back(merger.merge(lods));
        places = {std::prev(_children.end())};
    }
    _crowded.clear();
    return found;
}

void ChildList::writeBack(osg::Group& group) {
    for (const osg::ref_ptr<osg::Group>& dissolved : _dissolved)
        dissolved->removeChildren(0, dissolved->getNumChildren());

    unsigned int unchanged = 0;
    auto place = _children.begin();
    while (place != _children.end() && unchanged < group.getNumChildren() && *place == group.getChild(unchanged)) {
        ++unchanged;
        ++place;
    }
    group.removeChildren(unchanged, group.getNumChildren() - unchanged);
    for (; place != _children.end(); ++place) group.addChild(*place);
}

}  // namespace veltrane::sceneutils
