#pragma once

#include "ByteChoices.h"

#include <osg/Group>
#include <osg/observer_ptr>

#include <vector>

namespace fuzzing {

/** The graph that the tools are let loose on. */
struct Scene {
    ByteChoices& choices;
    osg::ref_ptr<osg::Group> top;
    bool isWild = false;
    bool isMerged = false;  ///< whether geometries may have been

    /** The whole graph, or a part of it that hangs below the top. */
    osg::Node& chooseRoot() {
        if (top->getNumChildren() == 0 || choices.chance(60)) return *top;
        return *top->getChild(choices.below(top->getNumChildren()));
    }
};

/** What visitors that respect masks and visit all children come to: a node once per path, parents first. */
std::vector<osg::Node*> visitedNodes(osg::Node& root);

// One tool each, with parameters that the bytes choose. They throw BrokenPromise.
void findNodes(Scene& scene);
void calculateBox(Scene& scene);
void visitStateSets(Scene& scene);
void accumulateTransforms(Scene& scene);

void changeExtensions(Scene& scene);
void forceFilter(Scene& scene);
void removeNames(Scene& scene);
void generateShaders(Scene& scene);
void makeHelpers(Scene& scene);

void bubbleUp(Scene& scene);
void flattenTransforms(Scene& scene);
void flattenUselessLODs(Scene& scene);
void optimizeBatches(Scene& scene);

void createLODs(Scene& scene);
void pageReferences(Scene& scene);
void convertFile(Scene& scene);
void markLODs(Scene& scene);
void markPaths(Scene& scene);
void drawLines(Scene& scene);

}  // namespace fuzzing
