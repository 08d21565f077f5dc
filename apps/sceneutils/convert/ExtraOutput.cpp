#include "ExtraOutput.h"

#include "../files/WholeFile.h"

#include <system_error>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

fs::path placeOfExtraOutput(const fs::path& path) {
    std::error_code error;
    const fs::path place = fs::weakly_canonical(fs::absolute(path), error);
    return error ? fs::absolute(path).lexically_normal() : place;
}

void checkExtraOutput(const ConversionPlan& plan, const fs::path& path) {
    const fs::path place = placeOfExtraOutput(path);
    if (plan.inputs.count(place) != 0) throw OutputError(path.string() + ": is one of the inputs; choose another name");
    for (const PlannedFile& file : plan.files) {
        // The file itself, where the plan knows it by the name of a link.
        if (placeOfExtraOutput(file.path) == place)
            throw OutputError(path.string() + ": is one of the inputs; choose another name");
        if (file.output.string() == place.string())
            throw OutputError(path.string() + ": is one of the outputs; choose another name");
    }
    checkOutputPath(path, plan.options.overwrite);
}

}  // namespace veltrane::sceneutils::tool
