#include "ToolRun.h"

#include "GraphChecks.h"
#include "GraphFromBytes.h"
#include "InMemory.h"
#include "Promise.h"
#include "ToolSteps.h"
#include "support/StandardError.h"

#include <string>

namespace fuzzing {

namespace {

struct Step {
    const char* name;
    void (*run)(Scene& scene);
};

constexpr Step steps[] = {{"FindNodeVisitor", findNodes},
                          {"CalculateBoundingBox", calculateBox},
                          {"StateSetVisitor", visitStateSets},
                          {"TransformAccumulator", accumulateTransforms},
                          {"ChangeTextureExtension", changeExtensions},
                          {"ForceTextureFilter", forceFilter},
                          {"RemoveNamesAndDescriptions", removeNames},
                          {"ShaderGenerator", generateShaders},
                          {"SceneUtils", makeHelpers},
                          {"BubbleUpTransform", bubbleUp},
                          {"MyFlattenStaticTransforms...", flattenTransforms},
                          {"FlattenUselessLODs", flattenUselessLODs},
                          {"OptimizeBatches", optimizeBatches},
                          {"OpenFlightLODCreator", createLODs},
                          {"CreatePagedLODVisitor", pageReferences},
                          {"CreatePagedLODVisitor::convert", convertFile},
                          {"LODMarkup::process", markLODs},
                          {"LODMarkup::markupPath", markPaths},
                          {"SimpleGeometryGenerator", drawLines}};

constexpr unsigned int mostSteps = 6;
constexpr std::size_t shareOfTools = 8;  // one in so many bytes

class ToolRun {
public:
    ToolRun(ByteChoices& ofTools, ByteChoices& ofGraph) : _scene{ofTools, nullptr} {
        GraphFromBytes graph(ofGraph);
        _scene.top = graph.top;
        _scene.isWild = graph.isWild;
    }

    void run() {
        try {
            for (unsigned int i = 1 + _scene.choices.below(mostSteps); i > 0; --i) takeStep();
            finish();
        } catch (const BrokenPromise& broken) {
            throw BrokenPromise(_history + ": " + broken.what());
        }
    }

private:
    void takeStep() {
        const Step& step = steps[_scene.choices.below(std::size(steps))];
        _history += (_history.empty() ? "" : ", ") + std::string(step.name);
        computeBounds(*_scene.top);
        for (const auto& node : observe(*_scene.top)) _nodes.push_back(node);
        step.run(_scene);
        checkStructure(*_scene.top);
        if (!_scene.isWild) checkBounds(*_scene.top);
    }

    void finish() {
        for (const auto& node : observe(*_scene.top)) _nodes.push_back(node);
        _scene.top = nullptr;
        for (const auto& node : _nodes) promise(!node.valid(), "a node is never freed");
    }

    Scene _scene;
    std::vector<osg::observer_ptr<osg::Node>> _nodes;  ///< all that were ever in the graph
    std::string _history;
};

}  // namespace

void runTools(const std::uint8_t* data, std::size_t size) {
    // Apart, so that a large graph leaves choices to the tools.
    const std::size_t tools = size / shareOfTools;
    ByteChoices ofTools(data, tools);
    ByteChoices ofGraph(data + tools, size - tools);
    // A conversion sends files through OpenSceneGraph's optimizer, which fuses geometries with arrays of different
    // types.
    const FilesInMemory files(
        [&ofGraph] { return GraphFromBytes(ofGraph, GraphFromBytes::Geometries::AsFromFiles).top; });
    const Silence silence;
    const testing_support::StandardError errors;
    ToolRun(ofTools, ofGraph).run();
}

}  // namespace fuzzing
