// Rebuilds static scenery to be drawn in fewer batches, and counts the drawables before and after.
//
//     optimise_model INPUT OUTPUT.osgt

#include <sceneutils/OptimizeBatches.h>

#include <osg/Group>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>
#include <osgUtil/Statistics>

#include <iostream>

namespace {

unsigned int countDrawables(osg::Node& node) {
    osgUtil::StatsVisitor statistics;
    node.accept(statistics);
    return statistics._numInstancedDrawable;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: optimise_model INPUT OUTPUT.osgt\n";
        return 1;
    }
    const osg::ref_ptr<osg::Node> model = osgDB::readRefNodeFile(argv[1]);
    if (!model) return 2;

    // The model's root may be replaced, so a group above it is held.
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(model);
    const unsigned int before = countDrawables(*scene);

    veltrane::sceneutils::OptimizeBatches optimizer;
    optimizer.setUnspatializeRadius(200.0);  // groups smaller than this are dissolved
    optimizer.process(scene);

    std::cout << before << " drawables before, " << countDrawables(*scene) << " after\n";
    return osgDB::writeNodeFile(*scene, argv[2]) ? 0 : 3;
}
