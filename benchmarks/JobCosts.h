#pragma once

#include "MeasuredProgram.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace veltrane::sceneutils::benchmarks {

/** What the same command, that Ninja would run, takes for more and more work. */
struct JobCosts {
    ProgramCost nothing;  ///< one tile, which is up to date
    ProgramCost oneTile;
    ProgramCost allTiles;   ///< several tiles in one process
    std::size_t tiles = 0;  ///< how many those are
};

/** Runs jobs of a conversion that is finished, each time after it has removed the outputs. */
class FinishedConversion {
public:
    FinishedConversion(std::filesystem::path tool, const std::filesystem::path& output);

    /** How many files Ninja gives to a process, on average. */
    double filesPerProcess() const;

    /** The database must have two tiles or more. @throws std::runtime_error if a job fails */
    JobCosts measureJobs(const std::filesystem::path& log) const;

private:
    struct TileJob {
        std::string id;
        std::filesystem::path output;
    };

    std::vector<TileJob> someTileJobs() const;
    ProgramCost measure(const std::vector<TileJob>& jobs, const std::filesystem::path& log) const;
    ProgramCost measureAfresh(const std::vector<TileJob>& jobs, const std::filesystem::path& log) const;

    std::filesystem::path _tool;
    std::filesystem::path _folder;
    std::filesystem::path _state;
};

}  // namespace veltrane::sceneutils::benchmarks
