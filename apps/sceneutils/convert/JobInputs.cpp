#include "JobInputs.h"

#include "../files/CheckedReading.h"
#include "../files/FileFinder.h"
#include "../files/FileReferences.h"

#include <osgDB/Callbacks>
#include <osgDB/Registry>

#include <cstring>
#include <exception>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

/** Looks for what a file names from the folder that it is thought to lie in. */
class FolderSearch : public osgDB::FindFileCallback {
public:
    FolderSearch(fs::path folder, LookupListener onLookup)
        : _folder(std::move(folder)), _onLookup(std::move(onLookup)) {}

    std::string findDataFile(const std::string& name, const osgDB::Options*, osgDB::CaseSensitivity) override {
        const fs::path found = _finder.findTexture(_folder, name).value_or(fs::path());
        if (_onLookup) _onLookup(_folder, name, found);
        return found.string();
    }

private:
    fs::path _folder;
    LookupListener _onLookup;
    FileFinder _finder;
};

/** Finds the file itself, and nothing that it names. */
class OneFileOnly : public osgDB::FindFileCallback {
public:
    explicit OneFileOnly(std::string path) : _path(std::move(path)) {}

    std::string findDataFile(const std::string& name, const osgDB::Options*, osgDB::CaseSensitivity) override {
        return name == _path ? name : std::string();
    }

private:
    std::string _path;
};

/** Lets nothing but one find-file callback be at work for the length of a scope. */
class OtherCallbacks {
public:
    explicit OtherCallbacks(osgDB::FindFileCallback* find)
        : _find(registry().getFindFileCallback()), _read(registry().getReadFileCallback()) {
        registry().setFindFileCallback(find);
        registry().setReadFileCallback(nullptr);
    }
    ~OtherCallbacks() {
        registry().setFindFileCallback(_find.get());
        registry().setReadFileCallback(_read.get());
    }
    OtherCallbacks(const OtherCallbacks&) = delete;
    OtherCallbacks& operator=(const OtherCallbacks&) = delete;

private:
    static osgDB::Registry& registry() { return *osgDB::Registry::instance(); }

    osg::ref_ptr<osgDB::FindFileCallback> _find;
    osg::ref_ptr<osgDB::ReadFileCallback> _read;
};

osg::ref_ptr<osg::Node> readWith(osgDB::FindFileCallback* find, const fs::path& path, osg::Referenced* palettes) {
    const OtherCallbacks callbacks(find);
    const osg::ref_ptr<osgDB::Options> options = new osgDB::Options("keepExternalReferences=yes;preserveFace=yes");
    options->setObjectCacheHint(osgDB::Options::CACHE_NONE);
    options->setUserData(palettes);
    int error = 0;
    osg::ref_ptr<osg::Node> graph;
    try {
        graph = readFlight(path, options, error).getNode();
    } catch (const std::exception&) {  // the reader throws on some damaged files
    }
    if (error != 0) throw std::runtime_error(path.string() + ": " + std::strerror(error));
    return graph;
}

}  // namespace

osg::ref_ptr<osg::Referenced> readPalettes(const StateFolder& state, const std::vector<PaletteStep>& steps,
                                           const LookupListener& onLookup) {
    osg::ref_ptr<osg::Referenced> palettes;
    for (const PaletteStep& step : steps) {
        const osg::ref_ptr<osgDB::FindFileCallback> search = new FolderSearch(step.folder, onLookup);
        const osg::ref_ptr<osg::Node> graph = readWith(search, state.path() / step.file, palettes);
        const auto references = graph ? fileReferences(*graph) : std::vector<FileReference>();
        palettes = references.empty() ? nullptr : references.front().userData;
    }
    return palettes;
}

std::optional<osg::BoundingSphere> boundAsRead(const fs::path& path) {
    const osg::ref_ptr<osgDB::FindFileCallback> search = new OneFileOnly(path.string());
    const osg::ref_ptr<osg::Node> graph = readWith(search, path, nullptr);
    if (!graph) return std::nullopt;
    return graph->getBound();
}

}  // namespace veltrane::sceneutils::tool
