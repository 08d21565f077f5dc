#include "files/ShellText.h"
#include "plan/SlurmScript.h"
#include "support/JobConversions.h"
#include "support/ReferenceDatabases.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>

#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::AllOf;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using veltrane::sceneutils::tool::bashQuoted;
using veltrane::sceneutils::tool::shellQuoted;
using veltrane::sceneutils::tool::slurmScript;

namespace {

constexpr const char* bash = "/bin/bash";
const std::string alsoOutput = ": is one of the outputs; choose another name\n";
const std::string alsoInput = ": is one of the inputs; choose another name\n";

ToolResult runIn(const fs::path& folder, const std::vector<std::string>& arguments) {
    ToolSettings settings;
    settings.workingDirectory = folder;
    return runTool(arguments, settings);
}

void writePair(const fs::path& folder) {
    writeFlight(folder / "in/master.flt", 20, {"a.flt"});
    writeFlight(folder / "in/a.flt", 5);
}

/** Plans "in/master.flt" for "out/m.ive", with a script. */
ToolResult planIn(const TemporaryDirectory& folder, const std::string& script,
                  const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments = {"plan", "in/master.flt", "-o", "out/m.ive", "--slurm", script};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return runIn(folder.path(), arguments);
}

/** In "bin", a stand-in for srun, which notes its options and runs the rest, and a program that does harm. */
void writeStandIn(const TemporaryDirectory& folder) {
    writeBytes(folder / "bin/srun", "#!/bin/sh\necho \"$1 $2 $3 $4 $5\" >>\"$NOTES\"\nshift 5\nexec \"$@\"\n");
    writeBytes(folder / "bin/harm", "#!/bin/sh\necho done >>\"$HARM\"\n");
    for (const char* name : {"bin/srun", "bin/harm"}) fs::permissions(folder / name, fs::perms::owner_all);
}

/** Runs a script as Slurm would, in a folder that has nothing to do with it. */
ToolResult runScript(const TemporaryDirectory& folder, const fs::path& script,
                     const std::vector<std::string>& arguments = {}) {
    writeStandIn(folder);
    ToolSettings settings;
    settings.workingDirectory = "/";
    settings.environment = {{"PATH", (folder / "bin") + ":" + std::getenv("PATH")},
                            {"NOTES", folder / "notes"},
                            {"HARM", folder / "harm"},
                            {"SLURM_NTASKS", "3"}};
    std::vector<std::string> all = {script.string()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return ToolProcess(bash, all, settings).wait();
}

std::vector<std::string> linesOf(const std::string& text) {
    ToolResult result;
    result.errors = text;
    return result.errorLines();
}

const std::vector<std::string> harmfulNames = {"a b",
                                               "it's",
                                               "\"q\"",
                                               "$HARM",
                                               "$(harm)",
                                               "`harm`",
                                               "';harm;'",
                                               "\";harm;\"",
                                               "x\nharm\n",
                                               "x\n#SBATCH --wrap=harm\n",
                                               "\r\n",
                                               "-rf",
                                               "--",
                                               "--overwrite",
                                               "#x",
                                               "a;harm&harm|harm",
                                               "~",
                                               "*",
                                               "{a,b}",
                                               "!!",
                                               "b\\c\\",
                                               "tab\tbell\a\x1b[31m",
                                               "\\\n';harm;'",
                                               "latin-\xe9",
                                               "\x95\\x",
                                               "\x95'",
                                               "gr\xc3\xbc\xc3\x9f"
                                               "e",
                                               "$'\\n'"};

/** What bash makes of a word of a script. */
std::string asBashReads(const TemporaryDirectory& folder, const std::string& word) {
    writeBytes(folder / "word.sh", "printf '%s|' " + word + "\n");
    return ToolProcess(bash, {folder / "word.sh"}, {}).wait().output;
}

}  // namespace

TEST(ShellText, QuotesPlainTextWithApostrophes) {
    EXPECT_EQ(shellQuoted(""), "''");
    EXPECT_EQ(shellQuoted("/a b/$c"), "'/a b/$c'");
    EXPECT_EQ(shellQuoted("it's"), "'it'\\''s'");
    EXPECT_EQ(shellQuoted("a\nb"), "'a\nb'");
    EXPECT_EQ(bashQuoted("/a b/$c"), "'/a b/$c'");
    EXPECT_EQ(bashQuoted("it's"), "'it'\\''s'");
    EXPECT_EQ(bashQuoted("gr\xc3\xbc\xc3\x9f"), "'gr\xc3\xbc\xc3\x9f'");
}

TEST(ShellText, WritesControlCharactersAsNumbersForBash) {
    EXPECT_EQ(bashQuoted("a\nb"), "$'a\\012b'");
    EXPECT_EQ(bashQuoted("\x7f"), "$'\\177'");
    EXPECT_EQ(bashQuoted("'\\\n1\xe9 ~"), "$'\\047\\134\\0121\\351 ~'");
}

TEST(ShellText, MeansJustTheTextToBash) {
    const TemporaryDirectory folder;
    std::vector<std::string> texts = harmfulNames;
    std::mt19937 random(3);
    for (int i = 0; i < 20; ++i) {
        std::string text(50, ' ');
        for (char& c : text) c = static_cast<char>(1 + random() % 255);
        texts.push_back(text);
    }
    for (const std::string& text : texts) {
        EXPECT_EQ(asBashReads(folder, bashQuoted(text)), text + "|");
        EXPECT_EQ(asBashReads(folder, shellQuoted(text)), text + "|");
    }
}

TEST(SlurmScript, IsThisText) {
    EXPECT_EQ(slurmScript({"/usr/bin/sceneutils", "/db/master.flt", "/out/world.ive", 16, {"--max-range=5"}}),
              R"script(#!/bin/bash
#SBATCH --job-name=sceneutils
#SBATCH --ntasks=16
# Written by "sceneutils plan". Converts what is not converted yet: after an interruption, submit it again.
# Options given to sbatch take the place of those above; what follows the script's name goes to the conversion.
exec '/usr/bin/sceneutils' convert --recurse --jobs "${SLURM_NTASKS:-16}" \
    --launcher 'srun --exclusive -N1 -n1 --mem=0 --input=none' '--max-range=5' "$@" -- \
    '/db/master.flt' \
    '/out/world.ive'
)script");
}

TEST(SlurmScript, IsOfNineLinesOfPrintableCharactersWhateverTheNames) {
    for (const std::string& name : harmfulNames) {
        const std::string script = slurmScript({"/" + name, "/" + name, "/" + name, 1, {}});
        const auto lines = linesOf(script);
        EXPECT_THAT(lines, SizeIs(9));
        EXPECT_EQ(std::count_if(script.begin(), script.end(),
                                [](unsigned char c) { return (c < 0x20 && c != '\n') || c == 0x7f; }),
                  0);
    }
}

TEST(SlurmScript, IsWrittenWithAbsoluteNamesAndTheOptionsOfTheConversion) {
    const TemporaryDirectory folder;
    writePair(folder.path());

    const ToolResult result =
        planIn(folder, "sub/go.sh", {"--jobs", "7", "--no-smooth", "--overwrite", "--max-range", "12.50"});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, EndsWith(", plan: out/.sceneutils/m.ive/plan.json, script: sub/go.sh\n"));
    const fs::path here = fs::canonical(folder.path());
    EXPECT_EQ(readBytes(folder / "sub/go.sh"), slurmScript({fs::canonical(SCENEUTILS_TOOL),
                                                            here / "in/master.flt",
                                                            here / "out/m.ive",
                                                            7,
                                                            {"--max-range=12.50", "--no-smooth", "--overwrite"}}));
}

TEST(SlurmScript, HasOneTaskIfNothingElseIsSaid) {
    const TemporaryDirectory folder;
    writePair(folder.path());
    planIn(folder, "go.sh");
    EXPECT_THAT(readBytes(folder / "go.sh"),
                AllOf(HasSubstr("\n#SBATCH --ntasks=1\n"), HasSubstr(" --input=none' \"$@\" -- ")));
}

TEST(SlurmScript, CanBeRunByThoseWhoMayReadIt) {
    const TemporaryDirectory folder;
    writePair(folder.path());
    const mode_t before = umask(027);
    planIn(folder, "go.sh");
    umask(before);
    EXPECT_EQ(fs::status(folder / "go.sh").permissions(), static_cast<fs::perms>(0750));
}

TEST(SlurmScript, ConvertsWhateverTheNames) {
    for (const std::string& name : harmfulNames) {
        const TemporaryDirectory folder;
        const fs::path base = fs::path(folder.path()) / name;
        fs::create_directories(base / "in");
        FlightRecords().write(base / ("in/" + name + ".flt"));
        ASSERT_EQ(
            runIn(base / "in", {"plan", "-o", "../out/" + name + ".ive", "--slurm", "../" + name, "--", name + ".flt"})
                .status,
            0)
            << name;

        const ToolResult result = runScript(folder, base / name);

        EXPECT_EQ(result.status, 0) << name << result.errors;
        EXPECT_EQ(result.output.substr(0, 26), "1 file read, 1 converted, ") << name;
        EXPECT_TRUE(fs::exists(base / "out" / (name + ".ive"))) << name;
        EXPECT_FALSE(fs::exists(folder / "harm")) << name;
    }
}

TEST(SlurmScript, TakesPathsAsLongAsTheSystemDoes) {
    const TemporaryDirectory folder;
    std::string deep;
    for (int i = 0; i < 18; ++i) deep += "/" + std::string(210, static_cast<char>('a' + i));
    writePair(fs::path(folder.path().string() + deep));
    const fs::path base = fs::canonical(folder.path()).string() + deep;
    ASSERT_EQ(
        runIn(base, {"plan", "in/master.flt", "-o", (folder / "out") + "/m.ive", "--slurm", folder / "go.sh"}).status,
        0);

    EXPECT_EQ(runScript(folder, folder / "go.sh").status, 0);
    EXPECT_EQ(namesIn(folder / "out").count("a.ive"), 1u);
}

TEST(SlurmScript, RunsEachJobInAStepOfOneTask) {
    const TemporaryDirectory folder;
    writePair(folder.path());
    planIn(folder, "go.sh");

    const ToolResult result = runScript(folder, folder / "go.sh");

    EXPECT_EQ(countsIn(result), "2 files read, 2 converted, 0 failed, 0 textures missing");
    EXPECT_THAT(linesOf(readBytes(folder / "notes")),
                AllOf(SizeIs(2), Each("--exclusive -N1 -n1 --mem=0 --input=none")));
    EXPECT_THAT(runScript(folder, folder / "go.sh").output, HasSubstr("; 2 were up to date"));
    EXPECT_THAT(linesOf(readBytes(folder / "notes")), SizeIs(2));
}

TEST(SlurmScript, HandsItsArgumentsAndTheExitStatusOn) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"gone.flt"});
    EXPECT_EQ(planIn(folder, "go.sh").status, 5);

    EXPECT_EQ(runScript(folder, folder / "go.sh", {"--dry-run"}).status, 0);
    EXPECT_FALSE(fs::exists(folder / "out/m.ive"));
    EXPECT_EQ(runScript(folder, folder / "go.sh", {"--report", folder / "a report.json"}).status, 5);
    EXPECT_TRUE(fs::exists(folder / "a report.json"));
}

TEST(SlurmScript, ReplacesAFileOnlyIfAllowed) {
    const TemporaryDirectory folder;
    writePair(folder.path());
    writeBytes(folder / "go.sh", "mine");

    const ToolResult refused = planIn(folder, "go.sh");

    EXPECT_EQ(refused.status, 4);
    EXPECT_EQ(refused.errors, "sceneutils: go.sh: exists already; pass --overwrite to replace it\n");
    EXPECT_EQ(readBytes(folder / "go.sh"), "mine");
    EXPECT_FALSE(fs::exists(folder / "out"));
    EXPECT_EQ(planIn(folder, "go.sh", {"--overwrite"}).status, 0);
    EXPECT_THAT(readBytes(folder / "go.sh"), HasSubstr("#SBATCH"));
}

TEST(SlurmScript, NeverReplacesAnInputOrAnOutput) {
    const TemporaryDirectory folder;
    writeFlight(folder / "in/master.flt", 20, {"a.flt", "linked.flt"});
    writeFlight(folder / "in/a.flt", 5);
    writeFlight(folder / "elsewhere", 5);
    fs::create_symlink("../elsewhere", folder / "in/linked.flt");
    const FolderState before = stateOf(folder.path());
    const std::string ownFolder = ": is in the folder that the conversion keeps for itself; choose another name\n";
    for (const auto& [script, reason] : {std::pair<std::string, std::string>("in/master.flt", alsoInput),
                                         {"in/a.flt", alsoInput},
                                         {"elsewhere", alsoInput},
                                         {"out/m.ive", alsoOutput},
                                         {"out/a.ive", alsoOutput},
                                         {"out/.sceneutils/m.ive/build.ninja", ownFolder},
                                         {"out/.sceneutils/m.ive/new.sh", ownFolder}}) {
        const ToolResult refused = planIn(folder, script, {"--overwrite"});
        EXPECT_EQ(refused.status, 4) << script;
        EXPECT_EQ(refused.errors, "sceneutils: " + script + reason);
    }
    EXPECT_EQ(stateOf(folder.path()), before);
}

TEST(SlurmScript, LetsErrorsOfSrunBeSeen) {
    const TemporaryDirectory folder;
    writePair(folder.path());
    writeBytes(folder / "srun.sh", "#!/bin/sh\necho srun: error: a\necho srun: b >&2\nexec \"$@\"\n");
    fs::permissions(folder / "srun.sh", fs::perms::owner_all);

    const ToolResult result = convertInJobs(folder.path(), {"--jobs", "1", "--launcher", folder / "srun.sh"});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errorLines(), AllOf(SizeIs(2), Each("srun: error: a")));
}
