#include "support/Conversions.h"
#include "support/Graphs.h"
#include "support/ToolJson.h"

#include <export/NearestNames.h>

#include <gmock/gmock.h>

#include <osg/MatrixTransform>
#include <osgDB/WriteFile>

using namespace testing_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using veltrane::sceneutils::tool::editDistance;
using veltrane::sceneutils::tool::nearestNames;

namespace {

template <typename Node = osg::Group>
osg::ref_ptr<Node> makeNamed(const std::string& name, const std::vector<osg::ref_ptr<osg::Node>>& children = {}) {
    osg::ref_ptr<Node> node = new Node;
    node->setName(name);
    for (const auto& child : children) node->addChild(child);
    return node;
}

osg::ref_ptr<osg::MatrixTransform> makeMoved(const std::string& name, double x, osg::Node* child) {
    const auto moved = makeNamed<osg::MatrixTransform>(name, {child});
    moved->setMatrix(osg::Matrix::translate(x, 0.0, 0.0));
    return moved;
}

osg::ref_ptr<osg::Geode> makeTextured(const std::string& image) {
    const osg::ref_ptr<osg::Geode> geode = makeGeode(makeSquare());
    geode->getOrCreateStateSet()->setTextureAttributeAndModes(0, makeTexture(image));
    return geode;
}

/** A tank in a file: "tank" > moved > "turret" (moved again) > ground of width 10. */
class Tank {
public:
    explicit Tank(const std::string& file = "in.osgb") : _in(file) { write(); }

    std::string in() const { return _folder / _in; }
    std::string out(const std::string& ending = "osgb") const { return _folder / ("out." + ending); }
    const TemporaryDirectory& folder() const { return _folder; }
    osg::Group& root() { return *_root; }
    osg::Group& turret() { return *_root->getChild(0)->asGroup()->getChild(0)->asGroup(); }

    void write() const { osgDB::writeNodeFile(*_root, in()); }

    ToolResult run(const std::vector<std::string>& options, const std::string& ending = "osgb") const {
        std::vector<std::string> arguments = {"export", in(), out(ending)};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return runTool(arguments);
    }

private:
    TemporaryDirectory _folder;
    std::string _in;
    osg::ref_ptr<osg::Group> _root = makeNamed("tank", {makeMoved("", 50.0, makeMoved("turret", 3.0, makeGround(10)))});
};

}  // namespace

TEST(ExportCommand, WritesAWholeGraphInAnotherFormat) {
    const Tank tank;

    const ToolResult result = tank.run({}, "ive");

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, tank.out("ive") + ": " + tank.in() + " written\n");
    EXPECT_EQ(textOf(tank.out("ive")), textOf(tank.in()));
    EXPECT_THAT(namesIn(tank.folder().path()), ElementsAre("in.osgb", "out.ive"));
}

TEST(ExportCommand, WritesEveryFormatOfOpenSceneGraphsOwn) {
    for (const char* ending : {"ive", "osg", "osgb", "osgt", "osgx"}) {
        const Tank tank;
        EXPECT_EQ(tank.run({"--node", "turret"}, ending).status, 0);
        EXPECT_EQ(widthOf(tank.out(ending)), 10.0f) << ending;
    }
}

TEST(ExportCommand, WritesForeignFormats) {
    for (const char* ending : {"obj", "stl"}) {
        const Tank tank;
        EXPECT_EQ(tank.run({"--node", "turret"}, ending).status, 0);
        EXPECT_EQ(widthOf(tank.out(ending)), 10.0f) << ending;
    }
}

TEST(ExportCommand, WritesOneNodeInItsOwnCoordinates) {
    Tank tank;
    tank.root().getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    tank.write();

    const ToolResult result = tank.run({"--node", "turret"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, tank.out() + ": tank/<MatrixTransform>/turret written\n");
    EXPECT_EQ(textOf(tank.out()), GraphText(tank.turret()).text());
    EXPECT_EQ(load(tank.out())->getBound().center(), osg::Vec3(3.0f, 0.0f, 0.0f));
    EXPECT_EQ(load(tank.out())->getStateSet(), nullptr);
}

TEST(ExportCommand, WritesTheFirstOfSeveralNodesAndTellsHowManyThereAre) {
    Tank tank;
    tank.root().addChild(makeNamed("turret"));
    tank.root().addChild(&tank.turret());
    tank.root().addChild(makeNamed("Turret"));
    tank.write();

    const ToolResult result = tank.run({"--node", "turret"});

    EXPECT_EQ(result.output,
              tank.out() + ": tank/<MatrixTransform>/turret written, the first of 2 nodes of this name\n");
    EXPECT_EQ(widthOf(tank.out()), 10.0f);
}

TEST(ExportCommand, WritesTheRootByItsName) {
    const Tank tank;

    EXPECT_EQ(tank.run({"--node", "tank"}).output, tank.out() + ": tank written\n");
    EXPECT_EQ(textOf(tank.out()), textOf(tank.in()));
}

TEST(ExportCommand, FindsHiddenNodes) {
    Tank tank;
    tank.root().getChild(0)->setNodeMask(0);
    tank.write();

    EXPECT_EQ(tank.run({"--node", "turret"}).status, 0);
}

TEST(ExportCommand, WritesADrawableInAGeode) {
    for (const char* ending : {"ive", "osgt", "stl"}) {
        Tank tank;
        tank.turret().getChild(0)->asGeode()->getDrawable(0)->setName("plate");
        tank.write();

        const ToolResult result = tank.run({"--node", "plate"}, ending);

        EXPECT_EQ(result.output, tank.out(ending) + ": tank/<MatrixTransform>/turret/<Geode>/plate written\n");
        EXPECT_EQ(widthOf(tank.out(ending)), 10.0f) << ending;
    }
}

TEST(ExportCommand, OffersTheThreeNearestNamesWhenNothingHasTheName) {
    Tank tank;
    for (const char* name : {"turn", "Turret", "turret2", "a"}) tank.root().addChild(makeNamed(name));
    tank.write();

    EXPECT_EQ(
        onlyLineOf({"export", tank.in(), tank.out(), "--node", "turrets"}, 1),
        "sceneutils: " + tank.in() + ": there is no node called 'turrets'; nearest: 'turret', 'turret2', 'Turret'\n");
    EXPECT_THAT(namesIn(tank.folder().path()), ElementsAre("in.osgb"));
}

TEST(ExportCommand, OffersFewerNamesIfThereAreFewer) {
    Tank tank;
    const std::string beginning = "sceneutils: " + tank.in() + ": there is no node called 'x'; ";

    EXPECT_EQ(onlyLineOf({"export", tank.in(), tank.out(), "--node", "x"}, 1),
              beginning + "nearest: 'tank', 'turret'\n");
    tank.root().setName("");
    tank.turret().setName("");
    tank.write();
    EXPECT_EQ(onlyLineOf({"export", tank.in(), tank.out(), "--node", "x"}, 1), beginning + "no node has a name\n");
}

TEST(ExportCommand, TellsHowManyFilesWereNotSearched) {
    Tank tank;
    const auto paged = makeNamed<osg::PagedLOD>("tiles");
    paged->setFileName(0, "a.ive");
    paged->setFileName(1, "b.ive");
    tank.root().addChild(paged);
    tank.write();

    EXPECT_THAT(onlyLineOf({"export", tank.in(), tank.out(), "--node", "x"}, 1),
                testing::EndsWith("; not searched: 2 files that it refers to\n"));
}

TEST(ExportCommand, KeepsControlCharactersOfNamesFromTheTerminal) {
    Tank tank;
    tank.turret().setName("tur\033ret");
    tank.write();

    EXPECT_THAT(onlyLineOf({"export", tank.in(), tank.out(), "--node", "x"}, 1), HasSubstr("'tur?ret'"));
    EXPECT_EQ(tank.run({"--node", "tur\033ret"}).output, tank.out() + ": tank/<MatrixTransform>/tur?ret written\n");
}

TEST(ExportCommand, NamesTexturesTilesAndReferencesFromTheOutputsFolder) {
    const TemporaryDirectory folder;
    std::filesystem::create_directories(folder.path() / "in");
    osgDB::writeImageFile(*makeImage(""), folder / "in/wall.png");
    const auto paged = makeNamed<osg::PagedLOD>("tiles");
    paged->setFileName(0, "tile.ive");
    const auto proxy = makeNamed<osg::ProxyNode>("reference");
    proxy->setFileName(0, "missing.osgb");
    proxy->setLoadingExternalReferenceMode(osg::ProxyNode::NO_AUTOMATIC_LOADING);
    const auto part = makeNamed("part", {makeTextured("wall.png"), paged, proxy});
    osgDB::writeNodeFile(*makeNamed("root", {part}), folder / "in/in.osg");

    ASSERT_EQ(runTool({"export", folder / "in/in.osg", folder / "out/deep/out.osgb", "--node", "part"}).status, 0);

    const osg::ref_ptr<osg::Node> written = load(folder / "out/deep/out.osgb");
    EXPECT_THAT(pagedFiles(written), ElementsAre("../../in/tile.ive"));
    EXPECT_THAT(references(written), ElementsAre("../../in/missing.osgb"));
    EXPECT_EQ(findTextures(written).at(0)->getImage()->s(), 1);
    EXPECT_THAT(readBytes(folder / "out/deep/out.osgb"), HasSubstr("../../in/wall.png"));
}

TEST(ExportCommand, TakesTheReferencesOfOpenFlightFilesIntoTheGraph) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.flt"});
    writeFlight(folder / "b.flt", *makeNamed("inner", {makeGround(20.0f)}));

    EXPECT_EQ(runTool({"export", folder / "a.flt", folder / "a.ive", "--node", "inner"}).status, 0);
    EXPECT_EQ(widthOf(folder / "a.ive"), 20.0f);
    EXPECT_EQ(runTool({"export", folder / "a.flt", folder / "whole.ive"}).status, 0);
    EXPECT_EQ(findAll<osg::Geode>(load(folder / "whole.ive")).size(), 2u);
    EXPECT_THAT(references(load(folder / "whole.ive")), IsEmpty());
}

TEST(ExportCommand, WritesAReferenceThatWasLoadedAsAGroup) {
    const TemporaryDirectory folder;
    writeFlight(folder / "b.flt", 20.0f);
    const auto proxy = makeNamed<osg::ProxyNode>("reference");
    proxy->setFileName(0, "b.flt");
    osgDB::writeNodeFile(*makeNamed("root", {proxy}), folder / "a.osgt");

    ASSERT_EQ(runTool({"export", folder / "a.osgt", folder / "b.osgt", "--node", "reference"}).status, 0);

    EXPECT_THAT(textOf(folder / "b.osgt"), StartsWith("Group \"reference\""));
    EXPECT_EQ(widthOf(folder / "b.osgt"), 20.0f);
}

TEST(ExportCommand, NeverReplacesAnOutputUnlessTold) {
    const Tank tank;
    writeBytes(tank.out(), "precious");

    const ToolResult result = tank.run({"--node", "turret"});

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "sceneutils: " + tank.out() + ": exists already; pass --overwrite to replace it\n");
    EXPECT_EQ(readBytes(tank.out()), "precious");
    EXPECT_EQ(tank.run({"--node", "turret", "--overwrite"}).status, 0);
    EXPECT_EQ(widthOf(tank.out()), 10.0f);
}

TEST(ExportCommand, NeverReplacesAnInput) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.flt"});
    writeFlight(folder / "b.flt", 10.0f);
    const FolderState before = stateOf(folder.path());

    for (const char* output : {"a.flt", "./b.flt"}) {
        EXPECT_EQ(onlyLineOf({"export", folder / "a.flt", folder / output, "--overwrite"}, 4),
                  "sceneutils: " + (folder / output) + ": is one of the inputs; choose another name\n");
    }
    EXPECT_EQ(stateOf(folder.path()), before);
}

TEST(ExportCommand, LeavesNothingBehindWhenItFails) {
    const Tank tank;
    ToolSettings settings;
    settings.fileSizeLimit = 100;
    settings.diesOfFileSize = true;

    const ToolResult result = runTool({"export", tank.in(), tank.out()}, settings);

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(namesIn(tank.folder().path()), ElementsAre("in.osgb"));
}

TEST(ExportCommand, SaysWhatIsWrongWithItsArguments) {
    const TemporaryDirectory folder;
    const std::string in = folder / "a.ive";

    EXPECT_EQ(onlyLineOf({"export", in, folder / "b.ive"}, 2), "sceneutils: " + in + ": no such file\n");
    EXPECT_THAT(onlyLineOf({"export", in, folder / "b.xyz"}, 1), HasSubstr("'.xyz'"));
    EXPECT_THAT(onlyLineOf({"export", in}, 1), HasSubstr("OUT"));
    EXPECT_EQ(onlyLineOf({"export", in, folder / "b.ive", "--node", ""}, 1),
              "sceneutils: --node: a name is not empty; leave the option out for the whole graph\n");
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST(ExportCommand, SaysInItsHelpThatTheNodeStaysInItsOwnCoordinates) {
    const ToolResult result = runTool({"export", "--help"});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("own coordinates"));
}

TEST(NearestNames, CountsCharactersPutInTakenOutAndReplaced) {
    EXPECT_EQ(editDistance("", ""), 0u);
    EXPECT_EQ(editDistance("abc", ""), 3u);
    EXPECT_EQ(editDistance("", "abc"), 3u);
    EXPECT_EQ(editDistance("abc", "abc"), 0u);
    EXPECT_EQ(editDistance("abc", "abxc"), 1u);
    EXPECT_EQ(editDistance("abxc", "abc"), 1u);
    EXPECT_EQ(editDistance("kitten", "sitting"), 3u);
    EXPECT_EQ(editDistance("ab", "ba"), 2u);
    EXPECT_EQ(editDistance("turret", "Turret"), 1u);
}

TEST(NearestNames, TakesACharacterOfSeveralBytesForOne) {
    EXPECT_EQ(editDistance("Gr\u00fcn", "Grun"), 1u);
    EXPECT_EQ(editDistance("\u6a39", ""), 1u);
    EXPECT_EQ(editDistance("\x80", "a"), 1u);
}

TEST(NearestNames, OrdersByDistanceThenByBytes) {
    EXPECT_THAT(nearestNames("aa", {"ab", "aB", "aaa", "zz", "aa"}, 4), ElementsAre("aa", "aB", "aaa", "ab"));
    EXPECT_THAT(nearestNames("aa", {"ab", "aB", "aaa"}, 2), ElementsAre("aB", "aaa"));
    EXPECT_THAT(nearestNames("aa", {"zz"}, 3), ElementsAre("zz"));
    EXPECT_THAT(nearestNames("aa", {}, 3), IsEmpty());
}
