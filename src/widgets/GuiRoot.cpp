#include "widgets/GuiRoot.h"

#include <GL/glew.h>

#include <algorithm>
#include <limits>

#include "memory/MemStatistics.h"
#include "platform/GlContext.h"
#include "runtime/BranchGlobals.h"
#include "runtime/Channels.h"
#include "runtime/Clock.h"
#include "widgets/GuiActionEvent.h"
#include "widgets/GuiActionRender.h"
#include "widgets/GuiComponent.h"
#include "widgets/GuiControls.h"
#include "widgets/GuiDraw.h"
#include "widgets/InputState.h"

ScnNodeType GuiRoot::s_type;

namespace {

GuiRoot* s_current = nullptr;
ScnNode* s_focus = nullptr;
bool s_windowOpen = true;
int16_t s_blink = 20;
bool s_rightHeld = false, s_rightWentDown = false;
constexpr int kKeyG = 103;

// Sets the current root for the walk of the children. It stays current
// after the walk, so that scripts running later in the frame (OnTime) can
// still invalidate through it; an enclosing root comes back.
struct CurrentRoot {
    explicit CurrentRoot(GuiRoot* root) : saved(s_current) { s_current = root; }
    ~CurrentRoot()
    {
        if (saved) s_current = saved;
    }
    GuiRoot* saved;
};

void setEntry(GuiDraw::Colour which, const ScnColor& c, float alpha)
{
    float* e = GuiDraw::palette(which);
    e[0] = c.r;
    e[1] = c.g;
    e[2] = c.b;
    e[3] = alpha;
}

}  // namespace

GuiRoot::GuiRoot()
{
    name = "gui";
    m_dirty[0] = m_dirty[1] = m_dirty[2] = std::numeric_limits<double>::max();
    m_dirty[3] = m_dirty[4] = m_dirty[5] = std::numeric_limits<double>::lowest();
}

GuiRoot::~GuiRoot()
{
    if (s_current == this) s_current = nullptr;
}

void GuiRoot::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiRoot::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

GuiRoot* GuiRoot::current()
{
    return s_current;
}

void GuiRoot::invalidateCurrent(const ScnBox& box)
{
    if (s_current) s_current->invalidate(box);
}

ScnNode* GuiRoot::focus()
{
    return s_focus;
}

void GuiRoot::setFocus(ScnNode* widget)
{
    s_focus = widget;
}

bool GuiRoot::windowOpen()
{
    return s_windowOpen;
}

bool GuiRoot::rightWentDown()
{
    return s_rightWentDown;
}

int GuiRoot::blink()
{
    return s_blink;
}

void GuiRoot::rebuildPalette()
{
    const float a = transparency.value;
    struct Entry {
        GuiDraw::Colour which;
        ScnSFColor* field;
    };
    const Entry withOpacity[] = {
        {GuiDraw::Face3D, &face3D},     {GuiDraw::Highlight3D, &highlight3D}, {GuiDraw::ActiveBorder, &activeBorder},
        {GuiDraw::Light3D, &light3D},   {GuiDraw::Shadow3D, &shadow3D},       {GuiDraw::DkShadow3D, &darkShadow3D},
        {GuiDraw::Highlight, &highlight}, {GuiDraw::Window, &window},
    };
    for (const Entry& e : withOpacity) {
        setEntry(e.which, e.field->value, a);
        e.field->value.a = a;
    }
    setEntry(GuiDraw::Text, text.value, text.value.a);
    setEntry(GuiDraw::HighlightText, highlightText.value, highlightText.value.a);
    setEntry(GuiDraw::MenuHilight, menuHilight, a);
    GuiDraw::setOpacity(a);
    GuiDraw::setCellSize(cellSize.value);
}

void GuiRoot::invalidate(const ScnBox& box)
{
    for (int i = 0; i < 3; ++i) {
        m_dirty[i] = std::min(m_dirty[i], box.min[i]);
        m_dirty[3 + i] = std::max(m_dirty[3 + i], box.max[i]);
    }
}

void GuiRoot::invalidateAll()
{
    m_dirty[0] = 0;
    m_dirty[1] = 0;
    m_dirty[3] = dim0.value;
    m_dirty[4] = dim1.value;
}

bool GuiRoot::dirtyEmpty() const
{
    return m_dirty[0] > m_dirty[3] || m_dirty[1] > m_dirty[4];
}

void GuiRoot::makePicture()
{
    if (!GlContext::ready() || dim0.value <= 0 || dim1.value <= 0) return;
    glGenTextures(1, &m_texture);
    glBindTexture(GL_TEXTURE_2D, m_texture);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, dim0.value, dim1.value, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
    glBindTexture(GL_TEXTURE_2D, 0);
    glGenRenderbuffers(1, &m_depth);
    glBindRenderbuffer(GL_RENDERBUFFER, m_depth);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, dim0.value, dim1.value);
    glBindRenderbuffer(GL_RENDERBUFFER, 0);
    // Four bytes a pixel of colour, three of depth.
    m_pictureBytes = int64_t{dim0.value} * dim1.value * (4 + 3);
    MemStatistics::add(m_pictureBytes);
    GLint before = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &before);
    glGenFramebuffers(1, &m_framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, m_texture, 0);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, m_depth);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
        LogStream(Channels::error(), getName()) << "failed to make complete framebuffer object";
    // A new picture starts transparent.
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(before));
}

void GuiRoot::releasePicture()
{
    if (GlContext::ready()) {
        if (m_framebuffer) glDeleteFramebuffers(1, &m_framebuffer);
        if (m_texture) glDeleteTextures(1, &m_texture);
        if (m_depth) glDeleteRenderbuffers(1, &m_depth);
    }
    m_framebuffer = m_texture = m_depth = 0;
    MemStatistics::remove(m_pictureBytes);
    m_pictureBytes = 0;
}

void GuiRoot::onCreate(ScnAction& action)
{
    if (pathLink) {
        ScnGroup::onCreate(action);
        return;
    }
    GuiDraw::buildPrograms();
    GuiDraw::loadIcons();
    makePicture();
    invalidateAll();
    rebuildPalette();
    GuiDraw::setViewport(dim0.value, dim1.value);
    {
        CurrentRoot root(this);
        action.walk(this, ScnAction::Children);
    }
    BranchGlobals::publish(this);
    action.continueWalk(this, ScnAction::Siblings);
}

void GuiRoot::onDestroy(ScnAction& action)
{
    if (pathLink) {
        ScnGroup::onDestroy(action);
        return;
    }
    releasePicture();
    m_hover = nullptr;
    s_focus = nullptr;
    if (s_current == this) s_current = nullptr;
    action.walk(this, ScnAction::Children);
    BranchGlobals::withdraw(this, getName());
    action.continueWalk(this, ScnAction::Siblings);
}

void GuiRoot::onUpdate(ScnAction& action)
{
    auto* update = dynamic_cast<ScnActionUpdate*>(&action);
    const void* changed = update ? update->pointer : nullptr;
    if (!pathLink && changed && (changed == &dim0 || changed == &dim1) && m_texture) {
        releasePicture();
        makePicture();
    }
    invalidateAll();
    rebuildPalette();
    CurrentRoot root(this);
    ScnGroup::onUpdate(action);
}

void GuiRoot::onEvent(ScnAction& action)
{
    auto* event = dynamic_cast<GuiActionEvent*>(&action);
    if (!event) {
        ScnGroup::onEvent(action);
        return;
    }
    const InputState& in = InputState::instance();
    const bool running = Engine::running != 0;
    if (!running && in.held(InputState::KeyControl) && (in.keys[kKeyG] & InputState::WentDown)) m_visible = !m_visible;
    const bool rightHeld = (in.rightButton & InputState::Held) != 0;
    s_rightWentDown = rightHeld && !s_rightHeld;
    s_rightHeld = rightHeld;
    if (m_visible) {
        if (--s_blink < -19) s_blink = 20;
        // While editing every frame repaints whole, so that picking sees
        // the widgets as they are edited.
        if (!running) invalidateAll();
        CurrentRoot root(this);
        if (running)
            if (auto* input = dynamic_cast<GuiInput*>(s_focus)) input->serveFocus(*event);
        action.walk(this, ScnAction::Children);
        m_hover = event->hover;
        event->hit = m_hover;
        if (!event->handled && m_hover) notify(3);
    }
    action.continueWalk(this, ScnAction::Siblings);
}

void GuiRoot::onRender(ScnAction& action)
{
    if (!dynamic_cast<GuiActionRender*>(&action)) {
        ScnGroup::onRender(action);
        return;
    }
    GuiDraw::setViewport(dim0.value, dim1.value);
    GuiDraw::resetDepth();
    if (!m_visible || !GlContext::ready()) {
        action.continueWalk(this, ScnAction::Siblings);
        return;
    }
    const float w = static_cast<float>(dim0.value), h = static_cast<float>(dim1.value);
    GuiDraw::resetClip(0, 0, w, h);
    if (!dirtyEmpty() && m_framebuffer) {
        GLint before = 0;
        glGetIntegerv(GL_FRAMEBUFFER_BINDING, &before);
        glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
        glDrawBuffer(GL_COLOR_ATTACHMENT0);
        glDepthFunc(GL_LEQUAL);
        glEnable(GL_SCISSOR_TEST);
        glEnable(GL_DEPTH_TEST);
        ScnBox box;
        box.min[0] = std::max(0.0, m_dirty[0]);
        box.min[1] = std::max(0.0, m_dirty[1]);
        box.max[0] = std::min<double>(dim0.value, m_dirty[3]);
        box.max[1] = std::min<double>(dim1.value, m_dirty[4]);
        // The backdrop: what no widget covers stays see-through.
        GuiDraw::pushClip(box, 0, 0);
        glClear(GL_DEPTH_BUFFER_BIT);
        glDepthMask(GL_FALSE);
        glClearColor(0, 0, 0, 0);
        glClear(GL_COLOR_BUFFER_BIT);
        GuiDraw::popClip();
        glDepthMask(GL_TRUE);

        GuiDraw::pushClip(box, 0, 0);
        // Each node of the walk lies nearer than the one before; every
        // frame starts again at the far end.
        GuiDraw::resetDepth();
        {
            CurrentRoot root(this);
            action.walk(this, ScnAction::Children);
        }
        GuiDraw::flush();
        GuiDraw::resetDepth();
        GuiDraw::popClip();
        glDisable(GL_SCISSOR_TEST);
        glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(before));
        m_dirty[0] = m_dirty[1] = m_dirty[2] = std::numeric_limits<double>::max();
        m_dirty[3] = m_dirty[4] = m_dirty[5] = std::numeric_limits<double>::lowest();
    }
    GuiDraw::drawPicture(m_texture);
    action.continueWalk(this, ScnAction::Siblings);
}
