#pragma once

#include <string>

namespace veltrane::sceneutils::offscreen {
class SceneRenderer;
}

namespace veltrane::sceneutils::tool {

/**
 * Draws for the first time, and tells on standard error what was wrong with it.
 * @param input what the lines name
 * @param loadsTiles whether the tiles that the view shows are loaded before
 * @return false if tiles are missing
 */
bool drawFirst(offscreen::SceneRenderer& renderer, const std::string& input, bool loadsTiles);

}  // namespace veltrane::sceneutils::tool
