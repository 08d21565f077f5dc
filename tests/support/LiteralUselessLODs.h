#pragma once

#include <osg/LOD>
#include <osg/NodeVisitor>

#include <map>
#include <set>
#include <utility>
#include <vector>

namespace testing_support {

/**
 * How useless LODs are replaced, written down as plainly as it can be said and slow: each by a group with its child, in
 * every place where it is useless, also where its parent was replaced meanwhile; an LOD without a place left is
 * emptied. The measure for the visitor of the library.
 */
class LiteralUselessLODs : public osg::NodeVisitor {
public:
    static void process(osg::Node& root, float minRange, float maxRange) {
        LiteralUselessLODs visitor;
        visitor._seen = {minRange, maxRange};
        root.accept(visitor);
        visitor.replaceAll();
    }

    using osg::NodeVisitor::apply;
    void apply(osg::LOD& lod) override {
        const osg::LOD::MinMaxPair saved = _seen;
        if (lod.getNumRanges() == 1 && lod.getNumChildren() == 1) {
            _seen = lod.getRangeList()[0];
            if (getNodePath().size() > 1 && saved.first >= _seen.first && _seen.second >= saved.second)
                _pairs.emplace(getNodePath()[getNodePath().size() - 2], &lod);
            lod.getChild(0)->accept(*this);
        } else {
            for (unsigned int i = 0; i < lod.getNumRanges(); ++i) {
                _seen = lod.getRangeList()[i];
                if (i < lod.getNumChildren()) lod.getChild(i)->accept(*this);
            }
        }
        _seen = saved;
    }

private:
    LiteralUselessLODs() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

    void replaceAll() {
        std::vector<std::pair<osg::ref_ptr<osg::Node>, osg::ref_ptr<osg::LOD>>> held(_pairs.begin(), _pairs.end());
        for (const auto& [parent, lod] : held) {
            if (!_groups[lod]) {
                _groups[lod] = new osg::Group;
                _groups[lod]->addChild(lod->getChild(0));
            }
            while (parent->asGroup()->replaceChild(lod, _groups[lod])) {
            }
            while (_groups.count(parent) && _groups[parent]->replaceChild(lod, _groups[lod])) {
            }
        }
        for (std::size_t i = 0; i < held.size(); ++i) {
            for (const auto& [parent, lod] : held)
                if (lod->getNumParents() == 0) lod->removeChildren(0, 1);
        }
    }

    osg::LOD::MinMaxPair _seen;
    std::set<std::pair<osg::Node*, osg::LOD*>> _pairs;
    std::map<osg::ref_ptr<osg::Node>, osg::ref_ptr<osg::Group>> _groups;
};

}  // namespace testing_support
