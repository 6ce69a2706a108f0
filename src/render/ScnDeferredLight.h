// The base of the lights of the light pass. A light draws a closed volume
// with its own shader (`direct`) into the light buffer's three additive
// targets, and feeds every shader of the scene with its values through the
// uniforms gs_Light[i].*, so that forward shaders can light too.
#pragma once

#include <vector>

#include "node/ScnNode.h"
#include "render/ScnShader.h"

class ScnActionRender;
class ScnCamera;

class ScnDeferredLight : public ScnNode {
    SCN_NODE(ScnDeferredLight, ScnNode)
public:
    ScnDeferredLight();
    ~ScnDeferredLight() override;

    ScnSFBool visible{this, "visible", true};
    ScnSFColor diffuse{this, "diffuse", ScnColor{1, 1, 1, 1}};
    ScnSFColor ambient{this, "ambient", ScnColor{0, 0, 0, 1}};
    ScnSFColor specular{this, "specular", ScnColor{1, 1, 1, 1}};
    ScnSF<float> range{this, "range", 6.0f};
    ScnSF<float> intensity{this, "intensity", 1.0f};
    ScnSF<float> attenuate{this, "attenuate", 2.0f};
    ScnSFNode<ScnShader> direct{this, "direct", "glShader"};

    // The kinds as the gs_light record counts them; the indexed uniform
    // gs_Light[i].type counts from 1.
    enum Kind { PointKind = 0, SpotKind = 1, NoKind = -1 };
    virtual Kind kind() const { return NoKind; }

    // Size of the record gs_light that getLightParams writes.
    static constexpr size_t kRecordSize = 136;
    // Fills the record: colours, the world matrix's columns, the numbers,
    // visible and kind.
    void fillRecord(unsigned char out[kRecordSize]) const;

    // -- run-time members ---------------------------------------------------------
    ScnMatrix16 worldMatrix;
    float worldFloat[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    double worldBox[6] = {0, 0, 0, 0, 0, 0};  // the volume's box of the last light pass
    double boxHalfSize = 1;                   // for picking
    int index = 0;                            // place in this frame's event pass
    unsigned vertexArray = 0, vertexBuffer = 0;

    // Lights alive: what gs_LightCount reports.
    static int aliveCount();
    // After a light program's link: the geometry buffer's samplers
    // gs_Input0 to gs_Input3 on units 0 to 3 (the combiner reads them too).
    static void setInputSamplers(unsigned program);
    // The created lights of a kind, in the order they were created.
    static const std::vector<ScnDeferredLight*>& ring(Kind kind);

    // Sets the light's uniforms on `program`: "gs_Light[i].*" for index >= 0,
    // "gs_Light.*" for -1. Axes and position are taken into eye space by
    // `view`.
    void setUniforms(unsigned program, const ScnMatrix16& view, int index) const;

    // The camera's frustum as six planes (a, b, c, d; inside where
    // a x + b y + c z + d >= 0), from the projection and view of an action.
    struct Frustum {
        double plane[6][4];
        explicit Frustum(const ScnActionRender& action);
        // False when the box (min x, y, z, max x, y, z) lies outside a plane.
        bool touches(const double box[6]) const;
    };

    // Draws the volume in the light pass with the direct program in use:
    // skipped (false) outside the camera's frustum.
    virtual bool drawVolume(const ScnActionRender&, const Frustum&, double /*nearPlane*/) { return false; }
    // Rebuilds the volume's vertices from the fields and uploads them.
    void rebuildVolume();
    // The vertices of the volume, three floats each.
    const std::vector<float>& volume() const { return m_volume; }

    void onEvent(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    // While the application is stopped: the volume as wire in the diffuse colour.
    void onRender(ScnAction& action) override;
    // Binds the light to a shader met in the render walk.
    void onRenderPass(ScnAction& action, ScnShader* shader) override;

    // Script methods.
    static void addLuaMethods(ScnLuaClass<ScnDeferredLight>& c);
    int luaGetShader(lua_State* L);
    int luaGetDiffuse(lua_State* L);
    int luaGetAmbient(lua_State* L);
    int luaGetSpecular(lua_State* L);
    int luaSetDiffuse(lua_State* L);
    int luaSetAmbient(lua_State* L);
    int luaSetSpecular(lua_State* L);
    int luaGetRange(lua_State* L);
    int luaGetIntensity(lua_State* L);
    int luaGetAttenuate(lua_State* L);
    int luaSetRange(lua_State* L);
    int luaSetIntensity(lua_State* L);
    int luaSetAttenuate(lua_State* L);
    // getLightParams of the two usable kinds.
    int luaGetLightParams(lua_State* L);

protected:
    // The vertices of the volume from the fields.
    virtual void makeVolume(std::vector<float>&) const {}
    // Fields whose change rebuilds the volume.
    virtual bool shapesVolume(const void* field) const { return field == &range; }
    // The spread of a spot light; point lights have none.
    virtual float spreadValue() const { return 0; }
    // Sends the preset matrices for `model`, the light's uniforms and
    // gs_Viewport, then draws `count` vertices with the front face chosen by
    // whether the eye is inside.
    void drawWith(const ScnActionRender& action, const ScnMatrix16& model, bool eyeInside, int count) const;
    // Points the direct program's gs_Vertex at the volume's buffer.
    void wireVolume();

    std::vector<float> m_volume;
    bool m_created = false;

private:
    // Out of the rings, the count and the global bindings; the volume's GL
    // objects go.
    void leave();
    int colour(lua_State* L, ScnSFColor& field, bool set);
    int number(lua_State* L, ScnSF<float>& field, bool set);
};
