#include <logging/Logger.h>

#include "logging/Log4cppSetup.h"
#include "support/CapturedDescriptor.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <log4cpp/BasicConfigurator.hh>
#include <log4cpp/PropertyConfigurator.hh>
#include <log4cpp/SimpleConfigurator.hh>

#include <atomic>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <streambuf>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using namespace testing_support;
using log4cpp::Category;
using log4cpp::Priority;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;
using veltrane::logging::Logger;

namespace {

static_assert(!std::is_copy_constructible_v<Logger>);
static_assert(!std::is_copy_assignable_v<Logger>);
static_assert(!std::is_default_constructible_v<Logger>);
static_assert(Logger::ERROR == 300 && Logger::WARN == 400 && Logger::NOTICE == 500 && Logger::INFO == 600 &&
              Logger::DEBUG == 700);

constexpr Logger::_Level everyLevel[] = {Logger::ERROR, Logger::WARN, Logger::NOTICE, Logger::INFO, Logger::DEBUG};

// What the libraries that log do: fetched before main().
Logger* const loggerAtLoad = Logger::instance();
Category* const categoryAtLoad = Logger::instance()->getCategory("fetched at load", true);

Category* tools() {
    return Logger::instance()->getCategory("tools", true);
}

void logAs(Logger::_Level level, const std::string& message = "message") {
    Logger::instance()->log(tools(), level, "dir/File", 12, message);
}

/** The levels that are enabled, and those of which a record was written: both as the levels' numbers. */
std::vector<int> enabledLevels() {
    std::vector<int> result;
    for (Logger::_Level level : everyLevel) {
        if (Logger::instance()->isEnabled(tools(), level)) result.push_back(level);
    }
    return result;
}

void logAtEveryLevel() {
    for (Logger::_Level level : everyLevel) logAs(level);
}

std::string contentsOf(const std::string& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

/** Neither thread begins before both are there: short work would be done by the first before the second runs. */
void onTwoThreads(const std::function<void()>& work) {
    std::atomic<int> present = 0;
    const auto meetAndWork = [&] {
        ++present;
        while (present < 2) std::this_thread::yield();
        work();
    };
    std::thread first(meetAndWork), second(meetAndWork);
    first.join();
    second.join();
}

/** A stream's end that lets other threads run in the middle of a write, and notices when they write meanwhile. */
class SlowBuffer : public std::streambuf {
public:
    std::atomic<bool> overlapped = false;
    std::vector<std::string> writes;

protected:
    std::streamsize xsputn(const char* text, std::streamsize count) override {
        if (_writing.exchange(true)) overlapped = true;
        std::this_thread::yield();
        {
            const std::lock_guard<std::mutex> lock(_mutex);
            writes.emplace_back(text, static_cast<std::size_t>(count));
        }
        _writing = false;
        return count;
    }

private:
    std::atomic<bool> _writing = false;
    std::mutex _mutex;
};

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

}  // namespace

TEST(Logger, IsOnePerProcess) {
    EXPECT_NE(Logger::instance(), nullptr);
    EXPECT_EQ(Logger::instance(), Logger::instance());
}

TEST(Logger, WorksDuringStaticInitialisation) {
    const Log4cppSetup setup;
    const StandardError standardError;

    EXPECT_EQ(loggerAtLoad, Logger::instance());
    EXPECT_EQ(categoryAtLoad, Logger::instance()->getCategory("fetched at load", false));
    loggerAtLoad->log(categoryAtLoad, Logger::WARN, "File", 1, "message");
    EXPECT_EQ(standardError.text(), "WARN fetched at load File:1: message\n");
}

TEST(Logger, HandsOutTheSameCategoryEachTime) {
    Category* const category = Logger::instance()->getCategory("same", true);

    ASSERT_NE(category, nullptr);
    EXPECT_EQ(category->getName(), "same");
    EXPECT_EQ(Logger::instance()->getCategory("same", true), category);
    EXPECT_EQ(Logger::instance()->getCategory("same", false), category);
    EXPECT_NE(Logger::instance()->getCategory("other", true), category);
}

TEST(Logger, HandsOutTheCategoryThatLog4cppHas) {
    Category& category = Category::getInstance("made by the application");

    EXPECT_EQ(Logger::instance()->getCategory("made by the application", false), &category);
    EXPECT_EQ(Logger::instance()->getCategory("made by the application", true), &category);
}

TEST(Logger, MakesNoCategoryUnlessAsked) {
    EXPECT_EQ(Logger::instance()->getCategory("unknown", false), nullptr);
    EXPECT_EQ(Logger::instance()->getCategory("unknown", false), nullptr);
    EXPECT_EQ(Category::exists("unknown"), nullptr);
}

TEST(Logger, IgnoresANullCategory) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& records = keepRecordsOf(Category::getRoot());
    const StandardError standardError;

    EXPECT_FALSE(Logger::instance()->isEnabled(nullptr, Logger::ERROR));
    Logger::instance()->log(nullptr, Logger::ERROR, "File", 1, "message");

    EXPECT_EQ(standardError.text(), "");
    EXPECT_THAT(takeRecords(records), IsEmpty());
}

TEST(UnconfiguredLogger, WritesWarningsToStandardErrorAsOneLine) {
    const Log4cppSetup setup;
    const StandardError standardError;

    Logger::instance()->log(tools(), Logger::WARN, "sceneutils/File", 486, "Failed to load");

    EXPECT_EQ(standardError.text(), "WARN tools sceneutils/File:486: Failed to load\n");
}

TEST(UnconfiguredLogger, WritesWarningsAndWorseOnly) {
    const Log4cppSetup setup;
    const StandardError standardError;

    logAtEveryLevel();

    EXPECT_EQ(standardError.text(), "ERROR tools dir/File:12: message\nWARN tools dir/File:12: message\n");
    EXPECT_THAT(enabledLevels(), ElementsAre(300, 400));
}

TEST(UnconfiguredLogger, NamesEveryLevel) {
    const Log4cppSetup setup;
    tools()->setPriority(Priority::DEBUG);
    const StandardError standardError;

    logAtEveryLevel();

    EXPECT_EQ(standardError.text(),
              "ERROR tools dir/File:12: message\n"
              "WARN tools dir/File:12: message\n"
              "NOTICE tools dir/File:12: message\n"
              "INFO tools dir/File:12: message\n"
              "DEBUG tools dir/File:12: message\n");
}

TEST(UnconfiguredLogger, KeepsAMessageWithLineBreaksOnOneLine) {
    const Log4cppSetup setup;
    const StandardError standardError;

    logAs(Logger::WARN, "first\nsecond\r\nthird\n");

    EXPECT_EQ(standardError.text(), "WARN tools dir/File:12: first second  third \n");
}

TEST(UnconfiguredLogger, TakesTheMessageAsText) {
    const Log4cppSetup setup;
    const StandardError standardError;

    logAs(Logger::WARN, "100%s %n");
    logAs(Logger::WARN, "");

    EXPECT_EQ(standardError.text(), "WARN tools dir/File:12: 100%s %n\nWARN tools dir/File:12: \n");
}

TEST(UnconfiguredLogger, WritesNothingToStandardOutput) {
    const Log4cppSetup setup;
    const StandardError standardError;
    const CapturedDescriptor standardOutput(STDOUT_FILENO);

    logAtEveryLevel();

    EXPECT_EQ(standardOutput.text(), "");
}

TEST(UnconfiguredLogger, ReachesTheProcessesStandardErrorThroughCerr) {
    const Log4cppSetup setup;
    const CapturedDescriptor standardError(STDERR_FILENO);

    logAs(Logger::WARN);

    EXPECT_EQ(standardError.text(), "WARN tools dir/File:12: message\n");
}

TEST(UnconfiguredLogger, HonoursAPriorityThatWasSetOnTheCategoryOrAboveIt) {
    const Log4cppSetup setup;
    const StandardError standardError;

    tools()->setPriority(Priority::ERROR);
    EXPECT_THAT(enabledLevels(), ElementsAre(300));
    logAs(Logger::WARN);
    EXPECT_EQ(standardError.text(), "");

    Category* const below = Logger::instance()->getCategory("tools.below", true);
    EXPECT_FALSE(Logger::instance()->isEnabled(below, Logger::WARN));
    below->setPriority(Priority::INFO);
    EXPECT_TRUE(Logger::instance()->isEnabled(below, Logger::INFO));
}

TEST(UnconfiguredLogger, StaysSoWhileOnlyAnUnrelatedCategoryHasAnAppender) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& records = keepRecordsOf(Category::getInstance("application"));
    const StandardError standardError;

    logAs(Logger::WARN);

    EXPECT_EQ(standardError.text(), "WARN tools dir/File:12: message\n");
    EXPECT_THAT(takeRecords(records), IsEmpty());
}

TEST(UnconfiguredLogger, KeepsTheLinesOfTwoThreadsApart) {
    const Log4cppSetup setup;
    SlowBuffer buffer;
    std::streambuf* const own = std::cerr.rdbuf(&buffer);

    onTwoThreads([] {
        for (int i = 0; i < 500; ++i) logAs(Logger::WARN);
    });
    std::cerr.rdbuf(own);

    EXPECT_FALSE(buffer.overlapped);
    EXPECT_THAT(buffer.writes, SizeIs(1000));
    EXPECT_THAT(buffer.writes, Each("WARN tools dir/File:12: message\n"));
}

TEST(ConfiguredLogger, HandsRecordsToAnAppenderOfTheRootOnly) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& records = keepRecordsOf(Category::getRoot());
    const StandardError standardError;

    logAs(Logger::WARN);

    EXPECT_THAT(takeRecords(records), ElementsAre("WARN tools dir/File:12: message"));
    EXPECT_EQ(standardError.text(), "");
}

TEST(ConfiguredLogger, HandsRecordsToAnAppenderOfTheCategoryOnly) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& records = keepRecordsOf(*tools());
    const StandardError standardError;

    logAs(Logger::ERROR);

    EXPECT_THAT(takeRecords(records), ElementsAre("ERROR tools dir/File:12: message"));
    EXPECT_EQ(standardError.text(), "");
}

TEST(ConfiguredLogger, LetsTheRootsPriorityDecide) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& records = keepRecordsOf(Category::getRoot());

    Category::setRootPriority(Priority::ERROR);
    EXPECT_THAT(enabledLevels(), ElementsAre(300));
    logAtEveryLevel();
    EXPECT_THAT(takeRecords(records), SizeIs(1));

    Category::setRootPriority(Priority::DEBUG);
    EXPECT_THAT(enabledLevels(), ElementsAre(300, 400, 500, 600, 700));
    logAtEveryLevel();
    EXPECT_THAT(takeRecords(records), SizeIs(5));
}

TEST(ConfiguredLogger, LetsTheCategorysPriorityDecideBeforeTheRoots) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& records = keepRecordsOf(Category::getRoot());
    Category::setRootPriority(Priority::ERROR);
    tools()->setPriority(Priority::NOTICE);

    logAtEveryLevel();

    EXPECT_THAT(enabledLevels(), ElementsAre(300, 400, 500));
    EXPECT_THAT(takeRecords(records), ElementsAre("ERROR tools dir/File:12: message", "WARN tools dir/File:12: message",
                                                  "NOTICE tools dir/File:12: message"));
}

TEST(ConfiguredLogger, WritesARecordToTheAppendersOfTheCategoryAndOfTheRoot) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& ofRoot = keepRecordsOf(Category::getRoot());
    log4cpp::StringQueueAppender& ofCategory = keepRecordsOf(*tools());

    logAs(Logger::WARN);

    EXPECT_THAT(takeRecords(ofRoot), SizeIs(1));
    EXPECT_THAT(takeRecords(ofCategory), SizeIs(1));
}

TEST(ConfiguredLogger, KeepsARecordFromTheRootWhenTheCategoryIsNotAdditive) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& ofRoot = keepRecordsOf(Category::getRoot());
    log4cpp::StringQueueAppender& ofCategory = keepRecordsOf(*tools());
    tools()->setAdditivity(false);

    logAs(Logger::WARN);

    EXPECT_THAT(takeRecords(ofRoot), IsEmpty());
    EXPECT_THAT(takeRecords(ofCategory), SizeIs(1));
}

TEST(ConfiguredLogger, WritesNowhereWhenTheCategoryIsCutOffFromEveryAppender) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& ofRoot = keepRecordsOf(Category::getRoot());
    tools()->setAdditivity(false);
    const StandardError standardError;

    logAs(Logger::ERROR);

    EXPECT_THAT(takeRecords(ofRoot), IsEmpty());
    EXPECT_EQ(standardError.text(), "");
}

TEST(ConfiguredLogger, TakesTheMessageAsText) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& records = keepRecordsOf(Category::getRoot());

    logAs(Logger::WARN, "100%s\n%n");

    EXPECT_THAT(takeRecords(records), ElementsAre("WARN tools dir/File:12: 100%s\n%n"));
}

TEST(ConfiguredLogger, MayBeConfiguredAfterItsFirstRecord) {
    const Log4cppSetup setup;
    const StandardError standardError;
    logAs(Logger::WARN, "before");

    log4cpp::StringQueueAppender& records = keepRecordsOf(Category::getRoot());
    logAs(Logger::WARN, "after");

    EXPECT_EQ(standardError.text(), "WARN tools dir/File:12: before\n");
    EXPECT_THAT(takeRecords(records), ElementsAre("WARN tools dir/File:12: after"));
}

TEST(ConfiguredLogger, MayBeConfiguredBeforeTheCategoryIsAskedFor) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& records = keepRecordsOf(Category::getInstance("configured first"));
    const StandardError standardError;

    Category* const category = Logger::instance()->getCategory("configured first", true);
    Logger::instance()->log(category, Logger::WARN, "File", 1, "message");

    EXPECT_THAT(takeRecords(records), ElementsAre("WARN configured first File:1: message"));
    EXPECT_EQ(standardError.text(), "");
}

TEST(ConfiguredLogger, IsUnconfiguredAgainOnceTheAppendersAreRemoved) {
    const Log4cppSetup setup;
    keepRecordsOf(Category::getRoot());
    const StandardError standardError;

    Category::getRoot().removeAllAppenders();
    logAs(Logger::WARN);

    EXPECT_EQ(standardError.text(), "WARN tools dir/File:12: message\n");
}

TEST(ConfiguredLogger, ObeysAPropertiesFile) {
    const Log4cppSetup setup;
    const TemporaryDirectory directory;
    write(directory / "log.properties",
          "log4cpp.rootCategory=ERROR, FILE\n"
          "log4cpp.category.tools=INFO\n"
          "log4cpp.appender.FILE=FileAppender\n"
          "log4cpp.appender.FILE.fileName=" +
              directory / "log.txt" +
              "\n"
              "log4cpp.appender.FILE.layout=PatternLayout\n"
              "log4cpp.appender.FILE.layout.ConversionPattern=%p|%c|%m%n\n");
    const StandardError standardError;

    log4cpp::PropertyConfigurator::configure(directory / "log.properties");
    logAs(Logger::INFO);
    logAs(Logger::DEBUG);

    EXPECT_EQ(contentsOf(directory / "log.txt"), "INFO|tools|dir/File:12: message\n");
    EXPECT_EQ(standardError.text(), "");
}

TEST(ConfiguredLogger, ObeysTheBasicConfigurator) {
    const Log4cppSetup setup;
    const StandardError standardError;
    const CapturedDescriptor standardOutput(STDOUT_FILENO);

    log4cpp::BasicConfigurator::configure();
    logAs(Logger::INFO);
    logAs(Logger::DEBUG);

    EXPECT_THAT(linesOf(standardOutput.text()), ElementsAre(EndsWith(" INFO tools : dir/File:12: message")));
    EXPECT_EQ(standardError.text(), "");
}

TEST(ConfiguredLogger, ObeysTheSimpleConfigurator) {
    const Log4cppSetup setup;
    const TemporaryDirectory directory;
    write(directory / "log.init", "appender tools simple file " + directory / "log.txt" + "\npriority tools WARN\n");
    const StandardError standardError;

    log4cpp::SimpleConfigurator::configure(directory / "log.init");
    logAs(Logger::WARN);
    logAs(Logger::NOTICE);

    EXPECT_THAT(linesOf(contentsOf(directory / "log.txt")), ElementsAre(EndsWith(": dir/File:12: message")));
    EXPECT_EQ(standardError.text(), "");
}

TEST(ConfiguredLogger, KeepsEveryRecordOfTwoThreads) {
    const Log4cppSetup setup;
    log4cpp::StringQueueAppender& records = keepRecordsOf(Category::getRoot());

    onTwoThreads([] {
        for (int i = 0; i < 500; ++i) logAs(Logger::WARN);
    });

    const std::vector<std::string> taken = takeRecords(records);
    EXPECT_THAT(taken, SizeIs(1000));
    EXPECT_THAT(taken, Each("WARN tools dir/File:12: message"));
}

TEST(Logger, HandsOutOneCategoryToTwoThreads) {
    std::vector<Category*> first, second;
    const auto askForAll = [](std::vector<Category*>& into) {
        for (int i = 0; i < 200; ++i) {
            into.push_back(Logger::instance()->getCategory("contested" + std::to_string(i), true));
        }
    };

    std::thread thread([&] { askForAll(first); });
    askForAll(second);
    thread.join();

    EXPECT_EQ(first, second);
}
