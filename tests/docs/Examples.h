#pragma once

#include <sceneutils/SimpleGeometryGenerator.h>

#include <osg/BoundingBox>
#include <osg/Group>
#include <osg/Program>

#include <set>
#include <string>

// The examples of the tools' pages, in the order of the pages.
void addTown(osg::Group* world, osg::Group* town);
float heightOf(osg::Node& model);
bool writeForDds(osg::Node* model, const std::string& file);
osg::ref_ptr<osg::Node> convertWorld();
void hideWheels(osg::Node* model);
void prepare(osg::Node* model);
void useMipmaps(osg::Node* model);
osg::ref_ptr<osg::Group> makeVisible(osg::Node* scene, osg::Node* roof);
void flattenNearTransforms(osg::Node* model);
osg::ref_ptr<osg::Group> loadVillage(const std::string& file);
void makeCheapToDraw(osg::Group* town);
void keepDoorsAndWindowsOnly(osg::Node* model);
osg::ref_ptr<osg::Program> shadeWater(osg::Node* lake);
void shadeWaterAgain(const osg::ref_ptr<osg::Program>& water);
void shadeHouse(osg::Node* house, osg::Group* town);
osg::ref_ptr<veltrane::sceneutils::SimpleGeometryGenerator> showView(const osg::BoundingBox& box,
                                                                     const osg::Vec3f& eye);
void drawLate(osg::Node* model);
std::set<std::string> imagesOf(osg::Node* model);
osg::Vec3d placeOf(osg::Group* turret, osg::Node* world);
