#include "JobPlan.h"

#include "../Command.h"
#include "../files/FileFinder.h"
#include "../files/FlightFile.h"

#include <osg/Version>

#include <algorithm>
#include <set>
#include <system_error>
#include <tuple>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* attributesEnding = ".attr";
constexpr const char* paletteFileEnding = ".flt";

std::string nameOf(const fs::path& path) {
    return path.filename().string();
}

/** Says what is different in a job, seen from the one of before. */
std::string whatChanged(const StoredJob& before, const StoredJob& now) {
    const ConversionJob& old = before.conversion;
    const ConversionJob& current = now.conversion;
    if (before.tool != now.tool) return "was converted by another version (" + before.tool + ")";
    if (before.input != now.input) return "has changed";
    if (old.maxRange != current.maxRange || old.smooths != current.smooths ||
        old.convertsReferences != current.convertsReferences || old.output != current.output ||
        old.textures != current.textures) {
        return "the options have changed";
    }
    if (before.palettes.size() != now.palettes.size() ||
        !std::equal(before.palettes.begin(), before.palettes.end(), now.palettes.begin(),
                    [](const PaletteStep& a, const PaletteStep& b) { return a.file == b.file; })) {
        return "takes other palettes";
    }
    return "what it refers to has changed";
}

/** Looks whether everything that was found while a file was read would be found again. */
class LookupCheck {
public:
    /** What is different, or nothing. */
    std::string changeIn(const std::vector<Lookup>& lookups) {
        for (const Lookup& lookup : lookups) {
            const std::string change = changeOf(lookup);
            if (!change.empty()) return nameOf(lookup.name) + change;
        }
        return {};
    }

private:
    std::string changeOf(const Lookup& lookup) {
        const fs::path found = _finder.findTexture(lookup.folder, lookup.name).value_or(fs::path());
        if (found.empty()) return lookup.found.empty() ? "" : " is missing";
        if (lookup.found.empty()) return " is there now";
        if (found.string() != lookup.found.string()) return " is another file";
        if (stampOf(found) != lookup.stamp) return " has changed";
        if (stampOf(found.string() + attributesEnding) != lookup.attributes) return ": its attributes have changed";
        return {};
    }

    FileFinder _finder;
};

}  // namespace

std::string toolName() {
    return std::string("sceneutils " SCENEUTILS_VERSION ", OpenSceneGraph ") + osgGetVersion();
}

class JobPlan::Builder {
public:
    Builder(const ConversionPlan& plan, const StateFolder& state, JobPlan& result)
        : _plan(plan), _state(state), _result(result) {}

    void run() {
        nameJobs();
        for (PlannedJob& planned : _result._jobs) planned.result = _state.result(planned.id);
        checkOutputs(_plan, [this](std::size_t file) { return isOwnOutput(file); });
        for (PlannedJob& planned : _result._jobs) planned.job = storedJob(planned);
        findLevels();
        for (PlannedJob& planned : _result._jobs) decide(planned);
        findThoseThatMayFollow();
        findPlacedTextures();
    }

private:
    void nameJobs() {
        std::set<JobId> taken;
        _result._jobOfFile.assign(_plan.files.size(), noFile);
        for (std::size_t i = 0; i < _plan.files.size(); ++i) {
            const PlannedFile& file = _plan.files[i];
            if (!file.problem.empty()) continue;
            std::uint64_t number = numberOf(file);
            while (!taken.insert(asHexadecimal(number)).second) ++number;
            PlannedJob planned;
            planned.id = asHexadecimal(number);
            planned.file = i;
            _result._jobOfFile[i] = _result._jobs.size();
            _result._jobs.push_back(std::move(planned));
        }
    }

    // By the output, so that it stays known whose that is, whatever becomes of the file or its palettes, and wherever
    // the output folder is moved to.
    std::uint64_t numberOf(const PlannedFile& file) const {
        if (file.output.empty()) return hashOf(file.identity.string()) ^ file.inheritedPalettes;
        return hashOf(relativeName(file.output, _plan.outputFolder));
    }

    bool isOwnOutput(std::size_t file) const {
        const PlannedJob* planned = _result.jobOfFile(file);
        if (!planned) return false;
        const auto stamp = stampOf(_plan.files[file].output);
        if (!stamp) return false;
        const auto& result = planned->result;
        return (result && result->output == stamp) || _state.isIntended(planned->id, *stamp);
    }

    StoredJob storedJob(const PlannedJob& planned) {
        const PlannedFile& file = _plan.files[planned.file];
        StoredJob job;
        job.tool = _tool;
        job.input = file.stamp;
        job.conversion = jobOf(_plan, planned.file);
        for (const PlannedReference& reference : file.references)
            job.spheres.push_back(sourceOf(reference, planned.file));
        job.palettes = paletteSteps(planned.file);
        return job;
    }

    SphereSource sourceOf(const PlannedReference& reference, std::size_t from) const {
        SphereSource source;
        if (reference.target == noFile || !_plan.files[reference.target].problem.empty()) return source;
        if (reference.closesCircle) {
            source.kind = SphereSource::Kind::Circle;
            if (reference.target == from) return source;
            source.path = _plan.files[reference.target].path;
            source.stamp = _plan.files[reference.target].stamp;
            return source;
        }
        source.kind = SphereSource::Kind::Job;
        source.job = _result.jobOfFile(reference.target)->id;
        return source;
    }

    std::vector<PaletteStep> paletteSteps(std::size_t index) {
        const PlannedFile& file = _plan.files[index];
        if (file.inheritsPalettes == PerPalette<bool>{}) return {};
        std::vector<PaletteStep> steps = paletteSteps(file.namedBy);
        const StoredPath& parent = _plan.files[file.namedBy].path;
        steps.push_back({paletteFile(parent, file.namedByReference, file.inheritsPalettes), parent.parent_path()});
        return steps;
    }

    std::string paletteFile(const StoredPath& parent, std::size_t reference, const PerPalette<bool>& kinds) {
        std::string& known = _paletteFiles[{parent, kinds}];
        if (!known.empty()) return known;
        const std::string content = readPalettes(parent, reference, kinds);
        known = asHexadecimal(hashOf(content)) + paletteFileEnding;
        _result._paletteFiles[known] = content;
        return known;
    }

    static std::string readPalettes(const StoredPath& parent, std::size_t reference, const PerPalette<bool>& kinds) {
        try {
            return palettesHandedOn(parent, reference, kinds);
        } catch (const FlightFileError& error) {  // it has changed since it was planned
            throw CommandError(ExitStatus::InputUnreadable, parent.string() + ": " + error.what());
        }
    }

    // A file stands in the plan before those that it is the first to refer to, but not before all that it refers to.
    void findLevels() {
        std::map<JobId, std::size_t> places;
        for (std::size_t i = 0; i < _result._jobs.size(); ++i) places[_result._jobs[i].id] = i;
        std::vector<bool> isKnown(_result._jobs.size());
        for (std::size_t i = 0; i < _result._jobs.size(); ++i) levelOf(i, places, isKnown);
    }

    // As deep as references go, which is limited.
    unsigned int levelOf(std::size_t index, const std::map<JobId, std::size_t>& places, std::vector<bool>& isKnown) {
        PlannedJob& planned = _result._jobs[index];
        if (isKnown[index]) return planned.level;
        for (const SphereSource& source : planned.job.spheres) {
            if (source.kind != SphereSource::Kind::Job) continue;
            planned.level = std::max(planned.level, levelOf(places.at(source.job), places, isKnown) + 1);
        }
        isKnown[index] = true;
        return planned.level;
    }

    void decide(PlannedJob& planned) {
        const auto before = _state.job(planned.id);
        if (!before) {
            planned.reason = "has not been converted yet";
        } else {
            planned.job.attempt = before->attempt;
            const bool isSame = identityOf(*before) == identityOf(planned.job);
            planned.reason = isSame ? whyAgain(planned, *before) : whatChanged(*before, planned.job);
            planned.isRewritten = !isSame;
            if (isSame && !planned.reason.empty()) {
                // Ninja goes by the time of the job's file.
                ++planned.job.attempt;
                planned.isRewritten = true;
            }
        }
        planned.isRewritten = planned.isRewritten || !before;
        planned.job.reason = planned.reason;
    }

    /** Why a job is to be done that is the same as before; empty if it is not. */
    std::string whyAgain(const PlannedJob& planned, const StoredJob& before) {
        const auto& result = planned.result;
        if (!result || result->job != identityOf(before)) {
            return before.reason.empty() ? "was not finished" : before.reason;
        }
        if (!result->result.problem.empty()) return "failed: " + result->result.problem;
        const std::string change = _lookups.changeIn(result->lookups);
        if (!change.empty()) return change;
        const std::string loss = whatIsGone(planned, *result);
        if (!loss.empty()) return loss;
        if (!isUpToDate(_state, planned.id, before, *result)) return "a bounding sphere that it needs has changed";
        return {};
    }

    std::string whatIsGone(const PlannedJob& planned, const StoredResult& result) {
        const StoredPath& output = planned.job.conversion.output;
        if (!output.empty()) {
            const auto stamp = stampOf(output);
            if (!stamp) return "its output is missing";
            if (stamp != result.output) return "its output has been changed";
        }
        for (const auto& [place, stamp] : result.textures) {
            // One of the files that use it is enough to bring it back.
            if (stampOf(place) != stamp && _missedTextures.insert(place).second)
                return "the texture " + nameOf(place) + " is missing or has been changed";
        }
        return {};
    }

    void findThoseThatMayFollow() {
        std::vector<PlannedJob*> byLevel;
        std::set<JobId> maybeChanged;
        for (PlannedJob& planned : _result._jobs) byLevel.push_back(&planned);
        std::stable_sort(byLevel.begin(), byLevel.end(),
                         [](const PlannedJob* a, const PlannedJob* b) { return a->level < b->level; });
        for (PlannedJob* planned : byLevel) {
            const auto& spheres = planned->job.spheres;
            planned->mayFollow =
                planned->reason.empty() && std::any_of(spheres.begin(), spheres.end(), [&](const SphereSource& source) {
                    return maybeChanged.count(source.job) != 0;
                });
            if (planned->mayFollow || !planned->reason.empty()) maybeChanged.insert(planned->id);
        }
    }

    // Any job may replace what another has put there, be that one part of the database or not any more.
    void findPlacedTextures() {
        const auto add = [this](const std::map<std::string, FileStamp>& textures) {
            for (const auto& [place, stamp] : textures) {
                if (stampOf(place) == stamp) _result._placedTextures[place] = stamp;
            }
        };
        add(_state.placedTextures());
        for (const PlannedJob& planned : _result._jobs) {
            if (planned.result) add(planned.result->own);
        }
        for (const JobId& id : jobsThatAreGone()) {
            const auto result = _state.result(id);
            if (result) add(result->own);
        }
    }

    /** Those that the state has, and the plan has not. */
    std::vector<JobId> jobsThatAreGone() const {
        std::set<std::string> known;
        for (const PlannedJob& planned : _result._jobs) known.insert(StateFolder::jobName(planned.id));
        std::vector<JobId> gone;
        std::error_code error;
        for (const fs::directory_entry& entry : fs::directory_iterator(_state.path(), error)) {
            const fs::path name = entry.path().filename();
            const bool isJob = name == StateFolder::jobName(name.stem().string());
            if (isJob && known.count(name.string()) == 0) gone.push_back(name.stem().string());
        }
        return gone;
    }

    const ConversionPlan& _plan;
    const StateFolder& _state;
    JobPlan& _result;
    const std::string _tool = toolName();
    LookupCheck _lookups;
    std::map<std::pair<StoredPath, PerPalette<bool>>, std::string> _paletteFiles;
    std::set<std::string> _missedTextures;
};

JobPlan::JobPlan(const ConversionPlan& plan, const StateFolder& state) {
    Builder(plan, state, *this).run();
}

bool JobPlan::areUpToDate() const {
    return std::all_of(_jobs.begin(), _jobs.end(), [](const PlannedJob& planned) { return planned.reason.empty(); });
}

const PlannedJob* JobPlan::jobOfFile(std::size_t file) const {
    return _jobOfFile[file] == noFile ? nullptr : &_jobs[_jobOfFile[file]];
}

void JobPlan::write(const StateFolder& state) const {
    std::set<std::string> known;
    for (const auto& [name, content] : _paletteFiles) {
        known.insert(name);
        state.writeIfDifferent(name, content);
    }
    for (const PlannedJob& planned : _jobs) {
        known.insert(planned.id);
        if (planned.isRewritten) state.writeJob(planned.id, planned.job);
    }
    state.writePlacedTextures(_placedTextures);
    state.forgetAllBut(known);
}

}  // namespace veltrane::sceneutils::tool
