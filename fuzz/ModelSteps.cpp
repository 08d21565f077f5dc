#include "GraphChecks.h"
#include "Promise.h"
#include "ToolSteps.h"

#include <sceneutils/CreatePagedLODVisitor.h>
#include <sceneutils/LODMarkup.h>
#include <sceneutils/OpenFlightLODCreator.h>
#include <sceneutils/SimpleGeometryGenerator.h>

#include <osg/Geode>
#include <osg/PagedLOD>
#include <osg/ProxyNode>

#include <algorithm>
#include <sstream>

namespace fuzzing {

namespace {

using namespace veltrane::sceneutils;

constexpr std::size_t mostPathsToMark = 12;  // each takes a while: labels, and programs

std::vector<Place> sortedPlaces(osg::Node& root) {
    std::vector<Place> places = placesOf(root);
    std::sort(places.begin(), places.end());
    return places;
}

void expectSamePlaces(const std::vector<Place>& before, const std::vector<Place>& after) {
    promiseNoneLost(before, after);
    promise(before.size() == after.size(), "there are new places");
}

bool isHint(const std::string& description) {
    std::istringstream stream(description);
    std::string word;
    float range = 0;
    return stream >> word && word == "LOD_Transition_Range" && stream >> range;
}

/** Groups that the creator looks at: it does not go into geodes. */
void addHinted(osg::Node& node, std::vector<osg::Group*>& hinted) {
    osg::Group* group = node.asGroup();
    if (node.getNodeMask() == 0 || !group || group->asGeode()) return;
    for (unsigned int i = 0; i < group->getNumDescriptions(); ++i)
        if (isHint(group->getDescription(i))) hinted.push_back(group);
    for (unsigned int i = 0; i < group->getNumChildren(); ++i) addHinted(*group->getChild(i), hinted);
}

bool namesAModel(const osg::ProxyNode& proxy) {
    return proxy.getNumFileNames() > 0 && proxy.getFileName(0).find(".flt") != std::string::npos &&
           proxy.getFileName(0).find("missing") == std::string::npos;
}

SimpleGeometryGenerator* chooseGenerator(Scene& scene) {
    // What has been merged with its drawables is not the generator's any more.
    for (osg::Node* node : nodesOf(*scene.top))
        if (auto* generator = dynamic_cast<SimpleGeometryGenerator*>(node); generator && !scene.isMerged)
            return generator;
    SimpleGeometryGenerator* generator = new SimpleGeometryGenerator;
    scene.top->addChild(generator);
    return generator;
}

void drawOnce(ByteChoices& choices, SimpleGeometryGenerator& generator) {
    const osg::Vec3f from(static_cast<float>(choices.below(50)), 0, 0);
    const osg::Vec4f color = generator.createColor(choices.below(256));
    const osg::ref_ptr<osg::Vec3Array> points = new osg::Vec3Array(choices.below(4));
    switch (choices.below(10)) {
        case 0:
            return generator.addLine(from, osg::Vec3f(0, 1, 0), color);
        case 1:
            return generator.addTriangle(from, osg::Vec3f(0, 1, 0), osg::Vec3f(0, 0, 1), color);
        case 2:
            return generator.addLoop(points, from, color);
        case 3:
            return generator.addLoop(points, color);
        case 4:
            return generator.addBoundingBox(osg::BoundingBox(osg::Vec3f(), from), color);
        case 5:
            return generator.setWireframeEnabled(choices.chance(50));
        case 6:
            return generator.setLineThinkness(2.0f);
        case 7:
            return generator.checkPointsGeometry();
        case 8:
            return generator.clear();
        default:
            return generator.bubbleUpTransform();
    }
}

}  // namespace

void createLODs(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    const std::vector<Place> before = sortedPlaces(*scene.top);

    OpenFlightLODCreator().process(&root);

    std::vector<osg::Group*> hinted;
    addHinted(root, hinted);
    promise(hinted.empty(), "a hint is left");
    if (!scene.isWild) expectSamePlaces(before, sortedPlaces(*scene.top));
    const std::string once = describe(*scene.top);
    OpenFlightLODCreator().process(&root);
    promiseSame(once, describe(*scene.top), "the second run changes something");
}

void pageReferences(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    std::vector<osg::ref_ptr<osg::ProxyNode>> references;
    for (osg::Node* node : visitedNodes(root)) {
        auto* proxy = dynamic_cast<osg::ProxyNode*>(node);
        if (proxy && namesAModel(*proxy)) references.emplace_back(proxy);
    }
    const std::vector<Place> before = sortedPlaces(*scene.top);

    CreatePagedLODVisitor visitor(nullptr);
    visitor.setMaxRange(scene.choices.one({10000.0f, 0.0f, -1.0f}));
    if (scene.choices.chance(50)) visitor.setConvertExRefsToIVE(true);
    if (scene.choices.chance(20)) visitor.setRecurse(true);
    root.accept(visitor);
    visitor.InsertPagedLODs();

    if (!scene.isWild) expectSamePlaces(before, sortedPlaces(*scene.top));
    for (const auto& proxy : references) {
        if (proxy->getNumParents() == 0) continue;
        const auto& parents = proxy->getParents();
        promise(std::any_of(parents.begin(), parents.end(),
                            [](const osg::Group* parent) { return dynamic_cast<const osg::PagedLOD*>(parent); }),
                "a reference is not paged");
    }
    const std::string once = describe(*scene.top);
    visitor.InsertPagedLODs();
    promiseSame(once, describe(*scene.top), "pages are inserted again");
}

void convertFile(Scene& scene) {
    CreatePagedLODVisitor visitor(nullptr);
    if (scene.choices.chance(50)) visitor.setRecurse(true);
    visitor.setDoSmooth(false);  // OpenSceneGraph's smoother crashes on some of what its optimizer makes
    const osg::ref_ptr<osg::Node> converted = visitor.convert("master.flt", "master.ive");
    promise(converted.valid(), "a file is not converted");
    if (!converted->asGroup() || converted->getNumParents() > 0) return;
    scene.top = converted->asGroup();
    scene.isWild = true;  // it may be, and its bounds are OpenSceneGraph's work
}

void markLODs(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    const std::vector<Place> before = sortedPlaces(*scene.top);

    LODMarkup::process(&root);

    const std::vector<Place> after = sortedPlaces(*scene.top);
    if (!scene.isWild) promiseNoneLost(before, after);
}

void markPaths(Scene& scene) {
    const std::vector<osg::Node*> nodes = nodesOf(*scene.top);
    osg::Node& node = *nodes[scene.choices.below(static_cast<unsigned int>(std::min<std::size_t>(nodes.size(), 256)))];
    const std::size_t paths = node.getParentalNodePaths().size();
    if (paths > mostPathsToMark) return;
    const std::string before = describe(*scene.top);

    const osg::ref_ptr<osg::Group> marked = LODMarkup().markupPath(&node);

    promise(marked->getNumChildren() == paths, "not one chain for each path");
    promiseSame(before, describe(*scene.top), "marking a path has changed the graph");
}

void drawLines(Scene& scene) {
    const osg::ref_ptr<SimpleGeometryGenerator> generator = chooseGenerator(scene);
    for (unsigned int i = 1 + scene.choices.below(6); i > 0; --i) drawOnce(scene.choices, *generator);
    if (scene.choices.chance(20)) {
        const osg::ref_ptr<SimpleGeometryGenerator> copy = new SimpleGeometryGenerator(*generator);
        drawOnce(scene.choices, *copy);
    }
}

}  // namespace fuzzing
