#include "InputGuard.h"

#include "../Command.h"
#include "FileReferences.h"

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

// Two comparisons, because links are files of other names, and folders on the way may not be there yet.
bool areSame(const fs::path& a, const fs::path& b) {
    std::error_code error;
    if (fs::equivalent(a, b, error) && !error) return true;
    const auto placeOf = [&](const fs::path& path) { return fs::weakly_canonical(fs::absolute(path, error), error); };
    return placeOf(a) == placeOf(b);
}

[[noreturn]] void refuse(const fs::path& output) {
    throw CommandError(ExitStatus::OutputNotWritten, output.string() + ": is one of the inputs; choose another name");
}

}  // namespace

void checkIsNoInput(const fs::path& output, const fs::path& input) {
    if (areSame(output, input)) refuse(output);
}

void checkIsNoInput(const fs::path& output, const fs::path& input, osg::Node& graph) {
    checkIsNoInput(output, input);
    for (const FileReference& reference : fileReferences(graph)) {
        const bool isInput = areSame(output, fs::path(reference.databasePath) / reference.name) ||
                             areSame(output, input.parent_path() / reference.name);
        if (isInput) refuse(output);
    }
}

}  // namespace veltrane::sceneutils::tool
