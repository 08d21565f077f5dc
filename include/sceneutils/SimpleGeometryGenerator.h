#pragma once

#include <sceneutils/Export.h>

#include <osg/Array>
#include <osg/BoundingBox>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LineWidth>
#include <osg/MatrixTransform>
#include <osg/PrimitiveSet>
#include <osg/Vec3f>
#include <osg/Vec4f>
#include <osg/ref_ptr>

namespace veltrane::sceneutils {

/**
 * A node that draws coloured lines, loops, triangles and boxes, to make things visible while a scene is developed.
 *
 *     osg::ref_ptr<SimpleGeometryGenerator> marks = new SimpleGeometryGenerator;
 *     scene->addChild(marks);
 *     marks->addBoundingBox(box, marks->createColor(63));
 *     marks->addLine(eye, target, osg::Vec4f(1, 0, 0, 1));
 *
 * What is added shows in the next frame, however many frames have been drawn. Adding takes the same time however much
 * is there already; the next frame sends all of it to the graphics card again. Colours are red, green, blue and alpha,
 * 0 to 1; below 1 alpha blends. Positions are in graph units. All of it is one osg::Geometry, below a geode that is the
 * node's child. Lit, lines and triangles have the normal (0, 0, 1).
 *
 * A copy draws into the same arrays, index lists and geode as its original, and has the same children. What it does not
 * share are the matrix and the knowledge of what is attached: after one of them was cleared, the other shows what is
 * added through it only when it has been cleared too. There is no assignment, as for any node; clone() gives a plain
 * osg::MatrixTransform with the same geode.
 *
 * The normals are bound per primitive, which few other parts of OpenSceneGraph know: .osg, .osgt and .osgb files hold
 * them, the .ive writer refuses them. Passes that merge geometry replace the arrays; what is added afterwards is not
 * drawn.
 *
 * Nothing is reported. To be changed by the thread that owns the scene graph, outside of drawing.
 */
class SCENEUTILS_EXPORT SimpleGeometryGenerator : public osg::MatrixTransform {
public:
    /** Draws nothing yet; the matrix is the identity. */
    SimpleGeometryGenerator();

    /** Shares what the other draws, see above. */
    SimpleGeometryGenerator(const SimpleGeometryGenerator& other);

    SimpleGeometryGenerator& operator=(const SimpleGeometryGenerator&) = delete;

    /**
     * Adds a line. Its ends become markers.
     * @param from,to its ends, in graph units
     * @param color red, green, blue and alpha, 0 to 1 each
     */
    void addLine(const osg::Vec3f& from, const osg::Vec3f& to, const osg::Vec4f& color);

    /**
     * Adds the closed polygon through the points, as lines. They do not become markers.
     * @param points not null; of one point a line without length, of none nothing is drawn
     * @param offset by which each point is moved
     * @param color red, green, blue and alpha, 0 to 1 each
     */
    void addLoop(const osg::Vec3Array* points, const osg::Vec3f& offset, const osg::Vec4f& color);

    /**
     * Like the other, without an offset.
     * @param points not null
     * @param color red, green, blue and alpha, 0 to 1 each
     */
    void addLoop(const osg::Vec3Array* points, const osg::Vec4f& color);

    /**
     * Adds a filled triangle. Its corners become markers.
     * @param a,b,c its corners, in graph units
     * @param color red, green, blue and alpha, 0 to 1 each
     */
    void addTriangle(const osg::Vec3f& a, const osg::Vec3f& b, const osg::Vec3f& c, const osg::Vec4f& color);

    /**
     * Adds the twelve edges of a box as addLine() does. Each has ends of its own: 24 markers.
     * @param box in graph units
     * @param color red, green, blue and alpha, 0 to 1 each
     */
    void addBoundingBox(const osg::BoundingBox& box, const osg::Vec4f& color);

    /**
     * Moves what is drawn to the origin, where vertices keep more digits, and puts it back by the node's matrix, if the
     * geode's centre lies 1000 units or more from the node's own origin.
     *
     * The matrix is replaced in either case: nearer than that it becomes the identity, also if it was not. So a second
     * call brings what the first one moved to the origin for good.
     */
    void bubbleUpTransform();

    /** Makes sure that lines and triangles are drawn. The operations that add call these; there is no need to. */
    void checkGeometry();
    void checkLines();      ///< of checkGeometry(), the lines
    void checkTriangles();  ///< of checkGeometry(), the triangles

    /** Draws the markers from now on, as points that get smaller with the distance; until clear(). */
    void checkPointsGeometry();

    /**
     * Takes away all that was added, and the matrix. Wireframe and line width stay as they are, markers are off.
     *
     * The buffers on the graphics card are given back; what is added afterwards gets new ones.
     */
    void clear();

    /**
     * One of 64 colours, for telling things apart.
     * @param index its low six bits count: two for red, two for green, two for blue, from the highest
     * @return an opaque colour of the channel values 0, 0.33, 0.66 and 0.99
     */
    osg::Vec4f createColor(unsigned int index);

    /** @return whether triangles are drawn as lines */
    bool getWireframeEnabled() const;

    /**
     * Draws triangles as lines, or filled again; also those of other children of this node.
     * @param on lines
     */
    void setWireframeEnabled(bool on);

    /**
     * Sets how wide lines are drawn; 1 at first.
     * @param width in pixels
     */
    void setLineThinkness(float width);

protected:
    ~SimpleGeometryGenerator() override;

private:
    unsigned int nextVertex() const;
    void dirtyLists();

    osg::ref_ptr<osg::Geode> _geode;
    osg::ref_ptr<osg::Geometry> _geometry;           ///< lines and triangles
    osg::ref_ptr<osg::Geometry> _pointsGeometry;     ///< markers
    osg::ref_ptr<osg::Vec3Array> _vertices;          ///< of both geometries
    osg::ref_ptr<osg::Vec4Array> _colors;            ///< of both geometries, one per vertex
    osg::ref_ptr<osg::Vec3Array> _normals;           ///< of lines and triangles, one per primitive
    osg::ref_ptr<osg::DrawElementsUInt> _triangles;  ///< null until the first triangle
    osg::ref_ptr<osg::DrawElementsUInt> _lines;      ///< null until the first line
    osg::ref_ptr<osg::DrawElementsUInt> _points;
    bool _geometryAdded = false;        ///< to the geode
    bool _pointsGeometryAdded = false;  ///< to the geode
    bool _wireframeEnabled = false;
    osg::LineWidth* _lineWidth = nullptr;  ///< takes effect with the first setLineThinkness()

    osg::ref_ptr<osg::LineWidth> _lineWidthHolder;  ///< keeps _lineWidth alive
};

}  // namespace veltrane::sceneutils
