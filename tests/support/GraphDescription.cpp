#include "support/GraphDescription.h"

#include <osg/Geometry>
#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/Switch>

#include <map>
#include <sstream>

namespace testing_support {

namespace {

class Description {
public:
    Description() { _out << std::hexfloat; }

    void describe(const osg::Node& node, int depth) {
        const auto [number, isNew] = _numbers.emplace(&node, _numbers.size());
        _out << std::string(static_cast<std::size_t>(depth), ' ') << "#" << number->second;
        if (isNew) describeNew(node);
        _out << "\n";
        const osg::Group* group = node.asGroup();
        for (unsigned int i = 0; isNew && group && i < group->getNumChildren(); ++i)
            describe(*group->getChild(i), depth + 1);
    }

    std::string text() const { return _out.str(); }

private:
    void describeNew(const osg::Node& node) {
        _out << " " << node.className() << " '" << node.getName() << "' parents " << node.getNumParents();
        const osg::BoundingSphere& bound = node.getBound();
        _out << " bound ";
        point(bound.center());
        _out << " " << bound.radius();
        if (const auto* lod = dynamic_cast<const osg::LOD*>(&node)) describe(*lod);
        if (const auto* transform = dynamic_cast<const osg::MatrixTransform*>(&node)) describe(transform->getMatrix());
        if (const auto* choice = dynamic_cast<const osg::Switch*>(&node)) describe(*choice);
        if (const osg::Geometry* geometry = node.asGeometry()) describe(*geometry);
    }

    void describe(const osg::LOD& lod) {
        _out << " mode " << lod.getRangeMode() << " centre " << lod.getCenterMode() << " ";
        point(lod.getCenter());
        _out << " radius " << lod.getRadius() << " ranges";
        for (const auto& [near, far] : lod.getRangeList()) _out << " " << near << "-" << far;
    }

    void describe(const osg::Matrixd& matrix) {
        _out << " matrix";
        for (int i = 0; i < 16; ++i) _out << " " << matrix.ptr()[i];
    }

    void describe(const osg::Switch& choice) {
        _out << " values";
        for (unsigned int i = 0; i < choice.getNumChildren(); ++i) _out << " " << choice.getValue(i);
    }

    void describe(const osg::Geometry& geometry) {
        const auto* vertices = dynamic_cast<const osg::Vec3Array*>(geometry.getVertexArray());
        if (!vertices) return;
        _out << " vertices";
        for (const osg::Vec3& vertex : *vertices) {
            _out << " ";
            point(vertex);
        }
    }

    void point(const osg::Vec3d& point) { _out << point.x() << "," << point.y() << "," << point.z(); }

    std::ostringstream _out;
    std::map<const osg::Node*, std::size_t> _numbers;
};

}  // namespace

std::string describeGraph(const osg::Node& root) {
    Description description;
    description.describe(root, 0);
    return description.text();
}

}  // namespace testing_support
