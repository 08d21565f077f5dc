#include "LodMarks.h"

#include "../files/PlainNormals.h"

#include <sceneutils/LODMarkup.h>

#include <osg/Group>

#include <set>

namespace veltrane::sceneutils::tool {

namespace {

/** LODMarkup marks an LOD anew for each way that leads to it: a model that hangs in a thousand places would get a
 * thousand boxes of one size, inside each other. */
class EachLodOnce : public LODMarkup {
public:
    EachLodOnce() { setNodeMaskOverride(~0u); }

    using LODMarkup::apply;

    void apply(osg::Group& group) override {
        if (_seen.insert(&group).second) traverse(group);
    }

    void apply(osg::LOD& lod) override {
        if (!_seen.insert(&lod).second) return;
        const osg::Node::ParentList parents = lod.getParents();
        LODMarkup::apply(lod);
        finish(lod, parents);
        ++counts.plain;
    }

    void apply(osg::PagedLOD& lod) override {
        if (!_seen.insert(&lod).second) return;
        const osg::Node::ParentList parents = lod.getParents();
        LODMarkup::apply(lod);
        finish(lod, parents);
        ++counts.paged;
    }

    LodCounts counts;

private:
    /** Puts the group with the boxes, which hangs in the first place, into the others, too. */
    static void finish(osg::LOD& lod, const osg::Node::ParentList& parentsBefore) {
        const osg::ref_ptr<osg::Group> marked = lod.getParents().back();
        for (osg::Group* parent : parentsBefore) {
            while (parent->replaceChild(&lod, marked)) {
            }
        }
    }

    std::set<osg::Node*> _seen;
};

}  // namespace

LodCounts markLods(osg::ref_ptr<osg::Node>& graph) {
    const osg::ref_ptr<osg::Group> aboveTheRoot = new osg::Group;
    aboveTheRoot->addChild(graph);
    EachLodOnce visitor;
    graph->accept(visitor);
    graph = aboveTheRoot->getChild(0);
    aboveTheRoot->removeChildren(0, 1);
    bindNormalsOverall(*graph);
    return visitor.counts;
}

}  // namespace veltrane::sceneutils::tool
