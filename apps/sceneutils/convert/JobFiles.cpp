#include "JobFiles.h"

#include "../files/CheckedReading.h"
#include "../files/WholeFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;
using nlohmann::json;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* boundEnding = ".bound";
constexpr const char* intentEnding = ".intent";
constexpr const char* placedTexturesName = "placed-textures";

// CBOR, not JSON text: file names need not be UTF-8.
std::string encode(const json& value) {
    const std::vector<std::uint8_t> bytes = json::to_cbor(value);
    return {bytes.begin(), bytes.end()};
}

json asJson(const std::optional<FileStamp>& stamp) {
    if (!stamp) return nullptr;
    return {stamp->size, stamp->time};
}

std::optional<FileStamp> asStamp(const json& value) {
    if (value.is_null()) return std::nullopt;
    return FileStamp{value.at(0).get<std::uintmax_t>(), value.at(1).get<std::int64_t>()};
}

json asJson(const std::map<std::string, FileStamp>& stamps) {
    json value = json::array();
    for (const auto& [place, stamp] : stamps) value.push_back({place, stamp.size, stamp.time});
    return value;
}

std::map<std::string, FileStamp> asStamps(const json& value) {
    std::map<std::string, FileStamp> stamps;
    for (const json& entry : value) {
        stamps[entry.at(0)] = {entry.at(1).get<std::uintmax_t>(), entry.at(2).get<std::int64_t>()};
    }
    return stamps;
}

json asJson(const std::optional<osg::BoundingSphere>& sphere) {
    if (!sphere) return nullptr;
    return {sphere->center().x(), sphere->center().y(), sphere->center().z(), sphere->radius()};
}

std::optional<osg::BoundingSphere> asSphere(const json& value) {
    if (value.is_null()) return std::nullopt;
    return osg::BoundingSphere(osg::Vec3(value.at(0), value.at(1), value.at(2)), value.at(3));
}

json asJson(const ConversionJob& job) {
    json references = json::array();
    for (const JobReference& reference : job.references) {
        references.push_back(
            {reference.storedName, reference.plainName, reference.convertedName, reference.isFollowed});
    }
    json places = json::array();
    for (const auto& [source, place] : job.texturePlaces) places.push_back({source.string(), place.string()});
    return {{"path", job.path.string()},
            {"identity", job.identity.string()},
            {"output", job.output.string()},
            {"inputFolder", job.inputFolder.string()},
            {"outputFolder", job.outputFolder.string()},
            {"textures", nameOf(job.textures)},
            {"textureFolder", job.textureFolder.string()},
            {"maxRange", job.maxRange},
            {"convertsReferences", job.convertsReferences},
            {"smooths", job.smooths},
            {"references", references},
            {"texturePlaces", places}};
}

StoredPath asPath(const json& value) {
    return value.get<std::string>();
}

TextureMode asTextureMode(const json& value) {
    const auto mode = textureModes().find(value.get<std::string>());
    return mode == textureModes().end() ? TextureMode::Relative : mode->second;
}

ConversionJob asConversion(const json& value) {
    ConversionJob job;
    job.path = asPath(value.at("path"));
    job.identity = asPath(value.at("identity"));
    job.output = asPath(value.at("output"));
    job.inputFolder = asPath(value.at("inputFolder"));
    job.outputFolder = asPath(value.at("outputFolder"));
    job.textures = asTextureMode(value.at("textures"));
    job.textureFolder = asPath(value.at("textureFolder"));
    job.maxRange = value.at("maxRange");
    job.convertsReferences = value.at("convertsReferences");
    job.smooths = value.at("smooths");
    for (const json& reference : value.at("references")) {
        job.references.push_back({reference.at(0), reference.at(1), reference.at(2), reference.at(3)});
    }
    for (const json& place : value.at("texturePlaces")) {
        job.texturePlaces.emplace(asPath(place.at(0)), asPath(place.at(1)));
    }
    return job;
}

/** All but the reason: what is to be done, not why. */
json asJson(const StoredJob& job) {
    json spheres = json::array();
    for (const SphereSource& source : job.spheres) {
        spheres.push_back({static_cast<int>(source.kind), source.job, source.path.string(), asJson(source.stamp)});
    }
    json palettes = json::array();
    for (const PaletteStep& step : job.palettes) palettes.push_back({step.file, step.folder.string()});
    return {{"tool", job.tool},   {"input", asJson(job.input)}, {"conversion", asJson(job.conversion)},
            {"spheres", spheres}, {"palettes", palettes},       {"attempt", job.attempt}};
}

StoredJob asJob(const json& value) {
    StoredJob job;
    job.tool = value.at("tool");
    job.input = asStamp(value.at("input"));
    job.conversion = asConversion(value.at("conversion"));
    for (const json& source : value.at("spheres")) {
        job.spheres.push_back({static_cast<SphereSource::Kind>(source.at(0).get<int>()), source.at(1),
                               asPath(source.at(2)), asStamp(source.at(3))});
    }
    for (const json& step : value.at("palettes")) job.palettes.push_back({step.at(0), asPath(step.at(1))});
    job.attempt = value.at("attempt");
    job.reason = value.at("reason");
    return job;
}

json asJson(const Lookup& lookup) {
    return {lookup.folder.string(), lookup.name, lookup.found.string(), asJson(lookup.stamp),
            asJson(lookup.attributes)};
}

json asJson(const StoredResult& result) {
    json lookups = json::array();
    for (const Lookup& lookup : result.lookups) lookups.push_back(asJson(lookup));
    return {{"job", result.job},
            {"spheres", result.spheres},
            {"result", result.result},
            {"sphere", asJson(result.sphere)},
            {"output", asJson(result.output)},
            {"textures", asJson(result.textures)},
            {"own", asJson(result.own)},
            {"lookups", lookups}};
}

StoredResult asResult(const json& value) {
    StoredResult result;
    result.job = value.at("job");
    result.spheres = value.at("spheres");
    result.result = value.at("result").get<FileResult>();
    result.sphere = asSphere(value.at("sphere"));
    result.output = asStamp(value.at("output"));
    result.textures = asStamps(value.at("textures"));
    result.own = asStamps(value.at("own"));
    for (const json& lookup : value.at("lookups")) {
        result.lookups.push_back(
            {asPath(lookup.at(0)), lookup.at(1), asPath(lookup.at(2)), asStamp(lookup.at(3)), asStamp(lookup.at(4))});
    }
    return result;
}

std::vector<FileStamp> asIntent(const json& value) {
    std::vector<FileStamp> stamps;
    for (const json& stamp : value) stamps.push_back(asStamp(stamp).value());
    return stamps;
}

/** For less than a block of a disk. @throws OutputError, also if it cannot be brought to the disk */
void writeInPlace(const fs::path& path, const std::string& content) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666);
    std::size_t done = 0;
    while (file >= 0 && done < content.size()) {
        const ssize_t count = pwrite(file, content.data() + done, content.size() - done, static_cast<off_t>(done));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        done += static_cast<std::size_t>(count);
    }
    const bool isWritten =
        file >= 0 && done == content.size() && (fdatasync(file) == 0 || errno == EINVAL || errno == ENOSYS);
    const int reason = errno;
    if (file >= 0) close(file);
    if (!isWritten) throw OutputError(path.string() + ": cannot be written: " + std::strerror(reason));
}

/** What `convert` makes of a file's content; nothing if it is not as it should be. */
template <typename Convert>
auto converted(const std::optional<json>& content, const Convert& convert)
    -> std::optional<decltype(convert(*content))> {
    if (!content) return std::nullopt;
    try {
        return convert(*content);
    } catch (const std::exception&) {  // the library's, and those of what is made of its values
        return std::nullopt;
    }
}

}  // namespace

std::optional<std::string> StateFolder::read(const std::string& name) const {
    CheckedInput file(_path / name);
    std::string content;
    char block[4096];
    while (file.stream().read(block, sizeof block) || file.stream().gcount() > 0)
        content.append(block, static_cast<std::size_t>(file.stream().gcount()));
    if (isSystemError(file.error()))
        throw OutputError((_path / name).string() + ": cannot be read: " + std::strerror(file.error()));
    if (file.error() != 0) return std::nullopt;
    return content;
}

std::optional<json> StateFolder::readCbor(const std::string& name) const {
    const auto content = read(name);
    if (!content) return std::nullopt;
    json value = json::from_cbor(*content, true, false);
    if (value.is_discarded()) return std::nullopt;
    return value;
}

void StateFolder::write(const std::string& name, const std::string& content) const {
    WholeFile file(_path / name, true);
    file.stream() << content;
    file.needNotOutlastPowerFailures();
    file.commit();
}

void StateFolder::writeIfDifferent(const std::string& name, const std::string& content) const {
    if (read(name) != content) write(name, content);
}

void StateFolder::forgetAllBut(const std::set<std::string>& jobsAndPalettes) const {
    std::error_code error;
    std::vector<fs::path> others;
    for (const fs::directory_entry& entry : fs::directory_iterator(_path, error)) {
        const fs::path name = entry.path().filename();
        const fs::path ending = name.extension();
        const bool isOfJob = ending == ".job" || ending == ".sphere" || ending == boundEnding;
        if (!isOfJob && ending != ".flt") continue;
        if (jobsAndPalettes.count(isOfJob ? name.stem().string() : name.string()) == 0) others.push_back(entry.path());
    }
    for (const fs::path& other : others) fs::remove(other, error);
}

std::optional<StoredJob> StateFolder::job(const JobId& id) const {
    return converted(readCbor(jobName(id)), asJob);
}

std::optional<StoredResult> StateFolder::result(const JobId& id) const {
    return converted(readCbor(id + ".result"), asResult);
}

bool StateFolder::isIntended(const JobId& id, const FileStamp& stamp) const {
    const auto content = read(id + intentEnding);
    if (!content) return false;
    // What follows is left of a longer one.
    const json value = json::from_cbor(*content, false, false);
    const auto stamps = converted(value.is_discarded() ? std::nullopt : std::optional<json>(value), asIntent);
    return stamps && std::find(stamps->begin(), stamps->end(), stamp) != stamps->end();
}

std::string StateFolder::sphereText(const JobId& id) const {
    return read(id + boundEnding).value_or("");
}

std::optional<osg::BoundingSphere> StateFolder::sphere(const JobId& id) const {
    const auto sphere = converted(readCbor(id + boundEnding), asSphere);
    return sphere ? *sphere : std::nullopt;
}

std::map<std::string, FileStamp> StateFolder::placedTextures() const {
    return converted(readCbor(placedTexturesName), asStamps).value_or(std::map<std::string, FileStamp>());
}

void StateFolder::writePlacedTextures(const std::map<std::string, FileStamp>& textures) const {
    if (textures != placedTextures()) write(placedTexturesName, encode(asJson(textures)));
}

void StateFolder::writeJob(const JobId& id, const StoredJob& job) const {
    json value = asJson(job);
    value["reason"] = job.reason;
    write(jobName(id), encode(value));
}

void StateFolder::writeResult(const JobId& id, const StoredResult& result) const {
    write(id + ".result", encode(asJson(result)));
}

void StateFolder::writeIntent(const JobId& id, const std::vector<FileStamp>& stamps) const {
    json value = json::array();
    for (const FileStamp& stamp : stamps) value.push_back(asJson(std::optional<FileStamp>(stamp)));
    // Not as a WholeFile: the output itself is one, and it is open. Over the old one, at one stroke: a process that is
    // killed leaves either, not neither.
    writeInPlace(_path / (id + intentEnding), encode(value));
}

void StateFolder::writeSphere(const JobId& id, const std::optional<osg::BoundingSphere>& sphere) const {
    writeIfDifferent(id + boundEnding, encode(asJson(sphere)));
    writeIfDifferent(sphereName(id), encode(asJson(sphere)));
}

std::string encodeResult(const StoredResult& result) {
    return encode(asJson(result));
}

std::optional<StoredResult> decodeResult(const std::string& bytes) {
    const json value = json::from_cbor(bytes, true, false);
    return converted(value.is_discarded() ? std::nullopt : std::optional<json>(value), asResult);
}

std::uint64_t hashOf(const std::string& bytes) {
    std::uint64_t hash = 0xcbf29ce484222325u;
    for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3u;
    return hash;
}

std::string asHexadecimal(std::uint64_t number) {
    std::string digits(16, '0');
    for (std::size_t i = digits.size(); i-- > 0; number >>= 4) digits[i] = "0123456789abcdef"[number & 0xf];
    return digits;
}

std::uint64_t identityOf(const StoredJob& job) {
    return hashOf(encode(asJson(job)));
}

std::uint64_t spheresUsedBy(const StoredJob& job, const StateFolder& state) {
    std::string all;
    for (const SphereSource& source : job.spheres) {
        const std::string text = source.kind == SphereSource::Kind::Job ? state.sphereText(source.job) : "";
        all += std::to_string(text.size()) + ":" + text;
    }
    return hashOf(all);
}

bool isUpToDate(const StateFolder& state, const JobId& id, const StoredJob& job, const StoredResult& result) {
    if (!result.result.problem.empty() || result.job != identityOf(job)) return false;
    if (state.sphereText(id) != encode(asJson(result.sphere))) return false;
    if (!job.conversion.output.empty() && stampOf(job.conversion.output) != result.output) return false;
    return result.spheres == spheresUsedBy(job, state);
}

}  // namespace veltrane::sceneutils::tool
