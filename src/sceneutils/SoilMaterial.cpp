#include <sceneutils/SceneUtils.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/TexEnv>
#include <osg/Uniform>

#include <array>
#include <initializer_list>

namespace veltrane::sceneutils {

namespace {

constexpr unsigned int clayUnit = 0;
constexpr unsigned int siltUnit = 1;
constexpr unsigned int sandUnit = 2;

constexpr double steepnessPerHeight = 4.0;
constexpr double wideAboveSteepness = 0.75;

constexpr std::size_t vertexCount = 17;

// Counter-clockwise as seen from above.
constexpr std::initializer_list<GLuint> polygons[] = {
    // the rim, from the outer rectangle to the inner square
    {2, 10, 6, 1},
    {3, 11, 10, 2},
    {3, 0, 7, 11},
    {6, 7, 0, 1},
    // the square around the diamond
    {8, 4, 13, 12, 6},
    {16, 15, 4, 8, 10},
    {5, 9, 7, 12, 13},
    {11, 9, 5, 15, 16},
    // the two halves of the diamond, which meet at the peak
    {15, 14, 13, 4},
    {5, 13, 14, 15},
};

std::array<osg::Vec3d, vertexCount> makeVertices(double steepness) {
    const bool isWide = steepness > wideAboveSteepness;
    const double farX = isWide ? 63.0 : 60.0;
    const double farZ = 2.0 * steepness + (isWide ? 15.0 : 12.0);
    const double nearZ = 2.0 * steepness + 12.0;
    const double squareZ = 5.0 * steepness + 11.0;
    const double diamondZ = 6.0 * steepness + 11.0;
    const double peakZ = 7.0 * steepness + 11.0;
    return {{
        {farX, 29.0, farZ},      // 0
        {30.0, 29.0, nearZ},     // 1
        {30.0, 1.5, nearZ},      // 2
        {farX, 1.5, farZ},       // 3
        {40.0, 15.0, diamondZ},  // 4
        {50.0, 15.0, diamondZ},  // 5
        {35.0, 25.0, squareZ},   // 6
        {55.0, 25.0, squareZ},   // 7
        {35.0, 15.0, squareZ},   // 8
        {55.0, 15.0, squareZ},   // 9
        {35.0, 5.0, squareZ},    // 10
        {55.0, 5.0, squareZ},    // 11
        {45.0, 25.0, squareZ},   // 12
        {45.0, 20.0, diamondZ},  // 13
        {45.0, 15.0, peakZ},     // 14
        {45.0, 10.0, diamondZ},  // 15
        {45.0, 5.0, squareZ},    // 16
    }};
}

osg::Vec2d textureCoordinateOf(const osg::Vec3d& vertex) {
    return {(vertex.x() - 29.0) / 30.0, (vertex.y() - 1.0) / 30.0};
}

void shapeMound(osg::Geometry& mound, double height) {
    osg::ref_ptr<osg::Vec2Array> textureCoordinates = new osg::Vec2Array(vertexCount);
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array(vertexCount);
    const auto exactVertices = makeVertices(steepnessPerHeight * height);
    for (std::size_t i = 0; i < vertexCount; ++i) {
        (*vertices)[i] = exactVertices[i];
        (*textureCoordinates)[i] = textureCoordinateOf(exactVertices[i]);
    }
    mound.setTexCoordArray(0, textureCoordinates);
    mound.setVertexArray(vertices);

    for (const auto& polygon : polygons) {
        mound.addPrimitiveSet(new osg::DrawElementsUInt(GL_POLYGON, polygon.begin(), polygon.end()));
    }
}

}  // namespace

osg::Node* GetDirt(double height, osg::ref_ptr<osg::Texture> clayTex, osg::ref_ptr<osg::Texture> siltTex,
                   osg::ref_ptr<osg::Texture> sandTex, osg::ref_ptr<osg::Program> program, float clayPercentage,
                   float siltPercentage, float sandPercentage, float waterVolumePercentage, float frozenPercentage) {
    const bool isRaised = height > 0.0;  // false for NaN
    if (!isRaised) return new osg::Node;

    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    osg::ref_ptr<osg::Geometry> mound = new osg::Geometry;
    geode->addDrawable(mound);
    shapeMound(*mound, height);

    osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->setTextureAttributeAndModes(clayUnit, clayTex, osg::StateAttribute::ON);
    state->setTextureAttributeAndModes(siltUnit, siltTex, osg::StateAttribute::ON);
    state->setTextureAttributeAndModes(sandUnit, sandTex, osg::StateAttribute::ON);
    state->setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    osg::ref_ptr<osg::TexEnv> texEnv = new osg::TexEnv(osg::TexEnv::MODULATE);
    state->setAttribute(program);
    for (const unsigned int unit : {clayUnit, siltUnit, sandUnit}) state->setTextureAttribute(unit, texEnv);

    const auto addUniform = [&](const char* name, auto value) {
        state->addUniform(new osg::Uniform(name, value), osg::StateAttribute::ON);
    };
    addUniform("clayPercentage", clayPercentage);
    addUniform("siltPercentage", siltPercentage);
    addUniform("sandPercentage", sandPercentage);
    addUniform("waterVolumePercentage", waterVolumePercentage);
    addUniform("frozenPercentage", frozenPercentage);
    addUniform("ClayTex", static_cast<int>(clayUnit));
    addUniform("SiltTex", static_cast<int>(siltUnit));
    addUniform("SandTex", static_cast<int>(sandUnit));

    geode->setStateSet(state);
    return geode.release();
}

}  // namespace veltrane::sceneutils
