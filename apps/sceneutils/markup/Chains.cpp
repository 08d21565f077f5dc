#include "Chains.h"

#include "../files/CapturedErrors.h"
#include "../files/PlainNormals.h"

#include <sceneutils/LODMarkup.h>

#include <osgDB/Registry>

namespace veltrane::sceneutils::tool {

namespace {

/** Keeps the graphs that are to be written, for the length of a scope. */
class CapturedFiles {
public:
    CapturedFiles() { osgDB::Registry::instance()->setWriteFileCallback(_keeper); }
    ~CapturedFiles() { osgDB::Registry::instance()->setWriteFileCallback(_before); }
    CapturedFiles(const CapturedFiles&) = delete;
    CapturedFiles& operator=(const CapturedFiles&) = delete;

    const std::map<std::string, osg::ref_ptr<osg::Node>>& files() const { return _keeper->files; }

private:
    struct Keeper : osgDB::WriteFileCallback {
        osgDB::ReaderWriter::WriteResult writeNode(const osg::Node& node, const std::string& name,
                                                   const osgDB::Options*) override {
            files[name] = const_cast<osg::Node*>(&node);  // who writes it later names its images anew
            return osgDB::ReaderWriter::WriteResult::FILE_SAVED;
        }

        std::map<std::string, osg::ref_ptr<osg::Node>> files;
    };

    osg::ref_ptr<osgDB::WriteFileCallback> _before = osgDB::Registry::instance()->getWriteFileCallback();
    osg::ref_ptr<Keeper> _keeper = new Keeper;
};

}  // namespace

Chains makeChains(const std::vector<osg::Node*>& nodes) {
    Chains chains;
    chains.graph = new osg::Group;
    const CapturedErrors errors;
    const CapturedFiles written;
    for (osg::Node* node : nodes) {
        const osg::ref_ptr<osg::Group> ofNode = LODMarkup().markupPath(node);
        for (unsigned int i = 0; i < ofNode->getNumChildren(); ++i) chains.graph->addChild(ofNode->getChild(i));
    }
    bindNormalsOverall(*chains.graph);
    chains.count = chains.graph->getNumChildren();
    chains.description = errors.text();
    chains.files = written.files();
    return chains;
}

}  // namespace veltrane::sceneutils::tool
