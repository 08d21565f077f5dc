#include <sceneutils/SceneUtils.h>

#include "support/FileRequests.h"
#include "support/FindNodes.h"
#include "support/Graphs.h"
#include "support/OsgMessages.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <osg/MatrixTransform>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::findAll;
using testing_support::makeGeode;
using testing_support::makeSquare;
using testing_support::ModelRequests;
using testing_support::OsgMessages;
using testing_support::StandardError;
using testing_support::TemporaryDirectory;
using testing_support::WorkingDirectory;
using veltrane::sceneutils::addRock;
using veltrane::sceneutils::exportNode;

const osg::Vec3d rockPosition(46.406150817871094, 15.0, 6.0);

/** A new folder, empty and the working directory for the length of a scope. */
struct Workplace {
    TemporaryDirectory folder;
    WorkingDirectory entered{folder.path()};

    std::set<std::string> files() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path()))
            if (entry.is_regular_file()) names.insert(entry.path().lexically_relative(folder.path()).string());
        return names;
    }
};

osg::ref_ptr<osg::Group> makeNamed(const std::string& name, osg::Node* child = nullptr) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->setName(name);
    if (child) group->addChild(child);
    return group;
}

/** "world", moved, holds two nodes "turret": the first with a square, the second without. */
osg::ref_ptr<osg::Group> makeWorld() {
    osg::ref_ptr<osg::MatrixTransform> moved = new osg::MatrixTransform(osg::Matrix::translate(7.0, 8.0, 9.0));
    moved->addChild(makeNamed("turret", makeGeode(makeSquare())));
    moved->addChild(makeNamed("turret"));
    return makeNamed("world", moved);
}

/** The names of a file's nodes. */
std::vector<std::string> namesIn(const std::string& file) {
    std::vector<std::string> names;
    const osg::ref_ptr<osg::Node> graph = osgDB::readRefNodeFile(file);
    for (const auto& node : findAll<osg::Node>(graph))
        names.push_back(std::string(node->className()) + node->getName());
    return names;
}

std::string contentOf(const std::string& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace

TEST(AddRock, PutsTheModelAtItsPlace) {
    const Workplace workplace;
    osgDB::writeNodeFile(*makeNamed("a rock"), "rock.osg");

    osg::PositionAttitudeTransform* rock = addRock();
    ASSERT_EQ(rock->referenceCount(), 0);
    const osg::ref_ptr<osg::PositionAttitudeTransform> held = rock;

    EXPECT_EQ(rock->getPosition(), rockPosition);
    EXPECT_EQ(rock->getAttitude(), osg::Quat());
    EXPECT_EQ(rock->getScale(), osg::Vec3d(1.0, 1.0, 1.0));
    EXPECT_EQ(rock->getNumParents(), 0u);
    ASSERT_EQ(rock->getNumChildren(), 1u);
    EXPECT_EQ(rock->getChild(0)->getName(), "a rock");
    EXPECT_EQ(rock->getChild(0)->referenceCount(), 1);
}

TEST(AddRock, HasTheBoundOfTheModelAtItsPlace) {
    const Workplace workplace;
    osgDB::writeNodeFile(*makeGeode(makeSquare()), "rock.osg");

    const osg::ref_ptr<osg::PositionAttitudeTransform> rock = addRock();

    EXPECT_EQ(rock->getBound().center(), osg::Vec3(rockPosition) + osg::Vec3(0.5f, 0.5f, 0.0f));
}

TEST(AddRock, IsAChildlessTransformAtItsPlaceWithoutTheModel) {
    const Workplace workplace;
    const OsgMessages messages;
    const StandardError standardError;

    const osg::ref_ptr<osg::PositionAttitudeTransform> rock = addRock();

    ASSERT_NE(rock, nullptr);
    EXPECT_EQ(rock->getNumChildren(), 0u);
    EXPECT_EQ(rock->getPosition(), rockPosition);
    EXPECT_EQ(standardError.text(), "");
    EXPECT_THAT(workplace.files(), IsEmpty());
}

TEST(AddRock, AsksForTheModelOnceWithTheRegistrysOptions) {
    const Workplace workplace;
    const OsgMessages messages;
    osg::ref_ptr<osgDB::Options> options = new osgDB::Options("the registry's");
    const osg::ref_ptr<osgDB::Options> own = osgDB::Registry::instance()->getOptions();
    osgDB::Registry::instance()->setOptions(options);
    const ModelRequests requests;

    const osg::ref_ptr<osg::PositionAttitudeTransform> rock = addRock();
    osgDB::Registry::instance()->setOptions(own);

    EXPECT_THAT(requests.names(), ElementsAre("rock.osg"));
    ASSERT_TRUE(requests.lastOptions());
    EXPECT_EQ(requests.lastOptions()->getOptionString(), "the registry's");
}

TEST(ExportNode, WritesTheWholeGraphWithoutAName) {
    const Workplace workplace;
    const osg::ref_ptr<osg::Group> world = makeWorld();
    char name[] = "";
    char fileBase[] = "all";

    exportNode(world, name, fileBase);

    EXPECT_THAT(workplace.files(), ElementsAre("all.osg"));
    EXPECT_THAT(namesIn("all.osg"),
                ElementsAre("Groupworld", "MatrixTransform", "Groupturret", "Geode", "Geometry", "Groupturret"));
}

TEST(ExportNode, TakesANullNameForAnEmptyOne) {
    const Workplace workplace;

    exportNode(makeWorld(), nullptr, "all");

    EXPECT_EQ(namesIn("all.osg").front(), "Groupworld");
}

TEST(ExportNode, WritesTheFirstNodeOfTheNameInItsOwnCoordinates) {
    const Workplace workplace;
    const osg::ref_ptr<osg::Group> world = makeWorld();
    world->getChild(0)->setName("not turret");

    exportNode(world, "turret", "part");

    EXPECT_THAT(workplace.files(), ElementsAre("part.osg"));
    EXPECT_THAT(namesIn("part.osg"), ElementsAre("Groupturret", "Geode", "Geometry"));
    EXPECT_EQ(osgDB::readRefNodeFile("part.osg")->getBound().center(), osg::Vec3(0.5f, 0.5f, 0.0f));
}

TEST(ExportNode, WritesTheRootByItsName) {
    const Workplace workplace;

    exportNode(makeWorld(), "world", "all");

    EXPECT_EQ(namesIn("all.osg").size(), 6u);
}

TEST(ExportNode, WritesNothingWhenNoNodeHasTheName) {
    const Workplace workplace;
    const OsgMessages messages;
    const StandardError standardError;

    exportNode(makeWorld(), "Turret", "part");

    EXPECT_THAT(workplace.files(), IsEmpty());
    EXPECT_EQ(standardError.text(), "");
    EXPECT_EQ(messages.text(), "");
}

TEST(ExportNode, WritesNothingWithoutAGraphOrAFile) {
    const Workplace workplace;

    exportNode(nullptr, "", "all");
    exportNode(makeWorld(), "", nullptr);

    EXPECT_THAT(workplace.files(), IsEmpty());
}

TEST(ExportNode, TakesAFileNameOfAnyLength) {
    const Workplace workplace;
    std::string fileBase;
    for (int i = 0; i < 1500; ++i) fileBase += "./";
    fileBase += "far";

    exportNode(makeWorld(), "", fileBase.c_str());

    EXPECT_EQ(fileBase.size(), 3003u);
    EXPECT_THAT(workplace.files(), ElementsAre("far.osg"));
}

TEST(ExportNode, PutsTheEndingBehindWhateverTheNameEndsIn) {
    const Workplace workplace;

    exportNode(makeWorld(), "", "model.ive");
    exportNode(makeWorld(), "", "100%s %n");
    exportNode(makeWorld(), "", "");

    EXPECT_THAT(workplace.files(), ElementsAre(".osg", "100%s %n.osg", "model.ive.osg"));
}

TEST(ExportNode, IsSilentAboutAFileThatCannotBeWritten) {
    const Workplace workplace;
    const OsgMessages messages;
    const StandardError standardError;
    const std::string tooLong(5000, 'x');

    exportNode(makeWorld(), "", "no such folder/part");
    exportNode(makeWorld(), "", tooLong.c_str());

    EXPECT_THAT(workplace.files(), IsEmpty());
    EXPECT_EQ(standardError.text(), "");
    EXPECT_EQ(messages.text(), "");
}

TEST(ExportNode, ReplacesAFileThatExists) {
    const Workplace workplace;
    std::ofstream("all.osg") << "precious";

    exportNode(makeWorld(), "", "all");

    EXPECT_EQ(contentOf("all.osg").find("precious"), std::string::npos);
    EXPECT_EQ(namesIn("all.osg").size(), 6u);
}

TEST(ExportNode, WritesWithoutTheRegistrysOptions) {
    const Workplace workplace;
    const osg::ref_ptr<osgDB::Options> own = osgDB::Registry::instance()->getOptions();
    osgDB::Registry::instance()->setOptions(new osgDB::Options("precision 3"));
    testing_support::ModelWrites writes;

    exportNode(makeWorld(), "", "all");
    osgDB::Registry::instance()->setOptions(own);

    EXPECT_EQ(writes.lastOptions(), nullptr);
    EXPECT_THAT(workplace.files(), ElementsAre("all.osg"));
}

TEST(ExportNode, WritesNoGeodeThatHasOtherChildrenThanDrawables) {
    const Workplace workplace;
    const osg::ref_ptr<osg::Geode> geode = makeGeode(makeSquare());
    geode->addChild(new osg::Group);

    exportNode(makeNamed("world", geode), "", "all");

    EXPECT_THAT(workplace.files(), IsEmpty());
}

TEST(ExportNode, LooksForSuchGeodesInHiddenGroupsAndBeforeDrawables) {
    const Workplace workplace;
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addChild(new osg::Group);
    geode->addDrawable(makeSquare());
    const osg::ref_ptr<osg::Group> hidden = makeNamed("hidden", geode);
    hidden->setNodeMask(0);

    exportNode(makeNamed("world", hidden), "", "all");

    EXPECT_THAT(workplace.files(), IsEmpty());
}

TEST(ExportNode, GivesBackAGraphThatNobodyHolds) {
    const Workplace workplace;
    osg::Group* world = makeWorld().release();

    exportNode(world, "", "all");

    EXPECT_EQ(world->referenceCount(), 0);
    const osg::ref_ptr<osg::Group> held = world;
    EXPECT_EQ(held->getNumChildren(), 1u);
}
