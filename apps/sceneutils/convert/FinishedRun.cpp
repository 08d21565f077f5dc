#include "FinishedRun.h"

#include "../files/FileFinder.h"
#include "../files/WholeFile.h"

#include <osgDB/FileUtils>

#include <algorithm>

namespace fs = std::filesystem;
using nlohmann::json;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* recordName = "finished";

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

FinishedRun::FinishedRun(const ConversionPlan& plan, const JobPlan& jobs, const ConversionReport& report)
    : _request(requestOf(plan.options)), _totals(totalsOf(plan, report)), _files(jobs.seenFiles()) {
    for (const StoredPath& input : plan.inputs) _files.try_emplace(input.string(), stampOf(input));
    _folders = jobs.seenFolders();
    for (const auto& [folder, time] : plan.seenFolders) {
        // Seen by both, and not the same: no time will do.
        const auto [known, isNew] = _folders.try_emplace(folder, time);
        if (!isNew && known->second != time) known->second = 0;
    }
}

void FinishedRun::write(const StateFolder& state) const {
    json folders = json::array();
    for (const auto& [folder, time] : _folders) {
        folders.push_back(folder);
        folders.push_back(time);
    }
    const json record = {_request, _totals, std::move(folders), asJson(_files)};
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
    const std::string content = StateFolder(stateFolderOf(options.output)).read(recordName).value_or("");
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
