// The noise cube: shaders after it read its texels through gs_Noise3D on
// unit 10, the fill tiles and is smooth, its bytes are tracked, and a file
// with one reads back byte for byte.
#include <gtest/gtest.h>
#include <GL/glew.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "memory/MemStatistics.h"
#include "render/ScnNoise3D.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "support/DocumentFixture.h"
#include "RenderSupport.h"

namespace {

constexpr int N = ScnNoise3D::kSize;

int texel(int x, int y, int z)
{
    return ScnNoise3D::table()[(z * N + y) * N + x];
}

std::string slurp(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

class Noise : public RenderDoc {
protected:
    // The nodes go into a group of the World, in this order.
    void open(std::initializer_list<ScnNode*> nodes)
    {
        RtnApplication app;
        auto* group = new ScnGroup;
        group->setName("scene");
        for (ScnNode* n : nodes) group->append(n);
        app.openGL.node.append(group);
        openApp(app, true);
    }
    ScnNode* scene() { return m_doc.application()->openGL.node.findChild("scene"); }
    ScnNode* live(const char* name)
    {
        ScnNode* n = scene()->findChild(name);
        return n ? n->twin() : nullptr;
    }
    void render()
    {
        GlScope gl;
        ASSERT_TRUE(gl.ok());
        glViewport(0, 0, m_width, m_height);
        glClearColor(0, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glDisable(GL_DEPTH_TEST);
        ScnActionRender action(nullptr, m_width, m_height);
        action.apply(scene()->twin());
        glEnable(GL_DEPTH_TEST);
        EXPECT_EQ(action.bindingCount(), 0) << "the bindings are left behind the walk";
    }
};

// Each pixel shows the texel under it in slice 5 of the cube.
ScnShader* slicingShader()
{
    auto* s = new ScnShader();
    s->name = "slice";
    s->vertex = flatVertex();
    s->fragment = "#version 330\nuniform sampler3D gs_Noise3D;\nout vec4 outColor;\nvoid main()\n{\n"
                  "    ivec2 p = ivec2(gl_FragCoord.xy) % 32;\n"
                  "    outColor = vec4(texelFetch(gs_Noise3D, ivec3(p, 5), 0).r, 0.0, 0.0, 1.0);\n}\n";
    return s;
}

}  // namespace

TEST_F(Noise, ShadersAfterTheCubeReadItsTexelsOnUnitTenAndItsBytesAreTracked)
{
    open({new ScnNoise3D, slicingShader(), new TestQuad});
    EXPECT_EQ(drain(), Lines{});
    render();

    GlScope gl;
    auto* shader = dynamic_cast<ScnShader*>(live("slice"));
    ASSERT_TRUE(shader && shader->program);
    GLint unit = -1;
    glGetUniformiv(shader->program, glGetUniformLocation(shader->program, "gs_Noise3D"), &unit);
    EXPECT_EQ(unit, ScnNoise3D::kUnit);
    // The walk leaves unit 10 empty behind it.
    GLint bound = -1;
    glActiveTexture(GL_TEXTURE0 + ScnNoise3D::kUnit);
    glGetIntegerv(GL_TEXTURE_BINDING_3D, &bound);
    glActiveTexture(GL_TEXTURE0);
    EXPECT_EQ(bound, 0);

    int wrong = 0;
    for (int y = 0; y < N; ++y)
        for (int x = 0; x < N; ++x) {
            const int expected = static_cast<int>(std::lround(texel(x, y, 5) * 255.0 / 65535.0));
            const Pixel p = pixelAt(x, y);
            if (std::abs(p[0] - expected) > 1 && ++wrong < 5)
                ADD_FAILURE() << "texel " << x << "," << y << ": " << p[0] << " for " << expected;
        }
    EXPECT_EQ(wrong, 0);

    // Two bytes a texel come off when the cube goes.
    const int64_t before = MemStatistics::bytes();
    ScnActionDestroy destroy;
    destroy.apply(live("Noise3D"));
    EXPECT_EQ(before - MemStatistics::bytes(), N * N * N * 2);
}

TEST(NoiseTable, SmoothTilingAndSpreadOverTheRange)
{
    int low = 65535, high = 0, steepest = 0;
    for (int z = 0; z < N; ++z)
        for (int y = 0; y < N; ++y)
            for (int x = 0; x < N; ++x) {
                const int v = texel(x, y, z);
                low = std::min(low, v);
                high = std::max(high, v);
                // The next texel along each axis, across the border too: the
                // texture repeats, so the last texel meets the first.
                for (int d : {texel((x + 1) % N, y, z), texel(x, (y + 1) % N, z), texel(x, y, (z + 1) % N)})
                    steepest = std::max(steepest, std::abs(v - d));
            }
    EXPECT_GT(high - low, 65535 / 2) << "the values use the range";
    EXPECT_LT(steepest, 65535 / 5) << "neighbours stay close, across the border too";
}

TEST_F(Noise, AFileWithACubeReadsBackByteForByte)
{
    auto* noise = new ScnNoise3D;
    noise->extension = "kept";
    open({noise});
    EXPECT_EQ(std::string(live("Noise3D")->getType()->name), "ScnNoise3D");
    ASSERT_TRUE(m_doc.saveAs("again.3Dm"));
    EXPECT_EQ(slurp(m_ws / "again.3Dm"), slurp(m_ws / "test.3Dm"));
}
