#pragma once

#include "../Command.h"
#include "../files/FlightFile.h"
#include "SampleDatabase.h"

#include <osg/Image>
#include <osg/Node>
#include <osg/Notify>
#include <osgDB/Options>
#include <osgDB/WriteFile>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

/** Where the files of a sample database go, and that each arrives there whole. */
namespace veltrane::sceneutils::tool::sample {

namespace fs = std::filesystem;

inline constexpr const char* masterName = "master.flt";
inline constexpr const char* textureFolder = "textures";
inline constexpr const char* modelFolder = "models";
inline constexpr const char* tileFolder = "tiles";

[[noreturn]] inline void failToWrite(const fs::path& path, const std::string& reason) {
    throw CommandError(ExitStatus::OutputNotWritten, path.string() + " " + reason);
}

inline void makeFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) failToWrite(folder, "cannot be made: " + error.message());
}

inline void enterFolder(const fs::path& folder) {
    std::error_code error;
    fs::current_path(folder, error);
    if (error) failToWrite(folder, "cannot be entered: " + error.message());
}

inline std::string readBytes(const fs::path& path) {
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    if (error) return std::string();
    std::string bytes(size, '\0');
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(size));
    return bytes;
}

inline bool endsWith(const std::string& bytes, const std::string& end) {
    return bytes.size() >= end.size() && bytes.compare(bytes.size() - end.size(), end.size(), end) == 0;
}

/** Whether all of a model arrived: OSG's writer reports no failed write. The last record closes the last level. */
inline bool isWholeOpenFlight(const fs::path& path) {
    using namespace std::string_literals;
    try {
        scanFlightFile(path);
    } catch (const FlightFileError&) {
        return false;
    }
    return endsWith(readBytes(path), "\x00\x0b\x00\x04"s);
}

inline bool isWholePng(const std::string& bytes) {
    return endsWith(bytes, std::string("IEND\xae\x42\x60\x82"));
}

/** Holds back what OSG writes to the console. */
class QuietOsg {
public:
    QuietOsg() : _level(osg::getNotifyLevel()) { osg::setNotifyLevel(osg::ALWAYS); }
    ~QuietOsg() { osg::setNotifyLevel(_level); }
    QuietOsg(const QuietOsg&) = delete;
    QuietOsg& operator=(const QuietOsg&) = delete;

private:
    osg::NotifySeverity _level;
};

/** Goes back to the working directory at the end. */
class KeptWorkingDirectory {
public:
    KeptWorkingDirectory() : _path(fs::current_path(_error)) {}
    ~KeptWorkingDirectory() {
        if (!_error) fs::current_path(_path, _error);
    }
    KeptWorkingDirectory(const KeptWorkingDirectory&) = delete;
    KeptWorkingDirectory& operator=(const KeptWorkingDirectory&) = delete;

private:
    std::error_code _error;
    fs::path _path;
};

/** The directory that is written to; it is left as it was found unless `keep` is called. */
class OutputDirectory {
public:
    explicit OutputDirectory(const fs::path& directory) : _asGiven(directory) {
        claim();
        std::error_code error;
        _path = fs::canonical(directory, error);
        if (error) failToWrite(directory, "cannot be used: " + error.message());
    }
    ~OutputDirectory() {
        if (_isKept) return;
        std::error_code ignored;
        for (const char* name : {textureFolder, modelFolder, tileFolder, masterName})
            fs::remove_all(_path / name, ignored);
        if (_isNew) fs::remove(_path, ignored);
    }
    OutputDirectory(const OutputDirectory&) = delete;
    OutputDirectory& operator=(const OutputDirectory&) = delete;

    const fs::path& path() const { return _path; }
    void keep() { _isKept = true; }

private:
    void claim() {
        if (_asGiven.empty()) throw CommandError(ExitStatus::Usage, "the name of the directory is empty");
        std::error_code error;
        const fs::file_status status = fs::status(_asGiven, error);
        _isNew = !fs::exists(status);
        if (_isNew) return makeFolder(_asGiven);
        if (!fs::is_directory(status)) failToWrite(_asGiven, "is not a directory; name a new or an empty one");
        const bool isEmpty = fs::is_empty(_asGiven, error);
        if (error) failToWrite(_asGiven, "cannot be read: " + error.message());
        if (!isEmpty) failToWrite(_asGiven, "is not empty; name a new or an empty directory");
    }

    fs::path _asGiven;
    fs::path _path;
    bool _isNew = false;
    bool _isKept = false;
};

/** Writes the files and counts them. */
class FileWriter {
public:
    FileWriter(const fs::path& root, SampleSummary& summary) : _root(root), _summary(summary) {}

    void writeNode(const osg::Node& node, const std::string& folder, const std::string& name) {
        if (sampleInterrupted != 0) throw CommandError(ExitStatus::Interrupted, "interrupted");
        const fs::path path = _root / folder / name;
        makeFolder(path.parent_path());
        // The plug-in looks for a texture's attribute file, and writes it, relative to the working directory.
        enterFolder(path.parent_path());
        const bool isWritten = osgDB::writeNodeFile(node, path.string(), _options);
        if (!isWritten || !isWholeOpenFlight(path)) failWhole(path);
        ++_summary.files;
    }

    void writeImage(const osg::Image& image, const std::string& folder, const std::string& name) {
        const fs::path path = _root / folder / name;
        makeFolder(path.parent_path());
        if (!osgDB::writeImageFile(image, path.string(), _options) || !isWholePng(readBytes(path))) failWhole(path);
        ++_summary.textures;
    }

private:
    [[noreturn]] static void failWhole(const fs::path& path) {
        failToWrite(path, "could not be written; is the disk full?");
    }

    fs::path _root;
    SampleSummary& _summary;
    osg::ref_ptr<osgDB::Options> _options = new osgDB::Options;
};

}  // namespace veltrane::sceneutils::tool::sample
