#include "PlainNormals.h"

#include <osg/Array>
#include <osg/Geometry>
#include <osg/NodeVisitor>

#include <algorithm>

namespace veltrane::sceneutils::tool {

namespace {

constexpr int perPrimitive = 3;  // OpenSceneGraph has no name for it in memory

class NormalVisitor : public osg::NodeVisitor {
public:
    NormalVisitor() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    using osg::NodeVisitor::apply;

    void apply(osg::Geometry& geometry) override {
        const auto* normals = dynamic_cast<const osg::Vec3Array*>(geometry.getNormalArray());
        if (!normals || static_cast<int>(normals->getBinding()) != perPrimitive) return;
        if (normals->empty()) {
            geometry.setNormalArray(nullptr);
            return;
        }
        const osg::Vec3 normal = normals->front();
        if (!std::all_of(normals->begin(), normals->end(), [&](const auto& other) { return other == normal; })) return;
        geometry.setNormalArray(new osg::Vec3Array(1, &normal), osg::Array::BIND_OVERALL);
    }
};

}  // namespace

void bindNormalsOverall(osg::Node& graph) {
    NormalVisitor visitor;
    graph.accept(visitor);
}

}  // namespace veltrane::sceneutils::tool
