#pragma once

#include <osg/io_utils>
#include <osgSim/LightPointNode>

#include <vector>

namespace testing_support {

inline osg::ref_ptr<osgSim::LightPointNode> makeLights(const std::vector<osg::Vec3>& positions) {
    osg::ref_ptr<osgSim::LightPointNode> lights = new osgSim::LightPointNode;
    for (const osg::Vec3& position : positions) lights->addLightPoint(osgSim::LightPoint(position, osg::Vec4()));
    return lights;
}

inline std::vector<osg::Vec3> positionsOf(const osgSim::LightPointNode* lights) {
    std::vector<osg::Vec3> positions;
    for (const osgSim::LightPoint& light : lights->getLightPointList()) positions.push_back(light._position);
    return positions;
}

}  // namespace testing_support
