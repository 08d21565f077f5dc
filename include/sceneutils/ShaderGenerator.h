#pragma once

#include <sceneutils/Export.h>

#include <OpenThreads/Mutex>
#include <osg/Drawable>
#include <osg/Group>
#include <osg/NodeVisitor>
#include <osg/Program>
#include <osg/StateSet>
#include <osg/ref_ptr>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace veltrane::sceneutils {

class ShaderFeatureTable;
class ShaderState;

/** What one state set needs from its program. Built by ShaderGenerator for each state set it meets. */
struct ShaderFeatures {
    std::string name;               ///< the program's name and cache key, composed from the other fields
    std::vector<int> textureUnits;  ///< the units that carry a base texture, ascending
    int normalMapUnit = -1;         ///< the unit that the uniform "NormalMapTex" names; -1: none
    int specMapUnit = -1;           ///< the unit that the uniform "SpecMapTex" names; -1: none
    int overlayUnit = -1;           ///< the unit that the uniform "OverlayTex" names; -1: none
    bool sunUniforms = false;       ///< the light's colours come from the uniforms "SunAmbient" and its kin
    bool lighting = false;          ///< light is computed
    int shadowUnit = -1;            ///< the unit of the shadow map; -1: none
    bool normalMapping = false;     ///< a normal map is honoured if there is one
    bool fog = false;               ///< exponential-squared fog is applied
    bool text = false;              ///< the drawable is an osgText::Text
    bool pointSprite = false;       ///< some unit holds an osg::PointSprite
};

/**
 * Replaces the fixed-function state of a graph by generated GLSL 1.30 programs (compatibility profile).
 *
 *     veltrane::sceneutils::ShaderGenerator::instance()->process(node, false, true, true, true);
 *
 * Every state set below the node, those of drawables included, gets the program that its accumulated state asks for,
 * and the sampler uniforms that the program reads ("BaseTexture" followed by the unit, "ShadowMapTex"). The node itself
 * gets a state set if it has none. Textures, modes and all other state stay as they are; one thing besides programs and
 * uniforms changes: a material whose ambient or diffuse colour is exactly (0,0,0,1) gets white there, if its colour
 * mode leaves that colour to the material (AMBIENT: diffuse; DIFFUSE: ambient; OFF: both), because the programs
 * multiply with it.
 *
 * Programs are shared: one exists for each distinct name, whatever graph asks for it, for the life of the process. The
 * name leaves out whether sun colours are used, so of two states that differ in that alone, the first one classified
 * decides the text for both. State sets that already carry the program they need are left alone, so a second run
 * changes nothing.
 *
 * Three combinations yield programs that do not compile or link: a normal map with lighting and sun colours, a texture
 * coordinate for a unit of 8 or more, and a point sprite without a base texture on unit 0.
 *
 * Threads: process() holds a lock for the whole call and may be called from several threads on separate graphs. The
 * other operations take no lock; call instance() once before threads are started.
 */
class SCENEUTILS_EXPORT ShaderGenerator : public osg::NodeVisitor {
public:
    /** @return the one generator of the process, created by the first call and never destroyed */
    static ShaderGenerator* instance();

    ShaderGenerator(const ShaderGenerator&) = delete;
    ShaderGenerator& operator=(const ShaderGenerator&) = delete;

    /**
     * Generates programs for the graph below `node`.
     * @param node the root of what is changed; its own state set is classified once in the walk and once more by
     *     itself at the end, and where the two differ the second wins. Null is ignored.
     * @param parent where `node` will hang, so that state inherited from there counts; only the first of its paths to a
     *     root is looked at. May be null.
     * @param shadow whether the shadow map set with setShadowTex() is used in this run
     * @param lighting whether light source 0 is computed (per vertex, or per pixel under a normal map)
     * @param normalMapping whether normal maps are honoured
     * @param fog whether fog is applied, with the density in the uniform "fogDensity" (per graph unit)
     *
     * A uniform "NormalMapTex" or "SpecMapTex" that is not a single int is reported on standard error and ignored.
     */
    void process(osg::Node* node, osg::Group* parent, bool shadow, bool lighting, bool normalMapping, bool fog);

    /**
     * The same for a graph that hangs nowhere yet.
     * @param node,shadow,lighting,normalMapping,fog as above
     */
    void process(osg::Node* node, bool shadow, bool lighting, bool normalMapping, bool fog);

    /** Sets the texture unit of the shadow map for all later runs. @param unit -1 switches shadow mapping off */
    void setShadowTex(int unit);

    /**
     * Whether every program created from now on is also written to the files NAME.vert and NAME.frag in the working
     * directory. A file that cannot be written is skipped silently. Off at first.
     * @param saving whether they are written
     */
    void setSavingShaders(bool saving);

    /**
     * Reads the sources of all programs again from the files that saving wrote, so that they can be edited while the
     * application runs. Does nothing while saving is off. A file that cannot be read is reported on standard error as
     * "Error reading PATH", and that shader keeps its source. Must not run while process() runs in another thread.
     */
    void reloadSavedShaders();

    using osg::NodeVisitor::apply;

    /** Reached by nodes of every type. */
    void apply(osg::Node& node) override;

protected:
    /**
     * @param shadowTexUnit the texture unit of the shadow map; -1: none
     * @param overridesApplyStateSet false is the promise that applyStateSet() is not overridden. A walk then notes only
     *     what the programs depend on, and applyStateSet() is called for the root alone. Otherwise every state set is
     *     handed to applyStateSet() with all that is accumulated there, which takes long in graphs of more than
     *     10,000 state sets: each accumulated state enters itself in the lists of parents of what it refers to.
     */
    explicit ShaderGenerator(int shadowTexUnit, bool overridesApplyStateSet = true);
    ~ShaderGenerator() override;

    /**
     * The program for that record: from the cache by its name, else composed and put there. Owned by the cache.
     * @param features what the program has to do
     * @return never null
     */
    virtual osg::Program* getOrCreateProgram(const ShaderFeatures& features);

    /**
     * Classifies a state and puts the program and its uniforms on `own`. Called for every state set that a walk meets,
     * unless the constructor was promised that no subclass overrides it.
     * @param own the state set that is changed; @param accumulated what is in force there, `own` included
     * @param drawable the drawable that `own` belongs to, or null
     */
    virtual void applyStateSet(osg::StateSet* own, osg::StateSet* accumulated, osg::Drawable* drawable);

    /** Appends the fragment shader's text. @param out to what @param features what the program has to do */
    virtual void createFragmentSource(std::string& out, const ShaderFeatures& features);

    /** Appends the vertex shader's text. @param out to what @param features what the program has to do */
    virtual void createVertexSource(std::string& out, const ShaderFeatures& features);

private:
    void walk(osg::Node& node, osg::StateSet* inherited);
    void enter(osg::StateSet& own, osg::Drawable* drawable);
    void leave();
    osg::ref_ptr<osg::StateSet> accumulateAll(const osg::StateSet& own) const;
    ShaderState accumulate(const osg::StateSet& own) const;
    void applyToDrawablesOf(osg::Geode& geode);
    void assignProgram(osg::StateSet& own, const ShaderState& accumulated, const osg::Drawable* drawable);
    const ShaderFeatures& classify(const osg::StateSet& own, const ShaderState& accumulated,
                                   const osg::Drawable* drawable);
    bool usesNormalMap(const ShaderFeatures& features) const;

    std::map<std::string, osg::ref_ptr<osg::Program>> _programs;
    bool _savingShaders = false;
    int _shadowTexUnit;
    bool _lighting = false;
    bool _normalMapping = false;
    bool _fog = false;
    bool _rootProcessed = false;
    OpenThreads::Mutex _mutex;
    bool _overridesApplyStateSet;
    std::vector<osg::ref_ptr<osg::StateSet>> _stateSetStack;  // with applyStateSet() overridden
    std::vector<ShaderState> _shaderStateStack;               // without
    std::unique_ptr<ShaderFeatureTable> _features;
};

}  // namespace veltrane::sceneutils
