// Texture nodes: a 2D or 3D texture of the scene with its size, image
// format, filter flags and the kind of object its content comes from. The
// texture is a memory object that kernels and scripts reach as well; in the
// render walk it feeds the shaders around it through the sampler uniform
// that bears the node's name.
#pragma once

#include "memory/MemGLObjects.h"
#include "memory/MemSource.h"
#include "node/ScnNode.h"

struct lua_State;
template <class T>
class ScnLuaClass;
class oclContext;

// What the two share: the texture and its source, made on create and on an
// edit of a field that describes them, and the binding to a shader.
template <class O>
class ScnTextureNode : public ScnNode {
public:
    ScnTextureNode() = default;
    // A copy (a twin) describes the same texture but owns none yet.
    ScnTextureNode(const ScnTextureNode& other) : ScnNode(other) {}
    ~ScnTextureNode() override { drop(); }

    O* object() const { return m_object; }
    MemSource* memSource() const { return m_source; }

    void onCreate(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    // Visible and made: enters the shader bindings of the walk and binds
    // itself to the shader in use; leaves the bindings behind its siblings.
    void onRender(ScnAction& action) override;
    void afterWalkOn(ScnAction& action, void* saved, int flag) override;
    // A shader that names the node's sampler gets the texture on a unit.
    void onRenderPass(ScnAction& action, ScnShader* shader) override;

    // The memory object, or nil.
    int luaGetBuffer(lua_State* L);
    int luaGlId(lua_State* L);

protected:
    // Makes the memory object and its source from the evaluated fields.
    virtual void build() = 0;
    // The names of the fields whose edit rebuilds, null-ended.
    virtual const char* const* rebuildFields() const = 0;
    virtual unsigned glTarget() const = 0;
    // False: this binding reuses the unit taken last.
    virtual bool stacks() const { return true; }
    // The source first, then the object.
    void drop();

    oclContext* m_context = nullptr;
    O* m_object = nullptr;
    MemSource* m_source = nullptr;
    // The object keeps a pointer to its format: the field's value is copied
    // here, where it stays put while the object lives.
    cl_image_format m_format{};
};

// The first flag word is a bit mask: 1 linear filtering, 2 nearest, 4
// mipmaps, 8 no pixel buffer. The other three words are kept as they come.
class ScnTexture2D : public ScnTextureNode<MemTypeImageTexture> {
    SCN_NODE(ScnTexture2D, ScnTextureNode<MemTypeImageTexture>)
public:
    ScnTexture2D();

    // OpenCL image format codes of the default format.
    static constexpr uint32_t kCL_RGBA = 0x10B5;
    static constexpr uint32_t kCL_UNORM_INT8 = 0x10D2;

    // Path of the source file.
    ScnSFString extension{this, "extension"};
    // True: the texture takes a new texture unit; false: the unit last taken.
    ScnSFBool stack{this, "stack", true};
    // Kept with the node only: the pixel buffer follows the flags.
    ScnSFBool pbo{this, "pbo", false};
    ScnSFScript dim0{this, "dim0", 256};
    ScnSFScript dim1{this, "dim1", 256};
    // 0 no file, 1 video, 2 image, 3 no source object.
    ScnSFChar source{this, "source", 0};
    ScnSFTextureFlags flags{this, "flags", ScnTextureFlags{{1, 0, 0, 0}}};
    ScnSFImageFormat format{this, "format", ScnImageFormat{kCL_RGBA, kCL_UNORM_INT8}};

    // While a video plays, every event sweep reads the frame the clock has reached.
    void onEvent(ScnAction& action) override;

    static void addLuaMethods(ScnLuaClass<ScnTexture2D>& c);
    int luaDim(lua_State* L);
    int luaSetSize(lua_State* L);
    int luaSetSource(lua_State* L);
    int luaGetFrameCount(lua_State* L);
    int luaGetFrame(lua_State* L);
    int luaSetFrame(lua_State* L);
    int luaPlay(lua_State* L);
    int luaStop(lua_State* L);
    int luaIsPlaying(lua_State* L);

protected:
    void build() override;
    const char* const* rebuildFields() const override;
    unsigned glTarget() const override;
    bool stacks() const override { return stack.value; }

private:
    MemSourceVideo* video() const;
};

class ScnTexture3D : public ScnTextureNode<MemTypeTexture3D> {
    SCN_NODE(ScnTexture3D, ScnTextureNode<MemTypeTexture3D>)
public:
    ScnTexture3D();

    ScnSFString file{this, "file"};
    ScnSFScript dimX{this, "dimX", 64};
    ScnSFScript dimY{this, "dimY", 64};
    ScnSFScript dimZ{this, "dimZ", 64};
    // 3 is a volume file; anything else leaves the content to kernels and scripts.
    ScnSFChar source{this, "source", 0};
    ScnSFTextureFlags flags{this, "flags", ScnTextureFlags{{1, 0, 0, 0}}};
    ScnSFImageFormat format{this, "format", ScnImageFormat{ScnTexture2D::kCL_RGBA, ScnTexture2D::kCL_UNORM_INT8}};

    static void addLuaMethods(ScnLuaClass<ScnTexture3D>& c);
    int luaDim(lua_State* L);

protected:
    void build() override;
    const char* const* rebuildFields() const override;
    unsigned glTarget() const override;
};

// A texture for the widget kit, with no node: the picture at `path` (read
// through the image plug-in) on a texture of its size in RGBA 8-bit. When
// the file cannot be read the texture is 64 by 64 and the log says so.
MemTypeImageTexture* scnLoadTexture(const char* path, const MemTypeTexture2D::FLAGS& flags);
