#pragma once

#include <sceneutils/Export.h>

#include <osg/Billboard>
#include <osg/BoundingBox>
#include <osg/Geode>
#include <osg/Group>
#include <osg/MatrixTransform>
#include <osg/Matrixd>
#include <osg/Node>
#include <osg/NodeVisitor>
#include <osgSim/MultiSwitch>

namespace veltrane::sceneutils {

/**
 * Measures a graph: the axis-aligned box around the drawables of its geodes, in the coordinates of the node that the
 * visit starts at.
 *
 *     const osg::BoundingBox box = veltrane::sceneutils::CalculateBoundingBox::process(*model);
 *
 * The box of each geode is carried through the matrices of the osg::MatrixTransform nodes above it: the box around its
 * eight turned and moved corners counts, which may be wider than the drawables are. All children count, whatever is
 * switched on or in range, but for those of osgSim::MultiSwitch nodes. The graph is not changed. Nothing is reported.
 * One instance serves one thread at a time.
 *
 * What may surprise:
 * - Of nested transforms the outer matrix is applied to a point first. Where the order matters (turns and scales mixed
 *   with moves), the box is not where OSG draws the model.
 * - Other transforms, osg::PositionAttitudeTransform for example, do not move what hangs below them, and the reference
 *   frame of transforms is not looked at.
 * - The children of a child of an osgSim::MultiSwitch count, if the active switch set shows that child; the child
 *   itself never does. A geode directly below a multi-switch adds nothing, and a transform there does not move.
 * - Billboards, and drawables that hang directly below a group, do not count.
 * - A geode without drawables, or without any that has an extent, widens the box to the whole range of float.
 */
class SCENEUTILS_EXPORT CalculateBoundingBox : public osg::NodeVisitor {
public:
    CalculateBoundingBox();
    CalculateBoundingBox(const CalculateBoundingBox& other);
    CalculateBoundingBox& operator=(const CalculateBoundingBox& other);
    ~CalculateBoundingBox() override;

    /**
     * @return the box of the graph below `node`; one that is not valid() if there is no geode
     * @param node the graph; not changed
     */
    static osg::BoundingBox process(osg::Node& node);

    /** @return the box around everything that was visited so far, of one graph or several. The caller may change it. */
    osg::BoundingBox& getBoundBox();

    using osg::NodeVisitor::apply;

    /** Moves what hangs below by the transform's matrix. */
    void apply(osg::MatrixTransform& transform) override;

    /** Visits the children; of a multi-switch, the children of those children that its active switch set shows. */
    void apply(osg::Group& group) override;

    /** Visits the children only: how far a billboard reaches depends on who looks at it. */
    void apply(osg::Billboard& billboard) override;

    /** Widens the box by that of the geode's drawables. */
    void apply(osg::Geode& geode) override;

private:
    void visitShownChildren(osgSim::MultiSwitch& multiSwitch);

    osg::BoundingBox _boundingBox;
    osg::Matrixd _currentMatrix;
};

}  // namespace veltrane::sceneutils
