#pragma once

#include <sceneutils/Export.h>

#include <osg/Billboard>
#include <osg/Drawable>
#include <osg/Geode>
#include <osg/Group>
#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/Matrixd>
#include <osg/NodeVisitor>
#include <osg/PagedLOD>
#include <osg/PositionAttitudeTransform>
#include <osg/ref_ptr>

#include <set>

namespace veltrane::sceneutils {

/**
 * Moves a model that lies far from the origin to the origin, and gives back the transform that puts it into its place
 * again. Vertices are single-precision numbers; near the origin they keep the digits that they lose far from it.
 *
 *     veltrane::sceneutils::BubbleUpTransform visitor;
 *     osg::ref_ptr<osg::Group> placed = visitor.createTransformForGeodes(town, 1000.0);
 *
 * Changed in place are the vertices and normals of drawables, the positions, axis and normal of billboards, the centre
 * and ranges of LODs and the matrices of matrix transforms; what hangs below a matrix transform or a position-attitude
 * transform is left alone. Positions and normals have to be arrays of three components, osg::Vec3Array or
 * osg::Vec3dArray; text and other drawables without such arrays stay where they are.
 *
 * Everything is moved once in the life of a visitor, by however many paths it is reached: a shared node, a shared
 * drawable, an array that several geometries share. The visitor remembers nodes by their address and does not hold
 * them; use a new one for another graph. It is meant to be used for one call.
 *
 * Nodes are visited whatever their node mask. Light points that are moved are logged at INFO in the category
 * "sceneutils", a record each. Nothing else is reported and nothing is thrown. One instance serves one thread at a
 * time.
 */
class SCENEUTILS_EXPORT BubbleUpTransform : public osg::NodeVisitor {
public:
    BubbleUpTransform();
    BubbleUpTransform(const BubbleUpTransform& other);
    BubbleUpTransform& operator=(const BubbleUpTransform& other);
    ~BubbleUpTransform() override;

    /**
     * Moves the graph so that the centre of its bounding sphere lies at the origin, if any of its geodes is far enough
     * away.
     * @param node the graph; held during the call only. Null is ignored.
     * @param minDistance in graph units, its sign does not matter: the graph is moved if the bounding-sphere centre of
     *     at least one geode lies this far or farther from the origin. The centres are taken as they are in the geode,
     *     without the transforms above it. A graph without geodes counts as lying at the origin.
     * @param result the translation that puts the graph back into its place; keeps its value if the graph is not moved
     *
     * Light points (osgSim::LightPointNode) are moved too, also those below transforms, but not those that a node mask
     * of zero hides.
     */
    void createMatrixForGeodes(osg::ref_ptr<osg::Node> node, double minDistance, osg::Matrixd& result);

    /**
     * Like createMatrixForGeodes(), but it is the centre of the whole graph's bounding sphere that has to lie
     * `minDistance` or farther from the origin, and light points are not moved.
     * @param node the graph; held during the call only. Null is ignored.
     * @param minDistance in graph units, its sign does not matter
     * @param result as for createMatrixForGeodes()
     */
    void createMatrixForGraph(osg::ref_ptr<osg::Node> node, double minDistance, osg::Matrixd& result);

    /**
     * Moves the graph as createMatrixForGeodes() does and hangs it below a new transform that puts it back.
     * @return a new osg::MatrixTransform with the group as its child, the caller's to hold; never null
     * @param group the graph; the transform holds it
     * @param minDistance see createMatrixForGeodes()
     *
     * If the graph is not moved, the transform has the matrix that this visitor computed last, the identity if none.
     * A null group leaves the transform without a child.
     */
    osg::Group* createTransformForGeodes(osg::ref_ptr<osg::Group> group, double minDistance);

    /**
     * Like createTransformForGeodes(), but moves the graph as createMatrixForGraph() does.
     * @param group the graph; the transform holds it
     * @param minDistance see createMatrixForGraph()
     * @return as createTransformForGeodes()
     */
    osg::Group* createTransformForGraph(osg::ref_ptr<osg::Group> group, double minDistance);

    using osg::NodeVisitor::apply;

    /** Pushes the matrix into the LOD's centre, from now on a user-defined one, and scales its ranges; goes on below.
     */
    void apply(osg::PagedLOD& lod) override;
    void apply(osg::LOD& lod) override;

    /**
     * Adds the matrix's translation to the position, but only if the node counts as visited; otherwise does nothing and
     * does not make it count. As no operation of this class makes it count, such a node stays where it is unless a
     * derived class has put it into `_visited`. What hangs below is not visited.
     */
    void apply(osg::PositionAttitudeTransform& transform) override;

    /** Multiplies the transform's matrix by the matrix. What hangs below is not visited. */
    void apply(osg::MatrixTransform& transform) override;

    /** Pushes the matrix into the positions, and what it has beside its translation into axis, normal and drawables. */
    void apply(osg::Billboard& billboard) override;

    /** Pushes the matrix into the geode's drawables. Children that are no drawables are passed over. */
    void apply(osg::Geode& geode) override;

    /** Pushes the matrix into a drawable that hangs directly below a group. */
    void apply(osg::Drawable& drawable) override;

protected:
    osg::Matrixd _matrix;           ///< what is pushed into the nodes that are visited
    std::set<osg::Node*> _visited;  ///< the nodes that have been dealt with; never cleared

private:
    bool isFirstVisit(osg::Node& node);
    void applyToAnyLOD(osg::LOD& lod);
    void pushDown(osg::Node& node, const osg::Vec3f& translation);
    osg::Group* hangBelowTransform(osg::Group* group) const;

    std::set<osg::ref_ptr<osg::Referenced>> _transformed;  ///< shared drawables and arrays that have been dealt with
};

}  // namespace veltrane::sceneutils
