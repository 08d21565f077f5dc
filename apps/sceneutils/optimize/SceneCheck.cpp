#include "SceneCheck.h"

#include "../files/PlainText.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <unordered_map>

namespace veltrane::sceneutils::tool {

namespace {

constexpr int roundings = 8;  // to single precision on the way: one for each transform that is put into the vertices
constexpr double smallestTolerance = 1e-12;
constexpr double cellsPerReach = 0.25;
constexpr double nothing = 1.0 / (1 << 20);  // of the smallest tolerance: what did not move at all
constexpr double nearer = 8.0;
constexpr int shownDigits = 9;

using Check = SceneDifference::Check;

/** Not a number is near everything: it stays what it is. */
bool isNear(const osg::Vec3d& a, const osg::Vec3d& b, double tolerance) {
    for (int i = 0; i < 3; ++i)
        if (std::abs(a[i] - b[i]) > tolerance) return false;
    return true;
}

bool isFinite(const osg::Vec3d& point) {
    return std::isfinite(point.x()) && std::isfinite(point.y()) && std::isfinite(point.z());
}

double displacement(const osg::Vec3d& a, const osg::Vec3d& b) {
    const double length = (a - b).length();
    return std::isfinite(length) ? length : 0.0;
}

double toleranceFor(double amount) {
    return std::max(smallestTolerance, roundings * std::ldexp(amount, -24));
}

/** A primitive and the corners of its scene. */
struct Primitive {
    const SeenPrimitive& seen;
    const osg::Vec3d* corners;

    Primitive(const SeenScene& scene, std::uint32_t number)
        : seen(scene.primitives[number]), corners(scene.corners.data() + seen.first) {}

    /** Of the corners that are numbers. */
    osg::Vec3d centre() const {
        osg::Vec3d sum;
        std::uint32_t count = 0;
        for (std::uint32_t i = 0; i < seen.corners; ++i) {
            if (!isFinite(corners[i])) continue;
            sum += corners[i];
            ++count;
        }
        return count == 0 ? sum : sum / static_cast<double>(count);
    }
    /** By how much its coordinates may differ. */
    double tolerance() const { return toleranceFor(seen.amount); }

    const osg::Vec3d& corner(std::uint32_t number) const { return corners[number % seen.corners]; }
};

/** The corners in the same turn, from whichever the first one is; the ends of a line either way round. */
bool areAtTheSamePlace(const Primitive& a, const Primitive& b, double tolerance, double& largestDisplacement) {
    if (a.seen.corners != b.seen.corners || a.seen.what != b.seen.what) return false;
    for (std::uint32_t shift = 0; shift < a.seen.corners; ++shift) {
        bool same = true;
        for (std::uint32_t i = 0; i < a.seen.corners && same; ++i)
            same = isNear(a.corners[i], b.corner(i + shift), tolerance);
        if (!same) continue;
        for (std::uint32_t i = 0; i < a.seen.corners; ++i)
            largestDisplacement = std::max(largestDisplacement, displacement(a.corners[i], b.corner(i + shift)));
        return true;
    }
    return false;
}

std::uint64_t mixed(std::uint64_t hash, std::uint64_t value) {
    hash ^= value + 0x9e3779b97f4a7c15u + (hash << 6) + (hash >> 2);
    hash *= 0xff51afd7ed558ccdu;
    return hash ^ (hash >> 32);
}

}  // namespace

/**
 * Finds the primitives of one scene in another one, each within its own tolerance. The nearest ones are taken first:
 * where tolerances are wider than what lies side by side, as far from the origin, none takes the place of another one.
 */
class SceneCheck::Matching {
public:
    using Pairs = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

    Matching(const SeenScene& before, const SeenScene& after)
        : lost(all(before)), added(all(after)), _before(before), _after(after) {}

    /** Takes pairs that agree in all that counts, and leaves the rest. */
    void matchAll() {
        Pairs pairs;
        matchRest([](const SeenPrimitive& p) { return (std::uint64_t{p.state} << 32) | p.eyes; }, pairs);
    }

    /** Of what is left: pairs that agree in what `key` gives. They go to `pairs`. */
    template <typename Key>
    void matchRest(Key key, Pairs& pairs) {
        matchWithin(smallestOfLost() * nothing, key, pairs);
        for (double reach = smallestOfLost() / nearer; !lost.empty() && !added.empty(); reach *= nearer) {
            matchWithin(reach, key, pairs);
            if (reach >= largestOfLost()) break;
        }
    }

    std::vector<std::uint32_t> lost;   ///< of the scene before
    std::vector<std::uint32_t> added;  ///< of the scene after
    double largestDisplacement = 0.0;

private:
    static std::vector<std::uint32_t> all(const SeenScene& scene) {
        std::vector<std::uint32_t> numbers(scene.primitives.size());
        for (std::uint32_t i = 0; i < numbers.size(); ++i) numbers[i] = i;
        return numbers;
    }

    double smallestOfLost() const {
        double smallest = std::numeric_limits<double>::max();
        for (const std::uint32_t number : lost) smallest = std::min(smallest, Primitive(_before, number).tolerance());
        return smallest;
    }

    double largestOfLost() const {
        double largest = 0.0;
        for (const std::uint32_t number : lost) largest = std::max(largest, Primitive(_before, number).tolerance());
        return largest;
    }

    /** Pairs that are not farther from each other than `reach` either. */
    template <typename Key>
    void matchWithin(double reach, Key key, Pairs& pairs) {
        std::unordered_map<std::uint64_t, std::vector<std::uint32_t>> cells;
        cells.reserve(added.size());
        for (const std::uint32_t number : added) {
            const Primitive primitive(_after, number);
            cells[cellOf(primitive.centre(), 0, key(primitive.seen), reach)].push_back(number);
        }
        std::vector<std::uint32_t> stillLost;
        for (const std::uint32_t number : lost) {
            const Primitive primitive(_before, number);
            const bool wasInReach = primitive.tolerance() * nearer < reach;
            const std::uint32_t found = wasInReach ? none : take(cells, primitive, key(primitive.seen), reach);
            found == none ? stillLost.push_back(number) : static_cast<void>(pairs.emplace_back(number, found));
        }
        lost = std::move(stillLost);
        added.clear();
        for (const auto& [cell, numbers] : cells) added.insert(added.end(), numbers.begin(), numbers.end());
        std::sort(added.begin(), added.end());
    }

    static constexpr std::uint32_t none = ~0u;

    template <typename Cells>
    std::uint32_t take(Cells& cells, const Primitive& primitive, std::uint64_t key, double reach) {
        const double tolerance = std::min(primitive.tolerance(), reach);
        const osg::Vec3d centre = primitive.centre();
        std::uint64_t tried[8];
        unsigned int count = 0;
        for (unsigned int side = 0; side < 8; ++side) {
            const std::uint64_t cell = cellOf(centre, side, key, reach);
            if (std::find(tried, tried + count, cell) != tried + count) continue;
            tried[count++] = cell;
            const auto entry = cells.find(cell);
            if (entry == cells.end()) continue;
            std::vector<std::uint32_t>& candidates = entry->second;
            for (std::size_t i = candidates.size(); i-- > 0;) {  // the last is the cheapest to take away
                const std::uint32_t candidate = candidates[i];
                if (!areAtTheSamePlace(primitive, Primitive(_after, candidate), tolerance, largestDisplacement))
                    continue;
                candidates[i] = candidates.back();
                candidates.pop_back();
                return candidate;
            }
        }
        return none;
    }

    /** @param side 0: where the point is; 1 to 7: in the next cell of the axes whose bits are set, if it is so near to
     * that one that rounding may have put its partner there */
    static std::uint64_t cellOf(const osg::Vec3d& point, unsigned int side, std::uint64_t key, double reach) {
        std::uint64_t hash = mixed(0, key);
        for (int axis = 0; axis < 3; ++axis) {
            const double place = point[axis] * cellsPerReach / reach;
            double cell = std::floor(place);
            if ((side >> axis) & 1u) {
                const double inCell = place - cell;
                if (inCell <= 2 * cellsPerReach) {
                    cell -= inCell <= cellsPerReach * 1.01 ? 1.0 : 0.0;
                } else {
                    cell += inCell >= 1.0 - cellsPerReach * 1.01 ? 1.0 : 0.0;
                }
            }
            hash = mixed(hash, std::isfinite(cell) ? std::hash<double>()(cell) : 0);
        }
        return hash;
    }

    const SeenScene& _before;
    const SeenScene& _after;
};

namespace {

std::string nameOf(const SeenPrimitive& seen) {
    if (seen.what != 0) return "an object";
    return seen.corners == 3 ? "a triangle" : seen.corners == 2 ? "a line" : "a point";
}

std::string rounded(double number) {
    std::ostringstream text;
    text.precision(shownDigits);
    text << number;
    return text.str();
}

std::string placeOf(const Primitive& primitive) {
    const osg::Vec3d& corner = primitive.corners[0];
    return nameOf(primitive.seen) + " at " + rounded(corner.x()) + "," + rounded(corner.y()) + "," +
           rounded(corner.z());
}

std::string distanceOf(std::uint32_t eyes, const std::vector<Eye>& all) {
    for (std::size_t i = 0; i < all.size(); ++i)
        if ((eyes >> i) & 1u) return "seen from a distance of " + rounded(all[i].distance);
    return "seen from none of the distances";
}

std::string counted(std::size_t count) {
    return plural(count, "primitive is", "primitives are");
}

}  // namespace

SceneCheck::SceneCheck(const osg::Node& before, const std::set<const osg::StateSet*>& losesProgram)
    : _eyes(chooseEyes(before)), _before(before, _eyes, _contents, losesProgram) {}

std::vector<SceneDifference> SceneCheck::compareWith(const osg::Node& after) {
    const SeenScene now(after, _eyes, _contents, {});
    _tolerance = toleranceFor(_before.largestAmount);
    Matching matching(_before, now);
    matching.matchAll();
    _largestDisplacement = matching.largestDisplacement;
    if (matching.lost.empty() && matching.added.empty()) return {};

    Matching::Pairs otherState;
    Matching::Pairs otherEyes;
    Matching::Pairs otherBoth;
    matching.matchRest([](const SeenPrimitive& p) { return std::uint64_t{p.eyes}; }, otherState);
    matching.matchRest([](const SeenPrimitive& p) { return std::uint64_t{p.state}; }, otherEyes);
    matching.matchRest([](const SeenPrimitive&) { return std::uint64_t{0}; }, otherBoth);
    otherEyes.insert(otherEyes.end(), otherBoth.begin(), otherBoth.end());

    std::vector<SceneDifference> differences;
    if (!matching.lost.empty()) {
        const Primitive first(_before, matching.lost.front());
        differences.push_back({Check::Position, matching.lost.size(),
                               counted(matching.lost.size()) + " no longer where " +
                                   (matching.lost.size() == 1 ? "it was" : "they were") + ", the first " +
                                   placeOf(first) + ", " + distanceOf(first.seen.eyes, _eyes)});
    }
    if (!matching.added.empty()) {
        const Primitive first(now, matching.added.front());
        differences.push_back({Check::Position, matching.added.size(),
                               counted(matching.added.size()) + " where there " +
                                   (matching.added.size() == 1 ? "was" : "were") + " none, the first " +
                                   placeOf(first) + ", " + distanceOf(first.seen.eyes, _eyes)});
    }
    if (!otherEyes.empty()) {
        const Primitive first(_before, otherEyes.front().first);
        const std::uint32_t eyesNow = now.primitives[otherEyes.front().second].eyes;
        const std::uint32_t gone = first.seen.eyes & ~eyesNow;
        const std::string how = gone != 0 ? distanceOf(gone, _eyes) + " before and not now"
                                          : distanceOf(eyesNow & ~first.seen.eyes, _eyes) + " now and not before";
        differences.push_back(
            {Check::Visibility, otherEyes.size(),
             counted(otherEyes.size()) + " seen from other distances, the first " + placeOf(first) + ", " + how});
    }
    if (!otherState.empty()) {
        const Primitive first(_before, otherState.front().first);
        const std::string what =
            _contents.firstDifference(first.seen.state, now.primitives[otherState.front().second].state);
        differences.push_back({Check::State, otherState.size(),
                               counted(otherState.size()) + " drawn with other state (" + what + "), the first " +
                                   placeOf(first) + ", " + distanceOf(first.seen.eyes, _eyes)});
    }
    return differences;
}

}  // namespace veltrane::sceneutils::tool
