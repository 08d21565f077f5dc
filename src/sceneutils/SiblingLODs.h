#pragma once

#include <osg/Group>
#include <osg/LOD>
#include <osg/Node>
#include <osg/ref_ptr>

#include <cstddef>
#include <list>
#include <map>
#include <set>
#include <unordered_map>
#include <vector>

namespace veltrane::sceneutils {

/** Makes one LOD of several with the same ranges. */
class LODMerger {
public:
    using LODs = std::vector<osg::ref_ptr<osg::LOD>>;

    /**
     * An LOD named "new lod" with the ranges of the others and the range mode of the first. Its children are groups,
     * each with all children that the others have for that range; the others are left empty. It has the centre and the
     * radius of what it holds.
     *
     * Merging the result again and again nests its groups ever deeper. Once they are `deepestNesting` levels deep, what
     * is new is added to the groups that are there instead: deeper graphs would overflow the stack of everything that
     * walks them.
     */
    osg::ref_ptr<osg::LOD> merge(const LODs& lods);

    /** Grows whenever an LOD elsewhere may have lost a parent, so that it can be merged from then on. */
    std::size_t generation() const { return _generation; }

    static constexpr unsigned int deepestNesting = 10000;

private:
    unsigned int nestingOf(const osg::LOD& lod) const;
    osg::ref_ptr<osg::LOD> create(const LODs& lods);
    void extend(osg::LOD& nested, const LODs& lods) const;
    void empty(osg::LOD& lod);

    std::unordered_map<const osg::LOD*, unsigned int> _nesting;  ///< of those made here
    std::size_t _generation = 0;
};

/**
 * The children of a group while other groups are dissolved into it and LODs are merged. The group itself and those that
 * are dissolved keep their children until everything is written back at once, which is as good as moving each child of
 * each of them, and takes time in proportion to the number of children instead of its square.
 */
class ChildList {
public:
    using Children = std::list<osg::ref_ptr<osg::Node>>;
    using Place = Children::iterator;

    explicit ChildList(osg::Group& group);

    Children& children() { return _children; }
    void remove(Place place) { _children.erase(place); }

    /** Looks up the LODs that can be merged, unless that has been done. */
    void findLODs(const LODMerger& merger);

    /** Appends the children of a group that is dissolved. The LODs of both lists must have been found. Places in its
     * list stay valid and are then in this one. */
    void append(osg::Group& dissolved, ChildList& children);

    /** Merges LODs with the same ranges that have no other parent. False if there were none. */
    bool mergeLODs(LODMerger& merger);

    /** Makes the list the group's children, and the dissolved groups empty. */
    void writeBack(osg::Group& group);

private:
    using LODs = std::map<osg::LOD::RangeList, std::list<Place>>;  ///< in the order of the children

    void collectLODs();
    void takeOver(ChildList& other);

    Children _children;
    std::list<osg::ref_ptr<osg::Group>> _dissolved;
    LODs _lods;                              ///< that can be merged
    std::set<osg::LOD::RangeList> _crowded;  ///< ranges that several of them have
    bool _lodsAreKnown = false;
    std::size_t _generation = 0;  ///< of the merger, when they were collected
};

}  // namespace veltrane::sceneutils
