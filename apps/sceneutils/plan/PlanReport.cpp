#include "PlanReport.h"

#include "../files/JsonGeometry.h"
#include "../files/PlainText.h"
#include "FindingReport.h"

#include <algorithm>

namespace veltrane::sceneutils::tool {

namespace {

using nlohmann::json;

constexpr int planVersion = 1;

struct Totals {
    std::uint64_t files = 0, toConvert = 0, references = 0, bytes = 0, levels = 0;

    explicit Totals(const ReferenceGraph& graph) : files(graph.files.size()) {
        for (const GraphFile& file : graph.files) {
            toConvert += file.order.has_value() ? 1 : 0;
            references += file.references.size();
            bytes += file.bytes;
            levels = std::max<std::uint64_t>(levels, file.level);
        }
    }
};

const char* nameOf(ReferenceStatus status) {
    switch (status) {
        case ReferenceStatus::Followed:
            return "followed";
        case ReferenceStatus::Other:
            return "other";
        case ReferenceStatus::Outside:
            return "outside";
        case ReferenceStatus::Missing:
            break;
    }
    return "missing";
}

json asJson(const GraphReference& reference) {
    json result = {{"name", reference.name},
                   {"offset", reference.offset},
                   {"status", nameOf(reference.status)},
                   {"path", nullptr},
                   {"file", nullptr}};
    if (!reference.path.empty()) result["path"] = reference.path;
    if (reference.target != GraphReference::none) result["file"] = reference.target;
    return result;
}

json asJson(const GraphFile& file) {
    json references = json::array();
    for (const GraphReference& reference : file.references) references.push_back(asJson(reference));
    json result = {{"path", file.path},  {"name", file.name}, {"bytes", file.bytes},       {"level", file.level},
                   {"namedBy", nullptr}, {"order", nullptr},  {"inCycle", file.isInCycle}, {"references", references}};
    if (file.namedBy) result["namedBy"] = *file.namedBy;
    if (file.order) result["order"] = *file.order;
    return result;
}

json totalsAsJson(const ReferenceGraph& graph) {
    const Totals totals(graph);
    return {{"files", totals.files},
            {"filesToConvert", totals.toConvert},
            {"references", totals.references},
            {"bytes", totals.bytes},
            {"levels", totals.levels},
            {"errors", graph.count(Severity::Error)},
            {"warnings", graph.count(Severity::Warning)}};
}

}  // namespace

void writePlan(std::ostream& out, const ReferenceGraph& graph, const std::filesystem::path& master) {
    const FindingReport report(graph, master);
    json files = json::array();
    for (const GraphFile& file : graph.files) files.push_back(asJson(file));
    json findings = json::array();
    for (const Finding& finding : graph.findings) findings.push_back(report.asJson(finding));
    writeJson(out, {{"version", planVersion},
                    {"command", "plan"},
                    {"input", graph.files.front().path},
                    {"options", {{"root", graph.root}, {"allowOutside", graph.allowedFolders}}},
                    {"totals", totalsAsJson(graph)},
                    {"files", std::move(files)},
                    {"findings", std::move(findings)}});
}

std::string summaryOf(const ReferenceGraph& graph) {
    const Totals totals(graph);
    return plural(totals.files, "file", "files") + ", " + std::to_string(totals.toConvert) + " to convert, " +
           plural(totals.references, "reference", "references") + ", " + plural(totals.levels, "level", "levels") +
           ", " + plural(totals.bytes, "byte", "bytes") + ", " +
           plural(graph.count(Severity::Error), "error", "errors") + ", " +
           plural(graph.count(Severity::Warning), "warning", "warnings");
}

}  // namespace veltrane::sceneutils::tool
