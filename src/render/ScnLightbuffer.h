// The light buffer: three additive targets (diffuse, specular, ambient) in
// half floats, with no pixel buffer. doLighting draws every light into them
// and combines them with a geometry buffer through the `lighting` shader.
#pragma once

#include "render/ScnFramebuffer.h"
#include "render/ScnShader.h"

class ScnLightbuffer : public ScnFramebuffer {
    SCN_NODE(ScnLightbuffer, ScnFramebuffer)
public:
    ScnLightbuffer();

    ScnSFNode<ScnShader> lighting{this, "lighting"};

    // The light pass: the inputs of units 0 to 3 are the attachments of `fb`
    // or, where given, the textures of `replacements` (GL names, 0 for none);
    // the result goes to attachment 0 of `fb`.
    void doLighting(ScnFramebuffer& fb, const unsigned replacements[4]);

    // The lighting shader is made, freed and updated before the targets.
    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    // Only the two events: the light pass runs from a script in one of them.
    bool begin() override;
    void end() override;

    static void addLuaMethods(ScnLuaClass<ScnLightbuffer>& c);
    int luaDoLighting(lua_State* L);
    int luaGetShader(lua_State* L);
};
