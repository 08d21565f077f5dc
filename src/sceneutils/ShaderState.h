#pragma once

#include <osg/Material>
#include <osg/StateAttribute>
#include <osg/StateSet>
#include <osg/Uniform>

#include <vector>

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

    /** How many units may carry a texture or a point sprite. */
    int unitCount() const { return static_cast<int>(_units.size()); }

    bool isTextured(int unit) const { return _units[static_cast<std::size_t>(unit)].isTextured.held; }
    bool hasPointSprite(int unit) const { return _units[static_cast<std::size_t>(unit)].hasPointSprite.held; }

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

    struct Unit {
        Entry<bool> isTextured;
        Entry<bool> hasPointSprite;
    };

    void mergeMaterial(const osg::StateSet& own);
    void mergeUniforms(const osg::StateSet& own);
    void mergeUnits(const osg::StateSet& own);

    Entry<osg::Material*> _material;
    Entry<const osg::Uniform*> _overlay;
    bool _hasSun = false;
    std::vector<Unit> _units;
};

}  // namespace veltrane::sceneutils
