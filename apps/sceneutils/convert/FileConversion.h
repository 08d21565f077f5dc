#pragma once

#include "ChildProcess.h"
#include "ConversionJob.h"
#include "ConversionReport.h"
#include "FileAccess.h"

#include <osg/BoundingSphere>
#include <osg/Node>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace veltrane::sceneutils::tool {

/** What is being done to a file, for the message about a process that died of it. */
namespace phase {
constexpr const char* reading = "read";
constexpr const char* processing = "processed";
constexpr const char* writing = "written";
}  // namespace phase

/** What a conversion gives: whether it went well, and how large the file is for those that refer to it. */
struct FileOutcome {
    FileResult result;
    std::optional<osg::BoundingSphere> sphere;  ///< if it went well
};

/** What to do while a file is converted. Empty functions are not called. */
struct FileConversionEvents {
    std::function<void(const std::string& phase, const std::string& output)> onPhase;  ///< `output` if one was begun
    std::function<void(const osg::Node* graph)> afterReading;                          ///< null: it was not read
    std::function<void(FileAccess&)> onAccess;  ///< before anything is read: to listen to more
};

/**
 * Converts one file by the library. For a process of its own, or one that converts nothing else: it changes the
 * standard streams, and what a damaged file does to OpenSceneGraph is not undone.
 * @param palettes what the file takes from the one that refers to it, or null
 * @param texturesPlaced what lies in the output folder already, by whom it was copied from
 */
FileOutcome convertFile(const ConversionJob& job, osg::Referenced* palettes,
                        const std::map<std::string, std::string>& texturesPlaced, const FileAccess::Obtain& obtain,
                        const FileConversionEvents& events, bool isVerbose);

/** Loads OSG's plug-ins for such files once for all processes to come. Endings without a dot, in lower case. */
void loadPlugIns(const std::set<std::string>& extensions);

/** Says how a process that converted a file ended that did not end well. */
std::string whyItEnded(const ChildEnd& end, const std::string& lastPhase, const ChildLimits& limits);

}  // namespace veltrane::sceneutils::tool
