#pragma once

#include <sceneutils/StateSetVisitor.h>

#include <osg/Texture>

namespace veltrane::sceneutils {

/**
 * Visits every texture of a graph, in the order in which StateSetVisitor meets the state sets and, within a state set,
 * by ascending texture unit.
 *
 * Derive from it, implement apply(osg::Texture&), and let a node accept the visitor. Units without a texture are
 * skipped; a texture that several state sets share is visited once for each of them. One instance serves one thread at
 * a time.
 */
class SCENEUTILS_EXPORT TextureVisitor : public StateSetVisitor {
public:
    TextureVisitor();
    TextureVisitor(const TextureVisitor& other);
    TextureVisitor& operator=(const TextureVisitor& other);
    ~TextureVisitor() override;

    using StateSetVisitor::apply;

    /** Visits the texture of each unit of the state set. */
    void apply(osg::StateSet& stateSet) override;

    /** Called for every texture that is met. @param texture may be changed */
    virtual void apply(osg::Texture& texture) = 0;
};

}  // namespace veltrane::sceneutils
