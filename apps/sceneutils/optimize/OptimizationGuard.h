#pragma once

#include "StateMove.h"

#include <sceneutils/OptimizeBatches.h>

#include <osg/Node>

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/**
 * Keeps what OptimizeBatches would lose: it is told of each step and keeps nodes out of those that would lose them, or
 * moves their state to where it stays. Whatever it changes for the length of a step it puts back at its end.
 *
 * Kept as they are: named nodes (those whose name was left to them), nodes with user data, callbacks or a node mask and
 * those that are never culled; LODs whose range can make a difference; transforms above what cannot be moved.
 */
class OptimizationGuard : public OptimizeBatches::StepListener {
public:
    /** @param radius for the step that dissolves small groups */
    OptimizationGuard(const std::set<std::string>& keptNames, double radius);

    void beginStep(OptimizeBatches::Step step, osg::Node& root) override;
    void endStep(OptimizeBatches::Step step, osg::Node& root) override;

    /** Puts the transforms below `root` into the vertices that can be without any change of what is seen, up to that
     * length of their translation: MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor. */
    void flattenWithin(double distance, osg::Node& root) const;

    /** Gives LODs that have the centre of their bound that centre as their own, so that it stays when what they hold is
     * put together in another way. */
    static void fixCentres(osg::Node& root);

private:
    void keepLods(osg::Node& root);
    void keepTransforms(osg::Node& root);
    void keepNodes(osg::Node& root);
    void keepGroups(osg::Node& root);
    void keepGeodes(osg::Node& root);
    void keepGeometries(osg::Node& root);

    void setForThisStep(osg::Node& node, osg::Object::DataVariance variance);
    bool isKept(const osg::Node& node) const;

    std::set<std::string> _keptNames;
    double _radius;
    osg::ref_ptr<osg::Group> _secondParent;  ///< of groups and LODs that are not to be dissolved
    std::vector<std::function<void()>> _undo;
};

}  // namespace veltrane::sceneutils::tool
