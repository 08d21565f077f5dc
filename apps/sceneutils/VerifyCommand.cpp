#include "Command.h"

#include "files/InputGuard.h"
#include "files/Interruption.h"
#include "files/JsonGeometry.h"
#include "files/PlainText.h"
#include "files/WholeFile.h"
#include "verify/VerifyReport.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <limits>
#include <memory>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr std::size_t linesPerKind = 20;
constexpr std::size_t mostJobs = 256;

struct VerifyRequest {
    VerifySettings settings;
    std::string report;
    bool noPrograms = false;
    bool overwrite = false;
    bool verbose = false;
};

void checkReport(const VerifyRequest& request) {
    if (request.report.empty()) return;
    checkIsNoInput(request.report, request.settings.master);
    try {
        checkOutputPath(request.report, request.overwrite);
    } catch (const OutputError& error) {
        throw CommandError(ExitStatus::OutputNotWritten, error.what());
    }
}

void checkIsNoFileOf(const VerifiedDatabase& database, const std::string& report) {
    std::error_code error;
    if (!fs::exists(report, error)) return;
    for (const VerifiedFile& file : database.files) checkIsNoInput(report, file.identity);
}

void writeReport(const VerifiedDatabase& database, const VerifyRequest& request) {
    if (request.report.empty()) return;
    checkIsNoFileOf(database, request.report);
    try {
        WholeFile file(request.report, request.overwrite);
        writeJson(file.stream(), asJson(database, request.settings));
        file.commit();
    } catch (const OutputError& error) {
        throw CommandError(ExitStatus::OutputNotWritten, error.what());
    }
}

void tell(const VerifiedDatabase& database, const VerifyRequest& request) {
    const std::size_t lines = request.verbose ? std::numeric_limits<std::size_t>::max() : linesPerKind;
    writeFindings(std::cerr, database, request.settings.master, lines,
                  request.report.empty() ? "--verbose shows all" : request.report + " has all");
    if (!database.whyProgramsWereLeft.empty()) {
        std::cerr << "sceneutils: programs are not tried: " << withoutControlCharacters(database.whyProgramsWereLeft)
                  << "\n";
    }
    writeSummary(std::cout, database);
}

ExitStatus verify(const VerifyRequest& request) {
    checkReport(request);
    const auto showMessages = [&](const std::string& messages) {
        if (request.verbose) std::cerr << messages;
    };
    const VerifiedDatabase database = verifyDatabase(request.settings, showMessages);
    tell(database, request);
    writeReport(database, request);
    if (database.hasGaps()) return ExitStatus::DonePartly;
    return database.findings() > 0 ? ExitStatus::NotSupported : ExitStatus::Done;
}

}  // namespace

void addVerifyCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command =
        app.add_subcommand("verify", "Load every tile of a paged database and tell whether the database is whole");
    const auto request = std::make_shared<VerifyRequest>();
    VerifySettings& settings = request->settings;
    command->add_option("OUT", settings.master, "The file that leads to all others (.ive)")->required();
    command->add_option("--jobs", settings.jobs, "How many files to load at a time, each in a process of its own")
        ->check(CLI::Range(std::size_t{1}, mostJobs))
        ->capture_default_str();
    command->add_option("--time-limit", settings.secondsPerFile, "Processor time that one file may take, in seconds")
        ->check(CLI::Range(1u, 86400u))
        ->capture_default_str();
    command->add_flag("--no-programs", request->noPrograms,
                      "Do not compile the GLSL programs (default: with this machine's OpenGL driver, if there is one)");
    command->add_option("--report", request->report, "Also write what was found to this JSON file");
    command->add_flag("--overwrite", request->overwrite, "Replace a report that exists");
    command->add_flag("--verbose", request->verbose,
                      "Show all findings (default: 20 of a kind) and the messages of OpenSceneGraph");
    command->footer(
        std::string(
            "Status here: 0 all is right, 2 OUT itself cannot be loaded, 3 all was loaded, and something in it is\n"
            "not right, 5 files are missing or cannot be loaded, so that what lies below them was not looked at.") +
        "\n\n" + app.get_footer());
    command->callback([request, &result] {
        request->settings.checksPrograms = !request->noPrograms;
        endCleanlyOnSignals();
        result = verify(*request);
    });
}

}  // namespace veltrane::sceneutils::tool
