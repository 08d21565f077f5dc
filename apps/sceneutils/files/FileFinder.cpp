#include "FileFinder.h"

#include "../Command.h"
#include "CheckedReading.h"

#include <osgDB/FileUtils>

#include <algorithm>
#include <chrono>
#include <vector>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

bool isFile(const fs::path& path) {
    std::error_code error;
    const auto status = fs::status(path, error);
    return fs::exists(status) && !fs::is_directory(status);
}

bool existsAt(const fs::path& path) {
    std::error_code error;
    return fs::exists(path, error);
}

}  // namespace

std::int64_t timeOfFolder(const fs::path& folder) {
    std::error_code error;
    const auto time = fs::last_write_time(folder.empty() ? fs::path(".") : folder, error);
    if (error) return 0;
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

std::string toLowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

std::optional<fs::path> FileFinder::find(const fs::path& folder, const std::string& name) {
    if (name.empty()) return std::nullopt;
    if (isFile(folder / name)) return folder / name;

    noteDecision(folder);
    std::string withSlashes = name;
    std::replace(withSlashes.begin(), withSlashes.end(), '\\', '/');
    return findIgnoringCase(folder, withSlashes);
}

std::optional<fs::path> FileFinder::findTexture(const fs::path& folder, const std::string& name) {
    const auto [known, isNew] = _textures.try_emplace({folder.string(), name});
    if (isNew) known->second = lookForTexture(folder, name);
    return known->second;
}

std::optional<fs::path> FileFinder::lookForTexture(const fs::path& folder, const std::string& name) {
    std::vector<fs::path> folders = {folder};
    for (const std::string& dataFolder : osgDB::getDataFilePathList()) folders.push_back(fs::absolute(dataFolder));

    const std::string bareName = name.substr(name.find_last_of("/\\") + 1);
    for (const fs::path& place : folders) {
        for (const std::string& candidate : {name, bareName}) {
            const auto found = find(place, candidate);
            std::error_code error;
            if (found && fs::is_regular_file(*found, error)) return found;
        }
    }
    return std::nullopt;
}

std::optional<fs::path> FileFinder::findIgnoringCase(const fs::path& folder, const fs::path& name) {
    fs::path found = name.is_absolute() ? name.root_path() : folder;
    for (const fs::path& part : name.relative_path()) {
        if (part.empty() || part == ".") continue;
        if (existsAt(found / part)) {
            found /= part;
            continue;
        }
        noteDecision(found);
        const NamesByLowerCase& names = listing(found);
        const auto match = names.find(toLowerCase(part.string()));
        if (match == names.end()) return std::nullopt;
        // A link that leads nowhere: what is added there changes no folder that is known.
        if (!existsAt(found / match->second)) _foldersThatDecided[found.string()] = 0;
        found /= match->second;
    }
    if (!isFile(found)) return std::nullopt;
    return found;
}

void FileFinder::noteDecision(const fs::path& folder) {
    const auto [known, isNew] = _foldersThatDecided.try_emplace(folder.string(), 0);
    if (isNew) known->second = timeOfFolder(folder);
}

const FileFinder::NamesByLowerCase& FileFinder::listing(const fs::path& folder) {
    const auto [entry, isNew] = _listings.try_emplace(folder);
    if (!isNew) return entry->second;

    std::error_code error;
    for (fs::directory_iterator i(folder.empty() ? fs::path(".") : folder, error), end; !error && i != end;
         i.increment(error)) {
        const std::string name = i->path().filename().string();
        std::string& known = entry->second[toLowerCase(name)];
        if (known.empty() || name < known) known = name;
    }
    if (isSystemError(error.value())) {
        _listings.erase(entry);
        throw CommandError(ExitStatus::InputUnreadable, folder.string() + ": cannot be listed: " + error.message());
    }
    return entry->second;
}

}  // namespace veltrane::sceneutils::tool
