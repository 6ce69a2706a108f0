// The memory nodes of the compute branch: descriptions (flags, element type
// or image format, size expressions) that give a typed memory object on the
// context the traversal hands down, rebuilt when the description or the
// context changes. The design node holds only the description; its run-time
// twin holds the object.
#pragma once

#include "memory/MemObjects.h"
#include "memory/MemSource.h"
#include "node/ScnNode.h"

struct lua_State;
template <class T>
class ScnLuaClass;

// What the three share: the object made on the context that the traversal
// hands down, rebuilt when the context or one of the fields named by
// rebuildFields() changes, mapped again when it was mapped.
template <class O>
class OclMemNode : public ScnNode {
public:
    OclMemNode() = default;
    // A copy (a twin) describes the same memory but owns no object yet.
    OclMemNode(const OclMemNode& other) : ScnNode(other) {}
    ~OclMemNode() override { delete m_object; }
    O* object() const { return m_object; }
    oclContext* context() const { return m_context; }

    void onCreate(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    // The object, or nil without one.
    int luaGetBuffer(lua_State* L);

protected:
    // Evaluates the size fields and, with a context, makes the object.
    virtual void build() = 0;
    // The names of the fields whose edit rebuilds the object, null-ended.
    virtual const char* const* rebuildFields() const = 0;
    // Deletes the object and whatever depends on it.
    virtual void dropObject();
    void replace();

    oclContext* m_context = nullptr;
    O* m_object = nullptr;
};

class OclBuffer : public OclMemNode<MemTypeBuffer> {
    SCN_NODE(OclBuffer, OclMemNode<MemTypeBuffer>)
public:
    OclBuffer();

    ScnSFBits cl_mem_flags{this, "cl_mem_flags", 17};
    ScnSFEnum type{this, "type", "cl_mem_type", 0};
    ScnSFScript dim0{this, "dim0", 256};

    static void addLuaMethods(ScnLuaClass<OclBuffer>& c);
    int luaDim(lua_State* L);
    int luaSetSize(lua_State* L);

protected:
    void build() override;
    const char* const* rebuildFields() const override;
};

class OclImage2D : public OclMemNode<MemTypeImage2D> {
    SCN_NODE(OclImage2D, OclMemNode<MemTypeImage2D>)
public:
    OclImage2D();

    ScnSFBits cl_mem_flags{this, "cl_mem_flags", 17};
    ScnSFImageFormat format{this, "format", ScnImageFormat{CL_RGBA, CL_UNSIGNED_INT8}};
    ScnSFString file{this, "file"};
    ScnSFScript dim0{this, "dim0", 256};
    ScnSFScript dim1{this, "dim1", 256};
    // Kind of file source: 0 none, 1 video, 2 image.
    ScnSF<char> source{this, "source", 0};

    ~OclImage2D() override;
    MemSource* memSource() const { return m_source; }
    // While a video source plays, every event sweep reads the frame the
    // clock has reached.
    void onEvent(ScnAction& action) override;

    static void addLuaMethods(ScnLuaClass<OclImage2D>& c);
    int luaDim(lua_State* L);
    int luaSetSize(lua_State* L);
    int luaSetSource(lua_State* L);
    int luaGetFrameCount(lua_State* L);
    int luaSetFrame(lua_State* L);
    int luaGetFrame(lua_State* L);
    int luaPlay(lua_State* L);
    int luaStop(lua_State* L);
    int luaIsPlaying(lua_State* L);

protected:
    void build() override;
    void dropObject() override;
    const char* const* rebuildFields() const override;

private:
    MemSourceVideo* video() const;
    MemSource* m_source = nullptr;
};

class OclImage3D : public OclMemNode<MemTypeImage3D> {
    SCN_NODE(OclImage3D, OclMemNode<MemTypeImage3D>)
public:
    OclImage3D();

    ScnSFBits cl_mem_flags{this, "cl_mem_flags", 18};
    ScnSFImageFormat format{this, "format", ScnImageFormat{CL_RGBA, CL_UNORM_INT8}};
    ScnSFString file{this, "file"};
    ScnSFScript dim0{this, "dim0", 256};
    ScnSFScript dim1{this, "dim1", 256};
    ScnSFScript dim2{this, "dim2", 256};
    // Kind of file source: 0, 1, 2 none, 3 volume.
    ScnSF<char> source{this, "source", 0};

    ~OclImage3D() override;
    MemSource* memSource() const { return m_source; }

    static void addLuaMethods(ScnLuaClass<OclImage3D>& c);
    int luaDim(lua_State* L);
    int luaSetSize(lua_State* L);

protected:
    void build() override;
    void dropObject() override;
    const char* const* rebuildFields() const override;

private:
    MemSource* m_source = nullptr;
};
