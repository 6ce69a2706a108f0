// The editor's GL context: the world view's window-system context behind the
// engine's GlContext interface. The screen of the engine is the view's
// framebuffer object, which Qt shows after each frame.
#pragma once

#include "platform/GlContext.h"

class QOpenGLWidget;

class EdtGlContext : public GlContext {
public:
    explicit EdtGlContext(QOpenGLWidget& view);
    ~EdtGlContext() override;

    unsigned defaultFramebuffer() const override;
    // In device pixels.
    int width() const override;
    int height() const override;
    // Asks Qt to show the frame just drawn into the view's framebuffer.
    void swapBuffers() override;
    std::vector<uint8_t> readFrame(std::string* why = nullptr) override;
    // GLX or EGL, whichever the window system gave; asked with the context current.
    Sharing sharing() const override;

protected:
    bool makeCurrent() override;
    void doneCurrent() override;

private:
    QOpenGLWidget& m_view;
    // Single-sampled copy of the view's (multisampled) framebuffer for reads.
    unsigned m_resolveFbo = 0, m_resolveColour = 0;
    int m_resolveWidth = 0, m_resolveHeight = 0;
};
