#include "Command.h"

#include "convert/ChildProcess.h"
#include "convert/ConversionPlan.h"
#include "convert/ConversionReport.h"
#include "convert/DatabaseConversion.h"
#include "convert/ExtraOutput.h"
#include "convert/FinishedRun.h"
#include "convert/OutcomeOptions.h"
#include "convert/ParallelConversion.h"
#include "convert/Progress.h"
#include "convert/StateLock.h"
#include "files/Interruption.h"
#include "files/PlainText.h"
#include "files/WholeFile.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

struct ConvertArguments {
    ConversionOptions options;
    std::string report;
    unsigned int jobs = 0;  // 0: one file after the other, with nothing remembered
    unsigned int jobSeconds = 0;
    std::uint64_t jobMemory = 0;  // MiB
    std::string launcher;
    bool isDryRun = false;
};

std::string checkLauncher(const std::string& text) {
    const bool isGood = withoutControlCharacters(text) == text && text.find_first_not_of(' ') != std::string::npos;
    return isGood ? std::string() : "is no command in one line";
}

void writeReport(const ConversionPlan& plan, const ConversionReport& report, const std::string& path) {
    if (path.empty()) return;
    for (const FileResult& result : report.files) {
        if (result.texturesPlaced.count(placeOfExtraOutput(path).string()) != 0) {
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
        const bool isUnreadable = report.filesConverted() == 0 && !master->wasDisturbed;
        return isUnreadable ? ExitStatus::InputUnreadable : ExitStatus::DonePartly;
    }
    return report.filesFailed() == 0 ? ExitStatus::Done : ExitStatus::DonePartly;
}

ScheduleSettings scheduleOf(const ConvertArguments& arguments) {
    ScheduleSettings settings;
    settings.jobs = arguments.jobs;
    settings.launcher = arguments.launcher;
    settings.job.limits = ChildLimits(arguments.options.secondsPerFile);
    settings.job.limits.seconds = arguments.jobSeconds;
    settings.job.limits.memoryBytes = arguments.jobMemory * bytesPerMiB;
    settings.job.mayOverwrite = arguments.options.overwrite;
    settings.job.isVerbose = arguments.options.verbose;
    return settings;
}

ExitStatus runInJobs(const ConvertArguments& arguments, const ConversionPlan& plan) {
    if (!arguments.report.empty()) checkExtraOutput(plan, arguments.report);
    ParallelConversion conversion(plan, scheduleOf(arguments));
    if (arguments.isDryRun) {
        conversion.explain(std::cout);
        return ExitStatus::Done;
    }
    ConversionReport report;
    std::size_t done = 0;
    {
        Progress progress(plan, conversion.filesToDo(), Progress::Lines::Always);
        report = conversion.run([&](const FileResult& result) {
            done += result.problem.empty() ? 1 : 0;
            progress.show(result);
        });
    }
    writeSummary(std::cout, totalsOf(plan, report), report.seconds, report.filesRead() - done);
    writeReport(plan, report, arguments.report);
    return statusOf(report);
}

/** Whether an earlier run in jobs has done all; then it says so. */
bool hasNothingToDo(const ConvertArguments& arguments) {
    const auto start = std::chrono::steady_clock::now();
    if (!arguments.report.empty()) return false;
    const auto totals = FinishedRun::unchanged(arguments.options);
    if (!totals) return false;
    if (arguments.isDryRun) {
        writeOutlook(std::cout, {totals->read});
        return true;
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    writeSummary(std::cout, *totals, seconds.count(), totals->read);
    return true;
}

/** Keeps conversions in jobs out of an output folder for the length of a scope. */
class NoJobs {
public:
    explicit NoJobs(const ConversionPlan& plan) {
        const fs::path state = stateFolderOf(plan.files.front().output);
        std::error_code error;
        if (fs::is_directory(state, error)) _lock.emplace(state);
    }
    ~NoJobs() {
        // What a run in jobs has left unfinished is for the next one to remove.
        if (_lock && !_lock->wasLeftInAHurry()) _lock->leaveInOrder();
    }
    NoJobs(const NoJobs&) = delete;
    NoJobs& operator=(const NoJobs&) = delete;

private:
    std::optional<StateLock> _lock;
};

ExitStatus runInOrder(const ConvertArguments& arguments, const ConversionPlan& plan) {
    if (!arguments.report.empty()) checkExtraOutput(plan, arguments.report);
    const NoJobs noJobs(plan);
    ConversionReport report;
    {
        Progress progress(plan, plan.files.size(), Progress::Lines::OnTerminal);
        report = DatabaseConversion(plan, [&](const FileResult& result) { progress.show(result); }).run();
    }
    writeSummary(std::cout, totalsOf(plan, report), report.seconds);
    writeReport(plan, report, arguments.report);
    return statusOf(report);
}

void checkUsage(const ConvertArguments& arguments) {
    if (arguments.jobs > 0) return;
    const bool needsJobs =
        arguments.jobSeconds > 0 || arguments.jobMemory > 0 || !arguments.launcher.empty() || arguments.isDryRun;
    if (needsJobs) {
        throw CommandError(ExitStatus::Usage,
                           "--job-timeout, --job-memory, --launcher and --dry-run need --jobs (see --help)");
    }
}

ExitStatus runConvert(const ConvertArguments& arguments) {
    checkUsage(arguments);
    // The processes that convert the files have the handlers too. Each waits for the one that it has started: when the
    // tool has ended, nothing of it is still at work.
    endCleanlyOnSignals();

    try {
        if (arguments.jobs > 0 && hasNothingToDo(arguments)) return ExitStatus::Done;
        if (arguments.jobs > 0) return runInJobs(arguments, planFiles(arguments.options));
        return runInOrder(arguments, planConversion(arguments.options));
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
    OutcomeOptions().addTo(*command, options);
    command->add_option("--report", arguments->report, "Also write what became of each file to this JSON file");
    command->add_option("--time-limit", options.secondsPerFile, "Processor time that one file may take, in seconds")
        ->check(CLI::Range(1u, 86400u))
        ->capture_default_str();
    command
        ->add_option("--jobs", arguments->jobs,
                     "Convert that many files at a time, and only what a run before has not done; needs Ninja")
        ->check(CLI::Range(1u, mostJobs));
    command
        ->add_option("--job-timeout", arguments->jobSeconds,
                     "With --jobs: time by the clock that one file may take, in seconds")
        ->check(CLI::Range(1u, 86400u));
    command->add_option("--job-memory", arguments->jobMemory, "With --jobs: memory that one file may take, in MiB")
        ->check(CLI::Range(std::uint64_t{16}, std::uint64_t{1} << 24));
    command
        ->add_option("--launcher", arguments->launcher,
                     "With --jobs: a command that is put in front of each job's, as \"nice -n 10\"")
        ->check(CLI::Validator(checkLauncher, "COMMAND"));
    command->add_flag("--dry-run", arguments->isDryRun, "With --jobs: only say what would be done, and why");
    command->add_flag("--verbose", options.verbose, "Show the messages of the library and of OpenSceneGraph");
    command->footer(
        std::string(
            "Converted files, and by default textures, lie in the output's folder as they lay in the master's and name "
            "each\nother "
            "relatively; with --recurse the folder is the whole database, which can be moved or copied as one.\n"
            "Files that are missing, damaged or cut short are named on standard error; the rest is converted (status "
            "5).") +
        "\n\n" + app.get_footer());
    command->callback([arguments, &result] { result = runConvert(*arguments); });
}

}  // namespace veltrane::sceneutils::tool
