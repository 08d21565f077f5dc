#pragma once

#include "support/Graphs.h"

#include <osg/Notify>
#include <osg/ProxyNode>
#include <osgDB/Registry>

#include <functional>
#include <string>

namespace fuzzing {

/** While it lives, files are read from nowhere and written to nowhere. */
class FilesInMemory {
public:
    /** @param makeMaster what the file "master.flt" holds */
    explicit FilesInMemory(std::function<osg::ref_ptr<osg::Node>()> makeMaster) {
        osgDB::Registry::instance()->setReadFileCallback(new Reader(std::move(makeMaster)));
        osgDB::Registry::instance()->setWriteFileCallback(new Writer);
    }
    ~FilesInMemory() {
        osgDB::Registry::instance()->setReadFileCallback(nullptr);
        osgDB::Registry::instance()->setWriteFileCallback(nullptr);
    }
    FilesInMemory(const FilesInMemory&) = delete;
    FilesInMemory& operator=(const FilesInMemory&) = delete;

private:
    class Reader : public osgDB::ReadFileCallback {
    public:
        explicit Reader(std::function<osg::ref_ptr<osg::Node>()> makeMaster) : _makeMaster(std::move(makeMaster)) {}

        osgDB::ReaderWriter::ReadResult readNode(const std::string& name, const osgDB::Options*) override {
            const auto endsWith = [&name](const std::string& end) {
                return name.size() >= end.size() && name.compare(name.size() - end.size(), end.size(), end) == 0;
            };
            if (name.find("missing") != std::string::npos) return osgDB::ReaderWriter::ReadResult::FILE_NOT_FOUND;
            if (endsWith("master.flt")) return _makeMaster().get();
            if (name.find(".flt") != std::string::npos || endsWith("rock.osg")) return makeModel().get();
            return osgDB::ReaderWriter::ReadResult::FILE_NOT_FOUND;
        }

    private:
        /** With a reference to itself, or to a file that has one. */
        static osg::ref_ptr<osg::Node> makeModel() {
            const osg::ref_ptr<osg::Group> model = new osg::Group;
            model->addChild(testing_support::makeGeode(testing_support::makeSquare()));
            const osg::ref_ptr<osg::ProxyNode> reference = new osg::ProxyNode;
            reference->setFileName(0, "tile.flt");
            model->addChild(reference);
            return model;
        }

        std::function<osg::ref_ptr<osg::Node>()> _makeMaster;
    };

    class Writer : public osgDB::WriteFileCallback {
    public:
        osgDB::ReaderWriter::WriteResult writeNode(const osg::Node&, const std::string&,
                                                   const osgDB::Options*) override {
            return osgDB::ReaderWriter::WriteResult::FILE_SAVED;
        }
    };
};

/** Keeps back what OpenSceneGraph has to tell, for the length of a scope. */
class Silence {
public:
    Silence() : _level(osg::getNotifyLevel()) { osg::setNotifyLevel(osg::ALWAYS); }
    ~Silence() { osg::setNotifyLevel(_level); }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    osg::NotifySeverity _level;
};

}  // namespace fuzzing
