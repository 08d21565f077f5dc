// Makes the scenes of those pictures of the documentation that no command of the tool makes: see
// scripts/make-pictures.sh.
//
//     sceneutils_picture_scenes TILE HOUSE AXES FOLDER

#include <sceneutils/SceneUtils.h>
#include <sceneutils/SimpleGeometryGenerator.h>

#include <osg/Group>
#include <osg/Image>
#include <osg/LineWidth>
#include <osg/Math>
#include <osg/MatrixTransform>
#include <osg/Program>
#include <osg/Texture2D>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <cmath>
#include <exception>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>

using namespace veltrane::sceneutils;

namespace {

constexpr const char* soilVertexShader = R"(
varying vec2 place;
varying vec3 position;

void main() {
    place = gl_MultiTexCoord0.xy;
    position = (gl_ModelViewMatrix * gl_Vertex).xyz;
    gl_Position = ftransform();
}
)";

// The mound has no normals.
constexpr const char* soilFragmentShader = R"(
uniform sampler2D ClayTex;
uniform sampler2D SiltTex;
uniform sampler2D SandTex;
uniform float clayPercentage;
uniform float siltPercentage;
uniform float sandPercentage;
varying vec2 place;
varying vec3 position;

void main() {
    vec3 soil = clayPercentage * texture2D(ClayTex, place).rgb + siltPercentage * texture2D(SiltTex, place).rgb +
                sandPercentage * texture2D(SandTex, place).rgb;
    vec3 normal = normalize(cross(dFdx(position), dFdy(position)));
    float light = max(dot(normal, normalize(vec3(-0.7, 0.5, 0.5))), 0.0);
    gl_FragColor = vec4(soil * (0.4 + 0.6 * light), 1.0);
}
)";

osg::ref_ptr<osg::Node> read(const std::string& file) {
    osg::ref_ptr<osg::Node> node = osgDB::readRefNodeFile(file);
    if (!node) throw std::runtime_error(file + ": cannot be read");
    return node;
}

void write(const osg::ref_ptr<osg::Node>& scene, const std::string& file) {
    if (!osgDB::writeNodeFile(*scene, file)) throw std::runtime_error(file + ": cannot be written");
}

osg::ref_ptr<osg::Group> groupOf(const osg::ref_ptr<osg::Node>& first, const osg::ref_ptr<osg::Node>& second) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(first);
    group->addChild(second);
    return group;
}

osg::ref_ptr<osg::Node> wireframeOf(const osg::ref_ptr<osg::Node>& model) {
    osg::ref_ptr<osg::Group> overlay = new osg::Group;
    overlay->addChild(model);
    makeWireframe(overlay->getOrCreateStateSet(), osg::Vec4(1.0f, 1.0f, 0.0f, 1.0f), -1.0f);
    overlay->getStateSet()->setMode(GL_POLYGON_OFFSET_LINE, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    return overlay;
}

osg::ref_ptr<osg::Vec3Array> circle(float radius, unsigned int corners) {
    osg::ref_ptr<osg::Vec3Array> points = new osg::Vec3Array;
    for (unsigned int i = 0; i < corners; ++i) {
        const double angle = 2.0 * osg::PI * i / corners;
        points->push_back(osg::Vec3d(radius * std::cos(angle), radius * std::sin(angle), 0.0));
    }
    return points;
}

/** Puts a corner of a house of 10 by 10 units near the origin. */
osg::ref_ptr<osg::Node> besideOrigin(const osg::ref_ptr<osg::Node>& house) {
    osg::ref_ptr<osg::MatrixTransform> moved = new osg::MatrixTransform(osg::Matrix::translate(6.0, 6.0, 0.0));
    moved->addChild(house);
    return moved;
}

/** With lines that are seen in a small picture. */
osg::ref_ptr<osg::Node> wide(const osg::ref_ptr<osg::Node>& lines) {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(lines);
    group->getOrCreateStateSet()->setAttribute(new osg::LineWidth(3.0f));
    return group;
}

/** Around a house of 10 by 10 by 14 units on the origin. */
osg::ref_ptr<osg::Node> marksOfHouse() {
    osg::ref_ptr<SimpleGeometryGenerator> marks = new SimpleGeometryGenerator;
    marks->setLineThinkness(2.0f);
    marks->addBoundingBox(osg::BoundingBox(-5.5f, -5.5f, 0.0f, 5.5f, 5.5f, 14.5f), marks->createColor(63));
    marks->addLine(osg::Vec3f(-18, -14, 12), osg::Vec3f(0, -5, 7), osg::Vec4f(1, 0, 0, 1));
    for (const float height : {0.1f, 4.0f, 8.0f})
        marks->addLoop(circle(10.0f, 32), osg::Vec3f(0, 0, height), osg::Vec4f(1, 1, 0, 1));
    marks->addTriangle(osg::Vec3f(-8, -12, 0), osg::Vec3f(3, -12, 0), osg::Vec3f(-2.5f, -12, 9),
                       osg::Vec4f(0, 1, 1, 0.5f));
    marks->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return marks;
}

/** Grains of a colour, some brighter than others. */
osg::ref_ptr<osg::Texture2D> makeGrains(const osg::Vec3& color, int pixels) {
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(pixels, pixels, 1, GL_RGB, GL_UNSIGNED_BYTE);
    image->setWriteHint(osg::Image::STORE_INLINE);
    std::minstd_rand random;
    for (unsigned int i = 0; i < image->getTotalSizeInBytes(); i += 3) {
        const float brightness = 0.7f + 0.3f * static_cast<float>(random() % 256) / 255.0f;
        for (unsigned int channel = 0; channel < 3; ++channel) {
            const float part = color[static_cast<int>(channel)] * brightness;
            image->data()[i + channel] = static_cast<unsigned char>(std::lround(255.0f * part));
        }
    }
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(image);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR_MIPMAP_LINEAR);
    for (const auto wrap : {osg::Texture::WRAP_S, osg::Texture::WRAP_T}) texture->setWrap(wrap, osg::Texture::REPEAT);
    return texture;
}

osg::ref_ptr<osg::Node> makeSoil(float clay, float silt, float sand) {
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::VERTEX, soilVertexShader));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, soilFragmentShader));
    return GetDirt(0.5, makeGrains(osg::Vec3(0.7f, 0.3f, 0.2f), 64), makeGrains(osg::Vec3(0.5f, 0.5f, 0.45f), 64),
                   makeGrains(osg::Vec3(0.95f, 0.85f, 0.5f), 64), program, clay, silt, sand, 0.0f, 0.0f);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::cerr << "usage: sceneutils_picture_scenes TILE HOUSE AXES FOLDER\n";
        return 1;
    }
    const std::string folder = std::string(argv[4]) + "/";
    try {
        const osg::ref_ptr<osg::Node> tile = read(argv[1]), house = read(argv[2]);
        write(groupOf(tile, wireframeOf(tile)), folder + "wireframe.osgb");
        write(groupOf(besideOrigin(house), wide(read(argv[3]))), folder + "axes.osgb");
        write(groupOf(house, marksOfHouse()), folder + "marks.osgb");
        write(makeSoil(0.8f, 0.1f, 0.1f), folder + "clay.osgb");
        write(makeSoil(0.1f, 0.1f, 0.8f), folder + "sand.osgb");
    } catch (const std::exception& error) {
        std::cerr << "sceneutils_picture_scenes: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
