#include <sceneutils/log/LogChannel.h>

#include "logging/Log4cppSetup.h"
#include "support/StandardError.h"

#include <gmock/gmock.h>

#include <ostream>

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
namespace log_channel = veltrane::sceneutils::log;
using veltrane::logging::Logger;

TEST(LogChannel, ObtainsTheLibrarysCategory) {
    log4cpp::Category* const category = log_channel::obtainCategory();

    ASSERT_NE(category, nullptr);
    EXPECT_EQ(category->getName(), "sceneutils");
    EXPECT_EQ(log_channel::obtainCategory(), category);
    EXPECT_EQ(Logger::instance()->getCategory("sceneutils", false), category);
}

TEST(LogChannel, WritesARecordWithTheGivenFileAndLine) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& records = keepRecordsOf(log4cpp::Category::getRoot());

    log_channel::emit(log_channel::obtainCategory(), Logger::INFO, "sceneutils/File", 77,
                      [](std::ostream& message) { message << "moved " << 3 << " of " << 0.5 << " at " << 1e10; });

    EXPECT_THAT(takeRecords(records), ElementsAre("INFO sceneutils sceneutils/File:77: moved 3 of 0.5 at 1e+10"));
}

TEST(LogChannel, ComposesTheMessageOnce) {
    const Log4cppSetup setup;
    const StandardError standardError;
    int composed = 0;

    log_channel::emit(log_channel::obtainCategory(), Logger::WARN, "File", 1, [&](std::ostream& message) {
        ++composed;
        message << "message";
    });

    EXPECT_EQ(composed, 1);
    EXPECT_EQ(standardError.text(), "WARN sceneutils File:1: message\n");
}

TEST(LogChannel, DoesNotComposeTheMessageOfALevelThatIsSwitchedOff) {
    const Log4cppSetup setup;
    const StandardError standardError;
    int composed = 0;

    log_channel::emit(log_channel::obtainCategory(), Logger::INFO, "File", 1, [&](std::ostream&) { ++composed; });

    EXPECT_EQ(composed, 0);
    EXPECT_EQ(standardError.text(), "");
}

TEST(LogChannel, DoesNotComposeTheMessageOfANullCategory) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& records = keepRecordsOf(log4cpp::Category::getRoot());
    int composed = 0;

    log_channel::emit(nullptr, Logger::WARN, "File", 1, [&](std::ostream&) { ++composed; });

    EXPECT_EQ(composed, 0);
    EXPECT_THAT(takeRecords(records), IsEmpty());
}
