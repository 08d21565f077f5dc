#pragma once

#include <osg/Billboard>
#include <osg/Geometry>
#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/PositionAttitudeTransform>
#include <osg/Vec3d>
#include <osgSim/LightPointNode>

#include <string>
#include <vector>

namespace testing_support {

/** Something that a graph shows somewhere. */
struct WorldPlace {
    std::string what;
    osg::Vec3d place;
};

/**
 * Where everything of a graph is, once for each path, in depth-first order; computed with as little of OpenSceneGraph's
 * own arithmetic as possible: points are carried upwards, one transform after the other.
 */
class WorldPlaces {
public:
    explicit WorldPlaces(osg::Node& root) { visit(root); }

    const std::vector<WorldPlace>& list() const { return _places; }

private:
    void visit(osg::Node& node) {
        _path.push_back(&node);
        if (osg::Geometry* geometry = node.asGeometry()) addVertices(*geometry);
        if (auto* lights = dynamic_cast<osgSim::LightPointNode*>(&node))
            for (const osgSim::LightPoint& light : lights->getLightPointList()) add("light", light._position);
        if (auto* billboard = dynamic_cast<osg::Billboard*>(&node))
            for (const osg::Vec3& position : billboard->getPositionList()) add("billboard", position);
        if (auto* lod = dynamic_cast<osg::LOD*>(&node)) addLOD(*lod);
        if (osg::Group* group = node.asGroup())
            for (unsigned int i = 0; i < group->getNumChildren(); ++i) visit(*group->getChild(i));
        _path.pop_back();
    }

    void addVertices(const osg::Geometry& geometry) {
        const std::string what = "vertex of " + geometry.getName();
        const bool isOfBillboard = _path.size() > 1 && dynamic_cast<osg::Billboard*>(_path[_path.size() - 2]);
        const auto addOne = [&](const osg::Vec3d& vertex) {
            if (isOfBillboard) {
                _places.push_back({what + ", seen from its billboard", vertex});
            } else {
                add(what, vertex);
            }
        };
        if (auto* single = dynamic_cast<const osg::Vec3Array*>(geometry.getVertexArray()))
            for (const osg::Vec3& vertex : *single) addOne(vertex);
        if (auto* exact = dynamic_cast<const osg::Vec3dArray*>(geometry.getVertexArray()))
            for (const osg::Vec3d& vertex : *exact) addOne(vertex);
    }

    void addLOD(const osg::LOD& lod) {
        add("centre of an LOD", lod.getCenter());
        for (unsigned int i = 0; i < lod.getNumRanges(); ++i)
            _places.push_back({"range of an LOD", osg::Vec3d(lod.getMinRange(i), lod.getMaxRange(i), 0.0)});
    }

    void add(const std::string& what, osg::Vec3d point) {
        for (auto node = _path.rbegin(); node != _path.rend(); ++node) {
            if (*node == _path.back()) continue;  // its own matrix is for its children
            auto* transform = (*node)->asTransform();
            if (!transform) continue;
            point = carriedUp(*transform, point);
            if (transform->getReferenceFrame() != osg::Transform::RELATIVE_RF) break;
        }
        _places.push_back({what, point});
    }

    static osg::Vec3d carriedUp(const osg::Transform& transform, const osg::Vec3d& point) {
        if (const auto* pat = transform.asPositionAttitudeTransform()) {
            const osg::Vec3d scaled = osg::componentMultiply(point - pat->getPivotPoint(), pat->getScale());
            return pat->getAttitude() * scaled + pat->getPosition();
        }
        if (const auto* matrixTransform = transform.asMatrixTransform()) {
            const osg::Matrixd& m = matrixTransform->getMatrix();
            osg::Vec3d up;
            for (int i = 0; i < 3; ++i)
                up[i] = point.x() * m(0, i) + point.y() * m(1, i) + point.z() * m(2, i) + m(3, i);
            return up;
        }
        osg::Matrixd matrix;
        transform.computeLocalToWorldMatrix(matrix, nullptr);
        return matrix.preMult(point);
    }

    std::vector<osg::Node*> _path;
    std::vector<WorldPlace> _places;
};

}  // namespace testing_support
