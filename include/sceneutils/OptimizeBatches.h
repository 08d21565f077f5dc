#pragma once

#include <sceneutils/Export.h>
#include <sceneutils/RemoveNamesAndDescriptions.h>

#include <osg/Node>

#include <set>
#include <string>

namespace veltrane::sceneutils {

/**
 * Rebuilds static scenery so that it is drawn in fewer, larger batches.
 *
 *     veltrane::sceneutils::OptimizeBatches optimizer;
 *     optimizer.setUnspatializeRadius(200.0);
 *     optimizer.process(model);
 *
 * Useless levels of detail, names, shared subgraphs, static transforms, redundant groups and, if a radius is set, small
 * groups go; then the geodes and geometries that stand side by side are merged. What is drawn stays the same. Children
 * of LODs, switches, sequences and multi-switches keep their places.
 *
 * The graph is changed in place and must not be in other use meanwhile. Its root may be replaced by its only child, or
 * dissolved into the group above, where it hangs in a graph. Nothing is reported by the class itself, apart from notes
 * at osg::INFO. One instance serves one thread at a time and any number of graphs.
 */
class SCENEUTILS_EXPORT OptimizeBatches {
public:
    /** What process() does, in its order. */
    enum class Step {
        FlattenUselessLODs,
        RemoveNames,
        CopySharedSubgraphs,
        FlattenStaticTransforms,
        RemoveRedundantNodes,
        UnspatializeSmallAreas,  ///< only if the radius is greater than 0
        MergeGeodes,
        MergeGeometry
    };

    /** Is told of each step, on the thread of process(): to measure it, to show progress, or to keep something in the
     * graph out of it. */
    class SCENEUTILS_EXPORT StepListener {
    public:
        virtual ~StepListener();

        /**
         * The step is about to begin.
         * @param step which
         * @param root as it was given to process(); what is below it may be changed
         */
        virtual void beginStep(Step step, osg::Node& root) = 0;

        /** The step is done. @param step which @param root as for beginStep() */
        virtual void endStep(Step step, osg::Node& root) = 0;
    };

    /** No names to preserve, no listener, and all numbers 0. */
    OptimizeBatches();
    OptimizeBatches(const OptimizeBatches& other);
    OptimizeBatches& operator=(const OptimizeBatches& other);
    ~OptimizeBatches();

    /**
     * Optimises the graph below `node`; null is ignored. In this order:
     * FlattenUselessLODs for what is seen from 0 to 20000; RemoveNamesAndDescriptions; a copy of each shared subgraph
     * for each of its places; osgUtil::Optimizer's FLATTEN_STATIC_TRANSFORMS and REMOVE_REDUNDANT_NODES; small groups
     * are dissolved into the groups and transforms above them and LODs of the same ranges merged, if the radius is
     * greater than 0; MERGE_GEODES and MERGE_GEOMETRY.
     * @param node the root of the graph
     */
    void process(osg::Node* node);

    /**
     * Replaces the names of nodes that keep name, user data and program. They are compared byte for byte.
     * @param names whole names
     */
    void preserveNames(const std::set<std::string>& names);

    /** Only kept, with its square, for callers that flatten transforms up to a limit themselves: process() does not
     * read it. @param magnitude length of a translation, in graph units */
    void setMaxTransformMagnitudeToFlatten(double magnitude);

    /** @return the length as it was given, not its square */
    double getMaxTransformMagnitudeToFlatten() const;

    /** @param radius of the bound below which a plain group is dissolved, in graph units; 0, less or NaN: none is */
    void setUnspatializeRadius(double radius);

    /** @return the radius as it was given */
    double getUnspatializeRadius() const;

    /** @param listener has to live as long as process() is called; null, the default: none. It is not owned, and
     * copies of this object tell the same one. */
    void setStepListener(StepListener* listener);

    /** @return the listener, or null */
    StepListener* getStepListener() const;

private:
    template <typename Work>
    void run(Step step, osg::Node& root, Work work);

    double _maxTransformMagnitude2 = 0.0;
    double _maxTransformMagnitude = 0.0;
    double _unspatializeRadius = 0.0;
    RemoveNamesAndDescriptions _nameRemover;
    StepListener* _stepListener = nullptr;
};

}  // namespace veltrane::sceneutils
