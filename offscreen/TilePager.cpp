#include "TilePager.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace veltrane::sceneutils::offscreen {

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
    DatabasePager::requestNodeFile(fileName, nodePath, priority, frameStamp, databaseRequest, options);
}

}  // namespace veltrane::sceneutils::offscreen
