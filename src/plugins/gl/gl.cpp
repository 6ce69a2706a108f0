// The script module `gl`: the OpenGL state, clear, viewport, blend, depth and
// draw-buffer calls with their constants, for the default scripts of
// framebuffers and buffers. Loaded from the workspace's plug-in folder like
// any other library with lib_open. Every call goes to the context current at
// the time; Lua errors for bad arguments are raised inside the caller's
// protected call.
#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>
#include <GL/glext.h>

#include <lua.hpp>

namespace {

GLenum e(lua_State* L, int i) { return static_cast<GLenum>(luaL_checknumber(L, i)); }
GLint n(lua_State* L, int i) { return static_cast<GLint>(luaL_checknumber(L, i)); }
GLfloat f(lua_State* L, int i) { return static_cast<GLfloat>(luaL_checknumber(L, i)); }
GLboolean b(lua_State* L, int i) { return lua_toboolean(L, i) ? GL_TRUE : GL_FALSE; }

int lEnable(lua_State* L) { glEnable(e(L, 1)); return 0; }
int lDisable(lua_State* L) { glDisable(e(L, 1)); return 0; }
int lIsEnabled(lua_State* L) { lua_pushboolean(L, glIsEnabled(e(L, 1)) == GL_TRUE); return 1; }
int lGetError(lua_State* L) { lua_pushnumber(L, glGetError()); return 1; }
int lFlush(lua_State*) { glFlush(); return 0; }
int lFinish(lua_State*) { glFinish(); return 0; }

// Point sprites take their coordinates from this (compatibility profile).
int lTexEnvi(lua_State* L) { glTexEnvi(e(L, 1), e(L, 2), n(L, 3)); return 0; }

int lClear(lua_State* L) { glClear(static_cast<GLbitfield>(luaL_checknumber(L, 1))); return 0; }
int lClearColor(lua_State* L) { glClearColor(f(L, 1), f(L, 2), f(L, 3), f(L, 4)); return 0; }
int lClearDepth(lua_State* L) { glClearDepth(luaL_checknumber(L, 1)); return 0; }
int lClearStencil(lua_State* L) { glClearStencil(n(L, 1)); return 0; }

int lViewport(lua_State* L) { glViewport(n(L, 1), n(L, 2), n(L, 3), n(L, 4)); return 0; }
int lScissor(lua_State* L) { glScissor(n(L, 1), n(L, 2), n(L, 3), n(L, 4)); return 0; }
int lGetViewport(lua_State* L)
{
    GLint v[4] = {0, 0, 0, 0};
    glGetIntegerv(GL_VIEWPORT, v);
    for (GLint x : v) lua_pushnumber(L, x);
    return 4;
}

int lBlendFunc(lua_State* L) { glBlendFunc(e(L, 1), e(L, 2)); return 0; }
int lBlendFuncSeparate(lua_State* L) { glBlendFuncSeparate(e(L, 1), e(L, 2), e(L, 3), e(L, 4)); return 0; }
int lBlendEquation(lua_State* L) { glBlendEquation(e(L, 1)); return 0; }
int lBlendColor(lua_State* L) { glBlendColor(f(L, 1), f(L, 2), f(L, 3), f(L, 4)); return 0; }

int lDepthFunc(lua_State* L) { glDepthFunc(e(L, 1)); return 0; }
int lDepthMask(lua_State* L) { glDepthMask(b(L, 1)); return 0; }
int lDepthRange(lua_State* L) { glDepthRange(luaL_checknumber(L, 1), luaL_checknumber(L, 2)); return 0; }
int lColorMask(lua_State* L) { glColorMask(b(L, 1), b(L, 2), b(L, 3), b(L, 4)); return 0; }
int lCullFace(lua_State* L) { glCullFace(e(L, 1)); return 0; }
int lFrontFace(lua_State* L) { glFrontFace(e(L, 1)); return 0; }
int lPolygonMode(lua_State* L) { glPolygonMode(e(L, 1), e(L, 2)); return 0; }
int lLineWidth(lua_State* L) { glLineWidth(f(L, 1)); return 0; }
int lPointSize(lua_State* L) { glPointSize(f(L, 1)); return 0; }

int lDrawBuffer(lua_State* L) { glDrawBuffer(e(L, 1)); return 0; }
int lReadBuffer(lua_State* L) { glReadBuffer(e(L, 1)); return 0; }
// glDrawBuffers({GL_COLOR_ATTACHMENT0, ...}) or glDrawBuffers(a, b, ...).
int lDrawBuffers(lua_State* L)
{
    GLenum list[16];
    int count = 0;
    if (lua_istable(L, 1)) {
        for (int i = 1; i <= 16; ++i) {
            lua_rawgeti(L, 1, i);
            if (lua_isnil(L, -1)) {
                lua_pop(L, 1);
                break;
            }
            list[count++] = static_cast<GLenum>(luaL_checknumber(L, -1));
            lua_pop(L, 1);
        }
    } else {
        int top = lua_gettop(L);
        if (top > 16) return luaL_error(L, "glDrawBuffers: at most 16 buffers");
        for (int i = 1; i <= top; ++i) list[count++] = e(L, i);
    }
    glDrawBuffers(count, list);
    return 0;
}

const luaL_Reg kFunctions[] = {
    {"glEnable", lEnable},       {"glDisable", lDisable},         {"glIsEnabled", lIsEnabled},
    {"glGetError", lGetError},   {"glFlush", lFlush},             {"glFinish", lFinish},
    {"glClear", lClear},         {"glClearColor", lClearColor},   {"glClearDepth", lClearDepth},
    {"glClearStencil", lClearStencil}, {"glViewport", lViewport}, {"glScissor", lScissor},
    {"glGetViewport", lGetViewport}, {"glBlendFunc", lBlendFunc}, {"glBlendFuncSeparate", lBlendFuncSeparate},
    {"glBlendEquation", lBlendEquation}, {"glBlendColor", lBlendColor}, {"glDepthFunc", lDepthFunc},
    {"glDepthMask", lDepthMask}, {"glDepthRange", lDepthRange},   {"glColorMask", lColorMask},
    {"glCullFace", lCullFace},   {"glFrontFace", lFrontFace},     {"glPolygonMode", lPolygonMode},
    {"glLineWidth", lLineWidth}, {"glPointSize", lPointSize},     {"glDrawBuffer", lDrawBuffer},
    {"glReadBuffer", lReadBuffer}, {"glDrawBuffers", lDrawBuffers}, {"glTexEnvi", lTexEnvi},
    {nullptr, nullptr}};

struct Constant {
    const char* name;
    double value;
};
#define C(x) {#x, x}
const Constant kConstants[] = {
    // state
    C(GL_BLEND), C(GL_DEPTH_TEST), C(GL_CULL_FACE), C(GL_SCISSOR_TEST), C(GL_STENCIL_TEST), C(GL_TEXTURE_2D),
    C(GL_TEXTURE_3D), C(GL_MULTISAMPLE), C(GL_LINE_SMOOTH), C(GL_POINT_SMOOTH), C(GL_POLYGON_OFFSET_FILL),
    C(GL_PROGRAM_POINT_SIZE), C(GL_VERTEX_PROGRAM_POINT_SIZE), C(GL_POINT_SPRITE), C(GL_LIGHTING),
    C(GL_ALPHA_TEST),
    // texture environment
    C(GL_TEXTURE_ENV), C(GL_COORD_REPLACE),
    // clear
    C(GL_COLOR_BUFFER_BIT), C(GL_DEPTH_BUFFER_BIT), C(GL_STENCIL_BUFFER_BIT),
    // blend
    C(GL_ZERO), C(GL_ONE), C(GL_SRC_COLOR), C(GL_ONE_MINUS_SRC_COLOR), C(GL_DST_COLOR), C(GL_ONE_MINUS_DST_COLOR),
    C(GL_SRC_ALPHA), C(GL_ONE_MINUS_SRC_ALPHA), C(GL_DST_ALPHA), C(GL_ONE_MINUS_DST_ALPHA), C(GL_CONSTANT_COLOR),
    C(GL_ONE_MINUS_CONSTANT_COLOR), C(GL_CONSTANT_ALPHA), C(GL_ONE_MINUS_CONSTANT_ALPHA), C(GL_SRC_ALPHA_SATURATE),
    C(GL_FUNC_ADD), C(GL_FUNC_SUBTRACT), C(GL_FUNC_REVERSE_SUBTRACT), C(GL_MIN), C(GL_MAX),
    // depth
    C(GL_NEVER), C(GL_LESS), C(GL_EQUAL), C(GL_LEQUAL), C(GL_GREATER), C(GL_NOTEQUAL), C(GL_GEQUAL), C(GL_ALWAYS),
    // faces and polygons
    C(GL_FRONT), C(GL_BACK), C(GL_FRONT_AND_BACK), C(GL_CW), C(GL_CCW), C(GL_POINT), C(GL_LINE), C(GL_FILL),
    // draw buffers
    C(GL_NONE), C(GL_FRONT_LEFT), C(GL_BACK_LEFT), C(GL_COLOR_ATTACHMENT0), C(GL_COLOR_ATTACHMENT1),
    C(GL_COLOR_ATTACHMENT2), C(GL_COLOR_ATTACHMENT3), C(GL_COLOR_ATTACHMENT4), C(GL_COLOR_ATTACHMENT5),
    C(GL_COLOR_ATTACHMENT6), C(GL_COLOR_ATTACHMENT7),
    // errors
    C(GL_NO_ERROR), C(GL_INVALID_ENUM), C(GL_INVALID_VALUE), C(GL_INVALID_OPERATION), C(GL_OUT_OF_MEMORY),
    C(GL_INVALID_FRAMEBUFFER_OPERATION),
    // booleans
    C(GL_TRUE), C(GL_FALSE)};
#undef C

}  // namespace

extern "C" __attribute__((visibility("default"))) int lib_open(lua_State* L)
{
    luaL_register(L, "gl", kFunctions);
    for (const Constant& c : kConstants) {
        lua_pushnumber(L, c.value);
        lua_setfield(L, -2, c.name);
    }
    lua_pop(L, 1);
    return 0;
}
