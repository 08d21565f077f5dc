#pragma once

#include <sceneutils/TextureVisitor.h>

#include <string>

namespace veltrane::sceneutils {

/**
 * Renames the image files that a graph's textures refer to from one extension to another, for databases whose textures
 * were converted to another format beside the models.
 *
 *     veltrane::sceneutils::ChangeTextureExtension::process(node, "rgb", "dds");
 *
 * Only the stored file names change; pixels are neither reloaded nor touched, and nothing is read or written on disk.
 * Every change is reported on standard error as "Changing OLD to NEW". An image reached a second time no longer has the
 * old extension and is left alone (unless both extensions are equal: then every visit reports again).
 * One instance serves one thread at a time.
 */
class SCENEUTILS_EXPORT ChangeTextureExtension : public TextureVisitor {
public:
    /**
     * @param from the extension to look for, without the dot and compared byte for byte: "rgb" does not match
     *     "tex.RGB", and ".rgb" matches nothing. Empty: images whose names have no extension.
     * @param to the extension to give instead, without the dot
     */
    ChangeTextureExtension(const std::string& from, const std::string& to);
    ChangeTextureExtension(const ChangeTextureExtension& other);
    ChangeTextureExtension& operator=(const ChangeTextureExtension& other);
    ~ChangeTextureExtension() override;

    /**
     * Renames the textures of the graph below `node`.
     * @param node the graph; null is ignored
     * @param from the extension to look for, see the constructor
     * @param to the extension to give instead, without the dot
     */
    static void process(osg::Node* node, const std::string& from, const std::string& to);

    using TextureVisitor::apply;

    /** Renames each of the texture's images (a cube map has six); null images are skipped. */
    void apply(osg::Texture& texture) override;

private:
    void changeExtension(osg::Image& image) const;

    std::string from;
    std::string to;
};

}  // namespace veltrane::sceneutils
