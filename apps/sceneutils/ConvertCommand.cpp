#include "Command.h"

#include "convert/ChildProcess.h"
#include "convert/ConversionPlan.h"
#include "convert/ConversionReport.h"
#include "convert/DatabaseConversion.h"
#include "files/PlainText.h"
#include "files/WholeFile.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <iostream>
#include <memory>
#include <set>

#include <unistd.h>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

struct ConvertArguments {
    ConversionOptions options;
    std::string report;
    bool noSmooth = false;
};

pid_t processOfTheUser = 0;

// The processes that convert the files have this handler too. Each waits for the one that it has started: when the
// tool has ended, nothing of it is still at work.
extern "C" void endOnSignal(int) {
    constexpr char message[] = "sceneutils: interrupted\n";
    endRunningChild();
    removeUnfinishedFile();
    if (getpid() == processOfTheUser && write(STDERR_FILENO, message, sizeof message - 1) < 0) {
        // There is nobody left to tell.
    }
    _exit(static_cast<int>(ExitStatus::Interrupted));
}

std::string checkRange(const std::string& text) {
    float range = 0.0f;
    const bool isGood = CLI::detail::lexical_cast(text, range) && std::isfinite(range) && range >= 0.0f;
    return isGood ? std::string() : "'" + text + "' is no number of at least 0";
}

/** Tells what fails as soon as it does, and on a terminal how far the conversion has come. */
class Progress {
public:
    explicit Progress(const ConversionPlan& plan) : _plan(plan), _isTerminal(isatty(STDERR_FILENO) != 0) {}
    ~Progress() { clearLine(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(const FileResult& result) {
        ++_done;
        clearLine();
        const PlannedFile& file = _plan.files[result.file];
        if (!result.problem.empty()) tell(failure(file, result));
        for (const std::string& texture : result.texturesMissing) {
            if (!_missingTextures.insert(texture).second) continue;
            tell(file.name + ": texture " + texture + " is missing or unreadable");
        }
        if (_isTerminal)
            std::cerr << "[" << _done << "/" << _plan.files.size() << "] " << withoutControlCharacters(file.name)
                      << std::flush;
    }

private:
    static void tell(const std::string& problem) {
        std::cerr << "sceneutils: " << withoutControlCharacters(problem) << "\n";
    }

    std::string failure(const PlannedFile& file, const FileResult& result) const {
        // A problem with an output names the output.
        if (result.isOutputProblem) return result.problem;
        const std::string namedBy = file.namedBy == noFile ? "" : " (named by " + _plan.files[file.namedBy].name + ")";
        return file.name + namedBy + ": " + result.problem;
    }

    void clearLine() const {
        if (_isTerminal) std::cerr << "\r\033[K";
    }

    const ConversionPlan& _plan;
    bool _isTerminal;
    std::size_t _done = 0;
    std::set<std::string> _missingTextures;
};

fs::path placeOf(const std::string& report) {
    std::error_code error;
    const fs::path path = fs::weakly_canonical(fs::absolute(report), error);
    return error ? fs::absolute(report).lexically_normal() : path;
}

void checkReportPath(const ConversionPlan& plan, const std::string& report) {
    if (report.empty()) return;
    const fs::path path = placeOf(report);
    if (plan.inputs.count(path) != 0) throw OutputError(report + ": is one of the inputs; choose another name");
    for (const PlannedFile& file : plan.files) {
        if (file.output.string() == path.string())
            throw OutputError(report + ": is one of the outputs; choose another name");
    }
    checkOutputPath(report, plan.options.overwrite);
}

void writeReport(const ConversionPlan& plan, const ConversionReport& report, const std::string& path) {
    if (path.empty()) return;
    for (const FileResult& result : report.files) {
        if (result.texturesPlaced.count(placeOf(path).string()) != 0) {
            throw OutputError(path + ": is one of the outputs; choose another name");
        }
    }
    WholeFile file(path, plan.options.overwrite);
    // File names need not be UTF-8, JSON must.
    file.stream() << reportAsJson(plan, report).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    file.commit();
}

ExitStatus statusOf(const ConversionReport& report) {
    const auto isMaster = [](const FileResult& result) { return result.file == 0; };
    const auto master = std::find_if(report.files.begin(), report.files.end(), isMaster);
    if (!master->problem.empty()) {
        if (master->isOutputProblem) return ExitStatus::OutputNotWritten;
        return report.filesConverted() == 0 ? ExitStatus::InputUnreadable : ExitStatus::DonePartly;
    }
    return report.filesFailed() == 0 ? ExitStatus::Done : ExitStatus::DonePartly;
}

ExitStatus runConvert(const ConvertArguments& arguments) {
    ConversionOptions options = arguments.options;
    options.smooth = !arguments.noSmooth;
    processOfTheUser = getpid();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, endOnSignal);
    std::signal(SIGXFSZ, SIG_IGN);  // a limit on file sizes shows in the write that fails

    const ConversionPlan plan = planConversion(options);
    try {
        checkReportPath(plan, arguments.report);

        ConversionReport report;
        {
            Progress progress(plan);
            report = DatabaseConversion(plan, [&](const FileResult& result) { progress.show(result); }).run();
        }
        writeSummary(std::cout, plan, report);
        writeReport(plan, report, arguments.report);
        return statusOf(report);
    } catch (const OutputError& error) {
        throw CommandError(ExitStatus::OutputNotWritten, error.what());
    }
}

}  // namespace

void addConvertCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("convert", "Convert an OpenFlight database into a paged .ive database");
    const auto arguments = std::make_shared<ConvertArguments>();
    ConversionOptions& options = arguments->options;

    command->add_option("INPUT", options.input, "The master file (.flt)")->required();
    command->add_option("OUTPUT", options.output, "The file to write (.ive); missing folders are made")->required();
    command->add_flag("--recurse", options.recurse,
                      "Convert the referenced files too, and those that they refer to, each level with a quarter of "
                      "the range");
    command->add_flag("--convert-references", options.convertReferences,
                      "Convert the files that the master refers to, but not what those refer to");
    command
        ->add_option("--max-range", options.maxRange,
                     "How far beyond its bounding radius a referenced file is seen, in the database's length unit")
        ->check(CLI::Validator(checkRange, ">=0"))
        ->capture_default_str();
    command->add_flag("--no-smooth", arguments->noSmooth, "Leave normals as they are");
    command->add_flag("--overwrite", options.overwrite, "Replace outputs that exist; inputs are never touched");
    command->add_option("--report", arguments->report, "Also write what became of each file to this JSON file");
    command->add_option("--time-limit", options.secondsPerFile, "Processor time that one file may take, in seconds")
        ->check(CLI::Range(1u, 86400u))
        ->capture_default_str();
    command->add_flag("--verbose", options.verbose, "Show the messages of the library and of OpenSceneGraph");
    command->footer(
        std::string(
            "Textures and converted files lie in the output's folder as they lay in the master's and name each other\n"
            "relatively; with --recurse the folder is the whole database, which can be moved or copied as one.\n"
            "Files that are missing, damaged or cut short are named on standard error; the rest is converted (status "
            "5).") +
        "\n\n" + app.get_footer());
    command->callback([arguments, &result] { result = runConvert(*arguments); });
}

}  // namespace veltrane::sceneutils::tool
