#include "DatabaseInfo.h"

#include "../Command.h"
#include "../files/FileFinder.h"
#include "../files/FileReferences.h"
#include "../files/FlightFile.h"
#include "../files/GraphFile.h"

#include <osgDB/FileUtils>
#include <osgDB/Registry>

#include <deque>

namespace fs = std::filesystem;
using osgDB::ReaderWriter;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* flightEnding = ".flt";

/**
 * Takes note of the images that plug-ins ask for while it lives: some leave no trace in the graph of those that are
 * missing. Keeps plug-ins from reading the files that a graph refers to: some do whatever the options say.
 */
class ReadRequests {
public:
    ReadRequests() : _before(osgDB::Registry::instance()->getReadFileCallback()) {
        osgDB::Registry::instance()->setReadFileCallback(_callback);
    }
    ~ReadRequests() { osgDB::Registry::instance()->setReadFileCallback(_before); }
    ReadRequests(const ReadRequests&) = delete;
    ReadRequests& operator=(const ReadRequests&) = delete;

    std::set<const osg::Image*> read() const {
        std::set<const osg::Image*> images;
        for (const osg::ref_ptr<osg::Image>& image : _callback->read) images.insert(image);
        return images;
    }
    const std::set<std::string>& missing() const { return _callback->missing; }

private:
    struct Callback : osgDB::ReadFileCallback {
        ReaderWriter::ReadResult readNode(const std::string& name, const osgDB::Options* options) override {
            // A name that the outermost one begins with is that file itself, read by way of a pseudo plug-in.
            const bool isPartOfIt = name.size() < outermost.size() && outermost.rfind(name, 0) == 0;
            if (!outermost.empty() && !isPartOfIt)
                return ReaderWriter::ReadResult(nullptr, ReaderWriter::ReadResult::FILE_LOADED);
            outermost = name;
            return osgDB::ReadFileCallback::readNode(name, options);
        }
        ReaderWriter::ReadResult readImage(const std::string& name, const osgDB::Options* options) override {
            ReaderWriter::ReadResult result = osgDB::ReadFileCallback::readImage(name, options);
            if (result.validImage()) {
                read.insert(result.getImage());
            } else {
                missing.insert(name);
            }
            return result;
        }
        std::set<osg::ref_ptr<osg::Image>> read;
        std::set<std::string> missing;
        std::string outermost;
    };

    osg::ref_ptr<osgDB::ReadFileCallback> _before;
    osg::ref_ptr<Callback> _callback = new Callback;
};

/** The textures that an OpenFlight file names and OpenSceneGraph does not find: it does not even ask for them. */
std::set<std::string> texturesNotFound(const fs::path& path) {
    std::set<std::string> names;
    if (toLowerCase(path.extension().string()) != flightEnding) return names;
    const osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    options->setDatabasePath(path.parent_path().string());
    for (const std::string& name : scanFlightFile(path).textures) {
        if (osgDB::findDataFile(name, options.get()).empty()) names.insert(name);
    }
    return names;
}

/** Without "..", if that is the same file still. */
fs::path shortened(const fs::path& path) {
    std::error_code error;
    const fs::path normal = path.lexically_normal();
    return fs::equivalent(path, normal, error) && !error ? normal : path;
}

class DatabaseWalk {
public:
    DatabaseWalk(bool recurse, const std::function<void(const FileInfo&)>& tell) : _recurse(recurse), _tell(tell) {}

    std::vector<FileInfo> run(const fs::path& path) {
        read(path, "", nullptr);
        _seen.insert(fs::canonical(path));
        for (; _recurse && !_open.empty(); _open.pop_front()) follow(_open.front());
        return std::move(_files);
    }

private:
    struct OpenReference {
        fs::path namedBy;
        FileReference reference;
    };

    void follow(const OpenReference& open) {
        const std::optional<fs::path> found = find(open);
        if (!found) {
            const fs::path path = (open.namedBy.parent_path() / open.reference.name).lexically_normal();
            if (_missing.insert(path).second) fail(path, open.namedBy, path.string() + ": no such file");
            return;
        }
        if (!_seen.insert(fs::canonical(*found)).second) return;
        const fs::path path = shortened(*found);
        try {
            read(path, open.namedBy.string(), open.reference.userData);
        } catch (const CommandError& error) {
            fail(path, open.namedBy, error.what());
        }
    }

    std::optional<fs::path> find(const OpenReference& open) {
        if (const auto beside = _finder.find(open.namedBy.parent_path(), open.reference.name)) return beside;
        return _finder.find(open.reference.databasePath, open.reference.name);
    }

    void read(const fs::path& path, const std::string& namedBy, osg::Referenced* palettes) {
        const ReadRequests requests;
        const osg::ref_ptr<osg::Node> graph = readGraph(path, References::Leave, palettes);
        FileInfo file = {path.string(), namedBy, "", inspect(*graph, requests.read())};
        std::set<std::string> missing = texturesNotFound(path);
        missing.insert(requests.missing().begin(), requests.missing().end());
        missing.merge(file.graph.missingTextures);
        file.graph.missingTextures.clear();
        for (const std::string& name : missing)
            file.graph.missingTextures.insert((path.parent_path() / name).lexically_normal().string());
        _files.push_back(std::move(file));
        if (!_recurse) return;
        for (FileReference& reference : fileReferences(*graph)) {
            if (!reference.isLoaded) _open.push_back({path, std::move(reference)});
        }
    }

    void fail(const fs::path& path, const fs::path& namedBy, const std::string& problem) {
        FileInfo file;
        file.file = path.string();
        file.namedBy = namedBy.string();
        file.problem = problem;
        _tell(file);
        _files.push_back(std::move(file));
    }

    bool _recurse;
    const std::function<void(const FileInfo&)>& _tell;
    FileFinder _finder;
    std::deque<OpenReference> _open;
    std::set<fs::path> _seen;  ///< real paths
    std::set<fs::path> _missing;
    std::vector<FileInfo> _files;
};

}  // namespace

std::vector<FileInfo> inspectDatabase(const fs::path& path, bool recurse,
                                      const std::function<void(const FileInfo&)>& tell) {
    return DatabaseWalk(recurse, tell).run(path);
}

}  // namespace veltrane::sceneutils::tool
