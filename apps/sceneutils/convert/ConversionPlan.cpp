#include "ConversionPlan.h"

#include "../Command.h"
#include "../files/FileFinder.h"
#include "../files/WholeFile.h"

#include <algorithm>
#include <map>
#include <unordered_map>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* modelExtension = ".flt";
constexpr const char* pagedExtension = ".ive";
constexpr const char* folderAboveTheDatabase = "_parent";
// For what the database itself has under the name of the folder in which conversions remember things.
constexpr const char* insteadOfStateFolder = "_sceneutils";
constexpr double rangeShareOfReferencedFiles = 0.25;
constexpr int deepestLevel = 100;
constexpr std::uint64_t hashFactor = 0x100000001b3u;

/** The palettes in force in a file: its own, or those it takes from above. 0: none. */
using PaletteHashes = PerPalette<std::uint64_t>;

bool namesAModel(const std::string& name) {
    return toLowerCase(name).find(modelExtension) != std::string::npos;
}

/** Resolves links, each folder and each texture once: many files share them. */
class Resolver {
public:
    /** The folder resolved, the file's own name kept: a link to a file is a file of its own, as its name says. */
    fs::path identityOf(const fs::path& path) {
        const auto [known, isNew] = _folders.try_emplace(path.parent_path().string());
        if (isNew) known->second = resolvedFolder(path.parent_path());
        return known->second / path.filename();
    }

    const StoredPath& resolvedFile(const fs::path& path) {
        const auto [known, isNew] = _files.try_emplace(path.string());
        if (!isNew) return known->second;
        const fs::path identity = identityOf(path);
        std::error_code error;
        if (!fs::is_symlink(identity, error)) return known->second = identity;
        const fs::path canonical = fs::canonical(identity, error);
        return known->second = error ? path.lexically_normal() : canonical;
    }

private:
    static fs::path resolvedFolder(const fs::path& folder) {
        std::error_code error;
        fs::path resolved = fs::canonical(folder, error);
        if (error) resolved = fs::weakly_canonical(folder, error);
        return error ? folder.lexically_normal() : resolved;
    }

    std::unordered_map<std::string, fs::path> _folders;
    std::unordered_map<std::string, StoredPath> _files;
};

// The name that the library gives to a converted file: everything from the first ".flt" on becomes ".ive".
std::string pagedFileName(const std::string& name) {
    const std::string::size_type end = toLowerCase(name).find(modelExtension);
    const std::string stem = end == 0 || end == std::string::npos ? name : name.substr(0, end);
    return stem + pagedExtension;
}

/** Numbers of textures. */
using Textures = std::vector<std::size_t>;

class Planner {
public:
    explicit Planner(const ConversionOptions& options) { _plan.options = options; }

    ConversionPlan run() {
        const ConversionOptions& options = _plan.options;
        if (options.input.empty()) throw CommandError(ExitStatus::Usage, "INPUT is an empty name");
        if (toLowerCase(options.output.extension().string()) != pagedExtension) {
            throw CommandError(ExitStatus::Usage, options.output.string() + ": the output's name must end in .ive");
        }
        std::error_code error;
        if (fs::is_regular_file(options.input, error) &&
            toLowerCase(options.input.extension().string()) != modelExtension) {
            throw CommandError(ExitStatus::NotSupported,
                               options.input.string() + ": only OpenFlight files (.flt) can be converted");
        }

        PlannedFile master;
        master.path = fs::absolute(options.input);
        master.identity = _resolver.identityOf(master.path);
        master.name = options.input.filename().string();
        master.output = _resolver.identityOf(fs::absolute(options.output));
        master.maxRange = options.maxRange;
        _plan.inputFolder = master.identity.parent_path();
        _plan.outputFolder = master.output.parent_path();
        _takenOutputs.insert(toLowerCase(master.output.string()));
        add(std::move(master), {}, 0);

        if (!_plan.files.front().problem.empty()) {
            throw CommandError(ExitStatus::InputUnreadable,
                               options.input.string() + ": " + _plan.files.front().problem);
        }
        placeTextures();
        _plan.seenFolders = _finder.foldersThatDecided();
        return std::move(_plan);
    }

private:
    /** Adds a file and, as far as they take part, the files that it refers to. */
    std::size_t add(PlannedFile file, const PaletteHashes& inherited, int level) {
        const auto [known, isNew] = _known.try_emplace({file.identity, inherited}, _plan.files.size());
        if (!isNew) return known->second;
        const std::size_t index = known->second;

        file.stamp = stampOf(file.path);
        FlightFile scan;
        try {
            if (level > deepestLevel) throw FlightFileError("referred to over more than 100 levels");
            scan = scanFlightFile(file.path);
        } catch (const FlightFileError& error) {
            file.problem = error.what();
        }
        file.bytes = scan.bytes;
        for (std::size_t i = 0; i < paletteKinds; ++i) {
            file.inheritsPalettes[i] = inherited[i] != 0;
            file.inheritedPalettes = file.inheritedPalettes * hashFactor + inherited[i];
        }
        _texturesOf.resize(index + 1);
        _texturesOf[index] = noteInputs(file, scan);
        file.pagesReferences = level == 0 || _plan.options.recurse;
        _plan.files.push_back(std::move(file));
        _open.insert(index);

        const PaletteHashes palettes = palettesInForce(scan, inherited, _plan.files[index].identity);
        _plan.files[index].references.reserve(scan.references.size());
        for (const FlightReference& reference : scan.references) {
            PlannedReference planned = follow(index, reference, palettes, level);
            _plan.files[index].references.push_back(std::move(planned));
        }
        _open.erase(index);
        _finished.push_back(index);
        return index;
    }

    PlannedReference follow(std::size_t from, const FlightReference& reference, const PaletteHashes& palettes,
                            int level) {
        const fs::path folder = _plan.files[from].path.parent_path();
        PlannedReference planned;
        planned.storedName = reference.name;
        const auto found = _finder.find(folder, reference.name);
        if (found) {
            planned.path = _resolver.identityOf(*found);
            _plan.inputs.insert(planned.path);
        }
        if (!found && !reference.name.empty()) {
            planned.target = addMissing(from, folder / reference.name);
        } else if (found && _plan.files[from].pagesReferences && namesAModel(reference.name)) {
            planned.target = addReferenced(from, *found, reference, palettes, level);
        } else if (found && namesAModel(reference.name)) {
            noteInputsBelow(*found);
        }
        if (found && namesAModel(reference.name)) refuseToLosePalettes(from, planned, reference, palettes);
        planned.closesCircle = _open.count(planned.target) != 0;
        return planned;
    }

    std::size_t addReferenced(std::size_t from, const fs::path& path, const FlightReference& reference,
                              const PaletteHashes& palettes, int level) {
        PaletteHashes inherited{};
        for (std::size_t i = 0; i < paletteKinds; ++i) {
            if (reference.takesParents[i]) inherited[i] = palettes[i];
        }
        PlannedFile file;
        file.path = path;
        file.identity = _resolver.identityOf(path);
        file.name = relativeName(file.identity, _plan.inputFolder);
        file.namedBy = from;
        file.namedByReference = _plan.files[from].references.size();
        const auto known = _known.find({file.identity, inherited});
        if (known != _known.end()) return known->second;

        file.maxRange = static_cast<float>(_plan.files[from].maxRange * rangeShareOfReferencedFiles);
        if (_plan.options.writesReferences()) file.output = newOutput(file.identity);
        return add(std::move(file), inherited, level + 1);
    }

    std::size_t addMissing(std::size_t from, const fs::path& path) {
        PlannedFile file;
        file.path = path;
        file.identity = _resolver.identityOf(path);
        file.name = relativeName(file.identity, _plan.inputFolder);
        file.namedBy = from;
        file.namedByReference = _plan.files[from].references.size();
        std::error_code error;
        file.problem = fs::is_directory(path, error) ? "is a folder" : "no such file";
        const auto [known, isNew] = _known.try_emplace({file.identity, {}}, _plan.files.size());
        if (isNew) _plan.files.push_back(std::move(file));
        return known->second;
    }

    // A file's own palettes count unless it takes its parent's. Textures are found relative to the file, so the same
    // palette in another folder is another one.
    static PaletteHashes palettesInForce(const FlightFile& scan, const PaletteHashes& inherited,
                                         const fs::path& identity) {
        PaletteHashes palettes = scan.paletteHashes;
        std::uint64_t& textures = palettes[static_cast<std::size_t>(Palette::Texture)];
        if (textures != 0) textures ^= fs::hash_value(identity.parent_path());
        for (std::size_t i = 0; i < paletteKinds; ++i) {
            if (inherited[i] != 0) palettes[i] = inherited[i];
        }
        return palettes;
    }

    /** Returns the textures. */
    Textures noteInputs(const PlannedFile& file, const FlightFile& scan) {
        Textures textures;
        _plan.inputs.insert(file.identity);
        for (const std::string& name : scan.textures) {
            const auto found = _finder.findTexture(file.path.parent_path(), name);
            if (!found) continue;
            const StoredPath texture = _resolver.resolvedFile(*found);
            _plan.inputs.insert(texture);
            textures.push_back(_textures.try_emplace(texture, _textures.size()).first->second);
        }
        return textures;
    }

    /** Finds the textures that cannot go to their usual places, because an input or another texture has them. */
    void placeTextures() {
        const TextureFolders folders = textureFoldersOf(_plan);
        if (folders.mode == TextureMode::Embed) return;
        std::vector<const StoredPath*> sources(_textures.size());
        for (const auto& [source, texture] : _textures) sources[texture] = &source;
        std::vector<std::size_t> displaced(_textures.size(), noFile);
        std::vector<bool> isPlaced(_textures.size());
        std::map<StoredPath, std::size_t> places;
        // The order in which files are written, so that who was there first has nothing to do with how many jobs run.
        for (const std::size_t file : _finished) {
            for (const std::size_t texture : _texturesOf[file]) {
                if (isPlaced[texture]) continue;
                isPlaced[texture] = true;
                const fs::path source = *sources[texture];
                const fs::path usual = usualPlace(folders, source);
                if (usual == source) continue;
                const fs::path place = freePlace(usual, places);
                places.emplace(place, texture);
                if (place == usual) continue;
                displaced[texture] = _plan.displacedTextures.size();
                _plan.displacedTextures.emplace_back(source, place);
            }
        }
        if (!_plan.displacedTextures.empty()) noteDisplacedTextures(displaced);
    }

    fs::path freePlace(const fs::path& usual, const std::map<StoredPath, std::size_t>& taken) const {
        fs::path place = usual;
        for (int i = 2; isTaken(place, taken); ++i) {
            place =
                usual.parent_path() / (usual.stem().string() + "-" + std::to_string(i) + usual.extension().string());
        }
        return place;
    }

    bool isTaken(const fs::path& place, const std::map<StoredPath, std::size_t>& taken) const {
        return taken.count(place) != 0 || _plan.inputs.count(place) != 0 ||
               _takenOutputs.count(toLowerCase(place.string())) != 0;
    }

    // A file stands behind the one that hands textures on to it.
    void noteDisplacedTextures(const std::vector<std::size_t>& displaced) {
        for (std::size_t i = 0; i < _texturesOf.size(); ++i) {
            PlannedFile& file = _plan.files[i];
            if (file.inheritsPalettes[static_cast<std::size_t>(Palette::Texture)]) {
                file.displacedTextures = _plan.files[file.namedBy].displacedTextures;
            }
            for (const std::size_t texture : _texturesOf[i]) {
                if (displaced[texture] != noFile) file.displacedTextures.push_back(displaced[texture]);
            }
        }
    }

    // A file that is not converted is loaded by OSG as it is, with what it refers to, however deep that goes.
    void noteInputsBelow(const fs::path& path) {
        std::vector<StoredPath> open = {_resolver.identityOf(path)};
        while (!open.empty()) {
            PlannedFile file;
            file.path = file.identity = open.back();
            open.pop_back();
            if (!_passedOver.insert(file.identity).second) continue;
            _plan.inputs.insert(file.identity);
            try {
                const FlightFile scan = scanFlightFile(file.path);
                noteInputs(file, scan);
                for (const FlightReference& reference : scan.references) {
                    const auto found = _finder.find(file.path.parent_path(), reference.name);
                    if (found) open.push_back(_resolver.identityOf(*found));
                }
            } catch (const FlightFileError&) {  // OSG will say so
            }
        }
    }

    // Whoever loads an OpenFlight file by itself cannot know the palettes of the file that refers to it.
    void refuseToLosePalettes(std::size_t from, const PlannedReference& planned, const FlightReference& reference,
                              const PaletteHashes& palettes) const {
        if (planned.target != noFile && _plan.options.writesReferences()) return;
        for (std::size_t i = 0; i < paletteKinds; ++i) {
            if (!reference.takesParents[i] || palettes[i] == 0) continue;
            throw CommandError(ExitStatus::NotSupported, relativeName(planned.path, _plan.inputFolder) +
                                                             ": takes palettes of " + _plan.files[from].name +
                                                             ", which only a conversion hands on; pass --recurse");
        }
    }

    fs::path newOutput(const fs::path& input) {
        const fs::path mirrored = mirroredPath(_plan.inputFolder, _plan.outputFolder, input);
        const fs::path plain = mirrored.parent_path() / pagedFileName(mirrored.filename().string());
        fs::path output = plain;
        for (int i = 2; !_takenOutputs.insert(toLowerCase(output.string())).second; ++i) {
            output = plain.parent_path() / (plain.stem().string() + "-" + std::to_string(i) + pagedExtension);
        }
        return output;
    }

    ConversionPlan _plan;
    FileFinder _finder;
    Resolver _resolver;
    std::map<StoredPath, std::size_t> _textures;  ///< numbered as they are met
    std::vector<Textures> _texturesOf;            ///< the files
    std::set<std::size_t> _open;                  ///< files whose references are being followed
    std::vector<std::size_t> _finished;           ///< files in the order in which that was done
    std::map<std::pair<StoredPath, PaletteHashes>, std::size_t> _known;
    std::set<std::string> _takenOutputs;
    std::set<StoredPath> _passedOver;
};

}  // namespace

fs::path mirroredPath(const fs::path& inputFolder, const fs::path& outputFolder, const fs::path& path) {
    fs::path mirrored = outputFolder;
    bool isFirst = true;
    for (const fs::path& part : path.lexically_relative(inputFolder)) {
        const bool isStateFolder = isFirst && toLowerCase(part.string()) == stateFolderName;
        mirrored /= part == ".." ? folderAboveTheDatabase : isStateFolder ? insteadOfStateFolder : part;
        isFirst = false;
    }
    return mirrored;
}

bool isBelow(const fs::path& path, const fs::path& folder) {
    const fs::path relative = path.lexically_relative(folder);
    return !relative.empty() && *relative.begin() != "..";
}

std::string relativeName(const fs::path& file, const fs::path& folder) {
    return file.lexically_relative(folder).generic_string();
}

TextureFolders textureFoldersOf(const ConversionPlan& plan) {
    return {plan.options.textures, plan.inputFolder, plan.outputFolder, gatheringFolder(plan.files.front().output)};
}

ConversionPlan planFiles(const ConversionOptions& options) {
    return Planner(options).run();
}

void checkOutputs(const ConversionPlan& plan, const std::function<bool(std::size_t)>& mayReplace) {
    Resolver resolver;
    try {
        std::set<StoredPath> folders;
        for (std::size_t i = 0; i < plan.files.size(); ++i) {
            const PlannedFile& file = plan.files[i];
            if (file.output.empty() || !file.problem.empty()) continue;
            const fs::path folder = file.output.parent_path();
            if (folders.insert(folder).second) checkStaysBelow(plan.outputFolder, folder);
            if (plan.inputs.count(resolver.identityOf(file.output)) != 0) {
                throw OutputError(file.output.string() + ": is one of the inputs; choose another output");
            }
            checkOutputPath(file.output, plan.options.overwrite || (mayReplace && mayReplace(i)));
        }
    } catch (const OutputError& error) {
        throw CommandError(ExitStatus::OutputNotWritten, error.what());
    }
}

fs::path stateFolderOf(const fs::path& output) {
    return output.parent_path() / stateFolderName / output.filename();
}

ConversionPlan planConversion(const ConversionOptions& options) {
    ConversionPlan plan = planFiles(options);
    checkOutputs(plan, {});
    return plan;
}

}  // namespace veltrane::sceneutils::tool
