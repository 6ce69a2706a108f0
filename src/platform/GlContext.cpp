#include "platform/GlContext.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

#if defined(__SANITIZE_ADDRESS__)
#include <dlfcn.h>
#include <link.h>
#endif

#include <GL/glew.h>
#include <EGL/egl.h>
#include <EGL/eglext.h>

#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_image_write.h>

GlContext* GlContext::s_active = nullptr;

GlContext::~GlContext()
{
    if (s_active == this) s_active = nullptr;
}

bool GlContext::acquire()
{
    if (m_depth > 0) {
        ++m_depth;
        return true;
    }
    if (!makeCurrent()) return false;
    m_depth = 1;
    return true;
}

void GlContext::release()
{
    if (m_depth == 0) return;
    if (--m_depth == 0) doneCurrent();
}

namespace GlPlatform {

bool initEntryPoints(std::string& error)
{
    static int state = 0;  // 0 not tried, 1 loaded, 2 failed
    static std::string failure;
    if (state == 0) {
        glewExperimental = GL_TRUE;
        GLenum rc = glewInit();
        // GLEW built for GLX reports the missing X display after it has loaded
        // every entry point: under EGL that is success.
        if (rc == GLEW_OK || rc == GLEW_ERROR_NO_GLX_DISPLAY) {
            state = 1;
        } else {
            state = 2;
            failure = std::string("glewInit failed: ") + reinterpret_cast<const char*>(glewGetErrorString(rc));
        }
        glGetError();  // GLEW may leave an error from its probing
    }
    if (state == 2) error = failure;
    return state == 1;
}

void bindScreen()
{
    GlContext* c = GlContext::active();
    glBindFramebuffer(GL_FRAMEBUFFER, c ? c->defaultFramebuffer() : 0);
}

}  // namespace GlPlatform

// -- EGL ---------------------------------------------------------------------------

namespace {

EGLDisplay openDisplay(const char*& platform)
{
    auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (!getPlatformDisplay) return EGL_NO_DISPLAY;
    EGLint major = 0, minor = 0;
    const char* clientExts = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    std::string exts = clientExts ? clientExts : "";
    if (exts.find("EGL_MESA_platform_surfaceless") != std::string::npos) {
        EGLDisplay d = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
        if (d != EGL_NO_DISPLAY && eglInitialize(d, &major, &minor)) {
            platform = "surfaceless";
            return d;
        }
    }
    // No Mesa: the first device that the vendor's EGL names.
    auto queryDevices = reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(eglGetProcAddress("eglQueryDevicesEXT"));
    if (queryDevices && exts.find("EGL_EXT_platform_device") != std::string::npos) {
        EGLDeviceEXT devices[8];
        EGLint count = 0;
        if (queryDevices(8, devices, &count)) {
            for (EGLint i = 0; i < count; ++i) {
                EGLDisplay d = getPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, devices[i], nullptr);
                if (d != EGL_NO_DISPLAY && eglInitialize(d, &major, &minor)) {
                    platform = "device";
                    return d;
                }
            }
        }
    }
    return EGL_NO_DISPLAY;
}

// EGL keeps one display per platform and device, and one eglTerminate ends
// it for every context on it: each context holds a count on its display, and
// the last one out terminates it.
std::mutex g_displayMutex;
std::map<EGLDisplay, int> g_displayUsers;

void retainDisplay(EGLDisplay d)
{
    std::lock_guard<std::mutex> lock(g_displayMutex);
    ++g_displayUsers[d];
}

void releaseDisplay(EGLDisplay d)
{
    std::lock_guard<std::mutex> lock(g_displayMutex);
    auto it = g_displayUsers.find(d);
    if (it == g_displayUsers.end()) return;
    if (--it->second > 0) return;
    g_displayUsers.erase(it);
    eglTerminate(d);
}

#if defined(__SANITIZE_ADDRESS__)
// The leak check runs after EGL has unloaded its DRI driver at exit, and the
// driver's frames could not be named (nor suppressed) then: in sanitizer
// builds the driver stays loaded until the process ends.
void keepDriversLoaded()
{
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void*) {
            const char* name = info->dlpi_name;
            if (name && std::strstr(name, "_dri.so")) dlopen(name, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
            return 0;
        },
        nullptr);
}
#endif

// A compatibility profile of at least 3.3; drivers that refuse the profile
// attributes get a plain request, which gives their highest compatible version.
EGLContext openContext(EGLDisplay d, EGLConfig config)
{
    const EGLint compat[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 3,
                             EGL_CONTEXT_OPENGL_PROFILE_MASK, EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT, EGL_NONE};
    EGLContext c = eglCreateContext(d, config, EGL_NO_CONTEXT, compat);
    if (c == EGL_NO_CONTEXT) c = eglCreateContext(d, config, EGL_NO_CONTEXT, nullptr);
    return c;
}

}  // namespace

std::unique_ptr<EglContext> EglContext::create(int width, int height, std::string& error)
{
    if (width <= 0 || height <= 0 || width > 16384 || height > 16384) {
        error = "invalid frame size " + std::to_string(width) + "x" + std::to_string(height);
        return nullptr;
    }
    std::unique_ptr<EglContext> ctx(new EglContext());
    ctx->m_width = width;
    ctx->m_height = height;
    EGLDisplay d = openDisplay(ctx->m_platform);
    if (d == EGL_NO_DISPLAY) {
        error = "no EGL display (neither Mesa's surfaceless platform nor an EGL device)";
        return nullptr;
    }
    retainDisplay(d);
    ctx->m_display = d;
    if (!eglBindAPI(EGL_OPENGL_API)) {
        error = "EGL offers no desktop OpenGL";
        return nullptr;
    }
    const EGLint want[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
                           EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8, EGL_BLUE_SIZE, 8, EGL_ALPHA_SIZE, 8,
                           EGL_DEPTH_SIZE, 24, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint n = 0;
    if (!eglChooseConfig(d, want, &config, 1, &n) || n < 1) config = nullptr;  // configless where allowed
    EGLContext c = openContext(d, config);
    if (c == EGL_NO_CONTEXT) {
        error = "eglCreateContext failed (error 0x" + [] {
            char b[16];
            std::snprintf(b, sizeof b, "%X", static_cast<unsigned>(eglGetError()));
            return std::string(b);
        }() + ")";
        return nullptr;
    }
    ctx->m_context = c;
    if (!ctx->acquire()) {
        error = "eglMakeCurrent failed";
        return nullptr;
    }
    bool ok = GlPlatform::initEntryPoints(error) && ctx->makeTargets(error);
    ctx->release();
#if defined(__SANITIZE_ADDRESS__)
    keepDriversLoaded();
#endif
    if (!ok) return nullptr;
    return ctx;
}

bool EglContext::makeTargets(std::string& error)
{
    GLint major = 0, minor = 0;
    glGetIntegerv(GL_MAJOR_VERSION, &major);
    glGetIntegerv(GL_MINOR_VERSION, &minor);
    if (major * 10 + minor < 33) {
        error = "OpenGL 3.3 is needed, the driver offers " + std::to_string(major) + "." + std::to_string(minor);
        return false;
    }
    GLint maxSamples = 0;
    glGetIntegerv(GL_MAX_SAMPLES, &maxSamples);
    m_samples = maxSamples >= 4 ? 4 : 0;

    glGenRenderbuffers(1, &m_colour);
    glBindRenderbuffer(GL_RENDERBUFFER, m_colour);
    glRenderbufferStorageMultisample(GL_RENDERBUFFER, m_samples, GL_RGBA8, m_width, m_height);
    glGenRenderbuffers(1, &m_depth);
    glBindRenderbuffer(GL_RENDERBUFFER, m_depth);
    glRenderbufferStorageMultisample(GL_RENDERBUFFER, m_samples, GL_DEPTH_COMPONENT24, m_width, m_height);
    glGenFramebuffers(1, &m_drawFbo);
    glBindFramebuffer(GL_FRAMEBUFFER, m_drawFbo);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, m_colour);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, m_depth);
    bool drawOk = glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;

    glGenRenderbuffers(1, &m_resolveColour);
    glBindRenderbuffer(GL_RENDERBUFFER, m_resolveColour);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, m_width, m_height);
    glGenFramebuffers(1, &m_resolveFbo);
    glBindFramebuffer(GL_FRAMEBUFFER, m_resolveFbo);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, m_resolveColour);
    bool resolveOk = glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
    glBindRenderbuffer(GL_RENDERBUFFER, 0);

    glBindFramebuffer(GL_FRAMEBUFFER, m_drawFbo);
    glViewport(0, 0, m_width, m_height);
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    if (!drawOk || !resolveOk) {
        error = "the off-screen framebuffer is incomplete";
        return false;
    }
    return true;
}

EglContext::~EglContext()
{
    // Another context that was current is current again afterwards.
    EGLContext otherContext = eglGetCurrentContext();
    EGLDisplay otherDisplay = eglGetCurrentDisplay();
    if (otherContext == m_context) otherContext = EGL_NO_CONTEXT;
    if (m_context && acquire()) {
        glDeleteFramebuffers(1, &m_drawFbo);
        glDeleteFramebuffers(1, &m_resolveFbo);
        glDeleteRenderbuffers(1, &m_colour);
        glDeleteRenderbuffers(1, &m_depth);
        glDeleteRenderbuffers(1, &m_resolveColour);
        eglMakeCurrent(m_display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    }
    if (m_context) eglDestroyContext(m_display, m_context);
    if (otherContext != EGL_NO_CONTEXT) eglMakeCurrent(otherDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, otherContext);
    if (m_display) releaseDisplay(m_display);
}

bool EglContext::makeCurrent()
{
    return eglMakeCurrent(m_display, EGL_NO_SURFACE, EGL_NO_SURFACE, m_context) == EGL_TRUE;
}

void EglContext::doneCurrent()
{
    eglMakeCurrent(m_display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
}

void EglContext::swapBuffers()
{
    if (!acquire()) return;
    GLint drawn = 0;
    glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &drawn);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, m_drawFbo);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, m_resolveFbo);
    glBlitFramebuffer(0, 0, m_width, m_height, 0, 0, m_width, m_height, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(drawn));
    release();
}

namespace {

std::string glFailure(const char* call, GLenum e)
{
    char code[16];
    std::snprintf(code, sizeof code, "0x%04X", static_cast<unsigned>(e));
    return std::string(call) + " failed (GL error " + code + ")";
}

}  // namespace

namespace GlPlatform {

std::vector<uint8_t> readFramebuffer(unsigned fbo, int width, int height, std::string& failure)
{
    std::vector<uint8_t> pixels;
    failure.clear();
    // Errors of earlier calls (a script's, say) are theirs, not the read's.
    // Bounded: a lost context reports its error forever.
    for (int i = 0; i < 64 && glGetError() != GL_NO_ERROR; ++i) {
    }
    GLint read = 0, packBuffer = 0, rowLength = 0, skipRows = 0, skipPixels = 0, alignment = 4;
    glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &read);
    glGetIntegerv(GL_PIXEL_PACK_BUFFER_BINDING, &packBuffer);
    glGetIntegerv(GL_PACK_ROW_LENGTH, &rowLength);
    glGetIntegerv(GL_PACK_SKIP_ROWS, &skipRows);
    glGetIntegerv(GL_PACK_SKIP_PIXELS, &skipPixels);
    glGetIntegerv(GL_PACK_ALIGNMENT, &alignment);
    // Packing state left by others would send the rows elsewhere or past the end.
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
    glPixelStorei(GL_PACK_SKIP_ROWS, 0);
    glPixelStorei(GL_PACK_SKIP_PIXELS, 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, fbo);
    if (GLenum e = glGetError(); e != GL_NO_ERROR) {
        failure = glFailure("glBindFramebuffer", e);
    } else {
        pixels.resize(static_cast<size_t>(width) * height * 4);
        glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
        if (GLenum e = glGetError(); e != GL_NO_ERROR) {
            failure = glFailure("glReadPixels", e);
            pixels.clear();
        }
    }
    glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(read));
    glBindBuffer(GL_PIXEL_PACK_BUFFER, static_cast<GLuint>(packBuffer));
    glPixelStorei(GL_PACK_ROW_LENGTH, rowLength);
    glPixelStorei(GL_PACK_SKIP_ROWS, skipRows);
    glPixelStorei(GL_PACK_SKIP_PIXELS, skipPixels);
    glPixelStorei(GL_PACK_ALIGNMENT, alignment);
    return pixels;
}

}  // namespace GlPlatform

std::vector<uint8_t> EglContext::readFrame(std::string* why)
{
    if (!acquire()) {
        if (why) *why = "eglMakeCurrent failed";
        return {};
    }
    std::string failure;
    std::vector<uint8_t> pixels = GlPlatform::readFramebuffer(m_resolveFbo, m_width, m_height, failure);
    release();
    if (why) *why = failure;
    return pixels;
}

GlContext::Sharing EglContext::sharing() const
{
    return Sharing{Api::Egl, m_display, m_context};
}

bool writePng(const std::string& path, int width, int height, const std::vector<uint8_t>& rgba)
{
    if (width <= 0 || height <= 0 || rgba.size() < static_cast<size_t>(width) * height * 4) return false;
    // GL rows run bottom up; the file's run top down. The view is shown
    // opaque, whatever alpha the frame left, so the file is RGB.
    const size_t row = static_cast<size_t>(width) * 3;
    std::vector<uint8_t> flipped(row * height);
    for (int y = 0; y < height; ++y) {
        const uint8_t* src = rgba.data() + static_cast<size_t>(width) * 4 * (height - 1 - y);
        uint8_t* dst = flipped.data() + row * y;
        for (int x = 0; x < width; ++x) std::memcpy(dst + 3 * x, src + 4 * x, 3);
    }
    return stbi_write_png(path.c_str(), width, height, 3, flipped.data(), static_cast<int>(row)) != 0;
}
