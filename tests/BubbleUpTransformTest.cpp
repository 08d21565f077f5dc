#include <sceneutils/BubbleUpTransform.h>

#include "support/LightPoints.h"
#include "support/LogRecords.h"
#include "support/OpenBubbleUpTransform.h"
#include "support/PointModels.h"
#include "support/StandardError.h"
#include "support/VisitorSettings.h"

#include <gmock/gmock.h>

#include <osg/Referenced>

#include <cxxabi.h>
#include <cstdlib>
#include <limits>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using veltrane::sceneutils::BubbleUpTransform;

namespace {

static_assert(std::is_base_of_v<osg::NodeVisitor, BubbleUpTransform>);
static_assert(std::is_base_of_v<osg::Referenced, BubbleUpTransform>);
static_assert(std::has_virtual_destructor_v<BubbleUpTransform>);
static_assert(std::is_default_constructible_v<BubbleUpTransform>);
static_assert(std::is_copy_constructible_v<BubbleUpTransform>);
static_assert(std::is_copy_assignable_v<BubbleUpTransform>);

const osg::Vec3 farAway(300, 400, 0);  // 500 from the origin
const osg::Matrixd unused = osg::Matrixd::scale(7, 8, 9);

/** The two ways to recentre, and what else they share. */
using CreateMatrix = void (BubbleUpTransform::*)(osg::ref_ptr<osg::Node>, double, osg::Matrixd&);
using CreateTransform = osg::Group* (BubbleUpTransform::*)(osg::ref_ptr<osg::Group>, double);

struct Way {
    const char* name;
    CreateMatrix createMatrix;
    CreateTransform createTransform;
};

void PrintTo(const Way& way, std::ostream* stream) {
    *stream << way.name;
}

class BubbleUpTransformEitherWay : public testing::TestWithParam<Way> {
protected:
    /** The matrix that a visitor makes of the graph; `unused` if it makes none. */
    osg::Matrixd createMatrix(BubbleUpTransform& visitor, osg::Node* node, double minDistance) const {
        osg::Matrixd matrix = unused;
        (visitor.*GetParam().createMatrix)(node, minDistance, matrix);
        return matrix;
    }

    osg::ref_ptr<osg::Group> createTransform(BubbleUpTransform& visitor, osg::Group* group, double minDistance) const {
        return (visitor.*GetParam().createTransform)(group, minDistance);
    }
};

INSTANTIATE_TEST_SUITE_P(, BubbleUpTransformEitherWay,
                         testing::Values(Way{"ForGeodes", &BubbleUpTransform::createMatrixForGeodes,
                                             &BubbleUpTransform::createTransformForGeodes},
                                         Way{"ForGraph", &BubbleUpTransform::createMatrixForGraph,
                                             &BubbleUpTransform::createTransformForGraph}),
                         [](const auto& way) { return way.param.name; });

osg::ref_ptr<osg::Group> makeGroup(std::initializer_list<osg::ref_ptr<osg::Node>> children) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (const auto& child : children) group->addChild(child);
    return group;
}

osg::Matrixd matrixOf(const osg::Group* transform) {
    return dynamic_cast<const osg::MatrixTransform&>(*transform).getMatrix();
}

/** Notes the names of the visitors that it accepts. */
struct VisitedNode : osg::Node {
    void accept(osg::NodeVisitor& visitor) override {
        char* name = abi::__cxa_demangle(typeid(visitor).name(), nullptr, nullptr, nullptr);
        visitors.emplace_back(name);
        std::free(name);
    }
    std::vector<std::string> visitors;
};

}  // namespace

TEST(BubbleUpTransform, VisitsAllChildrenWhateverTheirMasks) {
    const BubbleUpTransform visitor;

    EXPECT_EQ(visitor.getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    EXPECT_EQ(visitor.getNodeMaskOverride(), 0xffffffffu);
}

TEST(BubbleUpTransform, StartsWithTheIdentityAndNothingVisited) {
    const OpenBubbleUpTransform visitor;

    EXPECT_EQ(visitor._matrix, osg::Matrixd());
    EXPECT_THAT(visitor._visited, IsEmpty());
}

TEST_P(BubbleUpTransformEitherWay, MovesTheGraphToTheOriginAndGivesTheWayBack) {
    const auto geode = makePairGeode(farAway);
    OpenBubbleUpTransform visitor;

    const osg::Matrixd matrix = createMatrix(visitor, geode, 100.0);

    EXPECT_EQ(matrix, osg::Matrixd::translate(farAway));
    EXPECT_EQ(visitor._matrix, matrix);
    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3()));
    EXPECT_EQ(geode->getBound().center(), osg::Vec3());
}

TEST_P(BubbleUpTransformEitherWay, LeavesANearerGraphAndTheMatricesAsTheyAre) {
    const auto geode = makePairGeode(farAway);
    OpenBubbleUpTransform visitor(osg::Matrixd::scale(2, 2, 2));

    EXPECT_EQ(createMatrix(visitor, geode, 500.01), unused);

    EXPECT_EQ(visitor._matrix, osg::Matrixd::scale(2, 2, 2));
    EXPECT_THAT(visitor._visited, IsEmpty());
    EXPECT_EQ(pointsOf(geode), pairAt(farAway));
}

TEST_P(BubbleUpTransformEitherWay, MovesAGraphThatLiesExactlyAtTheDistance) {
    BubbleUpTransform visitor;

    EXPECT_EQ(createMatrix(visitor, makePairGeode(farAway), 500.0), osg::Matrixd::translate(farAway));
}

TEST_P(BubbleUpTransformEitherWay, TakesANegativeDistanceForAPositiveOne) {
    BubbleUpTransform visitor;

    EXPECT_EQ(createMatrix(visitor, makePairGeode(farAway), -500.01), unused);
    EXPECT_EQ(createMatrix(visitor, makePairGeode(farAway), -500.0), osg::Matrixd::translate(farAway));
}

TEST_P(BubbleUpTransformEitherWay, ComparesSquaresThatWereSummedInSinglePrecision) {
    const osg::Vec3 centre(4097, 0, 0);  // its square, 16785409, becomes 16785408
    BubbleUpTransform visitor;

    EXPECT_EQ(createMatrix(visitor, makePairGeode(centre), 4097.0), unused);
    EXPECT_EQ(createMatrix(visitor, makePairGeode(centre), 4096.9998), osg::Matrixd::translate(centre));
}

TEST_P(BubbleUpTransformEitherWay, ComparesSquaresInDoublePrecision) {
    const osg::Vec3 centre(4096, 0, 0);
    BubbleUpTransform visitor;

    EXPECT_EQ(createMatrix(visitor, makePairGeode(centre), 4096.0001), unused);  // as floats both would be 16777216
}

TEST_P(BubbleUpTransformEitherWay, MovesAnyGraphAtTheDistanceZero) {
    const osg::ref_ptr<osg::Group> empty = new osg::Group;
    BubbleUpTransform visitor;

    EXPECT_EQ(createMatrix(visitor, empty, 0.0), osg::Matrixd());
    EXPECT_EQ(createMatrix(visitor, makePairGeode(osg::Vec3()), 0.0), osg::Matrixd());
}

TEST_P(BubbleUpTransformEitherWay, MovesNothingForADistanceThatNothingReaches) {
    BubbleUpTransform visitor;

    EXPECT_EQ(createMatrix(visitor, makePairGeode(farAway), std::numeric_limits<double>::infinity()), unused);
}

TEST_P(BubbleUpTransformEitherWay, PutsNothingOfEarlierMatricesIntoTheNewOne) {
    OpenBubbleUpTransform visitor(osg::Matrixd::rotate(1.0, osg::Z_AXIS) * osg::Matrixd::scale(2, 3, 4));
    const auto geode = makePairGeode(farAway);

    EXPECT_EQ(createMatrix(visitor, geode, 100.0), osg::Matrixd::translate(farAway));
    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3()));
}

TEST_P(BubbleUpTransformEitherWay, MovesAllPartsByTheCentreOfTheWhole) {
    const auto left = makePairGeode(osg::Vec3(100, 0, 0)), right = makePairGeode(osg::Vec3(300, 0, 0));
    BubbleUpTransform visitor;

    EXPECT_EQ(createMatrix(visitor, makeGroup({left, right}), 50.0), osg::Matrixd::translate(200, 0, 0));

    EXPECT_EQ(pointsOf(left), pairAt(osg::Vec3(-100, 0, 0)));
    EXPECT_EQ(pointsOf(right), pairAt(osg::Vec3(100, 0, 0)));
}

TEST_P(BubbleUpTransformEitherWay, MovesHiddenNodes) {
    const auto geode = makePairGeode(farAway);
    geode->setNodeMask(0);
    const auto root = makeGroup({geode});
    root->setNodeMask(0);
    BubbleUpTransform visitor;

    createMatrix(visitor, root, 100.0);

    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3()));
}

TEST_P(BubbleUpTransformEitherWay, LeavesTheGraphBelowAMatrixTransformAlone) {
    const auto geode = makePairGeode(osg::Vec3(300, 0, 0));
    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(osg::Matrixd::translate(0, 400, 0));
    transform->addChild(geode);
    const auto root = makeGroup({transform});
    BubbleUpTransform visitor;

    EXPECT_EQ(createMatrix(visitor, root, 100.0), osg::Matrixd::translate(farAway));

    EXPECT_EQ(transform->getMatrix(), osg::Matrixd::translate(-300, 0, 0));
    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3(300, 0, 0)));
    EXPECT_EQ(root->getBound().center(), osg::Vec3());
}

TEST_P(BubbleUpTransformEitherWay, DoesNotMoveAPositionAttitudeTransform) {
    osg::ref_ptr<osg::PositionAttitudeTransform> transform = new osg::PositionAttitudeTransform;
    transform->setPosition(osg::Vec3d(1, 2, 3));
    BubbleUpTransform visitor;

    createMatrix(visitor, makeGroup({makePairGeode(farAway), transform}), 100.0);

    EXPECT_EQ(transform->getPosition(), osg::Vec3d(1, 2, 3));
}

TEST_P(BubbleUpTransformEitherWay, MovesADrawableBelowAGroupWithTheRest) {
    const auto geode = makePairGeode(osg::Vec3(100, 0, 0));
    const auto pair = makePair(osg::Vec3(300, 0, 0));
    const auto root = makeGroup({geode, pair});
    BubbleUpTransform visitor;

    createMatrix(visitor, root, 100.0);

    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3(-100, 0, 0)));
    EXPECT_EQ(pointsOf(pair), pairAt(osg::Vec3(100, 0, 0)));
    EXPECT_EQ(root->getBound().center(), osg::Vec3());
}

TEST_P(BubbleUpTransformEitherWay, MeasuresADrawableBelowAGroup) {
    BubbleUpTransform visitor;

    EXPECT_EQ(createMatrix(visitor, makeGroup({makePair(farAway)}), 500.01), unused);
    EXPECT_EQ(createMatrix(visitor, makeGroup({makePair(farAway)}), 500.0), osg::Matrixd::translate(farAway));
}

TEST_P(BubbleUpTransformEitherWay, MovesWhatWasVisitedNoSecondTime) {
    const auto geode = makePairGeode(farAway);
    OpenBubbleUpTransform visitor;
    createMatrix(visitor, geode, 100.0);

    EXPECT_EQ(createMatrix(visitor, geode, 0.0), osg::Matrixd());

    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3()));
    EXPECT_THAT(visitor._visited, ElementsAre(geode.get()));
}

TEST_P(BubbleUpTransformEitherWay, HoldsTheGraphDuringTheCallOnly) {
    const auto geode = makePairGeode(farAway);
    BubbleUpTransform visitor;

    createMatrix(visitor, geode, 100.0);

    EXPECT_EQ(geode->referenceCount(), 1);
}

TEST_P(BubbleUpTransformEitherWay, MayBeGivenItsOwnMatrixForTheResult) {
    OpenBubbleUpTransform visitor;

    (visitor.*GetParam().createMatrix)(makePairGeode(farAway), 100.0, visitor._matrix);

    EXPECT_EQ(visitor._matrix, osg::Matrixd::translate(farAway));
}

TEST_P(BubbleUpTransformEitherWay, IgnoresANullNode) {
    BubbleUpTransform visitor;

    EXPECT_EQ(createMatrix(visitor, nullptr, 0.0), unused);
    EXPECT_EQ(createTransform(visitor, nullptr, 0.0)->getNumChildren(), 0u);
}

TEST_P(BubbleUpTransformEitherWay, ReportsNothingOnStandardError) {
    const StandardError standardError;
    BubbleUpTransform visitor;

    createMatrix(visitor, makeGroup({makePairGeode(farAway), makeLights({farAway})}), 100.0);

    EXPECT_EQ(standardError.text(), "");
}

TEST_P(BubbleUpTransformEitherWay, HangsTheGraphBelowATransformThatPutsItBack) {
    const auto group = makeGroup({makePairGeode(farAway)});
    BubbleUpTransform visitor;

    const osg::ref_ptr<osg::Group> transform = createTransform(visitor, group, 100.0);

    EXPECT_EQ(typeid(*transform), typeid(osg::MatrixTransform));
    EXPECT_EQ(matrixOf(transform), osg::Matrixd::translate(farAway));
    ASSERT_EQ(transform->getNumChildren(), 1u);
    EXPECT_EQ(transform->getChild(0), group);
    EXPECT_EQ(group->getBound().center(), osg::Vec3());
    EXPECT_EQ(transform->getBound().center(), farAway);
    EXPECT_EQ(group->referenceCount(), 2);
}

TEST_P(BubbleUpTransformEitherWay, LeavesTheTransformToTheCaller) {
    BubbleUpTransform visitor;

    osg::Group* transform = (visitor.*GetParam().createTransform)(new osg::Group, 0.0);

    EXPECT_EQ(transform->referenceCount(), 0);
    const osg::ref_ptr<osg::Group> held = transform;
}

TEST_P(BubbleUpTransformEitherWay, HangsAGraphThatIsNotMovedBelowTheIdentity) {
    const auto group = makeGroup({makePairGeode(farAway)});
    BubbleUpTransform visitor;

    const osg::ref_ptr<osg::Group> transform = createTransform(visitor, group, 1000.0);

    EXPECT_EQ(matrixOf(transform), osg::Matrixd());
    EXPECT_EQ(transform->getChild(0), group);
    EXPECT_EQ(group->getBound().center(), farAway);
}

TEST_P(BubbleUpTransformEitherWay, HangsAGraphThatIsNotMovedBelowTheMatrixOfTheCallBefore) {
    BubbleUpTransform visitor;
    createTransform(visitor, makeGroup({makePairGeode(farAway)}), 100.0);

    const osg::ref_ptr<osg::Group> transform = createTransform(visitor, new osg::Group, 100.0);

    EXPECT_EQ(matrixOf(transform), osg::Matrixd::translate(farAway));
}

TEST(BubbleUpTransform, ComparesTheFarthestGeodeForGeodesAndTheCentreForTheGraph) {
    const auto makeTwo = [] {
        return makeGroup({makePairGeode(osg::Vec3(1, 0, 0)), makePairGeode(osg::Vec3(11, 0, 0))});
    };
    osg::Matrixd matrix = unused;

    BubbleUpTransform().createMatrixForGeodes(makeTwo(), 11.5, matrix);
    BubbleUpTransform().createMatrixForGraph(makeTwo(), 6.5, matrix);
    EXPECT_EQ(matrix, unused);
    BubbleUpTransform().createMatrixForGeodes(makeTwo(), 11.0, matrix);
    EXPECT_EQ(matrix, osg::Matrixd::translate(6, 0, 0));
    matrix = unused;
    BubbleUpTransform().createMatrixForGraph(makeTwo(), 6.0, matrix);
    EXPECT_EQ(matrix, osg::Matrixd::translate(6, 0, 0));
}

TEST(BubbleUpTransform, MeasuresGeodesWithoutTheTransformsAbove) {
    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(osg::Matrixd::translate(farAway));
    transform->addChild(makePairGeode(osg::Vec3(10, 0, 0)));
    const auto root = makeGroup({transform});
    osg::Matrixd matrix = unused;

    BubbleUpTransform().createMatrixForGeodes(root, 11.0, matrix);
    EXPECT_EQ(matrix, unused);
    BubbleUpTransform().createMatrixForGraph(root, 11.0, matrix);
    EXPECT_EQ(matrix, osg::Matrixd::translate(310, 400, 0));
}

TEST(BubbleUpTransform, MovesAndLogsLightPointsForGeodes) {
    const auto lights = makeLights({osg::Vec3(300, 400, 5)});
    const auto root = makeGroup({makePairGeode(farAway), lights});
    const osg::Vec3 centre = root->getBound().center();
    const LogRecords records("sceneutils");
    osg::Matrixd matrix;

    BubbleUpTransform().createMatrixForGeodes(root, 100.0, matrix);

    EXPECT_EQ(matrix, osg::Matrixd::translate(centre));
    EXPECT_THAT(positionsOf(lights), ElementsAre(osg::Vec3(300, 400, 5) - centre));
    EXPECT_THAT(records.texts(),
                ElementsAre("sceneutils 600 sceneutils/BubbleUpTransform:87: Transforming light from 300 400 to 0 0"));
}

TEST(BubbleUpTransform, LeavesLightPointsAloneForTheGraph) {
    const auto lights = makeLights({farAway});
    const LogRecords records("sceneutils");
    osg::Matrixd matrix;

    BubbleUpTransform().createMatrixForGraph(makeGroup({makePairGeode(farAway), lights}), 100.0, matrix);
    const osg::ref_ptr<osg::Group> transform =
        BubbleUpTransform().createTransformForGraph(makeGroup({makePairGeode(farAway), lights}), 100.0);

    EXPECT_THAT(positionsOf(lights), ElementsAre(farAway));
    EXPECT_THAT(records.texts(), IsEmpty());
}

TEST(BubbleUpTransform, LeavesLightPointsOfAGraphThatIsNotMovedAlone) {
    const auto lights = makeLights({farAway});
    const LogRecords records("sceneutils");
    osg::Matrixd matrix;

    BubbleUpTransform().createMatrixForGeodes(makeGroup({makePairGeode(farAway), lights}), 1000.0, matrix);

    EXPECT_THAT(positionsOf(lights), ElementsAre(farAway));
    EXPECT_THAT(records.texts(), IsEmpty());
}

TEST(BubbleUpTransform, LeavesHiddenLightPointsAlone) {
    const auto lights = makeLights({farAway});
    lights->setNodeMask(0);
    osg::Matrixd matrix;

    BubbleUpTransform().createMatrixForGeodes(makeGroup({makePairGeode(farAway), lights}), 100.0, matrix);

    EXPECT_THAT(positionsOf(lights), ElementsAre(farAway));
}

TEST(BubbleUpTransform, TakesAGraphWithoutGeodesForOneAtTheOrigin) {
    const auto lights = makeLights({farAway});
    osg::Matrixd matrix = unused;

    BubbleUpTransform().createMatrixForGeodes(lights, 0.001, matrix);
    EXPECT_EQ(matrix, unused);
    BubbleUpTransform().createMatrixForGeodes(lights, 0.0, matrix);
    EXPECT_EQ(matrix, osg::Matrixd::translate(farAway));
    EXPECT_THAT(positionsOf(lights), ElementsAre(osg::Vec3()));
}

TEST(BubbleUpTransform, MeasuresThenMovesThenMovesTheLights) {
    osg::ref_ptr<VisitedNode> forGeodes = new VisitedNode, forGraph = new VisitedNode, near = new VisitedNode;
    osg::Matrixd matrix;

    BubbleUpTransform().createMatrixForGeodes(forGeodes, 0.0, matrix);
    BubbleUpTransform().createMatrixForGraph(forGraph, 0.0, matrix);
    BubbleUpTransform().createMatrixForGraph(near, 1.0, matrix);

    EXPECT_THAT(forGeodes->visitors,
                ElementsAre("veltrane::sceneutils::GeodeDistanceChecker", "veltrane::sceneutils::BubbleUpTransform",
                            "veltrane::sceneutils::LightPointNodeTranslate"));
    EXPECT_THAT(forGraph->visitors,
                ElementsAre("veltrane::sceneutils::GeodeDistanceChecker", "veltrane::sceneutils::BubbleUpTransform"));
    EXPECT_THAT(near->visitors, ElementsAre("veltrane::sceneutils::GeodeDistanceChecker"));
}

TEST(BubbleUpTransform, CopyConstructionCopiesEverything) {
    const osg::ref_ptr<osg::Node> node = new osg::Node;
    OpenBubbleUpTransform original(osg::Matrixd::scale(2, 3, 4));
    original._visited = {node};
    changeEverySetting(original);

    const OpenBubbleUpTransform copy(original);

    expectEqualSettings(copy, original);
    EXPECT_EQ(copy._matrix, osg::Matrixd::scale(2, 3, 4));
    EXPECT_THAT(copy._visited, ElementsAre(node.get()));
}

TEST(BubbleUpTransform, AssignmentCopiesEverything) {
    const osg::ref_ptr<osg::Node> node = new osg::Node, own = new osg::Node;
    OpenBubbleUpTransform original(osg::Matrixd::scale(2, 3, 4)), copy;
    original._visited = {node};
    copy._visited = {own};
    changeEverySetting(original);

    BubbleUpTransform& result = static_cast<BubbleUpTransform&>(copy) = original;

    expectEqualSettings(copy, original);
    EXPECT_EQ(copy._matrix, osg::Matrixd::scale(2, 3, 4));
    EXPECT_THAT(copy._visited, ElementsAre(node.get()));
    EXPECT_EQ(&result, &copy);
}

TEST(BubbleUpTransform, AssignmentToItselfChangesNothing) {
    const osg::ref_ptr<osg::Node> node = new osg::Node;
    OpenBubbleUpTransform visitor(osg::Matrixd::scale(2, 3, 4));
    visitor._visited = {node};
    const BubbleUpTransform& same = visitor;

    static_cast<BubbleUpTransform&>(visitor) = same;

    EXPECT_EQ(visitor._matrix, osg::Matrixd::scale(2, 3, 4));
    EXPECT_THAT(visitor._visited, ElementsAre(node.get()));
}

TEST(BubbleUpTransform, MayBeHeldByAReferenceToItsBase) {
    const auto geode = makePairGeode(farAway);
    const osg::ref_ptr<osg::NodeVisitor> visitor = new OpenBubbleUpTransform(osg::Matrixd::translate(-farAway));

    geode->accept(*visitor);

    EXPECT_EQ(visitor->referenceCount(), 1);
    EXPECT_EQ(pointsOf(geode), pairAt(osg::Vec3()));
}
