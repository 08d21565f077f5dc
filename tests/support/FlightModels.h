#pragma once

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/MatrixTransform>
#include <osg/Notify>
#include <osg/ProxyNode>
#include <osgDB/WriteFile>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"

/** Small OpenFlight files for tests of conversions, and the means to damage them. */
namespace testing_support {

inline std::string readBytes(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/** Missing folders are made. */
inline void writeBytes(const std::filesystem::path& path, const std::string& bytes) {
    if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

/** A square in the xy plane around the origin; its size is what tells models apart. */
inline osg::ref_ptr<osg::Geode> makeGround(float size) {
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(-size / 2, -size / 2, 0), osg::Vec3(size, 0, 0),
                                                       osg::Vec3(0, size, 0)));
    return geode;
}

/** A model of that size that refers to those files. */
inline osg::ref_ptr<osg::Group> makeModel(float size, const std::vector<std::string>& references = {}) {
    osg::ref_ptr<osg::Group> model = new osg::Group;
    model->setName("model");
    model->addChild(makeGround(size));
    for (const std::string& reference : references) {
        osg::ref_ptr<osg::ProxyNode> proxy = new osg::ProxyNode;
        proxy->setFileName(0, reference);
        model->addChild(proxy);
    }
    return model;
}

/** Writes a graph as OpenFlight, whatever the name ends in, making missing folders. The writer puts texture attributes
 * beside the file. */
inline void writeFlight(const std::filesystem::path& path, const osg::Node& node) {
    std::filesystem::create_directories(path.parent_path());
    const WorkingDirectory beside(path.parent_path());
    const osg::NotifySeverity level = osg::getNotifyLevel();
    osg::setNotifyLevel(osg::ALWAYS);
    const bool isWritten = osgDB::writeNodeFile(node, "written-for-a-test.flt");
    osg::setNotifyLevel(level);
    if (!isWritten) throw std::runtime_error("cannot write " + path.string());
    std::filesystem::rename("written-for-a-test.flt", path);
}

inline void writeFlight(const std::filesystem::path& path, float size,
                        const std::vector<std::string>& references = {}) {
    writeFlight(path, *makeModel(size, references));
}

inline std::size_t bigEndian(const std::string& bytes, std::size_t at, std::size_t width) {
    std::size_t value = 0;
    for (std::size_t i = 0; i < width && at + i < bytes.size(); ++i)
        value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

inline void putBigEndian(std::string& bytes, std::size_t at, std::size_t width, std::size_t value) {
    for (std::size_t i = 0; i < width && at + i < bytes.size(); ++i)
        bytes[at + i] = static_cast<char>(value >> (8 * (width - 1 - i)));
}

/** The records of a whole OpenFlight file, in order; joined they are the file. */
inline std::vector<std::string> splitRecords(const std::string& bytes) {
    std::vector<std::string> records;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t length = bigEndian(bytes, at + 2, 2);
        if (length < 4) throw std::runtime_error("not a whole OpenFlight file");
        records.push_back(bytes.substr(at, length));
        at += length;
    }
    return records;
}

inline std::string joinRecords(const std::vector<std::string>& records) {
    std::string bytes;
    for (const std::string& record : records) bytes += record;
    return bytes;
}

constexpr std::size_t externalReferenceOpcode = 63;
constexpr std::size_t texturePaletteOpcode = 64;

/** Bits of an external reference's flags: set, the referenced file uses its own palette, clear, its parent's. */
constexpr std::size_t ownColors = 0x80000000u;
constexpr std::size_t ownMaterials = 0x40000000u;
constexpr std::size_t ownTextures = 0x20000000u;
constexpr std::size_t ownEverything = 0xffffffffu;

/** Sets the flags of all external references of the file. */
inline void setReferenceFlags(const std::filesystem::path& path, std::size_t flags) {
    std::vector<std::string> records = splitRecords(readBytes(path));
    for (std::string& record : records) {
        if (bigEndian(record, 0, 2) == externalReferenceOpcode) putBigEndian(record, 208, 4, flags);
    }
    writeBytes(path, joinRecords(records));
}

}  // namespace testing_support
