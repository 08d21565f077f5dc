#include "JsonGeometry.h"

#include "PlainText.h"

namespace veltrane::sceneutils::tool {

nlohmann::json asJson(const osg::Vec3f& point) {
    return {withFewDigits(point.x()), withFewDigits(point.y()), withFewDigits(point.z())};
}

nlohmann::json asJson(const osg::BoundingBox& box) {
    if (!box.valid()) return nullptr;
    return {{"min", asJson(osg::Vec3f(box._min))}, {"max", asJson(osg::Vec3f(box._max))}};
}

nlohmann::json asJson(const osg::BoundingSphere& sphere) {
    if (!sphere.valid()) return nullptr;
    return {{"center", asJson(osg::Vec3f(sphere.center()))},
            {"radius", withFewDigits(static_cast<float>(sphere.radius()))}};
}

void writeJson(std::ostream& out, const nlohmann::json& json) {
    out << json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

}  // namespace veltrane::sceneutils::tool
