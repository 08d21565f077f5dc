#include <sceneutils/ChangeTextureExtension.h>

#include <osg/Image>
#include <osgDB/FileNameUtils>

#include <iostream>

namespace veltrane::sceneutils {

ChangeTextureExtension::ChangeTextureExtension(const std::string& fromExtension, const std::string& toExtension)
    : from(fromExtension), to(toExtension) {}

ChangeTextureExtension::ChangeTextureExtension(const ChangeTextureExtension& other)
    : osg::Object(other), TextureVisitor(other), from(other.from), to(other.to) {}

ChangeTextureExtension& ChangeTextureExtension::operator=(const ChangeTextureExtension& other) = default;

ChangeTextureExtension::~ChangeTextureExtension() = default;

void ChangeTextureExtension::process(osg::Node* node, const std::string& from, const std::string& to) {
    if (!node) return;
    ChangeTextureExtension visitor(from, to);
    node->accept(visitor);
}

void ChangeTextureExtension::apply(osg::Texture& texture) {
    const unsigned int count = texture.getNumImages();
    for (unsigned int i = 0; i < count; ++i) {
        if (osg::Image* image = texture.getImage(i)) changeExtension(*image);
    }
}

void ChangeTextureExtension::changeExtension(osg::Image& image) const {
    const std::string name = image.getFileName();
    if (osgDB::getFileExtension(name) != from) return;

    const std::string newName = osgDB::getNameLessExtension(name) + "." + to;
    std::cerr << "Changing " + name + " to " + newName + "\n";
    image.setFileName(newName);
}

}  // namespace veltrane::sceneutils
