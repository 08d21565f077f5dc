#pragma once

#include "BoxComparison.h"

#include <osg/Matrixd>
#include <osg/Transform>

#include <array>
#include <functional>
#include <optional>

namespace veltrane::sceneutils::tool {

/** A transform above a piece, as CalculateBoundingBox sees it. */
struct BoxStep {
    osg::Matrixd matrix;             ///< by itself
    bool isMatrixTransform = false;  ///< others are not followed
    bool isPassedOver = false;       ///< it hangs directly below a multi-switch
    bool isAbsolute = false;
    osg::NodePath path;
};

/** What counts in one go: a geode's drawables, or a drawable by itself. */
struct BoxPiece {
    static constexpr std::array<BoxReason, 6> placementReasons = {
        BoxReason::TransformNotFollowed, BoxReason::BelowMultiSwitch, BoxReason::ReferenceFrame,
        BoxReason::NestedTransforms,     BoxReason::BoxedTogether,    BoxReason::Masked};

    /** A drawable's box in the coordinates of the piece. */
    struct Part {
        osg::BoundingBox box;
        bool isMasked = false;
    };
    struct LeftOut {
        BoxReason reason;
        osg::NodePath path;
    };

    osg::NodePath path;
    std::vector<Part> parts;
    std::vector<BoxStep> steps;  ///< from the root down
    osg::Matrixd realMatrix;
    bool isGeode = false;
    bool isMasked = false;           ///< OpenSceneGraph does not count it
    bool isMaskedForBoth = false;    ///< nor does CalculateBoundingBox
    std::optional<LeftOut> leftOut;  ///< why CalculateBoundingBox does not count it
    std::optional<osg::NodePath> maskedBy;

    osg::BoundingBox realBox() const;
    /** What CalculateBoundingBox makes of it, with what belongs to those reasons put right. */
    osg::BoundingBox calculatedBox(const std::set<BoxReason>& putRight = {}) const;
    /** Whether CalculateBoundingBox takes the largest box of all for it. */
    bool isEmptyGeode() const;
    /** The nodes that could be to blame for where CalculateBoundingBox has the piece. */
    std::vector<osg::NodePath> nodesFor(BoxReason reason) const;
};

/** Visits all pieces, on each way that leads to them, as both ways of computing a box do. */
void walkBoxes(osg::Node& root, const std::function<void(const BoxPiece&)>& look);

}  // namespace veltrane::sceneutils::tool
