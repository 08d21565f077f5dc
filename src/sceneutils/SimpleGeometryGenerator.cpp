#include <sceneutils/SimpleGeometryGenerator.h>

#include <sceneutils/BubbleUpTransform.h>

#include <osg/Point>
#include <osg/PolygonMode>
#include <osg/RenderInfo>
#include <osg/State>
#include <osg/StateSet>

#include <initializer_list>

namespace veltrane::sceneutils {

namespace {

constexpr double recentringDistance = 1000.0;
constexpr double colorStep = 0.33;
constexpr float markerSize = 0.1f;
constexpr float firstLineWidth = 1.0f;

const osg::Vec3f normal(0.0f, 0.0f, 1.0f);
const osg::Vec3f markerAttenuation(0.0f, 0.0f, 0.05f);

/** What OpenSceneGraph calls BIND_PER_PRIMITIVE in files, and nowhere else. */
constexpr auto bindPerPrimitive = static_cast<osg::Array::Binding>(3);

/**
 * A geometry all of whose primitives have the same normal. OpenSceneGraph sends none that are bound per primitive: lit
 * primitives would take the normal of whatever was drawn before them.
 *
 * It keeps the class name of osg::Geometry, so that files hold it as one.
 */
class FlatGeometry : public osg::Geometry {
public:
    FlatGeometry() = default;
    FlatGeometry(const FlatGeometry& other, const osg::CopyOp& copyOperation) : osg::Geometry(other, copyOperation) {}

    osg::Object* cloneType() const override { return new FlatGeometry; }
    osg::Object* clone(const osg::CopyOp& copyOperation) const override {
        return new FlatGeometry(*this, copyOperation);
    }

    void drawImplementation(osg::RenderInfo& renderInfo) const override {
        renderInfo.getState()->Normal(normal.x(), normal.y(), normal.z());
        osg::Geometry::drawImplementation(renderInfo);
    }

protected:
    ~FlatGeometry() override = default;
};

void drawFromBuffers(osg::Geometry& geometry) {
    geometry.setUseDisplayList(false);
    geometry.setUseVertexBufferObjects(true);
}

/** Lists that lost their buffers in clear() get new ones: vertex array objects cannot do without. */
void attach(osg::Geometry& geometry, osg::Geode& geode) {
    geometry.setUseVertexBufferObjects(false);
    geometry.setUseVertexBufferObjects(true);
    // A copy may have attached it already; twice, it would be drawn twice.
    if (!geode.containsDrawable(&geometry)) geode.addDrawable(&geometry);
}

template <typename Array, typename Element>
void append(Array& array, std::initializer_list<Element> elements) {
    array.insert(array.end(), elements.begin(), elements.end());
}

template <typename List>
void emptyAndDetach(List& list) {
    list.clear();
    list.setBufferObject(nullptr);
}

/** To be called when vertices or indices have changed: the bound, and what OpenGL was told of the arrays. */
void dirtyDrawing(osg::Geometry& geometry) {
    geometry.dirtyDisplayList();
    geometry.dirtyBound();
}

float channel(unsigned int bits) {
    return static_cast<float>((bits & 3u) * colorStep);
}

}  // namespace

SimpleGeometryGenerator::SimpleGeometryGenerator()
    : _geode(new osg::Geode),
      _geometry(new FlatGeometry),
      _pointsGeometry(new FlatGeometry),
      _vertices(new osg::Vec3Array),
      _colors(new osg::Vec4Array),
      _normals(new osg::Vec3Array),
      _points(new osg::DrawElementsUInt(GL_POINTS)),
      _lineWidthHolder(new osg::LineWidth(firstLineWidth)) {
    _geometry->setVertexArray(_vertices);
    _geometry->setColorArray(_colors, osg::Array::BIND_PER_VERTEX);
    _geometry->setNormalArray(_normals, bindPerPrimitive);
    drawFromBuffers(*_geometry);
    osg::StateSet& state = *_geometry->getOrCreateStateSet();
    state.setMode(GL_BLEND, osg::StateAttribute::ON);
    state.setRenderingHint(osg::StateSet::TRANSPARENT_BIN);

    _pointsGeometry->addPrimitiveSet(_points);
    _pointsGeometry->setVertexArray(_vertices);
    _pointsGeometry->setColorArray(_colors, osg::Array::BIND_PER_VERTEX);
    drawFromBuffers(*_pointsGeometry);

    addChild(_geode);

    osg::ref_ptr<osg::Point> marker = new osg::Point(markerSize);
    marker->setDistanceAttenuation(markerAttenuation);
    _pointsGeometry->getOrCreateStateSet()->setAttribute(marker);
    state.setAttribute(new osg::LineWidth(firstLineWidth));
    _lineWidth = _lineWidthHolder;
}

SimpleGeometryGenerator::SimpleGeometryGenerator(const SimpleGeometryGenerator& other)
    : osg::MatrixTransform(other, osg::CopyOp::SHALLOW_COPY),
      _geode(other._geode),
      _geometry(other._geometry),
      _pointsGeometry(other._pointsGeometry),
      _vertices(other._vertices),
      _colors(other._colors),
      _normals(other._normals),
      _triangles(other._triangles),
      _lines(other._lines),
      _points(other._points),
      _geometryAdded(other._geometryAdded),
      _pointsGeometryAdded(other._pointsGeometryAdded),
      _wireframeEnabled(other._wireframeEnabled),
      _lineWidth(other._lineWidth),
      _lineWidthHolder(other._lineWidthHolder) {}

SimpleGeometryGenerator::~SimpleGeometryGenerator() = default;

void SimpleGeometryGenerator::addLine(const osg::Vec3f& from, const osg::Vec3f& to, const osg::Vec4f& color) {
    checkLines();
    const unsigned int next = nextVertex();
    append(*_lines, {next, next + 1});
    append(*_points, {next, next + 1});
    append(*_colors, {color, color});
    append(*_vertices, {from, to});
    _normals->push_back(normal);
    dirtyLists();
}

void SimpleGeometryGenerator::addLoop(const osg::Vec3Array* points, const osg::Vec3f& offset, const osg::Vec4f& color) {
    checkLines();
    const unsigned int start = nextVertex();
    // Both may stand in the arrays, which move when they grow.
    const osg::Vec3f offsetOfAll = offset;
    const osg::Vec4f colorOfAll = color;
    const std::size_t count = points->size();
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned int next = nextVertex();
        const bool isLast = i + 1 == count;
        append(*_lines, {next, isLast ? start : next + 1});
        _colors->push_back(colorOfAll);
        _vertices->push_back((*points)[i] + offsetOfAll);
        _normals->push_back(normal);
    }
    dirtyLists();
}

void SimpleGeometryGenerator::addLoop(const osg::Vec3Array* points, const osg::Vec4f& color) {
    addLoop(points, osg::Vec3f(), color);
}

void SimpleGeometryGenerator::addTriangle(const osg::Vec3f& a, const osg::Vec3f& b, const osg::Vec3f& c,
                                          const osg::Vec4f& color) {
    checkTriangles();
    const unsigned int next = nextVertex();
    append(*_triangles, {next, next + 1, next + 2});
    append(*_points, {next, next + 1, next + 2});
    append(*_colors, {color, color, color});
    append(*_vertices, {a, b, c});
    _normals->push_back(normal);
    dirtyLists();
}

void SimpleGeometryGenerator::addBoundingBox(const osg::BoundingBox& box, const osg::Vec4f& color) {
    const osg::Vec3f& low = box._min;
    const osg::Vec3f& high = box._max;
    const osg::Vec3f corner000 = low;
    const osg::Vec3f corner001(low.x(), low.y(), high.z());
    const osg::Vec3f corner010(low.x(), high.y(), low.z());
    const osg::Vec3f corner011(low.x(), high.y(), high.z());
    const osg::Vec3f corner100(high.x(), low.y(), low.z());
    const osg::Vec3f corner101(high.x(), low.y(), high.z());
    const osg::Vec3f corner110(high.x(), high.y(), low.z());
    const osg::Vec3f corner111 = high;
    const osg::Vec4f colorOfAll = color;  // which may stand in the array, and that moves when it grows

    addLine(corner000, corner010, colorOfAll);
    addLine(corner000, corner100, colorOfAll);
    addLine(corner001, corner011, colorOfAll);
    addLine(corner001, corner101, colorOfAll);
    addLine(corner110, corner010, colorOfAll);
    addLine(corner110, corner100, colorOfAll);
    addLine(corner111, corner011, colorOfAll);
    addLine(corner111, corner101, colorOfAll);
    addLine(corner000, corner001, colorOfAll);
    addLine(corner100, corner101, colorOfAll);
    addLine(corner010, corner011, colorOfAll);
    addLine(corner110, corner111, colorOfAll);
}

void SimpleGeometryGenerator::bubbleUpTransform() {
    osg::Matrixd matrix;
    BubbleUpTransform().createMatrixForGeodes(_geode, recentringDistance, matrix);
    setMatrix(matrix);
}

void SimpleGeometryGenerator::checkGeometry() {
    if (!_geometryAdded) {
        attach(*_geometry, *_geode);
        _geometryAdded = true;
    }
    dirtyDrawing(*_geometry);
}

void SimpleGeometryGenerator::checkLines() {
    checkGeometry();
    if (_lines) return;
    _lines = new osg::DrawElementsUInt(GL_LINES);
    _geometry->addPrimitiveSet(_lines);
}

void SimpleGeometryGenerator::checkTriangles() {
    checkGeometry();
    if (_triangles) return;
    _triangles = new osg::DrawElementsUInt(GL_TRIANGLES);
    _geometry->addPrimitiveSet(_triangles);
}

void SimpleGeometryGenerator::checkPointsGeometry() {
    if (_pointsGeometryAdded) return;
    attach(*_pointsGeometry, *_geode);
    _pointsGeometryAdded = true;
}

void SimpleGeometryGenerator::clear() {
    emptyAndDetach(*_vertices);
    emptyAndDetach(*_colors);
    emptyAndDetach(*_normals);
    // A copy may have added index lists of its own; with the vertices gone, theirs would lead nowhere.
    for (const auto& primitives : _geometry->getPrimitiveSetList()) {
        if (auto* indices = dynamic_cast<osg::DrawElementsUInt*>(primitives.get())) emptyAndDetach(*indices);
    }
    emptyAndDetach(*_points);
    _geode->removeDrawable(_geometry);
    _geode->removeDrawable(_pointsGeometry);
    _geometryAdded = false;
    _pointsGeometryAdded = false;
    if (!getMatrix().isIdentity()) setMatrix(osg::Matrixd::identity());
    dirtyLists();
}

osg::Vec4f SimpleGeometryGenerator::createColor(unsigned int index) {
    return {channel(index >> 4u), channel(index >> 2u), channel(index), 1.0f};
}

bool SimpleGeometryGenerator::getWireframeEnabled() const {
    return _wireframeEnabled;
}

void SimpleGeometryGenerator::setWireframeEnabled(bool on) {
    if (on == _wireframeEnabled) return;

    osg::StateSet& state = *getOrCreateStateSet();
    osg::ref_ptr<osg::PolygonMode> polygonMode =
        dynamic_cast<osg::PolygonMode*>(state.getAttribute(osg::StateAttribute::POLYGONMODE));
    if (!polygonMode) {
        polygonMode = new osg::PolygonMode;
        state.setAttribute(polygonMode);
    }
    polygonMode->setMode(osg::PolygonMode::FRONT_AND_BACK, on ? osg::PolygonMode::LINE : osg::PolygonMode::FILL);
    _wireframeEnabled = on;
}

void SimpleGeometryGenerator::setLineThinkness(float width) {
    _lineWidth->setWidth(width);
    _geometry->getOrCreateStateSet()->setAttributeAndModes(_lineWidth, osg::StateAttribute::ON);
}

unsigned int SimpleGeometryGenerator::nextVertex() const {
    return static_cast<unsigned int>(_vertices->size());
}

// Undirtied, buffers keep the old content, and after a clear() OpenGL draws from buffers that are gone.
void SimpleGeometryGenerator::dirtyLists() {
    _vertices->dirty();
    _colors->dirty();
    _normals->dirty();
    for (osg::DrawElementsUInt* indices : {_triangles.get(), _lines.get(), _points.get()}) {
        if (indices) indices->dirty();
    }
    dirtyDrawing(*_pointsGeometry);  // the other one is left to checkGeometry()
}

}  // namespace veltrane::sceneutils
