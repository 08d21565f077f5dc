#pragma once

#include <osg/Notify>
#include <osg/ref_ptr>

#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/**
 * Keeps back what OpenSceneGraph has to tell for the length of a scope: warnings and worse. One may exist at a time.
 */
class OsgMessages {
public:
    OsgMessages();
    ~OsgMessages();
    OsgMessages(const OsgMessages&) = delete;
    OsgMessages& operator=(const OsgMessages&) = delete;

    /** What was told so far, each line once. */
    std::vector<std::string> lines() const;

private:
    class Collector;

    osg::ref_ptr<Collector> _collector;
    osg::ref_ptr<osg::NotifyHandler> _handlerBefore;
    osg::NotifySeverity _levelBefore;
};

}  // namespace veltrane::sceneutils::tool
