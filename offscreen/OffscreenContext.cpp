#include "OffscreenContext.h"

#include <osg/State>

#include <algorithm>
#include <cstring>
#include <vector>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>

namespace veltrane::sceneutils::offscreen {

namespace {

constexpr EGLint configurationWanted[] = {EGL_SURFACE_TYPE,
                                          EGL_PBUFFER_BIT,
                                          EGL_RENDERABLE_TYPE,
                                          EGL_OPENGL_BIT,
                                          EGL_RED_SIZE,
                                          8,
                                          EGL_GREEN_SIZE,
                                          8,
                                          EGL_BLUE_SIZE,
                                          8,
                                          EGL_ALPHA_SIZE,
                                          8,
                                          EGL_DEPTH_SIZE,
                                          24,
                                          EGL_STENCIL_SIZE,
                                          8,
                                          EGL_NONE};

template <class Function>
Function eglFunction(const char* name) {
    return reinterpret_cast<Function>(eglGetProcAddress(name));
}

bool contains(const char* extensions, const char* name) {
    return extensions && std::strstr(extensions, name);
}

/** The devices of all drivers, graphics cards first. */
std::vector<EGLDeviceEXT> devices() {
    const auto queryDevices = eglFunction<PFNEGLQUERYDEVICESEXTPROC>("eglQueryDevicesEXT");
    const auto queryString = eglFunction<PFNEGLQUERYDEVICESTRINGEXTPROC>("eglQueryDeviceStringEXT");
    EGLint count = 0;
    if (!queryDevices || !queryString || !queryDevices(0, nullptr, &count)) return {};
    std::vector<EGLDeviceEXT> found(static_cast<std::size_t>(count));
    if (!queryDevices(count, found.data(), &count)) return {};

    const auto isCard = [&](EGLDeviceEXT device) {
        return !contains(queryString(device, EGL_EXTENSIONS), "EGL_MESA_device_software");
    };
    std::stable_partition(found.begin(), found.end(), isCard);
    return found;
}

/** The displays that may have a driver, the best ones first. */
std::vector<EGLDisplay> displays() {
    const auto getDisplay = eglFunction<PFNEGLGETPLATFORMDISPLAYEXTPROC>("eglGetPlatformDisplayEXT");
    if (!getDisplay) return {};
    std::vector<EGLDisplay> found;
    for (EGLDeviceEXT device : devices()) found.push_back(getDisplay(EGL_PLATFORM_DEVICE_EXT, device, nullptr));
    found.push_back(getDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr));
    return found;
}

std::string glString(GLenum name) {
    const auto* text = reinterpret_cast<const char*>(glGetString(name));
    return text ? text : "";
}

}  // namespace

/** What the context is for EGL. */
class OffscreenContext::Egl {
public:
    Egl(int width, int height) {
        if (width < 1 || height < 1) throw OffscreenError(withoutPicture(width, height));
        for (EGLDisplay display : displays()) {
            if (open(display, width, height)) return;
        }
        throw OffscreenError("no driver can draw without a window system: " +
                             (_reason.empty() ? "no display" : _reason));
    }

    ~Egl() { close(); }
    Egl(const Egl&) = delete;
    Egl& operator=(const Egl&) = delete;

    bool makeCurrent() { return eglMakeCurrent(_display, _surface, _surface, _context) == EGL_TRUE; }
    bool release() { return eglMakeCurrent(_display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT) == EGL_TRUE; }

private:
    bool open(EGLDisplay display, int width, int height) {
        if (display == EGL_NO_DISPLAY || !eglInitialize(display, nullptr, nullptr)) return fail("no display");
        _display = display;
        EGLConfig configuration = nullptr;
        EGLint count = 0;
        if (!eglChooseConfig(display, configurationWanted, &configuration, 1, &count) || count == 0)
            return fail("no picture format with colours, depth and stencil");
        if (!eglBindAPI(EGL_OPENGL_API)) return fail("no OpenGL");
        _context = eglCreateContext(display, configuration, EGL_NO_CONTEXT, nullptr);
        if (_context == EGL_NO_CONTEXT) return fail("no OpenGL context");
        const EGLint size[] = {EGL_WIDTH, width, EGL_HEIGHT, height, EGL_NONE};
        _surface = eglCreatePbufferSurface(display, configuration, size);
        if (_surface == EGL_NO_SURFACE || !makeCurrent() || !canDraw(width, height))
            return fail(withoutPicture(width, height));
        return true;
    }

    static std::string withoutPicture(int width, int height) {
        return "no picture of " + std::to_string(width) + "x" + std::to_string(height) + " pixels";
    }

    static bool canDraw(int width, int height) {
        GLint largest[2] = {0, 0};
        glGetIntegerv(GL_MAX_VIEWPORT_DIMS, largest);
        return width <= largest[0] && height <= largest[1];
    }

    // The first reason counts: it is the best driver's.
    bool fail(const std::string& reason) {
        if (_reason.empty()) _reason = reason;
        close();
        return false;
    }

    // The display stays initialised: it is the process's, and other contexts may use it.
    void close() {
        if (_display == EGL_NO_DISPLAY) return;
        release();
        if (_surface != EGL_NO_SURFACE) eglDestroySurface(_display, _surface);
        if (_context != EGL_NO_CONTEXT) eglDestroyContext(_display, _context);
        _surface = EGL_NO_SURFACE;
        _context = EGL_NO_CONTEXT;
        _display = EGL_NO_DISPLAY;
    }

    EGLDisplay _display = EGL_NO_DISPLAY;
    EGLContext _context = EGL_NO_CONTEXT;
    EGLSurface _surface = EGL_NO_SURFACE;
    std::string _reason;
};

OffscreenContext::OffscreenContext(int width, int height)
    : _egl(std::make_unique<Egl>(width, height)), _driver(glString(GL_RENDERER)), _version(glString(GL_VERSION)) {
    _traits = new Traits;
    _traits->width = width;
    _traits->height = height;
    _traits->pbuffer = true;

    setState(new osg::State);
    getState()->setGraphicsContext(this);
    getState()->setContextID(createNewContextID());
    realize();
    makeCurrent();
}

OffscreenContext::~OffscreenContext() {
    close(true);
}

bool OffscreenContext::valid() const {
    return _egl != nullptr;
}

bool OffscreenContext::realizeImplementation() {
    return valid();
}

bool OffscreenContext::isRealizedImplementation() const {
    return valid();
}

void OffscreenContext::closeImplementation() {
    _egl.reset();
    // Without its state the context does not hand its ID back: it is not to be used again.
    setState(nullptr);
}

bool OffscreenContext::makeCurrentImplementation() {
    return valid() && _egl->makeCurrent();
}

bool OffscreenContext::makeContextCurrentImplementation(osg::GraphicsContext*) {
    return makeCurrentImplementation();
}

bool OffscreenContext::releaseContextImplementation() {
    return valid() && _egl->release();
}

void OffscreenContext::bindPBufferToTextureImplementation(GLenum) {}

void OffscreenContext::swapBuffersImplementation() {}

}  // namespace veltrane::sceneutils::offscreen
