#pragma once

#include "Graphs.h"
#include "TemporaryDirectory.h"

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/Image>
#include <osg/ProxyNode>
#include <osg/Texture2D>
#include <osgDB/Options>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

/** Builders for small OpenFlight databases, written by the installed OpenFlight writer. */
namespace testing_support {

inline osg::ref_ptr<osg::ProxyNode> makeProxy(const std::string& fileName) {
    osg::ref_ptr<osg::ProxyNode> proxy = new osg::ProxyNode;
    proxy->setFileName(0, fileName);
    return proxy;
}

template <class Array>
osg::ref_ptr<Array> makeArray(const std::vector<typename Array::ElementDataType>& elements) {
    return new Array(elements.begin(), elements.end());
}

/**
 * A rectangle in the xy plane whose bounding sphere has exactly that radius (its sides are as 3 to 4). It has no
 * normals. Texture coordinates run from 0 to `repeats`.
 */
inline osg::ref_ptr<osg::Geometry> makeRectangle(float radius, const osg::Vec3& center = osg::Vec3(),
                                                 float repeats = 1.0f) {
    const osg::Vec3 x(0.6f * radius, 0, 0);
    const osg::Vec3 y(0, 0.8f * radius, 0);
    osg::ref_ptr<osg::Geometry> rectangle = new osg::Geometry;
    rectangle->setVertexArray(
        makeArray<osg::Vec3Array>({center - x - y, center + x - y, center + x + y, center - x + y}));
    rectangle->setTexCoordArray(0, makeArray<osg::Vec2Array>({{0, 0}, {repeats, 0}, {repeats, repeats}, {0, repeats}}));
    rectangle->setColorArray(makeArray<osg::Vec4Array>({{1, 1, 1, 1}}), osg::Array::BIND_OVERALL);
    rectangle->addPrimitiveSet(new osg::DrawArrays(osg::PrimitiveSet::POLYGON, 0, 4));
    return rectangle;
}

/** A square image of 8 by 8 pixels, all of them of that colour, written as a PNG file into the folder. */
inline osg::ref_ptr<osg::Image> writePicture(const TemporaryDirectory& folder, const std::string& name,
                                             const osg::Vec4ub& color) {
    constexpr int size = 8;
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(size, size, 1, GL_RGBA, GL_UNSIGNED_BYTE);
    for (int i = 0; i < size * size; ++i) {
        std::copy(color.ptr(), color.ptr() + 4, image->data() + 4 * i);
    }
    image->setFileName(name);
    if (!osgDB::writeImageFile(*image, folder / name)) throw std::runtime_error("cannot write " + name);
    return image;
}

/** Keeps allocations in its scope out of the leak report, where there is one. */
class LeaksTolerated {
public:
#ifdef __SANITIZE_ADDRESS__
    LeaksTolerated() {
        __lsan_disable();
    }
    ~LeaksTolerated() {
        __lsan_enable();
    }
#else
    LeaksTolerated() {}
    ~LeaksTolerated() {}
#endif
    LeaksTolerated(const LeaksTolerated&) = delete;
    LeaksTolerated& operator=(const LeaksTolerated&) = delete;
};

/** Writes a graph as an OpenFlight file with its lighting switched off, so that faces have no normals on reading. */
inline void writeFlightFile(osg::Node& root, const std::string& path) {
    const LeaksTolerated writerNeverFreesItsStreams;
    // The writer puts a texture's ".attr" file into the working directory.
    const WorkingDirectory folder(std::filesystem::path(path).parent_path());
    const osg::ref_ptr<osgDB::Options> options = new osgDB::Options("lighting=OFF");
    if (!osgDB::writeNodeFile(root, path, options.get())) throw std::runtime_error("cannot write " + path);
}

/** What goes into an OpenFlight file: one rectangle, if its radius is above 0, and references in that order. */
struct FlightFile {
    float radius = 0.0f;
    std::vector<std::string> references;

    osg::ref_ptr<osg::Group> graph() const {
        osg::ref_ptr<osg::Group> root = new osg::Group;
        if (radius > 0) root->addChild(makeGeode(makeRectangle(radius)));
        for (const std::string& reference : references) root->addChild(makeProxy(reference));
        return root;
    }
    void write(const std::string& path) const { writeFlightFile(*graph(), path); }
};

/** Writes an OpenFlight file that shows a rectangle for each image, under a repeating texture of it. */
inline void writeTexturedFlightFile(const std::string& path, const std::vector<osg::ref_ptr<osg::Image>>& images,
                                    float repeats) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    for (const auto& image : images) {
        const osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(image);
        texture->setWrap(osg::Texture::WRAP_S, osg::Texture::REPEAT);
        texture->setWrap(osg::Texture::WRAP_T, osg::Texture::REPEAT);
        const osg::ref_ptr<osg::Geometry> rectangle = makeRectangle(10, osg::Vec3(), repeats);
        rectangle->getOrCreateStateSet()->setTextureAttributeAndModes(0, texture);
        root->addChild(makeGeode(rectangle));
    }
    writeFlightFile(*root, path);
}

inline std::string bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace testing_support
