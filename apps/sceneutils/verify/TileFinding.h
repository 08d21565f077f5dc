#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace veltrane::sceneutils::tool {

/** What can be wrong with a paged database. */
enum class TileFindingKind {
    Unreadable,    ///< a file that OpenSceneGraph cannot load
    Missing,       ///< a reference that leads to no file
    Remote,        ///< a reference to a server
    Texture,       ///< a texture without pixels
    NotFinite,     ///< vertices or bounding spheres that are not numbers, or infinite
    EmptyBound,    ///< a file without a bounding sphere
    OutsideRange,  ///< a tile that is not shown where one can be close to it
    Cycle,         ///< a file that is loaded with itself
    Program        ///< a program that does not compile or link
};

/** "missing", "outsideRange": how reports call a kind of finding. */
const char* nameOf(TileFindingKind kind);

/** Whether such a finding means that a part of the database has not been looked at. */
bool leavesAGap(TileFindingKind kind);

struct TileFinding {
    TileFindingKind kind = TileFindingKind::Unreadable;
    std::string message;
    std::string reference;  ///< as it stands in the file, if it is about one
    std::string log;        ///< the driver's
};

void to_json(nlohmann::json& json, const TileFinding& finding);
void from_json(const nlohmann::json& json, TileFinding& finding);

}  // namespace veltrane::sceneutils::tool
