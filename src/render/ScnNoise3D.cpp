#include <GL/glew.h>

#include "render/ScnNoise3D.h"

#include <array>
#include <cmath>

#include "memory/MemStatistics.h"
#include "node/ScnAction.h"
#include "platform/GlContext.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"

ScnNodeType ScnNoise3D::s_type;

namespace {

constexpr int N = ScnNoise3D::kSize;
constexpr int64_t kBytes = int64_t{N} * N * N * 2;
constexpr int kLeaveBindings = 1;

// Lattice value noise of several octaves, each with a period that divides the
// cube, so that the cube tiles without a seam under GL_REPEAT.
uint32_t hash(uint32_t x, uint32_t y, uint32_t z, uint32_t octave)
{
    uint32_t h = x * 0x8da6b343u ^ y * 0xd8163841u ^ z * 0xcb1ab31fu ^ octave * 0x165667b1u;
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    h ^= h >> 15;
    return h;
}

double lattice(int x, int y, int z, int period, uint32_t octave)
{
    auto wrap = [period](int v) { return static_cast<uint32_t>(((v % period) + period) % period); };
    return (hash(wrap(x), wrap(y), wrap(z), octave) & 0xffff) / 65535.0;
}

double smooth(double t)
{
    return t * t * (3 - 2 * t);
}

double valueNoise(double x, double y, double z, int period, uint32_t octave)
{
    const int x0 = static_cast<int>(std::floor(x)), y0 = static_cast<int>(std::floor(y)),
              z0 = static_cast<int>(std::floor(z));
    const double fx = smooth(x - x0), fy = smooth(y - y0), fz = smooth(z - z0);
    double c[2][2][2];
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2; ++j)
            for (int k = 0; k < 2; ++k) c[i][j][k] = lattice(x0 + i, y0 + j, z0 + k, period, octave);
    auto lerp = [](double a, double b, double t) { return a + (b - a) * t; };
    const double x00 = lerp(c[0][0][0], c[1][0][0], fx), x10 = lerp(c[0][1][0], c[1][1][0], fx);
    const double x01 = lerp(c[0][0][1], c[1][0][1], fx), x11 = lerp(c[0][1][1], c[1][1][1], fx);
    return lerp(lerp(x00, x10, fy), lerp(x01, x11, fy), fz);
}

std::array<uint16_t, N * N * N> makeTable()
{
    std::array<uint16_t, N * N * N> t{};
    for (int z = 0; z < N; ++z)
        for (int y = 0; y < N; ++y)
            for (int x = 0; x < N; ++x) {
                // Octaves of 4, 8 and 16 lattice cells over the cube: the
                // finest cell is two texels wide, so neighbours stay close.
                double v = 0, weight = 0, amplitude = 1;
                for (int o = 0; o < 3; ++o) {
                    const int period = 4 << o;
                    const double scale = static_cast<double>(period) / N;
                    v += amplitude * valueNoise(x * scale, y * scale, z * scale, period, static_cast<uint32_t>(o));
                    weight += amplitude;
                    amplitude *= 0.5;
                }
                t[(static_cast<size_t>(z) * N + y) * N + x] = static_cast<uint16_t>(std::lround(v / weight * 65535.0));
            }
    return t;
}

}  // namespace

ScnNoise3D::ScnNoise3D()
{
    name = "Noise3D";
}

ScnNoise3D::~ScnNoise3D()
{
    release();
}

const uint16_t* ScnNoise3D::table()
{
    static const std::array<uint16_t, N * N * N> t = makeTable();
    return t.data();
}

void ScnNoise3D::onCreate(ScnAction& action)
{
    if (!m_texture && GlContext::ready()) {
        glGenTextures(1, &m_texture);
        glBindTexture(GL_TEXTURE_3D, m_texture);
        glTexParameteri(GL_TEXTURE_3D, GL_TEXTURE_WRAP_S, GL_REPEAT);
        glTexParameteri(GL_TEXTURE_3D, GL_TEXTURE_WRAP_T, GL_REPEAT);
        glTexParameteri(GL_TEXTURE_3D, GL_TEXTURE_WRAP_R, GL_REPEAT);
        glTexParameteri(GL_TEXTURE_3D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_3D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 2);
        glTexImage3D(GL_TEXTURE_3D, 0, GL_LUMINANCE16, N, N, N, 0, GL_LUMINANCE, GL_UNSIGNED_SHORT, table());
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        glBindTexture(GL_TEXTURE_3D, 0);
        MemStatistics::add(kBytes);
    }
    action.continueWalk(this, ScnAction::Siblings);
}

void ScnNoise3D::release()
{
    if (!m_texture) return;
    if (GlContext::ready()) glDeleteTextures(1, &m_texture);
    m_texture = 0;
    MemStatistics::remove(kBytes);
}

void ScnNoise3D::onDestroy(ScnAction& action)
{
    release();
    action.continueWalk(this, ScnAction::Siblings);
}

void ScnNoise3D::onRender(ScnAction& action)
{
    auto* render = dynamic_cast<ScnActionRender*>(&action);
    if (!render || !m_texture || !GlContext::ready()) {
        action.continueWalk(this, ScnAction::Both);
        return;
    }
    render->pushBinding(this);
    glActiveTexture(GL_TEXTURE0 + kUnit);
    glBindTexture(GL_TEXTURE_3D, m_texture);
    if (ScnScene::currentShader) onRenderPass(action, ScnScene::currentShader);
    action.walkOnThen(this, nullptr, kLeaveBindings);
}

void ScnNoise3D::afterWalkOn(ScnAction& action, void*, int flag)
{
    if (!(flag & kLeaveBindings)) return;
    glActiveTexture(GL_TEXTURE0 + kUnit);
    glBindTexture(GL_TEXTURE_3D, 0);
    if (auto* render = dynamic_cast<ScnActionRender*>(&action)) render->popBinding();
}

void ScnNoise3D::onRenderPass(ScnAction&, ScnShader* shader)
{
    if (!shader || !shader->program) return;
    const GLint location = glGetUniformLocation(shader->program, "gs_Noise3D");
    if (location < 0) return;
    // The uniform belongs to the program in use while the pass runs.
    glUniform1i(location, kUnit);
}
