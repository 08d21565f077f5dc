#pragma once

#include <string>

namespace veltrane::sceneutils::tool {

/** A word that means just this text to any shell. */
std::string shellQuoted(const std::string& text);

/** The same for bash, in one line of printable characters whatever control characters the text has. */
std::string bashQuoted(const std::string& text);

}  // namespace veltrane::sceneutils::tool
