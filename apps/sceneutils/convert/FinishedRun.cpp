#include "FinishedRun.h"

#include "../files/WholeFile.h"
#include "StateLock.h"

#include <osgDB/FileUtils>

#include <algorithm>

namespace fs = std::filesystem;
using nlohmann::json;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* recordName = "run.finished";
constexpr const char* attributesEnding = ".attr";

/** Everything but the files that decides what comes out. */
std::string requestOf(const ConversionOptions& options) {
    json request = {toolName(),
                    fs::absolute(options.input).string(),
                    fs::absolute(options.output).string(),
                    options.recurse,
                    options.convertReferences,
                    options.maxRange,
                    options.smooth,
                    static_cast<int>(options.textures)};
    for (const std::string& folder : osgDB::getDataFilePathList()) request.push_back(fs::absolute(folder).string());
    const std::vector<std::uint8_t> bytes = json::to_cbor(request);
    return {bytes.begin(), bytes.end()};
}

json asJson(const std::map<std::string, std::optional<FileStamp>>& files) {
    json result = json::array();
    for (const auto& [path, stamp] : files) {
        result.push_back(path);
        result.push_back(stamp ? json(stamp->size) : json(nullptr));
        result.push_back(stamp ? json(stamp->time) : json(nullptr));
    }
    return result;
}

bool isAsItWas(const std::string& path, const json& size, const json& time) {
    const auto stamp = stampOf(path);
    if (size.is_null()) return !stamp;
    return stamp && stamp->size == size.get<std::uintmax_t>() && stamp->time == time.get<std::int64_t>();
}

bool areAsTheyWere(const json& files) {
    for (std::size_t i = 0; i + 2 < files.size(); i += 3) {
        if (!isAsItWas(files[i].get_ref<const std::string&>(), files[i + 1], files[i + 2])) return false;
    }
    return true;
}

}  // namespace

FinishedRun::FinishedRun(const ConversionPlan& plan, const ConversionReport& report)
    : _plan(plan), _totals(totalsOf(plan, report)) {
    for (const StoredPath& input : plan.inputs) _files.emplace(input.string(), stampOf(input));
}

// As the job has seen them: what has changed since is not what the output was made from.
void FinishedRun::add(const PlannedJob& planned, const StoredResult& result) {
    _files[planned.job.conversion.path.string()] = planned.job.input;
    if (result.output) _files[planned.job.conversion.output.string()] = result.output;
    for (const auto& [place, stamp] : result.textures) _files[place] = stamp;
    for (const Lookup& lookup : result.lookups) {
        const auto found = _finder.findTexture(lookup.folder, lookup.name);
        if (found.value_or(fs::path()).string() != lookup.found.string()) _isCertain = false;
        if (lookup.found.empty()) continue;
        _files[lookup.found.string()] = lookup.stamp;
        _files[lookup.found.string() + attributesEnding] = lookup.attributes;
    }
}

/** Those in which something is looked for that is not there, with their times when that was so. */
std::map<std::string, std::int64_t> FinishedRun::folders() const {
    std::map<std::string, std::int64_t> folders = _plan.seenFolders;
    for (const auto& [folder, time] : _finder.foldersThatDecided()) {
        const auto [known, isNew] = folders.try_emplace(folder, time);
        if (!isNew && known->second != time) known->second = 0;  // whatever it is next time, it is another one
    }
    return folders;
}

void FinishedRun::write(const StateFolder& state) const {
    if (!_isCertain) return forget(state);
    json asSeen = json::array();
    for (const auto& [folder, time] : folders()) {
        asSeen.push_back(folder);
        asSeen.push_back(time);
    }
    const json record = {requestOf(_plan.options), _totals, std::move(asSeen), asJson(_files)};
    const std::vector<std::uint8_t> bytes = json::to_cbor(record);
    const std::string content(bytes.begin(), bytes.end());
    try {
        state.write(recordName, asHexadecimal(hashOf(content)) + content);
    } catch (const OutputError&) {  // then the next run looks at all files again
        forget(state);
    }
}

void FinishedRun::forget(const StateFolder& state) {
    std::error_code error;
    fs::remove(state.path() / recordName, error);
}

std::optional<ConversionTotals> FinishedRun::unchanged(const ConversionOptions& options) {
    if (options.input.empty() || options.output.empty()) return std::nullopt;
    const StateFolder state(stateFolderOf(options.output));
    // What is in the lock stands for a run that is at work, or was ended before it had cleaned up.
    const auto lock = StateLock::lastUseOf(state.path());
    if (!lock || lock->size != 0) return std::nullopt;
    const std::string content = state.read(recordName).value_or("");
    const std::size_t digits = asHexadecimal(0).size();
    if (content.size() < digits) return std::nullopt;
    const std::string record = content.substr(digits);
    if (asHexadecimal(hashOf(record)) != content.substr(0, digits)) return std::nullopt;

    const json run = json::from_cbor(record, true, false);
    if (!run.is_array() || run.size() != 4 || run[0] != requestOf(options)) return std::nullopt;
    const json& folders = run[2];
    for (std::size_t i = 0; i + 1 < folders.size(); i += 2) {
        if (timeOfFolder(folders[i].get<std::string>()) != folders[i + 1].get<std::int64_t>()) return std::nullopt;
    }
    if (!areAsTheyWere(run[3])) return std::nullopt;
    return run[1].get<ConversionTotals>();
}

}  // namespace veltrane::sceneutils::tool
