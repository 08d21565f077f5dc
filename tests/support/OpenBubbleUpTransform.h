#pragma once

#include <sceneutils/BubbleUpTransform.h>

namespace testing_support {

/** A visitor whose matrix and visited nodes can be set and looked at. */
class OpenBubbleUpTransform : public veltrane::sceneutils::BubbleUpTransform {
public:
    explicit OpenBubbleUpTransform(const osg::Matrixd& matrix = osg::Matrixd()) { _matrix = matrix; }

    using BubbleUpTransform::_matrix;
    using BubbleUpTransform::_visited;
};

/** Pushes a matrix into a graph. */
inline void push(const osg::Matrixd& matrix, osg::Node& node) {
    OpenBubbleUpTransform visitor(matrix);
    node.accept(visitor);
}

}  // namespace testing_support
