#pragma once

#include <sceneutils/Export.h>

#include <osg/Callback>
#include <osg/CopyOp>
#include <osg/Group>
#include <osg/Matrixd>
#include <osg/Node>
#include <osg/NodeVisitor>
#include <osg/ref_ptr>

namespace veltrane::sceneutils {

/**
 * An update callback that records where its node is: the matrix that takes world coordinates into those of the node,
 * as of the last update traversal. TransformAccumulator makes and reads it.
 *
 * It keeps its maker's spelling, and osg::NodeCallback's library and class name: clone() gives a plain
 * osg::NodeCallback. Copies made by the constructor or by assignment have the same matrix and nested callback. It is
 * written by the thread that runs the update traversal.
 */
struct SCENEUTILS_EXPORT UpdateAccumlatedMatrix : public osg::NodeCallback {
    UpdateAccumlatedMatrix();
    /** @param other what is copied @param copyOperation for what osg::Object and osg::Callback hold */
    UpdateAccumlatedMatrix(const UpdateAccumlatedMatrix& other,
                           const osg::CopyOp& copyOperation = osg::CopyOp::SHALLOW_COPY);
    UpdateAccumlatedMatrix& operator=(const UpdateAccumlatedMatrix& other);
    ~UpdateAccumlatedMatrix() override;

    /**
     * Records the world-to-local matrix of the path by which the visitor came, absolute cameras and what is above them
     * left out, and goes on to the nested callbacks and the children.
     * @param node the node that carries the callback
     * @param visitor the visitor that has reached it; not null
     */
    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override;

    /** What was recorded last. The identity before the first update traversal. */
    osg::Matrixd _matrix;
};

/**
 * A point to hang into a graph, whose accumulated transformation can be read at any time.
 *
 *     veltrane::sceneutils::TransformAccumulator eyePoint;
 *     eyePoint.attachToGroup(cockpit);
 *     // after each update traversal:
 *     const osg::Matrixd worldToCockpit = eyePoint.getMatrix();
 *
 * The attach point is an osg::Group that records its matrix in every update traversal. If it can be reached along
 * several paths, the last one visited counts. Below it hangs a plain node, which can carry an update callback of the
 * caller's.
 *
 * Only `_parent` holds a reference. The graph keeps the attach point alive, and the attach point the rest: attach it
 * to a group, or hold `_attachGroup` in an osg::ref_ptr, or the three objects are never freed. Once the attach point is
 * freed with its graph, the accumulator must not be used any more. Copies share one attach point.
 *
 * Nothing is reported but by results. To be read by the thread that runs the update traversal, between frames: there is
 * no lock.
 */
struct SCENEUTILS_EXPORT TransformAccumulator {
    /** Makes the attach point with its callback and its child. It hangs nowhere yet, and its matrix is the identity. */
    TransformAccumulator();
    TransformAccumulator(const TransformAccumulator& other);
    TransformAccumulator& operator=(const TransformAccumulator& other);
    ~TransformAccumulator();

    /**
     * Hangs the attach point below a group. If `_parent` is set, it is taken off that group first; if it does not hang
     * there, nothing is done. If `_parent` is not set, the attach point stays where else it hangs.
     *
     * `_parent` itself is not changed: set it to the group that the attach point is to leave by the next move. Of two
     * places directly behind one another among the children of `_parent` only the first is given up.
     *
     * @param group not null
     * @return false if `_parent` is set and the attach point does not hang there
     */
    bool attachToGroup(osg::Group* group);

    /**
     * Gives the child below the attach point an update callback in place of the one it has.
     * @param callback null for none
     */
    void addUpdateCallbackToChild(osg::NodeCallback* callback);

    /** @return the matrix that took world coordinates into those of the attach point in the last update traversal */
    osg::Matrixd getMatrix() const;

    /** The group that the attach point is to be taken off when it is moved. Set by the caller; null at first. */
    osg::ref_ptr<osg::Group> _parent;

    /** The attach point. */
    osg::Group* _attachGroup;

    /** The attach point's only child. */
    osg::Node* _child;

    /** The attach point's update callback. */
    UpdateAccumlatedMatrix* _callback;
};

}  // namespace veltrane::sceneutils
