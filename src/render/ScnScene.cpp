#include <GL/glew.h>

#include "render/ScnScene.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>

#include <lua.hpp>

#include "platform/GlContext.h"
#include "render/ScnCamera.h"
#include "render/ScnFramebuffer.h"
#include "render/ScnShader.h"
#include "render/ScnWorld.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/Clock.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnSelection.h"
#include "runtime/ScnLua.h"
#include "widgets/GuiActionEvent.h"
#include "widgets/GuiActionRender.h"
#include "widgets/GuiRoot.h"
#include "widgets/InputState.h"

extern int g_scnMaxGeometryOutput;

// -- the render action ----------------------------------------------------------

ScnActionRender::ScnActionRender(ScnCamera* cam, int width, int height) : camera(cam)
{
    viewport[0] = static_cast<float>(width);
    viewport[1] = static_cast<float>(height);
    if (cam) cam->refreshProjection();
    takeCamera();
}

void ScnActionRender::takeCamera()
{
    if (!camera) return;
    for (int i = 0; i < 16; ++i) projection.m[i] = camera->projection[i];
    if (!scnInverse(projection, projectionInverse)) projectionInverse = ScnMatrix16{};
    const double n = camera->frustum[1];
    if (n > 0) {
        aspect[0] = static_cast<float>(2 * camera->frustum[2] / n);
        aspect[1] = static_cast<float>(2 * camera->frustum[3] / n);
    }
    cameraMatrix = camera->worldMatrix;
    view = camera->inverseMatrix;
    if (ScnFramebuffer* fb = camera->displayFramebuffer()) {
        viewport[0] = static_cast<float>(fb->width.value);
        viewport[1] = static_cast<float>(fb->height.value);
    }
}

void ScnActionRender::visit(ScnNode* node)
{
    if (!stop) node->onRender(*this);
}

void ScnActionRender::walk(ScnNode* node, int mask)
{
    if (mask & Children) {
        uint32_t units = nextTextureUnit;
        ScnAction::walk(node, Children);
        nextTextureUnit = units;
    }
    if (mask & Siblings) ScnAction::walk(node, Siblings);
}

bool ScnActionRender::pushBinding(ScnNode* node)
{
    if (m_bindingOverflow || m_bindingCount >= kBindings) {
        if (m_bindingOverflow++ == 0)
            LogStream(Channels::error(), "ScnActionRender") << "more than 32 nodes feed the shaders: the later ones are not bound";
        return false;
    }
    m_bindings[m_bindingCount++] = node;
    return true;
}

void ScnActionRender::popBinding()
{
    if (m_bindingOverflow)
        --m_bindingOverflow;
    else if (m_bindingCount > 0)
        --m_bindingCount;
}

void ScnActionRender::clearBindings()
{
    m_bindingCount = 0;
    m_bindingOverflow = 0;
    nextTextureUnit = 0;
}

void ScnActionRender::bindAll(ScnShader* shader)
{
    for (int i = 0; i < m_bindingCount; ++i) m_bindings[i]->onRenderPass(*this, shader);
    for (ScnNode* n : ScnScene::globalBindings()) n->onRenderPass(*this, shader);
}

// -- global state ---------------------------------------------------------------------

namespace ScnScene {

ScnShader* currentShader = nullptr;
ScnWorld* currentWorld = nullptr;
ScnTransform* currentTransform = nullptr;
ScnNode* selectedNode = nullptr;
int lightCount = 0;
double sceneBox[7] = {0, 0, 0, 0, 0, 0, 0};

namespace {
ScnCamera* s_mainCamera = nullptr;
std::vector<ScnCamera*> s_queue(4);
int s_head = 0, s_tail = 0;

GLuint s_quadVao = 0, s_quadPositions = 0, s_quadTexCoords = 0;
GLuint s_axesVao = 0, s_axesBuffer = 0;
GLuint s_wireVao = 0, s_wireBuffer = 0;

ScnShader& staticShader(const char* name, const char* vertex, const char* fragment)
{
    auto* s = new ScnShader();  // lives as long as the process, like the context
    s->name = name;
    s->vertex = vertex;
    s->fragment = fragment;
    return *s;
}

const char* const kMarkFragment =
    "#version 330\n\nin vec3 color;\n\nlayout(location = 0) out vec4 outColor;\n\nvoid main (void)\n{\n"
    "\toutColor = vec4(color,1);\n}";
}  // namespace

std::vector<ScnNode*>& globalBindings()
{
    static std::vector<ScnNode*> bindings;
    return bindings;
}

ScnCamera* mainCamera()
{
    return s_mainCamera;
}

void setMainCamera(ScnCamera* camera)
{
    if (camera == s_mainCamera) return;
    if (s_mainCamera) {
        s_mainCamera->active = false;
        removeFromQueue(s_mainCamera);
    }
    s_mainCamera = camera;
    if (camera) camera->active = true;
    if (lua_State* L = AppGlobal::luaState()) {
        if (camera)
            ScnLua::setGlobalNode(L, "activeCamera", camera);
        else
            ScnLua::clearGlobalNode(L, "activeCamera");
    }
}

void clearColourToBlack()
{
    GlScope gl;
    if (gl.ok()) glClearColor(0, 0, 0, 0);
}

void enqueueCamera(ScnCamera* camera)
{
    int cap = static_cast<int>(s_queue.size());
    s_queue[s_tail] = camera;
    s_tail = (s_tail + 1) % cap;
    if (s_tail == s_head) {
        std::vector<ScnCamera*> grown(cap * 2);
        for (int i = 0; i < cap; ++i) grown[i] = s_queue[(s_head + i) % cap];
        s_queue.swap(grown);
        s_head = 0;
        s_tail = cap;
    }
}

ScnCamera* dequeueCamera()
{
    if (s_head == s_tail) return nullptr;
    ScnCamera* c = s_queue[s_head];
    s_head = (s_head + 1) % static_cast<int>(s_queue.size());
    return c;
}

void removeFromQueue(ScnCamera* camera)
{
    int kept = 0;
    for (int i = s_head; i != s_tail; i = (i + 1) % static_cast<int>(s_queue.size()))
        if (s_queue[i] != camera) s_queue[(s_head + kept++) % s_queue.size()] = s_queue[i];
    s_tail = (s_head + kept) % static_cast<int>(s_queue.size());
}

int queuedCameras()
{
    int cap = static_cast<int>(s_queue.size());
    return (s_tail - s_head + cap) % cap;
}

ScnShader& displayShader()
{
    static ScnShader& s = staticShader(
        "display",
        "#version 330\n\nuniform mat4 gs_ModelViewProjectionMatrix;\n\nout vec2 uv;\n\nin vec4 gs_Vertex;\nin vec2 "
        "gs_Texture;\n\nvoid main()\n{\n    uv = gs_Texture;\n    gl_Position = gs_ModelViewProjectionMatrix * "
        "gs_Vertex;\n}",
        "#version 330\n\nuniform sampler2D gs_Input;\n\nin vec2 uv;\n\nlayout(location = 0) out vec4 outColor;\n\nvoid "
        "main (void)\n{\n\toutColor = texture2D(gs_Input, uv);\n}");
    return s;
}

ScnShader& solidShader()
{
    static ScnShader& s = staticShader(
        "solid",
        "#version 330\n\nuniform mat4 gs_ModelViewProjectionMatrix;\nuniform vec3 gs_Color;\n\nout vec3 color;\n\nin "
        "vec4 gs_Vertex;\n\nvoid main()\n{\n    color = gs_Color;\n    gl_Position = gs_ModelViewProjectionMatrix * "
        "gs_Vertex;\n}",
        kMarkFragment);
    return s;
}

ScnShader& axesShader()
{
    static ScnShader& s = staticShader(
        "axes",
        "#version 330\n\nuniform mat4 gs_ModelViewProjectionMatrix;\n\nout vec3 color;\n\nin vec4 gs_Vertex;\n\nvoid "
        "main()\n{\n    color = abs(normalize(gs_Vertex.xyz));\n    gl_Position = gs_ModelViewProjectionMatrix * "
        "gs_Vertex;\n}",
        kMarkFragment);
    return s;
}

void drawScreenQuad(ScnShader& shader)
{
    if (!shader.program || !s_quadVao) return;
    glBindVertexArray(s_quadVao);
    GLint vertex = glGetAttribLocation(shader.program, "gs_Vertex");
    GLint texture = glGetAttribLocation(shader.program, "gs_Texture");
    if (vertex >= 0) {
        glEnableVertexAttribArray(vertex);
        glBindBuffer(GL_ARRAY_BUFFER, s_quadPositions);
        glVertexAttribPointer(vertex, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
    }
    if (texture >= 0) {
        glEnableVertexAttribArray(texture);
        glBindBuffer(GL_ARRAY_BUFFER, s_quadTexCoords);
        glVertexAttribPointer(texture, 2, GL_FLOAT, GL_FALSE, 0, nullptr);
    }
    // Orthographic over the quad: left -0.5, right 0.5, bottom -0.5, top 0.5.
    const float l = -0.5f, r = 0.5f, b = -0.5f, t = 0.5f;
    const float ortho[16] = {2 / (r - l), 0, 0, 0, 0, 2 / (t - b), 0, 0, 0, 0, -1, 0,
                             -(l + r) / (r - l), -(b + t) / (t - b), 0, 1};
    glUseProgram(shader.program);
    int mvp = shader.location(ScnShader::ModelViewProjectionMatrix);
    if (mvp >= 0) glUniformMatrix4fv(mvp, 1, GL_FALSE, ortho);
    glDrawArrays(GL_TRIANGLE_FAN, 0, 4);
    glUseProgram(0);
    if (vertex >= 0) glDisableVertexAttribArray(vertex);
    if (texture >= 0) glDisableVertexAttribArray(texture);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindVertexArray(0);
}

void drawAxes(ScnActionRender& action, double s)
{
    ScnShader& shader = axesShader();
    if (!shader.program || !s_axesVao) return;
    const float f = static_cast<float>(s);
    const float v[18] = {-f, 0, 0, f, 0, 0, 0, -f, 0, 0, f, 0, 0, 0, -f, 0, 0, f};
    shader.begin(action);
    glBindVertexArray(s_axesVao);
    glBindBuffer(GL_ARRAY_BUFFER, s_axesBuffer);
    glBufferSubData(GL_ARRAY_BUFFER, 0, sizeof v, v);
    GLint vertex = glGetAttribLocation(shader.program, "gs_Vertex");
    if (vertex >= 0) {
        glEnableVertexAttribArray(vertex);
        glVertexAttribPointer(vertex, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
        glDrawArrays(GL_LINES, 0, 6);
        glDisableVertexAttribArray(vertex);
    }
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindVertexArray(0);
    shader.end();
}

void beginWire(ScnActionRender& action, const float colour[3])
{
    ScnShader& shader = solidShader();
    shader.begin(action);
    GLint c = shader.program ? glGetUniformLocation(shader.program, "gs_Color") : -1;
    if (c >= 0) glUniform3fv(c, 1, colour);
    glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
}

void endWire()
{
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
    solidShader().end();
}

void drawTriangles(const float* vertices, int count)
{
    ScnShader* shader = currentShader;
    if (!shader || !shader->program || count <= 0) return;
    GLint vertex = glGetAttribLocation(shader->program, "gs_Vertex");
    if (vertex < 0) return;
    if (!s_wireVao) {
        glGenVertexArrays(1, &s_wireVao);
        glGenBuffers(1, &s_wireBuffer);
    }
    glBindVertexArray(s_wireVao);
    glBindBuffer(GL_ARRAY_BUFFER, s_wireBuffer);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(count) * 3 * sizeof(float), vertices, GL_STREAM_DRAW);
    glEnableVertexAttribArray(vertex);
    glVertexAttribPointer(vertex, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
    glDrawArrays(GL_TRIANGLES, 0, count);
    glDisableVertexAttribArray(vertex);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindVertexArray(0);
}

}  // namespace ScnScene

// -- static shaders and buffers ---------------------------------------------------

namespace ScnScene {

void initStatics()
{
    if (!GlContext::ready()) return;
    GLint maxOut = 0;
    glGetIntegerv(GL_MAX_GEOMETRY_OUTPUT_VERTICES, &maxOut);
    g_scnMaxGeometryOutput = maxOut;
    glGetError();
    displayShader().build();
    solidShader().build();
    axesShader().build();
    if (!s_quadVao) {
        const float positions[12] = {-0.5f, -0.5f, 0, 0.5f, -0.5f, 0, 0.5f, 0.5f, 0, -0.5f, 0.5f, 0};
        const float coords[8] = {0, 0, 1, 0, 1, 1, 0, 1};
        glGenVertexArrays(1, &s_quadVao);
        glGenBuffers(1, &s_quadPositions);
        glBindBuffer(GL_ARRAY_BUFFER, s_quadPositions);
        glBufferData(GL_ARRAY_BUFFER, sizeof positions, positions, GL_STATIC_DRAW);
        glGenBuffers(1, &s_quadTexCoords);
        glBindBuffer(GL_ARRAY_BUFFER, s_quadTexCoords);
        glBufferData(GL_ARRAY_BUFFER, sizeof coords, coords, GL_STATIC_DRAW);
        glGenVertexArrays(1, &s_axesVao);
        glGenBuffers(1, &s_axesBuffer);
        glBindBuffer(GL_ARRAY_BUFFER, s_axesBuffer);
        glBufferData(GL_ARRAY_BUFFER, 18 * sizeof(float), nullptr, GL_DYNAMIC_DRAW);
        glBindBuffer(GL_ARRAY_BUFFER, 0);
    }
}

}  // namespace ScnScene

// -- node hooks of the render side --------------------------------------------------

void ScnWorld::onEvent(ScnAction& action)
{
    step = Engine::running / 1000.0;
    ScnWorld* saved = ScnScene::currentWorld;
    ScnScene::currentWorld = this;
    if (enabled()) action.walk(this, ScnAction::Children);
    ScnScene::currentWorld = saved;
    const ScnBox& b = getBounds();
    double* box = ScnScene::sceneBox;
    if (b.isEmpty()) {
        for (int i = 0; i < 7; ++i) box[i] = 0;
    } else {
        double d2 = 0;
        for (int i = 0; i < 3; ++i) {
            box[i] = b.min[i];
            box[3 + i] = b.max[i];
            d2 += (b.max[i] - b.min[i]) * (b.max[i] - b.min[i]);
        }
        box[6] = std::sqrt(d2);
    }
    action.walk(this, ScnAction::Siblings);
}

void ScnWorld::onRender(ScnAction& action)
{
    auto* render = dynamic_cast<ScnActionRender*>(&action);
    if (render && Engine::running == 0 && GlContext::ready()) {
        // An empty world still shows where its origin is.
        const ScnBox& b = getBounds();
        double s = 1;
        if (!b.isEmpty()) {
            double d2 = 0;
            for (int i = 0; i < 3; ++i) d2 += (b.max[i] - b.min[i]) * (b.max[i] - b.min[i]);
            if (d2 > 0) s = std::sqrt(d2);
        }
        ScnScene::drawAxes(*render, s);
    }
    ScnWorld* saved = ScnScene::currentWorld;
    ScnScene::currentWorld = this;
    if (enabled()) action.walk(this, ScnAction::Children);
    ScnScene::currentWorld = saved;
    action.walk(this, ScnAction::Siblings);
}

void ScnWorld::onUpdate(ScnAction& action)
{
    outerWorld = ScnScene::currentWorld;
    ScnMatrix::onUpdate(action);
}

// -- the frame step -------------------------------------------------------------------

namespace ScnFrame {

namespace {
ScnFrameStats s_stats;

using Clk = std::chrono::steady_clock;
double since(Clk::time_point& t)
{
    Clk::time_point now = Clk::now();
    double us = std::chrono::duration<double, std::micro>(now - t).count();
    t = now;
    return us;
}

void renderStep(ScnNode* world, ScnCamera* main, int width, int height, bool drawing)
{
    if (main && height > 0) main->aspect.value = static_cast<float>(width) / static_cast<float>(height);
    while (ScnCamera* c = ScnScene::dequeueCamera()) {
        if (!c->active || !drawing) continue;
        ScnRenderScene scene(c, width, height);
        c->render(scene, world);
    }
}

void displayStep(int width, int height)
{
    ScnCamera* cam = ScnScene::mainCamera();
    ScnFramebuffer* fb = cam ? cam->displayFramebuffer() : nullptr;
    if (!fb || !fb->fbo) return;  // nothing was drawn off-screen
    int i = cam->displayAttachment;
    if (i < 0 || i >= fb->targetCount()) {
        LogStream(Channels::error(), "ScnWorld") << "Invalid Framebuffer attachment " << i;
        return;
    }
    GlPlatform::bindScreen();
    glActiveTexture(GL_TEXTURE0);
    glEnable(GL_TEXTURE_2D);
    glBindTexture(GL_TEXTURE_2D, fb->textureOf(i));
    glDisable(GL_BLEND);
    glDisable(GL_DEPTH_TEST);
    glViewport(0, 0, width, height);
    ScnScene::drawScreenQuad(ScnScene::displayShader());
    glEnable(GL_DEPTH_TEST);
    glBindTexture(GL_TEXTURE_2D, 0);
    glDisable(GL_TEXTURE_2D);
}

// The focus distance: from the eye to the centre of the selected node's box,
// or the World's, at least 0.1, and no more than what the walk left. An
// empty box has its centre at the origin.
void correctFocus(ScnNode* world, ScnCamera* camera)
{
    ScnNode* target = ScnScene::selectedNode ? ScnScene::selectedNode : world;
    if (!target || !camera) return;
    const ScnBox& b = target->getBounds();
    double d2 = 0;
    for (int i = 0; i < 3; ++i) {
        double c = b.min[i] / 2 + b.max[i] / 2 - camera->eye[i];
        d2 += c * c;
    }
    double d = std::max(0.1, std::sqrt(d2));
    camera->focusDistance = std::min(d, camera->focusDistance);
}
}  // namespace

const ScnFrameStats& stats()
{
    return s_stats;
}

ScnNode* step(CmdApplication& app, int width, int height, bool showGui)
{
    Clk::time_point start = Clk::now(), t = start;
    GlScope gl;
    const bool drawing = gl.ok();
    ScnNode* world = app.branch(CmdApplication::World);
    ScnNode* cameraBranch = app.branch(CmdApplication::Camera);
    ScnNode* gui = app.branch(CmdApplication::Gui);
    ScnCamera* camera = ScnScene::mainCamera();
    if (!camera) camera = dynamic_cast<ScnCamera*>(cameraBranch);
    ScnNode* selected = RtnSelection::instance().node;
    ScnScene::selectedNode = selected ? selected->twin() : nullptr;

    // 1. Lua collection, every frame.
    Engine::collectForFrame();
    s_stats.luaCollect = since(t);

    // 2. Widget events, while the GUI is shown.
    GuiActionEvent guiEvent(camera);
    if (showGui && gui) guiEvent.apply(gui);

    // 3. World events, then the focus distance from the selection or the world.
    ScnActionEvent worldEvent(camera);
    worldEvent.handled = guiEvent.handled;
    ScnScene::lightCount = 0;
    if (camera) camera->focusDistance = 1.7976931348623157e308;
    if (world) worldEvent.apply(world);
    correctFocus(world, camera);

    // 4. Camera events: navigation, and active cameras join the render queue.
    ScnActionEvent cameraEvent(camera);
    cameraEvent.handled = worldEvent.handled;
    if (cameraBranch) cameraEvent.apply(cameraBranch);
    s_stats.events = since(t);

    // 5. Every queued camera renders.
    renderStep(world, camera, width, height, drawing);
    s_stats.render = since(t);

    // 6. Scripts (OnTime) and the OpenCL branch see the frame just drawn.
    if (ScnNode* scripts = app.branch(CmdApplication::Scripts)) cameraEvent.apply(scripts);
    if (ScnNode* cl = app.branch(CmdApplication::OpenCL)) cameraEvent.apply(cl);
    s_stats.scripts = since(t);

    // 7. The main camera's display framebuffer to the screen.
    if (drawing) displayStep(width, height);

    // 8. The widget tree on top.
    if (drawing && showGui && gui) {
        GuiActionRender guiRender(camera, width, height);
        auto* root = dynamic_cast<GuiRoot*>(gui);
        glViewport(0, 0, root ? root->dim0.value : width, root ? root->dim1.value : height);
        glDisable(GL_CULL_FACE);
        guiRender.apply(gui);
        glEnable(GL_CULL_FACE);
    }
    s_stats.display = since(t);
    s_stats.total = std::chrono::duration<double, std::micro>(Clk::now() - start).count();

    // 9. A click chooses: in the world with CONTROL held, else in the GUI.
    const InputState& input = InputState::instance();
    if (!(input.leftButton & InputState::WentUp)) return nullptr;
    return input.held(InputState::KeyControl) ? worldEvent.hit : guiEvent.hit;
}

}  // namespace ScnFrame
