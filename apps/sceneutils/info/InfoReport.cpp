#include "InfoReport.h"

#include "../files/JsonGeometry.h"
#include "../files/PlainText.h"

#include <algorithm>
#include <iomanip>

namespace veltrane::sceneutils::tool {

namespace {

constexpr int reportVersion = 1;
constexpr std::size_t linesPerList = 20;  // of the table; the JSON form has everything
constexpr int labelWidth = 22;

/** Sums over files, each of which counts once. */
struct Totals {
    std::uint64_t read = 0, failed = 0;
    std::uint64_t nodes = 0, geodes = 0, drawables = 0, vertices = 0, triangles = 0, stateSets = 0;
    std::uint64_t lods = 0, pagedLods = 0, externalReferences = 0;
    std::uint64_t arrayBytes = 0, indexBytes = 0, imageBytes = 0;
    std::set<std::string> textureFiles, missingTextures;

    explicit Totals(const std::vector<FileInfo>& files) {
        for (const FileInfo& file : files) {
            file.problem.empty() ? ++read : ++failed;
            add(file.graph);
        }
    }

private:
    void add(const GraphInfo& graph) {
        nodes += graph.nodes;
        geodes += graph.geodes;
        drawables += graph.drawables;
        vertices += graph.vertices;
        triangles += graph.triangles;
        stateSets += graph.stateSets;
        for (const LodInfo& lod : graph.lods) ++(lod.isPaged ? pagedLods : lods);
        externalReferences += graph.externalReferences.size();
        arrayBytes += graph.arrayBytes;
        indexBytes += graph.indexBytes;
        imageBytes += graph.imageBytes;
        missingTextures.insert(graph.missingTextures.begin(), graph.missingTextures.end());
        for (const TextureInfo& texture : graph.textures) {
            if (texture.source == ImageSource::File) textureFiles.insert(texture.file);
        }
    }
};

const char* nameOf(ImageSource source) {
    switch (source) {
        case ImageSource::File:
            return "found";
        case ImageSource::Embedded:
            return "embedded";
        case ImageSource::Missing:
            return "missing";
        case ImageSource::None:
            break;
    }
    return "none";
}

class Table {
public:
    explicit Table(std::ostream& out) : _out(out) {}

    void line(const std::string& label, const std::string& value) {
        _out << std::left << std::setw(labelWidth) << label << std::setw(0) << " " << withoutControlCharacters(value)
             << "\n";
    }
    void line(const std::string& label, std::uint64_t value) { line(label, std::to_string(value)); }

    /** A list below a line, the first of it if it is long. */
    void list(const std::vector<std::string>& entries) {
        for (std::size_t i = 0; i < std::min(entries.size(), linesPerList); ++i)
            _out << "    " << withoutControlCharacters(entries[i]) << "\n";
        if (entries.size() > linesPerList)
            _out << "    and " << entries.size() - linesPerList << " more (--json lists all)\n";
    }

private:
    std::ostream& _out;
};

std::string counted(std::uint64_t count, const std::string& what) {
    return std::to_string(count) + " x " + what;
}

std::vector<std::string> listOf(const std::map<std::string, std::uint64_t>& counts) {
    std::vector<std::string> entries;
    for (const auto& [name, count] : counts) entries.push_back(counted(count, name.empty() ? "(no name)" : name));
    return entries;
}

void writePrimitives(Table& table, const GraphInfo& graph) {
    std::string value = std::to_string(graph.triangles);
    if (graph.trianglesInAllPlaces != graph.triangles)
        value += " (" + std::to_string(graph.trianglesInAllPlaces) + " in all the places where they hang)";
    table.line("triangles", value);
    std::vector<std::string> entries;
    for (const auto& [mode, count] : graph.primitivesByMode) {
        entries.push_back(mode + ": " + plural(count.primitives, "primitive", "primitives") +
                          (count.triangles > 0 ? ", " + plural(count.triangles, "triangle", "triangles") : ""));
    }
    table.list(entries);
}

void writeTextures(Table& table, const GraphInfo& graph) {
    table.line("textures", graph.textures.size());
    std::vector<std::string> entries;
    for (const TextureInfo& texture : graph.textures) {
        entries.push_back((texture.file.empty() ? texture.textureClass : texture.file) + ": " +
                          std::to_string(texture.width) + "x" + std::to_string(texture.height) +
                          (texture.depth > 1 ? "x" + std::to_string(texture.depth) : "") + ", " +
                          (texture.source == ImageSource::None ? "no image" : nameOf(texture.source)));
    }
    table.list(entries);
    if (graph.missingTextures.empty()) return;
    table.line("missing textures", graph.missingTextures.size());
    table.list({graph.missingTextures.begin(), graph.missingTextures.end()});
}

/** "0 to 100, 100 to 500", and how many LODs have these ranges; the most frequent ones first. */
void writeLods(Table& table, const GraphInfo& graph, bool isPaged) {
    std::map<std::string, std::uint64_t> byRanges;
    std::uint64_t sum = 0;
    for (const LodInfo& lod : graph.lods) {
        if (lod.isPaged != isPaged) continue;
        std::string ranges;
        for (const LodRange& range : lod.ranges)
            ranges += (ranges.empty() ? "" : ", ") + asText(range.minimum) + " to " + asText(range.maximum);
        ++byRanges[(ranges.empty() ? "no ranges" : ranges) + (lod.isInPixels ? " pixels" : "")];
        ++sum;
    }
    table.line(isPaged ? "paged LODs" : "LODs", sum);
    std::vector<std::pair<std::string, std::uint64_t>> order(byRanges.begin(), byRanges.end());
    std::stable_sort(order.begin(), order.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    std::vector<std::string> entries;
    for (const auto& [ranges, count] : order) entries.push_back(counted(count, ranges));
    table.list(entries);
}

void writeExtent(Table& table, const GraphInfo& graph) {
    table.line("bounding box",
               graph.box.valid() ? asText(graph.box._min) + " to " + asText(graph.box._max) : "nothing has an extent");
    table.line("bounding sphere", graph.sphere.valid() ? "radius " + asText(static_cast<float>(graph.sphere.radius())) +
                                                             " around " + asText(osg::Vec3f(graph.sphere.center()))
                                                       : "nothing has an extent");
}

void writeBytes(Table& table, std::uint64_t arrays, std::uint64_t indices, std::uint64_t images) {
    table.line("memory", plural(arrays, "byte", "bytes") + " of arrays, " + std::to_string(indices) + " of indices, " +
                             std::to_string(images) + " of images");
}

void writeGraph(Table& table, const FileInfo& file) {
    const GraphInfo& graph = file.graph;
    table.line("file", file.file);
    table.line("nodes", std::to_string(graph.nodes) + ", depth " + std::to_string(graph.depth));
    table.list(listOf(graph.nodesByClass));
    table.line("with several parents", graph.sharedNodes.size());
    table.line("geodes", graph.geodes);
    table.line("drawables", graph.drawables);
    table.line("vertices", graph.vertices);
    writePrimitives(table, graph);
    table.line("state sets", graph.stateSets);
    writeTextures(table, graph);
    std::uint64_t programs = 0;
    for (const auto& [name, count] : graph.programs) programs += count;
    table.line("programs", programs);
    table.list(listOf(graph.programs));
    table.line("external references", graph.externalReferences.size());
    table.list(graph.externalReferences);
    writeLods(table, graph, false);
    writeLods(table, graph, true);
    writeExtent(table, graph);
    writeBytes(table, graph.arrayBytes, graph.indexBytes, graph.imageBytes);
}

void writeFiles(std::ostream& out, const std::vector<FileInfo>& files) {
    out << "\n     nodes  triangles    vertices  textures  file\n";
    for (const FileInfo& file : files) {
        if (!file.problem.empty()) continue;
        out << std::right << std::setw(10) << file.graph.nodes << std::setw(11) << file.graph.triangles << std::setw(12)
            << file.graph.vertices << std::setw(10) << file.graph.textures.size() << "  "
            << withoutControlCharacters(file.file) << "\n";
    }
}

void writeTotals(Table& table, const Totals& totals) {
    table.line("files", plural(totals.read, "file", "files") + " read, " + std::to_string(totals.failed) + " failed");
    table.line("nodes", totals.nodes);
    table.line("geodes", totals.geodes);
    table.line("drawables", totals.drawables);
    table.line("vertices", totals.vertices);
    table.line("triangles", totals.triangles);
    table.line("state sets", totals.stateSets);
    table.line("texture files", std::to_string(totals.textureFiles.size()) + ", " +
                                    std::to_string(totals.missingTextures.size()) + " missing");
    table.line("external references", totals.externalReferences);
    table.line("LODs", totals.lods);
    table.line("paged LODs", totals.pagedLods);
    writeBytes(table, totals.arrayBytes, totals.indexBytes, totals.imageBytes);
}

nlohmann::json texturesAsJson(const GraphInfo& graph) {
    nlohmann::json textures = nlohmann::json::array();
    for (const TextureInfo& texture : graph.textures) {
        textures.push_back({{"class", texture.textureClass},
                            {"file", texture.file},
                            {"width", texture.width},
                            {"height", texture.height},
                            {"depth", texture.depth},
                            {"image", nameOf(texture.source)}});
    }
    return textures;
}

nlohmann::json lodsAsJson(const GraphInfo& graph, bool isPaged) {
    nlohmann::json lods = nlohmann::json::array();
    for (const LodInfo& lod : graph.lods) {
        if (lod.isPaged != isPaged) continue;
        nlohmann::json ranges = nlohmann::json::array();
        for (const LodRange& range : lod.ranges) {
            nlohmann::json entry = {{"min", withFewDigits(range.minimum)}, {"max", withFewDigits(range.maximum)}};
            if (!range.file.empty()) entry["file"] = range.file;
            ranges.push_back(entry);
        }
        lods.push_back({{"name", lod.name}, {"unit", lod.isInPixels ? "pixels" : "distance"}, {"ranges", ranges}});
    }
    return lods;
}

nlohmann::json primitivesAsJson(const GraphInfo& graph) {
    nlohmann::json modes = nlohmann::json::object();
    for (const auto& [mode, count] : graph.primitivesByMode)
        modes[mode] = {{"primitives", count.primitives}, {"triangles", count.triangles}};
    return modes;
}

nlohmann::json sharedNodesAsJson(const GraphInfo& graph) {
    nlohmann::json nodes = nlohmann::json::array();
    for (const SharedNode& node : graph.sharedNodes)
        nodes.push_back({{"name", node.name}, {"class", node.nodeClass}, {"parents", node.parents}});
    return nodes;
}

nlohmann::json graphAsJson(const GraphInfo& graph) {
    return {
        {"nodes", graph.nodes},
        {"nodesByClass", graph.nodesByClass},
        {"depth", graph.depth},
        {"sharedNodes", sharedNodesAsJson(graph)},
        {"geodes", graph.geodes},
        {"drawables", graph.drawables},
        {"vertices", graph.vertices},
        {"triangles", graph.triangles},
        {"trianglesInAllPlaces", graph.trianglesInAllPlaces},
        {"primitives", primitivesAsJson(graph)},
        {"stateSets", graph.stateSets},
        {"textures", texturesAsJson(graph)},
        {"missingTextures", graph.missingTextures},
        {"programs", graph.programs},
        {"externalReferences", graph.externalReferences},
        {"lods", lodsAsJson(graph, false)},
        {"pagedLods", lodsAsJson(graph, true)},
        {"box", asJson(graph.box)},
        {"sphere", asJson(graph.sphere)},
        {"arrayBytes", graph.arrayBytes},
        {"indexBytes", graph.indexBytes},
        {"imageBytes", graph.imageBytes},
    };
}

nlohmann::json fileAsJson(const FileInfo& file) {
    const bool isRead = file.problem.empty();
    nlohmann::json json = isRead ? graphAsJson(file.graph) : nlohmann::json::object();
    json["file"] = file.file;
    json["status"] = isRead ? "read" : "failed";
    if (!isRead) json["problem"] = file.problem;
    if (!file.namedBy.empty()) json["namedBy"] = file.namedBy;
    return json;
}

nlohmann::json totalsAsJson(const Totals& totals) {
    return {{"filesRead", totals.read},
            {"filesFailed", totals.failed},
            {"nodes", totals.nodes},
            {"geodes", totals.geodes},
            {"drawables", totals.drawables},
            {"vertices", totals.vertices},
            {"triangles", totals.triangles},
            {"stateSets", totals.stateSets},
            {"textureFiles", totals.textureFiles.size()},
            {"missingTextures", totals.missingTextures.size()},
            {"externalReferences", totals.externalReferences},
            {"lods", totals.lods},
            {"pagedLods", totals.pagedLods},
            {"arrayBytes", totals.arrayBytes},
            {"indexBytes", totals.indexBytes},
            {"imageBytes", totals.imageBytes}};
}

}  // namespace

void writeInfo(std::ostream& out, const std::vector<FileInfo>& files) {
    Table table(out);
    writeGraph(table, files.front());
    if (files.size() == 1) return;
    writeFiles(out, files);
    out << "\n";
    writeTotals(table, Totals(files));
}

nlohmann::json infoAsJson(const std::vector<FileInfo>& files, bool recurse) {
    nlohmann::json list = nlohmann::json::array();
    for (const FileInfo& file : files) list.push_back(fileAsJson(file));
    return {{"version", reportVersion},
            {"command", "info"},
            {"input", files.front().file},
            {"options", {{"recurse", recurse}}},
            {"totals", totalsAsJson(Totals(files))},
            {"files", list}};
}

}  // namespace veltrane::sceneutils::tool
