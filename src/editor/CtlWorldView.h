// The world view: the OpenGL widget of the editor and the place where the
// engine is driven. Its start runs the module chain with its context current;
// each tick of the frame runs one frame step of the document into it, and
// recording grabs the frame into a movie.
#pragma once

#include <memory>
#include <string>

#include <QOpenGLWidget>

#include "platform/MovieWriter.h"

class EdtGlContext;
class RtnDocument;

class CtlWorldView : public QOpenGLWidget {
    Q_OBJECT
public:
    explicit CtlWorldView(QWidget* parent = nullptr);
    ~CtlWorldView() override;

    // The context the engine needs, to be made the default before the
    // application object exists: GLSL 3.30 with the old entry points still
    // there, 24-bit depth, 4 samples, shown opaque.
    static QSurfaceFormat surfaceFormat();

    // True once the context exists and every module has started.
    bool isStarted() const { return m_started; }

    // One tick of `doc` drawn into this view: the view size and the click
    // go in, the chosen node comes back as the selection in edit mode, and a
    // recording takes the frame. Returns the delay before the next tick.
    uint32_t runFrame(RtnDocument& doc);

    // "Toggle GUI": whether the widget tree is drawn.
    bool showGui = true;

    // Recording into `path`, at the view's present size (see
    // MovieWriter::frameSize). False with the reason in `error`.
    bool startRecording(const std::string& path, std::string& error);
    // Ends the recording; false when the file's end could not be written.
    bool stopRecording();
    bool isRecording() const { return m_movie.isOpen(); }
    const MovieWriter& movie() const { return m_movie; }

signals:
    // The module chain has run: documents may be opened now.
    void started();

protected:
    void initializeGL() override;
    // Only the frame step draws: a repaint shows what the last frame left.
    void paintGL() override {}
    // Keys, buttons, cursor and wheel go to the input table that cameras
    // and widgets sample at the frame.
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

public:
    // The kit's code of a Qt key, or -1 for a key the kit has no code for.
    static int kitKey(int qtKey, bool keypad);

private:
    std::unique_ptr<EdtGlContext> m_gl;
    bool m_started = false;
    int m_wheelEighths = 0;  // wheel movement not yet a whole notch
    MovieWriter m_movie;
};
