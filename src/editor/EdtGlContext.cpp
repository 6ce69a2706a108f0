#include "editor/EdtGlContext.h"

#include <GL/glew.h>

#include <QOpenGLContext>
#include <QOpenGLWidget>

// After Qt: the X11 headers define names (None, Status) that Qt's use.
#include <EGL/egl.h>
#include <GL/glx.h>

EdtGlContext::EdtGlContext(QOpenGLWidget& view) : m_view(view) {}

EdtGlContext::~EdtGlContext()
{
    if (m_resolveFbo && acquire()) {
        glDeleteFramebuffers(1, &m_resolveFbo);
        glDeleteRenderbuffers(1, &m_resolveColour);
        release();
    }
}

unsigned EdtGlContext::defaultFramebuffer() const
{
    return m_view.defaultFramebufferObject();
}

int EdtGlContext::width() const
{
    return static_cast<int>(m_view.width() * m_view.devicePixelRatioF());
}

int EdtGlContext::height() const
{
    return static_cast<int>(m_view.height() * m_view.devicePixelRatioF());
}

void EdtGlContext::swapBuffers()
{
    // A window shows its picture opaque whatever alpha the frame left; Qt
    // would blend the view's framebuffer by it, so alpha is set to one.
    if (acquire()) {
        GLint drawn = 0;
        GLfloat clear[4] = {};
        GLboolean mask[4] = {};
        glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &drawn);
        glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
        glGetBooleanv(GL_COLOR_WRITEMASK, mask);
        const GLboolean scissor = glIsEnabled(GL_SCISSOR_TEST);
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, defaultFramebuffer());
        glDisable(GL_SCISSOR_TEST);
        glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_TRUE);
        glClearColor(0, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        glColorMask(mask[0], mask[1], mask[2], mask[3]);
        glClearColor(clear[0], clear[1], clear[2], clear[3]);
        if (scissor) glEnable(GL_SCISSOR_TEST);
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(drawn));
        release();
    }
    m_view.update();
}

bool EdtGlContext::makeCurrent()
{
    if (!m_view.context()) return false;
    m_view.makeCurrent();
    return QOpenGLContext::currentContext() == m_view.context();
}

void EdtGlContext::doneCurrent()
{
    m_view.doneCurrent();
}

GlContext::Sharing EdtGlContext::sharing() const
{
    Sharing s;
    if (GLXContext glx = glXGetCurrentContext()) {
        s.api = Api::Glx;
        s.context = glx;
        s.display = glXGetCurrentDisplay();
    } else if (EGLContext egl = eglGetCurrentContext(); egl != EGL_NO_CONTEXT) {
        s.api = Api::Egl;
        s.context = egl;
        s.display = eglGetCurrentDisplay();
    }
    return s;
}

std::vector<uint8_t> EdtGlContext::readFrame(std::string* why)
{
    if (!acquire()) {
        if (why) *why = "the view's context cannot be made current";
        return {};
    }
    const int w = width(), h = height();
    if (!m_resolveFbo) {
        glGenFramebuffers(1, &m_resolveFbo);
        glGenRenderbuffers(1, &m_resolveColour);
    }
    GLint drawn = 0, read = 0, renderbuffer = 0;
    glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &drawn);
    glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &read);
    glGetIntegerv(GL_RENDERBUFFER_BINDING, &renderbuffer);
    if (w != m_resolveWidth || h != m_resolveHeight) {
        glBindRenderbuffer(GL_RENDERBUFFER, m_resolveColour);
        glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, w, h);
        glBindFramebuffer(GL_FRAMEBUFFER, m_resolveFbo);
        glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, m_resolveColour);
        glBindRenderbuffer(GL_RENDERBUFFER, static_cast<GLuint>(renderbuffer));
        m_resolveWidth = w;
        m_resolveHeight = h;
    }
    // A multisampled framebuffer cannot be read directly: resolve it first.
    glBindFramebuffer(GL_READ_FRAMEBUFFER, defaultFramebuffer());
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, m_resolveFbo);
    glBlitFramebuffer(0, 0, w, h, 0, 0, w, h, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(drawn));
    glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(read));
    std::string failure;
    std::vector<uint8_t> pixels = GlPlatform::readFramebuffer(m_resolveFbo, w, h, failure);
    release();
    if (why) *why = failure;
    return pixels;
}
