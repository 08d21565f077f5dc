#include "TilePager.h"

#include <osgDB/Options>
#include <osgDB/Registry>

#include <osg/PagedLOD>
#include <osg/ProxyNode>

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <thread>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::offscreen {

namespace {

using Preparation = std::function<void(osg::Node&)>;

/** Reads with the options that a tile asks for, prepares the tile, and turns exceptions of readers into failures. */
class GuardedReading : public osgDB::ReadFileCallback {
public:
    GuardedReading(const osgDB::Options* own, Preparation prepare) : _own(own), _prepare(std::move(prepare)) {}

    osgDB::ReaderWriter::ReadResult readNode(const std::string& fileName, const osgDB::Options* options) override {
        const osg::ref_ptr<osgDB::Options> unguarded = options->cloneOptions();
        unguarded->setReadFileCallback(_own ? _own->getReadFileCallback() : nullptr);
        try {
            osgDB::ReaderWriter::ReadResult result = osgDB::Registry::instance()->readNode(fileName, unguarded, false);
            if (_prepare && result.validNode()) _prepare(*result.getNode());
            return result;
        } catch (const std::exception& error) {
            return osgDB::ReaderWriter::ReadResult(error.what());
        }
    }

private:
    osg::ref_ptr<const osgDB::Options> _own;
    Preparation _prepare;
};

osg::ref_ptr<osgDB::Options> guarded(const osg::Referenced* options, const Preparation& prepare) {
    const auto* asked = dynamic_cast<const osgDB::Options*>(options);
    const osgDB::Options* own = asked ? asked : osgDB::Registry::instance()->getOptions();
    osg::ref_ptr<osgDB::Options> guard = own ? own->cloneOptions() : new osgDB::Options;
    guard->setReadFileCallback(new GuardedReading(own, prepare));
    return guard;
}

/** The file that a child of a node was loaded from; empty if it is no such node. */
std::string fileOfChild(const osg::Node& parent, const osg::Node& child) {
    if (const auto* paged = dynamic_cast<const osg::PagedLOD*>(&parent)) {
        const unsigned int index = paged->getChildIndex(&child);
        return index < paged->getNumFileNames() ? paged->getDatabasePath() + paged->getFileName(index) : "";
    }
    if (const auto* proxy = dynamic_cast<const osg::ProxyNode*>(&parent)) {
        const unsigned int index = proxy->getChildIndex(&child);
        return index < proxy->getNumFileNames() ? proxy->getDatabasePath() + proxy->getFileName(index) : "";
    }
    return "";
}

bool isSameFile(const fs::path& left, const fs::path& right) {
    if (left == right) return true;
    if (left.filename() != right.filename()) return false;
    std::error_code error;
    return fs::weakly_canonical(left, error) == fs::weakly_canonical(right, error) && !error;
}

bool hangsBelow(const std::string& file, const osg::NodePath& path) {
    for (std::size_t i = 1; i < path.size(); ++i) {
        const std::string above = fileOfChild(*path[i - 1], *path[i]);
        if (!above.empty() && isSameFile(above, file)) return true;
    }
    return false;
}

void addOnce(std::vector<std::string>& names, const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
}

}  // namespace

void TilePager::startLoading() {
    _failures.clear();
    _belowThemselves.clear();
    _isLoading = true;
}

// The nodes that tiles were to hang below are not kept longer than needed.
void TilePager::stopLoading() {
    _isLoading = false;
    _requested.clear();
    _tried.clear();
}

void TilePager::waitForReaders() const {
    const auto isReading = [this] {
        if (getFileRequestListSize() > 0) return true;
        for (unsigned int i = 0; i < getNumDatabaseThreads(); ++i) {
            if (getDatabaseThread(i)->getActive()) return true;
        }
        return false;
    };
    while (isReading()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void TilePager::beginFrame() {
    _tried.insert(_requested.begin(), _requested.end());
    _requested.clear();
}

void TilePager::requestNodeFile(const std::string& fileName, osg::NodePath& nodePath, float priority,
                                const osg::FrameStamp* frameStamp, osg::ref_ptr<osg::Referenced>& databaseRequest,
                                const osg::Referenced* options) {
    if (!_isLoading) return;
    const Request request(fileName, nodePath.empty() ? nullptr : nodePath.back());
    if (_tried.count(request) != 0) {
        return addOnce(_failures, fileName);
    }
    if (hangsBelow(fileName, nodePath)) return addOnce(_belowThemselves, fileName);
    _requested.insert(request);
    DatabasePager::requestNodeFile(fileName, nodePath, priority, frameStamp, databaseRequest,
                                   guarded(options, _prepare));
}

}  // namespace veltrane::sceneutils::offscreen
