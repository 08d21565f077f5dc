#include "Command.h"
#include "convert/ConversionPlan.h"
#include "support/FlightRecords.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace fs = std::filesystem;

namespace {

using Names = std::vector<std::string>;

FlightRecords model(const Names& references = {}) {
    return FlightRecords().push().references(references).pop();
}

/** A model with that colour palette, whose references take it over. */
FlightRecords modelHandingOnColors(const std::string& colors, const Names& references) {
    FlightRecords records;
    records.record(FlightRecords::ColorPalette, colors).push();
    for (const std::string& name : references) records.reference(name, ~FlightRecords::ownColors);
    return records.pop();
}

/** A model with that texture palette, whose references take it over. */
FlightRecords modelHandingOnTextures(const std::string& texture, const Names& references) {
    FlightRecords records;
    records.texture(texture).push();
    for (const std::string& name : references) records.reference(name, ~FlightRecords::ownTextures);
    return records.pop();
}

/** Converting db/master.flt in a folder to out/master.ive, with everything it refers to. */
ConversionOptions recursively(const TemporaryDirectory& folder, const std::string& input = "db/master.flt",
                              const std::string& output = "out/master.ive") {
    ConversionOptions options;
    options.input = folder / input;
    options.output = folder / output;
    options.recurse = true;
    return options;
}

ConversionOptions firstLevelOnly(const TemporaryDirectory& folder) {
    ConversionOptions options = recursively(folder);
    options.recurse = false;
    options.convertReferences = true;
    return options;
}

ConversionOptions masterOnly(const TemporaryDirectory& folder) {
    ConversionOptions options = recursively(folder);
    options.recurse = false;
    return options;
}

/** Each planned file as "name > output", "name" if there is none, or "name! problem"; outputs seen from their folder.
 */
Names summaryOf(const ConversionPlan& plan) {
    Names lines;
    for (const PlannedFile& file : plan.files) {
        std::string line = file.name;
        if (!file.output.empty()) line += " > " + relativeName(file.output, plan.outputFolder);
        if (!file.problem.empty()) line = file.name + "! " + file.problem;
        lines.push_back(line);
    }
    return lines;
}

Names plannedFiles(const ConversionOptions& options) {
    return summaryOf(planConversion(options));
}

/** How planning fails: the exit status and what is said; "none" if it does not. */
std::string failureOf(const ConversionOptions& options) {
    try {
        planConversion(options);
        return "none";
    } catch (const CommandError& error) {
        return std::to_string(static_cast<int>(error.status())) + " " + error.what();
    }
}

const PlannedFile& fileNamed(const ConversionPlan& plan, const std::string& name) {
    for (const PlannedFile& file : plan.files) {
        if (file.name == name) return file;
    }
    throw std::out_of_range("no file is called " + name);
}

/** Where the file's references lead to: names, "-" for those that stay as they are. */
Names targetsOf(const ConversionPlan& plan, const std::string& name) {
    Names targets;
    for (const PlannedReference& reference : fileNamed(plan, name).references) {
        targets.push_back(reference.target == noFile ? "-" : plan.files[reference.target].name);
    }
    return targets;
}

}  // namespace

TEST(ConversionPlan, HasTheMasterFirst) {
    const TemporaryDirectory folder;
    model().write(folder / "db/master.flt");
    const ConversionPlan plan = planConversion(recursively(folder));
    ASSERT_EQ(plan.files.size(), 1u);
    const PlannedFile& master = plan.files.front();
    EXPECT_EQ(master.path, folder / "db/master.flt");
    EXPECT_EQ(master.identity, folder / "db/master.flt");
    EXPECT_EQ(master.name, "master.flt");
    EXPECT_EQ(master.output, folder / "out/master.ive");
    EXPECT_EQ(master.namedBy, noFile);
    EXPECT_EQ(master.problem, "");
    EXPECT_EQ(master.bytes, model().bytes().size());
    EXPECT_EQ(plan.inputFolder, folder / "db");
    EXPECT_EQ(plan.outputFolder, folder / "out");
}

TEST(ConversionPlan, LaysOutputsAsTheInputsLie) {
    const TemporaryDirectory folder;
    model({"a.flt", "tiles/r1/b.flt"}).write(folder / "db/master.flt");
    model().write(folder / "db/a.flt");
    model({"deep/c.flt", "../d.flt"}).write(folder / "db/tiles/r1/b.flt");
    model().write(folder / "db/tiles/r1/deep/c.flt");
    model().write(folder / "db/tiles/d.flt");
    EXPECT_THAT(plannedFiles(recursively(folder)),
                ElementsAre("master.flt > master.ive", "a.flt > a.ive", "tiles/r1/b.flt > tiles/r1/b.ive",
                            "tiles/r1/deep/c.flt > tiles/r1/deep/c.ive", "tiles/d.flt > tiles/d.ive"));
}

TEST(ConversionPlan, LaysWhatIsOutsideTheMastersFolderBelowParent) {
    const TemporaryDirectory folder;
    model({"../common/a.flt", "../../b.flt"}).write(folder / "x/db/master.flt");
    model().write(folder / "x/common/a.flt");
    model().write(folder / "b.flt");
    EXPECT_THAT(plannedFiles(recursively(folder, "x/db/master.flt")),
                ElementsAre("master.flt > master.ive", "../common/a.flt > _parent/common/a.ive",
                            "../../b.flt > _parent/_parent/b.ive"));
}

TEST(ConversionPlan, KeepsAFolderCalledParentApart) {
    const TemporaryDirectory folder;
    model({"_parent/a.flt", "../a.flt"}).write(folder / "db/master.flt");
    model().write(folder / "db/_parent/a.flt");
    model().write(folder / "a.flt");
    EXPECT_THAT(plannedFiles(recursively(folder)),
                ElementsAre("master.flt > master.ive", "_parent/a.flt > _parent/a.ive", "../a.flt > _parent/a-2.ive"));
}

TEST(ConversionPlan, NumbersOutputsOfTheSameName) {
    const TemporaryDirectory folder;
    const Names names = {"a.flt", "a.flt.flt", "a-2.flt", "A.flt", "a.flt2.flt"};
    model(names).write(folder / "db/master.flt");
    for (const std::string& name : names) model().write(folder / ("db/" + name));
    EXPECT_THAT(plannedFiles(recursively(folder)),
                ElementsAre("master.flt > master.ive", "a.flt > a.ive", "a.flt.flt > a-2.ive", "a-2.flt > a-2-2.ive",
                            "A.flt > A-3.ive", "a.flt2.flt > a-4.ive"));
}

TEST(ConversionPlan, KeepsOutputsApartWhoseFoldersDifferInCaseOnly) {
    const TemporaryDirectory folder;
    model({"tiles/a.flt", "Tiles/a.flt"}).write(folder / "db/master.flt");
    model().write(folder / "db/tiles/a.flt");
    model().write(folder / "db/Tiles/a.flt");
    EXPECT_THAT(plannedFiles(recursively(folder)),
                ElementsAre("master.flt > master.ive", "tiles/a.flt > tiles/a.ive", "Tiles/a.flt > Tiles/a-2.ive"));
}

TEST(ConversionPlan, GivesNoFileTheOutputOfTheMaster) {
    const TemporaryDirectory folder;
    model({"world.flt", "WORLD.flt"}).write(folder / "db/master.flt");
    model().write(folder / "db/world.flt");
    model().write(folder / "db/WORLD.flt");
    EXPECT_THAT(plannedFiles(recursively(folder, "db/master.flt", "out/world.ive")),
                ElementsAre("master.flt > world.ive", "world.flt > world-2.ive", "WORLD.flt > WORLD-3.ive"));
}

TEST(ConversionPlan, NamesOutputsWithoutAnythingAfterTheFirstFlt) {
    const TemporaryDirectory folder;
    const Names names = {"A.FLT", "b.flt.old", ".flt", "models.flt/c.Flt"};
    model(names).write(folder / "db/master.flt");
    for (const std::string& name : names) model().write(folder / ("db/" + name));
    EXPECT_THAT(plannedFiles(recursively(folder)),
                ElementsAre("master.flt > master.ive", "A.FLT > A.ive", "b.flt.old > b.ive", ".flt > .flt.ive",
                            "models.flt/c.Flt > models.flt/c.ive"));
}

TEST(ConversionPlan, KeepsTilesOfTheSameNameInTwoFoldersApart) {
    const TemporaryDirectory folder;
    model({"r1/tile.flt", "r2/tile.flt"}).write(folder / "db/master.flt");
    for (const std::string row : {"r1", "r2"}) {
        model({"tree.flt"}).write(folder / ("db/" + row + "/tile.flt"));
        model().write(folder / ("db/" + row + "/tree.flt"));
    }
    const ConversionPlan plan = planConversion(recursively(folder));
    EXPECT_THAT(summaryOf(plan),
                ElementsAre("master.flt > master.ive", "r1/tile.flt > r1/tile.ive", "r1/tree.flt > r1/tree.ive",
                            "r2/tile.flt > r2/tile.ive", "r2/tree.flt > r2/tree.ive"));
    EXPECT_THAT(targetsOf(plan, "r1/tile.flt"), ElementsAre("r1/tree.flt"));
    EXPECT_THAT(targetsOf(plan, "r2/tile.flt"), ElementsAre("r2/tree.flt"));
}

TEST(ConversionPlan, ConvertsAFileOnceHoweverItIsNamed) {
    const TemporaryDirectory folder;
    const Names names = {"tiles/a.flt",          "Tiles\\A.FLT",   "./tiles/../tiles/a.flt",
                         "..\\db\\tiles\\a.flt", "tiles//./a.flt", folder / "db/tiles/a.flt"};
    model(names).write(folder / "db/master.flt");
    model().write(folder / "db/tiles/a.flt");
    const ConversionPlan plan = planConversion(recursively(folder));
    EXPECT_THAT(summaryOf(plan), ElementsAre("master.flt > master.ive", "tiles/a.flt > tiles/a.ive"));
    EXPECT_THAT(targetsOf(plan, "master.flt"), testing::Each("tiles/a.flt"));
    Names storedNames;
    for (const auto& reference : plan.files.front().references) storedNames.push_back(reference.storedName);
    EXPECT_EQ(storedNames, names);
}

TEST(ConversionPlan, KnowsAFileBehindALinkedFolderAndTakesALinkedFileForItsOwn) {
    const TemporaryDirectory folder;
    model({"tiles/a.flt", "linked/a.flt", "b.flt"}).write(folder / "db/master.flt");
    model().write(folder / "db/tiles/a.flt");
    fs::create_directory_symlink("tiles", folder / "db/linked");
    fs::create_symlink("tiles/a.flt", folder / "db/b.flt");
    const ConversionPlan plan = planConversion(recursively(folder));
    EXPECT_THAT(summaryOf(plan), ElementsAre("master.flt > master.ive", "tiles/a.flt > tiles/a.ive", "b.flt > b.ive"));
    EXPECT_THAT(targetsOf(plan, "master.flt"), ElementsAre("tiles/a.flt", "tiles/a.flt", "b.flt"));
}

TEST(ConversionPlan, LooksForReferencesFromTheFileThatHoldsThemAndNowhereElse) {
    const TemporaryDirectory folder;
    const WorkingDirectory workingDirectory(folder.path());
    model({"tiles/a.flt"}).write(folder / "db/master.flt");
    model({"b.flt"}).write(folder / "db/tiles/a.flt");
    model().write(folder / "db/b.flt");
    model().write(folder / "b.flt");
    EXPECT_THAT(plannedFiles(recursively(folder)),
                ElementsAre("master.flt > master.ive", "tiles/a.flt > tiles/a.ive", "tiles/b.flt! no such file"));
}

TEST(ConversionPlan, IsTheSameFromEveryWorkingDirectory) {
    const TemporaryDirectory folder;
    model({"a.flt"}).write(folder / "db/master.flt");
    model().write(folder / "db/a.flt");
    ConversionOptions options = recursively(folder);
    options.input = "master.flt";
    options.output = "../out/new/master.ive";
    const WorkingDirectory workingDirectory(folder / "db");
    const ConversionPlan plan = planConversion(options);
    EXPECT_EQ(plan.files[0].identity, folder / "db/master.flt");
    EXPECT_EQ(plan.files[0].output, folder / "out/new/master.ive");
    EXPECT_EQ(plan.files[1].output, folder / "out/new/a.ive");
}

TEST(ConversionPlan, ConvertsFilesThatReferToEachOtherOnceEach) {
    const TemporaryDirectory folder;
    model({"a.flt", "master.flt"}).write(folder / "db/master.flt");
    model({"b.flt", "a.flt"}).write(folder / "db/a.flt");
    model({"a.flt", "master.flt"}).write(folder / "db/b.flt");
    const ConversionPlan plan = planConversion(recursively(folder));
    EXPECT_THAT(summaryOf(plan), ElementsAre("master.flt > master.ive", "a.flt > a.ive", "b.flt > b.ive"));
    EXPECT_THAT(targetsOf(plan, "master.flt"), ElementsAre("a.flt", "master.flt"));
    EXPECT_THAT(targetsOf(plan, "a.flt"), ElementsAre("b.flt", "a.flt"));
    EXPECT_THAT(targetsOf(plan, "b.flt"), ElementsAre("a.flt", "master.flt"));
}

TEST(ConversionPlan, GoesDown100Levels) {
    const TemporaryDirectory folder;
    for (int i = 0; i < 110; ++i) {
        const std::string name = i == 0 ? "master" : std::to_string(i);
        model({std::to_string(i + 1) + ".flt"}).write(folder / ("db/" + name + ".flt"));
    }
    const Names files = plannedFiles(recursively(folder));
    ASSERT_EQ(files.size(), 102u);
    EXPECT_EQ(files[100], "100.flt > 100.ive");
    EXPECT_EQ(files[101], "101.flt! referred to over more than 100 levels");
}

TEST(ConversionPlan, ConvertsAFileOnceForParentsWithTheSamePalettes) {
    const TemporaryDirectory folder;
    model({"a.flt", "b.flt"}).write(folder / "db/master.flt");
    modelHandingOnColors("red", {"shared.flt"}).write(folder / "db/a.flt");
    modelHandingOnColors("red", {"shared.flt"}).write(folder / "db/b.flt");
    model().write(folder / "db/shared.flt");
    EXPECT_THAT(plannedFiles(recursively(folder)),
                ElementsAre("master.flt > master.ive", "a.flt > a.ive", "shared.flt > shared.ive", "b.flt > b.ive"));
}

TEST(ConversionPlan, ConvertsAFileForEachSetOfPalettesThatItTakes) {
    const TemporaryDirectory folder;
    model({"a.flt", "b.flt", "shared.flt"}).write(folder / "db/master.flt");
    modelHandingOnColors("red", {"shared.flt"}).write(folder / "db/a.flt");
    modelHandingOnColors("blue", {"shared.flt", "shared.flt"}).write(folder / "db/b.flt");
    model().write(folder / "db/shared.flt");
    const ConversionPlan plan = planConversion(recursively(folder));
    EXPECT_THAT(summaryOf(plan),
                ElementsAre("master.flt > master.ive", "a.flt > a.ive", "shared.flt > shared.ive", "b.flt > b.ive",
                            "shared.flt > shared-2.ive", "shared.flt > shared-3.ive"));
    EXPECT_EQ(plan.files[1].references[0].target, 2u);
    EXPECT_EQ(plan.files[3].references[0].target, 4u);
    EXPECT_EQ(plan.files[3].references[1].target, 4u);
    EXPECT_EQ(plan.files[0].references[2].target, 5u);
}

TEST(ConversionPlan, HandsPalettesOnThroughFilesThatTakeThem) {
    const TemporaryDirectory folder;
    model({"red.flt", "blue.flt"}).write(folder / "db/master.flt");
    modelHandingOnColors("red", {"middle.flt"}).write(folder / "db/red.flt");
    modelHandingOnColors("blue", {"middle.flt"}).write(folder / "db/blue.flt");
    // Its own colours do not count where it takes its parent's.
    modelHandingOnColors("green", {"leaf.flt"}).write(folder / "db/middle.flt");
    model().write(folder / "db/leaf.flt");
    EXPECT_THAT(
        plannedFiles(recursively(folder)),
        ElementsAre("master.flt > master.ive", "red.flt > red.ive", "middle.flt > middle.ive", "leaf.flt > leaf.ive",
                    "blue.flt > blue.ive", "middle.flt > middle-2.ive", "leaf.flt > leaf-2.ive"));
}

TEST(ConversionPlan, TakesNoPaletteThatTheParentHasNot) {
    const TemporaryDirectory folder;
    FlightRecords records;
    records.push().reference("a.flt", FlightRecords::ownPalettes).reference("a.flt", FlightRecords::parentsPalettes);
    records.pop().write(folder / "db/master.flt");
    model().write(folder / "db/a.flt");
    EXPECT_THAT(plannedFiles(recursively(folder)), ElementsAre("master.flt > master.ive", "a.flt > a.ive"));
}

TEST(ConversionPlan, TellsTexturePalettesOfTwoFoldersApart) {
    const TemporaryDirectory folder;
    model({"r1/tile.flt", "r2/tile.flt"}).write(folder / "db/master.flt");
    modelHandingOnTextures("grass.png", {"../tree.flt"}).write(folder / "db/r1/tile.flt");
    modelHandingOnTextures("grass.png", {"../tree.flt"}).write(folder / "db/r2/tile.flt");
    model().write(folder / "db/tree.flt");
    EXPECT_THAT(plannedFiles(recursively(folder)),
                ElementsAre("master.flt > master.ive", "r1/tile.flt > r1/tile.ive", "tree.flt > tree.ive",
                            "r2/tile.flt > r2/tile.ive", "tree.flt > tree-2.ive"));
}

TEST(ConversionPlan, KnowsTexturePalettesOfOneFolderHoweverItIsNamed) {
    const TemporaryDirectory folder;
    model({"tiles/a.flt", "tiles/../tiles/b.flt"}).write(folder / "db/master.flt");
    modelHandingOnTextures("grass.png", {"tree.flt"}).write(folder / "db/tiles/a.flt");
    modelHandingOnTextures("grass.png", {"tree.flt"}).write(folder / "db/tiles/b.flt");
    model().write(folder / "db/tiles/tree.flt");
    EXPECT_THAT(plannedFiles(recursively(folder)),
                ElementsAre("master.flt > master.ive", "tiles/a.flt > tiles/a.ive", "tiles/tree.flt > tiles/tree.ive",
                            "tiles/b.flt > tiles/b.ive"));
}

TEST(ConversionPlan, NamesAMissingFileOnceWithTheFirstFileThatNamesIt) {
    const TemporaryDirectory folder;
    model({"a.flt", "none.flt", "none.flt"}).write(folder / "db/master.flt");
    model({"none.flt", "../db/none.flt", "deep/../none.flt"}).write(folder / "db/a.flt");
    const ConversionPlan plan = planConversion(recursively(folder));
    EXPECT_THAT(summaryOf(plan), ElementsAre("master.flt > master.ive", "a.flt > a.ive", "none.flt! no such file"));
    EXPECT_EQ(plan.files[2].namedBy, 1u);
    EXPECT_EQ(plan.files[0].references[1].target, 2u);
    EXPECT_EQ(plan.files[0].references[1].path, "");
}

TEST(ConversionPlan, NamesAMissingFileAsSeenFromTheMastersFolderBehindALink) {
    const TemporaryDirectory folder;
    model({"none.flt", "tiles/none.flt"}).write(folder / "real/master.flt");
    fs::create_directory_symlink("real", folder / "db");
    EXPECT_THAT(plannedFiles(recursively(folder)),
                ElementsAre("master.flt > master.ive", "none.flt! no such file", "tiles/none.flt! no such file"));
}

TEST(ConversionPlan, KeepsDamagedFilesWithTheirProblem) {
    const TemporaryDirectory folder;
    const Names names = {"empty.flt", "text.flt", "cut.flt", "folder.flt", "good.flt"};
    model(names).write(folder / "db/master.flt");
    saveBytes(folder / "db/empty.flt", "");
    saveBytes(folder / "db/text.flt", "text");
    saveBytes(folder / "db/cut.flt", model({"good.flt"}).bytes().substr(0, 400));
    fs::create_directory(folder / "db/folder.flt");
    model().write(folder / "db/good.flt");
    EXPECT_THAT(plannedFiles(recursively(folder)),
                ElementsAre("master.flt > master.ive", "empty.flt! empty file", "text.flt! not an OpenFlight file",
                            "cut.flt! truncated: ends inside the record at byte 328", "folder.flt! is a folder",
                            "good.flt > good.ive"));
}

TEST(ConversionPlan, LeavesReferencesThatAreNoModelsAsTheyAre) {
    const TemporaryDirectory folder;
    model({"tree.ive", "Tiles/Rock.osgb", "", "none.osgb"}).write(folder / "db/master.flt");
    saveBytes(folder / "db/tree.ive", "");
    saveBytes(folder / "db/tiles/rock.osgb", "");
    const ConversionPlan plan = planConversion(recursively(folder));
    EXPECT_THAT(summaryOf(plan), ElementsAre("master.flt > master.ive", "none.osgb! no such file"));
    EXPECT_THAT(targetsOf(plan, "master.flt"), ElementsAre("-", "-", "-", "none.osgb"));
    EXPECT_EQ(plan.files[0].references[0].path, folder / "db/tree.ive");
    EXPECT_EQ(plan.files[0].references[1].path, folder / "db/tiles/rock.osgb");
    EXPECT_EQ(plan.files[0].references[2].path, "");
}

TEST(ConversionPlan, GoesOneLevelDownWhenNotRecursing) {
    const TemporaryDirectory folder;
    model({"a.flt"}).write(folder / "db/master.flt");
    model({"b.flt", "none.flt"}).write(folder / "db/a.flt");
    model({"c.flt"}).write(folder / "db/b.flt");
    const ConversionPlan plan = planConversion(firstLevelOnly(folder));
    EXPECT_THAT(summaryOf(plan), ElementsAre("master.flt > master.ive", "a.flt > a.ive", "none.flt! no such file"));
    EXPECT_TRUE(plan.files[0].pagesReferences);
    EXPECT_FALSE(plan.files[1].pagesReferences);
    EXPECT_EQ(plan.files[1].references[0].target, noFile);
    EXPECT_EQ(plan.files[1].references[0].path, folder / "db/b.flt");
}

TEST(ConversionPlan, WritesTheMasterOnlyWhenReferencesAreNotConverted) {
    const TemporaryDirectory folder;
    model({"a.flt", "cut.flt"}).write(folder / "db/master.flt");
    model({"b.flt"}).write(folder / "db/a.flt");
    model().write(folder / "db/b.flt");
    saveBytes(folder / "db/cut.flt", model().bytes().substr(0, 100));
    const ConversionPlan plan = planConversion(masterOnly(folder));
    EXPECT_THAT(summaryOf(plan), ElementsAre("master.flt > master.ive", "a.flt",
                                             "cut.flt! truncated: ends inside the record at byte 0"));
    EXPECT_TRUE(plan.files[0].pagesReferences);
    EXPECT_FALSE(plan.files[1].pagesReferences);
    EXPECT_THAT(targetsOf(plan, "master.flt"), ElementsAre("a.flt", "cut.flt"));
}

TEST(ConversionPlan, GivesEachLevelAQuarterOfTheRange) {
    const TemporaryDirectory folder;
    model({"a.flt"}).write(folder / "db/master.flt");
    model({"b.flt"}).write(folder / "db/a.flt");
    model().write(folder / "db/b.flt");
    ConversionOptions options = recursively(folder);
    EXPECT_EQ(planConversion(options).files[0].maxRange, 10000.0f);
    options.maxRange = 100.1f;
    const ConversionPlan plan = planConversion(options);
    EXPECT_EQ(plan.files[0].maxRange, 100.1f);
    EXPECT_EQ(plan.files[1].maxRange, 100.1f * 0.25f);
    EXPECT_EQ(plan.files[2].maxRange, 100.1f * 0.25f * 0.25f);
    EXPECT_TRUE(plan.files[2].pagesReferences);
}

TEST(ConversionPlan, IsRefusedWhenAnOutputExists) {
    const TemporaryDirectory folder;
    model({"tiles/a.flt"}).write(folder / "db/master.flt");
    model().write(folder / "db/tiles/a.flt");
    for (const std::string name : {"out/master.ive", "out/tiles/a.ive"}) {
        saveBytes(folder / name, "theirs");
        EXPECT_EQ(failureOf(recursively(folder)),
                  "4 " + folder / name + ": exists already; pass --overwrite to replace it");
        fs::remove(folder / name);
    }
    EXPECT_EQ(failureOf(recursively(folder)), "none");
}

TEST(ConversionPlan, MakesNothing) {
    const TemporaryDirectory folder;
    model({"a.flt"}).write(folder / "db/master.flt");
    model().write(folder / "db/a.flt");
    planConversion(recursively(folder));
    EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST(ConversionPlan, MayOverwriteOutputsWhenAskedTo) {
    const TemporaryDirectory folder;
    model({"a.flt"}).write(folder / "db/master.flt");
    model().write(folder / "db/a.flt");
    saveBytes(folder / "out/master.ive", "theirs");
    saveBytes(folder / "out/a.ive", "theirs");
    ConversionOptions options = recursively(folder);
    options.overwrite = true;
    EXPECT_THAT(plannedFiles(options), ElementsAre("master.flt > master.ive", "a.flt > a.ive"));
    EXPECT_EQ(loadBytes(folder / "out/a.ive"), "theirs");
}

TEST(ConversionPlan, IsRefusedWhenAnOutputIsAFolder) {
    const TemporaryDirectory folder;
    model().write(folder / "db/master.flt");
    fs::create_directories(folder / "out/master.ive");
    ConversionOptions options = recursively(folder);
    options.overwrite = true;
    EXPECT_EQ(failureOf(options), "4 " + folder / "out/master.ive: is a folder");
}

TEST(ConversionPlan, CaresNotAboutTheOutputsOfFilesThatCannotBeConverted) {
    const TemporaryDirectory folder;
    model({"cut.flt", "none.flt"}).write(folder / "db/master.flt");
    saveBytes(folder / "db/cut.flt", "");
    saveBytes(folder / "out/cut.ive", "theirs");
    saveBytes(folder / "out/none.ive", "theirs");
    EXPECT_EQ(failureOf(recursively(folder)), "none");
}

TEST(ConversionPlan, NeverOverwritesAnInput) {
    const TemporaryDirectory folder;
    FlightRecords()
        .texture("picture.ive")
        .push()
        .references({"a.flt.ive", "tree.ive"})
        .pop()
        .write(folder / "db/m.flt");
    model().write(folder / "db/a.flt.ive");
    saveBytes(folder / "db/tree.ive", "a model");
    saveBytes(folder / "db/picture.ive", "a picture");
    for (const std::string name : {"db/a.flt.ive", "db/tree.ive", "db/picture.ive"}) {
        ConversionOptions options = recursively(folder, "db/m.flt", name);
        options.overwrite = true;
        EXPECT_EQ(failureOf(options), "4 " + folder / name + ": is one of the inputs; choose another output");
    }
}

TEST(ConversionPlan, NeverOverwritesAnInputWithTheOutputOfAReference) {
    const TemporaryDirectory folder;
    model({"tree.flt", "tree.ive"}).write(folder / "db/master.flt");
    model().write(folder / "db/tree.flt");
    saveBytes(folder / "db/tree.ive", "a model");
    ConversionOptions options = recursively(folder, "db/master.flt", "db/world.ive");
    options.overwrite = true;
    EXPECT_EQ(failureOf(options), "4 " + folder / "db/tree.ive: is one of the inputs; choose another output");
}

TEST(ConversionPlan, KnowsTheInputsWithTheirTextures) {
    const TemporaryDirectory folder;
    FlightRecords()
        .texture("Textures\\GRASS.png")
        .texture("none.png")
        .push()
        .reference("A.flt")
        .pop()
        .write(folder / "db/master.flt");
    model().write(folder / "db/a.flt");
    saveBytes(folder / "db/textures/grass.png", "");
    EXPECT_THAT(planConversion(recursively(folder)).inputs,
                ElementsAre(folder / "db/a.flt", folder / "db/master.flt", folder / "db/textures/grass.png"));
}

TEST(PlanConversion, LooksThroughAnyNumberOfFilesThatStayAsTheyAre) {
    constexpr int length = 100'000;
    const TemporaryDirectory folder;
    for (int i = 0; i < length; ++i) {
        const std::string name = i == 0 ? "db/master.flt" : "db/" + std::to_string(i) + ".flt";
        model({std::to_string(i + 1) + ".flt"}).write(folder / name);
    }

    EXPECT_EQ(planConversion(masterOnly(folder)).inputs.size(), std::size_t{length});
}

TEST(ConversionPlan, IsRefusedUnlessTheOutputEndsInIve) {
    const TemporaryDirectory folder;
    model().write(folder / "db/master.flt");
    for (const std::string name : {"out.osgb", "out", "out.ive/", ".ive", "db/master.flt"}) {
        EXPECT_EQ(failureOf(recursively(folder, "db/master.flt", name)),
                  "1 " + folder / name + ": the output's name must end in .ive");
    }
    EXPECT_EQ(failureOf(recursively(folder, "db/master.flt", "out.IVE")), "none");
}

TEST(ConversionPlan, IsRefusedUnlessTheInputEndsInFlt) {
    const TemporaryDirectory folder;
    for (const std::string name : {"db/master.ive", "db/master", "db/master.flt.old", "db/.flt"}) {
        model().write(folder / name);
        EXPECT_EQ(failureOf(recursively(folder, name)),
                  "3 " + folder / name + ": only OpenFlight files (.flt) can be converted");
    }
    model().write(folder / "db/MASTER.FLT");
    EXPECT_THAT(plannedFiles(recursively(folder, "db/MASTER.FLT")), ElementsAre("MASTER.FLT > master.ive"));
}

TEST(ConversionPlan, IsRefusedWhenTheMasterCannotBeRead) {
    const TemporaryDirectory folder;
    const std::string input = folder / "db/master.flt";
    EXPECT_EQ(failureOf(recursively(folder)), "2 " + input + ": no such file");
    saveBytes(input, "");
    EXPECT_EQ(failureOf(recursively(folder)), "2 " + input + ": empty file");
    saveBytes(input, "text");
    EXPECT_EQ(failureOf(recursively(folder)), "2 " + input + ": not an OpenFlight file");
    saveBytes(input, model({"a.flt"}).bytes().substr(0, 544));
    EXPECT_EQ(failureOf(recursively(folder)), "2 " + input + ": truncated: ends after 544 bytes");
    fs::remove(input);
    fs::create_directory(input);
    EXPECT_EQ(failureOf(recursively(folder)), "2 " + input + ": is a folder");
}

TEST(ConversionPlan, SaysThatTheMasterCannotBeReadBeforeAnOutputExists) {
    const TemporaryDirectory folder;
    saveBytes(folder / "out/master.ive", "theirs");
    EXPECT_EQ(failureOf(recursively(folder)), "2 " + folder / "db/master.flt: no such file");
}

TEST(ConversionPlan, LooksForTheMasterInThatLetterCaseOnly) {
    const TemporaryDirectory folder;
    model().write(folder / "db/master.flt");
    EXPECT_EQ(failureOf(recursively(folder, "db/Master.flt")), "2 " + folder / "db/Master.flt: no such file");
}

TEST(ConversionPlan, IsRefusedWhenAFolderLeadsNowhere) {
    const TemporaryDirectory folder;
    fs::create_directory_symlink("loop", folder / "loop");
    EXPECT_EQ(failureOf(recursively(folder, "loop/master.flt")),
              "2 " + folder / "loop/master.flt: Too many levels of symbolic links");
}

TEST(ConversionPlan, NamesAReferenceIntoAFolderThatLeadsNowhere) {
    const TemporaryDirectory folder;
    model({"loop/a.flt", "master.flt/a.flt"}).write(folder / "db/master.flt");
    fs::create_directory_symlink("loop", folder / "db/loop");
    EXPECT_THAT(plannedFiles(recursively(folder)),
                ElementsAre("master.flt > master.ive", "loop/a.flt! no such file", "master.flt/a.flt! no such file"));
}

TEST(MirroredPath, KeepsTheFilesOwnName) {
    EXPECT_EQ(mirroredPath("/db/world", "/out", "/db/world/textures/a.png"), "/out/textures/a.png");
    EXPECT_EQ(mirroredPath("/db/world", "/out", "/db/a.png"), "/out/_parent/a.png");
    EXPECT_EQ(mirroredPath("/db/world", "/out", "/a.png"), "/out/_parent/_parent/a.png");
    EXPECT_EQ(mirroredPath("/db/world", "/out", "/db/other/a.png"), "/out/_parent/other/a.png");
}

TEST(RelativeName, LeadsFromTheFolderToTheFile) {
    EXPECT_EQ(relativeName("/out/tiles/a.ive", "/out"), "tiles/a.ive");
    EXPECT_EQ(relativeName("/out/a.ive", "/out/tiles/r1"), "../../a.ive");
    EXPECT_EQ(relativeName("/out/a.ive", "/out"), "a.ive");
    EXPECT_EQ(relativeName("/out/a\\b.ive", "/out"), "a\\b.ive");
}

TEST(ConversionPlan, KnowsWhichReferencesCloseACircle) {
    const TemporaryDirectory folder;
    model({"a.flt", "b.flt", "master.flt"}).write(folder / "db/master.flt");
    model({"b.flt", "a.flt"}).write(folder / "db/a.flt");
    model({"a.flt", "c.flt", "master.flt"}).write(folder / "db/b.flt");
    model().write(folder / "db/c.flt");
    const ConversionPlan plan = planConversion(recursively(folder));
    const auto circlesOf = [&](const std::string& name) {
        std::vector<bool> circles;
        for (const PlannedReference& reference : fileNamed(plan, name).references)
            circles.push_back(reference.closesCircle);
        return circles;
    };
    EXPECT_THAT(circlesOf("master.flt"), ElementsAre(false, false, true));
    EXPECT_THAT(circlesOf("a.flt"), ElementsAre(false, true));
    EXPECT_THAT(circlesOf("b.flt"), ElementsAre(true, false, true));
}

TEST(ConversionPlan, KnowsFromWhichReferenceAFileHasItsPalettes) {
    const TemporaryDirectory folder;
    FlightRecords records;
    records.record(FlightRecords::ColorPalette, "red").push().reference("b.flt");
    records.reference("a.flt", ~FlightRecords::ownColors).pop().write(folder / "db/master.flt");
    model().write(folder / "db/a.flt");
    model().write(folder / "db/b.flt");
    const ConversionPlan plan = planConversion(recursively(folder));
    const PerPalette<bool> colorsOnly = {true};
    EXPECT_EQ(fileNamed(plan, "a.flt").namedByReference, 1u);
    EXPECT_EQ(fileNamed(plan, "a.flt").inheritsPalettes, colorsOnly);
    EXPECT_NE(fileNamed(plan, "a.flt").inheritedPalettes, 0u);
    EXPECT_EQ(fileNamed(plan, "b.flt").namedByReference, 0u);
    EXPECT_EQ(fileNamed(plan, "b.flt").inheritsPalettes, PerPalette<bool>{});
    EXPECT_EQ(fileNamed(plan, "b.flt").inheritedPalettes, 0u);
}

TEST(ConversionPlan, GivesATextureWhosePlaceIsTakenAnotherOne) {
    const TemporaryDirectory folder;
    FlightRecords master;
    master.texture("_parent/a.png").push().reference("t.flt", ~FlightRecords::ownTextures).references({"u.flt"});
    master.pop().write(folder / "db/master.flt");
    FlightRecords().texture("../a.png").push().pop().write(folder / "db/t.flt");
    model().write(folder / "db/u.flt");
    saveBytes(folder / "a.png", "outside");
    saveBytes(folder / "db/_parent/a.png", "inside");
    const ConversionPlan plan = planConversion(recursively(folder));
    // The file that is written first, which is not the master, has it as it should be.
    ASSERT_EQ(plan.displacedTextures.size(), 1u);
    EXPECT_EQ(plan.displacedTextures[0].first, folder / "db/_parent/a.png");
    EXPECT_EQ(plan.displacedTextures[0].second, folder / "out/_parent/a-2.png");
    EXPECT_THAT(plan.files[0].displacedTextures, ElementsAre(0u));
    EXPECT_THAT(plan.files[1].displacedTextures, ElementsAre(0u)) << "it takes the master's textures";
    EXPECT_THAT(plan.files[2].displacedTextures, IsEmpty());
}
