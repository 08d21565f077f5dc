#include "Command.h"

#include "export/NameSearch.h"
#include "files/CapturedErrors.h"
#include "files/FileReferences.h"
#include "files/GraphFile.h"
#include "files/GuardedWork.h"
#include "files/InputGuard.h"
#include "files/Interruption.h"
#include "files/OutputFormat.h"
#include "files/PlainText.h"
#include "files/PortableNames.h"
#include "markup/Chains.h"
#include "markup/LodMarks.h"
#include "markup/MarkupPicture.h"
#include "render/FirstFrame.h"
#include "render/PictureSize.h"

#include <offscreen/SceneRenderer.h>

#include <CLI/CLI.hpp>

#include <cmath>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

using offscreen::OffscreenError;
using offscreen::SceneRenderer;

struct Request {
    std::string input;
    std::string output;
    std::optional<std::string> path;
    bool keepFiles = false;
    std::string picture;
    std::string size = "1600x900";
    double reach = 10.0;
    bool noPaging = false;
    bool overwrite = false;
};

/** What is to be written and told, and what of it a picture shows. */
struct Markup {
    osg::ref_ptr<osg::Node> graph;
    std::vector<Figure> figures;
    std::map<std::string, osg::ref_ptr<osg::Node>> files;
    std::string description;
    std::string summary;
};

Markup markGraph(const Request& request, osg::ref_ptr<osg::Node> graph) {
    Markup markup;
    const std::size_t unloaded = countUnloadedFiles(*graph);
    const LodCounts counts = markLods(graph);
    markup.graph = graph;
    if (!request.picture.empty()) markup.figures = figuresAroundLods(*graph);
    markup.summary = plural(counts.plain, "LOD", "LODs") + " and " + plural(counts.paged, "paged LOD", "paged LODs") +
                     " marked" +
                     (unloaded > 0 ? "; not loaded: " + plural(unloaded, "file", "files") + " that it refers to" : "");
    return markup;
}

Markup markPath(const Request& request, osg::Node& graph) {
    std::vector<osg::Node*> nodes;
    for (const osg::NodePath& way : findByName(graph, *request.path, request.input)) nodes.push_back(way.back());
    const Chains chains = makeChains(nodes);
    Markup markup;
    markup.graph = chains.graph;
    if (!request.picture.empty()) markup.figures = figuresOfChains(*chains.graph);
    if (request.keepFiles) markup.files = chains.files;
    markup.description = chains.description;
    markup.summary = plural(chains.count, "chain", "chains") + " to " + plural(nodes.size(), "node", "nodes") +
                     " called '" + *request.path + "'";
    return markup;
}

/** The picture of a markup, drawn before anything is written: what cannot be drawn leaves no files. */
class Drawing {
public:
    explicit Drawing(const Request& request)
        : _request(request), _size(parsePictureSize(request.size, smallestMarkupPicture)) {
        if (!request.picture.empty()) _renderer = std::make_unique<SceneRenderer>(_size[0], _size[1]);
    }

    void draw(const std::vector<Figure>& figures) {
        if (!_renderer) return;
        const osg::ref_ptr<osg::Node> scene = readSceneAgain();
        const osg::BoundingBox extent = offscreen::extentOf(scene);
        const PictureContent content =
            selectFigures(figures, osg::BoundingBoxd(extent._min, extent._max), _request.reach);
        const double diagonal = content.box.valid() ? (content.box._max - content.box._min).length() : 0.0;
        if (diagonal == 0.0 || !std::isfinite(diagonal))
            throw CommandError(ExitStatus::NotSupported, _request.input + ": nothing in it has a finite extent");
        _renderer->setScene(makeMarkupPicture(scene, content, _size[0], _size[1]));
        isWhole = drawFirst(*_renderer, _request.input, !_request.noPaging);
        _picture = _renderer->drawPicture(GL_RGB);
    }

    void write() const {
        if (!_renderer) return;
        writePicture(*_picture, _request.picture, _request.overwrite);
        std::cout << withoutControlCharacters(_request.picture) << ": " << _request.size << " pixels\n";
    }

    bool isWhole = true;

private:
    /** Drawing changes a graph: it loads tiles, and gives up the pixels of textures. */
    osg::ref_ptr<osg::Node> readSceneAgain() const {
        const CapturedErrors toldBefore;
        return readGraph(_request.input);
    }

    const Request& _request;
    std::array<int, 2> _size;
    std::unique_ptr<SceneRenderer> _renderer;
    osg::ref_ptr<osg::Image> _picture;
};

fs::path placeOf(const Request& request, const std::string& keptFile) {
    return fs::path(request.output).parent_path() / keptFile;
}

/** Everything that would keep one of several outputs from being written, before the first of them is. */
void checkOutputs(const Request& request, const Markup& markup, osg::Node& graph) {
    std::vector<fs::path> outputs = {request.output};
    if (!request.picture.empty()) outputs.push_back(request.picture);
    for (const auto& [name, node] : markup.files) outputs.push_back(placeOf(request, name));
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        checkIsNoInput(outputs[i], request.input, graph);
        checkOutput(outputs[i], request.overwrite);
        for (std::size_t j = 0; j < i; ++j) {
            if (fs::weakly_canonical(fs::absolute(outputs[i])) == fs::weakly_canonical(fs::absolute(outputs[j])))
                throw CommandError(ExitStatus::Usage, outputs[i].string() + ": two outputs of this name");
        }
    }
}

void writeGraphs(const Request& request, const Markup& markup) {
    const fs::path folder = fs::path(request.output).parent_path();
    writeGraph(markup.graph, request.output, request.overwrite);
    for (const auto& [name, node] : markup.files) {
        resolveImageNames(*node, folder);  // which the write before has made relative
        writeGraph(node, placeOf(request, name), request.overwrite);
    }
}

void writeDescription(const std::string& description) {
    std::istringstream text(description);
    for (std::string line; std::getline(text, line);) std::cout << withoutControlCharacters(line) << "\n";
}

void checkRequest(const Request& request) {
    if (request.path && request.path->empty())
        throw CommandError(ExitStatus::Usage, "--path: a name is not empty; leave the option out for the whole graph");
    if (!std::isfinite(request.reach) || request.reach <= 0.0)
        throw CommandError(ExitStatus::Usage, "--reach: a number of radii is greater than 0");
    checkIsNative(request.output, "coloured lines");
    checkOutput(request.output, request.overwrite);
    if (!request.picture.empty()) checkOutput(request.picture, request.overwrite);
}

ExitStatus markUp(const Request& request) {
    checkRequest(request);
    try {
        Drawing drawing(request);
        const osg::ref_ptr<osg::Node> graph = readGraph(request.input);
        const Markup markup = request.path ? markPath(request, *graph) : markGraph(request, graph);
        checkOutputs(request, markup, *graph);
        drawing.draw(markup.figures);
        writeGraphs(request, markup);
        writeDescription(markup.description);
        std::cout << withoutControlCharacters(request.output + ": " + markup.summary) << "\n";
        drawing.write();
        return drawing.isWhole ? ExitStatus::Done : ExitStatus::DonePartly;
    } catch (const OffscreenError& error) {
        throw CommandError(ExitStatus::NotSupported, "cannot draw: " + std::string(error.what()));
    }
}

ExitStatus runMarkup(const Request& request) {
    endCleanlyOnSignals();
    return runGuarded(request.input, {fs::path(request.output).parent_path(), fs::path(request.picture).parent_path()},
                      [&] { return markUp(request); });
}

}  // namespace

void addMarkupCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("markup", "Show where levels of detail switch, or what leads to a node");
    const auto request = std::make_shared<Request>();
    command->add_option("IN", request->input, "The graph, of any format that OpenSceneGraph reads")->required();
    command
        ->add_option("OUT", request->output,
                     "The file to write: the graph with boxes around its LODs; its ending says the format (.ive)")
        ->required();
    CLI::Option* path = command->add_option("--path", request->path,
                                            "Write chains of boxes to all nodes of this name instead, and tell what "
                                            "is above them");
    command
        ->add_flag("--keep-files", request->keepFiles,
                   "Also write lodmarkup.osg, geode.osg and pagedlod.osg beside OUT, as the library does")
        ->needs(path);
    CLI::Option* picture = command->add_option(
        "--picture", request->picture,
        "Also draw it from above and from the south; the ending of the picture's name says the format (.png)");
    command->add_option("--size", request->size, "Width and height of the picture in pixels, WxH")
        ->capture_default_str()
        ->needs(picture);
    command
        ->add_option("--reach", request->reach,
                     "Leave boxes out of the picture that reach further than so many radii of the scene")
        ->capture_default_str()
        ->needs(picture);
    command->add_flag("--no-paging", request->noPaging, "Do not load the tiles of a paged database for the picture")
        ->needs(picture);
    command->add_flag("--overwrite", request->overwrite, "Replace outputs that exist; inputs are never touched");
    command->footer("Tiles of paged LODs are not loaded, and what is in them is not marked.");
    command->callback([request, &result] { result = runMarkup(*request); });
}

}  // namespace veltrane::sceneutils::tool
