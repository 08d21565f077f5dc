#pragma once

#include "ConversionPlan.h"
#include "JobFiles.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What makes outputs, with its version. */
std::string toolName();

/** A job for a file of a plan. */
struct PlannedJob {
    JobId id;
    std::size_t file = noFile;
    StoredJob job;
    std::string reason;                  ///< why it is to be done; empty: it is up to date
    bool mayFollow = false;              ///< up to date, but refers to a file whose bounding sphere may change
    unsigned int level = 0;              ///< higher than those of all jobs whose spheres it needs
    bool isRewritten = false;            ///< its file in the state must be written
    std::optional<StoredResult> result;  ///< what it has come to, as the state says
};

/**
 * The jobs that a plan needs, and which of them are to be done: because something has changed since they were done
 * last, or because they were not.
 */
class JobPlan {
public:
    /** @throws CommandError if an output may not be written */
    JobPlan(const ConversionPlan& plan, const StateFolder& state);

    const std::vector<PlannedJob>& jobs() const { return _jobs; }

    bool areUpToDate() const;

    /** The job of a file of the plan; null if the file cannot be converted. */
    const PlannedJob* jobOfFile(std::size_t file) const;

    /** Makes the state say what is to be done. Jobs whose files are gone are forgotten. @throws OutputError */
    void write(const StateFolder& state) const;

private:
    class Builder;

    std::vector<PlannedJob> _jobs;
    std::vector<std::size_t> _jobOfFile;
    std::map<std::string, std::string> _paletteFiles;  ///< content by name
    std::map<std::string, FileStamp> _placedTextures;  ///< by all jobs that there ever were
};

}  // namespace veltrane::sceneutils::tool
