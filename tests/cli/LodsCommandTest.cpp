#include "support/Conversions.h"
#include "support/Graphs.h"
#include "support/ToolJson.h"

#include <gmock/gmock.h>

#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osgDB/WriteFile>

using namespace testing_support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

osg::ref_ptr<osg::Group> makeHinted(const std::string& name, const std::string& description) {
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    group->setName(name);
    group->addDescription(description);
    group->addChild(makeGround(10.0f));
    return group;
}

/** A graph in a file, and what `lods` makes of it. */
class Model {
public:
    explicit Model(const std::vector<osg::ref_ptr<osg::Group>>& groups) {
        _root->setName("root");
        for (const auto& group : groups) _root->addChild(group);
    }

    std::string in() const { return _folder / "in.osgb"; }
    std::string out() const { return _folder / "out.ive"; }
    const TemporaryDirectory& folder() const { return _folder; }
    osg::Group& root() { return *_root; }

    ToolResult run(const std::vector<std::string>& options = {}) const {
        osgDB::writeNodeFile(*_root, in());
        std::vector<std::string> arguments = {"lods", in(), out()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return runTool(arguments);
    }

private:
    TemporaryDirectory _folder;
    osg::ref_ptr<osg::Group> _root = new osg::Group;
};

}  // namespace

TEST(LodsCommand, TurnsHintsIntoLodsAndTellsHowMany) {
    const Model model({makeHinted("a", "LOD_Transition_Range 10"), makeHinted("b", "LOD_Transition_Range 20.5"),
                       makeHinted("c", "a comment")});

    const ToolResult result = model.run();

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, model.out() + ": 2 LODs created, 0 hints not readable\n");
    const auto lods = findAll<osg::LOD>(load(model.out()));
    ASSERT_EQ(lods.size(), 2u);
    EXPECT_EQ(lods[0]->getMaxRange(0), 50.0f);
    EXPECT_EQ(lods[1]->getMaxRange(0), 102.5f);
    EXPECT_EQ(lods[0]->getChild(0)->getName(), "a");
    EXPECT_THAT(namesIn(model.folder().path()), ElementsAre("in.osgb", "out.ive"));
}

TEST(LodsCommand, DoesNotCountLodsThatWereThere) {
    Model model({makeHinted("a", "LOD_Transition_Range 10")});
    model.root().addChild(new osg::LOD);

    EXPECT_EQ(model.run().output, model.out() + ": 1 LOD created, 0 hints not readable\n");
}

TEST(LodsCommand, ListsHintsThatCannotBeReadEachOnce) {
    Model model({makeHinted("a", "LOD_Transition_Range far"), makeHinted("b", "LOD_Transition_Range 20")});
    model.root().getChild(0)->addDescription("LOD_Transition_Range");
    const osg::ref_ptr<osg::Group> second = new osg::MatrixTransform;
    second->addChild(model.root().getChild(0));
    model.root().addChild(second);

    const ToolResult result = model.run();

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.errors,
              "sceneutils: " + model.in() + ": no range can be read: root/a: 'LOD_Transition_Range far'\n" +
                  "sceneutils: " + model.in() + ": no range can be read: root/a: 'LOD_Transition_Range'\n");
    EXPECT_EQ(result.output, model.out() + ": 1 LOD created, 2 hints not readable\n");
    EXPECT_EQ(findAll<osg::LOD>(load(model.out())).size(), 1u);
}

TEST(LodsCommand, TakesCommentsOfFacesForNoHints) {
    const osg::ref_ptr<osg::Geode> face = makeGround(10.0f);
    face->addDescription("LOD_Transition_Range far");
    Model model({});
    model.root().addChild(face);

    const ToolResult result = model.run();

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, model.out() + ": 0 LODs created, 0 hints not readable\n");
}

TEST(LodsCommand, KeepsAHintOnTheGraphsRoot) {
    const Model model({});
    osgDB::writeNodeFile(*makeHinted("top", "LOD_Transition_Range 10"), model.in());

    EXPECT_EQ(runTool({"lods", model.in(), model.out()}).output,
              model.out() + ": 1 LOD created, 0 hints not readable\n");
    EXPECT_TRUE(dynamic_cast<osg::LOD*>(load(model.out()).get()));
}

TEST(LodsCommand, WritesAGraphWithoutHintsAsItIs) {
    const Model model({makeHinted("a", "comment")});

    EXPECT_EQ(model.run().output, model.out() + ": 0 LODs created, 0 hints not readable\n");
    EXPECT_EQ(GraphText(*load(model.out())).text(), GraphText(*load(model.in())).text());
}

TEST(LodsCommand, TakesTheReferencesOfOpenFlightFilesIntoTheGraph) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.flt"});
    const osg::ref_ptr<osg::Group> model = makeModel(10.0f);
    model->addChild(makeHinted("near", "LOD_Transition_Range 10"));
    writeFlight(folder / "b.flt", *model);

    EXPECT_EQ(runTool({"lods", folder / "a.flt", folder / "a.ive"}).output,
              (folder / "a.ive") + ": 1 LOD created, 0 hints not readable\n");
    EXPECT_EQ(findAll<osg::LOD>(load(folder / "a.ive")).size(), 1u);
}

TEST(LodsCommand, NeverReplacesAnOutputUnlessTold) {
    const Model model({makeHinted("a", "LOD_Transition_Range 10")});
    writeBytes(model.out(), "precious");

    const ToolResult result = model.run();

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.errors, "sceneutils: " + model.out() + ": exists already; pass --overwrite to replace it\n");
    EXPECT_EQ(readBytes(model.out()), "precious");
    EXPECT_EQ(model.run({"--overwrite"}).status, 0);
    EXPECT_EQ(findAll<osg::LOD>(load(model.out())).size(), 1u);
}

TEST(LodsCommand, NeverReplacesAnInput) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.flt"});
    writeFlight(folder / "b.flt", 10.0f);
    const FolderState before = stateOf(folder.path());

    for (const char* output : {"a.flt", "./b.flt"}) {
        EXPECT_EQ(onlyLineOf({"lods", folder / "a.flt", folder / output, "--overwrite"}, 4),
                  "sceneutils: " + (folder / output) + ": is one of the inputs; choose another name\n");
    }
    EXPECT_EQ(stateOf(folder.path()), before);
}

TEST(LodsCommand, LeavesNothingBehindWhenItFails) {
    const Model model({makeHinted("a", "LOD_Transition_Range 10")});
    model.run();
    std::filesystem::remove(model.out());
    ToolSettings settings;
    settings.fileSizeLimit = 100;
    settings.diesOfFileSize = true;

    const ToolResult result = runTool({"lods", model.in(), model.out()}, settings);

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(namesIn(model.folder().path()), ElementsAre("in.osgb"));
}

TEST(LodsCommand, SaysWhatIsWrongWithItsArguments) {
    const TemporaryDirectory folder;

    EXPECT_EQ(onlyLineOf({"lods", folder / "a.ive", folder / "b.ive"}, 2),
              "sceneutils: " + (folder / "a.ive: no such file\n"));
    EXPECT_THAT(onlyLineOf({"lods", folder / "a.ive", folder / "b.xyz"}, 1), HasSubstr("'.xyz'"));
    EXPECT_THAT(onlyLineOf({"lods", folder / "a.ive"}, 1), HasSubstr("OUTPUT"));
    EXPECT_THAT(namesIn(folder.path()), testing::IsEmpty());
}
