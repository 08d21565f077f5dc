#pragma once

#include "UnitSet.h"

#include <sceneutils/ShaderGenerator.h>

#include <cstddef>
#include <unordered_map>

namespace veltrane::sceneutils {

/** What two state sets must have in common to get the same program, in a form that is quick to compare. */
struct ShaderFeatureKey {
    UnitSet textureUnits;
    int normalMapUnit;
    int specMapUnit;
    int overlayUnit;
    int shadowUnit;
    bool sunUniforms;
    bool lighting;
    bool normalMapping;
    bool fog;
    bool text;
    bool pointSprite;

    bool operator==(const ShaderFeatureKey& other) const {
        return textureUnits == other.textureUnits && normalMapUnit == other.normalMapUnit &&
               specMapUnit == other.specMapUnit && overlayUnit == other.overlayUnit && shadowUnit == other.shadowUnit &&
               flags() == other.flags();
    }

    std::size_t hash() const {
        std::size_t hash = textureUnits.hash();
        for (const int number : {normalMapUnit, specMapUnit, overlayUnit, shadowUnit, flags()})
            hash = hash * 31 + static_cast<std::size_t>(number);
        return hash;
    }

private:
    int flags() const {
        return sunUniforms | lighting << 1 | normalMapping << 2 | fog << 3 | text << 4 | pointSprite << 5;
    }
};

/** The features of every key met so far: graphs ask for few ever again, and a name costs more than to find it. */
class ShaderFeatureTable {
public:
    /** The features of that key; `make` is asked for those of a new one. */
    template <typename Make>
    const ShaderFeatures& find(const ShaderFeatureKey& key, const Make& make) {
        const auto known = _features.find(key);
        if (known != _features.end()) return known->second;
        return _features.emplace(key, make(key)).first->second;
    }

private:
    struct Hash {
        std::size_t operator()(const ShaderFeatureKey& key) const { return key.hash(); }
    };

    std::unordered_map<ShaderFeatureKey, ShaderFeatures, Hash> _features;
};

}  // namespace veltrane::sceneutils
