#pragma once

#include "TileFinding.h"
#include "TilePrograms.h"
#include "TileReading.h"

#include <osg/BoundingSphere>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What there is to tell of one file, and what is wrong with it as far as that can be seen in it alone. */
struct TileResult {
    std::string problem;  ///< why it cannot be loaded; empty: it was
    std::uintmax_t bytes = 0;
    std::size_t textures = 0;
    osg::BoundingSphere sphere;
    std::vector<TileReference> references;
    std::vector<std::string> identities;  ///< of the references' paths; empty where there is none
    std::vector<TileFinding> findings;
    std::vector<TileProgram> programs;
    std::string messages;  ///< what OpenSceneGraph had to say
};

void to_json(nlohmann::json& json, const TileResult& result);
void from_json(const nlohmann::json& json, TileResult& result);

/** Tells files from each other: two paths with the same identity are read alike, what they refer to included. */
class FileIdentities {
public:
    /** The path without links and dots in its folder. */
    std::string of(const std::string& path);

private:
    std::map<std::string, std::string> _folders;
};

/** Loads one file as a pager does and looks at what is in it. To be called in a process that may die of it. */
class TileCheck {
public:
    /** The contents of programs stand only in the first result that they belong in. */
    TileResult check(const std::string& path);

private:
    FileIdentities _identities;
    std::set<std::uint64_t> _programsSent;
};

}  // namespace veltrane::sceneutils::tool
