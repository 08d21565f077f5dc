#include "Command.h"

#include "convert/ExtraOutput.h"
#include "convert/OutcomeOptions.h"
#include "convert/ParallelConversion.h"
#include "files/FileFinder.h"
#include "files/InputGuard.h"
#include "files/Interruption.h"
#include "files/PlainText.h"
#include "files/WholeFile.h"
#include "plan/FindingReport.h"
#include "plan/PlanReport.h"
#include "plan/ReferenceGraph.h"
#include "plan/SlurmScript.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <utility>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* planName = "plan.json";
constexpr const char* planEnding = ".json";
constexpr const char* conversionEnding = ".ive";
constexpr std::size_t linesPerKind = 20;

struct PlanRequest {
    std::string master;
    std::string output;
    std::string root;
    std::vector<std::string> allowedFolders;
    std::string slurmScript;
    ConversionOptions conversion;  // --overwrite is for the plan and the script too
    OutcomeOptions outcome;
    unsigned int jobs = 0;  // 0: not given
};

std::string checkScriptName(const std::string& name) {
    return name.empty() ? "the name is empty" : "";
}

bool namesAFile(const fs::path& output, const char* ending) {
    std::error_code error;
    return toLowerCase(output.extension().string()) == ending && !fs::is_directory(output, error);
}

bool isOfConversion(const PlanRequest& request) {
    return namesAFile(request.output, conversionEnding);
}

fs::path planFile(const PlanRequest& request) {
    const fs::path output = request.output;
    if (isOfConversion(request)) return stateFolderOf(output) / planName;
    return namesAFile(output, planEnding) ? output : output / planName;
}

/** The plan of a conversion is the tool's own; it lies in the state. */
bool mayReplacePlan(const PlanRequest& request) {
    return request.conversion.overwrite || isOfConversion(request);
}

/** What is given although there is no conversion that it could be for; empty if there is nothing. */
std::string strayOption(const PlanRequest& request) {
    if (isOfConversion(request)) return "";
    if (!request.slurmScript.empty()) return "--slurm";
    if (request.jobs > 0) return "--jobs";
    for (const std::string& option : request.outcome.given()) {
        if (option != "--overwrite") return option.substr(0, option.find('='));
    }
    return "";
}

void checkUsage(const PlanRequest& request) {
    if (request.output.empty()) throw CommandError(ExitStatus::Usage, "-o: the name is empty");
    const std::string stray = strayOption(request);
    if (!stray.empty())
        throw CommandError(ExitStatus::Usage, stray + " needs an output that ends in .ive: -o NAME.ive (see --help)");
}

void checkMaster(const ReferenceGraph& graph, const std::string& master) {
    if (graph.files.front().isSound) return;
    throw CommandError(ExitStatus::InputUnreadable, master + ": " + graph.findings.front().message);
}

void checkIsNoFileOf(const ReferenceGraph& graph, const fs::path& output) {
    std::error_code error;
    const fs::path real = fs::canonical(output, error);
    if (error) return;
    for (const GraphFile& file : graph.files) {
        if (file.path == real) checkIsNoInput(output, file.path);
    }
}

void writePlanFile(const fs::path& output, const ReferenceGraph& graph, const PlanRequest& request) {
    WholeFile file(output, mayReplacePlan(request));
    writePlan(file.stream(), graph, request.master);
    file.commit();
}

void checkScript(const PlanRequest& request, const ConversionPlan& conversion) {
    if (isBelow(placeOfExtraOutput(request.slurmScript), stateFolderOf(conversion.files.front().output))) {
        throw OutputError(request.slurmScript +
                          ": is in the folder that the conversion keeps for itself; choose another name");
    }
    checkExtraOutput(conversion, request.slurmScript);
}

/** For those who may read it. */
void makeExecutable(const fs::path& path) {
    using Perms = fs::perms;
    const Perms readable = fs::status(path).permissions();
    for (const auto& [read, execute] :
         {std::pair(Perms::owner_read, Perms::owner_exec), std::pair(Perms::group_read, Perms::group_exec),
          std::pair(Perms::others_read, Perms::others_exec)}) {
        if ((readable & read) != Perms::none) fs::permissions(path, execute, fs::perm_options::add);
    }
}

void writeScript(const PlanRequest& request, unsigned int jobs) {
    WholeFile file(request.slurmScript, request.conversion.overwrite);
    file.stream() << slurmScript(
        {ownProgram(), fs::absolute(request.master), fs::absolute(request.output), jobs, request.outcome.given()});
    file.beforeRenaming = makeExecutable;
    file.commit();
}

void planConversionInJobs(const PlanRequest& request, const fs::path& planFile, const ReferenceGraph& graph) {
    ConversionOptions options = request.conversion;
    options.input = request.master;
    options.output = request.output;
    options.recurse = true;
    const ConversionPlan plan = planFiles(options);
    const bool hasScript = !request.slurmScript.empty();
    if (hasScript) checkScript(request, plan);

    ScheduleSettings schedule;
    schedule.jobs = std::max(request.jobs, 1u);
    ParallelConversion(plan, schedule).prepare([&] { writePlanFile(planFile, graph, request); });
    if (hasScript) writeScript(request, schedule.jobs);
}

/** Some of each kind, because a finding is seldom alone. */
void tellFindings(const ReferenceGraph& graph, const fs::path& master, const fs::path& output) {
    const FindingReport report(graph, master);
    std::map<FindingKind, std::size_t> counts;
    for (const Finding& finding : graph.findings) {
        if (++counts[finding.kind] <= linesPerKind) std::cerr << "sceneutils: " << report.lineOf(finding) << "\n";
    }
    for (const auto& [kind, count] : counts) {
        if (count <= linesPerKind) continue;
        std::cerr << "sceneutils: " << count - linesPerKind << " more findings of the kind \"" << nameOf(kind) << "\" ("
                  << output.string() << " has all)\n";
    }
}

/** Ahead of the walk over the files, which may take a while. */
void checkOutputs(const PlanRequest& request, const fs::path& planFile) {
    checkIsNoInput(planFile, request.master);
    checkOutputPath(planFile, mayReplacePlan(request));
    if (request.slurmScript.empty()) return;
    checkIsNoInput(request.slurmScript, request.master);
    checkOutputPath(request.slurmScript, request.conversion.overwrite);
}

ExitStatus plan(const PlanRequest& request) {
    checkUsage(request);
    const fs::path output = planFile(request);
    checkOutputs(request, output);

    const ReferenceGraph graph = buildReferenceGraph(
        request.master, {request.root, {request.allowedFolders.begin(), request.allowedFolders.end()}});
    checkMaster(graph, request.master);
    checkIsNoFileOf(graph, output);
    checkIsNoFileOf(graph, request.slurmScript);

    if (isOfConversion(request)) {
        planConversionInJobs(request, output, graph);
    } else {
        writePlanFile(output, graph, request);
    }
    tellFindings(graph, request.master, output);
    std::cout << summaryOf(graph) << ", plan: " << withoutControlCharacters(output.string());
    if (!request.slurmScript.empty()) std::cout << ", script: " << withoutControlCharacters(request.slurmScript);
    std::cout << "\n";
    return graph.count(Severity::Error) > 0 ? ExitStatus::DonePartly : ExitStatus::Done;
}

ExitStatus runPlan(const PlanRequest& request) {
    endCleanlyOnSignals();
    try {
        return plan(request);
    } catch (const OutputError& error) {
        throw CommandError(ExitStatus::OutputNotWritten, error.what());
    }
}

}  // namespace

void addPlanCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("plan", "List the files of an OpenFlight database in order of conversion");
    const auto request = std::make_shared<PlanRequest>();
    command->add_option("MASTER", request->master, "The OpenFlight file that leads to all others")->required();
    command
        ->add_option("-o", request->output,
                     "The file to write, if its name ends in .json; the output of a conversion that is to be made "
                     "ready, if it ends in .ive; else the folder for \"plan.json\"")
        ->required();
    command->add_option("--root", request->root,
                        "The folder of the database, which references must not leave (the master's)");
    command
        ->add_option("--allow-outside", request->allowedFolders,
                     "A folder elsewhere that references may lead to; may be given several times")
        ->allow_extra_args(false);
    request->outcome.addTo(*command, request->conversion);
    command->add_option("--jobs", request->jobs, "With -o NAME.ive: files that will be converted at a time (1)")
        ->check(CLI::Range(1u, mostJobs));
    command
        ->add_option("--slurm", request->slurmScript,
                     "With -o NAME.ive: also write a script for sbatch, which converts on a cluster")
        ->check(CLI::Validator(checkScriptName, ""));
    command->footer(
        "With -o NAME.ive the plan and what \"convert --recurse --jobs\" needs are put into .sceneutils/NAME.ive "
        "beside "
        "it;\n\"convert\" with the same options, or the script, then does the work.\n\n" +
        app.get_footer());
    command->callback([request, &result] { result = runPlan(*request); });
}

}  // namespace veltrane::sceneutils::tool
