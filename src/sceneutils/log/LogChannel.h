#pragma once

#include <logging/Logger.h>

#include <sstream>
#include <string>

/**
 * The way to the logging module for the sources that report through it. A source that logs keeps one file-static
 * category, obtained while the library is loaded:
 *
 *     log4cpp::Category* const logCategory = log::obtainCategory();
 */
namespace veltrane::sceneutils::log {

using Logger = logging::Logger;

/** The category that all of the library's records carry. Owned by the logging module. */
inline log4cpp::Category* obtainCategory() {
    const std::string name = "sceneutils";
    return Logger::instance()->getCategory(name, true);
}

/**
 * Writes one record. `compose` is handed a stream and puts the message into it; it is not called when the level is
 * switched off. File and line are given by the caller as fixed values, because what the compiler knows of them depends
 * on the build and on every edit, and users filter their logs by them.
 */
template <typename Compose>
void emit(log4cpp::Category* category, Logger::_Level level, const std::string& file, int line, Compose compose) {
    if (!Logger::instance()->isEnabled(category, level)) return;

    std::ostringstream stream;
    compose(stream);
    Logger::instance()->log(category, level, file, line, stream.str());
}

}  // namespace veltrane::sceneutils::log
