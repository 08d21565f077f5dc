#pragma once

#include <sceneutils/Export.h>

#include <osg/Node>
#include <osg/NodeVisitor>

#include <string>
#include <vector>

namespace veltrane::sceneutils {

/**
 * Finds every node of a graph that has a given name.
 *
 *     veltrane::sceneutils::FindNodeVisitor finder("turret");
 *     model->accept(finder);
 *     osg::Node* turret = finder.getFirst();
 *
 * Names are compared whole and in their own letter case. A node comes before what hangs below it, children come in
 * index order, and a node that hangs in several places is found once for every path that leads to it. All children are
 * searched, whatever is switched on or in range; subgraphs that the node masks exclude are not. Drawables are nodes:
 * they are found too.
 *
 * The graph is not changed and not held: the nodes that were found are valid as long as their graph is. Nothing is
 * reported. One instance serves one thread at a time.
 */
class SCENEUTILS_EXPORT FindNodeVisitor : public osg::NodeVisitor {
public:
    /** Looks for the empty name, which is that of every unnamed node. */
    FindNodeVisitor();

    /** @param nameToFind the whole name */
    explicit FindNodeVisitor(const std::string& nameToFind);

    FindNodeVisitor(const FindNodeVisitor& other);
    FindNodeVisitor& operator=(const FindNodeVisitor& other);
    ~FindNodeVisitor() override;

    /**
     * Looks for another name from now on, and forgets what was found. Empty: every unnamed node.
     * @param nameToFind the whole name
     */
    void setNameToFind(const std::string& nameToFind);

    /** @return the node that was met first, or null if none was found */
    osg::Node* getFirst() const;

    /**
     * What was found. Another visit adds to it.
     * @return the nodes met since the name was set, in the order of the visits; the caller may change the list, which
     *     keeps no node alive
     */
    std::vector<osg::Node*>& getNodeList();

    using osg::NodeVisitor::apply;

    /** Notes the node if it has the name, then visits its children. Nodes of all kinds arrive here. */
    void apply(osg::Node& node) override;

private:
    std::string _nameToFind;
    std::vector<osg::Node*> _foundNodes;
};

}  // namespace veltrane::sceneutils
