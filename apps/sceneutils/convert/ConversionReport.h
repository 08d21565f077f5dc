#pragma once

#include "ConversionPlan.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What became of one planned file. */
struct FileResult {
    std::size_t file = noFile;  ///< its place in the plan
    std::string problem;        ///< why it failed; empty: it did not
    bool isOutputProblem = false;
    bool wasDisturbed = false;  ///< it may be fine: something else than the file is why
    bool written = false;
    std::uintmax_t bytesOut = 0;                        ///< of the converted file
    std::uintmax_t textureBytesOut = 0;                 ///< of the textures that were copied for it
    std::map<std::string, std::string> texturesPlaced;  ///< where they were put, and where from
    std::vector<std::string> texturesMissing;           ///< seen from the master's folder
    double seconds = 0.0;                               ///< without the files that it refers to
};

void to_json(nlohmann::json& json, const FileResult& result);
void from_json(const nlohmann::json& json, FileResult& result);

/** What became of all files of a plan, each at most once. */
struct ConversionReport {
    std::vector<FileResult> files;
    double seconds = 0.0;

    std::size_t filesRead() const;
    std::size_t filesConverted() const;
    std::size_t filesFailed() const;
    std::size_t texturesMissing() const;  ///< distinct names
    std::uintmax_t bytesIn(const ConversionPlan& plan) const;
    std::uintmax_t bytesOut() const;
};

/** What is counted over all files. */
struct ConversionTotals {
    std::size_t read = 0;
    std::size_t converted = 0;
    std::size_t failed = 0;
    std::size_t texturesMissing = 0;  ///< distinct names
    std::uintmax_t bytesIn = 0;       ///< of the models
    std::uintmax_t bytesOut = 0;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ConversionTotals, read, converted, failed, texturesMissing, bytesIn, bytesOut)

ConversionTotals totalsOf(const ConversionPlan& plan, const ConversionReport& report);

/**
 * The one line for people.
 * @param upToDate how many files an earlier run had done; nothing is said of it if there was none
 */
void writeSummary(std::ostream& out, const ConversionTotals& totals, double seconds, std::size_t upToDate = 0);

/** The same for programs. Its field "version" grows when a field changes its meaning or goes. */
nlohmann::json reportAsJson(const ConversionPlan& plan, const ConversionReport& report);

}  // namespace veltrane::sceneutils::tool
