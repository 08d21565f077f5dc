#pragma once

#include "SeenScene.h"

#include <osg/Node>

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What an optimisation changed that it must not. */
struct SceneDifference {
    enum class Check { Position, Visibility, State };

    Check check = Check::Position;
    std::size_t count = 0;  ///< of primitives
    std::string text;       ///< one line: how many, and where the first is
};

/**
 * Compares a graph with what an optimiser makes of it: the triangles, lines and points that are seen from a few places,
 * where they are in the world, and the state, gathered from the root, that each is drawn with.
 *
 * How they are put together does not count: primitives are looked up by their places. A coordinate may differ by
 * what rounding a few times to single precision makes of the largest number that was added up for it before. Time and
 * memory grow with the number of primitives.
 */
class SceneCheck {
public:
    /**
     * Remembers what is seen. The graph may be changed or freed then.
     * @param losesProgram state sets that are meant to lose their shader program, which then does not count
     */
    explicit SceneCheck(const osg::Node& before, const std::set<const osg::StateSet*>& losesProgram = {});

    /** No differences: the graph shows the same. May be called for several graphs. */
    std::vector<SceneDifference> compareWith(const osg::Node& after);

    const std::vector<Eye>& eyes() const { return _eyes; }
    std::size_t primitives() const { return _before.primitives.size(); }

    /** By how much coordinates may differ at most, wherever that is. Of the last comparison. */
    double tolerance() const { return _tolerance; }

    /** Of the corners that were found again. Of the last comparison. */
    double largestDisplacement() const { return _largestDisplacement; }

private:
    class Matching;

    std::vector<Eye> _eyes;
    StateContents _contents;
    SeenScene _before;
    double _tolerance = 0.0;
    double _largestDisplacement = 0.0;
};

}  // namespace veltrane::sceneutils::tool
