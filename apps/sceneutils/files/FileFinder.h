#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

namespace veltrane::sceneutils::tool {

/**
 * Finds the files that a database names, as they were written on any system: with '/' or '\' between folders, and in
 * another letter case than on disk. Where several names differ in case only, the exact one wins, then the first by
 * name. Remembers folder listings and the textures it has found, so one finder should see the database unchanged.
 *
 * All throw CommandError with InputUnreadable when the system or the disk fails while a folder is listed.
 */
class FileFinder {
public:
    /** The file called `name` as seen from `folder`; nothing is looked for anywhere else. Folders are not files. */
    std::optional<std::filesystem::path> find(const std::filesystem::path& folder, const std::string& name);

    /**
     * The same for a texture, which may also lie beside the file that names it (databases are handed on with absolute
     * paths of another machine in them) or on osgDB's data file path.
     * Pipes and devices are no textures: to read one can take for ever.
     */
    std::optional<std::filesystem::path> findTexture(const std::filesystem::path& folder, const std::string& name);

    /**
     * The folders in which something was looked for by a name that is not there, with their times before that. While
     * nothing is added to them or taken from them, and the files that were found stay, the same names lead to the same
     * files. 0, which no folder has: there is a link in it that leads nowhere, and may lead somewhere at any time.
     */
    const std::map<std::string, std::int64_t>& foldersThatDecided() const { return _foldersThatDecided; }

private:
    using NamesByLowerCase = std::unordered_map<std::string, std::string>;

    std::optional<std::filesystem::path> lookForTexture(const std::filesystem::path& folder, const std::string& name);
    std::optional<std::filesystem::path> findIgnoringCase(const std::filesystem::path& folder,
                                                          const std::filesystem::path& name);
    void noteDecision(const std::filesystem::path& folder);
    const NamesByLowerCase& listing(const std::filesystem::path& folder);

    std::map<std::filesystem::path, NamesByLowerCase> _listings;
    std::map<std::pair<std::string, std::string>, std::optional<std::filesystem::path>> _textures;
    std::map<std::string, std::int64_t> _foldersThatDecided;
};

/** When something was last added to the folder or taken from it, in nanoseconds; 0 if there is no such folder. */
std::int64_t timeOfFolder(const std::filesystem::path& folder);

/** ASCII letters in lower case, everything else as it is. */
std::string toLowerCase(std::string text);

}  // namespace veltrane::sceneutils::tool
