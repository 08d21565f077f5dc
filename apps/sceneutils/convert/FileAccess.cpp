#include "FileAccess.h"

#include "../files/CheckedReading.h"
#include "../files/ImageCollector.h"
#include "../files/OutputFormat.h"
#include "../files/WholeFile.h"

#include <osg/ImageSequence>
#include <osg/PagedLOD>
#include <osg/ProxyNode>
#include <osgDB/Registry>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>

namespace fs = std::filesystem;
using osgDB::ReaderWriter;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* modelEnding = ".flt";
constexpr const char* convertedEnding = ".ive";

constexpr std::streamsize blockSize = 1 << 16;

// Without these the writer gives every reference that is still in the graph the ending .ive, and drops its folder.
constexpr const char* keepReferenceNamesOptions = " useOriginalExternalReferences noWriteExternalReferenceFiles";

bool haveSameContent(const fs::path& a, const fs::path& b) {
    std::error_code error;
    if (fs::file_size(a, error) != fs::file_size(b, error) || error) return false;
    std::ifstream first(a, std::ios::binary);
    std::ifstream second(b, std::ios::binary);
    std::vector<char> ofFirst(blockSize);
    std::vector<char> ofSecond(blockSize);
    while (first && second) {
        first.read(ofFirst.data(), blockSize);
        second.read(ofSecond.data(), blockSize);
        if (first.gcount() != second.gcount()) return false;
        if (!std::equal(ofFirst.begin(), ofFirst.begin() + first.gcount(), ofSecond.begin())) return false;
    }
    return first.eof() && second.eof();
}

void checkWasRead(const fs::path& path, const CheckedInput& input) {
    if (input.error() == 0) return;
    throw OutputError(path.string() + ": cannot be read: " + std::strerror(input.error()));
}

osg::ref_ptr<osgDB::Options> copyOf(const osgDB::Options* options) {
    return options ? options->cloneOptions() : new osgDB::Options;
}

}  // namespace

/** Gives the references the names "0.flt", "1.flt", ... of their places in the plan, those that stay as they are "0",
 * ... */
class FileAccess::ReferenceRenamer : public osg::NodeVisitor {
public:
    explicit ReferenceRenamer(FileAccess& access) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _access(access) {
        setNodeMaskOverride(~0u);
        const auto& references = access._job.references;
        for (std::size_t i = 0; i < references.size(); ++i) _records[references[i].storedName].push_back(i);
    }

    using osg::NodeVisitor::apply;

    void apply(osg::ProxyNode& proxy) override {
        if (_seen.insert(&proxy).second && proxy.getNumFileNames() > 0) rename(proxy);
        traverse(proxy);
    }

private:
    // The records of one name are dealt out in their order: they may differ in the palettes that they take over.
    void rename(osg::ProxyNode& proxy) {
        const auto records = _records.find(proxy.getFileName(0));
        if (records == _records.end()) return;

        std::size_t& next = _dealt[proxy.getFileName(0)];
        const std::size_t reference = records->second[std::min(next++, records->second.size() - 1)];
        _access._palettesOfReferences[reference] = proxy.getUserData();
        const bool isFollowed = _access._job.references[reference].isFollowed;
        const std::string name = std::to_string(reference) + (isFollowed ? modelEnding : "");
        if (isFollowed) _access._followedReferences[name] = reference;
        proxy.setFileName(0, name);
    }

    FileAccess& _access;
    std::map<std::string, std::vector<std::size_t>> _records;
    std::map<std::string, std::size_t> _dealt;
    std::set<osg::ProxyNode*> _seen;
};

/** Gives the references the names that the output shall hold. */
class FileAccess::FinalNames : public osg::NodeVisitor {
public:
    explicit FinalNames(const FileAccess& access) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {
        setNodeMaskOverride(~0u);
        for (std::size_t i = 0; i < access._job.references.size(); ++i) {
            const std::string number = std::to_string(i);
            for (const char* ending : {"", modelEnding, convertedEnding}) _names[number + ending] = access.finalName(i);
        }
    }

    using osg::NodeVisitor::apply;

    void apply(osg::ProxyNode& proxy) override {
        rename(proxy);
        traverse(proxy);
    }
    void apply(osg::PagedLOD& plod) override {
        rename(plod);
        traverse(plod);
    }

private:
    template <typename Node>
    void rename(Node& node) {
        if (node.getNumFileNames() == 0 || !_renamed.insert(&node).second) return;
        const auto name = _names.find(node.getFileName(0));
        if (name != _names.end()) node.setFileName(0, name->second);
    }

    std::map<std::string, std::string> _names;
    std::set<osg::Node*> _renamed;
};

FileAccess::FileAccess(const ConversionJob& job, osg::Referenced* palettes,
                       const std::map<std::string, std::string>& texturesPlaced, Obtain obtain)
    : _job(job),
      _palettes(palettes),
      _texturesPlaced(texturesPlaced),
      _obtain(std::move(obtain)),
      _palettesOfReferences(job.references.size()),
      _outcomes(job.references.size(), Outcome::NotAskedFor) {}

void FileAccess::install() {
    osgDB::Registry* registry = osgDB::Registry::instance();
    registry->setFindFileCallback(this);
    registry->setReadFileCallback(this);
    registry->setWriteFileCallback(this);
}

void FileAccess::uninstall() {
    osgDB::Registry* registry = osgDB::Registry::instance();
    registry->setFindFileCallback(nullptr);
    registry->setReadFileCallback(nullptr);
    registry->setWriteFileCallback(nullptr);
}

// What a file names is looked for from that file's folder, and never in the folder that happens to be the working
// directory.
std::string FileAccess::findDataFile(const std::string& name, const osgDB::Options*, osgDB::CaseSensitivity) {
    const fs::path folder = _job.path.parent_path();
    std::optional<fs::path> found;
    try {
        found = _finder.findTexture(folder, name);
    } catch (const std::exception& error) {  // which the reader takes for a file that is not there
        noteProblem(error.what());
        return {};
    }
    if (_isReading && onLookup) onLookup(folder, name, found.value_or(fs::path()));
    if (found) return found->string();
    if (_isReading) noteMissingTexture(name);
    return {};
}

ReaderWriter::ReadResult FileAccess::readImage(const std::string& name, const osgDB::Options* options) {
    int error = 0;
    ReaderWriter::ReadResult result = tool::readImage(name, name, options, error);
    if (error != 0) {
        noteUnreadable(name, error);
    } else if (!result.validImage()) {
        noteMissingTexture(name);
    }
    return result;
}

// The attributes of a texture. Who cannot read them would go on without them.
ReaderWriter::ReadResult FileAccess::readObject(const std::string& name, const osgDB::Options* options) {
    ReaderWriter::ReadResult result = ReaderWriter::ReadResult::ERROR_IN_READING_FILE;
    const int error = readThrough(name);
    if (isSystemError(error)) {
        noteUnreadable(name, error);
    } else if (error != 0) {
        noteMissingTexture(name);
    } else {
        result = osgDB::ReadFileCallback::readObject(name, options);
        if (!result.validObject()) noteProblem(nameOf(name) + ": cannot be read");
    }
    return result;
}

std::string FileAccess::nameOf(const fs::path& path) const {
    return relativeName(path.lexically_normal(), _job.inputFolder);
}

void FileAccess::noteUnreadable(const fs::path& path, int error) {
    const std::string reason = std::strerror(error);
    noteProblem(path == fs::path(_job.path) ? reason : nameOf(path) + ": " + reason);
}

// Not the file's fault: what would come out all the same is not what the database holds.
void FileAccess::noteProblem(const std::string& problem) {
    if (_result.problem.empty()) _result.problem = problem;
}

// By the file that it leads to, not by the name: files in several folders may mean the same texture.
void FileAccess::noteMissingTexture(const std::string& name) {
    std::string withSlashes = name;
    std::replace(withSlashes.begin(), withSlashes.end(), '\\', '/');
    const fs::path path = (_job.identity.parent_path() / withSlashes).lexically_normal();
    const std::string shown = relativeName(path, _job.inputFolder);

    auto& missing = _result.texturesMissing;
    if (std::find(missing.begin(), missing.end(), shown) == missing.end()) missing.push_back(shown);
}

ReaderWriter::ReadResult FileAccess::readNode(const std::string& name, const osgDB::Options* options) {
    if (_wasRead) return readReferencedFile(name);
    _wasRead = true;
    return readPlannedFile(options);
}

ReaderWriter::ReadResult FileAccess::readPlannedFile(const osgDB::Options* options) {
    const osg::ref_ptr<osgDB::Options> withPalettes = copyOf(options);
    withPalettes->setUserData(_palettes.get());
    _isReading = true;
    int error = 0;
    ReaderWriter::ReadResult result = readFlight(_job.path, withPalettes, error);
    _isReading = false;
    if (error != 0) noteUnreadable(_job.path, error);
    _graph = result.getNode();
    if (afterReading) afterReading();
    if (_graph) {
        ReferenceRenamer renamer(*this);
        _graph->accept(renamer);
    }
    return result;
}

ReaderWriter::ReadResult FileAccess::readReferencedFile(const std::string& name) {
    const auto followed = _followedReferences.find(name);
    if (followed == _followedReferences.end()) return ReaderWriter::ReadResult::FILE_NOT_FOUND;

    const std::size_t reference = followed->second;
    std::optional<osg::BoundingSphere> sphere;
    try {
        sphere = _obtain(reference, _palettesOfReferences[reference].get());
    } catch (const std::exception& error) {  // which the library takes for a file that is not there
        noteProblem(error.what());
    }
    _outcomes[reference] = sphere ? Outcome::Obtained : Outcome::Failed;
    if (!sphere) return ReaderWriter::ReadResult::FILE_NOT_FOUND;

    osg::ref_ptr<osg::Group> standIn = new osg::Group;
    standIn->setInitialBound(*sphere);
    return standIn.get();
}

ReaderWriter::WriteResult FileAccess::writeNode(const osg::Node& node, const std::string& name,
                                                const osgDB::Options* options) {
    // What stands in for a referenced file is not written: that file was written when it was converted.
    if (&node != _graph) return ReaderWriter::WriteResult::FILE_SAVED;
    if (!_result.problem.empty()) return ReaderWriter::WriteResult(name + ": " + _result.problem);

    try {
        writeWhole(*_graph, options);
        return ReaderWriter::WriteResult::FILE_SAVED;
    } catch (const std::exception& error) {
        _result.problem = error.what();
        _result.isOutputProblem = true;
        return ReaderWriter::WriteResult(name + ": " + error.what());
    }
}

void FileAccess::writeWhole(osg::Node& node, const osgDB::Options* options) {
    ReaderWriter* writer = osgDB::Registry::instance()->getReaderWriterForExtension("ive");
    if (!writer) throw OutputError("OpenSceneGraph's plug-in for .ive files is not installed");

    // Nobody uses the graph after this, so it may keep the names that are meant for the file.
    FinalNames names(*this);
    node.accept(names);
    settleTextures(node);

    const osg::ref_ptr<osgDB::Options> forWriting = copyOf(options);
    forWriting->setDatabasePath(_job.output.parent_path().string());
    forWriting->setPluginStringData("filename", _job.output.string());
    forWriting->setOptionString(forWriting->getOptionString() + keepReferenceNamesOptions);
    checkStaysBelow(_job.outputFolder, _job.output.parent_path());
    if (beforeWriting) beforeWriting(_job.output);
    WholeFile file(_job.output, mayReplace(_job.output));
    const OsgMessages messages;
    const ReaderWriter::WriteResult result = writer->writeNode(node, file.stream(), forWriting.get());
    file.stream().flush();
    if (file.stream() && !result.success()) {
        throw OutputError(_job.output.string() + ": OpenSceneGraph cannot write this graph as .ive");
    }
    const std::string loss = toldLoss(messages);
    if (file.stream() && !loss.empty())
        throw OutputError(_job.output.string() + ": OpenSceneGraph cannot write all of this as .ive: " + loss);
    if (beforeCommitting) file.beforeRenaming = beforeCommitting;
    _result.bytesOut = file.commit();
    _result.written = true;
}

std::string FileAccess::finalName(std::size_t index) const {
    const JobReference& reference = _job.references[index];
    if (_outcomes[index] == Outcome::Failed) return reference.storedName;
    return _outcomes[index] == Outcome::Obtained ? reference.convertedName : reference.plainName;
}

void FileAccess::settleTextures(osg::Node& node) {
    ImageCollector collector;
    node.accept(collector);
    for (const osg::ref_ptr<osg::Image>& image : collector.images) {
        if (image->getWriteHint() == osg::Image::STORE_INLINE) continue;
        std::error_code error;
        const fs::path texture = fs::canonical(image->getFileName(), error);
        if (error) {
            image->setWriteHint(osg::Image::STORE_INLINE);  // it exists nowhere else
            continue;
        }
        if (_job.textures == TextureMode::Embed) {
            embedTexture(*image, texture);
        } else {
            image->setFileName(relativeName(placeTexture(texture), _job.output.parent_path()));
        }
    }
}

// OpenSceneGraph takes images of the same name and size for the same image, so the name must tell them apart.
void FileAccess::embedTexture(osg::Image& image, const fs::path& texture) const {
    if (!image.data() || dynamic_cast<const osg::ImageSequence*>(&image)) {
        throw OutputError(_job.output.string() + ": the texture " + relativeName(texture, _job.inputFolder) +
                          " cannot be stored in it: it is no single picture");
    }
    image.setWriteHint(osg::Image::STORE_INLINE);
    image.setFileName(gatheredName(_job.inputFolder, texture));
}

fs::path FileAccess::placeTexture(const fs::path& texture) {
    const fs::path place = placeOfTexture(_job, texture);
    if (place == texture) return place;

    const bool isNew = _texturesPlaced.emplace(place.string(), texture.string()).second;
    if (isNew) {
        if (!haveSameContent(texture, place)) copyTexture(texture, place);
        if (afterPlacing) afterPlacing(place);
        _result.texturesPlaced[place.string()] = texture.string();
    }
    return place;
}

void FileAccess::copyTexture(const fs::path& from, const fs::path& to) {
    try {
        CheckedInput source(from);
        checkWasRead(from, source);
        checkStaysBelow(_job.outputFolder, to.parent_path());
        if (beforeWriting) beforeWriting(to);
        WholeFile copy(to, mayReplace(to));
        if (fs::file_size(from) > 0) copy.stream() << source.stream().rdbuf();
        checkWasRead(from, source);
        copy.keepTimeOf(from);
        _result.textureBytesOut += copy.commit();
    } catch (const OutputError&) {
        // Another process may have put it there meanwhile.
        if (!haveSameContent(from, to)) throw;
    }
}

}  // namespace veltrane::sceneutils::tool
