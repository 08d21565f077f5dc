#pragma once

#include <osg/Notify>
#include <osg/ref_ptr>

#include <map>
#include <string>

namespace testing_support {

/** Catches what OpenSceneGraph reports through osg::notify, by default notices and graver, while it lives. */
class OsgMessages {
public:
    explicit OsgMessages(osg::NotifySeverity level = osg::NOTICE)
        : _ownLevel(osg::getNotifyLevel()), _ownHandler(osg::getNotifyHandler()), _handler(new Handler) {
        osg::setNotifyLevel(level);
        osg::setNotifyHandler(_handler);
    }
    ~OsgMessages() {
        osg::setNotifyHandler(_ownHandler);
        osg::setNotifyLevel(_ownLevel);
    }
    OsgMessages(const OsgMessages&) = delete;
    OsgMessages& operator=(const OsgMessages&) = delete;

    const std::string& text() const { return _handler->text; }

    /** What was reported at that severity. */
    std::string textOf(osg::NotifySeverity severity) const { return _handler->texts[severity]; }

private:
    struct Handler : osg::NotifyHandler {
        void notify(osg::NotifySeverity severity, const char* message) override {
            text += message;
            texts[severity] += message;
        }
        std::string text;
        std::map<osg::NotifySeverity, std::string> texts;
    };

    osg::NotifySeverity _ownLevel;
    osg::ref_ptr<osg::NotifyHandler> _ownHandler;
    osg::ref_ptr<Handler> _handler;
};

}  // namespace testing_support
