#include <sceneutils/ChildReplacer.h>

#include <gmock/gmock.h>

using veltrane::sceneutils::ChildReplacer;

namespace {

constexpr unsigned int many = 50;  // so that the replacer makes a table

osg::ref_ptr<osg::Group> makeParent(osg::Node* child, unsigned int index) {
    osg::ref_ptr<osg::Group> parent = new osg::Group;
    for (unsigned int i = 0; i < many; ++i) parent->addChild(i == index ? child : new osg::Node);
    return parent;
}

}  // namespace

TEST(ChildReplacer, ReplacesTheFirstPlaceOfAChildAndThenTheNext) {
    const osg::ref_ptr<osg::Node> child = new osg::Node, first = new osg::Node, second = new osg::Node;
    const osg::ref_ptr<osg::Group> parent = makeParent(child, 7);
    parent->setChild(20, child);
    ChildReplacer replacer;

    EXPECT_TRUE(replacer.replace(*parent, *child, *first));
    EXPECT_TRUE(replacer.replace(*parent, *child, *second));
    EXPECT_FALSE(replacer.replace(*parent, *child, *second));

    EXPECT_EQ(parent->getChild(7), first);
    EXPECT_EQ(parent->getChild(20), second);
}

TEST(ChildReplacer, ReplacesAllPlaces) {
    const osg::ref_ptr<osg::Node> child = new osg::Node, other = new osg::Node;
    const osg::ref_ptr<osg::Group> parent = makeParent(child, 0);
    parent->setChild(many - 1, child);

    ChildReplacer().replaceAll(*parent, *child, *other);

    EXPECT_EQ(parent->getChild(0), other);
    EXPECT_EQ(parent->getChild(many - 1), other);
    EXPECT_EQ(child->getNumParents(), 0u);
}

TEST(ChildReplacer, DoesNotTakeAGroupForADeletedOneAtTheSameAddress) {
    const osg::ref_ptr<osg::Node> child = new osg::Node, other = new osg::Node;
    ChildReplacer replacer;
    for (unsigned int i = 0; i < many; ++i) {
        const osg::ref_ptr<osg::Group> parent = makeParent(child, i);
        ASSERT_TRUE(replacer.replace(*parent, *child, *other));
        ASSERT_EQ(parent->getChild(i), other);
    }
}
