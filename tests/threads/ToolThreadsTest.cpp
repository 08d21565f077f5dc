#include "AtOnce.h"
#include "support/FlightFiles.h"
#include "support/GraphCounts.h"
#include "support/GraphDescription.h"
#include "support/Graphs.h"
#include "support/RandomBatchGraph.h"
#include "support/RandomScene.h"
#include "support/ShaderGraphs.h"
#include "support/Town.h"

#include <sceneutils/BubbleUpTransform.h>
#include <sceneutils/CalculateBoundingBox.h>
#include <sceneutils/ChangeTextureExtension.h>
#include <sceneutils/CreatePagedLODVisitor.h>
#include <sceneutils/FindNodeVisitor.h>
#include <sceneutils/FlattenUselessLODs.h>
#include <sceneutils/ForceTextureFilter.h>
#include <sceneutils/LODMarkup.h>
#include <sceneutils/MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor.h>
#include <sceneutils/OpenFlightLODCreator.h>
#include <sceneutils/OptimizeBatches.h>
#include <sceneutils/RemoveNamesAndDescriptions.h>
#include <sceneutils/SceneUtils.h>
#include <sceneutils/ShaderGenerator.h>
#include <sceneutils/SimpleGeometryGenerator.h>
#include <sceneutils/StateSetVisitor.h>
#include <sceneutils/TextureVisitor.h>
#include <sceneutils/TransformAccumulator.h>

#include <gtest/gtest.h>

#include <osg/FrameStamp>
#include <osg/PagedLOD>
#include <osgUtil/UpdateVisitor>

#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

using namespace testing_support;
using namespace veltrane::sceneutils;

namespace {

/** Takes what tools report, of many threads at once, and forgets it. */
class Nowhere : public std::streambuf {
    int_type overflow(int_type byte) override { return traits_type::not_eof(byte); }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

class SilentErrors {
public:
    SilentErrors() : _own(std::cerr.rdbuf(&_nowhere)) {}
    ~SilentErrors() { std::cerr.rdbuf(_own); }
    SilentErrors(const SilentErrors&) = delete;
    SilentErrors& operator=(const SilentErrors&) = delete;

private:
    Nowhere _nowhere;
    std::streambuf* _own;
};

std::string inWords(const osg::Matrixd& matrix) {
    std::ostringstream words;
    words << std::hexfloat;
    for (int i = 0; i < 16; ++i) words << matrix.ptr()[i] << " ";
    return words.str();
}

/** Hung below a group, as many tools want it: they do not replace a root. */
osg::ref_ptr<osg::Group> makeScene(unsigned int number) {
    return makeGroup(nullptr, RandomScene(number).make());
}

osg::ref_ptr<osg::Group> makeBatches(unsigned int number) {
    return makeRandomBatchGraph({number, 20 + number % 20, number % 4 * 8});
}

/** Squares with one to three textures, some of which they share. */
osg::ref_ptr<osg::Group> makeTextured(unsigned int number) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    const auto shared = makeTexture("shared.rgb");
    for (unsigned int i = 0; i < 10; ++i) {
        const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
        for (unsigned int unit = 0; unit <= (number + i) % 3; ++unit)
            state->setTextureAttribute(unit, unit == 1 ? shared : makeTexture(std::to_string(i) + ".rgb"));
        root->addChild(makeGeode(makeSquareWith(state)));
    }
    return root;
}

/** Says what image each texture has, and its filter. */
class TextureLister : public TextureVisitor {
public:
    using TextureVisitor::apply;
    void apply(osg::Texture& texture) override {
        words << texture.getImage(0)->getFileName() << " " << texture.getFilter(osg::Texture::MIN_FILTER) << "\n";
    }
    std::ostringstream words;
};

std::string texturesOf(osg::Node& root) {
    TextureLister lister;
    root.accept(lister);
    return lister.words.str();
}

/** Numbers the programs by their names, and tells the uniforms. */
class StateLister : public StateSetVisitor {
public:
    using StateSetVisitor::apply;
    void apply(osg::StateSet& state) override {
        words << programName(&state);
        if (const osg::Program* program = programOf(state)) {
            words << " " << sourceOf(*program, osg::Shader::VERTEX) << sourceOf(*program, osg::Shader::FRAGMENT);
        }
        for (const auto& [name, value] : intUniforms(state)) words << " " << name << "=" << value;
        words << "\n";
    }
    std::ostringstream words;
};

std::string statesOf(osg::Node& root) {
    StateLister lister;
    root.accept(lister);
    return lister.words.str();
}

/** Where the order of parts goes by their places in memory: only how many there are. */
std::string sizesOf(osg::Node& root) {
    std::ostringstream words;
    words << countsOf(root);
    return words.str();
}

/** What a tool is to do with a graph of its own. Only `run` happens in a thread. */
struct Work {
    std::function<void()> run;
    std::function<std::string()> describe;  ///< what has come of it
};

/** Makes the same work, on other objects, for the same number. */
using Prepare = std::function<Work(unsigned int number)>;

using Graph = osg::ref_ptr<osg::Group>;

/** Work that changes a graph. */
Prepare change(const std::function<Graph(unsigned int number)>& make,
               const std::function<void(osg::Group& graph, unsigned int number)>& run,
               const std::function<std::string(osg::Node& graph)>& describe) {
    return [=](unsigned int number) {
        const Graph graph = make(number);
        return Work{[=] { run(*graph, number); }, [=] { return describe(*graph); }};
    };
}

/** Work that tells something of a graph. */
Prepare ask(const std::function<Graph(unsigned int number)>& make,
            const std::function<std::string(osg::Group& graph)>& run) {
    return [=](unsigned int number) {
        const Graph graph = make(number);
        const auto answer = std::make_shared<std::string>();
        return Work{[=] { *answer = run(*graph); }, [=] { return *answer; }};
    };
}

std::string describeAll(osg::Node& graph) {
    return describeGraph(graph) + statesOf(graph);
}

void bubbleUp(osg::Group& scene, unsigned int) {
    osg::Matrixd place;
    BubbleUpTransform().createMatrixForGeodes(&scene, 1000.0, place);
    scene.setName(inWords(place));
}

std::string calculateBox(osg::Group& scene) {
    const osg::BoundingBox box = CalculateBoundingBox::process(scene);
    std::ostringstream words;
    words << std::hexfloat;
    for (int i = 0; i < 3; ++i) words << box._min[i] << " " << box._max[i] << " ";
    return words.str();
}

void changeExtension(osg::Group& graph, unsigned int) {
    ChangeTextureExtension::process(&graph, "rgb", "dds");
}

void forceFilter(osg::Group& graph, unsigned int) {
    ForceTextureFilter filter(osg::Texture::NEAREST_MIPMAP_LINEAR);
    graph.accept(filter);
}

std::string findNodes(osg::Group& scene) {
    FindNodeVisitor finder;
    std::ostringstream words;
    for (int name = 1; name < 20; ++name) {
        finder.setNameToFind(std::to_string(name));
        scene.accept(finder);
        words << finder.getNodeList().size() << " ";
    }
    return words.str();
}

void flattenLODs(osg::Group& graph, unsigned int) {
    FlattenUselessLODs::process(&graph, 0.0f, 1000.0f);
}

/** Cubes only: labels are texts, which several threads must not make at once, and chains are files of fixed names. */
void markLODs(osg::Group& graph, unsigned int) {
    LODMarkup::process(&graph);
}

void flattenTransforms(osg::Group& graph, unsigned int) {
    MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor::process(&graph, 1e4);
}

Graph makeHints(unsigned int number) {
    const Graph root = new osg::Group;
    for (unsigned int i = 0; i < 10; ++i) {
        const Graph hinted = makeGroup(nullptr, makeGeode(makeSquare()));
        hinted->addDescription("LOD_Transition_Range " + std::to_string(number + i));
        root->addChild(hinted);
    }
    return root;
}

void createLODs(osg::Group& graph, unsigned int) {
    OpenFlightLODCreator().process(&graph);
}

void optimizeBatches(osg::Group& graph, unsigned int) {
    OptimizeBatches optimizer;
    optimizer.preserveNames({"1", "2", "3"});
    optimizer.setUnspatializeRadius(20.0);
    optimizer.process(&graph);
}

void removeNames(osg::Group& scene, unsigned int) {
    RemoveNamesAndDescriptions::process(&scene);
}

void generateShaders(osg::Group& graph, unsigned int number) {
    ShaderGenerator::instance()->process(&graph, false, number % 2 == 0, true, number % 3 == 0);
}

void drawLines(osg::Group& graph, unsigned int number) {
    const osg::ref_ptr<SimpleGeometryGenerator> generator = new SimpleGeometryGenerator;
    const auto far = static_cast<float>(1000 * number);
    generator->addBoundingBox(osg::BoundingBox(far, far, far, far + 1, far + 2, far + 3), generator->createColor(7));
    generator->addTriangle(osg::Vec3(far, 0, 0), osg::Vec3(0, far, 0), osg::Vec3(0, 0, far), osg::Vec4(1, 1, 1, 1));
    generator->setWireframeEnabled(true);
    generator->setLineThinkness(3.0f);
    generator->bubbleUpTransform();
    graph.addChild(generator);
}

std::string accumulateTransforms(osg::Group& graph) {
    TransformAccumulator accumulator;
    accumulator.attachToGroup(&graph);
    osgUtil::UpdateVisitor update;
    const osg::ref_ptr<osg::FrameStamp> frame = new osg::FrameStamp;
    update.setFrameStamp(frame);
    graph.accept(update);
    return inWords(accumulator.getMatrix());
}

Graph makeNothing(unsigned int) {
    return new osg::Group;
}

Graph makeMoved(unsigned int number) {
    return new osg::MatrixTransform(osg::Matrixd::translate(number, 2.0 * number, 3.0));
}

void useFunctions(osg::Group& graph, unsigned int number) {
    const TemporaryDirectory folder;
    writeBytes(folder / "a.vert", "void main() {} // " + std::to_string(number));
    const auto program = loadShader(folder / "a.vert", osg::Shader::VERTEX);
    const osg::ref_ptr<osg::Node> dirt = GetDirt(0.1 * (1 + number % 9), makeTexture(), makeTexture(), makeTexture(),
                                                 program, 0.1f, 0.2f, 0.3f, 0.4f, 0.5f);
    makeWireframe(dirt->getOrCreateStateSet(), osg::Vec4(1, 0, 0, 1), -1.0f);
    graph.addChild(dirt);
    graph.addChild(createCoordinateSystemGeometry(static_cast<float>(number)));
    exportNode(&graph, "", (folder / "b").c_str());
    graph.setName(findNamedPAT(&graph, "turret") ? "found" : bytesOf(folder / "b.osg"));
}

/** One conversion at a time: the others wait. */
void convert(osg::Group& graph, unsigned int number) {
    static std::mutex oneAtATime;
    const std::lock_guard<std::mutex> lock(oneAtATime);
    const TemporaryDirectory folder;
    FlightFile{10.0f + static_cast<float>(number % 7), {"a.flt"}}.write(folder / "master.flt");
    FlightFile{5.0f, {}}.write(folder / "a.flt");
    const WorkingDirectory there(folder.path());
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setRecurse(true);
    graph.addChild(visitor.convert("master.flt", "master.ive"));
}

const std::map<std::string, Prepare> tools = {
    {"BubbleUpTransform", change(makeScene, bubbleUp, describeGraph)},
    {"CalculateBoundingBox", ask(makeScene, calculateBox)},
    {"ChangeTextureExtension", change(makeTextured, changeExtension, texturesOf)},
    {"CreatePagedLODVisitor", change(makeNothing, convert, describeAll)},
    {"FindNodeVisitor", ask(makeScene, findNodes)},
    {"FlattenUselessLODs", change(makeBatches, flattenLODs, describeGraph)},
    {"ForceTextureFilter", change(makeTextured, forceFilter, texturesOf)},
    {"LODMarkup", change(makeBatches, markLODs, describeGraph)},
    {"MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor",
     change(makeBatches, flattenTransforms, describeGraph)},
    {"OpenFlightLODCreator", change(makeHints, createLODs, describeGraph)},
    {"OptimizeBatches", change(makeBatches, optimizeBatches, sizesOf)},
    {"RemoveNamesAndDescriptions", change(makeScene, removeNames, describeGraph)},
    {"SceneUtils", change(makeNothing, useFunctions, describeAll)},
    {"ShaderGenerator", change(makeTextured, generateShaders, statesOf)},
    {"SimpleGeometryGenerator", change(makeNothing, drawLines, describeGraph)},
    {"StateSetVisitor", ask(makeBatches, statesOf)},
    {"TextureVisitor", ask(makeTextured, texturesOf)},
    {"TransformAccumulator", ask(makeMoved, accumulateTransforms)},
};

/** The works of a thread and, on other objects, what has to come of them. */
struct Assignment {
    std::vector<Work> works;
    std::vector<std::string> expected;

    void add(const Prepare& prepare, unsigned int number) {
        works.push_back(prepare(number));
        const Work alone = prepare(number);
        alone.run();
        expected.push_back(alone.describe());
    }
};

void runAtOnce(const std::vector<Assignment>& assignments) {
    atOnce([&](unsigned int thread) {
        for (const Work& work : assignments[thread].works) work.run();
    });
    for (const Assignment& assignment : assignments) {
        for (std::size_t i = 0; i < assignment.works.size(); ++i)
            EXPECT_EQ(assignment.works[i].describe(), assignment.expected[i]);
    }
}

class ToolInThreads : public testing::TestWithParam<std::string> {};

std::string asTestName(const testing::TestParamInfo<std::string>& tool) {
    return tool.param;
}

std::vector<std::string> namesOfTools() {
    std::vector<std::string> names;
    for (const auto& tool : tools) names.push_back(tool.first);
    return names;
}

}  // namespace

TEST(ToolsInThreads, AreAllTried) {
    std::set<std::string> names;
    std::istringstream list(SCENEUTILS_TOOLS);
    for (std::string name; std::getline(list, name, ',');) names.insert(name);

    const std::vector<std::string> tried = namesOfTools();
    EXPECT_EQ(std::set<std::string>(tried.begin(), tried.end()), names);
}

TEST_P(ToolInThreads, MakesOfItsOwnGraphsWhatItMakesAlone) {
    constexpr unsigned int rounds = 4;
    const SilentErrors silence;
    std::vector<Assignment> assignments(threadCount);
    for (unsigned int i = 0; i < threadCount * rounds; ++i) assignments[i % threadCount].add(tools.at(GetParam()), i);

    runAtOnce(assignments);
}

INSTANTIATE_TEST_SUITE_P(Each, ToolInThreads, testing::ValuesIn(namesOfTools()), asTestName);

TEST(ToolsInThreads, MakeBesideEachOtherWhatTheyMakeAlone) {
    const SilentErrors silence;
    std::vector<Assignment> assignments(threadCount);
    for (unsigned int thread = 0; thread < threadCount; ++thread) {
        auto tool = std::next(tools.begin(), static_cast<std::ptrdiff_t>(thread * 5 % tools.size()));
        for (std::size_t i = 0; i < 2 * tools.size(); ++i) {
            assignments[thread].add(tool->second, thread + static_cast<unsigned int>(i));
            if (++tool == tools.end()) tool = tools.begin();
        }
    }

    runAtOnce(assignments);
}
