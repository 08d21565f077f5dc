#include "Figures.h"

#include <sceneutils/SimpleGeometryGenerator.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/PagedLOD>
#include <osgDB/FileNameUtils>
#include <osgText/Text>

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>
#include <utility>

namespace veltrane::sceneutils::tool {

namespace {

// What LODMarkup draws: a cube of twelve edges and a square of four, each with spokes to four corners.
constexpr std::size_t linesOfACube = 16;
constexpr std::size_t linesOfASquare = 8;
constexpr std::size_t linesOfAGeode = 12;

constexpr int digits = 4;
constexpr float longLength = 1000.0f;

/** The lines that a generator draws, in the order in which they were added. */
std::vector<FigureLine> linesOf(const SimpleGeometryGenerator& generator, const osg::Matrixd& toWorld) {
    std::vector<FigureLine> lines;
    const osg::Geode* geode = generator.getChild(0)->asGeode();
    for (unsigned int i = 0; i < geode->getNumDrawables(); ++i) {
        const osg::Geometry* geometry = geode->getDrawable(i)->asGeometry();
        const auto& vertices = dynamic_cast<const osg::Vec3Array&>(*geometry->getVertexArray());
        const auto& colors = dynamic_cast<const osg::Vec4Array&>(*geometry->getColorArray());
        for (const auto& primitives : geometry->getPrimitiveSetList()) {
            if (primitives->getMode() != GL_LINES) continue;
            for (unsigned int at = 0; at + 1 < primitives->getNumIndices(); at += 2) {
                const auto place = [&](unsigned int end) {
                    return osg::Vec3d(vertices[primitives->index(end)]) * toWorld;
                };
                lines.push_back({place(at), place(at + 1), colors[primitives->index(at)]});
            }
        }
    }
    return lines;
}

Figure makeFigure(std::vector<FigureLine> lines, const std::string& label) {
    Figure figure{std::move(lines), label, {}};
    for (const FigureLine& line : figure.lines) {
        figure.box.expandBy(line.from);
        figure.box.expandBy(line.to);
    }
    return figure;
}

/** What one calls an LOD, or what it shows: few have names of their own. */
std::string nameOf(const osg::LOD& lod, unsigned int level) {
    if (!lod.getName().empty()) return lod.getName();
    if (level < lod.getNumChildren() && !lod.getChild(level)->getName().empty()) return lod.getChild(level)->getName();
    const auto* paged = dynamic_cast<const osg::PagedLOD*>(&lod);
    if (!paged || level >= paged->getNumFileNames() || paged->getFileName(level).empty()) return lod.className();
    return osgDB::getStrippedName(paged->getFileName(level));
}

/** A length in a label, where its last digits would only take room. */
std::string rounded(float length) {
    std::ostringstream text;
    text.precision(length < longLength ? digits : std::numeric_limits<float>::max_digits10);
    text << (length < longLength ? length : std::round(length));
    return text.str();
}

/** What the figures of an LOD stand for: its radius and the ends of its ranges. */
std::vector<std::string> labelsOf(const osg::LOD& lod) {
    std::vector<std::string> labels;
    labels.push_back(lod.getRadius() < 0.0f ? "" : nameOf(lod, 0) + ": radius " + rounded(lod.getRadius()));
    for (unsigned int level = 0; level < lod.getNumRanges(); ++level) {
        const std::string number = lod.getNumRanges() == 1 ? "" : " level " + std::to_string(level);
        labels.push_back(nameOf(lod, level) + number + ": " + rounded(lod.getMinRange(level)) + " to " +
                         rounded(lod.getMaxRange(level)));
    }
    return labels;
}

/** What LODMarkup has written beside the squares of a chain. */
std::vector<std::string> labelsIn(const SimpleGeometryGenerator& generator) {
    std::vector<std::string> labels;
    for (unsigned int i = 1; i < generator.getNumChildren(); ++i) {
        const osg::Geode* geode = generator.getChild(i)->asGeode();
        const auto* label = geode ? dynamic_cast<const osgText::Text*>(geode->getDrawable(0)) : nullptr;
        if (label) labels.push_back(label->getText().createUTF8EncodedString());
    }
    for (std::string& label : labels) label.erase(std::find(label.begin(), label.end(), '\n'), label.end());
    return labels;
}

/** Calls `found` with each generator and the way to it. */
template <typename Function>
class GeneratorVisitor : public osg::NodeVisitor {
public:
    explicit GeneratorVisitor(const Function& found) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _found(found) {
        setNodeMaskOverride(~0u);
    }

    using osg::NodeVisitor::apply;

    void apply(osg::MatrixTransform& transform) override {
        if (const auto* generator = dynamic_cast<const SimpleGeometryGenerator*>(&transform))
            _found(*generator, getNodePath());
        traverse(transform);
    }

private:
    const Function& _found;
};

template <typename Function>
void forEachGenerator(osg::Node& graph, const Function& function) {
    GeneratorVisitor<Function> visitor(function);
    graph.accept(visitor);
}

void addFigures(std::vector<Figure>& figures, const std::vector<FigureLine>& lines, std::size_t linesEach,
                const std::vector<std::string>& labels) {
    for (std::size_t at = 0; at + linesEach <= lines.size(); at += linesEach) {
        const std::size_t number = at / linesEach;
        const auto begin = lines.begin() + static_cast<std::ptrdiff_t>(at);
        figures.push_back(makeFigure({begin, begin + static_cast<std::ptrdiff_t>(linesEach)},
                                     number < labels.size() ? labels[number] : std::string()));
    }
}

}  // namespace

double Figure::reach() const {
    const osg::Vec3d size = box._max - box._min;
    const double longest = std::max({size.x(), size.y(), size.z()});
    const bool isFinite = box.valid() && std::isfinite(box._min * box._min) && std::isfinite(box._max * box._max);
    return isFinite ? longest / 2.0 : std::numeric_limits<double>::infinity();
}

std::vector<Figure> figuresAroundLods(osg::Node& graph) {
    std::vector<Figure> figures;
    forEachGenerator(graph, [&](const SimpleGeometryGenerator& generator, const osg::NodePath& path) {
        const osg::Group& marked = *path[path.size() - 2]->asGroup();
        const auto& lod = dynamic_cast<const osg::LOD&>(*marked.getChild(1));
        addFigures(figures, linesOf(generator, osg::computeLocalToWorld(path)), linesOfACube, labelsOf(lod));
    });
    return figures;
}

std::vector<Figure> figuresOfChains(osg::Node& chains) {
    std::vector<Figure> figures;
    forEachGenerator(chains, [&](const SimpleGeometryGenerator& generator, const osg::NodePath& path) {
        const std::vector<std::string> labels = labelsIn(generator);
        const bool isGeode = labels.empty();
        addFigures(figures, linesOf(generator, osg::computeLocalToWorld(path)),
                   isGeode ? linesOfAGeode : linesOfASquare,
                   isGeode ? std::vector<std::string>{generator.getName()} : labels);
    });
    return figures;
}

}  // namespace veltrane::sceneutils::tool
