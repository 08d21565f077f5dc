#include <sceneutils/LODMarkup.h>

#include "support/Graphs.h"
#include "support/LODDrawings.h"
#include "support/OsgMessages.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/Switch>
#include <osgDB/Registry>

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using veltrane::sceneutils::LODMarkup;
using veltrane::sceneutils::SimpleGeometryGenerator;

namespace {

static_assert(std::is_base_of_v<osg::NodeVisitor, LODMarkup>);
static_assert(std::has_virtual_destructor_v<LODMarkup>);

const osg::Vec4 red(1, 0, 0, 1);
const osg::Vec4 green(0, 1, 0, 1);
const osg::Vec4 blue(0, 0, 1, 1);
const osg::Vec4 yellow(1, 1, 0, 1);
const osg::Vec4 cyan(0, 1, 1, 1);
const osg::Vec4 magenta(1, 0, 1, 1);
const osg::Vec4 white(1, 1, 1, 1);
const osg::Vec4 black(0, 0, 0, 1);
const osg::Vec3 center(10, 20, 30);

osg::ref_ptr<osg::Group> makeGroup(const std::vector<osg::ref_ptr<osg::Node>>& children = {}) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (const auto& child : children) group->addChild(child);
    return group;
}

/** An LOD of two levels, 1 to 50 and 50 to 200. */
template <typename LOD = osg::LOD>
osg::ref_ptr<LOD> makeTwoLevels(float radius = 7.0f) {
    const osg::ref_ptr<LOD> lod = makeLOD<LOD>("tree", center, radius);
    lod->osg::LOD::addChild(new osg::Node, 1.0f, 50.0f);
    lod->osg::LOD::addChild(new osg::Node, 50.0f, 200.0f);
    return lod;
}

/** A paged LOD of an application. */
struct DerivedTile : osg::PagedLOD {
    const char* className() const override { return "DerivedTile"; }
};

void run(osg::Node& graph) {
    LODMarkup visitor;
    graph.accept(visitor);
}

/** The generator in a group that has taken an LOD's place; null if it is no such group. */
SimpleGeometryGenerator* marksIn(osg::Node* node) {
    osg::Group* group = node->asGroup();
    if (!group || group->getNumChildren() != 2 || !dynamic_cast<osg::LOD*>(group->getChild(1))) return nullptr;
    return dynamic_cast<SimpleGeometryGenerator*>(group->getChild(0));
}

/** What addToGeometry() makes of an LOD's child. */
osg::ref_ptr<SimpleGeometryGenerator> drawLevel(osg::LOD& lod, unsigned int level) {
    const auto generator = makeGenerator();
    LODMarkup().addToGeometry(&lod, lod.getChild(level), generator);
    return generator;
}

osg::ref_ptr<osg::LOD> makeRange(float end) {
    const osg::ref_ptr<osg::LOD> lod = makeLOD("far", center, 1.0f);
    lod->addChild(new osg::Node, 0.0f, end);
    return lod;
}

}  // namespace

TEST(LODMarkup, DrawsTheRadiusAndTheEndOfEachRangeOfAnLOD) {
    const auto root = makeGroup({makeTwoLevels()});

    run(*root);

    SimpleGeometryGenerator* marks = marksIn(root->getChild(0));
    ASSERT_TRUE(marks);
    EXPECT_EQ(linesIn(*marks), spokes(center, 7, blue) + cube(center, 7, red) + cube(center, 50, green) +
                                   spokes(center, 50, blue) + cube(center, 200, green) + spokes(center, 200, blue));
    EXPECT_EQ(marks->getNumChildren(), 1u) << "no labels";
    EXPECT_EQ(marks->getName(), "");
}

TEST(LODMarkup, DrawsPagedLODsInColoursOfTheirOwn) {
    const auto root = makeGroup({makeTwoLevels<osg::PagedLOD>()});

    run(*root);

    EXPECT_EQ(linesIn(*marksIn(root->getChild(0))), spokes(center, 7, magenta) + cube(center, 7, yellow) +
                                                        cube(center, 50, cyan) + spokes(center, 50, magenta) +
                                                        cube(center, 200, cyan) + spokes(center, 200, magenta));
}

TEST(LODMarkup, DrawsAWhiteCubeOfHalfSizeFiveIfTheRadiusIsNotSet) {
    const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->addChild(makeGeode(makeSquare(osg::Vec3(3, 4, 5))));
    const auto root = makeGroup({lod});
    ASSERT_EQ(lod->getRadius(), -1.0f);

    run(*root);

    const osg::Vec3 middle(3.5f, 4.5f, 5.0f);
    EXPECT_EQ(linesIn(*marksIn(root->getChild(0))),
              spokes(middle, 5, blue) + cube(middle, 5, white) + cube(middle, 0, green) + spokes(middle, 0, blue));
}

TEST(LODMarkup, TakesARadiusOfZeroForOneThatIsSet) {
    const auto root = makeGroup({makeLOD("", center, 0.0f)});

    run(*root);

    EXPECT_EQ(linesIn(*marksIn(root->getChild(0))), spokes(center, 0, blue) + cube(center, 0, red));
}

TEST(LODMarkup, DrawsRangesHoweverFarTheyEnd) {
    const auto root = makeGroup({makeRange(50000.0f)});

    run(*root);

    EXPECT_EQ(linesIn(*marksIn(root->getChild(0))), spokes(center, 1, blue) + cube(center, 1, red) +
                                                        cube(center, 50000, green) + spokes(center, 50000, blue));
}

TEST(LODMarkup, MarksInTheColoursThatItIsGiven) {
    const auto lod = makeTwoLevels();
    const auto root = makeGroup({lod});

    LODMarkup().markup(*lod, cyan, black, white);

    EXPECT_EQ(linesIn(*marksIn(root->getChild(0))), spokes(center, 7, white) + cube(center, 7, cyan) +
                                                        cube(center, 50, black) + spokes(center, 50, white) +
                                                        cube(center, 200, black) + spokes(center, 200, white));
}

TEST(LODMarkup, PutsAGroupInTheLODsPlace) {
    const auto lod = makeTwoLevels();
    const osg::ref_ptr<osg::Switch> root = new osg::Switch;
    root->addChild(new osg::Node, true);
    root->addChild(lod, false);
    root->addChild(new osg::Node, true);

    run(*root);

    ASSERT_EQ(root->getNumChildren(), 3u);
    EXPECT_FALSE(root->getValue(1));
    const osg::Node& group = *root->getChild(1);
    EXPECT_STREQ(group.className(), "Group");
    EXPECT_EQ(group.getName(), "");
    ASSERT_TRUE(marksIn(root->getChild(1)));
    EXPECT_EQ(group.asGroup()->getChild(1), lod);
    EXPECT_THAT(lod->getParents(), ElementsAre(&group));
    EXPECT_EQ(lod->getNumRanges(), 2u);
    EXPECT_EQ(lod->getNumChildren(), 2u);
}

TEST(LODMarkup, VisitsARootWithoutParentsButDoesNotMarkIt) {
    const auto inner = makeTwoLevels();
    const auto root = makeLOD("root");
    root->addChild(inner, 3.0f, 4.0f);

    run(*root);

    EXPECT_EQ(root->getNumParents(), 0u);
    ASSERT_EQ(root->getNumChildren(), 1u);
    EXPECT_TRUE(marksIn(root->getChild(0)));
    EXPECT_EQ(root->getMinRange(0), 3.0f);
    EXPECT_EQ(root->getMaxRange(0), 4.0f);
}

TEST(LODMarkup, MarksNestedLODs) {
    const auto innermost = makeTwoLevels<osg::PagedLOD>();
    const auto inner = makeLOD("inner");
    inner->addChild(makeGroup({innermost}), 0.0f, 10.0f);
    const auto outer = makeLOD<osg::PagedLOD>("outer");
    outer->osg::LOD::addChild(inner, 0.0f, 100.0f);
    const auto root = makeGroup({outer});

    run(*root);

    EXPECT_TRUE(marksIn(root->getChild(0)));
    EXPECT_TRUE(marksIn(outer->getChild(0)));
    EXPECT_TRUE(marksIn(inner->getChild(0)->asGroup()->getChild(0)));
    EXPECT_EQ(root->getChild(0)->asGroup()->getChild(1), outer);
    EXPECT_EQ(outer->getChild(0)->asGroup()->getChild(1), inner);
    EXPECT_EQ(outer->getMaxRange(0), 100.0f);
}

TEST(LODMarkup, PutsTheGroupBelowTheFirstParentOnly) {
    const auto lod = makeTwoLevels();
    const auto first = makeGroup({lod});
    const auto second = makeGroup({lod});

    run(*lod);

    EXPECT_TRUE(marksIn(first->getChild(0)));
    EXPECT_EQ(second->getChild(0), lod);
    EXPECT_THAT(lod->getParents(), ElementsAre(second.get(), first->getChild(0)->asGroup()));
}

TEST(LODMarkup, MarksBelowTheFirstParentWhicheverItIsReachedThrough) {
    const auto lod = makeTwoLevels();
    const auto first = makeGroup({lod});
    const auto second = makeGroup({lod});

    run(*second);

    EXPECT_TRUE(marksIn(first->getChild(0)));
    EXPECT_EQ(second->getChild(0), lod);
}

TEST(LODMarkup, MarksASharedLODOnceForEachPath) {
    const auto lod = makeTwoLevels();
    const auto first = makeGroup({lod});
    const auto second = makeGroup({lod});
    const auto root = makeGroup({first, second});

    run(*root);

    EXPECT_TRUE(marksIn(first->getChild(0)));
    EXPECT_TRUE(marksIn(second->getChild(0)));
    EXPECT_NE(marksIn(first->getChild(0)), marksIn(second->getChild(0)));
    EXPECT_THAT(lod->getParents(), ElementsAre(first->getChild(0)->asGroup(), second->getChild(0)->asGroup()));
}

TEST(LODMarkup, MarksAgainInASecondRun) {
    const auto root = makeGroup({makeTwoLevels()});

    run(*root);
    run(*root);

    osg::Group& group = *root->getChild(0)->asGroup();
    ASSERT_EQ(group.getNumChildren(), 2u);
    EXPECT_TRUE(marksIn(group.getChild(1)));
}

TEST(LODMarkup, KeepsAnLODThatOnlyItsParentHolds) {
    const auto root = makeGroup({makeTwoLevels()});
    const osg::observer_ptr<osg::Node> lod = root->getChild(0);

    run(*root);

    ASSERT_TRUE(lod.valid());
    EXPECT_EQ(lod->referenceCount(), 1);
}

TEST(LODMarkup, GivesBackARootThatNobodyHolds) {
    for (osg::Group* root : {new osg::Group, static_cast<osg::Group*>(makeLOD("root").release())}) {
        root->addChild(makeTwoLevels());

        run(*root);

        EXPECT_EQ(root->referenceCount(), 0);
        const osg::ref_ptr<osg::Group> held = root;
        EXPECT_TRUE(marksIn(held->getChild(0)));
    }
}

TEST(LODMarkup, VisitsWhatTheNodeMasksAllowWhateverIsSwitchedOnOrInRange) {
    const auto hidden = makeGroup({makeTwoLevels()});
    hidden->setNodeMask(0);
    const osg::ref_ptr<osg::Switch> off = new osg::Switch;
    off->addChild(makeTwoLevels(), false);
    const auto root = makeGroup({hidden, off});

    run(*root);

    EXPECT_FALSE(marksIn(hidden->getChild(0)));
    EXPECT_TRUE(marksIn(off->getChild(0)));
    EXPECT_EQ(LODMarkup().getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    EXPECT_EQ(LODMarkup().getNodeMaskOverride(), 0u);
}

TEST(LODMarkup, SaysNothingAndWritesNothingWhenItMarks) {
    const TemporaryDirectory folder;
    const WorkingDirectory entered(folder.path());
    const StandardError standardError;
    const OsgMessages messages;

    LODMarkup::process(makeGroup({makeTwoLevels()}));

    EXPECT_EQ(standardError.text(), "");
    EXPECT_EQ(messages.text(), "");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(LODMarkup, ProcessesAGraph) {
    const osg::ref_ptr<osg::Node> root = makeGroup({makeTwoLevels()});

    LODMarkup::process(root);
    LODMarkup::process(nullptr);

    EXPECT_TRUE(marksIn(root->asGroup()->getChild(0)));
    EXPECT_EQ(root->referenceCount(), 1);
}

TEST(LODMarkup, IsCopiedWithItsSettings) {
    LODMarkup original;
    changeEverySetting(original);

    const LODMarkup copy(original);
    LODMarkup assigned;
    EXPECT_EQ(&(assigned = original), &assigned);
    const LODMarkup& self = assigned;
    assigned = self;

    expectEqualSettings(copy, original);
    expectEqualSettings(assigned, original);
}

TEST(LODMarkup, GoesAsDeepAsOpenSceneGraphDoes) {
    constexpr int levels = 10000;
    osg::ref_ptr<osg::Node> graph = new osg::Node;
    for (int i = 0; i < levels; ++i) {
        const auto lod = makeLOD("", center);
        lod->addChild(graph, 0.0f, 10.0f);
        graph = lod;
    }
    const auto root = makeGroup({graph});

    run(*root);

    osg::Node* node = root->getChild(0);
    int marked = 0;
    for (; marksIn(node); node = node->asGroup()->getChild(1)->asGroup()->getChild(0)) ++marked;
    EXPECT_EQ(marked, levels);
}

TEST(LODMarkupLevel, DrawsTheRadiusAndTheRangeOfTheChildAsSquares) {
    const auto generator = drawLevel(*makeTwoLevels(), 1);

    EXPECT_EQ(linesIn(*generator), spokes(center, 7, blue) + square(center, 7, red) + square(center, 200, green) +
                                       spokes(center, 200, blue));
    EXPECT_EQ(linesIn(*drawLevel(*makeTwoLevels(), 0)),
              spokes(center, 7, blue) + square(center, 7, red) + square(center, 50, green) + spokes(center, 50, blue));
}

TEST(LODMarkupLevel, DrawsPagedLODsInColoursOfTheirOwn) {
    EXPECT_EQ(linesIn(*drawLevel(*makeTwoLevels<osg::PagedLOD>(), 1)),
              spokes(center, 7, magenta) + square(center, 7, yellow) + square(center, 200, cyan) +
                  spokes(center, 200, magenta));
}

TEST(LODMarkupLevel, DrawsClassesDerivedFromPagedLODsAsThese) {
    EXPECT_EQ(linesIn(*drawLevel(*makeTwoLevels<DerivedTile>(), 1)),
              linesIn(*drawLevel(*makeTwoLevels<osg::PagedLOD>(), 1)));
}

TEST(LODMarkupLevel, LabelsTheRadiusAndTheEndOfTheRange) {
    const auto generator = drawLevel(*makeTwoLevels(7.25f), 1);

    EXPECT_THAT(wordsOf(*generator), ElementsAre("LOD tree, rad=7.25\n", "LOD tree, rad=200\n"));
    const auto labels = labelsOf(*generator);
    EXPECT_EQ(labels[0]->getPosition(), center + osg::Vec3(7.25f, 7.25f, 7.25f));
    EXPECT_EQ(labels[1]->getPosition(), center + osg::Vec3(200, 200, 200));
    for (const osgText::Text* label : labels) {
        EXPECT_EQ(label->getColor(), black);
        EXPECT_EQ(label->getCharacterHeight(), 20.0f);
        EXPECT_EQ(label->getAxisAlignment(), osgText::Text::XY_PLANE);
        EXPECT_EQ(label->getNumParents(), 1u);
        EXPECT_EQ(label->getParent(0)->getParent(0), generator);
    }
}

TEST(LODMarkupLevel, LabelsAnUnsetRadiusAsItIsAtTheCornerOfTheWhiteSquare) {
    const auto generator = drawLevel(*makeTwoLevels(-1.0f), 0);

    EXPECT_EQ(linesIn(*generator).at(4), square(center, 5, white).at(0));
    EXPECT_EQ(linesIn(*generator).at(0), spokes(center, 5, blue).at(0));
    EXPECT_EQ(linesIn(*generator).size(), 16u);
    EXPECT_THAT(wordsOf(*generator), ElementsAre("LOD tree, rad=-1\n", "LOD tree, rad=50\n"));
    EXPECT_EQ(labelsOf(*generator)[0]->getPosition(), center + osg::Vec3(5, 5, 5));
}

TEST(LODMarkupLevel, WritesNumbersAsStreamsDo) {
    EXPECT_THAT(wordsOf(*drawLevel(*makeRange(1234.5678f), 0)),
                ElementsAre("LOD far, rad=1\n", "LOD far, rad=1234.57\n"));
}

TEST(LODMarkupLevel, LabelsNamesOfAnyAlphabet) {
    const auto lod = makeRange(9000.0f);
    lod->setName("Gr\u00fcn");
    EXPECT_THAT(wordsOf(*drawLevel(*lod, 0)), ElementsAre("LOD Gr\u00fcn, rad=1\n"));
}

TEST(LODMarkupLevel, LeavesOutRangesThatEndAtFiveThousandOrFurther) {
    const DrawnLines radiusOnly = spokes(center, 1, blue) + square(center, 1, red);
    for (const float end : {5000.0f, std::nextafter(5000.0f, 1e6f), std::numeric_limits<float>::max(),
                            std::numeric_limits<float>::quiet_NaN()}) {
        const auto generator = drawLevel(*makeRange(end), 0);
        EXPECT_EQ(linesIn(*generator), radiusOnly) << end;
        EXPECT_THAT(wordsOf(*generator), ElementsAre("LOD far, rad=1\n"));
    }
    const float nearest = std::nextafter(5000.0f, 0.0f);
    EXPECT_EQ(linesIn(*drawLevel(*makeRange(nearest), 0)),
              radiusOnly + square(center, nearest, green) + spokes(center, nearest, blue));
    EXPECT_EQ(labelsOf(*drawLevel(*makeRange(nearest), 0)).size(), 2u);
}

TEST(LODMarkupLevel, DrawsNoRangeForAChildThatHasNone) {
    const auto lod = makeTwoLevels();
    lod->setRangeList({{0.0f, 10.0f}});

    EXPECT_EQ(linesIn(*drawLevel(*lod, 1)), spokes(center, 7, blue) + square(center, 7, red));
}

TEST(LODMarkupLevel, DrawsNothingForANodeThatIsNoChild) {
    const auto lod = makeTwoLevels();
    const osg::ref_ptr<osg::Node> stranger = new osg::Node;
    const auto generator = makeGenerator();

    LODMarkup().addToGeometry(lod, stranger, generator);
    LODMarkup().addToGeometry(lod, nullptr, generator);
    LODMarkup().addToGeometry(nullptr, stranger, generator);
    LODMarkup().addToGeometry(lod, lod->getChild(0), nullptr);

    EXPECT_THAT(linesIn(*generator), IsEmpty());
    EXPECT_EQ(generator->getNumChildren(), 1u);
    EXPECT_EQ(lod->getNumParents(), 0u);
}

TEST(LODMarkupLevel, AddsToWhatTheGeneratorHas) {
    const auto lod = makeTwoLevels();
    const auto generator = drawLevel(*lod, 0);

    LODMarkup().addToGeometry(lod, lod->getChild(1), generator);

    EXPECT_EQ(linesIn(*generator).size(), 32u);
    EXPECT_EQ(labelsOf(*generator).size(), 4u);
}
