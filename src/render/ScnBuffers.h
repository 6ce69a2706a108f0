// Geometry buffers: a draw call is a node (ScnBufferArray, ScnBufferElement)
// whose children are its vertex attributes (ScnBufferAttrib), each named
// after the attribute of the shader it feeds. Every attribute owns an OpenGL
// buffer shared with OpenCL, so a kernel that writes it moves the vertices
// that the next draw shows, without a copy through the host.
#pragma once

#include <cstdint>

#include "node/ScnNode.h"

struct lua_State;
template <class T>
class ScnLuaClass;
class MemTypeGLBuffer;
class oclContext;

class ScnBufferArray : public ScnGroup {
    SCN_NODE(ScnBufferArray, ScnGroup)
public:
    ScnBufferArray();

    ScnSFEnum primitive{this, "primitive", "gl_primitive", 0};

    // Events after the three of every register.
    enum Event { OnPreRender = 3, OnPostRender = 4 };

    // The draw in progress: the node whose attributes are being set up, and
    // the vertex count they raise.
    static ScnBufferArray* s_current;
    static int s_vertexCount;

    // OnPreRender, the attributes (children), glDrawArrays, OnPostRender,
    // the arrays 0 to 9 disabled; then the next sibling.
    void onRender(ScnAction& action) override;
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;

    // The GL names of the primitive and attribute type codes (property pages,
    // messages); "Unknown GL Primitive" for any other code.
    static const char* glName(uint32_t code);
};

class ScnBufferElement : public ScnGroup {
    SCN_NODE(ScnBufferElement, ScnGroup)
public:
    ScnBufferElement();
    ~ScnBufferElement() override;

    ScnSFEnum primitive{this, "primitive", "gl_primitive", 4};
    // Number of indices.
    ScnSFScript dim{this, "dim", 256};
    // Stored with the node; the draw reads the index buffer.
    ScnMFUInt indecies{this, "indecies"};
    // PLY file of the indices, relative to the workspace.
    ScnSFString data{this, "data"};
    ScnSFPlyLoadInfo source{this, "source", ScnPlyLoadInfo{4}};

    static ScnBufferElement* s_current;

    // The index buffer (cl_uint, GL_ELEMENT_ARRAY_BUFFER), or null before create.
    MemTypeGLBuffer* buffer() const { return m_buffer; }

    void onCreate(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    // As the array's, drawing with glDrawRangeElements over the index buffer.
    void onRender(ScnAction& action) override;
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;

    // Script methods: getBuffer(), dim(0), setSize(n), glId().
    static void addLuaMethods(ScnLuaClass<ScnBufferElement>& c);
    int luaGetBuffer(lua_State* L);
    int luaDim(lua_State* L);
    int luaSetSize(lua_State* L);
    int luaGlId(lua_State* L);

private:
    void build();

    MemTypeGLBuffer* m_buffer = nullptr;
    oclContext* m_context = nullptr;
};

class ScnBufferAttrib : public ScnNode {
    SCN_NODE(ScnBufferAttrib, ScnNode)
public:
    ScnBufferAttrib();
    ~ScnBufferAttrib() override;

    // GL type of one component (GL_FLOAT).
    ScnSFEnum type{this, "type", "gl_vertexattrib_type", 5126};
    // Number of elements.
    ScnSFScript dim0{this, "dim0", "256*4", 1024};
    // PLY file, relative to the workspace.
    ScnSFString path{this, "path"};
    // Components per vertex in the first word, then the PLY columns.
    ScnSFPlyLoadInfo source{this, "source", ScnPlyLoadInfo{4}};

    // How deep the walk is in a run of attributes set up for one draw.
    static int s_depth;

    // The element type code of the buffer for a GL component type and a
    // number of components per vertex (19, float4, for any other pair).
    static uint32_t elementType(uint32_t glType, int components);
    // The element type the PLY loader converts to: the scalar of the GL type.
    static uint32_t loaderType(uint32_t glType);

    // Components per vertex: the first word of `source`, 1 to 4.
    int components() const;
    // The vertex buffer, or null before create.
    MemTypeGLBuffer* buffer() const { return m_buffer; }

    void onCreate(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    // Enables and points the shader's attribute of this node's name, raises
    // the draw's vertex count, then sets up the siblings before returning.
    void onRender(ScnAction& action) override;
    void afterWalkOn(ScnAction& action, void* saved, int flag) override;
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
    // The box of the first three components of every vertex; only the first
    // attribute of a draw has one.
    ScnBox computeBounds() const override { return m_box; }

    // Script methods: getBuffer(), dim(0), setSize(n), glId().
    static void addLuaMethods(ScnLuaClass<ScnBufferAttrib>& c);
    int luaGetBuffer(lua_State* L);
    int luaDim(lua_State* L);
    int luaSetSize(lua_State* L);
    int luaGlId(lua_State* L);

private:
    // The vertices this attribute can give: none when its buffer was not made.
    int drawnCount() const;
    void build();
    // Random values, or zeros; either way every fourth component at full scale.
    void fill(bool random);
    void measureBox();
    // Enables the current shader's attribute of this name and points it at
    // the buffer; false when there is no shader or it has no such attribute.
    bool bindToCurrentShader() const;

    MemTypeGLBuffer* m_buffer = nullptr;
    oclContext* m_context = nullptr;
    ScnBox m_box;
    double m_diagonal = 0;
};
