#include "ShaderReport.h"

#include "../files/PlainText.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace veltrane::sceneutils::tool {

namespace {

constexpr int reportVersion = 1;

constexpr const char* nameHeading = "program";
constexpr const char* stateSetsHeading = "state sets";
constexpr const char* keptHeading = "kept";
constexpr int numberWidth = 10;

struct Totals {
    explicit Totals(const std::vector<ListedProgram>& programs) {
        for (const ListedProgram& program : programs) {
            stateSets += program.stateSets;
            kept += program.kept;
        }
    }
    std::size_t stateSets = 0;
    std::size_t kept = 0;
};

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : "; ") + part;
    return text;
}

void writeIndented(std::ostream& out, const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) out << "    " << withoutControlCharacters(line) << "\n";
}

nlohmann::json checkAsJson(const ShaderReport& report, const ListedProgram& program) {
    const auto failure = report.failures.find(program.name);
    if (failure == report.failures.end()) return {{"passed", true}};
    const FailedProgram& failed = failure->second;
    return {{"passed", false}, {"log", failed.log}, {"place", failed.place}, {"state", failed.state}};
}

nlohmann::json programAsJson(const ShaderReport& report, const ListedProgram& program) {
    nlohmann::json json = {{"name", program.name}, {"stateSets", program.stateSets}, {"kept", program.kept}};
    const auto files = report.savedFiles.find(program.name);
    if (files != report.savedFiles.end()) json["files"] = files->second;
    if (report.checked) json["check"] = checkAsJson(report, program);
    return json;
}

}  // namespace

void writeTable(std::ostream& out, const ShaderReport& report) {
    const Totals totals(report.programs);
    const std::string total = "total: " + std::to_string(report.programs.size());
    std::size_t width = std::max(std::string(nameHeading).size(), total.size());
    for (const ListedProgram& program : report.programs) width = std::max(width, program.name.size());
    const auto writeLine = [&](const std::string& name, const auto& stateSets, const auto& kept) {
        out << std::left << std::setw(static_cast<int>(width)) << name << std::right << "  " << std::setw(numberWidth)
            << stateSets << "  " << std::setw(numberWidth) << kept << "\n";
    };

    writeLine(nameHeading, stateSetsHeading, keptHeading);
    for (const ListedProgram& program : report.programs) writeLine(program.name, program.stateSets, program.kept);
    writeLine(total, totals.stateSets, totals.kept);
}

void writeFailures(std::ostream& out, const ShaderReport& report) {
    for (const ListedProgram& program : report.programs) {
        const auto failure = report.failures.find(program.name);
        if (failure == report.failures.end()) continue;
        const FailedProgram& failed = failure->second;
        out << "sceneutils: program " << program.name << " fails\n"
            << "  at " << failed.place;
        if (program.stateSets > 1) out << " and others, " << program.stateSets << " state sets in all";
        out << "\n  with " << joined(failed.state) << "\n";
        writeIndented(out, failed.log);
    }
}

nlohmann::json asJson(const ShaderReport& report) {
    const Totals totals(report.programs);
    nlohmann::json programs = nlohmann::json::array();
    for (const ListedProgram& program : report.programs) programs.push_back(programAsJson(report, program));
    nlohmann::json json = {
        {"version", reportVersion},
        {"command", "shaders"},
        {"input", report.input},
        {"written", report.written},
        {"options",
         {{"lighting", report.settings.lighting},
          {"normalMapping", report.settings.normalMapping},
          {"fog", report.settings.fog},
          {"check", report.checked}}},
        {"totals", {{"programs", report.programs.size()}, {"stateSets", totals.stateSets}, {"kept", totals.kept}}},
        {"programs", programs},
    };
    if (!report.output.empty()) json["output"] = report.output;
    if (report.settings.shadowUnit >= 0) json["options"]["shadowUnit"] = report.settings.shadowUnit;
    if (report.checked) {
        json["driver"] = report.driver;
        json["totals"]["failed"] = report.failures.size();
    }
    return json;
}

}  // namespace veltrane::sceneutils::tool
