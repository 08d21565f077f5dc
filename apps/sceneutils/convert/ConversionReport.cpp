#include "ConversionReport.h"

#include <algorithm>
#include <cstdio>
#include <set>

namespace veltrane::sceneutils::tool {

namespace {

constexpr int reportVersion = 1;

std::string plural(std::uintmax_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string fixed(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

const char* statusOf(const PlannedFile& planned, const FileResult& result) {
    if (!result.problem.empty()) return "failed";
    return planned.output.empty() ? "read" : "converted";
}

nlohmann::json fileAsJson(const ConversionPlan& plan, const FileResult& result) {
    const PlannedFile& planned = plan.files[result.file];
    nlohmann::json json = {
        {"input", planned.identity.string()},
        {"status", statusOf(planned, result)},
        {"bytesIn", planned.bytes},
        {"bytesOut", result.bytesOut},
        {"textureBytesOut", result.textureBytesOut},
        {"missingTextures", result.texturesMissing},
        {"seconds", result.seconds},
    };
    if (result.written) json["output"] = planned.output.string();
    if (!result.problem.empty()) json["problem"] = result.problem;
    if (planned.namedBy != noFile) json["namedBy"] = plan.files[planned.namedBy].identity.string();
    return json;
}

}  // namespace

void to_json(nlohmann::json& json, const FileResult& result) {
    json = {{"file", result.file},
            {"problem", result.problem},
            {"isOutputProblem", result.isOutputProblem},
            {"written", result.written},
            {"bytesOut", result.bytesOut},
            {"textureBytesOut", result.textureBytesOut},
            {"texturesPlaced", result.texturesPlaced},
            {"texturesMissing", result.texturesMissing},
            {"seconds", result.seconds}};
}

void from_json(const nlohmann::json& json, FileResult& result) {
    json.at("file").get_to(result.file);
    json.at("problem").get_to(result.problem);
    json.at("isOutputProblem").get_to(result.isOutputProblem);
    json.at("written").get_to(result.written);
    json.at("bytesOut").get_to(result.bytesOut);
    json.at("textureBytesOut").get_to(result.textureBytesOut);
    json.at("texturesPlaced").get_to(result.texturesPlaced);
    json.at("texturesMissing").get_to(result.texturesMissing);
    json.at("seconds").get_to(result.seconds);
}

std::size_t ConversionReport::filesRead() const {
    return files.size() - filesFailed();
}

std::size_t ConversionReport::filesConverted() const {
    return static_cast<std::size_t>(
        std::count_if(files.begin(), files.end(), [](const FileResult& result) { return result.written; }));
}

std::size_t ConversionReport::filesFailed() const {
    return static_cast<std::size_t>(
        std::count_if(files.begin(), files.end(), [](const FileResult& result) { return !result.problem.empty(); }));
}

std::size_t ConversionReport::texturesMissing() const {
    std::set<std::string> names;
    for (const FileResult& result : files) names.insert(result.texturesMissing.begin(), result.texturesMissing.end());
    return names.size();
}

std::uintmax_t ConversionReport::bytesIn(const ConversionPlan& plan) const {
    std::uintmax_t bytes = 0;
    for (const FileResult& result : files) bytes += plan.files[result.file].bytes;
    return bytes;
}

std::uintmax_t ConversionReport::bytesOut() const {
    std::uintmax_t bytes = 0;
    for (const FileResult& result : files) bytes += result.bytesOut + result.textureBytesOut;
    return bytes;
}

ConversionTotals totalsOf(const ConversionPlan& plan, const ConversionReport& report) {
    ConversionTotals totals;
    totals.read = report.filesRead();
    totals.converted = report.filesConverted();
    totals.failed = report.filesFailed();
    totals.texturesMissing = report.texturesMissing();
    totals.bytesIn = report.bytesIn(plan);
    totals.bytesOut = report.bytesOut();
    return totals;
}

void writeSummary(std::ostream& out, const ConversionTotals& totals, double seconds, std::size_t upToDate) {
    out << plural(totals.read, "file read", "files read") << ", " << totals.converted << " converted, " << totals.failed
        << " failed, " << plural(totals.texturesMissing, "texture missing", "textures missing") << ", "
        << plural(totals.bytesIn, "byte in", "bytes in") << ", " << plural(totals.bytesOut, "byte out", "bytes out")
        << ", " << fixed(seconds, 2) << " s";
    if (upToDate > 0) out << "; " << plural(upToDate, "was", "were") << " up to date";
    out << "\n";
}

nlohmann::json reportAsJson(const ConversionPlan& plan, const ConversionReport& report) {
    nlohmann::json files = nlohmann::json::array();
    for (const FileResult& result : report.files) files.push_back(fileAsJson(plan, result));
    return {
        {"version", reportVersion},
        {"command", "convert"},
        {"input", plan.files.front().identity.string()},
        {"output", plan.files.front().output.string()},
        {"options",
         {{"recurse", plan.options.recurse},
          {"convertReferences", plan.options.writesReferences()},
          {"maxRange", plan.options.maxRange},
          {"smooth", plan.options.smooth},
          {"overwrite", plan.options.overwrite},
          {"textures", nameOf(plan.options.textures)}}},
        {"totals",
         {{"filesRead", report.filesRead()},
          {"filesConverted", report.filesConverted()},
          {"filesFailed", report.filesFailed()},
          {"texturesMissing", report.texturesMissing()},
          {"bytesIn", report.bytesIn(plan)},
          {"bytesOut", report.bytesOut()},
          {"seconds", report.seconds}}},
        {"files", files},
    };
}

}  // namespace veltrane::sceneutils::tool
