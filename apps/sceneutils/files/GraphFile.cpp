#include "GraphFile.h"

#include "../Command.h"
#include "../shaders/ProgramList.h"
#include "CheckedReading.h"
#include "FlightReferences.h"
#include "FormatFit.h"
#include "OsgMessages.h"
#include "OutputFormat.h"
#include "PlainText.h"
#include "PortableNames.h"
#include "TextFormatClasses.h"

#include <osgDB/FileNameUtils>
#include <osgDB/FileUtils>
#include <osgDB/Registry>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace fs = std::filesystem;
using osgDB::ReaderWriter;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* flightEnding = "flt";
constexpr const char* attributesEnding = "attr";  // of a texture, without which it is drawn, but otherwise
constexpr const char* textEnding = "osg";

std::string endingOf(const fs::path& path) {
    return osgDB::getLowerCaseFileExtension(path.string());
}

[[noreturn]] void failToRead(const fs::path& path, const std::string& reason) {
    throw CommandError(ExitStatus::InputUnreadable, path.string() + ": " + reason);
}

void checkInput(const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status)) failToRead(path, "no such file");
    if (fs::is_directory(status)) failToRead(path, "is a folder");
    if (!fs::is_regular_file(status)) failToRead(path, "is no regular file");
    if (access(path.c_str(), R_OK) != 0) failToRead(path, "may not be read");
    if (fs::file_size(path, error) == 0) failToRead(path, "is empty");
}

void checkFlightFiles(const fs::path& path, References references) {
    if (endingOf(path) != flightEnding) return;
    try {
        checkFlightFile(path, references == References::Load);
    } catch (const FlightFileError& error) {
        throw CommandError(ExitStatus::InputUnreadable, error.what());
    }
}

/**
 * Stands by while a file, and what it refers to, is read. Notices files that refer to themselves: reading them would
 * never end. Notes in what a file holds where the files lie that it names.
 */
class ReadingGuard : public osgDB::ReadFileCallback {
public:
    explicit ReadingGuard(References references) : _references(references) {}

    ReaderWriter::ReadResult readNode(const std::string& name, const osgDB::Options* options) override {
        return guard(name, options, [&](const std::string& found) {
            if (_registrys) return _registrys->readNode(name, options);
            if (endingOf(found) == flightEnding) return readFlightFile(found, options);
            return ReadFileCallback::readNode(name, options);
        });
    }

    ReaderWriter::ReadResult readObject(const std::string& name, const osgDB::Options* options) override {
        return guard(name, options, [&](const std::string& found) {
            ReaderWriter::ReadResult result =
                _registrys ? _registrys->readObject(name, options) : ReadFileCallback::readObject(name, options);
            const bool isLost = !result.validObject() && endingOf(found) == attributesEnding && readThrough(found) == 0;
            if (isLost) noteProblem(found + ": cannot be read");
            return result;
        });
    }

    ReaderWriter::ReadResult readImage(const std::string& name, const osgDB::Options* options) override {
        if (_registrys) return _registrys->readImage(name, options);
        const std::string found = osgDB::findDataFile(name, options);
        int error = 0;
        ReaderWriter::ReadResult result = tool::readImage(name, found, options, error);
        if (error != 0) noteProblem(found + ": " + std::strerror(error));
        return result;
    }

    ReaderWriter::ReadResult readShader(const std::string& name, const osgDB::Options* options) override {
        return _registrys ? _registrys->readShader(name, options) : ReadFileCallback::readShader(name, options);
    }

    ReaderWriter::ReadResult readHeightField(const std::string& name, const osgDB::Options* options) override {
        return _registrys ? _registrys->readHeightField(name, options)
                          : ReadFileCallback::readHeightField(name, options);
    }

    /** What is wrong, in a line that names the file; empty: nothing. */
    const std::string& problem() const { return _problem; }

private:
    template <typename Read>
    ReaderWriter::ReadResult guard(const std::string& name, const osgDB::Options* options, const Read& read) {
        std::error_code error;
        const std::string found = osgDB::findDataFile(name, options);
        const fs::path file = fs::canonical(found, error);
        if (error) return read(found);  // which says what is wrong
        const auto open = std::find_if(_open.begin(), _open.end(), [&](const auto& o) { return o.second == file; });
        if (open != _open.end()) {
            // Where references are left as they are, nothing is lost by it.
            if (_references == References::Load) noteProblem(open->first + ": refers to itself" + wayFrom(open + 1));
            return ReaderWriter::ReadResult::ERROR_IN_READING_FILE;
        }
        // The registry's callback may not want to open it. What is wrong with OpenFlight is noticed while it is read.
        if (!_registrys && endingOf(found) != flightEnding) checkReadable(found);
        _open.emplace_back(found, file);
        ReaderWriter::ReadResult result = read(found);
        _open.pop_back();
        if (_references == References::Load && result.validNode())
            resolveNames(*result.getNode(), fs::path(found).parent_path());
        return result;
    }

    ReaderWriter::ReadResult readFlightFile(const std::string& found, const osgDB::Options* options) {
        int error = 0;
        ReaderWriter::ReadResult result = readFlight(found, options, error);
        if (isSystemError(error)) noteProblem(found + ": " + std::strerror(error));
        return result;
    }

    /** Plug-ins take a disk that fails for the end of the file. */
    void checkReadable(const std::string& found) {
        const int error = readThrough(found);
        if (isSystemError(error)) noteProblem(found + ": " + std::strerror(error));
    }

    void noteProblem(const std::string& problem) {
        if (_problem.empty()) _problem = problem;
    }

    using OpenFiles = std::vector<std::pair<std::string, fs::path>>;

    std::string wayFrom(OpenFiles::const_iterator file) const {
        std::string way;
        for (; file != _open.end(); ++file)
            way += (way.empty() ? " by way of " : ", ") + file->second.filename().string();
        return way;
    }

    References _references;
    /** The callback that this one stands before. */
    osg::ref_ptr<ReadFileCallback> _registrys = osgDB::Registry::instance()->getReadFileCallback();
    OpenFiles _open;
    std::string _problem;
};

ReaderWriter::ReadResult readCatching(const fs::path& path, const osgDB::Options* options) {
    try {
        return osgDB::Registry::instance()->readNode(path.string(), options);
    } catch (const std::exception& exception) {  // from the plug-in, on damaged files
        return ReaderWriter::ReadResult(exception.what());
    }
}

std::string reasonOf(ReaderWriter::ReadResult& result, const fs::path& path) {
    if (!osgDB::Registry::instance()->getReaderWriterForExtension(endingOf(path)))
        return "no plug-in of OpenSceneGraph reads files ending in '." + endingOf(path) + "'";
    if (!result.message().empty()) return "cannot be read: " + result.message();
    return "holds no graph that OpenSceneGraph can read";
}

// The writers of the other formats say so themselves.
void tellUnknownClass(osg::Node& graph) {
    const std::string unknown = classUnknownToTextFormat(graph);
    if (!unknown.empty()) OSG_WARN << "Unknown class " << unknown << std::endl;
}

}  // namespace

osg::ref_ptr<osg::Node> readGraph(const fs::path& path, References references, osg::Referenced* parentPalettes) {
    checkInput(path);
    checkFlightFiles(path, references);
    const osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    options->setUserData(parentPalettes);
    if (references == References::Leave)
        options->setOptionString("keepExternalReferences noLoadExternalReferenceFiles");

    const osg::ref_ptr<ReadingGuard> guard = new ReadingGuard(references);
    options->setReadFileCallback(guard);
    osgDB::Registry::instance()->clearObjectCache();  // in which plug-ins keep what they read, whatever the options say
    const OsgMessages messages;
    ReaderWriter::ReadResult result = readCatching(path, options);
    if (!guard->problem().empty()) throw CommandError(ExitStatus::InputUnreadable, guard->problem());
    if (!result.validNode()) failToRead(path, reasonOf(result, path));
    for (const std::string& line : messages.lines())
        std::cerr << "sceneutils: " << withoutControlCharacters(path.string() + ": " + line) << "\n";
    if (references == References::Leave) resolveNames(*result.getNode(), path.parent_path());
    return result.getNode();
}

void writeGraph(osg::ref_ptr<osg::Node> graph, const fs::path& path, bool mayOverwrite) {
    const fs::path folder = fs::absolute(path).parent_path();
    graph = fitForFormat(withPortableNames(graph, folder), endingOf(path));
    const auto write = [&](ReaderWriter& writer, auto& to, const osgDB::Options* options) {
        if (endingOf(path) == textEnding) tellUnknownClass(*graph);
        return writer.writeNode(*graph, to, options);
    };
    writeOutput(path, mayOverwrite, {write, write});
}

void writePicture(const osg::Image& picture, const fs::path& path, bool mayOverwrite) {
    const auto write = [&](ReaderWriter& writer, auto& to, const osgDB::Options* options) {
        return writer.writeImage(picture, to, options);
    };
    writeOutput(path, mayOverwrite, {write, write});
}

}  // namespace veltrane::sceneutils::tool
