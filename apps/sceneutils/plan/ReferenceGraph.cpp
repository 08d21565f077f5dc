#include "ReferenceGraph.h"

#include "../Command.h"
#include "../files/FileFinder.h"
#include "../files/FlightFile.h"
#include "../files/PlainText.h"
#include "ConversionOrder.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <unordered_map>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* flightEnding = ".flt";

fs::path realFolder(const fs::path& folder, const std::string& option) {
    std::error_code error;
    const fs::path real = fs::canonical(folder.empty() ? "." : folder, error);
    if (error || !fs::is_directory(real, error)) {
        throw CommandError(ExitStatus::Usage, option + ": " + folder.string() + " is not a folder");
    }
    return real;
}

fs::path realMaster(const fs::path& master) {
    if (master.empty()) throw CommandError(ExitStatus::Usage, "the file's name is empty");
    std::error_code error;
    const fs::path real = fs::canonical(master, error);
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory)
        throw CommandError(ExitStatus::InputUnreadable, master.string() + ": no such file");
    if (error) throw CommandError(ExitStatus::InputUnreadable, master.string() + ": " + error.message());
    return real;
}

/** Whether a file lies in a folder or below it; both real. */
bool liesBelow(const std::string& file, const std::string& folder) {
    if (folder == "/") return true;
    return file.size() > folder.size() && file[folder.size()] == '/' && file.compare(0, folder.size(), folder) == 0;
}

/** "tile.flt" of "tile.flt<tower>", which means a single node of that file; empty if the name is not of that form. */
std::string withoutNode(const std::string& name) {
    const std::size_t begin = name.rfind('<');
    if (name.empty() || name.back() != '>' || begin == std::string::npos) return {};
    return name.substr(0, begin);
}

/** What scripts, build files and other systems trip over in a name; empty if there is nothing. */
std::string oddityOf(const std::string& name) {
    const auto has = [&](const char* characters) { return name.find_first_of(characters) != std::string::npos; };
    if (withVisibleControlCharacters(name) != name) return "holds control characters or is not UTF-8";
    if (has("\"'`$")) return "holds quotes or dollar signs";
    if (fs::path(name).is_absolute()) return "is absolute; the database cannot be moved";
    return {};
}

class GraphBuilder {
public:
    ReferenceGraph run(const fs::path& master, const ReferenceGraphOptions& options) {
        const fs::path real = realMaster(master);
        _graph.root = (options.root.empty() ? real.parent_path() : realFolder(options.root, "--root")).string();
        for (const fs::path& folder : options.allowedFolders)
            _graph.allowedFolders.push_back(realFolder(folder, "--allow-outside").string());
        if (!isAllowed(real.string()))
            throw CommandError(ExitStatus::Usage, master.string() + ": lies outside of " + _graph.root);

        addFile(real.string(), 0, std::nullopt);
        for (std::size_t file = 0; file < _graph.files.size(); ++file) read(file);
        orderForConversion(_graph);
        tellDuplicates();
        sortFindings();
        return std::move(_graph);
    }

private:
    bool isAllowed(const std::string& real) const {
        const auto isInside = [&](const std::string& folder) { return liesBelow(real, folder); };
        return isInside(_graph.root) ||
               std::any_of(_graph.allowedFolders.begin(), _graph.allowedFolders.end(), isInside);
    }

    std::size_t addFile(const std::string& real, std::size_t level, std::optional<std::size_t> namedBy) {
        const auto [known, isNew] = _known.try_emplace(real, _graph.files.size());
        if (!isNew) return known->second;
        GraphFile file;
        file.path = real;
        file.name = fs::path(real).lexically_relative(_graph.root).generic_string();
        file.level = level;
        file.namedBy = namedBy;
        _graph.files.push_back(std::move(file));
        return known->second;
    }

    void read(std::size_t file) {
        if (_graph.files[file].level > deepestReferenceLevel) {
            _graph.files[file].isSound = false;
            _graph.files[file].bytes = sizeOf(_graph.files[file].path);
            tell(FindingKind::TooDeep, Severity::Error, file, std::nullopt,
                 "referred to over more than " + std::to_string(deepestReferenceLevel) + " levels");
            return;
        }
        FlightFile scan;
        try {
            scan = scanFlightFile(_graph.files[file].path);
        } catch (const FlightFileError& error) {
            _graph.files[file].isSound = false;
            _graph.files[file].bytes = sizeOf(_graph.files[file].path);
            const FindingKind kind = error.offset() ? FindingKind::Damaged : FindingKind::Unreadable;
            tell(kind, Severity::Error, file, error.offset(), error.what());
            return;
        }
        _graph.files[file].bytes = scan.bytes;
        for (const FlightDefect& defect : scan.defects) {
            const std::string more = defect.count > 1 ? " (and " + std::to_string(defect.count - 1) + " more)" : "";
            tell(FindingKind::Record, defect.severity, file, defect.offset, defect.message + more);
        }
        follow(file, scan.references);
    }

    static std::uint64_t sizeOf(const std::string& path) {
        std::error_code error;
        const std::uintmax_t size = fs::file_size(path, error);
        return error ? 0 : size;
    }

    void follow(std::size_t file, const std::vector<FlightReference>& stored) {
        const fs::path folder = fs::path(_graph.files[file].path).parent_path();
        std::vector<GraphReference> references;
        references.reserve(stored.size());
        _told.clear();
        for (const FlightReference& reference : stored) {
            GraphReference resolved;
            resolved.name = reference.name;
            resolved.offset = reference.offset;
            resolve(resolved, folder, file);
            references.push_back(std::move(resolved));
        }
        for (const auto& [about, finding] : _told) {
            if (finding.count > 1) {
                _graph.findings[finding.index].message +=
                    " (and " + std::to_string(finding.count - 1) + " more such references)";
            }
        }
        _graph.files[file].references = std::move(references);
    }

    void resolve(GraphReference& reference, const fs::path& folder, std::size_t file) {
        if (reference.name.empty())
            return tell(FindingKind::Missing, Severity::Error, file, reference, "names no file");
        const std::string oddity = oddityOf(reference.name);
        if (!oddity.empty()) tell(FindingKind::Name, Severity::Warning, file, reference, oddity);

        const std::optional<fs::path> found = find(reference, folder, file);
        std::error_code error;
        const fs::path real = found ? fs::canonical(*found, error) : fs::path();
        if (!found || error) return tellMissing(reference, folder, file);

        reference.path = real.string();
        if (!isAllowed(reference.path)) {
            reference.status = ReferenceStatus::Outside;
            return tell(FindingKind::Outside, Severity::Error, file, reference,
                        "leads out of the root to " + reference.path + "; --allow-outside DIR allows it");
        }
        // The ending says what reads the file, and links have names of their own.
        if (toLowerCase(found->extension().string()) != flightEnding) {
            reference.status = ReferenceStatus::Other;
            return tell(FindingKind::Other, Severity::Warning, file, reference, "is no OpenFlight file");
        }
        reference.status = ReferenceStatus::Followed;
        reference.target = addFile(reference.path, _graph.files[file].level + 1, file);
    }

    std::optional<fs::path> find(const GraphReference& reference, const fs::path& folder, std::size_t file) {
        if (auto found = _finder.find(folder, reference.name)) return found;
        const std::string wholeFile = withoutNode(reference.name);
        if (wholeFile.empty()) return std::nullopt;
        auto found = _finder.find(folder, wholeFile);
        if (found) {
            tell(FindingKind::Node, Severity::Error, file, reference,
                 "names a single node, which OpenSceneGraph cannot read");
        }
        return found;
    }

    void tellMissing(const GraphReference& reference, const fs::path& folder, std::size_t file) {
        std::error_code error;
        const bool isFolder = fs::is_directory(folder / reference.name, error);
        tell(FindingKind::Missing, Severity::Error, file, reference, isFolder ? "is a folder" : "no such file");
    }

    void tell(FindingKind kind, Severity severity, std::size_t file, std::optional<std::uint64_t> offset,
              const std::string& message) {
        _graph.findings.push_back({kind, severity, file, offset, {}, message, {}});
    }

    /** About a reference; told once for all references of a file that have the same name. */
    void tell(FindingKind kind, Severity severity, std::size_t file, const GraphReference& reference,
              const std::string& message) {
        Told& told = _told[{kind, reference.name}];
        if (++told.count > 1) return;
        told.index = _graph.findings.size();
        const std::string place = "'" + reference.name + "' at byte " + std::to_string(reference.offset) + ": ";
        _graph.findings.push_back({kind, severity, file, reference.offset, reference.name, place + message, {}});
    }

    void tellDuplicates() {
        std::map<std::string, std::vector<std::size_t>> byName;
        for (std::size_t file = 0; file < _graph.files.size(); ++file)
            byName[toLowerCase(fs::path(_graph.files[file].path).filename().string())].push_back(file);
        for (auto& [name, files] : byName) {
            if (files.size() == 1) continue;
            const std::string others = files.size() == 2 ? "" : " and " + std::to_string(files.size() - 2) + " more";
            Finding finding;
            finding.kind = FindingKind::Duplicate;
            finding.severity = Severity::Warning;
            finding.file = files.front();
            finding.message = "has the same name as " + _graph.files[files[1]].name + others;
            finding.files = std::move(files);
            _graph.findings.push_back(std::move(finding));
        }
    }

    void sortFindings() {
        const auto place = [](const Finding& finding) {
            return std::make_tuple(finding.file, finding.offset.value_or(0), finding.kind);
        };
        std::stable_sort(_graph.findings.begin(), _graph.findings.end(),
                         [&](const Finding& a, const Finding& b) { return place(a) < place(b); });
    }

    struct Told {
        std::size_t index = 0;
        std::size_t count = 0;
    };

    ReferenceGraph _graph;
    FileFinder _finder;
    std::unordered_map<std::string, std::size_t> _known;
    std::map<std::pair<FindingKind, std::string>, Told> _told;  ///< of the file that is looked at
};

}  // namespace

std::vector<std::size_t> ReferenceGraph::conversionOrder() const {
    std::vector<std::size_t> order;
    for (std::size_t file = 0; file < files.size(); ++file) {
        if (files[file].order) order.push_back(file);
    }
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return *files[a].order < *files[b].order; });
    return order;
}

std::size_t ReferenceGraph::count(Severity severity) const {
    return static_cast<std::size_t>(std::count_if(
        findings.begin(), findings.end(), [&](const Finding& finding) { return finding.severity == severity; }));
}

std::size_t ReferenceGraph::count(FindingKind kind) const {
    return static_cast<std::size_t>(
        std::count_if(findings.begin(), findings.end(), [&](const Finding& finding) { return finding.kind == kind; }));
}

ReferenceGraph buildReferenceGraph(const fs::path& master, const ReferenceGraphOptions& options) {
    return GraphBuilder().run(master, options);
}

}  // namespace veltrane::sceneutils::tool
