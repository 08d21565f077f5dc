#include "FormatFit.h"

#include "PlainNormals.h"

#include <osg/Billboard>
#include <osg/Geode>
#include <osg/Group>
#include <osg/NodeVisitor>

#include <map>
#include <set>
#include <vector>

namespace veltrane::sceneutils::tool {

namespace {

constexpr osg::Node::NodeMask seenByAll = ~0u;
constexpr osg::Node::NodeMask hidden = 0;

/** What a format holds of drawables. */
struct Abilities {
    bool hasDrawablesInGroups = false;
    bool hasMasksOfDrawables = false;
};

Abilities abilitiesOf(const std::string& ending) {
    if (ending == "osgb" || ending == "osgt" || ending == "osgx") return {true, true};
    if (ending == "osg") return {true, false};
    return {};
}

/** Finds the groups: first so that they can be changed after the walk. */
class GroupCollector : public osg::NodeVisitor {
public:
    GroupCollector() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    using osg::NodeVisitor::apply;

    void apply(osg::Group& group) override {
        if (!_seen.insert(&group).second) return;
        groups.push_back(&group);
        traverse(group);
    }

    std::vector<osg::ref_ptr<osg::Group>> groups;

private:
    std::set<osg::Group*> _seen;
};

class Fitting {
public:
    explicit Fitting(const Abilities& abilities) : _abilities(abilities) {}

    osg::ref_ptr<osg::Node> run(osg::ref_ptr<osg::Node> root) {
        GroupCollector collector;
        root->accept(collector);
        for (const osg::ref_ptr<osg::Group>& group : collector.groups) {
            const osg::ref_ptr<osg::Group> fit = fitted(*group);
            if (fit == group) continue;
            for (osg::Group* parent : osg::Node::ParentList(group->getParents())) parent->replaceChild(group, fit);
            if (root == group) root = fit;
        }
        osg::Drawable* drawable = root->asDrawable();
        if (drawable && needsGeode(*drawable)) return geodeOf(*drawable);
        return root;
    }

private:
    bool isMaskKept(const osg::Node& drawable) const {
        return _abilities.hasMasksOfDrawables || drawable.getNodeMask() == seenByAll;
    }
    bool needsGeode(const osg::Node& drawable) const {
        return !_abilities.hasDrawablesInGroups || !isMaskKept(drawable);
    }

    osg::ref_ptr<osg::Group> fitted(osg::Group& group) {
        if (auto* billboard = dynamic_cast<osg::Billboard*>(&group)) return fittedBillboard(*billboard);
        if (osg::Geode* geode = group.asGeode()) return fittedGeode(*geode);
        for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
            osg::Drawable* drawable = group.getChild(i)->asDrawable();
            if (drawable && needsGeode(*drawable)) group.setChild(i, geodeOf(*drawable));
        }
        return &group;
    }

    /** A geode that stands for the drawable wherever it hangs in a group. */
    osg::ref_ptr<osg::Geode> geodeOf(osg::Drawable& drawable) {
        osg::ref_ptr<osg::Geode>& geode = _geodes[&drawable];
        if (!geode) {
            geode = new osg::Geode;
            geode->setNodeMask(drawable.getNodeMask());
            geode->addDrawable(&drawable);
        }
        return geode;
    }

    osg::ref_ptr<osg::Group> fittedGeode(osg::Geode& geode) {
        bool isFit = true;
        for (unsigned int i = 0; i < geode.getNumChildren(); ++i) isFit = isFit && fitsInGeode(*geode.getChild(i));
        if (isFit) return &geode;

        const osg::ref_ptr<osg::Group> group = emptyCopy(geode);
        osg::ref_ptr<osg::Geode> drawables;  // those that follow each other
        for (unsigned int i = 0; i < geode.getNumChildren(); ++i) {
            osg::Node* child = geode.getChild(i);
            if (fitsInGeode(*child)) {
                if (!drawables) group->addChild(drawables = new osg::Geode);
                drawables->addDrawable(child->asDrawable());
                continue;
            }
            drawables = nullptr;
            if (child->asDrawable()) {
                group->addChild(geodeOf(*child->asDrawable()));
            } else {
                group->addChild(child);
            }
        }
        return group;
    }

    bool fitsInGeode(const osg::Node& child) const { return child.asDrawable() && isMaskKept(child); }

    /** A group with all that a node of any class has. */
    static osg::ref_ptr<osg::Group> emptyCopy(osg::Group& node) {
        osg::ref_ptr<osg::Group> group = new osg::Group(node, osg::CopyOp::SHALLOW_COPY);
        group->removeChildren(0, group->getNumChildren());
        group->setEventCallback(node.getEventCallback());  // which copies go without
        return group;
    }

    // A billboard turns its drawables by themselves, whatever their masks are.
    static osg::ref_ptr<osg::Group> fittedBillboard(osg::Billboard& billboard) {
        const osg::ref_ptr<osg::Group> others = new osg::Group;
        for (unsigned int i = 0; i < billboard.getNumChildren(); ++i) {
            if (!billboard.getDrawable(i)) others->addChild(billboard.getChild(i));
        }
        if (others->getNumChildren() == 0) return &billboard;
        others->setNodeMask(hidden);

        const osg::Billboard::PositionList positions = billboard.getPositionList();
        const osg::ref_ptr<osg::Billboard> drawables = new osg::Billboard(billboard, osg::CopyOp::SHALLOW_COPY);
        drawables->removeChildren(0, drawables->getNumChildren());
        drawables->setEventCallback(billboard.getEventCallback());  // which copies go without
        osg::Billboard::PositionList none;
        drawables->setPositionList(none);
        for (unsigned int i = 0; i < billboard.getNumChildren(); ++i) {
            const osg::Vec3 position = i < positions.size() ? positions[i] : osg::Vec3();
            if (osg::Drawable* drawable = billboard.getDrawable(i)) drawables->addDrawable(drawable, position);
        }
        const osg::ref_ptr<osg::Group> group = new osg::Group;
        group->addChild(drawables);
        group->addChild(others);
        return group;
    }

    Abilities _abilities;
    std::map<osg::Drawable*, osg::ref_ptr<osg::Geode>> _geodes;
};

}  // namespace

osg::ref_ptr<osg::Node> fitForFormat(osg::ref_ptr<osg::Node> root, const std::string& ending) {
    if (ending == "ive") bindNormalsOverall(*root);
    return Fitting(abilitiesOf(ending)).run(root);
}

}  // namespace veltrane::sceneutils::tool
