#pragma once

#include <osg/Image>
#include <osg/Node>
#include <osg/Vec3d>
#include <osg/ref_ptr>
#include <osgDB/Options>
#include <osgDB/ReaderWriter>
#include <osgDB/Registry>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** A sphere outside of which a tile is not shown, in the tile's coordinates. */
struct ShownWithin {
    osg::Vec3d center;
    double radius = 0.0;
};

/** A file that a tile names. */
struct TileReference {
    std::string name;                  ///< as it stands in the tile
    std::string path;                  ///< where OpenSceneGraph finds it; empty: nowhere
    bool isRemote = false;             ///< on a server; not looked for
    bool isLoadedWithTile = false;     ///< OpenSceneGraph loads it as soon as the tile
    std::optional<ShownWithin> shown;  ///< none: everywhere, or that depends on the size of the window
};

/**
 * Stands by while one file is read as a pager reads it. Notes what the file refers to, and where OpenSceneGraph finds
 * that, but has nothing of it read. Has no image read that could keep the reader waiting for ever, or that comes from a
 * server; in place of images that cannot be had it puts ones without pixels.
 */
class TileReading : public osgDB::ReadFileCallback {
public:
    osgDB::ReaderWriter::ReadResult readNode(const std::string& name, const osgDB::Options* options) override;
    osgDB::ReaderWriter::ReadResult readImage(const std::string& name, const osgDB::Options* options) override;
    osgDB::ReaderWriter::ReadResult readObject(const std::string& name, const osgDB::Options* options) override;
    osgDB::ReaderWriter::ReadResult readHeightField(const std::string& name, const osgDB::Options* options) override;
    osgDB::ReaderWriter::ReadResult readShader(const std::string& name, const osgDB::Options* options) override;

    /** What the file refers to, each once, in the order of the graph. */
    const std::vector<TileReference>& references() const { return _references; }

    /** "'NAME' is missing": why an image has no pixels; empty: it was not read from a file of its own. */
    std::string whatIsWrongWith(const osg::Image& image) const;

private:
    bool _isReading = false;
    std::vector<TileReference> _references;
    std::map<osg::ref_ptr<const osg::Image>, std::string> _emptyImages;
};

}  // namespace veltrane::sceneutils::tool
