#include "Command.h"

#include "files/GraphFile.h"
#include "files/GuardedWork.h"
#include "files/InputGuard.h"
#include "files/Interruption.h"
#include "files/OutputFormat.h"
#include "files/WholeFile.h"
#include "shaders/ProgramList.h"
#include "shaders/ShaderFiles.h"
#include "shaders/ShaderReport.h"

#include <offscreen/ProgramCheck.h>
#include <sceneutils/ShaderGenerator.h>

#include <CLI/CLI.hpp>

#include <filesystem>
#include <iostream>
#include <memory>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

using offscreen::OffscreenContext;

/** OpenGL has texture coordinates for the units below 8, and a shadow map needs some. */
constexpr int largestShadowUnit = 7;

struct ShadersArguments {
    std::string input;
    std::string output;
    std::string saveFolder;
    ShaderSettings settings;
    bool noLighting = false;
    bool noNormalMapping = false;
    bool noFog = false;
    bool check = false;
    bool overwrite = false;
    bool json = false;
};

std::string checkNotEmpty(const std::string& text) {
    return text.empty() ? "the name is empty" : "";
}

void checkOutputs(const ShadersArguments& arguments) {
    if (arguments.output.empty()) {
        if (arguments.check || !arguments.saveFolder.empty()) return;
        throw CommandError(ExitStatus::Usage, "OUT is required unless --check or --save is given (see --help)");
    }
    checkIsNative(arguments.output, "programs");
    checkIsNoInput(arguments.output, arguments.input);
    checkOutput(arguments.output, arguments.overwrite);
}

osg::ref_ptr<OffscreenContext> openContext() {
    try {
        return new OffscreenContext(1, 1);
    } catch (const offscreen::OffscreenError& error) {
        throw CommandError(ExitStatus::NotSupported, "programs cannot be checked: " + std::string(error.what()));
    }
}

void generatePrograms(osg::Node& graph, const ShaderSettings& settings) {
    ShaderGenerator& generator = *ShaderGenerator::instance();
    generator.setShadowTex(settings.shadowUnit);
    generator.process(&graph, true, settings.lighting, settings.normalMapping, settings.fog);
}

void checkPrograms(OffscreenContext& context, ShaderReport& report) {
    report.checked = true;
    report.driver = context.driver();
    std::vector<osg::ref_ptr<const osg::Program>> programs;
    for (const ListedProgram& listed : report.programs) programs.push_back(listed.program);
    std::map<const osg::Program*, std::string> logs;
    for (const auto& failure : offscreen::checkPrograms(context, programs)) logs[failure.program] = failure.log;
    for (const ListedProgram& listed : report.programs) {
        const auto log = logs.find(listed.program);
        if (log == logs.end()) continue;
        report.failures[listed.name] = {log->second, placeOf(listed), stateBehind(listed, report.settings)};
    }
}

void savePrograms(const std::string& folder, bool mayOverwrite, ShaderReport& report) {
    const std::vector<ShaderFile> files = shaderFiles(report.programs, folder);
    writeShaderFiles(files, mayOverwrite);
    for (const ShaderFile& file : files) report.savedFiles[file.program].push_back(file.path.string());
}

void print(const ShaderReport& report, bool asJsonText) {
    if (!asJsonText) return writeTable(std::cout, report);
    // Names in files need not be UTF-8, JSON must.
    std::cout << asJson(report).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

void tellFailures(const ShaderReport& report) {
    if (report.failures.empty()) return;
    writeFailures(std::cerr, report);
    std::cerr << "sceneutils: " << report.failures.size() << " of " << report.programs.size() << " programs fail with "
              << report.driver << (report.output.empty() ? "" : "; " + report.output + " is not written") << "\n";
}

ExitStatus shade(const ShadersArguments& arguments) {
    checkOutputs(arguments);

    const osg::ref_ptr<osg::Node> graph = readGraph(arguments.input);
    const osg::ref_ptr<OffscreenContext> context = arguments.check ? openContext() : nullptr;

    ShaderReport report;
    report.input = arguments.input;
    report.output = arguments.output;
    report.settings = arguments.settings;
    const ProgramSet before = programsOf(*graph);
    generatePrograms(*graph, report.settings);
    report.programs = listPrograms(*graph, before);

    if (context) checkPrograms(*context, report);
    tellFailures(report);
    if (!arguments.saveFolder.empty()) savePrograms(arguments.saveFolder, arguments.overwrite, report);
    if (report.failures.empty() && !report.output.empty()) {
        writeGraph(graph, report.output, arguments.overwrite);
        report.written = true;
    }
    print(report, arguments.json);
    return report.failures.empty() ? ExitStatus::Done : ExitStatus::NotSupported;
}

ExitStatus runShaders(const ShadersArguments& arguments) {
    endCleanlyOnSignals();
    return runGuarded(arguments.input, {fs::path(arguments.output).parent_path(), arguments.saveFolder},
                      [&] { return shade(arguments); });
}

}  // namespace

void addShadersCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command =
        app.add_subcommand("shaders", "Give a graph generated GLSL programs in place of fixed-function state");
    const auto arguments = std::make_shared<ShadersArguments>();
    const CLI::Validator isNamed(checkNotEmpty, "");

    command->add_option("IN", arguments->input, "The graph, in any format that OpenSceneGraph reads")->required();
    command
        ->add_option("OUT", arguments->output,
                     "The file to write (.ive, .osg, .osgb, .osgt, .osgx); missing folders are made. May be left out "
                     "with --check or --save")
        ->check(isNamed);
    command->add_flag("--no-lighting", arguments->noLighting, "Compute no light (default: that of light source 0)");
    command->add_flag("--no-normal-mapping", arguments->noNormalMapping,
                      "Ignore normal maps (default: used where the uniform NormalMapTex names one)");
    command->add_flag("--no-fog", arguments->noFog,
                      "Apply no fog (default: exponential-squared, density in the uniform fogDensity)");
    command
        ->add_option("--shadow-unit", arguments->settings.shadowUnit,
                     "Apply the shadow map on this texture unit (default: no shadow map)")
        ->check(CLI::Range(0, largestShadowUnit));
    command
        ->add_option("--save", arguments->saveFolder,
                     "Also write the programs' texts to NAME.vert and NAME.frag in this folder (default: not)")
        ->check(isNamed);
    command->add_flag("--check", arguments->check,
                      "Compile and link every program with this machine's OpenGL driver; if one fails, OUT is not "
                      "written and the status is 3 (default: not)");
    command->add_flag("--overwrite", arguments->overwrite,
                      "Replace outputs that exist, IN excepted (default: they are refused)");
    command->add_flag("--json", arguments->json, "Print JSON instead of a table (default: a table)");
    command->footer(std::string("The table: each program, how many state sets use it, and how many of those kept it "
                                "from IN. A program of IN\nis kept where it has the very name that a generated one "
                                "would have.") +
                    "\n\n" + app.get_footer());
    command->callback([arguments, &result] {
        arguments->settings.lighting = !arguments->noLighting;
        arguments->settings.normalMapping = !arguments->noNormalMapping;
        arguments->settings.fog = !arguments->noFog;
        result = runShaders(*arguments);
    });
}

}  // namespace veltrane::sceneutils::tool
