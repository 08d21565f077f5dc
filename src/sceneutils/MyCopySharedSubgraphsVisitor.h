#pragma once

#include <osg/Node>
#include <osgUtil/Optimizer>

#include <set>

namespace veltrane::sceneutils {

/**
 * Gives each place of a shared subgraph a copy of its own, down to arrays and primitive sets; the first place keeps the
 * original. Nodes are visited whatever their node mask.
 */
class MyCopySharedSubgraphsVisitor : public osgUtil::BaseOptimizerVisitor {
public:
    /** @param optimizer says which nodes may be copied; null: all */
    explicit MyCopySharedSubgraphsVisitor(osgUtil::Optimizer* optimizer);
    MyCopySharedSubgraphsVisitor(const MyCopySharedSubgraphsVisitor& other);
    MyCopySharedSubgraphsVisitor& operator=(const MyCopySharedSubgraphsVisitor& other);
    ~MyCopySharedSubgraphsVisitor() override;

    using osg::NodeVisitor::apply;

    /** Notes a node that has several parents and visits its children. */
    void apply(osg::Node& node) override;

    /** Makes the copies of the nodes that were noted. Reports at osg::INFO. */
    void copySharedNodes();

private:
    std::set<osg::Node*> _sharedNodes;
};

}  // namespace veltrane::sceneutils
