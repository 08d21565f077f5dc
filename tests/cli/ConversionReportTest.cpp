#include "convert/ConversionReport.h"

#include <gmock/gmock.h>

#include <sstream>

using namespace veltrane::sceneutils::tool;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

namespace {

PlannedFile planned(const std::string& path, const std::string& output, std::uintmax_t bytes,
                    std::size_t namedBy = noFile) {
    PlannedFile file;
    file.path = file.identity = path;
    file.output = output;
    file.bytes = bytes;
    file.namedBy = namedBy;
    return file;
}

FileResult converted(std::size_t file, std::uintmax_t bytesOut) {
    FileResult result;
    result.file = file;
    result.written = true;
    result.bytesOut = bytesOut;
    return result;
}

FileResult failed(std::size_t file, const std::string& problem) {
    FileResult result;
    result.file = file;
    result.problem = problem;
    return result;
}

FileResult read(std::size_t file) {
    FileResult result;
    result.file = file;
    return result;
}

/** A master and two files that it refers to. */
ConversionPlan threeFiles() {
    ConversionPlan plan;
    plan.files = {planned("/db/master.flt", "/out/master.ive", 1000), planned("/db/a.flt", "/out/a.ive", 200, 0),
                  planned("/db/b.flt", "/out/b.ive", 30, 1)};
    return plan;
}

std::string summaryOf(const ConversionPlan& plan, const ConversionReport& report) {
    std::ostringstream out;
    writeSummary(out, totalsOf(plan, report), report.seconds);
    return out.str();
}

nlohmann::json fileAsJson(const ConversionPlan& plan, const FileResult& result) {
    return reportAsJson(plan, {{result}, 0.0})["files"][0];
}

std::vector<std::string> fieldsOf(const nlohmann::json& json) {
    std::vector<std::string> fields;
    for (const auto& field : json.items()) fields.push_back(field.key());
    return fields;
}

}  // namespace

TEST(ConversionReport, SaysManyThingsInThePlural) {
    FileResult master = converted(0, 5000);
    master.textureBytesOut = 700;
    master.texturesMissing = {"grass.png", "rock.png"};
    const ConversionReport report = {{failed(2, "no such file"), converted(1, 60), master}, 12.345};
    EXPECT_EQ(summaryOf(threeFiles(), report),
              "2 files read, 2 converted, 1 failed, 2 textures missing, 1230 bytes in, 5760 bytes out, 12.35 s\n");
}

TEST(ConversionReport, SaysOneThingInTheSingular) {
    ConversionPlan plan = threeFiles();
    plan.files[0].bytes = 1;
    FileResult master = converted(0, 1);
    master.texturesMissing = {"grass.png"};
    EXPECT_EQ(summaryOf(plan, {{master}, 1.0}),
              "1 file read, 1 converted, 0 failed, 1 texture missing, 1 byte in, 1 byte out, 1.00 s\n");
}

TEST(ConversionReport, SaysNothingInThePlural) {
    EXPECT_EQ(summaryOf(threeFiles(), {}),
              "0 files read, 0 converted, 0 failed, 0 textures missing, 0 bytes in, 0 bytes out, 0.00 s\n");
}

TEST(ConversionReport, CountsAFileThatIsOnlyReadAsReadAndNotConverted) {
    const ConversionReport report = {{converted(0, 10), read(1), failed(2, "is a folder")}, 0.0};
    EXPECT_EQ(report.filesRead(), 2u);
    EXPECT_EQ(report.filesConverted(), 1u);
    EXPECT_EQ(report.filesFailed(), 1u);
}

TEST(ConversionReport, CountsATextureThatSeveralFilesMissOnce) {
    FileResult a = converted(1, 10);
    FileResult b = converted(2, 10);
    a.texturesMissing = {"grass.png", "rock.png"};
    b.texturesMissing = {"rock.png", "Rock.png"};
    EXPECT_EQ((ConversionReport{{a, b}, 0.0}.texturesMissing()), 3u);
}

TEST(ConversionReport, CountsBytesBeyondFourGigabytes) {
    ConversionPlan plan = threeFiles();
    plan.files[0].bytes = 5'000'000'000u;
    const ConversionReport report = {{converted(0, 6'000'000'000u), converted(1, 1)}, 0.0};
    EXPECT_EQ(report.bytesIn(plan), 5'000'000'200u);
    EXPECT_EQ(report.bytesOut(), 6'000'000'001u);
}

TEST(ConversionReport, HasAJsonFormOfTheRun) {
    ConversionPlan plan = threeFiles();
    plan.options.convertReferences = true;
    plan.options.maxRange = 2500.0f;
    plan.options.smooth = false;
    plan.options.textures = TextureMode::Copy;
    const nlohmann::json json = reportAsJson(plan, {{converted(0, 10)}, 1.5});
    EXPECT_THAT(fieldsOf(json),
                UnorderedElementsAre("version", "command", "input", "output", "options", "totals", "files"));
    EXPECT_EQ(json["version"], 1);
    EXPECT_EQ(json["command"], "convert");
    EXPECT_EQ(json["input"], "/db/master.flt");
    EXPECT_EQ(json["output"], "/out/master.ive");
    EXPECT_EQ(json["options"], (nlohmann::json{{"recurse", false},
                                               {"convertReferences", true},
                                               {"maxRange", 2500.0},
                                               {"smooth", false},
                                               {"overwrite", false},
                                               {"textures", "copy"}}));
}

TEST(ConversionReport, HasTheSummarysTotalsInItsJsonForm) {
    FileResult master = converted(0, 5000);
    master.textureBytesOut = 700;
    master.texturesMissing = {"grass.png", "rock.png"};
    const ConversionReport report = {{failed(2, "no such file"), converted(1, 60), master}, 12.5};
    EXPECT_EQ(reportAsJson(threeFiles(), report)["totals"], (nlohmann::json{{"filesRead", 2},
                                                                            {"filesConverted", 2},
                                                                            {"filesFailed", 1},
                                                                            {"texturesMissing", 2},
                                                                            {"bytesIn", 1230},
                                                                            {"bytesOut", 5760},
                                                                            {"seconds", 12.5}}));
}

TEST(ConversionReport, HasAJsonFormOfAConvertedFile) {
    FileResult result = converted(1, 60);
    result.textureBytesOut = 7;
    result.texturesPlaced = {{"/out/grass.png", "/elsewhere/grass.png"}};
    result.texturesMissing = {"rock.png"};
    result.seconds = 0.25;
    EXPECT_EQ(fileAsJson(threeFiles(), result), (nlohmann::json{{"input", "/db/a.flt"},
                                                                {"status", "converted"},
                                                                {"output", "/out/a.ive"},
                                                                {"namedBy", "/db/master.flt"},
                                                                {"bytesIn", 200},
                                                                {"bytesOut", 60},
                                                                {"textureBytesOut", 7},
                                                                {"missingTextures", {"rock.png"}},
                                                                {"seconds", 0.25}}));
}

TEST(ConversionReport, HasAJsonFormOfAFileThatFailed) {
    EXPECT_EQ(fileAsJson(threeFiles(), failed(2, "empty file")),
              (nlohmann::json{{"input", "/db/b.flt"},
                              {"status", "failed"},
                              {"problem", "empty file"},
                              {"namedBy", "/db/a.flt"},
                              {"bytesIn", 30},
                              {"bytesOut", 0},
                              {"textureBytesOut", 0},
                              {"missingTextures", nlohmann::json::array()},
                              {"seconds", 0.0}}));
}

TEST(ConversionReport, HasAJsonFormOfAFileThatWasOnlyRead) {
    ConversionPlan plan = threeFiles();
    plan.files[1].output = "";
    const nlohmann::json json = fileAsJson(plan, read(1));
    EXPECT_EQ(json["status"], "read");
    EXPECT_FALSE(json.contains("output"));
    EXPECT_FALSE(json.contains("problem"));
}

TEST(ConversionReport, HasNobodyWhoNamedTheMaster) {
    EXPECT_FALSE(fileAsJson(threeFiles(), converted(0, 10)).contains("namedBy"));
}

TEST(ConversionReport, NamesNoOutputThatWasNotWritten) {
    FileResult result = failed(1, "/out/a.ive: exists already");
    result.isOutputProblem = true;
    const nlohmann::json json = fileAsJson(threeFiles(), result);
    EXPECT_EQ(json["status"], "failed");
    EXPECT_FALSE(json.contains("output"));
}

TEST(ConversionReport, ListsFilesInTheOrderOfTheirEnd) {
    const ConversionReport report = {{converted(2, 1), converted(1, 1), converted(0, 1)}, 0.0};
    std::vector<std::string> inputs;
    const nlohmann::json json = reportAsJson(threeFiles(), report);
    for (const auto& file : json["files"]) inputs.push_back(file["input"]);
    EXPECT_THAT(inputs, ElementsAre("/db/b.flt", "/db/a.flt", "/db/master.flt"));
}

TEST(ConversionReport, CanBeWrittenWithNamesThatAreNotUtf8) {
    ConversionPlan plan = threeFiles();
    plan.files[1].identity = "/db/h\xfcgel.flt";
    FileResult result = converted(1, 10);
    result.texturesMissing = {"gr\xe4s.png"};
    const nlohmann::json json = reportAsJson(plan, {{result}, 0.0});
    EXPECT_EQ(json["files"][0]["input"], "/db/h\xfcgel.flt");
    const std::string text = json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
    const nlohmann::json reread = nlohmann::json::parse(text);
    EXPECT_EQ(reread["files"][0]["input"], "/db/h\xef\xbf\xbdgel.flt");
    EXPECT_EQ(reread["files"][0]["missingTextures"], nlohmann::json{"gr\xef\xbf\xbds.png"});
}

TEST(FileResult, SurvivesTheWayBetweenProcesses) {
    FileResult result = failed(7, "h\xfcgel.flt: failed");
    result.isOutputProblem = true;
    result.written = true;
    result.bytesOut = 5'000'000'000u;
    result.textureBytesOut = 6'000'000'000u;
    result.texturesPlaced = {{"/out/h\xfcgel.png", "/db/h\xfcgel.png"}};
    result.texturesMissing = {"gr\xe4s.png", ""};
    result.seconds = 0.1;
    const auto sent = nlohmann::json::to_cbor(nlohmann::json(result));
    const auto received = nlohmann::json::from_cbor(sent).get<FileResult>();
    EXPECT_EQ(received.file, 7u);
    EXPECT_EQ(received.problem, "h\xfcgel.flt: failed");
    EXPECT_TRUE(received.isOutputProblem);
    EXPECT_TRUE(received.written);
    EXPECT_EQ(received.bytesOut, 5'000'000'000u);
    EXPECT_EQ(received.textureBytesOut, 6'000'000'000u);
    EXPECT_EQ(received.texturesPlaced, result.texturesPlaced);
    EXPECT_EQ(received.texturesMissing, result.texturesMissing);
    EXPECT_EQ(received.seconds, 0.1);
}
