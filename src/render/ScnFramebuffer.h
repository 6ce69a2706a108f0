// An off-screen target: one GL framebuffer object with up to four colour
// textures and a depth renderbuffer. Each colour texture is a memory object,
// so scripts and kernels reach what was drawn. Under a camera it is drawn
// into; inside a scene it feeds its first attachment to the shaders after it.
#pragma once

#include <cstdint>
#include <vector>

#include "compute/oclObject.h"
#include "node/ScnNode.h"

class ScnShader;
class ScnCamera;
class MemTypeFboTarget;
struct lua_State;

class ScnFramebuffer : public ScnNode {
    SCN_NODE(ScnFramebuffer, ScnNode)
public:
    ScnFramebuffer();
    ~ScnFramebuffer() override;

    static constexpr uint32_t kCL_RGBA = 0x10B5;
    static constexpr uint32_t kCL_HALF_FLOAT = 0x10DD;
    static constexpr int kMaxTargets = 4;

    ScnMFNode<ScnShader> shaders{this, "shaders"};
    ScnSF<int> width{this, "width", 1024};
    ScnSF<int> height{this, "height", 768};
    ScnSF<int> attachment{this, "attachment", 2};
    ScnSFImageFormat format{this, "format", ScnImageFormat{kCL_RGBA, kCL_HALF_FLOAT}};
    ScnSFTextureFlags flags{this, "flags", ScnTextureFlags{{1, 0, 0, 0}}};

    // Events after the three of every register.
    enum Event { OnPreRender = 3, OnPostRender = 4 };
    static const char* const kDefaultPreRender;

    // After a read the first flag word is always 2.
    void read(ScnInStream& in) override;

    // Paths reach the shaders below a framebuffer.
    ScnNode* getChild(int index) override;
    int indexOfChild(const ScnNode* node) override;
    int childCount() const override { return static_cast<int>(shaders.count()); }
    const ScnMFNodeBase* childList() const override { return &shaders; }

    // The targets are made by the create walk and freed by the destroy walk;
    // the shaders are made and freed with them, so scripts can draw with them.
    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    // The update reaches the shaders; a change of size, count, format or
    // flags makes the targets anew.
    void onUpdate(ScnAction& action) override;
    // Inside a scene: attachment 0 feeds the current shader and every shader
    // met later in the walk; nothing after a framebuffer is walked.
    void onRender(ScnAction& action) override;
    void onRenderPass(ScnAction& action, ScnShader* shader) override;
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;

    // Binds the target and draws into all attachments; clears it unless a
    // script register holds the node, then fires OnPreRender. False, with
    // nothing bound and nothing fired, when there is no target.
    virtual bool begin();
    // Releases the program, fires OnPostRender, binds the screen, depth test off.
    virtual void end();

    // Makes the targets from the fields; `context` gives them their OpenCL
    // views (null: the process's current context). Frees any old ones first.
    void createTargets(void* context);
    void destroyTargets();

    // -- run-time members ------------------------------------------------------
    unsigned fbo = 0;
    unsigned renderbuffer = 0;
    // Attachment i, or null above the count or without a context.
    MemTypeFboTarget* target(int i) const { return i >= 0 && i < kMaxTargets ? m_targets[i] : nullptr; }
    // The number of attachments made.
    int targetCount() const { return m_count; }
    // The GL texture of attachment i, or 0.
    unsigned textureOf(int i) const;
    ScnCamera* camera = nullptr;  // the camera rendering it; set for the time of its render

    // The group set by setRoot, while it lives; null means the default scene.
    ScnGroup* root() const;

    // Script methods: dim(axis), setRoot(group), getBuffer(i), glId([i]).
    static void addLuaMethods(ScnLuaClass<ScnFramebuffer>& c);
    int luaDim(lua_State* L);
    int luaSetRoot(lua_State* L);
    int luaGetBuffer(lua_State* L);
    int luaGlId(lua_State* L);

private:
    friend class ScnCamera;
    // Cameras showing this framebuffer: they forget it when it goes.
    std::vector<ScnCamera*> m_viewers;
    MemTypeFboTarget* m_targets[kMaxTargets] = {};
    int m_count = 0;
    // Bytes of the depth buffer on the memory statistics, taken off as added.
    int64_t m_depthBytes = 0;
    cl_image_format m_format{};  // what the targets were made with; they keep a pointer to it
    bool m_hasRoot = false;      // the root lives in the node's script table, see root()
    bool scripted() const;
};
