#pragma once

#include "ProgramList.h"

#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What a run is told besides the graph. */
struct ShaderSettings {
    bool lighting = true;
    bool normalMapping = true;
    bool fog = true;
    int shadowUnit = -1;  ///< -1: no shadow map
};

/** The place whose state a program is for: the names of the nodes from the root on, class names in brackets for none.
 */
std::string placeOf(const ListedProgram& program);

/**
 * What asked for a program there: textures, uniforms and the like of the state in force, and the settings of the run if
 * the program was generated in it. One short text for each, in a fixed order.
 */
std::vector<std::string> stateBehind(const ListedProgram& program, const ShaderSettings& settings);

}  // namespace veltrane::sceneutils::tool
