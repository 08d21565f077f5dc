#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace veltrane::sceneutils {

/** A set of texture units. Costs no memory of its own unless a unit is 64 or above, which hardly ever happens. */
class UnitSet {
public:
    bool contains(int unit) const { return unit >= 0 && (word(unit) & bit(unit)) != 0; }

    void set(int unit, bool isMember) {
        if (unit < 0 || contains(unit) == isMember) return;
        std::uint64_t& changed = ownWord(unit);
        changed = isMember ? changed | bit(unit) : changed & ~bit(unit);
    }

    bool empty() const {
        for (const std::uint64_t further : _further) {
            if (further != 0) return false;
        }
        return _first == 0;
    }

    /** The members, ascending. */
    std::vector<int> members() const {
        std::vector<int> units;
        for (int unit = 0; unit < unitsPerWord * static_cast<int>(1 + _further.size()); ++unit) {
            if (contains(unit)) units.push_back(unit);
        }
        return units;
    }

    bool operator==(const UnitSet& other) const { return _first == other._first && _further == other._further; }

    std::size_t hash() const {
        std::size_t hash = _first;
        for (const std::uint64_t further : _further) hash = hash * 31 + further;
        return hash;
    }

private:
    static constexpr int unitsPerWord = 64;

    static std::uint64_t bit(int unit) { return std::uint64_t(1) << (unit % unitsPerWord); }

    std::uint64_t word(int unit) const {
        if (unit < unitsPerWord) return _first;
        const auto index = static_cast<std::size_t>(unit / unitsPerWord - 1);
        return index < _further.size() ? _further[index] : 0;
    }

    std::uint64_t& ownWord(int unit) {
        if (unit < unitsPerWord) return _first;
        const auto index = static_cast<std::size_t>(unit / unitsPerWord - 1);
        if (index >= _further.size()) _further.resize(index + 1);
        return _further[index];
    }

    std::uint64_t _first = 0;
    std::vector<std::uint64_t> _further;
};

}  // namespace veltrane::sceneutils
