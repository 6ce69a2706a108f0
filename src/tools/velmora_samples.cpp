// velmora-samples: writes the sample applications into a folder. The samples
// are made from code at build time rather than kept as binary files.
#include <cstdio>
#include <string>

#include "compute/OclNodes.h"
#include "memory/MemNodes.h"
#include "platform/Paths.h"
#include "render/ScnBuffers.h"
#include "render/ScnShader.h"
#include "runtime/AppGlobal.h"
#include "runtime/RtnApplication.h"
#include "widgets/GuiControls.h"
#include "widgets/GuiRoot.h"

namespace {

// A processor whose register holds the world as its token: it greets the
// token when it arrives and counts frames while the simulation runs.
bool writeHello(const std::string& folder)
{
    RtnApplication app;
    // The first view is where the camera starts, as the editor's Save leaves it.
    app.viewpoints.values[0] = app.camera.node.matrix.value;
    app.luaglobal = "frames = 0\n";
    auto* main = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    main->luaglobal = "greeting = \"Hello from \"\n";
    RtnRegister* r = main->createRegister(0);
    r->functions.setCode(RtnRegister::OnTime,
                         "frames = frames + 1\nprint(\"frame \" .. frames .. \" at \" .. app.getTime() .. \" ms, token \" "
                         ".. event:getName())\n");
    r->functions.setCode(RtnRegister::OnDeposit, "print(greeting .. event:getName())\n");
    r->functions.setCode(RtnRegister::OnRemove, "print(\"Goodbye, \" .. event:getName())\n");
    r->marking.append(&app.openGL.node);
    RtnMFRef::s_root = &app;
    std::string error;
    bool ok = app.writeFile(folder + "/hello.3Dm", error);
    RtnMFRef::s_root = nullptr;
    if (!ok) std::fprintf(stderr, "velmora-samples: %s\n", error.c_str());
    return ok;
}

// A processor that fills a buffer of integers when the buffer arrives as its
// token, steps every element with a kernel on each frame and prints a
// checksum every 40 frames. Integer arithmetic keeps the checksum the same on
// every device.
bool writeCompute(const std::string& folder)
{
    RtnApplication app;
    // The first view is where the camera starts, as the editor's Save leaves it.
    app.viewpoints.values[0] = app.camera.node.matrix.value;
    auto* platform = new OclPlatform;
    platform->name = "compute";
    auto* program = new OclProgram;
    program->name = "advance";
    program->source =
        "__kernel void advance(__global int* v)\n"
        "{\n"
        "    size_t i = get_global_id(0);\n"
        "    v[i] = (v[i] * 3 + 1) % 1000;\n"
        "}\n";
    auto* buffer = new OclBuffer;
    buffer->name = "values";
    buffer->type = 4;  // cl_int
    buffer->dim0 = "1024";
    platform->append(program);
    platform->append(buffer);
    app.openCL.node.append(platform);

    auto* main = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    main->luaglobal = "frame = 0\n";
    RtnRegister* r = main->createRegister(0);
    r->functions.setCode(RtnRegister::OnDeposit,
                         "kernel = OpenCL.compute.advance:getKernel(\"advance\")\n"
                         "values = event:getBuffer()\n"
                         "mem.map(values, mem.WRITE)\n"
                         "for i = 0, mem.dim(values, 0) - 1 do mem.set(values, i, i) end\n"
                         "mem.unmap(values)\n"
                         "cl.clSetKernelArg(kernel, 0, values)\n"
                         "print(\"filled \" .. mem.dim(values, 0) .. \" values\")\n");
    r->functions.setCode(RtnRegister::OnTime,
                         "frame = frame + 1\n"
                         "cl.clEnqueueNDRangeKernel(kernel, 1, {mem.dim(values, 0)})\n"
                         "if frame % 40 == 0 then\n"
                         "    mem.map(values, mem.READ)\n"
                         "    local sum = 0\n"
                         "    for i = 0, mem.dim(values, 0) - 1 do sum = sum + mem.get(values, i) end\n"
                         "    mem.unmap(values)\n"
                         "    print(\"frame \" .. frame .. \": checksum \" .. sum)\n"
                         "end\n");
    r->marking.append(buffer);
    RtnMFRef::s_root = &app;
    std::string error;
    bool ok = app.writeFile(folder + "/compute.3Dm", error);
    RtnMFRef::s_root = nullptr;
    if (!ok) std::fprintf(stderr, "velmora-samples: %s\n", error.c_str());
    return ok;
}


// 100,000 points that a kernel moves on every frame, drawn as points by a
// shader, with no copy through scripts: the kernel writes the vertex buffer
// between acquire and release. Point 0 goes round a circle of radius 0.8 at
// z = 9.5 in front of the others (the camera starts at z = 12 looking down
// minus z), 0.05 radians a frame, and is drawn
// magenta so that its pixel can be found; the kernel's time is the number
// of frames run, and it runs once when the points arrive.
bool writeParticles(const std::string& folder)
{
    RtnApplication app;
    app.viewpoints.values[0] = app.camera.node.matrix.value;
    auto* platform = new OclPlatform;
    platform->name = "particles";
    auto* program = new OclProgram;
    program->name = "move";
    program->source =
        "__kernel void move(__global float4* p, float t)\n"
        "{\n"
        "    int i = get_global_id(0);\n"
        "    if (i == 0) {\n"
        "        p[0] = (float4)(0.8f * cos(0.05f * t), 0.8f * sin(0.05f * t), 9.5f, 1.0f);\n"
        "        return;\n"
        "    }\n"
        "    float r = 0.3f + 1.2f * (i % 997) / 997.0f;\n"
        "    float a = 2.39996f * i + t * (0.02f + 0.05f / r);\n"
        "    p[i] = (float4)(r * cos(a), r * sin(a), 8.0f - 0.5f * (i % 7) / 7.0f, 1.0f);\n"
        "}\n";
    platform->append(program);
    app.openCL.node.append(platform);

    auto* shader = new ScnShader;
    shader->name = "pointShader";
    shader->vertex =
        "#version 330\n"
        "in vec4 gs_Vertex;\n"
        "uniform mat4 gs_ModelViewProjectionMatrix;\n"
        "out vec4 colour;\n"
        "void main()\n"
        "{\n"
        "    colour = gl_VertexID == 0 ? vec4(1.0, 0.0, 1.0, 1.0) : vec4(0.6, 0.8, 1.0, 1.0);\n"
        "    gl_Position = gs_ModelViewProjectionMatrix * gs_Vertex;\n"
        "}\n";
    shader->fragment = "#version 330\nin vec4 colour;\nout vec4 outColor;\nvoid main()\n{\n    outColor = colour;\n}\n";
    auto* points = new ScnBufferArray;
    points->name = "particles";
    auto* vertices = new ScnBufferAttrib;
    vertices->name = "gs_Vertex";
    vertices->dim0 = "PARTICLES";
    points->append(vertices);
    app.openGL.node.append(shader);
    app.openGL.node.append(points);

    // The count is a global that the size expression of the attribute reads.
    app.luaglobal = "PARTICLES = 100000\n";
    auto* main = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    main->luaglobal = "step = 0\n";
    RtnRegister* r = main->createRegister(0);
    const char* move =
        "cl.clEnqueueAcquireGLObjects(points)\n"
        "cl.clSetKernelArg(kernel, 1, cl.cl_float, step)\n"
        "cl.clEnqueueNDRangeKernel(kernel, 1, {PARTICLES})\n"
        "cl.clEnqueueReleaseGLObjects(points)\n";
    r->functions.setCode(RtnRegister::OnDeposit, std::string("kernel = OpenCL.particles.move:getKernel(\"move\")\n"
                                                             "points = event:getBuffer()\n"
                                                             "cl.clSetKernelArg(kernel, 0, points)\n") +
                                                     move);
    r->functions.setCode(RtnRegister::OnTime, std::string("step = step + 1\n") + move);
    r->marking.append(vertices);
    RtnMFRef::s_root = &app;
    std::string error;
    bool ok = app.writeFile(folder + "/particles.3Dm", error);
    RtnMFRef::s_root = nullptr;
    if (!ok) std::fprintf(stderr, "velmora-samples: %s\n", error.c_str());
    return ok;
}

// A label and a button in the widget branch. The button is the token of a
// register: a press counts, shows the count in the label and prints where
// on the button it landed; the release prints too.
bool writeUi(const std::string& folder)
{
    RtnApplication app;
    app.viewpoints.values[0] = app.camera.node.matrix.value;
    app.luaglobal = "presses = 0\n";
    GuiRoot& root = app.gui.node;
    auto* label = new GuiLabel;
    label->name = "caption";
    label->text = "Press Go";
    label->position = ScnVec3{40, 600, 0};
    label->size = ScnVec3{300, 30, 0};
    root.append(label);
    auto* button = new GuiButton;
    button->name = "go";
    button->text = "Go";
    button->position = ScnVec3{40, 540, 0};
    button->size = ScnVec3{100, 30, 0};
    root.append(button);
    auto* input = new GuiInput;
    input->name = "entry";
    input->position = ScnVec3{40, 480, 0};
    input->size = ScnVec3{200, 23, 0};
    root.append(input);

    auto* main = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    RtnRegister* r = main->createRegister(0);
    button->addEvents(r->functions);
    r->functions.setCode(GuiButton::OnDown,
                         "presses = presses + 1\n"
                         "Gui.caption:setText(\"Pressed \" .. presses .. \" times\")\n"
                         "print(\"down on \" .. event:getName() .. \" at \" .. sio.getMouseX(event) .. \",\" .. "
                         "sio.getMouseY(event))\n");
    r->functions.setCode(GuiButton::OnUp, "print(\"up, \" .. presses .. \" presses\")\n");
    r->marking.append(button);
    RtnRegister* typed = main->createRegister(1);
    input->addEvents(typed->functions);
    typed->functions.setCode(GuiInput::OnEnter,
                             "print(\"entered \" .. event:getText() .. \", RETURN pressed: \" .. "
                             "tostring(sio.isKeyPressed(sio.VK_RETURN)))\n");
    typed->marking.append(input);
    RtnMFRef::s_root = &app;
    std::string error;
    bool ok = app.writeFile(folder + "/ui.3Dm", error);
    RtnMFRef::s_root = nullptr;
    if (!ok) std::fprintf(stderr, "velmora-samples: %s\n", error.c_str());
    return ok;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: velmora-samples FOLDER\n");
        return 2;
    }
    std::string folder = argv[1];
    if (!Paths::ensureFolder(folder)) {
        std::fprintf(stderr, "velmora-samples: cannot make folder %s\n", folder.c_str());
        return 1;
    }
    AppGlobal::startModules();
    const bool hello = writeHello(folder);
    const bool compute = writeCompute(folder);
    const bool particles = writeParticles(folder);
    const bool ui = writeUi(folder);
    return hello && compute && particles && ui ? 0 : 1;
}
