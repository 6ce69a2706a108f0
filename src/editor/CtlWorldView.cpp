#include "editor/CtlWorldView.h"

#include <QMouseEvent>

#include "editor/EdtGlContext.h"
#include "node/ScnNode.h"
#include "platform/GlContext.h"
#include "render/ScnScene.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/Clock.h"
#include "runtime/RtnDocument.h"
#include "runtime/RtnSelection.h"

CtlWorldView::CtlWorldView(QWidget* parent) : QOpenGLWidget(parent)
{
    // What one frame leaves in the framebuffer must stay until the next one.
    setUpdateBehavior(QOpenGLWidget::PartialUpdate);
    setFocusPolicy(Qt::StrongFocus);
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

void CtlWorldView::mousePressEvent(QMouseEvent* event)
{
    setFocus(Qt::MouseFocusReason);
    QOpenGLWidget::mousePressEvent(event);
}

void CtlWorldView::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_leftReleased = true;
        m_controlAtRelease = event->modifiers() & Qt::ControlModifier;
    }
    QOpenGLWidget::mouseReleaseEvent(event);
}

uint32_t CtlWorldView::runFrame(RtnDocument& doc)
{
    const qreal ratio = devicePixelRatioF();
    const int w = static_cast<int>(width() * ratio), h = static_cast<int>(height() * ratio);
    doc.setView(w, h, showGui);
    ScnScene::leftButtonReleased = m_leftReleased;
    ScnScene::controlHeld = m_controlAtRelease;
    GlScope gl;
    const uint32_t delay = doc.tick();
    // A click in edit mode selects what it hit, as the design tree knows it.
    if (ScnNode* chosen = doc.chosenNode(); chosen && doc.state() == RtnDocument::State::Edit) {
        ScnNode* design = chosen->designPeer() ? chosen->designPeer() : chosen;
        if (RtnSelection::instance().node != design) RtnSelection::instance().setNode(design);
    }
    m_leftReleased = false;
    ScnScene::leftButtonReleased = false;
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
    EdtMovie::frameSize(static_cast<int>(width() * ratio), static_cast<int>(height() * ratio), w, h);
    return m_movie.open(path, w, h, error);
}

bool CtlWorldView::stopRecording()
{
    return m_movie.close();
}
