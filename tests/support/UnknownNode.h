#pragma once

#include <osg/Node>

namespace testing_support {

/** Of a class that no format knows. */
class UnknownNode : public osg::Node {
public:
    UnknownNode() = default;
    UnknownNode(const UnknownNode& other, const osg::CopyOp& copyOp) : osg::Node(other, copyOp) {}
    META_Node(tests, UnknownNode)
};

}  // namespace testing_support
