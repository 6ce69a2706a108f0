#include <cstdio>

#include "node/ScnStream.h"
#include "render/ScnShader.h"
#include "render/ScnWorld.h"
#include "runtime/AppGlobal.h"

// -- ScnWorld -------------------------------------------------------------------

ScnNodeType ScnWorld::s_type;

ScnWorld::ScnWorld()
{
    name = "OpenGL";
}

// -- ScnShader ------------------------------------------------------------------

ScnNodeType ScnShader::s_type;

const char* const ScnShader::kDefaultVertex =
    "#version 330\n\nuniform mat4 gs_ModelViewProjectionMatrix;\n\nin vec4 gs_Vertex;\n\n\nvoid main (void)\n{\n"
    "\tgl_Position = gs_ModelViewProjectionMatrix * gs_Vertex;\n}";
const char* const ScnShader::kDefaultGeometry =
    "#version 330\n#extension GL_EXT_geometry_shader4 : enable\n\n\n\nvoid main()\n{\n"
    "\tfor(int i = 0; i < gl_VerticesIn; i++)\n\t{\n\t\tgl_Position = gl_PositionIn[i];\n\t\tEmitVertex();\n\t}\n}";
const char* const ScnShader::kDefaultFragment =
    "#version 330\n\nout vec4 outColor;\n\nvoid main (void)\n{\n\toutColor = vec4(0,1,0,1);\n}";

ScnShader::ScnShader()
{
    name = "glShader";
}

ScnNode* ScnShader::factory()
{
    auto* s = new ScnShader();
    s->vertex = kDefaultVertex;
    s->geometry = kDefaultGeometry;
    s->fragment = kDefaultFragment;
    return s;
}

void ScnShader::read(ScnInStream& in)
{
    ScnField::Mode m = ScnFile::formatVersion < 1013 ? ScnField::NotRead : ScnField::ReadWrite;
    inputtype.mode = outputtype.mode = vertexcount.mode = usegeom.mode = m;
    ScnNode::read(in);
}

static bool readText(const std::string& path, std::string& out)
{
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    std::string text;
    char buf[8192];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
    bool ok = !std::ferror(f);
    std::fclose(f);
    if (ok) out.swap(text);
    return ok;
}

void ScnShader::loadSources(const std::string& sourceName)
{
    m_sourceName = sourceName;
    std::string base = sourceName;
    for (char& c : base)
        if (c == '\\') c = '/';
    base = AppGlobal::projectPath() + "/shaders/" + base;
    readText(base + ".vert", vertex.value);
    readText(base + ".frag", fragment.value);
    readText(base + ".geom", geometry.value);
}
