#pragma once

#include <osg/Drawable>
#include <osg/Geode>
#include <osg/LOD>
#include <osg/Node>
#include <osg/StateSet>
#include <osg/Transform>
#include <osgUtil/Optimizer>

#include <vector>

namespace veltrane::sceneutils {

/** Forbids the optimizer to flatten transforms above billboards that it could not move without reading past their
 * positions or through a null drawable. */
void keepIncompleteBillboards(osg::Node& root, osgUtil::Optimizer& optimizer);

/**
 * Keeps static transforms from being flattened that would stay although what is below them has moved: those above a
 * node that hang in no graph, with no parent to be replaced in, and the node itself, if it is a transform of a kind
 * that the optimizer cannot make do nothing. While this lives they are not static.
 */
class RootTransformsKept {
public:
    explicit RootTransformsKept(osg::Node& node);
    ~RootTransformsKept();
    RootTransformsKept(const RootTransformsKept&) = delete;
    RootTransformsKept& operator=(const RootTransformsKept&) = delete;

private:
    std::vector<osg::ref_ptr<osg::Transform>> _transforms;
};

/**
 * Keeps LODs that switch by the centre of their bound from being moved twice when static transforms are flattened: the
 * optimizer moves drawables and LODs in the order of their addresses, and the bound may have moved with the drawables
 * before. While this lives, each such LOD has its centre fixed; those that did not move follow their bound again then.
 */
class LODCentersFixed {
public:
    explicit LODCentersFixed(osg::Node& root);
    ~LODCentersFixed();
    LODCentersFixed(const LODCentersFixed&) = delete;
    LODCentersFixed& operator=(const LODCentersFixed&) = delete;

private:
    struct Fixed {
        osg::ref_ptr<osg::LOD> lod;
        osg::LOD::vec_type boundCenter;
        osg::LOD::vec_type ownCenter;  ///< out of use meanwhile
    };

    std::vector<Fixed> _lods;
};

/** Forbids the optimizer to remove groups and transforms that do more than to hold their child: those that a node mask
 * hides from some, cameras, and transforms that leave out what is above them. */
void keepEffectiveNodes(osg::Node& root, osgUtil::Optimizer& optimizer);

/** Forbids the optimizer to fuse geometries with an array that has one value for all, and has none: it would be read.
 */
void keepIncompleteGeometries(osg::Node& root, osgUtil::Optimizer& optimizer);

/** Forbids the optimizer to fuse the drawables directly below nodes that show only some of their children: LODs,
 * switches, sequences and multi-switches. */
void keepChosenChildren(osg::Node& root, osgUtil::Optimizer& optimizer);

/**
 * Keeps drawables of different node masks from being fused, as all would be drawn with the mask of one of them, and
 * those with arrays of different types, as the arrays of all but one would be lost and primitives lead past the end of
 * what is left. While this lives, those side by side that differ from the first one have state sets of their own, one
 * for each kind and state set. Groups whose drawables are all of one kind are left alone.
 */
class UnlikeDrawablesApart {
public:
    explicit UnlikeDrawablesApart(osg::Node& root);
    ~UnlikeDrawablesApart();
    UnlikeDrawablesApart(const UnlikeDrawablesApart&) = delete;
    UnlikeDrawablesApart& operator=(const UnlikeDrawablesApart&) = delete;

private:
    struct SetApart {
        osg::ref_ptr<osg::Drawable> drawable;
        osg::ref_ptr<osg::StateSet> ownStateSet;
    };

    std::vector<SetApart> _drawables;
};

/**
 * Keeps geodes that hold more than drawables from being merged with others, as the rest would be lost: while this
 * lives, each has a state set that no other geode has.
 */
class MixedGeodesApart {
public:
    explicit MixedGeodesApart(osg::Node& root);
    ~MixedGeodesApart();
    MixedGeodesApart(const MixedGeodesApart&) = delete;
    MixedGeodesApart& operator=(const MixedGeodesApart&) = delete;

private:
    struct SetApart {
        osg::ref_ptr<osg::Geode> geode;
        osg::ref_ptr<osg::StateSet> ownStateSet;
    };

    std::vector<SetApart> _geodes;
};

}  // namespace veltrane::sceneutils
