#pragma once

#include <osg/BoundingBox>
#include <osg/BoundingSphere>

#include <nlohmann/json.hpp>

#include <ostream>

namespace veltrane::sceneutils::tool {

/** [x, y, z] with no more digits than the floats have. */
nlohmann::json asJson(const osg::Vec3f& point);

/** {"min": [x, y, z], "max": [x, y, z]}; null if it is not valid. */
nlohmann::json asJson(const osg::BoundingBox& box);

/** {"center": [x, y, z], "radius": r}; null if it is not valid. */
nlohmann::json asJson(const osg::BoundingSphere& sphere);

/** Writes a report. Names need not be UTF-8, JSON must. */
void writeJson(std::ostream& out, const nlohmann::json& json);

}  // namespace veltrane::sceneutils::tool
