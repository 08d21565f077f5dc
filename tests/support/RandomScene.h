#pragma once

#include "Graphs.h"
#include "LightPoints.h"

#include <osg/Billboard>
#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/PositionAttitudeTransform>
#include <osg/Switch>
#include <osgSim/DOFTransform>

#include <functional>
#include <random>
#include <string>
#include <vector>

namespace testing_support {

/**
 * Graphs of all that can have a place, around some point far from the origin: nested, hidden, switched off and shared
 * as chance has it. The same number gives the same graph.
 */
class RandomScene {
public:
    explicit RandomScene(unsigned int seed) : _random(seed) {
        _base = osg::Vec3d(between(-1e6, 1e6), between(-1e6, 1e6), between(-1e4, 1e4));
        _hasOddities = chance(0.3);
        _hasLights = chance(0.4);
        _hasSharing = chance(0.4);
    }

    osg::ref_ptr<osg::Node> make() {
        const osg::ref_ptr<osg::Group> root = chance(0.8) ? osg::ref_ptr<osg::Group>(new osg::Group) : makeTransform();
        addChildren(*root, 0, root->asTransform() != nullptr);
        return root;
    }

private:
    static constexpr unsigned int deepest = 4;

    double between(double low, double high) { return std::uniform_real_distribution<double>(low, high)(_random); }
    bool chance(double share) { return between(0.0, 1.0) < share; }
    unsigned int upTo(unsigned int last) { return std::uniform_int_distribution<unsigned int>(0, last)(_random); }
    osg::Vec3d somewhere(bool isCarried) {
        const osg::Vec3d around(between(-500, 500), between(-500, 500), between(-50, 50));
        return isCarried && chance(0.7) ? around : _base + around;
    }

    void addChildren(osg::Group& group, unsigned int depth, bool isCarried) {
        for (unsigned int count = 1 + upTo(2); count > 0; --count) {
            std::vector<osg::ref_ptr<osg::Node>>& made = _made[isCarried && !chance(0.05)];
            if (_hasSharing && !made.empty() && chance(0.2)) {
                group.addChild(made[upTo(static_cast<unsigned int>(made.size() - 1))]);
                continue;
            }
            const osg::ref_ptr<osg::Node> child = makeNode(depth + 1, isCarried);
            if (chance(0.05)) child->setNodeMask(0);
            group.addChild(child);
            _made[isCarried].push_back(child);
        }
    }

    osg::ref_ptr<osg::Node> makeNode(unsigned int depth, bool isCarried) {
        if (_hasOddities && chance(0.05)) return makeOddity(isCarried);
        if (_hasLights && chance(0.2)) return makeLights({somewhere(isCarried), somewhere(isCarried)});
        if (depth >= deepest || chance(0.3)) return makeLeaf(isCarried);
        const osg::ref_ptr<osg::Group> group = makeGroup(isCarried);
        addChildren(*group, depth, isCarried || group->asTransform());
        if (auto* lod = dynamic_cast<osg::LOD*>(group.get())) {
            for (unsigned int i = 0; i < lod->getNumChildren(); ++i)
                lod->setRange(i, 100.0f * static_cast<float>(i), 500.0f);
        }
        return group;
    }

    osg::ref_ptr<osg::Group> makeGroup(bool isCarried) {
        switch (upTo(6)) {
            case 0:
                return new osg::Group;
            case 1:
                return new osg::Switch;
            case 2:
                return new osg::Transform;
            case 3:
            case 4:
                return makeTransform();
            default:
                return makeLOD(isCarried);
        }
    }

    osg::ref_ptr<osg::Group> makeTransform() {
        const osg::Quat attitude(between(0, 6), osg::Vec3d(between(-1, 1), between(-1, 1), 1.0));
        const osg::Vec3d scale(between(0.5, 2.0), between(0.5, 2.0), between(-2.0, -0.5));
        if (chance(0.5)) {
            return new osg::MatrixTransform(osg::Matrixd::scale(scale) * osg::Matrixd::rotate(attitude) *
                                            osg::Matrixd::translate(somewhere(false)));
        }
        const osg::ref_ptr<osg::PositionAttitudeTransform> transform = new osg::PositionAttitudeTransform;
        transform->setAttitude(attitude);
        transform->setScale(scale);
        transform->setPosition(somewhere(false));
        if (chance(0.3)) transform->setPivotPoint(somewhere(true));
        return transform;
    }

    osg::ref_ptr<osg::LOD> makeLOD(bool isCarried) {
        const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
        if (chance(0.5)) lod->setCenter(somewhere(isCarried));
        if (chance(0.2)) lod->setCenterMode(osg::LOD::UNION_OF_BOUNDING_SPHERE_AND_USER_DEFINED);
        if (chance(0.5)) lod->setRadius(100.0f);
        return lod;
    }

    osg::ref_ptr<osg::Geometry> makeGeometry(bool isCarried) {
        const osg::ref_ptr<osg::Geometry> geometry = makeSquare(somewhere(isCarried));
        if (chance(0.2)) {
            const auto& single = static_cast<const osg::Vec3Array&>(*geometry->getVertexArray());
            geometry->setVertexArray(new osg::Vec3dArray(single.begin(), single.end()));
        }
        if (_hasSharing && !_arrays[isCarried].empty() && chance(0.1))
            geometry->setVertexArray(_arrays[isCarried].back());
        _arrays[isCarried].emplace_back(geometry->getVertexArray());
        geometry->setName(std::to_string(++_geometries));
        return geometry;
    }

    osg::ref_ptr<osg::Node> makeLeaf(bool isCarried) {
        switch (upTo(5)) {
            case 0:
                return makeGeometry(isCarried);
            case 1: {
                const osg::ref_ptr<osg::Billboard> billboard = new osg::Billboard;
                billboard->addDrawable(makeGeometry(true), somewhere(isCarried));
                billboard->addDrawable(makeGeometry(true), somewhere(isCarried));
                return billboard;
            }
            default: {
                const osg::ref_ptr<osg::Geode> geode = makeGeode(makeGeometry(isCarried));
                if (chance(0.5)) geode->addDrawable(makeGeometry(isCarried));
                if (chance(0.1)) geode->addDrawable(geode->getDrawable(0));
                return geode;
            }
        }
    }

    /** A transform of a kind that does not follow, with something below it. */
    osg::ref_ptr<osg::Node> makeOddity(bool isCarried) {
        osg::ref_ptr<osg::Transform> oddity;
        if (chance(0.5)) {
            const osg::ref_ptr<osgSim::DOFTransform> dof = new osgSim::DOFTransform;
            dof->setCurrentTranslate(osg::Vec3(1, 2, 3));
            oddity = dof;
        } else {
            oddity = makeTransform()->asTransform();
            oddity->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
        }
        oddity->addChild(makeLeaf(isCarried));
        return oddity;
    }

    std::mt19937 _random;
    osg::Vec3d _base;
    bool _hasOddities = false;
    bool _hasLights = false;
    bool _hasSharing = false;
    unsigned int _geometries = 0;
    std::vector<osg::ref_ptr<osg::Node>> _made[2];
    std::vector<osg::ref_ptr<osg::Array>> _arrays[2];
};

}  // namespace testing_support
