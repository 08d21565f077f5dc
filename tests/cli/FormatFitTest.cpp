#include "files/FormatFit.h"

#include "files/GraphFile.h"
#include "support/Conversions.h"
#include "support/DebugGeometry.h"
#include "support/Graphs.h"

#include <gmock/gmock.h>

#include <osg/Billboard>
#include <osg/ClusterCullingCallback>
#include <osg/MatrixTransform>
#include <osg/Switch>

using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const std::vector<std::string> native = {"ive", "osg", "osgb", "osgt", "osgx"};

/** "Group(Geode(Geometry a) Geometry b/4)": classes, names and node masks; "/4" is a mask of 4. */
std::string outlineOf(const osg::Node& node) {
    std::string text = node.className();
    if (!node.getName().empty()) text += " " + node.getName();
    if (node.getNodeMask() != ~0u) text += "/" + std::to_string(node.getNodeMask());
    const osg::Group* group = node.asGroup();
    if (!group) return text;
    text += "(";
    for (unsigned int i = 0; i < group->getNumChildren(); ++i)
        text += (i > 0 ? " " : "") + outlineOf(*group->getChild(i));
    return text + ")";
}

std::string outlineFor(const std::string& ending, osg::Node* graph) {
    return outlineOf(*fitForFormat(graph, ending));
}

osg::ref_ptr<osg::Geometry> makeDrawable(const std::string& name, osg::Node::NodeMask mask = ~0u) {
    const osg::ref_ptr<osg::Geometry> drawable = makeSquare();
    drawable->setName(name);
    drawable->setNodeMask(mask);
    return drawable;
}

template <typename Group = osg::Group>
osg::ref_ptr<Group> makeGroup(const std::vector<osg::ref_ptr<osg::Node>>& children) {
    const osg::ref_ptr<Group> group = new Group;
    for (const osg::ref_ptr<osg::Node>& child : children) group->addChild(child);
    return group;
}

osg::ref_ptr<osg::Node> makeHidden(osg::Node* node) {
    node->setNodeMask(0);
    return node;
}

/** What is left of a graph after it was written and read. */
osg::ref_ptr<osg::Node> writtenAndRead(osg::Node* graph, const std::string& ending) {
    const TemporaryDirectory folder;
    writeGraph(graph, folder / ("a." + ending), false);
    return readGraph(folder / ("a." + ending));
}

}  // namespace

TEST(FormatFit, PutsDrawablesInGeodesWhereTheFormatKnowsThemThereOnly) {
    for (const char* ending : {"ive", "obj", "flt"})
        EXPECT_EQ(outlineFor(ending, makeGroup({makeDrawable("a")})), "Group(Geode(Geometry a))") << ending;
    for (const char* ending : {"osg", "osgb", "osgt", "osgx"})
        EXPECT_EQ(outlineFor(ending, makeGroup({makeDrawable("a")})), "Group(Geometry a)") << ending;
}

TEST(FormatFit, PutsADrawableThatIsTheRootInAGeode) {
    EXPECT_EQ(outlineFor("ive", makeDrawable("a")), "Geode(Geometry a)");
    EXPECT_EQ(outlineFor("osgb", makeDrawable("a")), "Geometry a");
}

TEST(FormatFit, LeavesGraphsThatAreFitAlready) {
    const auto group =
        makeGroup({makeGeode(makeDrawable("a")), makeHidden(makeGeode(makeDrawable("b"))), new osg::Node});
    for (const std::string& ending : native) {
        EXPECT_EQ(fitForFormat(group, ending), group);
        EXPECT_EQ(outlineOf(*group), "Group(Geode(Geometry a) Geode/0(Geometry b) Node)");
    }
}

TEST(FormatFit, KeepsTheRangesOfALOD) {
    const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->addChild(makeGeode(makeDrawable("a")), 0.0f, 10.0f);
    lod->addChild(makeDrawable("b"), 10.0f, 20.0f);
    lod->addChild(makeDrawable("c"), 20.0f, 30.0f);

    EXPECT_EQ(outlineFor("ive", lod), "LOD(Geode(Geometry a) Geode(Geometry b) Geode(Geometry c))");

    EXPECT_EQ(lod->getRangeList(), (osg::LOD::RangeList{{0.0f, 10.0f}, {10.0f, 20.0f}, {20.0f, 30.0f}}));
}

TEST(FormatFit, KeepsTheValuesOfASwitch) {
    const osg::ref_ptr<osg::Switch> node = new osg::Switch;
    node->addChild(makeDrawable("a"), false);
    node->addChild(makeDrawable("b"), true);

    EXPECT_EQ(outlineFor("ive", node), "Switch(Geode(Geometry a) Geode(Geometry b))");

    EXPECT_THAT(node->getValueList(), ElementsAre(false, true));
}

TEST(FormatFit, GivesASharedDrawableASharedGeode) {
    const auto drawable = makeDrawable("a");
    const auto inner = makeGroup({drawable});
    const auto root = makeGroup({drawable, inner, drawable});

    EXPECT_EQ(outlineFor("ive", root), "Group(Geode(Geometry a) Group(Geode(Geometry a)) Geode(Geometry a))");

    EXPECT_EQ(root->getChild(0), inner->getChild(0));
    EXPECT_EQ(root->getChild(0), root->getChild(2));
}

TEST(FormatFit, HandsADrawablesMaskToItsGeodeWhereTheFormatDoesNotHoldIt) {
    for (const char* ending : {"ive", "osg"}) {
        EXPECT_EQ(outlineFor(ending, makeGroup({makeDrawable("a", 4)})), "Group(Geode/4(Geometry a/4))") << ending;
        EXPECT_EQ(outlineFor(ending, makeGeode(makeDrawable("a", 4))), "Group(Geode/4(Geometry a/4))") << ending;
    }
    EXPECT_EQ(outlineFor("osgb", makeGeode(makeDrawable("a", 4))), "Geode(Geometry a/4)");
}

TEST(FormatFit, MakesAGeodeWithOtherChildrenAGroupInTheSameOrder) {
    for (const std::string& ending : native) {
        const auto geode = makeGroup<osg::Geode>(
            {makeDrawable("a"), makeDrawable("b"), makeGroup({}), makeDrawable("c"), makeGeode(makeDrawable("d"))});
        EXPECT_EQ(outlineFor(ending, makeGroup({geode})),
                  "Group(Group(Geode(Geometry a Geometry b) Group() Geode(Geometry c) Geode(Geometry d)))")
            << ending;
    }
}

TEST(FormatFit, MakesAGeodeWithOtherChildrenAGroupWithAllThatItHas) {
    const auto geode = makeGroup<osg::Geode>({makeGroup({})});
    geode->setName("house");
    geode->setNodeMask(6);
    geode->addDescription("large");
    geode->setCullCallback(new osg::ClusterCullingCallback);
    geode->setEventCallback(new osg::NodeCallback);
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);

    const osg::ref_ptr<osg::Node> group = fitForFormat(geode, "osgb");

    EXPECT_EQ(outlineOf(*group), "Group house/6(Group())");
    EXPECT_THAT(group->getDescriptions(), ElementsAre("large"));
    EXPECT_EQ(group->getCullCallback(), geode->getCullCallback());
    EXPECT_EQ(group->getEventCallback(), geode->getEventCallback());
    EXPECT_EQ(group->getStateSet(), geode->getStateSet());
}

TEST(FormatFit, ReplacesASharedGeodeInAllItsPlaces) {
    const auto geode = makeGroup<osg::Geode>({makeGroup({}), makeDrawable("a")});
    const auto outer = makeGroup<osg::Geode>({geode, geode});
    const auto root = makeGroup({geode, outer});
    const std::string made = "Group(Group() Geode(Geometry a))";

    EXPECT_EQ(outlineFor("osgt", root), "Group(" + made + " Group(" + made + " " + made + "))");
    EXPECT_EQ(root->getChild(0), root->getChild(1)->asGroup()->getChild(1));
}

TEST(FormatFit, PutsWhatElseHangsInABillboardInAHiddenGroup) {
    const osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->setName("tree");
    billboard->setMode(osg::Billboard::POINT_ROT_EYE);
    billboard->addDrawable(makeDrawable("a"), osg::Vec3(1, 0, 0));
    billboard->addDrawable(makeDrawable("b", 4), osg::Vec3(2, 0, 0));
    billboard->addChild(makeGroup({}));

    const osg::ref_ptr<osg::Node> fit = fitForFormat(billboard, "ive");

    EXPECT_EQ(outlineOf(*fit), "Group(Billboard tree(Geometry a Geometry b/4) Group/0(Group()))");
    const auto& written = dynamic_cast<osg::Billboard&>(*fit->asGroup()->getChild(0));
    EXPECT_THAT(written.getPositionList(), ElementsAre(osg::Vec3(1, 0, 0), osg::Vec3(2, 0, 0)));
    EXPECT_EQ(written.getMode(), osg::Billboard::POINT_ROT_EYE);
}

TEST(FormatFit, LeavesABillboardOfDrawables) {
    const osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addDrawable(makeDrawable("a", 4), osg::Vec3(1, 0, 0));

    EXPECT_EQ(fitForFormat(billboard, "ive"), billboard);
}

TEST(FormatFit, ReachesWhatIsHidden) {
    const auto hidden = makeHidden(makeGroup({makeDrawable("a")}));

    EXPECT_EQ(outlineFor("ive", makeGroup({hidden})), "Group(Group/0(Geode(Geometry a)))");
}

TEST(FormatFit, BindsEqualNormalsOverallForIveOnly) {
    const auto makeLine = [] {
        const auto generator = makeGenerator();
        generator->addLine(osg::Vec3(), osg::Vec3(1, 0, 0), osg::Vec4f(1, 1, 1, 1));
        return generator;
    };
    for (const std::string& ending : native) {
        const auto generator = makeLine();
        fitForFormat(generator, ending);
        EXPECT_EQ(geometryOf(*generator).getNormalArray()->getBinding() == osg::Array::BIND_OVERALL, ending == "ive");
    }
}

TEST(GraphFile, HoldsDrawablesWhereverTheyHangInEveryNativeFormat) {
    for (const std::string& ending : native) {
        const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
        lod->addChild(makeDrawable("b"), 5.0f, 10.0f);
        const auto geode = makeGroup<osg::Geode>({makeDrawable("c"), makeGeode(makeDrawable("d"))});
        const auto root =
            makeGroup({makeDrawable("a"), lod, geode, makeGroup<osg::MatrixTransform>({makeDrawable("e")})});

        const osg::ref_ptr<osg::Node> read = writtenAndRead(root, ending);

        EXPECT_EQ(outlineOf(*read), outlineOf(*root)) << ending;
        EXPECT_EQ(findAll<osg::Geometry>(read).size(), 5u) << ending;
        EXPECT_EQ(dynamic_cast<osg::LOD&>(*read->asGroup()->getChild(1)).getMinRange(0), 5.0f) << ending;
    }
}

TEST(GraphFile, KeepsHiddenDrawablesHiddenInEveryNativeFormat) {
    for (const std::string& ending : native) {
        const auto geode = makeGroup<osg::Geode>({makeDrawable("b", 0), makeDrawable("c")});

        const osg::ref_ptr<osg::Node> read = writtenAndRead(makeGroup({makeDrawable("a", 0), geode}), ending);

        const auto visible = findAll<osg::Geometry>(read);
        ASSERT_EQ(visible.size(), 1u) << ending;
        EXPECT_EQ(visible.front()->getName(), "c") << ending;
        EXPECT_THAT(outlineOf(*read), AllOf(HasSubstr("Geometry a"), HasSubstr("Geometry b"))) << ending;
    }
}

TEST(GraphFile, KeepsTheCullCallbackOfADrawableThatGetsAGeode) {
    const auto drawable = makeDrawable("a");
    drawable->setCullCallback(new osg::ClusterCullingCallback(osg::Vec3(1, 2, 3), osg::Vec3(0, 0, 1), 0.5f));

    const osg::ref_ptr<osg::Node> read = writtenAndRead(makeGroup({drawable}), "ive");

    const auto* callback =
        dynamic_cast<osg::ClusterCullingCallback*>(findAll<osg::Geometry>(read).front()->getCullCallback());
    ASSERT_TRUE(callback);
    EXPECT_EQ(callback->getControlPoint(), osg::Vec3(1, 2, 3));
}
