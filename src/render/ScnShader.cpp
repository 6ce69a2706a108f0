// The shader node's GL side: build and link with diagnostics, the preset
// uniforms, and its place in the walks.
#include <GL/glew.h>

#include <cstring>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/type_ptr.hpp>

#include "platform/GlContext.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "render/ScnShaderLog.h"
#include "runtime/AppGlobal.h"
#include "runtime/Clock.h"
#include "runtime/ScnLua.h"

const char* const ScnShader::kPresetNames[PresetCount] = {
    "gs_ModelMatrix",        "gs_ModelViewMatrix",     "gs_ModelViewProjectionMatrix", "gs_ProjectionMatrix",
    "gs_ProjectionMatrixInverse", "gs_CameraMatrix",   "gs_CameraMatrixInverse",       "gs_NormalMatrix",
    "gs_Aspect",             "gs_Viewport",            "gs_Time"};

namespace {

constexpr size_t kLogRoom = 500000;
const char* const kStars = "******************************************";

// The info log buffer, shared by every build (one at a time, on the GL thread).
char* logBuffer()
{
    static std::vector<char> buffer(kLogRoom + 1);
    return buffer.data();
}

void trace(int line, const std::string& text)
{
    AppGlobal::traceLine("ScnShader", line, text);
}

glm::dmat4 toGlm(const ScnMatrix16& m)
{
    glm::dmat4 g;
    std::memcpy(&g[0][0], m.m, sizeof m.m);
    return g;
}

void sendMatrix(int location, const glm::dmat4& m)
{
    if (location < 0) return;
    glm::mat4 f(m);
    glUniformMatrix4fv(location, 1, GL_FALSE, glm::value_ptr(f));
}

}  // namespace

int g_scnMaxGeometryOutput = 0;

bool ScnShader::compileStage(unsigned& shader, unsigned type, const std::string& text, Stage stage)
{
    if (text.empty()) return false;
    shader = glCreateShader(type);
    const char* src = text.c_str();
    GLint length = static_cast<GLint>(text.size());
    glShaderSource(shader, 1, &src, &length);
    glCompileShader(shader);
    GLint ok = GL_FALSE;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
    if (ok) return true;
    char* log = logBuffer();
    log[0] = 0;
    glGetShaderInfoLog(shader, static_cast<GLsizei>(kLogRoom), nullptr, log);
    log[kLogRoom] = 0;
    trace(__LINE__, "SHADER : " + getName());
    trace(__LINE__, text);
    trace(__LINE__, log);
    trace(__LINE__, kStars);
    LogStream(ScnShaderLog::errors(), getName(), this, 0, 0, stage) << "Compile Error";
    ScnShaderLog::parse(log, this, stage);
    return false;
}

void ScnShader::link()
{
    glLinkProgram(program);
    GLint ok = GL_FALSE;
    glGetProgramiv(program, GL_LINK_STATUS, &ok);
    if (ok) return;
    char* log = logBuffer();
    log[0] = 0;
    glGetProgramInfoLog(program, static_cast<GLsizei>(kLogRoom), nullptr, log);
    log[kLogRoom] = 0;
    trace(__LINE__, "SHADER : " + getName());
    trace(__LINE__, vertex.value);
    trace(__LINE__, fragment.value);
    trace(__LINE__, log);
    trace(__LINE__, kStars);
    // A link message belongs to no stage of its own.
    LogStream(ScnShaderLog::errors(), getName(), this, 0, 0, 0) << "Link Error";
    if (ScnShaderLog::parse(log, this, 0) > 0) return;
    // Link messages seldom point at a line: the driver's text goes out as it
    // stands, a record per line, so the user sees why.
    for (const char* p = log; *p;) {
        const char* nl = std::strchr(p, '\n');
        std::string line(p, nl ? nl : p + std::strlen(p));
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
        if (!line.empty()) LogStream(ScnShaderLog::errors(), getName(), this, 0, 0, 0) << line;
        if (!nl) break;
        p = nl + 1;
    }
}

bool ScnShader::build()
{
    if (!GlContext::ready()) return false;
    destroyProgram();
    compiled = true;
    if (!compileStage(vertexShader, GL_VERTEX_SHADER, vertex.value, Vertex)) compiled = false;
    if (!compileStage(fragmentShader, GL_FRAGMENT_SHADER, fragment.value, Fragment)) compiled = false;
    if (usegeom.value && !geometry.value.empty() &&
        !compileStage(geometryShader, GL_GEOMETRY_SHADER, geometry.value, Geometry))
        compiled = false;
    if (!compiled) return false;

    program = glCreateProgram();
    glAttachShader(program, vertexShader);
    glAttachShader(program, fragmentShader);
    if (usegeom.value && geometryShader) {
        glAttachShader(program, geometryShader);
        int count = vertexcount.value;
        if (g_scnMaxGeometryOutput > 0 && g_scnMaxGeometryOutput < count) {
            LogStream(Channels::error(), getName()) << "GL_GEOMETRY_VERTICES_OUT > GL_MAX_GEOMETRY_OUTPUT_VERTICES";
            count = g_scnMaxGeometryOutput;
        }
        // Only drivers with the old geometry extension take these; GLSL 3.30
        // texts declare their layout themselves.
        if (glProgramParameteriEXT) {
            glProgramParameteriEXT(program, GL_GEOMETRY_VERTICES_OUT_EXT, count);
            glProgramParameteriEXT(program, GL_GEOMETRY_INPUT_TYPE_EXT, inputtype.value);
            glProgramParameteriEXT(program, GL_GEOMETRY_OUTPUT_TYPE_EXT, outputtype.value);
            glGetError();
        }
    }
    link();
    GLint linked = GL_FALSE;
    glGetProgramiv(program, GL_LINK_STATUS, &linked);
    glUseProgram(program);
    if (afterLink) afterLink(program);
    cacheLocations();
    glUseProgram(0);
    return linked == GL_TRUE;
}

void ScnShader::cacheLocations()
{
    for (int i = 0; i < PresetCount; ++i) m_locations[i] = glGetUniformLocation(program, kPresetNames[i]);
}

void ScnShader::destroyProgram()
{
    if (!program && !vertexShader && !fragmentShader && !geometryShader) return;
    if (!GlContext::ready()) return;
    for (unsigned* s : {&vertexShader, &fragmentShader, &geometryShader}) {
        if (!*s) continue;
        if (program) glDetachShader(program, *s);
        glDeleteShader(*s);
        *s = 0;
    }
    glUseProgram(0);
    if (program) glDeleteProgram(program);
    program = 0;
    compiled = false;
    for (int& l : m_locations) l = -1;
}

void ScnShader::setProgram(const std::string& name)
{
    GlScope gl;
    destroyProgram();
    loadSources(name);
    build();
}

void ScnShader::pushMatrices(const ScnActionRender& action, const ScnMatrix16& modelMatrix) const
{
    if (!program) return;
    glm::dmat4 model = toGlm(modelMatrix);
    glm::dmat4 view = toGlm(action.view);
    glm::dmat4 proj = toGlm(action.projection);
    glm::dmat4 mv = view * model;
    sendMatrix(m_locations[ModelMatrix], model);
    sendMatrix(m_locations[ModelViewMatrix], mv);
    sendMatrix(m_locations[ModelViewProjectionMatrix], proj * mv);
    sendMatrix(m_locations[ProjectionMatrix], proj);
    sendMatrix(m_locations[ProjectionMatrixInverse], toGlm(action.projectionInverse));
    sendMatrix(m_locations[CameraMatrix], toGlm(action.cameraMatrix));
    sendMatrix(m_locations[CameraMatrixInverse], view);
    if (m_locations[NormalMatrix] >= 0) {
        glm::mat3 n(glm::transpose(glm::inverse(mv)));
        glUniformMatrix3fv(m_locations[NormalMatrix], 1, GL_FALSE, glm::value_ptr(n));
    }
    if (m_locations[Aspect] >= 0) glUniform2f(m_locations[Aspect], action.aspect[0], action.aspect[1]);
    if (m_locations[Viewport] >= 0) glUniform2f(m_locations[Viewport], action.viewport[0], action.viewport[1]);
}

void ScnShader::begin(const ScnActionRender& action)
{
    m_saved = ScnScene::currentShader;
    ScnScene::currentShader = this;
    glUseProgram(program);
    pushMatrices(action, action.top());
}

void ScnShader::end()
{
    ScnScene::currentShader = m_saved;
    glUseProgram(m_saved ? m_saved->program : 0);
    m_saved = nullptr;
}

// -- walks ------------------------------------------------------------------------

// The nodes that follow a shader are walked with it current; what it changed
// is undone in afterWalkOn once they are done.

void ScnShader::onCreate(ScnAction& action)
{
    build();
    // The nodes that follow can rely on this shader while they are made.
    ScnShader* saved = ScnScene::currentShader;
    ScnScene::currentShader = this;
    action.walkOnThen(this, saved, RestoreShader);
}

void ScnShader::onDestroy(ScnAction& action)
{
    ScnShader* saved = ScnScene::currentShader;
    ScnScene::currentShader = this;
    action.walkOnThen(this, saved, RestoreShader | DestroyProgram);
}

bool ScnShader::rebuildFor(const ScnAction& action)
{
    auto* update = dynamic_cast<const ScnActionUpdate*>(&action);
    if (!update || !update->pointer) return false;
    for (int i = 0; i < fieldCount(); ++i) {
        if (field(i) == update->pointer) {
            destroyProgram();
            build();
            return true;
        }
    }
    return false;
}

void ScnShader::onUpdate(ScnAction& action)
{
    rebuildFor(action);
    bool use = enabled() && program && GlContext::ready();
    ScnShader* saved = ScnScene::currentShader;
    if (use) {
        glUseProgram(program);
        ScnScene::currentShader = this;
    }
    action.walkOnThen(this, saved, use ? RestoreShader | RestoreProgram : 0);
}

void ScnShader::onTransform(ScnAction& action)
{
    action.continueWalk(this, ScnAction::Siblings);
}

void ScnShader::onRender(ScnAction& action)
{
    auto* render = dynamic_cast<ScnActionRender*>(&action);
    // A shader without a program leaves the one in use to its siblings.
    bool use = render && enabled() && program;
    ScnShader* saved = ScnScene::currentShader;
    if (use) {
        glUseProgram(program);
        if (m_locations[Time] >= 0) glUniform1f(m_locations[Time], static_cast<float>(Engine::lastTickTime % 1000) / 1000.0f);
        pushMatrices(*render, render->top());
        ScnScene::currentShader = this;
        render->bindAll(this);
    }
    action.walkOnThen(this, saved, use ? RestoreShader | RestoreProgram : 0);
}

void ScnShader::afterWalkOn(ScnAction&, void* saved, int flag)
{
    auto* previous = static_cast<ScnShader*>(saved);
    if (flag & RestoreShader) ScnScene::currentShader = previous;
    if (flag & RestoreProgram) glUseProgram(previous ? previous->program : 0);
    if (flag & DestroyProgram) destroyProgram();
}

// -- script methods ---------------------------------------------------------------

void ScnShader::addLuaMethods(ScnLuaClass<ScnShader>& c)
{
    c.add("setProgram", &ScnShader::luaSetProgram);
    c.add("glId", &ScnShader::luaGlId);
}

int ScnShader::luaSetProgram(lua_State* L)
{
    if (lua_type(L, 1) != LUA_TSTRING) return luaL_typerror(L, 1, "string");
    setProgram(lua_tostring(L, 1));
    return 0;
}

int ScnShader::luaGlId(lua_State* L)
{
    lua_pushnumber(L, program);
    return 1;
}
