#pragma once

#include <osg/Notify>
#include <osg/ref_ptr>

#include <string>

namespace testing_support {

/** Catches what OpenSceneGraph reports through osg::notify, notices and graver, while it lives. */
class OsgMessages {
public:
    OsgMessages() : _ownLevel(osg::getNotifyLevel()), _ownHandler(osg::getNotifyHandler()), _handler(new Handler) {
        osg::setNotifyLevel(osg::NOTICE);
        osg::setNotifyHandler(_handler);
    }
    ~OsgMessages() {
        osg::setNotifyHandler(_ownHandler);
        osg::setNotifyLevel(_ownLevel);
    }
    OsgMessages(const OsgMessages&) = delete;
    OsgMessages& operator=(const OsgMessages&) = delete;

    const std::string& text() const { return _handler->text; }

private:
    struct Handler : osg::NotifyHandler {
        void notify(osg::NotifySeverity, const char* message) override { text += message; }
        std::string text;
    };

    osg::NotifySeverity _ownLevel;
    osg::ref_ptr<osg::NotifyHandler> _ownHandler;
    osg::ref_ptr<Handler> _handler;
};

}  // namespace testing_support
