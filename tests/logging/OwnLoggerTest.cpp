// An application that brings its own logger: it defines the four operations itself, and the library, linked unchanged,
// calls them instead of those of the logging module.

#include <logging/Logger.h>
#include <sceneutils/BubbleUpTransform.h>
#include <sceneutils/SceneUtils.h>

#include "support/LightPoints.h"
#include "support/StandardError.h"

#include <gmock/gmock.h>

#include <string>
#include <tuple>
#include <vector>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing_support::makeLights;
using testing_support::positionsOf;
using testing_support::StandardError;
using veltrane::logging::Logger;
using veltrane::sceneutils::BubbleUpTransform;
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

/** The operations that moving two lights from (2, 4) and (4, 8) by (-3, -6) calls. */
std::vector<std::string> namesCalledByMovingTwoLights(bool enabled) {
    const auto lights = makeLights({osg::Vec3(2, 4, 1), osg::Vec3(4, 8, 3)});
    osg::Matrixd matrix;
    calls().names.clear();
    calls().records.clear();
    calls().enabled = enabled;
    BubbleUpTransform().createMatrixForGeodes(lights, 0.0, matrix);
    EXPECT_THAT(positionsOf(lights), ElementsAre(osg::Vec3(-1, -2, -1), osg::Vec3(1, 2, 1)));
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

TEST(OwnLogger, GetsARecordForEachLightPointThatIsMoved) {
    EXPECT_THAT(namesCalledByMovingTwoLights(true),
                ElementsAre("instance", "isEnabled", "instance", "log", "instance", "isEnabled", "instance", "log"));

    const std::string file = "sceneutils/BubbleUpTransform";
    EXPECT_THAT(calls().records,
                ElementsAre(Record(ownCategory(), 600, file, 87, "Transforming light from 2 4 to -1 -2"),
                            Record(ownCategory(), 600, file, 87, "Transforming light from 4 8 to 1 2")));
}

TEST(OwnLogger, GetsNoRecordOfMovedLightPointsOnceItHasSwitchedThemOff) {
    EXPECT_THAT(namesCalledByMovingTwoLights(false), ElementsAre("instance", "isEnabled", "instance", "isEnabled"));
}
