#include "InputGuard.h"

#include "../Command.h"
#include "FileReferences.h"

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

bool areSame(const fs::path& a, const fs::path& b) {
    std::error_code error;
    return fs::equivalent(a, b, error) && !error;
}

}  // namespace

void checkIsNoInput(const fs::path& output, const fs::path& input, osg::Node& graph) {
    bool isInput = areSame(output, input);
    for (const FileReference& reference : fileReferences(graph)) {
        isInput = isInput || areSame(output, fs::path(reference.databasePath) / reference.name) ||
                  areSame(output, input.parent_path() / reference.name);
    }
    if (!isInput) return;
    throw CommandError(ExitStatus::OutputNotWritten, output.string() + ": is one of the inputs; choose another name");
}

}  // namespace veltrane::sceneutils::tool
