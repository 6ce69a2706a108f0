// Writes the seed corpus of the reader fuzzer: valid documents and object
// files of several classes, so that the fuzzer starts from files that reach
// deep into every kind of field instead of guessing the layout from nothing.
#include <cstdio>
#include <memory>
#include <string>

#include "compute/OclNodes.h"
#include "memory/MemNodes.h"
#include "node/ScnNode.h"
#include "platform/Paths.h"
#include "render/ScnCameraExamine.h"
#include "render/ScnDeferredPointLight.h"
#include "render/ScnDeferredSpotLight.h"
#include "render/ScnLightbuffer.h"
#include "render/ScnFramebuffer.h"
#include "render/ScnShader.h"
#include "runtime/AppGlobal.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnNodes.h"

namespace {

std::string g_folder;
bool g_ok = true;

void document(const char* name, RtnApplication& app)
{
    std::string error;
    RtnMFRef::s_root = &app;
    if (!app.writeFile(g_folder + "/" + name, error)) {
        std::fprintf(stderr, "fuzz_seeds: %s\n", error.c_str());
        g_ok = false;
    }
    RtnMFRef::s_root = nullptr;
}

void object(const char* name, ScnNode* node)
{
    std::unique_ptr<ScnNode> owned(node);
    std::string error;
    if (!scnWriteObject(g_folder + "/" + name, *node, error)) {
        std::fprintf(stderr, "fuzz_seeds: %s\n", error.c_str());
        g_ok = false;
    }
}

// Groups, a matrix, shaders, lights, a program under a platform, buffers,
// two processors with registers, functions and token paths.
void richDocument()
{
    RtnApplication app;
    app.luaglobal = "n = 4\nprint('global')";
    auto* g = new ScnGroup();
    g->name = "wheel";
    auto* hub = new ScnMatrix();
    hub->name = "hub";
    hub->worldmatrix = ScnMatrix16::translation(1, 2, 3);
    g->append(hub);
    hub->append(ScnShader::factory());
    app.openGL.node.append(g);
    app.openGL.node.append(new ScnDeferredSpotLight());
    auto* platform = new OclPlatform();
    auto* program = new OclProgram();
    platform->append(program);
    platform->append(new OclBuffer());
    platform->append(new OclImage2D());
    app.openCL.node.append(platform);

    auto* proc = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    proc->luaglobal = "local x = 1";
    auto* second = new RtnProcessor();
    second->name = "Second";
    app.scripts.node.append(second);
    RtnRegister* reg = proc->createRegister(3);
    reg->functions.setCode(RtnRegister::OnTime, "print('tick')");
    reg->functions.append("OnCompute", "x = x + 1");
    reg->marking.append(hub);
    reg->marking.append(program);
    second->createRegister(0);
    document("rich.3Dm", app);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seeds FOLDER\n");
        return 2;
    }
    g_folder = argv[1];
    if (!Paths::ensureFolder(g_folder)) {
        std::fprintf(stderr, "fuzz_seeds: cannot make folder %s\n", g_folder.c_str());
        return 1;
    }
    AppGlobal::startModules();

    RtnApplication empty;
    document("new.3Dm", empty);
    richDocument();

    auto* group = new ScnGroup();
    group->name = "parts";
    auto* m = new ScnMatrix();
    m->append(new ScnNode());
    group->append(m);
    group->append(new ScnGroup());
    object("group.3Do", group);
    object("shader.3Do", ScnShader::factory());
    object("pointlight.3Do", new ScnDeferredPointLight());
    auto* fb = new ScnFramebuffer();
    fb->shaders.append(ScnShader::factory());
    object("framebuffer.3Do", fb);
    auto* platform = new OclPlatform();
    platform->append(new OclProgram());
    platform->append(new OclImage3D());
    object("platform.3Do", platform);
    object("camera.3Do", new ScnCameraExamine());
    auto* reg = new RtnRegister();
    reg->addDefaultFunctions();
    reg->functions.setCode(0, "print('tick')");
    object("register.3Do", reg);
    return g_ok ? 0 : 1;
}
