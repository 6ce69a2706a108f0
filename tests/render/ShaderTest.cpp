// The shader node against Mesa: builds, diagnostics by stage and line, the
// preset locations, the after-link hook, sources by name and rebuilds.
#include <filesystem>
#include <fstream>

#include "render/ScnShaderLog.h"
#include "runtime/ScnLua.h"
#include "RenderSupport.h"

bool TestQuad::s_log = false;
ScnNodeType TestQuad::s_type;

namespace {

std::vector<LogRecord> diagnostics()
{
    std::vector<LogRecord> out;
    LogRecord r;
    while (ScnShaderLog::errors().pop(r)) out.push_back(r);
    return out;
}

}  // namespace

TEST(ShaderLog, ReadsTheLineFromEachDriversFormAndStopsAtAnEmptyLine)
{
    Channels::clearAll();
    ScnNode node;
    node.name = "lit";
    const char* log =
        "0(7) : error C1008: undefined variable \"x\"\n"          // NVIDIA
        "error: 0:12: 'y' : undeclared identifier\n"               // AMD, Intel
        "warning: 0:3: 'z' : unused\n"
        "0:21(5): error: `w' undeclared\n"                         // Mesa
        "compilation terminated.\n"                                // no number pair: skipped
        "0:30(1): error: after the skipped line\n";
    EXPECT_EQ(ScnShaderLog::parse(log, &node, ScnShader::Fragment), 5);
    auto d = diagnostics();
    ASSERT_EQ(d.size(), 5u);
    const int lines[] = {7, 12, 3, 21, 30};
    for (size_t i = 0; i < d.size(); ++i) {
        EXPECT_EQ(d[i].line, lines[i]);
        EXPECT_EQ(d[i].kind, ScnShader::Fragment);
        EXPECT_EQ(d[i].node, &node);
    }
    EXPECT_STREQ(d[3].text, "(lit): 0:21(5): error: `w' undeclared");

    EXPECT_EQ(ScnShaderLog::parse("0:2(1): error: one\n\n0:3(1): error: after the gap\n", &node, 1), 1);
    EXPECT_EQ(ScnShaderLog::parse("no diagnostic and no line feed", &node, 1), 0);
    EXPECT_EQ(ScnShaderLog::parse("0:9(1): error: last, no line feed", &node, 1), 1);
    EXPECT_EQ(ScnShaderLog::parse("", &node, 1), 0);
    EXPECT_EQ(ScnShaderLog::parse(nullptr, &node, 1), 0);
    d = diagnostics();
    ASSERT_EQ(d.size(), 2u);
    EXPECT_EQ(d[1].line, 9);
}

class Shader : public GlTest {};

TEST_F(Shader, CompileErrorsAreDiagnosticsOfTheirStageAndLine)
{
    ScnShader s;
    s.name = "broken";
    s.vertex = flatVertex();
    // #version on line 1, the error on line 7.
    s.fragment = "#version 330\nout vec4 outColor;\n\nvoid main()\n{\n    outColor = vec4(1.0);\n    undeclared = 2.0;\n}\n";
    EXPECT_FALSE(s.build());
    EXPECT_EQ(s.program, 0u);
    EXPECT_FALSE(s.compiled);
    auto d = diagnostics();
    ASSERT_GE(d.size(), 2u);
    EXPECT_STREQ(d[0].text, "(broken): Compile Error");
    EXPECT_EQ(d[0].line, 0);
    EXPECT_EQ(d[0].kind, ScnShader::Fragment);
    bool atSeven = false;
    for (size_t i = 1; i < d.size(); ++i) {
        EXPECT_EQ(d[i].kind, ScnShader::Fragment);
        EXPECT_EQ(d[i].node, &s);
        atSeven |= d[i].line == 7 && std::string(d[i].text).find("undeclared") != std::string::npos;
    }
    EXPECT_TRUE(atSeven) << "Mesa's message for line 7 was not found";

    // The geometry text counts only with usegeom.
    s.fragment = colourFragment(1, 0, 0);
    s.geometry = "#version 330\nthis is not GLSL\n";
    EXPECT_TRUE(s.build());
    EXPECT_TRUE(diagnostics().empty());
    s.usegeom = true;
    EXPECT_FALSE(s.build());
    d = diagnostics();
    ASSERT_FALSE(d.empty());
    for (const auto& r : d) EXPECT_EQ(r.kind, ScnShader::Geometry);
    EXPECT_EQ(d.back().line, 2);
}

TEST_F(Shader, EmptyStageFailsSilentlyAndLinkErrorsHaveNoStage)
{
    ScnShader empty;  // made by code: three empty texts
    EXPECT_FALSE(empty.build());
    EXPECT_TRUE(diagnostics().empty());

    ScnShader s;
    s.name = "mismatch";
    s.vertex = flatVertex();
    // Compiles, but a stage without main cannot link.
    s.fragment = "#version 330\nout vec4 c;\nvoid helper() { c = vec4(1.0); }\n";
    EXPECT_FALSE(s.build());
    auto d = diagnostics();
    ASSERT_GE(d.size(), 2u);
    EXPECT_STREQ(d[0].text, "(mismatch): Link Error");
    // The driver's own words follow, so the user learns why: Mesa names main.
    std::string why;
    for (const LogRecord& r : d) {
        EXPECT_EQ(r.kind, 0);
        EXPECT_EQ(std::string(r.text).rfind("(mismatch): ", 0), 0u) << r.text;
        why += r.text;
    }
    EXPECT_NE(why.find("main"), std::string::npos) << why;
}

TEST_F(Shader, CleanShaderLinksCachesPresetsAndRebuildsOnAnUpdateOfItsOwnField)
{
    ScnGroup group;
    auto* s = static_cast<ScnShader*>(ScnShader::factory());
    group.append(s);
    int links = 0;
    GLint inUse = -1;
    s->afterLink = [&](unsigned id) {
        ++links;
        EXPECT_EQ(id, s->program);
        glGetIntegerv(GL_CURRENT_PROGRAM, &inUse);
    };
    {
        ScnActionCreate create;
        create.apply(&group);
    }
    ASSERT_EQ(links, 1);
    EXPECT_TRUE(s->compiled);
    EXPECT_EQ(inUse, static_cast<GLint>(s->program)) << "the hook runs with the program in use";
    EXPECT_TRUE(diagnostics().empty());
    EXPECT_GE(s->location(ScnShader::ModelViewProjectionMatrix), 0);
    EXPECT_EQ(s->location(ScnShader::Time), -1);
    EXPECT_EQ(s->location(ScnShader::NormalMatrix), -1);

    ScnNode other;
    {
        ScnActionUpdate foreign(false, &other.name);
        foreign.apply(&group);
    }
    EXPECT_EQ(links, 1) << "a field of another node leaves the program";
    s->name = "renamed";
    {
        ScnActionUpdate own(false, &s->name);
        own.apply(&group);
    }
    EXPECT_EQ(links, 2) << "changing the name rebuilds";
    {
        ScnActionDestroy destroy;
        destroy.apply(&group);
    }
    EXPECT_EQ(s->program, 0u);
    EXPECT_EQ(s->location(ScnShader::ModelViewProjectionMatrix), -1);
}

TEST_F(Shader, SetProgramLoadsOnlyTheFilesThatExist)
{
    TempDir ws("velmora-shaders");
    std::filesystem::path cwd = std::filesystem::current_path();
    ASSERT_TRUE(AppGlobal::setProjectPath(ws.path()));
    std::filesystem::create_directories(ws / "shaders/sub");
    std::ofstream(ws / "shaders/sub/x.frag") << colourFragment(0, 0, 1);

    std::unique_ptr<ScnNode> made(ScnShader::factory());
    auto& s = static_cast<ScnShader&>(*made);
    const std::string vertexBefore = s.vertex.value, geometryBefore = s.geometry.value;
    lua_State* L = AppGlobal::luaState();
    ASSERT_TRUE(ScnLua::createLuaObject(L, &s));
    ASSERT_TRUE(ScnLua::setGlobalNode(L, "s", &s));
    // With the editor's separator.
    const std::string id = eval(L, "s:setProgram('sub\\\\x') return s:glId()");
    EXPECT_EQ(id, std::to_string(s.program));
    EXPECT_EQ(s.fragment.value, colourFragment(0, 0, 1));
    EXPECT_EQ(s.vertex.value, vertexBefore);
    EXPECT_EQ(s.geometry.value, geometryBefore);
    EXPECT_NE(s.program, 0u) << "setProgram builds";
    EXPECT_NE(eval(L, "s:setProgram(3)").find("string expected"), std::string::npos);
    ScnLua::clearGlobalNode(L, "s");
    ScnLua::releaseLuaObject(L, &s);
    std::filesystem::current_path(cwd);
}
