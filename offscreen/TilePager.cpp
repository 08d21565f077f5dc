#include "TilePager.h"

#include <osgDB/Callbacks>
#include <osgDB/Options>
#include <osgDB/Registry>

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>

namespace veltrane::sceneutils::offscreen {

/** Reads in the pager's threads, where an exception would end the process: plug-ins throw them on damaged files. */
class TilePager::TileReader : public osgDB::ReadFileCallback {
public:
    std::function<void(osg::Node&)> prepare;

    osgDB::ReaderWriter::ReadResult readNode(const std::string& name, const osgDB::Options* options) override {
        try {
            osgDB::ReaderWriter::ReadResult result = osgDB::Registry::instance()->readNodeImplementation(name, options);
            if (prepare && result.validNode()) prepare(*result.getNode());
            return result;
        } catch (const std::exception& exception) {
            return osgDB::ReaderWriter::ReadResult(exception.what());
        }
    }
};

TilePager::TilePager() : _reader(new TileReader) {}

TilePager::~TilePager() = default;

void TilePager::setPreparation(std::function<void(osg::Node&)> prepare) {
    _reader->prepare = std::move(prepare);
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
    const auto* given = dynamic_cast<const osgDB::Options*>(options);
    if (!given) given = osgDB::Registry::instance()->getOptions();
    const osg::ref_ptr<osgDB::Options> withReader = given ? given->cloneOptions() : new osgDB::Options;
    withReader->setReadFileCallback(_reader);
    DatabasePager::requestNodeFile(fileName, nodePath, priority, frameStamp, databaseRequest, withReader);
}

}  // namespace veltrane::sceneutils::offscreen
