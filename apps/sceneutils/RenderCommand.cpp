#include "Command.h"

#include "files/GraphFile.h"
#include "files/GuardedWork.h"
#include "files/InputGuard.h"
#include "files/Interruption.h"
#include "files/OutputFormat.h"
#include "files/PlainText.h"
#include "render/FirstFrame.h"
#include "render/PictureSize.h"
#include "shaders/ProgramList.h"

#include <offscreen/SceneRenderer.h>
#include <sceneutils/ShaderGenerator.h>

#include <osg/Group>
#include <osg/Program>
#include <osg/Stats>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <vector>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

using offscreen::OffscreenError;
using offscreen::SceneRenderer;

constexpr int smallestSide = 1;
constexpr unsigned int framesBeforeTiming = 3;  // in which the driver takes over textures, arrays and programs

struct Request {
    std::string input;
    std::string picture;
    std::string size = "1024x768";
    std::optional<std::string> eye;
    std::optional<std::string> target;
    bool home = false;
    bool fixedFunction = false;
    bool shaders = false;
    bool noPaging = false;
    bool overwrite = false;
    bool verbose = false;
    unsigned int framesToTime = 0;
};

osg::Vec3d parsePoint(const std::string& option, const std::string& text) {
    std::array<double, 3> point = {0.0, 0.0, 0.0};
    if (parseNumbers(text, ',', point)) return {point[0], point[1], point[2]};
    throw CommandError(ExitStatus::Usage, option + ": '" + text + "' is no X,Y,Z");
}

std::string asText(const osg::Vec3d& point) {
    std::ostringstream text;
    text << point.x() << "," << point.y() << "," << point.z();
    return text.str();
}

void addPrograms(osg::Node& node) {
    ShaderGenerator::instance()->process(&node, false, true, true, true);
}

// An empty program is OpenGL's fixed function, and the override makes it hold for tiles that are loaded later too.
osg::ref_ptr<osg::Node> withoutPrograms(osg::Node* graph) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    root->getOrCreateStateSet()->setAttributeAndModes(new osg::Program,
                                                      osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    root->addChild(graph);
    return root;
}

void placeEye(SceneRenderer& renderer, const Request& request) {
    if (!request.eye) {
        if (!renderer.setHomeView()) {
            throw CommandError(
                ExitStatus::NotSupported,
                request.input + ": nothing in it has a finite extent; say where to look with --eye and --look-at");
        }
        return;
    }
    const osg::Vec3d eye = parsePoint("--eye", *request.eye);
    const osg::Vec3d target = parsePoint("--look-at", *request.target);
    if (eye == target) throw CommandError(ExitStatus::Usage, "--eye and --look-at are the same point");
    const double distance = (target - eye).length();
    if (distance == 0.0 || !std::isfinite(distance))
        throw CommandError(ExitStatus::Usage, "--eye and --look-at are too far apart or too close together");
    renderer.setView(eye, target);
}

/** Milliseconds of several frames. */
struct Times {
    std::vector<double> values;

    void write(std::ostream& out, const std::string& what) {
        std::sort(values.begin(), values.end());
        out << std::left << std::setw(7) << what << std::right << std::fixed << std::setprecision(3) << std::setw(10)
            << values[values.size() / 2] << std::setw(10) << values.front() << std::setw(10) << values.back() << "\n";
    }
};

void timeFrames(SceneRenderer& renderer, unsigned int count) {
    osg::Stats& stats = *renderer.viewer().getCamera()->getStats();
    stats.collectStats("rendering", true);
    Times frames;
    Times cull;
    Times draw;
    for (unsigned int i = 0; i < framesBeforeTiming + count; ++i) {
        const auto start = std::chrono::steady_clock::now();
        renderer.drawFrame();
        renderer.waitForDriver();
        const std::chrono::duration<double, std::milli> passed = std::chrono::steady_clock::now() - start;
        if (i < framesBeforeTiming) continue;
        const unsigned int number = renderer.viewer().getFrameStamp()->getFrameNumber();
        const auto milliseconds = [&](const char* name) {
            double seconds = 0.0;
            stats.getAttribute(number, name, seconds);
            return seconds * 1000.0;
        };
        frames.values.push_back(passed.count());
        cull.values.push_back(milliseconds("Cull traversal time taken"));
        draw.values.push_back(milliseconds("Draw traversal time taken"));
    }
    std::cout << "ms of " << count << " frames: median, fastest, slowest\n";
    frames.write(std::cout, "frame");
    cull.write(std::cout, "cull");
    draw.write(std::cout, "draw");
}

void tell(const std::string& message) {
    std::cerr << "sceneutils: " << withoutControlCharacters(message) << "\n";
}

ExitStatus draw(const Request& request, SceneRenderer& renderer) {
    if (request.verbose) tell("driver " + renderer.context().driver() + ", OpenGL " + renderer.context().version());
    const bool isWhole = drawFirst(renderer, request.input, !request.noPaging);
    if (!request.picture.empty()) {
        writePicture(*renderer.drawPicture(GL_RGB), request.picture, request.overwrite);
        osg::Vec3d eye;
        osg::Vec3d target;
        osg::Vec3d up;
        renderer.viewer().getCamera()->getViewMatrixAsLookAt(eye, target, up);
        std::cout << request.picture << ": " << request.size << " pixels, seen from " << asText(eye) << "\n";
    }
    if (request.framesToTime > 0) timeFrames(renderer, request.framesToTime);
    return isWhole ? ExitStatus::Done : ExitStatus::DonePartly;
}

ExitStatus render(const Request& request) {
    const std::array<int, 2> size = parsePictureSize(request.size, smallestSide);
    if (request.eye.has_value() != request.target.has_value())
        throw CommandError(ExitStatus::Usage, "--eye and --look-at belong together");
    if (request.picture.empty() && request.framesToTime == 0)
        throw CommandError(ExitStatus::Usage, "say where the picture shall go with -o, or pass --time-frames");
    if (!request.picture.empty()) {
        checkIsNoInput(request.picture, request.input);
        checkOutput(request.picture, request.overwrite);
    }

    osg::ref_ptr<osg::Node> graph = readGraph(request.input);
    if (request.shaders) addPrograms(*graph);
    if (request.fixedFunction) graph = withoutPrograms(graph);
    try {
        SceneRenderer renderer(size[0], size[1]);
        if (request.shaders) renderer.setTilePreparation(addPrograms);
        renderer.setScene(graph);
        renderer.setSunlight();
        placeEye(renderer, request);
        return draw(request, renderer);
    } catch (const OffscreenError& error) {
        throw CommandError(ExitStatus::NotSupported, "cannot draw: " + std::string(error.what()));
    }
}

ExitStatus runRender(const Request& request) {
    endCleanlyOnSignals();
    return runGuarded(request.input, {fs::path(request.picture).parent_path()}, [&] { return render(request); });
}

}  // namespace

void addRenderCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("render", "Draw a graph or a paged database into a picture");
    const auto request = std::make_shared<Request>();

    command->add_option("FILE", request->input, "What is drawn, of any format that OpenSceneGraph reads")->required();
    command->add_option("-o,--output", request->picture, "The picture to write; its ending says the format (.png)");
    command->add_option("--size", request->size, "Width and height in pixels, WxH")->capture_default_str();
    CLI::Option* eye = command->add_option("--eye", request->eye, "Where the eye is: X,Y,Z in the graph's length unit");
    command->add_option("--look-at", request->target, "The point in the middle of the picture: X,Y,Z");
    command->add_flag("--home", request->home, "See all of it, from the south and 30 degrees above (the default)")
        ->excludes(eye);
    CLI::Option* fixed =
        command->add_flag("--fixed-function", request->fixedFunction, "Leave out all programs that the graph has");
    command->add_flag("--shaders", request->shaders, "Give the graph generated programs, as 'shaders' does")
        ->excludes(fixed);
    command->add_option("--time-frames", request->framesToTime, "Also draw that many frames and tell their times")
        ->check(CLI::Range(1u, 100000u));
    command->add_flag("--no-paging", request->noPaging, "Do not load the tiles of a paged database");
    command->add_flag("--overwrite", request->overwrite, "Replace a picture that exists");
    command->add_flag("--verbose", request->verbose, "Tell the driver and its OpenGL version");
    command->callback([request, &result] { result = runRender(*request); });
}

}  // namespace veltrane::sceneutils::tool
