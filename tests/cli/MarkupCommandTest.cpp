#include "support/Conversions.h"
#include "support/Graphs.h"
#include "support/LODDrawings.h"
#include "support/ToolJson.h"

#include <gmock/gmock.h>

#include <osg/MatrixTransform>
#include <osg/Switch>
#include <osgDB/WriteFile>

using namespace testing_support;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const osg::Vec4 red(1, 0, 0, 1), green(0, 1, 0, 1), blue(0, 0, 1, 1);
const osg::Vec4 yellow(1, 1, 0, 1), cyan(0, 1, 1, 1), magenta(1, 0, 1, 1), white(1, 1, 1, 1), orange(1, 0.5f, 0, 1);
const osg::Vec3 origin;

template <typename Node = osg::Group>
osg::ref_ptr<Node> makeNamed(const std::string& name, const std::vector<osg::ref_ptr<osg::Node>>& children = {}) {
    osg::ref_ptr<Node> node = new Node;
    node->setName(name);
    for (const auto& child : children) node->addChild(child);
    return node;
}

/** A house of two levels that switch at 50 and end at 120, with a radius of 8. */
osg::ref_ptr<osg::LOD> makeHouse(const std::string& name = "house") {
    const osg::ref_ptr<osg::LOD> house = makeLOD(name, origin, 8.0f);
    const osg::ref_ptr<osg::Geode> roof = makeGround(10.0f);
    roof->setName("roof");
    house->addChild(roof, 0.0f, 50.0f);
    house->addChild(makeGround(12.0f), 50.0f, 120.0f);
    return house;
}

osg::ref_ptr<osg::PagedLOD> makeTile(const std::string& file) {
    osg::ref_ptr<osg::PagedLOD> tile = makeLOD<osg::PagedLOD>("", origin, 20.0f);
    tile->setFileName(0, file);
    tile->setRange(0, 0.0f, 300.0f);
    return tile;
}

/** What is drawn around an LOD of that radius with ranges that end there. */
DrawnLines boxes(float radius, const std::vector<float>& ends, const osg::Vec4& first, const osg::Vec4& second,
                 const osg::Vec4& third) {
    DrawnLines lines = spokes(origin, radius, third) + cube(origin, radius, first);
    for (const float end : ends) lines = lines + (cube(origin, end, second) + spokes(origin, end, third));
    return lines;
}

const DrawnLines& houseBoxes() {
    static const DrawnLines lines = boxes(8.0f, {50.0f, 120.0f}, red, green, blue);
    return lines;
}

/** What is drawn beside each LOD of a marked graph. */
std::vector<DrawnLines> marksIn(osg::Node* graph) {
    std::vector<DrawnLines> marks;
    for (const auto& lod : findAll<osg::LOD>(graph)) {
        osg::Group& marked = *lod->getParent(0);
        if (marked.getNumChildren() == 2 && marked.getChild(1) == lod)
            marks.push_back(linesIn(*marked.getChild(0)->asGroup()));
    }
    return marks;
}

/** A graph in a file, and what `markup` makes of it, in a working directory of its own. */
class Scene {
public:
    explicit Scene(osg::ref_ptr<osg::Node> root = makeNamed("world", {makeHouse()})) : _root(root) {
        std::filesystem::create_directories(_folder / "cwd");
        write();
    }

    std::string in() const { return _folder / "in.osgb"; }
    std::string out(const std::string& ending = "osgb") const { return _folder / ("out." + ending); }
    std::string picture() const { return _folder / "out.png"; }
    const TemporaryDirectory& folder() const { return _folder; }
    osg::Group& root() { return *_root->asGroup(); }

    void write() const { osgDB::writeNodeFile(*_root, in()); }

    ToolResult run(const std::vector<std::string>& options = {}, const std::string& ending = "osgb",
                   ToolSettings settings = {}) const {
        std::vector<std::string> arguments = {"markup", in(), out(ending)};
        arguments.insert(arguments.end(), options.begin(), options.end());
        settings.workingDirectory = _folder / "cwd";
        return runTool(arguments, settings);
    }

    /** What the tool tells when it ends with that status. */
    std::string refusal(const std::vector<std::string>& options, int status) const {
        const ToolResult result = run(options);
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.errorLines().size(), 1u) << result.errors;
        EXPECT_EQ(result.output, "");
        return result.errors;
    }

private:
    TemporaryDirectory _folder;
    osg::ref_ptr<osg::Node> _root;
};

}  // namespace

TEST(MarkupCommand, DrawsBoxesAroundEveryLodAndTellsHowMany) {
    const Scene scene(makeNamed("world", {makeHouse(), makeHouse(), makeTile("tile.ive")}));

    const ToolResult result = scene.run();

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, scene.out() + ": 2 LODs and 1 paged LOD marked; not loaded: 1 file that it refers to\n");
    EXPECT_THAT(marksIn(load(scene.out())),
                ElementsAre(houseBoxes(), houseBoxes(), boxes(20.0f, {300.0f}, yellow, cyan, magenta)));
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb", "out.osgb"));
}

TEST(MarkupCommand, WritesTheSameInEveryFormat) {
    for (const char* ending : {"ive", "osg", "osgb", "osgt", "osgx"}) {
        const Scene scene;

        const ToolResult result = scene.run({}, ending);

        EXPECT_EQ(result.status, 0) << ending;
        EXPECT_EQ(result.errors, "") << ending;
        EXPECT_THAT(marksIn(load(scene.out(ending))), ElementsAre(houseBoxes())) << ending;
    }
}

TEST(MarkupCommand, MarksAnLodThatIsTheRoot) {
    const Scene scene(makeHouse());

    EXPECT_EQ(scene.run().output, scene.out() + ": 1 LOD and 0 paged LODs marked\n");
    EXPECT_THAT(marksIn(load(scene.out())), ElementsAre(houseBoxes()));
}

TEST(MarkupCommand, MarksLodsInLods) {
    const osg::ref_ptr<osg::LOD> outer = makeHouse("outer");
    outer->addChild(makeHouse("inner"), 120.0f, 200.0f);
    const Scene scene(makeNamed("world", {outer}));

    EXPECT_EQ(scene.run().output, scene.out() + ": 2 LODs and 0 paged LODs marked\n");
    EXPECT_THAT(marksIn(load(scene.out())),
                ElementsAre(boxes(8.0f, {50.0f, 120.0f, 200.0f}, red, green, blue), houseBoxes()));
}

TEST(MarkupCommand, MarksAnLodOnceInAllItsPlaces) {
    const osg::ref_ptr<osg::LOD> house = makeHouse();
    const auto street = makeNamed("street", {house, house});
    const Scene scene(makeNamed("world", {street, street, makeNamed("square", {house})}));

    EXPECT_EQ(scene.run().output, scene.out() + ": 1 LOD and 0 paged LODs marked\n");

    const osg::ref_ptr<osg::Node> marked = load(scene.out());
    const auto houses = findAll<osg::LOD>(marked);
    ASSERT_EQ(houses.size(), 5u);
    EXPECT_EQ(houses[0]->getNumParents(), 1u);
    EXPECT_EQ(houses[0]->getParent(0)->getNumParents(), 3u);
    EXPECT_EQ(marksIn(marked), std::vector<DrawnLines>(5, houseBoxes()));
    for (const auto& each : houses) EXPECT_EQ(each, houses[0]);
}

TEST(MarkupCommand, MarksWhatIsHidden) {
    Scene scene(makeNamed("world", {makeNamed("hidden", {makeHouse()}), makeHouse()}));
    for (unsigned int i = 0; i < 2; ++i) scene.root().getChild(i)->setNodeMask(0);
    scene.write();

    EXPECT_EQ(scene.run().output, scene.out() + ": 2 LODs and 0 paged LODs marked\n");
}

TEST(MarkupCommand, WritesAGraphWithoutLodsAsItIs) {
    const Scene scene(makeNamed("world", {makeGround(10.0f)}));

    EXPECT_EQ(scene.run().output, scene.out() + ": 0 LODs and 0 paged LODs marked\n");
    EXPECT_EQ(textOf(scene.out()), textOf(scene.in()));
}

TEST(MarkupCommand, NamesTexturesTilesAndReferencesFromTheOutputsFolder) {
    const TemporaryDirectory folder;
    std::filesystem::create_directories(folder.path() / "in");
    osgDB::writeImageFile(*makeImage(""), folder / "in/wall.png");
    const osg::ref_ptr<osg::LOD> house = makeHouse();
    house->getChild(0)->getOrCreateStateSet()->setTextureAttributeAndModes(0, makeTexture("wall.png"));
    const auto proxy = makeNamed<osg::ProxyNode>("reference");
    proxy->setFileName(0, "missing.osgb");
    proxy->setLoadingExternalReferenceMode(osg::ProxyNode::NO_AUTOMATIC_LOADING);
    osgDB::writeNodeFile(*makeNamed("root", {house, makeTile("tile.ive"), proxy}), folder / "in/in.osg");

    ASSERT_EQ(runTool({"markup", folder / "in/in.osg", folder / "out/deep/out.osgb"}).status, 0);

    const osg::ref_ptr<osg::Node> written = load(folder / "out/deep/out.osgb");
    EXPECT_THAT(pagedFiles(written), ElementsAre("../../in/tile.ive"));
    EXPECT_THAT(references(written), ElementsAre("../../in/missing.osgb"));
    EXPECT_EQ(findTextures(written).at(0)->getImage()->s(), 1);
}

TEST(MarkupCommand, TellsTheWayToANodeOnStandardOutput) {
    Scene scene;
    scene.root().getChild(0)->asGroup()->getChild(0)->setUserValue("floors", 2);
    scene.write();

    const ToolResult result = scene.run({"--path", "roof"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output,
              "num paths = 1\n"
              "PATH-----\n"
              "Group world, 1 children, bound radius=8, parents 0\n"
              "LOD house  0...50, 2 children, bound radius=8, parents 1\n"
              "Geode  roof, 1 drawables , parents 1\n"
              "   floors (IntValueObject) = 2\n" +
                  scene.out() + ": 1 chain to 1 node called 'roof'\n");
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb", "out.osgb"));
}

TEST(MarkupCommand, WritesTheChainToANode) {
    for (const char* ending : {"ive", "osg", "osgb", "osgt", "osgx"}) {
        const Scene scene;
        ASSERT_EQ(scene.run({"--path", "roof"}, ending).status, 0) << ending;

        const osg::ref_ptr<osg::Node> written = load(scene.out(ending));
        ASSERT_EQ(written->asGroup()->getNumChildren(), 1u);
        osg::Group& house = *written->asGroup()->getChild(0)->asGroup()->getChild(0)->asGroup();
        EXPECT_EQ(house.getName(), "house");
        EXPECT_EQ(linesIn(house), spokes(origin, 8.0f, blue) + square(origin, 8.0f, red) +
                                      square(origin, 50.0f, green) + spokes(origin, 50.0f, blue))
            << ending;
        EXPECT_THAT(wordsOf(house), ElementsAre("LOD house, rad=8\n", "LOD house, rad=50\n")) << ending;
        osg::Group& roof = *house.getChild(house.getNumChildren() - 1)->asGroup();
        EXPECT_EQ(linesIn(roof).front().color, orange) << ending;
    }
}

TEST(MarkupCommand, WritesChainsToAllNodesOfTheNameByAllWays) {
    const osg::ref_ptr<osg::LOD> house = makeHouse();
    const auto moved = makeNamed<osg::MatrixTransform>("moved", {house});
    const Scene scene(makeNamed("world", {house, moved, makeHouse()}));

    const ToolResult result = scene.run({"--path", "roof"});

    EXPECT_THAT(result.output, StartsWith("num paths = 2\n"));
    EXPECT_THAT(result.output, HasSubstr("\nnum paths = 1\n"));
    EXPECT_THAT(result.output, testing::EndsWith(": 3 chains to 2 nodes called 'roof'\n"));
    EXPECT_EQ(load(scene.out())->asGroup()->getNumChildren(), 3u);
}

TEST(MarkupCommand, KeepsControlCharactersFromTheTerminal) {
    Scene scene;
    scene.root().setName("wo\033rld");
    scene.root().getChild(0)->setName("ho\033use");
    scene.write();

    const ToolResult result = scene.run({"--path", "ho\033use"});

    EXPECT_THAT(result.output, HasSubstr("\nGroup wo?rld, 1 children"));
    EXPECT_THAT(result.output, testing::EndsWith(": 1 chain to 1 node called 'ho?use'\n"));
}

TEST(MarkupCommand, KeepsTheLibrarysFilesBesideTheOutputWhenAsked) {
    Scene scene(makeNamed("world", {makeHouse(), makeTile("")}));
    osg::Group& tile = *scene.root().getChild(1)->asGroup();
    const osg::ref_ptr<osg::Geode> shed = makeGround(3.0f);
    shed->setName("shed");
    tile.asGroup()->addChild(makeNamed("content", {shed}));
    scene.write();

    EXPECT_EQ(scene.run({"--path", "shed", "--keep-files"}).status, 0);

    EXPECT_THAT(namesIn(scene.folder().path()),
                ElementsAre("geode.osg", "in.osgb", "lodmarkup.osg", "out.osgb", "pagedlod.osg"));
    EXPECT_EQ(load(scene.folder() / "geode.osg")->getName(), "shed");
    EXPECT_EQ(load(scene.folder() / "pagedlod.osg")->getName(), "content");
    EXPECT_EQ(findAll<osg::Geode>(load(scene.folder() / "lodmarkup.osg")).size(),
              findAll<osg::Geode>(load(scene.out())).size());
}

TEST(MarkupCommand, FindsTheTexturesOfKeptFilesInTheirFolder) {
    const TemporaryDirectory folder;
    for (const char* name : {"in", "other/in", "other/cwd"}) std::filesystem::create_directories(folder.path() / name);
    for (const char* name : {"in/wall.png", "other/in/wall.png"}) osgDB::writeImageFile(*makeImage(""), folder / name);
    ToolSettings settings;
    settings.workingDirectory = folder / "other/cwd";
    const auto moved = makeNamed<osg::MatrixTransform>("moved", {makeHouse()});
    const osg::ref_ptr<osg::Texture2D> wall = makeTexture("wall.png");
    moved->getOrCreateStateSet()->setTextureAttributeAndModes(0, wall);
    moved->getChild(0)->asGroup()->getChild(0)->getOrCreateStateSet()->setTextureAttributeAndModes(0, wall);
    osgDB::writeNodeFile(*moved, folder / "in/in.osg");

    const ToolResult result =
        runTool({"markup", folder / "in/in.osg", folder / "out/out.osgt", "--path", "roof", "--keep-files"}, settings);

    EXPECT_EQ(result.status, 0);
    for (const char* name : {"out/out.osgt", "out/lodmarkup.osg", "out/geode.osg"})
        EXPECT_THAT(readBytes(folder / name), HasSubstr("\"../in/wall.png\"")) << name;
}

TEST(MarkupCommand, OffersTheThreeNearestNamesWhenNothingHasTheName) {
    Scene scene;
    for (const char* name : {"roo", "Roof", "a"}) scene.root().addChild(makeNamed(name));
    scene.write();

    EXPECT_EQ(scene.refusal({"--path", "roofs"}, 1),
              "sceneutils: " + scene.in() + ": there is no node called 'roofs'; nearest: 'roof', 'Roof', 'roo'\n");
    EXPECT_EQ(scene.refusal({"--path", ""}, 1),
              "sceneutils: --path: a name is not empty; leave the option out for the whole graph\n");
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb"));
}

TEST(MarkupCommand, NeverReplacesAnOutputUnlessTold) {
    const std::vector<std::string> all = {"--path", "roof", "--keep-files", "--picture"};
    for (const char* name : {"out.osgb", "out.png", "geode.osg", "lodmarkup.osg"}) {
        const Scene scene;
        std::vector<std::string> options = all;
        options.push_back(scene.picture());
        writeBytes(scene.folder() / name, "precious");

        EXPECT_EQ(scene.refusal(options, 4),
                  "sceneutils: " + (scene.folder() / name) + ": exists already; pass --overwrite to replace it\n");
        EXPECT_EQ(namesIn(scene.folder().path()), (std::set<std::string>{"in.osgb", name}));
        EXPECT_EQ(readBytes(scene.folder() / name), "precious");

        options.emplace_back("--overwrite");
        EXPECT_EQ(scene.run(options).status, 0);
        EXPECT_NE(readBytes(scene.folder() / name), "precious");
    }
}

TEST(MarkupCommand, IgnoresFilesOfTheLibrarysNamesIfTheyAreNotToBeKept) {
    const Scene scene;
    for (const char* name : {"geode.osg", "cwd/geode.osg", "cwd/lodmarkup.osg"})
        writeBytes(scene.folder() / name, "precious");

    EXPECT_EQ(scene.run({"--path", "roof"}).status, 0);

    for (const char* name : {"geode.osg", "cwd/geode.osg", "cwd/lodmarkup.osg"})
        EXPECT_EQ(readBytes(scene.folder() / name), "precious");
}

TEST(MarkupCommand, NeverReplacesAnInput) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.png.flt"});
    writeFlight(folder / "b.png.flt", 10.0f);
    osgDB::writeNodeFile(*makeNamed("world", {makeHouse()}), folder / "geode.osg");
    std::filesystem::create_symlink("a.flt", folder / "a.ive");
    std::filesystem::create_symlink("b.png.flt", folder / "b.png");
    const FolderState before = stateOf(folder.path());
    const auto refusal = [&](const std::string& name) {
        return "sceneutils: " + (folder / name) + ": is one of the inputs; choose another name\n";
    };

    EXPECT_EQ(onlyLineOf({"markup", folder / "a.flt", folder / "a.ive", "--overwrite"}, 4), refusal("a.ive"));
    EXPECT_EQ(
        onlyLineOf({"markup", folder / "a.flt", folder / "o.ive", "--overwrite", "--picture", folder / "b.png"}, 4),
        refusal("b.png"));
    EXPECT_EQ(
        onlyLineOf({"markup", folder / "geode.osg", folder / "o.ive", "--overwrite", "--path", "roof", "--keep-files"},
                   4),
        refusal("geode.osg"));
    EXPECT_EQ(stateOf(folder.path()), before);
}

TEST(MarkupCommand, RefusesTwoOutputsOfOneName) {
    const Scene scene;
    const std::string kept = scene.folder() / "geode.osg";

    EXPECT_EQ(onlyLineOf({"markup", scene.in(), kept, "--path", "roof", "--keep-files"}, 1),
              "sceneutils: " + kept + ": two outputs of this name\n");
    EXPECT_EQ(scene.refusal({"--picture", scene.folder() / "cwd/../out.osgb"}, 1),
              "sceneutils: " + (scene.folder() / "cwd/../out.osgb") + ": two outputs of this name\n");
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb"));
}

TEST(MarkupCommand, LeavesNothingBehindWhenItFails) {
    const Scene scene;
    ToolSettings settings;
    settings.fileSizeLimit = 100;
    settings.diesOfFileSize = true;

    const ToolResult result = scene.run({}, "osgb", settings);

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb"));
}

TEST(MarkupCommand, SaysWhatIsWrongWithItsArguments) {
    const Scene scene;

    EXPECT_EQ(onlyLineOf({"markup", scene.folder() / "a.ive", scene.out()}, 2),
              "sceneutils: " + (scene.folder() / "a.ive: no such file\n"));
    EXPECT_EQ(onlyLineOf({"markup", scene.in(), scene.out("obj")}, 1),
              "sceneutils: " + scene.out("obj") +
                  ": the output's name must end in .ive, .osg, .osgb, .osgt or .osgx; no other format keeps coloured "
                  "lines\n");
    EXPECT_THAT(onlyLineOf({"markup", scene.in()}, 1), HasSubstr("OUT"));
    EXPECT_THAT(scene.refusal({"--keep-files"}, 1), HasSubstr("--path"));
    for (const char* option : {"--size=500x500", "--reach=5", "--no-paging"})
        EXPECT_THAT(scene.refusal({option}, 1), HasSubstr("--picture")) << option;
    for (const char* reach : {"0", "-1", "nan", "inf"}) {
        EXPECT_EQ(scene.refusal({"--picture", scene.picture(), "--reach=" + std::string(reach)}, 1),
                  "sceneutils: --reach: a number of radii is greater than 0\n");
    }
    EXPECT_THAT(namesIn(scene.folder().path()), ElementsAre("in.osgb"));
}

TEST(MarkupCommand, HelpListsEveryOptionWithItsDefault) {
    const ToolResult result = runTool({"markup", "--help"});

    EXPECT_EQ(result.status, 0);
    for (const char* word : {"IN", "OUT", "--path", "--keep-files", "--picture", "--size", "1600x900", "--reach", "10",
                             "--no-paging", "--overwrite", "Tiles of paged LODs are not loaded"})
        EXPECT_THAT(result.output, HasSubstr(word));
}
