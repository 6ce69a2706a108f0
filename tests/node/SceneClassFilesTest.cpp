// The scene classes in files: fixed bytes for each kind of payload layout,
// round trips under the class's own name for every class, and the aliases.
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
    Payload& str(const std::string& s) { return u32(static_cast<uint32_t>(s.size())).raw(s.data(), s.size()); }
    Payload& words(uint32_t a, uint32_t b2, uint32_t c, uint32_t d) { return u32(a).u32(b2).u32(c).u32(d); }
    Payload& distinct(double base)
    {
        for (int i = 0; i < 16; ++i) {
            double v = base + i * 0.5;
            raw(&v, 8);
        }
        return *this;
    }
    // A name in a fixed block of 100 bytes.
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
    // An inline shader: name, three texts, three ints, a bool.
    Payload& shader(const std::string& name, const ScnShader& s, int32_t count = 1)
    {
        return str(name).str(s.vertex.value).str(s.fragment.value).str(s.geometry.value).i32(0).i32(0).i32(count).u8(0);
    }
};

Bytes bytesOf(const ScnNode& n)
{
    ScnOutStream out;
    n.write(out);
    return out.bytes();
}

size_t firstDifference(const Bytes& a, const Bytes& b)
{
    size_t i = 0;
    while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
    return i;
}

ScnMatrix16 distinctMatrix(double base)
{
    ScnMatrix16 m;
    for (int i = 0; i < 16; ++i) m.m[i] = base + i * 0.5;
    return m;
}

template <class T>
T* named(const char* name)
{
    auto* n = new T();
    n->name = name;
    return n;
}

// A class with fields away from their defaults; where given, the bytes that
// the file layout prescribes for them.
struct Case {
    const char* cls;
    std::function<ScnNode*()> make;
    std::function<Bytes(const ScnNode&)> golden;
};

std::vector<Case> cases()
{
    std::vector<Case> c;
    // A child list with one record, a float and a matrix after the children.
    c.push_back({"ScnTransform",
                 [] {
                     auto* t = named<ScnTransform>("arm");
                     t->worldmatrix = distinctMatrix(2);
                     auto* label = named<ScnText>("label");
                     label->text = "hi";
                     t->append(label);
                     return t;
                 },
                 [](const ScnNode&) {
                     Payload child;
                     child.str("label").str("hi").f32(14);
                     return Payload().str("arm").u32(1).record("ScnText", child).distinct(2).b;
                 }});
    // The path goes before the name.
    c.push_back({"ScnInstance",
                 [] {
                     auto* n = named<ScnInstance>("wheel");
                     n->path = "parts/wheel.3Do";
                     n->transform = distinctMatrix(-3);
                     return n;
                 },
                 [](const ScnNode&) { return Payload().str("parts/wheel.3Do").str("wheel").distinct(-3).b; }});
    // Inline shaders, image formats and texture flags.
    c.push_back({"ScnLightbuffer",
                 [] {
                     auto* lb = named<ScnLightbuffer>("lights");
                     lb->shaders.append(ScnShader::factory());
                     lb->width = 640;
                     lb->height = 480;
                     lb->attachment = 4;
                     lb->format = ScnImageFormat{0x10B6, 0x10DE};
                     lb->flags = ScnTextureFlags{{2, 11, 12, 13}};  // a read always leaves 2 in the first word
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
                     return p.words(2, 11, 12, 13).shader("combine", lb.lighting.node, 3).b;
                 }});
    // A counted list of numbers and a load description of fixed-size names.
    c.push_back({"ScnBufferElement",
                 [] {
                     auto* e = named<ScnBufferElement>("mesh");
                     e->primitive = 1;
                     e->dim = "faces * 3";
                     e->indecies.values = {0, 1, 2, 70000};
                     e->data = "bunny.ply";
                     ScnPlyLoadInfo info;
                     info.stride = 1;
                     info.type = 5;
                     std::strcpy(info.element, "face");
                     std::strcpy(info.property[0], "vertex_indices");
                     std::strcpy(info.property[9], "last");
                     info.count = 1;
                     e->source = info;
                     return e;
                 },
                 [](const ScnNode&) {
                     Payload p;
                     p.str("mesh").u32(0).i32(1).str("faces * 3").u32(4).u32(0).u32(1).u32(2).u32(70000).str("bunny.ply");
                     p.i32(1).i32(5).fixed("face").fixed("vertex_indices");
                     for (int i = 1; i < 9; ++i) p.fixed("");
                     return p.fixed("last").i32(1).b;
                 }});
    // Round trips only.
    auto only = [&c](const char* cls, std::function<ScnNode*()> make) { c.push_back({cls, std::move(make), nullptr}); };
    only("ScnText", [] { return named<ScnText>("title"); });
    only("ScnTest", [] { return named<ScnTest>("cloud"); });
    only("SnsKeyboardSensor", [] {
        auto* s = named<SnsKeyboardSensor>("keys");
        s->map.values[119] = 1, s->map.values[255] = 7;
        return s;
    });
    only("ScnViewpoint", [] {
        auto* v = named<ScnViewpoint>("front");
        v->fov = 0.5f, v->nearPlane = 0.25f;
        return v;
    });
    only("ScnCamera", [] {
        auto* cam = named<ScnCamera>("side");
        cam->farPlane = 900.0f, cam->visible = false;
        auto* fb = new ScnFramebuffer();
        fb->flags = ScnTextureFlags{{2, 0, 0, 0}};
        cam->append(fb);
        return cam;
    });
    only("ScnCameraExamine", [] {
        auto* cam = new ScnCameraExamine();
        cam->speed = 4.0f, cam->matrix = distinctMatrix(1), cam->light.node.range = 50.0f;
        return cam;
    });
    only("ScnTexture2D", [] {
        auto* t = named<ScnTexture2D>("wood");
        t->extension = "data/wood.png", t->pbo = true, t->dim1 = "h * 2", t->source = 2;
        t->flags = ScnTextureFlags{{6, 7, 8, 9}};
        return t;
    });
    only("ScnTexture3D", [] {
        auto* t = named<ScnTexture3D>("volume");
        t->dimZ = "n", t->source = 3;
        return t;
    });
    only("ScnBufferArray", [] {
        auto* a = named<ScnBufferArray>("points");
        a->primitive = 5;
        a->append(named<ScnBufferAttrib>("gs_Vertex"));
        return a;
    });
    only("ScnBufferAttrib", [] {
        auto* a = named<ScnBufferAttrib>("gs_Color");
        a->type = 5121;
        ScnPlyLoadInfo info;
        info.stride = 3;
        std::strcpy(info.property[9], "blue");
        a->source = info;
        return a;
    });
    only("OclPlugin", [] {
        auto* p = named<OclPlugin>("sorter");
        p->typeName = "sort.radix";
        return p;
    });
    return c;
}

}  // namespace

TEST(SceneClassFiles, PayloadsHaveTheirLaidOutBytesAndReadBackUnderTheirClass)
{
    for (const Case& c : cases()) {
        SCOPED_TRACE(c.cls);
        std::unique_ptr<ScnNode> node(c.make());
        ASSERT_STREQ(node->getType()->name, c.cls);
        const Bytes got = bytesOf(*node);
        const Bytes want = c.golden ? c.golden(*node) : got;
        if (c.golden) EXPECT_EQ(got, want) << "first difference at byte " << firstDifference(got, want);

        bool known = false;
        std::unique_ptr<ScnNode> back(ScnNodeRegistry::create(c.cls, &known));
        ASSERT_TRUE(known);
        ASSERT_EQ(back->getType(), node->getType());
        ScnInStream in(want);
        back->read(in);
        EXPECT_FALSE(in.failed()) << in.error();
        EXPECT_TRUE(in.atEnd()) << "stopped at " << in.tell() << " of " << want.size();
        EXPECT_EQ(bytesOf(*back), want);
        // Fields of one width in swapped places give the same bytes; the values tell them apart.
        ASSERT_EQ(back->fieldCount(), node->fieldCount());
        for (int i = 0; i < node->fieldCount(); ++i)
            EXPECT_EQ(back->field(i)->toText(), node->field(i)->toText()) << node->field(i)->name();

        std::unique_ptr<ScnNode> copy(node->duplicate());
        EXPECT_EQ(copy->getType(), node->getType());
        EXPECT_EQ(bytesOf(*copy), want);
    }
    // Size expressions of new buffers hold the values their texts give.
    EXPECT_EQ(ScnBufferAttrib().dim0.number, 1024);
    EXPECT_EQ(ScnTexture3D().dimZ.number, 64);
}

TEST(SceneClassFiles, AnApplicationFileKeepsEveryClassByteForByteInItsPlace)
{
    std::vector<Case> all = cases();
    // Every class in the world branch, one inside another where the class is a
    // group, plus a viewpoint under the camera.
    RtnApplication app;
    ScnGroup& world = app.openGL.node;
    ScnGroup* holder = nullptr;
    for (const Case& c : all) {
        ScnNode* n = c.make();
        (holder ? holder : &world)->append(n);
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
    // With the children that the transform, the camera, the light buffer and the array bring along.
    EXPECT_EQ(want.size(), all.size() + 4);
    ASSERT_EQ(back->camera.node.childCount(), 2);
    EXPECT_EQ(back->camera.node.getChild(1)->getType(), &ScnViewpoint::s_type);
}

TEST(SceneClassFiles, AliasesReadAsTheirClassesAndAreWrittenUnderTheClassName)
{
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

TEST(SceneClassFiles, ClassesStandUnderTheirParents)
{
    // Script methods and isA follow this chain: a transform that no longer
    // stood under the matrix would lose the matrix's methods.
    const std::pair<const ScnNodeType*, const ScnNodeType*> rows[] = {
        {&ScnTransform::s_type, &ScnMatrix::s_type},       {&ScnInstance::s_type, &ScnGroup::s_type},
        {&ScnText::s_type, &ScnNode::s_type},              {&ScnTest::s_type, &ScnNode::s_type},
        {&SnsKeyboardSensor::s_type, &ScnNode::s_type},    {&ScnViewpoint::s_type, &ScnNode::s_type},
        {&ScnCamera::s_type, &ScnGroup::s_type},           {&ScnCameraExamine::s_type, &ScnCamera::s_type},
        {&ScnTexture2D::s_type, &ScnNode::s_type},         {&ScnTexture3D::s_type, &ScnNode::s_type},
        {&ScnFramebuffer::s_type, &ScnNode::s_type},       {&ScnLightbuffer::s_type, &ScnFramebuffer::s_type},
        {&ScnBufferElement::s_type, &ScnGroup::s_type},    {&ScnBufferArray::s_type, &ScnGroup::s_type},
        {&ScnBufferAttrib::s_type, &ScnNode::s_type},      {&OclPlugin::s_type, &ScnNode::s_type},
        {&ScnDeferredPointLight::s_type, &ScnDeferredLight::s_type},
        {&ScnDeferredSpotLight::s_type, &ScnDeferredLight::s_type},
    };
    for (auto [type, parent] : rows) {
        EXPECT_EQ(ScnNodeRegistry::parentOf(*type), parent) << type->name;
        EXPECT_EQ(ScnNodeRegistry::find(type->name), type);
    }
}
