#pragma once

#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/LoggingEvent.hh>

#include <string>
#include <vector>

namespace testing_support {

/** Catches the records of a log category while it lives; nothing else gets them. */
class LogRecords {
public:
    explicit LogRecords(const std::string& category) : _category(log4cpp::Category::getInstance(category)) {
        _category.setAdditivity(false);
        _category.addAppender(_appender);
    }
    ~LogRecords() {
        _category.removeAppender(&_appender);
        _category.setAdditivity(true);
    }
    LogRecords(const LogRecords&) = delete;
    LogRecords& operator=(const LogRecords&) = delete;

    /** Each as "CATEGORY PRIORITY MESSAGE". */
    const std::vector<std::string>& texts() const { return _appender.texts; }

private:
    struct Appender : log4cpp::AppenderSkeleton {
        Appender() : log4cpp::AppenderSkeleton("records") {}
        void close() override {}
        bool requiresLayout() const override { return false; }
        void setLayout(log4cpp::Layout*) override {}

        std::vector<std::string> texts;

    protected:
        void _append(const log4cpp::LoggingEvent& event) override {
            texts.push_back(event.categoryName + " " + std::to_string(event.priority) + " " + event.message);
        }
    };

    log4cpp::Category& _category;
    Appender _appender;
};

}  // namespace testing_support
