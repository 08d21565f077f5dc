// An application that brings its own logger: it defines the four operations itself, and the library, linked unchanged,
// calls them instead of those of the logging module.

#include <logging/Logger.h>
#include <sceneutils/SceneUtils.h>

#include "support/StandardError.h"

#include <gmock/gmock.h>

#include <string>
#include <tuple>
#include <vector>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing_support::StandardError;
using veltrane::logging::Logger;
using veltrane::sceneutils::reloadShader;

namespace {

using Record = std::tuple<log4cpp::Category*, int, std::string, int, std::string>;
using CategoryRequest = std::tuple<std::string, bool>;

/** What the library has asked of the logger. */
struct Calls {
    std::vector<CategoryRequest> categories;
    std::vector<std::string> names;
    std::vector<Record> records;
    bool enabled = true;
};

// Inside a function, because the library calls before this file's own statics are made.
Calls& calls() {
    static Calls instance;
    return instance;
}

/** A handle that the library only passes on, so it does not have to lead to a real category. */
log4cpp::Category* ownCategory() {
    static int place;
    return reinterpret_cast<log4cpp::Category*>(&place);
}

/** The operations that a failing reloadShader() calls. */
std::vector<std::string> namesCalledByAFailure(bool enabled) {
    calls().names.clear();
    calls().records.clear();
    calls().enabled = enabled;
    reloadShader("no such file.frag", osg::Shader::FRAGMENT, new osg::Program);
    return calls().names;
}

}  // namespace

namespace veltrane::logging {

Logger* Logger::instance() {
    static auto* const logger = new Logger;
    calls().names.push_back("instance");
    return logger;
}

log4cpp::Category* Logger::getCategory(const std::string& name, bool create) {
    calls().categories.emplace_back(name, create);
    return ownCategory();
}

bool Logger::isEnabled(log4cpp::Category*, _Level) {
    calls().names.push_back("isEnabled");
    return calls().enabled;
}

void Logger::log(log4cpp::Category* category, _Level level, const std::string& file, int line,
                 const std::string& message) {
    calls().names.push_back("log");
    calls().records.emplace_back(category, level, file, line, message);
}

}  // namespace veltrane::logging

TEST(OwnLogger, IsAskedForTheCategoryWhileTheLibraryIsLoaded) {
    EXPECT_THAT(calls().categories, Not(IsEmpty()));
    EXPECT_THAT(calls().categories, Each(CategoryRequest("sceneutils", true)));
}

TEST(OwnLogger, GetsTheLibrarysRecordsInPlaceOfTheLoggingModule) {
    const StandardError standardError;

    namesCalledByAFailure(true);

    EXPECT_THAT(calls().records, ElementsAre(Record(ownCategory(), 400, "sceneutils/SceneUtils", 486,
                                                    "Failed to load fragment shader: no such file.frag")));
    EXPECT_EQ(standardError.text(), "");
}

TEST(OwnLogger, IsAskedWhetherTheLevelIsEnabledBeforeItGetsTheRecord) {
    EXPECT_THAT(namesCalledByAFailure(true), ElementsAre("instance", "isEnabled", "instance", "log"));
}

TEST(OwnLogger, GetsNoRecordOfALevelThatItHasSwitchedOff) {
    EXPECT_THAT(namesCalledByAFailure(false), ElementsAre("instance", "isEnabled"));
}
