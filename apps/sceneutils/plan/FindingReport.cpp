#include "FindingReport.h"

#include "../files/PlainText.h"

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

bool concernsAFileAsNamed(FindingKind kind) {
    return kind == FindingKind::Unreadable || kind == FindingKind::Damaged || kind == FindingKind::TooDeep;
}

}  // namespace

const char* nameOf(FindingKind kind) {
    switch (kind) {
        case FindingKind::Unreadable:
            return "unreadable";
        case FindingKind::Damaged:
            return "damaged";
        case FindingKind::Record:
            return "record";
        case FindingKind::Name:
            return "name";
        case FindingKind::Missing:
            return "missing";
        case FindingKind::Node:
            return "node";
        case FindingKind::Outside:
            return "outside";
        case FindingKind::Other:
            return "other";
        case FindingKind::TooDeep:
            return "tooDeep";
        case FindingKind::Cycle:
            return "cycle";
        case FindingKind::Duplicate:
            break;
    }
    return "duplicate";
}

const char* nameOf(Severity severity) {
    return severity == Severity::Error ? "error" : "warning";
}

FindingReport::FindingReport(const ReferenceGraph& graph, const fs::path& master)
    : _graph(graph),
      _realFolder(fs::path(graph.files.front().path).parent_path().string()),
      _folder(master.parent_path()) {
    std::error_code error;
    // A master that is a link leads to another folder than that of its name.
    const fs::path real = fs::canonical(_folder.empty() ? fs::path(".") : _folder, error);
    if (error || real != _realFolder) _folder = _realFolder;
}

std::string FindingReport::lineOf(const Finding& finding) const {
    const std::string text = shownPath(finding.file) + ": " + finding.message + namedBy(finding);
    return std::string(nameOf(finding.severity)) + ": " + withVisibleControlCharacters(text);
}

nlohmann::json FindingReport::asJson(const Finding& finding) const {
    nlohmann::json json = {{"kind", nameOf(finding.kind)},
                           {"severity", nameOf(finding.severity)},
                           {"file", _graph.files[finding.file].path},
                           {"offset", nullptr},
                           {"reference", nullptr},
                           {"message", withVisibleControlCharacters(finding.message)},
                           {"files", nlohmann::json::array()}};
    if (finding.offset) json["offset"] = *finding.offset;
    if (finding.reference) json["reference"] = *finding.reference;
    for (const std::size_t file : finding.files) json["files"].push_back(_graph.files[file].path);
    return json;
}

std::string FindingReport::shownPath(std::size_t file) const {
    const std::string& path = _graph.files[file].path;
    const std::size_t length = _realFolder == "/" ? 0 : _realFolder.size();
    const bool isBelow = path.compare(0, length, _realFolder, 0, length) == 0 && path[length] == '/';
    return isBelow ? (_folder / path.substr(length + 1)).string() : path;
}

std::string FindingReport::namedBy(const Finding& finding) const {
    const std::optional<std::size_t> namedBy = _graph.files[finding.file].namedBy;
    if (!namedBy || !concernsAFileAsNamed(finding.kind)) return {};
    return " (named by " + shownPath(*namedBy) + ")";
}

}  // namespace veltrane::sceneutils::tool
