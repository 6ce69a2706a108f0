// Texture nodes in an open document: a quad drawn through them shows the
// picture a test wrote, upright and on the units the shader names; every
// kind of source fills the texture with the file's size and values; missing
// and damaged files are reported and leave the node usable; the script
// methods.
#include <stb/stb_image_write.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "compute/OclGlobal.h"
#include "memory/MemGlobal.h"
#include "memory/SourceFiles.h"
#include "render/ScnTexture.h"
#include "runtime/CmdNodes.h"
#include "RenderSupport.h"

namespace {

// uv runs from 0 at the bottom left of the view to 1 at its top right.
const char* const kUvVertex =
    "#version 330\nin vec4 gs_Vertex;\nout vec2 uv;\nvoid main()\n{\n    uv = gs_Vertex.xy * 0.5 + 0.5;\n"
    "    gl_Position = gs_Vertex;\n}\n";

ScnShader* samplingShader(const char* name, const char* body)
{
    return shader(name, kUvVertex, std::string("#version 330\nin vec2 uv;\nout vec4 outColor;\n") + body);
}

ScnTexture2D* texture2D(const char* name, const char* file, char source, const char* w = "4", const char* h = "4",
                        uint32_t flags = MemTextureFlags::Nearest)
{
    auto* t = new ScnTexture2D;
    t->setName(name);
    t->extension = file;
    t->source = source;
    t->dim0 = w;
    t->dim1 = h;
    t->flags = ScnTextureFlags{{flags, 0, 0, 0}};
    return t;
}

bool near(int a, int b, int tolerance = 12)
{
    return std::abs(a - b) <= tolerance;
}

sources::Rgb frameColour(int i)
{
    return {30 + 50 * i, 200 - 40 * i, 90};
}

class Textures : public RenderDoc {
protected:
    void SetUp() override
    {
        RenderDoc::SetUp();
        if (HasFatalFailure()) return;
        sources::loadPlugins();
        std::filesystem::create_directories(m_ws / "data");
        Engine::lastTickTime = 0;
        Channels::clearAll();
    }

    // A picture of `w` by `h` in one colour.
    void solid(const char* file, int w, int h, uint8_t r, uint8_t g, uint8_t b)
    {
        std::vector<uint8_t> px(static_cast<size_t>(w) * h * 4);
        for (size_t i = 0; i < px.size(); i += 4) px[i] = r, px[i + 1] = g, px[i + 2] = b, px[i + 3] = 255;
        ASSERT_TRUE(stbi_write_png((m_ws / file).c_str(), w, h, 4, px.data(), w * 4));
    }

    // The nodes go into a group of the World, which the tests walk.
    void open(std::initializer_list<ScnNode*> nodes)
    {
        RtnApplication app;
        auto* group = new ScnGroup;
        group->setName("scene");
        for (ScnNode* n : nodes) group->append(n);
        app.openGL.node.append(group);
        openApp(app, true);
    }

    ScnGroup* scene() { return static_cast<ScnGroup*>(m_doc.application()->openGL.node.findChild("scene")); }

    template <class T>
    T* live(const char* name)
    {
        ScnNode* n = scene()->findChild(name);
        return n ? dynamic_cast<T*>(n->twin()) : nullptr;
    }

    // One render walk of the scene group into the view, on black.
    void render()
    {
        GlScope gl;
        ASSERT_TRUE(gl.ok());
        GlContext* c = GlContext::active();
        glViewport(0, 0, c->width(), c->height());
        glClearColor(0, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glDisable(GL_DEPTH_TEST);
        ScnActionRender action(nullptr, c->width(), c->height());
        action.apply(scene()->twin());
        glEnable(GL_DEPTH_TEST);
        EXPECT_EQ(action.nextTextureUnit, 0u) << "units are given back behind the walk";
        EXPECT_EQ(action.bindingCount(), 0) << "the bindings are left behind the walk";
    }

    // The unit that the sampler `uniform` of `shader` was set to.
    int unitOf(const char* shader, const char* uniform)
    {
        GlScope gl;
        auto* s = live<ScnShader>(shader);
        if (!s || !s->program) return -2;
        const GLint at = glGetUniformLocation(s->program, uniform);
        if (at < 0) return -3;
        GLint unit = -1;
        glGetUniformiv(s->program, at, &unit);
        return unit;
    }

    // The pixel at a fraction of the view, from its bottom left.
    static Pixel at(double fx, double fy)
    {
        GlContext* c = GlContext::active();
        return pixelAt(static_cast<int>(fx * c->width()), static_cast<int>(fy * c->height()));
    }

    static std::vector<uint8_t> bytesOf(oclMem* m)
    {
        std::vector<uint8_t> out;
        if (!m || !m->map(CL_MAP_READ, 0)) return out;
        out.assign(static_cast<const uint8_t*>(m->data), static_cast<const uint8_t*>(m->data) + m->proxy->byteSize());
        m->unmap(0);
        return out;
    }

};

}  // namespace

TEST_F(Textures, AQuadDrawnThroughTextureNodesShowsThePictureUprightOnTheUnitsTheShaderNames)
{
    // 4 by 4: red top left, green top right, blue bottom left, white bottom right.
    std::vector<uint8_t> px(4 * 4 * 4);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) {
            uint8_t* p = &px[(y * 4 + x) * 4];
            const bool top = y < 2, left = x < 2;
            p[0] = top && left ? 255 : !top && !left ? 255 : 0;
            p[1] = top && !left ? 255 : !top && !left ? 255 : 0;
            p[2] = !top ? 255 : 0;
            p[3] = 255;
        }
    ASSERT_TRUE(stbi_write_png((m_ws / "data/quadrants.png").c_str(), 4, 4, 4, px.data(), 16));
    solid("data/tint.png", 2, 2, 255, 128, 255);
    solid("data/unnamed.png", 2, 2, 9, 9, 9);

    // Ahead of the shader: bound through the bindings when the shader comes.
    // "unnamed" is in no sampler of the shader and takes no unit.
    open({texture2D("unnamed", "data/unnamed.png", 2, "2", "2"), texture2D("tint", "data/tint.png", 2, "2", "2"),
          texture2D("picture", "data/quadrants.png", 2),
          samplingShader("sampler", "uniform sampler2D picture;\nuniform sampler2D tint;\nvoid main()\n{\n"
                                    "    outColor = vec4(texture(picture, uv).rgb * texture(tint, uv).rgb, 1.0);\n}\n"),
          new TestQuad()});
    EXPECT_EQ(drain(), Lines{});
    render();
    EXPECT_EQ(unitOf("sampler", "tint"), 0);
    EXPECT_EQ(unitOf("sampler", "picture"), 1);
    const Pixel topLeft = at(0.25, 0.75), topRight = at(0.75, 0.75), bottomLeft = at(0.25, 0.25),
                bottomRight = at(0.75, 0.25);
    EXPECT_EQ(topLeft, (Pixel{255, 0, 0, 255}));
    EXPECT_TRUE(near(topRight[0], 0, 2) && near(topRight[1], 128, 2) && near(topRight[2], 0, 2))
        << topRight[0] << "," << topRight[1] << "," << topRight[2];
    EXPECT_EQ(bottomLeft, (Pixel{0, 0, 255, 255}));
    EXPECT_TRUE(near(bottomRight[0], 255, 2) && near(bottomRight[1], 128, 2) && near(bottomRight[2], 255, 2));

    // A hidden texture feeds no shader: its sampler reads an unbound unit.
    live<ScnTexture2D>("tint")->setEnabled(false);
    render();
    EXPECT_EQ(unitOf("sampler", "picture"), 0) << "the picture takes the first unit now";
    live<ScnTexture2D>("tint")->setEnabled(true);
}

TEST_F(Textures, ATextureThatDoesNotStackSharesTheUnitTakenLast)
{
    solid("data/red.png", 2, 2, 255, 0, 0);
    solid("data/green.png", 2, 2, 0, 255, 0);
    const char* body = "uniform sampler2D a;\nuniform sampler2D b;\nvoid main()\n{\n"
                       "    outColor = vec4(texture(a, uv).r, texture(b, uv).g, texture(a, uv).g, 1.0);\n}\n";
    // Behind the shader the textures bind at once. "b" does not stack: it
    // overrides "a" on unit 0, so both samplers read green.
    ScnTexture2D* b = texture2D("b", "data/green.png", 2, "2", "2");
    b->stack = false;
    open({samplingShader("sampler", body), texture2D("a", "data/red.png", 2, "2", "2"), b, new TestQuad()});
    EXPECT_EQ(drain(), Lines{});
    render();
    EXPECT_EQ(unitOf("sampler", "a"), 0);
    EXPECT_EQ(unitOf("sampler", "b"), 0);
    EXPECT_EQ(at(0.5, 0.5), (Pixel{0, 255, 255, 255}));

    // First in the walk, a texture that does not stack takes unit 0 and
    // leaves the next one at 0: the stacking texture after it takes 0 too.
    ScnTexture2D* first = texture2D("b", "data/green.png", 2, "2", "2");
    first->stack = false;
    open({samplingShader("sampler", body), first, texture2D("a", "data/red.png", 2, "2", "2"), new TestQuad()});
    render();
    EXPECT_EQ(unitOf("sampler", "a"), 0);
    EXPECT_EQ(unitOf("sampler", "b"), 0);
    EXPECT_EQ(at(0.5, 0.5), (Pixel{255, 0, 0, 255})) << "both read red, the texture bound last";
}

TEST_F(Textures, EachSourceFillsTheTextureWithTheFilesSizeFormatAndValues)
{
    // A 3 by 2 picture, every byte different.
    std::vector<uint8_t> px(3 * 2 * 4);
    for (size_t i = 0; i < px.size(); ++i) px[i] = static_cast<uint8_t>(11 + i * 9);
    ASSERT_TRUE(stbi_write_png((m_ws / "data/pic.png").c_str(), 3, 2, 4, px.data(), 12));
    std::string error;
    ASSERT_TRUE(sources::encodeVideo(m_ws / "data/clip.avi", 16, 16, 4, 25, frameColour, error)) << error;
    sources::writeBytes(m_ws / "data/cube.vol", "size 2 2 2\nchannels 1\ntype uint8\n");
    sources::writeBytes(m_ws / "data/cube.raw", std::string(8, '\x50'));
    auto* volume = new ScnTexture3D;
    volume->setName("cube");
    volume->file = "data/cube.vol";
    volume->source = 3;
    auto* empty = new ScnTexture3D;
    empty->setName("empty");
    ScnTexture2D* linear = texture2D("pic", "data/pic.png", 2, "3", "2", MemTextureFlags::Linear);
    ScnTexture2D* mip = texture2D("mip", "", 0, "8", "8", MemTextureFlags::Nearest | MemTextureFlags::Mipmaps);
    ScnTexture2D* bare = texture2D("bare", "", 3, "5", "7", MemTextureFlags::Linear | MemTextureFlags::NoPixelBuffer);
    open({linear, texture2D("clip", "data/clip.avi", 1, "16", "16"), volume, empty, mip, bare});
    EXPECT_EQ(drain(), Lines{});

    // The picture: its size and format, bottom row first.
    MemTypeImageTexture* pic = live<ScnTexture2D>("pic")->object();
    ASSERT_NE(pic, nullptr);
    EXPECT_EQ(pic->dim(0), 3u);
    EXPECT_EQ(pic->dim(1), 2u);
    cl_image_format f{};
    pic->format(&f);
    EXPECT_EQ(f.image_channel_order, static_cast<cl_uint>(CL_RGBA));
    EXPECT_EQ(f.image_channel_data_type, static_cast<cl_uint>(CL_UNORM_INT8));
    std::vector<uint8_t> bottomUp(px.begin() + 12, px.end());
    bottomUp.insert(bottomUp.end(), px.begin(), px.begin() + 12);
    EXPECT_EQ(bytesOf(pic), bottomUp);
    EXPECT_STREQ(pic->name(), "pic");
    EXPECT_NE(pic->pbo, 0u);
    EXPECT_EQ(live<ScnTexture2D>("bare")->object()->pbo, 0u) << "flag 8: no pixel buffer";
    EXPECT_EQ(live<ScnTexture2D>("bare")->memSource(), nullptr) << "source 3 makes no source object";
    EXPECT_EQ(live<ScnTexture2D>("bare")->object()->dim(1), 7u);

    // Filters by the flags, and the anisotropy of every scene texture.
    {
        GlScope gl;
        auto param = [](unsigned target, unsigned id, GLenum which) {
            GLint v = 0;
            glBindTexture(target, id);
            glGetTexParameteriv(target, which, &v);
            glBindTexture(target, 0);
            return v;
        };
        EXPECT_EQ(param(GL_TEXTURE_2D, pic->glId, GL_TEXTURE_MIN_FILTER), GL_LINEAR);
        EXPECT_EQ(param(GL_TEXTURE_2D, pic->glId, GL_TEXTURE_MAG_FILTER), GL_LINEAR);
        EXPECT_EQ(param(GL_TEXTURE_2D, pic->glId, GL_TEXTURE_WRAP_T), GL_CLAMP);
        const unsigned mipId = live<ScnTexture2D>("mip")->object()->glId;
        EXPECT_EQ(param(GL_TEXTURE_2D, mipId, GL_TEXTURE_MIN_FILTER), GL_LINEAR_MIPMAP_NEAREST);
        EXPECT_EQ(param(GL_TEXTURE_2D, mipId, GL_TEXTURE_MAG_FILTER), GL_LINEAR) << "OpenGL's default stays";
        if (MemGlobal::maxAnisotropy() > 1) {
            GLfloat a = 0;
            glBindTexture(GL_TEXTURE_2D, pic->glId);
            glGetTexParameterfv(GL_TEXTURE_2D, GL_TEXTURE_MAX_ANISOTROPY_EXT, &a);
            glBindTexture(GL_TEXTURE_2D, 0);
            EXPECT_EQ(a, static_cast<GLfloat>(std::min(16, MemGlobal::maxAnisotropy())));
        }
        const unsigned cubeId = live<ScnTexture3D>("cube")->object()->glId;
        EXPECT_EQ(param(GL_TEXTURE_3D, cubeId, GL_TEXTURE_WRAP_R), GL_CLAMP);
    }

    // The video: its first frame, then any frame by number.
    std::vector<uint8_t> frame = bytesOf(live<ScnTexture2D>("clip")->object());
    ASSERT_EQ(frame.size(), 16u * 16 * 4);
    const sources::Rgb c0 = frameColour(0);
    EXPECT_TRUE(near(frame[0], c0.r) && near(frame[1], c0.g) && near(frame[2], c0.b));
    lua("local v = OpenGL.scene.clip\n"
                  "count = v:getFrameCount()\n"
                  "v:stop()\n"
                  "v:setFrame(2)\n"
                  "at = v:getFrame()\n"
                  "playing = tostring(v:isPlaying())\n"
                  "local p = OpenGL.scene.pic\n"
                  "picCount = p:getFrameCount()\n"
                  "picFrame = select('#', p:getFrame())\n"
                  "emptyCount = OpenGL.scene.mip:getFrameCount()");
    EXPECT_EQ(global("count"), "4");
    EXPECT_EQ(global("at"), "2");
    EXPECT_EQ(global("playing"), "false");
    EXPECT_EQ(global("picCount"), "1");
    EXPECT_EQ(global("picFrame"), "0") << "an image has no frame number";
    EXPECT_EQ(global("emptyCount"), "0");
    frame = bytesOf(live<ScnTexture2D>("clip")->object());
    const sources::Rgb c2 = frameColour(2);
    EXPECT_TRUE(near(frame[0], c2.r) && near(frame[1], c2.g) && near(frame[2], c2.b))
        << int(frame[0]) << "," << int(frame[1]) << "," << int(frame[2]);

    EXPECT_EQ(live<ScnTexture3D>("empty")->object()->dim(0), 64u) << "the default size";
}

TEST_F(Textures, AMissingOrDamagedFileIsReportedAndTheNodeStaysUsable)
{
    std::vector<uint8_t> px(5 * 3 * 4, 77);
    ASSERT_TRUE(stbi_write_png((m_ws / "data/pic.png").c_str(), 5, 3, 4, px.data(), 20));
    const std::string whole = sources::readBytes(m_ws / "data/pic.png");
    sources::writeBytes(m_ws / "data/cut.png", whole.substr(0, whole.size() / 2));
    open({texture2D("missing", "data/missing.png", 2, "8", "8"), texture2D("cut", "data/cut.png", 2, "8", "8")});
    const Lines lines = drain();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].rfind("(image.so): ", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find("missing.png"), std::string::npos) << lines[0];
    EXPECT_EQ(lines[1].rfind("(image.so): unable to read image ", 0), 0u) << lines[1];
    EXPECT_NE(lines[1].find("cut.png"), std::string::npos) << lines[1];

    // Both keep a texture of the fields' size, and take a good file at once.
    for (const char* name : {"missing", "cut"}) {
        ScnTexture2D* t = live<ScnTexture2D>(name);
        ASSERT_NE(t->object(), nullptr) << name;
        EXPECT_NE(t->object()->glId, 0u) << name;
        EXPECT_EQ(t->object()->dim(0), 8u) << name;
    }
    lua("local t = OpenGL.scene.missing\n"
                  "t:setSource('data/pic.png')\n"
                  "local b = t:getBuffer()\n"
                  "w, h = mem.dim(b, 0), mem.dim(b, 1)\n"
                  "dw, dh = t:dim(0), t:dim(1)\n"
                  "id = t:glId()\n"
                  "local function fails(f, ...)\n"
                  "  local ok, e = pcall(f, t, ...)\n"
                  "  assert(not ok)\n"
                  "  return e\n"
                  "end\n"
                  "e1 = fails(t.setSource, 'data/gone.png')\n"
                  "e2 = fails(t.setSource, 'data/pic.xyz')\n"
                  "e3 = fails(t.setSource, 7)\n"
                  "e4 = fails(t.dim, 2)\n"
                  "e5 = fails(t.dim, 'x')\n"
                  "e6 = fails(t.setSize, 4, 'x')\n"
                  "e7 = fails(t.setFrame, 'x')\n"
                  "name = tostring(t)");
    EXPECT_EQ(global("w"), "5") << "the texture takes the file's size";
    EXPECT_EQ(global("h"), "3");
    EXPECT_EQ(global("dw"), "8") << "dim keeps the fields' size";
    EXPECT_EQ(global("dh"), "8");
    EXPECT_EQ(global("id"), std::to_string(live<ScnTexture2D>("missing")->object()->glId));
    EXPECT_EQ(bytesOf(live<ScnTexture2D>("missing")->object()), px);
    EXPECT_NE(global("e1").find("unable to read file data: data/gone.png"), std::string::npos) << global("e1");
    EXPECT_NE(global("e2").find("unsupported file format: data/pic.xyz"), std::string::npos) << global("e2");
    EXPECT_NE(global("e3").find("file expected"), std::string::npos) << global("e3");
    EXPECT_NE(global("e4").find("0 or 1 expected"), std::string::npos) << global("e4");
    EXPECT_NE(global("e5").find("number expected"), std::string::npos) << global("e5");
    EXPECT_NE(global("e6").find("number expected"), std::string::npos) << global("e6");
    EXPECT_NE(global("e7").find("positive number expected"), std::string::npos) << global("e7");
    EXPECT_EQ(global("name"), "ScnTexture2D (missing)");
    EXPECT_EQ(drain(), Lines{});

    // setSize keeps the expressions and resizes; a rebuild goes back to the fields.
    lua("OpenGL.scene.cut:setSize(6, 2)");
    ScnTexture2D* cut = live<ScnTexture2D>("cut");
    EXPECT_EQ(cut->object()->dim(0), 6u);
    EXPECT_EQ(cut->dim0.value, "8");
    cut->extension = "data/pic.png";
    m_doc.runtime()->update(cut, &cut->extension);
    EXPECT_EQ(cut->object()->dim(0), 8u);
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(Textures, ChangingOnlyTheSourceKindWaitsForTheNextRebuild)
{
    solid("data/red.png", 2, 2, 255, 0, 0);
    open({texture2D("other", "data/red.png", 0, "2", "2"), texture2D("t", "data/red.png", 0, "2", "2")});
    ScnTexture2D* t = live<ScnTexture2D>("t");
    MemTypeImageTexture* before = t->object();
    // An edit of another node's field of the same name passes by.
    ScnTexture2D* other = live<ScnTexture2D>("other");
    m_doc.runtime()->update(other, &other->extension);
    EXPECT_EQ(t->object(), before);
    EXPECT_NE(other->object(), nullptr);
    t->source = 2;
    m_doc.runtime()->update(t, &t->source);
    EXPECT_EQ(t->object(), before) << "the running texture stays";
    EXPECT_EQ(dynamic_cast<MemSourceImage*>(t->memSource()), nullptr);
    t->extension = "data/red.png";
    m_doc.runtime()->update(t, &t->extension);
    ASSERT_NE(dynamic_cast<MemSourceImage*>(t->memSource()), nullptr);
    const std::vector<uint8_t> bytes = bytesOf(t->object());
    ASSERT_EQ(bytes.size(), 16u);
    EXPECT_EQ(bytes[0], 255);
    EXPECT_EQ(bytes[1], 0);
    EXPECT_EQ(drain(), Lines{});
}
// The widget kit's loader: its good files are the icon atlas of the widget
// tests; a missing one is named and leaves a texture of the default size.
TEST_F(Textures, TheWidgetKitsLoaderNamesAMissingPictureAndGivesTheDefaultSize)
{
    const std::string missing = m_ws / "data/none.png";
    std::unique_ptr<MemTypeImageTexture> none(
        scnLoadTexture(missing.c_str(), MemTypeTexture2D::FLAGS{{MemTextureFlags::Linear, 0, 0, 0}}));
    ASSERT_NE(none, nullptr);
    EXPECT_EQ(none->dim(0), 64u);
    EXPECT_EQ(drain(), Lines{"(): Unable to read file " + missing});
}

TEST_F(Textures, APlayingVideoMovesOnWithTheClockAtEveryWorldEventSweep)
{
    std::string error;
    ASSERT_TRUE(sources::encodeVideo(m_ws / "data/clip.avi", 16, 16, 4, 25, frameColour, error)) << error;
    open({texture2D("clip", "data/clip.avi", 1, "16", "16")});
    EXPECT_EQ(drain(), Lines{});
    ScnTexture2D* clip = live<ScnTexture2D>("clip");
    auto* video = dynamic_cast<MemSourceVideo*>(clip->memSource());
    ASSERT_NE(video, nullptr);
    auto shows = [&](int frame) {
        const std::vector<uint8_t> b = bytesOf(clip->object());
        const sources::Rgb c = frameColour(frame);
        return b.size() == 16u * 16 * 4 && near(b[0], c.r) && near(b[1], c.g) && near(b[2], c.b);
    };
    m_clock.now = 1000;
    Engine::lastTickTime = 1000;
    // Stopped while the frame is chosen: a playing read would move on at once.
    lua("local v = OpenGL.scene.clip\nv:stop()\nv:setFrame(1)\nv:play()");
    // 80 ms at 40 a frame: the sweep reads frame 1, then stands two further on.
    m_clock.advance(80);
    m_doc.tick();
    EXPECT_TRUE(shows(1));
    EXPECT_EQ(video->frame, 3);
    m_clock.advance(40);
    m_doc.tick();
    EXPECT_TRUE(shows(3));
    EXPECT_EQ(video->frame, 0) << "the video loops";
    // Stopped, the sweeps leave it.
    lua("OpenGL.scene.clip:stop()");
    m_clock.advance(200);
    m_doc.tick();
    EXPECT_EQ(video->frame, 0);
    EXPECT_TRUE(shows(3));
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(Textures, AThreeDimensionalTextureFeedsASampler3DOnTheNextUnit)
{
    solid("data/plane.png", 2, 2, 0, 0, 200);
    std::string raw;
    for (int i = 0; i < 8; ++i) raw.push_back(static_cast<char>(30 + i * 20));
    sources::writeBytes(m_ws / "data/cube.vol", "size 2 2 2\n");
    sources::writeBytes(m_ws / "data/cube.raw", raw);
    auto* volume = new ScnTexture3D;
    volume->setName("cube");
    volume->file = "data/cube.vol";
    volume->source = 3;
    volume->dimX = "2";
    volume->dimY = "2";
    volume->dimZ = "2";
    volume->flags = ScnTextureFlags{{MemTextureFlags::Nearest, 0, 0, 0}};
    open({texture2D("plane", "data/plane.png", 2, "2", "2"), volume,
          samplingShader("sampler", "uniform sampler2D plane;\nuniform sampler3D cube;\nvoid main()\n{\n"
                                    "    vec4 v = texture(cube, vec3(uv, 0.75));\n    outColor = vec4(v.r, v.g, texture(plane, uv).b, 1.0);\n}\n"),
          new TestQuad()});
    EXPECT_EQ(drain(), Lines{});
    render();
    EXPECT_EQ(unitOf("sampler", "plane"), 0);
    EXPECT_EQ(unitOf("sampler", "cube"), 1);
    // The second slice (z = 1), x fastest, then y; a sample is luminance in
    // every colour channel.
    const Pixel got[4] = {at(0.25, 0.25), at(0.75, 0.25), at(0.25, 0.75), at(0.75, 0.75)};
    for (int i = 0; i < 4; ++i) {
        const int v = static_cast<uint8_t>(raw[4 + i]);
        EXPECT_EQ(got[i], (Pixel{v, v, 200, 255})) << i;
    }
}

TEST_F(Textures, TheStartPreparesEveryFixedFunctionUnitToReplace)
{
    GlScope gl;
    GLint units = 0, active = 0;
    glGetIntegerv(GL_MAX_TEXTURE_UNITS, &units);
    ASSERT_GT(units, 1);
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    for (GLint i = 0; i < units; ++i) {
        glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(i));
        GLint mode = 0;
        glGetTexEnviv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, &mode);
        EXPECT_EQ(mode, GL_REPLACE) << "unit " << i;
        EXPECT_FALSE(glIsEnabled(GL_TEXTURE_2D)) << "unit " << i;
    }
    glActiveTexture(static_cast<GLenum>(active));
}
