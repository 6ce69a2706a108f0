// Cost of one frame step of a large scene: a world of 10,000 (then 30,000)
// groups under 100 (300) shaders (each shader followed by a group of 100 groups), opened as a
// document and stepped in edit mode (axes drawn) and running, drawn with
// Mesa's headless context. The frame step's own timing gives the share spent
// in the Lua collection that starts every frame.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include "BenchLua.h"
#include "platform/GlContext.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "runtime/AppGlobal.h"
#include "runtime/Clock.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnDocument.h"

namespace {

struct Figures {
    double total = 0, lua = 0, render = 0;
};

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

// Median of `frames` frames, each part on its own.
Figures measure(RtnDocument& doc, ManualClock& clock, int frames)
{
    std::vector<double> total, lua, render;
    for (int i = 0; i < frames; ++i) {
        doc.tick();
        clock.advance(25);
        const ScnFrameStats& s = ScnFrame::stats();
        total.push_back(s.total);
        lua.push_back(s.luaCollect);
        render.push_back(s.render);
    }
    return Figures{median(total), median(lua), median(render)};
}

void print(const char* what, const Figures& f)
{
    std::printf("%-28s %9.3f ms per frame (median); Lua collection %7.3f ms (%4.1f%%), render walk %7.3f ms\n", what,
                f.total / 1000, f.lua / 1000, 100 * f.lua / f.total, f.render / 1000);
}

}  // namespace

int main()
{
    printLuaBuild("frame_bench");
    std::string glError;
    std::unique_ptr<EglContext> gl = EglContext::create(1024, 768, glError);
    if (!gl) {
        std::printf("frame_bench: no OpenGL context (%s): the render walk is not measured\n", glError.c_str());
    } else {
        GlContext::setActive(gl.get());
    }
    std::string ws = "/tmp/velmora-frame-bench-" + std::to_string(getpid());
    std::filesystem::create_directories(ws);
    AppGlobal::setProjectPath(ws);
    AppGlobal::startModules();

    // 10,000 and 30,000 groups: the frame should grow with the tree, not faster.
    for (const int kShaders : {100, 300}) {
        const int kGroupsPerShader = 100;
        RtnApplication app;
        for (int s = 0; s < kShaders; ++s) {
            ScnNode* shader = ScnShader::factory();
            shader->name = "shader" + std::to_string(s);
            app.openGL.node.append(shader);
            auto* g = new ScnGroup();
            g->name = "block" + std::to_string(s);
            for (int i = 0; i < kGroupsPerShader - 1; ++i) g->append(new ScnGroup());
            app.openGL.node.append(g);
        }
        std::string error;
        if (!app.writeFile(ws + "/bench.3Dm", error)) {
            std::printf("frame_bench: %s\n", error.c_str());
            return 1;
        }
        ManualClock clock;
        RtnDocument doc(clock);
        if (!doc.open("bench.3Dm", error)) {
            std::printf("frame_bench: %s\n", error.c_str());
            return 1;
        }
        doc.setView(1024, 768, true);
        std::printf("frame_bench: %d groups, %d shaders, 1024x768, %s\n", kShaders * kGroupsPerShader, kShaders,
                    gl ? reinterpret_cast<const char*>(gl->platformName()) : "no GL");
        measure(doc, clock, 3);  // warm-up
        print("edit mode (axes drawn)", measure(doc, clock, 30));
        doc.toggleSimulation();
        print("running", measure(doc, clock, 30));
        doc.close();
    }
    GlContext::setActive(nullptr);
    std::filesystem::remove_all(ws);
    return 0;
}
