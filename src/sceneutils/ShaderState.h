#pragma once

#include "UnitSet.h"

#include <osg/Material>
#include <osg/StateAttribute>
#include <osg/StateSet>
#include <osg/Uniform>

namespace veltrane::sceneutils {

/**
 * What ShaderGenerator needs to know of the state in force at some place in a graph.
 *
 * Stands in for an osg::StateSet into which all state sets above are merged. Such a state set costs more with every
 * further one in the graph, because it enters itself in the list of parents of every attribute and uniform and is
 * searched for there when it goes; this class leaves the graph's objects alone.
 *
 * Looks at the objects of the graph without holding them: for the length of a walk.
 */
class ShaderState {
public:
    /** Puts a state set over what is in force, by the rules of osg::StateSet::merge. */
    void merge(const osg::StateSet& own);

    /** The material, or null. */
    osg::Material* material() const { return _material.held; }

    /** The uniform "OverlayTex", or null. */
    const osg::Uniform* overlay() const { return _overlay.held; }

    /** Whether there is a uniform "SunAmbient". */
    bool hasSun() const { return _hasSun; }

    /** The units that carry a texture. */
    const UnitSet& texturedUnits() const { return _textures.held; }

    /** Whether any unit carries a point sprite. */
    bool hasPointSprite() const { return !_pointSprites.held.empty(); }

private:
    /** One entry of a state set: what it holds, and whether it overrides what comes below. */
    template <typename T>
    struct Entry {
        void merge(T own, osg::StateAttribute::OverrideValue value) {
            if (overrides && !(value & osg::StateAttribute::PROTECTED)) return;
            held = own;
            overrides = (value & osg::StateAttribute::OVERRIDE) != 0;
        }

        T held{};
        bool overrides = false;
    };

    /** The entries of one kind for each unit: whether there is one, and whether it overrides what comes below. */
    struct UnitEntries {
        void merge(int unit, bool own, osg::StateAttribute::OverrideValue value) {
            if (overriding.contains(unit) && !(value & osg::StateAttribute::PROTECTED)) return;
            held.set(unit, own);
            overriding.set(unit, (value & osg::StateAttribute::OVERRIDE) != 0);
        }

        UnitSet held;
        UnitSet overriding;
    };

    void mergeMaterial(const osg::StateSet& own);
    void mergeUniforms(const osg::StateSet& own);
    void mergeUnits(const osg::StateSet& own);

    Entry<osg::Material*> _material;
    Entry<const osg::Uniform*> _overlay;
    bool _hasSun = false;
    UnitEntries _textures;
    UnitEntries _pointSprites;
};

}  // namespace veltrane::sceneutils
