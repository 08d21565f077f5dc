#pragma once

#include <osg/GraphicsContext>

#include <memory>
#include <stdexcept>
#include <string>

namespace veltrane::sceneutils::offscreen {

/** Says why nothing can be drawn. */
class OffscreenError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/**
 * An OpenGL context (compatibility profile) that draws into memory: it needs EGL and a driver, but no window system.
 *
 * A graphics card is taken before a software driver. The context and its OpenGL objects end with the object; it belongs
 * to the thread that makes it current. Each one has a context ID that no other ever had, so that scene-graph objects
 * which outlive it (programs in a cache, fonts) do not take what they had in it for something of a later one.
 */
class OffscreenContext : public osg::GraphicsContext {
public:
    /**
     * The context is current when the constructor returns.
     * @param width,height of the picture in pixels, at least 1
     * @throws OffscreenError if there is no driver, or none for pictures of that size
     */
    OffscreenContext(int width, int height);
    OffscreenContext(const OffscreenContext&) = delete;
    OffscreenContext& operator=(const OffscreenContext&) = delete;

    /** The name of the driver, the card included. */
    const std::string& driver() const { return _driver; }

    /** The version of OpenGL, as the driver tells it. */
    const std::string& version() const { return _version; }

    bool valid() const override;
    bool realizeImplementation() override;
    bool isRealizedImplementation() const override;
    void closeImplementation() override;
    bool makeCurrentImplementation() override;
    bool makeContextCurrentImplementation(osg::GraphicsContext* readContext) override;
    bool releaseContextImplementation() override;
    void bindPBufferToTextureImplementation(GLenum buffer) override;
    void swapBuffersImplementation() override;

protected:
    ~OffscreenContext() override;

private:
    class Egl;

    std::unique_ptr<Egl> _egl;
    std::string _driver;
    std::string _version;
};

}  // namespace veltrane::sceneutils::offscreen
