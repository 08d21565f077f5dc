#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace veltrane::sceneutils::benchmarks {

/** A program, found at that path, and what follows its name. */
struct Command {
    std::vector<std::string> words;
    std::vector<std::string> environment;  ///< "NAME=value", besides this process's own
};

/** What a program took, with all processes that it started and waited for. */
struct ProgramCost {
    double seconds = 0.0;           ///< by the clock, from before its start to its end
    double processorSeconds = 0.0;  ///< the system's time for them included
    double peakMebibytes = 0.0;     ///< of the largest of the processes
};

/**
 * Runs a program to its end. What it prints replaces the content of `output`. All that was written before on the file
 * system of `output` is brought to the disk first, so that nobody waits for what another has left.
 *
 * The peak is never below what this process has of its own, not shared, memory: a process counts it until it has become
 * the program. So what runs this has to stay small.
 *
 * @throws std::runtime_error with the end of what it printed if it fails
 */
ProgramCost measureProgram(const Command& command, const std::filesystem::path& output);

std::string contentOf(const std::filesystem::path& file);

}  // namespace veltrane::sceneutils::benchmarks
