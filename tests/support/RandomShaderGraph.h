#pragma once

#include <osg/Group>
#include <osg/StateSet>

#include <vector>

namespace testing_support {

/** A graph to be shaded that a seed decides: the same seed makes the same graph again, of other objects. */
struct RandomShaderGraph {
    explicit RandomShaderGraph(unsigned int seed);

    osg::ref_ptr<osg::Node> root;
    osg::ref_ptr<osg::Group> parent;  ///< where the graph is said to hang; may be null

    /** All above `parent`, held because groups do not hold their parents. */
    std::vector<osg::ref_ptr<osg::Group>> above;

    /** Every state set, in the order of making. Many stand in several places. */
    std::vector<osg::ref_ptr<osg::StateSet>> states;
};

}  // namespace testing_support
