#pragma once

#include "Conversions.h"
#include "StepClock.h"

#include <filesystem>
#include <string>
#include <vector>

namespace veltrane::sceneutils::benchmarks {

/** What one conversion took. */
struct Cost {
    double seconds = 0.0;           ///< by the clock on the wall
    double processorSeconds = 0.0;  ///< of all processes, the system's time for them included
    double peakMebibytes = 0.0;     ///< of the largest process
    StepTimes steps{};              ///< processor time

    /** Processor time outside the steps. */
    double rest() const;
};

/** Converts in this process and prints the cost for the one that waits in runInFreshProcess(). */
void convertAndPrintCost(Way way, const std::filesystem::path& master);

/**
 * Starts this program again with these arguments, waits for its end and returns the cost that it printed, if any.
 * So nothing that happened before can be felt in what is measured, and its peak of memory is its own.
 * @throws std::runtime_error if it fails
 */
Cost runInFreshProcess(const std::vector<std::string>& arguments);

}  // namespace veltrane::sceneutils::benchmarks
