// Draws boxes where the levels of detail of a graph switch, to be looked at in a viewer.
//
//     mark_lods INPUT OUTPUT.osgt

#include <sceneutils/LODMarkup.h>

#include <osg/Group>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: mark_lods INPUT OUTPUT.osgt\n";
        return 1;
    }
    const osg::ref_ptr<osg::Node> model = osgDB::readRefNodeFile(argv[1]);
    if (!model) return 2;

    // An LOD is marked by a group that takes its place below its parent; so the root needs one, too.
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(model);
    veltrane::sceneutils::LODMarkup::process(scene);

    if (!osgDB::writeNodeFile(*scene, argv[2])) return 3;
    std::cout << argv[2] << " shows where " << argv[1] << " switches\n";
    return 0;
}
