// A camera: the view and projection of a scene. Its children are what it
// renders, in order: framebuffers (each draws its root or the scene), light
// buffers (only their two events) and shaders (nothing at this level).
#pragma once

#include "node/ScnNode.h"

class ScnRenderScene;
class ScnFramebuffer;
class ScnMFFunction;

class ScnCamera : public ScnGroup {
    SCN_NODE(ScnCamera, ScnGroup)
public:
    ScnCamera();
    ~ScnCamera() override;

    ScnSF<float> fov{this, "fov", 1.0471976f};  // vertical, radians
    ScnSF<float> aspect{this, "aspect", 1.33333f};
    ScnSF<float> farPlane{this, "far", 5000.0f};
    ScnSF<float> nearPlane{this, "near", 0.1f};
    ScnSFBool visible{this, "visible", true};

    // Events after the three of every register.
    enum Event { OnPreRender = 3, OnPostRender = 4 };

    // -- run-time members ------------------------------------------------------
    double frustum[4] = {5000, 0.1, 0, 0};  // far, near, half width and half height at the near plane
    float projection[16] = {};              // rebuilt at each render
    ScnMatrix16 worldMatrix;                // camera to world
    ScnMatrix16 inverseMatrix;              // world to camera: the view matrix
    float worldFloat[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    float inverseFloat[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    double eye[3] = {0, 0, 0};              // translation of the world matrix
    bool active = false;                    // only active cameras render
    double focusDistance = 0.1;             // set per frame by the frame step
    int displayAttachment = 0;

    // Stores the world matrix with its float copy, its inverse and the eye point.
    virtual void setMatrix(const ScnMatrix16& m);
    // Lens (fov, aspect, far, near) and matrix from another camera or a
    // viewpoint; anything else is ignored.
    virtual void copyLens(const ScnNode& source);
    // Near, far and matrix: the running camera matched to the design camera.
    virtual void matchCamera(const ScnCamera& other);

    // The frustum and the projection from fov, aspect, near and far.
    void refreshProjection();

    // The framebuffer the display step shows, or null. The framebuffer knows
    // the cameras that show it and clears this when it goes.
    ScnFramebuffer* displayFramebuffer() const { return m_display; }
    void setDisplayFramebuffer(ScnFramebuffer* fb);

    // An active camera enters the render queue, then mask 3.
    void onEvent(ScnAction& action) override;
    // The first framebuffer child becomes the display framebuffer, shown
    // from attachment 0.
    void onUpdate(ScnAction& action) override;
    // The camera leaves the render queue.
    void onDestroy(ScnAction& action) override;
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;

    // Refreshes the projection, fires OnPreRender, handles the children in
    // order, fires OnPostRender. Each framebuffer child draws its root, or
    // `scene` when it has none, into its targets.
    virtual void render(ScnRenderScene& target, ScnNode* scene);

private:
    friend class ScnFramebuffer;
    ScnFramebuffer* m_display = nullptr;
};
