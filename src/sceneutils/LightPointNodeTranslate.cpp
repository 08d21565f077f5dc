#include "LightPointNodeTranslate.h"

#include "VisitorSettings.h"
#include "log/LogChannel.h"

namespace veltrane::sceneutils {

namespace {

log4cpp::Category* const logCategory = log::obtainCategory();

// What the log records say of their origin. Fixed, because users filter by it.
constexpr const char* logFile = "sceneutils/BubbleUpTransform";
constexpr int lightMovedLine = 87;

osgSim::LightPointNode* asLights(osg::Node& node) {
    // Most nodes are of these two kinds, and the cast takes longer than all the rest of a visit.
    if (node.asGroup() || node.asDrawable()) return nullptr;
    return dynamic_cast<osgSim::LightPointNode*>(&node);
}

}  // namespace

LightPointNodeTranslate::LightPointNodeTranslate() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

LightPointNodeTranslate::LightPointNodeTranslate(const LightPointNodeTranslate& other)
    : osg::Object(other), osg::NodeVisitor(other), _translation(other._translation), _visited(other._visited) {}

LightPointNodeTranslate& LightPointNodeTranslate::operator=(const LightPointNodeTranslate& other) {
    copyVisitorSettings(*this, other);
    _translation = other._translation;
    _visited = other._visited;
    return *this;
}

LightPointNodeTranslate::~LightPointNodeTranslate() = default;

void LightPointNodeTranslate::apply(osg::Node& node) {
    osgSim::LightPointNode* lights = asLights(node);
    if (lights && _visited.insert(lights).second) translate(*lights);
    traverse(node);
}

void LightPointNodeTranslate::translate(osgSim::LightPointNode& lights) const {
    for (unsigned int i = 0; i < lights.getNumLightPoints(); ++i) {
        osg::Vec3& position = lights.getLightPoint(i)._position;
        const osg::Vec3 old = position;
        position += _translation;
        // The height has never been part of the message.
        log::emit(logCategory, log::Logger::INFO, logFile, lightMovedLine, [&](std::ostream& message) {
            message << "Transforming light from " << old.x() << " " << old.y() << " to " << position.x() << " "
                    << position.y();
        });
    }
    lights.dirtyBound();
}

}  // namespace veltrane::sceneutils
