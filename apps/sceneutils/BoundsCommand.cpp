#include "Command.h"

#include "bounds/BoxComparison.h"
#include "files/FileReferences.h"
#include "files/GraphFile.h"
#include "files/GuardedWork.h"
#include "files/Interruption.h"
#include "files/JsonGeometry.h"
#include "files/NodeText.h"
#include "files/PlainText.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>

namespace veltrane::sceneutils::tool {

namespace {

constexpr int reportVersion = 1;
constexpr std::size_t nodesPerReason = 10;  // in the text; the JSON form has all

struct BoundsRequest {
    std::string file;
    bool json = false;
};

std::string boxText(const osg::BoundingBox& box) {
    if (!box.valid()) return "nothing has an extent";
    return asText(osg::Vec3f(box._min)) + " to " + asText(osg::Vec3f(box._max));
}

std::string sphereText(const osg::BoundingSphere& sphere) {
    if (!sphere.valid()) return "nothing has an extent";
    return "radius " + asText(static_cast<float>(sphere.radius())) + " around " + asText(osg::Vec3f(sphere.center()));
}

void writeText(std::ostream& out, const BoxComparison& comparison, std::size_t unloaded) {
    out << "box                   " << boxText(comparison.box) << "\n"
        << "sphere                " << sphereText(comparison.sphere) << "\n"
        << "CalculateBoundingBox  " << boxText(comparison.calculated) << "\n";
    if (unloaded > 0) out << "without               " << plural(unloaded, "file", "files") << " not loaded\n";
    if (!comparison.differences.empty()) out << "CalculateBoundingBox gives another box because\n";
    for (const BoxDifference& difference : comparison.differences) {
        out << "  " << explanationOf(difference.reason) << "\n";
        std::size_t written = 0;
        for (const std::vector<std::string>& node : difference.nodes) {
            if (written++ == nodesPerReason) break;
            out << "    " << asText(node) << "\n";
        }
        if (difference.nodes.size() > nodesPerReason)
            out << "    and " << difference.nodes.size() - nodesPerReason << " more (--json lists all)\n";
    }
}

nlohmann::json toJson(const std::string& file, const BoxComparison& comparison, std::size_t unloaded) {
    nlohmann::json differences = nlohmann::json::array();
    for (const BoxDifference& difference : comparison.differences)
        differences.push_back({{"reason", nameOf(difference.reason)}, {"nodes", difference.nodes}});
    return {{"version", reportVersion},
            {"command", "bounds"},
            {"input", file},
            {"box", asJson(comparison.box)},
            {"sphere", asJson(comparison.sphere)},
            {"calculateBoundingBox", asJson(comparison.calculated)},
            {"differences", differences},
            {"filesNotLoaded", unloaded}};
}

void runBounds(const BoundsRequest& request) {
    const osg::ref_ptr<osg::Node> graph = readGraph(request.file);
    const BoxComparison comparison = compareBoxes(*graph);
    const std::size_t unloaded = countUnloadedFiles(*graph);
    if (request.json) {
        writeJson(std::cout, toJson(request.file, comparison, unloaded));
    } else {
        writeText(std::cout, comparison, unloaded);
    }
}

}  // namespace

void addBoundsCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("bounds", "Tell how large a graph is, and where");
    const auto request = std::make_shared<BoundsRequest>();
    command->add_option("FILE", request->file, "The graph, of any format that OpenSceneGraph reads")->required();
    command->add_flag("--json", request->json, "Write everything as JSON");
    command->callback([request, &result] {
        endCleanlyOnSignals();
        result = runGuarded(request->file, {}, [&] {
            runBounds(*request);
            return ExitStatus::Done;
        });
    });
}

}  // namespace veltrane::sceneutils::tool
