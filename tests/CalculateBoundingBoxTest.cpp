#include <sceneutils/CalculateBoundingBox.h>

#include "support/Graphs.h"
#include "support/VisitorSettings.h"

#include <gtest/gtest.h>

#include <osg/Billboard>
#include <osg/LOD>
#include <osg/Math>
#include <osg/PositionAttitudeTransform>
#include <osg/Switch>
#include <osgSim/MultiSwitch>

#include <cfloat>
#include <limits>
#include <ostream>
#include <type_traits>

// Found by GoogleTest beside the type.
namespace osg {

void PrintTo(const BoundingBox& box, std::ostream* out) {
    *out << "(" << box.xMin() << ", " << box.yMin() << ", " << box.zMin() << ") to (" << box.xMax() << ", "
         << box.yMax() << ", " << box.zMax() << ")";
}

}  // namespace osg

using namespace testing_support;
using veltrane::sceneutils::CalculateBoundingBox;

namespace {

static_assert(std::is_base_of_v<osg::NodeVisitor, CalculateBoundingBox>);
static_assert(std::has_virtual_destructor_v<CalculateBoundingBox>);
static_assert(std::is_copy_constructible_v<CalculateBoundingBox> && std::is_copy_assignable_v<CalculateBoundingBox>);

const osg::BoundingBox emptyBox(FLT_MAX, FLT_MAX, FLT_MAX, -FLT_MAX, -FLT_MAX, -FLT_MAX);
const osg::BoundingBox wholeRange(-FLT_MAX, -FLT_MAX, -FLT_MAX, FLT_MAX, FLT_MAX, FLT_MAX);

/** A drawable that has that box, whatever it is. */
osg::ref_ptr<osg::Drawable> makeDrawable(const osg::BoundingBox& box) {
    struct FixedBox : osg::Drawable::ComputeBoundingBoxCallback {
        osg::BoundingBox box;
        osg::BoundingBox computeBound(const osg::Drawable&) const override { return box; }
    };
    const osg::ref_ptr<FixedBox> fixed = new FixedBox;
    fixed->box = box;
    osg::ref_ptr<osg::Drawable> drawable = new osg::Geometry;
    drawable->setComputeBoundingBoxCallback(fixed);
    return drawable;
}

/** A geode with one drawable of that box. */
osg::ref_ptr<osg::Geode> makeBox(float xMin, float yMin, float zMin, float xMax, float yMax, float zMax) {
    return makeGeode(makeDrawable(osg::BoundingBox(xMin, yMin, zMin, xMax, yMax, zMax)));
}

osg::ref_ptr<osg::Geode> makeUnitBox() {
    return makeBox(0, 0, 0, 1, 1, 1);
}

template <typename GroupType = osg::Group>
osg::ref_ptr<GroupType> makeGroup(osg::Node* child, osg::ref_ptr<GroupType> group = new GroupType) {
    group->addChild(child);
    return group;
}

osg::ref_ptr<osg::MatrixTransform> makeTransform(const osg::Matrixd& matrix, osg::Node* child) {
    return makeGroup<osg::MatrixTransform>(child, new osg::MatrixTransform(matrix));
}

osg::BoundingBox measure(const osg::ref_ptr<osg::Node>& node) {
    return CalculateBoundingBox::process(*node);
}

/** A turn about z by a right angle that has no rounding. */
const osg::Matrixd quarterTurn(0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1);

}  // namespace

TEST(CalculateBoundingBox, TraversesAllChildren) {
    EXPECT_EQ(CalculateBoundingBox().getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    EXPECT_EQ(CalculateBoundingBox().getNodeMaskOverride(), 0u);
}

TEST(CalculateBoundingBox, BeginsWithAnEmptyBox) {
    CalculateBoundingBox visitor;

    EXPECT_EQ(visitor.getBoundBox(), emptyBox);
}

TEST(CalculateBoundingBox, MeasuresAnEmptyBoxInAGraphWithoutGeodes) {
    const osg::BoundingBox box = measure(makeGroup(new osg::Node));

    EXPECT_EQ(box, emptyBox);
    EXPECT_FALSE(box.valid());
}

TEST(CalculateBoundingBox, MeasuresAGeode) {
    EXPECT_EQ(measure(makeBox(1, 2, 3, 40, 50, 60)), osg::BoundingBox(1, 2, 3, 40, 50, 60));
}

TEST(CalculateBoundingBox, MeasuresTheBoxOfADrawableNotItsSphere) {
    EXPECT_EQ(measure(makeGeode(makeSquare(osg::Vec3(5, 6, 7)))), osg::BoundingBox(5, 6, 7, 6, 7, 7));
}

TEST(CalculateBoundingBox, EnclosesAllDrawablesOfAGeode) {
    osg::ref_ptr<osg::Geode> geode = makeGeode(makeSquare());
    geode->addDrawable(makeSquare(osg::Vec3(5, -6, 7)));
    geode->addDrawable(makeSquare(osg::Vec3(0, 0, -1)));

    EXPECT_EQ(measure(geode), osg::BoundingBox(0, -6, -1, 6, 1, 7));
}

TEST(CalculateBoundingBox, EnclosesAllGeodes) {
    osg::ref_ptr<osg::Group> root = makeGroup(makeUnitBox());
    root->addChild(makeGroup(makeBox(-3, 0, 0, -2, 8, 1)));

    EXPECT_EQ(measure(root), osg::BoundingBox(-3, 0, 0, 1, 8, 1));
}

TEST(CalculateBoundingBox, CountsADrawableThatIsAPoint) {
    EXPECT_EQ(measure(makeBox(1, 2, 3, 1, 2, 3)), osg::BoundingBox(1, 2, 3, 1, 2, 3));
}

TEST(CalculateBoundingBox, PassesOverDrawablesWhoseBoxIsNotValidOnAnyAxis) {
    osg::ref_ptr<osg::Geode> geode = makeUnitBox();
    geode->addDrawable(makeDrawable(osg::BoundingBox(50, 0, 0, 49, 100, 100)));
    geode->addDrawable(makeDrawable(osg::BoundingBox(0, 50, 0, 100, 49, 100)));
    geode->addDrawable(makeDrawable(osg::BoundingBox(0, 0, 50, 100, 100, 49)));
    geode->addDrawable(new osg::Geometry);

    EXPECT_EQ(measure(geode), osg::BoundingBox(0, 0, 0, 1, 1, 1));
}

TEST(CalculateBoundingBox, PassesOverAGeodesChildThatIsNotADrawable) {
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addChild(new osg::Group);
    geode->addDrawable(makeSquare());
    ASSERT_EQ(geode->getDrawable(0), nullptr);

    EXPECT_EQ(measure(geode), osg::BoundingBox(0, 0, 0, 1, 1, 0));
}

TEST(CalculateBoundingBox, VisitsWhatHangsBelowAGeode) {
    osg::ref_ptr<osg::Geode> geode = makeUnitBox();
    geode->addChild(makeBox(5, 5, 5, 6, 6, 6));

    EXPECT_EQ(measure(geode), osg::BoundingBox(0, 0, 0, 6, 6, 6));
}

TEST(CalculateBoundingBox, DoesNotCountDrawablesDirectlyBelowAGroup) {
    osg::ref_ptr<osg::Group> root = makeGroup(makeSquare());
    EXPECT_EQ(measure(root), emptyBox);

    root->addChild(makeBox(5, 5, 5, 6, 6, 6));
    EXPECT_EQ(measure(root), osg::BoundingBox(5, 5, 5, 6, 6, 6));
}

TEST(CalculateBoundingBox, SpreadsOverTheWholeRangeForAGeodeWithoutDrawables) {
    osg::ref_ptr<osg::Group> root = makeGroup(makeUnitBox());
    root->addChild(new osg::Geode);

    EXPECT_EQ(measure(root), wholeRange);
    EXPECT_TRUE(measure(root).valid());
}

TEST(CalculateBoundingBox, SpreadsOverTheWholeRangeForAGeodeWithoutAValidDrawable) {
    EXPECT_EQ(measure(makeGeode(new osg::Geometry)), wholeRange);
}

TEST(CalculateBoundingBox, SpreadsOverTheWholeRangeForAnEmptyGeodeBelowATransform) {
    const osg::ref_ptr<osg::Geode> empty = new osg::Geode;

    EXPECT_EQ(measure(makeTransform(osg::Matrixd::translate(10, 20, 30), empty)), wholeRange);
    EXPECT_EQ(measure(makeTransform(quarterTurn, empty)), wholeRange);
    EXPECT_EQ(measure(makeTransform(osg::Matrixd::scale(0.5, 1, 1), empty)),
              osg::BoundingBox(-0.5f * FLT_MAX, -FLT_MAX, -FLT_MAX, 0.5f * FLT_MAX, FLT_MAX, FLT_MAX));
}

TEST(CalculateBoundingBox, MovesAGeodeByTheTransformAboveIt) {
    EXPECT_EQ(measure(makeTransform(osg::Matrixd::translate(10, 0, 0), makeUnitBox())),
              osg::BoundingBox(10, 0, 0, 11, 1, 1));
}

TEST(CalculateBoundingBox, MovesTheBoxOfTheGeodeNotThoseOfItsDrawables) {
    osg::ref_ptr<osg::Geode> geode = makeBox(0, 0, 0, 1, 1, 0);
    geode->addDrawable(makeDrawable(osg::BoundingBox(3, 3, 0, 4, 4, 0)));
    const osg::Matrixd shear(1, 0, 0, 0, -1, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1);  // x becomes x - y

    EXPECT_EQ(measure(makeTransform(shear, geode)), osg::BoundingBox(-4, 0, 0, 4, 4, 0));
}

TEST(CalculateBoundingBox, EnclosesTheTurnedCorners) {
    EXPECT_EQ(measure(makeTransform(quarterTurn, makeBox(1, 2, 3, 10, 20, 30))),
              osg::BoundingBox(-20, 1, 3, -2, 10, 30));

    const osg::Matrixd eighthTurn = osg::Matrixd::rotate(osg::PI_4, osg::Z_AXIS);
    const osg::BoundingBox box = measure(makeTransform(eighthTurn, makeUnitBox()));
    const float diagonal = static_cast<float>(osg::Vec3d(0, std::sqrt(2.0), 0).y());
    EXPECT_FLOAT_EQ(box.xMin(), -diagonal / 2);
    EXPECT_FLOAT_EQ(box.xMax(), diagonal / 2);
    EXPECT_FLOAT_EQ(box.yMax(), diagonal);
}

TEST(CalculateBoundingBox, DecidesByAllEightCorners) {
    // Each corner in turn is the one that reaches furthest along x.
    for (unsigned int corner = 0; corner < 8; ++corner) {
        const double x = corner & 1 ? 1 : -1;
        const double y = corner & 2 ? 1 : -1;
        const double z = corner & 4 ? 1 : -1;
        const osg::Matrixd matrix(x, 0, 0, 0, y, 0, 0, 0, z, 0, 0, 0, 0, 0, 0, 1);

        EXPECT_EQ(measure(makeTransform(matrix, makeBox(-1, -2, -4, 1, 2, 4))), osg::BoundingBox(-7, 0, 0, 7, 0, 0))
            << "corner " << corner;
    }
}

TEST(CalculateBoundingBox, DividesByTheHomogeneousCoordinate) {
    osg::Matrixd matrix;
    matrix(3, 3) = 2.0;
    EXPECT_EQ(measure(makeTransform(matrix, makeUnitBox())), osg::BoundingBox(0, 0, 0, 0.5f, 0.5f, 0.5f));

    matrix(0, 3) = 2.0;  // w = 2x + 2
    EXPECT_EQ(measure(makeTransform(matrix, makeUnitBox())), osg::BoundingBox(0, 0, 0, 0.25f, 0.5f, 0.5f));
}

TEST(CalculateBoundingBox, DoesNotCountAGeodeWhoseTransformedBoxIsNotValid) {
    osg::Matrixd matrix;
    matrix(0, 0) = std::numeric_limits<double>::quiet_NaN();
    osg::ref_ptr<osg::Group> root = makeGroup(makeTransform(matrix, makeBox(5, 5, 5, 6, 6, 6)));
    EXPECT_EQ(measure(root), emptyBox);

    root->addChild(makeUnitBox());
    EXPECT_EQ(measure(root), osg::BoundingBox(0, 0, 0, 1, 1, 1));
}

TEST(CalculateBoundingBox, AppliesTheOuterOfNestedTransformsFirst) {
    const auto inner = makeTransform(osg::Matrixd::translate(10, 0, 0), makeUnitBox());
    const auto outer = makeTransform(osg::Matrixd::scale(2, 2, 2), inner);

    // Drawn by OSG it reaches from 20 to 22.
    EXPECT_EQ(measure(outer), osg::BoundingBox(10, 0, 0, 12, 2, 2));
}

TEST(CalculateBoundingBox, AppliesThreeNestedTransformsFromTheOutsideToTheInside) {
    const auto inner = makeTransform(osg::Matrixd::scale(3, 3, 3), makeUnitBox());
    const auto middle = makeTransform(quarterTurn, inner);
    const auto outer = makeTransform(osg::Matrixd::translate(10, 0, 0), middle);

    EXPECT_EQ(measure(outer), osg::BoundingBox(-3, 30, 0, 0, 33, 3));
}

TEST(CalculateBoundingBox, RestoresTheMatrixBehindATransform) {
    osg::ref_ptr<osg::Group> inner = makeGroup(makeTransform(osg::Matrixd::translate(100, 0, 0), makeUnitBox()));
    inner->addChild(makeBox(0, 50, 0, 1, 51, 1));
    osg::ref_ptr<osg::Group> root = makeGroup(makeTransform(osg::Matrixd::translate(0, 10, 0), inner));
    root->addChild(makeBox(0, -5, 0, 1, -4, 1));

    EXPECT_EQ(measure(root), osg::BoundingBox(0, -5, 0, 101, 61, 1));
}

TEST(CalculateBoundingBox, IgnoresTheReferenceFrameOfATransform) {
    const auto inner = makeTransform(osg::Matrixd::translate(0, 5, 0), makeUnitBox());
    inner->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    const auto outer = makeTransform(osg::Matrixd::translate(10, 0, 0), inner);

    EXPECT_EQ(measure(outer), osg::BoundingBox(10, 5, 0, 11, 6, 1));
}

TEST(CalculateBoundingBox, IsNotMovedByOtherTransforms) {
    const auto transform = makeGroup<osg::PositionAttitudeTransform>(makeUnitBox());
    transform->setPosition(osg::Vec3d(10, 20, 30));

    EXPECT_EQ(measure(transform), osg::BoundingBox(0, 0, 0, 1, 1, 1));
    EXPECT_EQ(measure(makeTransform(osg::Matrixd::translate(5, 0, 0), transform)), osg::BoundingBox(5, 0, 0, 6, 1, 1));
}

TEST(CalculateBoundingBox, CountsWhatIsSwitchedOffOrOutOfRange) {
    osg::ref_ptr<osg::Group> root = new osg::Group;
    const osg::ref_ptr<osg::Switch> choice = new osg::Switch;
    const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    choice->addChild(makeUnitBox(), false);
    lod->addChild(makeBox(5, 5, 5, 6, 6, 6), 0, 0);
    root->addChild(choice);
    root->addChild(lod);

    EXPECT_EQ(measure(root), osg::BoundingBox(0, 0, 0, 6, 6, 6));
}

TEST(CalculateBoundingBox, CountsASharedGeodeOnEveryPath) {
    const osg::ref_ptr<osg::Geode> geode = makeUnitBox();
    osg::ref_ptr<osg::Group> root = makeGroup(makeTransform(osg::Matrixd::translate(10, 0, 0), geode));
    root->addChild(makeTransform(osg::Matrixd::translate(0, -10, 0), geode));

    EXPECT_EQ(measure(root), osg::BoundingBox(0, -10, 0, 11, 1, 1));
}

TEST(CalculateBoundingBox, DoesNotCountWhatTheMasksExclude) {
    osg::ref_ptr<osg::Geode> hidden = makeBox(5, 5, 5, 6, 6, 6);
    hidden->setNodeMask(0);
    osg::ref_ptr<osg::Group> root = makeGroup(makeUnitBox());
    root->addChild(hidden);

    EXPECT_EQ(measure(root), osg::BoundingBox(0, 0, 0, 1, 1, 1));
}

TEST(CalculateBoundingBox, DoesNotCountABillboard) {
    const osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->addDrawable(makeSquare(), osg::Vec3(1, 2, 3));
    osg::ref_ptr<osg::Group> root = makeGroup(billboard);
    EXPECT_EQ(measure(root), emptyBox);

    root->addChild(makeBox(5, 5, 5, 6, 6, 6));
    EXPECT_EQ(measure(root), osg::BoundingBox(5, 5, 5, 6, 6, 6));
}

TEST(CalculateBoundingBox, VisitsTheChildrenOfABillboard) {
    const osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
    billboard->osg::Group::addChild(makeUnitBox());

    EXPECT_EQ(measure(billboard), osg::BoundingBox(0, 0, 0, 1, 1, 1));
}

TEST(CalculateBoundingBoxOfAMultiSwitch, CountsTheChildrenOfTheShownChildren) {
    osg::ref_ptr<osgSim::MultiSwitch> multiSwitch = new osgSim::MultiSwitch;
    multiSwitch->addChild(makeGroup(makeUnitBox()));
    multiSwitch->addChild(makeGroup(makeBox(50, 50, 50, 60, 60, 60)));
    multiSwitch->addChild(makeGroup(makeBox(5, 5, 5, 6, 6, 6)));
    multiSwitch->setAllChildrenOn(0);
    multiSwitch->setValue(0, 1, false);

    EXPECT_EQ(measure(multiSwitch), osg::BoundingBox(0, 0, 0, 6, 6, 6));
}

TEST(CalculateBoundingBoxOfAMultiSwitch, AsksTheActiveSwitchSet) {
    osg::ref_ptr<osgSim::MultiSwitch> multiSwitch = new osgSim::MultiSwitch;
    multiSwitch->addChild(makeGroup(makeUnitBox()));
    multiSwitch->addChild(makeGroup(makeBox(5, 5, 5, 6, 6, 6)));
    multiSwitch->setSingleChildOn(0, 0);
    multiSwitch->setSingleChildOn(1, 1);

    EXPECT_EQ(measure(multiSwitch), osg::BoundingBox(0, 0, 0, 1, 1, 1));
    multiSwitch->setActiveSwitchSet(1);
    EXPECT_EQ(measure(multiSwitch), osg::BoundingBox(5, 5, 5, 6, 6, 6));
    multiSwitch->setActiveSwitchSet(2);
    EXPECT_EQ(measure(multiSwitch), emptyBox) << "a switch set that does not exist shows nothing";
}

TEST(CalculateBoundingBoxOfAMultiSwitch, DoesNotCountAGeodeDirectlyBelow) {
    osg::ref_ptr<osgSim::MultiSwitch> multiSwitch = new osgSim::MultiSwitch;
    multiSwitch->addChild(makeUnitBox());
    multiSwitch->addChild(new osg::Geode);
    multiSwitch->setAllChildrenOn(0);

    EXPECT_EQ(measure(multiSwitch), emptyBox);
}

TEST(CalculateBoundingBoxOfAMultiSwitch, IsNotMovedByATransformDirectlyBelow) {
    osg::ref_ptr<osgSim::MultiSwitch> multiSwitch = new osgSim::MultiSwitch;
    const auto below = makeTransform(osg::Matrixd::translate(10, 0, 0), makeUnitBox());
    multiSwitch->addChild(makeTransform(osg::Matrixd::translate(0, 10, 0), below));
    multiSwitch->setAllChildrenOn(0);

    EXPECT_EQ(measure(multiSwitch), osg::BoundingBox(10, 0, 0, 11, 1, 1));
}

TEST(CalculateBoundingBoxOfAMultiSwitch, CountsAllChildrenOfAMultiSwitchDirectlyBelow) {
    osg::ref_ptr<osgSim::MultiSwitch> inner = new osgSim::MultiSwitch;
    inner->addChild(makeUnitBox());
    inner->setAllChildrenOff(0);
    osg::ref_ptr<osgSim::MultiSwitch> outer = new osgSim::MultiSwitch;
    outer->addChild(inner);
    outer->setAllChildrenOn(0);

    EXPECT_EQ(measure(outer), osg::BoundingBox(0, 0, 0, 1, 1, 1));
    EXPECT_EQ(measure(makeGroup(inner)), emptyBox);
}

TEST(CalculateBoundingBoxOfAMultiSwitch, AsksForAChildByItsFirstPlace) {
    osg::ref_ptr<osgSim::MultiSwitch> multiSwitch = new osgSim::MultiSwitch;
    const auto twice = makeGroup(makeUnitBox());
    multiSwitch->addChild(twice);
    multiSwitch->addChild(twice);

    multiSwitch->setSingleChildOn(0, 1);
    EXPECT_EQ(measure(multiSwitch), emptyBox);
    multiSwitch->setSingleChildOn(0, 0);
    EXPECT_EQ(measure(multiSwitch), osg::BoundingBox(0, 0, 0, 1, 1, 1));
}

TEST(CalculateBoundingBoxOfAMultiSwitch, ShowsNoChildThatItsSwitchSetHasNoValueFor) {
    osg::ref_ptr<osgSim::MultiSwitch> multiSwitch = new osgSim::MultiSwitch;
    multiSwitch->addChild(makeGroup(makeUnitBox()));
    multiSwitch->addChild(makeGroup(makeBox(5, 5, 5, 6, 6, 6)));
    multiSwitch->setValueList(0, {true});

    EXPECT_EQ(measure(multiSwitch), osg::BoundingBox(0, 0, 0, 1, 1, 1));
}

TEST(CalculateBoundingBox, WidensItsBoxWithEveryGraph) {
    CalculateBoundingBox visitor;

    makeUnitBox()->accept(visitor);
    EXPECT_EQ(visitor.getBoundBox(), osg::BoundingBox(0, 0, 0, 1, 1, 1));

    makeBox(5, 5, 5, 6, 6, 6)->accept(visitor);
    EXPECT_EQ(visitor.getBoundBox(), osg::BoundingBox(0, 0, 0, 6, 6, 6));
}

TEST(CalculateBoundingBox, LetsItsBoxBeChanged) {
    CalculateBoundingBox visitor;
    makeUnitBox()->accept(visitor);

    visitor.getBoundBox().init();
    makeBox(5, 5, 5, 6, 6, 6)->accept(visitor);

    EXPECT_EQ(visitor.getBoundBox(), osg::BoundingBox(5, 5, 5, 6, 6, 6));
}

TEST(CalculateBoundingBox, ProcessBeginsAnewEveryTime) {
    EXPECT_EQ(measure(makeUnitBox()), osg::BoundingBox(0, 0, 0, 1, 1, 1));
    EXPECT_EQ(measure(makeBox(5, 5, 5, 6, 6, 6)), osg::BoundingBox(5, 5, 5, 6, 6, 6));
}

namespace {

/** Copies itself in the middle of a visit, when the matrix is not the identity. */
class CopiedOnTheWay : public CalculateBoundingBox {
public:
    using CalculateBoundingBox::apply;
    void apply(osg::Geode& geode) override {
        if (!copyConstructed) {
            copyConstructed = new CalculateBoundingBox(*this);
            assigned = new CalculateBoundingBox;
            *assigned = *this;
            const CalculateBoundingBox& self = *this;
            CalculateBoundingBox::operator=(self);
        }
        CalculateBoundingBox::apply(geode);
    }
    osg::ref_ptr<CalculateBoundingBox> copyConstructed;
    osg::ref_ptr<CalculateBoundingBox> assigned;
};

}  // namespace

TEST(CalculateBoundingBox, CopiesHaveTheBoxAndTheCurrentMatrix) {
    CopiedOnTheWay original;
    original.getBoundBox() = osg::BoundingBox(0, 0, 0, 1, 1, 1);
    makeTransform(osg::Matrixd::translate(10, 0, 0), makeUnitBox())->accept(original);
    ASSERT_TRUE(original.copyConstructed);

    for (CalculateBoundingBox* copy : {original.copyConstructed.get(), original.assigned.get()}) {
        EXPECT_EQ(copy->getBoundBox(), osg::BoundingBox(0, 0, 0, 1, 1, 1));
        makeBox(0, 0, 0, 2, 2, 2)->accept(*copy);
        EXPECT_EQ(copy->getBoundBox(), osg::BoundingBox(0, 0, 0, 12, 2, 2));
    }
    EXPECT_EQ(original.getBoundBox(), osg::BoundingBox(0, 0, 0, 11, 1, 1)) << "assigned to itself, it stays as it is";
}

TEST(CalculateBoundingBox, CopiesHaveEverySetting) {
    CalculateBoundingBox original;
    changeEverySetting(original);
    CalculateBoundingBox assigned;

    CalculateBoundingBox& result = assigned = original;

    EXPECT_EQ(&result, &assigned);
    expectEqualSettings(assigned, original);
    expectEqualSettings(CalculateBoundingBox(original), original);
}
