#pragma once

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LOD>
#include <osg/NodeVisitor>
#include <osg/TriangleFunctor>

#include <ostream>
#include <set>

/** How much is in a graph. */
namespace testing_support {

/** Of the graph, hidden parts too: what hangs in several places counts there each time, state sets once. */
struct GraphCounts {
    int groups = 0;  ///< of all kinds
    int lods = 0;
    int geodes = 0;
    int drawables = 0;
    int primitiveSets = 0;
    int vertices = 0;
    int triangles = 0;
    int stateSets = 0;

    bool operator==(const GraphCounts& other) const {
        return groups == other.groups && lods == other.lods && geodes == other.geodes && drawables == other.drawables &&
               primitiveSets == other.primitiveSets && vertices == other.vertices && triangles == other.triangles &&
               stateSets == other.stateSets;
    }
};

inline std::ostream& operator<<(std::ostream& out, const GraphCounts& counts) {
    return out << counts.groups << " groups, " << counts.lods << " LODs, " << counts.geodes << " geodes, "
               << counts.drawables << " drawables, " << counts.primitiveSets << " primitive sets, " << counts.vertices
               << " vertices, " << counts.triangles << " triangles, " << counts.stateSets << " state sets";
}

class GraphCounter : public osg::NodeVisitor {
public:
    GraphCounter() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    void apply(osg::Node& node) override {
        if (node.getStateSet()) _stateSets.insert(node.getStateSet());
        counts.stateSets = static_cast<int>(_stateSets.size());
        traverse(node);
    }
    void apply(osg::Group& group) override {
        ++counts.groups;
        apply(static_cast<osg::Node&>(group));
    }
    void apply(osg::LOD& lod) override {
        ++counts.lods;
        apply(static_cast<osg::Group&>(lod));
    }
    void apply(osg::Geode& geode) override {
        ++counts.geodes;
        apply(static_cast<osg::Group&>(geode));
    }
    void apply(osg::Drawable& drawable) override {
        ++counts.drawables;
        apply(static_cast<osg::Node&>(drawable));
    }
    void apply(osg::Geometry& geometry) override {
        counts.primitiveSets += static_cast<int>(geometry.getNumPrimitiveSets());
        if (geometry.getVertexArray()) counts.vertices += static_cast<int>(geometry.getVertexArray()->getNumElements());
        osg::TriangleFunctor<Triangles> triangles;
        geometry.accept(triangles);
        counts.triangles += triangles.count;
        apply(static_cast<osg::Drawable&>(geometry));
    }

    GraphCounts counts;

private:
    struct Triangles {
        void operator()(const osg::Vec3&, const osg::Vec3&, const osg::Vec3&, bool = false) { ++count; }
        int count = 0;
    };

    std::set<const osg::StateSet*> _stateSets;
};

inline GraphCounts countsOf(osg::Node& graph) {
    GraphCounter counter;
    graph.accept(counter);
    return counter.counts;
}

}  // namespace testing_support
