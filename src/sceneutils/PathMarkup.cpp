#include "PathMarkup.h"

#include "HeldNode.h"
#include "OsgFormat.h"

#include <sceneutils/ShaderGenerator.h>

#include <osg/Camera>
#include <osg/PagedLOD>
#include <osg/UserDataContainer>
#include <osg/ValueObject>
#include <osgDB/WriteFile>

#include <iostream>
#include <string>

namespace veltrane::sceneutils {

namespace {

constexpr const char* pagedChildFile = "pagedlod.osg";
constexpr const char* geodeFile = "geode.osg";
constexpr double boxInset = 0.5;

const osg::Vec4f orange(1.0f, 0.5f, 0.0f, 1.0f);

void write(osg::Node& node, const char* file) {
    if (isWritableAsOsg(node)) osgDB::writeNodeFile(node, file);
}

std::string nameOr(const osg::Node& node, const std::string& replacement) {
    return node.getName().empty() ? replacement : node.getName();
}

std::string fileNameOf(const osg::PagedLOD& lod, unsigned int number) {
    return number < lod.getNumFileNames() ? lod.getFileName(number) : std::string();
}

void describeParents(const osg::Node& node) {
    std::cerr << ", parents " << node.getNumParents() << "\n";
}

void describeChildren(const osg::Group& group) {
    std::cerr << ", " << group.getNumChildren() << " children, bound radius=" << group.getBound().radius();
    describeParents(group);
}

void describeNode(const osg::Node& node) {
    std::cerr << node.className() << " " << node.getName();
    if (const osg::Group* group = node.asGroup()) {
        describeChildren(*group);
    } else {
        describeParents(node);
    }
}

void describeLOD(const osg::LOD& lod, unsigned int level, const std::string& fileName) {
    const bool hasRange = level < lod.getNumRanges();
    std::cerr << lod.className() << " " << lod.getName() << " " << fileName << " "
              << (hasRange ? lod.getMinRange(level) : 0.0f) << "..." << (hasRange ? lod.getMaxRange(level) : 0.0f);
    describeChildren(lod);
}

template <typename ValueObject>
void describeValue(const osg::Object& object) {
    if (const auto* holder = dynamic_cast<const ValueObject*>(&object)) std::cerr << holder->getValue() << "\n";
}

/** The values of other kinds stay untold, and their lines are left open. */
void describeUserObject(const osg::Object& object) {
    const std::string kind = object.className();
    std::cerr << "   " << object.getName() << " (" << kind << ") = ";
    if (kind == "ShortValueObject") describeValue<osg::ShortValueObject>(object);
    if (kind == "IntValueObject") describeValue<osg::IntValueObject>(object);
    if (kind == "FloatValueObject") describeValue<osg::FloatValueObject>(object);
    if (kind == "BoolValueObject") describeValue<osg::BoolValueObject>(object);
}

void describeGeode(const osg::Geode& geode) {
    std::cerr << "Geode  " << geode.getName() << ", " << geode.getNumDrawables() << " drawables ";
    describeParents(geode);
    const osg::UserDataContainer* userData = geode.getUserDataContainer();
    if (!userData) return;
    for (unsigned int i = 0; i < userData->getNumUserObjects(); ++i) {
        if (const osg::Object* object = userData->getUserObject(i)) describeUserObject(*object);
    }
}

/** A transform without children, with a state set of its own: that of the scene is not to get the chain's programs. */
osg::ref_ptr<osg::Group> copyOf(const osg::Transform& transform) {
    const osg::ref_ptr<osg::Object> clone = transform.clone(osg::CopyOp());
    const osg::ref_ptr<osg::Group> copy = dynamic_cast<osg::Group*>(clone.get());
    if (!copy) return new osg::Group;
    copy->removeChildren(0, copy->getNumChildren());
    if (const osg::StateSet* state = transform.getStateSet()) copy->setStateSet(new osg::StateSet(*state));
    return copy;
}

osg::BoundingBox boxAround(const osg::Geode& geode) {
    const osg::BoundingSphere& bound = geode.getBound();
    const auto half = static_cast<float>(static_cast<double>(bound.radius()) - boxInset);
    const osg::Vec3f diagonal(half, half, half);
    return {bound.center() - diagonal, bound.center() + diagonal};
}

}  // namespace

osg::ref_ptr<osg::Group> PathMarkup::markup(const osg::NodePath& path) {
    const osg::ref_ptr<osg::Group> result = new osg::Group;
    result->getOrCreateStateSet()->setMode(GL_CULL_FACE, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
    _current = result;
    std::cerr << "PATH-----\n";
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i]) add(*path[i], i + 1 < path.size() ? path[i + 1] : nullptr);
    }
    return result;
}

void PathMarkup::add(osg::Node& node, osg::Node* next) {
    if (dynamic_cast<const osg::Camera*>(&node)) return;

    const HeldNode held(&node);
    if (osg::Transform* transform = node.asTransform()) return addTransform(*transform);
    if (auto* lod = dynamic_cast<osg::LOD*>(&node)) {
        const unsigned int level = lod->getChildIndex(next);
        if (level < lod->getNumChildren()) return addLOD(*lod, level);
    }
    if (osg::Geode* geode = node.asGeode()) return addGeode(*geode);
    describeNode(node);
}

void PathMarkup::addTransform(osg::Transform& transform) {
    std::cerr << "Transform " << transform.getName();
    describeChildren(transform);
    const osg::ref_ptr<osg::Group> copy = copyOf(transform);
    copy->setName(nameOr(transform, "no name Transform"));
    descendTo(*copy);
}

void PathMarkup::addLOD(osg::LOD& lod, unsigned int level) {
    const auto* paged = dynamic_cast<const osg::PagedLOD*>(&lod);
    if (paged) write(*lod.getChild(level), pagedChildFile);
    describeLOD(lod, level, paged ? fileNameOf(*paged, level) : std::string());

    const osg::ref_ptr<SimpleGeometryGenerator> generator = new SimpleGeometryGenerator;
    generator->setName(nameOr(lod, "no name LOD"));
    if (paged) generator->addDescription(fileNameOf(*paged, 0));
    drawLODLevel(lod, level, _font, *generator);
    descendTo(*generator);
}

void PathMarkup::addGeode(osg::Geode& geode) {
    describeGeode(geode);
    const osg::ref_ptr<SimpleGeometryGenerator> generator = new SimpleGeometryGenerator;
    generator->setName(geode.getName());
    generator->addBoundingBox(boxAround(geode), orange);
    _current->addChild(generator);

    const osg::ref_ptr<osg::Group> both = new osg::Group;
    both->addChild(_current);
    both->addChild(&geode);
    ShaderGenerator::instance()->process(both, false, false, true, true);
    write(geode, geodeFile);
    _current = generator;
}

void PathMarkup::descendTo(osg::Group& group) {
    _current->addChild(&group);
    _current = &group;
}

}  // namespace veltrane::sceneutils
