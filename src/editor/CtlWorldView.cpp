#include "editor/CtlWorldView.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>

#include "editor/EdtGlContext.h"
#include "node/ScnNode.h"
#include "platform/GlContext.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/Clock.h"
#include "runtime/RtnDocument.h"
#include "runtime/RtnSelection.h"
#include "widgets/InputState.h"

CtlWorldView::CtlWorldView(QWidget* parent) : QOpenGLWidget(parent)
{
    // What one frame leaves in the framebuffer must stay until the next one.
    setUpdateBehavior(QOpenGLWidget::PartialUpdate);
    setFocusPolicy(Qt::StrongFocus);
    // The cursor counts between frames with no button held too.
    setMouseTracking(true);
    setMinimumSize(64, 48);
}

QSurfaceFormat CtlWorldView::surfaceFormat()
{
    QSurfaceFormat format;
    format.setRenderableType(QSurfaceFormat::OpenGL);
    format.setVersion(3, 3);
    format.setProfile(QSurfaceFormat::CompatibilityProfile);
    // Without it a 3.3 request is made forward compatible, and drivers give
    // a core context.
    format.setOption(QSurfaceFormat::DeprecatedFunctions);
    format.setDepthBufferSize(24);
    // The view's framebuffer is RGBA8 whatever is asked; asking for alpha
    // would only make Qt show the picture as translucent where the clear
    // colour's alpha is 0.
    format.setAlphaBufferSize(0);
    format.setStencilBufferSize(8);
    format.setSamples(4);
    return format;
}

CtlWorldView::~CtlWorldView()
{
    stopRecording();
    if (GlContext::active() == m_gl.get()) GlContext::setActive(nullptr);
}

void CtlWorldView::initializeGL()
{
    VTRACE("CtlWorldView::OnCreate()-start");
    m_gl = std::make_unique<EdtGlContext>(*this);
    GlContext::setActive(m_gl.get());
    std::string error;
    {
        GlScope gl;
        if (!gl.ok() || !GlPlatform::initEntryPoints(error)) {
            // Without entry points nothing may be drawn: the engine runs blind.
            LogStream(Channels::error(), "startup error") << "OpenGL is not usable: " << error;
            GlContext::setActive(nullptr);
        }
    }
    AppGlobal::startModules();
    Engine::readCollectionSetting();
    m_started = true;
    VTRACE("CtlWorldView::OnCreate()-done");
    emit started();
}

namespace {

// The cursor in view pixels with y from the bottom, as the kit counts.
void reportCursor(const QWidget& w, const QPointF& p)
{
    const qreal ratio = w.devicePixelRatioF();
    InputState::instance().setCursor(p.x() * ratio, (w.height() - p.y()) * ratio);
}

int kitButton(Qt::MouseButton b)
{
    return b == Qt::LeftButton ? 1 : b == Qt::RightButton ? 2 : 0;
}

}  // namespace

int CtlWorldView::kitKey(int k, bool keypad)
{
    if (k >= Qt::Key_A && k <= Qt::Key_Z) return 'a' + (k - Qt::Key_A);  // sampled upper-case under Shift
    if (k >= Qt::Key_0 && k <= Qt::Key_9) return '0' + (k - Qt::Key_0);
    if (keypad) {
        switch (k) {
        case Qt::Key_Plus: return 43;
        case Qt::Key_Comma: return 44;
        case Qt::Key_Minus: return 45;
        case Qt::Key_Period: return 46;
        default: break;
        }
    }
    switch (k) {
    case Qt::Key_Space: return 32;
    case Qt::Key_Delete: return 127;
    case Qt::Key_Cancel: return 128;
    case Qt::Key_Backspace: return 129;
    case Qt::Key_Tab: return 130;
    case Qt::Key_Clear: return 131;
    case Qt::Key_Return:
    case Qt::Key_Enter: return 132;
    case Qt::Key_Shift: return InputState::KeyShift;
    case Qt::Key_Control: return InputState::KeyControl;
    case Qt::Key_Alt: return InputState::KeyAlt;
    case Qt::Key_Pause: return 136;
    case Qt::Key_CapsLock: return 137;
    case Qt::Key_Escape: return 138;
    case Qt::Key_PageUp: return 140;
    case Qt::Key_PageDown: return 141;
    case Qt::Key_End: return 142;
    case Qt::Key_Home: return 143;
    case Qt::Key_Left: return InputState::KeyLeft;
    case Qt::Key_Up: return InputState::KeyUp;
    case Qt::Key_Right: return InputState::KeyRight;
    case Qt::Key_Down: return InputState::KeyDown;
    case Qt::Key_Select: return 148;
    case Qt::Key_Print: return 149;
    case Qt::Key_Execute: return 150;
    case Qt::Key_SysReq: return 151;
    case Qt::Key_Insert: return 152;
    default: return -1;
    }
}

void CtlWorldView::mousePressEvent(QMouseEvent* event)
{
    setFocus(Qt::MouseFocusReason);
    reportCursor(*this, event->position());
    if (int b = kitButton(event->button())) InputState::instance().setButton(b, true);
    QOpenGLWidget::mousePressEvent(event);
}

void CtlWorldView::mouseReleaseEvent(QMouseEvent* event)
{
    reportCursor(*this, event->position());
    if (int b = kitButton(event->button())) InputState::instance().setButton(b, false);
    QOpenGLWidget::mouseReleaseEvent(event);
}

void CtlWorldView::mouseMoveEvent(QMouseEvent* event)
{
    reportCursor(*this, event->position());
    QOpenGLWidget::mouseMoveEvent(event);
}

void CtlWorldView::wheelEvent(QWheelEvent* event)
{
    // Qt counts eighths of a degree, 120 to a notch.
    m_wheelEighths += event->angleDelta().y();
    const int notches = m_wheelEighths / 120;
    m_wheelEighths -= notches * 120;
    if (notches) InputState::instance().addWheel(notches);
    event->accept();
}

void CtlWorldView::keyPressEvent(QKeyEvent* event)
{
    const bool keypad = event->modifiers() & Qt::KeypadModifier;
    const int code = kitKey(event->key(), keypad);
    if (code < 0) {
        QOpenGLWidget::keyPressEvent(event);
        return;
    }
    if (!event->isAutoRepeat()) InputState::instance().setKey(code, true, keypad);
    event->accept();
}

void CtlWorldView::keyReleaseEvent(QKeyEvent* event)
{
    const bool keypad = event->modifiers() & Qt::KeypadModifier;
    const int code = kitKey(event->key(), keypad);
    if (code < 0) {
        QOpenGLWidget::keyReleaseEvent(event);
        return;
    }
    if (!event->isAutoRepeat()) InputState::instance().setKey(code, false, keypad);
    event->accept();
}

void CtlWorldView::focusOutEvent(QFocusEvent* event)
{
    // Keys let go elsewhere would stay held for ever.
    for (int k = 0; k < InputState::kKeys; ++k) InputState::instance().setKey(k, false);
    for (int k = '0'; k <= '9'; ++k) InputState::instance().setKey(k, false, true);
    InputState::instance().setButton(1, false);
    InputState::instance().setButton(2, false);
    QOpenGLWidget::focusOutEvent(event);
}

uint32_t CtlWorldView::runFrame(RtnDocument& doc)
{
    const qreal ratio = devicePixelRatioF();
    const int w = static_cast<int>(width() * ratio), h = static_cast<int>(height() * ratio);
    doc.setView(w, h, showGui);
    GlScope gl;
    const uint32_t delay = doc.tick();
    // A click in edit mode selects what it hit, as the design tree knows it.
    if (ScnNode* chosen = doc.chosenNode(); chosen && doc.state() == RtnDocument::State::Edit) {
        ScnNode* design = chosen->designPeer() ? chosen->designPeer() : chosen;
        if (RtnSelection::instance().node != design) RtnSelection::instance().setNode(design);
    }
    if (m_movie.isOpen() && gl.ok()) {
        std::vector<uint8_t> pixels = m_gl->readFrame();
        if (!pixels.empty()) m_movie.addFrame(pixels.data(), w, h);
    }
    return delay;
}

bool CtlWorldView::startRecording(const std::string& path, std::string& error)
{
    if (!m_gl || GlContext::active() != m_gl.get()) {
        error = "the view has no OpenGL context";
        return false;
    }
    int w = 0, h = 0;
    const qreal ratio = devicePixelRatioF();
    MovieWriter::frameSize(static_cast<int>(width() * ratio), static_cast<int>(height() * ratio), w, h);
    return m_movie.open(path, w, h, error);
}

bool CtlWorldView::stopRecording()
{
    return m_movie.close();
}
