#include "runtime/RtnDocument.h"

#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

#include <lua.hpp>

#include "platform/GlContext.h"
#include "platform/Paths.h"
#include "render/ScnCamera.h"
#include "render/ScnScene.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnSelection.h"
#include "runtime/ScnLua.h"
#include "runtime/ScnScriptEnv.h"
#include "widgets/InputState.h"

namespace {

std::string pathOf(const std::string& fileName)
{
    if (!fileName.empty() && fileName[0] == '/') return fileName;
    return Paths::join(AppGlobal::projectPath(), fileName);
}

template <class F>
void forEachProcessor(RtnApplication& app, F f)
{
    for (ScnNode* n = app.scripts.node.firstChild(); n; n = n->next())
        if (auto* p = dynamic_cast<RtnProcessor*>(n)) f(*p);
}

template <class F>
void forEachProcessorBackwards(RtnApplication& app, F f)
{
    for (ScnNode* n = app.scripts.node.children.last(); n; n = n->prev())
        if (auto* p = dynamic_cast<RtnProcessor*>(n)) f(*p);
}

}  // namespace

RtnDocument::RtnDocument(Clock& clock) : m_clock(clock), m_ticker(clock, [this] { frame(); }) {}

RtnDocument::~RtnDocument()
{
    close();
}

bool RtnDocument::open(const std::string& fileName, std::string& error)
{
    std::string name = Paths::toNativePath(fileName);
    std::unique_ptr<RtnApplication> app;
    struct stat st;
    const bool read = !name.empty() && stat(pathOf(name).c_str(), &st) == 0;
    if (read) {
        app.reset(RtnApplication::readFile(pathOf(name), error));
        if (!app) return false;
    } else {
        app = std::make_unique<RtnApplication>();
    }
    close();
    load(std::move(app), name);
    // A document read from a file tells the user how to move about it.
    if (read)
        for (const char* hint : {"w,a,s,d, ctrl and arrow keys to move",
                                 "right mouse button and wheel to fly, CTRL to tilt",
                                 "Single and double-click nodes to edit content",
                                 "Hit \"play\" to start and \"reset\" to toggle between edit and runtime modes"})
            LogStream(Channels::intro(), "intro") << hint;
    return true;
}

void RtnDocument::load(std::unique_ptr<RtnApplication> app, const std::string& fileName)
{
    // Global texts and load-time OnDeposit may draw or make GL objects.
    GlScope gl;
    if (chdir(AppGlobal::projectPath().c_str()) != 0) {
        // The workspace went away; the document still opens.
    }
    m_app = std::move(app);
    m_app->fileName = fileName;
    m_app->publishInclude();
    RtnMFRef::s_root = m_app.get();
    {
        // The paths are resolved here, all at once: each parent's children
        // are indexed once instead of walked once per path and level.
        RtnPathIndex lookup;
        forEachProcessor(*m_app, [&lookup](RtnProcessor& p) {
            for (int r = 0; r < RtnProcessor::kRegisters; ++r)
                if (RtnRegister* reg = p.getRegister(r))
                    for (int i = 0; i < reg->marking.count(); ++i)
                        if (ScnNode* n = reg->marking.path(i).resolve(&lookup)) ++n->markingCount;
        });
    }
    ScnScene::clearColourToBlack();
    runApplicationText(false);  // the build collects
    buildRuntime();
    RtnSelection& sel = RtnSelection::instance();
    sel.setApplication(m_app.get());
    if (auto* first = dynamic_cast<RtnProcessor*>(m_app->scripts.node.getChild(0))) sel.setProcessor(first);
    depositTokens(true);
    m_state = State::Edit;
    m_ticker.simulationOn = false;
    m_ticker.restart();
}

void RtnDocument::buildRuntime()
{
    m_runtime = new CmdApplication(m_app.get());
    // The running camera becomes the main camera: active, queued by its event
    // pass, and the script global activeCamera.
    ScnScene::setMainCamera(dynamic_cast<ScnCamera*>(m_runtime->branch(CmdApplication::Camera)));
}

void RtnDocument::destroyRuntime()
{
    if (!m_runtime) return;
    ScnScene::setMainCamera(nullptr);
    m_runtime->destroyTree();
    m_app->linkTwin(nullptr);
    delete m_runtime;
    m_runtime = nullptr;
}

void RtnDocument::depositTokens(bool events)
{
    forEachProcessorBackwards(*m_app, [events](RtnProcessor& p) {
        for (int r = 0; r < RtnProcessor::kRegisters; ++r)
            if (RtnRegister* reg = p.getRegister(r)) reg->depositAll(events);
    });
}

void RtnDocument::removeTokens(bool events)
{
    forEachProcessorBackwards(*m_app, [events](RtnProcessor& p) {
        for (int r = 0; r < RtnProcessor::kRegisters; ++r)
            if (RtnRegister* reg = p.getRegister(r)) reg->removeAll(events);
    });
}

bool RtnDocument::runGlobalScript()
{
    return runApplicationText(true);
}

bool RtnDocument::runApplicationText(bool collect)
{
    if (!m_app) return false;
    m_app->scriptChanged = false;
    lua_State* L = AppGlobal::luaState();
    if (!L) return false;
    std::string message;
    bool ok = ScnScript::runGlobalText(L, m_app->luaglobal.value, 0, &message);
    if (collect) ScnScript::collectAfterGlobalText(L);
    if (!ok) ScnScript::reportTextError(message.c_str(), m_app.get(), m_app->getName());
    return ok;
}

bool RtnDocument::save()
{
    if (!m_app) return false;
    std::string path = pathOf(m_app->fileName);
    RtnSelection::instance().saveComing();
    std::string error;
    ScnNode* savedRoot = RtnMFRef::s_root;
    RtnMFRef::s_root = m_app.get();
    bool ok = m_app->writeFile(path, error);
    RtnMFRef::s_root = savedRoot;
    if (!ok) {
        LogStream(Channels::error(), m_app->getName())
            << "Unable to save file " << path << " -- likely a persmissions problem";
        return false;
    }
    // Files that nodes write later resolve beside the document.
    std::string folder = path.substr(0, path.find_last_of('/'));
    if (!folder.empty() && chdir(folder.c_str()) != 0) {
        // Saved all the same; relative names then resolve in the workspace.
    }
    return true;
}

bool RtnDocument::saveAs(const std::string& fileName)
{
    if (!m_app) return false;
    std::string old = m_app->fileName;
    m_app->fileName = fileName;
    if (save()) return true;
    m_app->fileName = old;
    return false;
}

void RtnDocument::close()
{
    if (!m_app) return;
    RtnSelection& sel = RtnSelection::instance();
    sel.setNode(nullptr);
    sel.clearFunction();
    sel.clearRegister();
    sel.clearProcessor();
    sel.clearApplication();
    destroyRuntime();
    ScnLua::collect(AppGlobal::luaState(), LUA_GCCOLLECT, 0);
    m_ticker.restart();
    forEachProcessor(*m_app, [](RtnProcessor& p) {
        for (int r = 0; r < RtnProcessor::kRegisters; ++r)
            if (RtnRegister* reg = p.getRegister(r))
                for (int i = 0; i < reg->marking.count(); ++i)
                    if (ScnNode* n = reg->marking.path(i).resolve())
                        if (n->markingCount) --n->markingCount;
    });
    if (RtnMFRef::s_root == m_app.get()) RtnMFRef::s_root = nullptr;
    m_app.reset();
    m_state = State::Edit;
    m_ticker.simulationOn = false;
    Engine::running = 0;
}

void RtnDocument::reset()
{
    if (!m_app) return;
    GlScope gl;  // as at load: scripts run with the context current
    RtnSelection& sel = RtnSelection::instance();
    sel.beginRebuild();
    removeTokens(true);  // OnRemove runs with the old tree alive
    destroyRuntime();
    if (chdir(AppGlobal::projectPath().c_str()) != 0) {
        // Nothing to do: the workspace is gone, the rebuild goes on.
    }
    ScnLua::collect(AppGlobal::luaState(), LUA_GCCOLLECT, 0);
    m_ticker.restart();
    ScnScene::clearColourToBlack();
    runApplicationText(false);  // the build collects
    buildRuntime();
    depositTokens(true);
    sel.endRebuild();
    if (m_state != State::Edit) sel.setRunState(0);
    m_state = State::Edit;
    m_ticker.simulationOn = false;
    Engine::running = 0;
}

void RtnDocument::toggleSimulation()
{
    switch (m_state) {
    case State::Edit:
        m_state = State::Running;
        RtnSelection::instance().setRunState(1);
        break;
    case State::Running: m_state = State::Paused; break;
    case State::Paused: m_state = State::Running; break;
    }
    m_ticker.simulationOn = m_state == State::Running;
}

uint32_t RtnDocument::tick()
{
    return m_ticker.tick();
}

void RtnDocument::setView(int width, int height, bool showGui)
{
    m_viewWidth = width;
    m_viewHeight = height;
    m_showGui = showGui;
}

void RtnDocument::frame()
{
    m_chosen = nullptr;
    if (!m_runtime) return;
    // The view samples its input once a frame, and ages it after the step.
    InputState& input = InputState::instance();
    input.sample(m_clock.milliseconds(), m_viewWidth, m_viewHeight);
    m_chosen = m_runtime->frameStep(m_viewWidth, m_viewHeight, m_showGui);
    input.age();
    if (GlContext* gl = GlContext::active()) gl->swapBuffers();
}
