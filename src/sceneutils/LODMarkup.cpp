#include <sceneutils/LODMarkup.h>

#include "LODDrawing.h"
#include "PathMarkup.h"
#include "VisitorSettings.h"

#include <osgDB/WriteFile>

#include <iostream>

namespace veltrane::sceneutils {

namespace {

constexpr const char* chainsFile = "lodmarkup.osg";

/** Apart from the visit, which may go deep: what it needs is gone when the children are visited. */
void mark(osg::LOD& lod, const LODColors& colors) {
    if (lod.getNumParents() == 0) return;
    osg::Group& parent = *lod.getParent(0);
    const osg::ref_ptr<SimpleGeometryGenerator> generator = new SimpleGeometryGenerator;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    drawLOD(lod, colors, *generator);
    group->addChild(generator);
    group->addChild(&lod);
    parent.replaceChild(&lod, group);
}

}  // namespace

LODMarkup::LODMarkup() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

LODMarkup::LODMarkup(const LODMarkup& other) : osg::Object(other), osg::NodeVisitor(other) {}

LODMarkup& LODMarkup::operator=(const LODMarkup& other) {
    copyVisitorSettings(*this, other);
    return *this;
}

LODMarkup::~LODMarkup() = default;

void LODMarkup::process(osg::ref_ptr<osg::Node> node) {
    if (!node) return;
    LODMarkup visitor;
    node->accept(visitor);
}

osg::ref_ptr<osg::Group> LODMarkup::markupPath(osg::Node* node) {
    osg::ref_ptr<osg::Group> result = new osg::Group;
    if (!node) return result;

    LabelFont font;
    const osg::NodePathList paths = node->getParentalNodePaths();
    std::cerr << "num paths = " << paths.size() << "\n";
    for (const osg::NodePath& path : paths) result->addChild(PathMarkup(font).markup(path));
    osgDB::writeNodeFile(*result, chainsFile);
    return result;
}

osg::ref_ptr<osg::Group> LODMarkup::markupPath(std::vector<osg::Node*>& path) {
    LabelFont font;
    return PathMarkup(font).markup(path);
}

void LODMarkup::addToGeometry(osg::LOD* lod, osg::Node* child, SimpleGeometryGenerator* generator) {
    if (!lod || !generator) return;
    const unsigned int level = lod->getChildIndex(child);
    if (level >= lod->getNumChildren()) return;
    LabelFont font;
    drawLODLevel(*lod, level, font, *generator);
}

void LODMarkup::markup(osg::LOD& lod, const osg::Vec4f& first, const osg::Vec4f& second, const osg::Vec4f& third) {
    mark(lod, {first, second, third});
    traverse(lod);
}

void LODMarkup::apply(osg::PagedLOD& lod) {
    markup(lod, pagedLODColors.radius, pagedLODColors.range, pagedLODColors.spokes);
}

void LODMarkup::apply(osg::LOD& lod) {
    markup(lod, plainLODColors.radius, plainLODColors.range, plainLODColors.spokes);
}

}  // namespace veltrane::sceneutils
