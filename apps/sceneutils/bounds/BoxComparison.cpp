#include "BoxComparison.h"

#include "../files/NodeText.h"
#include "BoxWalk.h"

#include <sceneutils/CalculateBoundingBox.h>

#include <osg/ComputeBoundsVisitor>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <map>

namespace veltrane::sceneutils::tool {

namespace {

constexpr float roundingSteps = 8.0f;  // of the largest coordinate: both ways round several times

float largestCoordinate(const osg::BoundingBox& box) {
    float largest = 0.0f;
    for (int i = 0; i < 3; ++i) largest = std::max({largest, std::abs(box._min[i]), std::abs(box._max[i])});
    return largest;
}

/** Whether `outer` has room for `inner`, but for rounding. */
bool contains(const osg::BoundingBox& outer, const osg::BoundingBox& inner) {
    if (!inner.valid()) return true;
    if (!outer.valid()) return false;
    const float tolerance = roundingSteps * FLT_EPSILON * std::min(largestCoordinate(outer), largestCoordinate(inner));
    for (int i = 0; i < 3; ++i) {
        if (inner._min[i] < outer._min[i] - tolerance || inner._max[i] > outer._max[i] + tolerance) return false;
    }
    return true;
}

bool areEqual(const osg::BoundingBox& a, const osg::BoundingBox& b) {
    return contains(a, b) && contains(b, a);
}

/** The boxes of a whole graph, without what empty geodes do. */
struct WholeBoxes {
    osg::BoundingBox real;
    osg::BoundingBox calculated;

    void add(const BoxPiece& piece) {
        real.expandBy(piece.realBox());
        calculated.expandBy(piece.calculatedBox());
    }
};

class Explanation {
public:
    explicit Explanation(const WholeBoxes& whole) : _whole(whole) {}

    void look(const BoxPiece& piece) {
        if (piece.isEmptyGeode()) {
            blame(BoxReason::EmptyGeode, piece.path);
            return;
        }
        const osg::BoundingBox calculated = piece.calculatedBox();
        const bool widens = !contains(_whole.real, calculated);
        const bool isMissed = !contains(_whole.calculated, piece.realBox());
        if (!widens && !isMissed) return;
        if (piece.leftOut) {
            blame(piece.leftOut->reason, piece.leftOut->path);
        } else {
            blamePlacement(piece, calculated);
        }
    }

    std::vector<BoxDifference> differences() const {
        std::vector<BoxDifference> result;
        for (const auto& [reason, nodes] : _nodes) result.push_back({reason, nodes});
        return result;
    }

private:
    void blame(BoxReason reason, const osg::NodePath& path) { _nodes[reason].insert(namesAlong(path)); }

    /** Names what, put right by itself, changes where the piece is; if it takes several at once, all that there is. */
    void blamePlacement(const BoxPiece& piece, const osg::BoundingBox& calculated) {
        std::vector<BoxReason> present;
        std::vector<BoxReason> effective;
        for (const BoxReason reason : BoxPiece::placementReasons) {
            if (piece.nodesFor(reason).empty()) continue;
            present.push_back(reason);
            if (!areEqual(piece.calculatedBox({reason}), calculated)) effective.push_back(reason);
        }
        for (const BoxReason reason : effective.empty() ? present : effective) {
            for (const osg::NodePath& path : piece.nodesFor(reason)) blame(reason, path);
        }
    }

    const WholeBoxes& _whole;
    std::map<BoxReason, std::set<std::vector<std::string>>> _nodes;
};

}  // namespace

const char* nameOf(BoxReason reason) {
    switch (reason) {
        case BoxReason::EmptyGeode:
            return "emptyGeode";
        case BoxReason::TransformNotFollowed:
            return "transformNotFollowed";
        case BoxReason::ReferenceFrame:
            return "referenceFrame";
        case BoxReason::NestedTransforms:
            return "nestedTransforms";
        case BoxReason::BelowMultiSwitch:
            return "belowMultiSwitch";
        case BoxReason::NotShownByMultiSwitch:
            return "notShownByMultiSwitch";
        case BoxReason::Billboard:
            return "billboard";
        case BoxReason::DrawableOutsideGeode:
            return "drawableOutsideGeode";
        case BoxReason::BoxedTogether:
            return "boxedTogether";
        case BoxReason::Masked:
            return "masked";
        case BoxReason::Unknown:
            break;
    }
    return "unknown";
}

const char* explanationOf(BoxReason reason) {
    switch (reason) {
        case BoxReason::EmptyGeode:
            return "a geode in which nothing has an extent widens it to the whole range of float";
        case BoxReason::TransformNotFollowed:
            return "a transform that is no MatrixTransform does not move what hangs below";
        case BoxReason::ReferenceFrame:
            return "a transform's absolute reference frame is not looked at";
        case BoxReason::NestedTransforms:
            return "of nested transforms the outer matrix is applied first";
        case BoxReason::BelowMultiSwitch:
            return "a child of a multi-switch is passed over, only its children count";
        case BoxReason::NotShownByMultiSwitch:
            return "what a multi-switch does not show does not count";
        case BoxReason::Billboard:
            return "a billboard does not count";
        case BoxReason::DrawableOutsideGeode:
            return "a drawable outside geodes does not count";
        case BoxReason::BoxedTogether:
            return "the drawables of a geode are turned in one box";
        case BoxReason::Masked:
            return "what a node mask hides counts";
        case BoxReason::Unknown:
            break;
    }
    return "the reason was not found";
}

BoxComparison compareBoxes(osg::Node& root) {
    BoxComparison comparison;
    osg::ComputeBoundsVisitor bounds;
    root.accept(bounds);
    comparison.box = bounds.getBoundingBox();
    comparison.sphere = root.getBound();
    comparison.calculated = CalculateBoundingBox::process(root);
    if (areEqual(comparison.box, comparison.calculated)) return comparison;

    WholeBoxes whole;
    walkBoxes(root, [&](const BoxPiece& piece) { whole.add(piece); });
    Explanation explanation(whole);
    walkBoxes(root, [&](const BoxPiece& piece) { explanation.look(piece); });
    comparison.differences = explanation.differences();
    if (comparison.differences.empty()) comparison.differences.push_back({BoxReason::Unknown, {}});
    return comparison;
}

}  // namespace veltrane::sceneutils::tool
