#pragma once

#include <osgDB/Callbacks>
#include <osgDB/FileUtils>
#include <osgDB/Options>
#include <osgDB/ReaderWriter>
#include <osgDB/Registry>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

/** Records the names under which models are asked of osgDB while it lives, and may answer in its place. */
class ModelRequests {
public:
    using Reader = std::function<osgDB::ReaderWriter::ReadResult(const std::string&, const osgDB::Options*)>;

    /** Answers as osgDB does. */
    ModelRequests()
        : ModelRequests([](const std::string& name, const osgDB::Options* options) {
              return osgDB::Registry::instance()->readNodeImplementation(name, options);
          }) {}
    explicit ModelRequests(Reader reader) : _callback(new Callback(std::move(reader))) {
        osgDB::Registry::instance()->setReadFileCallback(_callback.get());
    }
    ~ModelRequests() { osgDB::Registry::instance()->setReadFileCallback(nullptr); }
    ModelRequests(const ModelRequests&) = delete;
    ModelRequests& operator=(const ModelRequests&) = delete;

    const std::vector<std::string>& names() const { return _callback->names; }
    std::ptrdiff_t count(const std::string& name) const {
        return std::count(_callback->names.begin(), _callback->names.end(), name);
    }
    osgDB::Options* lastOptions() const { return _callback->lastOptions.get(); }

private:
    struct Callback : osgDB::ReadFileCallback {
        explicit Callback(Reader answer) : reader(std::move(answer)) {}
        osgDB::ReaderWriter::ReadResult readNode(const std::string& name, const osgDB::Options* options) override {
            names.push_back(name);
            lastOptions = options ? new osgDB::Options(*options) : nullptr;
            return reader(name, options);
        }
        Reader reader;
        std::vector<std::string> names;
        osg::ref_ptr<osgDB::Options> lastOptions;
    };
    osg::ref_ptr<Callback> _callback;
};

/** Records the options under which models are written while it lives. */
class ModelWrites {
public:
    ModelWrites() { osgDB::Registry::instance()->setWriteFileCallback(_callback.get()); }
    ~ModelWrites() { osgDB::Registry::instance()->setWriteFileCallback(nullptr); }
    ModelWrites(const ModelWrites&) = delete;
    ModelWrites& operator=(const ModelWrites&) = delete;

    osgDB::Options* lastOptions() const { return _callback->lastOptions.get(); }

private:
    struct Callback : osgDB::WriteFileCallback {
        osgDB::ReaderWriter::WriteResult writeNode(const osg::Node& node, const std::string& name,
                                                   const osgDB::Options* options) override {
            lastOptions = options ? new osgDB::Options(*options) : nullptr;
            return osgDB::WriteFileCallback::writeNode(node, name, options);
        }
        osg::ref_ptr<osgDB::Options> lastOptions;
    };
    osg::ref_ptr<Callback> _callback = new Callback;
};

/** Finds "D/D/rest" at "D/rest", and never anywhere else, while it lives. */
class DoubledDirectoriesFound {
public:
    DoubledDirectoriesFound() { osgDB::Registry::instance()->setFindFileCallback(new Callback); }
    ~DoubledDirectoriesFound() { osgDB::Registry::instance()->setFindFileCallback(nullptr); }
    DoubledDirectoriesFound(const DoubledDirectoriesFound&) = delete;
    DoubledDirectoriesFound& operator=(const DoubledDirectoriesFound&) = delete;

    static std::string withoutDoubling(const std::string& name) {
        for (std::string::size_type end = name.rfind('/'); end != std::string::npos && end > 0;
             end = name.rfind('/', end - 1)) {
            const std::string directory = name.substr(0, end + 1);
            if (name.compare(end + 1, directory.size(), directory) == 0) return name.substr(directory.size());
        }
        return name;
    }

private:
    struct Callback : osgDB::FindFileCallback {
        std::string findDataFile(const std::string& name, const osgDB::Options* options,
                                 osgDB::CaseSensitivity caseSensitivity) override {
            const std::string single = withoutDoubling(name);
            if (single == name) return osgDB::FindFileCallback::findDataFile(name, options, caseSensitivity);
            return osgDB::fileExists(single) ? single : std::string();
        }
    };
};

}  // namespace testing_support
