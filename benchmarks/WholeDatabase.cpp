#include "WholeDatabase.h"

#include "FrameScenes.h"

#include <sceneutils/StateSetVisitor.h>

#include <osg/Group>
#include <osg/LOD>
#include <osg/NodeVisitor>
#include <osg/PagedLOD>
#include <osg/Program>
#include <osg/StateAttribute>
#include <osg/Texture2D>

#include <map>
#include <set>
#include <string>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::benchmarks {

namespace {

class PagedLODCollector : public osg::NodeVisitor {
public:
    PagedLODCollector() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
    using osg::NodeVisitor::apply;
    void apply(osg::PagedLOD& paged) override { found.insert(&paged); }
    std::set<osg::ref_ptr<osg::PagedLOD>> found;
};

class TileJoiner {
public:
    explicit TileJoiner(TileRanges ranges) : _ranges(ranges) {}

    osg::ref_ptr<osg::Node> read(const fs::path& file) {
        osg::ref_ptr<osg::Node>& graph = _graphs[fs::weakly_canonical(file)];
        if (graph) return graph;
        graph = readScene(file);
        PagedLODCollector collector;
        graph->accept(collector);
        for (const osg::ref_ptr<osg::PagedLOD>& paged : collector.found) replace(*paged);
        return graph;
    }

private:
    void replace(osg::PagedLOD& paged) {
        const osg::ref_ptr<osg::Node> tile = read(paged.getDatabasePath() + paged.getFileName(0));
        const osg::ref_ptr<osg::Group> whole =
            _ranges == TileRanges::Keep ? new osg::LOD(paged) : new osg::Group(paged);
        whole->addChild(tile);  // an LOD has the range already
        const osg::Node::ParentList parents = paged.getParents();
        for (osg::Group* parent : parents) parent->replaceChild(&paged, whole);
    }

    TileRanges _ranges;
    std::map<fs::path, osg::ref_ptr<osg::Node>> _graphs;
};

/** Puts one texture or program in place of all that have the same content, as in a graph that was made at once. */
class StateSharer : public StateSetVisitor {
public:
    using StateSetVisitor::apply;

    void apply(osg::StateSet& state) override {
        if (const auto* const pair = state.getAttributePair(osg::StateAttribute::PROGRAM)) {
            const auto [program, strength] = *pair;
            state.setAttribute(share(contentOf(static_cast<const osg::Program&>(*program)), program), strength);
        }
        for (unsigned int unit = 0; unit < state.getTextureAttributeList().size(); ++unit) {
            const auto* const pair = state.getTextureAttributePair(unit, osg::StateAttribute::TEXTURE);
            const auto* const texture = pair ? dynamic_cast<const osg::Texture2D*>(pair->first.get()) : nullptr;
            if (!texture || !texture->getImage()) continue;
            const auto [attribute, strength] = *pair;
            state.setTextureAttribute(unit, share(contentOf(*texture), attribute), strength);
        }
    }

private:
    osg::StateAttribute* share(const std::string& content, const osg::ref_ptr<osg::StateAttribute>& attribute) {
        return _shared.emplace(content, attribute).first->second;
    }

    static std::string contentOf(const osg::Program& program) {
        std::string content = program.getName();
        for (unsigned int i = 0; i < program.getNumShaders(); ++i) {
            const osg::Shader& shader = *program.getShader(i);
            content += "\n" + std::to_string(shader.getType()) + "\n" + shader.getShaderSource();
        }
        return content;
    }

    static std::string contentOf(const osg::Texture2D& texture) {
        const osg::Image& image = *texture.getImage();
        std::string content(reinterpret_cast<const char*>(image.data()), image.getTotalSizeInBytes());
        for (const auto number : {image.s(), image.t(), static_cast<int>(image.getPixelFormat()),
                                  static_cast<int>(texture.getWrap(osg::Texture::WRAP_S)),
                                  static_cast<int>(texture.getWrap(osg::Texture::WRAP_T)),
                                  static_cast<int>(texture.getFilter(osg::Texture::MIN_FILTER)),
                                  static_cast<int>(texture.getFilter(osg::Texture::MAG_FILTER))})
            content += " " + std::to_string(number);
        return content;
    }

    std::map<std::string, osg::ref_ptr<osg::StateAttribute>> _shared;
};

}  // namespace

osg::ref_ptr<osg::Node> readWholeDatabase(const fs::path& master, TileRanges ranges) {
    osg::ref_ptr<osg::Node> whole = TileJoiner(ranges).read(master);
    StateSharer sharer;
    whole->accept(sharer);
    return whole;
}

}  // namespace veltrane::sceneutils::benchmarks
