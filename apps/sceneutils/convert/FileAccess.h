#pragma once

#include "../files/FileFinder.h"
#include "ConversionJob.h"
#include "ConversionReport.h"

#include <osg/BoundingSphere>
#include <osg/Node>
#include <osgDB/Callbacks>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/**
 * Stands between the library and the disk while one file is converted, as the osgDB registry's callbacks for
 * finding, reading and writing files.
 *
 * The library asks for a file, for the files that it refers to, and for outputs by names of its own making; what those
 * lead to is decided here:
 * - The first file asked for is the planned one. Its references are renamed to "0.flt", "1.flt" and so on as soon as it
 *   is read, so that nothing in the names themselves (folders, letter case, doubled endings, equal names in two
 * folders) can mislead anybody.
 * - A file asked for by such a name is not read. `obtain` is asked for its bounding sphere, and the library gets an
 *   empty group of that size.
 * - The planned file's graph is written whole or not at all, with its references and textures named relative to the
 *   output. Textures are copied into the output folder, or stored in the output, as the job says.
 */
class FileAccess : public osgDB::ReadFileCallback, public osgDB::WriteFileCallback, public osgDB::FindFileCallback {
public:
    /**
     * Gives the bounding sphere of the file that one of the job's references leads to, converting it first if that was
     * not done yet, or nothing if that fails.
     * @param palettes what the OpenFlight reader must be handed on when it reads that file; may be null
     */
    using Obtain = std::function<std::optional<osg::BoundingSphere>(std::size_t reference, osg::Referenced* palettes)>;

    /**
     * @param palettes what the file takes from the one that refers to it, or null
     * @param texturesPlaced what lies in the output folder already, by whom it was copied from
     */
    FileAccess(const ConversionJob& job, osg::Referenced* palettes,
               const std::map<std::string, std::string>& texturesPlaced, Obtain obtain);

    /** Makes this the registry's callbacks. */
    void install();

    /** Leaves the registry without callbacks. */
    static void uninstall();

    /** The planned file's graph while it is being converted; null before it is read. Owned by the reader. */
    osg::Node* graph() const { return _graph; }

    /** What has come of it so far. */
    const FileResult& result() const { return _result; }

    /** Called when the file's graph has been read. */
    std::function<void()> afterReading;

    /** Called when an output is about to be written: the planned one, or a copy of a texture. */
    std::function<void(const std::filesystem::path&)> beforeWriting;

    /** Called when another file was looked for while the planned one is read; an empty path: there is none. */
    std::function<void(const std::filesystem::path& folder, const std::string& name,
                       const std::filesystem::path& found)>
        onLookup;

    /** Called with the output's temporary file when it is whole, before it gets its name. */
    std::function<void(const std::filesystem::path&)> beforeCommitting;

    /** Called when a texture lies where the output expects it. */
    std::function<void(const std::filesystem::path&)> afterPlacing;

    /** Whether a file that is there already may be replaced; by default the job says it for all. */
    std::function<bool(const std::filesystem::path&)> mayReplace = [this](const std::filesystem::path&) {
        return _job.mayOverwrite;
    };

    std::string findDataFile(const std::string& name, const osgDB::Options* options,
                             osgDB::CaseSensitivity caseSensitivity) override;
    osgDB::ReaderWriter::ReadResult readNode(const std::string& name, const osgDB::Options* options) override;
    osgDB::ReaderWriter::ReadResult readImage(const std::string& name, const osgDB::Options* options) override;
    osgDB::ReaderWriter::ReadResult readObject(const std::string& name, const osgDB::Options* options) override;
    osgDB::ReaderWriter::WriteResult writeNode(const osg::Node& node, const std::string& name,
                                               const osgDB::Options* options) override;

    /** The name under which the library should ask for the planned file. */
    static constexpr const char* ownName = "input.flt";

protected:
    ~FileAccess() override = default;

private:
    /** What the library has made of a reference: it passes over those in parts of the graph that are switched off. */
    enum class Outcome { NotAskedFor, Obtained, Failed };

    class ReferenceRenamer;
    class FinalNames;

    osgDB::ReaderWriter::ReadResult readPlannedFile(const osgDB::Options* options);
    osgDB::ReaderWriter::ReadResult readReferencedFile(const std::string& name);
    void writeWhole(osg::Node& node, const osgDB::Options* options);
    std::string finalName(std::size_t index) const;
    void settleTextures(osg::Node& node);
    void embedTexture(osg::Image& image, const std::filesystem::path& texture) const;
    std::filesystem::path placeTexture(const std::filesystem::path& texture);
    void copyTexture(const std::filesystem::path& from, const std::filesystem::path& to);
    void noteMissingTexture(const std::string& name);
    void noteUnreadable(const std::filesystem::path& path, int error);
    std::string nameOf(const std::filesystem::path& path) const;
    void noteProblem(const std::string& problem);

    const ConversionJob& _job;
    osg::ref_ptr<osg::Referenced> _palettes;
    std::map<std::string, std::string> _texturesPlaced;
    Obtain _obtain;
    FileFinder _finder;
    osg::Node* _graph = nullptr;
    bool _wasRead = false;
    bool _isReading = false;
    std::map<std::string, std::size_t> _followedReferences;  ///< by the names that they were given
    std::vector<osg::ref_ptr<osg::Referenced>> _palettesOfReferences;
    std::vector<Outcome> _outcomes;  ///< of the references
    FileResult _result;
};

}  // namespace veltrane::sceneutils::tool
