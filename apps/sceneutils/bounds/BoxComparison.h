#pragma once

#include <osg/BoundingBox>
#include <osg/BoundingSphere>
#include <osg/Node>

#include <set>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** Why CalculateBoundingBox gives another box than OpenSceneGraph. */
enum class BoxReason {
    EmptyGeode,
    TransformNotFollowed,
    ReferenceFrame,
    NestedTransforms,
    BelowMultiSwitch,
    NotShownByMultiSwitch,
    Billboard,
    DrawableOutsideGeode,
    BoxedTogether,
    Masked,
    Unknown
};

/** The reason's name in JSON, which stays the same. */
const char* nameOf(BoxReason reason);
/** The reason in words, which the nodes' paths follow. */
const char* explanationOf(BoxReason reason);

/** A reason, and the nodes that are to blame: the names on the way to each. */
struct BoxDifference {
    BoxReason reason;
    std::set<std::vector<std::string>> nodes;
};

struct BoxComparison {
    osg::BoundingBox box;         ///< as OpenSceneGraph computes it, every child counted
    osg::BoundingSphere sphere;   ///< what OpenSceneGraph culls by
    osg::BoundingBox calculated;  ///< by CalculateBoundingBox
    /** Why the two boxes differ, by more than rounding: only what makes a difference in this graph. */
    std::vector<BoxDifference> differences;
};

BoxComparison compareBoxes(osg::Node& root);

}  // namespace veltrane::sceneutils::tool
