#pragma once

#include <gtest/gtest.h>

#include <osg/NodeVisitor>

namespace testing_support {

/** Gives every setting that a visitor inherits from osg::NodeVisitor a value that no constructor sets. */
inline void changeEverySetting(osg::NodeVisitor& visitor) {
    visitor.setVisitorType(osg::NodeVisitor::CULL_VISITOR);
    visitor.setTraversalMode(osg::NodeVisitor::TRAVERSE_PARENTS);
    visitor.setTraversalMask(0x0000abcdu);
    visitor.setNodeMaskOverride(0x00001234u);
    visitor.setTraversalNumber(77);
}

inline void expectEqualSettings(const osg::NodeVisitor& actual, const osg::NodeVisitor& expected) {
    EXPECT_EQ(actual.getVisitorType(), expected.getVisitorType());
    EXPECT_EQ(actual.getTraversalMode(), expected.getTraversalMode());
    EXPECT_EQ(actual.getTraversalMask(), expected.getTraversalMask());
    EXPECT_EQ(actual.getNodeMaskOverride(), expected.getNodeMaskOverride());
    EXPECT_EQ(actual.getTraversalNumber(), expected.getTraversalNumber());
}

}  // namespace testing_support
