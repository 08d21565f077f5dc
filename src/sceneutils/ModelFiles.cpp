#include <sceneutils/SceneUtils.h>

#include "HeldNode.h"
#include "OsgFormat.h"

#include <sceneutils/FindNodeVisitor.h>

#include <osgDB/ReadFile>
#include <osgDB/Registry>

namespace veltrane::sceneutils {

namespace {

constexpr const char* rockFile = "rock.osg";
const osg::Vec3d rockPosition(46.406150817871094, 15.0, 6.0);

bool isEmpty(const char* text) {
    return !text || *text == '\0';
}

osg::Node* findFirst(osg::Group& root, const char* name) {
    FindNodeVisitor finder(name);
    root.accept(finder);
    return finder.getFirst();
}

}  // namespace

osg::PositionAttitudeTransform* addRock() {
    osg::ref_ptr<osg::PositionAttitudeTransform> place = new osg::PositionAttitudeTransform;
    if (const osg::ref_ptr<osg::Node> rock = osgDB::readRefNodeFile(rockFile)) place->addChild(rock);
    place->setPosition(rockPosition);
    return place.release();
}

void exportNode(osg::Group* root, const char* name, const char* fileBase) {
    if (!root || !fileBase) return;

    const HeldNode held(root);
    const osg::ref_ptr<osg::Node> node = isEmpty(name) ? root : findFirst(*root, name);
    if (!node || !isWritableAsOsg(*node)) return;
    osgDB::Registry::instance()->writeNode(*node, std::string(fileBase) + ".osg", nullptr);
}

}  // namespace veltrane::sceneutils
