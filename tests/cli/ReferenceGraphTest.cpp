#include "Command.h"
#include "plan/ReferenceGraph.h"
#include "support/ReferenceDatabases.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace testing_support;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using veltrane::sceneutils::tool::buildReferenceGraph;
using veltrane::sceneutils::tool::CommandError;
using veltrane::sceneutils::tool::ExitStatus;
using veltrane::sceneutils::tool::Finding;
using veltrane::sceneutils::tool::FindingKind;
using veltrane::sceneutils::tool::GraphFile;
using veltrane::sceneutils::tool::GraphReference;
using veltrane::sceneutils::tool::ReferenceGraph;
using veltrane::sceneutils::tool::ReferenceGraphOptions;
using veltrane::sceneutils::tool::ReferenceStatus;
using veltrane::sceneutils::tool::Severity;

namespace {

ReferenceGraph graphOf(const TemporaryDirectory& folder, const std::string& master = "master.flt",
                       const ReferenceGraphOptions& options = {}) {
    return buildReferenceGraph(folder / master, options);
}

ReferenceGraph graphOf(const References& database) {
    const TemporaryDirectory folder;
    writeDatabase(folder, database);
    return graphOf(folder);
}

/** "error tiles/a.flt: MESSAGE" */
std::vector<std::string> findingsOf(const ReferenceGraph& graph) {
    std::vector<std::string> lines;
    for (const Finding& finding : graph.findings) {
        lines.push_back((finding.severity == Severity::Error ? "error " : "warning ") + graph.files[finding.file].name +
                        ": " + finding.message);
    }
    return lines;
}

/** Where the file's references lead to, by name; "-" for one that is not followed. */
std::vector<std::string> targetsOf(const ReferenceGraph& graph, std::size_t file) {
    std::vector<std::string> names;
    for (const GraphReference& reference : graph.files[file].references)
        names.push_back(reference.target == GraphReference::none ? "-" : graph.files[reference.target].name);
    return names;
}

std::vector<std::size_t> levelsOf(const ReferenceGraph& graph) {
    std::vector<std::size_t> levels;
    for (const GraphFile& file : graph.files) levels.push_back(file.level);
    return levels;
}

std::vector<std::string> namesInCycles(const ReferenceGraph& graph) {
    std::vector<std::string> names;
    for (const GraphFile& file : graph.files) {
        if (file.isInCycle) names.push_back(file.name);
    }
    return names;
}

/** "1: MESSAGE" */
std::string refusalOf(const fs::path& master, const ReferenceGraphOptions& options = {}) {
    try {
        buildReferenceGraph(master, options);
        return {};
    } catch (const CommandError& error) {
        return std::to_string(static_cast<int>(error.status())) + ": " + error.what();
    }
}

}  // namespace

TEST(ReferenceGraph, ListsFilesLevelByLevelInTheOrderOfReferences) {
    const ReferenceGraph graph = graphOf({{"master.flt", {"z.flt", "a.flt"}},
                                          {"z.flt", {"deep/d.flt", "a.flt"}},
                                          {"a.flt", {"b.flt"}},
                                          {"b.flt", {}},
                                          {"deep/d.flt", {"../b.flt"}}});

    EXPECT_THAT(fileNames(graph), ElementsAre("master.flt", "z.flt", "a.flt", "deep/d.flt", "b.flt"));
    EXPECT_THAT(levelsOf(graph), ElementsAre(0, 1, 1, 2, 2));
    EXPECT_THAT(targetsOf(graph, 0), ElementsAre("z.flt", "a.flt"));
    EXPECT_THAT(targetsOf(graph, 1), ElementsAre("deep/d.flt", "a.flt"));
    EXPECT_THAT(targetsOf(graph, 3), ElementsAre("b.flt"));
    EXPECT_THAT(graph.findings, IsEmpty());
}

TEST(ReferenceGraph, KnowsPathSizeAndFirstReferrerOfAFile) {
    const TemporaryDirectory folder;
    writeDatabase(folder,
                  {{"master.flt", {"a.flt", "b.flt"}}, {"a.flt", {"b.flt", "c.flt"}}, {"b.flt", {}}, {"c.flt", {}}});
    const ReferenceGraph graph = graphOf(folder);

    EXPECT_EQ(graph.root, realPath(folder));
    EXPECT_EQ(graph.files[2].path, realPath(folder, "b.flt"));
    EXPECT_EQ(graph.files[2].bytes, FlightRecords::headerLength + 8);
    EXPECT_EQ(graph.files[2].namedBy, 0u);
    EXPECT_EQ(graph.files[3].namedBy, 1u);
    EXPECT_EQ(graph.files[0].namedBy, std::nullopt);
    EXPECT_EQ(graph.files[0].references[1].path, realPath(folder, "b.flt"));
    EXPECT_EQ(graph.files[0].references[1].offset, 328 + FlightRecords::referenceLength);
    EXPECT_EQ(graph.files[0].references[1].status, ReferenceStatus::Followed);
}

TEST(ReferenceGraph, ConvertsAFileAfterThoseThatItRefersTo) {
    const ReferenceGraph graph = graphOf({{"master.flt", {"a.flt", "b.flt"}},
                                          {"a.flt", {"c.flt", "d.flt"}},
                                          {"b.flt", {"a.flt"}},
                                          {"c.flt", {}},
                                          {"d.flt", {"c.flt"}}});

    EXPECT_THAT(namesInConversionOrder(graph), ElementsAre("c.flt", "d.flt", "a.flt", "b.flt", "master.flt"));
    EXPECT_EQ(graph.files[0].order, 4u);
}

TEST(ReferenceGraph, FindsNamesOfOtherSystemsFromTheFolderOfTheFileThatHoldsThem) {
    const ReferenceGraph graph = graphOf({{"master.flt", {"TILES\\A.FLT", ".\\tiles/b.flt"}},
                                          {"tiles/a.flt", {"B.flt", "..\\other\\c.flt"}},
                                          {"tiles/b.flt", {}},
                                          {"b.flt", {}},
                                          {"other/c.flt", {}}});

    EXPECT_THAT(fileNames(graph), ElementsAre("master.flt", "tiles/a.flt", "tiles/b.flt", "other/c.flt"));
    EXPECT_THAT(targetsOf(graph, 1), ElementsAre("tiles/b.flt", "other/c.flt"));
    EXPECT_THAT(graph.findings, IsEmpty());
}

TEST(ReferenceGraph, KnowsAFileByItsRealPath) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"master.flt", {"a.flt", "link.flt", "x/../a.flt", "linked/b.flt", "real/b.flt"}},
                           {"a.flt", {}},
                           {"x/y.flt", {}},
                           {"real/b.flt", {"c.flt"}},
                           {"real/c.flt", {}}});
    fs::create_symlink("a.flt", folder / "link.flt");
    fs::create_directory_symlink("real", folder / "linked");
    const ReferenceGraph graph = graphOf(folder);

    EXPECT_THAT(fileNames(graph), ElementsAre("master.flt", "a.flt", "real/b.flt", "real/c.flt"));
    EXPECT_THAT(targetsOf(graph, 0), ElementsAre("a.flt", "a.flt", "a.flt", "real/b.flt", "real/b.flt"));
    EXPECT_THAT(graph.findings, IsEmpty());
}

TEST(ReferenceGraph, LooksFromTheFolderWhereALinkedFileReallyLies) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"master.flt", {"link.flt"}}, {"real/a.flt", {"b.flt"}}, {"real/b.flt", {}}, {"b.flt", {}}});
    fs::create_symlink("real/a.flt", folder / "link.flt");

    EXPECT_THAT(fileNames(graphOf(folder)), ElementsAre("master.flt", "real/a.flt", "real/b.flt"));
}

TEST(ReferenceGraph, TellsMissingFilesOncePerFileAndName) {
    const ReferenceGraph graph = graphOf(
        {{"master.flt", {"gone.flt", "a.flt", "gone.flt", "gone.flt", "sub"}}, {"a.flt", {"gone.flt"}}, {"sub/x", {}}});

    EXPECT_THAT(findingsOf(graph),
                ElementsAre("error master.flt: 'gone.flt' at byte 328: no such file (and 2 more such references)",
                            "error master.flt: 'sub' at byte 1192: is a folder",
                            "error a.flt: 'gone.flt' at byte 328: no such file"));
    EXPECT_EQ(graph.findings[0].kind, FindingKind::Missing);
    EXPECT_EQ(graph.findings[0].offset, 328u);
    EXPECT_EQ(graph.findings[0].reference, "gone.flt");
    EXPECT_EQ(graph.files[0].references[0].status, ReferenceStatus::Missing);
    EXPECT_EQ(graph.files[0].references[0].path, "");
    EXPECT_EQ(graph.files[0].order, 1u);
}

TEST(ReferenceGraph, TellsReferencesWithoutAName) {
    EXPECT_THAT(findingsOf(graphOf({{"master.flt", {""}}})),
                ElementsAre("error master.flt: '' at byte 328: names no file"));
}

TEST(ReferenceGraph, TellsDamagedFilesAndDoesNotConvertThem) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"master.flt", {"cut.flt"}}, {"a.flt", {}}});
    saveBytes(folder / "cut.flt", fileWith({"a.flt", "a.flt"}).bytes().substr(0, 700));
    const ReferenceGraph graph = graphOf(folder);

    EXPECT_THAT(findingsOf(graph), ElementsAre("error cut.flt: truncated: ends inside the record at byte 544"));
    EXPECT_EQ(graph.findings[0].kind, FindingKind::Damaged);
    EXPECT_EQ(graph.findings[0].offset, 544u);
    EXPECT_EQ(graph.findings[0].reference, std::nullopt);
    EXPECT_THAT(fileNames(graph), ElementsAre("master.flt", "cut.flt"));
    EXPECT_FALSE(graph.files[1].isSound);
    EXPECT_EQ(graph.files[1].bytes, 700u);
    EXPECT_EQ(graph.files[1].order, std::nullopt);
    EXPECT_THAT(namesInConversionOrder(graph), ElementsAre("master.flt"));
}

TEST(ReferenceGraph, TellsFilesThatAreNoneWithoutWaitingForThem) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"master.flt", {"pipe.flt", "dangling.flt", "loop.flt"}}});
    ASSERT_EQ(mkfifo((folder / "pipe.flt").c_str(), 0600), 0);
    fs::create_symlink("nowhere", folder / "dangling.flt");
    fs::create_symlink("loop.flt", folder / "loop.flt");
    const ReferenceGraph graph = graphOf(folder);

    EXPECT_THAT(findingsOf(graph), ElementsAre("error master.flt: 'dangling.flt' at byte 544: no such file",
                                               "error master.flt: 'loop.flt' at byte 760: no such file",
                                               "error pipe.flt: is not a regular file"));
    EXPECT_EQ(graph.findings[2].kind, FindingKind::Unreadable);
    EXPECT_EQ(graph.findings[2].offset, std::nullopt);
}

TEST(ReferenceGraph, TellsWhatIsOddInsideFiles) {
    const TemporaryDirectory folder;
    fileWith({}).append(std::string(4, '\0')).write(folder / "master.flt");
    EXPECT_THAT(findingsOf(graphOf(folder)),
                ElementsAre("warning master.flt: padded with 4 bytes of zeros from byte 332 on"));

    FlightRecords().push().record(999).record(999).record(999).pop().write(folder / "master.flt");
    const ReferenceGraph graph = graphOf(folder);
    EXPECT_THAT(findingsOf(graph), ElementsAre("warning master.flt: OpenSceneGraph does not know the kind 999 of the "
                                               "record at byte 328 (and 2 more)"));
    EXPECT_EQ(graph.findings[0].kind, FindingKind::Record);
    EXPECT_EQ(graph.findings[0].offset, 328u);
    EXPECT_TRUE(graph.files[0].isSound);
}

TEST(ReferenceGraph, DoesNotLeaveTheMastersFolder) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {"../a.flt", "tiles/../b.flt"}},
                           {"db/tiles/t.flt", {}},
                           {"db/b.flt", {}},
                           {"a.flt", {"gone.flt"}}});
    const ReferenceGraph graph = graphOf(folder, "db/master.flt");

    EXPECT_THAT(findingsOf(graph), ElementsAre("error master.flt: '../a.flt' at byte 328: leads out of the root to " +
                                               realPath(folder, "a.flt") + "; --allow-outside DIR allows it"));
    EXPECT_EQ(graph.findings[0].kind, FindingKind::Outside);
    EXPECT_THAT(fileNames(graph), ElementsAre("master.flt", "b.flt"));
    EXPECT_EQ(graph.files[0].references[0].status, ReferenceStatus::Outside);
    EXPECT_EQ(graph.files[0].references[0].path, realPath(folder, "a.flt"));
    EXPECT_EQ(graph.files[0].references[0].target, GraphReference::none);
}

TEST(ReferenceGraph, JudgesLinksByWhereTheyLead) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {"link.flt", "linked/a.flt"}}, {"a.flt", {}}});
    fs::create_symlink("../a.flt", folder / "db/link.flt");
    fs::create_directory_symlink("..", folder / "db/linked");
    const ReferenceGraph graph = graphOf(folder, "db/master.flt");

    EXPECT_EQ(graph.count(FindingKind::Outside), 2u);
    EXPECT_THAT(fileNames(graph), ElementsAre("master.flt"));
}

TEST(ReferenceGraph, DoesNotTakeAFolderWithALongerNameForTheRoot) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"db/master.flt", {"../db2/a.flt"}}, {"db2/a.flt", {}}});
    EXPECT_EQ(graphOf(folder, "db/master.flt").count(FindingKind::Outside), 1u);
}

TEST(ReferenceGraph, GoesWhereItIsAllowedTo) {
    const TemporaryDirectory folder;
    writeDatabase(folder,
                  {{"db/master.flt", {"../lib/a.flt", "../other/b.flt"}}, {"lib/a.flt", {}}, {"other/b.flt", {}}});

    const ReferenceGraph allowed = graphOf(folder, "db/master.flt", {{}, {folder / "lib", folder / "other"}});
    EXPECT_THAT(fileNames(allowed), ElementsAre("master.flt", "../lib/a.flt", "../other/b.flt"));
    EXPECT_THAT(allowed.findings, IsEmpty());
    EXPECT_THAT(allowed.allowedFolders, ElementsAre(realPath(folder, "lib"), realPath(folder, "other")));

    const ReferenceGraph fromAbove = graphOf(folder, "db/master.flt", {folder.path(), {}});
    EXPECT_THAT(fileNames(fromAbove), ElementsAre("db/master.flt", "lib/a.flt", "other/b.flt"));
    EXPECT_THAT(fromAbove.findings, IsEmpty());
    EXPECT_EQ(graphOf(folder, "db/master.flt", {"/", {}}).findings.size(), 0u);
}

TEST(ReferenceGraph, TellsAbsoluteNames) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"master.flt", {folder / "a.flt"}}, {"a.flt", {}}});
    const ReferenceGraph graph = graphOf(folder);

    EXPECT_THAT(findingsOf(graph), ElementsAre("warning master.flt: '" + folder / "a.flt" +
                                               "' at byte 328: is absolute; the database cannot be moved"));
    EXPECT_THAT(fileNames(graph), ElementsAre("master.flt", "a.flt"));
}

TEST(ReferenceGraph, FollowsOddNamesAndTellsThem) {
    const std::vector<std::string> odd = {"a\nb.flt", "c\"d.flt", "e'f.flt", "$g.flt", "`h`.flt", "\xff.flt"};
    References database = {{"master.flt", odd}};
    for (const std::string& name : odd) database[name] = {};
    const ReferenceGraph graph = graphOf(database);

    EXPECT_EQ(graph.files.size(), 7u);
    EXPECT_EQ(graph.count(FindingKind::Name), 6u);
    EXPECT_EQ(graph.count(Severity::Error), 0u);
    const std::vector<std::string> lines = findingsOf(graph);
    EXPECT_EQ(lines[0], "warning master.flt: 'a\nb.flt' at byte 328: holds control characters or is not UTF-8");
    EXPECT_EQ(lines[1], "warning master.flt: 'c\"d.flt' at byte 544: holds quotes or dollar signs");
    EXPECT_EQ(lines[5], "warning master.flt: '\xff.flt' at byte 1408: holds control characters or is not UTF-8");
}

TEST(ReferenceGraph, TellsNamesOfNodesAndFollowsTheirFiles) {
    const ReferenceGraph graph =
        graphOf({{"master.flt", {"A.flt<tower>", "gone.flt<tower>", "<tower>", "a.flt<tower"}}, {"a.flt", {}}});

    EXPECT_THAT(findingsOf(graph),
                ElementsAre("error master.flt: 'A.flt<tower>' at byte 328: names a single node, which OpenSceneGraph "
                            "cannot read",
                            "error master.flt: 'gone.flt<tower>' at byte 544: no such file",
                            "error master.flt: '<tower>' at byte 760: no such file",
                            "error master.flt: 'a.flt<tower' at byte 976: no such file"));
    EXPECT_EQ(graph.findings[0].kind, FindingKind::Node);
    EXPECT_THAT(targetsOf(graph, 0), ElementsAre("a.flt", "-", "-", "-"));
}

TEST(ReferenceGraph, TakesANameWithPointedBracketsForAFileIfThereIsOne) {
    const ReferenceGraph graph = graphOf({{"master.flt", {"a<1>.flt"}}, {"a<1>.flt", {}}});
    EXPECT_THAT(fileNames(graph), ElementsAre("master.flt", "a<1>.flt"));
    EXPECT_THAT(graph.findings, IsEmpty());
}

TEST(ReferenceGraph, DoesNotOpenFilesOfOtherFormats) {
    const ReferenceGraph graph =
        graphOf({{"master.flt", {"tree.ive", "B.FLT"}}, {"tree.ive", {"b.flt"}}, {"B.FLT", {}}});
    EXPECT_THAT(findingsOf(graph), ElementsAre("warning master.flt: 'tree.ive' at byte 328: is no OpenFlight file"));
    EXPECT_EQ(graph.findings[0].kind, FindingKind::Other);
    EXPECT_EQ(graph.files[0].references[0].status, ReferenceStatus::Other);
    EXPECT_THAT(fileNames(graph), ElementsAre("master.flt", "B.FLT"));
}

TEST(ReferenceGraph, TellsAFileThatRefersToItself) {
    const ReferenceGraph graph = graphOf({{"master.flt", {"a.flt", "master.flt"}}, {"a.flt", {}}});
    EXPECT_THAT(findingsOf(graph), ElementsAre("error master.flt: refers to itself (at byte 544)"));
    EXPECT_EQ(graph.findings[0].kind, FindingKind::Cycle);
    EXPECT_EQ(graph.findings[0].offset, 544u);
    EXPECT_THAT(graph.findings[0].files, ElementsAre(0));
    EXPECT_THAT(namesInCycles(graph), ElementsAre("master.flt"));
    EXPECT_THAT(namesInConversionOrder(graph), ElementsAre("a.flt", "master.flt"));
}

TEST(ReferenceGraph, TellsCyclesByAShortestWay) {
    const ReferenceGraph graph = graphOf({{"master.flt", {"a.flt"}},
                                          {"a.flt", {"d.flt", "b.flt"}},
                                          {"b.flt", {"e.flt", "c.flt", "a.flt"}},
                                          {"c.flt", {"a.flt"}},
                                          {"d.flt", {}},
                                          {"e.flt", {}}});

    EXPECT_THAT(findingsOf(graph), ElementsAre("error a.flt: refers to itself by way of b.flt (at byte 544)"));
    EXPECT_THAT(graph.findings[0].files, ElementsAre(1, 3));
    EXPECT_THAT(namesInCycles(graph), ElementsAre("a.flt", "b.flt", "c.flt"));
    EXPECT_EQ(namesInConversionOrder(graph).front(), "d.flt");
    EXPECT_EQ(namesInConversionOrder(graph).back(), "master.flt");
}

TEST(ReferenceGraph, NamesFiveFilesOfALongCycle) {
    References database;
    for (int i = 0; i < 8; ++i)
        database[i == 0 ? "master.flt" : std::to_string(i) + ".flt"] = {i == 7 ? "master.flt"
                                                                               : std::to_string(i + 1) + ".flt"};
    const ReferenceGraph graph = graphOf(database);
    EXPECT_THAT(findingsOf(graph),
                ElementsAre("error master.flt: refers to itself by way of 1.flt, 2.flt, 3.flt, 4.flt, 5.flt and 2 more "
                            "(at byte 328)"));
    EXPECT_THAT(graph.findings[0].files, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
    EXPECT_EQ(graph.conversionOrder().size(), 8u);
}

TEST(ReferenceGraph, TellsEachKnotOfCyclesOnce) {
    const ReferenceGraph graph = graphOf({{"master.flt", {"a.flt", "c.flt"}},
                                          {"a.flt", {"b.flt"}},
                                          {"b.flt", {"a.flt", "c.flt"}},
                                          {"c.flt", {"d.flt"}},
                                          {"d.flt", {"c.flt"}}});
    EXPECT_THAT(findingsOf(graph), ElementsAre("error a.flt: refers to itself by way of b.flt (at byte 328)",
                                               "error c.flt: refers to itself by way of d.flt (at byte 328)"));
    EXPECT_THAT(namesInConversionOrder(graph), ElementsAre("d.flt", "c.flt", "b.flt", "a.flt", "master.flt"));
}

TEST(ReferenceGraph, EndsAfter100Levels) {
    References database;
    for (int i = 0; i < 104; ++i)
        database[i == 0 ? "master.flt" : std::to_string(i) + ".flt"] = {std::to_string(i + 1) + ".flt"};
    const ReferenceGraph graph = graphOf(database);
    EXPECT_EQ(graph.files.size(), 102u);
    EXPECT_THAT(findingsOf(graph), ElementsAre("error 101.flt: referred to over more than 100 levels"));
    EXPECT_EQ(graph.findings[0].kind, FindingKind::TooDeep);
    EXPECT_FALSE(graph.files[101].isSound);
    EXPECT_TRUE(graph.files[100].isSound);
    EXPECT_EQ(graph.files[101].bytes, graph.files[100].bytes);
}

TEST(ReferenceGraph, TellsFilesOfTheSameNameInSeveralFolders) {
    const ReferenceGraph graph =
        graphOf({{"master.flt", {"a/tile.flt", "b/TILE.flt", "c/tile.flt", "x.flt", "a/x.flt"}},
                 {"a/tile.flt", {}},
                 {"b/TILE.flt", {}},
                 {"c/tile.flt", {}},
                 {"x.flt", {}},
                 {"a/x.flt", {}}});
    EXPECT_THAT(findingsOf(graph), ElementsAre("warning a/tile.flt: has the same name as b/TILE.flt and 1 more",
                                               "warning x.flt: has the same name as a/x.flt"));
    EXPECT_EQ(graph.findings[0].kind, FindingKind::Duplicate);
    EXPECT_EQ(graph.findings[0].offset, std::nullopt);
    EXPECT_THAT(graph.findings[0].files, ElementsAre(1, 2, 3));
}

TEST(ReferenceGraph, RefusesAMasterThatIsNotThere) {
    const TemporaryDirectory folder;
    EXPECT_EQ(refusalOf(""), "1: the file's name is empty");
    EXPECT_EQ(refusalOf(folder / "gone.flt"), "2: " + folder / "gone.flt" + ": no such file");
    fs::create_symlink("loop.flt", folder / "loop.flt");
    EXPECT_EQ(refusalOf(folder / "loop.flt"), "2: " + folder / "loop.flt" + ": Too many levels of symbolic links");
}

TEST(ReferenceGraph, RefusesFoldersThatAreNoneAndAMasterOutsideOfThem) {
    const TemporaryDirectory folder;
    writeDatabase(folder, {{"master.flt", {}}, {"sub/a.flt", {}}});
    EXPECT_EQ(refusalOf(folder / "master.flt", {"/none", {}}), "1: --root: /none is not a folder");
    EXPECT_EQ(refusalOf(folder / "master.flt", {folder / "master.flt", {}}),
              "1: --root: " + folder / "master.flt" + " is not a folder");
    EXPECT_EQ(refusalOf(folder / "master.flt", {{}, {"/none"}}), "1: --allow-outside: /none is not a folder");
    EXPECT_EQ(refusalOf(folder / "master.flt", {folder / "sub", {}}),
              "1: " + folder / "master.flt" + ": lies outside of " + realPath(folder, "sub"));
}

TEST(ReferenceGraph, HoldsADamagedMasterAlone) {
    const TemporaryDirectory folder;
    saveBytes(folder / "master.flt", "text");
    const ReferenceGraph graph = graphOf(folder);
    EXPECT_THAT(findingsOf(graph), ElementsAre("error master.flt: not an OpenFlight file"));
    EXPECT_EQ(graph.findings[0].offset, 0u);
    EXPECT_THAT(graph.conversionOrder(), IsEmpty());
}
