#include "FrameScenes.h"

#include "ChildMeasurement.h"
#include "FrameTimes.h"
#include "MeasuredProgram.h"
#include "Town.h"
#include "WholeDatabase.h"

#include <osg/Camera>
#include <osg/ComputeBoundsVisitor>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <functional>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::benchmarks {

namespace {

constexpr double sampleRadius = 500.0;  // half of a tile's width
constexpr double townRadius = 200.0;    // a block, but not a quarter

constexpr double nearestToTown = 200.0;
constexpr double townWidthsAway = 1.4;
constexpr double heightAboveTown = 100.0;
constexpr double intoTown = 500.0;

// The sample database begins at the origin with a tile of 1000 by 1000 units, no hill of which is higher than 84.
const Outlook sampleStreet = {"street", {395, 400, 85}, {470, 512, 50}};
const Outlook overOneTile = {"one tile", {500, 500, 750}, {500, 500, 0}};
const Outlook toTheHorizon = {"horizon", {395, 330, 110}, {1200, 2500, 30}};

std::string asText(double number) {
    std::ostringstream text;
    text << number;
    return text.str();
}

void runInChild(const std::function<void()>& work) {
    measureInChild([&work] {
        work();
        return std::vector<double>();
    });
}

void write(const osg::Node& graph, const fs::path& file) {
    if (!osgDB::writeNodeFile(graph, file.string())) throw std::runtime_error(file.string() + ": cannot be written");
}

using Look = std::function<void(offscreen::SceneRenderer&, osg::Node&)>;

Look along(FrameView view) {
    return [view](auto& renderer, auto& scene) { look(renderer, scene, view); };
}

/** Along a town, which is long and narrow, from before its western end. */
void lookFromTheWest(offscreen::SceneRenderer& renderer, osg::Node& scene) {
    osg::ComputeBoundsVisitor bounds;
    scene.accept(bounds);
    const osg::BoundingBox& box = bounds.getBoundingBox();
    const double distance = nearestToTown + townWidthsAway * (box.yMax() - box.yMin());
    const osg::Vec3d west(box.xMin(), box.center().y(), box.zMax());
    renderer.setView(west + osg::Vec3d(-distance, 0.0, heightAboveTown), west + osg::Vec3d(intoTown, 0.0, 0.0));
}

Outlook outlookOf(const std::string& name, const fs::path& file, const Look& lookAt) {
    const std::vector<double> places = measureInChild([&file, &lookAt] {
        const osg::ref_ptr<osg::Node> scene = readScene(file);
        offscreen::SceneRenderer renderer(frameWidth, frameHeight);
        renderer.setScene(scene);
        lookAt(renderer, *scene);
        osg::Vec3d eye, target, up;
        renderer.viewer().getCamera()->getViewMatrixAsLookAt(eye, target, up);
        return std::vector<double>{eye.x(), eye.y(), eye.z(), target.x(), target.y(), target.z()};
    });
    return {name, {places.at(0), places.at(1), places.at(2)}, {places.at(3), places.at(4), places.at(5)}};
}

}  // namespace

SceneMaker::SceneMaker(fs::path tool, fs::path folder) : _tool(std::move(tool)), _folder(std::move(folder)) {}

FrameScene SceneMaker::makeSample(unsigned int tiles) const {
    const std::string name = "sample of " + std::to_string(tiles);
    const fs::path folder = _folder / name;
    const fs::path graph = folder / "before.osgb";
    runTool({"sample", (folder / "flt").string(), "--tiles", std::to_string(tiles), "--levels", "4"});
    runTool({"export", (folder / "flt" / "master.flt").string(), graph.string()});
    return {name,
            {{"before", graph}, optimized(graph, 0.0), optimized(graph, sampleRadius)},
            {outlookOf("whole", graph, along(FrameView::Whole)), sampleStreet}};
}

FrameScene SceneMaker::makeTown(int drawables) const {
    const std::string name = "town of " + std::to_string(drawables);
    const fs::path graph = _folder / name / "before.osgb";
    fs::create_directory(graph.parent_path());
    runInChild([drawables, &graph] { write(*TownBuilder().makeTown(drawables), graph); });
    return {name,
            {{"before", graph}, optimized(graph, 0.0), optimized(graph, townRadius)},
            {outlookOf("whole", graph, lookFromTheWest), outlookOf("street", graph, along(FrameView::Street))}};
}

FrameScene SceneMaker::makeDatabase(unsigned int tiles, double maxRange) const {
    const fs::path folder = _folder / ("database of " + std::to_string(tiles));
    const std::string flight = (folder / "flt" / "master.flt").string();
    const fs::path paged = folder / "paged" / "world.ive", embedded = folder / "embedded" / "world.ive";
    const fs::path ranges = folder / "ranges.ive", one = folder / "one.ive";
    const std::vector<std::string> options = {"--recurse", "--max-range", asText(maxRange), "--textures"};

    runTool({"sample", (folder / "flt").string(), "--tiles", std::to_string(tiles)});
    for (const auto& [output, textures] : {std::pair(paged, "relative"), std::pair(embedded, "embed")}) {
        std::vector<std::string> arguments = {"convert", flight, output.string()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.push_back(textures);
        runTool(arguments);
    }
    runInChild([&] { write(*readWholeDatabase(paged, TileRanges::Keep), ranges); });
    runInChild([&] { write(*readWholeDatabase(paged, TileRanges::Drop), one); });
    return {std::to_string(tiles),
            {{"one file", one, false, true},
             {"one file with ranges", ranges},
             {"paged", paged, true},
             {"paged with textures", embedded, true}},
            {overOneTile, toTheHorizon}};
}

void SceneMaker::runTool(const std::vector<std::string>& arguments) const {
    Command command{{_tool.string()}, {}};
    command.words.insert(command.words.end(), arguments.begin(), arguments.end());
    measureProgram(command, _folder / "tool.log");
}

Arrangement SceneMaker::optimized(const fs::path& file, double radius) const {
    const fs::path output = file.parent_path() / ("radius" + asText(radius) + ".osgb");
    runTool({"optimize", file.string(), output.string(), "--unspatialize-radius", asText(radius)});
    return {"radius " + asText(radius), output};
}

osg::ref_ptr<osg::Node> readScene(const fs::path& file) {
    osg::ref_ptr<osg::Node> scene = osgDB::readRefNodeFile(file.string());
    if (!scene) throw std::runtime_error(file.string() + ": cannot be read");
    return scene;
}

}  // namespace veltrane::sceneutils::benchmarks
