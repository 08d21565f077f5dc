#include "CheckedReading.h"

#include <osg/Geometry>
#include <osg/ProxyNode>
#include <osgDB/FileNameUtils>
#include <osgDB/ReadFile>
#include <osgDB/Registry>

#include <cerrno>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;
using osgDB::ReaderWriter;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* flightEnding = "flt";
constexpr const char* keepReferencesOption = "keepExternalReferences";
constexpr std::size_t blockSize = 1 << 16;

/** Whether it is a device, or a pipe: reading those may never end. */
bool isDevice(const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    return fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status);
}

/** Reads what a file refers to, with the palettes that each reference hands on. */
class ReferenceReader : public osg::NodeVisitor {
public:
    explicit ReferenceReader(osgDB::Options& options) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _options(options) {}

    using osg::NodeVisitor::apply;

    void apply(osg::ProxyNode& proxy) override {
        _options.setUserData(proxy.getUserData());
        proxy.setUserData(nullptr);
        for (unsigned int i = 0; i < proxy.getNumFileNames(); ++i) {
            const osg::ref_ptr<osg::Node> referenced = osgDB::readRefNodeFile(proxy.getFileName(i), &_options);
            if (referenced) proxy.addChild(referenced);
        }
    }

private:
    osgDB::Options& _options;
};

}  // namespace

CheckedInput::CheckedInput(const fs::path& path) {
    errno = 0;
    if (isDevice(path)) {
        errno = ENXIO;
    } else if (_buffer.open(path, std::ios::in | std::ios::binary)) {
        return;
    }
    _buffer.error = errno != 0 ? errno : EIO;
    _stream.setstate(std::ios::failbit);
}

CheckedInput::Buffer::int_type CheckedInput::Buffer::underflow() {
    try {
        return std::filebuf::underflow();
    } catch (const std::ios_base::failure& failure) {
        noteError(failure);
        return traits_type::eof();
    }
}

std::streamsize CheckedInput::Buffer::xsgetn(char* to, std::streamsize count) {
    try {
        return std::filebuf::xsgetn(to, count);
    } catch (const std::ios_base::failure& failure) {
        noteError(failure);
        return 0;
    }
}

void CheckedInput::Buffer::noteError(const std::ios_base::failure& failure) {
    const bool isSystems = failure.code().category() == std::generic_category() && failure.code().value() != 0;
    if (error == 0) error = isSystems ? failure.code().value() : EIO;
}

bool isSystemError(int error) {
    switch (error) {
        case 0:
        case ENOENT:
        case ENOTDIR:
        case EACCES:
        case EPERM:
        case ELOOP:
        case ENAMETOOLONG:
        case EISDIR:
        case ENXIO:
            return false;
        default:
            return true;
    }
}

int readThrough(const fs::path& path) {
    CheckedInput input(path);
    std::vector<char> block(blockSize);
    while (input.stream().read(block.data(), static_cast<std::streamsize>(block.size()))) {
    }
    return input.error();
}

// What the plug-in does when it is handed the file's name.
ReaderWriter::ReadResult readFlight(const fs::path& path, const osgDB::Options* options, int& error) {
    osgDB::Registry& registry = *osgDB::Registry::instance();
    error = 0;
    if (osgDB::getLowerCaseFileExtension(path.string()) != flightEnding)
        return registry.readNodeImplementation(path.string(), options);
    const osg::ref_ptr<osg::Object> known = registry.getObjectCache()->getRefFromObjectCache(path.string());
    if (auto* node = dynamic_cast<osg::Node*>(known.get())) return node;

    ReaderWriter* reader = registry.getReaderWriterForExtension(flightEnding);
    if (!reader) return ReaderWriter::ReadResult("there is no plug-in of OpenSceneGraph for OpenFlight files");
    const osg::ref_ptr<osgDB::Options> own = options ? options->cloneOptions() : new osgDB::Options;
    own->getDatabasePathList().push_front(path.parent_path().string());
    CheckedInput input(path);
    input.stream().imbue(std::locale::classic());
    ReaderWriter::ReadResult result = ReaderWriter::ReadResult::ERROR_IN_READING_FILE;
    try {
        if (input.error() == 0) result = reader->readNode(input.stream(), own);
    } catch (const std::exception&) {
        if (input.error() == 0) throw;
    }
    error = input.error();
    if (error != 0) return ReaderWriter::ReadResult::ERROR_IN_READING_FILE;

    osg::Node* const graph = result.getNode();
    if (!graph) return result;
    registry.getObjectCache()->addEntryToObjectCache(path.string(), graph);
    if (own->getOptionString().find(keepReferencesOption) == std::string::npos) {
        ReferenceReader references(*own);
        graph->accept(references);
    }
    osg::ConfigureBufferObjectsVisitor buffers;
    graph->accept(buffers);
    return result;
}

ReaderWriter::ReadResult readImage(const std::string& name, const fs::path& path, const osgDB::Options* options,
                                   int& error) {
    osgDB::Registry& registry = *osgDB::Registry::instance();
    ReaderWriter* reader = registry.getReaderWriterForExtension(osgDB::getLowerCaseFileExtension(path.string()));
    CheckedInput input(path);
    ReaderWriter::ReadResult result = ReaderWriter::ReadResult::FILE_NOT_HANDLED;
    if (reader && input.error() == 0) result = reader->readImage(input.stream(), options);
    error = isSystemError(input.error()) ? input.error() : 0;
    if (error != 0 || input.error() == ENXIO) return ReaderWriter::ReadResult::ERROR_IN_READING_FILE;
    if (result.validImage()) {
        result.getImage()->setFileName(name);
        return result;
    }
    // Some plug-ins want the name. And what failed for want of memory may not fail again.
    const int again = readThrough(path);
    error = isSystemError(again) ? again : 0;
    if (error != 0) return ReaderWriter::ReadResult::ERROR_IN_READING_FILE;
    return registry.readImageImplementation(name, options);
}

}  // namespace veltrane::sceneutils::tool
