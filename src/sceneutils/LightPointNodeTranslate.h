#pragma once

#include <osg/NodeVisitor>
#include <osg/Vec3f>
#include <osgSim/LightPointNode>

#include <set>

namespace veltrane::sceneutils {

/**
 * Moves the light points of every osgSim::LightPointNode of a graph, those below transforms included, each node's once.
 * Every light point that is moved is logged. Node masks are honoured.
 */
class LightPointNodeTranslate : public osg::NodeVisitor {
public:
    LightPointNodeTranslate();
    LightPointNodeTranslate(const LightPointNodeTranslate& other);
    LightPointNodeTranslate& operator=(const LightPointNodeTranslate& other);
    ~LightPointNodeTranslate() override;

    /** What is added to the positions, in graph units. Default: nothing. */
    void setTranslation(const osg::Vec3f& translation) { _translation = translation; }

    using osg::NodeVisitor::apply;
    void apply(osg::Node& node) override;

private:
    void translate(osgSim::LightPointNode& lights) const;

    osg::Vec3f _translation;
    std::set<osg::Node*> _visited;
};

}  // namespace veltrane::sceneutils
