#include "GraphInfo.h"

#include "../files/NodeText.h"
#include "PrimitiveCounter.h"

#include <osg/ComputeBoundsVisitor>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LOD>
#include <osg/PagedLOD>
#include <osg/Program>
#include <osg/ProxyNode>
#include <osg/StateSet>
#include <osg/Texture>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace veltrane::sceneutils::tool {

namespace {

LodInfo makeLodInfo(const osg::LOD& lod) {
    LodInfo info;
    const auto* paged = dynamic_cast<const osg::PagedLOD*>(&lod);
    info.name = lod.getName();
    info.isPaged = paged != nullptr;
    info.isInPixels = lod.getRangeMode() == osg::LOD::PIXEL_SIZE_ON_SCREEN;
    for (unsigned int i = 0; i < lod.getNumRanges(); ++i) {
        const bool hasFile = paged && i < paged->getNumFileNames();
        info.ranges.push_back({lod.getMinRange(i), lod.getMaxRange(i), hasFile ? paged->getFileName(i) : ""});
    }
    return info;
}

/** Walks over a graph, each node once. */
class Inspection {
public:
    explicit Inspection(const std::set<const osg::Image*>& imagesFromFiles) : _imagesFromFiles(imagesFromFiles) {}

    GraphInfo run(osg::Node& root) {
        const Below below = visit(root);
        _info.depth = below.depth;
        _info.trianglesInAllPlaces = below.triangles;
        osg::ComputeBoundsVisitor bounds;
        root.accept(bounds);
        _info.box = bounds.getBoundingBox();
        _info.sphere = root.getBound();
        return std::move(_info);
    }

private:
    /** What depends on how often a thing hangs in the graph, or how deep. */
    struct Below {
        unsigned int depth = 0;
        std::uint64_t triangles = 0;
    };

    Below visit(osg::Node& node) {
        const auto [entry, isNew] = _visited.try_emplace(&node);
        if (!isNew) return entry->second;

        countNode(node);
        Below below;
        if (osg::Drawable* drawable = node.asDrawable()) below.triangles = countDrawable(*drawable);
        if (osg::Group* group = node.asGroup()) {
            for (unsigned int i = 0; i < group->getNumChildren(); ++i) {
                const Below child = visit(*group->getChild(i));
                below.depth = std::max(below.depth, child.depth);
                below.triangles += child.triangles;
            }
        }
        ++below.depth;
        _visited[&node] = below;
        return below;
    }

    void countNode(const osg::Node& node) {
        ++_info.nodes;
        ++_info.nodesByClass[classOf(node)];
        if (node.asGeode()) ++_info.geodes;
        if (node.getNumParents() > 1)
            _info.sharedNodes.push_back({node.getName(), classOf(node), node.getNumParents()});
        if (const auto* lod = dynamic_cast<const osg::LOD*>(&node)) _info.lods.push_back(makeLodInfo(*lod));
        if (const auto* proxy = dynamic_cast<const osg::ProxyNode*>(&node)) countReferences(*proxy);
        if (const osg::StateSet* stateSet = node.getStateSet()) countStateSet(*stateSet);
    }

    void countReferences(const osg::ProxyNode& proxy) {
        for (unsigned int i = 0; i < proxy.getNumFileNames(); ++i) {
            if (!proxy.getFileName(i).empty()) _info.externalReferences.push_back(proxy.getFileName(i));
        }
    }

    /** Returns the triangles of one copy. */
    std::uint64_t countDrawable(osg::Drawable& drawable) {
        ++_info.drawables;
        std::uint64_t triangles = 0;
        for (const auto& [mode, count] : countPrimitives(drawable)) {
            PrimitiveCount& sum = _info.primitivesByMode[mode];
            sum.primitives += count.primitives;
            sum.triangles += count.triangles;
            triangles += count.triangles;
        }
        _info.triangles += triangles;
        if (osg::Geometry* geometry = drawable.asGeometry()) countArrays(*geometry);
        return triangles;
    }

    void countArrays(osg::Geometry& geometry) {
        const osg::Array* vertices = geometry.getVertexArray();
        if (vertices && _vertexArrays.insert(vertices).second) _info.vertices += vertices->getNumElements();

        osg::Geometry::ArrayList arrays;
        geometry.getArrayList(arrays);
        for (const osg::ref_ptr<osg::Array>& array : arrays) {
            if (isNew(array)) _info.arrayBytes += array->getTotalDataSize();
        }
        for (unsigned int i = 0; i < geometry.getNumPrimitiveSets(); ++i) {
            const osg::PrimitiveSet* primitives = geometry.getPrimitiveSet(i);
            if (primitives && isNew(primitives)) _info.indexBytes += primitives->getTotalDataSize();
        }
    }

    void countStateSet(const osg::StateSet& stateSet) {
        if (!isNew(&stateSet)) return;
        ++_info.stateSets;
        const osg::StateAttribute* program = stateSet.getAttribute(osg::StateAttribute::PROGRAM);
        if (program && isNew(program)) ++_info.programs[program->getName()];
        for (unsigned int unit = 0; unit < stateSet.getTextureAttributeList().size(); ++unit) {
            const auto* texture =
                dynamic_cast<const osg::Texture*>(stateSet.getTextureAttribute(unit, osg::StateAttribute::TEXTURE));
            if (texture && isNew(texture)) countTexture(*texture);
        }
    }

    void countTexture(const osg::Texture& texture) {
        TextureInfo info;
        info.textureClass = std::string(texture.libraryName()) + "::" + texture.className();
        info.width = texture.getTextureWidth();
        info.height = texture.getTextureHeight();
        info.depth = texture.getTextureDepth();
        bool isFirst = true;
        for (unsigned int i = 0; i < texture.getNumImages(); ++i) {
            const osg::Image* image = texture.getImage(i);
            if (!image) continue;
            countImage(*image);
            if (isFirst) describe(*image, info);
            isFirst = false;
        }
        _info.textures.push_back(info);
    }

    void countImage(const osg::Image& image) {
        if (sourceOf(image) == ImageSource::Missing) _info.missingTextures.insert(image.getFileName());
        if (isNew(&image)) _info.imageBytes += image.getTotalSizeInBytesIncludingMipmaps();
    }

    void describe(const osg::Image& image, TextureInfo& info) const {
        info.file = image.getFileName();
        info.source = sourceOf(image);
        info.width = image.s();
        info.height = image.t();
        info.depth = image.r();
    }

    ImageSource sourceOf(const osg::Image& image) const {
        if (_imagesFromFiles.count(&image) != 0) return ImageSource::File;
        if (image.data()) return ImageSource::Embedded;
        return image.getFileName().empty() ? ImageSource::None : ImageSource::Missing;
    }

    bool isNew(const osg::Object* object) { return _counted.insert(object).second; }

    const std::set<const osg::Image*>& _imagesFromFiles;
    GraphInfo _info;
    std::unordered_map<osg::Node*, Below> _visited;
    std::unordered_set<const osg::Array*> _vertexArrays;
    std::unordered_set<const osg::Object*> _counted;
};

}  // namespace

GraphInfo inspect(osg::Node& root, const std::set<const osg::Image*>& imagesFromFiles) {
    return Inspection(imagesFromFiles).run(root);
}

}  // namespace veltrane::sceneutils::tool
