#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** A conversion that Slurm is to carry out. All paths must be absolute and the same on all nodes. */
struct SlurmConversion {
    std::filesystem::path program;  ///< the tool
    std::filesystem::path master;
    std::filesystem::path output;
    unsigned int tasks = 1;
    std::vector<std::string> options;  ///< of the conversion
};

/** A script for sbatch, in printable characters: it converts what is not converted yet, each job in a step of its own.
 */
std::string slurmScript(const SlurmConversion& conversion);

}  // namespace veltrane::sceneutils::tool
