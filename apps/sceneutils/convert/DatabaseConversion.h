#pragma once

#include "ChildProcess.h"
#include "ConversionPlan.h"
#include "ConversionReport.h"

#include <osg/BoundingSphere>
#include <osg/Node>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/**
 * Carries out a plan: each file is converted by the library in a process of its own, which asks for the files that it
 * refers to one after the other, and each of those gets a process in turn.
 *
 * So a file that crashes the reader costs nothing but itself, memory does not grow with the database, and a referenced
 * file can be handed what the OpenFlight reader made of its parent's palettes.
 */
class DatabaseConversion {
public:
    using Listener = std::function<void(const FileResult&)>;

    /** @param onResult called for each file as soon as it is done or has failed; the master comes last */
    DatabaseConversion(const ConversionPlan& plan, Listener onResult);

    ConversionReport run();

private:
    struct FileState {
        bool isFinished = false;
        std::optional<osg::BoundingSphere> sphere;  ///< once it is done and fine
        const osg::Node* activeGraph = nullptr;     ///< while it is being converted
        std::string phase;
        std::string output;  ///< that was begun last
    };

    std::optional<osg::BoundingSphere> obtain(std::size_t file, osg::Referenced* palettes);
    void convertInChild(std::size_t file, osg::Referenced* palettes);
    void convert(std::size_t file, osg::Referenced* palettes);
    void finish(const FileResult& result, const std::optional<osg::BoundingSphere>& sphere);
    void enterPhase(std::size_t file, const std::string& phase, const std::string& output);
    void receive(const std::string& message);

    const ConversionPlan& _plan;
    Listener _onResult;
    ConversionReport _report;
    std::vector<FileState> _states;
    std::map<std::string, std::string> _texturesPlaced;
    const MessageSender* _parent = nullptr;  ///< null in the process that the user started
};

}  // namespace veltrane::sceneutils::tool
