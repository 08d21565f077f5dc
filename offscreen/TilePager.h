#pragma once

#include <osg/Node>
#include <osg/ref_ptr>
#include <osgDB/DatabasePager>

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace veltrane::sceneutils::offscreen {

/**
 * OpenSceneGraph's database pager, made so that one can wait for it: it loads nothing unless told to, it can tell
 * when what was asked for has been tried, it asks only once for a tile that cannot be loaded, and it does not load a
 * tile below itself. A reader that throws an exception has not loaded its tile.
 *
 * OpenSceneGraph's own asks again in each frame, for ever, as it loads a tile that refers to itself; and such an
 * exception ends the process.
 */
class TilePager : public osgDB::DatabasePager {
public:
    /** Loads tiles from now on. What failed before is forgotten, and tried again. */
    void startLoading();

    /** Loads no tiles from now on, as at first. */
    void stopLoading();

    /** What is done to each tile when it is read, in the reader's thread. */
    void setPreparation(std::function<void(osg::Node&)> prepare) { _prepare = std::move(prepare); }

    /** Waits until each tile that was asked for has been read or given up. What was read hangs in the next frame. */
    void waitForReaders() const;

    /** Begins a frame: what is asked for again in it although it has been tried is what failed. */
    void beginFrame();

    /** Whether tiles were asked for in this frame. */
    bool hasNewRequests() const { return !_requested.empty(); }

    /** The files that could not be loaded, each once, in the order in which that was found. */
    const std::vector<std::string>& failures() const { return _failures; }

    /** The files that were not loaded because they hang below themselves, each once. */
    const std::vector<std::string>& belowThemselves() const { return _belowThemselves; }

    void requestNodeFile(const std::string& fileName, osg::NodePath& nodePath, float priority,
                         const osg::FrameStamp* frameStamp, osg::ref_ptr<osg::Referenced>& databaseRequest,
                         const osg::Referenced* options) override;

protected:
    ~TilePager() override = default;

private:
    /** A file and the node that it is to hang below. */
    using Request = std::pair<std::string, osg::ref_ptr<const osg::Node>>;

    std::function<void(osg::Node&)> _prepare;
    bool _isLoading = false;
    std::set<Request> _requested;
    std::set<Request> _tried;
    std::vector<std::string> _failures;
    std::vector<std::string> _belowThemselves;
};

}  // namespace veltrane::sceneutils::offscreen
