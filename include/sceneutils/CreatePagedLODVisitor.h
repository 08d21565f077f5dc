#pragma once

#include <sceneutils/Export.h>

#include <osg/BoundingSphere>
#include <osg/NodeVisitor>
#include <osg/PagedLOD>
#include <osg/ProxyNode>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <list>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace veltrane::sceneutils {

/**
 * Turns an OpenFlight master file, whose external references name other ".flt" files, into a paged ".ive" database.
 *
 *     veltrane::sceneutils::CreatePagedLODVisitor visitor(nullptr);
 *     visitor.setRecurse(true);
 *     osg::ref_ptr<osg::Node> world = visitor.convert("world.flt", "world.ive");
 *
 * Every osg::ProxyNode whose file name holds ".flt" and whose file can be read is hung below a new osg::PagedLOD that
 * loads that file (or, when references are converted, the ".ive" of its name) as soon as the eye comes nearer than the
 * model's bounding radius plus the range set here. Each graph that is written is first optimised, given smooth normals,
 * generated shaders and trilinear texture filters. Referenced files are written beside their inputs; the texture files
 * themselves are not copied, only named.
 *
 * A reference whose file cannot be read stays as it is, but for its name when references are converted; the next one
 * that names the file tries again.
 *
 * Reported on standard error, a line each: "Converting NAME", "Saving PATH", "done convert", "Error reading file PATH".
 * Nothing is thrown. A write that fails is not noticed: check the output, or use an osgDB::WriteFileCallback.
 *
 * What an application should know:
 * - convert() asks osgDB for the input's directory twice over ("db/db/world.flt"). With a bare file name nothing
 *   changes; with a longer path osgDB's search decides, unless an osgDB::FindFileCallback puts it right.
 * - Bounding spheres are remembered by the name that the reference carries, whatever folder it is relative to. Two
 *   folders that each hold a "tile.flt" count as one file.
 * - While a file is read, the osgDB registry holds a fresh object cache; its own is put back afterwards. The OpenFlight
 *   reader would otherwise keep every model and let files share textures that the optimiser then changes.
 * - References that lead in a circle end at the first file that is already being converted.
 * - Uses the process-wide registry and shader generator: one conversion at a time in a process. Other threads must not
 *   read files or make texts meanwhile, which goes by the registry's object cache; they may use other tools.
 */
class SCENEUTILS_EXPORT CreatePagedLODVisitor : public osg::NodeVisitor {
public:
    /** @param parent the visitor that converts the file which refers to this one's; applications pass null */
    explicit CreatePagedLODVisitor(CreatePagedLODVisitor* parent);
    CreatePagedLODVisitor(const CreatePagedLODVisitor& other);
    CreatePagedLODVisitor& operator=(const CreatePagedLODVisitor& other);
    ~CreatePagedLODVisitor() override;

    /**
     * Whether referenced files are converted as this one is, and theirs in turn, each with a quarter of the range. Only
     * the top file is smoothed. Switching it on also switches setConvertExRefsToIVE() on; switching it off leaves that
     * as it is. Default: off.
     * @param recurse whether referenced files are converted
     */
    void setRecurse(bool recurse);

    /**
     * Whether referenced files are written as ".ive" and named so. Cannot be switched off while recursing: that is
     * refused with a line on standard error. Default: off, the PagedLODs then load the ".flt" files.
     * @param convert whether referenced files are written as ".ive"
     */
    void setConvertExRefsToIVE(bool convert);

    /**
     * The distance beyond a model's bounding radius from which it is seen, in graph units. Default: 10000. Any value is
     * taken; a negative one brings the model into sight only inside its own bounding sphere, or never.
     * @param range the distance
     */
    void setMaxRange(float range);

    /**
     * Whether the smoothing visitor runs before a graph is written. Default: on.
     * @param smooth whether it runs
     */
    void setDoSmooth(bool smooth);

    /**
     * Stored, copied and handed on, but of no effect.
     * @param embed what is stored
     */
    void setEmbedExRefs(bool embed);

    /**
     * Stored, copied and handed on, but of no effect.
     * @param embed what is stored
     */
    void setEmbedExRefsOfExRefs(bool embed);

    /**
     * Converts a file.
     * @param input the file to read, with directories separated by '/' or '\'
     * @param output the ".ive" file to write; its directory must exist
     * @return the converted graph, the caller's to hold, or null if the input could not be read
     *
     * May be called again on the same visitor, which then knows the bounding spheres and reported errors of before.
     */
    osg::ref_ptr<osg::Node> convert(std::string input, std::string output);

    using osg::NodeVisitor::apply;

    /** Notes the PagedLOD that will take the ProxyNode's place, reading or converting the file that it names. */
    void apply(osg::ProxyNode& proxy) override;

    /** Puts the noted PagedLODs into the graph. ProxyNodes that are gone, or have no parent, are passed over. */
    void InsertPagedLODs();

    /**
     * Sets up `plod` for a model of that bounding sphere and file name, and notes it for InsertPagedLODs().
     * @param proxy the reference whose place it will take; not held
     * @param plod a new PagedLOD; null is ignored. Nobody owns it before it is inserted: InsertPagedLODs() puts it into
     *     the graph, or releases it if it passes it over.
     * @param bs the bounding sphere of the model
     * @param fileName what the PagedLOD loads
     */
    void addProxyToPagedLOD(osg::ProxyNode& proxy, osg::PagedLOD* plod, const osg::BoundingSphere& bs,
                            const std::string& fileName);

    /**
     * Generates shaders for the graph: lighting, normal maps and fog, no shadow. Null is ignored.
     * @param node the graph, changed in place
     */
    void addShaders(osg::Node* node);

    /**
     * Reports "Error reading file PATH" on standard error, once for each path.
     * @param path told as it is given
     */
    void reportErrorFile(const std::string& path);

    /**
     * Post-processes the graph in place and writes it. Null is ignored.
     * @param node the graph
     * @param fileName the ".ive" file to write; its directory must exist
     */
    void saveIVE(osg::ref_ptr<osg::Node> node, const std::string& fileName);

private:
    /** A file that is being converted: what identifies it, and the graph read from it. */
    struct ActiveFile {
        std::string identity;
        osg::Node* graph = nullptr;
    };

    bool getBoundingSphere(const std::string& fileName, osg::BoundingSphere& bs);
    void saveBoundingSphere(const std::string& fileName, const osg::BoundingSphere& bs);
    osg::ref_ptr<osg::Node> readNode(const std::string& name);
    osg::ref_ptr<osg::Node> readProxyNodeFile(const std::string& proxyDirectory, const std::string& fileName,
                                              const std::string& newFileName);
    osg::Node* findActiveGraph(const std::string& path) const;
    void postProcess(osg::ref_ptr<osg::Node> node);

    osg::ref_ptr<osg::Referenced> spare;
    std::map<std::string, osg::BoundingSphere> boundingSphereCache;
    bool convertExRefsToIVE = false;
    bool embedExRefs = false;
    bool embedExRefsOfExRefs = false;
    float maxRange;
    bool recurse = false;
    bool doSmooth = true;
    bool doOptimize = true;
    bool doForceTextureFilter = true;
    CreatePagedLODVisitor* parent;
    std::list<std::pair<osg::observer_ptr<osg::ProxyNode>, osg::observer_ptr<osg::PagedLOD>>> pendingPagedLODs;
    std::string directory;
    std::set<std::string> errorFiles;
    ActiveFile activeFile;
};

}  // namespace veltrane::sceneutils
