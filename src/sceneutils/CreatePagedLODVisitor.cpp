#include <sceneutils/CreatePagedLODVisitor.h>

#include "VisitorSettings.h"

#include <sceneutils/ForceTextureFilter.h>
#include <sceneutils/ShaderGenerator.h>
#include <sceneutils/TextureVisitor.h>

#include <osg/Image>
#include <osgDB/FileNameUtils>
#include <osgDB/FileUtils>
#include <osgDB/ObjectCache>
#include <osgDB/Options>
#include <osgDB/ReadFile>
#include <osgDB/Registry>
#include <osgDB/WriteFile>
#include <osgUtil/Optimizer>
#include <osgUtil/SmoothingVisitor>

#include <filesystem>
#include <iostream>
#include <set>
#include <system_error>
#include <vector>

namespace veltrane::sceneutils {

namespace {

constexpr float defaultMaxRange = 10000.0f;
constexpr double rangeShareOfReferencedFiles = 0.25;

constexpr const char* modelExtension = ".flt";
constexpr const char* pagedExtension = ".ive";
constexpr const char* keepReferencesOption = "keepExternalReferences=yes";
constexpr const char* keepFacesOption = ";preserveFace=yes";
constexpr const char* nameTexturesOnlyOption = ";noTexturesInIVEFile";

constexpr unsigned int firstOptimization =
    osgUtil::Optimizer::REMOVE_REDUNDANT_NODES | osgUtil::Optimizer::REMOVE_LOADED_PROXY_NODES |
    osgUtil::Optimizer::COMBINE_ADJACENT_LODS | osgUtil::Optimizer::SHARE_DUPLICATE_STATE |
    osgUtil::Optimizer::MERGE_GEOMETRY | osgUtil::Optimizer::CHECK_GEOMETRY | osgUtil::Optimizer::MAKE_FAST_GEOMETRY |
    osgUtil::Optimizer::COPY_SHARED_NODES | osgUtil::Optimizer::OPTIMIZE_TEXTURE_SETTINGS |
    osgUtil::Optimizer::MERGE_GEODES | osgUtil::Optimizer::TEXTURE_ATLAS_BUILDER |
    osgUtil::Optimizer::STATIC_OBJECT_DETECTION;
static_assert(firstOptimization == 111358);

constexpr unsigned int lastOptimization = osgUtil::Optimizer::SHARE_DUPLICATE_STATE;

/**
 * Lets the registry start with an empty object cache for the length of a scope. The OpenFlight reader puts every model
 * and texture there, whatever the cache hint says: kept, no file would ever be freed, a second conversion would get the
 * graph that the first one changed, and files would share textures whose settings the optimiser changes.
 */
class FreshObjectCache {
public:
    FreshObjectCache() : _own(osgDB::Registry::instance()->getObjectCache()) {
        osgDB::Registry::instance()->setObjectCache(new osgDB::ObjectCache);
    }
    ~FreshObjectCache() { osgDB::Registry::instance()->setObjectCache(_own.get()); }
    FreshObjectCache(const FreshObjectCache&) = delete;
    FreshObjectCache& operator=(const FreshObjectCache&) = delete;

private:
    osg::ref_ptr<osgDB::ObjectCache> _own;
};

class ImageCollector : public TextureVisitor {
public:
    using TextureVisitor::apply;

    void apply(osg::Texture& texture) override {
        for (unsigned int i = 0; i < texture.getNumImages(); ++i) {
            if (osg::Image* image = texture.getImage(i)) images.insert(image);
        }
    }

    std::set<osg::ref_ptr<osg::Image>> images;
};

std::set<osg::ref_ptr<osg::Image>> collectImages(osg::Node& node) {
    ImageCollector collector;
    node.accept(collector);
    return std::move(collector.images);
}

osg::ref_ptr<osgDB::Options> uncached() {
    osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    options->setObjectCacheHint(osgDB::Options::CACHE_NONE);
    return options;
}

std::string directoryOf(const std::string& path) {
    const std::string::size_type separator = path.find_last_of("/\\");
    return separator == std::string::npos ? std::string() : path.substr(0, separator + 1);
}

/** Whether the node hangs below the other one, with nothing or with anything between them. */
bool hangsBelow(const osg::Node& node, const osg::Node& above) {
    std::set<const osg::Node*> known;
    std::vector<const osg::Node*> toClimb{&node};
    while (!toClimb.empty()) {
        const osg::Node* below = toClimb.back();
        toClimb.pop_back();
        for (const osg::Group* parent : below->getParents()) {
            if (parent == &above) return true;
            if (known.insert(parent).second) toClimb.push_back(parent);
        }
    }
    return false;
}

// What identifies a file that convert() is asked for, whichever way leads to it.
std::string identityOf(const std::string& path) {
    const std::string found = osgDB::findDataFile(directoryOf(path) + path);
    if (!found.empty()) return osgDB::getRealPath(found);

    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    return error ? path : absolute.lexically_normal().string();
}

}  // namespace

CreatePagedLODVisitor::CreatePagedLODVisitor(CreatePagedLODVisitor* parentVisitor)
    : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), maxRange(defaultMaxRange), parent(parentVisitor) {}

CreatePagedLODVisitor::CreatePagedLODVisitor(const CreatePagedLODVisitor& other)
    : osg::Object(other), osg::NodeVisitor(other), maxRange(other.maxRange), parent(other.parent) {
    *this = other;
}

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): each member may be assigned to itself
CreatePagedLODVisitor& CreatePagedLODVisitor::operator=(const CreatePagedLODVisitor& other) {
    copyVisitorSettings(*this, other);
    spare = other.spare;
    boundingSphereCache = other.boundingSphereCache;
    convertExRefsToIVE = other.convertExRefsToIVE;
    embedExRefs = other.embedExRefs;
    embedExRefsOfExRefs = other.embedExRefsOfExRefs;
    maxRange = other.maxRange;
    recurse = other.recurse;
    doSmooth = other.doSmooth;
    doOptimize = other.doOptimize;
    doForceTextureFilter = other.doForceTextureFilter;
    parent = other.parent;
    pendingPagedLODs = other.pendingPagedLODs;
    directory = other.directory;
    errorFiles = other.errorFiles;
    // Not activeFile: a copy is in the middle of nothing.
    return *this;
}

CreatePagedLODVisitor::~CreatePagedLODVisitor() = default;

void CreatePagedLODVisitor::setRecurse(bool shallRecurse) {
    recurse = shallRecurse;
    if (recurse) convertExRefsToIVE = true;
}

void CreatePagedLODVisitor::setConvertExRefsToIVE(bool convert) {
    if (!recurse) {
        convertExRefsToIVE = convert;
    } else if (!convert) {
        std::cerr << "Cannot set convertExRefsToIVE to false if recurse is true\n";
    }
}

void CreatePagedLODVisitor::setMaxRange(float range) {
    maxRange = range;
}

void CreatePagedLODVisitor::setDoSmooth(bool smooth) {
    doSmooth = smooth;
}

void CreatePagedLODVisitor::setEmbedExRefs(bool embed) {
    embedExRefs = embed;
}

void CreatePagedLODVisitor::setEmbedExRefsOfExRefs(bool embed) {
    embedExRefsOfExRefs = embed;
}

osg::ref_ptr<osg::Node> CreatePagedLODVisitor::convert(std::string input, std::string output) {
    directory = directoryOf(input);
    const std::string fileName = input.substr(directory.size());

    std::cerr << "Converting " + fileName + "\n";
    const osg::ref_ptr<osg::Node> node = readNode(directory + fileName);
    if (node) {
        activeFile = {identityOf(input), node.get()};
        node->accept(*this);
        activeFile = {};
        InsertPagedLODs();
        saveIVE(node, output);
    } else {
        reportErrorFile(directory + fileName);
    }
    std::cerr << "done convert\n";
    return node;
}

// The directory is put in front here as well, although convert() already did so. For a bare file name both are empty;
// for a longer path it is osgDB's search, or the application's callback, that makes sense of the doubled one.
osg::ref_ptr<osg::Node> CreatePagedLODVisitor::readNode(const std::string& name) {
    osg::ref_ptr<osgDB::Options> options = uncached();
    options->setOptionString(keepReferencesOption);
    options->setOptionString(options->getOptionString() + keepFacesOption);

    const FreshObjectCache freshCache;
    try {
        return osgDB::readRefNodeFile(directory + name, options.get());
    } catch (...) {  // the reader throws on some damaged files
        return nullptr;
    }
}

void CreatePagedLODVisitor::apply(osg::ProxyNode& proxy) {
    const std::string fileName = proxy.getNumFileNames() > 0 ? proxy.getFileName(0) : std::string();
    const std::string::size_type extension = fileName.find(modelExtension);
    if (extension != std::string::npos) {
        std::string newFileName = fileName;
        if (convertExRefsToIVE) {
            newFileName = fileName.substr(0, extension) + pagedExtension;
            proxy.setFileName(0, newFileName);
        }

        osg::BoundingSphere bs;
        if (getBoundingSphere(fileName, bs)) {
            addProxyToPagedLOD(proxy, new osg::PagedLOD, bs, newFileName);
        } else if (const osg::ref_ptr<osg::Node> model = readProxyNodeFile(directory, fileName, newFileName)) {
            bs = model->getBound();
            addProxyToPagedLOD(proxy, new osg::PagedLOD, bs, newFileName);
            saveBoundingSphere(fileName, bs);
        }
    }
    osg::NodeVisitor::apply(proxy);
}

bool CreatePagedLODVisitor::getBoundingSphere(const std::string& fileName, osg::BoundingSphere& bs) {
    const CreatePagedLODVisitor* topmost = this;
    while (topmost->parent) topmost = topmost->parent;

    const auto known = topmost->boundingSphereCache.find(fileName);
    if (known == topmost->boundingSphereCache.end()) return false;
    bs = known->second;
    return true;
}

void CreatePagedLODVisitor::saveBoundingSphere(const std::string& fileName, const osg::BoundingSphere& bs) {
    if (parent) parent->saveBoundingSphere(fileName, bs);
    boundingSphereCache[fileName] = bs;
}

osg::ref_ptr<osg::Node> CreatePagedLODVisitor::readProxyNodeFile(const std::string& proxyDirectory,
                                                                 const std::string& fileName,
                                                                 const std::string& newFileName) {
    if (!recurse) {
        osg::ref_ptr<osg::Node> model = readNode(proxyDirectory + fileName);
        if (model && convertExRefsToIVE) saveIVE(model, proxyDirectory + newFileName);
        return model;
    }

    if (osg::Node* graph = findActiveGraph(proxyDirectory + fileName)) return graph;

    CreatePagedLODVisitor child(this);
    child.setConvertExRefsToIVE(convertExRefsToIVE);
    child.setMaxRange(static_cast<float>(maxRange * rangeShareOfReferencedFiles));
    child.setRecurse(recurse);
    child.setDoSmooth(false);
    child.setEmbedExRefs(embedExRefsOfExRefs);
    child.setEmbedExRefsOfExRefs(embedExRefsOfExRefs);
    return child.convert(proxyDirectory + fileName, proxyDirectory + newFileName);
}

void CreatePagedLODVisitor::addProxyToPagedLOD(osg::ProxyNode& proxy, osg::PagedLOD* plod,
                                               const osg::BoundingSphere& bs, const std::string& fileName) {
    if (!plod) return;

    plod->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    plod->setCenter(bs.center());
    plod->setRadius(bs.radius());
    plod->setFileName(0, fileName);
    pendingPagedLODs.emplace_back(&proxy, plod);
}

// The list outlives the graphs it points into, so a second conversion meets the first one's pairs again: those whose
// nodes are gone, and those that are in place already.
void CreatePagedLODVisitor::InsertPagedLODs() {
    for (const auto& [observedProxy, observedPlod] : pendingPagedLODs) {
        const osg::ref_ptr<osg::ProxyNode> proxy = observedProxy.valid() ? observedProxy.get() : nullptr;
        const osg::ref_ptr<osg::PagedLOD> plod = observedPlod.valid() ? observedPlod.get() : nullptr;
        if (!proxy || !plod) continue;
        if (proxy->getNumParents() == 0 || !proxy->getParent(0)) continue;
        if (hangsBelow(*proxy, *plod)) continue;

        proxy->getParent(0)->replaceChild(proxy.get(), plod.get());
        plod->addChild(proxy.get(), 0.0f, static_cast<float>(plod->getRadius()) + maxRange);
    }
}

void CreatePagedLODVisitor::addShaders(osg::Node* node) {
    ShaderGenerator::instance()->process(node, false, true, true, true);
}

void CreatePagedLODVisitor::reportErrorFile(const std::string& path) {
    if (errorFiles.insert(path).second) std::cerr << "Error reading file " + path + "\n";
}

void CreatePagedLODVisitor::saveIVE(osg::ref_ptr<osg::Node> node, const std::string& fileName) {
    if (!node) return;

    try {
        postProcess(node);
        std::cerr << "Saving " + fileName + "\n";
        osg::ref_ptr<osgDB::Options> options = uncached();
        options->setOptionString(options->getOptionString() + nameTexturesOnlyOption);
        osgDB::writeNodeFile(*node, fileName, options.get());
    } catch (...) {
        // Out of memory, most likely. A write that fails goes unnoticed, whatever the reason.
    }
}

void CreatePagedLODVisitor::postProcess(osg::ref_ptr<osg::Node> node) {
    const auto imagesFromFiles = collectImages(*node);

    if (doOptimize) osgUtil::Optimizer().optimize(node.get(), firstOptimization);
    if (doSmooth) {
        osgUtil::SmoothingVisitor smoother;
        node->accept(smoother);
    }
    addShaders(node.get());
    if (doForceTextureFilter) {
        ForceTextureFilter filter(osg::Texture::LINEAR_MIPMAP_LINEAR);
        node->accept(filter);
    }
    osgUtil::Optimizer().optimize(node.get(), lastOptimization);

    // A texture atlas that the optimiser made exists only in memory: its pixels must go into the file, or they are
    // lost.
    for (const auto& image : collectImages(*node)) {
        if (imagesFromFiles.count(image) == 0) image->setWriteHint(osg::Image::STORE_INLINE);
    }
}

osg::Node* CreatePagedLODVisitor::findActiveGraph(const std::string& path) const {
    const std::string identity = identityOf(path);
    for (const CreatePagedLODVisitor* visitor = this; visitor; visitor = visitor->parent) {
        if (visitor->activeFile.graph && visitor->activeFile.identity == identity) return visitor->activeFile.graph;
    }
    return nullptr;
}

}  // namespace veltrane::sceneutils
