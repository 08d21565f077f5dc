#include "TileReading.h"

#include <osg/PagedLOD>
#include <osg/ProxyNode>
#include <osgDB/FileNameUtils>
#include <osgDB/FileUtils>

#include <filesystem>
#include <set>
#include <tuple>

namespace fs = std::filesystem;
using osgDB::ReaderWriter;

namespace veltrane::sceneutils::tool {

namespace {

/** Finds what a graph refers to, each reference once, with the eyes of OpenSceneGraph. */
class ReferenceFinder : public osg::NodeVisitor {
public:
    /** @param options with which the graph was read */
    ReferenceFinder(const std::string& folder, const osgDB::Options* options, std::vector<TileReference>& references)
        : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _folder(folder), _options(options), _references(references) {
        setNodeMaskOverride(~0u);
    }

    using osg::NodeVisitor::apply;

    void apply(osg::Group& group) override {
        if (_seen.insert(&group).second) traverse(group);
    }

    void apply(osg::PagedLOD& paged) override {
        if (!_seen.insert(&paged).second) return;
        for (unsigned int i = paged.getNumChildren(); i < paged.getNumFileNames(); ++i) {
            const std::string& name = paged.getFileName(i);
            if (name.empty()) continue;
            const std::string asked = paged.getDatabasePath() + name;
            add(name, pathOf(asked), osgDB::containsServerAddress(asked), false, shownBy(paged, i));
        }
        traverse(paged);
    }

    void apply(osg::ProxyNode& proxy) override {
        if (!_seen.insert(&proxy).second) return;
        const bool isLoadedWithTile = proxy.getLoadingExternalReferenceMode() == osg::ProxyNode::LOAD_IMMEDIATELY;
        for (unsigned int i = proxy.getNumChildren(); i < proxy.getNumFileNames(); ++i) {
            const std::string& name = proxy.getFileName(i);
            if (name.empty()) continue;
            const bool isRemote = osgDB::containsServerAddress(proxy.getDatabasePath() + name);
            add(name, pathWithTile(proxy, name), isRemote, isLoadedWithTile, {});
        }
        traverse(proxy);
    }

private:
    static std::optional<ShownWithin> shownBy(const osg::PagedLOD& paged, unsigned int child) {
        if (paged.getRangeMode() != osg::LOD::DISTANCE_FROM_EYE_POINT || child >= paged.getNumRanges()) return {};
        return ShownWithin{paged.getCenter(), static_cast<double>(paged.getMaxRange(child))};
    }

    std::string pathOf(const std::string& asked) const {
        return osgDB::findDataFile(asked, osgDB::Registry::instance()->getOptions());
    }

    // The readers look for it as soon as they meet it, in the two folders that it can be named from. What they do not
    // find the pager asks for later.
    std::string pathWithTile(const osg::ProxyNode& proxy, const std::string& name) const {
        const osg::ref_ptr<osgDB::Options> options = _options ? _options->cloneOptions() : new osgDB::Options;
        options->getDatabasePathList().push_front(_folder);
        options->getDatabasePathList().push_front(_folder + "/" + osgDB::getFilePath(name));
        const std::string path = _folder.empty() ? "" : osgDB::findDataFile(name, options);
        return path.empty() ? pathOf(proxy.getDatabasePath() + name) : path;
    }

    void add(const std::string& name, const std::string& path, bool isRemote, bool isLoadedWithTile,
             const std::optional<ShownWithin>& shown) {
        const osg::Vec3d center = shown ? shown->center : osg::Vec3d();
        const double radius = shown ? shown->radius : -1.0;
        if (!_known.emplace(name, path, isLoadedWithTile, center, radius).second) return;
        isRemote = isRemote || osgDB::containsServerAddress(name);
        _references.push_back({name, path, isRemote && path.empty(), isLoadedWithTile, shown});
    }

    std::string _folder;
    const osgDB::Options* _options;
    std::vector<TileReference>& _references;
    std::set<const osg::Node*> _seen;
    std::set<std::tuple<std::string, std::string, bool, osg::Vec3d, double>> _known;
};

std::string whyNotReadable(const std::string& name, const std::string& path) {
    if (osgDB::containsServerAddress(name)) return "is on a server, which is not asked";
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (path.empty() || !fs::exists(status)) return "is missing";
    return fs::is_regular_file(status) ? "" : "is no regular file";
}

bool isReadable(const std::string& name, const osgDB::Options* options) {
    return whyNotReadable(name, osgDB::findDataFile(name, options)).empty();
}

}  // namespace

ReaderWriter::ReadResult TileReading::readNode(const std::string& name, const osgDB::Options* options) {
    if (_isReading) {
        TileReference reference;
        reference.name = name;
        reference.isRemote = osgDB::containsServerAddress(name);
        reference.path = osgDB::findDataFile(name, options);
        reference.isLoadedWithTile = true;
        _references.push_back(reference);
        return ReaderWriter::ReadResult::FILE_NOT_FOUND;
    }
    _isReading = true;
    ReaderWriter::ReadResult result = ReadFileCallback::readNode(name, options);
    if (result.validNode()) {
        ReferenceFinder finder(osgDB::getFilePath(osgDB::findDataFile(name, options)), options, _references);
        result.getNode()->accept(finder);
    }
    return result;
}

ReaderWriter::ReadResult TileReading::readImage(const std::string& name, const osgDB::Options* options) {
    std::string problem = whyNotReadable(name, osgDB::findDataFile(name, options));
    if (problem.empty()) {
        ReaderWriter::ReadResult result = ReadFileCallback::readImage(name, options);
        if (result.validImage()) return result;
        problem = "cannot be read";
    }
    const osg::ref_ptr<osg::Image> image = new osg::Image;
    image->setFileName(name);
    _emptyImages[image] = "'" + name + "' " + problem;
    return image.get();
}

ReaderWriter::ReadResult TileReading::readObject(const std::string& name, const osgDB::Options* options) {
    if (isReadable(name, options)) return ReadFileCallback::readObject(name, options);
    return ReaderWriter::ReadResult::FILE_NOT_FOUND;
}

ReaderWriter::ReadResult TileReading::readHeightField(const std::string& name, const osgDB::Options* options) {
    if (isReadable(name, options)) return ReadFileCallback::readHeightField(name, options);
    return ReaderWriter::ReadResult::FILE_NOT_FOUND;
}

ReaderWriter::ReadResult TileReading::readShader(const std::string& name, const osgDB::Options* options) {
    if (isReadable(name, options)) return ReadFileCallback::readShader(name, options);
    return ReaderWriter::ReadResult::FILE_NOT_FOUND;
}

std::string TileReading::whatIsWrongWith(const osg::Image& image) const {
    const auto empty = _emptyImages.find(&image);
    return empty == _emptyImages.end() ? std::string() : empty->second;
}

}  // namespace veltrane::sceneutils::tool
