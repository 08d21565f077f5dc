#pragma once

#include <sceneutils/Export.h>

#include <osg/Node>
#include <osg/NodeVisitor>

#include <set>
#include <string>

namespace veltrane::sceneutils {

/**
 * Takes names, descriptions, user data and shader programs from the nodes of a graph, which otherwise keep optimisers
 * from removing and merging them.
 *
 *     veltrane::sceneutils::RemoveNamesAndDescriptions visitor;
 *     visitor.preserveNames({"door"});
 *     model->accept(visitor);
 *
 * All nodes are stripped, drawables too, except
 * - those whose data variance is DYNAMIC,
 * - those whose name is to be preserved,
 * - those of kinds that other code finds by name: osgSim::MultiSwitch, osgSim::DOFTransform, osgSim::LightPointNode,
 *   osg::Sequence and their subclasses.
 * What hangs below those is visited all the same.
 *
 * The data variance decides, not whether there is a name: a nameless node loses its user data too, unless the empty
 * name is among those to be preserved. Of a node's state set only the program goes; the state set stays, even if it is
 * empty then, and if other nodes share it, they lose the program as well.
 *
 * Nothing is reported. One instance serves one thread at a time.
 */
class SCENEUTILS_EXPORT RemoveNamesAndDescriptions : public osg::NodeVisitor {
public:
    RemoveNamesAndDescriptions();
    RemoveNamesAndDescriptions(const RemoveNamesAndDescriptions& other);
    RemoveNamesAndDescriptions& operator=(const RemoveNamesAndDescriptions& other);
    ~RemoveNamesAndDescriptions() override;

    /**
     * Replaces the names to be preserved, none at first. They are compared byte for byte.
     * @param names whole names
     */
    void preserveNames(const std::set<std::string>& names);

    /**
     * Strips the graph below `node`, preserving no names. A null node is ignored.
     * @param node the graph
     */
    static void process(osg::Node* node);

    using osg::NodeVisitor::apply;

    /** Strips the node, unless it is an exception, and visits its children. */
    void apply(osg::Node& node) override;

private:
    bool isToBeStripped(const osg::Node& node) const;

    std::set<std::string> _preservedNames;
};

}  // namespace veltrane::sceneutils
