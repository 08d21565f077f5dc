#pragma once

#include "../files/FlightFile.h"
#include "FileStamp.h"
#include "TexturePlaces.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What the command line asks of a conversion. */
struct ConversionOptions {
    std::filesystem::path input;
    std::filesystem::path output;
    bool recurse = false;
    bool convertReferences = false;  ///< implied by `recurse`
    float maxRange = 10000.0f;       ///< graph units
    bool smooth = true;
    bool overwrite = false;
    bool verbose = false;
    TextureMode textures = TextureMode::Relative;
    unsigned int secondsPerFile = 600;  ///< processor time

    bool writesReferences() const { return recurse || convertReferences; }
};

/** In the output folder: what conversions in jobs remember. No output gets a place in it. */
constexpr const char* stateFolderName = ".sceneutils";

constexpr std::size_t noFile = std::numeric_limits<std::size_t>::max();

/**
 * A path that is kept. std::filesystem::path keeps each of its parts as a path of its own as well, a kilobyte for a
 * path of ten folders, and a plan of many files is nothing but paths.
 */
class StoredPath {
public:
    StoredPath() = default;
    // NOLINTBEGIN(google-explicit-constructor): used like the path that it stores
    StoredPath(const std::filesystem::path& path) : _text(path.string()) {}
    StoredPath(const std::string& path) : _text(path) {}
    StoredPath(const char* path) : _text(path) {}
    operator std::filesystem::path() const { return _text; }
    // NOLINTEND(google-explicit-constructor)

    bool empty() const { return _text.empty(); }
    const std::string& string() const { return _text; }
    std::filesystem::path parent_path() const { return std::filesystem::path(_text).parent_path(); }
    std::filesystem::path filename() const { return std::filesystem::path(_text).filename(); }

    friend bool operator==(const StoredPath& left, const StoredPath& right) { return left._text == right._text; }
    friend bool operator!=(const StoredPath& left, const StoredPath& right) { return left._text != right._text; }
    friend bool operator<(const StoredPath& left, const StoredPath& right) { return left._text < right._text; }

private:
    std::string _text;
};

/** One external-reference record of a planned file. */
struct PlannedReference {
    std::string storedName;
    StoredPath path;              ///< the file it leads to; empty if there is none
    std::size_t target = noFile;  ///< that file's place in the plan; noFile: the reference stays as it is
    bool closesCircle = false;    ///< leads back to a file from which this one is reached
};

/**
 * A file and what is to become of it. One that takes different palettes from different parents stands in the plan once
 * for each set of them, with an output of its own.
 */
struct PlannedFile {
    StoredPath path;                   ///< as it is reached: absolute, maybe through "..", in the letter case on disk
    StoredPath identity;               ///< the same for every way that leads to the file
    std::string name;                  ///< for messages: seen from the master's folder
    std::size_t namedBy = noFile;      ///< the first file that refers to it; noFile for the master
    std::size_t namedByReference = 0;  ///< which of that file's references that is
    std::uint64_t inheritedPalettes = 0;  ///< tells apart what it inherits
    PerPalette<bool> inheritsPalettes{};  ///< which palettes that file hands on to it
    std::string problem;                  ///< why it cannot be converted; empty: it can
    StoredPath output;                    ///< absolute; empty: nothing is written for it
    float maxRange = 0.0f;                ///< for the references of this file
    bool pagesReferences = false;         ///< its references are hung below PagedLODs
    std::optional<FileStamp> stamp;       ///< before it was looked into; what is different later has changed
    std::uintmax_t bytes = 0;
    std::vector<PlannedReference> references;    ///< in the order of the records
    std::vector<std::size_t> displacedTextures;  ///< which of the plan's it may use
};

/**
 * Everything that is known before the first file is read: which files take part, where their outputs go, which are
 * missing or damaged. The master is files[0].
 *
 * Outputs lie in the output's folder as the inputs lie in the master's, so that the folder is the whole database; a
 * file from outside the master's folder gets a place below "_parent". No two files share an output, even where names
 * are compared without letter case.
 */
struct ConversionPlan {
    ConversionOptions options;
    std::filesystem::path inputFolder;   ///< the master's, resolved
    std::filesystem::path outputFolder;  ///< resolved as far as it exists
    std::vector<PlannedFile> files;
    std::set<StoredPath> inputs;                      ///< resolved; what must never be overwritten, textures included
    std::map<std::string, std::int64_t> seenFolders;  ///< FileFinder::foldersThatDecided() where inputs lie
    std::vector<std::pair<StoredPath, StoredPath>> displacedTextures;  ///< whose usual place is taken; new places
};

/** Between which folders its textures are brought. */
TextureFolders textureFoldersOf(const ConversionPlan& plan);

/** @throws CommandError if the input cannot be converted */
ConversionPlan planFiles(const ConversionOptions& options);

/**
 * @param mayReplace whether the output of that file of the plan may be replaced without leave; empty: none may
 * @throws CommandError if an output may not be written
 */
void checkOutputs(const ConversionPlan& plan, const std::function<bool(std::size_t)>& mayReplace);

/** The folder in which a conversion in jobs keeps what it has to remember: beside the output, named after it. */
std::filesystem::path stateFolderOf(const std::filesystem::path& output);

/** Both: the files, and a look at their outputs. */
ConversionPlan planConversion(const ConversionOptions& options);

/** Where a file that lies at `path` goes in the output folder, its own name kept. All must be resolved. */
std::filesystem::path mirroredPath(const std::filesystem::path& inputFolder, const std::filesystem::path& outputFolder,
                                   const std::filesystem::path& path);

bool isBelow(const std::filesystem::path& path, const std::filesystem::path& folder);

/** The file as seen from the folder, with '/' between folders; both absolute and resolved. */
std::string relativeName(const std::filesystem::path& file, const std::filesystem::path& folder);

}  // namespace veltrane::sceneutils::tool
