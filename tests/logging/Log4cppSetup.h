#pragma once

#include <log4cpp/Appender.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/StringQueueAppender.hh>

#include <memory>
#include <string>
#include <vector>

namespace testing_support {

/** Brings log4cpp, which is global to the process, back to its state before any configuration: now and at the end. */
class Log4cppSetup {
public:
    Log4cppSetup() { reset(); }
    ~Log4cppSetup() { reset(); }
    Log4cppSetup(const Log4cppSetup&) = delete;
    Log4cppSetup& operator=(const Log4cppSetup&) = delete;

private:
    static void reset() {
        const std::unique_ptr<std::vector<log4cpp::Category*>> all(log4cpp::Category::getCurrentCategories());
        for (log4cpp::Category* category : *all) {
            const bool isRoot = !category->getParent();
            category->removeAllAppenders();
            category->setAdditivity(true);
            category->setPriority(isRoot ? log4cpp::Priority::INFO : log4cpp::Priority::NOTSET);
        }
    }
};

/** Gives the category an appender that keeps its records, each as "LEVEL CATEGORY MESSAGE". The category owns it. */
inline log4cpp::StringQueueAppender& keepRecordsOf(log4cpp::Category& category) {
    auto* layout = new log4cpp::PatternLayout;
    layout->setConversionPattern("%p %c %m");
    auto* appender = new log4cpp::StringQueueAppender("records of " + category.getName());
    appender->setLayout(layout);
    category.addAppender(appender);
    return *appender;
}

inline std::vector<std::string> takeRecords(log4cpp::StringQueueAppender& appender) {
    std::vector<std::string> records;
    while (appender.queueSize() > 0) records.push_back(appender.popMessage());
    return records;
}

}  // namespace testing_support
