#include "files/PlainText.h"
#include "support/Conversions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/** Expects that the tool refuses a command line in one line, which is returned. */
std::string usageError(const std::vector<std::string>& arguments) {
    const TemporaryDirectory folder;
    ToolSettings settings;
    settings.workingDirectory = folder.path();
    writeFlight(folder / "a.flt", 10.0f);
    const ToolResult result = runTool(arguments, settings);

    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(namesIn(folder.path()), std::set<std::string>({"a.flt"}));
    EXPECT_EQ(result.errorLines().size(), 1u) << result.errors;
    EXPECT_THAT(result.errors, StartsWith("sceneutils: "));
    return result.errors;
}

}  // namespace

TEST(CommandLine, TellsItsVersion) {
    const ToolResult result = runTool({"--version"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "sceneutils " SCENEUTILS_VERSION "\n");
    EXPECT_EQ(result.errors, "");
}

TEST(CommandLine, HelpListsTheCommandsAndExitStatuses) {
    const ToolResult result = runTool({"--help"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    for (const char* word : {"convert", "sample", "--help", "--version", "0 done", "1 usage", "2 input unreadable",
                             "3 not supported", "4 output not written", "5 done in part", "130 interrupted"})
        EXPECT_THAT(result.output, HasSubstr(word));
}

TEST(CommandLine, HelpDoesNotListWhatIsNotForPeople) {
    EXPECT_THAT(runTool({"--help"}).output, testing::Not(HasSubstr("convert-job")));
}

TEST(CommandLine, HelpOfConvertListsEveryOptionWithItsDefault) {
    const ToolResult result = runTool({"convert", "--help"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    for (const char* word : {"INPUT",         "OUTPUT",       "--recurse",   "--convert-references",
                             "--max-range",   "=10000",       "--no-smooth", "--overwrite",
                             "--report",      "--time-limit", "=600",        "--jobs",
                             "--job-timeout", "--job-memory", "--launcher",  "--dry-run",
                             "--verbose",     "--help",       "in seconds",  "length unit"})
        EXPECT_THAT(result.output, HasSubstr(word));
}

TEST(CommandLine, RefusesAMissingOrUnknownCommand) {
    EXPECT_THAT(usageError({}), HasSubstr("(see --help)"));
    EXPECT_EQ(usageError({"translate", "a.flt", "a.ive"}),
              "sceneutils: there is no command 'translate' (see --help)\n");
}

TEST(CommandLine, RefusesOptionsThatDoNotExist) {
    EXPECT_THAT(usageError({"convert", "a.flt", "a.ive", "--embed"}), HasSubstr("--embed"));
    EXPECT_THAT(usageError({"--embed", "convert", "a.flt", "a.ive"}), HasSubstr("--embed"));
    EXPECT_THAT(usageError({"convert", "a.flt", "a.ive", "b.ive"}), HasSubstr("b.ive"));
}

TEST(CommandLine, RefusesAConversionWithoutInputOrOutput) {
    EXPECT_EQ(usageError({"convert"}), "sceneutils: INPUT is required (see --help)\n");
    EXPECT_EQ(usageError({"convert", "a.flt"}), "sceneutils: OUTPUT is required (see --help)\n");
    EXPECT_THAT(usageError({"convert", "", "a.ive"}), HasSubstr("INPUT"));
}

TEST(CommandLine, RefusesAnOutputThatDoesNotEndInIve) {
    EXPECT_EQ(usageError({"convert", "a.flt", "a.osgb"}), "sceneutils: a.osgb: the output's name must end in .ive\n");
    EXPECT_EQ(usageError({"convert", "a.flt", "new/"}), "sceneutils: new/: the output's name must end in .ive\n");
    EXPECT_EQ(usageError({"convert", "a.flt", ""}), "sceneutils: : the output's name must end in .ive\n");
}

TEST(CommandLine, RefusesRangesAndTimesThatMakeNoSense) {
    for (const char* range : {"-1", "far", "nan", "inf", "1e999", ""})
        EXPECT_THAT(usageError({"convert", "a.flt", "a.ive", "--max-range", range}), HasSubstr("--max-range"));
    for (const char* seconds : {"0", "-1", "86401", "1.5", "soon"})
        EXPECT_THAT(usageError({"convert", "a.flt", "a.ive", "--time-limit", seconds}), HasSubstr("--time-limit"));
    for (const char* jobs : {"0", "-1", "1025", "many"})
        EXPECT_THAT(usageError({"convert", "a.flt", "a.ive", "--jobs", jobs}), HasSubstr("--jobs"));
    EXPECT_THAT(usageError({"convert", "a.flt", "a.ive", "--jobs", "1", "--job-memory", "15"}),
                HasSubstr("--job-memory"));
    EXPECT_THAT(usageError({"convert", "a.flt", "a.ive", "--jobs", "1", "--job-timeout", "0"}),
                HasSubstr("--job-timeout"));
    for (const char* launcher : {"", "  ", "a\nb"})
        EXPECT_THAT(usageError({"convert", "a.flt", "a.ive", "--jobs", "1", "--launcher", launcher}),
                    HasSubstr("--launcher"));
}

TEST(PlainText, HasNoControlCharactersAndKeepsEverythingElse) {
    EXPECT_EQ(veltrane::sceneutils::tool::withoutControlCharacters("a\nb\tc\x1b\x7f\xc3\xa9"), "a?b?c??\xc3\xa9");
    // A terminal may take the two bytes of U+009B for "escape [".
    EXPECT_EQ(veltrane::sceneutils::tool::withoutControlCharacters("\xc2\x9b"
                                                                   "2J\xc2\x80\xc2\xa0\xc2\x9f\xc2"),
              "?2J?\xc2\xa0?\xc2");
    EXPECT_EQ(veltrane::sceneutils::tool::withoutControlCharacters("latin-\xe9\x9b\n"), "latin-\xe9\x9b?");
}

TEST(PlainText, WritesNumbersWithoutExponentsAndWithTheDigitsThatTheyNeed) {
    using veltrane::sceneutils::tool::asText;

    EXPECT_EQ(asText(500000.0f), "500000");
    EXPECT_EQ(asText(-0.1f), "-0.1");
    EXPECT_EQ(asText(1e-5f), "0.00001");
    EXPECT_EQ(asText(1.1754944e-38f).size(), 47u);
    EXPECT_EQ(asText(osg::Vec3f(5e5f, 0.0f, 2.5f)), "500000,0,2.5");
}
