// The scene classes in files: every class's payload against bytes laid out
// by hand from its field list (order, widths, defaults), round trips through
// object and application files under the class's own name, the aliases, and
// where each class stands in the registry.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "compute/OclPlugin.h"
#include "node/ScnNode.h"
#include "render/ScnBuffers.h"
#include "render/ScnCameraExamine.h"
#include "render/ScnViewpoint.h"
#include "render/ScnDeferredPointLight.h"
#include "render/ScnDeferredSpotLight.h"
#include "render/ScnLightbuffer.h"
#include "render/ScnFramebuffer.h"
#include "render/ScnShader.h"
#include "render/ScnTest.h"
#include "render/ScnText.h"
#include "render/ScnTexture.h"
#include "render/ScnInstance.h"
#include "render/ScnTransform.h"
#include "render/SnsKeyboardSensor.h"
#include "runtime/RtnApplication.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A payload written value by value, little-endian, with no padding.
struct Payload {
    Bytes b;
    Payload& raw(const void* p, size_t n)
    {
        const auto* c = static_cast<const uint8_t*>(p);
        b.insert(b.end(), c, c + n);
        return *this;
    }
    Payload& u8(uint8_t v) { return raw(&v, 1); }
    Payload& u32(uint32_t v) { return raw(&v, 4); }
    Payload& i32(int32_t v) { return raw(&v, 4); }
    Payload& f32(float v) { return raw(&v, 4); }
    Payload& f64(double v) { return raw(&v, 8); }
    Payload& str(const std::string& s) { return u32(static_cast<uint32_t>(s.size())).raw(s.data(), s.size()); }
    Payload& colour(float r, float g, float b, float a) { return f32(r).f32(g).f32(b).f32(a); }
    Payload& matrix(std::initializer_list<double> m)
    {
        for (double v : m) f64(v);
        return *this;
    }
    Payload& translation(double x, double y, double z)
    {
        return matrix({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1});
    }
    Payload& words(uint32_t a, uint32_t b2, uint32_t c, uint32_t d) { return u32(a).u32(b2).u32(c).u32(d); }
    // stride, type, the element's name in 100 bytes, ten property names of
    // 100 bytes each, count.
    Payload& ply(int32_t stride, int32_t type, const std::string& element, std::vector<std::string> props, int32_t count)
    {
        i32(stride).i32(type);
        fixed(element);
        props.resize(10);
        for (const std::string& p : props) fixed(p);
        return i32(count);
    }
    Payload& fixed(const std::string& s)
    {
        Bytes f(100, 0);
        std::memcpy(f.data(), s.data(), s.size());
        return raw(f.data(), f.size());
    }
    // A node record of a child list: class name, payload size, payload.
    Payload& record(const std::string& cls, const Payload& p)
    {
        return str(cls).u32(static_cast<uint32_t>(p.b.size())).raw(p.b.data(), p.b.size());
    }
    // An inline shader (ScnSFNode<ScnShader>): name, three texts, three ints, a bool.
    Payload& shader(const std::string& name, const ScnShader& s, int32_t in = 0, int32_t out = 0, int32_t count = 1,
                    bool geom = false)
    {
        return str(name).str(s.vertex.value).str(s.fragment.value).str(s.geometry.value).i32(in).i32(out).i32(count).u8(geom);
    }
    Payload& pointLight(const std::string& name, const ScnShader& direct)
    {
        return str(name).u8(1).colour(1, 1, 1, 1).colour(0, 0, 0, 1).colour(1, 1, 1, 1).f32(6).f32(1).f32(2).shader("glShader", direct);
    }
};

Bytes bytesOf(const ScnNode& n)
{
    ScnOutStream out;
    n.write(out);
    return out.bytes();
}

// The byte where two payloads first differ, for messages.
size_t firstDifference(const Bytes& a, const Bytes& b)
{
    size_t i = 0;
    while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
    return i;
}

// A class with every field away from its default, and the bytes those values
// must give.
struct Case {
    const char* cls;
    std::function<ScnNode*()> make;
    std::function<Bytes(const ScnNode&)> expected;
};

ScnMatrix16 distinctMatrix(double base)
{
    ScnMatrix16 m;
    for (int i = 0; i < 16; ++i) m.m[i] = base + i * 0.5;
    return m;
}

Payload& distinct(Payload& p, double base)
{
    for (int i = 0; i < 16; ++i) p.f64(base + i * 0.5);
    return p;
}

ScnText* text(const char* name, const char* value)
{
    auto* t = new ScnText();
    t->name = name;
    t->text = value;
    return t;
}

std::vector<Case> cases()
{
    std::vector<Case> c;
    c.push_back({"ScnTransform",
                 [] {
                     auto* t = new ScnTransform();
                     t->name = "arm";
                     t->worldmatrix = distinctMatrix(2);
                     t->append(text("label", "hi"));
                     return t;
                 },
                 [](const ScnNode&) {
                     Payload child;
                     child.str("label").str("hi").f32(14);
                     Payload p;
                     p.str("arm").u32(1).record("ScnText", child);
                     return distinct(p, 2).b;
                 }});
    c.push_back({"ScnInstance",
                 [] {
                     auto* n = new ScnInstance();
                     n->name = "wheel";
                     n->path = "parts/wheel.3Do";
                     n->transform = distinctMatrix(-3);
                     return n;
                 },
                 [](const ScnNode&) {
                     Payload p;
                     p.str("parts/wheel.3Do").str("wheel");  // the path goes first
                     return distinct(p, -3).b;
                 }});
    c.push_back({"ScnText",
                 [] {
                     auto* t = text("title", "Velmora\n2");
                     t->scalar = 3.5f;
                     return t;
                 },
                 [](const ScnNode&) { return Payload().str("title").str("Velmora\n2").f32(3.5f).b; }});
    c.push_back({"ScnTest",
                 [] {
                     auto* t = new ScnTest();
                     t->name = "cloud";
                     return t;
                 },
                 [](const ScnNode&) { return Payload().str("cloud").b; }});
    c.push_back({"SnsKeyboardSensor",
                 [] {
                     auto* s = new SnsKeyboardSensor();
                     s->name = "keys";
                     s->map.values[119] = 1;
                     s->map.values[255] = 7;
                     return s;
                 },
                 [](const ScnNode&) {
                     Payload p;
                     p.str("keys").u32(256);
                     for (int k = 0; k < 256; ++k) p.u32(k == 119 ? 1 : k == 255 ? 7 : 0);
                     return p.b;
                 }});
    c.push_back({"ScnViewpoint",
                 [] {
                     auto* v = new ScnViewpoint();
                     v->name = "front";
                     v->fov = 0.5f;
                     v->aspect = 2.0f;
                     v->farPlane = 300.0f;
                     v->nearPlane = 0.25f;
                     return v;
                 },
                 [](const ScnNode&) { return Payload().str("front").f32(0.5f).f32(2).f32(300).f32(0.25f).b; }});
    c.push_back({"ScnCamera",
                 [] {
                     auto* cam = new ScnCamera();
                     cam->name = "side";
                     cam->fov = 0.75f;
                     cam->aspect = 1.5f;
                     cam->farPlane = 900.0f;
                     cam->nearPlane = 0.5f;
                     cam->visible = false;
                     auto* fb = new ScnFramebuffer();
                     fb->flags = ScnTextureFlags{{2, 0, 0, 0}};  // what a read leaves
                     cam->append(fb);
                     return cam;
                 },
                 [](const ScnNode&) {
                     Payload fb;
                     fb.str("framebuffer").u32(0).i32(1024).i32(768).i32(2).u32(4277).u32(4317).words(2, 0, 0, 0);
                     Payload p;
                     p.str("side").u32(1).record("ScnFramebuffer", fb).f32(0.75f).f32(1.5f).f32(900).f32(0.5f).u8(0);
                     return p.b;
                 }});
    c.push_back({"ScnCameraExamine",
                 [] {
                     auto* cam = new ScnCameraExamine();
                     cam->fov = 0.75f;
                     cam->speed = 4.0f;
                     cam->matrix = distinctMatrix(1);
                     cam->light.node.range = 50.0f;
                     return cam;
                 },
                 [](const ScnNode& n) {
                     const auto& cam = static_cast<const ScnCameraExamine&>(n);
                     Payload p;
                     p.str("Camera").u32(0).f32(0.75f).f32(1.33333f).f32(5000).f32(0.1f).u8(1).f32(4);
                     distinct(p, 1);
                     p.str("light").u8(1).colour(1, 1, 1, 1).colour(0, 0, 0, 1).colour(1, 1, 1, 1).f32(50).f32(1).f32(2);
                     return p.shader("glShader", cam.light.node.direct.node).b;
                 }});
    c.push_back({"ScnLightbuffer",
                 [] {
                     auto* lb = new ScnLightbuffer();
                     lb->name = "lights";
                     lb->shaders.append(ScnShader::factory());
                     lb->width = 640;
                     lb->height = 480;
                     lb->attachment = 4;
                     lb->format = ScnImageFormat{0x10B6, 0x10DE};
                     // A read always leaves 2 in the first word: only 2 survives a round trip.
                     lb->flags = ScnTextureFlags{{2, 11, 12, 13}};
                     lb->lighting.node.name = "combine";
                     lb->lighting.node.fragment = "void main() {}";
                     lb->lighting.node.vertexcount = 3;
                     return lb;
                 },
                 [](const ScnNode& n) {
                     const auto& lb = static_cast<const ScnLightbuffer&>(n);
                     Payload sh;
                     sh.shader("glShader", *static_cast<ScnShader*>(lb.shaders.first()));
                     Payload p;
                     p.str("lights").u32(1).record("ScnShader", sh).i32(640).i32(480).i32(4).u32(0x10B6).u32(0x10DE);
                     p.words(2, 11, 12, 13);
                     return p.shader("combine", lb.lighting.node, 0, 0, 3).b;
                 }});
    c.push_back({"ScnTexture2D",
                 [] {
                     auto* t = new ScnTexture2D();
                     t->name = "wood";
                     t->extension = "data/wood.png";
                     t->stack = false;
                     t->pbo = true;
                     t->dim0 = "640";
                     t->dim1 = "h * 2";
                     t->source = 2;
                     t->flags = ScnTextureFlags{{6, 7, 8, 9}};
                     t->format = ScnImageFormat{0x10B6, 0x10DE};
                     return t;
                 },
                 [](const ScnNode&) {
                     return Payload().str("wood").str("data/wood.png").u8(0).u8(1).str("640").str("h * 2").u8(2)
                         .words(6, 7, 8, 9).u32(0x10B6).u32(0x10DE).b;
                 }});
    c.push_back({"ScnTexture3D",
                 [] {
                     auto* t = new ScnTexture3D();
                     t->name = "volume";
                     t->file = "data/head.vol";
                     t->dimX = "128";
                     t->dimY = "96";
                     t->dimZ = "n";
                     t->source = 3;
                     t->flags = ScnTextureFlags{{2, 0, 5, 0}};
                     t->format = ScnImageFormat{0x10B0, 0x10DE};
                     return t;
                 },
                 [](const ScnNode&) {
                     return Payload().str("volume").str("data/head.vol").str("128").str("96").str("n").u8(3)
                         .words(2, 0, 5, 0).u32(0x10B0).u32(0x10DE).b;
                 }});
    c.push_back({"ScnBufferArray",
                 [] {
                     auto* a = new ScnBufferArray();
                     a->name = "points";
                     a->primitive = 5;
                     auto* attr = new ScnBufferAttrib();
                     attr->name = "gs_Vertex";
                     a->append(attr);
                     return a;
                 },
                 [](const ScnNode&) {
                     Payload attr;
                     attr.str("gs_Vertex").i32(5126).str("256*4").str("").ply(4, 0, "", {}, 0);
                     return Payload().str("points").u32(1).record("ScnBufferAttrib", attr).i32(5).b;
                 }});
    c.push_back({"ScnBufferElement",
                 [] {
                     auto* e = new ScnBufferElement();
                     e->name = "mesh";
                     e->primitive = 1;
                     e->dim = "faces * 3";
                     e->indecies.values = {0, 1, 2, 70000};
                     e->data = "bunny.ply";
                     ScnPlyLoadInfo info;
                     info.stride = 1;
                     info.type = 5;
                     std::strcpy(info.element, "face");
                     std::strcpy(info.property[0], "vertex_indices");
                     info.count = 1;
                     e->source = info;
                     return e;
                 },
                 [](const ScnNode&) {
                     return Payload().str("mesh").u32(0).i32(1).str("faces * 3").u32(4).u32(0).u32(1).u32(2).u32(70000)
                         .str("bunny.ply").ply(1, 5, "face", {"vertex_indices"}, 1).b;
                 }});
    c.push_back({"ScnBufferAttrib",
                 [] {
                     auto* a = new ScnBufferAttrib();
                     a->name = "gs_Color";
                     a->type = 5121;
                     a->dim0 = "n";
                     a->path = "bunny.ply";
                     ScnPlyLoadInfo info;
                     info.stride = 3;
                     info.type = 1;
                     std::strcpy(info.element, "vertex");
                     std::strcpy(info.property[0], "red");
                     std::strcpy(info.property[1], "green");
                     std::strcpy(info.property[9], "blue");
                     info.count = 3;
                     a->source = info;
                     return a;
                 },
                 [](const ScnNode&) {
                     std::vector<std::string> props = {"red", "green", "", "", "", "", "", "", "", "blue"};
                     return Payload().str("gs_Color").i32(5121).str("n").str("bunny.ply").ply(3, 1, "vertex", props, 3).b;
                 }});
    c.push_back({"OclPlugin",
                 [] {
                     auto* p = new OclPlugin();
                     p->name = "sorter";
                     p->typeName = "sort.radix";
                     return p;
                 },
                 [](const ScnNode&) { return Payload().str("sorter").str("sort.radix").b; }});
    return c;
}

}  // namespace

TEST(SceneClassFiles, EveryFieldIsWrittenInItsOrderAndWidthAndReadsBackUnderItsClass)
{
    for (const Case& c : cases()) {
        SCOPED_TRACE(c.cls);
        std::unique_ptr<ScnNode> node(c.make());
        ASSERT_STREQ(node->getType()->name, c.cls);
        const Bytes want = c.expected(*node);
        const Bytes got = bytesOf(*node);
        EXPECT_EQ(got, want) << "first difference at byte " << firstDifference(got, want);

        // The hand-made bytes read into a node made by class name, and give
        // the same bytes again.
        bool known = false;
        std::unique_ptr<ScnNode> back(ScnNodeRegistry::create(c.cls, &known));
        ASSERT_TRUE(known);
        ASSERT_EQ(back->getType(), node->getType());
        ScnInStream in(want);
        back->read(in);
        EXPECT_FALSE(in.failed()) << in.error();
        EXPECT_TRUE(in.atEnd()) << "stopped at " << in.tell() << " of " << want.size();
        EXPECT_EQ(bytesOf(*back), want);

        // A copy for the editor keeps every value.
        std::unique_ptr<ScnNode> copy(node->duplicate());
        EXPECT_EQ(copy->getType(), node->getType());
        EXPECT_EQ(bytesOf(*copy), want);
    }
}

TEST(SceneClassFiles, FieldValuesAfterAReadAreTheOnesLaidOut)
{
    // Bytes of equal width in swapped places would still give the same bytes
    // back; the values tell them apart.
    for (const Case& c : cases()) {
        std::unique_ptr<ScnNode> made(c.make());
        std::unique_ptr<ScnNode> back(ScnNodeRegistry::create(c.cls));
        Bytes b = c.expected(*made);
        ScnInStream in(b);
        back->read(in);
        ASSERT_EQ(back->fieldCount(), made->fieldCount()) << c.cls;
        for (int i = 0; i < made->fieldCount(); ++i)
            EXPECT_EQ(back->field(i)->toText(), made->field(i)->toText()) << c.cls << "." << made->field(i)->name();
    }
}

TEST(SceneClassFiles, FreshNodesWriteTheirDefaults)
{
    // Shaders held by value carry the texts of their files, where the
    // workspace has them: those texts are taken from the nodes.
    ScnDeferredPointLight point;
    const ScnShader& pointShader = point.direct.node;
    struct Default {
        ScnNode* node;
        Bytes want;
    };
    ScnLightbuffer lightbuffer;
    ScnDeferredSpotLight spot;
    ScnCameraExamine examine;
    std::vector<Default> all;
    auto add = [&](ScnNode* n, const Payload& p) { all.push_back({n, p.b}); };
    add(new ScnTransform(), Payload().str("transform").u32(0).translation(0, 0, 0));
    add(new ScnInstance(), Payload().str("").str("instance").translation(0, 0, 0));
    add(new ScnText(), Payload().str("Text").str("Text..").f32(14));
    add(new ScnTest(), Payload().str("Test"));
    {
        Payload p;
        p.str("keyboard").u32(256);
        for (int k = 0; k < 256; ++k) p.u32(0);
        add(new SnsKeyboardSensor(), p);
    }
    add(new ScnViewpoint(), Payload().str("viewpoint").f32(1.0471976f).f32(1).f32(10).f32(0.1f));
    add(new ScnCamera(), Payload().str("camera").u32(0).f32(1.0471976f).f32(1.33333f).f32(5000).f32(0.1f).u8(1));
    {
        Payload p;
        p.str("Camera").u32(0).f32(1.0471976f).f32(1.33333f).f32(5000).f32(0.1f).u8(1).f32(1).translation(0, 0, 12);
        p.pointLight("light", examine.light.node.direct.node);
        all.push_back({new ScnCameraExamine(), p.b});
    }
    add(new ScnFramebuffer(),
        Payload().str("framebuffer").u32(0).i32(1024).i32(768).i32(2).u32(4277).u32(4317).words(1, 0, 0, 0));
    add(new ScnLightbuffer(), Payload().str("lighbuffer").u32(0).i32(1024).i32(768).i32(3).u32(4277).u32(4317)
                                  .words(9, 0, 0, 0).shader("lighting", lightbuffer.lighting.node));
    add(new ScnDeferredPointLight(), Payload().pointLight("pointlight", pointShader));
    add(new ScnDeferredSpotLight(), Payload().pointLight("spotlight", spot.direct.node).f32(0.96f));
    add(new ScnTexture2D(), Payload().str("glTexture2D").str("").u8(1).u8(0).str("256").str("256").u8(0)
                                .words(1, 0, 0, 0).u32(4277).u32(4306));
    add(new ScnTexture3D(), Payload().str("glTexture3D").str("").str("64").str("64").str("64").u8(0)
                                .words(1, 0, 0, 0).u32(4277).u32(4306));
    add(new ScnBufferArray(), Payload().str("glDrawArrays").u32(0).i32(0));
    add(new ScnBufferElement(),
        Payload().str("glDrawElements").u32(0).i32(4).str("256").u32(0).str("").ply(4, 0, "", {}, 0));
    add(new ScnBufferAttrib(), Payload().str("glVertexAttrib").i32(5126).str("256*4").str("").ply(4, 0, "", {}, 0));
    add(new OclPlugin(), Payload().str("node").str(""));

    for (Default& d : all) {
        std::unique_ptr<ScnNode> n(d.node);
        Bytes got = bytesOf(*n);
        EXPECT_EQ(got, d.want) << n->getType()->name << ": first difference at byte " << firstDifference(got, d.want);
        // The factory that files use makes the same node.
        std::unique_ptr<ScnNode> made(n->getType()->factory());
        EXPECT_EQ(bytesOf(*made), d.want) << n->getType()->name;
    }
    // The size expressions of new buffers have the values their texts give.
    EXPECT_EQ(ScnBufferAttrib().dim0.number, 1024);
    EXPECT_EQ(ScnBufferElement().dim.number, 256);
    EXPECT_EQ(ScnTexture3D().dimZ.number, 64);
    // The head light and the combiner come with their shader files.
    EXPECT_EQ(examine.light.node.direct.node.sourceName(), "deferred\\lighting\\pointLight");
    EXPECT_EQ(lightbuffer.lighting.node.sourceName(), "deferred\\lighting\\combiner");
    EXPECT_EQ(spot.direct.node.sourceName(), "deferred\\lighting\\spotLight");
}

TEST(SceneClassFiles, ObjectAndApplicationFilesKeepEveryClassByteForByte)
{
    std::vector<Case> all = cases();
    for (const Case& c : all) {
        SCOPED_TRACE(c.cls);
        std::unique_ptr<ScnNode> node(c.make());
        ScnOutStream out;
        scnWriteObject(out, *node);
        std::string error;
        std::unique_ptr<ScnNode> back(scnReadObject(out.bytes(), "object.3Do", error));
        ASSERT_TRUE(back) << error;
        EXPECT_EQ(back->getType(), node->getType());
        ScnOutStream again;
        scnWriteObject(again, *back);
        EXPECT_EQ(again.bytes(), out.bytes());
    }

    // Every class in the world branch, one inside another where the class is a
    // group, plus a viewpoint under the camera.
    RtnApplication app;
    ScnGroup& world = app.openGL.node;
    ScnGroup* holder = nullptr;
    for (const Case& c : all) {
        ScnNode* n = c.make();
        if (holder)
            holder->append(n);
        else
            world.append(n);
        if (auto* g = dynamic_cast<ScnGroup*>(n); g && !n->isInstanceWrapper()) holder = g;
    }
    app.camera.node.append(new ScnViewpoint());
    RtnMFRef::s_root = &app;
    const Bytes first = app.toBytes();
    std::string error;
    std::unique_ptr<RtnApplication> back(RtnApplication::readBytes(first, "all.3Dm", error));
    RtnMFRef::s_root = nullptr;
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(back->toBytes(), first) << "first difference at byte " << firstDifference(back->toBytes(), first);

    // The same classes in the same places.
    std::vector<const ScnNodeType*> want, got;
    auto collect = [](ScnNode* n, std::vector<const ScnNodeType*>& out, auto& self) -> void {
        for (; n; n = n->next()) {
            out.push_back(n->getType());
            self(n->getChild(0), out, self);
        }
    };
    collect(world.getChild(0), want, collect);
    collect(back->openGL.node.getChild(0), got, collect);
    EXPECT_EQ(got, want);
    // With the children that the transform, the camera, the light buffer and
    // the array bring along.
    EXPECT_EQ(want.size(), all.size() + 4);
    ASSERT_EQ(back->camera.node.childCount(), 2);
    EXPECT_EQ(back->camera.node.getChild(1)->getType(), &ScnViewpoint::s_type);
}

TEST(SceneClassFiles, AliasesReadAsTheirClassesAndAreWrittenUnderTheClassName)
{
    bool known = false;
    std::unique_ptr<ScnNode> t(ScnNodeRegistry::create("ScnTexture", &known));
    EXPECT_TRUE(known);
    EXPECT_EQ(t->getType(), &ScnTexture2D::s_type);
    std::unique_ptr<ScnNode> v(ScnNodeRegistry::create("ScnBufferVertex", &known));
    EXPECT_TRUE(known);
    EXPECT_EQ(v->getType(), &ScnBufferArray::s_type);

    // A group whose children were stored under the old names.
    Payload tex;
    tex.str("old").str("a.png").u8(1).u8(0).str("8").str("8").u8(2).words(1, 0, 0, 0).u32(4277).u32(4306);
    Payload arr;
    arr.str("draw").u32(0).i32(6);
    Payload object;
    object.str("ScnGroup").str("g").u32(2).record("ScnTexture", tex).record("ScnBufferVertex", arr);
    std::string error;
    std::unique_ptr<ScnNode> g(scnReadObject(object.b, "old.3Do", error));
    ASSERT_TRUE(g) << error;
    ASSERT_EQ(g->childCount(), 2);
    auto* texture = dynamic_cast<ScnTexture2D*>(g->getChild(0));
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(texture->extension.value, "a.png");
    EXPECT_EQ(texture->source.value, 2);
    auto* array = dynamic_cast<ScnBufferArray*>(g->getChild(1));
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(array->primitive.value, 6);

    Payload now;
    now.str("ScnGroup").str("g").u32(2).record("ScnTexture2D", tex).record("ScnBufferArray", arr);
    ScnOutStream out;
    scnWriteObject(out, *g);
    EXPECT_EQ(out.bytes(), now.b);
}

TEST(SceneClassFiles, ClassesStandUnderTheirParentsWithTheirCategories)
{
    struct Row {
        const ScnNodeType* type;
        const ScnNodeType* parent;
        uint32_t category;
    };
    const Row rows[] = {
        {&ScnTransform::s_type, &ScnMatrix::s_type, 2},
        {&ScnInstance::s_type, &ScnGroup::s_type, 2},
        {&ScnText::s_type, &ScnNode::s_type, 2},
        {&ScnTest::s_type, &ScnNode::s_type, 2},
        {&SnsKeyboardSensor::s_type, &ScnNode::s_type, 16},
        {&ScnViewpoint::s_type, &ScnNode::s_type, 2},
        {&ScnCamera::s_type, &ScnGroup::s_type, 2},
        {&ScnCameraExamine::s_type, &ScnCamera::s_type, 2},
        {&ScnTexture2D::s_type, &ScnNode::s_type, 4},
        {&ScnTexture3D::s_type, &ScnNode::s_type, 4},
        {&ScnFramebuffer::s_type, &ScnNode::s_type, 4},
        {&ScnLightbuffer::s_type, &ScnFramebuffer::s_type, 4},
        {&ScnBufferElement::s_type, &ScnGroup::s_type, 2},
        {&ScnBufferArray::s_type, &ScnGroup::s_type, 2},
        {&ScnBufferAttrib::s_type, &ScnNode::s_type, 2},
        {&ScnDeferredPointLight::s_type, &ScnDeferredLight::s_type, 2},
        {&ScnDeferredSpotLight::s_type, &ScnDeferredLight::s_type, 2},
        {&OclPlugin::s_type, &ScnNode::s_type, 64},
    };
    for (const Row& r : rows) {
        ASSERT_NE(r.type->name, nullptr);
        SCOPED_TRACE(r.type->name);
        EXPECT_EQ(ScnNodeRegistry::parentOf(*r.type), r.parent);
        EXPECT_EQ(r.type->category, r.category);
        EXPECT_NE(r.type->luaClassRef, 0) << "no script class";
        EXPECT_EQ(ScnNodeRegistry::find(r.type->name), r.type);
    }
}
