// The GL context behind everything that draws: one interface for "a context
// that can be made current and released, with a default framebuffer to draw
// to". Headless runs and tests use EglContext; the editor's window-system
// context implements the same interface.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class GlContext {
public:
    virtual ~GlContext();

    // What OpenCL needs to share with this context.
    enum class Api { None, Glx, Egl };
    struct Sharing {
        Api api = Api::None;
        void* display = nullptr;
        void* context = nullptr;
    };

    // Nested make-current: the first acquire makes the context current, the
    // matching release of the outermost one lets it go. False when the
    // context cannot be made current (nothing must be drawn then).
    bool acquire();
    void release();
    bool isCurrent() const { return m_depth > 0; }

    // The framebuffer that stands for the screen: 0 for a window, an
    // off-screen object for headless contexts.
    virtual unsigned defaultFramebuffer() const = 0;
    virtual int width() const = 0;
    virtual int height() const = 0;
    // Ends a frame: shows the back buffer.
    virtual void swapBuffers() = 0;
    // The last shown frame as RGBA rows, bottom row first. Errors that
    // earlier GL calls left pending do not count. Empty on failure, with the
    // call that failed in `why` where given.
    virtual std::vector<uint8_t> readFrame(std::string* why = nullptr) = 0;
    virtual Sharing sharing() const = 0;

    // The context the program draws with, or null where there is none. The
    // frame step, the create and destroy walks and the shader builds use it.
    static GlContext* active() { return s_active; }
    static void setActive(GlContext* c) { s_active = c; }
    // True while the active context is current: GL may be called.
    static bool ready() { return s_active && s_active->isCurrent(); }

protected:
    virtual bool makeCurrent() = 0;
    virtual void doneCurrent() = 0;

private:
    int m_depth = 0;
    static GlContext* s_active;
};

// Makes the active context current for the life of the object.
class GlScope {
public:
    GlScope() : m_ctx(GlContext::active()) { m_ok = m_ctx && m_ctx->acquire(); }
    ~GlScope() { if (m_ok) m_ctx->release(); }
    GlScope(const GlScope&) = delete;
    GlScope& operator=(const GlScope&) = delete;
    bool ok() const { return m_ok; }

private:
    GlContext* m_ctx;
    bool m_ok;
};

namespace GlPlatform {
// Loads the GL entry points through GLEW, once per process, with the context
// current. False (with the reason in `error`) when GLEW fails.
bool initEntryPoints(std::string& error);
// Binds the active context's default framebuffer (0 without a context).
void bindScreen();
// Reads `fbo` as RGBA rows, bottom row first, with the context current; the
// binding and packing state are left as they were. Empty on failure, with the
// call that failed in `failure`.
std::vector<uint8_t> readFramebuffer(unsigned fbo, int width, int height, std::string& failure);
}

// The headless context: Mesa's surfaceless platform, or the EGL device
// platform where Mesa is absent, drawing into an off-screen framebuffer of the
// requested size (4 samples where offered, resolved on swapBuffers).
class EglContext : public GlContext {
public:
    // Null with the reason in `error` when no display or context can be had.
    static std::unique_ptr<EglContext> create(int width, int height, std::string& error);
    ~EglContext() override;

    unsigned defaultFramebuffer() const override { return m_drawFbo; }
    int width() const override { return m_width; }
    int height() const override { return m_height; }
    void swapBuffers() override;
    std::vector<uint8_t> readFrame(std::string* why = nullptr) override;
    Sharing sharing() const override;
    int samples() const { return m_samples; }
    // "surfaceless" or "device".
    const char* platformName() const { return m_platform; }

protected:
    bool makeCurrent() override;
    void doneCurrent() override;

private:
    EglContext() = default;
    bool makeTargets(std::string& error);

    void* m_display = nullptr;
    void* m_context = nullptr;
    const char* m_platform = "";
    int m_width = 0, m_height = 0, m_samples = 0;
    unsigned m_drawFbo = 0, m_resolveFbo = 0;
    unsigned m_colour = 0, m_depth = 0, m_resolveColour = 0;
};

// Writes RGBA rows (bottom row first, as GL reads them) as a PNG file.
bool writePng(const std::string& path, int width, int height, const std::vector<uint8_t>& rgba);
