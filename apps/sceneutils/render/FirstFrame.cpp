#include "FirstFrame.h"

#include "../files/OsgMessages.h"
#include "../files/PlainText.h"

#include <offscreen/SceneRenderer.h>

#include <iostream>
#include <vector>

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* osgTileProblem = "Error in reading file ";

void tell(const std::string& message) {
    std::cerr << "sceneutils: " << withoutControlCharacters(message) << "\n";
}

}  // namespace

bool drawFirst(offscreen::SceneRenderer& renderer, const std::string& input, bool loadsTiles) {
    const OsgMessages messages;
    std::vector<std::string> missing;
    if (loadsTiles) {
        missing = renderer.loadTiles();
    } else {
        renderer.drawFrame();
    }
    for (const std::string& line : messages.lines()) {
        if (line.rfind(osgTileProblem, 0) != 0) tell(line);
    }
    for (const std::string& tile : missing) tell(input + ": tile " + tile + " cannot be read");
    for (const std::string& tile : renderer.tilesBelowThemselves())
        tell(input + ": tile " + tile + " refers to itself; it is drawn once");
    return missing.empty() && renderer.tilesBelowThemselves().empty();
}

}  // namespace veltrane::sceneutils::tool
