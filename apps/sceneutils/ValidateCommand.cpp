#include "Command.h"

#include "files/Interruption.h"
#include "files/JsonGeometry.h"
#include "files/PlainText.h"
#include "plan/FindingReport.h"
#include "plan/ReferenceGraph.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <set>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr int reportVersion = 1;

struct ValidateRequest {
    std::vector<std::string> files;
    std::string root;
    std::vector<std::string> allowedFolders;
    bool json = false;
};

/** What is wrong with several databases; files that they share are told and counted once. */
class Validation {
public:
    explicit Validation(const ValidateRequest& request) : _request(request) {}

    void add(const std::string& file) {
        try {
            add(buildReferenceGraph(file,
                                    {_request.root, {_request.allowedFolders.begin(), _request.allowedFolders.end()}}),
                file);
        } catch (const CommandError& error) {
            if (error.status() != ExitStatus::InputUnreadable) throw;
            addUnreadable(file, error.what());
        }
    }

    ExitStatus tell() const {
        _request.json ? writeJson(std::cout, asJson()) : writeTotals();
        return _errors > 0 ? ExitStatus::InputUnreadable : ExitStatus::Done;
    }

private:
    void add(const ReferenceGraph& graph, const std::string& master) {
        const FindingReport report(graph, master);
        for (const GraphFile& file : graph.files) _files.insert(file.path);
        for (const Finding& finding : graph.findings) {
            nlohmann::json json = report.asJson(finding);
            if (!_told.insert(json.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace)).second) continue;
            add(finding.severity, report.lineOf(finding), std::move(json));
        }
    }

    void addUnreadable(const std::string& file, const std::string& problem) {
        if (!_told.insert(file).second) return;
        add(Severity::Error, "error: " + withVisibleControlCharacters(problem),
            {{"kind", nameOf(FindingKind::Unreadable)},
             {"severity", nameOf(Severity::Error)},
             {"file", file},
             {"offset", nullptr},
             {"reference", nullptr},
             {"message", withVisibleControlCharacters(problem.substr(file.size() + 2))},
             {"files", nlohmann::json::array()}});
    }

    void add(Severity severity, const std::string& line, nlohmann::json json) {
        ++(severity == Severity::Error ? _errors : _warnings);
        if (_request.json) {
            _findings.push_back(std::move(json));
        } else {
            std::cout << line << "\n";
        }
    }

    void writeTotals() const {
        std::cout << plural(_files.size(), "file", "files") << ", " << plural(_errors, "error", "errors") << ", "
                  << plural(_warnings, "warning", "warnings") << "\n";
    }

    nlohmann::json asJson() const {
        return {{"version", reportVersion},
                {"command", "validate"},
                {"inputs", _request.files},
                {"options", {{"root", _request.root}, {"allowOutside", _request.allowedFolders}}},
                {"totals", {{"files", _files.size()}, {"errors", _errors}, {"warnings", _warnings}}},
                {"findings", _findings}};
    }

    const ValidateRequest& _request;
    std::set<std::string> _files;  ///< real paths
    std::set<std::string> _told;
    std::size_t _errors = 0;
    std::size_t _warnings = 0;
    nlohmann::json _findings = nlohmann::json::array();
};

ExitStatus validate(const ValidateRequest& request) {
    Validation validation(request);
    for (const std::string& file : request.files) validation.add(file);
    return validation.tell();
}

}  // namespace

void addValidateCommand(CLI::App& app, ExitStatus& result) {
    CLI::App* command = app.add_subcommand("validate", "Tell what is wrong with OpenFlight files and their references");
    const auto request = std::make_shared<ValidateRequest>();
    command->add_option("FILE", request->files, "OpenFlight files, each with all that it refers to")->required();
    command->add_option("--root", request->root,
                        "The folder of the database, which references must not leave (that of each FILE)");
    command
        ->add_option("--allow-outside", request->allowedFolders,
                     "A folder elsewhere that references may lead to; may be given several times")
        ->allow_extra_args(false);
    command->add_flag("--json", request->json, "Write everything as JSON");
    command->callback([request, &result] {
        endCleanlyOnSignals();
        result = validate(*request);
    });
}

}  // namespace veltrane::sceneutils::tool
