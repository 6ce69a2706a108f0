// A spot light: a cone along the light's minus x axis, drawn as a pyramid
// with its apex at the light and its base at distance `range`.
#pragma once

#include "render/ScnDeferredLight.h"

class ScnDeferredSpotLight : public ScnDeferredLight {
    SCN_NODE(ScnDeferredSpotLight, ScnDeferredLight)
public:
    ScnDeferredSpotLight();

    ScnSF<float> spread{this, "spread", 0.96f};  // cosine of the cone's half angle

    Kind kind() const override { return SpotKind; }
    // Files older than 1016 had another spot shader: it is reloaded.
    void read(ScnInStream& in) override;
    bool drawVolume(const ScnActionRender& action, const Frustum& frustum, double nearPlane) override;
    // Half the size of the pyramid's base.
    double halfSize() const;

    static void addLuaMethods(ScnLuaClass<ScnDeferredSpotLight>& c);
    int luaSetSpread(lua_State* L);
    int luaGetSpread(lua_State* L);

protected:
    void makeVolume(std::vector<float>& vertices) const override;
    bool shapesVolume(const void* field) const override { return field == &range || field == &spread; }
    float spreadValue() const override { return spread.value; }
};
