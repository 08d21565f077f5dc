#include "TileCheck.h"

#include "../Command.h"
#include "../files/CapturedErrors.h"
#include "../files/GraphFile.h"
#include "../files/NodeText.h"
#include "../files/PlainText.h"

#include <osg/Geometry>
#include <osg/ImageStream>
#include <osg/NodeVisitor>
#include <osg/Texture>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

using nlohmann::json;

bool isFinite(const osg::BoundingSphere& sphere) {
    return std::isfinite(sphere.center().x()) && std::isfinite(sphere.center().y()) &&
           std::isfinite(sphere.center().z()) && std::isfinite(sphere.radius());
}

/** Counts the elements of an array that have a component that is no finite number. */
class NonFiniteCounter : public osg::ConstArrayVisitor {
public:
    using osg::ConstArrayVisitor::apply;

    void apply(const osg::Vec2Array& array) override { count(array); }
    void apply(const osg::Vec3Array& array) override { count(array); }
    void apply(const osg::Vec4Array& array) override { count(array); }
    void apply(const osg::Vec2dArray& array) override { count(array); }
    void apply(const osg::Vec3dArray& array) override { count(array); }
    void apply(const osg::Vec4dArray& array) override { count(array); }

    std::size_t found = 0;

private:
    template <typename Array>
    void count(const Array& array) {
        for (const auto& element : array) {
            bool isFinite = true;
            for (int i = 0; i < static_cast<int>(element.num_components); ++i)
                isFinite = isFinite && std::isfinite(element[i]);
            if (!isFinite) ++found;
        }
    }
};

/** How many of something, and where the first is. */
struct Places {
    std::size_t count = 0;
    std::string first;

    void add(std::size_t number, const osg::NodePath& place) {
        if (number > 0 && count == 0) first = asText(place);
        count += number;
    }
};

/** Looks at every node, drawable and texture of a graph once. */
class TileInspector : public osg::NodeVisitor {
public:
    explicit TileInspector(const TileReading& reading) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _reading(reading) {
        setNodeMaskOverride(~0u);
    }

    using osg::NodeVisitor::apply;

    void apply(osg::Node& node) override {
        if (!_seen.insert(&node).second) return;
        // A node that is asked for its bound takes no notice of what it computes, if that is not a number.
        const bool isNumber = isFinite(node.getBound()) && isFinite(node.computeBound());
        _spheres.add(isNumber ? 0 : 1, getNodePath());
        if (osg::Geometry* geometry = node.asGeometry()) inspectVertices(*geometry);
        if (node.getStateSet()) inspect(*node.getStateSet());
        traverse(node);
    }

    std::size_t numTextures() const { return _textures.size(); }

    std::vector<TileFinding> findings() const {
        std::vector<TileFinding> found;
        for (const std::string& message : _texturesFound) found.push_back({TileFindingKind::Texture, message, {}, {}});
        if (_vertices.count > 0) found.push_back(notFinite(_vertices, "vertex is", "vertices are", "the first in "));
        if (_spheres.count > 0) {
            found.push_back(notFinite(_spheres, "bounding sphere is", "bounding spheres are", "the first is that of "));
        }
        return found;
    }

private:
    static TileFinding notFinite(const Places& places, const char* one, const char* many, const std::string& first) {
        return {TileFindingKind::NotFinite,
                plural(places.count, one, many) + " not finite, " + first + places.first,
                {},
                {}};
    }

    void inspectVertices(const osg::Geometry& geometry) {
        if (!geometry.getVertexArray()) return;
        NonFiniteCounter counter;
        geometry.getVertexArray()->accept(counter);
        _vertices.add(counter.found, getNodePath());
    }

    void inspect(const osg::StateSet& state) {
        if (!_states.insert(&state).second) return;
        for (unsigned int unit = 0; unit < state.getNumTextureAttributeLists(); ++unit) {
            const auto* texture =
                dynamic_cast<const osg::Texture*>(state.getTextureAttribute(unit, osg::StateAttribute::TEXTURE));
            if (texture && _textures.insert(texture).second) inspect(*texture);
        }
    }

    void inspect(const osg::Texture& texture) {
        const unsigned int images = texture.getNumImages();
        unsigned int present = 0;
        for (unsigned int i = 0; i < images; ++i) {
            if (!texture.getImage(i)) continue;
            ++present;
            inspect(*texture.getImage(i));
        }
        if (present == images && images > 0) return;
        tell(present == 0 ? "a texture has no image (below " + asText(getNodePath()) + ")"
                          : "a texture has " + std::to_string(present) + " of its " + std::to_string(images) +
                                " images (below " + asText(getNodePath()) + ")");
    }

    void inspect(const osg::Image& image) {
        const bool isFilm = dynamic_cast<const osg::ImageStream*>(&image) != nullptr;
        if (image.valid() || isFilm) return;
        const std::string problem = _reading.whatIsWrongWith(image);
        tell("texture " + (problem.empty() ? "'" + image.getFileName() + "' has no pixels" : problem));
    }

    void tell(const std::string& message) {
        if (_told.insert(message).second) _texturesFound.push_back(message);
    }

    const TileReading& _reading;
    std::set<const osg::Node*> _seen;
    std::set<const osg::StateSet*> _states;
    std::set<const osg::Texture*> _textures;
    std::vector<std::string> _texturesFound;
    std::set<std::string> _told;
    Places _vertices;
    Places _spheres;
};

/** Has a reading stand by for the length of a scope. */
class StandingBy {
public:
    explicit StandingBy(TileReading& reading) { osgDB::Registry::instance()->setReadFileCallback(&reading); }
    ~StandingBy() { osgDB::Registry::instance()->setReadFileCallback(nullptr); }
    StandingBy(const StandingBy&) = delete;
    StandingBy& operator=(const StandingBy&) = delete;
};

std::string withoutName(const std::string& message, const std::string& path) {
    const std::string prefix = path + ": ";
    return message.compare(0, prefix.size(), prefix) == 0 ? message.substr(prefix.size()) : message;
}

void inspect(osg::Node& graph, const TileReading& reading, std::set<std::uint64_t>& programsSent, TileResult& result) {
    TileInspector inspector(reading);
    graph.accept(inspector);
    result.textures = inspector.numTextures();
    result.findings = inspector.findings();
    result.sphere = graph.getBound();
    // One that is not a number is told as that.
    if (isFinite(result.sphere) && !result.sphere.valid()) {
        result.findings.push_back(
            {TileFindingKind::EmptyBound, "has no bounding sphere: there is nothing in it to see", {}, {}});
    }
    result.programs = tileProgramsOf(graph);
    for (TileProgram& program : result.programs) {
        if (!programsSent.insert(program.digest).second) program.content.clear();
    }
}

}  // namespace

std::string FileIdentities::of(const std::string& path) {
    const fs::path file = path;
    const std::string folder = file.parent_path().string();
    const auto [place, isNew] = _folders.emplace(folder, std::string());
    if (isNew) {
        std::error_code error;
        place->second = fs::canonical(folder.empty() ? "." : folder, error).string();
        if (error) place->second = fs::absolute(folder, error).lexically_normal().string();
    }
    return (fs::path(place->second) / file.filename()).string();
}

TileResult TileCheck::check(const std::string& path) {
    TileResult result;
    const osg::ref_ptr<TileReading> reading = new TileReading;
    const StandingBy standingBy(*reading);
    const CapturedErrors messages;
    try {
        const osg::ref_ptr<osg::Node> graph = readGraph(path, References::Leave);
        std::error_code error;
        result.bytes = fs::file_size(path, error);
        result.references = reading->references();
        for (const TileReference& reference : result.references)
            result.identities.push_back(reference.path.empty() ? std::string() : _identities.of(reference.path));
        inspect(*graph, *reading, _programsSent, result);
    } catch (const CommandError& error) {
        result.problem = withoutName(error.what(), path);
    }
    result.messages = messages.text();
    return result;
}

// Points and numbers as they are: what is not a number has to come through, too.
void to_json(json& json, const TileResult& result) {
    json = {{"problem", result.problem},   {"bytes", result.bytes},           {"textures", result.textures},
            {"references", json::array()}, {"identities", result.identities}, {"findings", result.findings},
            {"programs", json::array()},   {"messages", result.messages}};
    const osg::Vec3& center = result.sphere.center();
    json["sphere"] = {center.x(), center.y(), center.z(), result.sphere.radius()};
    for (const TileReference& reference : result.references) {
        json["references"].push_back(
            {reference.name, reference.path, reference.isRemote, reference.isLoadedWithTile, nullptr});
        if (!reference.shown) continue;
        const ShownWithin& shown = *reference.shown;
        json["references"].back()[4] = {shown.center.x(), shown.center.y(), shown.center.z(), shown.radius};
    }
    for (const TileProgram& program : result.programs)
        json["programs"].push_back({program.name, program.place, program.state, program.digest, program.content});
}

void from_json(const json& json, TileResult& result) {
    json.at("problem").get_to(result.problem);
    json.at("bytes").get_to(result.bytes);
    json.at("textures").get_to(result.textures);
    json.at("identities").get_to(result.identities);
    json.at("findings").get_to(result.findings);
    json.at("messages").get_to(result.messages);
    const auto& sphere = json.at("sphere");
    result.sphere.set(osg::Vec3(sphere[0], sphere[1], sphere[2]), sphere[3]);
    for (const auto& each : json.at("references")) {
        result.references.push_back({each[0], each[1], each[2], each[3], {}});
        const auto& shown = each[4];
        if (!shown.is_null())
            result.references.back().shown = ShownWithin{osg::Vec3d(shown[0], shown[1], shown[2]), shown[3]};
    }
    for (const auto& each : json.at("programs"))
        result.programs.push_back({each[0], each[1], each[2], each[3], each[4]});
}

}  // namespace veltrane::sceneutils::tool
