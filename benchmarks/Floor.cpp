#include "Floor.h"

#include "StepClock.h"

#include <sceneutils/ShaderGenerator.h>

#include <osg/Image>
#include <osg/Material>
#include <osg/PagedLOD>
#include <osg/ProxyNode>
#include <osg/Texture2D>
#include <osgDB/ObjectCache>
#include <osgDB/ReadFile>
#include <osgDB/Registry>
#include <osgDB/WriteFile>
#include <osgUtil/Optimizer>
#include <osgUtil/SmoothingVisitor>

#include <stdexcept>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::benchmarks {

namespace {

constexpr float maxRangeOfMaster = 10000.0f;
constexpr float rangeShareOfReferencedFiles = 0.25f;
constexpr unsigned int firstOptimization = 111358;
constexpr unsigned int lastOptimization = osgUtil::Optimizer::SHARE_DUPLICATE_STATE;

osg::ref_ptr<osgDB::Options> optionsWith(const std::string& text) {
    osg::ref_ptr<osgDB::Options> options = new osgDB::Options(text);
    options->setObjectCacheHint(osgDB::Options::CACHE_NONE);
    return options;
}

/** The program that a state set with these textures gets. */
osg::ref_ptr<osg::Program> makeProgram(bool isTextured) {
    osg::ref_ptr<osg::Node> node = new osg::Node;
    if (isTextured) node->getOrCreateStateSet()->setTextureAttribute(0, new osg::Texture2D);
    ShaderGenerator::instance()->process(node, false, true, true, true);
    return static_cast<osg::Program*>(node->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM));
}

osg::ref_ptr<osg::Node> read(const std::string& path) {
    osgDB::Registry* registry = osgDB::Registry::instance();
    const osg::ref_ptr<osgDB::ObjectCache> cache = registry->getObjectCache();
    registry->setObjectCache(new osgDB::ObjectCache);
    osg::ref_ptr<osg::Node> node =
        osgDB::readRefNodeFile(path, optionsWith("keepExternalReferences=yes;preserveFace=yes").get());
    registry->setObjectCache(cache);
    if (!node) throw std::runtime_error(path + " cannot be read");
    return node;
}

void whitenBlack(osg::Material& material) {
    constexpr auto face = osg::Material::FRONT_AND_BACK;
    const osg::Vec4 black(0.0f, 0.0f, 0.0f, 1.0f);
    const osg::Vec4 white(1.0f, 1.0f, 1.0f, 1.0f);
    const auto mode = material.getColorMode();
    const bool isOff = mode == osg::Material::OFF;
    if ((isOff || mode == osg::Material::DIFFUSE) && material.getAmbient(face) == black) {
        material.setAmbient(face, white);
    }
    if ((isOff || mode == osg::Material::AMBIENT) && material.getDiffuse(face) == black) {
        material.setDiffuse(face, white);
    }
}

osg::Texture* textureOf(osg::StateSet& stateSet) {
    return static_cast<osg::Texture*>(stateSet.getTextureAttribute(0, osg::StateAttribute::TEXTURE));
}

/** Sets the filters, and has texture atlases, which exist only in memory, written into the file. */
void setFilters(osg::Node& node) {
    osg::Texture* texture = node.getStateSet() ? textureOf(*node.getStateSet()) : nullptr;
    if (texture) {
        texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR_MIPMAP_LINEAR);
        osg::Image* image = texture->getImage(0);
        if (image && image->getFileName().rfind("atlas_", 0) == 0) image->setWriteHint(osg::Image::STORE_INLINE);
    }
    osg::Group* group = node.asGroup();
    for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) setFilters(*group->getChild(i));
}

void smooth(osg::Node& node) {
    osgUtil::SmoothingVisitor smoother;
    node.accept(smoother);
}

}  // namespace

Floor::Floor() : _program(makeProgram(false)), _texturingProgram(makeProgram(true)) {}

void Floor::convert(const fs::path& master) {
    convertFile(master.string(), maxRangeOfMaster, true);
}

osg::BoundingSphere Floor::convertFile(const std::string& path, float maxRange, bool isSmoothed) {
    const osg::ref_ptr<osg::Node> node = read(path);
    convertReferences(*node->asGroup(), path.substr(0, path.rfind('/') + 1), maxRange);

    osgUtil::Optimizer().optimize(node.get(), firstOptimization);
    if (isSmoothed) {
        const ScopedStep timed(Step::Smoothing);
        smooth(*node);
    }
    {
        const ScopedStep timed(Step::Shading);
        node->getOrCreateStateSet();
        addPrograms(*node, false);
    }
    {
        const ScopedStep timed(Step::Filtering);
        setFilters(*node);
    }
    osgUtil::Optimizer().optimize(node.get(), lastOptimization);
    osgDB::writeNodeFile(*node, path.substr(0, path.size() - 4) + ".ive", optionsWith(";noTexturesInIVEFile").get());
    return node->getBound();
}

void Floor::convertReferences(osg::Group& group, const std::string& folder, float maxRange) {
    for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
        const osg::ref_ptr<osg::ProxyNode> proxy = dynamic_cast<osg::ProxyNode*>(group.getChild(i));
        if (!proxy) {
            if (osg::Group* child = group.getChild(i)->asGroup()) convertReferences(*child, folder, maxRange);
            continue;
        }

        const std::string name = proxy->getFileName(0);
        const std::string path = fs::path(folder + name).lexically_normal().string();
        auto sphere = _spheres.find(path);
        if (sphere == _spheres.end()) {
            const osg::BoundingSphere bound = convertFile(path, maxRange * rangeShareOfReferencedFiles, false);
            sphere = _spheres.emplace(path, bound).first;
        }

        const std::string convertedName = name.substr(0, name.size() - 4) + ".ive";
        osg::ref_ptr<osg::PagedLOD> plod = new osg::PagedLOD;
        plod->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
        plod->setCenter(sphere->second.center());
        plod->setRadius(sphere->second.radius());
        plod->setFileName(0, convertedName);
        proxy->setFileName(0, convertedName);
        group.setChild(i, plod);
        plod->addChild(proxy, 0.0f, sphere->second.radius() + maxRange);
    }
}

void Floor::addPrograms(osg::Node& node, bool isTextured) {
    if (osg::StateSet* stateSet = node.getStateSet()) {
        isTextured = isTextured || textureOf(*stateSet);
        addProgram(*stateSet, isTextured);
    }
    osg::Group* group = node.asGroup();
    for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) addPrograms(*group->getChild(i), isTextured);
}

void Floor::addProgram(osg::StateSet& stateSet, bool isTextured) {
    auto* material = static_cast<osg::Material*>(stateSet.getAttribute(osg::StateAttribute::MATERIAL));
    if (material) whitenBlack(*material);

    osg::Program* program = isTextured ? _texturingProgram : _program;
    if (stateSet.getAttribute(osg::StateAttribute::PROGRAM) == program) return;
    if (isTextured) stateSet.addUniform(new osg::Uniform("BaseTexture0", 0), osg::StateAttribute::ON);
    stateSet.setAttribute(program);
}

}  // namespace veltrane::sceneutils::benchmarks
