// The render side of the tree: the render action, the scene's global state,
// the render queue of cameras, the screen quad, the display shader, the world
// marks, the context start and the frame step.
#pragma once

#include <cstdint>
#include <vector>

#include "node/ScnAction.h"

class ScnCamera;
class ScnShader;
class ScnTransform;
class ScnWorld;
class CmdApplication;

// One render walk for one camera. Like every action it allocates nothing:
// the shader bindings are a fixed array, refused beyond its size.
class ScnActionRender : public ScnAction {
public:
    static constexpr int kBindings = 32;

    // The camera gives projection and view; `width`, `height` the viewport.
    ScnActionRender(ScnCamera* camera, int width, int height);
    // Projection, view and frustum from the camera as it is now; gs_Viewport
    // from its display framebuffer when it has one.
    void takeCamera();

    ScnCamera* camera;
    ScnMatrix16 projection, projectionInverse, cameraMatrix, view;
    float aspect[2] = {1, 1};
    float viewport[2] = {0, 0};
    uint32_t nextTextureUnit = 0;
    bool stop = false;
    uint8_t highlight = 0;
    void* pickMode = nullptr;

    // Nodes that feed the shaders met later in this walk.
    bool pushBinding(ScnNode* node);
    void popBinding();
    int bindingCount() const { return m_bindingCount; }
    ScnNode* binding(int i) const { return m_bindings[i]; }

    // A new walk of the same action starts with no bindings and unit 0.
    void clearBindings();
    // Every binding of the walk and then every global binding feeds `shader`.
    void bindAll(ScnShader* shader);

    // Units taken below a node are free again for its next sibling.
    void walk(ScnNode* node, int mask) override;

protected:
    void visit(ScnNode* node) override;

private:
    ScnNode* m_bindings[kBindings] = {};
    int m_bindingCount = 0;
    int m_bindingOverflow = 0;
};

// One camera's render in one frame: owns its action and the target rectangle.
class ScnRenderScene {
public:
    ScnRenderScene(ScnCamera* camera, int width, int height) : action(camera, width, height), width(width), height(height) {}
    virtual ~ScnRenderScene() = default;
    ScnActionRender action;
    int width, height;
};

// The scene's process-wide state.
namespace ScnScene {
extern ScnShader* currentShader;
extern ScnWorld* currentWorld;
// The transform nearest above the walk, or null.
extern ScnTransform* currentTransform;
extern ScnNode* selectedNode;
extern int lightCount;
// minimum x, y, z, maximum x, y, z, diagonal
extern double sceneBox[7];
// Nodes that feed every shader for as long as they exist (deferred lights).
std::vector<ScnNode*>& globalBindings();

// The main camera, mirrored into the Lua global `activeCamera`.
ScnCamera* mainCamera();
void setMainCamera(ScnCamera* camera);

// The render queue: filled by the camera event pass, drained by the render
// step of the same frame. Grows by doubling only when full.
void enqueueCamera(ScnCamera* camera);
ScnCamera* dequeueCamera();
int queuedCameras();
// Takes every entry of `camera` out; the others keep their order.
void removeFromQueue(ScnCamera* camera);

// The static shaders and the axis and quad buffers; needs a current context.
void initStatics();

// After a load or a reset the view clears to black again.
void clearColourToBlack();

// Draws positions (-0.5..0.5) and texture coordinates with `shader`.
void drawScreenQuad(ScnShader& shader);
// The static shaders, built at registration when a context is current.
ScnShader& displayShader();
ScnShader& solidShader();
ScnShader& axesShader();

// The axes of a world, with half length `s`, under the action's camera.
void drawAxes(ScnActionRender& action, double s);
// Lights and viewpoints draw themselves as wires in a colour.
void beginWire(ScnActionRender& action, const float colour[3]);
void endWire();
// Draws `count` vertices (3 floats each) as triangles with the shader in use.
void drawTriangles(const float* vertices, int count);
}

// Frame timings of the last frame step, in microseconds.
struct ScnFrameStats {
    double luaCollect = 0;
    double events = 0;
    double render = 0;
    double scripts = 0;
    double display = 0;
    double total = 0;
};

namespace ScnFrame {
// The frame step in its full order; returns the node that a click chose.
// GL stages run only when the active context can be made current.
ScnNode* step(CmdApplication& app, int width, int height, bool showGui);
const ScnFrameStats& stats();
}
