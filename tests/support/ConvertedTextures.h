#pragma once

#include "Conversions.h"
#include "TexturedModels.h"

#include <osg/Image>
#include <osg/Texture2D>

#include <filesystem>
#include <string>
#include <vector>

/** Models with textures, and what a conversion has made of those. */
namespace testing_support {

/** Writes a model under textures that refers to files. */
inline void writeTextured(const std::filesystem::path& path, const std::vector<std::string>& textures,
                          const std::vector<std::string>& references = {}, float repeats = 4.0f) {
    const osg::ref_ptr<osg::Group> model = makeModel(10, references);
    for (const std::string& texture : textures) model->addChild(makeTextured(texture, repeats));
    writeFlight(path, *model);
}

/** The names that a converted file has stored for its textures. */
inline std::vector<std::string> textureNamesIn(const std::filesystem::path& path) {
    struct Recorder : osgDB::ReadFileCallback {
        osgDB::ReaderWriter::ReadResult readImage(const std::string& name, const osgDB::Options*) override {
            names.push_back(name);
            return new osg::Image;
        }
        std::vector<std::string> names;
    };
    const osg::ref_ptr<Recorder> recorder = new Recorder;
    osgDB::Registry::instance()->setReadFileCallback(recorder);
    load(path);
    osgDB::Registry::instance()->setReadFileCallback(nullptr);
    return recorder->names;
}

/** The grey of each texture of a converted file; -1 for one without pixels. */
inline std::vector<int> greysIn(const std::filesystem::path& path) {
    std::vector<int> greys;
    for (const auto& texture : findTextures(load(path))) {
        const osg::Image* image = texture->getImage();
        greys.push_back(image && image->data() ? image->data()[0] : -1);
    }
    return greys;
}

}  // namespace testing_support
