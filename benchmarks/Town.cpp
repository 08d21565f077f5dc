#include "Town.h"

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LOD>
#include <osg/MatrixTransform>

namespace veltrane::sceneutils::benchmarks {

namespace {

constexpr int modelsPerBlock = 10;
constexpr int blocksPerQuarter = 10;
constexpr int blocksPerRow = 100;
constexpr float blockSize = 100.0f;
constexpr int distinctStates = 3;

using Node = osg::ref_ptr<osg::Node>;
using Group = osg::ref_ptr<osg::Group>;

}  // namespace

TownBuilder::TownBuilder() {
    for (int i = 0; i < distinctStates; ++i) {
        _states.push_back(new osg::StateSet);
        _states.back()->setMode(GL_LIGHT0 + static_cast<unsigned int>(i), osg::StateAttribute::ON);
    }
}

Node TownBuilder::makeModel(int index) const {
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    const int block = index / modelsPerBlock;
    const osg::Vec3 corner(blockSize * static_cast<float>(block % blocksPerRow),
                           blockSize * static_cast<float>(block / blocksPerRow), 0.0f);
    geode->addDrawable(osg::createTexturedQuadGeometry(corner, osg::Vec3(10, 0, 0), osg::Vec3(0, 10, 0)));
    geode->setStateSet(_states[static_cast<std::size_t>(index % distinctStates)]);
    geode->setName("model");
    return geode;
}

/** Ten drawables: two levels of detail of a tree, one house under a transform, one seen always, six others. */
Group TownBuilder::makeBlock(int first) const {
    const Group block = new osg::Group;
    const osg::ref_ptr<osg::LOD> tree = new osg::LOD, always = new osg::LOD;
    tree->addChild(makeModel(first), 0.0f, 100.0f);
    tree->addChild(makeModel(first + 1), 100.0f, 1000.0f);
    always->addChild(makeModel(first + 2), 0.0f, 20000.0f);
    block->addChild(tree);
    block->addChild(always);
    block->addChild(makeTransform(makeModel(first + 3)));
    for (int i = 4; i < modelsPerBlock; ++i) block->addChild(makeModel(first + i));
    return block;
}

Group TownBuilder::makeTown(int drawables) const {
    const Group town = new osg::Group;
    Group quarter;
    for (int block = 0; block < drawables / modelsPerBlock; ++block) {
        if (block % blocksPerQuarter == 0) {
            quarter = new osg::Group;
            town->addChild(quarter);
        }
        quarter->addChild(makeBlock(block * modelsPerBlock));
    }
    return town;
}

Group TownBuilder::makeTransform(const Node& child) {
    const osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(osg::Matrixd::translate(20, 0, 0));
    transform->setDataVariance(osg::Object::STATIC);
    transform->addChild(child);
    return transform;
}

}  // namespace veltrane::sceneutils::benchmarks
