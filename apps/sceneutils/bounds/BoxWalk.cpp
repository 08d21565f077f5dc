#include "BoxWalk.h"

#include <osg/Billboard>
#include <osg/Drawable>
#include <osg/Geode>
#include <osg/MatrixTransform>
#include <osgSim/MultiSwitch>

#include <algorithm>

namespace veltrane::sceneutils::tool {

namespace {

osg::BoundingBox moved(const osg::BoundingBox& box, const osg::Matrixd& matrix) {
    osg::BoundingBox result;
    if (!box.valid()) return result;
    for (unsigned int i = 0; i < 8; ++i) result.expandBy(box.corner(i) * matrix);
    return result;
}

bool isFollowed(const BoxStep& step, const std::set<BoxReason>& putRight) {
    if (!step.isMatrixTransform) return putRight.count(BoxReason::TransformNotFollowed) != 0;
    return !step.isPassedOver || putRight.count(BoxReason::BelowMultiSwitch) != 0;
}

osg::Matrixd calculatedMatrix(const std::vector<BoxStep>& steps, const std::set<BoxReason>& putRight) {
    const bool looksAtFrames = putRight.count(BoxReason::ReferenceFrame) != 0;
    const bool innerFirst = putRight.count(BoxReason::NestedTransforms) != 0;
    osg::Matrixd matrix;
    for (const BoxStep& step : steps) {
        if (!isFollowed(step, putRight)) continue;
        if (step.isAbsolute && (looksAtFrames || !step.isMatrixTransform)) {
            matrix = step.matrix;
        } else {
            matrix = innerFirst ? step.matrix * matrix : matrix * step.matrix;
        }
    }
    return matrix;
}

class BoxWalk : public osg::NodeVisitor {
public:
    explicit BoxWalk(const std::function<void(const BoxPiece&)>& look)
        : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _look(look) {
        setNodeMaskOverride(~0u);  // what is masked is looked at, too: the two do not always agree on it
    }

    using osg::NodeVisitor::apply;

    void apply(osg::Node& node) override {
        const Surroundings outer = _around;
        const bool isPassedOver = enter(node);
        if (osg::Transform* transform = node.asTransform()) step(*transform, isPassedOver);
        if (const osg::Geode* geode = node.asGeode()) {
            lookAt(*geode, isPassedOver);
        } else if (const osg::Drawable* drawable = node.asDrawable()) {
            if (!outer.isInGeode) lookAt(*drawable);
        }
        auto* multiSwitch = dynamic_cast<osgSim::MultiSwitch*>(&node);
        _around.multiSwitch = isPassedOver ? nullptr : multiSwitch;
        _around.isInGeode = node.asGeode() != nullptr;
        traverse(node);
        _around = outer;
    }

private:
    struct Surroundings {
        std::vector<BoxStep> steps;
        osg::Matrixd realMatrix;
        bool isMasked = false;
        bool isMaskedForBoth = false;
        std::optional<osg::NodePath> maskedBy;
        std::optional<BoxPiece::LeftOut> leftOut;
        osgSim::MultiSwitch* multiSwitch = nullptr;  // the parent, if it is one that CalculateBoundingBox heeds
        bool isInGeode = false;
    };

    /** Returns whether CalculateBoundingBox goes past the node to its children. */
    bool enter(osg::Node& node) {
        osgSim::MultiSwitch* parent = _around.multiSwitch;
        if (node.getNodeMask() == 0) {
            if (!_around.isMasked) _around.maskedBy = getNodePath();
            _around.isMasked = true;
            if (!parent) _around.isMaskedForBoth = true;
        }
        if (parent && !parent->getValue(parent->getActiveSwitchSet(), parent->getChildIndex(&node))) {
            osg::NodePath path = getNodePath();
            path.pop_back();
            leaveOut(BoxReason::NotShownByMultiSwitch, path);
        }
        return parent != nullptr;
    }

    void leaveOut(BoxReason reason, const osg::NodePath& path) {
        if (!_around.leftOut) _around.leftOut = {reason, path};
    }

    void step(osg::Transform& transform, bool isPassedOver) {
        BoxStep step;
        transform.computeLocalToWorldMatrix(step.matrix, this);
        step.isMatrixTransform = transform.asMatrixTransform() != nullptr;
        step.isPassedOver = isPassedOver;
        step.isAbsolute = transform.getReferenceFrame() != osg::Transform::RELATIVE_RF;
        step.path = getNodePath();
        _around.steps.push_back(step);
        transform.computeLocalToWorldMatrix(_around.realMatrix, this);
    }

    BoxPiece makePiece() const {
        BoxPiece piece;
        piece.path = getNodePath();
        piece.steps = _around.steps;
        piece.realMatrix = _around.realMatrix;
        piece.isMasked = _around.isMasked;
        piece.isMaskedForBoth = _around.isMaskedForBoth;
        piece.maskedBy = _around.maskedBy;
        piece.leftOut = _around.leftOut;
        return piece;
    }

    void lookAt(const osg::Geode& geode, bool isPassedOver) {
        if (dynamic_cast<const osg::Billboard*>(&geode)) leaveOut(BoxReason::Billboard, getNodePath());
        if (isPassedOver) leaveOut(BoxReason::BelowMultiSwitch, getNodePath());
        BoxPiece piece = makePiece();
        piece.isGeode = true;
        for (unsigned int i = 0; i < geode.getNumDrawables(); ++i) {
            const osg::Drawable* drawable = geode.getDrawable(i);
            if (drawable) piece.parts.push_back({drawable->getBoundingBox(), drawable->getNodeMask() == 0});
        }
        _around.leftOut = piece.leftOut && piece.leftOut->path == piece.path ? std::nullopt : piece.leftOut;
        _look(piece);
    }

    void lookAt(const osg::Drawable& drawable) {
        leaveOut(BoxReason::DrawableOutsideGeode, getNodePath());
        BoxPiece piece = makePiece();
        piece.parts.push_back({drawable.getBoundingBox(), false});
        _look(piece);
    }

    const std::function<void(const BoxPiece&)>& _look;
    Surroundings _around;
};

}  // namespace

osg::BoundingBox BoxPiece::realBox() const {
    osg::BoundingBox result;
    if (isMasked) return result;
    for (const Part& part : parts) {
        if (!part.isMasked) result.expandBy(moved(part.box, realMatrix));
    }
    return result;
}

osg::BoundingBox BoxPiece::calculatedBox(const std::set<BoxReason>& putRight) const {
    osg::BoundingBox result;
    if (isMaskedForBoth || leftOut) return result;
    const bool looksAtMasks = putRight.count(BoxReason::Masked) != 0;
    if (isMasked && looksAtMasks) return result;

    const osg::Matrixd matrix = calculatedMatrix(steps, putRight);
    osg::BoundingBox together;
    for (const Part& part : parts) {
        if (part.isMasked && looksAtMasks) continue;
        together.expandBy(part.box);
        result.expandBy(moved(part.box, matrix));
    }
    return putRight.count(BoxReason::BoxedTogether) != 0 ? result : moved(together, matrix);
}

bool BoxPiece::isEmptyGeode() const {
    if (!isGeode || isMaskedForBoth || leftOut) return false;
    return std::none_of(parts.begin(), parts.end(), [](const Part& part) { return part.box.valid(); });
}

std::vector<osg::NodePath> BoxPiece::nodesFor(BoxReason reason) const {
    std::vector<osg::NodePath> nodes;
    osg::Matrixd outer;
    for (const BoxStep& step : steps) {
        const bool isLikely =
            (reason == BoxReason::TransformNotFollowed && !step.isMatrixTransform) ||
            (reason == BoxReason::BelowMultiSwitch && step.isPassedOver) ||
            (reason == BoxReason::ReferenceFrame && step.isMatrixTransform && step.isAbsolute && !outer.isIdentity());
        const bool moves = !step.matrix.isIdentity() || step.isAbsolute;
        if (isLikely && moves) nodes.push_back(step.path);
        if (!isFollowed(step, {})) continue;
        if (reason == BoxReason::NestedTransforms && outer * step.matrix != step.matrix * outer)
            nodes.push_back(step.path);
        outer = outer * step.matrix;
    }
    const bool hasMaskedPart = std::any_of(parts.begin(), parts.end(), [](const Part& part) { return part.isMasked; });
    if (reason == BoxReason::BoxedTogether && parts.size() > 1) nodes.push_back(path);
    if (reason == BoxReason::Masked && maskedBy) nodes.push_back(*maskedBy);
    if (reason == BoxReason::Masked && !maskedBy && hasMaskedPart) nodes.push_back(path);
    return nodes;
}

void walkBoxes(osg::Node& root, const std::function<void(const BoxPiece&)>& look) {
    BoxWalk walk(look);
    root.accept(walk);
}

}  // namespace veltrane::sceneutils::tool
