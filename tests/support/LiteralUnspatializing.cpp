#include "support/LiteralUnspatializing.h"

#include <osg/LOD>
#include <osg/Transform>

#include <map>
#include <typeinfo>
#include <vector>

namespace testing_support {

void LiteralUnspatializing::process(osg::Node& root, double radius) {
    LiteralUnspatializing visitor(radius);
    for (int i = 0; i < 2; ++i) {
        root.accept(visitor);
        visitor.dissolveRecordedGroups();
    }
}

void LiteralUnspatializing::apply(osg::Group& group) {
    traverse(group);
    if (typeid(group) != typeid(osg::Group)) return;
    group.computeBound();
    if (!(_radius > static_cast<double>(group.getBound().radius()))) return;
    if (group.getNumParents() == 1) {
        const osg::Group& parent = *group.getParent(0);
        if (parent.asTransform() || typeid(parent) == typeid(osg::Group)) _groups.push_back(&group);
    }
    mergeSiblingLODs(group);
}

void LiteralUnspatializing::dissolveRecordedGroups() {
    for (const osg::ref_ptr<osg::Group>& group : _groups) {
        if (group->getNumParents() == 0) continue;
        osg::Group* parent = group->getParent(0);
        std::vector<osg::ref_ptr<osg::Node>> children;
        for (unsigned int i = 0; i < group->getNumChildren(); ++i) children.push_back(group->getChild(i));
        group->removeChildren(0, group->getNumChildren());
        parent->removeChild(group);
        for (const osg::ref_ptr<osg::Node>& child : children) parent->addChild(child);
        mergeSiblingLODs(*parent);
    }
    _groups.clear();
}

void LiteralUnspatializing::mergeSiblingLODs(osg::Group& group) {
    std::map<osg::LOD::RangeList, std::list<osg::ref_ptr<osg::LOD>>> lodsByRanges;
    for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
        osg::Node& child = *group.getChild(i);
        if (typeid(child) != typeid(osg::LOD) || child.getNumParents() != 1) continue;
        auto& lod = static_cast<osg::LOD&>(child);
        lodsByRanges[lod.getRangeList()].push_back(&lod);
    }
    for (const auto& [ranges, lods] : lodsByRanges) {
        if (lods.size() < 2) continue;
        const osg::ref_ptr<osg::LOD> merged = new osg::LOD;
        merged->setName("new lod");
        merged->setRangeMode(lods.front()->getRangeMode());
        merged->setRangeList(ranges);
        merged->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
        group.addChild(merged);
        for (unsigned int i = 0; i < ranges.size(); ++i) {
            const osg::ref_ptr<osg::Group> level = new osg::Group;
            merged->addChild(level);
            for (const osg::ref_ptr<osg::LOD>& lod : lods)
                if (i < lod->getNumChildren()) level->addChild(lod->getChild(i));
        }
        merged->computeBound();
        merged->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
        merged->setCenter(merged->getBound().center());
        merged->setRadius(merged->getBound().radius());
        for (const osg::ref_ptr<osg::LOD>& lod : lods) {
            group.removeChild(lod);
            lod->removeChildren(0, lod->getNumChildren());
        }
    }
}

}  // namespace testing_support
