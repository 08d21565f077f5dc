#pragma once

#include "support/FlightModels.h"
#include "support/TexturedModels.h"

#include <osg/LOD>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/Sequence>
#include <osg/Switch>
#include <osgSim/DOFTransform>
#include <osgSim/LightPointNode>
#include <osgSim/MultiSwitch>

#include <string>
#include <vector>

namespace testing_support {

/** A grid of triangles that share vertices, with a normal and a color each. */
inline osg::ref_ptr<osg::Geode> makeGrid(int cells) {
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array;
    osg::ref_ptr<osg::DrawElementsUShort> triangles = new osg::DrawElementsUShort(GL_TRIANGLES);
    for (int i = 0; i <= cells; ++i) {
        for (int j = 0; j <= cells; ++j) {
            vertices->push_back(osg::Vec3(static_cast<float>(i), static_cast<float>(j), static_cast<float>(i * j % 3)));
            normals->push_back(osg::Vec3(0, 0, 1));
            colors->push_back(osg::Vec4(1, static_cast<float>(i) / static_cast<float>(cells), 0.5f, 1));
            if (i == cells || j == cells) continue;
            const int corner = i * (cells + 1) + j;
            for (const int index :
                 {corner, corner + 1, corner + cells + 2, corner, corner + cells + 2, corner + cells + 1})
                triangles->push_back(static_cast<GLushort>(index));
        }
    }
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(vertices);
    geometry->setNormalArray(normals, osg::Array::BIND_PER_VERTEX);
    geometry->setColorArray(colors, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(triangles);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    return geode;
}

/** Strips and fans, which the writer stores as meshes. */
inline osg::ref_ptr<osg::Geode> makeMesh() {
    osg::ref_ptr<osg::Geode> geode = makeGrid(3);
    osg::Geometry& geometry = *geode->getDrawable(0)->asGeometry();
    geometry.removePrimitiveSet(0, geometry.getNumPrimitiveSets());
    geometry.addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLE_STRIP, 0, 8));
    geometry.addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLE_FAN, 8, 8));
    return geode;
}

inline osg::ref_ptr<osg::Node> makeLightPoints() {
    osg::ref_ptr<osgSim::LightPointNode> lights = new osgSim::LightPointNode;
    for (int i = 0; i < 3; ++i) {
        lights->addLightPoint(osgSim::LightPoint(true, osg::Vec3(static_cast<float>(i), 0, 1), osg::Vec4(1, 1, 0, 1)));
    }
    return lights;
}

/** One model of every kind of record that OSG's OpenFlight writer knows, between references to those files. */
inline osg::ref_ptr<osg::Group> makeRichModel(const std::vector<std::string>& references) {
    osg::ref_ptr<osg::Group> root = makeModel(20, references);

    osg::ref_ptr<osg::LOD> lod = new osg::LOD;
    lod->addChild(makeGrid(4), 0.0f, 500.0f);
    lod->addChild(makeMesh(), 500.0f, 1000.0f);
    root->addChild(lod);

    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(osg::Matrix::translate(10, 20, 30));
    transform->addChild(makeTextured("a.png"));
    transform->addChild(makeTextured("b.png", 1.0f));
    transform->addDescription("LOD_Transition_Range 500");
    root->addChild(transform);

    osg::ref_ptr<osg::Switch> choice = new osg::Switch;
    choice->addChild(makeTextured("a.png", 1.0f), true);
    choice->addChild(makeGround(3), false);
    root->addChild(choice);

    osg::ref_ptr<osgSim::MultiSwitch> choices = new osgSim::MultiSwitch;
    choices->addChild(makeGround(4));
    choices->setSwitchSetList({{true}, {false}});
    root->addChild(choices);

    osg::ref_ptr<osg::Sequence> sequence = new osg::Sequence;
    sequence->addChild(makeGround(5), 1.0);
    sequence->addChild(makeGround(6), 1.0);
    root->addChild(sequence);

    osg::ref_ptr<osgSim::DOFTransform> joint = new osgSim::DOFTransform;
    joint->addChild(makeGround(7));
    root->addChild(joint);

    osg::ref_ptr<osg::Node> painted = makeGround(8);
    osg::ref_ptr<osg::Material> material = new osg::Material;
    material->setDiffuse(osg::Material::FRONT_AND_BACK, osg::Vec4(1, 0.5f, 0.25f, 0.5f));
    painted->getOrCreateStateSet()->setAttribute(material);
    root->addChild(painted);

    root->addChild(makeLightPoints());
    return root;
}

}  // namespace testing_support
