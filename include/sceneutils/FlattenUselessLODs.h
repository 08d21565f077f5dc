#pragma once

#include <sceneutils/Export.h>

#include <osg/LOD>
#include <osg/Node>
#include <osg/NodeVisitor>

#include <set>
#include <utility>

namespace veltrane::sceneutils {

/**
 * Replaces levels of detail that can never switch by plain groups.
 *
 *     veltrane::sceneutils::FlattenUselessLODs::process(model, 0.0f, 20000.0f);
 *
 * An osg::LOD (an osg::PagedLOD too) is useless if it has one range and one child, and the range contains all distances
 * at which the LOD itself can be seen: those of the nearest LOD above whose child leads to it or, without one, those
 * given to the visitor. Only that nearest LOD counts, not what all LODs above leave together. The root of the visit is
 * never replaced, as its parents are not known to the visit.
 *
 * A useless LOD's place is taken by a new group without a name that holds the LOD's child. The LOD's own name, state
 * set, callbacks and range go with it. An LOD that hangs in several places is replaced by the same group in all those
 * where it is useless; elsewhere it stays as it is.
 *
 * Nothing is reported. One instance serves one thread at a time, and the graph must not be in other use meanwhile.
 */
class SCENEUTILS_EXPORT FlattenUselessLODs : public osg::NodeVisitor {
public:
    /** @param minRange,maxRange the distances at which the visited graph is seen, in graph units */
    FlattenUselessLODs(float minRange, float maxRange);
    FlattenUselessLODs(const FlattenUselessLODs& other);
    FlattenUselessLODs& operator=(const FlattenUselessLODs& other);
    ~FlattenUselessLODs() override;

    /**
     * Does the whole job on the graph below `node`. A null node is ignored. Both limits of a useless LOD's range may be
     * equal to those that it has to contain; what is not a number (NaN) contains nothing and is contained in nothing.
     * @param node the graph; its root stays
     * @param minRange,maxRange the distances at which the graph is seen, in graph units
     */
    static void process(osg::Node* node, float minRange, float maxRange);

    using osg::NodeVisitor::apply;

    /** Notes a useless LOD and visits the children, as far as they have ranges. Changes nothing. */
    void apply(osg::LOD& lod) override;

protected:
    float _currentMinRange;  ///< of the distances at which the node being visited can be seen
    float _currentMaxRange;  ///< the farthest of them
    std::set<std::pair<osg::Node*, osg::LOD*>> _uselessLODs;  ///< each with the node above it; no references are held

private:
    bool isUseless(const osg::LOD& lod) const;
    void visitChild(osg::LOD& lod, unsigned int index);
};

}  // namespace veltrane::sceneutils
