#pragma once

#include "ConversionJob.h"
#include "ConversionReport.h"

#include <osg/BoundingSphere>
#include <osg/Vec3>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** Names a job: the one that writes an output has the same one in every run. Letters and digits only. */
using JobId = std::string;

/** A file that was looked for while another was read, and what was found. */
struct Lookup {
    StoredPath folder;  ///< from which it was looked for
    std::string name;
    StoredPath found;                     ///< empty: nothing
    std::optional<FileStamp> stamp;       ///< of what was found
    std::optional<FileStamp> attributes;  ///< of the file of texture attributes beside it
};

/** Palettes that a file takes from above: read those that hand them on, the topmost first. */
struct PaletteStep {
    std::string file;   ///< in the folder of the state
    StoredPath folder;  ///< of the file that it stands for; textures are looked for from there
};

/** Where the bounding sphere of a referenced file comes from. */
struct SphereSource {
    enum class Kind { None, Job, Circle };

    Kind kind = Kind::None;  ///< None: the file cannot be converted
    JobId job;
    StoredPath path;  ///< of a file that this one is reached from: it is as large as it is when read; empty: this one
    std::optional<FileStamp> stamp;  ///< of the file at that path
};

/** A job as it lies in the state: all that its outcome depends on, but for the spheres. */
struct StoredJob {
    std::string tool;  ///< which made the state, with version
    std::optional<FileStamp> input;
    ConversionJob conversion;
    std::vector<SphereSource> spheres;  ///< of the references
    std::vector<PaletteStep> palettes;
    unsigned int attempt = 1;  ///< grows when the job is to be done again although nothing here has changed
    std::string reason;        ///< why it is to be done, for people
};

/** What has come of a job. */
struct StoredResult {
    std::uint64_t job = 0;      ///< identityOf() the job that this is the result of
    std::uint64_t spheres = 0;  ///< spheresUsedBy() it
    FileResult result;
    std::optional<osg::BoundingSphere> sphere;
    std::optional<FileStamp> output;            ///< as it was written
    std::map<std::string, FileStamp> textures;  ///< that it uses, as they lay in the output folder then
    std::map<std::string, FileStamp> own;       ///< all that this job has ever put there, as it did last
    std::vector<Lookup> lookups;
};

/**
 * The folder beside an output that holds what a conversion in jobs has to remember. Files in it are whole or not there:
 * each is written under another name and renamed. A power failure can make any of them empty, or cut it short, which
 * must be noticed: all is then done again as far as needed.
 */
class StateFolder {
public:
    explicit StateFolder(std::filesystem::path path) : _path(std::move(path)) {}

    const std::filesystem::path& path() const { return _path; }

    /** All give nothing for a file that is missing or damaged. @throws OutputError if the disk or the system fails */
    std::optional<StoredJob> job(const JobId& id) const;
    std::optional<StoredResult> result(const JobId& id) const;
    /** Whether an output with that stamp was, or was about to be, put in its place by the job. */
    bool isIntended(const JobId& id, const FileStamp& stamp) const;
    /** Tells different spheres apart; empty for a job that was not done. */
    std::string sphereText(const JobId& id) const;
    std::optional<osg::BoundingSphere> sphere(const JobId& id) const;

    /** The textures that jobs had put in their places when a run was planned, which were still there then. */
    std::map<std::string, FileStamp> placedTextures() const;
    void writePlacedTextures(const std::map<std::string, FileStamp>& textures) const;

    void writeJob(const JobId& id, const StoredJob& job) const;
    void writeResult(const JobId& id, const StoredResult& result) const;
    /**
     * Notes that an output is about to be put in its place, and which one it takes the place of: whatever happens, one
     * of them is there. On the disk when it returns. @throws OutputError
     */
    void writeIntent(const JobId& id, const std::vector<FileStamp>& stamps) const;
    /**
     * Leaves the file alone if it says the same already: who waits for it then has nothing to do. There are two: what
     * Ninja waits for it removes when it is interrupted.
     */
    void writeSphere(const JobId& id, const std::optional<osg::BoundingSphere>& sphere) const;

    /** The names of these files, as seen from the folder. */
    static std::string jobName(const JobId& id) { return id + ".job"; }
    static std::string sphereName(const JobId& id) { return id + ".sphere"; }

    /** @throws OutputError if the file cannot be written */
    void write(const std::string& name, const std::string& content) const;
    /** The same, unless that is what the file has. */
    void writeIfDifferent(const std::string& name, const std::string& content) const;
    std::optional<std::string> read(const std::string& name) const;

    /**
     * Removes the files of all other jobs, and palettes by other names. What says whose the outputs of those jobs are
     * stays, as the outputs do: they may become part of the database again.
     */
    void forgetAllBut(const std::set<std::string>& jobsAndPalettes) const;

private:
    std::optional<nlohmann::json> readCbor(const std::string& name) const;

    std::filesystem::path _path;
};

/** For a message from one process to another. */
std::string encodeResult(const StoredResult& result);
std::optional<StoredResult> decodeResult(const std::string& bytes);

/** Tells jobs apart whose outcome may differ. */
std::uint64_t identityOf(const StoredJob& job);

/** The same for the spheres that a job takes from others. */
std::uint64_t spheresUsedBy(const StoredJob& job, const StateFolder& state);

/** Whether the job is done, and what came of it is still in place. */
bool isUpToDate(const StateFolder& state, const JobId& id, const StoredJob& job, const StoredResult& result);

/** FNV-1a */
std::uint64_t hashOf(const std::string& bytes);

/** 16 digits. */
std::string asHexadecimal(std::uint64_t number);

}  // namespace veltrane::sceneutils::tool
