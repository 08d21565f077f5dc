#pragma once

#include <sceneutils/Export.h>

#include <osg/Drawable>
#include <osg/Geode>
#include <osg/Group>
#include <osg/LOD>
#include <osg/Node>
#include <osg/Transform>
#include <osgUtil/Optimizer>

#include <memory>

namespace veltrane::sceneutils {

class ChildReplacer;

/**
 * Pushes static transforms into the vertices below them, except those that reach farther than a limit: vertices far
 * from the origin lose precision.
 *
 *     // transforms of up to 1000 graph units
 *     veltrane::sceneutils::MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor::process(model, 1000.0 *
 * 1000.0);
 *
 * A transform counts by its own translation: that of an osg::MatrixTransform's matrix, an
 * osg::PositionAttitudeTransform's position, and none for other kinds. If its square is at most the limit and the
 * transform's data variance is STATIC, a plain group takes its place in the parent that the visit came through, with
 * copies of all below. What hangs in several places below a flattened transform is copied for each of them, so that
 * each can be moved on its own; LODs get a user-defined centre that moves along. Dynamic transforms and those of
 * unspecified variance stay, and so does the root of the visit, as its parents are not known to the visit.
 *
 * Drawables that hang directly below groups are moved like those of geodes. An osg::PagedLOD that is shared below a
 * flattened transform becomes an osg::LOD of what is loaded.
 *
 * A node on a path without a group above it is left as it is and reported at osg::NOTICE: "No parent for this Group" or
 * "No parent for this LOD". One instance serves one thread at a time, and the graph must not be in other use meanwhile.
 */
class SCENEUTILS_EXPORT MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor
    : public osgUtil::Optimizer::FlattenStaticTransformsDuplicatingSharedSubgraphsVisitor {
public:
    /** Flattens whatever the distance, in OpenSceneGraph. */
    using Base = osgUtil::Optimizer::FlattenStaticTransformsDuplicatingSharedSubgraphsVisitor;

    /** @param squaredLimit the square of the greatest length of a translation that is flattened; 0: none but those
     *     without translation. A length that is not a number is flattened. */
    explicit MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor(double squaredLimit);
    MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor(
        const MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor& other);
    MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor& operator=(
        const MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor& other);
    ~MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor() override;

    /**
     * Does the whole job on the graph below `node`. A null node is ignored. See the constructor for the limit.
     * @param node the graph; its root stays
     * @param squaredLimit in graph units, squared
     */
    static void process(osg::Node* node, double squaredLimit);

    using Base::apply;

    /** Moves the centre of an LOD below a flattened transform, a copy of it if it is shared, and visits the children.
     */
    void apply(osg::LOD& lod) override;

    /** Flattens a transform within the limit; visits the children of others. */
    void apply(osg::Transform& transform) override;

    /** Visits the children, those of a copy if the group is shared below a flattened transform. */
    void apply(osg::Group& group) override;

    /** Moves a geode's drawables and visits what else it holds. */
    void apply(osg::Geode& geode) override;

    /** Moves a billboard; one that lacks positions or holds more than drawables is left as it is. */
    void apply(osg::Billboard& billboard) override;

    /** Moves a drawable that hangs directly below a group, a copy of it if it is shared. */
    void apply(osg::Drawable& drawable) override;

    /**
     * Flattens a static transform of any length.
     * @param transform the transform; one that is not static is visited only
     */
    void originalApply(osg::Transform& transform);

private:
    bool isSharedBelowAFlattenedTransform(const osg::Node& node) const;
    osg::Group* parentOnThePath() const;
    void moveCenter(osg::LOD& lod) const;

    double _squaredLimit;
    std::unique_ptr<ChildReplacer> _replacer;  ///< knows the places of the children of large groups
};

}  // namespace veltrane::sceneutils
