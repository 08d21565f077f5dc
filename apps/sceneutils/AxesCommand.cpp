#include "Command.h"

#include "files/GraphFile.h"
#include "files/GuardedWork.h"
#include "files/Interruption.h"
#include "files/OutputFormat.h"
#include "files/PlainNormals.h"
#include "files/PlainText.h"

#include <sceneutils/SceneUtils.h>

#include <osg/Group>

#include <CLI/CLI.hpp>

#include <cmath>
#include <iostream>
#include <memory>
#include <string>

namespace veltrane::sceneutils::tool {

namespace {

struct AxesRequest {
    std::string output;
    double size = 1.0;
    bool overwrite = false;
};

ExitStatus writeAxes(const AxesRequest& request) {
    const auto size = static_cast<float>(request.size);
    if (!std::isfinite(size) || size <= 0.0f)
        throw CommandError(ExitStatus::Usage, "--size: a size is a number greater than 0");
    checkIsNative(request.output, "coloured lines");
    checkOutput(request.output, request.overwrite);

    const osg::ref_ptr<osg::Group> axes = createCoordinateSystemGeometry(size);
    bindNormalsOverall(*axes);
    writeGraph(axes, request.output, request.overwrite);
    std::cout << withoutControlCharacters(request.output) << ": axes of length " << size
              << ", x red, y green, z blue\n";
    return ExitStatus::Done;
}

ExitStatus runAxes(const AxesRequest& request) {
    endCleanlyOnSignals();
    return runGuarded(request.output, {std::filesystem::path(request.output).parent_path()},
                      [&] { return writeAxes(request); });
}

}  // namespace

void addAxesCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("axes", "Write a coordinate system of three coloured lines");
    const auto request = std::make_shared<AxesRequest>();
    command->add_option("OUT", request->output, "The file to write; its ending says the format")->required();
    command->add_option("--size", request->size, "How long the axes are, in the graph's length unit")
        ->capture_default_str();
    command->add_flag("--overwrite", request->overwrite, "Replace an output that exists");
    command->callback([request, &result] { result = runAxes(*request); });
}

}  // namespace veltrane::sceneutils::tool
