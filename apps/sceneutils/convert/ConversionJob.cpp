#include "ConversionJob.h"

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

JobReference jobReference(const ConversionPlan& plan, const fs::path& outputFolder, const PlannedReference& planned) {
    JobReference reference;
    reference.storedName = reference.plainName = reference.convertedName = planned.storedName;
    reference.isFollowed = planned.target != noFile;
    if (planned.path.empty()) return reference;

    reference.plainName = reference.convertedName = relativeName(planned.path, outputFolder);
    if (!reference.isFollowed) return reference;
    const PlannedFile& target = plan.files[planned.target];
    reference.convertedName = relativeName(target.output.empty() ? target.identity : target.output, outputFolder);
    return reference;
}

}  // namespace

ConversionJob jobOf(const ConversionPlan& plan, std::size_t file) {
    const PlannedFile& planned = plan.files[file];
    ConversionJob job;
    job.path = planned.path;
    job.identity = planned.identity;
    job.output = planned.output;
    job.inputFolder = plan.inputFolder;
    job.outputFolder = plan.outputFolder;
    const TextureFolders textures = textureFoldersOf(plan);
    job.textures = textures.mode;
    job.textureFolder = textures.gathered;
    job.maxRange = planned.maxRange;
    job.convertsReferences = plan.options.writesReferences();
    job.smooths = plan.options.smooth && (file == 0 || !plan.options.recurse);
    job.mayOverwrite = plan.options.overwrite;
    const fs::path outputFolder = planned.output.parent_path();
    for (const PlannedReference& reference : planned.references)
        job.references.push_back(jobReference(plan, outputFolder, reference));
    for (const std::size_t texture : planned.displacedTextures)
        job.texturePlaces.insert(plan.displacedTextures[texture]);
    return job;
}

fs::path placeOfTexture(const ConversionJob& job, const fs::path& texture) {
    const auto displaced = job.texturePlaces.find(texture);
    if (displaced != job.texturePlaces.end()) return displaced->second;
    return usualPlace({job.textures, job.inputFolder, job.outputFolder, job.textureFolder}, texture);
}

}  // namespace veltrane::sceneutils::tool
