#include <sceneutils/CalculateBoundingBox.h>
#include <sceneutils/FindNodeVisitor.h>
#include <sceneutils/ForceTextureFilter.h>
#include <sceneutils/StateSetVisitor.h>

#include <benchmark/benchmark.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/Texture2D>

#include <string>
#include <vector>

using namespace veltrane::sceneutils;

namespace {

constexpr int childrenPerGroup = 10;
constexpr int distinctMaterials = 16;

/** State as models carry it: one of a few materials each, and a texture on one or two units or none. */
class StateSets {
public:
    osg::ref_ptr<osg::StateSet> make(int index) const {
        osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
        stateSet->setAttribute(_materials[static_cast<std::size_t>(index % distinctMaterials)]);
        for (int unit = 0; unit < index % 3; ++unit) {
            stateSet->setTextureAttributeAndModes(static_cast<unsigned int>(unit), new osg::Texture2D);
        }
        return stateSet;
    }

private:
    static std::vector<osg::ref_ptr<osg::Material>> makeMaterials() {
        std::vector<osg::ref_ptr<osg::Material>> materials;
        for (int i = 0; i < distinctMaterials; ++i) materials.push_back(new osg::Material);
        return materials;
    }

    std::vector<osg::ref_ptr<osg::Material>> _materials = makeMaterials();
};

/** A tree of that many nodes below its root, ten to a group, each with a state set of its own; the leaves are geodes.
 */
osg::ref_ptr<osg::Group> makeGraph(int nodes) {
    const StateSets stateSets;
    osg::ref_ptr<osg::Group> root = new osg::Group;
    std::vector<osg::Group*> groups = {root.get()};
    for (int i = 0; i < nodes; ++i) {
        const bool isLeaf = static_cast<long>(i + 1) * childrenPerGroup >= nodes;
        osg::ref_ptr<osg::Group> node = isLeaf ? new osg::Geode : new osg::Group;
        node->setStateSet(stateSets.make(i));
        if (isLeaf) node->addChild(new osg::Geometry);
        groups[static_cast<std::size_t>(i / childrenPerGroup)]->addChild(node);
        groups.push_back(node.get());
    }
    return root;
}

/** That many geodes with a drawable each, ten below a matrix transform; every node has a name. */
osg::ref_ptr<osg::Group> makeModels(int geodes) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::MatrixTransform> transform;
    for (int i = 0; i < geodes; ++i) {
        if (i % childrenPerGroup == 0) {
            transform = new osg::MatrixTransform(osg::Matrix::translate(i, 0.0, 0.0));
            transform->setName("transform " + std::to_string(i));
            root->addChild(transform);
        }
        const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        geode->setName("model number " + std::to_string(i));
        geode->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(), osg::X_AXIS, osg::Y_AXIS));
        transform->addChild(geode);
    }
    root->getBound();  // of all drawables too, so that nothing is left to be computed
    return root;
}

/** Walks over everything and does nothing: what any visitor costs. */
class BareVisitor : public osg::NodeVisitor {
public:
    BareVisitor() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
};

class StateSetCounter : public StateSetVisitor {
public:
    using StateSetVisitor::apply;
    void apply(osg::StateSet&) override { ++count; }

    int count = 0;
};

void reportNodes(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void bareTraversalOfGraphs(benchmark::State& state) {
    const osg::ref_ptr<osg::Group> graph = makeGraph(static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) {
        BareVisitor visitor;
        graph->accept(visitor);
    }
    reportNodes(state);
}

void stateSetVisitor(benchmark::State& state) {
    const osg::ref_ptr<osg::Group> graph = makeGraph(static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) {
        StateSetCounter counter;
        graph->accept(counter);
        benchmark::DoNotOptimize(counter.count);
    }
    reportNodes(state);
}

void forceTextureFilter(benchmark::State& state) {
    const osg::ref_ptr<osg::Group> graph = makeGraph(static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) {
        ForceTextureFilter filter(osg::Texture::LINEAR_MIPMAP_LINEAR);
        graph->accept(filter);
    }
    reportNodes(state);
}

void bareTraversalOfModels(benchmark::State& state) {
    const osg::ref_ptr<osg::Group> models = makeModels(static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) {
        BareVisitor visitor;
        models->accept(visitor);
    }
    reportNodes(state);
}

void calculateBoundingBox(benchmark::State& state) {
    const osg::ref_ptr<osg::Group> models = makeModels(static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(CalculateBoundingBox::process(*models));
    reportNodes(state);
}

void findNodeVisitor(benchmark::State& state) {
    const osg::ref_ptr<osg::Group> models = makeModels(static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) {
        FindNodeVisitor visitor("model number 7");
        models->accept(visitor);
        benchmark::DoNotOptimize(visitor.getFirst());
    }
    reportNodes(state);
}

void overGrowingModels(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("geodes")->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMicrosecond);
}

void overGrowingGraphs(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("nodes")->RangeMultiplier(10)->Range(10, 10000)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(bareTraversalOfGraphs)->Apply(overGrowingGraphs);
BENCHMARK(stateSetVisitor)->Apply(overGrowingGraphs);
BENCHMARK(forceTextureFilter)->Apply(overGrowingGraphs);
BENCHMARK(bareTraversalOfModels)->Apply(overGrowingModels);
BENCHMARK(calculateBoundingBox)->Apply(overGrowingModels);
BENCHMARK(findNodeVisitor)->Apply(overGrowingModels);

}  // namespace
