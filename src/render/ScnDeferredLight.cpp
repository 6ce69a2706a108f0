#include <GL/glew.h>

#include "render/ScnDeferredLight.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <lua.hpp>

#include "compute/OclLua.h"
#include "compute/oclObject.h"
#include "platform/GlContext.h"
#include "render/ScnScene.h"
#include "runtime/Clock.h"
#include "runtime/ScnLua.h"

namespace {

std::vector<ScnDeferredLight*> s_rings[2];
int s_alive = 0;

}  // namespace

ScnNodeType ScnDeferredLight::s_type;

void ScnDeferredLight::setInputSamplers(unsigned program)
{
    char name[16];
    for (int i = 0; i < 4; ++i) {
        std::snprintf(name, sizeof name, "gs_Input%d", i);
        const GLint location = glGetUniformLocation(program, name);
        if (location >= 0) glUniform1i(location, i);
    }
}

ScnDeferredLight::ScnDeferredLight()
{
    name = "light";
}

ScnDeferredLight::~ScnDeferredLight()
{
    // A light that goes without its destroy walk leaves nothing behind.
    leave();
}

void ScnDeferredLight::leave()
{
    if (!m_created) return;
    m_created = false;
    --s_alive;
    std::erase(ScnScene::globalBindings(), static_cast<ScnNode*>(this));
    for (auto& ring : s_rings) std::erase(ring, this);
    if (GlContext::ready()) {
        if (vertexArray) glDeleteVertexArrays(1, &vertexArray);
        if (vertexBuffer) glDeleteBuffers(1, &vertexBuffer);
    }
    vertexArray = vertexBuffer = 0;
}

int ScnDeferredLight::aliveCount()
{
    return s_alive;
}

const std::vector<ScnDeferredLight*>& ScnDeferredLight::ring(Kind kind)
{
    static const std::vector<ScnDeferredLight*> none;
    return kind == PointKind || kind == SpotKind ? s_rings[kind] : none;
}

// -- the record and the uniforms ------------------------------------------------------

void ScnDeferredLight::fillRecord(unsigned char out[kRecordSize]) const
{
    float f[32] = {};
    auto colour = [&](int at, const ScnColor& c) {
        f[at] = c.r;
        f[at + 1] = c.g;
        f[at + 2] = c.b;
        f[at + 3] = 0;
    };
    colour(0, diffuse.value);
    colour(4, ambient.value);
    colour(8, specular.value);
    for (int c = 0; c < 4; ++c) {
        for (int i = 0; i < 3; ++i) f[12 + 4 * c + i] = static_cast<float>(worldMatrix.m[4 * c + i]);
        f[12 + 4 * c + 3] = 0;
    }
    f[28] = range.value;
    f[29] = intensity.value;
    f[30] = attenuate.value;
    f[31] = spreadValue();
    const uint32_t tail[2] = {visible.value ? 1u : 0u, kind() == SpotKind ? 1u : 0u};
    std::memcpy(out, f, sizeof f);
    std::memcpy(out + sizeof f, tail, sizeof tail);
}

void ScnDeferredLight::setUniforms(unsigned program, const ScnMatrix16& view, int at) const
{
    if (!program) return;
    char name[64];
    auto location = [&](const char* member) {
        if (at >= 0)
            std::snprintf(name, sizeof name, "gs_Light[%d].%s", at, member);
        else
            std::snprintf(name, sizeof name, "gs_Light.%s", member);
        return glGetUniformLocation(program, name);
    };
    auto colour = [&](const char* member, const ScnColor& c) {
        const GLint l = location(member);
        if (l >= 0) glUniform4f(l, c.r, c.g, c.b, 1.0f);
    };
    auto number = [&](const char* member, float v) {
        const GLint l = location(member);
        if (l >= 0) glUniform1f(l, v);
    };
    auto integer = [&](const char* member, int v) {
        const GLint l = location(member);
        if (l >= 0) glUniform1i(l, v);
    };
    const ScnMatrix16 eye = scnMultiply(view, worldMatrix);
    auto column = [&](const char* member, int c) {
        const GLint l = location(member);
        if (l >= 0)
            glUniform3f(l, static_cast<float>(eye.m[4 * c]), static_cast<float>(eye.m[4 * c + 1]),
                        static_cast<float>(eye.m[4 * c + 2]));
    };
    colour("diffuse", diffuse.value);
    colour("ambient", ambient.value);
    colour("specular", specular.value);
    column("xAxis", 0);
    column("yAxis", 1);
    column("zAxis", 2);
    column("ePos", 3);
    number("range", range.value);
    number("intensity", intensity.value);
    number("attenuate", attenuate.value);
    integer("visible", visible.value ? 1 : 0);
    if (kind() == SpotKind) number("spread", spreadValue());
    if (at >= 0) integer("type", kind() + 1);
}

// -- the volume -----------------------------------------------------------------------

void ScnDeferredLight::rebuildVolume()
{
    m_volume.clear();
    makeVolume(m_volume);
    if (!vertexBuffer || !GlContext::ready()) return;
    glBindBuffer(GL_ARRAY_BUFFER, vertexBuffer);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(m_volume.size() * sizeof(float)), m_volume.data(),
                 GL_DYNAMIC_DRAW);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    wireVolume();
}

void ScnDeferredLight::wireVolume()
{
    if (!vertexArray || !direct.node.program) return;
    const GLint location = glGetAttribLocation(direct.node.program, "gs_Vertex");
    if (location < 0) return;
    glBindVertexArray(vertexArray);
    glBindBuffer(GL_ARRAY_BUFFER, vertexBuffer);
    glEnableVertexAttribArray(location);
    glVertexAttribPointer(location, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
    glBindVertexArray(0);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void ScnDeferredLight::drawWith(const ScnActionRender& action, const ScnMatrix16& model, bool eyeInside,
                                int count) const
{
    direct.node.pushMatrices(action, model);
    setUniforms(direct.node.program, action.view, -1);
    // From inside, the back faces of the volume carry the light.
    glFrontFace(eyeInside ? GL_CW : GL_CCW);
    glBindVertexArray(vertexArray);
    glDrawArrays(GL_TRIANGLES, 0, count);
    glBindVertexArray(0);
    glFrontFace(GL_CCW);
}

ScnDeferredLight::Frustum::Frustum(const ScnActionRender& action)
{
    const ScnMatrix16 clip = scnMultiply(action.projection, action.view);
    auto row = [&](int r, int c) { return clip.m[4 * c + r]; };
    for (int p = 0; p < 6; ++p) {
        const int axis = p / 2;
        const double sign = p % 2 == 0 ? 1 : -1;
        for (int c = 0; c < 4; ++c) plane[p][c] = row(3, c) + sign * row(axis, c);
    }
}

bool ScnDeferredLight::Frustum::touches(const double box[6]) const
{
    for (const auto& p : plane) {
        // The corner furthest along the plane's normal.
        double d = p[3];
        for (int i = 0; i < 3; ++i) d += p[i] * (p[i] >= 0 ? box[3 + i] : box[i]);
        if (d < 0) return false;
    }
    return true;
}

// -- walks ------------------------------------------------------------------------------

void ScnDeferredLight::onEvent(ScnAction& action)
{
    worldMatrix = action.top();
    for (int i = 0; i < 16; ++i) worldFloat[i] = static_cast<float>(worldMatrix.m[i]);
    const double diagonal = ScnScene::sceneBox[6];
    boxHalfSize = diagonal > 0 ? diagonal / 40 : 1;
    index = ScnScene::lightCount++;
    action.continueWalk(this, ScnAction::Siblings);
}

void ScnDeferredLight::onUpdate(ScnAction& action)
{
    worldMatrix = action.top();
    for (int i = 0; i < 16; ++i) worldFloat[i] = static_cast<float>(worldMatrix.m[i]);
    auto* update = dynamic_cast<ScnActionUpdate*>(&action);
    if (update && update->pointer && m_created && GlContext::ready()) {
        if (direct.node.rebuildFor(action)) {
            wireVolume();
        } else if (shapesVolume(update->pointer)) {
            rebuildVolume();
        }
    }
    action.continueWalk(this, ScnAction::Siblings);
}

void ScnDeferredLight::onCreate(ScnAction& action)
{
    if (kind() != NoKind && !m_created) {
        m_created = true;
        ScnScene::globalBindings().push_back(this);
        direct.node.afterLink = &setInputSamplers;
        direct.node.build();
        ++s_alive;
        s_rings[kind()].push_back(this);
        if (GlContext::ready()) {
            glGenVertexArrays(1, &vertexArray);
            glGenBuffers(1, &vertexBuffer);
        }
        rebuildVolume();
    }
    action.continueWalk(this, ScnAction::Siblings);
}

void ScnDeferredLight::onDestroy(ScnAction& action)
{
    if (m_created) direct.node.destroyProgram();
    leave();
    action.continueWalk(this, ScnAction::Siblings);
}

void ScnDeferredLight::onRender(ScnAction& action)
{
    auto* render = dynamic_cast<ScnActionRender*>(&action);
    if (render && Engine::running == 0 && !m_volume.empty() && GlContext::ready()) {
        const float colour[3] = {diffuse.value.r, diffuse.value.g, diffuse.value.b};
        ScnScene::beginWire(*render, colour);
        ScnScene::drawTriangles(m_volume.data(), static_cast<int>(m_volume.size() / 3));
        ScnScene::endWire();
    }
    action.continueWalk(this, ScnAction::Both);
}

void ScnDeferredLight::onRenderPass(ScnAction& action, ScnShader* shader)
{
    auto* render = dynamic_cast<ScnActionRender*>(&action);
    if (!render || !shader || !shader->program || kind() == NoKind) return;
    setUniforms(shader->program, render->view, index);
    if (index == 0) {
        const GLint count = glGetUniformLocation(shader->program, "gs_LightCount");
        if (count >= 0) glUniform1i(count, s_alive);
    }
}

// -- script methods ---------------------------------------------------------------------

void ScnDeferredLight::addLuaMethods(ScnLuaClass<ScnDeferredLight>& c)
{
    c.add("getShader", &ScnDeferredLight::luaGetShader);
    c.add("getDiffuse", &ScnDeferredLight::luaGetDiffuse);
    c.add("getAmbient", &ScnDeferredLight::luaGetAmbient);
    c.add("getSpecular", &ScnDeferredLight::luaGetSpecular);
    c.add("setDiffuse", &ScnDeferredLight::luaSetDiffuse);
    c.add("setAmbient", &ScnDeferredLight::luaSetAmbient);
    c.add("setSpecular", &ScnDeferredLight::luaSetSpecular);
    c.add("getRange", &ScnDeferredLight::luaGetRange);
    c.add("getIntensity", &ScnDeferredLight::luaGetIntensity);
    c.add("getAttenuate", &ScnDeferredLight::luaGetAttenuate);
    c.add("setRange", &ScnDeferredLight::luaSetRange);
    c.add("setIntensity", &ScnDeferredLight::luaSetIntensity);
    c.add("setAttenuate", &ScnDeferredLight::luaSetAttenuate);
}

int ScnDeferredLight::luaGetShader(lua_State* L)
{
    // The shader lives inside the light: its Lua object is made when first asked for.
    if (!direct.node.getLuaRef()) ScnLua::createLuaObject(L, &direct.node);
    ScnLua::pushNode(L, &direct.node);
    return 1;
}

int ScnDeferredLight::colour(lua_State* L, ScnSFColor& field, bool set)
{
    if (!set) {
        lua_pushnumber(L, field.value.r);
        lua_pushnumber(L, field.value.g);
        lua_pushnumber(L, field.value.b);
        lua_pushnumber(L, field.value.a);
        return 4;
    }
    float v[4];
    for (int i = 0; i < 4; ++i) {
        if (lua_type(L, i + 1) != LUA_TNUMBER) return luaL_typerror(L, i + 1, "number");
        v[i] = static_cast<float>(lua_tonumber(L, i + 1));
    }
    field.value = ScnColor{v[0], v[1], v[2], v[3]};
    return 0;
}

int ScnDeferredLight::number(lua_State* L, ScnSF<float>& field, bool set)
{
    if (!set) {
        lua_pushnumber(L, field.value);
        return 1;
    }
    if (lua_type(L, 1) != LUA_TNUMBER) return luaL_typerror(L, 1, "number");
    field.value = static_cast<float>(lua_tonumber(L, 1));
    if (m_created && shapesVolume(&field)) rebuildVolume();
    return 0;
}

int ScnDeferredLight::luaGetDiffuse(lua_State* L) { return colour(L, diffuse, false); }
int ScnDeferredLight::luaGetAmbient(lua_State* L) { return colour(L, ambient, false); }
int ScnDeferredLight::luaGetSpecular(lua_State* L) { return colour(L, specular, false); }
int ScnDeferredLight::luaSetDiffuse(lua_State* L) { return colour(L, diffuse, true); }
int ScnDeferredLight::luaSetAmbient(lua_State* L) { return colour(L, ambient, true); }
int ScnDeferredLight::luaSetSpecular(lua_State* L) { return colour(L, specular, true); }
int ScnDeferredLight::luaGetRange(lua_State* L) { return number(L, range, false); }
int ScnDeferredLight::luaGetIntensity(lua_State* L) { return number(L, intensity, false); }
int ScnDeferredLight::luaGetAttenuate(lua_State* L) { return number(L, attenuate, false); }
int ScnDeferredLight::luaSetRange(lua_State* L) { return number(L, range, true); }
int ScnDeferredLight::luaSetIntensity(lua_State* L) { return number(L, intensity, true); }
int ScnDeferredLight::luaSetAttenuate(lua_State* L) { return number(L, attenuate, true); }

int ScnDeferredLight::luaGetLightParams(lua_State* L)
{
    auto* b = dynamic_cast<oclBuffer*>(OclLua::to(L, 1));
    if (!b) return luaL_typerror(L, 1, "1D buffer object");
    if (!b->proxy) return luaL_error(L, "Proxy missing in buffer object %s ", b->name());
    if (b->mapFlags == 0 || !b->data) return luaL_argerror(L, 1, "buffer not mapped");
    if (b->dim(0) < kRecordSize) return luaL_argerror(L, 1, "buffer smaller than structure size");
    unsigned char record[kRecordSize];
    fillRecord(record);
    std::memcpy(b->data, record, kRecordSize);
    return 0;
}
