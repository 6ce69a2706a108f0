#include <GL/glew.h>

#include "render/ScnBuffers.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <lua.hpp>

#include "compute/OclGlobal.h"
#include "compute/OclLua.h"
#include "memory/MemGLObjects.h"
#include "memory/MemSourcePly.h"
#include "memory/MemTypes.h"
#include "node/ScnAction.h"
#include "node/ScnMFFunction.h"
#include "platform/GlContext.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "runtime/AppGlobal.h"
#include "runtime/ScnLua.h"

ScnNodeType ScnBufferArray::s_type;
ScnNodeType ScnBufferElement::s_type;
ScnNodeType ScnBufferAttrib::s_type;

ScnBufferArray* ScnBufferArray::s_current = nullptr;
int ScnBufferArray::s_vertexCount = 0;
ScnBufferElement* ScnBufferElement::s_current = nullptr;
int ScnBufferAttrib::s_depth = 0;

namespace {

// The pointer of an update walk names the field whose edit asked for it:
// a field of this node or of its twin (an edit of the design node reaches
// the running one). The index of that field in the node's list, or -1.
int editedField(const ScnNode& node, const ScnAction& action)
{
    auto* update = dynamic_cast<const ScnActionUpdate*>(&action);
    if (!update || !update->pointer) return -1;
    for (const ScnNode* n : {&node, static_cast<const ScnNode*>(node.twin())}) {
        if (!n) continue;
        for (int i = 0; i < n->fieldCount(); ++i)
            if (n->field(i) == update->pointer) return i;
    }
    return -1;
}

bool editedOneOf(const ScnNode& node, const ScnAction& action, const ScnField* const* fields, int count)
{
    const int i = editedField(node, action);
    if (i < 0 || i >= node.fieldCount()) return false;
    for (int k = 0; k < count; ++k)
        if (fields[k] == node.field(i)) return true;
    return false;
}

// The world's walks hand down no compute context: the buffers are made on
// the current one, where kernels find them.
oclContext* contextOf(const ScnAction& action)
{
    return action.context ? static_cast<oclContext*>(action.context) : OclGlobal::currentContext();
}

// A PLY file named by a node, below the workspace unless absolute.
std::string workspaceFile(const std::string& name)
{
    if (!name.empty() && name[0] == '/') return name;
    return AppGlobal::projectPath() + "/" + name;
}

int sizeOfGlType(uint32_t glType)
{
    switch (glType) {
    case GL_BYTE:
    case GL_UNSIGNED_BYTE: return 1;
    case GL_SHORT:
    case GL_UNSIGNED_SHORT:
    case GL_HALF_FLOAT: return 2;
    default: return 4;
    }
}

uint16_t halfOf(float f)
{
    uint32_t x;
    std::memcpy(&x, &f, 4);
    const uint16_t sign = static_cast<uint16_t>((x >> 16) & 0x8000u);
    const int exponent = static_cast<int>((x >> 23) & 0xff) - 127 + 15;
    const uint32_t mantissa = x & 0x7fffffu;
    if (exponent <= 0) return sign;  // too small for a half: zero
    if (exponent >= 31) return static_cast<uint16_t>(sign | 0x7c00u);
    return static_cast<uint16_t>(sign | (exponent << 10) | (mantissa >> 13));
}

float floatOfHalf(uint16_t h)
{
    const int exponent = (h >> 10) & 0x1f;
    const float m = static_cast<float>(h & 0x3ff);
    float v = exponent == 0 ? std::ldexp(m, -24) : std::ldexp(1024.0f + m, exponent - 25);
    return (h & 0x8000) ? -v : v;
}

// Stores `v` as one component of `glType` at `p`. An integer type takes the
// value truncated, wrapping as the C conversion from a wider integer does.
void storeComponent(unsigned char* p, uint32_t glType, double v)
{
    const auto whole = static_cast<int64_t>(v);
    switch (glType) {
    case GL_BYTE: { auto t = static_cast<int8_t>(whole); std::memcpy(p, &t, 1); break; }
    case GL_UNSIGNED_BYTE: { auto t = static_cast<uint8_t>(whole); std::memcpy(p, &t, 1); break; }
    case GL_SHORT: { auto t = static_cast<int16_t>(whole); std::memcpy(p, &t, 2); break; }
    case GL_UNSIGNED_SHORT: { auto t = static_cast<uint16_t>(whole); std::memcpy(p, &t, 2); break; }
    case GL_INT: { auto t = static_cast<int32_t>(whole); std::memcpy(p, &t, 4); break; }
    case GL_UNSIGNED_INT: { auto t = static_cast<uint32_t>(whole); std::memcpy(p, &t, 4); break; }
    case GL_HALF_FLOAT: { uint16_t t = halfOf(static_cast<float>(v)); std::memcpy(p, &t, 2); break; }
    default: { auto t = static_cast<float>(v); std::memcpy(p, &t, 4); break; }
    }
}

double loadComponent(const unsigned char* p, uint32_t glType)
{
    switch (glType) {
    case GL_BYTE: { int8_t t; std::memcpy(&t, p, 1); return t; }
    case GL_UNSIGNED_BYTE: { uint8_t t; std::memcpy(&t, p, 1); return t; }
    case GL_SHORT: { int16_t t; std::memcpy(&t, p, 2); return t; }
    case GL_UNSIGNED_SHORT: { uint16_t t; std::memcpy(&t, p, 2); return t; }
    case GL_INT: { int32_t t; std::memcpy(&t, p, 4); return t; }
    case GL_UNSIGNED_INT: { uint32_t t; std::memcpy(&t, p, 4); return t; }
    case GL_HALF_FLOAT: { uint16_t t; std::memcpy(&t, p, 2); return floatOfHalf(t); }
    default: { float t; std::memcpy(&t, p, 4); return t; }
    }
}

// The range of the random fill per component type.
double randomScale(uint32_t glType)
{
    switch (glType) {
    case GL_BYTE: return 127;
    case GL_UNSIGNED_BYTE: return 255;
    case GL_SHORT: return 16129;
    case GL_UNSIGNED_SHORT: return 65025;
    case GL_INT: return 260144640;
    case GL_UNSIGNED_INT: return 4278190080.0;  // 255 * 2^24: large, and inside 32 bits
    default: return 1;
    }
}

// A random number in 0 .. 1. rand() is reduced to 15 bits so that the range
// is the same whatever RAND_MAX the C library has.
double unitRandom()
{
    return static_cast<double>(std::rand() & 0x7fff) / 32767.0;
}

// A size from a script argument: a negative number counts as 0, a huge one
// is held to what an element count can be.
uint32_t countArg(lua_Number v)
{
    if (!(v > 0)) return 0;
    return v >= 4294967295.0 ? 4294967295u : static_cast<uint32_t>(v);
}

uint32_t evaluatedCount(ScnSFScript& f, int def)
{
    const int v = f.evaluate(def);
    return v > 0 ? static_cast<uint32_t>(v) : 0;
}

void addDrawEvents(ScnMFFunction& f, const char* pre, const char* post)
{
    if (f.indexOf("OnPreRender") < 0) f.append("OnPreRender", pre);
    if (f.indexOf("OnPostRender") < 0) f.append("OnPostRender", post);
}

void removeDrawEvents(ScnMFFunction& f)
{
    f.remove("OnPreRender");
    f.remove("OnPostRender");
}

const char* const kArrayPreRender =
    "--gl.glEnable(gl.GL_POINT_SPRITE)\n--gl.glTexEnvi(gl.GL_POINT_SPRITE, gl.GL_COORD_REPLACE, gl.GL_TRUE)\n"
    "--gl.glEnable(gl.GL_VERTEX_PROGRAM_POINT_SIZE)\n";
const char* const kArrayPostRender =
    "--gl.glDisable(gl.GL_POINT_SPRITE)\n--gl.glTexEnvi(gl.GL_POINT_SPRITE, gl.GL_COORD_REPLACE, gl.GL_FALSE)\n"
    "--gl.glDisable(gl.GL_VERTEX_PROGRAM_POINT_SIZE)\n";

// The attributes of a draw enabled by its children are left on for no one:
// a later draw with fewer attributes would read past these buffers.
void disableAttributeArrays()
{
    for (GLuint i = 0; i < 10; ++i) glDisableVertexAttribArray(i);
}

// Walks the children of a draw node with it current and the vertex count
// from 0; gives the count its attributes raised it to.
template <class Node>
int setUpAttributes(Node* node, ScnAction& action)
{
    Node* savedNode = Node::s_current;
    const int savedCount = ScnBufferArray::s_vertexCount;
    Node::s_current = node;
    ScnBufferArray::s_vertexCount = 0;
    action.walk(node, ScnAction::Children);
    const int count = ScnBufferArray::s_vertexCount;
    Node::s_current = savedNode;
    ScnBufferArray::s_vertexCount = savedCount;
    return count;
}

}  // namespace

// -- ScnBufferArray ----------------------------------------------------------------

ScnBufferArray::ScnBufferArray()
{
    name = "glDrawArrays";
}

void ScnBufferArray::onRender(ScnAction& action)
{
    if (!enabled()) {
        action.walk(this, ScnAction::Siblings);
        return;
    }
    notify(OnPreRender);
    const int count = setUpAttributes(this, action);
    const bool gl = GlContext::ready();
    if (gl) glDrawArrays(static_cast<GLenum>(primitive.value), 0, count);
    notify(OnPostRender);
    if (gl) disableAttributeArrays();
    action.walk(this, ScnAction::Siblings);
}

void ScnBufferArray::addEvents(ScnMFFunction& f)
{
    addDrawEvents(f, kArrayPreRender, kArrayPostRender);
}

void ScnBufferArray::removeEvents(ScnMFFunction& f)
{
    removeDrawEvents(f);
}

const char* ScnBufferArray::glName(uint32_t code)
{
    static const char* const kPrimitives[] = {"GL_POINTS", "GL_LINES", "GL_LINE_LOOP", "GL_LINE_STRIP",
                                              "GL_TRIANGLES", "GL_TRIANGLE_STRIP", "GL_TRIANGLE_FAN"};
    static const char* const kTypes[] = {"GL_BYTE", "GL_UNSIGNED_BYTE", "GL_SHORT", "GL_UNSIGNED_SHORT",
                                         "GL_INT", "GL_UNSIGNED_INT", "GL_FLOAT"};
    if (code <= 6) return kPrimitives[code];
    if (code >= GL_BYTE && code <= GL_FLOAT) return kTypes[code - GL_BYTE];
    if (code == GL_HALF_FLOAT) return "GL_HALF_FLOAT";
    return "Unknown GL Primitive";
}

// -- ScnBufferElement --------------------------------------------------------------

ScnBufferElement::ScnBufferElement()
{
    name = "glDrawElements";
}

ScnBufferElement::~ScnBufferElement()
{
    delete m_buffer;
}

void ScnBufferElement::build()
{
    delete m_buffer;
    m_buffer = nullptr;
    const uint32_t count = evaluatedCount(dim, 256);
    m_buffer = new MemTypeGLBuffer(m_context, count, MemTypes::UInt, GL_ELEMENT_ARRAY_BUFFER, getName());
    if (!m_buffer->glId) return;
    if (!data.value.empty()) {
        // Indices are whole numbers whatever the record says, and a face's
        // list follows the one before it without a gap.
        ScnPlyLoadInfo info = source.value;
        info.type = MemTypes::UInt;
        info.stride = 0;
        MemSourcePly ply(m_buffer);
        ply.open(workspaceFile(data.value).c_str());
        ply.load(info);
        return;
    }
    if (m_buffer->map(CL_MAP_WRITE, 0)) {
        std::memset(m_buffer->data, 0, m_buffer->dim(0));
        m_buffer->unmap(0);
    }
}

void ScnBufferElement::onCreate(ScnAction& action)
{
    m_context = contextOf(action);
    build();
    action.walk(this, ScnAction::Both);
}

void ScnBufferElement::onUpdate(ScnAction& action)
{
    const ScnField* const rebuilt[] = {&dim, &data, &source};
    if (m_buffer && (contextOf(action) != m_context || editedOneOf(*this, action, rebuilt, 3))) {
        m_context = contextOf(action);
        build();
    }
    action.walk(this, ScnAction::Both);
}

void ScnBufferElement::onDestroy(ScnAction& action)
{
    action.walk(this, ScnAction::Both);
    delete m_buffer;
    m_buffer = nullptr;
}

void ScnBufferElement::onRender(ScnAction& action)
{
    if (!enabled()) {
        action.walk(this, ScnAction::Siblings);
        return;
    }
    notify(ScnBufferArray::OnPreRender);
    const int count = setUpAttributes(this, action);
    const bool gl = GlContext::ready();
    if (gl && m_buffer && m_buffer->glId) {
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, m_buffer->glId);
        glDrawRangeElements(static_cast<GLenum>(primitive.value), 0, static_cast<GLuint>(count),
                            static_cast<GLsizei>(dim.number), GL_UNSIGNED_INT, nullptr);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    }
    notify(ScnBufferArray::OnPostRender);
    if (gl) disableAttributeArrays();
    action.walk(this, ScnAction::Siblings);
}

void ScnBufferElement::addEvents(ScnMFFunction& f)
{
    addDrawEvents(f, "", "");
}

void ScnBufferElement::removeEvents(ScnMFFunction& f)
{
    removeDrawEvents(f);
}

void ScnBufferElement::addLuaMethods(ScnLuaClass<ScnBufferElement>& c)
{
    c.add("getBuffer", &ScnBufferElement::luaGetBuffer);
    c.add("dim", &ScnBufferElement::luaDim);
    c.add("setSize", &ScnBufferElement::luaSetSize);
    c.add("glId", &ScnBufferElement::luaGlId);
}

int ScnBufferElement::luaGetBuffer(lua_State* L)
{
    if (m_buffer) OclLua::push(L, m_buffer);
    else lua_pushnil(L);
    return 1;
}

int ScnBufferElement::luaDim(lua_State* L)
{
    if (!lua_isnumber(L, 1)) return luaL_typerror(L, 1, "number");
    if (lua_tonumber(L, 1) != 0) return luaL_argerror(L, 1, "0 expected");
    lua_pushnumber(L, dim.number);
    return 1;
}

int ScnBufferElement::luaSetSize(lua_State* L)
{
    if (!lua_isnumber(L, 1)) return luaL_argerror(L, 1, "number");
    const uint32_t count = countArg(lua_tonumber(L, 1));
    dim.number = static_cast<int>(std::min<uint32_t>(count, 0x7fffffff));
    if (m_buffer) m_buffer->resize(static_cast<size_t>(count) * 4, nullptr);
    return 0;
}

int ScnBufferElement::luaGlId(lua_State* L)
{
    lua_pushnumber(L, m_buffer ? m_buffer->glId : 0);
    return 1;
}

// -- ScnBufferAttrib ---------------------------------------------------------------

ScnBufferAttrib::ScnBufferAttrib()
{
    name = "glVertexAttrib";
}

ScnBufferAttrib::~ScnBufferAttrib()
{
    delete m_buffer;
}

uint32_t ScnBufferAttrib::elementType(uint32_t glType, int components)
{
    const int column = components == 1 ? 0 : components == 2 ? 1 : components == 4 ? 2 : -1;
    if (column < 0) return MemTypes::Float4;
    if (glType >= GL_BYTE && glType <= GL_UNSIGNED_INT) {
        static const uint32_t kBase[] = {0, 21, 11};
        return kBase[column] + (glType - GL_BYTE);
    }
    if (glType == GL_FLOAT || glType == GL_HALF_FLOAT) {
        static const uint32_t kFloat[] = {9, 29, 19};
        if (glType == GL_HALF_FLOAT && column == 0) return 8;
        return kFloat[column];
    }
    return MemTypes::Float4;
}

uint32_t ScnBufferAttrib::loaderType(uint32_t glType)
{
    // The loader converts each value to the scalar of this code, so it is the
    // scalar that the attribute's components have.
    if (glType >= GL_BYTE && glType <= GL_UNSIGNED_INT) return glType - GL_BYTE;
    if (glType == GL_HALF_FLOAT) return 8;
    return 9;
}

int ScnBufferAttrib::components() const
{
    return std::clamp(source.value.stride, 1, 4);
}

void ScnBufferAttrib::build()
{
    delete m_buffer;
    m_buffer = nullptr;
    m_box = ScnBox{};
    m_diagonal = 0;
    const uint32_t count = evaluatedCount(dim0, 1024);
    const auto glType = static_cast<uint32_t>(type.value);
    m_buffer = new MemTypeGLBuffer(m_context, count, elementType(glType, components()), GL_ARRAY_BUFFER, getName());
    if (!m_buffer->glId) return;
    if (path.value.empty()) {
        fill(true);
    } else {
        // Columns the file does not give stay 0, and a fourth component is
        // at full scale as in the random fill: x, y, z read into four
        // components give w = 1.
        fill(false);
        // The first word counts components; the loader wants the bytes from
        // one vertex to the next, as the attribute pointer reads them.
        ScnPlyLoadInfo info = source.value;
        info.type = static_cast<int32_t>(loaderType(glType));
        info.stride = components() * sizeOfGlType(glType);
        MemSourcePly ply(m_buffer);
        ply.open(workspaceFile(path.value).c_str());
        ply.load(info);
    }
    if (parent() && parent()->getChild(0) == this) measureBox();
    GlScope gl;
    if (gl.ok()) bindToCurrentShader();
}

int ScnBufferAttrib::drawnCount() const
{
    return m_buffer && m_buffer->glId ? dim0.number : 0;
}

void ScnBufferAttrib::fill(bool random)
{
    if (!m_buffer->map(CL_MAP_WRITE, 0)) return;
    const auto glType = static_cast<uint32_t>(type.value);
    const size_t bytes = static_cast<size_t>(sizeOfGlType(glType));
    const size_t n = std::min(static_cast<size_t>(dim0.number > 0 ? dim0.number : 0) * components(),
                              m_buffer->dim(0) / bytes);
    const double s = randomScale(glType);
    const bool colour = getName() == "gs_Color";
    auto* out = static_cast<unsigned char*>(m_buffer->data);
    for (size_t i = 0; i < n; ++i) {
        double v = !random ? 0.0 : colour ? unitRandom() * s : (unitRandom() - 0.5) * s;
        // Alpha of a colour, w of a position: one at full scale.
        if ((i + 1) % 4 == 0) v = s;
        storeComponent(out + i * bytes, glType, v);
    }
    m_buffer->unmap(0);
}

void ScnBufferAttrib::measureBox()
{
    if (!m_buffer->map(CL_MAP_READ, 0)) return;
    const auto glType = static_cast<uint32_t>(type.value);
    const size_t bytes = static_cast<size_t>(sizeOfGlType(glType));
    const size_t c = static_cast<size_t>(components());
    const size_t vertices = std::min(static_cast<size_t>(dim0.number > 0 ? dim0.number : 0),
                                     m_buffer->dim(0) / (bytes * c));
    const auto* in = static_cast<const unsigned char*>(m_buffer->data);
    ScnBox box;
    for (size_t v = 0; v < vertices; ++v) {
        for (size_t k = 0; k < 3; ++k) {
            // Missing components (one or two per vertex) count as 0.
            const double x = k < c ? loadComponent(in + (v * c + k) * bytes, glType) : 0.0;
            box.min[k] = std::min(box.min[k], x);
            box.max[k] = std::max(box.max[k], x);
        }
    }
    m_buffer->unmap(0);
    m_box = box;
    if (!box.isEmpty()) {
        const double dx = box.max[0] - box.min[0], dy = box.max[1] - box.min[1], dz = box.max[2] - box.min[2];
        m_diagonal = std::sqrt(dx * dx + dy * dy + dz * dz);
    }
}

bool ScnBufferAttrib::bindToCurrentShader() const
{
    ScnShader* shader = ScnScene::currentShader;
    if (!shader || !shader->program || !m_buffer || !m_buffer->glId) return false;
    const GLint location = glGetAttribLocation(shader->program, getName().c_str());
    if (location < 0) return false;
    glEnableVertexAttribArray(static_cast<GLuint>(location));
    glBindBuffer(GL_ARRAY_BUFFER, m_buffer->glId);
    glVertexAttribPointer(static_cast<GLuint>(location), components(), static_cast<GLenum>(type.value), GL_FALSE, 0,
                          nullptr);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    return true;
}

void ScnBufferAttrib::onCreate(ScnAction& action)
{
    m_context = contextOf(action);
    build();
    action.continueWalk(this, ScnAction::Siblings);
}

void ScnBufferAttrib::onUpdate(ScnAction& action)
{
    if (m_buffer && (contextOf(action) != m_context || editedField(*this, action) >= 0)) {
        m_context = contextOf(action);
        build();
    }
    action.continueWalk(this, ScnAction::Siblings);
}

void ScnBufferAttrib::onDestroy(ScnAction& action)
{
    delete m_buffer;
    m_buffer = nullptr;
    action.continueWalk(this, ScnAction::Siblings);
}

void ScnBufferAttrib::onRender(ScnAction& action)
{
    const bool visible = enabled();
    if (visible) {
        if (GlContext::ready()) bindToCurrentShader();
        ScnBufferArray::s_vertexCount = std::max(ScnBufferArray::s_vertexCount, drawnCount());
        notify(ScnBufferArray::OnPreRender);
    }
    // The siblings are set up before this returns to the draw.
    ++s_depth;
    action.walkOnThen(this, nullptr, visible ? 1 : 0);
}

void ScnBufferAttrib::afterWalkOn(ScnAction&, void*, int flag)
{
    --s_depth;
    if (!flag) return;
    notify(ScnBufferArray::OnPostRender);
    ScnBufferArray::s_vertexCount = std::max(ScnBufferArray::s_vertexCount, drawnCount());
}

void ScnBufferAttrib::addEvents(ScnMFFunction& f)
{
    addDrawEvents(f, "", "");
}

void ScnBufferAttrib::removeEvents(ScnMFFunction& f)
{
    removeDrawEvents(f);
}

void ScnBufferAttrib::addLuaMethods(ScnLuaClass<ScnBufferAttrib>& c)
{
    c.add("getBuffer", &ScnBufferAttrib::luaGetBuffer);
    c.add("dim", &ScnBufferAttrib::luaDim);
    c.add("setSize", &ScnBufferAttrib::luaSetSize);
    c.add("glId", &ScnBufferAttrib::luaGlId);
}

int ScnBufferAttrib::luaGetBuffer(lua_State* L)
{
    if (m_buffer) OclLua::push(L, m_buffer);
    else lua_pushnil(L);
    return 1;
}

int ScnBufferAttrib::luaDim(lua_State* L)
{
    if (!lua_isnumber(L, 1)) return luaL_typerror(L, 1, "number");
    if (lua_tonumber(L, 1) != 0) return luaL_argerror(L, 1, "0 expected");
    lua_pushnumber(L, dim0.number);
    return 1;
}

int ScnBufferAttrib::luaSetSize(lua_State* L)
{
    if (!lua_isnumber(L, 1)) return luaL_argerror(L, 1, "number");
    const uint32_t count = countArg(lua_tonumber(L, 1));
    dim0.number = static_cast<int>(std::min<uint32_t>(count, 0x7fffffff));
    if (m_buffer) {
        const uint32_t element = clTypeSize(elementType(static_cast<uint32_t>(type.value), components()));
        m_buffer->resize(static_cast<size_t>(count) * element, nullptr);
    }
    return 0;
}

int ScnBufferAttrib::luaGlId(lua_State* L)
{
    lua_pushnumber(L, m_buffer ? m_buffer->glId : 0);
    return 1;
}
