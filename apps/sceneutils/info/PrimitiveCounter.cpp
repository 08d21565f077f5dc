#include "PrimitiveCounter.h"

#include <osg/Geometry>
#include <osg/PrimitiveSet>

#include <algorithm>
#include <array>

namespace veltrane::sceneutils::tool {

namespace {

/** How a run of vertices becomes primitives: the first takes `first` vertices, each further one `next`. */
struct Mode {
    GLenum mode;
    const char* name;
    unsigned int first;
    unsigned int next;
    unsigned int trianglesEach;
};

constexpr unsigned int verticesOfAPatch = 3;  // OpenGL's default; the graph's state may say otherwise

constexpr std::array<Mode, 12> modes = {{
    {osg::PrimitiveSet::POINTS, "POINTS", 1, 1, 0},
    {osg::PrimitiveSet::LINES, "LINES", 2, 2, 0},
    {osg::PrimitiveSet::LINE_STRIP, "LINE_STRIP", 2, 1, 0},
    {osg::PrimitiveSet::TRIANGLES, "TRIANGLES", 3, 3, 1},
    {osg::PrimitiveSet::TRIANGLE_STRIP, "TRIANGLE_STRIP", 3, 1, 1},
    {osg::PrimitiveSet::TRIANGLE_FAN, "TRIANGLE_FAN", 3, 1, 1},
    {osg::PrimitiveSet::QUADS, "QUADS", 4, 4, 2},
    {osg::PrimitiveSet::QUAD_STRIP, "QUAD_STRIP", 4, 2, 2},
    {osg::PrimitiveSet::LINES_ADJACENCY, "LINES_ADJACENCY", 4, 4, 0},
    {osg::PrimitiveSet::LINE_STRIP_ADJACENCY, "LINE_STRIP_ADJACENCY", 4, 1, 0},
    {osg::PrimitiveSet::TRIANGLES_ADJACENCY, "TRIANGLES_ADJACENCY", 6, 6, 1},
    {osg::PrimitiveSet::TRIANGLE_STRIP_ADJACENCY, "TRIANGLE_STRIP_ADJACENCY", 6, 2, 1},
}};

class Counter : public osg::PrimitiveFunctor {
public:
    explicit Counter(std::map<std::string, PrimitiveCount>& counts) : _counts(counts) {}

    std::uint64_t instances = 1;

    void setVertexArray(unsigned int, const osg::Vec2*) override {}
    void setVertexArray(unsigned int, const osg::Vec3*) override {}
    void setVertexArray(unsigned int, const osg::Vec4*) override {}
    void setVertexArray(unsigned int, const osg::Vec2d*) override {}
    void setVertexArray(unsigned int, const osg::Vec3d*) override {}
    void setVertexArray(unsigned int, const osg::Vec4d*) override {}
    void drawArrays(GLenum mode, GLint, GLsizei count) override { add(mode, count); }
    void drawElements(GLenum mode, GLsizei count, const GLubyte*) override { add(mode, count); }
    void drawElements(GLenum mode, GLsizei count, const GLushort*) override { add(mode, count); }
    void drawElements(GLenum mode, GLsizei count, const GLuint*) override { add(mode, count); }

private:
    void add(GLenum mode, GLsizei count) {
        const std::uint64_t vertices = count > 0 ? static_cast<std::uint64_t>(count) : 0;
        const auto known = std::find_if(modes.begin(), modes.end(), [=](const Mode& m) { return m.mode == mode; });
        if (known != modes.end()) {
            const std::uint64_t primitives = vertices < known->first ? 0 : 1 + (vertices - known->first) / known->next;
            add(known->name, primitives, known->trianglesEach * primitives);
        } else if (mode == osg::PrimitiveSet::LINE_LOOP) {
            add("LINE_LOOP", vertices < 2 ? 0 : vertices, 0);
        } else if (mode == osg::PrimitiveSet::POLYGON) {
            add("POLYGON", vertices < 3 ? 0 : 1, vertices < 3 ? 0 : vertices - 2);
        } else if (mode == osg::PrimitiveSet::PATCHES) {
            add("PATCHES", vertices / verticesOfAPatch, 0);
        } else {
            add("mode " + std::to_string(mode), 0, 0);
        }
    }

    void add(const std::string& mode, std::uint64_t primitives, std::uint64_t triangles) {
        PrimitiveCount& count = _counts[mode];
        count.primitives += primitives * instances;
        count.triangles += triangles * instances;
    }

    std::map<std::string, PrimitiveCount>& _counts;
};

}  // namespace

std::map<std::string, PrimitiveCount> countPrimitives(const osg::Drawable& drawable) {
    std::map<std::string, PrimitiveCount> counts;
    Counter counter(counts);
    const osg::Geometry* geometry = drawable.asGeometry();
    if (!geometry) {
        if (drawable.supports(counter)) drawable.accept(counter);
        return counts;
    }
    for (unsigned int i = 0; i < geometry->getNumPrimitiveSets(); ++i) {
        const osg::PrimitiveSet* primitives = geometry->getPrimitiveSet(i);
        if (!primitives) continue;
        counter.instances = static_cast<std::uint64_t>(std::max(1, primitives->getNumInstances()));
        primitives->accept(counter);
    }
    return counts;
}

}  // namespace veltrane::sceneutils::tool
