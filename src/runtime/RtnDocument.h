// The open document and its life: load, save, close, new, reset, the run
// state and the frame tick. One exists at a time; the editor and the headless
// runner each hold one.
#pragma once

#include <memory>
#include <string>

#include "runtime/Clock.h"

class RtnApplication;
class CmdApplication;
class ScnNode;

class RtnDocument {
public:
    enum class State { Edit, Running, Paused };

    explicit RtnDocument(Clock& clock);
    ~RtnDocument();
    RtnDocument(const RtnDocument&) = delete;

    // Closes what is open and loads `fileName` (relative to the workspace);
    // "" or a file that does not exist gives a new application under that
    // name. A damaged file is refused with a message in `error`, and what was
    // open stays open.
    bool open(const std::string& fileName, std::string& error);
    // Saves under the document's name; false (with the message on the error
    // channel) when the file cannot be written.
    bool save();
    bool saveAs(const std::string& fileName);
    void close();

    // Throws the run-time tree away and builds it anew.
    void reset();
    // "Start Simulation": edit to running, then running and paused in turn.
    void toggleSimulation();
    State state() const { return m_state; }

    // One frame tick; returns the delay before the next.
    uint32_t tick();
    uint32_t lastTickTime() const { return m_ticker.lastTick; }

    // The view the frames draw into: its size in pixels and whether the
    // widget tree is shown.
    void setView(int width, int height, bool showGui);
    // The node the last frame's click chose, or null.
    ScnNode* chosenNode() const { return m_chosen; }

    // The global text of the application, run in the global environment,
    // then a full collection.
    bool runGlobalScript();

    RtnApplication* application() const { return m_app.get(); }
    CmdApplication* runtime() const { return m_runtime; }

private:
    void load(std::unique_ptr<RtnApplication> app, const std::string& fileName);
    // The application's global text; `collect` false when a build follows,
    // whose one collection comes after every global text.
    bool runApplicationText(bool collect);
    void buildRuntime();
    void destroyRuntime();
    void depositTokens(bool events);
    void removeTokens(bool events);
    void frame();

    Clock& m_clock;
    Ticker m_ticker;
    std::unique_ptr<RtnApplication> m_app;
    CmdApplication* m_runtime = nullptr;
    State m_state = State::Edit;
    int m_viewWidth = 1024, m_viewHeight = 768;
    bool m_showGui = true;
    ScnNode* m_chosen = nullptr;
};
