// velmora-samples: writes the sample applications into a folder. The samples
// are made from code at build time rather than kept as binary files.
#include <cstdio>
#include <filesystem>
#include <string>

#include "compute/OclNodes.h"
#include "memory/MemNodes.h"
#include "platform/Paths.h"
#include "render/ScnBuffers.h"
#include "render/ScnDeferredPointLight.h"
#include "render/ScnDeferredSpotLight.h"
#include "render/ScnLightbuffer.h"
#include "render/ScnInstance.h"
#include "render/ScnShader.h"
#include "render/ScnTest.h"
#include "render/ScnText.h"
#include "render/ScnTransform.h"
#include "render/SnsKeyboardSensor.h"
#include "widgets/InputState.h"
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

// A room of three quads drawn into a geometry buffer (surface colour, eye-space
// normal, eye-space position) and lit through the light buffer's doLighting by
// a warm point light and a blue spot light. Both lights stand at the origin,
// the point light a unit above the floor, the spot light shining down minus x
// onto the left wall. The quads are written by a script when the room arrives
// as a token; the light pass runs in the light buffer's OnPostRender.
bool writeLit(const std::string& folder)
{
    RtnApplication app;
    // Seen from above and in front, looking at the origin.
    ScnMatrix16 view;
    const double look[16] = {1, 0, 0, 0, 0, 0.894427190999916, -0.447213595499958, 0,
                             0, 0.447213595499958, 0.894427190999916, 0, 0, 5, 10, 1};
    for (int i = 0; i < 16; ++i) view.m[i] = look[i];
    ScnCameraExamine& camera = app.camera.node;
    camera.matrix = view;
    app.viewpoints.values[0] = view;
    camera.light.node.visible = false;  // only the two lights of the room
    auto& gbuffer = static_cast<ScnFramebuffer&>(*camera.getChild(0));
    gbuffer.name = "gbuffer";
    gbuffer.attachment = 3;
    auto* lights = new ScnLightbuffer;
    lights->flags.value.w[0] = 2;  // as every framebuffer read from a file has it
    camera.append(lights);

    auto* shader = new ScnShader;
    shader->name = "geometry";
    shader->vertex =
        "#version 330\n"
        "uniform mat4 gs_ModelViewProjectionMatrix;\n"
        "uniform mat4 gs_ModelViewMatrix;\n"
        "uniform mat3 gs_NormalMatrix;\n"
        "in vec4 gs_Vertex;\n"
        "in vec4 gs_Normal;\n"
        "out vec3 position;\n"
        "out vec3 normal;\n"
        "out vec3 colour;\n"
        "void main()\n"
        "{\n"
        "    position = (gs_ModelViewMatrix * gs_Vertex).xyz;\n"
        "    normal = gs_NormalMatrix * gs_Normal.xyz;\n"
        "    colour = vec3(0.85, 0.8, 0.75);\n"
        "    gl_Position = gs_ModelViewProjectionMatrix * gs_Vertex;\n"
        "}\n";
    shader->fragment =
        "#version 330\n"
        "in vec3 position;\n"
        "in vec3 normal;\n"
        "in vec3 colour;\n"
        "layout(location = 0) out vec4 surface;\n"
        "layout(location = 1) out vec4 eyeNormal;\n"
        "layout(location = 2) out vec4 eyePosition;\n"
        "void main()\n"
        "{\n"
        "    surface = vec4(colour, 1.0);\n"
        "    eyeNormal = vec4(normalize(normal), 0.25);\n"
        "    eyePosition = vec4(position, 1.0);\n"
        "}\n";
    auto* room = new ScnBufferArray;
    room->name = "room";
    room->primitive = 4;  // GL_TRIANGLES
    for (const char* attribute : {"gs_Vertex", "gs_Normal"}) {
        auto* a = new ScnBufferAttrib;
        a->name = attribute;
        a->dim0 = "18";
        room->append(a);
    }
    auto* point = new ScnDeferredPointLight;
    point->diffuse = ScnColor{1.0f, 0.85f, 0.6f, 1};
    point->ambient = ScnColor{0.08f, 0.08f, 0.08f, 1};
    point->specular = ScnColor{0.4f, 0.4f, 0.4f, 1};
    point->range = 8;
    point->intensity = 1.5f;
    point->attenuate = 1;
    auto* spot = new ScnDeferredSpotLight;
    spot->diffuse = ScnColor{0.2f, 0.4f, 1.0f, 1};
    spot->specular = ScnColor{0.3f, 0.3f, 0.6f, 1};
    spot->range = 8;
    spot->intensity = 3;
    app.openGL.node.append(shader);
    app.openGL.node.append(room);
    app.openGL.node.append(point);
    app.openGL.node.append(spot);

    auto* main = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    RtnRegister* geometry = main->createRegister(0);
    // Each quad: a corner and two edges, the normal along their cross product.
    geometry->functions.setCode(RtnRegister::OnDeposit,
                                "local quads = {\n"
                                "    {{-6, -1, 6}, {12, 0, 0}, {0, 0, -12}},  -- floor\n"
                                "    {{-6, -1, -4}, {12, 0, 0}, {0, 5, 0}},   -- back wall\n"
                                "    {{-4, -1, 6}, {0, 0, -10}, {0, 5, 0}},   -- left wall\n"
                                "}\n"
                                "local v, n = event.gs_Vertex:getBuffer(), event.gs_Normal:getBuffer()\n"
                                "mem.map(v, mem.WRITE)\n"
                                "mem.map(n, mem.WRITE)\n"
                                "local i = 0\n"
                                "for _, q in ipairs(quads) do\n"
                                "    local c, u, w = q[1], q[2], q[3]\n"
                                "    local nx, ny, nz = u[2] * w[3] - u[3] * w[2], u[3] * w[1] - u[1] * w[3], "
                                "u[1] * w[2] - u[2] * w[1]\n"
                                "    local l = math.sqrt(nx * nx + ny * ny + nz * nz)\n"
                                "    for _, k in ipairs({{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}}) do\n"
                                "        mem.set(v, i, c[1] + k[1] * u[1] + k[2] * w[1], c[2] + k[1] * u[2] + k[2] * w[2], "
                                "c[3] + k[1] * u[3] + k[2] * w[3], 1)\n"
                                "        mem.set(n, i, nx / l, ny / l, nz / l, 0)\n"
                                "        i = i + 1\n"
                                "    end\n"
                                "end\n"
                                "mem.unmap(v)\n"
                                "mem.unmap(n)\n");
    geometry->marking.append(room);
    RtnRegister* pass = main->createRegister(1);
    lights->addEvents(pass->functions);
    pass->functions.setCode(ScnFramebuffer::OnPreRender, "");
    pass->functions.setCode(ScnFramebuffer::OnPostRender, "event:doLighting(Camera.gbuffer)\n");
    pass->marking.append(lights);
    RtnMFRef::s_root = &app;
    std::string error;
    bool ok = app.writeFile(folder + "/lit.3Dm", error);
    RtnMFRef::s_root = nullptr;
    if (!ok) std::fprintf(stderr, "velmora-samples: %s\n", error.c_str());
    return ok;
}


// Text in the scene, an object file shown through an instance, the point
// reader and a key sensor. The sensor is the token of a register: LEFT and
// RIGHT move the title's transform, R turns it, and each key prints.
bool writeScene(const std::string& folder)
{
    // The object the instance shows: a transform holding a second text.
    {
        ScnTransform marker;
        marker.name = "marker";
        marker.worldmatrix = ScnMatrix16::translation(-2, -1, 0);
        auto* label = new ScnText;
        label->name = "label";
        label->text = "an instance";
        label->scalar = 14.0f;
        marker.append(label);
        std::string error;
        if (!scnWriteObject(folder + "/marker.3Do", marker, error)) {
            std::fprintf(stderr, "velmora-samples: %s\n", error.c_str());
            return false;
        }
    }
    RtnApplication app;
    app.viewpoints.values[0] = app.camera.node.matrix.value;
    auto* shader = new ScnShader;
    shader->name = "glyphs";
    shader->vertex =
        "#version 330\n"
        "in vec4 gs_Vertex;\n"
        "in vec2 gs_Texture;\n"
        "uniform mat4 gs_ModelViewProjectionMatrix;\n"
        "out vec2 uv;\n"
        "void main()\n"
        "{\n"
        "    uv = gs_Texture;\n"
        "    gl_Position = gs_ModelViewProjectionMatrix * gs_Vertex;\n"
        "}\n";
    shader->fragment =
        "#version 330\n"
        "uniform sampler2D gs_Characters;\n"
        "in vec2 uv;\n"
        "out vec4 outColor;\n"
        "void main()\n"
        "{\n"
        "    if (texture(gs_Characters, uv).a < 0.5) discard;\n"
        "    outColor = vec4(1.0, 0.85, 0.3, 1.0);\n"
        "}\n";
    auto* title = new ScnTransform;
    title->name = "title";
    title->worldmatrix = ScnMatrix16::translation(-4, 1, 0);
    auto* caption = new ScnText;
    caption->name = "caption";
    caption->text = "Velmora";
    caption->scalar = 24.0f;
    title->append(caption);
    // Paths are relative to the workspace: the samples folder is in it.
    auto* instance = new ScnInstance;
    instance->name = "object";
    instance->path = "samples/marker.3Do";
    instance->transform = ScnMatrix16::translation(0, -1, 0);
    auto* keys = new SnsKeyboardSensor;
    keys->name = "keys";
    keys->map.values[InputState::KeyLeft] = 1;
    keys->map.values[InputState::KeyRight] = 1;
    keys->map.values['r'] = 1;
    auto* cloud = new ScnTest;
    cloud->name = "cloud";
    // An instance and the point reader end the walk of their list: the
    // instance has a group of its own and the point reader comes last.
    auto* objects = new ScnGroup;
    objects->name = "objects";
    objects->append(instance);
    for (ScnNode* n : {static_cast<ScnNode*>(shader), static_cast<ScnNode*>(title), static_cast<ScnNode*>(keys),
                       static_cast<ScnNode*>(objects), static_cast<ScnNode*>(cloud)})
        app.openGL.node.append(n);

    auto* main = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    RtnRegister* r = main->createRegister(0);
    keys->addEvents(r->functions);
    r->functions.setCode(RtnRegister::OnDeposit, "print(\"keys: LEFT and RIGHT move the title, R turns it\")\n");
    r->functions.setCode(SnsKeyboardSensor::OnDown,
                         "local k = event:getKey()\n"
                         "if k == sio.VK_LEFT then OpenGL.title:translate(-0.5, 0, 0)\n"
                         "elseif k == sio.VK_RIGHT then OpenGL.title:translate(0.5, 0, 0)\n"
                         "else OpenGL.title:rotate(0.2, 0, 0, 1) end\n"
                         "OpenGL.title.caption:setText(\"key \" .. k)\n"
                         "print(\"key \" .. k .. \" down\")\n");
    r->functions.setCode(SnsKeyboardSensor::OnUp, "print(\"key \" .. event:getKey() .. \" up\")\n");
    r->marking.append(keys);
    RtnMFRef::s_root = &app;
    std::string error;
    bool ok = app.writeFile(folder + "/scene.3Dm", error);
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
    // Absolute: the folder is still written after the move into the workspace.
    const std::string folder = std::filesystem::absolute(argv[1]).string();
    if (!Paths::ensureFolder(folder)) {
        std::fprintf(stderr, "velmora-samples: cannot make folder %s\n", folder.c_str());
        return 1;
    }
    // The lights and the light buffer take their shaders from the workspace
    // that the samples folder lies in.
    if (!AppGlobal::setProjectPath(folder + "/..")) {
        std::fprintf(stderr, "velmora-samples: cannot use the workspace of %s\n", folder.c_str());
        return 1;
    }
    AppGlobal::startModules();
    const bool hello = writeHello(folder);
    const bool compute = writeCompute(folder);
    const bool particles = writeParticles(folder);
    const bool ui = writeUi(folder);
    const bool lit = writeLit(folder);
    const bool scene = writeScene(folder);
    return hello && compute && particles && ui && lit && scene ? 0 : 1;
}
