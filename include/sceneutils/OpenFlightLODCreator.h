#pragma once

#include <sceneutils/Export.h>

#include <osg/Group>
#include <osg/LOD>
#include <osg/Node>
#include <osg/NodeVisitor>
#include <osg/observer_ptr>

#include <list>
#include <string>

namespace veltrane::sceneutils {

/**
 * Turns level-of-detail hints that modellers have written into the comments of an OpenFlight database into osg::LOD
 * nodes.
 *
 *     veltrane::sceneutils::OpenFlightLODCreator creator;
 *     creator.process(model);
 *
 * A hint is a description of a group that reads "LOD_Transition_Range" and a number. The group is hung below a new LOD
 * that shows it from distance 0 to five times that number, in graph units, and the LOD takes the group's place below
 * its parent. The LODs belong to the graph.
 *
 * What changes besides:
 * - The description becomes empty; the others keep their places.
 * - The LOD is appended behind the parent's other children: their order changes, and a parent that keeps values for its
 *   children (a switch) takes its default for the LOD. If the parent is an osg::LOD, the range that the group had there
 *   is handed on.
 * - Each of several hints on a group makes an LOD; the one of the first hint is the outermost.
 * - A group that hangs in several places is replaced in the first of them only.
 *
 * Groups of every kind are looked at, transforms, switches and LODs too; geodes, billboards and plain nodes are not.
 * A hint on a group without parent is used up without effect, because an LOD would have no place: hang the model below
 * a group first (comments on an OpenFlight file itself stand on the root that the reader returns).
 *
 * A hint without a readable number is left as it is and reported on standard error: "Error reading
 * LOS_Transition_Range value" (with "LOS", so that filters on the line keep working).
 *
 * One instance serves one thread at a time. It remembers its LODs, those that are gone excepted; use a new one for each
 * graph.
 */
class SCENEUTILS_EXPORT OpenFlightLODCreator : public osg::NodeVisitor {
public:
    OpenFlightLODCreator();
    OpenFlightLODCreator(const OpenFlightLODCreator& other);
    OpenFlightLODCreator& operator=(const OpenFlightLODCreator& other);
    ~OpenFlightLODCreator() override;

    /**
     * Does the whole job on the graph below `node`. A null node is ignored.
     * @param node the graph; a hint on it counts only if it hangs below a group
     */
    void process(osg::Node* node);

    using osg::NodeVisitor::apply;

    /** Makes the LODs that the group's descriptions ask for, without hanging them into the graph, then visits the
     * children. A visit without assignLODs() leaves LODs that nobody owns. */
    void apply(osg::Group& group) override;

    /** Hangs the LODs that were made into the graph, in the order in which they were made. */
    void assignLODs();

private:
    void createLOD(osg::Group& group, float transitionRange);

    std::list<osg::observer_ptr<osg::LOD>> createdLODs;
};

}  // namespace veltrane::sceneutils
