// Geometry buffers: vertices a kernel wrote, drawn by the scene walk, land on
// the pixel the camera's matrices give; attributes reach the shader by name;
// index buffers draw with the primitive of the node; sizes come from
// expressions; the random fill and the PLY fill give the values they should.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "compute/OclGlobal.h"
#include "compute/OclLua.h"
#include "compute/oclObject.h"
#include "memory/MemGLObjects.h"
#include "memory/MemSource.h"
#include "memory/MemTypes.h"
#include "node/ScnMFFunction.h"
#include "platform/DynLib.h"
#include "render/ScnBuffers.h"
#include "render/ScnCamera.h"
#include "render/ScnWorld.h"
#include "runtime/ScnLua.h"
#include "RenderSupport.h"

namespace {

// The colour comes from an attribute whose location (0) is not that of the
// node order, where gs_Vertex comes first.
const char* const kColourVertex =
    "#version 330\nlayout(location = 0) in vec4 gs_Color;\nlayout(location = 1) in vec4 gs_Vertex;\n"
    "uniform mat4 gs_ModelViewProjectionMatrix;\nout vec4 colour;\n"
    "void main() { colour = gs_Color; gl_Position = gs_ModelViewProjectionMatrix * gs_Vertex; }\n";
const char* const kColourFragment = "#version 330\nin vec4 colour;\nout vec4 outColor;\nvoid main() { outColor = colour; }\n";

const char* const kMoveKernel =
    "__kernel void place(__global float4* p) {\n"
    "  int i = get_global_id(0);\n"
    "  p[i] = (float4)(-0.6f + 0.4f * i, 0.3f - 0.2f * i, -1.0f - 0.5f * i, 1.0f);\n}\n";

std::string runLua(const std::string& code)
{
    lua_State* L = AppGlobal::luaState();
    if (luaL_dostring(L, code.c_str()) == 0) return "";
    std::string e = lua_tostring(L, -1);
    lua_pop(L, 1);
    return e;
}

void setGlobal(const char* name, oclObject* object)
{
    lua_State* L = AppGlobal::luaState();
    if (object) OclLua::push(L, object);
    else lua_pushnil(L);
    lua_setglobal(L, name);
}

// Where a node reads its values in a PLY file.
ScnPlyLoadInfo plyColumns(const char* element, std::initializer_list<const char*> properties, int stride)
{
    ScnPlyLoadInfo info;
    info.stride = stride;
    std::strcpy(info.element, element);
    int i = 0;
    for (const char* p : properties) std::strcpy(info.property[i++], p);
    info.count = i;
    return info;
}

ScnBufferAttrib* attrib(const char* name, const char* dim0, int components = 4, int type = GL_FLOAT)
{
    auto* a = new ScnBufferAttrib;
    a->name = name;
    a->dim0 = dim0;
    a->type.value = type;
    ScnPlyLoadInfo info;
    info.stride = components;
    a->source = info;
    return a;
}

template <class T>
std::vector<T> contents(MemTypeGLBuffer* b)
{
    std::vector<T> v(b->dim(0) / sizeof(T));
    if (!b->map(CL_MAP_READ, 0)) return {};
    std::memcpy(v.data(), b->data, v.size() * sizeof(T));
    b->unmap(0);
    return v;
}

template <class T>
void fill(MemTypeGLBuffer* b, const std::vector<T>& v)
{
    ASSERT_TRUE(b->map(CL_MAP_WRITE, 0));
    std::memcpy(b->data, v.data(), std::min(v.size() * sizeof(T), b->dim(0)));
    b->unmap(0);
}

// The pixel a point of the world lands on under the camera: clip space from
// the camera's projection and view matrices, then the viewport.
struct Spot {
    int x, y;
};
Spot project(const ScnCamera& cam, double x, double y, double z, int width, int height)
{
    const double p[4] = {x, y, z, 1};
    double e[4], c[4];
    for (int r = 0; r < 4; ++r) {
        e[r] = 0;
        for (int k = 0; k < 4; ++k) e[r] += cam.inverseMatrix.m[k * 4 + r] * p[k];
    }
    for (int r = 0; r < 4; ++r) {
        c[r] = 0;
        for (int k = 0; k < 4; ++k) c[r] += cam.projection[k * 4 + r] * e[k];
    }
    return Spot{static_cast<int>(std::floor((c[0] / c[3] * 0.5 + 0.5) * width)),
                static_cast<int>(std::floor((c[1] / c[3] * 0.5 + 0.5) * height))};
}

// The frame's pixels (bottom row first) and a look-up that tolerates the
// rounding of a point's centre by one pixel.
struct Frame {
    std::vector<uint8_t> pixels;
    int width = 0, height = 0;
    const uint8_t* at(int x, int y) const
    {
        if (x < 0 || y < 0 || x >= width || y >= height) return nullptr;
        return pixels.data() + (static_cast<size_t>(y) * width + x) * 4;
    }
    bool litNear(Spot s, int r, int g, int b) const
    {
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                const uint8_t* p = at(s.x + dx, s.y + dy);
                if (p && std::abs(p[0] - r) <= 2 && std::abs(p[1] - g) <= 2 && std::abs(p[2] - b) <= 2) return true;
            }
        return false;
    }
    int countLit() const
    {
        int n = 0;
        for (size_t i = 0; i < pixels.size(); i += 4) n += pixels[i] || pixels[i + 1] || pixels[i + 2];
        return n;
    }
};

class Buffers : public GlTest {
protected:
    void SetUp() override
    {
        GlTest::SetUp();
        m_cl = OclGlobal::currentContext();
        GlContext* c = GlContext::active();
        m_width = c->width();
        m_height = c->height();
        // A camera off the axis, turned a little about y: a wrong view or
        // projection matrix moves every point.
        const double a = 0.2;
        ScnMatrix16 m;
        m.m[0] = std::cos(a), m.m[2] = -std::sin(a);
        m.m[8] = std::sin(a), m.m[10] = std::cos(a);
        m.m[12] = 0.3, m.m[13] = -0.1, m.m[14] = 2.0;
        m_camera.setMatrix(m);
        m_camera.aspect = static_cast<float>(m_width) / static_cast<float>(m_height);
        m_camera.refreshProjection();
    }
    void TearDown() override
    {
        setGlobal("k", nullptr);
        setGlobal("v", nullptr);
        if (m_root.childCount()) {
            ScnActionDestroy destroy;
            destroy.apply(&m_root);
        }
        m_kernel.reset();
        m_program.reset();
    }

    void create()
    {
        ScnActionCreate create(m_cl);
        create.apply(&m_root);
    }

    Frame render()
    {
        GlContext* c = GlContext::active();
        glViewport(0, 0, m_width, m_height);
        glClearColor(0, 0, 0, 1);
        glEnable(GL_DEPTH_TEST);
        glPointSize(3);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        ScnActionRender action(&m_camera, m_width, m_height);
        action.apply(&m_root);
        glPointSize(1);
        c->swapBuffers();
        Frame f;
        f.pixels = c->readFrame();
        f.width = c->width();
        f.height = c->height();
        return f;
    }

    oclKernel* kernel(const char* source, const char* name)
    {
        m_program = std::make_unique<oclProgram>(m_cl, "buffers");
        m_program->addSource(source);
        if (m_program->build() != 1) return nullptr;
        cl_kernel k = clCreateKernel(m_program->handle(), name, &oclLastError);
        if (oclLastError != CL_SUCCESS) return nullptr;
        m_kernel = std::make_unique<oclKernel>(m_program.get(), k);
        clReleaseKernel(k);
        return m_kernel.get();
    }

    ScnGroup m_root;
    ScnCamera m_camera;
    oclContext* m_cl = nullptr;
    int m_width = 0, m_height = 0;
    std::unique_ptr<oclProgram> m_program;
    std::unique_ptr<oclKernel> m_kernel;
};

// The PLY plug-in of the build, opened in the process's state as the
// start-up scan would find it in a workspace.
void loadPlyPlugin()
{
    static bool loaded = false;
    if (loaded) return;
    loaded = true;
    lua_State* L = AppGlobal::luaState();
    ASSERT_NE(L, nullptr);
    DynLib::Library lib;
    ASSERT_TRUE(lib.open(VELMORA_PLY_PLUGIN)) << lib.error();
    auto open = reinterpret_cast<lua_CFunction>(lib.symbol("lib_open"));
    ASSERT_NE(open, nullptr);
    lib.release();
    ASSERT_EQ(lua_cpcall(L, open, const_cast<char*>("ply")), 0);
    MemSource::registerSources(L);
}

}  // namespace

TEST_F(Buffers, VerticesAKernelWroteAreDrawnOnThePixelsTheCameraGives)
{
    ASSERT_NE(m_cl, nullptr) << "no OpenCL platform on this machine";
    m_root.append(colourShader("points", 0, 1, 0));
    static_cast<ScnShader*>(m_root.getChild(0))->vertex = kMvpVertex;
    auto* array = new ScnBufferArray;
    ScnBufferAttrib* vertices = attrib("gs_Vertex", "4");
    array->append(vertices);
    m_root.append(array);
    create();
    ASSERT_NE(vertices->buffer(), nullptr);
    EXPECT_EQ(vertices->buffer()->dim(0), 4u * 16u) << "four float4 vertices";

    oclKernel* k = kernel(kMoveKernel, "place");
    ASSERT_NE(k, nullptr);
    setGlobal("v", vertices->buffer());
    setGlobal("k", k);
    ASSERT_EQ(runLua("cl.clEnqueueAcquireGLObjects(v)\n"
                     "cl.clSetKernelArg(k, 0, v)\n"
                     "cl.clEnqueueNDRangeKernel(k, 1, {4})\n"
                     "cl.clEnqueueReleaseGLObjects(v)"),
              "");

    const Frame f = render();
    for (int i = 0; i < 4; ++i) {
        const Spot s = project(m_camera, -0.6 + 0.4 * i, 0.3 - 0.2 * i, -1.0 - 0.5 * i, m_width, m_height);
        ASSERT_TRUE(s.x > 1 && s.y > 1 && s.x < m_width - 2 && s.y < m_height - 2) << "point " << i << " in view";
        EXPECT_TRUE(f.litNear(s, 0, 255, 0)) << "point " << i << " at " << s.x << ", " << s.y;
    }
    // Four points of about 3 by 3 pixels and nothing else: the random fill is gone.
    EXPECT_LE(f.countLit(), 4 * 16);
    EXPECT_GE(f.countLit(), 4 * 4);
}

TEST_F(Buffers, AttributesReachTheShaderByTheirNodeNames)
{
    auto* shader = new ScnShader;
    shader->name = "coloured";
    shader->vertex = kColourVertex;
    shader->fragment = kColourFragment;
    m_root.append(shader);
    auto* array = new ScnBufferArray;
    ScnBufferAttrib* vertices = attrib("gs_Vertex", "2");
    ScnBufferAttrib* colours = attrib("gs_Color", "2");
    // Not in the program: nothing is set for it and the draw goes on.
    ScnBufferAttrib* unused = attrib("gs_Unused", "2");
    array->append(vertices);
    array->append(unused);
    array->append(colours);
    m_root.append(array);
    create();
    fill<float>(vertices->buffer(), {0.5f, 0.25f, -1.5f, 1, -0.5f, -0.25f, -2.5f, 1});
    fill<float>(colours->buffer(), {1, 0, 1, 1, 0, 1, 1, 1});

    Frame f = render();
    const Spot a = project(m_camera, 0.5, 0.25, -1.5, m_width, m_height);
    const Spot b = project(m_camera, -0.5, -0.25, -2.5, m_width, m_height);
    EXPECT_TRUE(f.litNear(a, 255, 0, 255)) << "magenta at " << a.x << ", " << a.y;
    EXPECT_TRUE(f.litNear(b, 0, 255, 255)) << "cyan at " << b.x << ", " << b.y;

    // A hidden attribute sets nothing: without colours the points are black.
    colours->setEnabled(false);
    f = render();
    EXPECT_FALSE(f.litNear(a, 255, 0, 255));
    EXPECT_FALSE(f.litNear(b, 0, 255, 255));
}

TEST_F(Buffers, IndexBuffersDrawWithTheNodesPrimitive)
{
    m_root.append(colourShader("flat", 1, 1, 0));
    static_cast<ScnShader*>(m_root.getChild(0))->vertex = kMvpVertex;
    auto* element = new ScnBufferElement;
    element->dim = "6";
    ScnBufferAttrib* corners = attrib("gs_Vertex", "4");
    element->append(corners);
    m_root.append(element);
    create();
    ASSERT_NE(element->buffer(), nullptr);
    EXPECT_EQ(element->buffer()->dim(0), 6u * 4u) << "six cl_uint indices";
    EXPECT_EQ(contents<uint32_t>(element->buffer()), std::vector<uint32_t>(6, 0)) << "made with zeros";
    // A square of side 1 around the point the camera sees at (0, 0, -1).
    fill<float>(corners->buffer(), {-0.5f, -0.5f, -1, 1, 0.5f, -0.5f, -1, 1, 0.5f, 0.5f, -1, 1, -0.5f, 0.5f, -1, 1});
    const Spot centre = project(m_camera, 0, 0, -1, m_width, m_height);
    const Spot edge = project(m_camera, 0.5, 0.1, -1, m_width, m_height);

    EXPECT_EQ(render().countLit(), 0) << "six times index 0 draws nothing";
    fill<uint32_t>(element->buffer(), {0, 1, 2, 2, 3, 0});
    Frame f = render();
    EXPECT_TRUE(f.litNear(centre, 255, 255, 0)) << "GL_TRIANGLES fills the square";
    EXPECT_TRUE(f.litNear(edge, 255, 255, 0));

    element->primitive.value = 2;  // GL_LINE_LOOP: the same indices go round the border
    f = render();
    EXPECT_FALSE(f.litNear(centre, 255, 255, 0)) << "lines leave the middle";
    EXPECT_TRUE(f.litNear(edge, 255, 255, 0)) << "and draw the border";
}

TEST_F(Buffers, SizesComeFromExpressionsAndTheRandomFillKeepsItsRanges)
{
    ASSERT_EQ(runLua("PARTICLE_ROWS = 7"), "");
    auto* array = new ScnBufferArray;
    ScnBufferAttrib* positions = attrib("gs_Vertex", "PARTICLE_ROWS * 3");
    ScnBufferAttrib* colours = attrib("gs_Color", "21");
    ScnBufferAttrib* bytes = attrib("gs_Color", "8", 4, GL_UNSIGNED_BYTE);
    ScnBufferAttrib* shorts = attrib("gs_Normal", "8", 2, GL_SHORT);
    ScnBufferAttrib* broken = attrib("gs_Broken", "PARTICLE_ROWS *", 1);
    for (ScnNode* n : std::initializer_list<ScnNode*>{positions, colours, bytes, shorts, broken}) array->append(n);
    m_root.append(array);
    create();

    EXPECT_EQ(positions->dim0.number, 21);
    ASSERT_EQ(positions->buffer()->dim(0), 21u * 16u);
    const std::vector<float> p = contents<float>(positions->buffer());
    const std::vector<float> c = contents<float>(colours->buffer());
    bool spread = false;
    for (size_t i = 0; i < p.size(); ++i) {
        if ((i + 1) % 4 == 0) {
            EXPECT_EQ(p[i], 1.0f) << "w is 1";
            EXPECT_EQ(c[i], 1.0f) << "alpha is 1";
            continue;
        }
        EXPECT_GE(p[i], -0.5f);
        EXPECT_LE(p[i], 0.5f);
        EXPECT_GE(c[i], 0.0f) << "colours have no offset";
        EXPECT_LE(c[i], 1.0f);
        spread |= p[i] < -0.05f || c[i] > 0.55f;
    }
    EXPECT_TRUE(spread) << "random values, not one constant";

    EXPECT_EQ(bytes->buffer()->proxy->typeCode(), static_cast<uint32_t>(MemTypes::UChar4));
    const std::vector<uint8_t> b = contents<uint8_t>(bytes->buffer());
    ASSERT_EQ(b.size(), 32u);
    for (size_t i = 3; i < b.size(); i += 4) EXPECT_EQ(b[i], 255) << "alpha at full scale";

    EXPECT_EQ(shorts->buffer()->proxy->typeCode(), static_cast<uint32_t>(MemTypes::Short2));
    const std::vector<int16_t> s = contents<int16_t>(shorts->buffer());
    ASSERT_EQ(s.size(), 16u);
    for (size_t i = 0; i < s.size(); ++i) {
        if ((i + 1) % 4 == 0) EXPECT_EQ(s[i], 16129) << "every fourth component, across vertices";
        else EXPECT_LE(std::abs(s[i]), 16129 / 2 + 1);
    }

    EXPECT_EQ(broken->dim0.number, 1024) << "a failing expression falls back on the default";
    EXPECT_EQ(broken->buffer()->proxy->typeCode(), static_cast<uint32_t>(MemTypes::Float));
    EXPECT_EQ(broken->buffer()->dim(0), 1024u * 4u);

    // The element types of the pairs the table leaves out.
    EXPECT_EQ(ScnBufferAttrib::elementType(GL_FLOAT, 3), static_cast<uint32_t>(MemTypes::Float4));
    EXPECT_EQ(ScnBufferAttrib::elementType(GL_HALF_FLOAT, 1), static_cast<uint32_t>(MemTypes::Half));
    EXPECT_EQ(ScnBufferAttrib::elementType(GL_UNSIGNED_INT, 2), static_cast<uint32_t>(MemTypes::UInt2));

    // Only the first attribute of a draw has a box.
    const ScnBox box = positions->computeBounds();
    ASSERT_FALSE(box.isEmpty());
    for (int k = 0; k < 3; ++k) {
        double lo = 1, hi = -1;
        for (size_t v = 0; v < 21; ++v) {
            lo = std::min<double>(lo, p[v * 4 + k]);
            hi = std::max<double>(hi, p[v * 4 + k]);
        }
        EXPECT_EQ(box.min[k], lo);
        EXPECT_EQ(box.max[k], hi);
    }
    EXPECT_TRUE(colours->computeBounds().isEmpty());
}

TEST_F(Buffers, ScriptsGetTheBufferItsSizeAndResizeIt)
{
    auto* array = new ScnBufferArray;
    ScnBufferAttrib* positions = attrib("gs_Vertex", "6");
    auto* element = new ScnBufferElement;
    element->dim = "9";
    array->append(positions);
    m_root.append(array);
    m_root.append(element);
    lua_State* L = AppGlobal::luaState();
    ASSERT_TRUE(ScnLua::createLuaObject(L, positions) && ScnLua::createLuaObject(L, element));
    ASSERT_TRUE(ScnLua::setGlobalNode(L, "a", positions) && ScnLua::setGlobalNode(L, "e", element));
    EXPECT_EQ(eval(L, "return tostring(a:getBuffer())"), "nil") << "nil before create";
    create();
    EXPECT_EQ(eval(L, "v = a:getBuffer() return mem.dim(v, 0) .. ' ' .. a:dim(0)"), "6 6");
    EXPECT_EQ(eval(L, "a:setSize(11) return e:dim(0) .. ' ' .. e:glId()"),
              "9 " + std::to_string(element->buffer()->glId));
    EXPECT_EQ(positions->dim0.number, 11);
    EXPECT_EQ(positions->buffer()->dim(0), 11u * 16u);
    // The argument errors, raised as Lua errors inside a protected call.
    EXPECT_NE(eval(L, "a:dim(1)").find("0 expected"), std::string::npos);
    EXPECT_NE(eval(L, "a:dim('x')").find("number expected"), std::string::npos);
    EXPECT_NE(eval(L, "a:setSize('x')").find("(number)"), std::string::npos);
    EXPECT_EQ(positions->dim0.number, 11) << "a refused size changes nothing";
    eval(L, "v = nil");
    ScnLua::clearGlobalNode(L, "a");
    ScnLua::clearGlobalNode(L, "e");

    // An edit of one of the node's own fields makes the buffer again; the
    // primitive is only read at the draw, so its edit keeps the indices.
    auto update = [&](auto* field) {
        ScnActionUpdate u(false, field);
        u.apply(&m_root);
    };
    positions->dim0 = "5";
    update(&positions->dim0);
    EXPECT_EQ(positions->buffer()->dim(0), 5u * 16u);
    fill<uint32_t>(element->buffer(), std::vector<uint32_t>(9, 7));
    element->primitive.value = 1;
    update(&element->primitive);
    EXPECT_EQ(contents<uint32_t>(element->buffer()), std::vector<uint32_t>(9, 7));
    element->dim = "3";
    update(&element->dim);
    EXPECT_EQ(contents<uint32_t>(element->buffer()), std::vector<uint32_t>(3, 0));
}

TEST_F(Buffers, PlyFilesFillVerticesAndIndices)
{
    loadPlyPlugin();
    TempDir ws("velmora-buffers");
    // Opening a workspace moves into it; the tests after this one start
    // where this one did, before the folder goes.
    struct Back {
        std::filesystem::path cwd = std::filesystem::current_path();
        ~Back() { std::filesystem::current_path(cwd); }
    } back;
    ASSERT_TRUE(AppGlobal::setProjectPath(ws.path()));
    {
        std::ofstream out(ws.path() + "/tri.ply");
        out << "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
               "property uchar red\nelement face 2\nproperty list uchar int vertex_indices\nend_header\n"
               "1.5 -2 0.25 10\n-3 4 0.5 20\n0 0.5 -1 30\n3 0 1 2\n3 2 1 0\n";
    }
    auto* element = new ScnBufferElement;
    element->dim = "6";
    element->data = "tri.ply";
    element->source = plyColumns("face", {"vertex_indices"}, 0);
    ScnBufferAttrib* vertices = attrib("gs_Vertex", "3", 3);
    vertices->path = "tri.ply";
    vertices->source = plyColumns("vertex", {"x", "y", "z"}, 3);
    ScnBufferAttrib* reds = attrib("gs_Red", "3", 1, GL_UNSIGNED_BYTE);
    reds->path = "tri.ply";
    reds->source = plyColumns("vertex", {"red"}, 1);
    ScnBufferAttrib* homogeneous = attrib("gs_Position", "3", 4);
    homogeneous->path = "tri.ply";
    homogeneous->source = plyColumns("vertex", {"x", "y", "z"}, 4);
    ScnBufferAttrib* missing = attrib("gs_Missing", "5", 2);
    missing->path = "absent.ply";
    element->append(vertices);
    element->append(reds);
    element->append(homogeneous);
    element->append(missing);
    m_root.append(element);
    create();

    EXPECT_EQ(contents<uint32_t>(element->buffer()), (std::vector<uint32_t>{0, 1, 2, 2, 1, 0}));
    const std::vector<float> v = contents<float>(vertices->buffer());
    ASSERT_EQ(v.size(), 12u) << "three float4 elements hold three packed vertices of three";
    const std::vector<float> expected{1.5f, -2, 0.25f, -3, 4, 0.5f, 0, 0.5f, -1};
    EXPECT_EQ(std::vector<float>(v.begin(), v.begin() + 9), expected);
    const std::vector<uint8_t> r = contents<uint8_t>(reds->buffer());
    ASSERT_EQ(r.size(), 3u);
    EXPECT_EQ(r, (std::vector<uint8_t>{10, 20, 30}));

    EXPECT_EQ(contents<float>(homogeneous->buffer()),
              (std::vector<float>{1.5f, -2, 0.25f, 1, -3, 4, 0.5f, 1, 0, 0.5f, -1, 1}))
        << "three columns into four components: w is 1";

    const ScnBox box = vertices->computeBounds();
    EXPECT_EQ((std::vector<double>{box.min[0], box.min[1], box.min[2], box.max[0], box.max[1], box.max[2]}),
              (std::vector<double>{-3, -2, -1, 1.5, 4, 0.5}));

    EXPECT_EQ(missing->buffer()->dim(0), 5u * 8u) << "a missing file keeps the size";
    bool reported = false;
    for (const LogRecord& rec : Channels::drainMerged())
        reported |= std::string(rec.text).find("absent.ply") != std::string::npos;
    EXPECT_TRUE(reported) << "the missing file is named";
}

TEST_F(Buffers, ASizeBeyondWhatABufferMayHoldIsRefusedAndDrawsNothing)
{
    // 2^31 - 1 vertices of four floats: 32 GB asked for by one expression.
    m_root.append(colourShader("flat", 1, 1, 0));
    auto* array = new ScnBufferArray;
    ScnBufferAttrib* huge = attrib("gs_Vertex", "2^31 - 1");
    array->append(huge);
    m_root.append(array);
    Channels::clearAll();
    create();
    const std::vector<LogRecord> said = Channels::drainMerged();
    ASSERT_FALSE(said.empty());
    EXPECT_NE(std::string(said[0].text).find("bytes is larger than the 2048 MB a buffer may have"), std::string::npos)
        << said[0].text;
    EXPECT_EQ(huge->buffer()->glId, 0u);
    // The draw takes no vertices from an attribute without storage.
    const Frame f = render();
    EXPECT_EQ(std::count(f.pixels.begin(), f.pixels.end(), 255), static_cast<long>(f.pixels.size() / 4))
        << "only the alpha of a black view";
}
