#pragma once

#include <osg/Array>
#include <osg/LOD>
#include <osg/Node>
#include <osg/PositionAttitudeTransform>
#include <osg/ref_ptr>
#include <osgSim/LightPointNode>

#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** Whether light points are moved with the rest. */
enum class LightPoints { Move, Leave };

/**
 * What has to be known of a graph before BubbleUpTransform moves it. A node is *moved* if no matrix transform or
 * position-attitude transform is above it, so that its own numbers have to change; it is *carried* if one is.
 */
struct GraphSurvey {
    std::vector<std::string> problems;  ///< what would come apart from the rest, each with its reason
    std::vector<osg::ref_ptr<osg::PositionAttitudeTransform>> positionAttitudeTransforms;  ///< that are moved
    std::vector<osg::ref_ptr<osg::LOD>> lods;                                              ///< that are moved
    std::vector<osg::ref_ptr<osg::Node>> nodesWithInitialBound;                            ///< that are moved
    std::vector<osg::ref_ptr<osg::Node>> hiddenNodes;  ///< that are moved and have a node mask of zero
    std::vector<osg::ref_ptr<osg::Array>> normals;     ///< arrays of moved drawables that are taken for normals
    std::vector<osg::ref_ptr<osgSim::LightPointNode>> carriedLightPoints;
};

/** Looks through a graph and changes nothing. */
GraphSurvey survey(osg::Node& root, LightPoints lightPoints);

}  // namespace veltrane::sceneutils::tool
