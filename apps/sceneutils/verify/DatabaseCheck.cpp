#include "DatabaseCheck.h"

#include "../Command.h"
#include "../convert/ChildPool.h"
#include "../convert/FileConversion.h"
#include "../files/GuardedWork.h"
#include "../files/PlainText.h"
#include "ProgramTrial.h"
#include "TileCheck.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <unordered_map>
#include <utility>

namespace veltrane::sceneutils::tool {

namespace {

using nlohmann::json;

/** A tile may reach that far beyond the sphere within which it is shown: a part of its radius ... */
constexpr double rangeTolerance = 1e-3;
/** ... and of the coordinates, which are floats. */
constexpr double coordinateTolerance = 1e-6;
/** A file that waits for something uses no processor time. By the clock it may take longer, as others work, too. */
constexpr unsigned int clockPerProcessorTime = 10;

ChildLimits limitsOf(const VerifySettings& settings) {
    ChildLimits limits(settings.secondsPerFile);
    limits.seconds = clockPerProcessorTime * settings.secondsPerFile;
    return limits;
}

std::string encode(const json& message) {
    const std::vector<std::uint8_t> bytes = json::to_cbor(message);
    return {bytes.begin(), bytes.end()};
}

/** Goes from file to file. What comes of it does not depend on the number of children. */
class DatabaseCheck {
public:
    DatabaseCheck(const VerifySettings& settings, const std::function<void(const std::string&)>& onMessages)
        : _settings(settings), _onMessages(onMessages) {}

    VerifiedDatabase run() {
        loadPlugIns({"ive"});
        addFile(_settings.master, FileIdentities().of(_settings.master), {});
        loadFiles();
        checkRanges();
        findCycles();
        tryAllPrograms();
        return std::move(_database);
    }

private:
    /** A paged tile and where it is shown. */
    struct Range {
        std::size_t from;
        std::size_t target;
        std::string name;
        ShownWithin shown;
    };

    struct KnownProgram {
        std::string content;
        std::size_t file;
        TileProgram use;
    };

    std::size_t addFile(const std::string& path, const std::string& identity, std::optional<std::size_t> namedBy) {
        const auto [place, isNew] = _numbers.emplace(identity, _database.files.size());
        if (isNew) {
            _database.files.emplace_back();
            VerifiedFile& file = _database.files.back();
            file.path = path;
            file.identity = identity;
            file.namedBy = namedBy;
            _loadedAtOnce.emplace_back();
        }
        return place->second;
    }

    void loadFiles() {
        TileCheck check;
        const ChildLimits limits = limitsOf(_settings);
        ChildPool pool(_settings.jobs, limits, [&](const std::string& path) {
            allowDeepGraphs();
            return encode(check.check(path));
        });
        std::map<std::size_t, TileResult> waiting;
        std::size_t asked = 0;
        std::size_t added = 0;
        while (added < _database.files.size()) {
            while (asked < _database.files.size() && pool.hasIdleChild()) {
                pool.ask(asked, _database.files[asked].path);
                ++asked;
            }
            const ChildPool::Answer answer = pool.nextAnswer();
            TileResult& result = waiting[answer.id];
            if (answer.end) {
                result.problem = whyItEnded(*answer.end, phase::reading, limits);
            } else {
                result = json::from_cbor(answer.text).get<TileResult>();
            }
            // In their order, so that files have the same numbers however many are loaded at a time.
            for (auto next = waiting.find(added); next != waiting.end(); next = waiting.find(++added)) {
                add(added, next->second);
                waiting.erase(next);
            }
        }
    }

    void add(std::size_t number, const TileResult& result) {
        if (_onMessages && !result.messages.empty()) _onMessages(result.messages);
        if (!result.problem.empty()) return addProblem(number, result.problem);
        VerifiedFile& file = _database.files[number];
        file.isLoaded = true;
        file.bytes = result.bytes;
        file.textures = result.textures;
        file.sphere = result.sphere;
        file.findings = result.findings;
        std::map<std::pair<std::string, std::string>, bool> known;
        for (std::size_t i = 0; i < result.references.size(); ++i) {
            const TileReference& reference = result.references[i];
            const bool isNew = known.emplace(std::pair(reference.name, result.identities[i]), true).second;
            addReference(number, reference, result.identities[i], isNew);
        }
        for (const TileProgram& program : result.programs) {
            const auto [place, isNew] = _programNumbers.emplace(program.digest, _programs.size());
            if (isNew) _programs.push_back({program.content, number, program});
        }
    }

    void addProblem(std::size_t number, const std::string& problem) {
        if (number == 0) throw CommandError(ExitStatus::InputUnreadable, _settings.master + ": " + problem);
        _database.files[number].findings.push_back({TileFindingKind::Unreadable, problem, {}, {}});
    }

    void addReference(std::size_t from, const TileReference& reference, const std::string& identity, bool isNew) {
        std::optional<std::size_t> target;
        if (!identity.empty()) target = addFile(reference.path, identity, from);
        if (target && reference.shown) _ranges.push_back({from, *target, reference.name, *reference.shown});
        if (target && reference.isLoadedWithTile) _loadedAtOnce[from].emplace_back(*target, reference.name);
        if (!isNew) return;
        VerifiedFile& file = _database.files[from];
        file.references.push_back({reference.name, target, reference.isRemote});
        if (target) return;
        const auto kind = reference.isRemote ? TileFindingKind::Remote : TileFindingKind::Missing;
        const char* problem = reference.isRemote ? "is on a server, which is not asked" : "no such file";
        const std::string separator = reference.isRemote ? " " : ": ";
        file.findings.push_back({kind, "'" + reference.name + "'" + separator + problem, reference.name, {}});
    }

    void checkRanges() {
        for (const Range& range : _ranges) {
            const osg::BoundingSphere& sphere = _database.files[range.target].sphere;
            if (!sphere.valid()) continue;
            const osg::Vec3d center = sphere.center();
            const double reach = (center - range.shown.center).length() + static_cast<double>(sphere.radius());
            const double tolerance = rangeTolerance * range.shown.radius +
                                     coordinateTolerance * (center.length() + range.shown.center.length());
            // So that what is not a number is told.
            if (reach <= range.shown.radius + tolerance) continue;
            _database.files[range.from].findings.push_back(
                {TileFindingKind::OutsideRange,
                 "'" + range.name + "' reaches " + asText(static_cast<float>(reach)) +
                     " from the center of its paged LOD, but is shown within " +
                     asText(static_cast<float>(range.shown.radius)) + " only",
                 range.name,
                 {}});
        }
    }

    // OpenSceneGraph loads such references while it loads the file that names them, again and again in a circle.
    void findCycles() {
        enum class State { New, Open, Done };
        std::vector<State> states(_database.files.size(), State::New);
        for (std::size_t start = 0; start < states.size(); ++start) {
            if (states[start] != State::New) continue;
            std::vector<std::pair<std::size_t, std::size_t>> path = {{start, 0}};  // files, and which reference is next
            states[start] = State::Open;
            while (!path.empty()) {
                const std::size_t file = path.back().first;
                if (path.back().second == _loadedAtOnce[file].size()) {
                    states[file] = State::Done;
                    path.pop_back();
                    continue;
                }
                const auto& [target, name] = _loadedAtOnce[file][path.back().second++];
                if (states[target] == State::Open) addCycle(file, name);
                if (states[target] != State::New) continue;
                states[target] = State::Open;
                path.emplace_back(target, 0);
            }
        }
    }

    void addCycle(std::size_t file, const std::string& name) {
        _database.files[file].findings.push_back({TileFindingKind::Cycle,
                                                  "'" + name +
                                                      "' is loaded at once with this file, which is loaded at once "
                                                      "with that one: OpenSceneGraph never comes to an end",
                                                  name,
                                                  {}});
    }

    void tryAllPrograms() {
        _database.programs = _programs.size();
        if (!_settings.checksPrograms || _programs.empty()) return;
        std::vector<std::string> contents;
        for (const KnownProgram& program : _programs) contents.push_back(program.content);
        const ProgramTrial trial = tryPrograms(contents, limitsOf(_settings));
        _database.driver = trial.driver;
        _database.whyProgramsWereLeft = trial.whyNot;
        for (std::size_t i = 0; i < trial.logs.size(); ++i) {
            if (!trial.logs[i].empty()) addProgramFinding(_programs[i], trial.logs[i]);
        }
    }

    void addProgramFinding(const KnownProgram& program, const std::string& log) {
        std::string message = "program " + program.use.name + " at " + program.use.place + " fails";
        std::string with;
        for (const std::string& part : program.use.state) with += (with.empty() ? "" : ", ") + part;
        message += " (with " + with + "): " + shortened(log);
        _database.files[program.file].findings.push_back({TileFindingKind::Program, message, {}, log});
    }

    // What fails and the first thing that the driver says of it.
    static std::string shortened(const std::string& log) {
        const std::size_t first = log.find('\n');
        const std::size_t second = first == std::string::npos ? first : log.find('\n', first + 1);
        std::string text = log.substr(0, second);
        std::replace(text.begin(), text.end(), '\n', ' ');
        return text.substr(0, text.find_last_not_of(' ') + 1);
    }

    const VerifySettings& _settings;
    const std::function<void(const std::string&)>& _onMessages;
    VerifiedDatabase _database;
    std::unordered_map<std::string, std::size_t> _numbers;  ///< of files, by their identities
    std::vector<Range> _ranges;
    std::vector<std::vector<std::pair<std::size_t, std::string>>> _loadedAtOnce;  ///< by file
    std::unordered_map<std::uint64_t, std::size_t> _programNumbers;               ///< by digest
    std::vector<KnownProgram> _programs;
};

template <typename Count>
auto sum(const std::vector<VerifiedFile>& files, const Count& count) {
    decltype(count(files.front())) total = 0;
    for (const VerifiedFile& file : files) total += count(file);
    return total;
}

}  // namespace

std::size_t VerifiedDatabase::references() const {
    return sum(files, [](const VerifiedFile& file) { return file.references.size(); });
}

std::size_t VerifiedDatabase::textures() const {
    return sum(files, [](const VerifiedFile& file) { return file.textures; });
}

std::size_t VerifiedDatabase::filesFailed() const {
    return sum(files, [](const VerifiedFile& file) { return file.isLoaded ? std::size_t{0} : std::size_t{1}; });
}

std::size_t VerifiedDatabase::findings() const {
    return sum(files, [](const VerifiedFile& file) { return file.findings.size(); });
}

std::uintmax_t VerifiedDatabase::bytes() const {
    return sum(files, [](const VerifiedFile& file) { return file.bytes; });
}

bool VerifiedDatabase::hasGaps() const {
    return std::any_of(files.begin(), files.end(), [](const VerifiedFile& file) {
        return std::any_of(file.findings.begin(), file.findings.end(),
                           [](const TileFinding& finding) { return leavesAGap(finding.kind); });
    });
}

VerifiedDatabase verifyDatabase(const VerifySettings& settings,
                                const std::function<void(const std::string&)>& onMessages) {
    return DatabaseCheck(settings, onMessages).run();
}

}  // namespace veltrane::sceneutils::tool
