// Cost of one frame step of a large scene: a world of 10,000 groups under
// 100 shaders (each shader followed by a group of 100 groups), opened as a
// document and stepped in edit mode (axes drawn) and running, drawn with
// Mesa's headless context. The frame step's own timing gives the share spent
// in the Lua collection that starts every frame.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

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
    double total = 1e30, lua = 0, render = 0;
};

// Best frame of `frames` by total time, with its parts.
Figures measure(RtnDocument& doc, ManualClock& clock, int frames)
{
    Figures best;
    for (int i = 0; i < frames; ++i) {
        doc.tick();
        clock.advance(25);
        const ScnFrameStats& s = ScnFrame::stats();
        if (s.total < best.total) best = Figures{s.total, s.luaCollect, s.render};
    }
    return best;
}

void print(const char* what, const Figures& f)
{
    std::printf("%-28s %9.3f ms per frame; Lua collection %7.3f ms (%4.1f%%), render walk %7.3f ms\n", what,
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

    const int kShaders = 100, kGroupsPerShader = 100;
    {
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
    }
    ManualClock clock;
    RtnDocument doc(clock);
    std::string error;
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
    GlContext::setActive(nullptr);
    std::filesystem::remove_all(ws);
    return 0;
}
