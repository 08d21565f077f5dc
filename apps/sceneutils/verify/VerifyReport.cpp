#include "VerifyReport.h"

#include "../files/JsonGeometry.h"
#include "../files/PlainText.h"

#include <filesystem>
#include <map>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

using nlohmann::json;

constexpr int reportVersion = 1;

/** Files in the words of whoever named the master: seen from its folder, if they lie below. */
class ShownPaths {
public:
    ShownPaths(const VerifiedDatabase& database, const fs::path& master)
        : _realFolder(fs::path(database.files.front().identity).parent_path().string()),
          _folder(master.parent_path()) {}

    std::string of(const VerifiedFile& file) const {
        const std::size_t length = _realFolder == "/" ? 0 : _realFolder.size();
        const bool isBelow = file.identity.compare(0, length, _realFolder, 0, length) == 0 &&
                             file.identity.size() > length && file.identity[length] == '/';
        return isBelow ? (_folder / file.identity.substr(length + 1)).string() : file.identity;
    }

private:
    std::string _realFolder;
    fs::path _folder;
};

json referenceAsJson(const VerifiedReference& reference) {
    json result = {{"name", reference.name},
                   {"status", reference.target     ? "followed"
                              : reference.isRemote ? "remote"
                                                   : "missing"},
                   {"file", nullptr}};
    if (reference.target) result["file"] = *reference.target;
    return result;
}

json fileAsJson(const VerifiedFile& file) {
    json references = json::array();
    for (const VerifiedReference& reference : file.references) references.push_back(referenceAsJson(reference));
    json result = {{"path", file.identity},         {"status", file.isLoaded ? "loaded" : "failed"},
                   {"bytes", file.bytes},           {"textures", file.textures},
                   {"sphere", asJson(file.sphere)}, {"namedBy", nullptr},
                   {"references", references}};
    if (file.namedBy) result["namedBy"] = *file.namedBy;
    return result;
}

json findingAsJson(const VerifiedFile& file, const TileFinding& finding) {
    json result = {{"kind", nameOf(finding.kind)},
                   {"severity", "error"},
                   {"file", file.identity},
                   {"reference", nullptr},
                   {"message", withVisibleControlCharacters(finding.message)},
                   {"log", nullptr}};
    if (!finding.reference.empty()) result["reference"] = finding.reference;
    if (!finding.log.empty()) result["log"] = finding.log;
    return result;
}

json textOrNull(const std::string& text) {
    return text.empty() ? json() : json(text);
}

}  // namespace

void writeFindings(std::ostream& out, const VerifiedDatabase& database, const std::string& master,
                   std::size_t linesPerKind, const std::string& whereAllAre) {
    const ShownPaths paths(database, master);
    std::map<TileFindingKind, std::size_t> counts;
    for (const VerifiedFile& file : database.files) {
        for (const TileFinding& finding : file.findings) {
            if (++counts[finding.kind] > linesPerKind) continue;
            std::string line = "error: " + paths.of(file) + ": " + finding.message;
            const bool concernsTheFileAsNamed = finding.kind == TileFindingKind::Unreadable && file.namedBy;
            if (concernsTheFileAsNamed) line += " (named by " + paths.of(database.files[*file.namedBy]) + ")";
            out << "sceneutils: " << withVisibleControlCharacters(line) << "\n";
        }
    }
    for (const auto& [kind, count] : counts) {
        if (count <= linesPerKind) continue;
        out << "sceneutils: " << count - linesPerKind << " more findings of the kind \"" << nameOf(kind) << "\" ("
            << withoutControlCharacters(whereAllAre) << ")\n";
    }
}

void writeSummary(std::ostream& out, const VerifiedDatabase& database) {
    out << plural(database.files.size(), "file", "files") << ", " << database.filesFailed() << " failed, "
        << plural(database.references(), "reference", "references") << ", "
        << plural(database.textures(), "texture", "textures") << ", "
        << plural(database.programs, "program", "programs");
    if (database.driver.empty() && database.programs > 0) out << " (not tried)";
    out << ", " << plural(database.bytes(), "byte", "bytes") << ", "
        << plural(database.findings(), "finding", "findings") << "\n";
}

json asJson(const VerifiedDatabase& database, const VerifySettings& settings) {
    json files = json::array();
    json findings = json::array();
    for (const VerifiedFile& file : database.files) {
        files.push_back(fileAsJson(file));
        for (const TileFinding& finding : file.findings) findings.push_back(findingAsJson(file, finding));
    }
    return {{"version", reportVersion},
            {"command", "verify"},
            {"input", database.files.front().identity},
            {"options", {{"programs", settings.checksPrograms}, {"timeLimit", settings.secondsPerFile}}},
            {"driver", textOrNull(database.driver)},
            {"programsNotTried", textOrNull(database.whyProgramsWereLeft)},
            {"totals",
             {{"files", database.files.size()},
              {"filesFailed", database.filesFailed()},
              {"references", database.references()},
              {"textures", database.textures()},
              {"programs", database.programs},
              {"bytes", database.bytes()},
              {"findings", database.findings()}}},
            {"files", std::move(files)},
            {"findings", std::move(findings)}};
}

}  // namespace veltrane::sceneutils::tool
