#include "OsgMessages.h"

#include <algorithm>
#include <mutex>
#include <sstream>

namespace veltrane::sceneutils::tool {

/** Takes messages from whichever thread they come. */
class OsgMessages::Collector : public osg::NotifyHandler {
public:
    void notify(osg::NotifySeverity, const char* message) override {
        const std::lock_guard<std::mutex> lock(_mutex);
        _text += message;
    }

    std::string text() const {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _text;
    }

private:
    mutable std::mutex _mutex;
    std::string _text;
};

OsgMessages::OsgMessages()
    : _collector(new Collector), _handlerBefore(osg::getNotifyHandler()), _levelBefore(osg::getNotifyLevel()) {
    osg::setNotifyHandler(_collector);
    osg::setNotifyLevel(osg::WARN);
}

OsgMessages::~OsgMessages() {
    osg::setNotifyLevel(_levelBefore);
    osg::setNotifyHandler(_handlerBefore);
}

std::vector<std::string> OsgMessages::lines() const {
    std::vector<std::string> lines;
    std::istringstream text(_collector->text());
    for (std::string line; std::getline(text, line);) {
        const bool isNew = std::find(lines.begin(), lines.end(), line) == lines.end();
        if (!line.empty() && isNew) lines.push_back(line);
    }
    return lines;
}

}  // namespace veltrane::sceneutils::tool
