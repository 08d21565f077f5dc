#include "JobCosts.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::benchmarks {

namespace {

constexpr std::size_t mostTiles = 10;
constexpr const char* buildLine = "build ";
constexpr const char* tilePrefix = "tile_";

bool beginsWith(const std::string& text, const std::string& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return quoted + "'";
}

/** In the order of their names, as many as are measured. */
std::vector<fs::path> someTilesBelow(const fs::path& folder) {
    std::vector<fs::path> tiles;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (beginsWith(entry.path().filename().string(), tilePrefix)) tiles.push_back(entry.path());
    }
    std::sort(tiles.begin(), tiles.end());
    tiles.resize(std::min(tiles.size(), mostTiles));
    return tiles;
}

}  // namespace

FinishedConversion::FinishedConversion(fs::path tool, const fs::path& output)
    : _tool(std::move(tool)), _folder(output.parent_path()), _state(_folder / ".sceneutils" / output.filename()) {}

double FinishedConversion::filesPerProcess() const {
    std::ifstream in(_state / "build.ninja");
    double processes = 0;
    for (std::string line; std::getline(in, line);) processes += beginsWith(line, buildLine) ? 1 : 0;
    double files = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(_state)) {
        files += entry.path().extension() == ".job" ? 1 : 0;
    }
    return files / processes;
}

JobCosts FinishedConversion::measureJobs(const fs::path& log) const {
    const std::vector<TileJob> jobs = someTileJobs();
    const std::vector<TileJob> first = {jobs.front()};
    JobCosts costs;
    costs.nothing = measure(first, log);
    costs.oneTile = measureAfresh(first, log);
    costs.allTiles = measureAfresh(jobs, log);
    costs.tiles = jobs.size();
    return costs;
}

// The job of a file is the only one that holds the whole path of its output.
std::vector<FinishedConversion::TileJob> FinishedConversion::someTileJobs() const {
    const std::vector<fs::path> tiles = someTilesBelow(_folder / "tiles");
    std::vector<TileJob> jobs;
    for (const fs::directory_entry& entry : fs::directory_iterator(_state)) {
        if (entry.path().extension() != ".job") continue;
        const std::string job = contentOf(entry.path());
        for (const fs::path& tile : tiles) {
            if (job.find(tile.string()) != std::string::npos) jobs.push_back({entry.path().stem().string(), tile});
        }
    }
    if (jobs.size() != tiles.size()) throw std::runtime_error("the jobs of the tiles cannot be found");
    std::sort(jobs.begin(), jobs.end(), [](const TileJob& a, const TileJob& b) { return a.output < b.output; });
    return jobs;
}

// As Ninja runs it.
ProgramCost FinishedConversion::measure(const std::vector<TileJob>& jobs, const fs::path& log) const {
    std::string script = "eval \"exec $SCENEUTILS_CONVERT_JOB\"";
    for (const TileJob& job : jobs) script += " " + job.id;
    const std::string command =
        shellQuoted(_tool.string()) + " convert-job --time-limit 600 -- " + shellQuoted(_state.string());
    return measureProgram({{"/bin/sh", "-c", script}, {"SCENEUTILS_CONVERT_JOB=" + command}}, log);
}

ProgramCost FinishedConversion::measureAfresh(const std::vector<TileJob>& jobs, const fs::path& log) const {
    for (const TileJob& job : jobs) fs::remove(job.output);
    const ProgramCost cost = measure(jobs, log);
    for (const TileJob& job : jobs) {
        if (!fs::exists(job.output)) throw std::runtime_error(job.output.string() + ": has not been converted");
    }
    return cost;
}

}  // namespace veltrane::sceneutils::benchmarks
