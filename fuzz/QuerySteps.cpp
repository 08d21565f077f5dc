#include "GraphChecks.h"
#include "Promise.h"
#include "ToolSteps.h"

#include <sceneutils/CalculateBoundingBox.h>
#include <sceneutils/FindNodeVisitor.h>
#include <sceneutils/SceneUtils.h>
#include <sceneutils/StateSetVisitor.h>
#include <sceneutils/TransformAccumulator.h>

#include <osg/FrameStamp>
#include <osg/Geode>
#include <osg/PositionAttitudeTransform>
#include <osg/Transform>
#include <osgSim/DOFTransform>
#include <osgUtil/UpdateVisitor>

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

namespace fuzzing {

namespace {

using namespace veltrane::sceneutils;

void addVisited(osg::Node& node, std::vector<osg::Node*>& visited) {
    if (node.getNodeMask() == 0) return;
    visited.push_back(&node);
    osg::Group* group = node.asGroup();
    for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) addVisited(*group->getChild(i), visited);
}

/** The box that is promised, worked out as plainly as it can be said. */
class PlainBox {
public:
    osg::BoundingBox box;

    void visit(osg::Node& node) {
        if (node.getNodeMask() == 0) return;
        const osg::Matrixd outer = _matrix;
        if (auto* transform = dynamic_cast<osg::MatrixTransform*>(&node)) _matrix = _matrix * transform->getMatrix();
        osg::Geode* geode = node.asGeode();
        if (geode && !dynamic_cast<osg::Billboard*>(geode)) add(*geode);
        if (auto* choices = dynamic_cast<osgSim::MultiSwitch*>(&node)) {
            visitShown(*choices);
        } else {
            visitChildren(node);
        }
        _matrix = outer;
    }

private:
    void visitChildren(osg::Node& node) {
        osg::Group* group = node.asGroup();
        for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) visit(*group->getChild(i));
    }
    void visitShown(osgSim::MultiSwitch& choices) {
        for (unsigned int i = 0; i < choices.getNumChildren(); ++i) {
            const unsigned int first = choices.getChildIndex(choices.getChild(i));
            if (choices.getValue(choices.getActiveSwitchSet(), first)) visitChildren(*choices.getChild(i));
        }
    }
    void add(const osg::Geode& geode) {
        osg::BoundingBox own;
        for (unsigned int i = 0; i < geode.getNumChildren(); ++i)
            if (const osg::Drawable* drawable = geode.getChild(i)->asDrawable())
                if (drawable->getBoundingBox().valid()) own.expandBy(drawable->getBoundingBox());
        osg::BoundingBox moved;
        for (unsigned int corner = 0; corner < 8; ++corner) moved.expandBy(own.corner(corner) * _matrix);
        if (moved.valid()) box.expandBy(moved);
    }

    osg::Matrixd _matrix;
};

/** All state sets, in the order in which they are to be visited. */
void addStates(osg::Node& node, std::vector<osg::StateSet*>& states) {
    if (node.getNodeMask() == 0) return;
    if (node.getStateSet()) states.push_back(node.getStateSet());
    osg::Group* group = node.asGroup();
    for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) {
        osg::Node& child = *group->getChild(i);
        if (!node.asGeode()) {
            addStates(child, states);
        } else if (child.asDrawable() && child.getStateSet()) {
            states.push_back(child.getStateSet());
        }
    }
}

class StateCollector : public StateSetVisitor {
public:
    using StateSetVisitor::apply;
    void apply(osg::StateSet& state) override { states.push_back(&state); }

    std::vector<osg::StateSet*> states;
};

/** Remembers where it is. */
class PathRecorder : public osg::NodeCallback {
public:
    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override {
        osg::NodePath path = visitor->getNodePath();
        path.pop_back();
        toWorld = osg::computeLocalToWorld(path, true);
        hasWayBack = std::none_of(path.begin(), path.end(), [](const osg::Node* above) {
            const auto* joint = dynamic_cast<const osgSim::DOFTransform*>(above);
            return joint && !joint->getPutMatrix().isIdentity();  // OpenSceneGraph takes its inverse for it
        });
        traverse(node, visitor);
    }

    std::optional<osg::Matrixd> toWorld;
    bool hasWayBack = true;
};

void update(osg::Node& root) {
    osgUtil::UpdateVisitor visitor;
    visitor.setFrameStamp(new osg::FrameStamp);
    root.accept(visitor);
}

/** Whether all is finite and no dimension is lost, so that there is a way back. */
bool isInvertible(const osg::Matrixd& matrix) {
    osg::Matrixd inverse;
    if (!matrix.valid() || !inverse.invert(matrix) || !inverse.valid()) return false;
    const osg::Matrixd one = matrix * inverse;
    return one.isIdentity();
}

osg::Group& chooseGroup(Scene& scene) {
    std::vector<osg::Node*> nodes = nodesOf(*scene.top);
    for (unsigned int tries = 5; tries > 0; --tries) {
        osg::Node* node =
            nodes[scene.choices.below(static_cast<unsigned int>(std::min<std::size_t>(nodes.size(), 256)))];
        if (node->asGroup() && !node->asGeode()) return *node->asGroup();
    }
    return *scene.top;
}

}  // namespace

std::vector<osg::Node*> visitedNodes(osg::Node& root) {
    std::vector<osg::Node*> visited;
    addVisited(root, visited);
    return visited;
}

void findNodes(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    const std::string before = describe(*scene.top);
    const auto name = scene.choices.one<std::string>({"", "a", "b", "new lod", "%s%n", "not there"});
    std::vector<osg::Node*> expected;
    for (osg::Node* node : visitedNodes(root))
        if (node->getName() == name) expected.push_back(node);

    FindNodeVisitor visitor(name);
    root.accept(visitor);

    promise(visitor.getNodeList() == expected, "not the nodes of that name");
    auto* first = expected.empty() ? nullptr : dynamic_cast<osg::PositionAttitudeTransform*>(expected.front());
    promise(findNamedPAT(&root, name) == first, "not the transform of that name");
    promiseSame(before, describe(*scene.top), "looking for a node has changed the graph");
}

void calculateBox(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    const std::string before = describe(*scene.top);
    PlainBox expected;
    expected.visit(root);

    const osg::BoundingBox box = CalculateBoundingBox::process(root);

    promise(scene.isWild || (box._min == expected.box._min && box._max == expected.box._max), "not that box");
    promiseSame(before, describe(*scene.top), "measuring has changed the graph");
}

void visitStateSets(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    std::vector<osg::StateSet*> expected;
    addStates(root, expected);

    StateCollector collector;
    root.accept(collector);

    promise(collector.states == expected, "not each state set once per path");
}

void accumulateTransforms(Scene& scene) {
    TransformAccumulator accumulator;
    const osg::ref_ptr<PathRecorder> recorder = new PathRecorder;
    accumulator.addUpdateCallbackToChild(recorder);
    osg::Group& group = chooseGroup(scene);
    promise(accumulator.attachToGroup(&group), "does not attach");
    update(*scene.top);

    if (!recorder->toWorld) {
        promise(accumulator.getMatrix().isIdentity(), "a matrix without an update");
    } else if (recorder->hasWayBack && isInvertible(*recorder->toWorld)) {
        const osg::Matrixd one = accumulator.getMatrix() * *recorder->toWorld;
        for (int i = 0; i < 16; ++i)
            promise(std::abs(one.ptr()[i] - osg::Matrixd().ptr()[i]) < 1e-4, "not the way from the world");
    }

    accumulator._parent = &group;
    osg::Group& other = chooseGroup(scene);
    if (&other != accumulator._attachGroup) promise(accumulator.attachToGroup(&other), "does not move");
}

}  // namespace fuzzing
