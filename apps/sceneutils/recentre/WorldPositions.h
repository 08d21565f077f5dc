#pragma once

#include <osg/Matrixd>
#include <osg/Node>
#include <osg/Vec3d>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace veltrane::sceneutils::tool {

/**
 * Where everything of a graph is in the world: the vertices of geometries, light points, the positions of billboards,
 * the centres of LODs, once for each path that leads to them. All in double precision.
 */
class WorldPositions {
public:
    /** Remembers where all is. The graph may be changed or freed then. */
    explicit WorldPositions(const osg::Node& root);
    ~WorldPositions();
    WorldPositions(const WorldPositions&) = delete;
    WorldPositions& operator=(const WorldPositions&) = delete;

    /** What comparing found. */
    struct Comparison {
        double largestDifference = 0.0;           ///< between two positions that should be the same
        std::optional<std::string> displacement;  ///< says what is elsewhere, or is another thing, than before
    };

    /**
     * Compares with the same graph after its coordinates were rewritten.
     *
     * A coordinate may differ by what rounding makes of it: half a unit in the last place of a single-precision number
     * that was rewritten, 2^-24 of its amount, and 2^-45 of the amounts that were added up on the way from the root.
     * @param root of the graph, with as many nodes in the same places; they may be other ones
     * @param place the matrix above it, which was the identity
     */
    Comparison compareWith(const osg::Node& root, const osg::Matrixd& place) const;

private:
    struct Remembered;
    class Comparer;

    const Remembered* remember(const osg::Node& node);

    std::map<const osg::Node*, std::unique_ptr<Remembered>> _nodes;
    const Remembered* _root = nullptr;
};

}  // namespace veltrane::sceneutils::tool
