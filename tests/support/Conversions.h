#pragma once

#include "FindNodes.h"
#include "FlightModels.h"
#include "TemporaryDirectory.h"
#include "ToolRun.h"

#include <gtest/gtest.h>
#include <osg/Material>
#include <osg/PagedLOD>
#include <osg/ProxyNode>
#include <osg/Texture>
#include <osgDB/FileNameUtils>
#include <osgDB/ReadFile>

#include <algorithm>
#include <filesystem>
#include <map>
#include <numeric>
#include <set>
#include <sstream>
#include <string>
#include <vector>

/** Runs `sceneutils convert` and looks at what came of it. */
namespace testing_support {

/** What must not change of a file. */
struct FileState {
    std::string bytes;
    std::filesystem::file_time_type time;

    bool operator==(const FileState& other) const { return bytes == other.bytes && time == other.time; }
};

/** For readable failures: the size, not the content. */
inline void PrintTo(const FileState& state, std::ostream* out) {
    *out << state.bytes.size() << " bytes, " << state.time.time_since_epoch().count();
}

using FolderState = std::map<std::string, FileState>;

/** All files below a folder. */
inline FolderState stateOf(const std::filesystem::path& folder) {
    FolderState files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        files[entry.path().lexically_relative(folder).string()] = {readBytes(entry.path()), entry.last_write_time()};
    }
    return files;
}

/** The names of all files below a folder, with '/' between folders. */
inline std::set<std::string> namesIn(const std::filesystem::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_directory()) names.insert(entry.path().lexically_relative(folder).string());
    }
    return names;
}

/** Content by name, without times. */
inline std::map<std::string, std::string> contentOf(const std::filesystem::path& folder) {
    std::map<std::string, std::string> content;
    for (const auto& [name, state] : stateOf(folder)) content[name] = state.bytes;
    return content;
}

inline void expectNoPartialFiles(const std::filesystem::path& folder) {
    for (const std::string& name : namesIn(folder)) EXPECT_EQ(name.find(".part-"), std::string::npos) << name;
}

/** Runs the tool. */
inline ToolResult runTool(const std::vector<std::string>& arguments, const ToolSettings& settings = {}) {
    return ToolProcess(SCENEUTILS_TOOL, arguments, settings).wait();
}

/**
 * Runs `sceneutils convert` with a folder as its working directory, and expects what is true of every conversion: files
 * that are there already stay as they are (with --overwrite: those that are no outputs), and nothing is left over.
 */
inline ToolResult convertIn(const std::filesystem::path& folder, std::vector<std::string> arguments,
                            ToolSettings settings = {}) {
    const FolderState before = stateOf(folder);
    bool mayReplaceOutputs = false;
    for (const std::string& argument : arguments) mayReplaceOutputs = mayReplaceOutputs || argument == "--overwrite";
    arguments.insert(arguments.begin(), "convert");
    if (settings.workingDirectory.empty()) settings.workingDirectory = folder;
    const ToolResult result = runTool(arguments, settings);

    EXPECT_FALSE(result.timedOut);
    EXPECT_FALSE(result.leftProcesses);
    EXPECT_EQ(result.signal, 0);
    expectNoPartialFiles(folder);
    FolderState after = stateOf(folder);
    for (const auto& [name, state] : before) {
        const std::string extension = osgDB::getLowerCaseFileExtension(name);
        if (mayReplaceOutputs && (extension == "ive" || extension == "json")) continue;
        EXPECT_EQ(after[name], state) << name << " has been changed";
    }
    return result;
}

/** A summary line without its sizes and its time: "3 files read, 3 converted, 0 failed, 0 textures missing". */
inline std::string countsIn(const ToolResult& result) {
    std::size_t end = 0;
    for (int comma = 0; comma < 4 && end != std::string::npos; ++comma) end = result.output.find(',', end + 1);
    return result.output.substr(0, end);
}

/** Reads a file afresh, without its references. Null if it cannot be read. */
inline osg::ref_ptr<osg::Node> load(const std::filesystem::path& path) {
    osg::ref_ptr<osgDB::Options> options =
        new osgDB::Options("keepExternalReferences=yes noLoadExternalReferenceFiles");
    options->setObjectCacheHint(osgDB::Options::CACHE_NONE);
    osgDB::Registry::instance()->clearObjectCache();
    return osgDB::readRefNodeFile(path.string(), options);
}

/** The files that a converted file pages in or refers to, in the order of the graph. */
inline std::vector<std::string> pagedFiles(osg::Node* root) {
    std::vector<std::string> names;
    for (const auto& plod : findAll<osg::PagedLOD>(root)) names.push_back(plod->getFileName(0));
    return names;
}

inline std::vector<std::string> references(osg::Node* root) {
    std::vector<std::string> names;
    for (const auto& proxy : findAll<osg::ProxyNode>(root)) names.push_back(proxy->getFileName(0));
    return names;
}

/** How wide the geometry of a file is, what it refers to left out; -1 if it cannot be read. */
inline float widthOf(const std::filesystem::path& path) {
    const osg::ref_ptr<osg::Node> node = load(path);
    osg::BoundingBox box;
    for (const auto& geometry : findAll<osg::Geometry>(node)) box.expandBy(geometry->getBoundingBox());
    return box.valid() ? box.xMax() - box.xMin() : -1.0f;
}

/**
 * A graph as text: what a conversion decides, without folders of textures. The children of plain groups stand in the
 * order of their texts: OSG's optimiser orders them by their state sets' addresses.
 */
class GraphText {
public:
    explicit GraphText(osg::Node& root) { _text << textOf(root, ""); }

    std::string text() const { return _text.str(); }

private:
    static std::string textOf(osg::Node& node, const std::string& indent) {
        GraphText line;
        line.describeNode(node);
        std::vector<std::string> children;
        if (osg::Group* group = node.asGroup()) {
            for (unsigned int i = 0; i < group->getNumChildren(); ++i)
                children.push_back(textOf(*group->getChild(i), indent + "  "));
        }
        if (!dynamic_cast<osg::LOD*>(&node)) std::sort(children.begin(), children.end());
        return std::accumulate(children.begin(), children.end(), indent + line.text() + "\n");
    }

    GraphText() = default;

    void describeNode(osg::Node& node) {
        _text << node.className() << " \"" << node.getName() << "\"";
        if (const auto* plod = dynamic_cast<const osg::PagedLOD*>(&node)) describe(*plod);
        if (const auto* proxy = dynamic_cast<const osg::ProxyNode*>(&node)) _text << " file " << proxy->getFileName(0);
        if (const auto* transform = dynamic_cast<const osg::MatrixTransform*>(&node)) describe(*transform);
        if (const osg::Geometry* geometry = node.asGeometry()) describe(*geometry);
        if (const osg::StateSet* stateSet = node.getStateSet()) describe(*stateSet);
    }
    void describe(const osg::PagedLOD& plod) {
        const osg::Vec3 center = plod.getCenter();
        _text << " center " << center.x() << " " << center.y() << " " << center.z() << " radius " << plod.getRadius();
        for (unsigned int i = 0; i < plod.getNumRanges(); ++i)
            _text << " range " << plod.getMinRange(i) << " to " << plod.getMaxRange(i);
        for (unsigned int i = 0; i < plod.getNumFileNames(); ++i) _text << " file " << plod.getFileName(i);
    }
    void describe(const osg::MatrixTransform& transform) {
        for (int i = 0; i < 16; ++i) _text << " " << transform.getMatrix().ptr()[i];
    }
    void describe(const osg::Geometry& geometry) {
        const osg::BoundingBox box = geometry.getBoundingBox();
        for (int i = 0; i < 3; ++i) _text << " " << box._min[i] << " to " << box._max[i];
        _text << ", " << geometry.getVertexArray()->getNumElements() << " vertices";
        _text << ", " << geometry.getNumPrimitiveSets() << " primitive sets";
        if (geometry.getNormalArray()) _text << ", normals bound as " << geometry.getNormalBinding();
    }
    void describe(const osg::StateSet& stateSet) {
        for (const auto& [key, attribute] : stateSet.getAttributeList())
            _text << " " << attribute.first->className() << " \"" << attribute.first->getName() << "\"";
        for (unsigned int unit = 0; unit < stateSet.getTextureAttributeList().size(); ++unit) {
            const auto* texture =
                dynamic_cast<const osg::Texture*>(stateSet.getTextureAttribute(unit, osg::StateAttribute::TEXTURE));
            if (!texture || !texture->getImage(0)) continue;
            _text << " texture " << unit << " " << osgDB::getSimpleFileName(texture->getImage(0)->getFileName())
                  << " filter " << texture->getFilter(osg::Texture::MIN_FILTER) << " wrap "
                  << texture->getWrap(osg::Texture::WRAP_S);
        }
    }

    std::ostringstream _text;
};

inline std::string textOf(const std::filesystem::path& path) {
    const osg::ref_ptr<osg::Node> node = load(path);
    return node ? GraphText(*node).text() : "cannot be read";
}

}  // namespace testing_support
