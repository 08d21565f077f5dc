#pragma once

#include <sceneutils/Export.h>
#include <sceneutils/SimpleGeometryGenerator.h>

#include <osg/Group>
#include <osg/LOD>
#include <osg/Node>
#include <osg/NodeVisitor>
#include <osg/PagedLOD>
#include <osg/Vec4f>
#include <osg/ref_ptr>

#include <vector>

namespace veltrane::sceneutils {

/**
 * Makes visible where the levels of detail of a graph switch, to find out why something is not drawn, or too late.
 *
 *     LODMarkup::process(scene);                                             // cubes around every LOD
 *     osg::ref_ptr<osg::Group> chain = LODMarkup().markupPath(missingRoof);  // all that leads to one node
 *
 * Run over a graph, it draws a wire cube for each LOD's radius and one for the end of each of its ranges. Given one
 * node, it describes every node above it on standard error and rebuilds the ways to it as chains of cubes, squares and
 * labels, which are a graph of their own.
 *
 * | what                                    | osg::LOD | osg::PagedLOD |
 * |-----------------------------------------|----------|---------------|
 * | the radius; white, 5 wide, if it is < 0 | red      | yellow        |
 * | the end of a range                      | green    | cyan          |
 * | spokes from the centre to top corners   | blue     | magenta       |
 *
 * A tool for developing scenes: it writes files into the working directory and is not made to be fast. All lengths are
 * in graph units. No state is kept. One instance serves one thread at a time; the generated shaders are shared, see
 * ShaderGenerator. Of markupPath() and addToGeometry() only one may run in a process at a time, and no other thread may
 * make texts meanwhile: OpenSceneGraph's fonts are shared, and so are the files.
 */
class SCENEUTILS_EXPORT LODMarkup : public osg::NodeVisitor {
public:
    /** Visits all children, whatever is switched on or in range; subgraphs that the node masks exclude are not. */
    LODMarkup();
    LODMarkup(const LODMarkup& other);
    LODMarkup& operator=(const LODMarkup& other);
    ~LODMarkup() override;

    /**
     * Draws cubes around every LOD of a graph, see markup(). An LOD that several paths lead to is marked once for each
     * of them, a second run marks all of them again.
     * @param node the graph, changed; null is ignored
     */
    static void process(osg::ref_ptr<osg::Node> node);

    /**
     * Writes a description of all that leads to a node to standard error, and makes it a graph: the ways from each root
     * as chains below a group, see the other markupPath(). It is also written to "lodmarkup.osg" in the working
     * directory; a file that cannot be written does no harm.
     * @param node null gives an empty group and nothing else
     * @return a new group with one child for each way, the caller's to hold
     *
     * Standard error gets "num paths = COUNT" first. The text of a long chain is mostly indentation: "lodmarkup.osg"
     * grows with the square of its length, to 9 MB at 200 LODs below each other.
     */
    osg::ref_ptr<osg::Group> markupPath(osg::Node* node);

    /**
     * Writes a description of the nodes of one way to standard error, a line each below "PATH-----", and rebuilds it as
     * a chain of new nodes, each the child of the one before:
     * - a transform stands for itself: what hangs below is where it is in the scene;
     * - an LOD becomes what addToGeometry() draws for the next node of the path, and is named as it is; a paged one has
     *   its first file name as a description;
     * - a geode becomes a box in orange, half a unit smaller than its bound, and is named as it is;
     * - a camera is skipped without a line, and other nodes get no more than a line.
     *
     * @param path root first; null pointers are skipped. An LOD that the next node is no child of, or that is the last
     *     one, is described as any group is.
     * @return the new group above the chain, which draws its back faces too; the caller's to hold
     *
     * Of a paged LOD the child that the path leads through is written to "pagedlod.osg", a geode to "geode.osg", in the
     * working directory, each replacing the one before; a file that cannot be written does no harm. Geodes, and
     * what was made for them, get generated programs (normal mapping and fog, no lighting): nothing else changes in the
     * scene. User objects of a geode are listed; values of shorts, ints, floats and bools are told.
     */
    osg::ref_ptr<osg::Group> markupPath(std::vector<osg::Node*>& path);

    /**
     * Draws one level of an LOD: a square for its radius and one for the end of the level's range, each at the top of
     * the cube that it stands for, with spokes from the centre and a label.
     * @param lod null, or one that `child` is no child of, draws nothing
     * @param child whose range is drawn, unless it ends at 5000 or further
     * @param generator takes the lines, in the LOD's coordinates, and the labels as children; null draws nothing
     *
     * The labels' font is "fonts/arial.ttf" where OpenSceneGraph finds it (or what the system has in its place), or
     * else OpenSceneGraph's own. Each call looks for it; markupPath() does so once for all labels.
     */
    void addToGeometry(osg::LOD* lod, osg::Node* child, SimpleGeometryGenerator* generator);

    /**
     * Draws cubes around an LOD, in the coordinates that it stands in: of its radius, and of the ends of its ranges in
     * their order. Then its children are visited.
     * @param lod gets a new group above it, in its place below its first parent and only there; the group's children
     *     are the SimpleGeometryGenerator with the cubes and the LOD. One without parents gets none.
     * @param first the colour of the radius cube if the radius is set
     * @param second of the range cubes; where a range begins is not drawn
     * @param third of the spokes from the centre to each cube's top corners
     */
    void markup(osg::LOD& lod, const osg::Vec4f& first, const osg::Vec4f& second, const osg::Vec4f& third);

    using osg::NodeVisitor::apply;

    /** Marks it in yellow, cyan and magenta. */
    void apply(osg::PagedLOD& lod) override;

    /** Marks it in red, green and blue. */
    void apply(osg::LOD& lod) override;
};

}  // namespace veltrane::sceneutils
