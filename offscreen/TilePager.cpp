#include "TilePager.h"

#include <osgDB/Options>
#include <osgDB/Registry>

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>

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

}  // namespace

void TilePager::startLoading() {
    _failures.clear();
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
        const bool isKnown = std::find(_failures.begin(), _failures.end(), fileName) != _failures.end();
        if (!isKnown) _failures.push_back(fileName);
        return;
    }
    _requested.insert(request);
    DatabasePager::requestNodeFile(fileName, nodePath, priority, frameStamp, databaseRequest,
                                   guarded(options, _prepare));
}

}  // namespace veltrane::sceneutils::offscreen
