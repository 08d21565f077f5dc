#include "SlurmScript.h"

#include "../files/ShellText.h"

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

// A step waits until a task of the allocation is free. It would otherwise take the memory of all of them, and the
// others would wait for it.
constexpr const char* launcher = "srun --exclusive -N1 -n1 --mem=0 --input=none";

}  // namespace

std::string slurmScript(const SlurmConversion& conversion) {
    const std::string tasks = std::to_string(conversion.tasks);
    std::string options;
    for (const std::string& option : conversion.options) options += " " + bashQuoted(option);
    // sbatch takes words of its own lines as they are, so nothing of the user's gets into them.
    return "#!/bin/bash\n"
           "#SBATCH --job-name=sceneutils\n"
           "#SBATCH --ntasks=" +
           tasks +
           "\n"
           "# Written by \"sceneutils plan\". Converts what is not converted yet: after an interruption, submit it "
           "again.\n"
           "# Options given to sbatch take the place of those above; what follows the script's name goes to the "
           "conversion.\n"
           "exec " +
           bashQuoted(conversion.program.string()) + " convert --recurse --jobs \"${SLURM_NTASKS:-" + tasks +
           "}\" \\\n    --launcher " + bashQuoted(launcher) + options + " \"$@\" -- \\\n    " +
           bashQuoted(conversion.master.string()) + " \\\n    " + bashQuoted(conversion.output.string()) + "\n";
}

}  // namespace veltrane::sceneutils::tool
