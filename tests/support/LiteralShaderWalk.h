#pragma once

#include <sceneutils/ShaderGenerator.h>

#include <osg/NodeVisitor>
#include <osg/Program>
#include <osg/StateSet>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace testing_support {

/**
 * What a shader generator does, written down as plainly as it can be said: at each node a new state set into which
 * all state sets above are merged. Slow, and the measure for the walk of the library.
 */
class LiteralShaderWalk : public osg::NodeVisitor {
public:
    explicit LiteralShaderWalk(int shadowTexUnit);
    ~LiteralShaderWalk() override = default;

    void process(osg::Node* node, osg::Group* parent, bool shadow, bool lighting, bool normalMapping, bool fog);
    void setShadowTex(int unit) { _shadowTexUnit = unit; }

    using osg::NodeVisitor::apply;
    void apply(osg::Node& node) override;

    /** Called before a state set is classified, with what is in force there. */
    std::function<void(osg::StateSet* own, osg::StateSet* accumulated, osg::Drawable* drawable)> onClassification;

    /** Called before a program is looked up. */
    std::function<void(const veltrane::sceneutils::ShaderFeatures&)> onProgramRequest;

private:
    void applyStateSet(osg::StateSet* own, osg::StateSet* accumulated, osg::Drawable* drawable);
    osg::Program* getOrCreateProgram(const veltrane::sceneutils::ShaderFeatures& features);

    std::map<std::string, osg::ref_ptr<osg::Program>> _programs;
    std::vector<osg::ref_ptr<osg::StateSet>> _stateSetStack;
    int _shadowTexUnit;
    bool _lighting = false;
    bool _normalMapping = false;
    bool _fog = false;
};

}  // namespace testing_support
