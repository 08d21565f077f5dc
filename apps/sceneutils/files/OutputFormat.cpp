#include "OutputFormat.h"

#include "../Command.h"
#include "GuardedWork.h"
#include "OsgMessages.h"
#include "PlainText.h"
#include "WholeFile.h"

#include <osgDB/FileNameUtils>
#include <osgDB/Registry>

#include <csignal>
#include <iostream>
#include <set>

#include <unistd.h>

namespace fs = std::filesystem;
using osgDB::ReaderWriter;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* keepReferenceNames = "useOriginalExternalReferences noWriteExternalReferenceFiles";
constexpr const char* allDigits = "precision 17";  // of numbers in text formats, which have six otherwise

std::string endingOf(const fs::path& path) {
    return osgDB::getLowerCaseFileExtension(path.string());
}

[[noreturn]] void failToWrite(const fs::path& path, const std::string& reason) {
    throw CommandError(ExitStatus::OutputNotWritten, path.string() + ": " + reason);
}

ReaderWriter* findWriter(const fs::path& path) {
    return osgDB::Registry::instance()->getReaderWriterForExtension(endingOf(path));
}

osg::ref_ptr<osgDB::Options> writerOptions(const fs::path& path) {
    osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    if (endingOf(path) == "ive") options->setOptionString(keepReferenceNames);
    options->setDatabasePath(path.parent_path().string());
    options->setPluginStringData("filename", path.string());
    const std::string ending = endingOf(path);
    options->setPluginStringData("fileType", ending == "osgt" ? "Ascii" : ending == "osgx" ? "XML" : "Binary");
    if (ending == "osgt" || ending == "osgx" || ending == "osg") options->setOptionString(allDigits);
    return options;
}

/** Whether the format is one file, which its plug-in can write into a stream. */
bool isWrittenAsStream(const fs::path& path) {
    static const std::set<std::string> endings = {"ive",  "osgb", "osgt", "osgx", "osg", "png", "jpg",
                                                  "jpeg", "bmp",  "tga",  "rgb",  "tif", "tiff"};
    return endings.count(endingOf(path)) != 0;
}

void checkResult(const ReaderWriter::WriteResult& result, const fs::path& path, const OsgMessages& messages) {
    if (result.success()) return;
    const std::string told = result.message().empty() ? toldLoss(messages) : result.message();
    const std::string reason = told.empty() ? "" : ": " + withoutControlCharacters(told);
    failToWrite(path, "OpenSceneGraph cannot write this as '." + endingOf(path) + "'" + reason);
}

// A writer of one of OpenSceneGraph's own formats that has to tell something has left something out.
void checkNothingIsLost(const fs::path& path, const OsgMessages& messages) {
    const std::string loss = toldLoss(messages);
    if (loss.empty()) return;
    failToWrite(path, "OpenSceneGraph cannot write all of this as '." + endingOf(path) +
                          "': " + withoutControlCharacters(loss));
}

void writeStream(const fs::path& path, bool mayOverwrite, const decltype(OutputCalls::toStream)& write) {
    WholeFile file(path, mayOverwrite);
    const OsgMessages messages;
    const ReaderWriter::WriteResult result = write(*findWriter(path), file.stream(), writerOptions(path).get());
    file.stream().flush();
    if (file.stream()) checkResult(result, path, messages);
    if (file.stream()) checkNothingIsLost(path, messages);
    file.commit();
}

/**
 * A folder beside the output in which files come into being before they are put in their places. A signal to end waits
 * until it is gone.
 */
class Workshop {
public:
    explicit Workshop(const fs::path& output) : _path(WholeFile::temporaryPath(output, getpid())) {
        std::error_code error;
        fs::create_directories(_path, error);
        if (error) throw OutputError(output.string() + ": cannot be written: " + error.message());
        sigset_t ending = {};
        sigemptyset(&ending);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ending, signal);
        pthread_sigmask(SIG_BLOCK, &ending, &_signalsBefore);
    }
    ~Workshop() {
        std::error_code ignored;
        fs::remove_all(_path, ignored);
        pthread_sigmask(SIG_SETMASK, &_signalsBefore, nullptr);
    }
    Workshop(const Workshop&) = delete;
    Workshop& operator=(const Workshop&) = delete;

    const fs::path& path() const { return _path; }

private:
    fs::path _path;
    sigset_t _signalsBefore = {};
};

// Such formats may put more than one file beside each other (materials, textures).
void writeFiles(const fs::path& path, bool mayOverwrite, const decltype(OutputCalls::toFile)& write) {
    const Workshop workshop(path);
    const fs::path made = workshop.path() / path.filename();
    const OsgMessages messages;
    checkResult(write(*findWriter(path), made.string(), writerOptions(path).get()), path, messages);
    for (const std::string& line : messages.lines())
        std::cerr << "sceneutils: " << withoutControlCharacters(path.string() + ": " + line) << "\n";
    std::error_code error;
    if (fs::file_size(made, error) == 0 || error) failToWrite(path, "OpenSceneGraph wrote nothing");

    for (const fs::directory_entry& entry : fs::directory_iterator(workshop.path()))
        checkOutputPath(path.parent_path() / entry.path().filename(), mayOverwrite);
    for (const fs::directory_entry& entry : fs::directory_iterator(workshop.path()))
        fs::rename(entry.path(), path.parent_path() / entry.path().filename());
}

}  // namespace

void checkOutput(const fs::path& path, bool mayOverwrite) {
    if (!findWriter(path)) {
        throw CommandError(
            ExitStatus::Usage,
            path.string() + ": no plug-in of OpenSceneGraph writes files ending in '." + endingOf(path) + "'");
    }
    try {
        checkOutputPath(path, mayOverwrite);
    } catch (const OutputError& error) {
        throw CommandError(ExitStatus::OutputNotWritten, error.what());
    }
}

void checkIsNative(const fs::path& path, const std::string& kept) {
    static const std::set<std::string> endings = {"ive", "osg", "osgb", "osgt", "osgx"};
    if (endings.count(endingOf(path)) != 0) return;
    throw CommandError(ExitStatus::Usage,
                       path.string() +
                           ": the output's name must end in .ive, .osg, .osgb, .osgt or .osgx; no other "
                           "format keeps " +
                           kept);
}

std::string toldLoss(const OsgMessages& messages) {
    // The .ive writer tells this of every plain node, and writes it whole.
    static const std::string harmless = "Unknown node in DataOutputStream::writeNode(..), className()=Node";
    for (const std::string& line : messages.lines()) {
        if (line != harmless) return line;
    }
    return "";
}

void writeOutput(const fs::path& path, bool mayOverwrite, const OutputCalls& calls) {
    checkOutput(path, mayOverwrite);
    const WritingNote note(path);
    try {
        if (isWrittenAsStream(path)) {
            writeStream(path, mayOverwrite, calls.toStream);
        } else {
            writeFiles(path, mayOverwrite, calls.toFile);
        }
    } catch (const OutputError& error) {
        throw CommandError(ExitStatus::OutputNotWritten, error.what());
    } catch (const fs::filesystem_error& error) {
        failToWrite(path, "cannot be written: " + error.code().message());
    }
}

}  // namespace veltrane::sceneutils::tool
