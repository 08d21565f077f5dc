// Turns an OpenFlight database, of as many folders as it has, into a paged one.
//
//     page_database MASTER.flt OUTPUT.ive      OUTPUT.ive: beside MASTER.flt; the other .ive files lie beside theirs

#include <sceneutils/CreatePagedLODVisitor.h>

#include <osgDB/FileUtils>
#include <osgDB/Registry>

#include <iostream>
#include <string>

namespace {

// The visitor puts a file's folder before names that have it already: "tiles/tiles/a.flt" is to be "tiles/a.flt".
class FolderOnce : public osgDB::FindFileCallback {
public:
    std::string findDataFile(const std::string& name, const osgDB::Options* options,
                             osgDB::CaseSensitivity caseSensitivity) override {
        for (auto end = name.rfind('/'); end != std::string::npos && end > 0; end = name.rfind('/', end - 1)) {
            const std::string folder = name.substr(0, end + 1);
            if (folder.rfind("..", 0) == 0) continue;  // "../../a.flt" is not "../a.flt" with its folder twice
            if (name.compare(end + 1, folder.size(), folder) != 0) continue;
            const std::string once = name.substr(folder.size());
            return osgDB::fileExists(once) ? once : std::string();
        }
        return osgDB::FindFileCallback::findDataFile(name, options, caseSensitivity);
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: page_database MASTER.flt OUTPUT.ive\n";
        return 1;
    }
    osgDB::Registry::instance()->setFindFileCallback(new FolderOnce);

    veltrane::sceneutils::CreatePagedLODVisitor visitor(nullptr);
    visitor.setRecurse(true);     // the files that the master refers to, and theirs in turn
    visitor.setMaxRange(5000.0);  // a tile is seen from this far beyond its radius
    const osg::ref_ptr<osg::Node> world = visitor.convert(argv[1], argv[2]);
    if (!world) return 2;

    // The visitor does not notice when a file cannot be written.
    if (!osgDB::fileExists(argv[2])) {
        std::cerr << argv[2] << " was not written\n";
        return 3;
    }
    std::cout << argv[2] << " shows a world of radius " << world->getBound().radius() << "\n";
    return 0;
}
