#pragma once

#include <osg/BoundingBox>
#include <osg/BoundingSphere>
#include <osg/Image>
#include <osg/Node>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What the primitive sets of one mode ("TRIANGLE_STRIP") draw. */
struct PrimitiveCount {
    std::uint64_t primitives = 0;
    std::uint64_t triangles = 0;  ///< 0 for points and lines
};

/** Where an image comes from. */
enum class ImageSource {
    File,      ///< read from the file that it names
    Embedded,  ///< its pixels stand in the model's own file
    Missing,   ///< its file was not found or cannot be read
    None       ///< the texture has no image: it is drawn into, or its image has no name
};

struct TextureInfo {
    std::string textureClass;  ///< "osg::Texture2D"
    std::string file;          ///< of its first image; may be empty
    int width = 0;
    int height = 0;
    int depth = 0;
    ImageSource source = ImageSource::None;
};

struct LodRange {
    float minimum = 0.0f;
    float maximum = 0.0f;
    std::string file;  ///< the tile; empty: the child is in the graph itself
};

struct LodInfo {
    std::string name;
    bool isPaged = false;
    bool isInPixels = false;  ///< ranges are sizes on the screen, not distances
    std::vector<LodRange> ranges;
};

struct SharedNode {
    std::string name;
    std::string nodeClass;
    unsigned int parents = 0;
};

/** What is in a graph. Each thing counts once, however often it hangs in the graph, unless it is said otherwise. */
struct GraphInfo {
    std::map<std::string, std::uint64_t> nodesByClass;  ///< drawables are nodes
    std::uint64_t nodes = 0;
    std::uint64_t geodes = 0;
    std::uint64_t drawables = 0;
    std::uint64_t vertices = 0;  ///< elements of the vertex arrays
    std::map<std::string, PrimitiveCount> primitivesByMode;
    std::uint64_t triangles = 0;
    std::uint64_t trianglesInAllPlaces = 0;  ///< each as often as it hangs in the graph
    std::uint64_t stateSets = 0;
    std::vector<TextureInfo> textures;              ///< in the order of the graph
    std::set<std::string> missingTextures;          ///< names that led to no image, also of textures that are not there
    std::map<std::string, std::uint64_t> programs;  ///< how many have that name
    std::vector<std::string> externalReferences;    ///< file names
    std::vector<LodInfo> lods;                      ///< paged ones among them
    std::vector<SharedNode> sharedNodes;            ///< those with several parents
    unsigned int depth = 0;                         ///< nodes on the longest way down, root and drawable included
    std::uint64_t arrayBytes = 0;                   ///< vertices, normals, colours, ...
    std::uint64_t indexBytes = 0;
    std::uint64_t imageBytes = 0;  ///< with mipmaps
    osg::BoundingBox box;          ///< of what is in the graph, every child counted
    osg::BoundingSphere sphere;    ///< what OpenSceneGraph culls by
};

/** @param imagesFromFiles the images of the graph that were read from files of their own */
GraphInfo inspect(osg::Node& root, const std::set<const osg::Image*>& imagesFromFiles);

}  // namespace veltrane::sceneutils::tool
