#include "OptimizeReport.h"

#include <algorithm>
#include <cstdint>
#include <iomanip>
#include <sstream>

namespace veltrane::sceneutils::tool {

namespace {

constexpr int reportVersion = 1;
constexpr int labelWidth = 26;
constexpr int numberWidth = 12;
constexpr int shownDigits = 3;

struct Line {
    const char* label;
    const char* key;  ///< in JSON
    std::uint64_t SceneCounts::*count;
};

constexpr Line lines[] = {
    {"groups", "groups", &SceneCounts::groups},
    {"LODs", "lods", &SceneCounts::lods},
    {"geodes", "geodes", &SceneCounts::geodes},
    {"drawables", "drawables", &SceneCounts::drawables},
    {"primitive sets", "primitiveSets", &SceneCounts::primitiveSets},
    {"vertices", "vertices", &SceneCounts::vertices},
    {"triangles", "triangles", &SceneCounts::triangles},
    {"state sets", "stateSets", &SceneCounts::stateSets},
    {"programs", "programs", &SceneCounts::programs},
    {"memory in bytes", "bytes", &SceneCounts::bytes},
};

nlohmann::json asJson(const SceneCounts& counts) {
    nlohmann::json json;
    for (const Line& line : lines) json[line.key] = counts.*line.count;
    return json;
}

const char* nameOf(SceneDifference::Check check) {
    switch (check) {
        case SceneDifference::Check::Position:
            return "position";
        case SceneDifference::Check::Visibility:
            return "visibility";
        case SceneDifference::Check::State:
            break;
    }
    return "state";
}

nlohmann::json checkAsJson(const Optimization& result) {
    nlohmann::json differences = nlohmann::json::array();
    for (const SceneDifference& difference : result.differences)
        differences.push_back(
            {{"check", nameOf(difference.check)}, {"count", difference.count}, {"text", difference.text}});
    return {{"primitives", result.primitives},
            {"distances", result.distances},
            {"tolerance", result.tolerance},
            {"largestDisplacement", result.largestDisplacement},
            {"differences", differences}};
}

nlohmann::json optionsAsJson(const OptimizeReport& report) {
    nlohmann::json json = {{"keepNames", report.options.keptNames},
                           {"unspatializeRadius", report.options.unspatializeRadius},
                           {"flattenWithin", nullptr},
                           {"dryRun", report.dryRun},
                           {"overwrite", report.overwrite}};
    if (report.options.flattenWithin) json["flattenWithin"] = *report.options.flattenWithin;
    return json;
}

}  // namespace

void writeTable(std::ostream& out, const OptimizeReport& report) {
    std::ostringstream table;
    const auto writeLine = [&table](const std::string& label, const auto& before, const auto& after) {
        table << std::left << std::setw(labelWidth) << label << std::right << std::setw(numberWidth) << before
              << std::setw(numberWidth) << after << "\n";
    };
    const Optimization& result = report.result;
    writeLine("", "before", "after");
    for (const Line& line : lines) writeLine(line.label, result.before.*line.count, result.after.*line.count);

    table << "\n"
          << std::left << std::setw(labelWidth) << "step" << std::right << std::setw(numberWidth) << "seconds"
          << "\n"
          << std::fixed << std::setprecision(shownDigits);
    for (const StepTime& step : result.steps)
        table << std::left << std::setw(labelWidth) << step.step << std::right << std::setw(numberWidth) << step.seconds
              << "\n";
    out << table.str();
}

nlohmann::json asJson(const OptimizeReport& report) {
    const Optimization& result = report.result;
    nlohmann::json steps = nlohmann::json::array();
    for (const StepTime& step : result.steps) steps.push_back({{"step", step.step}, {"seconds", step.seconds}});
    nlohmann::json lost = nlohmann::json::array();
    for (const LostName& name : result.lostNames)
        lost.push_back({{"name", name.name}, {"before", name.before}, {"after", name.after}});
    return {{"version", reportVersion},        {"command", "optimize"},
            {"input", report.input},           {"output", report.output},
            {"written", report.written},       {"options", optionsAsJson(report)},
            {"before", asJson(result.before)}, {"after", asJson(result.after)},
            {"rounds", result.rounds},         {"steps", steps},
            {"check", checkAsJson(result)},    {"names", {{"unknown", result.unknownNames}, {"lost", lost}}}};
}

}  // namespace veltrane::sceneutils::tool
