// Moves a model that lies far from the origin there, below a transform that puts it back: near the origin vertices,
// which are single-precision numbers, keep the digits that they lose far from it.
//
//     move_origin INPUT OUTPUT.osgt DISTANCE      DISTANCE: what counts as far

#include <sceneutils/BubbleUpTransform.h>

#include <osg/Group>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <cmath>
#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: move_origin INPUT OUTPUT.osgt DISTANCE\n";
        return 1;
    }
    const osg::ref_ptr<osg::Node> model = osgDB::readRefNodeFile(argv[1]);
    if (!model) return 2;

    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(model);
    veltrane::sceneutils::BubbleUpTransform visitor;
    const osg::ref_ptr<osg::Group> placed = visitor.createTransformForGraph(scene, std::atof(argv[3]));

    // The same place in the world, with smaller numbers below the transform.
    const osg::Vec3d world = placed->getBound().center();
    const osg::Vec3d below = scene->getBound().center();
    std::cout << "centre " << std::round(world.length()) << " from the origin, " << std::round(below.length())
              << " below the transform\n";
    return osgDB::writeNodeFile(*placed, argv[2]) ? 0 : 3;
}
