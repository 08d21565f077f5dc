#include <sceneutils/BubbleUpTransform.h>

#include <benchmark/benchmark.h>

#include <osg/Array>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/Matrixd>

#include <string>
#include <vector>

using namespace veltrane::sceneutils;

namespace {

constexpr int verticesPerGeode = 100;
const osg::Vec3 centre(600000.0f, 400000.0f, 100.0f);

/** A box of points around the centre. */
osg::ref_ptr<osg::Vec3Array> makeVertices(int count) {
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    vertices->reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const osg::Vec3 corner(i & 1 ? 50.0f : -50.0f, i & 2 ? 50.0f : -50.0f, i & 4 ? 10.0f : -10.0f);
        vertices->push_back(centre + corner);
    }
    return vertices;
}

/** Geodes below one group, and their arrays; ten to a group, so that no group is out of the ordinary. */
struct Model {
    Model(int geodes, int vertices) : root(new osg::Group) {
        osg::ref_ptr<osg::Group> group;
        for (int i = 0; i < geodes; ++i) {
            if (i % 10 == 0) root->addChild(group = new osg::Group);
            osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
            const osg::ref_ptr<osg::Vec3Array> array = makeVertices(vertices);
            geometry->setVertexArray(array);
            arrays.push_back(array.get());
            geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, vertices));
            osg::ref_ptr<osg::Geode> geode = new osg::Geode;
            geode->addDrawable(geometry);
            group->addChild(geode);
        }
        root->getBound();
    }

    osg::ref_ptr<osg::Group> root;
    std::vector<osg::Vec3Array*> arrays;  ///< held by their geometries alone, as in most graphs
};

/** A visitor that takes its matrix from outside. */
class Push : public BubbleUpTransform {
public:
    explicit Push(const osg::Matrixd& matrix) { _matrix = matrix; }
};

void reportVertices(benchmark::State& state, const Model& model) {
    const auto vertices = model.arrays.size() * model.arrays.front()->size();
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(vertices));
}

/** Moves there and back by turns, so that the vertices stay what they are however long it runs. */
template <typename Move>
void moveToAndFro(benchmark::State& state, Model& model, Move move) {
    const osg::Matrixd away = osg::Matrixd::translate(-centre), back = osg::Matrixd::translate(centre);
    bool isAway = false;
    for ([[maybe_unused]] auto _ : state) {
        move(model, isAway ? back : away);
        isAway = !isAway;
        benchmark::ClobberMemory();
    }
    reportVertices(state, model);
}

/** The floor: each vertex of each array times the matrix. */
void multiplyArrays(Model& model, const osg::Matrixd& matrix) {
    for (osg::Vec3Array* array : model.arrays) {
        for (osg::Vec3& vertex : *array) vertex = vertex * matrix;
    }
}

/** One walk with a new visitor over the graph. */
void pushDown(Model& model, const osg::Matrixd& matrix) {
    Push visitor(matrix);
    model.root->accept(visitor);
}

Model makeGeodes(const benchmark::State& state) {
    return {static_cast<int>(state.range(0)), verticesPerGeode};
}
Model makeOneGeode(const benchmark::State& state) {
    return {1, static_cast<int>(state.range(0))};
}

void plainLoopOverGeodes(benchmark::State& state) {
    Model model = makeGeodes(state);
    moveToAndFro(state, model, multiplyArrays);
}

void bubbleUpGeodes(benchmark::State& state) {
    Model model = makeGeodes(state);
    moveToAndFro(state, model, pushDown);
}

/** The whole operation: the bound, the distances, the move. The distance zero has it always move. */
void createMatrixForGeodes(benchmark::State& state) {
    Model model = makeGeodes(state);
    for ([[maybe_unused]] auto _ : state) {
        osg::Matrixd matrix;
        BubbleUpTransform().createMatrixForGeodes(model.root, 0.0, matrix);
        benchmark::ClobberMemory();
    }
    reportVertices(state, model);
}

void plainLoopOverOneGeode(benchmark::State& state) {
    Model model = makeOneGeode(state);
    moveToAndFro(state, model, multiplyArrays);
}

void bubbleUpOneGeode(benchmark::State& state) {
    Model model = makeOneGeode(state);
    moveToAndFro(state, model, pushDown);
}

void overGeodes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("geodes")->RangeMultiplier(10)->Range(10, 10000)->Unit(benchmark::kMicrosecond);
}

void overVertices(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("vertices")->RangeMultiplier(10)->Range(100, 10000000)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(plainLoopOverGeodes)->Apply(overGeodes);
BENCHMARK(bubbleUpGeodes)->Apply(overGeodes);
BENCHMARK(createMatrixForGeodes)->Apply(overGeodes);
BENCHMARK(plainLoopOverOneGeode)->Apply(overVertices);
BENCHMARK(bubbleUpOneGeode)->Apply(overVertices);

}  // namespace
