// The memory nodes of the compute branch: descriptions (flags, element type
// or image format, size expressions) that give a typed memory object on the
// context the traversal hands down, rebuilt when the description or the
// context changes. The design node holds only the description; its run-time
// twin holds the object.
#pragma once

#include "memory/MemObjects.h"
#include "node/ScnNode.h"

struct lua_State;
template <class T>
class ScnLuaClass;

class OclBuffer : public ScnNode {
    SCN_NODE(OclBuffer, ScnNode)
public:
    OclBuffer();
    ~OclBuffer() override;

    ScnSFBits cl_mem_flags{this, "cl_mem_flags", 17};
    ScnSFEnum type{this, "type", "cl_mem_type", 0};
    ScnSFScript dim0{this, "dim0", 256};

    MemTypeBuffer* object() const { return m_object; }
    oclContext* context() const { return m_context; }

    void onCreate(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;

    static void addLuaMethods(ScnLuaClass<OclBuffer>& c);
    int luaGetBuffer(lua_State* L);
    int luaDim(lua_State* L);
    int luaSetSize(lua_State* L);

private:
    void build();

    oclContext* m_context = nullptr;
    MemTypeBuffer* m_object = nullptr;
};

class OclImage2D : public ScnNode {
    SCN_NODE(OclImage2D, ScnNode)
public:
    OclImage2D();
    ~OclImage2D() override;

    ScnSFBits cl_mem_flags{this, "cl_mem_flags", 17};
    ScnSFImageFormat format{this, "format", ScnImageFormat{CL_RGBA, CL_UNSIGNED_INT8}};
    ScnSFString file{this, "file"};
    ScnSFScript dim0{this, "dim0", 256};
    ScnSFScript dim1{this, "dim1", 256};
    // Kind of file source: 0 none, 1 video, 2 image.
    ScnSF<char> source{this, "source", 0};

    MemTypeImage2D* object() const { return m_object; }

    void onCreate(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;

    static void addLuaMethods(ScnLuaClass<OclImage2D>& c);
    int luaGetBuffer(lua_State* L);
    int luaDim(lua_State* L);
    int luaSetSize(lua_State* L);
    int luaGetFrameCount(lua_State* L);
    int luaSetFrame(lua_State* L);
    int luaNoResult(lua_State* L);

private:
    void build();

    oclContext* m_context = nullptr;
    MemTypeImage2D* m_object = nullptr;
};

class OclImage3D : public ScnNode {
    SCN_NODE(OclImage3D, ScnNode)
public:
    OclImage3D();
    ~OclImage3D() override;

    ScnSFBits cl_mem_flags{this, "cl_mem_flags", 18};
    ScnSFImageFormat format{this, "format", ScnImageFormat{CL_RGBA, CL_UNORM_INT8}};
    ScnSFString file{this, "file"};
    ScnSFScript dim0{this, "dim0", 256};
    ScnSFScript dim1{this, "dim1", 256};
    ScnSFScript dim2{this, "dim2", 256};
    // Kind of file source: 0, 1, 2 none, 3 volume.
    ScnSF<char> source{this, "source", 0};

    MemTypeImage3D* object() const { return m_object; }

    void onCreate(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;

    static void addLuaMethods(ScnLuaClass<OclImage3D>& c);
    int luaGetBuffer(lua_State* L);
    int luaDim(lua_State* L);
    int luaSetSize(lua_State* L);

private:
    void build();

    oclContext* m_context = nullptr;
    MemTypeImage3D* m_object = nullptr;
};
